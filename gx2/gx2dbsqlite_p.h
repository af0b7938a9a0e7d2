#pragma once

#include "gx2/gx2sqlengine.h"

#include <QReadWriteLock>
#include <QString>

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
};
