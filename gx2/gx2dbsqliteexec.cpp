#include "gx2/gx2dbsqlite.h"
#include "gx2/gx2dbsqlite_p.h"

#include "gx2/gx2workers.h"

#include <cctype>
#include <cmath>

// Running statements: binding, rows, named calls.

namespace {

void bindNumber(sqlite3_stmt* statement, int index, double value)
{
    // Whole numbers go in as integers so that integer columns and typeof()
    // see them as such; beyond 64 bits only a double can hold them.
    constexpr double twoTo63 = 9223372036854775808.0;
    if (value == std::trunc(value) && value >= -twoTo63 && value < twoTo63)
        sqlite3_bind_int64(statement, index, static_cast<sqlite3_int64>(value));
    else
        sqlite3_bind_double(statement, index, value);
}

// Parameters are matched by name without the prefix (":", "@" or "$"); a
// missing key, a bool, null, array or object leaves the parameter NULL.
void bindParams(sqlite3_stmt* statement, const QJsonObject& params)
{
    const int count = sqlite3_bind_parameter_count(statement);
    for (int index = 1; index <= count; ++index) {
        const char* name = sqlite3_bind_parameter_name(statement, index);
        if (!name)
            continue; // a nameless "?"
        const auto found = params.constFind(QString::fromUtf8(name + 1));
        if (found == params.constEnd())
            continue;
        const QJsonValue value = found.value();
        if (value.isDouble()) {
            bindNumber(statement, index, value.toDouble());
        } else if (value.isString()) {
            const QByteArray text = value.toString().toUtf8();
            sqlite3_bind_text(statement, index, text.constData(), text.size(), SQLITE_TRANSIENT);
        }
    }
}

QJsonObject readRow(sqlite3_stmt* statement)
{
    QJsonObject row;
    const int columns = sqlite3_column_count(statement);
    for (int column = 0; column < columns; ++column) {
        const QString name = QString::fromUtf8(sqlite3_column_name(statement, column)).toLower();
        switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            // 32 bits on purpose: the records built from these rows carry ints.
            row.insert(name, sqlite3_column_int(statement, column));
            break;
        case SQLITE_FLOAT:
            row.insert(name, sqlite3_column_double(statement, column));
            break;
        case SQLITE_TEXT:
            row.insert(name, QString::fromUtf8(reinterpret_cast<const char*>(
                                                   sqlite3_column_text(statement, column)),
                                               sqlite3_column_bytes(statement, column)));
            break;
        default: // BLOB and NULL are left out
            break;
        }
    }
    return row;
}

// Steps one prepared statement to its end; a step error just ends it.
void runPrepared(sqlite3* db, sqlite3_stmt* statement, const QJsonObject& params, QJsonArray& rows,
                 int& changes, int& lastId)
{
    bindParams(statement, params);
    while (sqlite3_step(statement) == SQLITE_ROW)
        rows.append(readRow(statement));
    changes = sqlite3_changes(db);
    lastId = static_cast<int>(sqlite3_last_insert_rowid(db));
}

const char* skipBlanks(const char* from, const char* end)
{
    while (from < end && std::isspace(static_cast<unsigned char>(*from)))
        ++from;
    return from;
}

} // namespace

bool GX2DBSqlite::exec(int& changes, int& lastId, QJsonArray& rows, const QString& sql,
                       const QJsonObject& params)
{
    changes = 0;
    lastId = 0;
    // The handle this call started with: close() may run meanwhile on another thread.
    sqlite3* const db = d->db;
    const QByteArray text = sql.toUtf8().trimmed();
    const char* next = text.constData();
    const char* const end = next + text.size();
    if (!db) {
        if (next < end)
            d->lastError = QString::fromUtf8(sqlite3_errstr(SQLITE_MISUSE));
        return false;
    }
    if (sqlite3_stmt* cached = d->takeStatement(db, text)) {
        runPrepared(db, cached, params, rows, changes, lastId);
        d->returnStatement(db, text, cached);
        return true;
    }
    bool ok = false;
    while (next < end) {
        sqlite3_stmt* statement = nullptr;
        const char* tail = end;
        if (sqlite3_prepare_v2(db, next, static_cast<int>(end - next), &statement, &tail) !=
            SQLITE_OK) {
            d->lastError = QString::fromUtf8(sqlite3_errmsg(db));
            return ok;
        }
        next = skipBlanks(tail, end);
        if (!statement)
            continue; // only a comment or ";" was left
        // A text that is one statement is kept prepared for its next call.
        const bool whole = !ok && next == end;
        runPrepared(db, statement, params, rows, changes, lastId);
        if (whole)
            d->returnStatement(db, text, statement);
        else
            sqlite3_finalize(statement);
        ok = true;
    }
    return ok;
}

bool GX2DBSqlite::exec(int& changes, int& lastId, const QString& sql, const QJsonObject& params)
{
    QJsonArray rows;
    return exec(changes, lastId, rows, sql, params);
}

bool GX2DBSqlite::call(int& changes, int& lastId, QJsonArray& rows, const QString& sqlid,
                       const QJsonObject& params)
{
    // Unlocked: tables are loaded before threads call statements.
    const auto found = d->engine.constFind(sqlid);
    if (found == d->engine.constEnd()) {
        changes = 0;
        lastId = 0;
        d->lastError = QStringLiteral("sqlid not found: ") + sqlid;
        return false;
    }
    const QString sql = found->sql;
    return exec(changes, lastId, rows, sql, params);
}

bool GX2DBSqlite::call(int& changes, int& lastId, const QString& sqlid, const QJsonObject& params)
{
    QJsonArray rows;
    return call(changes, lastId, rows, sqlid, params);
}

void GX2DBSqlite::callDetach(const QString& sqlid, const QJsonObject& params)
{
    // Counted, so that destroying this object waits for the call.
    d->detached.begin();
    const bool started = GX2Workers::start(QStringLiteral("sql ") + sqlid, [this, sqlid, params] {
        int changes = 0;
        int lastId = 0;
        call(changes, lastId, sqlid, params);
        d->detached.end();
    });
    if (!started)
        d->detached.end();
}
