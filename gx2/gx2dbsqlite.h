#pragma once

#include "gx2/gx2sqlengine.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <memory>

class GX2DBSqlitePrivate;

// One SQLite connection and a table of named statements loaded from statement
// files (grammar in gx2sqlengine.h). Rows come back as JSON objects keyed by
// lower-case column names. Failures give false and lastError(); nothing is
// thrown or logged.
//
// Threads: the connection is shared by every caller, including callDetach
// threads, so SQLite must be its serialised build. Only replacing the
// statement table locks; call() reads it unlocked, so load the tables before
// any thread calls statements.
class GX2DBSqlite
{
public:
    using SQLContext = GX2SqlStatement;

    GX2DBSqlite();
    ~GX2DBSqlite();

    // Opens or creates the database. For a new file the directory is made
    // (when missing) and opened to 755 first, and the creator script runs
    // once the connection is open. created is written only on success.
    bool open(const QString& path, bool* created = nullptr);
    // Opens an existing file only; no creator script.
    bool openOnly(const QString& path);
    void close();
    bool isOpen() const;
    QString lastError() const;

    // Whole file (also a Qt resource) as UTF-8, trimmed; unreadable leaves
    // the script as it was.
    void loadSqlCreator(const QString& path);
    // source is a file path or the statement text itself. A source that
    // yields no statement leaves the table in force and gives false; merge
    // keeps the statements source does not redefine.
    bool loadSqlEngine(const QString& source, bool merge);
    static QStringList delSqlComments(const QString& text);
    // The stored statement, looked up exactly as given; empty when absent.
    SQLContext context(const QString& sqlid) const;

    // Runs every statement of sql in turn. True when at least one ran, even
    // if a later one failed to prepare (lastError then tells). Step errors
    // are not reported: check changes. rows is appended to; changes and
    // lastId (32 bits) are those of the last statement run.
    bool exec(int& changes, int& lastId, QJsonArray& rows, const QString& sql,
              const QJsonObject& params);
    bool exec(int& changes, int& lastId, const QString& sql, const QJsonObject& params);
    // sqlid is looked up as passed: identifiers are stored lower-cased.
    bool call(int& changes, int& lastId, QJsonArray& rows, const QString& sqlid,
              const QJsonObject& params);
    bool call(int& changes, int& lastId, const QString& sqlid, const QJsonObject& params);
    // Runs the statement on a detached thread; its outcome is not reported.
    void callDetach(const QString& sqlid, const QJsonObject& params);

    bool transactionBegin();
    bool transactionCommit();
    bool transactionRollback();

private:
    Q_DISABLE_COPY(GX2DBSqlite)

    bool openHandle(const QString& path);

    std::unique_ptr<GX2DBSqlitePrivate> d;
};
