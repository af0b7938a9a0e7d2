#pragma once

#include "gx2/gx2dbsqlite.h"

#include <QJsonArray>

#include <atomic>
#include <mutex>
#include <shared_mutex>

class NASLogPrivate
{
public:
    NASLogPrivate();

    // Opens the database and its statements on first use; false: 9975.
    bool ready();
    // Runs a statement; the event-log code for the outcome.
    int call(const QString& sqlid, const QJsonObject& params, QJsonArray* rows, int* changes);

    // At the pool's head, dropping one entry beyond poolSize; under poolLock.
    void toPool(const QJsonObject& event);

    GX2DBSqlite db;
    std::atomic<int> poolSize;
    mutable std::shared_mutex poolLock;
    QJsonArray pool; // newest first

private:
    std::mutex openLock;
};
