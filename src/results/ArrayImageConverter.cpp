#include "results/ArrayImageConverter.h"

#include <QtGlobal>

#include <cfloat>
#include <climits>
#include <cmath>
#include <type_traits>
#include <vector>

namespace orv {

ArrayImageConverter::ArrayImageConverter()
{
    setHelperValues();
}

void ArrayImageConverter::setSize(unsigned int width, unsigned int height)
{
    m_width = width;
    m_height = height;
}

void ArrayImageConverter::setMinMax(float min, float max)
{
    m_min = min;
    m_max = max;
    setHelperValues();
}

void ArrayImageConverter::getMinMax(float& min, float& max)
{
    min = m_min;
    max = m_max;
}

void ArrayImageConverter::setAutoMinMax(bool on)
{
    m_autoMinMax = on;
}

void ArrayImageConverter::setMinNotNegative(bool on)
{
    m_minNotNegative = on;
}

void ArrayImageConverter::setLogarithmic(bool on, float logParam)
{
    m_logarithmic = on;
    m_logParam = logParam;
}

void ArrayImageConverter::setConverterParams(ConverterParams params)
{
    m_wrap = params.wrap;
    m_logarithmic = params.logarithmic;
    m_autoMinMax = params.autoMinMax;
    m_minNotNegative = params.minNotNegative;
    m_min = params.min;
    m_max = params.max;
    m_logParam = params.logParam;
    setHelperValues();
}

void ArrayImageConverter::setTransparencyMap(QVector<bool> map)
{
    m_transparencyMap = map;
}

float ArrayImageConverter::scaleParameter() const
{
    return m_logParam > 0 ? m_logParam : m_range;
}

void ArrayImageConverter::setHelperValues()
{
    m_range = m_max - m_min;
    m_logScale = 1.0f / std::log(scaleParameter() + 1.0f);
}

unsigned int ArrayImageConverter::convertPoint(float value)
{
    float t;
    if (m_range != 0) {
        t = (value - m_min) / m_range;
        t = m_wrap ? std::fmod(t, 1.0f) : std::fmin(std::fmax(t, 0.0f), 1.0f);
    } else {
        t = value >= m_min ? 1.0f : 0.0f;
        if (m_wrap)
            t = std::fmod(t, 1.0f);
    }
    if (m_logarithmic)
        t = std::log(1.0f + t * scaleParameter()) * m_logScale;

    float const scaled = t * static_cast<float>(m_colorMapSize);
    int index =
        std::isnan(scaled) ? 0 : static_cast<int>(std::fmax(std::fmin(scaled, float(INT_MAX / 2)), -1.0f));
    if (index >= m_colorMapSize)
        index = m_colorMapSize - 1;
    if (index < 0)
        index = 0;
    // A converter without its colour map is a programming error: fatal in every build, never a read
    // outside the map (an assertion would be compiled out of a release build).
    if (index >= m_colorMap.size())
        qFatal("ASSERT failure in convertPoint: \"index out of range\"");
    return m_colorMap.at(index);
}

template <typename T> QImage ArrayImageConverter::convert(const T* values)
{
    size_t const count = size_t(m_width) * m_height;
    float lowest = FLT_MAX;
    float highest = -FLT_MAX;
    if constexpr (std::is_same<T, unsigned short>::value) {
        // In integers the scan vectorises; the float of a 16-bit value is exact, so the range is the
        // same. With the top bit flipped the values order as signed ones, which every SIMD unit can
        // compare (SSE2 has no unsigned 16-bit minimum).
        short low = SHRT_MAX, high = SHRT_MIN;
        for (size_t i = 0; i < count; ++i) {
            auto const v = static_cast<short>(values[i] ^ 0x8000u);
            low = v < low ? v : low;
            high = v > high ? v : high;
        }
        if (count > 0) {
            lowest = static_cast<unsigned short>(low ^ 0x8000);
            highest = static_cast<unsigned short>(high ^ 0x8000);
        }
    } else if (!m_wrap && m_autoMinMax) { // without a table the range serves only the scaling
        for (size_t i = 0; i < count; ++i) {
            float const v = static_cast<float>(values[i]);
            lowest = v < lowest ? v : lowest;
            highest = v > highest ? v : highest;
        }
    }
    if (!m_wrap && m_autoMinMax) {
        float min = lowest;
        if (m_minNotNegative && min < 0)
            min = 0;
        setMinMax(min, highest);
    }
    QImage image(static_cast<int>(m_width), static_cast<int>(m_height), QImage::Format_ARGB32);
    if (count == 0)
        return image;
    // A 16-bit value's colour depends on nothing but the value: when the values present span no more
    // entries than there are pixels, one conversion per entry and a lookup per pixel give the same
    // picture for a fraction of the logarithms.
    if constexpr (std::is_same<T, unsigned short>::value) {
        if (size_t(highest - lowest) < count) {
            unsigned int const base = static_cast<unsigned int>(lowest);
            std::vector<unsigned int> table(size_t(highest - lowest) + 1);
            for (size_t k = 0; k < table.size(); ++k)
                table[k] = convertPoint(static_cast<float>(base + k));
            paint(image, values, [&](T v) { return table[static_cast<unsigned int>(v) - base]; });
            return image;
        }
    }
    paint(image, values, [this](T v) { return convertPoint(static_cast<float>(v)); });
    return image;
}

template <typename T, typename Colour>
void ArrayImageConverter::paint(QImage& image, const T* values, Colour const& colourOf) const
{
    // Local copies: the picture's stores could otherwise alias the members, reloaded for every pixel.
    unsigned int const width = m_width;
    unsigned int const height = m_height;
    bool const masked = size_t(m_transparencyMap.size()) == size_t(width) * height;
    for (unsigned int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(static_cast<int>(y)));
        T const* row = values + size_t(y) * width;
        for (unsigned int x = 0; x < width; ++x)
            line[x] = colourOf(row[x]);
        for (unsigned int x = 0; masked && x < width; ++x) {
            if (m_transparencyMap.at(static_cast<int>(size_t(y) * width + x)))
                line[x] &= 0x00FFFFFFu;
        }
    }
}

QImage ArrayImageConverter::convert_array(const unsigned short* values)
{
    return convert(values);
}

QImage ArrayImageConverter::convert_array(const float* values)
{
    return convert(values);
}

void ArrayImageConverter::bloatColorMap(unsigned int n)
{
    if (n == 0 || m_colorMapSize < 2)
        return;
    int const oldSize = m_colorMapSize;
    int const step = static_cast<int>(n) + 1;
    int const newSize = step * (oldSize - 1) + 1;
    m_colorMap.resize(newSize);
    // From the last pair to the first, so every entry is read before its place is written.
    m_colorMap[newSize - 1] = m_colorMap[oldSize - 1];
    for (int k = oldSize - 2; k >= 0; --k) {
        unsigned int const a = m_colorMap[k];
        unsigned int const b = m_colorMap[(k + 1) * step];
        int const j0 = k * step;
        m_colorMap[j0] = a;
        for (int s = 1; s <= static_cast<int>(n); ++s) {
            unsigned int colour = 0xFF000000u;
            for (int shift : {16, 8, 0}) {
                int const ca = static_cast<int>((a >> shift) & 0xFF);
                int const cb = static_cast<int>((b >> shift) & 0xFF);
                colour |= static_cast<unsigned int>((ca * step + s * (cb - ca)) / step) << shift;
            }
            m_colorMap[j0 + s] = colour;
        }
    }
    m_colorMapSize = newSize;
}

} // namespace orv
