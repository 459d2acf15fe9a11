#include "app/globeoutline.h"

#include <algorithm>
#include <cmath>
#include <numbers>

using GlobeProjection::Vec3;

namespace GlobeOutline {

namespace {

// Closer than this to the previous point, a point adds nothing visible.
constexpr double kMinStepPx = 0.75;

struct Screen {
    QPointF centre;
    double radiusPx;

    Screen(const GlobeCamera &camera, QSizeF size)
        : centre(size.width() / 2.0, size.height() / 2.0)
        , radiusPx(GlobeProjection::radiusPx(camera, size))
    {
    }
    // View coordinates have y pointing up, the screen's down.
    [[nodiscard]] QPointF at(double x, double y) const { return {centre.x() + radiusPx * x, centre.y() - radiusPx * y}; }
};

// Where the chord from `a` to `b`, one on either side, crosses the plane of the rim, pushed
// out onto the rim itself; as an angle around the view axis.
double rimAngle(const Vec3 &a, const Vec3 &b)
{
    const float t = a.z / (a.z - b.z);
    return std::atan2(a.y + t * (b.y - a.y), a.x + t * (b.x - a.x));
}

double wrapped(double angle)
{
    constexpr double kPi = std::numbers::pi;
    while (angle > kPi)
        angle -= 2 * kPi;
    while (angle <= -kPi)
        angle += 2 * kPi;
    return angle;
}

void append(std::vector<QPointF> &points, QPointF point, bool force)
{
    if (!force && !points.empty()) {
        const QPointF step = point - points.back();
        if (std::abs(step.x()) < kMinStepPx && std::abs(step.y()) < kMinStepPx)
            return;
    }
    points.push_back(point);
}

} // namespace

void projectLines(const GlobeCamera &camera, QSizeF size, const WorldMap::Layer &layer, Polylines &out)
{
    const GlobeProjection::Rotation turn = GlobeProjection::rotation(camera);
    const Screen screen(camera, size);
    int runStart = int(out.points.size());
    // The first point of a run is kept whatever the last run ended on.
    auto add = [&](QPointF point, bool force) { append(out.points, point, force || int(out.points.size()) == runStart); };
    auto endRun = [&] {
        // A run that shrank to one point is a speck, not a line.
        if (int(out.points.size()) - runStart >= 2)
            out.ends.push_back(int(out.points.size()));
        else
            out.points.resize(size_t(runStart));
        runStart = int(out.points.size());
    };

    for (std::size_t line = 0; line < layer.lineCount(); ++line) {
        Vec3 previous;
        const std::size_t end = layer.ends[line];
        for (std::size_t i = layer.lineBegin(line); i < end; ++i) {
            const Vec3 view = turn.apply(layer.points[i]);
            const bool first = i == layer.lineBegin(line);
            const bool visible = view.z >= 0;
            if (!first && visible != (previous.z >= 0)) {
                const double angle = rimAngle(previous, view);
                add(screen.at(std::cos(angle), std::sin(angle)), !visible);
                if (!visible)
                    endRun();
            }
            if (visible)
                add(screen.at(view.x, view.y), i + 1 == end);
            previous = view;
        }
        endRun();
    }
}

void projectAreas(const GlobeCamera &camera, QSizeF size, const WorldMap::Layer &layer, Polylines &out)
{
    const GlobeProjection::Rotation turn = GlobeProjection::rotation(camera);
    const Screen screen(camera, size);
    // Rim segments short enough that the polygon stays within half a pixel of the circle.
    const double arcStep = std::min(0.1, std::sqrt(4.0 / std::max(1.0, screen.radiusPx)));
    std::vector<Vec3> view;
    std::vector<QPointF> &ring = out.points;
    auto endRing = [&](std::size_t start) {
        if (ring.size() - start >= 3)
            out.ends.push_back(int(ring.size()));
        else
            ring.resize(start);
    };

    for (std::size_t line = 0; line < layer.lineCount(); ++line) {
        const std::size_t begin = layer.lineBegin(line);
        std::size_t count = layer.ends[line] - begin;
        const Vec3 &head = layer.points[begin];
        const Vec3 &tail = layer.points[begin + count - 1];
        if (head.x == tail.x && head.y == tail.y && head.z == tail.z)
            --count;
        if (count < 3)
            continue;
        view.resize(count);
        std::size_t visibleCount = 0;
        for (std::size_t i = 0; i < count; ++i) {
            view[i] = turn.apply(layer.points[begin + i]);
            visibleCount += view[i].z >= 0;
        }
        if (visibleCount == 0)
            continue;

        const std::size_t ringStart = ring.size();
        auto add = [&](QPointF point, bool force = false) { append(ring, point, force || ring.size() == ringStart); };
        if (visibleCount == count) {
            for (const Vec3 &v : view)
                add(screen.at(v.x, v.y));
            endRing(ringStart);
            continue;
        }

        // Start where the ring comes into sight, so every hidden stretch is walked whole.
        std::size_t start = 0;
        while (!(view[start].z >= 0 && view[(start + count - 1) % count].z < 0))
            ++start;
        double exitAngle = 0;
        double lastAngle = 0;
        double sweep = 0;
        for (std::size_t j = 0; j < count; ++j) {
            const Vec3 &a = view[(start + j) % count];
            const Vec3 &b = view[(start + j + 1) % count];
            if (a.z >= 0) {
                add(screen.at(a.x, a.y));
                if (b.z < 0) {
                    exitAngle = lastAngle = rimAngle(a, b);
                    sweep = 0;
                    add(screen.at(std::cos(exitAngle), std::sin(exitAngle)), true);
                }
                continue;
            }
            // Behind the globe: follow how far round the view axis the ring goes.
            const double angle = std::atan2(a.y, a.x);
            sweep += wrapped(angle - lastAngle);
            lastAngle = angle;
            if (b.z >= 0) {
                const double entryAngle = rimAngle(a, b);
                sweep += wrapped(entryAngle - lastAngle);
                const int steps = int(std::ceil(std::abs(sweep) / arcStep));
                for (int s = 1; s <= steps; ++s) {
                    const double along = exitAngle + sweep * s / steps;
                    add(screen.at(std::cos(along), std::sin(along)), s == steps);
                }
            }
        }
        endRing(ringStart);
    }
}

} // namespace GlobeOutline
