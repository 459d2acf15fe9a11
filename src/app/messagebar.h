#pragma once

#include <QFrame>
#include <QStringList>

class QLabel;
class QPushButton;

// A quiet red bar above the pages for what went wrong in the background: a state file
// that could not be written, a song that could not be saved. Unlike the short notice it
// stays until the user dismisses it, so a failure that happened while the window was in
// the tray is still there when it comes back. A message already shown is not added again
// (a failing statistics file fails with every song), and only the newest few are listed.
//
// Lives on the GUI thread.
class MessageBar : public QFrame {
    Q_OBJECT

public:
    static constexpr int kShownMessages = 3;

    explicit MessageBar(QWidget *parent = nullptr);

    void add(const QString &message);
    void clear();
    // Everything added since the last clear, oldest first.
    [[nodiscard]] const QStringList &messages() const { return m_messages; }
    QPushButton *dismissButton() const { return m_dismiss; }

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();
    // Colours for the application's palette, light or dark.
    void restyle();

    QStringList m_messages;
    QLabel *m_text = nullptr;
    QPushButton *m_dismiss = nullptr;
    int m_styledDark = -1; // the palette restyle() last chose for: -1 none yet
};
