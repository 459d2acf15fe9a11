#include "app/globecanvas.h"

#include <QApplication>
#include <QGestureEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPinchGesture>
#include <QRadialGradient>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

using namespace GlobeProjection;

namespace {

// Dots this close to the rim (in view depth) are drawn fainter, so the globe reads as round.
constexpr float kLimbDepth = 0.22f;
constexpr double kGridStepDeg = 30;
constexpr double kKeyZoomStep = 1.5;
constexpr double kDoubleClickZoom = 2;
constexpr double kKeyTurnDeg = 10;
// One wheel notch (120 eighths of a degree) zooms by this factor.
constexpr double kWheelZoomPerNotch = 1.2;

const QColor kPlainDot(255, 200, 87);
const QColor kLimbDot(255, 200, 87, 110);
const QColor kFavoriteDot(255, 107, 154);
const QColor kRecordingDot(255, 59, 48);
// Land lets the ocean's light show through, so it is lit the same way.
const QColor kLand(150, 190, 120, 95);
const QColor kCoastline(205, 230, 240, 190);
const QColor kBorder(230, 240, 245, 85);

double dotDiameterPx(double zoom)
{
    return std::clamp(4.0 + 1.5 * std::log2(zoom), 4.0, 9.0);
}

// One antialiased dot with a thin dark edge, so neighbours stay apart where they crowd.
QPixmap makeDotSprite(const QColor &colour, double diameterPx, qreal dpr)
{
    const int side = int(std::ceil(diameterPx + 2));
    QPixmap sprite(QSize(side, side) * dpr);
    sprite.setDevicePixelRatio(dpr);
    sprite.fill(Qt::transparent);
    QPainter painter(&sprite);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0, 0, 0, colour.alpha() / 3), 0.8));
    painter.setBrush(colour);
    painter.drawEllipse(QPointF(side / 2.0, side / 2.0), diameterPx / 2, diameterPx / 2);
    return sprite;
}

} // namespace

