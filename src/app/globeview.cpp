#include "app/globeview.h"

#include "app/application.h"
#include "app/countrynames.h"
#include "app/globecanvas.h"
#include "app/stationactionbar.h"
#include "app/texts.h"
#include "app/uikit.h"
#include "engine/radiorecorder.h"
#include "engine/recordingsession.h"
#include "stations/favoritestations.h"
#include "stations/globestationstore.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

GlobeView::GlobeView(Application &app, GlobeStationStore &store, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_store(store)
    // A view built again after the catalogue came is not waiting for anything.
    , m_settled(store.didStart() && !store.isLoading())
{
    const UiKit::Page page = UiKit::makePage(this, tx("globe.title"));
    m_count = page.count;
    m_status = UiKit::makeHint(QString(), this);
    m_status->setObjectName(QStringLiteral("globeStatus"));
    m_status->setWordWrap(false);
    m_status->hide();
    m_reload = new QPushButton(tx("globe.reload"), this);
    m_reload->setObjectName(QStringLiteral("globeReload"));
    page.titleRow->insertWidget(page.titleRow->count() - 1, m_status);
    page.titleRow->addWidget(m_reload);

    // The notice shares the globe's cell, centred over it.
    auto *stage = new QGridLayout;
    stage->setContentsMargins(0, 0, 0, 0);
    m_canvas = new GlobeCanvas(this);
    stage->addWidget(m_canvas, 0, 0);
    m_notice = new QWidget(this);
    m_notice->setObjectName(QStringLiteral("globeNotice"));
    m_notice->setAttribute(Qt::WA_StyledBackground);
    m_notice->setStyleSheet(QStringLiteral("QWidget#globeNotice { background: rgba(12, 18, 30, 210); border-radius: 10px; }"
                                           "QWidget#globeNotice QLabel { color: white; }"));
    m_notice->setMaximumWidth(420);
    auto *noticeLayout = new QVBoxLayout(m_notice);
    noticeLayout->setContentsMargins(22, 16, 22, 16);
    m_noticeTitle = UiKit::makeTitle(QString(), m_notice);
    QFont titleFont = m_noticeTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() / 1.6 * 1.2);
    m_noticeTitle->setFont(titleFont);
    m_noticeTitle->setAlignment(Qt::AlignCenter);
    m_noticeText = new QLabel(m_notice);
    m_noticeText->setWordWrap(true);
    m_noticeText->setAlignment(Qt::AlignCenter);
    m_retry = new QPushButton(tx("globe.retry"), m_notice);
    m_retry->setObjectName(QStringLiteral("globeRetry"));
    noticeLayout->addWidget(m_noticeTitle);
    noticeLayout->addWidget(m_noticeText);
    noticeLayout->addWidget(m_retry, 0, Qt::AlignHCenter);
    stage->addWidget(m_notice, 0, 0, Qt::AlignCenter);
    page.layout->addLayout(stage, 1);

    auto *stationRow = new QHBoxLayout;
    m_name = new QLabel(this);
    m_name->setObjectName(QStringLiteral("globeStationName"));
    m_name->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // The German hint alone is wider than half a screen beside the buttons: it wraps.
    m_name->setWordWrap(true);
    m_details = UiKit::makeHint(QString(), this);
    m_details->setWordWrap(false);
    m_actions = new StationActionBar(app, this);
    // The name takes the free space: a wrapping label left to its minimum would wrap on
    // a wide window too.
    stationRow->addWidget(m_name, 1);
    stationRow->addWidget(m_details);
    stationRow->addWidget(m_actions);
    page.layout->addLayout(stationRow);

    if (m_store.savedCamera().canConvert<GlobeCamera>())
        m_canvas->setCamera(m_store.savedCamera().value<GlobeCamera>());
    m_store.setSavedCamera(QVariant::fromValue(m_canvas->camera()));

    connect(m_canvas, &GlobeCanvas::cameraChanged, this,
            [this](const GlobeCamera &camera) { m_store.setSavedCamera(QVariant::fromValue(camera)); });
    connect(m_canvas, &GlobeCanvas::selectionChanged, this, &GlobeView::showStation);
    connect(&store, &GlobeStationStore::stationsChanged, this, &GlobeView::refreshStations);
    connect(&store, &GlobeStationStore::isLoadingChanged, this, [this](bool loading) {
        if (!loading)
            m_settled = true;
        refreshState();
    });
    connect(&store, &GlobeStationStore::errorMessageChanged, this, &GlobeView::refreshState);
    connect(m_reload, &QPushButton::clicked, &store, &GlobeStationStore::refresh);
    connect(m_retry, &QPushButton::clicked, &store, &GlobeStationStore::refresh);
    connect(&app.favorites(), &FavoriteStations::changed, this, &GlobeView::refreshMarks);
    connect(&app.recorder(), &RadioRecorder::sessionsChanged, this, &GlobeView::refreshMarks);

    refreshMarks();
    refreshStations();
    showStation(std::nullopt);
}

void GlobeView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The catalogue is read (and fetched when needed) on first sight only.
    m_store.loadIfNeeded();
    refreshState();
}

std::optional<Station> GlobeView::selectedStation() const
{
    return m_canvas->selectedStation();
}

void GlobeView::refreshStations()
{
    m_canvas->setStations(m_store.stations());
    refreshState();
}

void GlobeView::refreshMarks()
{
    QSet<QString> recording;
    for (const RecordingSession *session : m_app.recorder().sessions())
        recording.insert(session->id());
    m_canvas->setMarks(m_app.favorites().ids(), recording);
}

void GlobeView::refreshState()
{
    const qsizetype count = m_store.stations().size();
    m_count->setVisible(count > 0);
    m_count->setText(Texts::text("globe.countFormat").arg(count));
    m_reload->setEnabled(!m_store.isLoading());

    const std::optional<QString> &error = m_store.errorMessage();
    // With dots on the globe, a failed update is only a quiet remark next to the count.
    m_status->setVisible(count > 0 && error.has_value());
    if (error)
        m_status->setText(Texts::text("globe.updateFailedFormat").arg(*error));

    if (count > 0) {
        m_notice->hide();
        return;
    }
    if (m_store.isLoading() || !m_settled) {
        m_noticeTitle->setText(tx("globe.loading"));
        m_noticeText->setText(tx("globe.loadingHint"));
        m_retry->hide();
    } else if (error) {
        m_noticeTitle->setText(tx("globe.errorTitle"));
        m_noticeText->setText(*error);
        m_retry->show();
    } else {
        m_noticeTitle->setText(tx("globe.emptyTitle"));
        m_noticeText->setText(tx("globe.emptyHint"));
        m_retry->show();
    }
    m_notice->show();
}

void GlobeView::showStation(const std::optional<Station> &station)
{
    m_actions->setStation(station);
    if (station) {
        QFont bold = font();
        bold.setBold(true);
        m_name->setFont(bold);
        m_name->setText(station->name);
        QStringList details;
        if (!station->country.isEmpty())
            details << CountryNames::display(station->country);
        if (!station->codec.isEmpty())
            details << station->codec;
        if (station->bitrate > 0)
            details << Texts::text("station.kbps").arg(station->bitrate);
        m_details->setText(details.join(QStringLiteral(" · ")));
    } else {
        m_name->setFont(font());
        m_name->setText(tx("globe.pickHint"));
        m_details->clear();
    }
    Q_EMIT currentStationChanged(station);
}
