// A read-only view over one level of a result (the whole result, one model, one ROI) that the
// output layouter asks by text id for values, byte blobs and lists of sub-records.
#pragma once

#include <QByteArray>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

class RecordListInterface;

class RecordInterface
{
public:
    virtual ~RecordInterface() = default;

    // Null when the record has no list of that name.
    virtual QSharedPointer<RecordListInterface> getSubRecords(QString const& id) = 0;
    // Empty when there is no such blob.
    virtual QByteArray getBlob(QString const& id) = 0;
    // Invalid when there is no such value.
    virtual QVariant getValue(QString const& id) = 0;
};