GlobeCanvas::GlobeCanvas(QWidget *parent)
    : QWidget(parent)
    , m_map(WorldMap::bundled())
{
    setObjectName(QStringLiteral("globeCanvas"));
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    grabGesture(Qt::PinchGesture);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void GlobeCanvas::setStations(const QList<Station> &stations)
{
    const std::optional<Station> before = selectedStation();
    m_stations = stations;
    m_units.clear();
    m_units.reserve(size_t(stations.size()));
    for (const Station &station : stations)
        m_units.push_back(unitVector(station.geoLat.value_or(0), station.geoLong.value_or(0)));
    for (std::vector<QPointF> *bucket : {&m_plainDots, &m_limbDots, &m_favoriteDots, &m_recordingDots})
        bucket->reserve(size_t(stations.size()));
    setMarks(m_favoriteIds, m_recordingIds);

    m_hover = -1;
    m_selected = -1;
    if (!m_selectedId.isEmpty()) {
        for (qsizetype i = 0; i < m_stations.size(); ++i)
            if (m_stations[i].id == m_selectedId)
                m_selected = i;
        if (m_selected < 0)
            m_selectedId.clear();
    }
    update();
    if (selectedStation() != before)
        Q_EMIT selectionChanged(selectedStation());
}

void GlobeCanvas::setMarks(const QSet<QString> &favoriteIds, const QSet<QString> &recordingIds)
{
    m_favoriteIds = favoriteIds;
    m_recordingIds = recordingIds;
    m_marks.assign(size_t(m_stations.size()), Plain);
    for (qsizetype i = 0; i < m_stations.size(); ++i) {
        if (m_recordingIds.contains(m_stations[i].id))
            m_marks[size_t(i)] = Recording;
        else if (m_favoriteIds.contains(m_stations[i].id))
            m_marks[size_t(i)] = Favorite;
    }
    update();
}

void GlobeCanvas::setCamera(const GlobeCamera &camera)
{
    changeCamera(camera);
}

void GlobeCanvas::zoomBy(double factor)
{
    changeCamera(zoomedBy(m_camera, factor));
}

void GlobeCanvas::zoomAt(QPointF position, double factor)
{
    changeCamera(zoomedAt(m_camera, size(), position, factor));
}

void GlobeCanvas::changeCamera(const GlobeCamera &camera)
{
    const GlobeCamera next = clamped(camera);
    if (next == m_camera)
        return;
    m_camera = next;
    update();
    Q_EMIT cameraChanged(m_camera);
}

std::optional<Station> GlobeCanvas::selectedStation() const
{
    if (m_selected < 0)
        return std::nullopt;
    return m_stations[m_selected];
}

void GlobeCanvas::select(const QString &stationId)
{
    qsizetype index = -1;
    for (qsizetype i = 0; i < m_stations.size() && index < 0; ++i)
        if (m_stations[i].id == stationId)
            index = i;
    setSelectedIndex(index);
}

void GlobeCanvas::setSelectedIndex(qsizetype index)
{
    if (index == m_selected)
        return;
    m_selected = index;
    m_selectedId = index >= 0 ? m_stations[index].id : QString();
    update();
    Q_EMIT selectionChanged(selectedStation());
}

void GlobeCanvas::setHoverIndex(qsizetype index)
{
    if (index == m_hover)
        return;
    m_hover = index;
    setCursor(index >= 0 ? Qt::PointingHandCursor : Qt::ArrowCursor);
    update();
}

QPointF GlobeCanvas::toScreen(const Vec3 &view, double radiusPx) const
{
    return {width() / 2.0 + radiusPx * view.x, height() / 2.0 - radiusPx * view.y};
}

std::optional<QPointF> GlobeCanvas::screenPosition(const QString &stationId) const
{
    for (qsizetype i = 0; i < m_stations.size(); ++i) {
        if (m_stations[i].id != stationId)
            continue;
        const Vec3 view = rotation(m_camera).apply(m_units[size_t(i)]);
        if (view.z < 0)
            return std::nullopt;
        return toScreen(view, radiusPx(m_camera, size()));
    }
    return std::nullopt;
}

std::optional<qsizetype> GlobeCanvas::stationAt(QPointF position) const
{
    const Rotation turn = rotation(m_camera);
    const double radius = radiusPx(m_camera, size());
    double bestSquare = kPickRadiusPx * kPickRadiusPx;
    std::optional<qsizetype> best;
    for (size_t i = 0; i < m_units.size(); ++i) {
        const Vec3 view = turn.apply(m_units[i]);
        if (view.z < 0)
            continue;
        const QPointF offset = toScreen(view, radius) - position;
        const double square = QPointF::dotProduct(offset, offset);
        if (square <= bestSquare) {
            bestSquare = square;
            best = qsizetype(i);
        }
    }
    return best;
}

// --- Painting ------------------------------------------------------------------------------

void GlobeCanvas::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const double radius = radiusPx(m_camera, size());
    const Rotation turn = rotation(m_camera);

    // The ocean does not change as the globe turns: it is drawn again only for a new size
    // or zoom. The grid is cheap and drawn on top every time.
    const qreal dpr = devicePixelRatioF();
    if (m_backdrop.isNull() || m_backgroundSize != size() || m_backgroundDpr != dpr) {
        m_backdrop = QPixmap(size() * dpr);
        m_backdrop.setDevicePixelRatio(dpr);
        QPainter backdropPainter(&m_backdrop);
        paintBackdrop(backdropPainter);
        m_background = QPixmap();
    }
    if (m_background.isNull() || m_backgroundZoom != m_camera.zoom) {
        m_background = m_backdrop.copy();
        QPainter backgroundPainter(&m_background);
        backgroundPainter.setRenderHint(QPainter::Antialiasing);
        paintOcean(backgroundPainter, radius);
        m_backgroundSize = size();
        m_backgroundDpr = dpr;
        m_backgroundZoom = m_camera.zoom;
    }
    painter.drawPixmap(0, 0, m_background);
    painter.setRenderHint(QPainter::Antialiasing);
    paintMap(painter);
    paintGraticule(painter, turn, radius);
    painter.setRenderHint(QPainter::Antialiasing, false);

    const double diameter = dotDiameterPx(m_camera.zoom);
    const QRectF bounds = QRectF(rect()).adjusted(-diameter, -diameter, diameter, diameter);
    for (std::vector<QPointF> *bucket : {&m_plainDots, &m_limbDots, &m_favoriteDots, &m_recordingDots})
        bucket->clear();
    for (size_t i = 0; i < m_units.size(); ++i) {
        const Vec3 view = turn.apply(m_units[i]);
        if (view.z < 0)
            continue;
        const QPointF dot = toScreen(view, radius);
        if (!bounds.contains(dot))
            continue;
        switch (m_marks[i]) {
        case Plain:
            (view.z < kLimbDepth ? m_limbDots : m_plainDots).push_back(dot);
            break;
        case Favorite:
            m_favoriteDots.push_back(dot);
            break;
        case Recording:
            m_recordingDots.push_back(dot);
            break;
        }
    }
    m_drawnDots = qsizetype(m_plainDots.size() + m_limbDots.size() + m_favoriteDots.size() + m_recordingDots.size());

    // Marked stations last, so a favourite is not hidden under its neighbours. Each dot is
    // a copy of a small pre-drawn sprite: far cheaper than stroking thousands of round points.
    if (m_spriteDiameter != diameter || m_spriteDpr != dpr) {
        // Favourites and recordings a size up, so they are found among the rest.
        const std::pair<QColor, double> looks[] = {
            {kLimbDot, 1.0}, {kPlainDot, 1.0}, {kFavoriteDot, 1.4}, {kRecordingDot, 1.4}};
        for (size_t i = 0; i < m_sprites.size(); ++i)
            m_sprites[i] = makeDotSprite(looks[i].first, diameter * looks[i].second, dpr);
        m_spriteDiameter = diameter;
        m_spriteDpr = dpr;
    }
    const std::vector<QPointF> *batches[] = {&m_limbDots, &m_plainDots, &m_favoriteDots, &m_recordingDots};
    for (size_t i = 0; i < std::size(batches); ++i) {
        const QPointF toCorner(m_sprites[i].width() / dpr / 2.0, m_sprites[i].height() / dpr / 2.0);
        for (const QPointF &dot : *batches[i])
            painter.drawPixmap(dot - toCorner, m_sprites[i]);
    }

    painter.setRenderHint(QPainter::Antialiasing);
    auto marker = [&](qsizetype index, bool selected) {
        const Vec3 view = turn.apply(m_units[size_t(index)]);
        if (view.z < 0)
            return;
        const QPointF dot = toScreen(view, radius);
        painter.setPen(QPen(QColor(255, 255, 255, selected ? 255 : 150), selected ? 2.0 : 1.5));
        painter.setBrush(Qt::NoBrush);
        const double ring = diameter / 2 + (selected ? 4 : 3);
        painter.drawEllipse(dot, ring, ring);
        paintLabel(painter, dot, m_stations[index].name);
    };
    if (m_hover >= 0 && m_hover != m_selected)
        marker(m_hover, false);
    if (m_selected >= 0)
        marker(m_selected, true);
}

