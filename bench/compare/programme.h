#pragma once

#include "icecastfixture.h"

#include <QList>
#include <QString>

// The programme a comparison broadcasts: songs of 20 to 240 s with "Artist - Title" names,
// and between many of them a jingle or an advert whose title has no " - " ("Station ID",
// "Werbung", the station's name). Every item, jingles included, has a tone of its own, so
// a recording's decoded audio says which item it holds.
namespace Programme {

// Far enough apart that a 0.1 s window tells neighbours apart, and all below the 4 kHz a
// recording is decoded at.
inline constexpr double kFirstToneHz = 240.0;
inline constexpr double kToneStepHz = 43.7;
inline constexpr double kHighestToneHz = 3600.0;

// The station name the recorders are given and the third jingle title.
inline const QString kStationName = QStringLiteral("Radio Testfunk");

// Items until the programme lasts at least `minSec`: an opening song during which the
// recorders join, then the songs in a fixed order of lengths. Empty when that needs more
// items than there are tones; maxSec() says how long a programme can be.
[[nodiscard]] QList<BroadcastSong> make(double minSec);
[[nodiscard]] double maxSec();

// Jingles and adverts are the items whose title has no " - ".
[[nodiscard]] bool isJingle(const QString &title);

[[nodiscard]] QList<double> tones(const QList<BroadcastSong> &programme);

} // namespace Programme
