#include "engine/stationlistener.h"

#include "engine/radioplayback.h"
#include "engine/recordingcontext.h"

// Scaffolding until listening lands.
StationListener::StationListener(RecordingContext &context, LibraryStore *library, QObject *parent)
    : QObject(parent), m_context(context), m_library(library),
      m_relay(std::make_unique<RadioPlayback>(context.ffmpegPath)),
      m_liveTitle(std::make_unique<StreamTitlePoller>(context.http()))
{
}
StationListener::~StationListener() = default;
void StationListener::start(const Station &station)
{
    m_station = station;
    Q_EMIT stationChanged(m_station);
    Q_EMIT streamFailed(QStringLiteral("Stream unterbrochen"));
}
void StationListener::stop() { m_station.reset(); }
std::optional<QUrl> StationListener::streamUrl() const { return std::nullopt; }
QString StationListener::title() const { return m_liveTitle->title(); }
bool StationListener::saveCurrentSong(QString *) { return false; }
bool StationListener::keepsSong() const { return true; }
void StationListener::setKeepSong(bool) {}
