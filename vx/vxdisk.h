#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <memory>

class VXDiskPrivate;

// The machine's block devices: what exists, what each is used for, its
// health, and the partition operations. Nothing is cached: every call runs
// the tools again. Device arguments must pass isDevicePath (vxdevice.h);
// any other text gets the function's empty result and runs nothing.
class VXDisk
{
public:
    VXDisk();
    ~VXDisk();
    VXDisk(const VXDisk&) = delete;
    VXDisk& operator=(const VXDisk&) = delete;

    // Inventory: "/dev/<name>" -> disk record, for disks and md arrays.
    QJsonObject allist();
    // Older inventory with the integer "kind" of the first use found.
    QJsonObject allist2();
    // Disk records admitted by the switches (see vxdiskalload.cpp).
    QJsonArray alload(bool withSystem, bool withUsb, bool withUsed, bool withCdrom);
    QJsonObject acquit(const QString& dev);

    // 0 unused, 1 mounted, 2 RAID member, 3 LVM PV, 4 ZFS member.
    int usedFor(const QString& dev);
    bool usedForMounted(const QString& dev, QString* mountpoint = nullptr);
    bool usedForRaid(const QString& dev);
    bool usedForLvm(const QString& dev);
    bool usedForZfs(const QString& dev);
    QStringList allRaidMembers();
    QStringList allLvmMembers();
    QStringList allZfsMembers();
    QStringList allDevices();
    QStringList physicalDevices();
    QJsonObject allDevicesInfo();
    QJsonObject physicalDisks();
    bool devTypes(const QString& dev, bool& raid, bool& lvm, bool& mounted, bool& system,
                  bool& crypt, bool& cdrom);

    QString devOf(const QString& part);
    QStringList partsOf(const QString& dev);
    QString partOf(const QString& dev);
    QStringList partitions(const QString& dev);
    bool partExists(const QString& dev);
    QStringList names();
    bool isSsd(const QString& dev);
    QString model(const QString& dev, QString* vendor = nullptr);
    bool serialNumber(QString& serial, const QString& dev);
    QString fstype(const QString& dev);

    // Health and speed.
    int smartInfo(QJsonArray& rows, const QString& dev);
    bool smartHasErrors();
    bool temperature(double& celsius, const QString& dev);
    int temperatures(QJsonObject& perDisk, double& min, double& max);
    double maxTemperature();
    int totalSpeed(QJsonObject& speeds);

    // Partitions. The three refuse a disk allist() marks "system".
    bool createPart(const QString& dev);
    bool removePart(const QString& dev);
    // "wipefs -a" succeeded; true at once when running in the background.
    bool wipefs(const QString& dev, bool background);

private:
    std::unique_ptr<VXDiskPrivate> d;
};
