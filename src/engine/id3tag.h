#pragma once

#include <QByteArray>
#include <QString>

namespace Id3Tag {

// A complete ID3v2.3 tag: header, then TIT2, TPE1, TALB text frames (empty texts left
// out) and, with cover bytes, an APIC front-cover frame. Text frames are marked UTF-8
// (encoding byte 3) although 2.3 predates it: the players and our own library reader
// take it, and it keeps non-Latin titles intact.
[[nodiscard]] QByteArray buildID3v2Tag(const QString &title, const QString &artist, const QString &album,
                                       const QByteArray &coverJpeg);

} // namespace Id3Tag
