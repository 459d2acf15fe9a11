#pragma once

#include "platform/httpclient.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <optional>

// Finds out what a stream is playing without recording it: opens the stream, reads the
// first metadata block, closes again; every 15 seconds while started.
//
// Lives on the GUI thread; `title` and `titleChanged` change there.
class StreamTitlePoller : public QObject {
    Q_OBJECT

public:
    explicit StreamTitlePoller(HttpClient &http, QObject *parent = nullptr);

    // (Re)starts polling one stream; the title starts empty again.
    void start(const QString &streamUrl);
    void stop();
    [[nodiscard]] const QString &title() const { return m_title; }

    void setInterval(std::chrono::milliseconds interval) { m_timer.setInterval(interval); }

    // One look at a stream: the title of its first metadata block, or absent (no
    // "icy-metaint", a zero-length block, no StreamTitle, any failure). `done` runs once
    // on `context`'s thread. Reads metaint + 1 + 16 x 255 bytes at the most.
    static HttpTransfer fetchTitle(HttpClient &http, const QString &streamUrl, QObject *context,
                                   std::function<void(std::optional<QString>)> done, double timeoutSec = 10);

    std::function<void()> onTitleChange;

Q_SIGNALS:
    void titleChanged(const QString &title);

private:
    void poll();

    HttpClient &m_http;
    QString m_streamUrl;
    QString m_title;
    QTimer m_timer;
    HttpTransfer m_fetch;
};
