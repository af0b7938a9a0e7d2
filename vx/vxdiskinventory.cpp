#include "vx/vxdisk.h"

#include "vx/vxcommon.h"
#include "vx/vxdevice.h"
#include "vx/vxdisk_p.h"
#include "vx/vxdiskparse.h"

#include "gx2/gx2utils.h"
#include "lnx2/lnx2utils.h"

namespace {

constexpr int kToolMs = 9999;

QJsonObject lsblkOf(const QString& command)
{
    QString output;
    if (!cmdExec(command, output, kToolMs))
        return QJsonObject();
    return lsblkJson(output);
}

QJsonObject firstDevice(const QJsonObject& lsblk)
{
    return lsblk.value(QStringLiteral("blockdevices")).toArray().first().toObject();
}

bool hasCrypt(const QJsonObject& entry)
{
    if (toString(entry.value(QStringLiteral("type"))) == QLatin1String("crypt"))
        return true;
    const QJsonArray children = entry.value(QStringLiteral("children")).toArray();
    for (const QJsonValue& child : children) {
        if (hasCrypt(child.toObject()))
            return true;
    }
    return false;
}

} // namespace

QJsonObject VXDisk::allist()
{
    const QJsonObject lsblk = lsblkOf(QStringLiteral(
        "lsblk -ablJ -o "
        "name,pkname,path,type,size,tran,state,mountpoint,fssize,fstype,parttypename,pttype,uuid,"
        "vendor,model,hctl"));
    if (lsblk.isEmpty())
        return QJsonObject();
    return inventoryOf(lsblk, allRaidMembers(), allLvmMembers(), allZfsMembers());
}

QJsonObject VXDisk::allist2()
{
    return inventory2Of(lsblkOf(QStringLiteral(
        "lsblk -ablJ -o "
        "name,pkname,path,type,size,tran,state,mountpoint,fssize,fstype,pttype,uuid,vendor,model,"
        "hctl")));
}

QJsonArray VXDisk::alload(bool withSystem, bool withUsb, bool withUsed, bool withCdrom)
{
    QString output;
    if (!runTool(QStringLiteral("lsblk -ablJ -o name,path,tran,size,serial,mountpoint,model,type"),
                 output))
        return QJsonArray();
    return alloadOf(lsblkJson(output), allist(), withSystem, withUsb, withUsed, withCdrom);
}

QJsonObject VXDisk::acquit(const QString& dev)
{
    if (!isDevicePath(dev))
        return QJsonObject();
    const QJsonObject entry = firstDevice(lsblkOf(
        QStringLiteral("lsblk -ablJ -o "
                       "name,pkname,path,type,size,tran,state,mountpoint,fssize,fstype,pttype,uuid,"
                       "vendor,model,hctl ") +
        dev));
    if (entry.isEmpty())
        return QJsonObject();
    const QString path = toString(entry.value(QStringLiteral("path")));
    const qint64 size = toInt64(entry.value(QStringLiteral("size")));
    QJsonObject record{{QStringLiteral("path"), path},
                       {QStringLiteral("name"), toString(entry.value(QStringLiteral("name")))},
                       {QStringLiteral("type"), toString(entry.value(QStringLiteral("type")))},
                       {QStringLiteral("size"), size},
                       {QStringLiteral("dev"), path},
                       {QStringLiteral("capacity"), size},
                       {QStringLiteral("mountpoint"), QString()}};
    const int use = usedFor(dev);
    const char* flags[] = {"mounted", "raid", "lvm", "zfs"};
    for (int code = 1; code <= 4; ++code)
        record.insert(QLatin1String(flags[code - 1]), use == code ? 1 : 0);
    if (use == 1)
        record.insert(QStringLiteral("mountpoint"),
                      toString(entry.value(QStringLiteral("mountpoint"))));
    record.insert(QStringLiteral("used"), use >= 1 && use <= 4 ? 1 : 0);
    return record;
}

bool VXDisk::devTypes(const QString& dev, bool& raid, bool& lvm, bool& mounted, bool& system,
                      bool& crypt, bool& cdrom)
{
    QString output;
    if (!isDevicePath(dev) ||
        !runTool(QStringLiteral("lsblk -aJ -o name,path,tran,size,serial,mountpoint,model,type ") +
                     dev,
                 output))
        return false;
    const QJsonObject entry = firstDevice(lsblkJson(output));
    if (entry.isEmpty())
        return false;
    VXDiskPrivate::devTypes(entry, raid, lvm, mounted, system, cdrom);
    crypt = crypt || hasCrypt(entry);
    return true;
}
