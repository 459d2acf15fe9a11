#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QMetaType>
#include <QString>

// How a recording session ended. A session ends exactly once; its owner learns the
// outcome through one channel (RecordingSession::ended / onStopped) and never has to
// read it out of the German error text.
enum class SessionOutcome {
    Stopped,        // stop() was called: by the user, a timer, a signal, the scheduler
    GaveUp,         // the stream failed too often in a row ("Stream unterbrochen")
    InvalidAddress, // the station's address is no http(s) URL ("Ungültige Stream-URL")
};

// What a running session is doing, for the recordings list. A plain value: the engine
// thread builds it, the GUI thread keeps the latest copy.
struct SessionStatus {
    enum class State {
        Connecting,   // a request is on its way (the first one, or a reconnect)
        Recording,    // a usable answer arrived; audio is being written
        Reconnecting, // waiting before attempt `attempt` of `maxAttempts`
        GaveUp,       // ended on its own; `reason` says what failed last
        Stopped,      // ended by stop()
    };

    State state = State::Connecting;
    qint64 attempt = 0; // reconnects since the last usable answer
    qint64 maxAttempts = 8;
    QDeadlineTimer reconnectAt{QDeadlineTimer::Forever}; // Reconnecting: when the next attempt starts
    QString reason;            // why the last attempt failed; empty while recording
    qint64 bytesReceived = 0;  // body bytes of every connection so far

    // Whole seconds until the next attempt (0 when due or not waiting).
    [[nodiscard]] qint64 reconnectInSec() const
    {
        return state == State::Reconnecting ? (reconnectAt.remainingTime() + 999) / 1000 : 0;
    }
    friend bool operator==(const SessionStatus &, const SessionStatus &) = default;
};

Q_DECLARE_METATYPE(SessionStatus)
Q_DECLARE_METATYPE(SessionOutcome)

// Whether a stream answer is audio worth writing, decided from its head alone.
namespace StreamAnswer {

enum class Verdict {
    Audio,                 // write the body
    RetryWithPlayerAgent,  // a web page for browsers: ask again as a player
    Failed,                // count as a failed attempt; the body is never written
};

struct Judgement {
    Verdict verdict = Verdict::Audio;
    QString reason; // Failed: what was wrong, for the status and the event line
};

// `statusCode` as received (0 when the server sent no status line, "ICY 200 OK" is 200);
// `contentType` lower-cased; `contentEncoding` the raw header value (empty when absent).
// A 3xx that reaches us is one the client could not follow (no usable Location, a
// protocol other than http/https, too many hops). A web page is retried once with the
// player agent and fails after that; a body in any content coding but identity would
// have its byte counts, ICY framing and audio all wrong.
[[nodiscard]] Judgement judge(int statusCode, const QString &contentType, const QByteArray &contentEncoding,
                              bool hasMetaint, bool usedFallbackAgent);

} // namespace StreamAnswer
