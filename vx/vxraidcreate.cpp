#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxraid.h"
#include "vx/vxraid_p.h"
#include "vx/vxraidlines.h"

#include "gx2/gx2logger.h"
#include "gx2/gx2syspath.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QElapsedTimer>
#include <QFile>

namespace {

constexpr int kPartedMs = 999999;
constexpr int kPartWaitMs = 30000;
constexpr int kPartPollMs = 100;
constexpr int kCreateMs = 99999;
constexpr int kAppearMs = 10000;
constexpr int kAppearPollMs = 100;
constexpr int kTwoTierMs = 30000;
constexpr int kTwoTierPollMs = 50;
constexpr int kSubArrayMs = 30000;
constexpr int kSubArrayPollMs = 100;
constexpr int kTopBusyMs = 20000;
constexpr int kTopBusyPollMs = 1000;

// Unbuffered, so that the kernel's refusal shows in write() itself.
bool writeDefaultLayout()
{
    QFile out(sysPath(QStringLiteral("/sys/module/raid0/parameters/default_layout")));
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        return false;
    return out.write("2", 1) == 1;
}

// The creation threads must not touch the VXRaidPrivate that started them.
bool preparePart(QString& part, const QString& disk, int waitMs)
{
    if (!isDevicePath(disk))
        return false;
    const QString parted = QStringLiteral("/usr/bin/sudo parted -s ") + disk;
    // The outcome shows in whether the partition appears.
    cmdExec(parted + QStringLiteral(" mklabel gpt"), kPartedMs);
    cmdExec(parted + QStringLiteral(" mkpart primary 0% 100%"), kPartedMs);
    cmdExec(parted + QStringLiteral(" set 1 raid on"), kPartedMs);
    const QString wanted = raidPartitionOf(disk);
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        if (VXDisk().partitions(disk).contains(wanted)) {
            part = wanted;
            return true;
        }
        if (clock.elapsed() >= waitMs || !GX2Workers::sleepFor(kPartPollMs))
            return false;
    }
}

QStringList mdNames()
{
    return VXRaidPrivate().names();
}

struct SingleJob
{
    QString md;
    int level = 0;
    QStringList disks;
    QStringList spares;
    int chunk = 0;
};

QStringList preparedParts(QStringList disks)
{
    disks.sort();
    QStringList parts;
    for (const QString& disk : qAsConst(disks)) {
        QString part;
        if (preparePart(part, disk, kPartWaitMs))
            parts << part;
        if (GX2Workers::stopping())
            break;
    }
    return parts;
}

// prepared turns true when the disks are partitioned: the wait for the
// array counts from then, since partitioning takes seconds a disk on slow
// machines.
void createSingle(const SingleJob& job, std::atomic_bool& prepared)
{
    if (job.level == 0)
        writeDefaultLayout();
    const QStringList parts = preparedParts(job.disks);
    const QStringList spares = preparedParts(job.spares);
    prepared.store(true);
    if (parts.isEmpty() || GX2Workers::stopping())
        return;
    procRunLine(raidCreateLine(job.md, job.level, job.chunk, parts, spares), 999, kCreateMs);
}

struct TwoTierJob
{
    QString top;
    QStringList subs;
    int subLevel = 0;
    int groupSize = 0;
    QStringList disks;
    int chunk = 0;
};

bool allListed(const QStringList& arrays)
{
    const QStringList listed = mdNames();
    for (const QString& md : arrays) {
        if (!listed.contains(md))
            return false;
    }
    return true;
}

// The caller's answer when the top array is missing.
// prepared turns true when the sub-arrays are up.
int createTwoTier(TwoTierJob job, std::atomic_bool& prepared)
{
    job.disks.sort();
    for (int group = 0; group < job.subs.size(); ++group) {
        QStringList parts;
        for (const QString& disk : job.disks.mid(group * job.groupSize, job.groupSize)) {
            QString part;
            // A sub-array short of a member cannot be made; give up the whole.
            if (!preparePart(part, disk, kPartWaitMs))
                return kRaidFailed;
            parts << part;
        }
        QStringList words =
            procSplitCommand(raidCreateLine(job.subs[group], job.subLevel, job.chunk, parts, {}));
        const QString program = words.takeFirst();
        if (!procStartDetached(program, words))
            return kRaidFailed;
    }
    QElapsedTimer clock;
    clock.start();
    while (!allListed(job.subs)) {
        if (clock.elapsed() >= kSubArrayMs || !GX2Workers::sleepFor(kSubArrayPollMs))
            return kRaidFailed;
    }
    // The caller's wait covers the top array alone: on a busy machine the
    // sub-arrays may take most of their own limit.
    prepared.store(true);
    writeDefaultLayout();
    LNX2ProcResult top;
    QElapsedTimer busyClock;
    busyClock.start();
    for (;;) {
        top = procRunLine(raidTopLine(job.top, job.subs), 999, kCreateMs);
        if (top.ok())
            return kRaidOk;
        // A sub-array shows in mdstat while its own mdadm or udev still
        // holds it open; mdadm then aborts having made nothing, so try again.
        const bool busy = (top.err + top.out).contains("Device or resource busy");
        if (!busy || busyClock.elapsed() >= kTopBusyMs || !GX2Workers::sleepFor(kTopBusyPollMs))
            break;
    }
    GX2Logger::i()->write(QStringLiteral("raid: %1 not created: %2")
                              .arg(job.top, QString::fromLocal8Bit(top.err + top.out).trimmed()),
                          2);
    return allListed(job.subs) ? kRaidFailed : kRaidBusy;
}

} // namespace

