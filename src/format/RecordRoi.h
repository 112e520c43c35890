// One region of interest of an evaluation model as a record; ROIs have no lists and no blobs.
#pragma once

#include "format/RecordInterface.h"
#include "results/ResultModel.h"

namespace orv {

class RecordRoi : public RecordInterface
{
public:
    RecordRoi(ResultModel const& model, int id);

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override;
    QByteArray getBlob(QString const& id) override;
    QVariant getValue(QString const& id) override;

private:
    ResultModel m_model;
    int m_id;
};

} // namespace orv
