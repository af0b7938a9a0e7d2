#include "vx/systeminfo.h"
#include "vx/vxcpu.h"
#include "vx/vxhardware.h"
#include "vx/vxhealthparse.h"
#include "vx/vxnetwork.h"
#include "vx/vxsysparse.h"
#include "vx/vxsystem.h"

#include "gx2/gx2file.h"
#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

QString hostOutput(const QString& name)
{
    return QString::fromUtf8(readToolOutput(QStringLiteral("system/host/") + name));
}

// The recorded top with its "%Cpu(s):" line replaced.
QString topWithCpuLine(const QString& line)
{
    QStringList lines = hostOutput("top-Sbn1.txt").split('\n');
    lines[2] = line;
    return lines.join('\n');
}

QString psLine(const QString& cpu, const QString& command)
{
    return "root      4242 " + cpu + "  0.1  10052  4312 ?        S    10:00   0:00 " + command;
}

} // namespace

TEST(SystemParse, TopIsReadByLabel)
{
    const QString top = hostOutput("top-Sbn1.txt");
    EXPECT_EQ(
        topCpuOf(top),
        (QJsonObject{{"us", 50.0}, {"sy", 50.0}, {"ni", 0.0}, {"id", 0.0}, {"ratio", 100.0}}));
    EXPECT_EQ(topTasksOf(top), (QJsonObject{{"time", "22:33:17"},
                                            {"total", 80},
                                            {"running", 1},
                                            {"sleeping", 79},
                                            {"stoped", 0},
                                            {"zombie", 0}}));

    // A full column glues the figure to the label or comma in front of it.
    const QJsonObject busy = topCpuOf(topWithCpuLine(
        "%Cpu(s):100.0 us,  0.0 sy,  0.0 ni,  0.0 id,  0.0 wa,  0.0 hi,  0.0 si,  0.0 st"));
    EXPECT_EQ(std::make_pair(busy.value("us").toDouble(), busy.value("ratio").toDouble()),
              std::make_pair(100.0, 100.0));
    const QJsonObject idle = topCpuOf(topWithCpuLine(
        "%Cpu(s):  0.0 us,  0.0 sy,  0.0 ni,100.0 id,  0.0 wa,  0.0 hi,  0.0 si,  0.0 st"));
    EXPECT_EQ(std::make_pair(idle.value("id").toDouble(), idle.value("ratio").toDouble()),
              std::make_pair(100.0, 0.0));
    // us + sy + ni, capped at 100, two decimals.
    EXPECT_EQ(
        topCpuOf(topWithCpuLine("%Cpu(s): 50.0 us, 45.0 sy, 10.0 ni,  0.0 id")).value("ratio"),
        100.0);
    EXPECT_EQ(
        topCpuOf(topWithCpuLine("%Cpu(s): 12.5 us,  3.25 sy,  0.104 ni, 84.1 id")).value("ratio"),
        15.85);
    EXPECT_EQ(topCpuOf("top - 10:00:00 up 1 min\n%Cpu(s): 1.0 us\n"), QJsonObject());
}

TEST(SystemParse, PsListsEveryProcessBusiestFirst)
{
    const QJsonArray all = psProcessesOf(hostOutput("ps-aux.txt"));
    // 65 recorded lines less the listing's own.
    ASSERT_EQ(all.size(), 64);
    // The qemu line's wide VSZ and RSS shift its columns.
    EXPECT_EQ(all.first().toObject(), (QJsonObject{{"user", "root"},
                                                   {"pid", "6438"},
                                                   {"cpu", "145"},
                                                   {"mem", "6.4"},
                                                   {"command", all.first()["command"]}}));
    EXPECT_TRUE(all.first()["command"].toString().startsWith("qemu-system-x86_64 -accel tcg"));
    QStringList commands;
    for (int i = 0; i < all.size(); ++i) {
        commands << all.at(i)["command"].toString();
        if (i > 0) {
            EXPECT_GE(all.at(i - 1)["cpu"].toString().toDouble(),
                      all.at(i)["cpu"].toString().toDouble());
        }
    }
    EXPECT_TRUE(commands.contains("kthreadd"));
    EXPECT_TRUE(commands.contains("sudo ps aux --noheading"));
    EXPECT_FALSE(commands.contains("ps aux --noheading"));

    const QJsonArray written = psProcessesOf(
        psLine("0.0", "/bin/sh -c echo -e s3cr@t | cryptsetup luksOpen /dev/md1 vg1-data_crypt") +
        "\n" + psLine("2.5", "/bin/sh -c echo -e hello  world") + "\n" +
        psLine("10.0", "(sd-pam)") + "\nroot 1 0.0 0.0 0 0 ? S 10:00\n");
    QStringList writtenCommands;
    for (const QJsonValue& row : written)
        writtenCommands << row["command"].toString();
    EXPECT_EQ(writtenCommands,
              (QStringList{"sd-pam", "/bin/sh -c echo -e hello  world",
                           "/bin/sh -c echo -e ****** | cryptsetup luksOpen /dev/md1 "
                           "vg1-data_crypt"}));
}

