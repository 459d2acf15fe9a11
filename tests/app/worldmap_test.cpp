#include "app/worldmap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using GlobeProjection::Vec3;

// Angle between two points of the unit sphere, in degrees.
double degreesApart(const Vec3 &a, const Vec3 &b)
{
    const double dot = double(a.x) * b.x + double(a.y) * b.y + double(a.z) * b.z;
    return std::acos(std::clamp(dot, -1.0, 1.0)) * 180 / std::numbers::pi;
}

double nearestDeg(const WorldMap::Layer &layer, double latDeg, double longDeg)
{
    const Vec3 target = GlobeProjection::unitVector(latDeg, longDeg);
    double best = 180;
    for (const Vec3 &point : layer.points)
        best = std::min(best, degreesApart(point, target));
    return best;
}

// A map file as scripts/make-worldmap writes it: lines of (kind, points in hundredths).
QByteArray mapFile(const std::vector<std::pair<quint8, std::vector<std::pair<qint16, qint16>>>> &lines,
                   quint16 version = 1)
{
    QByteArray bytes("ORVMAP");
    auto put16 = [&](quint16 value) {
        bytes.append(char(value & 0xff));
        bytes.append(char(value >> 8));
    };
    put16(version);
    put16(quint16(lines.size()));
    put16(0);
    for (const auto &[kind, points] : lines) {
        bytes.append(char(kind));
        bytes.append('\0');
        put16(quint16(points.size()));
        for (const auto &[lat, lon] : points) {
            put16(quint16(lat));
            put16(quint16(lon));
        }
    }
    return bytes;
}

TEST(WorldMap, TheBundledMapHasTheWorldsCoastsAndBorders)
{
    const WorldMap &map = WorldMap::bundled();
    ASSERT_FALSE(map.isEmpty());
    EXPECT_GT(map.coastlines.lineCount(), 100u);
    EXPECT_GT(map.borders.lineCount(), 100u);
    EXPECT_GT(map.outlines.lineCount(), 170u);

    // The Strait of Gibraltar, Cape Horn and the tip of Africa are on a coastline; the
    // middle of the Sahara and of the Pacific are far from any.
    EXPECT_LT(nearestDeg(map.coastlines, 36.0, -5.6), 0.5);
    EXPECT_LT(nearestDeg(map.coastlines, -55.9, -67.3), 1.0);
    EXPECT_LT(nearestDeg(map.coastlines, -34.8, 20.0), 0.5);
    EXPECT_GT(nearestDeg(map.coastlines, 23.0, 12.0), 5.0);
    EXPECT_GT(nearestDeg(map.coastlines, -20.0, -130.0), 5.0);
    // Borders run along the 49th parallel and the Pyrenees, not through the open sea.
    EXPECT_LT(nearestDeg(map.borders, 49.0, -100.0), 0.5);
    EXPECT_LT(nearestDeg(map.borders, 42.7, 0.5), 1.0);
    EXPECT_GT(nearestDeg(map.borders, 45.0, -30.0), 10.0);

    for (std::size_t line = 0; line < map.outlines.lineCount(); ++line) {
        const std::size_t begin = map.outlines.lineBegin(line);
        const std::size_t end = map.outlines.ends[line];
        ASSERT_GE(end - begin, 4u);
        const Vec3 &first = map.outlines.points[begin];
        const Vec3 &last = map.outlines.points[end - 1];
        EXPECT_TRUE(first.x == last.x && first.y == last.y && first.z == last.z) << "ring " << line;
    }
}

TEST(WorldMap, ParsesAWellFormedFileAndRejectsEverythingElse)
{
    const QByteArray good = mapFile({{0, {{3600, -560}, {3550, -600}}}, {2, {{0, 0}, {100, 0}, {100, 100}, {0, 0}}}});
    const std::optional<WorldMap> map = WorldMap::parse(good);
    ASSERT_TRUE(map);
    ASSERT_EQ(map->coastlines.lineCount(), 1u);
    EXPECT_EQ(map->borders.lineCount(), 0u);
    ASSERT_EQ(map->outlines.lineCount(), 1u);
    EXPECT_EQ(map->outlines.ends[0], 4u);
    EXPECT_LT(degreesApart(map->coastlines.points[1], GlobeProjection::unitVector(35.5, -6.0)), 1e-4);

    EXPECT_TRUE(WorldMap::parse(mapFile({}))); // empty, but well formed
    EXPECT_FALSE(WorldMap::parse(good.left(good.size() - 1)));
    EXPECT_FALSE(WorldMap::parse(good + '\0'));
    EXPECT_FALSE(WorldMap::parse(QByteArray(good).replace(0, 1, "X")));
    EXPECT_FALSE(WorldMap::parse(mapFile({{0, {{0, 0}, {1, 1}}}}, 2)));
    EXPECT_FALSE(WorldMap::parse(mapFile({{3, {{0, 0}, {1, 1}}}})));       // unknown kind
    EXPECT_FALSE(WorldMap::parse(mapFile({{0, {{0, 0}}}})));                // a line of one point
    EXPECT_FALSE(WorldMap::parse(mapFile({{1, {{9001, 0}, {0, 0}}}})));     // latitude past the pole
    EXPECT_FALSE(WorldMap::parse(mapFile({{1, {{0, -18001}, {0, 0}}}})));   // longitude past the date line
    EXPECT_FALSE(WorldMap::parse(QByteArray()));
}

} // namespace
