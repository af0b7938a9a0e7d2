#include "vx/vxraid.h"
#include "vx/vxraid_p.h"

#include "vx/vxcommon.h"
#include "vx/vxdisk.h"
#include "vx/vxraidlines.h"
#include "vx/vxraidparse.h"

#include "lnx2/lnx2utils.h"

#include <QFileInfo>

namespace {

constexpr int kToolMs = 9999;

QString detailLine(const QString& md)
{
    return QStringLiteral("/usr/bin/sudo mdadm -D ") + md;
}

QString notFound()
{
    return QStringLiteral("md not found");
}

// The parse behind both acquit forms; output receives what mdadm printed.
int detail(QJsonObject& out, const QString& md, const QJsonObject* inventory, QString& output)
{
    if (!isRaidPath(md))
        return kRaidUnknown;
    if (!runTool(detailLine(md), output, kToolMs))
        return kRaidFailed;
    VXDisk disk;
    const RaidLookups lookups{[&disk](const QString& part) { return disk.devOf(part); },
                              &VXRaidPrivate::canonical};
    QJsonObject record;
    if (!raidDetailOf(record, output, md, inventory, lookups))
        return kRaidFailed;
    for (auto it = record.constBegin(); it != record.constEnd(); ++it)
        out.insert(it.key(), it.value());
    return kRaidOk;
}

} // namespace

int VXRaidPrivate::acquit(QJsonObject& out, const QString& md, const QJsonObject* inventory)
{
    QString output;
    return detail(out, md, inventory, output);
}

bool VXRaidPrivate::isRemodeling(const QString& md)
{
    QString output;
    return isRaidPath(md) && runTool(detailLine(md), output, kToolMs) && raidRemodelingOf(output);
}

QJsonArray VXRaidPrivate::mdevices()
{
    return mdstatQuickList(readSysFile(QStringLiteral("/proc/mdstat")));
}

QStringList VXRaidPrivate::names() const
{
    return mdstatNames(readSysFile(QStringLiteral("/proc/mdstat")));
}

// Appends, so that members and spares can go into one list.
void VXRaidPrivate::loadDevs(QList<VXRaidDev>& out, const QJsonObject& record, const QString& key)
{
    for (const QJsonValue& value : record.value(key).toArray()) {
        const QJsonObject member = value.toObject();
        out.append(VXRaidDev(member.value(QStringLiteral("part")).toString(),
                             member.value(QStringLiteral("dev")).toString(),
                             member.value(QStringLiteral("number")).toString().toInt()));
    }
}

QString VXRaidPrivate::canonical(const QString& md)
{
    if (!md.startsWith(QLatin1String("/dev/md/")))
        return md;
    // The device node itself, never under the path root: udev's links are
    // not among the daemon's fixed files.
    const QString target = QFileInfo(md).canonicalFilePath();
    return target.isEmpty() ? md : target;
}

bool VXRaidPrivate::known(const QString& md) const
{
    return isRaidPath(md) && names().contains(canonical(md));
}

int VXRaid::acquit(QJsonObject& out, const QString& md, QString* error)
{
    QString output;
    int code = kRaidUnknown;
    if (isRaidPath(md)) {
        const QJsonObject inventory = VXDisk().allist();
        code = detail(out, md, &inventory, output);
    }
    if (code != kRaidOk && error)
        *error = output.isEmpty() ? notFound() : output;
    return code;
}

int VXRaid::status(QJsonObject& out, const QString& md)
{
    QJsonObject record;
    const int code = d->acquit(record, md);
    if (code != kRaidOk)
        return code;
    const QJsonObject flags =
        raidStatusOf(record, VXDisk().usedFor(VXRaidPrivate::canonical(md)) != 0);
    for (auto it = flags.constBegin(); it != flags.constEnd(); ++it)
        out.insert(it.key(), it.value());
    return kRaidOk;
}

int VXRaid::percents(QJsonObject& out, const QString& md, QString* error)
{
    QString output;
    if (!isRaidPath(md)) {
        if (error)
            *error = notFound();
        return kRaidUnknown;
    }
    if (!cmdExec(detailLine(md), output, kToolMs)) {
        if (error)
            *error = output;
        return kRaidFailed;
    }
    const QJsonObject progress = raidProgressOf(output);
    for (auto it = progress.constBegin(); it != progress.constEnd(); ++it)
        out.insert(it.key(), it.value());
    return kRaidOk;
}

QStringList VXRaid::names() const
{
    return d->names();
}

bool VXRaid::exists(const QString& md) const
{
    return d->known(md);
}

QJsonObject VXRaid::allist() const
{
    QJsonObject arrays;
    const QJsonObject inventory = VXDisk().allist();
    for (const QString& md : d->names()) {
        QJsonObject record;
        if (d->acquit(record, md, &inventory) == kRaidOk)
            arrays.insert(md, record);
    }
    return arrays;
}

QJsonObject VXRaid::alload() const
{
    return raidFoldOf(allist());
}

bool VXRaid::isAllSsd(const QString& md)
{
    // The parent disks are all that matters here, so no inventory is read.
    QJsonObject record;
    if (d->acquit(record, md) != kRaidOk)
        return false;
    VXDisk disk;
    for (const char* key : {"members", "spares"}) {
        for (const QJsonValue& value : record.value(QLatin1String(key)).toArray()) {
            if (!disk.isSsd(value.toObject().value(QStringLiteral("dev")).toString()))
                return false;
        }
    }
    return true;
}
