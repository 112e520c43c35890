// The picture a client gets of a result's normalised amplitude image: grey levels on a logarithmic
// scale, the result's regions of interest painted on, as a PNG file.
#pragma once

#include <QByteArray>
#include <QImage>

namespace orv {

class AmplitudePicture
{
public:
    // The grey picture of a chunk of 16-bit pixels (header width and height); null when the chunk
    // is shorter than its header says.
    static QImage grey(void const* chunk, unsigned int size);
    // The PNG file of the grey picture with the ROIs of the JSON result model painted on; empty
    // when the chunk holds no picture.
    static QByteArray png(void const* chunk, unsigned int size, QByteArray const& modelJson);
};

} // namespace orv
