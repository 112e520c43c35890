// Grey pictures of measured arrays: linear or logarithmic scaling, clamping or wrapping, the range
// found in the data, and transparency.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "results/GreyScaleArrayImageConverter.h"

using orv::GreyScaleArrayImageConverter;

auto const grey = [](int level) { return qRgb(level, level, level); }; // opaque

TEST(GreyScaleArrayImageConverter, MapsTheRangeOntoGreyClampingOutsideAndSplitsAnEmptyRangeAtItsMinimum)
{
    GreyScaleArrayImageConverter converter;
    auto const colour = [&converter](float min, float max, bool wrap, float value) {
        converter.setConverterParams(orv::ConverterParams{wrap, false, false, false, min, max, 0});
        return converter.convertPoint(value);
    };
    EXPECT_EQ(colour(0, 100, false, 50), grey(128));
    EXPECT_EQ(colour(0, 100, false, 100), grey(255));
    EXPECT_EQ(colour(0, 100, false, -5), grey(0));
    EXPECT_EQ(colour(10, 10, false, 9.9f), grey(0));
    EXPECT_EQ(colour(10, 10, true, 11), grey(0));
}

TEST(GreyScaleArrayImageConverter, ScalesLogarithmicallyOnlyAfterTheNextRangeChange)
{
    GreyScaleArrayImageConverter converter;
    converter.setMinMax(0, 1000);
    converter.setLogarithmic(true, 500);
    // The scale still comes from the range (1000), not from the new parameter.
    EXPECT_EQ(converter.convertPoint(1000), grey(int(std::log(501.0) / std::log(1001.0) * 256)));
    converter.setMinMax(0, 1000);
    EXPECT_EQ(converter.convertPoint(100), grey(int(std::log(51.0) / std::log(501.0) * 256)));
}

TEST(GreyScaleArrayImageConverter, ConvertsArraysRowByRowInTheRangeFoundUnlessWrapping)
{
    GreyScaleArrayImageConverter converter;
    converter.setSize(3, 2);
    unsigned short const values[6] = {100, 200, 300, 400, 500, 600};
    converter.setTransparencyMap({false, true, false, false, false, false});
    QImage const image = converter.convert_array(values);
    EXPECT_EQ(image.pixel(1, 0), grey(51) & 0x00FFFFFFu); // (200 - 100) / 500 * 256, transparent
    EXPECT_EQ(image.pixel(0, 1), grey(153));              // 153.6
    converter.setTransparencyMap({true, true, true});     // not one entry per pixel: ignored
    EXPECT_EQ(converter.convert_array(values).pixel(1, 0), grey(51));

    float const same[6] = {3, 3, 3, 3, 3, 3}, withNegatives[6] = {-50, 0, 25, 50, 75, 100};
    EXPECT_EQ(converter.convert_array(same).pixel(0, 0), grey(255));
    converter.setMinNotNegative(true);
    EXPECT_EQ(converter.convert_array(withNegatives).pixel(0, 1), grey(128));
    converter.setConverterParams(orv::ConverterParams{true, false, true, false, 0, 400, 0}); // keeps 0..400
    EXPECT_EQ(converter.convert_array(values).pixel(0, 1), grey(0));
    EXPECT_EQ(converter.convert_array(values).pixel(2, 1), grey(128));
}

TEST(GreyScaleArrayImageConverter, GivesA16BitArrayTheSamePictureAsTheSameValuesAsFloats)
{
    // A narrow span of values is converted through a table of the values present, a wide one pixel by pixel.
    std::vector<unsigned short> narrow, wide;
    for (int i = 0; i < 64 * 48; ++i) {
        narrow.push_back(static_cast<unsigned short>(1000 + i * 37 % 700));
        wide.push_back(static_cast<unsigned short>(i * 7919 % 65536));
    }
    GreyScaleArrayImageConverter converter;
    converter.setSize(64, 48);
    for (auto const& params : {orv::ConverterParams{false, true, true, false, 0, 0, 500},
                               orv::ConverterParams{false, false, false, false, 1100, 1500, 0},
                               orv::ConverterParams{true, true, false, false, 0, 1200, 0}}) {
        for (auto const* values : {&narrow, &wide}) {
            std::vector<float> const asFloats(values->begin(), values->end());
            converter.setConverterParams(params);
            QImage const fromFloats = converter.convert_array(asFloats.data());
            converter.setConverterParams(params);
            EXPECT_EQ(converter.convert_array(values->data()), fromFloats);
        }
    }
}

// A converter with the colour map it is given; one given none never had its map made.
class GivenColours : public orv::ArrayImageConverter
{
public:
    explicit GivenColours(QVector<unsigned int> const& colours)
    {
        m_colorMap = colours;
        m_colorMapSize = colours.size();
    }

protected:
    void initColorMap() override {}
};

TEST(ArrayImageConverter, BloatsItsColourMapWithColoursInterpolatedBetweenEachPairAndPaintsOnePixel)
{
    GivenColours converter({0xFF000000u, 0xFF00FF00u, 0xFFFFFFFFu}); // black, green, white
    converter.bloatColorMap(0);
    converter.bloatColorMap(2);
    converter.setConverterParams(orv::ConverterParams{false, false, false, false, 0, 7, 0});
    unsigned int const expected[] = {0xFF000000u, 0xFF005500u, 0xFF00AA00u, 0xFF00FF00u,
                                     0xFF55FF55u, 0xFFAAFFAAu, 0xFFFFFFFFu};
    for (int k = 0; k < 7; ++k)
        EXPECT_EQ(converter.convertPoint(float(k)), expected[k]) << k;
    converter.setSize(1, 1);
    float const one = 3;
    EXPECT_EQ(converter.convert_array(&one).pixel(0, 0), expected[3]);
}

TEST(ArrayImageConverterDeathTest, EndsTheProgramForAConverterWithoutColoursRatherThanReadOutsideItsMap)
{
    GivenColours converter({});
    converter.setMinMax(0, 1);
    EXPECT_DEATH(converter.convertPoint(0.5f), "index out of range");
}