TEST(SystemParse, SensorsMemoryAndFacts)
{
    const QString written =
        QString::fromUtf8(readToolOutput("system/host/sensors-j-coretemp-written.json"));
    EXPECT_EQ(coreTemperatureOf(written), 52.5);
    EXPECT_EQ(coreTemperatureOf(hostOutput("sensors-j.json")), 0);
    EXPECT_EQ(coreTemperatureOf("No sensors found!"), 0);
    EXPECT_EQ(std::make_pair(fahrenheitOf(40), fahrenheitOf(36.66)), std::make_pair(104.0, 97.99));

    const QJsonObject memory = meminfoOf("MemTotal:  8000000 kB\nMemFree: 1000000 kB\n"
                                         "MemAvailable: 2000000 kB\nCached: 3 kB\nSwapCached: 5 "
                                         "kB\nSwapTotal: 1000 kB\nSwapFree: 250 kB\nBogus\n");
    EXPECT_EQ(memory, (QJsonObject{{"total", 8000000.0 * 1024},
                                   {"free", 1000000.0 * 1024},
                                   {"available", 2000000.0 * 1024},
                                   {"cached", 3 * 1024},
                                   {"swapcached", 5 * 1024},
                                   {"swaptotal", 1000 * 1024},
                                   {"swapfree", 250 * 1024},
                                   {"memuserate", 75},
                                   {"swapuserate", 75}}));
    const QJsonObject host = meminfoOf(hostOutput("meminfo.txt"));
    EXPECT_EQ(std::make_tuple(host["total"].toDouble(), host["swaptotal"].toDouble(),
                              host["swapuserate"].toInt(), host["memuserate"].toInt()),
              std::make_tuple(24684092.0 * 1024, 0.0, 0, 8));
    EXPECT_EQ(meminfoOf("").value("memuserate"), 0);

    EXPECT_EQ(uptimeOf(90061),
              (QJsonObject{
                  {"duration", 90061}, {"days", 1}, {"hours", 1}, {"minutes", 1}, {"seconds", 1}}));
    EXPECT_EQ(loadAverageOf(hostOutput("uptime.txt")), "3.78, 2.84, 2.14");
    EXPECT_EQ(loadAverageOf("no figures"), "");
    EXPECT_EQ(kernelVersionOf(hostOutput("version.txt")), "6.18.44-fc-v657");
    EXPECT_EQ(kernelVersionOf("Linux version"), "");

    const QJsonObject blocks =
        blkidBlocksOf(QString::fromUtf8(readFixture("storage/health/nvme/blkid-o-export.txt")));
    EXPECT_EQ(blocks.keys(), (QStringList{"/dev/nvme0n1p1", "/dev/nvme1n1p1", "/dev/nvme2n1"}));
    EXPECT_EQ(blocks["/dev/nvme1n1p1"].toObject()["PARTUUID"], "77d36d21-01");
    EXPECT_EQ(blkidBlocksOf(hostOutput("blkid-export.txt")), QJsonObject());
}

// The same readers on what a bare guest prints: Debian's own kernel, no
// sensors, no swap, no physical interface, qemu's SMBIOS.
TEST(SystemParse, GuestOutputs)
{
    const auto guest = [](const QString& name) {
        return QString::fromUtf8(readToolOutput(QStringLiteral("system/guest/") + name));
    };
    const QJsonObject cpu = topCpuOf(guest("top-Sbn1.txt"));
    EXPECT_EQ(std::make_tuple(cpu["us"].toDouble(), cpu["sy"].toDouble(), cpu["id"].toDouble(),
                              cpu["ratio"].toDouble()),
              std::make_tuple(23.1, 26.9, 46.2, 50.0));
    EXPECT_EQ(topTasksOf(guest("top-Sbn1.txt"))["total"], 66);

    const QJsonArray processes = psProcessesOf(guest("ps-aux.txt"));
    QStringList commands;
    for (const QJsonValue& row : processes)
        commands << row["command"].toString();
    // 66 recorded lines less the listing's own; brackets of kernel threads dropped.
    EXPECT_EQ(processes.size(), 65);
    EXPECT_EQ(processes.first()["command"], "/bin/bash /nbguest/run.sh");
    EXPECT_TRUE(commands.contains("kthreadd"));

    EXPECT_EQ(coreTemperatureOf(guest("sensors-j.json")), 0);
    const QJsonObject memory = meminfoOf(guest("meminfo.txt"));
    EXPECT_EQ(std::make_pair(memory["total"].toDouble(), memory["swapuserate"].toInt()),
              std::make_pair(983624.0 * 1024, 0));
    qint64 readall = -1;
    qint64 writeall = -1;
    EXPECT_EQ(netSpeedsOf(guest("net-dev.txt"), {}, {}, 2000, readall, writeall), QJsonObject());
    QJsonObject io;
    EXPECT_TRUE(totalSpeedOf(io, guest("iotop.txt")));
    EXPECT_EQ(io, (QJsonObject{{"read_speed", 0}, {"write_speed", 0}}));

    const QJsonObject dmi = dmiSystemOf(guest("dmidecode-type1.txt"), {"KA200", "KB201P"});
    EXPECT_EQ(std::make_tuple(dmi["manufacturer"].toString(), dmi["model"].toString(),
                              dmi["sn"].toString()),
              std::make_tuple(QString("QEMU"), QString("Standard PC (Q35 + ICH9, 2009)"),
                              QString("Not Specified")));
    EXPECT_EQ(loadAverageOf(guest("uptime.txt")), "0.44, 0.10, 0.03");
    EXPECT_EQ(kernelVersionOf(guest("version.txt")), "6.1.0-56-amd64");
}

