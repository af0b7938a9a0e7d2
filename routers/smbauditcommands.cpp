#include "routers/smbauditrouter.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "gx2/gx2utils.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"
#include "routers/routercodes.h"
#include "routers/smbauditcsv.h"

#include <QDir>
#include <QFileInfo>

// The audit router's commands: configuration, watched directories, records.

namespace {

// rm and ln on one path return at once; the limit only guards a hung tool.
constexpr int kToolMs = 5000;
const char kConfigFile[] = "/orvo/etc/samba/smbaudit.json";
const char kDefaultFile[] = "/orvo/etc/samba/smbaudit.db";
const char kSharesDir[] = "/orvo/shares/";

QJsonObject paramsOf(const GX2RpcPacket& cmdObject)
{
    return cmdObject.value(QStringLiteral("params")).toObject();
}

// The record or directory numbers a command names under key.
QList<int> numbersOf(const GX2RpcPacket& cmdObject, const char* key)
{
    return jarrayToInts(cmdObject.param(QLatin1String(key)).toArray());
}

struct Outcome
{
    bool ok = false;
    QJsonArray rows;
    int changes = 0, lastId = 0;
};

Outcome runSql(GX2DBSqlite& db, const char* sqlid, const QJsonObject& params)
{
    Outcome out;
    out.ok = db.call(out.changes, out.lastId, out.rows, QString::fromLatin1(sqlid), params);
    return out;
}

// The new directory's number, or the code that stops it being added.
int appendDir(GX2DBSqlite& db, const QString& dir, int& sadno)
{
    if (!QFileInfo(dir).isDir())
        return kErrNothing;
    const QJsonObject params{{QStringLiteral("dir"), dir}};
    const Outcome found = runSql(db, "smbaudit_dir_exists", params);
    if (!found.ok)
        return kErrDatabase;
    if (!found.rows.isEmpty())
        return kErrExists;
    const Outcome added = runSql(db, "smbaudit_dir_append", params);
    if (!added.ok || added.changes < 1 || added.lastId < 1)
        return kErrWriteFailed;
    sadno = added.lastId;
    return kErrOk;
}

// ln does not make the link's directory, and a fresh appliance has no shares yet.
void linkAt(const QString& target, const QString& link)
{
    QDir().mkpath(QFileInfo(link).path());
    procRun(QStringLiteral("ln"), {QStringLiteral("-s"), target, link}, kToolMs, kToolMs);
}

} // namespace

void SmbAuditRouter::smbaudit_config_load(GX2RpcPacket* retObject, GX2RpcPacket)
{
    const QJsonObject config = GX2File::readJsonObject(sysPath(QString::fromLatin1(kConfigFile)));
    retObject->setResults(
        {{QStringLiteral("storagedir"), toString(config.value(QStringLiteral("storagedir")))},
         {QStringLiteral("savedays"), toInt(config.value(QStringLiteral("savedays")))}});
}

void SmbAuditRouter::smbaudit_config_save(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    if (moveRequested)
        return retObject->setErr(kErrBusy);
    const QJsonObject params = paramsOf(cmdObject);
    const QString dir = toString(params.value(QStringLiteral("storagedir")));
    QJsonObject config;
    QString target = sysPath(QString::fromLatin1(kDefaultFile));
    if (!dir.isEmpty() && QFileInfo(dir).isDir()) {
        const QString absolute = QDir(dir).absolutePath();
        config.insert(QStringLiteral("storagedir"), absolute);
        target = QDir(absolute).filePath(QStringLiteral("smbaudit.db"));
    }
    const int savedays = toInt(params.value(QStringLiteral("savedays")));
    config.insert(QStringLiteral("savedays"), savedays);
    if (!writeFile(sysPath(QString::fromLatin1(kConfigFile)), config))
        return retObject->setErr(kErrWriteFailed);
    m_savedays = savedays;
    if (!isRunning())
        return retObject->setErr(kErrNotRunning); // takes effect at the next start
    // No move can run here (moveRequested was clear), so m_storageFile is stable.
    if (target != m_storageFile) {
        m_pendingFile = target;
        moveRequested = true;
        resume();
    }
    retObject->setErr(kErrOk);
}

