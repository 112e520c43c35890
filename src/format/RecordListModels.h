// The evaluation models of a result (its top-level "model_" entries) in key order.
#pragma once

#include <QStringList>

#include "format/RecordListInterface.h"
#include "results/ResultModel.h"

namespace orv {

class RecordListModels : public RecordListInterface
{
public:
    RecordListModels(ResultModel const& result, QString const& resultId);

    int size() const override;
    // A model's id is the number in the last three characters of its key: model_012 is 12.
    QSharedPointer<RecordInterface> getRecord(int index) override;

private:
    ResultModel m_model;
    QString m_resultId;
    QStringList m_keys;
};

} // namespace orv
