#pragma once

#include "gx2/gx2inflight.h"
#include "gx2/gx2sqlengine.h"

#include <QByteArray>
#include <QHash>
#include <QReadWriteLock>
#include <QString>

#include <mutex>

#include <sqlite3.h>

// State of GX2DBSqlite, shared by its source files.
class GX2DBSqlitePrivate
{
public:
    sqlite3* db = nullptr;
    QString lastError;
    QReadWriteLock lock; // held for writing only while the table is replaced
    GX2SqlTable engine;
    QString creatorSql;
    QString engineSource;

    // Prepared single statements by their text, reused across calls. A
    // caller takes one out while it runs it, so two threads never step the
    // same statement. Only statements of the open connection are kept:
    // close() finalizes them, and one returned for an older one is finalized.
    sqlite3_stmt* takeStatement(sqlite3* db, const QByteArray& text);
    void returnStatement(sqlite3* db, const QByteArray& text, sqlite3_stmt* statement);
    void adoptHandle(sqlite3* db);
    void finalizeStatements();

    // Detached calls still running; the destructor waits for them.
    GX2InFlight detached;

private:
    std::mutex cacheLock;
    QHash<QByteArray, sqlite3_stmt*> cache;
    sqlite3* cacheDb = nullptr;
};
