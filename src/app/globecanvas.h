#pragma once

#include "app/globecamera.h"
#include "app/globeoutline.h"
#include "stations/station.h"

#include <QList>
#include <QPixmap>
#include <QSet>
#include <QWidget>

#include <array>
#include <optional>
#include <vector>

// The globe itself: an orthographic view of the earth with one dot per station, turned
// by dragging, zoomed by wheel or pinch (towards the pointer), Ctrl+plus/minus or a
// double click, and a click that picks the nearest dot on the near side. Knows stations
// only; the page around it decides what a picked station leads to.
//
// Painting is sized for a catalogue of thousands: unit vectors are computed once per
// catalogue; a paint applies one rotation, culls the far side, sorts the dots by colour
// into buffers that keep their capacity and copies a pre-drawn sprite per dot. The
// ocean is cached for as long as size and zoom stay. The land (the bundled world map) is
// projected once per camera and size: turning the globe projects it again, a repaint for
// the pointer or the selection only draws it.
//
// Lives on the GUI thread.
class GlobeCanvas : public QWidget {
    Q_OBJECT

public:
    // A click counts as a pick when a dot's centre is this close.
    static constexpr double kPickRadiusPx = 8;

    explicit GlobeCanvas(QWidget *parent = nullptr);

    // Keeps the selection when the new catalogue still holds that station.
    void setStations(const QList<Station> &stations);
    [[nodiscard]] const QList<Station> &stations() const { return m_stations; }
    // Dots of favourites and of stations being recorded stand out.
    void setMarks(const QSet<QString> &favoriteIds, const QSet<QString> &recordingIds);

    [[nodiscard]] const GlobeCamera &camera() const { return m_camera; }
    void setCamera(const GlobeCamera &camera);
    void zoomBy(double factor);
    // Zooms towards a point of the view: the place under it stays under it.
    void zoomAt(QPointF position, double factor);

    [[nodiscard]] std::optional<Station> selectedStation() const;
    // An unknown id clears the selection.
    void select(const QString &stationId);

    // Where a station's dot is drawn now; absent for an unknown station or one on the far
    // side.
    [[nodiscard]] std::optional<QPointF> screenPosition(const QString &stationId) const;
    // The index of the nearest near-side dot within kPickRadiusPx of `position`.
    [[nodiscard]] std::optional<qsizetype> stationAt(QPointF position) const;
    // Dots the last paint drew (near side and inside the view).
    [[nodiscard]] qsizetype drawnDotCount() const { return m_drawnDots; }

    QSize sizeHint() const override { return {640, 480}; }
    QSize minimumSizeHint() const override { return {200, 160}; }

Q_SIGNALS:
    void cameraChanged(const GlobeCamera &camera);
    void selectionChanged(const std::optional<Station> &station);

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    enum Mark : quint8 { Plain, Favorite, Recording };

    void changeCamera(const GlobeCamera &camera);
    void setSelectedIndex(qsizetype index);
    void setHoverIndex(qsizetype index);
    [[nodiscard]] QPointF toScreen(const GlobeProjection::Vec3 &view, double radiusPx) const;
    void paintBackdrop(QPainter &painter);
    void paintOcean(QPainter &painter, double radiusPx);
    void paintMap(QPainter &painter);
    void paintGraticule(QPainter &painter, const GlobeProjection::Rotation &rotation, double radiusPx);
    void paintLabel(QPainter &painter, QPointF dot, const QString &text);

    QList<Station> m_stations;
    std::vector<GlobeProjection::Vec3> m_units; // one per station, same order
    std::vector<Mark> m_marks;
    QSet<QString> m_favoriteIds;
    QSet<QString> m_recordingIds;

    GlobeCamera m_camera;
    qsizetype m_selected = -1;
    QString m_selectedId;
    qsizetype m_hover = -1;

    // Pointer state of a press that may become a drag or stay a click.
    bool m_pressed = false;
    bool m_dragging = false;
    QPointF m_pressPos;
    GlobeCamera m_pressCamera;

    // Per paint: screen positions by colour, cleared and refilled without reallocating.
    std::vector<QPointF> m_plainDots;
    std::vector<QPointF> m_limbDots;
    std::vector<QPointF> m_favoriteDots;
    std::vector<QPointF> m_recordingDots;
    std::vector<QPointF> m_line;
    qsizetype m_drawnDots = 0;

    // The dots of the four colours (limb, plain, favourite, recording) at the current size.
    std::array<QPixmap, 4> m_sprites;
    double m_spriteDiameter = 0;
    qreal m_spriteDpr = 0;

    // The map as the current camera sees it, in widget pixels.
    struct MapOutline {
        GlobeCamera camera;
        QSize size;
        GlobeOutline::Polylines land;
        GlobeOutline::Polylines coastlines;
        GlobeOutline::Polylines borders;
    };
    const WorldMap &m_map;
    MapOutline m_outline;

    QPixmap m_backdrop;   // by size
    QPixmap m_background; // the backdrop with the ocean, by size and zoom
    QSize m_backgroundSize;
    qreal m_backgroundDpr = 0;
    double m_backgroundZoom = 0;
};
