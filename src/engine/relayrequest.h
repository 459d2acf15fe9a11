#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

// What the live relay's listener makes of the bytes a client sent: the arithmetic of
// finding the request head and judging it, without sockets, so that every rule is tested
// on plain bytes.
namespace RelayRequest {

// The length of the request head (request line and header lines, without the blank line
// that ends it) once `received` holds all of it; absent while it is incomplete. Lines may
// end in CRLF or a bare LF.
[[nodiscard]] std::optional<qsizetype> headLength(QByteArrayView received);

// The HTTP status the listener answers `head` with, when it serves on 127.0.0.1:`port`:
// 200 only for an exact "GET /stream.mp3 HTTP/1.x" (no query) whose single Host header is
// "127.0.0.1:PORT"; 400 for anything that is not a well-formed HTTP/1 request head (two
// Host headers included); 403 for a missing or different Host (a page that reached us by
// DNS rebinding names its own host), checked before the method so such a page learns
// nothing more; 405 for another method; 404 for another target.
[[nodiscard]] int status(QByteArrayView head, quint16 port);

// The complete answer for a refused request: status line, no body, "Connection: close".
[[nodiscard]] QByteArray refusal(int status);

} // namespace RelayRequest
