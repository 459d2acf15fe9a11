#include "app/globecamera.h"

#include <gtest/gtest.h>

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

} // namespace
