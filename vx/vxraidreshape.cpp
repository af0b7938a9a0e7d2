#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxraid.h"
#include "vx/vxraid_p.h"
#include "vx/vxraidlines.h"

#include "gx2/gx2workers.h"
#include "lnx2/lnx2utils.h"

#include <QElapsedTimer>
#include <QJsonArray>

#include <algorithm>
#include <functional>

namespace {

constexpr int kChangeMs = 99999;
constexpr int kPartWaitMs = 30000;
constexpr int kReshapePollMs = 500;
constexpr int kExtendStartMs = 3000;
constexpr int kExtendMs = 30000;
constexpr int kGrowTakenMs = 5000;
constexpr int kGrowMs = 30000;
constexpr int kRemoveMs = 30000;
constexpr int kRemovePollMs = 100;

const QString kNotFound = QStringLiteral("md not found");
const QString kCheckCapacity = QStringLiteral("请检查磁盘容量是否支持迁移");
const QString kNoMigration = QStringLiteral("该迁移不支持: ");
const QString kMemberBusy =
    QStringLiteral("当前磁盘被占用中，禁止拔除。若强行取出磁盘，将直接破坏数据");
const QString kNoReshape = QStringLiteral("the reshape did not start");

QJsonObject attributesOf(const QJsonObject& record)
{
    return record.value(QStringLiteral("attributes")).toObject();
}

int attribute(const QJsonObject& record, const char* key)
{
    return attributesOf(record).value(QLatin1String(key)).toInt();
}

int levelOf(const QJsonObject& record)
{
    return record.value(QStringLiteral("level")).toInt();
}

bool reshaping(const QJsonObject& record)
{
    const QJsonArray states = attributesOf(record).value(QStringLiteral("states")).toArray();
    return states.contains(QStringLiteral("reshape")) ||
           states.contains(QStringLiteral("reshaping"));
}

// The kernel refuses a reshape while any of these runs.
bool remodeling(const QJsonObject& record)
{
    const QJsonObject attributes = attributesOf(record);
    return attributes.contains(QStringLiteral("resync_percent")) ||
           attributes.contains(QStringLiteral("rebuild_percent")) ||
           attributes.contains(QStringLiteral("reshape_percent"));
}

// The record of an array the system knows; "md not found" otherwise.
bool lookUp(VXRaidPrivate& d, QJsonObject& record, const QString& md, QString* error)
{
    if (isRaidPath(md) && d.known(md) && d.acquit(record, md) == kRaidOk)
        return true;
    if (error)
        *error = kNotFound;
    return false;
}

QList<VXRaidDev> devsOf(const QJsonObject& record)
{
    QList<VXRaidDev> devs;
    VXRaidPrivate::loadDevs(devs, record, QStringLiteral("members"));
    VXRaidPrivate::loadDevs(devs, record, QStringLiteral("spares"));
    std::sort(devs.begin(), devs.end());
    return devs;
}

bool inArray(const QList<VXRaidDev>& devs, const QString& disk)
{
    return std::any_of(devs.cbegin(), devs.cend(), [&disk](const VXRaidDev& dev) {
        return std::get<0>(dev) == disk || std::get<1>(dev) == disk;
    });
}

// Disks the inventory lists and nothing uses.
bool disksFree(const QStringList& disks, QString& error)
{
    for (const QString& disk : disks) {
        if (!isDevicePath(disk)) {
            error = QStringLiteral("disk not available: ") + disk;
            return false;
        }
    }
    const QJsonObject inventory = VXDisk().allist();
    for (const QString& disk : disks) {
        QJsonObject found = inventory.value(disk).toObject();
        for (auto it = inventory.constBegin(); found.isEmpty() && it != inventory.constEnd();
             ++it) {
            if (it.value().toObject().value(QStringLiteral("dev")).toString() == disk)
                found = it.value().toObject();
        }
        const bool busy = found.value(QStringLiteral("system")).toInt() == 1 ||
                          found.value(QStringLiteral("mounted")).toInt() == 1 ||
                          found.value(QStringLiteral("used")).toInt() == 1;
        if (found.isEmpty() || busy) {
            error = QStringLiteral("disk not available: ") + disk;
            return false;
        }
    }
    return true;
}

// The partitions that appeared, in disk order.
QStringList prepareAll(VXRaidPrivate& d, QStringList disks)
{
    disks.sort();
    QStringList parts;
    for (const QString& disk : qAsConst(disks)) {
        QString part;
        if (d.createPart(part, disk, kPartWaitMs))
            parts << part;
    }
    return parts;
}

enum class Poll { Done, TimedOut, Lost };

// Until done holds for record or the clock passes untilMs, reads md again
// every 500 ms into record (an empty record is read at once). An array that
// can no longer be read will not take the change.
Poll pollRecord(VXRaidPrivate& d, const QString& md, QJsonObject& record,
                const QElapsedTimer& clock, int untilMs,
                const std::function<bool(const QJsonObject&)>& done)
{
    if (!record.isEmpty() && done(record))
        return Poll::Done;
    for (;;) {
        if (!record.isEmpty() &&
            (clock.elapsed() >= untilMs || !GX2Workers::sleepFor(kReshapePollMs)))
            return Poll::TimedOut;
        record = QJsonObject();
        if (d.acquit(record, md) != kRaidOk)
            return Poll::Lost;
        if (done(record))
            return Poll::Done;
    }
}

bool autoReadOnly(const QJsonObject& quickListEntry)
{
    return quickListEntry.value(QStringLiteral("abnormals"))
        .toArray()
        .contains(QStringLiteral("(auto-read-only)"));
}

// One array to stop and the member partitions to clean after it.
struct Dismantling
{
    QString md;
    QList<VXRaidDev> devs;
};

void dismantle(const QList<Dismantling>& arrays)
{
    for (const Dismantling& array : arrays) {
        // The disks of an array that still runs must not be wiped.
        if (!cmdExec(QStringLiteral("/usr/bin/sudo mdadm -S ") + array.md, kChangeMs))
            return;
        for (const VXRaidDev& dev : array.devs) {
            const QString& part = std::get<0>(dev);
            const QString& disk = std::get<1>(dev);
            cmdExec(QStringLiteral("/usr/bin/sudo mdadm --zero-superblock ") + part, kChangeMs);
            // A sub-array is stopped as the next entry; a whole-disk member
            // has no partition to remove.
            if (isRaidPath(part) || disk.isEmpty())
                continue;
            if (disk != part)
                cmdExec(QStringLiteral("/usr/bin/sudo parted -s ") + disk + QStringLiteral(" rm 1"),
                        kChangeMs);
            cmdExec(QStringLiteral("/usr/bin/sudo wipefs -a ") + disk, kChangeMs);
        }
    }
    VXRaidPrivate::writeConfig();
}

} // namespace

