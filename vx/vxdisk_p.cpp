#include "vx/vxdisk_p.h"

#include "vx/vxcommon.h"
#include "vx/vxdisk.h"
#include "vx/vxdiskparse.h"

#include "gx2/gx2utils.h"

#include <QHash>
#include <QJsonArray>
#include <QRegularExpression>

#include <blkid/blkid.h>

namespace {

QString tagOf(blkid_probe probe, const char* name)
{
    const char* value = nullptr;
    size_t length = 0;
    if (blkid_probe_lookup_value(probe, name, &value, &length) != 0 || !value)
        return QString();
    return QString::fromUtf8(value);
}

// "Disk /dev/sda: 512 MiB, 536870912 bytes, 1048576 sectors"
void addFdiskDisk(QJsonObject& disks, const QString& line)
{
    static const QRegularExpression pattern(
        QStringLiteral("^Disk (/dev/\\S+): .*, (\\d+) bytes, (\\d+) sectors"));
    const QRegularExpressionMatch match = pattern.match(line);
    if (!match.hasMatch())
        return;
    const QString dev = match.captured(1);
    // Loop, RAM and mapped devices are not disks of their own.
    for (const char* skip : {"/dev/loop", "/dev/ram", "/dev/zram", "/dev/mapper/", "/dev/md"}) {
        if (dev.startsWith(QLatin1String(skip)))
            return;
    }
    QJsonObject record;
    record.insert(QStringLiteral("dev"), dev);
    record.insert(QStringLiteral("bytes"), match.captured(2).toLongLong());
    record.insert(QStringLiteral("sectors"), match.captured(3).toLongLong());
    record.insert(QStringLiteral("kind"), 0);
    record.insert(QStringLiteral("inuse"), 0);
    disks.insert(dev, record);
}

// blkid lines: "/dev/sda1: UUID="..." TYPE="linux_raid_member" ..."
QHash<QString, QString> signaturesOf(const QString& blkid)
{
    static const QRegularExpression type(QStringLiteral("\\bTYPE=\"([^\"]*)\""));
    QHash<QString, QString> signatures;
    for (const QString& line : blkid.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = type.match(line);
        if (match.hasMatch())
            signatures.insert(line.section(QLatin1Char(':'), 0, 0), match.captured(1).toLower());
    }
    return signatures;
}

void markUse(QJsonObject& record, int kind)
{
    record.insert(QStringLiteral("kind"), kind);
    record.insert(QStringLiteral("inuse"), 1);
}

void classifyFromTools(QJsonObject& record, const QHash<QString, QString>& signatures,
                       const QStringList& raidMembers)
{
    const QString dev = record.value(QStringLiteral("dev")).toString();
    QString mounts;
    runTool(QStringLiteral("/usr/bin/sudo lsblk -n -o MOUNTPOINT ") + dev, mounts);
    if (!mounts.trimmed().isEmpty())
        markUse(record, 1);
    for (auto it = signatures.cbegin(); it != signatures.cend(); ++it) {
        if (!it.key().startsWith(dev))
            continue;
        if (it.value() == QLatin1String("lvm2_member")) {
            markUse(record, 2);
            QString vg;
            runTool(QStringLiteral("/usr/bin/sudo pvs --noheading --separator : -o vg_name ") +
                        it.key(),
                    vg);
            record.insert(QStringLiteral("vg"), vg.trimmed());
        } else if (it.value() == QLatin1String("linux_raid_member") &&
                   raidMembers.contains(it.key())) {
            markUse(record, 3);
        }
    }
    QString vendor;
    record.insert(QStringLiteral("model"), VXDisk().model(dev, &vendor));
    record.insert(QStringLiteral("vendor"), vendor);
}

} // namespace

void VXDiskPrivate::devTypes(const QJsonObject& entry, bool& raid, bool& lvm, bool& mounted,
                             bool& system, bool& cdrom)
{
    const QString type = toString(entry.value(QStringLiteral("type")));
    const QString mountpoint = toString(entry.value(QStringLiteral("mountpoint")));
    if (type == QLatin1String("lvm"))
        lvm = true;
    if (type == QLatin1String("md") || type.startsWith(QLatin1String("raid")))
        raid = true;
    if (!mountpoint.isEmpty())
        mounted = true;
    if (mountpoint == QLatin1String("/"))
        system = true;
    if (type.endsWith(QLatin1String("rom")))
        cdrom = true;
    const QJsonArray children = entry.value(QStringLiteral("children")).toArray();
    for (const QJsonValue& child : children)
        devTypes(child.toObject(), raid, lvm, mounted, system, cdrom);
}

bool VXDiskPrivate::all(QJsonObject* disks)
{
    QString fdisk;
    if (!disks || !runTool(QStringLiteral("/usr/bin/sudo fdisk -l"), fdisk))
        return false;
    QJsonObject found;
    for (const QString& line : fdisk.split(QLatin1Char('\n')))
        addFdiskDisk(found, line);
    QString blkid;
    runTool(QStringLiteral("/usr/sbin/blkid"), blkid);
    const QHash<QString, QString> signatures = signaturesOf(blkid);
    const QStringList raidMembers = mdstatMembers(readSysFile(QStringLiteral("/proc/mdstat")));
    for (auto it = found.begin(); it != found.end(); ++it) {
        QJsonObject record = it.value().toObject();
        classifyFromTools(record, signatures, raidMembers);
        it.value() = record;
    }
    *disks = found;
    return true;
}

QJsonObject VXDiskPrivate::probe(const QString& path)
{
    QJsonObject tags{{QStringLiteral("uuid"), QString()},
                     {QStringLiteral("type"), QString()},
                     {QStringLiteral("label"), QString()}};
    blkid_probe probe = blkid_new_probe_from_filename(path.toLocal8Bit().constData());
    if (!probe)
        return tags;
    blkid_probe_enable_superblocks(probe, 1);
    blkid_probe_set_superblocks_flags(probe,
                                      BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE);
    if (blkid_do_safeprobe(probe) == 0) {
        tags.insert(QStringLiteral("uuid"), tagOf(probe, "UUID"));
        tags.insert(QStringLiteral("type"), tagOf(probe, "TYPE"));
        tags.insert(QStringLiteral("label"), tagOf(probe, "LABEL"));
    }
    blkid_free_probe(probe);
    return tags;
}
