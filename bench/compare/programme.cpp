#include "programme.h"

#include <cmath>

namespace Programme {

namespace {

    // Song lengths in the order they play: long and short ones mixed, several at or below
    // the 45 s that recorders commonly take as the shortest song worth keeping.
    // The first ones are short, so that a run of two minutes already scores a few.
    constexpr double kSongSec[] = { 64, 38, 118, 95, 212, 47, 151, 26, 240, 72, 133, 180, 56, 101, 20, 167, 83,
        44, 125, 205, 61, 90 };
    // After song n, a jingle when n is not a multiple of 3; they cycle through these.
    constexpr double kJingleSec[] = { 6, 12, 9 };
    const QString kJingleTitles[] = { QStringLiteral("Station ID"), QStringLiteral("Werbung"), kStationName };
    const QString kArtists[] = { QStringLiteral("Anna Berg"), QStringLiteral("Bruno Falk"), QStringLiteral("Clara Wendt"),
        QStringLiteral("Dario Moll"), QStringLiteral("Eva Lind"), QStringLiteral("Finn Ahrens"),
        QStringLiteral("Greta Sommer"), QStringLiteral("Hugo Brandt"), QStringLiteral("Ines Kral"),
        QStringLiteral("Jonas Weber"), QStringLiteral("Katja Roth") };
    const QString kNames[] = { QStringLiteral("Morgenlicht"), QStringLiteral("Blaue Stunde"),
        QStringLiteral("Northern Line"), QStringLiteral("Paper Boats"), QStringLiteral("Stadt am Fluss"),
        QStringLiteral("Slow Motion"), QStringLiteral("Winterreise"), QStringLiteral("Glass Houses"),
        QStringLiteral("Letzter Zug"), QStringLiteral("Open Water"), QStringLiteral("Sternenstaub"),
        QStringLiteral("Long Way Home"), QStringLiteral("Regenbogen") };
    constexpr double kOpeningSec = 30;

    int toneCount()
    {
        return int(std::floor((kHighestToneHz - kFirstToneHz) / kToneStepHz)) + 1;
    }

    // The n-th song: eleven artists and thirteen names give distinct titles for 143 songs.
    QString songTitle(int n)
    {
        return kArtists[n % std::size(kArtists)] + QStringLiteral(" - ") + kNames[n % std::size(kNames)];
    }

    // All items in order, as many as there are tones.
    QList<BroadcastSong> allItems()
    {
        QList<BroadcastSong> items;
        auto add = [&](const QString &title, double sec) {
            items.append({ title, kFirstToneHz + kToneStepHz * double(items.size()), sec });
        };
        add(songTitle(0), kOpeningSec);
        for (int n = 1, jingle = 0; items.size() < toneCount(); ++n) {
            add(songTitle(n), kSongSec[size_t(n - 1) % std::size(kSongSec)]);
            if (n % 3 != 0 && items.size() < toneCount()) {
                add(kJingleTitles[jingle % 3], kJingleSec[jingle % 3]);
                ++jingle;
            }
        }
        return items;
    }

} // namespace

QList<BroadcastSong> make(double minSec)
{
    QList<BroadcastSong> out;
    double totalSec = 0;
    for (const BroadcastSong &item : allItems()) {
        if (totalSec >= minSec)
            return out;
        out.append(item);
        totalSec += item.durationSec;
    }
    return totalSec >= minSec ? out : QList<BroadcastSong>();
}

double maxSec()
{
    double totalSec = 0;
    for (const BroadcastSong &item : allItems())
        totalSec += item.durationSec;
    return totalSec;
}

bool isJingle(const QString &title)
{
    return !title.contains(QLatin1String(" - "));
}

QList<double> tones(const QList<BroadcastSong> &programme)
{
    QList<double> out;
    for (const BroadcastSong &item : programme)
        out << item.toneHz;
    return out;
}

} // namespace Programme
