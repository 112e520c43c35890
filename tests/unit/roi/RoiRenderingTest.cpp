// Outlines drawn from a result model, checked pixel by pixel against the ideal outline computed here:
// every drawn pixel's centre lies within one pixel of the ideal curve, every point of the curve has a
// drawn pixel close by, and nothing else on the image changes.
#include <cmath>
#include <functional>
#include <string>

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include "roi/RoiSyncer_RX7100.h"

using orv::RoiSyncer_RX7100;

namespace {

int const Side = 160;
QPointF const Center(80, 76);

QPointF turned(QPointF const& p, double degrees)
{
    double const t = degrees * M_PI / 180.0;
    return QPointF(p.x() * std::cos(t) - p.y() * std::sin(t), p.x() * std::sin(t) + p.y() * std::cos(t));
}

// Closed outline through points given in the shape's own frame, turned and moved onto the image.
QPolygonF placed(QPolygonF const& own, double angle)
{
    QPolygonF outline;
    for (QPointF const& p : own)
        outline << Center + turned(p, angle);
    outline << outline.first();
    return outline;
}

QPolygonF ellipse(double width, double height, double angle)
{
    QPolygonF own;
    for (int i = 0; i < 720; ++i)
        own << QPointF(width / 2 * std::cos(i * M_PI / 360), height / 2 * std::sin(i * M_PI / 360));
    return placed(own, angle);
}

QPolygonF regular(int corners, double diameter, double angle)
{
    QPolygonF own;
    for (int k = 0; k < corners; ++k)
        own << QPointF(diameter / 2 * std::cos(2 * M_PI * k / corners),
                       diameter / 2 * std::sin(2 * M_PI * k / corners));
    return placed(own, angle);
}

// Corners in a box of 1 by 1 about the centre, as drawn in the decisions' pictures.
QPolygonF boxed(QPolygonF own, double width, double height, double angle)
{
    for (QPointF& p : own)
        p = QPointF(p.x() * width, p.y() * height);
    return placed(own, angle);
}

double distanceToSegment(QPointF const& p, QPointF const& a, QPointF const& b)
{
    QPointF const ab = b - a;
    double const length2 = QPointF::dotProduct(ab, ab);
    double t = length2 > 0 ? QPointF::dotProduct(p - a, ab) / length2 : 0;
    t = std::max(0.0, std::min(1.0, t));
    QPointF const d = p - (a + t * ab);
    return std::hypot(d.x(), d.y());
}

double distanceToOutline(QPointF const& p, QPolygonF const& outline)
{
    double best = 1e9;
    for (int i = 0; i + 1 < outline.size(); ++i)
        best = std::min(best, distanceToSegment(p, outline[i], outline[i + 1]));
    return best;
}

struct Shape
{
    std::string name;
    QJsonObject roi;
    QPolygonF outline;
};

void PrintTo(Shape const& shape, std::ostream* out)
{
    *out << shape.name;
}

QJsonObject roi(char const* type, double width, double height, double angle)
{
    return QJsonObject{{"type", type},           {"id", 1},        {"center_x", Center.x()},
                       {"center_y", Center.y()}, {"width", width}, {"height", height},
                       {"angle", angle}};
}

std::vector<Shape> shapes()
{
    std::vector<Shape> all;
    for (double angle : {0.0, 23.0, 90.0, 137.5, -60.0}) {
        std::string const at = "_at_" + std::to_string(int(angle));
        QPolygonF const box({{-0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}});
        all.push_back({"Rect" + at, roi("Rect", 90, 40, angle), boxed(box, 90, 40, angle)});
        all.push_back({"Ellipse" + at, roi("Ellipse", 110, 50, angle), ellipse(110, 50, angle)});
        all.push_back({"Square" + at, roi("Square", 70, 0, angle), boxed(box, 70, 70, angle)});
        all.push_back({"Hexagon" + at, roi("Hexagon", 100, 0, angle), regular(6, 100, angle)});
        QJsonObject pentagon = roi("Regular", 90, 0, angle);
        pentagon.insert("points", 5);
        all.push_back({"Regular" + at, pentagon, regular(5, 90, angle)});
        all.push_back(
            {"HoneycombLonger" + at, roi("HoneycombLonger", 100, 60, angle),
             boxed(QPolygonF({{-0.5, 0}, {-0.25, -0.5}, {0.25, -0.5}, {0.5, 0}, {0.25, 0.5}, {-0.25, 0.5}}),
                   100, 60, angle)});
        all.push_back(
            {"HoneycombShorter" + at, roi("HoneycombShorter", 60, 100, angle),
             boxed(QPolygonF({{0, -0.5}, {0.5, -0.25}, {0.5, 0.25}, {0, 0.5}, {-0.5, 0.25}, {-0.5, -0.25}}),
                   60, 100, angle)});
        all.push_back(
            {"HoneycombRight" + at, roi("HoneycombRight", 40, 90, angle),
             boxed(QPolygonF({{-0.5, -0.5}, {0.5, -0.25}, {0.5, 0.25}, {-0.5, 0.5}}), 40, 90, angle)});
        all.push_back(
            {"HoneycombLeft" + at, roi("HoneycombLeft", 40, 90, angle),
             boxed(QPolygonF({{0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.25}, {-0.5, -0.25}}), 40, 90, angle)});
    }
    all.push_back({"Circle", roi("Circle", 120, 0, 0), ellipse(120, 120, 0)});
    QJsonObject poly = roi("Poly", 0, 0, 0);
    poly.insert("points",
                QJsonArray{QJsonObject{{"x", 10}, {"y", 12}}, QJsonObject{{"x", 150}, {"y", 40}},
                           QJsonObject{{"x", 90.5}, {"y", 145.5}}, QJsonObject{{"x", 60}, {"y", 70}}});
    all.push_back({"Poly", poly, QPolygonF({{10, 12}, {150, 40}, {90.5, 145.5}, {60, 70}, {10, 12}})});
    return all;
}

QByteArray modelWith(QJsonObject const& roi)
{
    QJsonObject const model{{"ROIs", QJsonObject{{"1", roi}}}};
    return QJsonDocument(QJsonObject{{"ApplicationIndex", 1}, {"model_001", model}}).toJson();
}

class RoiRendering : public ::testing::TestWithParam<Shape>
{
};

} // namespace

