// The ICY demultiplexer on arbitrary stream bodies, fed in one chunk and in random chunks.
//
// Input: two bytes of metadata interval (big-endian, plus one: 1..65536), eight bytes that
// seed the chunking, then the body. Both feeds must agree with each other and with a plain
// whole-buffer walk of the format: the same audio bytes in order, the same titles, and the
// same state at the end. A demux built without an interval (0) passes the body on whole.

#include "engine/icydemux.h"

#include "fuzzcheck.h"

#include <QStringList>

#include <charconv>
#include <cstdint>

namespace {

constexpr size_t kHeaderBytes = 10;

struct Demuxed {
    QByteArray audio;
    QStringList titles;
    IcyDemux::State state = IcyDemux::State::Audio;
};

QDebug operator<<(QDebug debug, IcyDemux::State state)
{
    return debug << int(state);
}

// Feeds `body` cut at the given lengths (the rest in one piece) and checks that every audio
// run is a non-empty view into the chunk being fed.
Demuxed demux(qint64 metaint, QByteArrayView body, FuzzInput::SplitMix *chunking)
{
    Demuxed out;
    IcyDemux demux(metaint);
    QByteArrayView chunk;
    demux.onAudio = [&](QByteArrayView run) {
        FUZZ_CHECK(!run.isEmpty());
        FUZZ_CHECK(run.data() >= chunk.data() && run.data() + run.size() <= chunk.data() + chunk.size());
        out.audio.append(run);
    };
    demux.onTitle = [&](const QString &title) { out.titles.append(title); };

    qsizetype at = 0;
    while (at < body.size()) {
        qsizetype length = body.size() - at;
        if (chunking) {
            // Mostly tiny cuts, so that length bytes and metadata blocks get split, with an
            // occasional empty feed and now and then a long run.
            switch (chunking->below(8)) {
            case 0:
                length = 0;
                break;
            case 1:
                length = qsizetype(1 + chunking->below(4096));
                break;
            default:
                length = qsizetype(1 + chunking->below(24));
            }
            length = std::min(length, body.size() - at);
        }
        chunk = body.sliced(at, length);
        demux.feed(chunk);
        at += length;
    }
    out.state = demux.state();
    return out;
}

// The format read straight off the whole body, without any carried state.
Demuxed reference(qint64 metaint, QByteArrayView body)
{
    Demuxed out;
    qsizetype at = 0;
    while (at < body.size()) {
        const qsizetype audio = qsizetype(std::min<qint64>(metaint, body.size() - at));
        out.audio.append(body.sliced(at, audio));
        at += audio;
        if (audio < metaint) {
            out.state = IcyDemux::State::Audio;
            break;
        }
        if (at == body.size()) {
            out.state = IcyDemux::State::Len;
            break;
        }
        const qsizetype metaBytes = qsizetype(static_cast<unsigned char>(body[at++])) * 16;
        out.state = IcyDemux::State::Audio;
        if (metaBytes == 0)
            continue;
        if (body.size() - at < metaBytes) {
            out.state = IcyDemux::State::Meta;
            break;
        }
        const QString text = IcyText::decodeUtf8OrLatin1(body.sliced(at, metaBytes));
        if (const auto title = IcyText::extractStreamTitle(text))
            out.titles.append(*title);
        at += metaBytes;
    }
    return out;
}

// parseMetaint against the standard library's reading of the same digits: whatever it
// accepts must be what from_chars reads, and it must accept every value well inside 64 bits.
void checkMetaint(QByteArrayView value)
{
    const auto parsed = IcyText::parseMetaint(value);
    QByteArrayView t = value.trimmed();
    if (t.startsWith('+') && t.size() > 1 && t[1] != '-')
        t = t.sliced(1);
    qint64 expected = 0;
    const auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), expected);
    const bool whole = error == std::errc() && end == t.data() + t.size() && !t.isEmpty();
    if (parsed)
        FUZZ_CHECK(whole && *parsed == expected);
    else
        FUZZ_CHECK(!whole || expected > 100'000'000'000'000'000LL || expected < -100'000'000'000'000'000LL);
}

// The first marker's title runs to the closing "';" when there is one, else to the next quote.
void checkTitleExtraction(const QString &text)
{
    static const QString kMarker = QStringLiteral("StreamTitle='");
    const auto title = IcyText::extractStreamTitle(text);
    const qsizetype at = text.indexOf(kMarker);
    if (at < 0) {
        FUZZ_CHECK(!title);
        return;
    }
    const QStringView rest = QStringView(text).sliced(at + kMarker.size());
    FUZZ_CHECK(title.has_value() == rest.contains(QLatin1Char('\'')));
    if (title) {
        FUZZ_CHECK(rest.startsWith(*title));
        FUZZ_CHECK(!title->contains(QLatin1StringView("';")));
        FUZZ_CHECK(!title->contains(QLatin1Char('\'')) || rest.contains(QLatin1StringView("';")));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < kHeaderBytes)
        return 0;
    const qint64 metaint = 1 + ((qint64(data[0]) << 8) | data[1]);
    quint64 seed = 0;
    for (size_t i = 2; i < kHeaderBytes; ++i)
        seed = (seed << 8) | data[i];
    const QByteArrayView body(reinterpret_cast<const char *>(data + kHeaderBytes), qsizetype(size - kHeaderBytes));

    const Demuxed expected = reference(metaint, body);
    const Demuxed whole = demux(metaint, body, nullptr);
    FuzzInput::SplitMix chunking(seed);
    const Demuxed chunked = demux(metaint, body, &chunking);

    FUZZ_CHECK_EQ(whole.audio, expected.audio);
    FUZZ_CHECK_EQ(whole.titles, expected.titles);
    FUZZ_CHECK_EQ(whole.state, expected.state);
    FUZZ_CHECK_EQ(chunked.audio, expected.audio);
    FUZZ_CHECK_EQ(chunked.titles, expected.titles);
    FUZZ_CHECK_EQ(chunked.state, expected.state);

    FuzzInput::SplitMix plainChunking(seed);
    const Demuxed plain = demux(0, body, &plainChunking);
    FUZZ_CHECK_EQ(plain.audio, body.toByteArray());
    FUZZ_CHECK(plain.titles.isEmpty());
    FUZZ_CHECK_EQ(plain.state, IcyDemux::State::Audio);

    checkMetaint(body.first(std::min<qsizetype>(body.size(), 24)));
    checkTitleExtraction(IcyText::decodeUtf8OrLatin1(body.first(std::min<qsizetype>(body.size(), 512))));
    return 0;
}
