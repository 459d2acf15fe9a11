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

GlobeCamera zoomedAt(const GlobeCamera &camera, QSizeF size, QPointF position, double factor)
{
    const GlobeCamera centred = zoomedBy(camera, factor);
    const std::optional<QPointF> place = unproject(camera, size, position);
    const double radius = radiusPx(centred, size);
    if (!place || radius <= 0 || centred.zoom == camera.zoom)
        return centred;
    // Where the place has to be after the zoom, as a point of the unit disc.
    const double x = (position.x() - size.width() / 2.0) / radius;
    const double y = (size.height() / 2.0 - position.y()) / radius;
    if (x * x + y * y > 1.0)
        return centred;

    // The orthographic projection of latitude φ, longitude λ seen from a centre at φ0, λ0:
    //   x = cos φ sin(λ - λ0)
    //   y = cos φ0 sin φ - sin φ0 cos φ cos(λ - λ0)
    // Solved for λ - λ0 from x, then for φ0 from y; each has two answers, of which the one
    // on the near side and closest to the present camera is taken.
    const double lat = place->y() * kRadPerDeg;
    const double lon = place->x() * kRadPerDeg;
    const double cosLat = std::cos(lat);
    if (cosLat < 1e-9 || std::abs(x) > cosLat)
        return centred;
    const double d1 = std::asin(x / cosLat);
    std::optional<GlobeCamera> best;
    double bestDistance = 0;
    for (const double d : {d1, std::numbers::pi - d1}) {
        const double a = std::sin(lat);
        const double b = cosLat * std::cos(d);
        const double r = std::hypot(a, b);
        if (r < 1e-12 || std::abs(y) > r)
            continue;
        const double alpha = std::atan2(b, a);
        const double spread = std::acos(std::clamp(y / r, -1.0, 1.0));
        for (double pitch : {spread - alpha, -spread - alpha}) {
            pitch = std::remainder(pitch, 2 * std::numbers::pi);
            const double depth = std::cos(pitch) * cosLat * std::cos(d) + std::sin(pitch) * std::sin(lat);
            const double pitchDeg = pitch / kRadPerDeg;
            if (depth < 0 || std::abs(pitchDeg) > 90)
                continue;
            GlobeCamera candidate = centred;
            candidate.yawDeg = (lon - d) / kRadPerDeg;
            candidate.pitchDeg = pitchDeg;
            candidate = clamped(candidate);
            const double distance = std::abs(clamped({candidate.yawDeg - camera.yawDeg, 0, 1}).yawDeg)
                                    + std::abs(candidate.pitchDeg - camera.pitchDeg);
            if (!best || distance < bestDistance) {
                best = candidate;
                bestDistance = distance;
            }
        }
    }
    return best.value_or(centred);
}

} // namespace GlobeProjection
