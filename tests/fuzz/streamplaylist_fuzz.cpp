// The PLS/M3U reader on arbitrary playlist bodies.
//
// Whatever it returns must be a valid http(s)-like address, and "first" must mean first:
// a comment or blank line put in front, or another address put behind, changes nothing.

#include "engine/streamplaylist.h"

#include "fuzzcheck.h"

#include <cstdint>

namespace {

// Inserts `lines` at the top, after a UTF-8 byte order mark, which the reader drops only
// where it opens a UTF-8 body (in a Latin-1 one those are three letters of the first line).
QByteArray withLinesInFront(const QByteArray &body, const QByteArray &lines)
{
    static const QByteArray kBom("\xEF\xBB\xBF");
    if (body.startsWith(kBom) && body.isValidUtf8())
        return kBom + lines + body.sliced(kBom.size());
    return lines + body;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = FuzzInput::bytes(data, size);
    const auto url = StreamPlaylist::firstStreamUrl(body);
    if (url) {
        FUZZ_CHECK(url->isValid());
        FUZZ_CHECK(url->scheme().startsWith(QLatin1StringView("http"), Qt::CaseInsensitive));
    }

    FUZZ_CHECK_EQ(StreamPlaylist::firstStreamUrl(withLinesInFront(body, "# comment\n\n[playlist]\n")), url);
    if (url)
        FUZZ_CHECK_EQ(StreamPlaylist::firstStreamUrl(body + "\nhttp://127.0.0.1:1/later\n"), url);

    const QUrl asAddress(QString::fromUtf8(body.left(256)));
    const bool playlist = StreamPlaylist::isPlaylistUrl(asAddress);
    if (playlist) {
        const QString path = asAddress.path().toLower();
        FUZZ_CHECK(path.endsWith(QLatin1StringView(".pls")) || path.endsWith(QLatin1StringView(".m3u")));
    }
    return 0;
}
