#include "app/coverloader.h"

#include "playback/coverart.h"

#include <QFuture>
#include <QLinearGradient>
#include <QPainter>
#include <QtConcurrent/QtConcurrentRun>

CoverLoader::CoverLoader(int pixels, QObject *parent)
    : QObject(parent)
    , m_pixels(pixels)
{
}

void CoverLoader::request(const QString &audioPath)
{
    const quint64 generation = ++m_generation;
    if (audioPath.isEmpty()) {
        Q_EMIT loaded(audioPath, QImage());
        return;
    }
    // Repeat one and previous come back to the same file.
    if (audioPath == m_lastPath) {
        Q_EMIT loaded(audioPath, m_lastImage);
        return;
    }
    const int pixels = m_pixels;
    QtConcurrent::run([audioPath, pixels] {
        QImage image;
        const QByteArray bytes = CoverArt::find(audioPath);
        if (!bytes.isEmpty() && image.loadFromData(bytes) && (image.width() > pixels || image.height() > pixels))
            image = image.scaled(pixels, pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        return image;
    }).then(this, [this, audioPath, generation](const QImage &image) {
        m_lastPath = audioPath;
        m_lastImage = image;
        if (generation == m_generation)
            Q_EMIT loaded(audioPath, image);
    });
}

QPixmap CoverLoader::placeholder(int pixels)
{
    QPixmap pixmap(pixels, pixels);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient gradient(0, 0, pixels, pixels);
    gradient.setColorAt(0, QColor(0x8e, 0x9a, 0xaf));
    gradient.setColorAt(1, QColor(0x4a, 0x55, 0x68));
    painter.setBrush(gradient);
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(QRectF(0, 0, pixels, pixels), pixels / 10.0, pixels / 10.0);
    // A note: two heads on a beam.
    painter.setBrush(QColor(255, 255, 255, 210));
    const qreal u = pixels / 16.0;
    painter.drawEllipse(QRectF(4 * u, 10 * u, 3 * u, 2.4 * u));
    painter.drawEllipse(QRectF(9 * u, 9 * u, 3 * u, 2.4 * u));
    painter.drawRect(QRectF(6.4 * u, 4 * u, 0.8 * u, 7.2 * u));
    painter.drawRect(QRectF(11.4 * u, 3 * u, 0.8 * u, 7.2 * u));
    QPolygonF beam;
    beam << QPointF(6.4 * u, 4 * u) << QPointF(12.2 * u, 3 * u) << QPointF(12.2 * u, 4.6 * u)
         << QPointF(6.4 * u, 5.6 * u);
    painter.drawPolygon(beam);
    return pixmap;
}
