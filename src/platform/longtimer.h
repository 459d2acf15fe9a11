#pragma once

#include <QDeadlineTimer>
#include <QObject>
#include <QTimer>

#include <chrono>

// A single-shot timer for waits of any length. QTimer takes its interval as an int of
// milliseconds, so anything past 24.8 days overflows and never fires; this one waits in
// steps of at most an hour towards a monotonic deadline.
//
// Lives on the thread that created it; fires there.
class LongTimer : public QObject {
    Q_OBJECT

public:
    explicit LongTimer(QObject *parent = nullptr);

    // (Re)starts the wait. Waits longer than about 290 million years never fire.
    void start(std::chrono::milliseconds wait);
    void stop();
    [[nodiscard]] bool isActive() const { return m_step.isActive(); }
    // Milliseconds left, -1 when not active.
    [[nodiscard]] qint64 remainingMs() const;

Q_SIGNALS:
    void timeout();

private:
    void arm();
    void step();

    QTimer m_step;
    QDeadlineTimer m_deadline;
};
