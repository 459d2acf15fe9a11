#pragma once

#include "app/globecamera.h"
#include "app/worldmap.h"

#include <QPointF>
#include <QSizeF>

#include <vector>

// The world map as one camera sees it: the map's lines and land cut to the near side of
// the globe and put into widget pixels, ready to draw. Pure functions; the canvas keeps
// the result for as long as its camera and size stay.
namespace GlobeOutline {

// Screen polylines back to back: run i is points [ends[i-1], ends[i]).
struct Polylines {
    std::vector<QPointF> points;
    std::vector<int> ends;

    void clear()
    {
        points.clear();
        ends.clear();
    }
    [[nodiscard]] int runBegin(std::size_t run) const { return run == 0 ? 0 : ends[run - 1]; }
};

// The near-side runs of every line of `layer`, each cut exactly at the rim where it goes
// behind the globe. Points closer than a pixel to the one before are left out: zoomed out,
// a coastline has far more points than pixels.
void projectLines(const GlobeCamera &camera, QSizeF size, const WorldMap::Layer &layer, Polylines &out);

// The near side of every closed ring of `layer` as areas to fill, one run each. Where a ring passes behind
// the globe, its outline follows the rim from where it left to where it comes back, the
// way round that the hidden part went. (That is wrong only for a ring that also encloses
// the point straight behind the globe's centre while part of it is in sight, which takes
// a country more than a hemisphere across.)
void projectAreas(const GlobeCamera &camera, QSizeF size, const WorldMap::Layer &layer, Polylines &out);

} // namespace GlobeOutline
