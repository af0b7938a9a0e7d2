#include "lnx2/lnx2package.h"

#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2package_p.h"
#include "lnx2/lnx2packageparse.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace {

constexpr int kPsMs = 9999;
constexpr int kListMs = 30000;
constexpr int kPurgeMs = 900000;
constexpr int kReinstallStartMs = 5000;
constexpr int kReinstallMs = 7200000;
constexpr int kAutoRemoveMs = 900000;

const char kDefaultNtpServer[] = "pool.ntp.org";

QString textOf(const LNX2ProcResult& result)
{
    return result.started ? cmdText(result.ok() ? result.out : result.err) : QString();
}

QList<QJsonObject> dpkgEntries()
{
    return dpkgEntriesOf(textOf(packageRunWithin(
        {QStringLiteral("dpkg"), QStringLiteral("-l"), QStringLiteral("--no-pager")}, kListMs)));
}

// The entry of name (":arch" ignored), or an empty object.
QJsonObject entryOf(const QString& name)
{
    const QString bare = name.section(QLatin1Char(':'), 0, 0);
    for (const QJsonObject& entry : dpkgEntries()) {
        if (entry.value(QStringLiteral("package")).toString() == bare)
            return entry;
    }
    return {};
}

QString statusOf(const QJsonObject& entry)
{
    return entry.value(QStringLiteral("status")).toString();
}

QString nameOf(const QJsonObject& entry)
{
    return entry.value(QStringLiteral("package")).toString();
}

} // namespace

LNX2ProcRequest packageRequest(const QStringList& words, int startMs, int finishMs,
                               bool sharedBudget, bool closedInput)
{
    LNX2ProcRequest request;
    request.program = words.value(0);
    request.arguments = words.mid(1);
    const QString name = QFileInfo(request.program).fileName();
    if (name == QLatin1String("apt") || name == QLatin1String("dpkg")) {
        request.env.insert(QStringLiteral("DEBIAN_FRONTEND"), QStringLiteral("noninteractive"));
        request.envRule = LNX2EnvRule::Set;
    }
    request.startMs = startMs;
    request.finishMs = finishMs;
    request.budgetSince = sharedBudget ? procClockMs() : -1;
    request.closedInput = closedInput;
    return request;
}

LNX2ProcResult packageRunWithin(const QStringList& words, int limitMs)
{
    return procRun(packageRequest(words, limitMs, limitMs, true));
}

bool LNX2Package::isBusy() const
{
    QString out;
    cmdExec(QStringLiteral("ps -e"), out, kPsMs);
    return packageToolRunning(out);
}

QList<QJsonObject> LNX2Package::packages() const
{
    return dpkgEntries();
}

QStringList LNX2Package::installeds() const
{
    QStringList names;
    for (const QJsonObject& entry : dpkgEntries()) {
        if (statusOf(entry) == QLatin1String("ii"))
            names << nameOf(entry);
    }
    return names;
}

QStringList LNX2Package::packageVersions() const
{
    QStringList versions;
    for (const QJsonObject& entry : dpkgEntries()) {
        if (statusOf(entry) == QLatin1String("ii"))
            versions << nameOf(entry) + QLatin1Char('=') +
                            entry.value(QStringLiteral("version")).toString();
    }
    return versions;
}

bool LNX2Package::installed(const QString& name, QString* version) const
{
    QString state;
    QString found;
    if (!status(name, state, found) || state != QLatin1String("ii"))
        return false;
    if (version)
        *version = found;
    return true;
}

bool LNX2Package::status(const QString& name, QString& state, QString& version) const
{
    if (!isPackageName(name))
        return false;
    const QJsonObject entry = entryOf(name);
    if (entry.isEmpty())
        return false;
    state = statusOf(entry);
    version = entry.value(QStringLiteral("version")).toString();
    return true;
}

QList<QJsonObject> LNX2Package::brokens() const
{
    QList<QJsonObject> broken;
    for (const QJsonObject& entry : dpkgEntries()) {
        // A package on hold is the administrator's choice, not damage.
        const QString state = statusOf(entry);
        if (state != QLatin1String("ii") && state != QLatin1String("hi"))
            broken << entry;
    }
    return broken;
}

