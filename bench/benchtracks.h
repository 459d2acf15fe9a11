#pragma once

#include "library/librarystore.h"

#include <QDateTime>
#include <QString>

#include <iterator>

// Track `i` of a large benchmark library, as the recorder writes them: German and English
// names, the radio folder's layout, a spread of stations, albums, dates and play counts.
inline Track benchTrack(int i)
{
    static const char *const kStations[] = {"Bayern 1", "Radio Eins", "FM4", "SWR3", "Deutschlandfunk Kultur"};
    const QString station = QString::fromLatin1(kStations[i % std::size(kStations)]);
    const QString artist = QStringLiteral("Künstlerin %1").arg(i % 3000);
    const QString title = QStringLiteral("Ein ziemlich langer Liedtitel Nummer %1").arg(i);
    return Track(title, artist, QStringLiteral("Album %1").arg(i % 9000), 120.0 + i % 300,
                 QDateTime::fromSecsSinceEpoch(1'600'000'000 + qint64(i) * 97, Qt::UTC),
                 i % 4 ? QStringLiteral("Pop") : QString(), i % 50 == 0, i % 13, QStringLiteral("radio"), station,
                 QStringLiteral("/home/nutzer/Musik/Orvida/Radio/%1/%2 - %3.mp3").arg(station, artist, title));
}
