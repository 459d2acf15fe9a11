// Painting the globe with a full catalogue of 3,000 stations and the bundled world map
// (land, coastlines, borders) into a 1200x800 image on the offscreen raster: a frame of a
// drag (camera turned each time, so the map is projected again), of a zoom (the cached
// ocean drawn again too) and a repaint with the camera unchanged (selection, hover: the
// projected map is reused). The target for a frame is 16 ms. Picking a dot and projecting
// the map alone are measured too.
//
//   build/bench/globe_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include "app/globecanvas.h"
#include "app/globeoutline.h"
#include "app/worldmap.h"

#include <QImage>
#include <QRandomGenerator>

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>

namespace {

constexpr int kStations = 3000;
const QSize kViewSize(1200, 800);

// Stations cluster the way the directory's do: most in Europe and the Americas, some anywhere.
QList<Station> makeStations()
{
    QRandomGenerator random(20240611);
    const double centres[][2] = {{50, 10}, {40, -90}, {-15, -50}, {35, 135}, {0, 0}};
    QList<Station> stations;
    for (int i = 0; i < kStations; ++i) {
        Station station;
        station.id = QStringLiteral("station-%1").arg(i);
        station.name = QStringLiteral("Radio %1").arg(i);
        station.streamUrl = QStringLiteral("http://127.0.0.1:9/%1").arg(i);
        const auto &centre = centres[i % 5];
        if (i % 5 == 4) {
            station.geoLat = std::asin(random.generateDouble() * 2 - 1) * 180 / std::numbers::pi;
            station.geoLong = random.generateDouble() * 360 - 180;
        } else {
            station.geoLat = std::clamp(centre[0] + (random.generateDouble() - 0.5) * 30, -89.0, 89.0);
            station.geoLong = centre[1] + (random.generateDouble() - 0.5) * 50;
        }
        stations << station;
    }
    return stations;
}

struct Scene {
    Scene()
    {
        const QList<Station> stations = makeStations();
        canvas.resize(kViewSize);
        canvas.setStations(stations);
        QSet<QString> favorites;
        for (int i = 0; i < 40; ++i)
            favorites.insert(stations[i * 37].id);
        canvas.setMarks(favorites, {stations[5].id});
        canvas.select(stations[0].id);
        image.fill(Qt::black);
    }
    GlobeCanvas canvas;
    QImage image{kViewSize, QImage::Format_ARGB32_Premultiplied};
};

void BM_GlobeFrameWhileTurning(benchmark::State &state)
{
    Scene scene;
    GlobeCamera camera = scene.canvas.camera();
    camera.zoom = double(state.range(0)) / 10.0;
    for (auto _ : state) {
        camera.yawDeg += 1;
        scene.canvas.setCamera(camera);
        scene.canvas.render(&scene.image);
        benchmark::DoNotOptimize(scene.image.constBits());
    }
    state.counters["dots"] = double(scene.canvas.drawnDotCount());
}
BENCHMARK(BM_GlobeFrameWhileTurning)->Arg(10)->Arg(40)->Unit(benchmark::kMillisecond);

// Each frame at a new zoom, so the cached ocean is drawn again as well.
void BM_GlobeFrameWhileZooming(benchmark::State &state)
{
    Scene scene;
    GlobeCamera camera = scene.canvas.camera();
    int frame = 0;
    for (auto _ : state) {
        camera.zoom = 1.0 + (frame++ % 100) / 100.0;
        scene.canvas.setCamera(camera);
        scene.canvas.render(&scene.image);
        benchmark::DoNotOptimize(scene.image.constBits());
    }
    state.counters["dots"] = double(scene.canvas.drawnDotCount());
}
BENCHMARK(BM_GlobeFrameWhileZooming)->Unit(benchmark::kMillisecond);

void BM_GlobeRepaintStill(benchmark::State &state)
{
    Scene scene;
    for (auto _ : state) {
        scene.canvas.render(&scene.image);
        benchmark::DoNotOptimize(scene.image.constBits());
    }
    state.counters["dots"] = double(scene.canvas.drawnDotCount());
}
BENCHMARK(BM_GlobeRepaintStill)->Unit(benchmark::kMillisecond);

void BM_GlobePick(benchmark::State &state)
{
    Scene scene;
    const QPointF target = scene.canvas.screenPosition(QStringLiteral("station-0")).value_or(QPointF(600, 400));
    for (auto _ : state)
        benchmark::DoNotOptimize(scene.canvas.stationAt(target));
}
BENCHMARK(BM_GlobePick)->Unit(benchmark::kMicrosecond);

// What turning costs before anything is drawn: the map cut to the near side and put into pixels.
void BM_GlobeMapProjection(benchmark::State &state)
{
    const WorldMap &map = WorldMap::bundled();
    GlobeCamera camera;
    camera.zoom = double(state.range(0)) / 10.0;
    GlobeOutline::Polylines land;
    GlobeOutline::Polylines coastlines;
    GlobeOutline::Polylines borders;
    for (auto _ : state) {
        camera.yawDeg += 1;
        land.clear();
        coastlines.clear();
        borders.clear();
        GlobeOutline::projectAreas(camera, kViewSize, map.outlines, land);
        GlobeOutline::projectLines(camera, kViewSize, map.coastlines, coastlines);
        GlobeOutline::projectLines(camera, kViewSize, map.borders, borders);
        benchmark::DoNotOptimize(land.points.data());
    }
    state.counters["points"] = double(coastlines.points.size() + borders.points.size() + land.points.size());
}
BENCHMARK(BM_GlobeMapProjection)->Arg(10)->Arg(40)->Unit(benchmark::kMillisecond);

} // namespace
