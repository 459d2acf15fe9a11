#include "app/recentsview.h"

#include "app/application.h"
#include "app/stationlistpane.h"
#include "app/stationtablemodel.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "stations/recentstations.h"

#include <QMenu>
#include <QVBoxLayout>

RecentsView::RecentsView(Application &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
{
    const UiKit::Page page = UiKit::makePage(this, tx("recents.title"));
    m_pane = new StationListPane(app, tx("recents.emptyTitle"), tx("recents.emptyHint"), this);
    page.layout->addWidget(m_pane, 1);
    m_pane->extendMenu = [this](QMenu &menu, const Station &station) {
        menu.addAction(tx("recents.forget"), this, [this, station] { m_app.recents().remove(station); });
    };
    connect(m_pane, &StationListPane::currentStationChanged, this, &RecentsView::currentStationChanged);
    connect(&app.recents(), &RecentStations::changed, this, &RecentsView::refresh);
    refresh();
}

void RecentsView::refresh()
{
    m_pane->model()->setStations(m_app.recents().list());
    m_pane->showRowsOrEmpty(tx("recents.emptyTitle"), tx("recents.emptyHint"));
}
