#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// The dashboard snapshot built from what one sampler cycle read. Pure: the
// sampler feeds the sources' results in, tests feed their own.

// What one cycle read, as the sources hand it back.
struct LookoutParts
{
    QString hostname;
    QJsonObject cpu;
    QJsonObject process;
    QJsonObject memory;
    QJsonObject nics; // per interface
    qint64 readall = 0;
    qint64 writeall = 0;
    QJsonObject diskSpeed;
    QJsonObject temperatures; // disk -> degrees Celsius
    double minTemperature = 0;
    double maxTemperature = 0;
    QJsonObject mounts;    // the data mounts and "/"
    QJsonObject lvmGroups; // {"<vg>": {"vg", "size", "free"}}
    QJsonObject zfsPools;  // the same shape
    QJsonObject devMounts;
    QJsonObject uptime;
    QJsonArray logs; // the event-log pool, newest first
    QString loadAverage;
    QString kernelVersion;
};

// t * 1.8 + 32 to one decimal: 36.55 gives 97.8.
double lookoutFahrenheit(double celsius);
// {"min", "max", "devs"} with every figure converted.
QJsonObject lookoutFahrenheitOf(const QJsonObject& devs, double min, double max);
// {"userate", "size", "free", "capacity", "vgs"} over the data mounts; "/"
// is listed under "vgs" but not summed.
QJsonObject lookoutStorageOf(const QJsonObject& mounts, const QJsonObject& lvmGroups,
                             const QJsonObject& zfsPools);
// 2 when an entry's "eventlevel" is "Error", else 1 for "Warning", else 0.
int lookoutStatusOf(const QJsonArray& pool);
QJsonObject lookoutSnapshotOf(const LookoutParts& parts);
