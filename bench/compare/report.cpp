#include "report.h"

#include "programme.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <functional>

namespace Report {

namespace {

    QString sec(double value)
    {
        return QString::number(value, 'f', 1);
    }

    QString meanMax(const Scoring::Stat &stat)
    {
        return sec(stat.meanSec) + QStringLiteral(" / ") + sec(stat.maxSec);
    }

    QString withShort(int all, int shortOnes)
    {
        return shortOnes > 0 ? QStringLiteral("%1 (%2 ≤ min)").arg(all).arg(shortOnes) : QString::number(all);
    }

    QJsonObject statJson(const Scoring::Stat &stat)
    {
        return { { QStringLiteral("mean"), stat.meanSec }, { QStringLiteral("max"), stat.maxSec },
            { QStringLiteral("total"), stat.totalSec } };
    }

    QString escaped(QString text)
    {
        return text.replace(QLatin1Char('|'), QLatin1String("\\|"));
    }

} // namespace

QString markdown(const Comparison &c, bool files)
{
    const QList<int> inWindow = Scoring::songsInWindow(c.played, c.windowStartSec, c.windowEndSec);
    int shortSongs = 0;
    for (int k : inWindow)
        shortSongs += c.played[k].endSec - c.played[k].startSec <= c.shortSongSec ? 1 : 0;
    int jingles = 0;
    for (const PlayedSong &p : c.played) {
        const bool inside = p.startSec >= c.windowStartSec && p.endSec <= c.windowEndSec;
        jingles += inside && Programme::isJingle(p.song.title) ? 1 : 0;
    }

    QString out = QStringLiteral("## %1, %2 min recorded\n\n").arg(c.codec, QString::number(c.recordSec / 60, 'f', 1));
    out += QStringLiteral("Recorded from source time %1 s to %2 s: %3 songs (20 to 240 s) and %4 jingles played wholly "
                          "inside. ")
               .arg(sec(c.windowStartSec), sec(c.windowEndSec))
               .arg(inWindow.size())
               .arg(jingles);
    if (shortSongs > 0) {
        out += QStringLiteral("Songs not longer than %1 s, the default minimum length of orvida-cli, which drops "
                              "them by design (\"≤ min\" below): %2.")
                   .arg(c.shortSongSec)
                   .arg(shortSongs);
    }
    out += QStringLiteral("\n\n");

    using Row = std::function<QString(const RecorderResult &)>;
    const QList<std::pair<QString, Row>> rows {
        { QStringLiteral("files (complete)"), [](const RecorderResult &r) { return QString::number(r.summary.files); } },
        { QStringLiteral("files set aside as incomplete"),
            [](const RecorderResult &r) { return QString::number(r.summary.incompleteFiles); } },
        { QStringLiteral("songs kept (≥ 90 % in one file)"),
            [](const RecorderResult &r) { return QString::number(r.summary.songsKept); } },
        { QStringLiteral("songs lost"),
            [](const RecorderResult &r) { return withShort(r.summary.songsLost, r.summary.shortSongsLost); } },
        { QStringLiteral("jingle files kept"),
            [](const RecorderResult &r) { return QString::number(r.summary.jingleFiles); } },
        { QStringLiteral("duplicate files"),
            [](const RecorderResult &r) { return QString::number(r.summary.duplicateFiles); } },
        { QStringLiteral("files of no programme item"),
            [](const RecorderResult &r) { return QString::number(r.summary.unrecognisedFiles); } },
        { QStringLiteral("song missing at start, mean / max s"),
            [](const RecorderResult &r) { return meanMax(r.summary.missingStart); } },
        { QStringLiteral("song missing at end, mean / max s"),
            [](const RecorderResult &r) { return meanMax(r.summary.missingEnd); } },
        { QStringLiteral("song missing, end unknown, mean / max s"),
            [](const RecorderResult &r) { return meanMax(r.summary.missingEither); } },
        { QStringLiteral("other items' audio in a song file, mean / max s"),
            [](const RecorderResult &r) { return meanMax(r.summary.foreign); } },
        { QStringLiteral("CPU s (process + its children)"),
            [](const RecorderResult &r) {
                return QStringLiteral("%1 (%2 + %3)")
                    .arg(QString::number(r.usage.cpuSec(), 'f', 2), QString::number(r.usage.selfCpuSec, 'f', 2),
                        QString::number(r.usage.childrenCpuSec, 'f', 2));
            } },
        { QStringLiteral("CPU % of one core"),
            [](const RecorderResult &r) {
                return QString::number(r.usage.wallSec > 0 ? 100 * r.usage.cpuSec() / r.usage.wallSec : 0, 'f', 2);
            } },
        { QStringLiteral("peak RSS MiB (the process itself)"),
            [](const RecorderResult &r) { return QString::number(double(r.usage.peakRssKib) / 1024, 'f', 1); } },
        { QStringLiteral("ran s, exit code"),
            [](const RecorderResult &r) {
                return QStringLiteral("%1, %2").arg(QString::number(r.usage.wallSec, 'f', 0)).arg(r.usage.exitCode);
            } },
    };

    out += QStringLiteral("| |");
    QString rule = QStringLiteral("|---|");
    for (const RecorderResult &r : c.recorders) {
        out += QLatin1Char(' ') + escaped(r.label) + QStringLiteral(" |");
        rule += QStringLiteral("---|");
    }
    out += QLatin1Char('\n') + rule + QLatin1Char('\n');
    for (const auto &[name, cell] : rows) {
        out += QStringLiteral("| ") + name + QStringLiteral(" |");
        for (const RecorderResult &r : c.recorders)
            out += QLatin1Char(' ') + cell(r) + QStringLiteral(" |");
        out += QLatin1Char('\n');
    }
    out += QStringLiteral("\nMissing and foreign seconds are over the complete files of songs that played wholly "
                          "inside the recording; exact to about 0.2 s.\n");
    if (!files)
        return out;

    for (const RecorderResult &r : c.recorders) {
        out += QStringLiteral("\n### %1\n\n`%2`\n\n").arg(r.label, r.command);
        out += QStringLiteral("| file | holds | item s | held s | missing start / end / either s | foreign s | "
                              "notes |\n|---|---|---|---|---|---|---|\n");
        for (const Scoring::FileScore &f : r.files) {
            QStringList notes;
            if (!f.complete)
                notes << QStringLiteral("incomplete");
            if (f.jingle)
                notes << QStringLiteral("jingle");
            if (f.duplicate)
                notes << QStringLiteral("duplicate");
            if (f.item >= 0 && !f.insideWindow)
                notes << QStringLiteral("at the recording's edge");
            out += QStringLiteral("| %1 | %2 | %3 | %4 | %5 / %6 / %7 | %8 | %9 |\n")
                       .arg(escaped(f.fileName),
                           f.item < 0 ? QStringLiteral("–") : QStringLiteral("#%1 %2").arg(f.item).arg(escaped(f.title)),
                           sec(f.itemSec), sec(f.heldSec), sec(f.missingStartSec), sec(f.missingEndSec),
                           sec(f.missingEitherSec), sec(f.foreignSec), notes.join(QStringLiteral(", ")));
        }
    }
    return out;
}

QByteArray json(const Comparison &c)
{
    QJsonArray programme;
    for (const PlayedSong &p : c.played) {
        programme.append(QJsonObject { { QStringLiteral("index"), p.index }, { QStringLiteral("title"), p.song.title },
            { QStringLiteral("toneHz"), p.song.toneHz }, { QStringLiteral("startSec"), p.startSec },
            { QStringLiteral("endSec"), p.endSec }, { QStringLiteral("titleSetSec"), p.titleSetSec },
            { QStringLiteral("jingle"), Programme::isJingle(p.song.title) } });
    }
    QJsonArray recorders;
    for (const RecorderResult &r : c.recorders) {
        QJsonArray files;
        for (const Scoring::FileScore &f : r.files) {
            files.append(QJsonObject { { QStringLiteral("file"), f.fileName }, { QStringLiteral("complete"), f.complete },
                { QStringLiteral("item"), f.item }, { QStringLiteral("title"), f.title },
                { QStringLiteral("jingle"), f.jingle }, { QStringLiteral("fileSec"), f.fileSec },
                { QStringLiteral("itemSec"), f.itemSec }, { QStringLiteral("heldSec"), f.heldSec },
                { QStringLiteral("missingStartSec"), f.missingStartSec },
                { QStringLiteral("missingEndSec"), f.missingEndSec },
                { QStringLiteral("missingEitherSec"), f.missingEitherSec },
                { QStringLiteral("foreignSec"), f.foreignSec }, { QStringLiteral("insideWindow"), f.insideWindow },
                { QStringLiteral("duplicate"), f.duplicate } });
        }
        const Scoring::Summary &s = r.summary;
        const MeasuredProcess::Usage &u = r.usage;
        recorders.append(QJsonObject {
            { QStringLiteral("label"), r.label },
            { QStringLiteral("folder"), r.folder },
            { QStringLiteral("command"), r.command },
            { QStringLiteral("usage"),
                QJsonObject { { QStringLiteral("selfCpuSec"), u.selfCpuSec },
                    { QStringLiteral("childrenCpuSec"), u.childrenCpuSec }, { QStringLiteral("wallSec"), u.wallSec },
                    { QStringLiteral("peakRssKib"), u.peakRssKib },
                    { QStringLiteral("exitCode"), u.exitCode } } },
            { QStringLiteral("summary"),
                QJsonObject { { QStringLiteral("files"), s.files }, { QStringLiteral("incompleteFiles"), s.incompleteFiles },
                    { QStringLiteral("unrecognisedFiles"), s.unrecognisedFiles },
                    { QStringLiteral("songsInWindow"), s.songsInWindow },
                    { QStringLiteral("shortSongsInWindow"), s.shortSongsInWindow },
                    { QStringLiteral("songsKept"), s.songsKept }, { QStringLiteral("songsLost"), s.songsLost },
                    { QStringLiteral("shortSongsLost"), s.shortSongsLost },
                    { QStringLiteral("jingleFiles"), s.jingleFiles },
                    { QStringLiteral("duplicateFiles"), s.duplicateFiles },
                    { QStringLiteral("missingStartSec"), statJson(s.missingStart) },
                    { QStringLiteral("missingEndSec"), statJson(s.missingEnd) },
                    { QStringLiteral("missingEitherSec"), statJson(s.missingEither) },
                    { QStringLiteral("foreignSec"), statJson(s.foreign) } } },
            { QStringLiteral("files"), files },
        });
    }
    const QJsonObject doc { { QStringLiteral("codec"), c.codec }, { QStringLiteral("recordSec"), c.recordSec },
        { QStringLiteral("windowStartSec"), c.windowStartSec }, { QStringLiteral("windowEndSec"), c.windowEndSec },
        { QStringLiteral("shortSongSec"), c.shortSongSec }, { QStringLiteral("programme"), programme },
        { QStringLiteral("recorders"), recorders } };
    return QJsonDocument(doc).toJson(QJsonDocument::Indented);
}

std::optional<Comparison> fromJson(const QByteArray &bytes)
{
    const QJsonObject doc = QJsonDocument::fromJson(bytes).object();
    const QJsonArray programme = doc.value(QLatin1String("programme")).toArray();
    const QJsonArray recorders = doc.value(QLatin1String("recorders")).toArray();
    if (programme.isEmpty() || recorders.isEmpty())
        return std::nullopt;
    Comparison c;
    c.codec = doc.value(QLatin1String("codec")).toString();
    c.recordSec = doc.value(QLatin1String("recordSec")).toDouble();
    c.windowStartSec = doc.value(QLatin1String("windowStartSec")).toDouble();
    c.windowEndSec = doc.value(QLatin1String("windowEndSec")).toDouble();
    c.shortSongSec = doc.value(QLatin1String("shortSongSec")).toDouble();
    for (const QJsonValue &value : programme) {
        const QJsonObject o = value.toObject();
        PlayedSong p;
        p.index = o.value(QLatin1String("index")).toInt();
        p.startSec = o.value(QLatin1String("startSec")).toDouble();
        p.endSec = o.value(QLatin1String("endSec")).toDouble();
        p.titleSetSec = o.value(QLatin1String("titleSetSec")).toDouble();
        p.song = { o.value(QLatin1String("title")).toString(), o.value(QLatin1String("toneHz")).toDouble(),
            p.endSec - p.startSec };
        if (p.index != c.played.size())
            return std::nullopt; // the scores index the programme by position
        c.played << p;
    }
    for (const QJsonValue &value : recorders) {
        const QJsonObject o = value.toObject();
        const QJsonObject u = o.value(QLatin1String("usage")).toObject();
        RecorderResult r;
        r.label = o.value(QLatin1String("label")).toString();
        r.folder = o.value(QLatin1String("folder")).toString();
        r.command = o.value(QLatin1String("command")).toString();
        r.usage.selfCpuSec = u.value(QLatin1String("selfCpuSec")).toDouble();
        r.usage.childrenCpuSec = u.value(QLatin1String("childrenCpuSec")).toDouble();
        r.usage.wallSec = u.value(QLatin1String("wallSec")).toDouble();
        r.usage.peakRssKib = u.value(QLatin1String("peakRssKib")).toInteger();
        r.usage.exitCode = u.value(QLatin1String("exitCode")).toInt(-1);
        if (r.folder.isEmpty())
            return std::nullopt;
        c.recorders << r;
    }
    return c;
}

} // namespace Report
