#pragma once

#include <QDate>
#include <QString>
#include <QStringList>

#include <optional>

// The radio folder and how recordings are named inside it.
//
// Every name that reaches the file system passes through here, and nothing a station
// sends can place a file outside the radio folder: placeholder values are sanitised,
// empty or dot-only pieces get a stand-in, over-long names are shortened, and the final
// path is checked to lie inside radioDir().
namespace AppPaths {

// "ov.radioSaveDir" when set, else defaultRadioDir().
[[nodiscard]] QString radioDir();
// <Music>/Orvida/Radio.
[[nodiscard]] QString defaultRadioDir();
// radioDir()/tmp: hidden segment and work files.
[[nodiscard]] QString tmpDir();
// Creates radioDir() and its tmp folder; failures show up at the next write.
void ensure();

// Splits at / \ : * ? " < > | and joins the pieces with "-", then trims white space.
[[nodiscard]] QString sanitizeComponent(const QString &text);

// What a pattern's placeholders stand for.
struct NamingValues {
    QString artist;
    QString title;
    QString streamTitle;
    QString station;
    QDate date;
};

// Replaces %artist%, %title%, %streamtitle%, %station% and %date% by sanitised values.
[[nodiscard]] QString expandPattern(const QString &pattern, const NamingValues &values);

// The placeholders expandPattern() knows, without their percent signs.
[[nodiscard]] const QStringList &placeholderNames();
// The %name% tokens of `pattern` that expandPattern() would leave as they are, in order
// of first appearance, each once and with its percent signs ("%foo%").
[[nodiscard]] QStringList unknownPlaceholders(const QString &pattern);

// Cuts `name` so that name + "." + ext fits in 255 bytes of UTF-8, on a character
// boundary.
[[nodiscard]] QString fitFileName(const QString &name, const QString &ext);

// The final file path for a recording: the name pattern ("ov.radioNamePattern",
// default "%streamtitle%") in the folder pattern's sub-folders ("ov.radioFolderPattern")
// of `radioDir`, with extension `ext`. Creates the sub-folders. Absent only when the
// result would lie outside `radioDir`, which the sanitising makes impossible in practice.
[[nodiscard]] std::optional<QString> recordingPath(const QString &artist, const QString &title,
                                                  const QString &streamTitle, const QString &station,
                                                  const QString &ext);

// The same with every input explicit, for previews and tests.
[[nodiscard]] std::optional<QString> recordingPath(const QString &radioDir, const QString &namePattern,
                                                  const QString &folderPattern, const NamingValues &values,
                                                  const QString &ext, bool createFolders);

} // namespace AppPaths
