#include "app/globecanvas.h"
#include "app/globeview.h"
#include "app/stationactionbar.h"
#include "stations/globestationstore.h"

#include "appfixture.h"
#include "directoryfixtures.h"

#include <QApplication>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QNativeGestureEvent>
#include <QPointingDevice>
#include <QSignalSpy>
#include <QWheelEvent>

#include <cmath>

namespace {

using Script = FixtureServer::Script;

QJsonObject located(const QString &id, const QString &name, double lat, double lon)
{
    return {{"stationuuid", id},   {"name", name},     {"url_resolved", "http://127.0.0.1:9/" + id},
            {"country", "Nowhere"}, {"codec", "MP3"},   {"bitrate", 128},
            {"geo_lat", lat},       {"geo_long", lon}};
}

Station stationAt(const QString &id, double lat, double lon)
{
    Station station = makeStation(id, id);
    station.geoLat = lat;
    station.geoLong = lon;
    return station;
}

// Pointer input sent straight to the widget, with the button state a real drag carries.
void sendMouse(QWidget *widget, QEvent::Type type, QPointF position, Qt::MouseButtons buttons)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, position, widget->mapToGlobal(position), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(widget, &event);
}

void click(QWidget *widget, QPointF position)
{
    sendMouse(widget, QEvent::MouseButtonPress, position, Qt::LeftButton);
    sendMouse(widget, QEvent::MouseButtonRelease, position, Qt::NoButton);
}

void drag(QWidget *widget, QPointF from, QPointF to)
{
    sendMouse(widget, QEvent::MouseButtonPress, from, Qt::LeftButton);
    for (int step = 1; step <= 4; ++step)
        sendMouse(widget, QEvent::MouseMove, from + (to - from) * step / 4.0, Qt::LeftButton);
    sendMouse(widget, QEvent::MouseButtonRelease, to, Qt::NoButton);
}

void wheel(QWidget *widget, int eighths, std::optional<QPointF> at = std::nullopt)
{
    const QPointF position = at.value_or(QRectF(widget->rect()).center());
    QWheelEvent event(position, widget->mapToGlobal(position), {}, {0, eighths}, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(widget, &event);
}

// The dot colours as drawn: amber for a plain station, rose for a favourite.
bool looksAmber(QRgb pixel)
{
    return qRed(pixel) > 200 && qGreen(pixel) > 150 && qBlue(pixel) < 140;
}
bool looksRose(QRgb pixel)
{
    return qRed(pixel) > 200 && qGreen(pixel) < 140 && qBlue(pixel) > 110;
}

class GlobeViewTest : public AppFixture {
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        store = std::make_unique<GlobeStationStore>(app->http(), app->directoryBase());
    }

    void serve(const QList<QJsonObject> &objects, int delayMs = 0)
    {
        Script script = Script::response(200, "application/json", jsonArray(objects));
        script.steps.prepend({FixtureServer::Step::Kind::Pause, {}, delayMs, {}});
        server.route("/json/stations/search", script);
    }
    int requests() const { return server.requestCount("/json/stations/search"); }

    std::unique_ptr<GlobeView> showView()
    {
        auto view = std::make_unique<GlobeView>(*app, *store);
        view->resize(1000, 700);
        view->show();
        return view;
    }

    // Berlin and Vienna face a camera over Europe; Sydney is on the far side.
    const QList<QJsonObject> europe{located("berlin", "Berlin Radio", 52.52, 13.40),
                                    located("vienna", "Wien Welle", 48.21, 16.37),
                                    located("sydney", "Sydney Surf", -33.87, 151.21)};
    std::unique_ptr<GlobeStationStore> store;
};

