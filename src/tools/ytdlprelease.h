#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// The yt-dlp project's releases: where they are asked for and what the answers mean.
// Pure functions; fetching is YtDlpUpdater's.
namespace YtDlpRelease {

// The release API of the project on the code host. ORVIDA_RELEASES_URL replaces it (a
// loopback fixture in tests); the download addresses derive from the same base.
[[nodiscard]] QString defaultBase();
[[nodiscard]] QString baseFromEnvironment();

// base + "/releases/latest".
[[nodiscard]] QByteArray latestUrl(const QString &base);

// A file of release `tag`. For the code host's API base the files live on its download
// host ("https://github.com/<owner>/<repo>/releases/download/<tag>/<file>"); any other base
// serves them below itself (base + "/releases/download/<tag>/<file>").
[[nodiscard]] QByteArray downloadUrl(const QString &base, const QString &tag, const QString &fileName);

// The single-file build for this processor: "yt-dlp_linux" or "yt-dlp_linux_aarch64".
[[nodiscard]] QString assetNameForThisMachine();

// The release's checksum list, verified before an installed copy replaces anything.
inline const QString kChecksumsFile = QStringLiteral("SHA2-256SUMS");

// The tag becomes part of a download path: letters, digits and ".-_+" only, so an odd
// answer cannot point the download anywhere else.
[[nodiscard]] bool isSafeTag(const QString &tag);

// The "tag_name" of a "/releases/latest" answer: HTTP 200, a JSON object, a non-empty
// string. Nothing otherwise.
[[nodiscard]] std::optional<QString> parseLatestTag(int statusCode, const QByteArray &body);

// The lower-case hex SHA-256 of `fileName` in a "sha256sum" style list
// ("<hex>  <name>" or "<hex> *<name>" a line). Nothing when the file is not listed.
[[nodiscard]] std::optional<QByteArray> expectedSha256(const QByteArray &sums, const QString &fileName);

} // namespace YtDlpRelease
