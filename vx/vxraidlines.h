#pragma once

#include <QString>
#include <QStringList>

// Pure rules and command lines of array creation and reshaping.

// 0, or kRaidInvalid when level and disk counts do not go together.
int raidCheckLevel(int level, int disks, int spares);
// The allowed level migrations.
bool raidMigrationAllowed(int from, int to);
// The partition createPart makes on disk: nvme0n1 -> nvme0n1p1, sda -> sda1.
QString raidPartitionOf(const QString& disk);
// The first "/dev/mdN", N from 0 to 255, neither in use nor taken; "" when none.
QString raidFreePath(const QStringList& inUse, const QStringList& taken = {});
// md paths callers may name: "/dev/mdN" or "/dev/md/NAME".
bool isRaidPath(const QString& md);

// "/usr/bin/sudo /sbin/mdadm -CR ..." of a single array; members and
// spares are sorted, " -c chunk" is left out where mdadm refuses it.
QString raidCreateLine(const QString& md, int level, int chunk, QStringList parts,
                       QStringList spares);
// The top raid0 of a two-tier array over its sub-arrays.
QString raidTopLine(const QString& md, const QStringList& subArrays);
QString raidExtendLine(const QString& md, int level, int devices, QStringList parts);
QString raidGrowLine(const QString& md, int level, int devices, QStringList parts);
