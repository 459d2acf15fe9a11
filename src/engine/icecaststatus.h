#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

// The Icecast JSON status document as a second source of stream titles.
namespace IcecastStatus {

// Where a stream's server publishes its status: the stream address's scheme (http when
// it has none) and host, on the scheme's default port, path "/status-json.xsl". The
// stream's own port is deliberately dropped. Absent when the address has no host.
[[nodiscard]] std::optional<QUrl> statusUrl(const QString &streamUrl);

// The mount path to look for: the stream address's path.
[[nodiscard]] QString mountPath(const QString &streamUrl);

// The title of the matching source in a status document, when it has a non-empty one.
// A source matches by equal mount, or (for a mount path of two or more characters) by a
// "listenurl" or "mount" ending with it; a lone source is taken even if it does not match.
[[nodiscard]] std::optional<QString> titleFor(const QByteArray &statusJson, const QString &mountPath);

} // namespace IcecastStatus
