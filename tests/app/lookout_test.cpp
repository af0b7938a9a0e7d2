// The dashboard of the real daemon, sampled with the machine's own tools.

#include "tests/app/daemonfixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSysInfo>

#include <sys/utsname.h>

namespace {

class SystemLookoutDaemon : public DaemonTest
{
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        // The daemon reads /proc and /sys under its root, which is empty:
        // show it the machine's own (not /sys/power, which the daemon writes).
        ASSERT_TRUE(QFile::link(QStringLiteral("/proc"), path(QStringLiteral("root/proc"))));
        ASSERT_TRUE(QDir().mkpath(path(QStringLiteral("root/sys"))));
        for (const char* dir : {"class", "devices", "block"})
            ASSERT_TRUE(QFile::link(QStringLiteral("/sys/") + dir,
                                    path(QStringLiteral("root/sys/")) + dir));
        // No zfs here: a pool listing, held until released so that the first
        // cycle cannot end early.
        tool(QStringLiteral("zfs"), "#!/bin/sh\nd=\"$(dirname \"$0\")\"\nn=0\n"
                                    "while [ ! -e \"$d/release\" ] && [ $n -lt 600 ]; do "
                                    "sleep 0.05; n=$((n+1)); done\n"
                                    "printf 'tank\\t1000\\t500\\t/mnt/tank\\tyes\\n"
                                    "tank/a\\t1000\\t500\\t/mnt/tank/a\\tyes\\n'\n");
    }
};

} // namespace

TEST_F(SystemLookoutDaemon, RealToolsFillTheSnapshotWhileOthersAreServed)
{
    startDaemon();
    RawClient watcher(socketPath());
    QElapsedTimer sent;
    sent.start();
    watcher.send(QJsonObject{{"cmd", "system_lookout"}});
    RawClient other(socketPath());
    other.send(QJsonObject{{"cmd", "naslog_recent"}});
    const QJsonObject recent = other.answer(5000);
    EXPECT_TRUE(recent.value("results").toObject().value("records").isArray());
    EXPECT_TRUE(watcher.answer(1).isEmpty()) << "answered before the first cycle ended";

    write(QStringLiteral("tools/release"), "");
    const QJsonObject first = watcher.answer(20000);
    EXPECT_EQ(first.value("err").toInt(-1), 0);
    QJsonObject snapshot = first.value("results").toObject();
    if (snapshot.isEmpty()) {
        // Only a first cycle that outlasted the first answer's limit gives none.
        EXPECT_GE(sent.elapsed(), 5000);
        EXPECT_TRUE(waitUntil(
            [&] {
                watcher.send(QJsonObject{{"cmd", "system_lookout"}});
                snapshot = watcher.answer(20000).value("results").toObject();
                return !snapshot.isEmpty();
            },
            30000, 500));
    }

    EXPECT_EQ(snapshot.keys(), (QStringList{"cpu", "disk", "hostname", "kernelversion",
                                            "loadaverage", "logs", "memory", "mount", "network",
                                            "process", "status", "storage", "uptime"}));
    const QRegularExpressionMatch memTotal =
        QRegularExpression(QStringLiteral("^MemTotal:\\s+(\\d+) kB"),
                           QRegularExpression::MultilineOption)
            .match(QString::fromLatin1(readFile(QStringLiteral("/proc/meminfo"))));
    ASSERT_TRUE(memTotal.hasMatch());
    EXPECT_EQ(snapshot.value("memory").toObject().value("total").toDouble(),
              memTotal.captured(1).toDouble() * 1024);
    const QJsonValue ratio = snapshot.value("cpu").toObject().value("ratio");
    EXPECT_TRUE(ratio.isDouble() && ratio.toDouble() >= 0 && ratio.toDouble() <= 100)
        << ratio.toDouble();
    EXPECT_FALSE(snapshot.value("process").toObject().value("processes").toArray().isEmpty());
    EXPECT_EQ(snapshot.value("hostname").toString(), QSysInfo::machineHostName());
    utsname machine = {};
    ASSERT_EQ(::uname(&machine), 0);
    EXPECT_EQ(snapshot.value("kernelversion").toString(), QString::fromLatin1(machine.release));
    EXPECT_FALSE(snapshot.value("loadaverage").toString().isEmpty());
    EXPECT_EQ(snapshot.value("storage").toObject().value("vgs").toObject().value("tank"),
              (QJsonObject{{"vg", "tank"}, {"size", 1500}, {"free", 1000}}));
    // No substitutes for these: the substitute sudo ran the machine's own.
    const QByteArray sudoLog = file(QStringLiteral("tools/sudo.log"));
    for (const char* line :
         {"/usr/bin/top -Sbn1\n", "ps aux --noheading\n", "sensors -j\n", "uptime\n"})
        EXPECT_TRUE(sudoLog.contains(line)) << line;

    // A quit in the middle of the sampler's pause must not leave it behind.
    stopDaemon();
    EXPECT_FALSE(file(QStringLiteral("root/var/log/nasbrolt.log")).contains("lookout sampler"));
}
