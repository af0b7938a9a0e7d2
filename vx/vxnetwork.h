#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QReadWriteLock>
#include <QString>
#include <QStringList>

// Traffic rates of the physical interfaces. An object keeps the previous
// counters: rates need two samples, so one object lives as long as whoever
// samples (the dashboard's sampler).
class VXNetwork
{
public:
    // nics: "<name>" -> {"nic", "read_bytes", "write_bytes", "read_speed",
    // "write_speed"}; readall/writeall: the summed rates in bytes per second.
    // The first call records the counters and reports rates 0; calls less
    // than half a second apart share one sample.
    void speeds(QJsonObject& nics, qint64& readall, qint64& writeall);

    // /sys/class/net minus the virtual devices (lo, bridges, tunnels ...).
    static QStringList physicalNics();
    static QString hostname();

private:
    QElapsedTimer clock;
    QJsonObject previous;
    QReadWriteLock lock;
};
