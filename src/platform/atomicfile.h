#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace AtomicFile {

// Replaces `path` with `data` so that a reader sees either the old or the new content,
// never a mix, and a crash or a full disk leaves the old file in place. Creates the
// parent folders. Returns false on any failure; the old file is then untouched and
// `error`, when given, receives the system's reason ("No space left on device").
[[nodiscard]] bool write(const QString &path, const QByteArray &data, QString *error = nullptr);

// Reads a whole file of at most `maxBytes`. Absent when the file is missing, unreadable
// or larger than the limit (a state file that large is not ours).
[[nodiscard]] std::optional<QByteArray> read(const QString &path, qint64 maxBytes = 64 << 20);

} // namespace AtomicFile
