#pragma once

#include "stations/station.h"

#include <QDialog>

class EngineSettingsStore;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSpinBox;

// How one station is recorded: its override of the engine settings, opened from the
// station's context menu. Without an override the form shows the settings for all
// stations and says so; the first change makes it the station's own. Every change is
// written at once through the store (under the preferences' lock, merged with what
// orvida-cli wrote meanwhile); a write that fails puts the form back to what is in force
// and says why in the sheet.
//
// Follows the store, so a change made elsewhere while the sheet is open shows up.
// Lives on the GUI thread.
class StationEngineSheet : public QDialog {
    Q_OBJECT

public:
    StationEngineSheet(EngineSettingsStore &store, Station station, QWidget *parent = nullptr);

    [[nodiscard]] const Station &station() const { return m_station; }

    QSpinBox *leadInBox() const { return m_leadIn; }
    QSpinBox *leadOutBox() const { return m_leadOut; }
    QSpinBox *minDurationBox() const { return m_minDuration; }
    QCheckBox *skipJinglesBox() const { return m_skipJingles; }
    QComboBox *qualityBox() const { return m_quality; }
    QPushButton *resetButton() const { return m_reset; }
    // "uses the settings for all stations" while the station has no override.
    QLabel *scopeNote() const { return m_scopeNote; }
    // Why the last write failed; hidden after one that worked.
    QLabel *problemLabel() const { return m_problem; }

private:
    void load();
    void save();
    void reset();
    void showWritten(bool ok, const QString &error);

    EngineSettingsStore &m_store;
    const Station m_station;
    bool m_loading = false;
    QSpinBox *m_leadIn = nullptr;
    QSpinBox *m_leadOut = nullptr;
    QSpinBox *m_minDuration = nullptr;
    QCheckBox *m_skipJingles = nullptr;
    QComboBox *m_quality = nullptr;
    QPushButton *m_reset = nullptr;
    QLabel *m_scopeNote = nullptr;
    QLabel *m_problem = nullptr;
};
