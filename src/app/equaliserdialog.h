#pragma once

#include "playback/equalisersettings.h"

#include <QDialog>

#include <array>

class Player;
class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;

// The user's equaliser and the loudness levelling, opened from the player bar: on/off, a
// preset chooser, the preamp and ten band sliders (half-dB steps), and the levelling
// choice (off, per track, per album). Every change is heard at once and stored in the
// preferences; a slider moved by hand turns the preset into "Custom".
//
// Lives on the GUI thread and borrows the application's player.
class EqualiserDialog : public QDialog {
    Q_OBJECT

public:
    explicit EqualiserDialog(Player &player, QWidget *parent = nullptr);

    QCheckBox *enabledBox() const { return m_enabled; }
    QComboBox *presetBox() const { return m_preset; }
    QSlider *preampSlider() const { return m_preamp; }
    QSlider *bandSlider(int band) const { return m_bands[size_t(band)]; }
    QComboBox *normalisationBox() const { return m_normalisation; }

    // Shows the player's present settings (after a change made elsewhere).
    void refresh();

private:
    QWidget *sliderColumn(const QString &caption, QSlider **slider, QLabel **value);
    void applyFromSliders();
    void apply(const EqualiserSettings &settings, bool store = true);

    Player &m_player;
    QCheckBox *m_enabled = nullptr;
    QComboBox *m_preset = nullptr;
    QSlider *m_preamp = nullptr;
    QLabel *m_preampValue = nullptr;
    std::array<QSlider *, EqualiserSettings::kBands> m_bands {};
    std::array<QLabel *, EqualiserSettings::kBands> m_bandValues {};
    QComboBox *m_normalisation = nullptr;
};
