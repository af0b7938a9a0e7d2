// The full repair of the package system: LNX2Package::repairAll.

#include "lnx2/lnx2package.h"

#include "gx2/gx2workers.h"
#include "lnx2/lnx2package_p.h"

#include <QElapsedTimer>

namespace {

constexpr int kBusyPollMs = 1000;
constexpr qint64 kBusyLimitMs = 3600 * 1000;
constexpr int kNtpMs = 30000;
constexpr int kHwclockMs = 5000;
constexpr int kMvMs = 5000;
constexpr int kStepStartMs = 30000;
constexpr int kStepMs = 900000;

const char kSources[] = "/etc/apt/sources.list";
const char kSourcesAside[] = "/etc/apt/sources.list.kvo";

// dpkg's own files: literal, whatever root the daemon runs under.
const char* const kLeftovers[] = {"/var/lib/dpkg/lock-frontend", "/var/lib/dpkg/lock",
                                  "/var/cache/apt/archives/*.deb", "/var/lib/dpkg/updates/*"};

// What fails here is seen later in brokens(); the outcome is not needed.
void runStep(const QStringList& words, bool closedInput = false)
{
    procRun(packageRequest(words, kStepStartMs, kStepMs, false, closedInput));
}

} // namespace

bool LNX2Package::repairAll(bool wait) const
{
    QElapsedTimer clock;
    clock.start();
    while (isBusy()) {
        if (!wait || clock.elapsed() >= kBusyLimitMs || !GX2Workers::sleepFor(kBusyPollMs))
            return false;
    }
    for (const char* leftover : kLeftovers)
        packageRunWithin(
            {QStringLiteral("rm"), QStringLiteral("-f"), QString::fromLatin1(leftover)},
            kPackageRmMs);
    packageRunWithin({QStringLiteral("ntpdate"), ntpServer()}, kNtpMs);
    packageRunWithin({QStringLiteral("hwclock"), QStringLiteral("-w")}, kHwclockMs);
    stepRepair();
    runStep({QStringLiteral("dpkg"), QStringLiteral("--configure"), QStringLiteral("-a")});
    // Without -y apt asks before removing; a closed input makes that a no.
    runStep({QStringLiteral("apt"), QStringLiteral("autoremove")}, true);
    runStep({QStringLiteral("apt"), QStringLiteral("clean")});
    const QString sources = QString::fromLatin1(kSources);
    const QString aside = QString::fromLatin1(kSourcesAside);
    packageRunWithin({QStringLiteral("mv"), QStringLiteral("-f"), sources, aside}, kMvMs);
    runStep({QStringLiteral("apt"), QStringLiteral("update")});
    packageRunWithin({QStringLiteral("mv"), QStringLiteral("-f"), aside, sources}, kMvMs);
    runStep({QStringLiteral("apt"), QStringLiteral("update")});
    runStep({QStringLiteral("apt"), QStringLiteral("install"), QStringLiteral("-y"),
             QStringLiteral("--fix-broken")});
    runStep({QStringLiteral("apt"), QStringLiteral("install"), QStringLiteral("-y"),
             QStringLiteral("--fix-broken"), QStringLiteral("-o"),
             QString::fromLatin1(kConfMissOption)});
    return true;
}
