#include "lnx2/lnx2package.h"
#include "lnx2/lnx2packageparse.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

QString fixture(const char* name)
{
    return QString::fromUtf8(readFixture(QStringLiteral("package/") + QLatin1String(name)));
}

QJsonObject entry(const QString& status, const QString& package, const QString& version)
{
    return QJsonObject{{"status", status}, {"package", package}, {"version", version}};
}

} // namespace

TEST(PackageParse, RealDpkgAptAndPsOutput)
{
    const QList<QJsonObject> host = dpkgEntriesOf(fixture("dpkg-l.txt"));
    ASSERT_EQ(host.size(), 46);
    EXPECT_EQ(host.first(), entry("ii", "adduser", "3.134"));
    // "libc6:amd64" and the like lose the architecture.
    for (const QJsonObject& e : host)
        EXPECT_FALSE(e.value("package").toString().contains(':'));

    const QList<QJsonObject> broken = dpkgEntriesOf(fixture("dpkg-l-broken.txt"));
    QStringList states;
    for (const QJsonObject& e : broken)
        states << e.value("status").toString();
    EXPECT_EQ(states, QStringList({"ii", "iF", "hi", "ii", "ii", "rc", "iHR", "pH", "iU"}));
    EXPECT_EQ(broken[6], entry("iHR", "nbt-reinst", "1.0"));
    EXPECT_TRUE(dpkgEntriesOf("ii  nothing-before-the-ruler 1\n").isEmpty());
    EXPECT_EQ(dpkgEntriesOf("+++-===\nii  a\tb 1\n").value(0), entry("ii", "a", "b"));

    const QString apt = fixture("apt-list-upgradable.txt");
    const QJsonArray upgrades = aptUpgradablesOf(apt);
    ASSERT_EQ(upgrades.size(), 119); // "Listing..." is not a package
    EXPECT_EQ(upgrades[2].toObject(),
              QJsonObject(
                  {{"package", "bash"}, {"version", "5.2.15-2+b13"}, {"current", "5.2.15-2+b8"}}));
    EXPECT_EQ(aptUpgradablesOf("zstd/stable 1.5 amd64 [upgradable_from: 1.4]\n/x y\n")[0]
                  .toObject()
                  .value("current"),
              "1.4");
    const QStringList lines = aptUpgradableLinesOf(apt);
    ASSERT_EQ(lines.size(), 119);
    EXPECT_EQ(lines[2], "bash/oldstable 5.2.15-2+b13 amd64 [upgradable from: 5.2.15-2+b8]");

    EXPECT_FALSE(packageToolRunning(fixture("ps-e.txt")));
    EXPECT_TRUE(packageToolRunning(fixture("ps-e-busy.txt")));
    EXPECT_TRUE(packageToolRunning(" 1 ?  00:00:00 /usr/bin/apt"));
    EXPECT_FALSE(packageToolRunning(" 1 ?  00:00:00 apt-get\n 2 ?  00:00:00 aptd"));
}

TEST(PackageParse, OnlyDebianNamesAreTaken)
{
    for (const char* good : {"bash", "g++", "libstdc++6:amd64", "xz-utils", "0ad", "nbt.x+y-1"})
        EXPECT_TRUE(isPackageName(good)) << good;
    for (const char* bad : {"", "a", "-x", "--purge", "a /srv b", "Bash", "x;rm", "../x", "x/y",
                            "bash:", "bash:AMD64", "bash:amd64:x", "a b", "bash\n"})
        EXPECT_FALSE(isPackageName(bad)) << bad;
}

class PackageRuns : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
        QDir(root.path()).mkpath("orvo/etc/quillo");
    }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    ScriptedBackend::Expectation& dpkgList(const char* fixtureName)
    {
        return backend.expectLine("dpkg -l --no-pager")
            .printsFile(QStringLiteral("package/") + fixtureName);
    }

    QTemporaryDir root;
    ScriptedBackend backend;
    LNX2Package package;
};

TEST_F(PackageRuns, BadNamesRunNothing)
{
    QString a;
    QString b;
    for (const char* bad : {"-x", "a /srv b", "A", "x;reboot"}) {
        EXPECT_FALSE(package.purge(bad));
        EXPECT_FALSE(package.reinstall(bad));
        EXPECT_FALSE(package.status(bad, a, b));
        EXPECT_FALSE(package.upgradable(a, b, bad));
    }
    EXPECT_EQ(package.purge(QList<QJsonObject>{entry("iF", "-o", "1"), entry("rc", "x /y", "1")}),
              0);
    EXPECT_TRUE(backend.calls().isEmpty());
}

