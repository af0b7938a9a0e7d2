#pragma once

#include <QDate>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

class NASLogPrivate;

// The appliance's event log: an SQLite database of user-visible events plus
// a pool of the newest ones, served without touching the database. The
// database opens on first use.
class NASLog
{
public:
    NASLog();
    virtual ~NASLog();
    NASLog(const NASLog&) = delete;
    NASLog& operator=(const NASLog&) = delete;

    int loadBy(QJsonArray& rows, const QJsonObject& filter);
    int loadBy(QJsonArray& rows, bool info, bool warn, bool error, const QString& username,
               const QString& ipaddr, const QString& description, const QString& appname,
               const QDate& startDate, const QDate& endDate, int page, int ofPage);
    // Newest first, as pool entries ("level", ..., "timestamp").
    int loadTail(QJsonArray& events, int amount, bool info, bool warn, bool error);
    int add(const QJsonObject& event);
    // The stored time is the database's own clock; time only travels along.
    int add(const QString& level, const QString& username, const QString& ipaddr,
            const QString& description, const QString& appname, const QString& devicename,
            const QDateTime& time, const QString& sparefield1, const QString& sparefield2,
            const QString& sparefield3);
    int removeAll();

    void setPoolSize(int size);
    QJsonArray logPool() const;
    // Stores event and, when stored, puts it at the head of the pool.
    bool logPush(const QJsonObject& event);
    // logPush of each event in turn, in one transaction: a commit costs far
    // more than an insert. Whether each was stored.
    QList<bool> logPushAll(const QList<QJsonObject>& events);
    void reloadPool();

    static constexpr int kDefaultPoolSize = 10;

private:
    NASLogPrivate* d;
};
