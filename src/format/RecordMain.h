// The whole result of one acquisition as a record: values of the JSON result, values the device
// keeps per result, the image blobs of the result manager, and the list of evaluation models.
#pragma once

#include "format/RecordInterface.h"
#include "results/ResultModel.h"

namespace orv {

class ResultLookup;

class RecordMain : public RecordInterface
{
public:
    // result may be null: then there are no device values and no blobs. Both it and resultId must
    // outlive the record.
    RecordMain(ResultLookup const* result, ResultModel const& model, char const* resultId);

    QSharedPointer<RecordListInterface> getSubRecords(QString const& id) override;
    // A view over the result manager's buffer, valid only while the request is served.
    QByteArray getBlob(QString const& id) override;
    QVariant getValue(QString const& id) override;

private:
    QSharedPointer<RecordListInterface> models();
    QVariant statistic(QString const& id, bool& handled);
    QVariant virtualOutputs();
    QVariant lookup(QString const& id);

    ResultLookup const* m_owner;
    ResultModel m_model;
    char const* m_resultId;
    QSharedPointer<RecordListInterface> m_models;
};

} // namespace orv
