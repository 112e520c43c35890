// A result with no values, whose lists hold a given number of records: formatted, it shows the
// layout a description gives every result of those counts, which is what a client's data types
// are made from.
#pragma once

#include <QMap>
#include <QSet>
#include <QString>

#include "format/RecordInterface.h"

class LayoutRecord : public RecordInterface
{
public:
    // counts: records per list id ("models" -> 4); a list without a count is remembered in
    // uncounted and has no records.
    LayoutRecord(QMap<QString, int> const& counts, QSet<QString>& uncounted);

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override;
    QByteArray getBlob(QString const& id) override;
    QVariant getValue(QString const& id) override;

private:
    QMap<QString, int> const& m_counts;
    QSet<QString>& m_uncounted;
};
