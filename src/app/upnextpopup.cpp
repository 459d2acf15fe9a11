#include "app/upnextpopup.h"

#include "app/texts.h"
#include "playback/player.h"

#include <QLabel>
#include <QListWidget>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

UpNextPopup::UpNextPopup(Player &player, QWidget *parent)
    : QFrame(parent, Qt::Popup)
    , m_player(player)
{
    setObjectName(QStringLiteral("upNext"));
    setFrameShape(QFrame::StyledPanel);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    m_heading = new QLabel(tx("player.upNext"), this);
    QFont bold = m_heading->font();
    bold.setBold(true);
    m_heading->setFont(bold);
    m_list = new QListWidget(this);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setUniformItemSizes(true);
    layout->addWidget(m_heading);
    layout->addWidget(m_list, 1);
    resize(340, 380);

    // A queue of the whole library changes rarely but is long: only an open list follows it.
    auto follow = [this] {
        if (isVisible())
            refresh();
    };
    connect(&m_player, &Player::queueChanged, this, follow);
    connect(&m_player, &Player::currentTrackChanged, this, follow);
    connect(&m_player, &Player::shuffleChanged, this, follow);
    connect(&m_player, &Player::repeatChanged, this, follow);
}

void UpNextPopup::refresh()
{
    const QList<Track> tracks = m_player.upNext();
    m_list->clear();
    const qsizetype shown = std::min<qsizetype>(tracks.size(), kShownTracks);
    for (qsizetype i = 0; i < shown; ++i) {
        const Track &track = tracks[i];
        QString line = track.title;
        if (!track.artist.isEmpty())
            line += QStringLiteral(" – ") + track.artist;
        auto *item = new QListWidgetItem(line, m_list);
        item->setToolTip(track.filePath.value_or(QString()));
    }
    if (tracks.size() > shown) {
        auto *more = new QListWidgetItem(Texts::text("player.upNextMoreFormat").arg(tracks.size() - shown), m_list);
        more->setFlags(Qt::NoItemFlags);
    }
    if (tracks.isEmpty()) {
        auto *none = new QListWidgetItem(tx("player.upNextEmpty"), m_list);
        none->setFlags(Qt::NoItemFlags);
    }
}

void UpNextPopup::openAbove(QWidget *anchor)
{
    QPoint topLeft = anchor->mapToGlobal(QPoint(anchor->width() - width(), -height()));
    if (const QScreen *screen = anchor->screen()) {
        const QRect area = screen->availableGeometry();
        topLeft.setX(std::clamp(topLeft.x(), area.left(), std::max(area.left(), area.right() - width())));
        topLeft.setY(std::max(topLeft.y(), area.top()));
    }
    move(topLeft);
    show();
}

void UpNextPopup::showEvent(QShowEvent *event)
{
    refresh();
    QFrame::showEvent(event);
}
