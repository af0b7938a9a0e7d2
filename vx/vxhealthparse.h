#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// Pure readers of smartctl and iotop output for the health side of VXDisk.

// 1 ok, -1 warning, 0 not judged, by attribute number.
int smartVerdict(int id, qint64 raw, int thresh);
// Appends the rows of one "smartctl -aj" report: the ATA attribute table,
// or for NVMe the health log, one unjudged row per key.
void smartRowsOf(QJsonArray& rows, const QJsonObject& report, bool nvme);
// "smartctl --attribute": Temperature_Celsius raw value or NVMe
// "Temperature:" line; the last match wins.
bool temperatureOf(double& celsius, const QString& output);
// "iotop -o -q -n 1": "read_speed" and "write_speed" in bytes per second
// from the "Total DISK READ:" line; false when there is none.
bool totalSpeedOf(QJsonObject& speeds, const QString& output);
