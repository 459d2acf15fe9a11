#pragma once

#include "app/texts.h"

#include <QString>
#include <QWidget>

#include <functional>

struct StateResult;
class Application;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTreeWidget;

// Settings: the engine record (for all stations, or one station's override chosen by
// id), the naming patterns with a live example, the radio folder, recording with the lid
// closed, starting at login, the recording statistics and the interface language.
// Switches and numbers are written at once, so a running recording picks them up with its
// next song; a text field is written when its editing ends, and a pattern only while every
// placeholder in it is one the naming knows.
//
// Lives on the GUI thread.
class SettingsView : public QWidget {
    Q_OBJECT

public:
    explicit SettingsView(Application &app, QWidget *parent = nullptr);

    // The scope of the engine form: empty for all stations, else a station id.
    void setScope(const QString &stationId);
    [[nodiscard]] QString scope() const;

    // Seam for tests: the folder picker.
    std::function<QString(const QString &current)> chooseFolder;

    QComboBox *scopeBox() const { return m_scope; }
    QSpinBox *leadInBox() const { return m_leadIn; }
    QSpinBox *leadOutBox() const { return m_leadOut; }
    QSpinBox *minDurationBox() const { return m_minDuration; }
    QCheckBox *skipJinglesBox() const { return m_skipJingles; }
    QComboBox *qualityBox() const { return m_quality; }
    QPushButton *resetButton() const { return m_reset; }
    QLineEdit *namePatternField() const { return m_namePattern; }
    QLineEdit *folderPatternField() const { return m_folderPattern; }
    QLineEdit *radioFolderField() const { return m_radioFolder; }
    QLabel *previewLabel() const { return m_preview; }
    // Says which placeholders of the patterns are unknown; hidden while there are none.
    QLabel *patternProblemLabel() const { return m_patternProblem; }
    // Keeps the lid switch while recordings run or are about to start ("ov.closedLidRecording").
    QCheckBox *closedLidBox() const { return m_closedLid; }
    QCheckBox *startAtLoginBox() const { return m_startAtLogin; }
    // Empty unless the last change of the login entry failed.
    QLabel *startAtLoginError() const { return m_startAtLoginError; }
    QLabel *todayLabel() const { return m_today; }
    QLabel *totalLabel() const { return m_total; }
    QTreeWidget *byStationList() const { return m_byStation; }
    // System, English, German, in that order.
    QComboBox *languageBox() const { return m_language; }

Q_SIGNALS:
    // The user chose another interface language (already stored); the window applies it.
    void languageChosen(Texts::Language language);

private:
    QWidget *buildLanguageGroup();
    QWidget *buildEngineGroup();
    QWidget *buildNamingGroup();
    QWidget *buildStartupGroup();
    QWidget *buildStatsGroup();
    void setStartAtLogin(bool enabled);
    void fillScopes();
    void loadEngineForm();
    void saveEngineForm();
    // A failed write: the form back to the settings in force, and why.
    void showWritten(const StateResult &written);
    void resetEngineScope();
    // Whether both patterns hold only known placeholders; marks the fields that do not.
    bool checkPatterns();
    void savePatterns();
    QWidget *buildClosedLidGroup();
    void setClosedLidRecording(bool enabled);
    void updatePreview();
    void refreshStats();

    Application &m_app;
    bool m_loading = false;

    QComboBox *m_scope = nullptr;
    QLabel *m_scopeNote = nullptr;
    QSpinBox *m_leadIn = nullptr;
    QSpinBox *m_leadOut = nullptr;
    QSpinBox *m_minDuration = nullptr;
    QCheckBox *m_skipJingles = nullptr;
    QComboBox *m_quality = nullptr;
    QPushButton *m_reset = nullptr;

    QLineEdit *m_namePattern = nullptr;
    QLineEdit *m_folderPattern = nullptr;
    QLineEdit *m_radioFolder = nullptr;
    QLabel *m_preview = nullptr;
    QLabel *m_patternProblem = nullptr;

    QCheckBox *m_closedLid = nullptr;
    QLabel *m_closedLidError = nullptr;

    QCheckBox *m_startAtLogin = nullptr;
    QLabel *m_startAtLoginError = nullptr;

    QLabel *m_today = nullptr;
    QLabel *m_total = nullptr;
    QTreeWidget *m_byStation = nullptr;
    QComboBox *m_language = nullptr;
};