TEST_F(PackageRuns, PurgeDropsAFailingRemovalScriptAndAptNeverAsks)
{
    backend.expectLine("dpkg -P nbt-postrm")
        .exits(1)
        .errs("dpkg: error processing package nbt-postrm (--purge):\n installed nbt-postrm "
              "package post-removal script subprocess returned error exit status 1\n");
    backend.expectLine("rm -rf /var/lib/dpkg/info/nbt-postrm.postrm");
    backend.expectLine("dpkg -P nbt-postrm");
    EXPECT_TRUE(package.purge("nbt-postrm"));
    // Any other failure is final.
    backend.expectLine("dpkg -P nbt-half").exits(1).errs("dpkg: error: something else\n");
    EXPECT_FALSE(package.purge("nbt-half"));
    backend.expect("apt", {"reinstall", "-y", "--fix-missing", "--allow-unauthenticated", "-o",
                           "Dpkg::Options::=--force-confmiss", "nbt-gone"});
    EXPECT_TRUE(package.reinstall("nbt-gone"));

    const QList<LNX2ProcRequest> calls = backend.calls();
    ASSERT_EQ(calls.size(), 5);
    for (const LNX2ProcRequest& r : calls) {
        const bool tool = r.program == "dpkg" || r.program == "apt";
        EXPECT_EQ(r.env.value("DEBIAN_FRONTEND"), tool ? "noninteractive" : "")
            << r.program.toStdString();
        EXPECT_TRUE(!tool || r.envRule == LNX2EnvRule::Set);
    }
    EXPECT_EQ(calls[0].finishMs, 900000);
    EXPECT_EQ(calls[1].finishMs, 5000);
    EXPECT_EQ(calls[4].startMs, 5000);
    EXPECT_EQ(calls[4].finishMs, 7200000);
    EXPECT_LT(calls[4].budgetSince, 0); // two hours from the start, not from the call
}

TEST_F(PackageRuns, ListingsReadDpkgAndHeldPackagesAreNotBroken)
{
    dpkgList("dpkg-l-broken.txt").repeatedly();
    QStringList broken;
    for (const QJsonObject& e : package.brokens())
        broken << e.value("package").toString();
    EXPECT_EQ(broken,
              QStringList({"nbt-half", "nbt-rc", "nbt-reinst", "nbt-stuck", "nbt-unpacked"}));
    EXPECT_EQ(package.installeds(), QStringList({"nbt-gone", "nbt-ok", "nbt-postrm"}));
    EXPECT_EQ(package.packageVersions().value(1), "nbt-ok=1.0");
    QString state;
    QString version;
    EXPECT_TRUE(package.status("nbt-held:all", state, version));
    EXPECT_EQ(state, "hi");
    EXPECT_FALSE(package.installed("nbt-held"));
    EXPECT_TRUE(package.installed("nbt-ok", &version));
    EXPECT_FALSE(package.status("nbt-none", state, version));
}

TEST_F(PackageRuns, RepairAllRunsEveryStepInOrderAndGoesOnAfterFailures)
{
    QFile config(root.filePath("orvo/etc/quillo/nasbrolt.json"));
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write(R"({"ntpserver": " ntp.example.org "})");
    config.close();

    // Busy: without wait nothing else runs.
    backend.expectLine("ps -e").printsFile("package/ps-e-busy.txt");
    EXPECT_FALSE(package.repairAll(false));
    EXPECT_EQ(backend.callLines(), QStringList({"ps -e"}));

    backend.expectLine("ps -e").printsFile("package/ps-e-busy.txt");
    backend.expectLine("ps -e").printsFile("package/ps-e.txt");
    backend.expectLine("ntpdate ntp.example.org").exits(1); // no network: goes on
    dpkgList("dpkg-l-broken.txt");
    for (const char* name : {"nbt-half", "nbt-rc", "nbt-reinst", "nbt-stuck", "nbt-unpacked"})
        backend.expectLine(QStringLiteral("dpkg -P ") + name).exits(1);
    dpkgList("dpkg-l-broken.txt");
    dpkgList("dpkg-l.txt");
    backend.allowOthers();
    EXPECT_TRUE(package.repairAll(true));

    QStringList lines = backend.callLines().mid(1);
    EXPECT_EQ(lines.filter("apt reinstall").size(), 5);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const QString& l) {
                                   return l.startsWith("dpkg -P") || l.startsWith("apt reinstall");
                               }),
                lines.end());
    EXPECT_EQ(lines, QStringList({
                         "ps -e",
                         "ps -e",
                         "rm -f /var/lib/dpkg/lock-frontend",
                         "rm -f /var/lib/dpkg/lock",
                         "rm -f /var/cache/apt/archives/*.deb",
                         "rm -f /var/lib/dpkg/updates/*",
                         "ntpdate ntp.example.org",
                         "hwclock -w",
                         "dpkg -l --no-pager",
                         "dpkg -l --no-pager",
                         "dpkg -l --no-pager",
                         "dpkg --configure -a",
                         "apt autoremove",
                         "apt clean",
                         "mv -f /etc/apt/sources.list /etc/apt/sources.list.kvo",
                         "apt update",
                         "mv -f /etc/apt/sources.list.kvo /etc/apt/sources.list",
                         "apt update",
                         "apt install -y --fix-broken",
                         "apt install -y --fix-broken -o Dpkg::Options::=--force-confmiss",
                     }));
    for (const LNX2ProcRequest& r : backend.calls()) {
        const QString line = ScriptedBackend::lineOf(r);
        EXPECT_EQ(r.closedInput, line == "apt autoremove") << line.toStdString();
        if (line.startsWith("apt ") && !line.startsWith("apt reinstall")) {
            EXPECT_EQ(r.startMs, 30000) << line.toStdString();
            EXPECT_EQ(r.finishMs, 900000) << line.toStdString();
        }
    }
}

TEST_F(PackageRuns, NtpServerFallsBackToThePool)
{
    EXPECT_EQ(LNX2Package::ntpServer(), "pool.ntp.org"); // no configuration file
    QFile config(root.filePath("orvo/etc/quillo/nasbrolt.json"));
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write(R"({"ntpserver": "-q"})");
    config.close();
    EXPECT_EQ(LNX2Package::ntpServer(), "pool.ntp.org");
}
