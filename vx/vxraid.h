#pragma once

#include "gx2/gx2errors.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <memory>

class VXRaidPrivate;

// Result codes of the array operations; 0 is success.
#define VX_RAID_CODES(X)                                                                           \
    X(kRaidOk, 0, "success")                                                                       \
    X(kRaidBusy, 9992, "a creation still runs, or an array that must exist is gone")               \
    X(kRaidUnknown, 9994, "unknown array or unavailable disk")                                     \
    X(kRaidInvalid, 9995, "level or disk count not allowed")                                       \
    X(kRaidNotAppeared, 9998, "the new array did not show up in time")                             \
    X(kRaidFailed, 9999, "a command failed or the change did not start")                           \
    X(kRaidNoMigration, 9974, "level migration not supported")                                     \
    X(kRaidNoReshape, 9934, "the reshape did not start")                                           \
    X(kRaidPushFailed, 9947, "adding partitions failed")                                           \
    X(kRaidMemberBusy, 9963, "the member to pull is in use")                                       \
    X(kRaidCleanFailed, 9982, "cleaning a pulled disk failed")                                     \
    X(kRaidRepairFailed, 9931, "the forced grow failed")

VX_RAID_CODES(GX2_CODE_CONSTANT)

// The machine's md arrays: their status, and the operations that create,
// reshape, repair and dismantle them. Array arguments are "/dev/mdN" or
// "/dev/md/NAME"; disk arguments pass isDevicePath (vxdevice.h).
class VXRaid
{
public:
    VXRaid();
    ~VXRaid();
    VXRaid(const VXRaid&) = delete;
    VXRaid& operator=(const VXRaid&) = delete;

    // Status.
    int acquit(QJsonObject& out, const QString& md, QString* error = nullptr);
    int status(QJsonObject& out, const QString& md);
    int percents(QJsonObject& out, const QString& md, QString* error = nullptr);
    QStringList names() const;
    bool exists(const QString& md) const;
    QJsonObject allist() const;
    QJsonObject alload() const;
    bool isAllSsd(const QString& md);

    // Creation and reshaping.
    int create(QString& error, int level, const QStringList& disks, const QStringList& spares,
               int chunk, QString& md);
    int extend(const QString& md, const QStringList& disks, QString& error);
    int grow(const QString& md, int level, const QStringList& disks, QString& error);
    int push(QString& error, const QString& md, const QStringList& disks);
    int pull(QString& error, const QString& md, const QString& member);
    int remove(QString& error, const QString& md);
    int removes(QString& error, const QString& md);
    int repair(const QString& md);
    int repairAll();
    int rename(const QString& oldMd, const QString& newMd);
    bool active(const QString& md);

    // The initial RAM disk refresh, done by the daemon's RAID router.
    void writeConfig();
    bool waitForWriteConfig(int msecs);

    // Resync speed limits in KiB/s.
    void limitSpeeds(int& max, int& min);
    bool setLimitSpeeds(int max, int min);

private:
    std::unique_ptr<VXRaidPrivate> d;
};
