#pragma once

#include "library/transitionmode.h"

#include <QObject>

// The user's choice of transition, crossfade length and automix length, kept in the
// preferences "ov.transition.mode" (raw value), "ov.transition.crossfadeSeconds" and
// "ov.transition.automixSeconds" (integers).
//
// One instance for the application, made by the composition root; lives on the GUI
// thread. The preferences are read once, in the constructor: a value written behind the
// instance's back (by orvida-cli) takes effect at the next start. Every set writes the
// key, even when nothing changed; only a change is announced.
class TransitionSettings : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 kDefaultCrossfadeSeconds = 6;
    static constexpr qint64 kMinCrossfadeSeconds = 1;
    static constexpr qint64 kMaxCrossfadeSeconds = 12;
    // Automix overlaps whole bars, so it wants more room than a crossfade: 16 s is eight
    // bars at 120 BPM.
    static constexpr qint64 kDefaultAutomixSeconds = 16;
    static constexpr qint64 kMinAutomixSeconds = 4;
    static constexpr qint64 kMaxAutomixSeconds = 32;

    explicit TransitionSettings(QObject *parent = nullptr);

    [[nodiscard]] TransitionMode mode() const { return m_mode; }
    // The changed signal is emitted before the preference is written.
    void setMode(TransitionMode mode);

    [[nodiscard]] qint64 crossfadeSeconds() const { return m_crossfadeSeconds; }
    // Stored as given; the chooser offers only 1 to 12, and a stored value outside that
    // range reads back as the default at the next start.
    void setCrossfadeSeconds(qint64 seconds);

    [[nodiscard]] qint64 automixSeconds() const { return m_automixSeconds; }
    // The longest automix overlap; stored as given, read back like the crossfade length
    // but within 4..32 (default 16).
    void setAutomixSeconds(qint64 seconds);

    // How stored values are read: unknown words give off; a missing key, a non-number or
    // a number outside 1..12 gives 6.
    [[nodiscard]] static TransitionMode readMode();
    [[nodiscard]] static qint64 readCrossfadeSeconds();
    [[nodiscard]] static qint64 readAutomixSeconds();

Q_SIGNALS:
    void modeChanged(TransitionMode mode);
    void crossfadeSecondsChanged(qint64 seconds);
    void automixSecondsChanged(qint64 seconds);

private:
    TransitionMode m_mode;
    qint64 m_crossfadeSeconds;
    qint64 m_automixSeconds;
};
