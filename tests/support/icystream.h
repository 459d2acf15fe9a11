#pragma once

#include "fixtureserver.h"

#include <QByteArray>
#include <QList>

#include <memory>

// A live ICY station for the fixture server: "ICY 200 OK" with a metadata interval of
// 1000 bytes, then one block of audio every `intervalMs` for as long as the client
// listens. Titles change every `blocksPerTitle` blocks, going through `titles` once; after
// the last the station keeps playing it. Audio block n is 1000 bytes of one letter, so
// saved files can be told apart.
namespace IcyStream {

inline constexpr int kMetaint = 1000;

inline QByteArray metaBlock(const QByteArray &text)
{
    if (text.isEmpty())
        return QByteArray(1, '\0');
    const qsizetype blocks = (text.size() + 15) / 16;
    QByteArray padded = text;
    padded.resize(blocks * 16, '\0');
    return char(blocks) + padded;
}

// 1000 bytes the recorder takes for audio: two MPEG frame headers (layer I, 12 kHz; 228
// and 772 bytes long, so a block is whole frames) filled with one letter. Saves keep
// only audio frames, so plain letters would be dropped as "no audio".
inline QByteArray audioBlock(int n)
{
    const char letter = char('a' + n % 26);
    return QByteArray("\xFF\xE7\x36\x00", 4) + QByteArray(224, letter) + QByteArray("\xFF\xE7\xC6\x00", 4)
        + QByteArray(768, letter);
}

// One ADTS AAC frame of `bytes` (at least 8) filled with `letter`, for streams without ICY.
inline QByteArray adtsFrame(int bytes, char letter)
{
    const QByteArray header{"\xFF\xF1\x50", 3};
    return header + char(0x80 | ((bytes >> 11) & 3)) + char((bytes >> 3) & 0xFF) + char(((bytes & 7) << 5) | 0x1F) + char(0xFC) + QByteArray(bytes - 7, letter);
}

// One handler per route: every connection starts the programme from the top. With
// `audio` (real MP3 bytes, for tests that let ffmpeg look at the files) the blocks are
// taken from it in turn instead of letters.
inline FixtureServer::Handler station(
    QList<QByteArray> titles, int blocksPerTitle, int intervalMs, QByteArray audio = {})
{
    return [titles = std::move(titles), blocksPerTitle, intervalMs, audio](const FixtureServer::Request &) {
        auto block = std::make_shared<int>(0);
        return FixtureServer::Script::head(
            "ICY 200 OK", { { "icy-metaint", "1000" }, { "Content-Type", "audio/mpeg" } })
            .produce(intervalMs, [titles, blocksPerTitle, block, audio] {
                const int n = (*block)++;
                const qsizetype title = n / blocksPerTitle;
                const bool change = n % blocksPerTitle == 0 && title < titles.size();
                const qsizetype blocks = audio.size() / kMetaint;
                const QByteArray sound = blocks > 0 ? audio.mid((n % blocks) * kMetaint, kMetaint) : audioBlock(n);
                return sound + metaBlock(change ? "StreamTitle='" + titles[title] + "';" : QByteArray());
            });
    };
}

// A station of real MP3 for tests that let ffmpeg play it while the recorder keeps it:
// `mp3` is whole frames (CBR, no tag) and `metaint` a multiple of its frame size, so
// every audio run between two metadata blocks is whole frames and a song cut at a title
// change is the stream's bytes exactly. Block n is the `metaint` bytes at n x metaint in
// `mp3` taken round; song k's title follows block starts[k], so its audio is blocks
// starts[k] + 1 to starts[k + 1]. The last song plays on for as long as the client listens.
struct Mp3Programme {
    QByteArray mp3;
    int metaint = 0;
    QList<std::pair<QByteArray, int>> songs; // title, audio blocks

    QByteArray block(int n) const
    {
        const qsizetype offset = (qsizetype(n) * metaint) % mp3.size();
        return (mp3 + mp3).mid(offset, metaint);
    }
    int start(int song) const
    {
        int at = 0;
        for (int k = 0; k < song; ++k)
            at += songs[k].second;
        return at;
    }
    // Song k's audio as the station sent it.
    QByteArray songAudio(int song) const
    {
        QByteArray audio;
        for (int n = start(song) + 1; n <= start(song + 1); ++n)
            audio += block(n);
        return audio;
    }
    FixtureServer::Handler handler(int intervalMs) const
    {
        return [programme = *this, intervalMs](const FixtureServer::Request &) {
            auto next = std::make_shared<int>(0);
            return FixtureServer::Script::head(
                "HTTP/1.0 200 OK", { { "icy-metaint", QByteArray::number(programme.metaint) }, { "Content-Type", "audio/mpeg" } })
                .produce(intervalMs, [programme, next] {
                    const int n = (*next)++;
                    QByteArray meta;
                    for (qsizetype k = 0; k < programme.songs.size(); ++k) {
                        if (programme.start(int(k)) == n)
                            meta = "StreamTitle='" + programme.songs[k].first + "';";
                    }
                    return programme.block(n) + metaBlock(meta);
                });
        };
    }
};

} // namespace IcyStream
