#include "results/AmplitudePicture.h"

#include <cstdint>
#include <cstring>

#include <QBuffer>

#include "core/ChunkHeader.h"
#include "results/GreyScaleArrayImageConverter.h"
#include "roi/RoiSyncer_RX7100.h"

namespace orv {

QImage AmplitudePicture::grey(void const* chunk, unsigned int size)
{
    ChunkHeader header;
    if (size < sizeof header)
        return QImage();
    memcpy(&header, chunk, sizeof header);
    uint64_t const pixels = uint64_t(header.width) * header.height;
    if (size < sizeof header + pixels * sizeof(uint16_t))
        return QImage();
    GreyScaleArrayImageConverter converter;
    converter.setSize(header.width, header.height);
    converter.setLogarithmic(true, 500.0f);
    return converter.convert_array(
        reinterpret_cast<const unsigned short*>(static_cast<const unsigned char*>(chunk) + sizeof header));
}

QByteArray AmplitudePicture::png(void const* chunk, unsigned int size, QByteArray const& modelJson)
{
    QImage image = grey(chunk, size);
    if (image.isNull())
        return QByteArray();
    RoiSyncer_RX7100 rois;
    rois.loadFromJson(modelJson);
    rois.paintRois(image);
    // Every pixel is opaque: without the alpha channel the encoder filters and deflates three bytes a
    // pixel instead of four, and the decoded colours stay the same.
    image.reinterpretAsFormat(QImage::Format_RGB32);

    QByteArray file;
    QBuffer device(&file);
    device.open(QIODevice::WriteOnly);
    image.save(&device, "PNG");
    return file;
}

} // namespace orv
