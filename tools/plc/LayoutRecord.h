// A result with no values, whose lists hold a given number of records: formatted, it shows the
// layout a description gives every result of those counts, which is what a client's data types
// are made from.
#pragma once

#include <QMap>
#include <QSet>
#include <QSharedPointer>
#include <QString>

#include "format/RecordInterface.h"

class LayoutRecord : public RecordInterface
{
public:
    // counts: records per list id ("models" -> 4); a list without a count has no records.
    explicit LayoutRecord(QMap<QString, int> counts);

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override;
    QByteArray getBlob(QString const& id) override;
    QVariant getValue(QString const& id) override;

    // The list ids asked for that have no count, in this record and every record of its lists.
    QSet<QString> uncounted() const { return m_shape->uncounted; }

private:
    // One per layout, shared by every record of its lists, which may outlive the first record.
    struct Shape
    {
        QMap<QString, int> counts;
        QSet<QString> uncounted;
    };
    explicit LayoutRecord(QSharedPointer<Shape> shape);

    QSharedPointer<Shape> m_shape;
};
