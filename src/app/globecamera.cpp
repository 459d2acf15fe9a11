#include "app/globecamera.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace GlobeProjection {

namespace {

constexpr double kRadPerDeg = std::numbers::pi / 180.0;
// Share of the shorter side the globe's diameter takes at zoom 1.
constexpr double kFillAtZoomOne = 0.88;

} // namespace

Vec3 unitVector(double latDeg, double longDeg)
{
    const double lat = latDeg * kRadPerDeg;
    const double lon = longDeg * kRadPerDeg;
    return {float(std::cos(lat) * std::cos(lon)), float(std::cos(lat) * std::sin(lon)), float(std::sin(lat))};
}

Rotation rotation(const GlobeCamera &camera)
{
    const double lon = camera.yawDeg * kRadPerDeg;
    const double lat = camera.pitchDeg * kRadPerDeg;
    const double sinLon = std::sin(lon), cosLon = std::cos(lon);
    const double sinLat = std::sin(lat), cosLat = std::cos(lat);
    Rotation r;
    r.m = {float(-sinLon),          float(cosLon),          0.0f,
           float(-sinLat * cosLon), float(-sinLat * sinLon), float(cosLat),
           float(cosLat * cosLon),  float(cosLat * sinLon),  float(sinLat)};
    return r;
}

double radiusPx(const GlobeCamera &camera, QSizeF size)
{
    return std::min(size.width(), size.height()) * kFillAtZoomOne / 2.0 * camera.zoom;
}

std::optional<QPointF> project(const GlobeCamera &camera, QSizeF size, double latDeg, double longDeg)
{
    const Vec3 v = rotation(camera).apply(unitVector(latDeg, longDeg));
    if (v.z < 0)
        return std::nullopt;
    const double radius = radiusPx(camera, size);
    return QPointF(size.width() / 2.0 + radius * v.x, size.height() / 2.0 - radius * v.y);
}

std::optional<QPointF> unproject(const GlobeCamera &camera, QSizeF size, QPointF position)
{
    const double radius = radiusPx(camera, size);
    const double x = (position.x() - size.width() / 2.0) / radius;
    const double y = (size.height() / 2.0 - position.y()) / radius;
    const double rr = x * x + y * y;
    if (rr > 1.0)
        return std::nullopt;
    const double z = std::sqrt(1.0 - rr);
    // The rotation is orthonormal: its transpose takes view coordinates back to the globe.
    const Rotation r = rotation(camera);
    const double gx = r.m[0] * x + r.m[3] * y + r.m[6] * z;
    const double gy = r.m[1] * x + r.m[4] * y + r.m[7] * z;
    const double gz = r.m[2] * x + r.m[5] * y + r.m[8] * z;
    return QPointF(std::atan2(gy, gx) / kRadPerDeg, std::asin(std::clamp(gz, -1.0, 1.0)) / kRadPerDeg);
}

GlobeCamera clamped(GlobeCamera camera)
{
    camera.pitchDeg = std::clamp(camera.pitchDeg, -GlobeCamera::kMaxPitchDeg, GlobeCamera::kMaxPitchDeg);
    camera.zoom = std::clamp(camera.zoom, GlobeCamera::kMinZoom, GlobeCamera::kMaxZoom);
    double yaw = std::fmod(camera.yawDeg, 360.0);
    if (yaw > 180)
        yaw -= 360;
    else if (yaw <= -180)
        yaw += 360;
    camera.yawDeg = yaw;
    return camera;
}

GlobeCamera dragged(const GlobeCamera &camera, QSizeF size, QPointF deltaPx)
{
    const double radius = radiusPx(camera, size);
    if (radius <= 0)
        return camera;
    GlobeCamera next = camera;
    // Moving the pointer right turns the surface east-to-west under it, so the centre
    // moves west; moving it down brings the north into view.
    next.yawDeg -= deltaPx.x() / radius / kRadPerDeg;
    next.pitchDeg += deltaPx.y() / radius / kRadPerDeg;
    return clamped(next);
}

GlobeCamera zoomedBy(const GlobeCamera &camera, double factor)
{
    GlobeCamera next = camera;
    if (std::isfinite(factor) && factor > 0)
        next.zoom *= factor;
    return clamped(next);
}

} // namespace GlobeProjection
