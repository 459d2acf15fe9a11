// The station directory's answer parser and the station builder on arbitrary bodies.
//
// Every station built must be usable (id, trimmed name and address present), and must come
// back unchanged through the object favourites and recents store, written out as JSON and
// read again, as it is on disk.

#include "stations/directoryapi.h"

#include "fuzzcheck.h"

#include <QJsonDocument>

#include <cmath>
#include <cstdint>

// Found by argument-dependent lookup from the checks' printing, hence not file-local.
QDebug operator<<(QDebug debug, const Station &s)
{
    return debug << s.storedObject();
}

namespace {

void checkUsable(const Station &s)
{
    FUZZ_CHECK(!s.id.isEmpty());
    FUZZ_CHECK(!s.name.isEmpty());
    FUZZ_CHECK(!s.streamUrl.isEmpty());
    FUZZ_CHECK(s.name == StationJson::trimBlanks(s.name));
    FUZZ_CHECK(!s.favicon || !s.favicon->isEmpty());
    FUZZ_CHECK(!s.geoLat || std::isfinite(*s.geoLat));
    FUZZ_CHECK(!s.geoLong || std::isfinite(*s.geoLong));
}

void checkStoredRoundTrip(const Station &s)
{
    const QByteArray stored = QJsonDocument(s.storedObject()).toJson(QJsonDocument::Compact);
    const QJsonDocument reread = QJsonDocument::fromJson(stored);
    FUZZ_CHECK(reread.isObject());
    const auto back = Station::json(reread.object());
    FUZZ_CHECK(back.has_value());
    FUZZ_CHECK_EQ(*back, s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = FuzzInput::bytes(data, size);
    const auto objects = DirectoryApi::parseObjects(body);
    const auto stations = DirectoryApi::parseStations(body);
    FUZZ_CHECK(objects.has_value() == stations.has_value());
    if (!stations)
        return 0;

    // The server's order is kept and unusable objects are skipped.
    qsizetype next = 0;
    for (const QJsonObject &object : *objects) {
        const auto station = Station::json(object);
        if (!station)
            continue;
        FUZZ_CHECK(next < stations->size());
        FUZZ_CHECK_EQ((*stations)[next], *station);
        ++next;
        checkUsable(*station);
        checkStoredRoundTrip(*station);
    }
    FUZZ_CHECK(next == stations->size());
    return 0;
}
