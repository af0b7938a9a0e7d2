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

bool runPlain(GX2DBSqlitePrivate& d, const char* sql)
{
    if (!d.db)
        return false;
    if (sqlite3_exec(d.db, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    d.lastError = QString::fromUtf8(sqlite3_errmsg(d.db));
    return false;
}

} // namespace

GX2DBSqlite::GX2DBSqlite() : d(std::make_unique<GX2DBSqlitePrivate>()) {}

GX2DBSqlite::~GX2DBSqlite()
{
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
