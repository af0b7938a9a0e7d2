#include "gx2/gx2dbsqlite.h"
#include "gx2/gx2dbsqlite_p.h"

#include "lnx2/lnx2process.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QReadLocker>
#include <QWriteLocker>

namespace {

void prepareDirectory(const QString& dir)
{
    if (!QDir(dir).exists())
        procExecute(QStringLiteral("mkdir"), {QStringLiteral("-p"), dir});
    procExecute(QStringLiteral("chmod"), {QStringLiteral("755"), dir});
}

// Write-ahead logging: readers never wait for the writer, and a commit
// costs no fsync (a crash of the daemon loses nothing committed; a power
// loss at most the last transactions). Waits for another process's lock
// instead of failing at once.
void tune(sqlite3* db)
{
    sqlite3_busy_timeout(db, 5000);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
    sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
}

bool runPlain(GX2DBSqlitePrivate& d, const char* sql)
{
    if (!d.db)
        return false;
    if (sqlite3_exec(d.db, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    d.lastError = QString::fromUtf8(sqlite3_errmsg(d.db));
    return false;
}

// Texts used over and over are few: the named statements and some pragmas.
constexpr int kMaxCachedStatements = 64;

} // namespace

sqlite3_stmt* GX2DBSqlitePrivate::takeStatement(sqlite3* handle, const QByteArray& text)
{
    std::lock_guard<std::mutex> guard(cacheLock);
    if (handle != cacheDb)
        return nullptr;
    return cache.take(text);
}

void GX2DBSqlitePrivate::returnStatement(sqlite3* handle, const QByteArray& text,
                                         sqlite3_stmt* statement)
{
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    {
        std::lock_guard<std::mutex> guard(cacheLock);
        if (handle == cacheDb && !cache.contains(text) && cache.size() < kMaxCachedStatements) {
            cache.insert(text, statement);
            return;
        }
    }
    sqlite3_finalize(statement);
}

void GX2DBSqlitePrivate::adoptHandle(sqlite3* handle)
{
    std::lock_guard<std::mutex> guard(cacheLock);
    cacheDb = handle;
}

void GX2DBSqlitePrivate::finalizeStatements()
{
    std::lock_guard<std::mutex> guard(cacheLock);
    for (sqlite3_stmt* statement : qAsConst(cache))
        sqlite3_finalize(statement);
    cache.clear();
    cacheDb = nullptr;
}

GX2DBSqlite::GX2DBSqlite() : d(std::make_unique<GX2DBSqlitePrivate>()) {}

GX2DBSqlite::~GX2DBSqlite()
{
    d->detached.waitForNone();
    close();
}

bool GX2DBSqlite::openHandle(const QString& path)
{
    sqlite3* db = nullptr;
    if (sqlite3_open(path.toUtf8().constData(), &db) != SQLITE_OK) {
        d->lastError = QString::fromUtf8(sqlite3_errmsg(db));
        sqlite3_close(db);
        return false;
    }
    tune(db);
    d->adoptHandle(db);
    d->db = db;
    return true;
}

bool GX2DBSqlite::open(const QString& path, bool* created)
{
    close();
    const QFileInfo info(path);
    const bool isNew = !info.exists();
    if (isNew)
        prepareDirectory(info.absolutePath());
    if (!openHandle(path))
        return false;
    if (isNew && !d->creatorSql.isEmpty()) {
        int changes = 0;
        int lastId = 0;
        exec(changes, lastId, d->creatorSql, QJsonObject());
    }
    if (created)
        *created = isNew;
    return true;
}

bool GX2DBSqlite::openOnly(const QString& path)
{
    close();
    return QFileInfo::exists(path) && openHandle(path);
}

void GX2DBSqlite::close()
{
    // A detached call may still hold a statement: v2 closes once it is finalised.
    d->finalizeStatements();
    if (d->db)
        sqlite3_close_v2(d->db);
    d->db = nullptr;
}

bool GX2DBSqlite::isOpen() const
{
    return d->db != nullptr;
}

QString GX2DBSqlite::lastError() const
{
    return d->lastError;
}

void GX2DBSqlite::loadSqlCreator(const QString& path)
{
    QFile file(path);
    if (file.open(QIODevice::ReadOnly | QIODevice::Text))
        d->creatorSql = QString::fromUtf8(file.readAll()).trimmed();
}

bool GX2DBSqlite::loadSqlEngine(const QString& source, bool merge)
{
    if (source.isEmpty())
        return false;
    QString text = source;
    QFile file(source);
    if (file.exists() && file.open(QIODevice::ReadOnly | QIODevice::Text))
        text = QString::fromUtf8(file.readAll()).trimmed();
    GX2SqlTable table;
    if (merge) {
        QWriteLocker locker(&d->lock);
        table = d->engine;
    }
    sqlEngineParse(table, delSqlComments(text));
    if (table.isEmpty())
        return false;
    QWriteLocker locker(&d->lock);
    d->engine = std::move(table);
    d->engineSource = source;
    return true;
}

QStringList GX2DBSqlite::delSqlComments(const QString& text)
{
    return sqlEngineLines(text);
}

GX2DBSqlite::SQLContext GX2DBSqlite::context(const QString& sqlid) const
{
    QReadLocker locker(&d->lock);
    return d->engine.value(sqlid);
}

bool GX2DBSqlite::transactionBegin()
{
    return runPlain(*d, "begin transaction");
}

bool GX2DBSqlite::transactionCommit()
{
    return runPlain(*d, "commit transaction");
}

bool GX2DBSqlite::transactionRollback()
{
    return runPlain(*d, "rollback transaction");
}
