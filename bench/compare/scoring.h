#pragma once

#include "icecastfixture.h"

#include <QList>
#include <QString>

#include <vector>

// How well a recorder's files match what was broadcast, judged by their audio alone.
//
// Each file comes as one label per short window: the index of the programme item whose
// tone sounds there, or -1. The item a file holds is the one of which it holds the
// largest share (a file is meant to hold one item whole, its neighbours in part). Times
// are seconds; a window boundary costs up to a window at every song change, so results
// are exact to about two windows.
namespace Scoring {

struct FileScore {
    QString fileName;
    bool complete = true; // false: the recorder set it aside as an incomplete track
    int item = -1; // programme index of the item it holds; -1: none recognised
    QString title; // that item's title
    bool jingle = false;
    double fileSec = 0;
    double itemSec = 0; // the item's length in the programme
    double heldSec = 0; // of the item, in this file
    // Of the item, missing at the file's start, at its end, and where the audio cannot
    // tell (neither edge holds a neighbour, so the cut could be on either side).
    double missingStartSec = 0;
    double missingEndSec = 0;
    double missingEitherSec = 0;
    double foreignSec = 0; // other items' audio in the file
    bool insideWindow = false; // the item played wholly while the recorder recorded
    bool duplicate = false; // an earlier complete file holds the same item
};

// Scores one file. `played` is the broadcast's log; `windowStartSec`/`windowEndSec` the
// recorder's time in source time.
[[nodiscard]] FileScore scoreFile(const QString &fileName, bool complete, const std::vector<int> &labels,
    double windowSec, const QList<PlayedSong> &played, double windowStartSec, double windowEndSec);

// Marks every complete file after the first that holds the same item. Files are taken in
// the order given.
void markDuplicates(QList<FileScore> &files);

// A file holding at least this share of a song has kept it.
inline constexpr double kKeptShare = 0.9;

struct Stat {
    double meanSec = 0;
    double maxSec = 0;
    double totalSec = 0;
};

struct Summary {
    int files = 0; // complete files
    int incompleteFiles = 0;
    int unrecognisedFiles = 0; // complete files holding no programme item
    int songsInWindow = 0; // songs that played wholly while recording
    int shortSongsInWindow = 0; // of them, not longer than the minimum length given
    int songsKept = 0; // of them, held to kKeptShare by a complete file
    int songsLost = 0;
    int shortSongsLost = 0;
    int jingleFiles = 0; // complete files holding a jingle
    int duplicateFiles = 0;
    // Over the complete, non-duplicate files of songs inside the window.
    Stat missingStart;
    Stat missingEnd;
    Stat missingEither;
    Stat foreign;
};

[[nodiscard]] Summary summarise(const QList<FileScore> &files, const QList<PlayedSong> &played, double windowStartSec,
    double windowEndSec, double shortSongSec);

// The programme's songs (not jingles) that played wholly inside the window.
[[nodiscard]] QList<int> songsInWindow(const QList<PlayedSong> &played, double windowStartSec, double windowEndSec);

} // namespace Scoring