TEST(SystemParse, ModelIsATableKeyStandingAsAWord)
{
    const QStringList models{"KA200", "KB201P", "KB401P", "KB801P"};
    EXPECT_EQ(modelOf("Orvo KB401P-2 NAS", models), "KB401P");
    EXPECT_EQ(modelOf(" KB401PX ", models), "KB401PX");
    EXPECT_EQ(modelOf("XKA200", models), "XKA200");
    EXPECT_EQ(dmiSystemOf("System Information\n\tManufacturer: Orvo\n\tProduct Name: KB201P\n"
                          "\tSerial Number: None\n",
                          models),
              (QJsonObject{{"manufacturer", "Orvo"}, {"product", "KB201P"}, {"model", "KB201P"}}));
    EXPECT_EQ(dmiSystemOf(hostOutput("dmidecode-type1.txt"), models),
              (QJsonObject{{"model", "(Unknown)"}}));
}

TEST(SystemNetwork, SpeedsFollowTheCountersOfPhysicalInterfaces)
{
    // Rates from deltas over the elapsed time; a counter that went back gives 0.
    const QString header = "Inter-|\n face |\n";
    qint64 readall = -1, writeall = -1;
    const QJsonObject previous{{"eth0", QJsonObject{{"read_bytes", 1000}, {"write_bytes", 900}}}};
    const QJsonObject rates =
        netSpeedsOf(header + "  eth0: 5000 1 0 0 0 0 0 0 300 1 0 0 0 0 0 0\n"
                             "  eth1: 8000 1 0 0 0 0 0 0 800 1 0 0 0 0 0 0\n    lo: 1 2 3\n",
                    {"eth0", "eth1", "lo"}, previous, 2000, readall, writeall);
    EXPECT_EQ(rates, (QJsonObject{{"eth0", QJsonObject{{"nic", "eth0"},
                                                       {"read_bytes", 5000},
                                                       {"write_bytes", 300},
                                                       {"read_speed", 2000},
                                                       {"write_speed", 0}}},
                                  {"eth1", QJsonObject{{"nic", "eth1"},
                                                       {"read_bytes", 8000},
                                                       {"write_bytes", 800},
                                                       {"read_speed", 0},
                                                       {"write_speed", 0}}}}));
    EXPECT_EQ(std::make_pair(readall, writeall), std::make_pair(qint64(2000), qint64(0)));

    QTemporaryDir root;
    for (const char* dir :
         {"sys/class/net/eth0", "sys/class/net/lo", "sys/class/net/br0", "sys/class/net/enp2s0",
          "sys/devices/virtual/net/lo", "sys/devices/virtual/net/br0"})
        ASSERT_TRUE(QDir(root.path()).mkpath(dir));
    const auto counters = [&](qint64 eth0, qint64 enp) {
        // The recorded headers and loopback line, then the written interfaces.
        const QString netDev =
            QString::fromUtf8(readToolOutput("system/host/net-dev.txt")).section('\n', 0, 2) + '\n';
        GX2File::saveText(netDev + QString("    br0: 7 0 0 0 0 0 0 0 7 0 0 0 0 0 0 0\n"
                                           "  eth0: %1 0 0 0 0 0 0 0 %2 0 0 0 0 0 0 0\n"
                                           "enp2s0: %3 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n")
                                       .arg(eth0)
                                       .arg(eth0 / 2)
                                       .arg(enp),
                          root.path() + "/proc/net/dev");
    };
    qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
    EXPECT_EQ(VXNetwork::physicalNics(), (QStringList{"enp2s0", "eth0"}));

    VXNetwork network;
    QJsonObject nics;
    QElapsedTimer outer;
    counters(1000000, 50);
    outer.start();
    network.speeds(nics, readall, writeall);
    const qint64 afterFirst = outer.elapsed();
    const QJsonObject first = nics;
    EXPECT_EQ(first.keys(), (QStringList{"enp2s0", "eth0"}));
    EXPECT_EQ(std::make_tuple(first["eth0"]["read_bytes"].toInt(),
                              first["eth0"]["read_speed"].toInt(), readall, writeall),
              std::make_tuple(1000000, 0, qint64(0), qint64(0)));

    counters(1600000, 50);
    QThread::msleep(100);
    network.speeds(nics, readall, writeall);
    EXPECT_EQ(nics, first);

    QThread::msleep(600);
    const qint64 beforeThird = outer.elapsed();
    network.speeds(nics, readall, writeall);
    const qint64 afterThird = outer.elapsed();
    qunsetenv("NASBROLT_ROOT");
    // The object's own interval lies between the two outer measurements.
    const QJsonObject& third = nics;
    const qint64 rate = third["eth0"]["read_speed"].toInt();
    EXPECT_GE(rate, 600000 * 1000 / afterThird);
    EXPECT_LE(rate, 600000 * 1000 / (beforeThird - afterFirst));
    // Both rates over the same interval.
    EXPECT_NEAR(third["eth0"]["write_speed"].toDouble() * 2, rate, 2);
    EXPECT_EQ(std::make_tuple(third["enp2s0"]["read_speed"].toInt(), readall),
              std::make_tuple(0, rate));
}

