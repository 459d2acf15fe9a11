#pragma once

#include <QFrame>

class Player;
class QLabel;
class QListWidget;

// "Up Next": the tracks the player will play after the current one, in play order (the
// shuffled order when shuffle is on), opened from the now-playing bar. Long queues show
// their first kShownTracks entries and how many more follow.
//
// Lives on the GUI thread; borrows the player and follows its queue while it is shown.
class UpNextPopup : public QFrame {
    Q_OBJECT

public:
    static constexpr int kShownTracks = 200;

    explicit UpNextPopup(Player &player, QWidget *parent = nullptr);

    // Opens above `anchor` (the bar sits at the bottom of the window).
    void openAbove(QWidget *anchor);
    QListWidget *list() const { return m_list; }
    void refresh();

protected:
    void showEvent(QShowEvent *event) override;

private:
    Player &m_player;
    QLabel *m_heading = nullptr;
    QListWidget *m_list = nullptr;
};
