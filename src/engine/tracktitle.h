#pragma once

#include <QString>

// What a stream title says about the song: artist and title, and whether it is a song
// at all (station IDs, adverts and placeholder titles are not).
namespace TrackTitle {

struct Parts {
    QString artist; // "" when the title has no " - "
    QString title;
};

// "A - B - C" -> artist "A", title "B - C"; without " - " the whole text is the title.
[[nodiscard]] Parts split(const QString &streamTitle);

// True when a split-mode recording with jingle skipping on should not be kept: no
// " - " separator, a placeholder song part ("", "unknown", "n/a", "-"), or a song part
// that names an advert, jingle or station ID.
[[nodiscard]] bool looksLikeJingle(const QString &streamTitle);

// Replaces control characters (C0, DEL, C1, line and paragraph separators) by spaces so
// they never reach file names or tags, and trims the result.
[[nodiscard]] QString withoutControlCharacters(const QString &text);

} // namespace TrackTitle
