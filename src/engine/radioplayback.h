#pragma once

#include "stations/station.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class RelayWorker;

// A local relay in front of a station for listening: ffmpeg reads the station and
// re-encodes it to MP3 on its standard output, and a small HTTP server on 127.0.0.1 hands
// that to the player as "http://127.0.0.1:PORT/stream.mp3", so every stream ffmpeg can
// read becomes playable. One relay at a time.
//
// A listener on loopback can be reached by every program and every web page on the
// machine, so it answers only `GET /stream.mp3` whose Host is 127.0.0.1:PORT (anything
// else gets 403: a page using DNS rebinding names its own host), serves one client at a
// time (a second gets 503), and ffmpeg is given only http and https addresses (never
// file:, concat: or a device). ffmpeg gets SIGKILL when we die, however we die.
//
// While no client is connected ffmpeg's output is still read, keeping the newest
// kBacklogBytes for the next client as a pipe would; a client that falls more than
// kMaxClientBacklogBytes behind is dropped instead of growing our memory.
//
// Lives on the thread that creates it (GUI, or orvida-cli's main thread); the listener,
// its connections and ffmpeg's pipes live on the relay's own thread "ov.radio.pb".
class RadioPlayback : public QObject {
    Q_OBJECT

public:
    static constexpr qint64 kBacklogBytes = qint64(64) << 10;
    static constexpr qint64 kMaxClientBacklogBytes = qint64(4) << 20;
    static constexpr int kMaxRequestBytes = 4096;

    // `ffmpegPath`: the executable (ffmpegDir + "/ffmpeg").
    explicit RadioPlayback(QString ffmpegPath, QObject *parent = nullptr);
    ~RadioPlayback() override; // stops the relay and its thread

    // Stops any previous relay, then starts one for `station`. `done` runs exactly once,
    // on this object's thread, with the local URL, or with nothing when the address is
    // not http(s), ffmpeg cannot be launched or the listener fails (the relay is then
    // stopped). A start overtaken by another start() or a stop() gets nothing.
    void start(const Station &station, std::function<void(std::optional<QUrl>)> done);
    // Ends ffmpeg (the whole process group) and the listener with its client. Idempotent.
    void stop();

    // A relay was handed out by start() and has neither been stopped nor ended (as seen
    // on this object's thread; ffmpeg itself may take a moment longer to go).
    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] std::optional<QUrl> url() const;
    // The running ffmpeg's process id, 0 when none runs.
    [[nodiscard]] qint64 processId() const;

    // ffmpeg's arguments for a stream address, in their fixed order.
    [[nodiscard]] static QStringList ffmpegArguments(const QString &streamUrl);
    // What every client gets before the audio; no length, the body ends with the stream.
    [[nodiscard]] static QByteArray responseHead();
    // Only these reach ffmpeg.
    [[nodiscard]] static bool isRelayableAddress(const QString &streamUrl);

Q_SIGNALS:
    // ffmpeg ended by itself (the station's stream was lost or ended, or the station
    // could not be read); its client has been closed. `reason` is the last line ffmpeg
    // wrote to standard error, possibly empty. Never after stop() or a new start().
    void ended(const QString &reason);

private:
    const QString m_ffmpegPath;
    QThread m_thread;
    RelayWorker *m_worker = nullptr; // lives on m_thread
    quint64 m_startGeneration = 0;
    std::optional<QUrl> m_url;
};
