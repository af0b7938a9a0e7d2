#pragma once

#include <QJsonObject>
#include <QString>

// ZFS pools and their datasets, in the shapes of the LVM reports. Reads
// only: it never creates or changes a pool.
class VXZfs
{
public:
    VXZfs() = default;

    // {"<pool>": root dataset record + "lvs": {"<dataset>": record}}
    static QJsonObject vgAlload();
    // {"<pool>": {"vg", "size", "free"}}
    static QJsonObject vgAllist();
};

// The two reports built from "zfs list -Hpro name,available,used,mountpoint,mounted".
QJsonObject zfsAlloadOf(const QString& out);
QJsonObject zfsAllistOf(const QString& out);
