#include "library/sqlitedb.h"

#include <sqlite3.h>

SqliteDb::~SqliteDb()
{
    close();
}

int SqliteDb::open(const QString &path, int flags)
{
    close();
    const int rc = sqlite3_open_v2(path.toUtf8().constData(), &m_db, flags, nullptr);
    if (rc != SQLITE_OK) {
        // SQLite hands out a handle even on failure so that its message can be read.
        m_openError = m_db ? QString::fromUtf8(sqlite3_errmsg(m_db)) : QString::fromUtf8(sqlite3_errstr(rc));
        sqlite3_close_v2(m_db);
        m_db = nullptr;
        return rc;
    }
    m_openError.clear();
    return SQLITE_OK;
}

void SqliteDb::close()
{
    for (sqlite3_stmt *stmt : std::as_const(m_statements))
        sqlite3_finalize(stmt);
    m_statements.clear();
    if (m_db) {
        sqlite3_close_v2(m_db);
        m_db = nullptr;
    }
}

bool SqliteDb::exec(const char *sql)
{
    return m_db && sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

SqliteStatement SqliteDb::statement(const char *sql)
{
    if (!m_db)
        return SqliteStatement(nullptr, nullptr);
    sqlite3_stmt *&stmt = m_statements[sql];
    if (!stmt && sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) != SQLITE_OK) {
        m_statements.remove(sql);
        return SqliteStatement(nullptr, m_db);
    }
    return SqliteStatement(stmt, m_db);
}

std::optional<qint64> SqliteDb::queryInt(const char *sql)
{
    if (!m_db)
        return std::nullopt;
    // Not cached: these run once or twice per connection (pragmas at open).
    sqlite3_stmt *stmt = nullptr;
    if (sqlite3_prepare_v2(m_db, sql, -1, &stmt, nullptr) != SQLITE_OK)
        return std::nullopt;
    std::optional<qint64> result;
    if (sqlite3_step(stmt) == SQLITE_ROW)
        result = sqlite3_column_int64(stmt, 0);
    sqlite3_finalize(stmt);
    return result;
}

int SqliteDb::errorCode() const
{
    return m_db ? sqlite3_errcode(m_db) : SQLITE_MISUSE;
}

QString SqliteDb::errorMessage() const
{
    if (m_db)
        return QString::fromUtf8(sqlite3_errmsg(m_db));
    return m_openError.isEmpty() ? QStringLiteral("database is not open") : m_openError;
}

qint64 SqliteDb::lastInsertId() const
{
    return m_db ? sqlite3_last_insert_rowid(m_db) : 0;
}

int SqliteDb::changes() const
{
    return m_db ? sqlite3_changes(m_db) : 0;
}

SqliteStatement::~SqliteStatement()
{
    if (m_stmt) {
        sqlite3_reset(m_stmt);
        sqlite3_clear_bindings(m_stmt);
    }
}

void SqliteStatement::bind(int index, const QString &text)
{
    if (!m_stmt)
        return;
    const QByteArray utf8 = text.toUtf8();
    if (sqlite3_bind_text(m_stmt, index + 1, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT) != SQLITE_OK)
        m_failed = true;
}

void SqliteStatement::bind(int index, const std::optional<QString> &text)
{
    if (text)
        bind(index, *text);
    else
        bindNull(index);
}

void SqliteStatement::bind(int index, double value)
{
    if (m_stmt && sqlite3_bind_double(m_stmt, index + 1, value) != SQLITE_OK)
        m_failed = true;
}

void SqliteStatement::bind(int index, qint64 value)
{
    if (m_stmt && sqlite3_bind_int64(m_stmt, index + 1, value) != SQLITE_OK)
        m_failed = true;
}

void SqliteStatement::bind(int index, const std::optional<qint64> &value)
{
    if (value)
        bind(index, *value);
    else
        bindNull(index);
}

void SqliteStatement::bindNull(int index)
{
    if (m_stmt && sqlite3_bind_null(m_stmt, index + 1) != SQLITE_OK)
        m_failed = true;
}

bool SqliteStatement::next()
{
    if (!m_stmt || m_failed) {
        m_failed = true;
        return false;
    }
    const int rc = sqlite3_step(m_stmt);
    if (rc == SQLITE_ROW)
        return true;
    if (rc != SQLITE_DONE)
        m_failed = true;
    return false;
}

bool SqliteStatement::run()
{
    while (next()) {
    }
    return !m_failed;
}

bool SqliteStatement::isNull(int column) const
{
    return sqlite3_column_type(m_stmt, column) == SQLITE_NULL;
}

qint64 SqliteStatement::int64(int column) const
{
    return sqlite3_column_int64(m_stmt, column);
}

double SqliteStatement::real(int column) const
{
    return sqlite3_column_double(m_stmt, column);
}

QString SqliteStatement::text(int column) const
{
    const auto *data = reinterpret_cast<const char *>(sqlite3_column_text(m_stmt, column));
    return QString::fromUtf8(data, sqlite3_column_bytes(m_stmt, column));
}

std::optional<QString> SqliteStatement::optionalText(int column) const
{
    if (isNull(column))
        return std::nullopt;
    return text(column);
}

std::optional<qint64> SqliteStatement::optionalInt64(int column) const
{
    if (isNull(column))
        return std::nullopt;
    return int64(column);
}

ScopedTransaction::ScopedTransaction(SqliteDb &db) : m_db(db)
{
    m_active = m_db.exec("BEGIN IMMEDIATE");
}

ScopedTransaction::~ScopedTransaction()
{
    if (m_active)
        (void)m_db.exec("ROLLBACK");
}

bool ScopedTransaction::commit()
{
    if (!m_active)
        return false;
    if (!m_db.exec("COMMIT"))
        return false; // still active: the destructor rolls back
    m_active = false;
    return true;
}
