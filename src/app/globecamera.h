#pragma once

#include <QMetaType>
#include <QPointF>
#include <QSizeF>

#include <array>
#include <optional>

// Where the globe is looked at from: the longitude and latitude at the centre of the
// view, and how far it is zoomed in (1 = the whole globe fits the view). A plain value
// so the store can keep it across view rebuilds without knowing what it holds.
struct GlobeCamera {
    static constexpr double kMaxPitchDeg = 80;
    static constexpr double kMinZoom = 1;
    static constexpr double kMaxZoom = 16;

    double yawDeg = 10;   // longitude at the centre, (-180, 180]
    double pitchDeg = 35; // latitude at the centre, within ±kMaxPitchDeg
    double zoom = 1;

    friend bool operator==(const GlobeCamera &, const GlobeCamera &) = default;
};
Q_DECLARE_METATYPE(GlobeCamera)

// The orthographic projection of the globe and the camera arithmetic of dragging and
// zooming. Pure functions; screen coordinates are widget pixels, y pointing down.
namespace GlobeProjection {

// A point on the unit sphere: x towards 0°/0°, y towards 0°/90°E, z towards the north pole.
struct Vec3 {
    float x = 0;
    float y = 0;
    float z = 0;
};

[[nodiscard]] Vec3 unitVector(double latDeg, double longDeg);

// The rotation that brings the camera's centre point to the viewer: rows are the local
// east, north and "towards the viewer" directions at that point. Applied to a unit
// vector it gives view coordinates; a negative third component is on the far side.
struct Rotation {
    std::array<float, 9> m{};
    [[nodiscard]] Vec3 apply(const Vec3 &v) const
    {
        return {m[0] * v.x + m[1] * v.y + m[2] * v.z, m[3] * v.x + m[4] * v.y + m[5] * v.z,
                m[6] * v.x + m[7] * v.y + m[8] * v.z};
    }
};
[[nodiscard]] Rotation rotation(const GlobeCamera &camera);

// The globe's radius in pixels in a view of `size`: at zoom 1 it leaves a margin.
[[nodiscard]] double radiusPx(const GlobeCamera &camera, QSizeF size);

// Where a point appears in a view of `size`; absent on the far side of the globe.
[[nodiscard]] std::optional<QPointF> project(const GlobeCamera &camera, QSizeF size, double latDeg, double longDeg);
// The latitude and longitude (x = longitude, y = latitude, degrees) under a view
// position; absent off the disc.
[[nodiscard]] std::optional<QPointF> unproject(const GlobeCamera &camera, QSizeF size, QPointF position);

// Pitch limited, yaw wrapped into (-180, 180], zoom limited.
[[nodiscard]] GlobeCamera clamped(GlobeCamera camera);
// The camera after the pointer moved by `deltaPx`: the surface follows the pointer, at
// the same angular speed whatever the zoom.
[[nodiscard]] GlobeCamera dragged(const GlobeCamera &camera, QSizeF size, QPointF deltaPx);
[[nodiscard]] GlobeCamera zoomedBy(const GlobeCamera &camera, double factor);
// Zoomed by `factor` towards `position`: the place under it stays under it. Where that
// cannot be (off the globe, a place that would leave the disc when zooming out, or beyond
// the pitch limit) the zoom is about the centre, and the pitch limited.
[[nodiscard]] GlobeCamera zoomedAt(const GlobeCamera &camera, QSizeF size, QPointF position, double factor);

} // namespace GlobeProjection
