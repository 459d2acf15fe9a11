#include "engine/id3tag.h"

namespace Id3Tag {

namespace {

void appendBigEndian32(QByteArray &out, quint32 v)
{
    out.append(char((v >> 24) & 0xFF));
    out.append(char((v >> 16) & 0xFF));
    out.append(char((v >> 8) & 0xFF));
    out.append(char(v & 0xFF));
}

void appendFrame(QByteArray &out, const char id[4], const QByteArray &body)
{
    out.append(id, 4);
    appendBigEndian32(out, quint32(body.size()));
    out.append('\0');
    out.append('\0');
    out.append(body);
}

void appendTextFrame(QByteArray &out, const char id[4], const QString &text)
{
    if (text.isEmpty())
        return;
    QByteArray body;
    body.append('\x03');
    body.append(text.toUtf8());
    appendFrame(out, id, body);
}

} // namespace

QByteArray buildID3v2Tag(const QString &title, const QString &artist, const QString &album, const QByteArray &coverJpeg)
{
    QByteArray frames;
    appendTextFrame(frames, "TIT2", title);
    appendTextFrame(frames, "TPE1", artist);
    appendTextFrame(frames, "TALB", album);
    if (!coverJpeg.isEmpty()) {
        QByteArray body;
        body.append('\x03');
        body.append("image/jpeg");
        body.append('\0');
        body.append('\x03'); // front cover
        body.append('\0');   // empty description
        body.append(coverJpeg);
        appendFrame(frames, "APIC", body);
    }

    QByteArray tag("ID3\x03\x00\x00", 6);
    const quint32 size = quint32(frames.size());
    tag.append(char((size >> 21) & 0x7F));
    tag.append(char((size >> 14) & 0x7F));
    tag.append(char((size >> 7) & 0x7F));
    tag.append(char(size & 0x7F));
    tag.append(frames);
    return tag;
}

} // namespace Id3Tag
