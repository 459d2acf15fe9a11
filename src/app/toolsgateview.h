#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QPlainTextEdit;

// The screen shown before the content while ffmpeg or yt-dlp is missing: one row per
// program with its state and a download link, the commands that copy both next to the
// program, "check again" and "continue anyway".
//
// Lives on the GUI thread.
class ToolsGateView : public QWidget {
    Q_OBJECT

public:
    explicit ToolsGateView(QWidget *parent = nullptr);

    // Looks again; announces allFound() when both are there now.
    void checkAgain();
    [[nodiscard]] bool ffmpegPresent() const { return m_ffmpegPresent; }
    [[nodiscard]] bool ytdlpPresent() const { return m_ytdlpPresent; }

    // The shell lines for copying both programs into `installDir`.
    [[nodiscard]] static QString copyCommands(const QString &installDir);

Q_SIGNALS:
    void skipped();
    void allFound();

private:
    void updateRows();

    bool m_ffmpegPresent = false;
    bool m_ytdlpPresent = false;
    QLabel *m_ffmpegState = nullptr;
    QLabel *m_ytdlpState = nullptr;
};
