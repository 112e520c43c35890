// One evaluation model of a result as a record: its values, its ROIs and its ROI mask.
#pragma once

#include "format/RecordInterface.h"
#include "results/ResultModel.h"

namespace orv {

class RecordModel : public RecordInterface
{
public:
    RecordModel(ResultModel const& model, int id, QString const& resultId);

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override;
    // Only "roimask": the mask file of this model in the imager's run directory behind a chunk header.
    QByteArray getBlob(QString const& id) override;
    QVariant getValue(QString const& id) override;

private:
    QSharedPointer<RecordListInterface> rois();
    QByteArray roiMask();

    ResultModel m_model;
    int m_id;
    QSharedPointer<RecordListInterface> m_rois;
    QString m_resultId;
};

} // namespace orv
