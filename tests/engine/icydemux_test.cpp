#include "engine/icydemux.h"

#include "icystream.h"

#include <QList>
#include <QRandomGenerator>
#include <QStringList>

#include <gtest/gtest.h>

namespace {

// Builds an ICY body: audio runs of `metaint` bytes, each followed by a length byte and
// a padded metadata block (empty text: length 0).
struct IcyBuilder {
    qint64 metaint;
    QByteArray body;
    QByteArray audio; // what a correct demultiplexer must hand out, in order
    char next = 'a';

    void audioRun()
    {
        QByteArray run(qsizetype(metaint), '\0');
        for (char &c : run) {
            c = next;
            next = next == 'z' ? 'a' : char(next + 1);
        }
        body += run;
        audio += run;
    }
    void meta(const QByteArray &text) { body += IcyStream::metaBlock(text); }
};

struct Result {
    QByteArray audio;
    QStringList titles;
    int audioCalls = 0;
};

Result run(qint64 metaint, const QByteArray &body, const QList<qsizetype> &cuts)
{
    Result r;
    IcyDemux demux(metaint);
    demux.onAudio = [&r](QByteArrayView v) {
        r.audio += v.toByteArray();
        ++r.audioCalls;
    };
    demux.onTitle = [&r](const QString &t) { r.titles << t; };
    qsizetype from = 0;
    for (qsizetype cut : cuts) {
        demux.feed(QByteArrayView(body).sliced(from, cut - from));
        from = cut;
    }
    demux.feed(QByteArrayView(body).sliced(from));
    return r;
}

TEST(IcyDemux, SplitsAudioAndTitlesWhateverTheChunking)
{
    IcyBuilder b{100, {}, {}};
    b.audioRun();
    b.meta("StreamTitle='Queen - Bohemian Rhapsody';StreamUrl='';");
    b.audioRun();
    b.meta("");
    b.audioRun();
    b.meta("StreamTitle='It's a Kind of Magic';");
    b.audioRun();

    // Whole, byte by byte, and cut right after each length byte and inside each block.
    QList<QList<qsizetype>> chunkings{{}, {}, {101}, {101, 120, 202}, {150, 151, 152}};
    for (qsizetype i = 1; i < b.body.size(); ++i)
        chunkings[1] << i;
    for (const auto &cuts : chunkings) {
        const Result r = run(100, b.body, cuts);
        EXPECT_EQ(r.audio, b.audio);
        EXPECT_EQ(r.titles, (QStringList{"Queen - Bohemian Rhapsody", "It's a Kind of Magic"}));
    }

    // Random chunkings too: the state must carry across any boundary.
    auto *rng = QRandomGenerator::global();
    for (int round = 0; round < 200; ++round) {
        QList<qsizetype> cuts;
        for (qsizetype at = rng->bounded(1, 40); at < b.body.size(); at += rng->bounded(1, 80))
            cuts << at;
        const Result r = run(100, b.body, cuts);
        ASSERT_EQ(r.audio, b.audio);
        ASSERT_EQ(r.titles.size(), 2);
    }
}

TEST(IcyDemux, AudioRunsAreHandedOutAsTheyArriveNotMerged)
{
    IcyBuilder b{1000, {}, {}};
    b.audioRun();
    // 1000 audio bytes fed as 10 chunks give 10 runs, none copied together.
    QList<qsizetype> cuts;
    for (int i = 1; i < 10; ++i)
        cuts << i * 100;
    EXPECT_EQ(run(1000, b.body, cuts).audioCalls, 10);
}

TEST(IcyDemux, AMetaintBelowOnePassesTheWholeBodyOnAsAudio)
{
    // What "icy-metaint: 0" or a negative value would build; no block structure is read.
    const QByteArray body = QByteArray("abc") + char(1) + "StreamTitle='X';" + "def";
    for (const qint64 metaint : {qint64(0), qint64(-16)}) {
        IcyDemux demux(metaint);
        EXPECT_TRUE(demux.isPassThrough());
        const Result r = run(metaint, body, {1, 4, 4, 10});
        EXPECT_EQ(r.audio, body);
        EXPECT_TRUE(r.titles.isEmpty());
    }
    EXPECT_FALSE(IcyDemux(1).isPassThrough());
}

TEST(IcyDemux, TitleExtractionRules)
{
    using IcyText::extractStreamTitle;
    EXPECT_EQ(extractStreamTitle("StreamTitle='A - B';StreamUrl='x';"), "A - B");
    EXPECT_EQ(extractStreamTitle("StreamTitle='It's Me';"), "It's Me");
    EXPECT_EQ(extractStreamTitle("StreamTitle='';"), "");
    // Without the closing pair the first lone quote ends it; zero padding is cut with it.
    EXPECT_EQ(extractStreamTitle(QString::fromLatin1("StreamTitle='Solo'\0\0\0", 20)), "Solo");
    EXPECT_EQ(extractStreamTitle("StreamTitle='never closed"), std::nullopt);
    EXPECT_EQ(extractStreamTitle("streamtitle='lower';"), std::nullopt);
    EXPECT_EQ(extractStreamTitle("StreamUrl='x';StreamTitle='Second';StreamTitle='Third';"), "Second");
}

TEST(IcyDemux, Latin1BlocksAreDecodedAsLatin1)
{
    IcyBuilder b{10, {}, {}};
    b.audioRun();
    b.meta("StreamTitle='Motörhead - Ace';"); // UTF-8 source text
    b.audioRun();
    b.meta(QByteArray("StreamTitle='Bj\xF6rk - J\xF3ga';")); // Latin-1 bytes, invalid UTF-8
    const Result r = run(10, b.body, {});
    EXPECT_EQ(r.titles, (QStringList{QStringLiteral("Motörhead - Ace"), QStringLiteral("Björk - Jóga")}));
}

TEST(IcyDemux, MetaintHeaderParsing)
{
    using IcyText::parseMetaint;
    EXPECT_EQ(parseMetaint(" 16000 "), 16000);
    EXPECT_EQ(parseMetaint("+8192"), 8192);
    EXPECT_EQ(parseMetaint("-5"), -5);
    EXPECT_EQ(parseMetaint("0"), 0);
    EXPECT_EQ(parseMetaint("16k"), std::nullopt);
    EXPECT_EQ(parseMetaint(""), std::nullopt);
    EXPECT_EQ(parseMetaint("+"), std::nullopt);
    EXPECT_EQ(parseMetaint("99999999999999999999999"), std::nullopt);
}

} // namespace
