#include "scoring.h"

#include "programme.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace Scoring {

namespace {

    bool wholeInside(const PlayedSong &p, double windowStartSec, double windowEndSec)
    {
        return p.startSec >= windowStartSec && p.endSec <= windowEndSec;
    }

    Stat statOf(const QList<double> &values)
    {
        Stat out;
        for (double v : values) {
            out.totalSec += v;
            out.maxSec = std::max(out.maxSec, v);
        }
        if (!values.isEmpty())
            out.meanSec = out.totalSec / double(values.size());
        return out;
    }

} // namespace

FileScore scoreFile(const QString &fileName, bool complete, const std::vector<int> &labels, double windowSec,
    const QList<PlayedSong> &played, double windowStartSec, double windowEndSec)
{
    FileScore score;
    score.fileName = fileName;
    score.complete = complete;
    score.fileSec = double(labels.size()) * windowSec;

    QHash<int, int> windowsOf;
    for (int label : labels) {
        if (label >= 0 && label < played.size())
            ++windowsOf[label];
    }
    // The item the file holds the largest share of: a jingle's file that begins with the
    // last seconds of a long song is the jingle's, though it may hold more seconds of song.
    const auto shareOf = [&](int item) {
        return double(windowsOf.value(item)) * windowSec / std::max(windowSec, played[item].endSec - played[item].startSec);
    };
    int best = -1;
    for (auto it = windowsOf.cbegin(); it != windowsOf.cend(); ++it) {
        const double share = shareOf(it.key());
        if (best < 0 || share > shareOf(best) || (share == shareOf(best) && it.key() < best))
            best = it.key();
    }
    if (best < 0)
        return score;
    const PlayedSong &item = played[best];
    score.item = best;
    score.title = item.song.title;
    score.jingle = Programme::isJingle(item.song.title);
    score.itemSec = item.endSec - item.startSec;
    score.insideWindow = wholeInside(item, windowStartSec, windowEndSec);
    const int ownWindows = windowsOf.value(best);
    score.heldSec = double(ownWindows) * windowSec;
    int foreignWindows = 0;
    for (auto it = windowsOf.cbegin(); it != windowsOf.cend(); ++it)
        foreignWindows += it.key() == best ? 0 : it.value();
    score.foreignSec = double(foreignWindows) * windowSec;

    // Another item before the first own window means the file began before the song did,
    // so nothing is missing at the start; likewise at the end.
    const auto firstOwn = std::find(labels.begin(), labels.end(), best);
    const auto lastOwn = std::find(labels.rbegin(), labels.rend(), best).base() - 1;
    const auto isOther = [best](int label) { return label >= 0 && label != best; };
    const bool neighbourBefore = std::any_of(labels.begin(), firstOwn, isOther);
    const bool neighbourAfter = std::any_of(lastOwn + 1, labels.end(), isOther);
    const double missingSec = std::max(0.0, score.itemSec - score.heldSec);
    if (neighbourBefore && neighbourAfter)
        return score; // what is short is the blur of the two changes
    if (neighbourBefore)
        score.missingEndSec = missingSec;
    else if (neighbourAfter)
        score.missingStartSec = missingSec;
    else
        score.missingEitherSec = missingSec;
    return score;
}

void markDuplicates(QList<FileScore> &files)
{
    QSet<int> seen;
    for (FileScore &file : files) {
        if (!file.complete || file.item < 0)
            continue;
        file.duplicate = seen.contains(file.item);
        seen.insert(file.item);
    }
}

QList<int> songsInWindow(const QList<PlayedSong> &played, double windowStartSec, double windowEndSec)
{
    QList<int> out;
    for (const PlayedSong &p : played) {
        if (!Programme::isJingle(p.song.title) && wholeInside(p, windowStartSec, windowEndSec))
            out << p.index;
    }
    return out;
}

Summary summarise(const QList<FileScore> &files, const QList<PlayedSong> &played, double windowStartSec,
    double windowEndSec, double shortSongSec)
{
    Summary out;
    QList<double> missingStart;
    QList<double> missingEnd;
    QList<double> missingEither;
    QList<double> foreign;
    QSet<int> kept;
    for (const FileScore &file : files) {
        if (!file.complete) {
            ++out.incompleteFiles;
            continue;
        }
        ++out.files;
        if (file.item < 0) {
            ++out.unrecognisedFiles;
            continue;
        }
        out.jingleFiles += file.jingle ? 1 : 0;
        out.duplicateFiles += file.duplicate ? 1 : 0;
        if (!file.jingle && file.heldSec >= kKeptShare * file.itemSec)
            kept.insert(file.item);
        if (file.jingle || file.duplicate || !file.insideWindow)
            continue;
        missingStart << file.missingStartSec;
        missingEnd << file.missingEndSec;
        missingEither << file.missingEitherSec;
        foreign << file.foreignSec;
    }
    for (int k : songsInWindow(played, windowStartSec, windowEndSec)) {
        const bool isShort = played[k].endSec - played[k].startSec <= shortSongSec;
        ++out.songsInWindow;
        out.shortSongsInWindow += isShort ? 1 : 0;
        if (kept.contains(k)) {
            ++out.songsKept;
            continue;
        }
        ++out.songsLost;
        out.shortSongsLost += isShort ? 1 : 0;
    }
    out.missingStart = statOf(missingStart);
    out.missingEnd = statOf(missingEnd);
    out.missingEither = statOf(missingEither);
    out.foreign = statOf(foreign);
    return out;
}

} // namespace Scoring
