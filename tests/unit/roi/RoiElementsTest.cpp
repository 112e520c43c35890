// Reading the ROIs of a result model: which entries count, in which order, and what is left out.
#include <QImage>

#include <gtest/gtest.h>

#include "roi/RoiElements.h"
#include "roi/RoiSyncer_RX7100.h"

using orv::RoiElements;
using orv::RoiShapeModel;

namespace {

QByteArray const TwoModels = R"({
  "ApplicationIndex": 2,
  "model_002": { "ROIs": { "1": { "type": "Circle", "id": 1, "center_x": 20.5, "center_y": 20.5, "width": 20 } } },
  "model_001": {
    "ROIs": {
      "10": { "type": "Rect", "id": 10, "center_x": 20, "center_y": 30, "width": 8, "height": 4, "angle": 15 },
      "9": { "type": "Triangle", "id": 9, "center_x": 1, "center_y": 1 },
      "2": { "type": "Ellipse", "id": 2, "center_x": "12.5", "center_y": "7", "width": 6, "height": 2 },
      "3": { "type": "Poly", "id": 3, "points": [] },
      "4": { "type": "Regular", "id": 4, "center_x": 9, "center_y": 9, "width": 4, "points": 2 }
    },
    "ROIsUpdated": { "ROIs": [
      { "id": 10, "type": "Square", "center_x": 40, "center_y": 41, "width": 6 },
      { "id": 77, "type": "Hexagon", "center_x": 0, "center_y": 0, "width": 6 }
    ] }
  },
  "notamodel": { "ROIs": { "1": { "type": "Rect", "width": 3, "height": 3 } } }
})";

} // namespace

TEST(RoiElements, ReadsTheModelsInKeyOrderAndTheirRoisInNumericOrderWithUpdatesApplied)
{
    RoiElements rois;
    ASSERT_TRUE(rois.load(TwoModels));

    QStringList seen;
    for (RoiElements::Element const& element : rois.elements())
        seen << element.model + "/" + QString::number(element.id) + "/" + element.type;
    EXPECT_EQ(seen, QStringList({"model_001/2/Ellipse", "model_001/10/Square", "model_001/77/Hexagon",
                                 "model_002/1/Circle"}));
    // An unknown type, a polygon without points and a polygon of two corners are not drawn.
    EXPECT_EQ(rois.skipped(), 3);

    RoiShapeModel const& ellipse = rois.elements()[0].shape;
    EXPECT_EQ(ellipse.getType(), RoiShapeModel::RotatedEllipse);
    EXPECT_EQ(ellipse.data(RoiShapeModel::CenterRole).toPointF(), QPointF(12.5, 7)); // numbers as text
    RoiShapeModel const& square = rois.elements()[1].shape;
    EXPECT_EQ(square.getType(), RoiShapeModel::RotatedRect);
    EXPECT_EQ(square.data(RoiShapeModel::SizeRole).toSizeF(), QSizeF(6, 6));
    EXPECT_EQ(square.data(RoiShapeModel::CenterRole).toPointF(), QPointF(40, 41));
}

TEST(RoiElements, ForgetsEarlierRoisWhenTheNextTextIsNoModel)
{
    RoiElements rois;
    ASSERT_TRUE(rois.load(TwoModels));
    EXPECT_FALSE(rois.load("[1, 2]"));
    EXPECT_FALSE(rois.load("{ \"model_001\": "));
    EXPECT_TRUE(rois.elements().isEmpty());
    EXPECT_TRUE(rois.load("{ \"model_001\": { \"ROIs\": 5 } }"));
    EXPECT_TRUE(rois.elements().isEmpty());
}

TEST(RoiSyncer, KeepsTheOutlineColourOnAGreyImageAndLeavesAnImageWithoutRoisAlone)
{
    QImage grey(64, 64, QImage::Format_Grayscale8);
    grey.fill(40);
    QImage const before = grey;

    orv::RoiSyncer_RX7100 syncer;
    ASSERT_TRUE(syncer.loadFromJson("{ \"model_001\": {} }"));
    syncer.paintRois(grey);
    EXPECT_EQ(grey, before);

    ASSERT_TRUE(syncer.loadFromJson(TwoModels));
    syncer.paintRois(grey);
    ASSERT_NE(grey.format(), QImage::Format_Grayscale8);
    EXPECT_EQ(grey.pixel(20, 10), orv::RoiSyncer_RX7100::penColor().rgb()); // top of the circle
    EXPECT_EQ(grey.pixel(20, 20), qRgb(40, 40, 40));
}