void SmbAuditRouter::smbaudit_dir_loadby(GX2RpcPacket* retObject, GX2RpcPacket)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return retObject->setErr(kErrNotOpen);
    const Outcome dirs = runSql(db, "smbaudit_dir_loadby", {});
    if (!dirs.ok)
        return retObject->setErr(kErrDatabase);
    QJsonArray records;
    for (const QJsonValue& row : dirs.rows)
        records.append(dirByFields(row.toObject()));
    retObject->setResults({{QStringLiteral("records"), records}});
}

void SmbAuditRouter::smbaudit_dir_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return retObject->setErr(kErrNotOpen);
    const QStringList dirs = toStrings(paramsOf(cmdObject).value(QStringLiteral("dirs")).toArray());
    // A list of empty names counts as an empty list.
    int err = kErrBadParam;
    QJsonArray added;
    for (const QString& dir : dirs) {
        if (dir.isEmpty())
            continue;
        int sadno = 0;
        err = appendDir(db, dir, sadno);
        if (err != kErrOk)
            continue;
        added.append(QJsonObject{{QStringLiteral("dir"), dir}, {QStringLiteral("sadno"), sadno}});
        // Recorded from now on, not only after the collector's next start.
        QWriteLocker guard(&dirLock);
        watchedDirs.insert(dir + QLatin1Char('/'), sadno);
    }
    if (added.isEmpty())
        return retObject->setErr(err);
    retObject->setResults({{QStringLiteral("dirs"), added}});
}

void SmbAuditRouter::smbaudit_dir_remove(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return retObject->setErr(kErrNotOpen);
    const QList<int> sadnos = numbersOf(cmdObject, "sadnos");
    if (sadnos.isEmpty())
        return retObject->setErr(kErrBadParam);
    QJsonArray removed;
    for (const int sadno : sadnos) {
        if (runSql(db, "smbaudit_dir_remove", {{QStringLiteral("sadno"), sadno}}).changes < 1)
            continue;
        removed.append(sadno);
        QWriteLocker guard(&dirLock);
        for (const QString& dir : watchedDirs.keys(sadno))
            watchedDirs.remove(dir);
    }
    if (removed.isEmpty())
        return retObject->setErr(kErrNothing);
    // The records of the removed directories may be many; the answer need not wait.
    db.callDetach(QStringLiteral("smbaudit_log_clean"), {});
    retObject->setResults({{QStringLiteral("records"), removed}});
}

void SmbAuditRouter::smbaudit_dir_erase(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return retObject->setErr(kErrNotOpen);
    const QList<int> sadnos = numbersOf(cmdObject, "sadnos");
    if (sadnos.isEmpty())
        return retObject->setErr(kErrBadParam);
    for (const int sadno : sadnos)
        if (sadno > 0 && !runSql(db, "smbaudit_log_erase", {{QStringLiteral("sadno"), sadno}}).ok)
            return retObject->setErr(kErrDatabase);
    retObject->setErr(kErrOk);
}

void SmbAuditRouter::smbaudit_log_loadby(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return retObject->setErr(kErrNotOpen);
    const QJsonObject params = paramsOf(cmdObject);
    const int page = qMax(1, toInt(params.value(QStringLiteral("page"))));
    const int given = toInt(params.value(QStringLiteral("ofpage")));
    const int ofpage = given < 1 ? 10 : given;
    const QJsonObject query{{QStringLiteral("sadno"), toInt(params.value(QStringLiteral("sadno")))},
                            {QStringLiteral("page"), page},
                            {QStringLiteral("ofpage"), ofpage}};
    const Outcome count = runSql(db, "smbaudit_log_count", query);
    // at() is Undefined past the end, which reads as 0.
    const int reccount = toInt(count.rows.at(0).toObject().value(QStringLiteral("rec_count")));
    retObject->insert(QStringLiteral("reccount"), reccount);
    retObject->insert(QStringLiteral("page"), page);
    retObject->insert(QStringLiteral("ofpage"), ofpage);
    retObject->setErr(kErrOk);
    if (count.ok && reccount < 1)
        return;
    const Outcome rows = count.ok ? runSql(db, "smbaudit_log_loadby", query) : Outcome();
    if (!rows.ok) {
        retObject->insert(QStringLiteral("errmsg"), db.lastError());
        return retObject->setErr(kErrDatabase);
    }
    QJsonArray records;
    for (const QJsonValue& row : rows.rows)
        records.append(logByFields(row.toObject()));
    retObject->setResults({{QStringLiteral("records"), records}});
}

