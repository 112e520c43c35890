#include "results/GreyScaleArrayImageConverter.h"

namespace orv {

GreyScaleArrayImageConverter::GreyScaleArrayImageConverter()
{
    initColorMap();
}

void GreyScaleArrayImageConverter::initColorMap()
{
    m_colorMapSize = 256;
    m_colorMap.resize(m_colorMapSize);
    for (unsigned int i = 0; i < 256; ++i)
        m_colorMap[static_cast<int>(i)] = 0xFF000000u + i * 0x10000u + i * 0x100u + i;
}

} // namespace orv
