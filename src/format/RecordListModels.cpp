#include "format/RecordListModels.h"

#include "format/RecordModel.h"

namespace orv {

RecordListModels::RecordListModels(ResultModel const& result, QString const& resultId)
    : m_model(result), m_resultId(resultId)
{
    for (QString const& key : m_model.getKeys()) {
        if (key.startsWith(QLatin1String("model_")))
            m_keys << key;
    }
}

int RecordListModels::size() const
{
    return m_keys.size();
}

QSharedPointer<RecordInterface> RecordListModels::getRecord(int index)
{
    if (index < 0 || index >= m_keys.size())
        return QSharedPointer<RecordInterface>();
    QString const& key = m_keys.at(index);
    ResultModel model;
    if (!m_model.get(key, model))
        return QSharedPointer<RecordInterface>();
    // KEPT: the id is the key's last three characters ("model_7" gives 0), as clients number models.
    return QSharedPointer<RecordModel>::create(model, key.right(3).toInt(nullptr, 10), m_resultId);
}

} // namespace orv
