#pragma once

#include "app/globecamera.h"

#include <QByteArrayView>

#include <cstdint>
#include <optional>
#include <vector>

// The land the globe draws: coastlines, the borders between countries on land, and each
// country's outline as a closed ring for filling land. Points are unit vectors, so turning
// the globe is one rotation per point and no trigonometry.
//
// The bundled map is made once by scripts/make-worldmap (the file format is written there)
// and compiled into the program as a resource. Immutable once built; bundled() may be
// called from any thread.
struct WorldMap {
    // Lines of one kind, stored back to back: line i is points [ends[i-1], ends[i]).
    struct Layer {
        std::vector<GlobeProjection::Vec3> points;
        std::vector<std::uint32_t> ends;

        [[nodiscard]] std::size_t lineCount() const { return ends.size(); }
        [[nodiscard]] std::size_t lineBegin(std::size_t line) const { return line == 0 ? 0 : ends[line - 1]; }
    };

    Layer coastlines;
    Layer borders;
    Layer outlines; // closed: the last point joins the first

    [[nodiscard]] bool isEmpty() const { return coastlines.ends.empty() && borders.ends.empty() && outlines.ends.empty(); }

    // Absent for anything but a complete, well-formed file.
    [[nodiscard]] static std::optional<WorldMap> parse(QByteArrayView bytes);
    // The map compiled into the program, read on first use; an empty map (and a warning in
    // the log) if the resource is missing or damaged, so the globe still shows its dots.
    [[nodiscard]] static const WorldMap &bundled();
};
