#pragma once

#include <QJsonObject>
#include <QString>

// The record builders behind VXDisk.
class VXDiskPrivate
{
public:
    // Classifies one lsblk entry and all its children; a flag once set stays set.
    static void devTypes(const QJsonObject& entry, bool& raid, bool& lvm, bool& mounted,
                         bool& system, bool& cdrom);
    // The fdisk-based inventory: "/dev/<name>" -> {"dev", "bytes", "sectors",
    // "kind" (0 free, 1 mounted, 2 LVM PV, 3 RAID member), "inuse", "vg",
    // "model", "vendor"}. False when fdisk failed.
    static bool all(QJsonObject* disks);
    // libblkid's "UUID", "TYPE" and "LABEL" of a device as "uuid", "type",
    // "label" ("" for a missing tag or an unreadable device).
    static QJsonObject probe(const QString& path);
};
