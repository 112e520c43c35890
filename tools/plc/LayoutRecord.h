// A result with no values whose every list holds the same number of records: formatted, it shows
// the shape a description gives its answer (PlcLayout reads it with one record per list).
#pragma once

#include <QSharedPointer>
#include <QString>

#include "format/RecordInterface.h"

class LayoutRecord : public RecordInterface
{
public:
    explicit LayoutRecord(int recordsPerList = 1) : m_records(recordsPerList) {}

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override;
    QByteArray getBlob(QString const& id) override;
    QVariant getValue(QString const& id) override;

private:
    int m_records;
};