void GlobeCanvas::paintBackdrop(QPainter &painter)
{
    QLinearGradient space(0, 0, 0, height());
    space.setColorAt(0, QColor(11, 20, 38));
    space.setColorAt(1, QColor(20, 32, 56));
    painter.fillRect(rect(), space);
}

void GlobeCanvas::paintOcean(QPainter &painter, double radiusPx)
{
    const QPointF centre(width() / 2.0, height() / 2.0);
    painter.setPen(Qt::NoPen);

    // A thin haze outside the rim.
    const double hazeRadius = radiusPx * 1.07;
    QRadialGradient haze(centre, hazeRadius);
    haze.setColorAt(radiusPx / hazeRadius, QColor(110, 170, 255, 80));
    haze.setColorAt(1, QColor(110, 170, 255, 0));
    painter.setBrush(haze);
    painter.drawEllipse(centre, hazeRadius, hazeRadius);

    // Lit from the upper left.
    QRadialGradient ocean(centre + QPointF(-0.35 * radiusPx, -0.4 * radiusPx), radiusPx * 1.45);
    ocean.setColorAt(0, QColor(58, 123, 191));
    ocean.setColorAt(0.55, QColor(29, 77, 128));
    ocean.setColorAt(1, QColor(10, 33, 62));
    painter.setBrush(ocean);
    painter.setPen(QPen(QColor(150, 195, 255, 160), 1.5));
    painter.drawEllipse(centre, radiusPx, radiusPx);
}

