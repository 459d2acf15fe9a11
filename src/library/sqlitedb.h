#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>

struct sqlite3;
struct sqlite3_stmt;

class SqliteStatement;

// One SQLite connection and its cache of prepared statements.
//
// Not thread-safe, on purpose: the connection belongs to whichever thread owns the object
// that holds it (the library store's thread), and nothing else may touch it. SQLite is
// opened with SQLITE_OPEN_NOMUTEX accordingly.
class SqliteDb {
public:
    SqliteDb() = default;
    ~SqliteDb();
    SqliteDb(const SqliteDb &) = delete;
    SqliteDb &operator=(const SqliteDb &) = delete;

    // Opens `path` with the SQLITE_OPEN_* `flags`; returns the SQLite result code. The
    // connection is closed again on failure.
    [[nodiscard]] int open(const QString &path, int flags);
    void close();

    [[nodiscard]] bool isOpen() const { return m_db != nullptr; }
    [[nodiscard]] sqlite3 *handle() const { return m_db; }

    // Runs one or more statements that return no rows of interest.
    [[nodiscard]] bool exec(const char *sql);

    // A prepared statement for `sql`, compiled once per connection and reused. `sql` must
    // be a string literal (or otherwise outlive the connection): it is the cache key.
    [[nodiscard]] SqliteStatement statement(const char *sql);

    // Result of a one-value query such as "PRAGMA user_version"; absent on error.
    [[nodiscard]] std::optional<qint64> queryInt(const char *sql);

    [[nodiscard]] int errorCode() const;         // primary result code of the last call
    [[nodiscard]] QString errorMessage() const; // SQLite's text for the last failure
    [[nodiscard]] qint64 lastInsertId() const;
    [[nodiscard]] int changes() const;

private:
    sqlite3 *m_db = nullptr;
    QHash<const char *, sqlite3_stmt *> m_statements;
    QString m_openError;
};

// A cached statement in use. Bind, step, read columns; on destruction it is reset and its
// bindings cleared so the next user finds it fresh. Columns and parameters are 0-based
// here (SQLite's own parameters start at 1; the offset is applied inside).
class SqliteStatement {
public:
    explicit SqliteStatement(sqlite3_stmt *stmt, sqlite3 *db) : m_stmt(stmt), m_db(db) {}
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement &) = delete;
    SqliteStatement &operator=(const SqliteStatement &) = delete;

    // False when preparing failed; every other call is then a no-op that fails.
    [[nodiscard]] bool isValid() const { return m_stmt != nullptr; }

    void bind(int index, const QString &text);
    void bind(int index, const std::optional<QString> &text); // NULL when absent
    void bind(int index, double value);
    void bind(int index, qint64 value);
    void bind(int index, const std::optional<qint64> &value); // NULL when absent
    void bindNull(int index);

    // Advances to the next row: true when a row is ready, false when done or on error
    // (tell them apart with failed()).
    [[nodiscard]] bool next();
    // Runs a statement that returns no rows; true when it completed.
    [[nodiscard]] bool run();
    [[nodiscard]] bool failed() const { return m_failed; }

    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] qint64 int64(int column) const;
    [[nodiscard]] double real(int column) const;
    [[nodiscard]] QString text(int column) const;
    [[nodiscard]] std::optional<QString> optionalText(int column) const;
    [[nodiscard]] std::optional<qint64> optionalInt64(int column) const;

private:
    sqlite3_stmt *m_stmt;
    sqlite3 *m_db;
    bool m_failed = false;
};

// BEGIN IMMEDIATE on construction, ROLLBACK on destruction unless commit() succeeded, so an
// early return or a failed step can never leave half a change behind.
class ScopedTransaction {
public:
    explicit ScopedTransaction(SqliteDb &db);
    ~ScopedTransaction();
    ScopedTransaction(const ScopedTransaction &) = delete;
    ScopedTransaction &operator=(const ScopedTransaction &) = delete;

    [[nodiscard]] bool isActive() const { return m_active; }
    [[nodiscard]] bool commit();

private:
    SqliteDb &m_db;
    bool m_active = false;
};
