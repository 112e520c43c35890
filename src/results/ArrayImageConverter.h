// Turns a two-dimensional array of measured values into a 32-bit ARGB picture through a colour map,
// with linear or logarithmic scaling between a set or automatically found minimum and maximum.
#pragma once

#include <QImage>
#include <QVector>

namespace orv {

struct ConverterParams
{
    bool wrap; // wrap around the colour map instead of clamping; also no automatic min/max
    bool logarithmic;
    bool autoMinMax;     // find min and max in each array before converting
    bool minNotNegative; // a negative automatic minimum becomes 0
    float min;
    float max;
    float logParam; // at most 0: the value range is used instead
};

class ArrayImageConverter
{
public:
    ArrayImageConverter();
    virtual ~ArrayImageConverter() = default;

    void setSize(unsigned int width, unsigned int height);
    void setMinMax(float min, float max);
    void getMinMax(float& min, float& max);
    void setAutoMinMax(bool on);
    void setMinNotNegative(bool on);
    // Takes effect at the next setMinMax or setConverterParams (automatic min/max does one on
    // every conversion).
    void setLogarithmic(bool on, float logParam);
    void setConverterParams(ConverterParams params);
    void setTransparencyMap(QVector<bool> map);
    void bloatColorMap(unsigned int n);

    unsigned int convertPoint(float value);
    QImage convert_array(const unsigned short* values);
    QImage convert_array(const float* values);

protected:
    virtual void initColorMap() = 0;

    int m_colorMapSize = 0;
    QVector<unsigned int> m_colorMap;
    QVector<bool> m_transparencyMap;

private:
    template <typename T> QImage convert(const T* values);
    template <typename T, typename Colour>
    void paint(QImage& image, const T* values, Colour const& colourOf) const;
    void setHelperValues();
    float scaleParameter() const;

    bool m_wrap = false;
    bool m_logarithmic = false;
    bool m_autoMinMax = true;
    bool m_minNotNegative = false;
    float m_min = 0;
    float m_max = 0;
    float m_logParam = 0;
    unsigned int m_width = 0;
    unsigned int m_height = 0;
    float m_range = 0;
    float m_logScale = 0;
};

} // namespace orv
