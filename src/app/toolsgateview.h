#pragma once

#include "tools/toollocations.h"

#include <QString>
#include <QWidget>

class QLabel;
class QPlainTextEdit;

// The screen shown before the content while ffmpeg or yt-dlp is missing: one row per
// program with its own state and a download link, the commands that install both (the
// package manager first, then copying them next to the program), "check again" and
// "continue anyway".
//
// Lives on the GUI thread.
class ToolsGateView : public QWidget {
    Q_OBJECT

public:
    explicit ToolsGateView(QWidget *parent = nullptr);
    // Looks in `locations` instead of this process's own (tests fill folders of their own).
    explicit ToolsGateView(ToolLocations locations, QWidget *parent = nullptr);

    // Looks again; announces allFound() when both are there now.
    void checkAgain();
    [[nodiscard]] bool ffmpegPresent() const { return m_ffmpegPresent; }
    [[nodiscard]] bool ytdlpPresent() const { return m_ytdlpPresent; }

    // The shell lines for installing both programs, in the interface language: the
    // package manager's one line, then copying them into `installDir`.
    [[nodiscard]] static QString copyCommands(const QString &installDir);

    // A row's state as shown: "found" text or the download link.
    QLabel *ffmpegState() const { return m_ffmpegState; }
    QLabel *ytdlpState() const { return m_ytdlpState; }
    QPlainTextEdit *commandsBlock() const { return m_commands; }

Q_SIGNALS:
    void skipped();
    void allFound();

private:
    void updateRows();
    void look();

    const ToolLocations m_locations;
    bool m_ffmpegPresent = false;
    bool m_ytdlpPresent = false;
    QLabel *m_ffmpegState = nullptr;
    QLabel *m_ytdlpState = nullptr;
    QPlainTextEdit *m_commands = nullptr;
};
