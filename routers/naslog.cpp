#include "routers/naslog.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2syspath.h"
#include "res/resources.h"
#include "routers/naslogprivate.h"
#include "routers/routercodes.h"

#include <QFile>

namespace {

constexpr int kNoLimit = 99999999;

const char kDatabasePath[] = "/var/lib/orvolog/orvolog.db";
const char kCreatorScript[] = ":/res/naslog_creator.sql";
const char kEngineScript[] = ":/res/naslog_engine.sql";

QString dateText(const QDate& date)
{
    return date.isValid() ? date.toString(QStringLiteral("yyyy-MM-dd")) : QString();
}

// A database row as a pool entry, keys in this order.
QJsonObject eventOf(const QJsonObject& row)
{
    static const std::pair<const char*, const char*> keys[] = {
        {"eventlevel", "level"},     {"username", "username"}, {"ipaddr", "ipaddr"},
        {"eventdes", "description"}, {"appname", "appname"},   {"devicename", "devicename"},
        {"eventtime", "timestamp"}};
    QJsonObject event;
    for (const auto& [column, key] : keys)
        event.insert(QString::fromLatin1(key), row.value(QString::fromLatin1(column)));
    return event;
}

} // namespace

NASLogPrivate::NASLogPrivate() : poolSize(NASLog::kDefaultPoolSize)
{
    initResources();
    db.loadSqlCreator(QString::fromLatin1(kCreatorScript));
}

bool NASLogPrivate::ready()
{
    std::lock_guard<std::mutex> guard(openLock);
    if (db.isOpen())
        return true;
    if (!db.open(sysPath(QString::fromLatin1(kDatabasePath))))
        return false;
    if (db.loadSqlEngine(QString::fromLatin1(kEngineScript), false))
        return true;
    db.close();
    return false;
}

void NASLogPrivate::toPool(const QJsonObject& event)
{
    pool.prepend(event);
    // One entry per push: a smaller pool size shrinks the pool gradually.
    if (pool.size() > poolSize)
        pool.removeLast();
}

int NASLogPrivate::call(const QString& sqlid, const QJsonObject& params, QJsonArray* rows,
                        int* changes)
{
    if (!ready())
        return kErrDatabase;
    int changed = 0;
    int lastId = 0;
    QJsonArray result;
    if (!db.call(changed, lastId, result, sqlid, params))
        return kErrDatabase;
    if (rows)
        *rows = result;
    if (changes)
        *changes = changed;
    return 0;
}

NASLog::NASLog() : d(new NASLogPrivate) {}

NASLog::~NASLog()
{
    delete d;
}

int NASLog::loadBy(QJsonArray& rows, const QJsonObject& filter)
{
    rows = QJsonArray();
    return d->call(QStringLiteral("orvolog_loadby"), filter, &rows, nullptr);
}

int NASLog::loadBy(QJsonArray& rows, bool info, bool warn, bool error, const QString& username,
                   const QString& ipaddr, const QString& description, const QString& appname,
                   const QDate& startDate, const QDate& endDate, int page, int ofPage)
{
    // The flags travel as 0/1: the engine binds JSON booleans as NULL, which
    // would make every level test unknown and select nothing.
    const QJsonObject filter{{QStringLiteral("level_info"), int(info)},
                             {QStringLiteral("level_warn"), int(warn)},
                             {QStringLiteral("level_error"), int(error)},
                             {QStringLiteral("username"), username.trimmed()},
                             {QStringLiteral("ipaddr"), ipaddr.trimmed()},
                             {QStringLiteral("description"), description.trimmed()},
                             {QStringLiteral("appname"), appname.trimmed()},
                             {QStringLiteral("startdate"), dateText(startDate)},
                             {QStringLiteral("enddate"), dateText(endDate)},
                             {QStringLiteral("page"), qMax(page, 1)},
                             {QStringLiteral("ofpage"), ofPage < 1 ? kNoLimit : ofPage}};
    return loadBy(rows, filter);
}

int NASLog::loadTail(QJsonArray& events, int amount, bool info, bool warn, bool error)
{
    events = QJsonArray();
    const QJsonObject params{{QStringLiteral("amount"), amount < 1 ? kDefaultPoolSize : amount},
                             {QStringLiteral("level_info"), int(info)},
                             {QStringLiteral("level_warn"), int(warn)},
                             {QStringLiteral("level_error"), int(error)}};
    QJsonArray rows;
    const int err = d->call(QStringLiteral("orvolog_tail"), params, &rows, nullptr);
    for (const QJsonValue& row : qAsConst(rows))
        events.append(eventOf(row.toObject()));
    return err;
}

int NASLog::add(const QJsonObject& event)
{
    int changes = 0;
    const int err = d->call(QStringLiteral("orvolog_append"), event, nullptr, &changes);
    if (err != 0)
        return err;
    // A missing required field makes SQLite refuse the row without an error.
    return changes > 0 ? 0 : kErrNoChange;
}

int NASLog::add(const QString& level, const QString& username, const QString& ipaddr,
                const QString& description, const QString& appname, const QString& devicename,
                const QDateTime& time, const QString& sparefield1, const QString& sparefield2,
                const QString& sparefield3)
{
    return add(QJsonObject{
        {QStringLiteral("level"), level},
        {QStringLiteral("username"), username},
        {QStringLiteral("ipaddr"), ipaddr},
        {QStringLiteral("description"), description},
        {QStringLiteral("appname"), appname},
        {QStringLiteral("devicename"), devicename},
        {QStringLiteral("timestamp"), time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))},
        {QStringLiteral("sparefield1"), sparefield1},
        {QStringLiteral("sparefield2"), sparefield2},
        {QStringLiteral("sparefield3"), sparefield3}});
}

int NASLog::removeAll()
{
    return d->call(QStringLiteral("orvolog_removeall"), QJsonObject(), nullptr, nullptr);
}

void NASLog::setPoolSize(int size)
{
    d->poolSize = size < 1 ? kDefaultPoolSize : size;
}

QJsonArray NASLog::logPool() const
{
    std::shared_lock<std::shared_mutex> guard(d->poolLock);
    return d->pool;
}

bool NASLog::logPush(const QJsonObject& event)
{
    if (add(event) != 0)
        return false;
    std::unique_lock<std::shared_mutex> guard(d->poolLock);
    d->toPool(event);
    return true;
}

QList<bool> NASLog::logPushAll(const QList<QJsonObject>& events)
{
    QList<bool> stored;
    if (events.size() == 1)
        return stored << logPush(events.first());
    const bool grouped = d->ready() && d->db.transactionBegin();
    for (const QJsonObject& event : events)
        stored << (add(event) == 0);
    if (grouped && !d->db.transactionCommit()) {
        d->db.transactionRollback();
        return QVector<bool>(events.size(), false).toList();
    }
    std::unique_lock<std::shared_mutex> guard(d->poolLock);
    for (int i = 0; i < events.size(); ++i) {
        if (stored[i])
            d->toPool(events[i]);
    }
    return stored;
}

void NASLog::reloadPool()
{
    QJsonArray events;
    loadTail(events, d->poolSize, true, true, true);
    std::unique_lock<std::shared_mutex> guard(d->poolLock);
    d->pool = events;
}
