#pragma once

#include "library/librarystore.h"

#include <QDateTime>
#include <QString>

#include <iterator>
#include <memory>

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

// Opens the library at `path` and files tracks 0 to count - 1 into it; a benchmark without
// its library is meaningless, so a failure ends the program.
inline std::unique_ptr<LibraryStore> filledBenchLibrary(const QString &path, int count)
{
    LibraryOpenResult opened = LibraryStore::open(path);
    if (!opened)
        qFatal("%s", qPrintable(opened.message));
    QList<Track> tracks;
    tracks.reserve(count);
    for (int i = 0; i < count; ++i)
        tracks << benchTrack(i);
    if (opened.store->insertTracks(tracks).size() != count)
        qFatal("filling the library failed: %s", qPrintable(opened.store->lastError()));
    return std::move(opened.store);
}