int VXRaidPrivate::create(QString& error, int level, const QStringList& disks,
                          const QStringList& spares, int chunk, QString& md)
{
    error.clear();
    if (raidCheckLevel(level, disks.size(), spares.size()) != kRaidOk) {
        error = QStringLiteral("invalid level or number of disks");
        return kRaidInvalid;
    }
    QStringList all = disks + spares;
    if (all.removeDuplicates() > 0) {
        error = QStringLiteral("a disk is given twice");
        return kRaidUnknown;
    }
    QStringList available;
    for (const QString& dev : all) {
        if (!isDevicePath(dev)) {
            error = QStringLiteral("disk not available: ") + dev;
            return kRaidUnknown;
        }
    }
    const QJsonArray records = VXDisk().alload(false, true, false, false);
    for (const QJsonValue& value : records)
        available << value.toObject().value(QStringLiteral("dev")).toString();
    for (const QString& dev : qAsConst(all)) {
        if (!available.contains(dev)) {
            error = QStringLiteral("disk not available: ") + dev;
            return kRaidUnknown;
        }
    }
    int rc;
    if (level == 50)
        rc = createRaidX0(error, md, 5, 3, disks, chunk);
    else if (level == 60)
        rc = createRaidX0(error, md, 6, 4, disks, chunk);
    else
        rc = createRaid(error, level, disks, spares, chunk, md);
    if (rc == kRaidOk)
        writeConfig();
    return rc;
}

int VXRaidPrivate::createRaid(QString& error, int level, const QStringList& disks,
                              const QStringList& spares, int chunk, QString& md)
{
    if (creating->exchange(true)) {
        error = QStringLiteral("another array is being created");
        return kRaidBusy;
    }
    const QString path = raidFreePath(names());
    if (path.isEmpty()) {
        creating->store(false);
        error = QStringLiteral("no free md number");
        return kRaidFailed;
    }
    const SingleJob job{path, level, disks, spares, chunk};
    const std::shared_ptr<std::atomic_bool> flag = creating;
    const auto prepared = std::make_shared<std::atomic_bool>(false);
    if (!GX2Workers::start(QStringLiteral("raid-create ") + path, [flag, prepared, job] {
            createSingle(job, *prepared);
            flag->store(false);
        })) {
        creating->store(false);
        error = QStringLiteral("shutting down");
        return kRaidFailed;
    }
    QElapsedTimer clock;
    for (;;) {
        // The flag drops after mdadm returned: look once more after it did.
        const bool running = creating->load();
        if (names().contains(path)) {
            md = path;
            return kRaidOk;
        }
        if (!clock.isValid() && prepared->load())
            clock.start();
        if (!running || (clock.isValid() && clock.elapsed() >= kAppearMs) ||
            !GX2Workers::sleepFor(kAppearPollMs))
            break;
    }
    error = QStringLiteral("the array did not appear: ") + path;
    return kRaidNotAppeared;
}

int VXRaidPrivate::createRaidX0(QString& error, QString& md, int subLevel, int groupSize,
                                const QStringList& disks, int chunk)
{
    if (groupSize <= 0 || disks.size() < groupSize) {
        error = QStringLiteral("invalid number of disks");
        return kRaidInvalid;
    }
    if (creating->exchange(true)) {
        error = QStringLiteral("another array is being created");
        return kRaidBusy;
    }
    TwoTierJob job;
    const QStringList inUse = names();
    const int groups = disks.size() / groupSize;
    for (int i = 0; i <= groups; ++i) {
        const QString path = raidFreePath(inUse, job.subs);
        if (path.isEmpty()) {
            creating->store(false);
            error = QStringLiteral("no free md number");
            return kRaidFailed;
        }
        job.subs << path;
    }
    job.top = job.subs.takeLast();
    job.subLevel = subLevel;
    job.groupSize = groupSize;
    job.disks = disks;
    job.chunk = chunk;
    const std::shared_ptr<std::atomic_bool> flag = creating;
    const auto outcome = std::make_shared<std::atomic_int>(kRaidFailed);
    const auto prepared = std::make_shared<std::atomic_bool>(false);
    if (!GX2Workers::start(QStringLiteral("raid-create ") + job.top,
                           [flag, outcome, prepared, job] {
                               outcome->store(createTwoTier(job, *prepared));
                               flag->store(false);
                           })) {
        creating->store(false);
        error = QStringLiteral("shutting down");
        return kRaidFailed;
    }
    QElapsedTimer clock;
    while (creating->load() && (!clock.isValid() || clock.elapsed() < kTwoTierMs)) {
        if (!clock.isValid() && prepared->load())
            clock.start();
        if (!GX2Workers::sleepFor(kTwoTierPollMs))
            break;
    }
    if (names().contains(job.top)) {
        md = job.top;
        return kRaidOk;
    }
    // Still running at the time-out, or mdadm content but the array unlisted.
    const int rc = !creating->load() && outcome->load() == kRaidBusy ? kRaidBusy : kRaidFailed;
    error = rc == kRaidBusy
                ? QStringLiteral("a sub-array is gone: ") + job.subs.join(QLatin1Char(' '))
                : QStringLiteral("the array did not appear: ") + job.top;
    return rc;
}

bool VXRaidPrivate::createPart(QString& part, const QString& disk, int waitMs)
{
    return preparePart(part, disk, waitMs);
}

bool VXRaidPrivate::setDefaultLayout()
{
    return writeDefaultLayout();
}
