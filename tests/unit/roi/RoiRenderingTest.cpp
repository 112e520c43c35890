// The ROIs of a result model as they are read and drawn: which entries count and in which order,
// and each kind's outline checked against its ideal outline computed here (pen-coloured pixels
// only, no more of them than the outline is long, and a lit pixel at every corner and along every
// edge).
#include <gtest/gtest.h>

#include <cmath>

#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>

#include "roi/RoiElements.h"
#include "roi/RoiSyncer_RX7100.h"

static QPolygonF regular(int corners)
{
    QPolygonF unit;
    for (int k = 0; k < corners; ++k)
        unit << QPointF(std::cos(2 * M_PI * k / corners) / 2, std::sin(2 * M_PI * k / corners) / 2);
    return unit;
}

// Draws one ROI of the kind on a grey canvas at a few angles and compares it with the corners given
// as fractions of width and height (height 0: as wide as high), turned clockwise on the image.
static void expectOutline(char const* type, double width, double height, QVector<QPointF> const& corners)
{
    for (double angle : {0.0, 30.0, -125.0}) {
        SCOPED_TRACE(std::string(type) + " at " + std::to_string(angle));
        QJsonObject const roi{
            {"type", type},     {"center_x", 80}, {"center_y", "76"},        {"width", width},
            {"height", height}, {"angle", angle}, {"points", corners.size()}};
        orv::RoiSyncer_RX7100 syncer;
        QJsonObject const rois{{"ROIs", QJsonObject{{"1", roi}}}};
        ASSERT_TRUE(syncer.loadFromJson(QJsonDocument(QJsonObject{{"model_001", rois}}).toJson()));
        QImage image(160, 160, QImage::Format_Grayscale8);
        image.fill(0);
        syncer.paintRois(image);
        int lit = 0;
        for (int i = 0; i < 160 * 160; ++i) {
            QRgb const pixel = image.pixel(i % 160, i / 160);
            ASSERT_TRUE(pixel == qRgb(0, 255, 0) || pixel == qRgb(0, 0, 0)) << i % 160 << "," << i / 160;
            lit += pixel != qRgb(0, 0, 0);
        }

        double const t = angle * M_PI / 180, h = height > 0 ? height : width, n = corners.size();
        auto const placed = [&](int i) {
            QPointF const p = corners[i % corners.size()];
            return QPointF(80 + p.x() * width * std::cos(t) - p.y() * h * std::sin(t),
                           76 + p.x() * width * std::sin(t) + p.y() * h * std::cos(t));
        };
        double perimeter = 0; // an aliased one-pixel outline lights at most about its length
        for (int i = 0; i < n; ++i)
            perimeter += std::hypot(placed(i + 1).x() - placed(i).x(), placed(i + 1).y() - placed(i).y());
        EXPECT_LE(lit, perimeter * 1.2 + 8);
        for (int i = 0; i < 4 * n; ++i) { // every corner and the quarter points of every edge
            QPointF const p = placed(i / 4) + (i % 4) / 4.0 * (placed(i / 4 + 1) - placed(i / 4));
            ASSERT_FALSE(image.copy(int(p.x()) - 1, int(p.y()) - 1, 3, 3).allGray())
                << "no pixel near " << p.x() << "," << p.y();
        }
    }
}

TEST(RoiRendering, DrawsEachKindAsAOnePixelOutlineWhereItsGeometryPutsIt)
{
    QVector<QPointF> const box{{-0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}};
    expectOutline("Rect", 90, 40, box);
    expectOutline("Square", 70, 0, box);
    expectOutline("Ellipse", 110, 50, regular(720));
    expectOutline("Circle", 120, 0, regular(720));
    expectOutline("Hexagon", 100, 0, regular(6));
    expectOutline("Regular", 90, 0, regular(5));
    expectOutline("HoneycombLonger", 100, 60,
                  {{-0.5, 0}, {-0.25, -0.5}, {0.25, -0.5}, {0.5, 0}, {0.25, 0.5}, {-0.25, 0.5}});
    expectOutline("HoneycombShorter", 60, 100,
                  {{0, -0.5}, {0.5, -0.25}, {0.5, 0.25}, {0, 0.5}, {-0.5, 0.25}, {-0.5, -0.25}});
    expectOutline("HoneycombRight", 40, 90, {{-0.5, -0.5}, {0.5, -0.25}, {0.5, 0.25}, {-0.5, 0.5}});
    expectOutline("HoneycombLeft", 40, 90, {{0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.25}, {-0.5, -0.25}});
}

TEST(RoiElements, ReadsEveryModelsRoisAndStatesInNumericOrderWithUpdatesAndSkipsWhatCannotBeDrawn)
{
    orv::RoiElements rois;
    ASSERT_TRUE(rois.load(R"({"model_002": {"ROIs": [{"type": "Circle"}, {"id": 5, "type": "Ellipse"}]},
        "model_001": {"ROIs": {"10": {"state": "good"}, "9": {"type": "Triangle"}, "4": {"type": "Regular", "points": 2}, "6": {"type": "Regular", "points": 2000000000},
        "3": {"type": "Poly", "points": []}, "2": {"type": "Poly", "state": "good", "points": [{"x": "1.5"}, {"y": 4}]}},
        "ROIsUpdated": {"ROIs": [{"id": 10, "type": "Square", "state": "bad"}, {"id": 77, "type": "Hexagon"}]}},
        "notamodel": {"ROIs": {"1": {"type": "Rect"}}}})"));
    QStringList seen;
    for (orv::RoiElements::Element const& element : rois.elements())
        seen << element.model + "/" + QString::number(element.id) + "/" + element.type + "/" + element.state;
    EXPECT_EQ(seen, QStringList({"model_001/2/Poly/good", "model_001/10/Square/bad", "model_001/77/Hexagon/",
                                 "model_002/0/Circle/", "model_002/5/Ellipse/"}));
    EXPECT_EQ(rois.skipped(), 4);
    EXPECT_EQ(rois.elements()[0].shape.data(orv::RoiShapeModel::PolygonRole).value<QPolygonF>(),
              (QVector<QPointF>{{1.5, 0}, {0, 4}}));
}
