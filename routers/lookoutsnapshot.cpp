#include "routers/lookoutsnapshot.h"

#include "gx2/gx2utils.h"

double lookoutFahrenheit(double celsius)
{
    return QString::number(celsius * 1.8 + 32, 'f', 1).toDouble();
}

QJsonObject lookoutFahrenheitOf(const QJsonObject& devs, double min, double max)
{
    QJsonObject converted;
    for (auto it = devs.begin(); it != devs.end(); ++it)
        converted.insert(it.key(), lookoutFahrenheit(it.value().toDouble()));
    return QJsonObject{{QStringLiteral("min"), lookoutFahrenheit(min)},
                       {QStringLiteral("max"), lookoutFahrenheit(max)},
                       {QStringLiteral("devs"), converted}};
}

QJsonObject lookoutStorageOf(const QJsonObject& mounts, const QJsonObject& lvmGroups,
                             const QJsonObject& zfsPools)
{
    QJsonObject vgs;
    qint64 sizeSum = 0;
    qint64 freeSum = 0;
    for (const QJsonValue& value : mounts) {
        const QJsonObject mount = value.toObject();
        if (mount.value(QStringLiteral("mntpath")).toString() == QStringLiteral("/")) {
            vgs.insert(
                QStringLiteral("/"),
                QJsonObject{{QStringLiteral("vg"), QStringLiteral("/")},
                            {QStringLiteral("size"), mount.value(QStringLiteral("capacity"))},
                            {QStringLiteral("free"), mount.value(QStringLiteral("free"))}});
            continue;
        }
        // "size" of a mount is its used space.
        sizeSum = cappedSum(sizeSum, toInt64(mount.value(QStringLiteral("size"))));
        freeSum = cappedSum(freeSum, toInt64(mount.value(QStringLiteral("free"))));
    }
    for (const QJsonObject& more : {lvmGroups, zfsPools}) {
        for (auto it = more.begin(); it != more.end(); ++it)
            vgs.insert(it.key(), it.value());
    }
    const qint64 capacity = cappedSum(sizeSum, freeSum);
    // Without data volumes the rate is 0 * 100 / 0. JSON has no NaN and the
    // wire has always carried null here, which the front end shows as "no
    // figure"; set explicitly so the key stays and snapshots compare equal.
    const QJsonValue userate = capacity == 0 ? QJsonValue(QJsonValue::Null)
                                             : QJsonValue(double(sizeSum) * 100 / double(capacity));
    return QJsonObject{{QStringLiteral("userate"), userate},
                       {QStringLiteral("size"), sizeSum},
                       {QStringLiteral("free"), freeSum},
                       {QStringLiteral("capacity"), capacity},
                       {QStringLiteral("vgs"), vgs}};
}

int lookoutStatusOf(const QJsonArray& pool)
{
    // The pool stores levels under "level"; "eventlevel" is read on purpose,
    // so only events that carry it raise the status.
    int status = 0;
    for (const QJsonValue& entry : pool) {
        const QString level = entry.toObject().value(QStringLiteral("eventlevel")).toString();
        if (level == QStringLiteral("Error"))
            return 2;
        if (level == QStringLiteral("Warning"))
            status = 1;
    }
    return status;
}

QJsonObject lookoutSnapshotOf(const LookoutParts& parts)
{
    const QJsonObject network{{QStringLiteral("readall"), parts.readall},
                              {QStringLiteral("writeall"), parts.writeall},
                              {QStringLiteral("nic"), parts.nics}};
    const QJsonObject celsius{{QStringLiteral("min"), parts.minTemperature},
                              {QStringLiteral("max"), parts.maxTemperature},
                              {QStringLiteral("devs"), parts.temperatures}};
    const QJsonObject disk{
        {QStringLiteral("speed"), parts.diskSpeed},
        {QStringLiteral("temperature"), celsius},
        {QStringLiteral("fahrenheit"),
         lookoutFahrenheitOf(parts.temperatures, parts.minTemperature, parts.maxTemperature)}};

    // The documented key order, although QJsonObject sorts its keys anyway.
    QJsonObject snapshot;
    snapshot.insert(QStringLiteral("hostname"), parts.hostname);
    snapshot.insert(QStringLiteral("cpu"), parts.cpu);
    snapshot.insert(QStringLiteral("process"), parts.process);
    snapshot.insert(QStringLiteral("memory"), parts.memory);
    snapshot.insert(QStringLiteral("network"), network);
    snapshot.insert(QStringLiteral("disk"), disk);
    snapshot.insert(QStringLiteral("storage"),
                    lookoutStorageOf(parts.mounts, parts.lvmGroups, parts.zfsPools));
    snapshot.insert(QStringLiteral("mount"), parts.devMounts);
    snapshot.insert(QStringLiteral("uptime"), parts.uptime);
    snapshot.insert(QStringLiteral("logs"), parts.logs);
    snapshot.insert(QStringLiteral("status"), lookoutStatusOf(parts.logs));
    snapshot.insert(QStringLiteral("loadaverage"), parts.loadAverage);
    snapshot.insert(QStringLiteral("kernelversion"), parts.kernelVersion);
    return snapshot;
}