void GlobeCanvas::paintMap(QPainter &painter)
{
    if (m_map.isEmpty())
        return;
    if (m_outline.camera != m_camera || m_outline.size != size()) {
        m_outline.land.clear();
        m_outline.coastlines.clear();
        m_outline.borders.clear();
        GlobeOutline::projectAreas(m_camera, size(), m_map.outlines, m_outline.land);
        GlobeOutline::projectLines(m_camera, size(), m_map.coastlines, m_outline.coastlines);
        GlobeOutline::projectLines(m_camera, size(), m_map.borders, m_outline.borders);
        m_outline.camera = m_camera;
        m_outline.size = size();
    }
    // Land is filled without antialiasing, country by country: an antialiased fill of
    // outlines that span the globe costs most of a frame, and the coastlines drawn
    // smoothly on top hide the steps of the fill's edge.
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(Qt::NoPen);
    painter.setBrush(kLand);
    const GlobeOutline::Polylines &land = m_outline.land;
    for (std::size_t ring = 0; ring < land.ends.size(); ++ring) {
        const int begin = land.runBegin(ring);
        painter.drawPolygon(land.points.data() + begin, land.ends[ring] - begin);
    }
    painter.setBrush(Qt::NoBrush);
    painter.setRenderHint(QPainter::Antialiasing);
    auto stroke = [&](const GlobeOutline::Polylines &lines, const QColor &colour) {
        painter.setPen(QPen(colour, 1));
        for (std::size_t run = 0; run < lines.ends.size(); ++run) {
            const int begin = lines.runBegin(run);
            painter.drawPolyline(lines.points.data() + begin, lines.ends[run] - begin);
        }
    };
    stroke(m_outline.borders, kBorder);
    stroke(m_outline.coastlines, kCoastline);
}

void GlobeCanvas::paintGraticule(QPainter &painter, const Rotation &turn, double radiusPx)
{
    // Finer sampling when zoomed in, so the lines stay smooth curves.
    const double stepDeg = std::max(0.5, 3.0 / std::sqrt(m_camera.zoom));
    const QPen grid(QColor(255, 255, 255, 36), 1);
    const QPen equator(QColor(255, 255, 255, 70), 1);
    painter.setBrush(Qt::NoBrush);

    auto flush = [&] {
        if (m_line.size() >= 2)
            painter.drawPolyline(m_line.data(), int(m_line.size()));
        m_line.clear();
    };
    // Walks one grid line, keeping the near-side runs and ending each at the rim.
    auto trace = [&](auto pointAt, double fromDeg, double toDeg) {
        m_line.clear();
        Vec3 previous;
        bool previousVisible = false;
        const int steps = int(std::ceil((toDeg - fromDeg) / stepDeg));
        for (int i = 0; i <= steps; ++i) {
            const double along = std::min(toDeg, fromDeg + i * stepDeg);
            const Vec3 view = turn.apply(pointAt(along));
            const bool visible = view.z >= 0;
            if (i > 0 && visible != previousVisible) {
                const float t = previous.z / (previous.z - view.z);
                const float x = previous.x + t * (view.x - previous.x);
                const float y = previous.y + t * (view.y - previous.y);
                const float length = std::hypot(x, y);
                if (length > 0)
                    m_line.push_back(toScreen({x / length, y / length, 0}, radiusPx));
                if (!visible)
                    flush();
            }
            if (visible)
                m_line.push_back(toScreen(view, radiusPx));
            previous = view;
            previousVisible = visible;
        }
        flush();
    };

    painter.setPen(grid);
    for (double longDeg = -180; longDeg < 180; longDeg += kGridStepDeg)
        trace([longDeg](double latDeg) { return unitVector(latDeg, longDeg); }, -90, 90);
    for (double latDeg = -90 + kGridStepDeg; latDeg < 90; latDeg += kGridStepDeg) {
        painter.setPen(latDeg == 0 ? equator : grid);
        trace([latDeg](double longDeg) { return unitVector(latDeg, longDeg); }, -180, 180);
    }
}

void GlobeCanvas::paintLabel(QPainter &painter, QPointF dot, const QString &text)
{
    const QFontMetricsF metrics(font());
    const QString shown = metrics.elidedText(text, Qt::ElideRight, 260);
    const QSizeF box(metrics.horizontalAdvance(shown) + 14, metrics.height() + 6);
    QRectF frame(dot + QPointF(10, -10 - box.height()), box);
    // Kept inside the view: flipped to the left or below the dot near an edge.
    if (frame.right() > width() - 4)
        frame.moveRight(dot.x() - 10);
    if (frame.top() < 4)
        frame.moveTop(dot.y() + 10);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(12, 18, 30, 215));
    painter.drawRoundedRect(frame, 5, 5);
    painter.setPen(Qt::white);
    painter.drawText(frame, Qt::AlignCenter, shown);
}