TEST(SystemCommands, RunTheToolsWithTheirCommandLines)
{
    ScriptedBackend tools;
    tools.expectLine("/usr/bin/sudo /usr/bin/top -Sbn1")
        .prints(readToolOutput("system/host/top-Sbn1.txt"));
    tools.expectLine("/usr/bin/sudo ps aux --noheading")
        .prints(readToolOutput("system/host/ps-aux.txt"));
    tools.expectLine("/usr/bin/sudo sensors -j")
        .prints(readToolOutput("system/host/sensors-j-coretemp-written.json"));
    QJsonObject cpu{{"kept", 1}};
    QJsonObject process;
    VXCpu::cpuProcessing(cpu, process);
    EXPECT_EQ(std::make_tuple(cpu["ratio"].toDouble(), cpu["temperature"].toDouble(),
                              cpu["fahrenheit"].toDouble(), cpu["kept"].toInt()),
              std::make_tuple(100.0, 52.5, 126.5, 1));
    EXPECT_EQ(std::make_pair(process["total"].toInt(), process["processes"].toArray().size()),
              std::make_pair(80, 64));

    tools.expectLine("/usr/bin/sudo uptime").prints(readToolOutput("system/host/uptime.txt"));
    EXPECT_EQ(VXSystem::loadAverage(), "3.78, 2.84, 2.14");
    tools.expectLine("/usr/bin/sudo blkid -o export")
        .prints(readFixture("storage/health/nvme/blkid-o-export.txt"));
    EXPECT_EQ(VXHardware().blockDevices().size(), 3);
    EXPECT_EQ(std::make_pair(tools.calls().last().startMs, tools.calls().last().finishMs),
              std::make_pair(999, 10000));

    tools.expectLine("dmidecode --type 1").prints("\tProduct Name: Orvo KB801P\n");
    tools.expectLine("uname -a").prints("Linux nas1 6.1.0-18-amd64 x86_64 GNU/Linux\n");
    tools.expectLine("/bin/hostname").prints("nas1\n").repeatedly();
    const QJsonObject info = SystemInfo().allInfo();
    EXPECT_EQ(std::make_tuple(info["machine"]["model"].toString(),
                              info["optional"]["energy "].toInt(), info["optional"]["fans"].toInt(),
                              info["kernel"]["name"].toString(), info["hostname"].toString()),
              std::make_tuple(QString("KB801P"), 250, 2,
                              QString("Linux nas1 6.1.0-18-amd64 x86_64 GNU/Linux"),
                              QString("nas1")));

    // Failing tools: nothing filled, no capability row.
    tools.expectLine("/usr/bin/sudo /usr/bin/top -Sbn1").failsToStart();
    QJsonObject untouched;
    VXCpu::cpuProcessing(untouched, process);
    EXPECT_EQ(untouched, QJsonObject());
    tools.expectLine("dmidecode --type 1").exits(1).prints("# dmidecode 3.4\n");
    tools.expectLine("uname -a").exits(1);
    const QJsonObject unknown = SystemInfo().allInfo();
    EXPECT_EQ(std::make_pair(unknown["machine"]["model"].toString(), unknown.contains("optional")),
              std::make_pair(QString("(Unknown)"), false));
}