void SmbAuditRouter::smbaudit_log_remove(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return retObject->setErr(kErrNotOpen);
    const QList<int> audnos = numbersOf(cmdObject, "audnos");
    if (audnos.isEmpty())
        return retObject->setErr(kErrBadParam);
    QJsonArray removed;
    for (const int audno : audnos)
        if (runSql(db, "smbaudit_log_remove", {{QStringLiteral("audno"), audno}}).changes > 0)
            removed.append(audno);
    if (removed.isEmpty())
        return retObject->setErr(kErrNothing);
    retObject->setResults({{QStringLiteral("records"), removed}});
}

void SmbAuditRouter::smbaudit_log_export(GX2RpcPacket* retObject, GX2RpcPacket)
{
    QReadLocker locker(&dbLock); // a move rewrites the path under it
    const QString file = m_storageFile;
    // The download is the file alone: what waits in the write-ahead log
    // goes into it first.
    int changes = 0;
    int lastId = 0;
    if (db.isOpen())
        db.exec(changes, lastId, QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"), {});
    locker.unlock();
    if (!QFileInfo::exists(file))
        return retObject->setErr(kErrNothing);
    const QString link = sysPath(QString::fromLatin1(kSharesDir)) + QStringLiteral("smbaudit.db");
    procRun(QStringLiteral("rm"), {QStringLiteral("-rf"), link}, kToolMs, kToolMs);
    linkAt(file, link);
    retObject->setResults({{QStringLiteral("path"), QStringLiteral("/shares/smbaudit.db")}});
}

void SmbAuditRouter::smbaudit_log_saveas(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    {
        QReadLocker locker(&dbLock);
        if (!db.isOpen())
            return retObject->setErr(kErrNotOpen);
    }
    // Writing out a whole store takes seconds: answered when the file is there.
    const QJsonObject params = paramsOf(cmdObject);
    const GX2Deferred later = retObject->answerLater();
    exports.begin();
    const bool started =
        GX2Workers::start(QStringLiteral("audit csv export"), [this, params, later] {
            later.answer(saveAs(params));
            exports.end();
        });
    if (!started) {
        exports.end();
        later.answer(GX2RpcPacket::ofErr(kErrFailed));
    }
}

GX2RpcPacket SmbAuditRouter::saveAs(const QJsonObject& params)
{
    QReadLocker locker(&dbLock);
    if (!db.isOpen())
        return GX2RpcPacket::ofErr(kErrNotOpen);
    const Outcome all =
        runSql(db, "smbaudit_log_export",
               {{QStringLiteral("sadno"), toInt(params.value(QStringLiteral("sadno")))}});
    locker.unlock(); // writing and linking the file run tools
    if (!all.ok)
        return GX2RpcPacket::ofErr(kErrDatabase);
    const bool chinese = smbauditIsChinese(toString(params.value(QStringLiteral("language"))));
    const QString name = smbauditCsvName(QDateTime::currentDateTime());
    const QString file = sysPath(QStringLiteral("/tmp/")) + name;
    QJsonArray records;
    for (const QJsonValue& row : all.rows)
        records.append(logByFields(row.toObject()));
    if (!writeFile(file, smbauditCsv(records, chinese)))
        return GX2RpcPacket::ofErr(kErrWriteFailed);
    linkAt(file, sysPath(QString::fromLatin1(kSharesDir)) + name);
    GX2RpcPacket result;
    result.setResults({{QStringLiteral("path"), QStringLiteral("/shares/") + name}});
    return result;
}

QJsonObject SmbAuditRouter::logByFields(const QJsonObject& row) const
{
    static const std::pair<const char*, const char*> kColumns[] = {
        {"aud_no", "audno"},          {"sad_no", "sadno"},        {"aud_datetime", "datetime"},
        {"aud_filepath", "filepath"}, {"aud_user", "user"},       {"aud_group", "group"},
        {"aud_ipaddr", "ipaddr"},     {"aud_machine", "machine"}, {"aud_sharename", "sharename"},
        {"aud_action", "action"},     {"aud_explain", "explain"}};
    QJsonObject record;
    for (const auto& [column, key] : kColumns)
        record.insert(QLatin1String(key), row.value(QLatin1String(column)));
    return record;
}
