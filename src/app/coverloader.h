#pragma once

#include <QImage>
#include <QObject>
#include <QPixmap>
#include <QString>

// Finds and decodes the cover of the playing track off the GUI thread: the file's embedded
// picture or a picture beside it (CoverArt), scaled to the size the window shows. An
// answer that comes after a newer request has been made is dropped. A track without a
// file, a track whose cover was the last one loaded, and a task that finished before
// request() returned are answered from within request(): callers set up what the answer
// is compared with before they ask.
//
// Lives on the GUI thread; the work runs on the global thread pool and comes back as a
// continuation on this object, so nothing arrives after it is gone.
class CoverLoader : public QObject {
    Q_OBJECT

public:
    // `pixels`: the longest side of the delivered image (device pixels).
    explicit CoverLoader(int pixels, QObject *parent = nullptr);

    // An empty path stands for no file: answered with a null image.
    void request(const QString &audioPath);

    // What the window shows for a track without a picture.
    [[nodiscard]] static QPixmap placeholder(int pixels);

Q_SIGNALS:
    // A null image when the file has no picture or it could not be decoded.
    void loaded(const QString &audioPath, const QImage &image);

private:
    int m_pixels;
    quint64 m_generation = 0;
    QString m_lastPath;
    QImage m_lastImage;
};