TEST_F(GlobeViewTest, DotsAppearAndAClickShowsTheNearestStationWithItsActions)
{
    serve(europe);
    auto view = showView();
    GlobeCanvas *canvas = view->canvas();
    ASSERT_TRUE(waitUntil([&] { return canvas->stations().size() == 3; }));
    canvas->setCamera({15, 50, 4});
    EXPECT_FALSE(view->notice()->isVisible());

    QImage picture = canvas->grab().toImage();
    EXPECT_EQ(canvas->drawnDotCount(), 2);
    const auto berlin = canvas->screenPosition("berlin");
    const auto vienna = canvas->screenPosition("vienna");
    ASSERT_TRUE(berlin && vienna);
    EXPECT_FALSE(canvas->screenPosition("sydney"));
    EXPECT_TRUE(looksAmber(picture.pixel(berlin->toPoint())));
    EXPECT_FALSE(looksAmber(picture.pixel((*berlin + *vienna).toPoint() / 2))); // ocean between them

    QSignalSpy current(view.get(), &GlobeView::currentStationChanged);
    click(canvas, *berlin + QPointF(3, -2));
    ASSERT_TRUE(view->selectedStation());
    EXPECT_EQ(view->selectedStation()->id, "berlin");
    ASSERT_TRUE(view->actionBar()->station());
    EXPECT_EQ(view->actionBar()->station()->id, "berlin");
    EXPECT_EQ(view->stationName()->text(), "Berlin Radio");
    ASSERT_EQ(current.size(), 1);
    EXPECT_EQ(current.last().first().value<std::optional<Station>>()->id, "berlin");

    // The row actions act on the picked station, and its dot turns into a favourite's.
    ASSERT_TRUE(view->actionBar()->favoriteButton()->isEnabled());
    view->actionBar()->favoriteButton()->click();
    EXPECT_TRUE(app->favorites().isFavorite("berlin"));
    picture = canvas->grab().toImage();
    EXPECT_TRUE(looksRose(picture.pixel(berlin->toPoint())));
    EXPECT_TRUE(looksAmber(picture.pixel(vienna->toPoint())));

    click(canvas, *vienna + QPointF(-4, 4));
    EXPECT_EQ(view->stationName()->text(), "Wien Welle");

    // Open ocean, further than the pick radius from any dot: nothing picked.
    click(canvas, *vienna + QPointF(0, GlobeCanvas::kPickRadiusPx + 30));
    EXPECT_FALSE(view->selectedStation());
    EXPECT_FALSE(view->actionBar()->station());
    EXPECT_FALSE(view->actionBar()->recordButton()->isEnabled());
    EXPECT_EQ(current.size(), 3);
}