int VXRaidPrivate::extend(const QString& md, const QStringList& disks, QString& error)
{
    QJsonObject record;
    if (!lookUp(*this, record, md, &error))
        return kRaidUnknown;
    if (disks.isEmpty()) {
        error = QStringLiteral("no disk to add");
        return kRaidInvalid;
    }
    if (!disksFree(disks, error))
        return kRaidUnknown;
    if (remodeling(record)) {
        error = QStringLiteral("a resync, rebuild or reshape is running");
        return kRaidFailed;
    }
    const QStringList parts = prepareAll(*this, disks);
    if (parts.isEmpty()) {
        error = QStringLiteral("no partition could be prepared");
        return kRaidInvalid;
    }
    const int devices = attribute(record, "raid_devices");
    const int total = attribute(record, "total_devices");
    QString output;
    if (!cmdExec(raidExtendLine(md, levelOf(record), devices + parts.size(), parts), output,
                 kChangeMs)) {
        error = output;
        return kRaidFailed;
    }
    const auto reshaped = [devices](const QJsonObject& now) {
        return reshaping(now) || attribute(now, "raid_devices") != devices;
    };
    QElapsedTimer clock;
    clock.start();
    QJsonObject now;
    // The new members show first; the reshape may follow a moment later.
    if (pollRecord(*this, md, now, clock, kExtendStartMs,
                   [&reshaped, total](const QJsonObject& now) {
                       return reshaped(now) || attribute(now, "total_devices") != total;
                   }) != Poll::Done ||
        pollRecord(*this, md, now, clock, kExtendMs, reshaped) != Poll::Done) {
        error = kNoReshape;
        return kRaidNoReshape;
    }
    writeConfig();
    return kRaidOk;
}

