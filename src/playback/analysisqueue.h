#pragma once

#include "library/librarystore.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

// Analyses the library's files in the background, one file at a time on one worker thread
// at the lowest priority the system offers (SCHED_IDLE on Linux), so that playback,
// recording and the window never wait for it. Each registered analyser has a kind (the
// library's analysis kind) and a function from a file to its JSON record.
//
// Lives on the library's owner thread; the worker only runs analysers and hands their
// results back to that thread, which stores them. Tracks that enter the library while it
// runs (a song recorded a moment ago) go to the front. A file that an analyser cannot read
// is remembered for the rest of the session and not tried again.
class AnalysisQueue : public QObject {
    Q_OBJECT
public:
    // Runs on the worker thread; absent when the file cannot be analysed.
    using Analyser = std::function<std::optional<QByteArray>(const QString &path)>;

    // `library` must outlive the queue.
    explicit AnalysisQueue(LibraryStore &library, QObject *parent = nullptr);
    ~AnalysisQueue() override; // stops the worker after the file it is on

    // Before start(): one analyser per kind.
    void addAnalyser(const QString &kind, Analyser analyser);
    // Queues every file the library holds without an analysis of a registered kind and
    // starts the worker. Files added later are queued as they arrive.
    void start();
    [[nodiscard]] bool isRunning() const { return m_worker.joinable(); }
    // The file is wanted now (it is about to play): its job goes to the front, queued
    // if it was not. Nothing for a file that failed this session.
    void prioritise(const QString &kind, const QString &path);

    // Files finished (every kind stored or failed) and files queued in all, since the queue
    // last ran empty: the user counts songs, not the analyses of each.
    [[nodiscard]] int done() const { return m_done; }
    [[nodiscard]] int total() const { return m_total; }
    [[nodiscard]] QSet<QString> failedPaths(const QString &kind) const;

Q_SIGNALS:
    // After each job and when new ones are queued; done == total when there is nothing left.
    void progressChanged(int done, int total);

private:
    struct Job {
        QString kind;
        QString path;
    };
    void enqueue(const QString &kind, const QString &path, bool front);
    void onTracksInserted(const QList<Track> &tracks);
    void finished(const Job &job, std::optional<LibraryStore::FileStamp> stamp, std::optional<QByteArray> json);
    void run(); // the worker thread

    LibraryStore &m_library;
    std::vector<std::pair<QString, Analyser>> m_analysers; // written before start() only
    QSet<QString> m_queued; // "kind\npath", owner thread
    QSet<QString> m_failed; // "kind\npath", owner thread
    QHash<QString, int> m_jobsOfPath; // jobs queued or running per file, owner thread
    int m_done = 0;
    int m_total = 0;

    std::mutex m_mutex; // guards m_jobs and m_stopping
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    bool m_stopping = false;
    std::thread m_worker;
};
