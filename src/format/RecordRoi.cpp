#include "format/RecordRoi.h"

#include <QDebug>

#include "format/RecordListInterface.h"

namespace orv {

RecordRoi::RecordRoi(ResultModel const& model, int id) : m_model(model), m_id(id) {}

QSharedPointer<RecordListInterface> RecordRoi::getSubRecords(QString const&)
{
    return QSharedPointer<RecordListInterface>();
}

QByteArray RecordRoi::getBlob(QString const&)
{
    return QByteArray();
}

QVariant RecordRoi::getValue(QString const& id)
{
    static QString const boundingBoxPrefix = QStringLiteral("bounding_box_");
    if (id == QLatin1String("id"))
        return m_id;
    if (id.startsWith(boundingBoxPrefix))
        return m_model.get(QStringLiteral("boundingBox")).toMap().value(id.mid(boundingBoxPrefix.size()));
    QVariant value;
    if (m_model.get(id, value))
        return value;
    qDebug() << "ROI ResultModel doesn't contain id:" << id;
    return QVariant();
}

} // namespace orv
