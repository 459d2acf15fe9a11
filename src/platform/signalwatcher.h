#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal on the main thread (a self-pipe, since
// nothing else is safe inside a signal handler), so that orvida-cli and the window end a
// logout, a `kill` or a closed terminal like a stop: recordings stopped, last songs saved.
// One instance per process, on the main thread.
class SignalWatcher : public QObject {
    Q_OBJECT

public:
    explicit SignalWatcher(QObject *parent = nullptr);
    ~SignalWatcher() override;

Q_SIGNALS:
    void terminationRequested(int signalNumber);

private:
    QSocketNotifier *m_notifier = nullptr;
};