TEST_F(GlobeViewTest, ADotOnTheFarSideCannotBePickedThroughTheGlobe)
{
    GlobeCanvas canvas;
    canvas.resize(600, 400);
    // Exactly behind the centre of the camera: without culling it would sit under the pointer.
    canvas.setStations({stationAt("behind", -10, -160)});
    canvas.setCamera({20, 10, 1});
    click(&canvas, {300, 200});
    EXPECT_FALSE(canvas.selectedStation());

    canvas.setStations({stationAt("behind", -10, -160), stationAt("front", 10, 20)});
    click(&canvas, {300, 200});
    ASSERT_TRUE(canvas.selectedStation());
    EXPECT_EQ(canvas.selectedStation()->id, "front");

    // A new catalogue keeps the picked station when it is still there, and drops it when not.
    QSignalSpy changes(&canvas, &GlobeCanvas::selectionChanged);
    canvas.setStations({stationAt("front", 10, 20), stationAt("other", 0, 0.5)});
    EXPECT_EQ(canvas.selectedStation()->id, "front");
    EXPECT_EQ(changes.size(), 0);
    canvas.setStations({stationAt("other", 0, 0.5)});
    EXPECT_FALSE(canvas.selectedStation());
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(GlobeViewTest, DraggingTurnsTheGlobeWithoutPickingAndTheZoomStaysInRange)
{
    serve(europe);
    auto view = showView();
    GlobeCanvas *canvas = view->canvas();
    ASSERT_TRUE(waitUntil([&] { return canvas->stations().size() == 3; }));
    const GlobeCamera start = canvas->camera();

    // Starting on a dot and dragging away turns the globe; it does not pick the dot.
    const QPointF berlin = *canvas->screenPosition("berlin");
    drag(canvas, berlin, berlin + QPointF(120, 0));
    EXPECT_LT(canvas->camera().yawDeg, start.yawDeg);
    EXPECT_DOUBLE_EQ(canvas->camera().pitchDeg, start.pitchDeg);
    EXPECT_FALSE(view->selectedStation());
    // The dot went along with the pointer; that far north it lags behind it.
    const QPointF moved = *canvas->screenPosition("berlin");
    EXPECT_GT(moved.x() - berlin.x(), 120 * 0.5);
    EXPECT_LT(moved.x() - berlin.x(), 120 + 1);
    EXPECT_EQ(store->savedCamera().value<GlobeCamera>(), canvas->camera());

    drag(canvas, {500, 100}, {500, 650});
    drag(canvas, {500, 100}, {500, 650});
    EXPECT_EQ(canvas->camera().pitchDeg, GlobeCamera::kMaxPitchDeg);

    for (int i = 0; i < 40; ++i)
        wheel(canvas, 120);
    EXPECT_EQ(canvas->camera().zoom, GlobeCamera::kMaxZoom);
    for (int i = 0; i < 40; ++i)
        wheel(canvas, -120);
    EXPECT_EQ(canvas->camera().zoom, GlobeCamera::kMinZoom);

    QTest::keyClick(canvas, Qt::Key_Plus, Qt::ControlModifier);
    EXPECT_DOUBLE_EQ(canvas->camera().zoom, 1.5);
    QTest::keyClick(canvas, Qt::Key_Minus, Qt::ControlModifier);
    EXPECT_DOUBLE_EQ(canvas->camera().zoom, 1.0);
    QTest::keyClick(canvas, Qt::Key_Plus); // without Ctrl: not a zoom
    EXPECT_DOUBLE_EQ(canvas->camera().zoom, 1.0);

    // A touchpad pinch.
    QNativeGestureEvent pinch(Qt::ZoomNativeGesture, QPointingDevice::primaryPointingDevice(), 2, {500, 350},
                              {500, 350}, canvas->mapToGlobal(QPointF(500, 350)), 0.5, {});
    QApplication::sendEvent(canvas, &pinch);
    EXPECT_DOUBLE_EQ(canvas->camera().zoom, 1.5);

    // Wheel and pinch zoom towards the pointer: Vienna stays under it.
    canvas->setCamera({0, 30, 1});
    const QPointF pointer = *canvas->screenPosition("vienna");
    wheel(canvas, 240, pointer);
    EXPECT_NEAR(canvas->camera().zoom, 1.44, 1e-9);
    EXPECT_LT(QLineF(*canvas->screenPosition("vienna"), pointer).length(), 0.5);
    QNativeGestureEvent pinchAtVienna(Qt::ZoomNativeGesture, QPointingDevice::primaryPointingDevice(), 2, pointer,
                                      pointer, canvas->mapToGlobal(pointer), 1.0, {});
    QApplication::sendEvent(canvas, &pinchAtVienna);
    EXPECT_NEAR(canvas->camera().zoom, 2.88, 1e-9);
    EXPECT_LT(QLineF(*canvas->screenPosition("vienna"), pointer).length(), 0.5);
    EXPECT_GT(canvas->camera().yawDeg, 0); // it was not the zoom about the centre

    // A double click zooms in on the place under the pointer.
    canvas->setCamera({0, 0, 1});
    const QPointF vienna = *canvas->screenPosition("vienna");
    QTest::mouseDClick(canvas, Qt::LeftButton, {}, vienna.toPoint());
    EXPECT_DOUBLE_EQ(canvas->camera().zoom, 2);
    EXPECT_NEAR(canvas->camera().pitchDeg, 48.21, 0.5);
    EXPECT_NEAR(canvas->camera().yawDeg, 16.37, 0.5);
}

TEST_F(GlobeViewTest, TheCameraSurvivesRebuildingTheView)
{
    serve(europe);
    const GlobeCamera turned{-74, 40.7, 3};
    {
        auto view = showView();
        EXPECT_EQ(view->canvas()->camera(), GlobeCamera());
        view->canvas()->setCamera(turned);
    }
    auto rebuilt = showView();
    EXPECT_EQ(rebuilt->canvas()->camera(), turned);
    ASSERT_TRUE(waitUntil([&] { return rebuilt->canvas()->stations().size() == 3; }));
    EXPECT_EQ(requests(), 1);
    EXPECT_FALSE(rebuilt->notice()->isVisible());
}

TEST_F(GlobeViewTest, TellsWhileLoadingWhenNothingHasAPositionAndWhenFailed)
{
    Texts::setLanguage(Texts::Language::German);
    serve(europe, 400);
    auto view = showView();
    ASSERT_TRUE(waitUntil([&] { return store->isLoading(); }));
    EXPECT_TRUE(view->notice()->isVisible());
    EXPECT_EQ(view->noticeTitle()->text(), "Sender werden geladen…");
    ASSERT_TRUE(waitUntil([&] { return !view->notice()->isVisible(); }));
    EXPECT_EQ(view->canvas()->stations().size(), 3);
    Texts::setLanguage(Texts::Language::English);

    // A new start without the cache, where the directory has no station with a position.
    ASSERT_TRUE(waitUntil([&] { return QFile::exists(*GlobeStationStore::cacheUrl()); }));
    ASSERT_TRUE(QFile::remove(*GlobeStationStore::cacheUrl()));
    view.reset();
    store = std::make_unique<GlobeStationStore>(app->http(), app->directoryBase());
    serve({located("nowhere", "Null Island", 0, 0)});
    view = showView();
    ASSERT_TRUE(waitUntil([&] { return view->noticeTitle()->text() == "No stations with a location"; }));
    EXPECT_TRUE(view->notice()->isVisible());
    EXPECT_TRUE(view->canvas()->stations().isEmpty());
    auto *retry = view->notice()->findChild<QPushButton *>("globeRetry");
    ASSERT_TRUE(retry && retry->isVisible());

    // The retry asks again; a dropped connection shows its error.
    server.route("/json/stations/search", Script().close());
    retry->click();
    ASSERT_TRUE(waitUntil([&] { return store->errorMessage().has_value() && !store->isLoading(); }));
    EXPECT_TRUE(view->notice()->isVisible());
    EXPECT_EQ(view->noticeTitle()->text(), "Stations could not be loaded");
    EXPECT_EQ(view->noticeText()->text(), *store->errorMessage());
    EXPECT_EQ(requests(), 3);

    serve(europe);
    retry->click();
    ASSERT_TRUE(waitUntil([&] { return !view->notice()->isVisible(); }));
    EXPECT_EQ(view->canvas()->stations().size(), 3);
    EXPECT_FALSE(view->findChild<QLabel *>("globeStatus")->isVisible());
}

TEST_F(GlobeViewTest, RendersToAPicture)
{
    QList<QJsonObject> catalogue = europe;
    // A few hundred stations in the clusters the directory has: Europe, the Americas, Asia.
    const double centres[][2] = {{50, 10}, {40, -90}, {-15, -50}, {35, 135}, {-30, 25}};
    for (int i = 0; i < 400; ++i) {
        const auto &centre = centres[i % 5];
        const double spread = 1 + (i * 7919 % 100) / 100.0;
        catalogue << located(QStringLiteral("s%1").arg(i), QStringLiteral("Station %1").arg(i),
                             std::clamp(centre[0] + std::sin(i * 1.7) * 12 * spread, -85.0, 85.0),
                             centre[1] + std::cos(i * 2.3) * 20 * spread);
    }
    serve(catalogue);
    auto view = showView();
    ASSERT_TRUE(waitUntil([&] { return view->canvas()->stations().size() == catalogue.size(); }));
    ASSERT_TRUE(app->favorites().add(*Station::json(catalogue[1])));
    view->canvas()->select("berlin");
    QTest::qWait(50);

    const QString dir = qEnvironmentVariable("ORVIDA_BINARY_DIR", QDir::currentPath()) + "/screenshots";
    QDir().mkpath(dir);
    const QString path = dir + "/globeview.png";
    ASSERT_TRUE(view->grab().save(path));
    const QImage image(path);
    ASSERT_EQ(image.size(), view->size() * view->devicePixelRatio());
    int amber = 0;
    for (int y = 0; y < image.height(); y += 2)
        for (int x = 0; x < image.width(); x += 2)
            amber += looksAmber(image.pixel(x, y));
    EXPECT_GT(amber, 50); // the dots are there, not just an empty ocean
    EXPECT_EQ(view->stationName()->text(), "Berlin Radio");
}

// Land is drawn greener than the ocean it lies on, and coastlines lighter than either.
bool looksLikeLand(QRgb pixel)
{
    return qGreen(pixel) > 0.85 * qBlue(pixel);
}
bool looksLikeOcean(QRgb pixel)
{
    return qBlue(pixel) > 100 && qGreen(pixel) < 0.75 * qBlue(pixel);
}
int lightness(QRgb pixel)
{
    return std::min({qRed(pixel), qGreen(pixel), qBlue(pixel)});
}

TEST(GlobeMap, LandAndCoastsAreDrawnWhereTheyAreAndNotThroughTheGlobe)
{
    GlobeCanvas canvas;
    canvas.resize(800, 600);
    // Over Africa: the Sahara is land, the Gulf of Guinea and the Atlantic are not.
    canvas.setCamera({10, 10, 1.5});
    QImage picture = canvas.grab().toImage();
    auto pixelAt = [&](double lat, double lon) {
        const auto point = GlobeProjection::project(canvas.camera(), canvas.size(), lat, lon);
        return point ? picture.pixel(point->toPoint()) : QRgb(0);
    };
    EXPECT_TRUE(looksLikeLand(pixelAt(23, 12)));
    EXPECT_TRUE(looksLikeLand(pixelAt(0, 25)));
    EXPECT_TRUE(looksLikeOcean(pixelAt(-2, 2)));
    EXPECT_TRUE(looksLikeOcean(pixelAt(20, -35)));

    // Westwards along 15°N from the open Atlantic to inland Senegal a bright coastline is crossed.
    int brightest = 0;
    for (double lon = -25; lon <= -14; lon += 0.05)
        brightest = std::max(brightest, lightness(pixelAt(15, lon)));
    EXPECT_GT(brightest, std::max(lightness(pixelAt(15, -25)), lightness(pixelAt(15, -13))) + 40);

    // Over the Pacific, Africa is straight behind the globe: none of it shows through.
    canvas.setCamera({-150, 0, 1});
    picture = canvas.grab().toImage();
    EXPECT_TRUE(looksLikeOcean(picture.pixel(400, 300)));
    int land = 0;
    for (int y = 250; y <= 350; y += 5)
        for (int x = 350; x <= 450; x += 5)
            land += looksLikeLand(picture.pixel(x, y));
    EXPECT_EQ(land, 0);
}

} // namespace