// --- Pointer and keys ------------------------------------------------------------------------

bool GlobeCanvas::event(QEvent *event)
{
    if (event->type() == QEvent::NativeGesture) {
        const auto *gesture = static_cast<QNativeGestureEvent *>(event);
        if (gesture->gestureType() == Qt::ZoomNativeGesture) {
            zoomAt(gesture->position(), 1.0 + gesture->value());
            return true;
        }
    } else if (event->type() == QEvent::Gesture) {
        auto *gestures = static_cast<QGestureEvent *>(event);
        if (auto *pinch = static_cast<QPinchGesture *>(gestures->gesture(Qt::PinchGesture))) {
            if (pinch->changeFlags() & QPinchGesture::ScaleFactorChanged)
                zoomAt(mapFromGlobal(pinch->centerPoint()), pinch->scaleFactor());
            gestures->accept(pinch);
            return true;
        }
    }
    return QWidget::event(event);
}

void GlobeCanvas::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_pressed = true;
    m_dragging = false;
    m_pressPos = event->position();
    m_pressCamera = m_camera;
}

void GlobeCanvas::mouseMoveEvent(QMouseEvent *event)
{
    if (m_pressed && (event->buttons() & Qt::LeftButton)) {
        const QPointF delta = event->position() - m_pressPos;
        if (!m_dragging && delta.manhattanLength() >= QApplication::startDragDistance()) {
            m_dragging = true;
            setHoverIndex(-1);
            setCursor(Qt::ClosedHandCursor);
        }
        // Measured from the press, so rounding does not add up over a long drag.
        if (m_dragging)
            changeCamera(dragged(m_pressCamera, size(), delta));
        return;
    }
    setHoverIndex(stationAt(event->position()).value_or(-1));
}

void GlobeCanvas::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_pressed) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    // A click on the open ocean clears the selection.
    if (!m_dragging)
        setSelectedIndex(stationAt(event->position()).value_or(-1));
    m_pressed = false;
    m_dragging = false;
    setCursor(Qt::ArrowCursor);
    setHoverIndex(stationAt(event->position()).value_or(-1));
}

void GlobeCanvas::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    // Zooms in on the point under the pointer.
    GlobeCamera next = m_camera;
    if (const std::optional<QPointF> place = unproject(m_camera, size(), event->position())) {
        next.yawDeg = place->x();
        next.pitchDeg = place->y();
    }
    next.zoom *= kDoubleClickZoom;
    changeCamera(next);
}

void GlobeCanvas::wheelEvent(QWheelEvent *event)
{
    const int eighths = event->angleDelta().y();
    if (eighths == 0) {
        event->ignore();
        return;
    }
    zoomAt(event->position(), std::pow(kWheelZoomPerNotch, eighths / 120.0));
    event->accept();
}

void GlobeCanvas::keyPressEvent(QKeyEvent *event)
{
    const bool control = event->modifiers() & Qt::ControlModifier;
    // Degrees per key press shrink as the view zooms in, so one press moves a similar distance on screen.
    const double turnDeg = kKeyTurnDeg / m_camera.zoom;
    GlobeCamera next = m_camera;
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        if (!control)
            break;
        zoomBy(kKeyZoomStep);
        return;
    case Qt::Key_Minus:
        if (!control)
            break;
        zoomBy(1.0 / kKeyZoomStep);
        return;
    case Qt::Key_0:
        if (!control)
            break;
        next.zoom = 1;
        changeCamera(next);
        return;
    case Qt::Key_Left:
    case Qt::Key_Right:
        next.yawDeg += event->key() == Qt::Key_Left ? -turnDeg : turnDeg;
        changeCamera(next);
        return;
    case Qt::Key_Up:
    case Qt::Key_Down:
        next.pitchDeg += event->key() == Qt::Key_Up ? turnDeg : -turnDeg;
        changeCamera(next);
        return;
    default:
        break;
    }
    QWidget::keyPressEvent(event);
}

void GlobeCanvas::leaveEvent(QEvent *event)
{
    QWidget::leaveEvent(event);
    if (!m_pressed)
        setHoverIndex(-1);
}
