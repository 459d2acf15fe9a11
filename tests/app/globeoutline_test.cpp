#include "app/globeoutline.h"

#include <QPainterPath>
#include <QPolygonF>

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace GlobeOutline;

const QSizeF kView(800, 600);
// Looking at 0°/0°: the globe's centre is at (400, 300), its rim 264 px away.
const GlobeCamera kCamera{0, 0, 1};
constexpr double kRadius = 264;

WorldMap::Layer layerOf(const std::vector<std::vector<std::pair<double, double>>> &lines)
{
    WorldMap::Layer layer;
    for (const auto &line : lines) {
        for (const auto &[lat, lon] : line)
            layer.points.push_back(GlobeProjection::unitVector(lat, lon));
        layer.ends.push_back(std::uint32_t(layer.points.size()));
    }
    return layer;
}

// Along a parallel from one longitude to another, every `step` degrees.
std::vector<std::pair<double, double>> parallel(double lat, double fromLong, double toLong, double step)
{
    std::vector<std::pair<double, double>> points;
    const int count = int(std::round(std::abs(toLong - fromLong) / step));
    for (int i = 0; i <= count; ++i)
        points.emplace_back(lat, fromLong + (toLong - fromLong) * i / count);
    return points;
}

// The filled areas as one path, to ask what they cover.
QPainterPath areasOf(const WorldMap::Layer &layer)
{
    Polylines rings;
    projectAreas(kCamera, kView, layer, rings);
    QPainterPath path;
    for (std::size_t ring = 0; ring < rings.ends.size(); ++ring) {
        const int begin = rings.runBegin(ring);
        path.addPolygon(QPolygonF(QList<QPointF>(rings.points.begin() + begin, rings.points.begin() + rings.ends[ring])));
        path.closeSubpath();
    }
    return path;
}

QPointF on(double lat, double lon)
{
    return *GlobeProjection::project(kCamera, kView, lat, lon);
}

TEST(GlobeOutline, LinesAreCutAtTheRimAndTheFarSideIsLeftOut)
{
    Polylines out;
    // Half the equator eastwards: from the centre to the right rim, not a pixel further.
    projectLines(kCamera, kView, layerOf({parallel(0, 0, 180, 10)}), out);
    ASSERT_EQ(out.ends.size(), 1u);
    EXPECT_EQ(out.points.front(), QPointF(400, 300));
    EXPECT_NEAR(out.points.back().x(), 400 + kRadius, 1e-3);
    EXPECT_NEAR(out.points.back().y(), 300, 1e-3);
    for (const QPointF &point : out.points)
        EXPECT_LE(point.x(), 400 + kRadius + 1e-3);

    // Entirely behind: nothing.
    out.clear();
    projectLines(kCamera, kView, layerOf({parallel(10, 100, 260, 5)}), out);
    EXPECT_TRUE(out.points.empty());
    EXPECT_TRUE(out.ends.empty());

    // Out of sight and back: two runs, leaving at the right rim and returning at the left.
    out.clear();
    projectLines(kCamera, kView, layerOf({parallel(0, 60, 300, 5), parallel(0, -30, 30, 15)}), out);
    ASSERT_EQ(out.ends.size(), 3u);
    EXPECT_NEAR(out.points[size_t(out.ends[0] - 1)].x(), 400 + kRadius, 1e-3);
    EXPECT_NEAR(out.points[size_t(out.runBegin(1))].x(), 400 - kRadius, 1e-3);
    // The short second line keeps its own run, every point of it.
    EXPECT_EQ(out.ends[2] - out.runBegin(2), 5);
}

TEST(GlobeOutline, AreasBehindTheRimAreClosedAlongIt)
{
    // A box straddling the rim on the right: only its near half is filled, up to the rim.
    std::vector<std::pair<double, double>> box = parallel(-10, 80, 100, 2);
    for (const auto &point : parallel(10, 100, 80, 2))
        box.push_back(point);
    box.push_back(box.front());
    QPainterPath land = areasOf(layerOf({box}));
    EXPECT_TRUE(land.contains(on(0, 85)));
    EXPECT_FALSE(land.contains(on(0, 75)));
    EXPECT_FALSE(land.contains(QPointF(400, 300)));
    EXPECT_NEAR(land.boundingRect().right(), 400 + kRadius, 0.5);

    // A cap round the south pole goes behind the globe at both sides: the rim that closes
    // it is the bottom one, so the cap is filled and the rest of the globe is not.
    land = areasOf(layerOf({parallel(-60, -180, 180, 5)}));
    EXPECT_TRUE(land.contains(on(-75, 0)));
    EXPECT_TRUE(land.contains(on(-70, 60)));
    EXPECT_TRUE(land.contains(QPointF(400, 300 + kRadius - 2)));
    EXPECT_FALSE(land.contains(QPointF(400, 300)));
    EXPECT_FALSE(land.contains(on(-50, 0)));
    EXPECT_FALSE(land.contains(QPointF(400, 300 - kRadius + 2)));

    // All of it behind: nothing to fill.
    std::vector<std::pair<double, double>> behind = parallel(-10, 150, 210, 5);
    for (const auto &point : parallel(10, 210, 150, 5))
        behind.push_back(point);
    EXPECT_TRUE(areasOf(layerOf({behind})).isEmpty());
}

} // namespace
