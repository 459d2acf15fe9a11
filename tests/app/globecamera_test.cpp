#include "app/globecamera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using namespace GlobeProjection;

const QSizeF kView(800, 600);

TEST(GlobeProjection, TheCameraCentreIsInTheMiddleAndTheFarSideIsHidden)
{
    const GlobeCamera camera{20, 10, 1};
    const double radius = radiusPx(camera, kView);
    EXPECT_NEAR(radius, 600 * 0.88 / 2, 1e-9);

    const auto centre = project(camera, kView, 10, 20);
    ASSERT_TRUE(centre);
    EXPECT_NEAR(centre->x(), 400, 1e-3);
    EXPECT_NEAR(centre->y(), 300, 1e-3);
    // The antipode would land on the same pixel; it must not be drawn at all.
    EXPECT_FALSE(project(camera, kView, -10, -160));

    // A quarter turn east along the equator of a camera on the equator: the right rim.
    const GlobeCamera onEquator{0, 0, 2};
    const auto east = project(onEquator, kView, 0, 90);
    ASSERT_TRUE(east);
    EXPECT_NEAR(east->x(), 400 + radiusPx(onEquator, kView), 1e-2);
    EXPECT_NEAR(east->y(), 300, 1e-2);
    // North is up.
    EXPECT_LT(project(onEquator, kView, 30, 0)->y(), 300);
}

TEST(GlobeProjection, UnprojectFindsThePlaceUnderTheProjectedPoint)
{
    const GlobeCamera camera{-40, 55, 3};
    for (const auto &[lat, lon] : {std::pair{48.2, 16.4}, {40.7, -74.0}, {64.1, -21.9}, {55.0, -40.0}}) {
        const auto onScreen = project(camera, kView, lat, lon);
        if (!onScreen)
            continue;
        const auto place = unproject(camera, kView, *onScreen);
        ASSERT_TRUE(place) << lat << "/" << lon;
        EXPECT_NEAR(place->y(), lat, 1e-3);
        EXPECT_NEAR(place->x(), lon, 1e-3);
    }
    // Zoomed in, the disc covers the corners; at zoom 1 they are off it.
    EXPECT_TRUE(unproject(camera, kView, {0, 0}));
    EXPECT_FALSE(unproject({-40, 55, 1}, kView, {0, 0}));
}

TEST(GlobeProjection, DraggingMovesTheSurfaceWithThePointerAndClampsThePitch)
{
    const GlobeCamera camera{10, 20, 1};
    const QPointF before = *project(camera, kView, 20, 10);

    const GlobeCamera right = dragged(camera, kView, {50, 0});
    EXPECT_LT(right.yawDeg, camera.yawDeg);
    EXPECT_EQ(right.pitchDeg, camera.pitchDeg);
    EXPECT_GT(project(right, kView, 20, 10)->x(), before.x());

    const GlobeCamera down = dragged(camera, kView, {0, 40});
    EXPECT_GT(down.pitchDeg, camera.pitchDeg);
    EXPECT_GT(project(down, kView, 20, 10)->y(), before.y());

    // A drag of one radius turns by one radian, slower on screen as the view zooms in.
    const double radius = radiusPx(camera, kView);
    EXPECT_NEAR(dragged(camera, kView, {-radius, 0}).yawDeg, 10 + 180 / std::numbers::pi, 1e-9);
    GlobeCamera zoomed = camera;
    zoomed.zoom = 4;
    EXPECT_NEAR(dragged(zoomed, kView, {-radius, 0}).yawDeg, 10 + 45 / std::numbers::pi, 1e-9);

    EXPECT_EQ(dragged(camera, kView, {0, 10 * radius}).pitchDeg, GlobeCamera::kMaxPitchDeg);
    EXPECT_EQ(dragged(camera, kView, {0, -10 * radius}).pitchDeg, -GlobeCamera::kMaxPitchDeg);
}

TEST(GlobeProjection, YawWrapsAndZoomStaysInRange)
{
    EXPECT_NEAR(clamped({190, 0, 1}).yawDeg, -170, 1e-9);
    EXPECT_NEAR(clamped({-180, 0, 1}).yawDeg, 180, 1e-9);
    EXPECT_NEAR(clamped({725, 0, 1}).yawDeg, 5, 1e-9);
    EXPECT_EQ(zoomedBy({0, 0, 8}, 1.5).zoom, 12);
    EXPECT_EQ(zoomedBy({0, 0, 8}, 3).zoom, GlobeCamera::kMaxZoom);
    EXPECT_EQ(zoomedBy({0, 0, 1.5}, 0.25).zoom, GlobeCamera::kMinZoom);
    for (double nonsense : {0.0, -2.0, std::nan("")})
        EXPECT_EQ(zoomedBy({0, 0, 3}, nonsense).zoom, 3);
}

TEST(GlobeProjection, ZoomingAtAPointKeepsThePlaceUnderIt)
{
    const QPointF positions[] = {{400, 300}, {150, 420}, {610, 120}, {520, 560}};
    for (const GlobeCamera &camera : {GlobeCamera{10, 35, 1}, GlobeCamera{-120, -60, 3}, GlobeCamera{170, 5, 6}}) {
        for (const QPointF &position : positions) {
            const auto place = unproject(camera, kView, position);
            if (!place)
                continue;
            for (const double factor : {1.2, 2.5, 1 / 1.2}) {
                const GlobeCamera zoomed = zoomedAt(camera, kView, position, factor);
                EXPECT_NEAR(zoomed.zoom, std::clamp(camera.zoom * factor, 1.0, 16.0), 1e-9);
                if (std::abs(zoomed.pitchDeg) >= GlobeCamera::kMaxPitchDeg)
                    continue; // held at the pitch limit: the place may slide
                const auto after = project(zoomed, kView, place->y(), place->x());
                ASSERT_TRUE(after) << camera.yawDeg << "/" << camera.pitchDeg << " at " << position.x() << ","
                                   << position.y() << " by " << factor;
                EXPECT_NEAR(after->x(), position.x(), 0.05);
                EXPECT_NEAR(after->y(), position.y(), 0.05);
            }
        }
    }

    // Off the globe, or at the zoom limit, it is the zoom about the centre.
    EXPECT_EQ(zoomedAt({10, 35, 1}, kView, {2, 2}, 1.5), zoomedBy({10, 35, 1}, 1.5));
    const GlobeCamera camera{10, 35, 2};
    EXPECT_EQ(zoomedAt({10, 35, GlobeCamera::kMaxZoom}, kView, {600, 200}, 2),
              (GlobeCamera{10, 35, GlobeCamera::kMaxZoom}));
    // Zooming out near the rim would push the place off the disc: about the centre too.
    const QPointF nearRim(400 + radiusPx(camera, kView) * 0.9, 300);
    EXPECT_EQ(zoomedAt(camera, kView, nearRim, 0.5), zoomedBy(camera, 0.5));
    // Towards a place near the pole the pitch stops at its limit.
    const GlobeCamera high{0, 75, 1};
    const GlobeCamera towardsPole = zoomedAt(high, kView, *project(high, kView, 89, 0), 4);
    EXPECT_EQ(towardsPole.pitchDeg, GlobeCamera::kMaxPitchDeg);
    EXPECT_EQ(towardsPole.zoom, 4);
}

} // namespace