QStringList LNX2Package::upgradables() const
{
    return aptUpgradableLinesOf(textOf(packageRunWithin(
        {QStringLiteral("apt"), QStringLiteral("list"), QStringLiteral("--upgradable")}, kListMs)));
}

bool LNX2Package::upgradables(QJsonArray& list) const
{
    const LNX2ProcResult result = packageRunWithin(
        {QStringLiteral("apt"), QStringLiteral("list"), QStringLiteral("--upgradeable")}, kListMs);
    list = result.ok() ? aptUpgradablesOf(cmdText(result.out)) : QJsonArray();
    return result.ok();
}

bool LNX2Package::upgradable(QString& version, QString& current, const QString& name) const
{
    if (!isPackageName(name))
        return false;
    QJsonArray list;
    upgradables(list);
    for (const QJsonValue& value : qAsConst(list)) {
        const QJsonObject entry = value.toObject();
        if (nameOf(entry) != name)
            continue;
        version = entry.value(QStringLiteral("version")).toString();
        current = entry.value(QStringLiteral("current")).toString();
        return true;
    }
    return false;
}

bool LNX2Package::purge(const QString& name) const
{
    if (!isPackageName(name))
        return false;
    const QStringList purgeLine{QStringLiteral("dpkg"), QStringLiteral("-P"), name};
    const LNX2ProcResult first = packageRunWithin(purgeLine, kPurgeMs);
    if (!(first.out + first.err).contains(" post-removal "))
        return first.ok();
    // The package's removal script fails: without it dpkg can finish.
    packageRunWithin({QStringLiteral("rm"), QStringLiteral("-rf"),
                      QStringLiteral("/var/lib/dpkg/info/") + name + QStringLiteral(".postrm")},
                     kPackageRmMs);
    return packageRunWithin(purgeLine, kPurgeMs).ok();
}

int LNX2Package::purge(const QList<QJsonObject>& list) const
{
    int done = 0;
    for (const QJsonObject& entry : list)
        done += purge(nameOf(entry)) ? 1 : 0;
    return done;
}

bool LNX2Package::reinstall(const QString& name) const
{
    if (!isPackageName(name))
        return false;
    return procRun(packageRequest({QStringLiteral("apt"), QStringLiteral("reinstall"),
                                   QStringLiteral("-y"), QStringLiteral("--fix-missing"),
                                   QStringLiteral("--allow-unauthenticated"), QStringLiteral("-o"),
                                   QString::fromLatin1(kConfMissOption), name},
                                  kReinstallStartMs, kReinstallMs, false))
        .ok();
}

int LNX2Package::reinstall(const QList<QJsonObject>& list) const
{
    int done = 0;
    for (const QJsonObject& entry : list)
        done += reinstall(nameOf(entry)) ? 1 : 0;
    return done;
}

bool LNX2Package::stepAutoRemove() const
{
    return packageRunWithin(
               {QStringLiteral("apt"), QStringLiteral("autoremove"), QStringLiteral("-y")},
               kAutoRemoveMs)
        .ok();
}

int LNX2Package::stepPurges() const
{
    return purge(brokens());
}

bool LNX2Package::stepRepair() const
{
    stepPurges();
    QList<QJsonObject> broken = brokens();
    if (broken.isEmpty())
        return true;
    reinstall(broken);
    return brokens().isEmpty();
}

QString LNX2Package::ntpServer()
{
    const QJsonObject config = GX2File::readJsonObject(
        sysPath(QString::fromLatin1(kConfigDirPath) + QStringLiteral("/nasbrolt.json")));
    const QString server = config.value(QStringLiteral("ntpserver")).toString().trimmed();
    // A host name or address; anything else (an option, say) is not passed on.
    static const QRegularExpression host(QStringLiteral("\\A[A-Za-z0-9_][A-Za-z0-9_.:-]*\\z"));
    return host.match(server).hasMatch() ? server : QString::fromLatin1(kDefaultNtpServer);
}