TEST_P(RoiRendering, DrawsOnlyTheOutlineWhereTheGeometryPutsIt)
{
    Shape const& shape = GetParam();
    QRgb const background = qRgb(30, 30, 30);
    QImage image(Side, Side, QImage::Format_RGB32);
    image.fill(background);
    RoiSyncer_RX7100 syncer;
    ASSERT_TRUE(syncer.loadFromJson(modelWith(shape.roi)));
    syncer.paintRois(image);

    QRgb const pen = RoiSyncer_RX7100::penColor().rgb();
    QVector<QPointF> drawn;
    for (int y = 0; y < Side; ++y) {
        for (int x = 0; x < Side; ++x) {
            QRgb const pixel = image.pixel(x, y);
            if (pixel == background)
                continue;
            ASSERT_EQ(pixel, pen) << "blended pixel at " << x << "," << y;
            QPointF const middle(x + 0.5, y + 0.5);
            EXPECT_LE(distanceToOutline(middle, shape.outline), 1.0) << "stray pixel at " << x << "," << y;
            drawn << middle;
        }
    }
    ASSERT_FALSE(drawn.isEmpty());

    // Walk the ideal outline in half-pixel steps: no gap anywhere. The tip of a sharp corner may lie
    // just beyond one pixel from the nearest drawn centre, so this allows one and a half.
    for (int i = 0; i + 1 < shape.outline.size(); ++i) {
        QLineF const edge(shape.outline[i], shape.outline[i + 1]);
        int const steps = std::max(1, int(std::ceil(edge.length() * 2)));
        for (int s = 0; s <= steps; ++s) {
            QPointF const p = edge.pointAt(double(s) / steps);
            double nearest = 1e9;
            for (QPointF const& d : drawn)
                nearest = std::min(nearest, std::hypot(d.x() - p.x(), d.y() - p.y()));
            ASSERT_LE(nearest, 1.5) << "gap near " << p.x() << "," << p.y() << " nearest " << nearest;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKind, RoiRendering, ::testing::ValuesIn(shapes()),
                         [](::testing::TestParamInfo<Shape> const& info) {
                             std::string name = info.param.name;
                             std::replace(name.begin(), name.end(), '-', 'm');
                             return name;
                         });
