#include "app/worldmap.h"

#include <QFile>
#include <QtEndian>

#include <cmath>
#include <cstring>

namespace {

constexpr char kMagic[] = {'O', 'R', 'V', 'M', 'A', 'P'};
constexpr quint16 kVersion = 1;
constexpr double kDegPerUnit = 0.01;
const QString kResourcePath = QStringLiteral(":/map/worldmap.bin");

} // namespace

std::optional<WorldMap> WorldMap::parse(QByteArrayView bytes)
{
    const auto *data = reinterpret_cast<const uchar *>(bytes.data());
    const qsizetype size = bytes.size();
    qsizetype at = 0;
    auto has = [&](qsizetype count) { return size - at >= count; };

    if (!has(sizeof kMagic + 6) || std::memcmp(data, kMagic, sizeof kMagic) != 0)
        return std::nullopt;
    at += sizeof kMagic;
    if (qFromLittleEndian<quint16>(data + at) != kVersion)
        return std::nullopt;
    const quint32 lineCount = qFromLittleEndian<quint32>(data + at + 2);
    at += 6;

    WorldMap map;
    for (quint32 line = 0; line < lineCount; ++line) {
        if (!has(4))
            return std::nullopt;
        const quint8 kind = data[at];
        const quint16 pointCount = qFromLittleEndian<quint16>(data + at + 2);
        at += 4;
        Layer *layer = kind == 0 ? &map.coastlines : kind == 1 ? &map.borders : kind == 2 ? &map.outlines : nullptr;
        if (!layer || pointCount < 2 || !has(qsizetype(pointCount) * 4))
            return std::nullopt;
        for (quint16 i = 0; i < pointCount; ++i, at += 4) {
            const double latDeg = qFromLittleEndian<qint16>(data + at) * kDegPerUnit;
            const double longDeg = qFromLittleEndian<qint16>(data + at + 2) * kDegPerUnit;
            if (std::abs(latDeg) > 90 || std::abs(longDeg) > 180)
                return std::nullopt;
            layer->points.push_back(GlobeProjection::unitVector(latDeg, longDeg));
        }
        layer->ends.push_back(std::uint32_t(layer->points.size()));
    }
    // Trailing bytes mean a file this reader does not understand.
    if (at != size)
        return std::nullopt;
    return map;
}

const WorldMap &WorldMap::bundled()
{
    // Thread-safe static initialisation: read once, whoever asks first.
    static const WorldMap map = [] {
        QFile file(kResourcePath);
        if (!file.open(QIODevice::ReadOnly)) {
            qWarning("WorldMap: the bundled map is missing: %s", qPrintable(file.errorString()));
            return WorldMap();
        }
        std::optional<WorldMap> parsed = parse(file.readAll());
        if (!parsed) {
            qWarning("WorldMap: the bundled map is damaged");
            return WorldMap();
        }
        return std::move(*parsed);
    }();
    return map;
}
