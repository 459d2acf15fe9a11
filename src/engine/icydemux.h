#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>
#include <optional>

// Splits an ICY stream body into audio runs and stream titles.
//
// The body is `metaint` audio bytes, one length byte L, L x 16 bytes of metadata, and so
// on. feed() takes chunks cut anywhere (inside a length byte's position, inside a
// metadata block) and carries its state to the next chunk. Audio runs are views of the
// chunk passed to feed(), valid only during the onAudio call; they are never copied or
// merged. Metadata is the only thing buffered, and a block is at most 255 x 16 bytes.
//
// A metaint below 1 announces no metadata blocks (a server may send "icy-metaint: 0"):
// such a demux passes the whole body on as audio. It never divides the body by a
// non-positive interval, in release builds either.
//
// Not thread-safe; lives on its session's engine thread.
class IcyDemux {
public:
    enum class State {
        Audio, // inside an audio run (initial)
        Len, // the next byte is the metadata length byte
        Meta, // collecting a metadata block
    };

    explicit IcyDemux(qint64 metaint);

    [[nodiscard]] bool isPassThrough() const { return m_metaint == 0; }

    void feed(QByteArrayView data);

    std::function<void(QByteArrayView)> onAudio;
    std::function<void(const QString &)> onTitle;

    [[nodiscard]] State state() const { return m_state; }

private:
    void flushMeta();

    const qint64 m_metaint; // 0: pass-through
    State m_state = State::Audio;
    qint64 m_audioLeft;
    qint64 m_metaExpected = 0;
    QByteArray m_metaBuf;
};

namespace IcyText {

// UTF-8 when the bytes are valid UTF-8, else ISO Latin-1 (which never fails).
[[nodiscard]] QString decodeUtf8OrLatin1(QByteArrayView bytes);

// The value of the first StreamTitle='...' in a metadata block's text: the text up to
// the first "';" after the marker, or else up to the first "'"; absent without marker
// or closing quote. Empty titles are returned as such.
[[nodiscard]] std::optional<QString> extractStreamTitle(const QString &text);

// Parses an "icy-metaint" header value: trimmed, optional sign, decimal digits only.
[[nodiscard]] std::optional<qint64> parseMetaint(QByteArrayView value);

} // namespace IcyText