int VXRaidPrivate::grow(const QString& md, int level, const QStringList& disks, QString& error)
{
    QJsonObject record;
    if (!lookUp(*this, record, md, &error))
        return kRaidUnknown;
    const int from = levelOf(record);
    if (!raidMigrationAllowed(from, level)) {
        error =
            kNoMigration + QString::number(from) + QStringLiteral(" -> ") + QString::number(level);
        return kRaidNoMigration;
    }
    const QList<VXRaidDev> devs = devsOf(record);
    QStringList added;
    for (const QString& disk : disks) {
        if (!inArray(devs, disk) && !added.contains(disk))
            added << disk;
    }
    if (!disksFree(added, error))
        return kRaidUnknown;
    if (remodeling(record)) {
        error = QStringLiteral("a resync, rebuild or reshape is running");
        return kRaidFailed;
    }
    const QStringList parts = prepareAll(*this, added);
    if (!added.isEmpty() && parts.isEmpty()) {
        error = QStringLiteral("no partition could be prepared");
        return kRaidInvalid;
    }
    const int devices = attribute(record, "raid_devices");
    if (!cmdExec(raidGrowLine(md, level, devices + parts.size(), parts), kChangeMs)) {
        error = kCheckCapacity;
        return kRaidFailed;
    }
    QElapsedTimer clock;
    clock.start();
    QJsonObject now;
    if (pollRecord(*this, md, now, clock, kGrowTakenMs, [from, devices](const QJsonObject& now) {
            return levelOf(now) != from || attribute(now, "raid_devices") != devices ||
                   reshaping(now);
        }) != Poll::Done) {
        error = kCheckCapacity;
        return kRaidFailed;
    }
    clock.restart();
    if (pollRecord(*this, md, now, clock, kGrowMs, [level](const QJsonObject& now) {
            return levelOf(now) == level || reshaping(now);
        }) != Poll::Done) {
        error = kNoReshape;
        return kRaidNoReshape;
    }
    writeConfig();
    return kRaidOk;
}

int VXRaidPrivate::push(QString& error, const QString& md, const QStringList& disks)
{
    QJsonObject record;
    if (!lookUp(*this, record, md, &error))
        return kRaidUnknown;
    const int level = levelOf(record);
    if (level == 0) {
        error = QStringLiteral("a raid0 array cannot take members");
        return kRaidNoMigration;
    }
    if (level == 4) {
        error = QStringLiteral("a raid4 array cannot take members");
        return kRaidBusy;
    }
    if (!disksFree(disks, error))
        return kRaidUnknown;
    const QStringList parts = prepareAll(*this, disks);
    if (parts.isEmpty()) {
        error = QStringLiteral("no partition could be prepared");
        return kRaidInvalid;
    }
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo /usr/sbin/mdadm ") + md + QStringLiteral(" --add ") +
                     parts.join(QLatin1Char(' ')),
                 output, kChangeMs)) {
        error = output;
        return kRaidPushFailed;
    }
    writeConfig();
    return kRaidOk;
}

int VXRaidPrivate::pull(QString& error, const QString& md, const QString& member)
{
    QJsonObject record;
    if (!lookUp(*this, record, md, &error))
        return kRaidUnknown;
    const QList<VXRaidDev> devs = devsOf(record);
    const auto found = std::find_if(devs.cbegin(), devs.cend(), [&member](const VXRaidDev& dev) {
        return std::get<0>(dev) == member || std::get<1>(dev) == member;
    });
    if (!isDevicePath(member) || found == devs.cend()) {
        error = QStringLiteral("not a member of ") + md + QStringLiteral(": ") + member;
        return kRaidUnknown;
    }
    const QString part = std::get<0>(*found);
    const QString disk = std::get<1>(*found);
    const QString mdadm = QStringLiteral("/usr/bin/sudo /sbin/mdadm ");
    // A member that is already faulty or a spare may refuse; the removal decides.
    cmdExec(mdadm + md + QStringLiteral(" -f ") + part, kChangeMs);
    QString output;
    // mdadm 4.2 takes "-r" here without complaint and removes nothing;
    // "--remove" is the spelling it acts on.
    if (!cmdExec(mdadm + md + QStringLiteral(" --remove ") + part, output, kChangeMs)) {
        const bool busy = output.contains(QStringLiteral("Device or resource busy"));
        error = busy ? kMemberBusy : output;
        return busy ? kRaidMemberBusy : kRaidFailed;
    }
    // Repartitioning a disk md still holds would corrupt the array.
    QJsonObject after;
    if (acquit(after, md) != kRaidOk || inArray(devsOf(after), part)) {
        error = QStringLiteral("the member is still in the array: ") + part;
        return kRaidFailed;
    }
    QStringList cleaning{mdadm + QStringLiteral("--zero-superblock ") + part};
    // A whole-disk member has no partition to remove.
    if (disk != part)
        cleaning << QStringLiteral("/usr/bin/sudo parted -s ") + disk + QStringLiteral(" rm 1");
    cleaning << QStringLiteral("/usr/bin/sudo wipefs -a ") + disk;
    QStringList failed;
    for (const QString& line : qAsConst(cleaning)) {
        if (!cmdExec(line, output, kChangeMs))
            failed << output.trimmed();
    }
    writeConfig();
    if (!failed.isEmpty()) {
        error = failed.join(QLatin1Char('\n'));
        return kRaidCleanFailed;
    }
    return kRaidOk;
}

