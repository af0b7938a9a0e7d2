#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// Pure readers of the disk tools' output, fed a string, so that recorded
// output reaches them directly. VXDisk runs the tools and calls these.

// lsblk -J output; an empty object when it is not a JSON object.
QJsonObject lsblkJson(const QString& output);

// Member paths of running md arrays, from /proc/mdstat ("sda1[0]" -> /dev/sda1).
QStringList mdstatMembers(const QString& mdstat);
// Whether a line of /proc/mdstat describes the array called name ("md0").
bool mdstatHasArray(const QString& mdstat, const QString& name);
// Second field of "pvs --noheading --separator : -o vg_name,pv_name" lines.
QStringList pvsMembers(const QString& output);
// First word of the lines of "zpool status -LP" that start with /dev/.
QStringList zpoolMembers(const QString& output);

// The allist inventory from its lsblk output and the three member lists.
QJsonObject inventoryOf(const QJsonObject& lsblk, const QStringList& raidMembers,
                        const QStringList& lvmMembers, const QStringList& zfsMembers);
// The allist2 inventory, from signatures alone.
QJsonObject inventory2Of(const QJsonObject& lsblk);
// The alload records of the entries the switches admit; usage flags come
// from the allist record of the same path.
QJsonArray alloadOf(const QJsonObject& lsblk, const QJsonObject& inventory, bool withSystem,
                    bool withUsb, bool withUsed, bool withCdrom);

// "lsblk -ndpo pkname" output: the parent, or part when there is none.
QString parentDiskOf(const QString& output, const QString& part);
// "lsblk -lno PATH,TYPE" output: the partition paths in order.
QStringList partitionsOf(const QString& output);
// "lsblk -ablJ -o name,path,type" output: paths of the entries of type disk.
QStringList diskPathsOf(const QString& output);
// "hdparm -I" output: the text after "Serial Number:"; false when none.
bool hdparmSerial(QString& serial, const QString& output);
// "parted -s <dev> print": fifth word of the first line of partition 1.
QString partedFstype(const QString& output);
// "fdisk -l": whether a line names dev as its first word.
bool fdiskLists(const QString& output, const QString& dev);
// /proc/diskstats: "/dev/" + the third word of every line of more than two.
QStringList diskstatsDevices(const QString& diskstats);
// "/etc/mtab": the mount point of the first entry whose source is dev.
bool mtabMountOf(const QString& mtab, const QString& dev, QString* mountpoint);
