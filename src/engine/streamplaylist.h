#pragma once

#include <QByteArray>
#include <QUrl>

#include <optional>

// Reading PLS and M3U playlist files that stand in for a station's stream address.
namespace StreamPlaylist {

// True when the address names a playlist to resolve first ("pls" or "m3u"; "m3u8" is
// HLS and is connected directly).
[[nodiscard]] bool isPlaylistUrl(const QUrl &url);

// The first stream address in a playlist body: a PLS "FileN=" entry with an http(s)
// address, or else the first line that is itself an http(s) address. Comment lines
// ("#...") and blank lines are skipped.
[[nodiscard]] std::optional<QUrl> firstStreamUrl(const QByteArray &body);

} // namespace StreamPlaylist
