// Base of the layouters that turn a result's records into the byte stream a client described.
#pragma once

#include <QByteArray>
#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

class RecordInterface;
class RecordListInterface;

class VornResultLayouter
{
public:
    virtual ~VornResultLayouter() = default;

    virtual void serializeRecordList(QSharedPointer<RecordListInterface> list,
                                     QMap<QString, QVariant> const& format,
                                     QMap<QString, QVariant> const& settings, QByteArray& out) = 0;
    virtual void serializeRecord(QSharedPointer<RecordInterface> record,
                                 QMap<QString, QVariant> const& format,
                                 QMap<QString, QVariant> const& settings, QByteArray& out) = 0;
};
