#include <gmock/gmock.h>

#include "results/GreyScaleArrayImageConverter.h"

using orv::ConverterParams;
using orv::GreyScaleArrayImageConverter;

namespace {

unsigned int grey(int level)
{
    return 0xFF000000u | unsigned(level) << 16 | unsigned(level) << 8 | unsigned(level);
}

ConverterParams linear(float min, float max, bool wrap = false)
{
    return ConverterParams{wrap, false, false, false, min, max, 0};
}

TEST(GreyScaleArrayImageConverter, MapsTheRangeLinearlyOntoOpaqueGreyAndClampsOutside)
{
    GreyScaleArrayImageConverter converter;
    QVector<unsigned int> const map = converter.getColorMap();
    ASSERT_EQ(map.size(), 256);
    EXPECT_EQ(map[0], 0xFF000000u);
    EXPECT_EQ(map[128], 0xFF808080u);
    EXPECT_EQ(map[255], 0xFFFFFFFFu);

    converter.setConverterParams(linear(0, 100));
    EXPECT_EQ(converter.convertPoint(0), grey(0));
    EXPECT_EQ(converter.convertPoint(50), grey(128));
    EXPECT_EQ(converter.convertPoint(100), grey(255));
    EXPECT_EQ(converter.convertPoint(1e9f), grey(255));
    EXPECT_EQ(converter.convertPoint(-5), grey(0));

    converter.setConverterParams(linear(0, 100, true));
    EXPECT_EQ(converter.convertPoint(150), grey(128));
}

TEST(GreyScaleArrayImageConverter, ScalesLogarithmicallyOnlyAfterTheNextRangeChange)
{
    GreyScaleArrayImageConverter converter;
    converter.setMinMax(0, 1000);
    converter.setLogarithmic(true, 500);
    // logScale still comes from the range (1000), not from the new parameter.
    EXPECT_EQ(converter.convertPoint(1000), grey(int(std::log(501.0) / std::log(1001.0) * 256)));

    converter.setMinMax(0, 1000);
    EXPECT_EQ(converter.convertPoint(1000), grey(255));
    EXPECT_EQ(converter.convertPoint(0), grey(0));
    EXPECT_EQ(converter.convertPoint(100), grey(int(std::log(51.0) / std::log(501.0) * 256)));
}

TEST(GreyScaleArrayImageConverter, AnEmptyRangeSplitsAtTheMinimum)
{
    GreyScaleArrayImageConverter converter;
    converter.setConverterParams(linear(10, 10));
    EXPECT_EQ(converter.convertPoint(9.9f), grey(0));
    EXPECT_EQ(converter.convertPoint(10), grey(255));
    EXPECT_EQ(converter.convertPoint(11), grey(255));
    converter.setConverterParams(linear(10, 10, true));
    EXPECT_EQ(converter.convertPoint(11), grey(0));

    // Automatic min/max over equal values gives that empty range: every pixel is the last colour.
    ConverterParams automatic = linear(0, 0);
    automatic.autoMinMax = true;
    converter.setConverterParams(automatic);
    converter.setSize(2, 2);
    float const same[4] = {3, 3, 3, 3};
    QImage const image = converter.convert_array(same);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(image.pixel(i % 2, i / 2), grey(255));
}

TEST(GreyScaleArrayImageConverter, ConvertsArraysRowByRowWithAnOptionalTransparencyMask)
{
    GreyScaleArrayImageConverter converter;
    converter.setSize(3, 2);
    unsigned short const values[6] = {100, 200, 300, 400, 500, 600};
    QImage image = converter.convert_array(values);
    float min = 0, max = 0;
    converter.getMinMax(min, max);
    EXPECT_EQ(min, 100);
    EXPECT_EQ(max, 600);
    ASSERT_EQ(image.size(), QSize(3, 2));
    EXPECT_EQ(image.format(), QImage::Format_ARGB32);
    EXPECT_EQ(image.pixel(0, 0), grey(0));
    EXPECT_EQ(image.pixel(2, 0), grey(102)); // (300 - 100) / 500 * 256 = 102.4
    EXPECT_EQ(image.pixel(0, 1), grey(153)); // 153.6
    EXPECT_EQ(image.pixel(2, 1), grey(255));

    converter.setTransparencyMap({false, true, false, false, false, true});
    image = converter.convert_array(values);
    EXPECT_EQ(image.pixel(1, 0), grey(51) & 0x00FFFFFFu);
    EXPECT_EQ(image.pixel(2, 1), 0x00FFFFFFu);
    EXPECT_EQ(image.pixel(0, 1), grey(153));

    converter.setTransparencyMap({true, true, true});
    image = converter.convert_array(values);
    EXPECT_EQ(qAlpha(image.pixel(0, 0)), 255);

    // A negative automatic minimum is lifted to 0 on request.
    converter.setMinNotNegative(true);
    float const signedValues[6] = {-50, 0, 25, 50, 75, 100};
    image = converter.convert_array(signedValues);
    EXPECT_EQ(image.pixel(0, 0), grey(0));
    EXPECT_EQ(image.pixel(0, 1), grey(128));

    converter.setSize(5, 0);
    EXPECT_TRUE(converter.convert_array(values).isNull());
}

TEST(GreyScaleArrayImageConverter, BloatingInterpolatesBetweenNeighbouringColours)
{
    GreyScaleArrayImageConverter converter;
    converter.bloatColorMap(0);
    EXPECT_EQ(converter.getColorMap().size(), 256);
    converter.bloatColorMap(1);
    QVector<unsigned int> const map = converter.getColorMap();
    ASSERT_EQ(map.size(), 511);
    for (int k = 0; k < 256; ++k)
        ASSERT_EQ(map[2 * k], grey(k)) << k;
    for (int k = 0; k < 255; ++k)
        ASSERT_EQ(map[2 * k + 1], grey((2 * k + 1) / 2)) << k; // (2a + (a + 1 - a)) / 2

    // The colour map is used at its new size.
    converter.setConverterParams(linear(0, 1));
    EXPECT_EQ(converter.convertPoint(0.5f), map[255]);
}

class TwoColours : public orv::ArrayImageConverter
{
public:
    TwoColours() { initColorMap(); }
    QVector<unsigned int> colours() const { return m_colorMap; }

protected:
    void initColorMap() override
    {
        m_colorMap = {0xFF000000u, 0xFFFFFFFFu};
        m_colorMapSize = 2;
    }
};

TEST(ArrayImageConverter, BloatingTwoColoursByOneGivesTheRoundedDownMiddle)
{
    TwoColours converter;
    converter.bloatColorMap(1);
    EXPECT_THAT(converter.colours(), ::testing::ElementsAre(0xFF000000u, 0xFF7F7F7Fu, 0xFFFFFFFFu));
    converter.bloatColorMap(2);
    EXPECT_EQ(converter.colours().size(), 7);
    EXPECT_EQ(converter.colours()[1], 0xFF2A2A2Au); // 127 / 3 = 42
}

} // namespace
