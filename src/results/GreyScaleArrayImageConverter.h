// The array image converter with 256 opaque grey levels, black for the minimum, white for the maximum.
#pragma once

#include "results/ArrayImageConverter.h"

namespace orv {

class GreyScaleArrayImageConverter : public ArrayImageConverter
{
public:
    GreyScaleArrayImageConverter();

    QVector<unsigned int> getColorMap() const { return m_colorMap; }

protected:
    void initColorMap() override;
};

} // namespace orv