int VXRaidPrivate::remove(QString& error, const QString& md, bool wait)
{
    QJsonObject record;
    if (!lookUp(*this, record, md, &error))
        return kRaidUnknown;
    const QString path = canonical(md);
    // The top array first, then the sub-arrays of a two-tier array.
    const QList<VXRaidDev> devs = devsOf(record);
    QList<Dismantling> arrays{{md, devs}};
    for (const VXRaidDev& dev : devs) {
        QJsonObject sub;
        if (lookUp(*this, sub, std::get<0>(dev), nullptr))
            arrays.append({std::get<0>(dev), devsOf(sub)});
    }
    if (!GX2Workers::start(QStringLiteral("raid-remove ") + md, [arrays] { dismantle(arrays); })) {
        error = QStringLiteral("shutting down");
        return kRaidFailed;
    }
    if (!wait)
        return kRaidOk;
    QElapsedTimer clock;
    clock.start();
    while (names().contains(path)) {
        if (clock.elapsed() >= kRemoveMs || !GX2Workers::sleepFor(kRemovePollMs)) {
            error = QStringLiteral("the array is still there: ") + md;
            return kRaidFailed;
        }
    }
    return kRaidOk;
}

int VXRaidPrivate::repair(const QString& md)
{
    QJsonObject record;
    if (!lookUp(*this, record, md, nullptr))
        return kRaidUnknown;
    // Hot spares count in "Total Devices" but are not missing members:
    // declaring them would turn a healthy array's spare into a reshape.
    const int total = attribute(record, "total_devices") -
                      record.value(QStringLiteral("spares")).toArray().size();
    if (attribute(record, "raid_devices") == total)
        return kRaidOk;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo /sbin/mdadm --force --grow ") + md +
                     QStringLiteral(" -l ") + QString::number(levelOf(record)) +
                     QStringLiteral(" -n ") + QString::number(total),
                 kChangeMs))
        return kRaidRepairFailed;
    writeConfig();
    return kRaidOk;
}

int VXRaidPrivate::repairAll()
{
    const QString mdadm = QStringLiteral("/usr/bin/sudo /sbin/mdadm ");
    const QJsonArray arrays = mdevices();
    for (const QJsonValue& value : arrays) {
        const QJsonObject array = value.toObject();
        const QString dev = array.value(QStringLiteral("dev")).toString();
        if (!isRaidPath(dev))
            continue;
        if (autoReadOnly(array))
            cmdExec(mdadm + QStringLiteral("--readwrite ") + dev, kChangeMs);
        if (array.value(QStringLiteral("active")).toInt() != 1)
            cmdExec(mdadm + QStringLiteral("--stop ") + dev, kChangeMs);
    }
    cmdExec(mdadm + QStringLiteral("--assemble --scan --force"), kChangeMs);
    // Debian's md starts what it assembles auto-read-only (start_ro=1).
    for (const QJsonValue& value : mdevices()) {
        const QString dev = value.toObject().value(QStringLiteral("dev")).toString();
        if (isRaidPath(dev) && autoReadOnly(value.toObject()))
            cmdExec(mdadm + QStringLiteral("--readwrite ") + dev, kChangeMs);
    }
    return kRaidOk;
}

int VXRaidPrivate::rename(const QString& oldMd, const QString& newMd)
{
    QJsonObject record;
    if (!isRaidPath(newMd) || !lookUp(*this, record, oldMd, nullptr))
        return kRaidUnknown;
    // Stopping first and finding the name taken would leave the array down.
    if (known(newMd))
        return kRaidFailed;
    // Spares too: an array must not come back without its hot spares.
    QList<VXRaidDev> members;
    loadDevs(members, record, QStringLiteral("members"));
    loadDevs(members, record, QStringLiteral("spares"));
    QStringList parts;
    for (const VXRaidDev& member : qAsConst(members))
        parts << std::get<0>(member);
    parts.sort();
    const QString mdadm = QStringLiteral("/usr/bin/sudo /sbin/mdadm ");
    if (parts.isEmpty() || !cmdExec(mdadm + QStringLiteral("--stop ") + oldMd, kChangeMs))
        return kRaidFailed;
    const QString assemble = mdadm + QStringLiteral("-A --auto=md ") + newMd + QLatin1Char(' ') +
                             parts.join(QLatin1Char(' '));
    if (!cmdExec(assemble, kChangeMs)) {
        // Bring the array back under its old name rather than leave it down.
        cmdExec(mdadm + QStringLiteral("-A --auto=md ") + oldMd + QLatin1Char(' ') +
                    parts.join(QLatin1Char(' ')),
                kChangeMs);
        return kRaidFailed;
    }
    writeConfig();
    return kRaidOk;
}
