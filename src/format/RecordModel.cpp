#include "format/RecordModel.h"

#include <cstring>

#include <QDebug>
#include <QFile>

#include "core/ChunkHeader.h"
#include "core/Paths.h"
#include "format/RecordListROIs.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the chunk header is copied as it lies in memory");

namespace orv {

namespace {
constexpr uint32_t roiMaskPixelFormat = 7;
}

RecordModel::RecordModel(ResultModel const& model, int id, QString const& resultId)
    : m_model(model), m_id(id), m_resultId(resultId)
{}

QSharedPointer<RecordListInterface> RecordModel::rois()
{
    if (m_rois.isNull())
        m_rois = QSharedPointer<RecordListROIs>::create(m_model);
    return m_rois;
}

QSharedPointer<RecordListInterface> RecordModel::getSubRecords(QString const& id)
{
    if (id == QLatin1String("rois"))
        return rois();
    return QSharedPointer<RecordListInterface>();
}

QByteArray RecordModel::getBlob(QString const& id)
{
    if (id == QLatin1String("roimask"))
        return roiMask();
    return QByteArray();
}

QByteArray RecordModel::roiMask()
{
    QString const name = QStringLiteral("%1/%2/roimask_%3")
                             .arg(QString::fromStdString(Paths::imagerRunDir()), m_resultId)
                             .arg(m_id);
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug() << "Couldn't find roimask file" << name;
        return QByteArray();
    }
    QByteArray const mask = file.readAll();
    file.close();

    ChunkHeader header;
    header.chunkType = ChunkType::RoiMask;
    header.chunkSize = static_cast<uint32_t>(sizeof header + mask.size());
    header.pixelFormat = roiMaskPixelFormat;
    header.frameCount = static_cast<uint32_t>(m_id);

    QByteArray blob(reinterpret_cast<char const*>(&header), sizeof header);
    blob.append(mask);
    return blob;
}

QVariant RecordModel::getValue(QString const& id)
{
    if (id == QLatin1String("id"))
        return m_id;
    if (id == QLatin1String("rois.count"))
        return rois()->size();
    if (id == QLatin1String("allROIsGood")) {
        // A model without counters is not good: it needs at least one good ROI.
        return getValue(QStringLiteral("numGood")).toInt() > 0 &&
               getValue(QStringLiteral("numInvalid")).toInt() == 0 &&
               getValue(QStringLiteral("numUnderSP1")).toInt() == 0 &&
               getValue(QStringLiteral("numOverSP2")).toInt() == 0;
    }
    QVariant value;
    if (m_model.get(id, value))
        return value;
    qDebug() << "Model ResultModel doesn't contain id:" << id;
    return QVariant();
}

} // namespace orv
