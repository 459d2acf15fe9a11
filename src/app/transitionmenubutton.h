#pragma once

#include "library/transitionmode.h"

#include <QToolButton>

class QActionGroup;
class QLabel;
class QMenu;
class QSlider;
class TransitionSettings;

// The player's chooser of how one track leads into the next: a button showing the mode in
// force, whose menu offers the four modes (each with its hint), the crossfade length
// (1 to 12 s) and the automix length (4 to 32 s), both kept by TransitionSettings. A change
// applies from the next transition the player plans.
//
// Lives on the GUI thread; borrows the application's TransitionSettings and follows its
// changes made elsewhere.
class TransitionMenuButton : public QToolButton {
    Q_OBJECT

public:
    explicit TransitionMenuButton(TransitionSettings &settings, QWidget *parent = nullptr);

    QMenu *modeMenu() const { return m_menu; }
    QAction *modeAction(TransitionMode mode) const;
    QSlider *crossfadeSlider() const { return m_crossfade; }
    QLabel *crossfadeValue() const { return m_crossfadeValue; }
    QSlider *automixSlider() const { return m_automix; }
    QLabel *automixValue() const { return m_automixValue; }
    // The hint under the modes: the hovered mode's, else the chosen one's.
    QLabel *hintLabel() const { return m_hint; }

private:
    void refresh();
    void showHint(TransitionMode mode);
    QWidget *lengthRow(const QString &label, QSlider **slider, QLabel **value, qint64 min, qint64 max);

    TransitionSettings &m_settings;
    QMenu *m_menu = nullptr;
    QActionGroup *m_modes = nullptr;
    QLabel *m_hint = nullptr;
    QSlider *m_crossfade = nullptr;
    QLabel *m_crossfadeValue = nullptr;
    QSlider *m_automix = nullptr;
    QLabel *m_automixValue = nullptr;
};
