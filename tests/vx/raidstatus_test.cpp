#include "vx/vxraid.h"
#include "vx/vxraid_p.h"
#include "vx/vxraidparse.h"

#include "gx2/gx2utils.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QString tool(const QString& relative)
{
    return QString::fromUtf8(readToolOutput(relative));
}

// The record, {} when the output was refused.
QJsonObject parse(const QString& output, const QString& md, const RaidLookups& lookups = {},
                  const QJsonObject* inventory = nullptr)
{
    QJsonObject record;
    return raidDetailOf(record, output, md, inventory, lookups) ? record : QJsonObject();
}

QString rows(const QJsonValue& array)
{
    QStringList lines;
    for (const QJsonValue& m : array.toArray())
        lines << QStringList{m["part"].toString(), m["number"].toString(), m["member"].toString(),
                             m["state"].toString()}
                     .join(',');
    return lines.join(';');
}

// level|active|array_size|used_size|ctime|name|states|members|spares
QString summary(const QJsonObject& r)
{
    const QJsonValue a = r["attributes"];
    return QStringList{QString::number(r["level"].toInt()),
                       QString::number(r["active"].toInt()),
                       QString::number(a["array_size"].toDouble(), 'f', 0),
                       QString::number(a["used_size"].toDouble(), 'f', 0),
                       a["ctime"].toString(),
                       a["name"].toString(),
                       jsonToString(a["states"]),
                       rows(r["members"]),
                       rows(r["spares"])}
        .join('|');
}

const QString kDetail = QStringLiteral("/usr/bin/sudo mdadm -D ");

} // namespace

// Every state recorded on the guests.
TEST(RaidStatus, DetailOfEveryRecordedState)
{
    const QString d = "storage/virtio/mdadm-D-";
    const QString md0 = "1|1|535822336|535822336|2026-11-21 10:08:44|vmguest|";
    const QString vda = "/dev/vda,0,0,active sync;";
    EXPECT_EQ(summary(parse(tool(d + "md0-raid1.txt"), "/dev/md0")),
              md0 + R"(["clean"]|)" + vda + "/dev/vdb,1,1,active sync|");
    // The "removed" slot has no device; the faulty one stays a member.
    EXPECT_EQ(summary(parse(tool(d + "md0-degraded.txt"), "/dev/md0")),
              md0 + R"(["clean","degraded"]|)" + vda + "/dev/vdb,1,-,faulty|");
    EXPECT_EQ(summary(parse(tool(d + "md0-recovering.txt"), "/dev/md0")),
              md0 + R"(["clean","degraded","recovering"]|)" + vda +
                  "/dev/vdb,2,1,spare rebuilding|");
    EXPECT_EQ(summary(parse(tool(d + "md0-recovered.txt"), "/dev/md0")),
              md0 + R"(["clean"]|)" + vda + "/dev/vdb,2,1,active sync|");
    const QJsonObject raid5 = parse(tool(d + "md1-raid5.txt"), "/dev/md1");
    EXPECT_EQ(summary(raid5), R"(5|1|1069547520|534773760|2026-11-21 10:08:45|vmguest|["clean"]|)"
                              "/dev/vdc,0,0,active sync;/dev/vdd,1,1,active sync;"
                              "/dev/vde,3,2,active sync|");
    EXPECT_EQ(raid5["attributes"]["chunk_size"].toString(), "512K");
    EXPECT_EQ(raid5["attributes"]["utime"].toString(), "2026-11-21 10:08:56");
    EXPECT_EQ(raid5["attributes"]["total_disks"].toInt(), 3);
    EXPECT_TRUE(parse(tool(d + "md1-raid5.txt"), "/dev/md0").isEmpty());
    EXPECT_TRUE(summary(parse(tool("storage/virtio-systemd/mdadm-D-md1-raid5.txt"), "/dev/md1"))
                    .contains(R"(|vm|["clean"]|)"));

    EXPECT_EQ(jsonToString(raidStatusOf(parse(tool(d + "md0-degraded.txt"), "/dev/md0"), false)),
              R"({"//sync":"deprecated: -> synching","faulty":1,"sync":1,"synching":1,"used":0})");
    EXPECT_EQ(raidStatusOf(parse(tool(d + "md0-recovered.txt"), "/dev/md0"), 1)["synching"], 0);
    const QString resync = tool(d + "md1-resyncing.txt");
    EXPECT_TRUE(raidRemodelingOf(resync));
    EXPECT_EQ(jsonToString(raidProgressOf(resync)),
              R"({"percent":"6%","rebuild_percent":"6%","state":"clean, degraded, recovering",)"
              R"("states":["clean","degraded","recovering"],"synching":1})");
    EXPECT_FALSE(raidRemodelingOf(tool("storage/virtio-systemd/mdadm-D-md1-resyncing.txt")));
}

// Level 0 and linear arrays, a spare, a padded date, a failed array, a named
// array, several status lines, an unknown line and an inventory.
TEST(RaidStatus, DetailOfHandWrittenOutput)
{
    QString out = "/dev/md/store:\n"
                  "     Creation Time : Sun Nov  1 09:05:03 2026\n"
                  "        Raid Level : raid0\n"
                  "        Array Size : 1953382400 (1862.89 GiB 2000.26 GB)\n"
                  "      Raid Devices : 4\n"
                  "             State : clean, FAILED \n"
                  "              Name : box:0  (local to host box)\n"
                  "    Reshape Status : 12% complete\n"
                  "     Resync Status : 45% complete\n"
                  "      Future Field : 1\n"
                  "    Number   Major   Minor   RaidDevice State\n"
                  "       0       8        1        0      active sync   /dev/sda1\n"
                  "       1       8       17        -      spare   /dev/sdb1\n";
    const QJsonObject inventory{{"/dev/sda", QJsonObject{{"capacity", 4000}, {"inuse", "raid"}}},
                                {"/dev/sdb", QJsonObject{{"capacity", 5000}, {"kind", 2}}}};
    const RaidLookups lookups{
        [](const QString& part) { return part.chopped(1); },
        [](const QString& md) { return md == "/dev/md/store" ? QString("/dev/md127") : md; }};
    const QJsonObject r = parse(out, "/dev/md127", lookups, &inventory);
    EXPECT_EQ(summary(r), R"(0|0|2000263577600|500065894400|2026-11-01 09:05:03|box|)"
                          R"(["clean","FAILED"]|/dev/sda1,0,0,active sync|/dev/sdb1,1,-,)");
    EXPECT_EQ(r["attributes"].toObject().size(), 10);
    EXPECT_FALSE(parse(out, "/dev/md/store", lookups).isEmpty()); // both sides resolved
    EXPECT_EQ(r["attributes"]["resync_percent"].toString(), "45%");
    const QJsonValue member = r["members"][0];
    EXPECT_EQ(member["dev"].toString(), "/dev/sda");
    EXPECT_EQ(member["bytes"].toInt() + member["used"].toInt(), 4001);
    const QJsonValue spare = r["spares"][0];
    EXPECT_EQ(spare["capacity"].toInt() + spare["kind"].toInt() + spare["used"].toInt(), 5002);
    // With several status lines the first decides.
    EXPECT_EQ(raidProgressOf(out)["percent"].toString(), "12%");
    EXPECT_FALSE(raidProgressOf(out).contains("resync_percent"));

    out.replace("raid0", "linear").replace("clean, FAILED", "clean");
    EXPECT_TRUE(summary(parse(out, "/dev/md/store")).startsWith("0|1|2000263577600|500065894400|"));
    EXPECT_EQ(raidTimeOf("yesterday"), "");
}

TEST(RaidStatus, MdstatListsAndFold)
{
    EXPECT_EQ(mdstatNames(tool("storage/virtio/mdstat.txt")),
              QStringList({"/dev/md1", "/dev/md0"}));
    EXPECT_TRUE(mdstatNames(tool("storage/virtio/mdstat-empty.txt")).isEmpty());
    EXPECT_EQ(jsonToString(mdstatQuickList(tool("storage/virtio/mdstat-degraded.txt"))[1]),
              R"({"abnormals":[],"active":1,"dev":"/dev/md0","level":1,"members":["vda","vdb"]})");
    EXPECT_EQ(jsonToString(mdstatQuickList("md2 : active (auto-read-only) raid10 sdd1[3] sdc1[2]\n"
                                           "md127 : inactive sdb1[1](S) sda1[0](S)\n")),
              R"j([{"abnormals":["(auto-read-only)"],"active":1,"dev":"/dev/md2","level":10,)j"
              R"j("members":["sdc1","sdd1"]},{"abnormals":[],"active":0,"dev":"/dev/md127",)j"
              R"j("level":-1,"members":["sda1","sdb1"]}])j");

    const auto array = [](int level, const QString& a, const QString& b) {
        return QJsonObject{
            {"level", level},
            {"members", QJsonArray{QJsonObject{{"part", a}}, QJsonObject{{"part", b}}}}};
    };
    const QJsonObject arrays{{"/dev/md0", array(5, "/dev/sda1", "/dev/sdb1")},
                             {"/dev/md1", array(6, "/dev/sdc1", "/dev/sdd1")},
                             {"/dev/md2", array(0, "/dev/md1", "/dev/md0")}};
    const QJsonObject folded = raidFoldOf(arrays);
    EXPECT_EQ(folded["/dev/md0"], arrays["/dev/md0"]);
    EXPECT_EQ(folded["/dev/md2"]["levels"].toArray(), QJsonArray({6, 5}));
    EXPECT_EQ(folded["/dev/md2"]["submd"].toObject(),
              QJsonObject({{"/dev/md0", arrays["/dev/md0"]}, {"/dev/md1", arrays["/dev/md1"]}}));
}

// The tool-running side: inventory and parents, failures, flags, progress.
TEST(RaidStatus, ToolsThroughTheBackend)
{
    QString raid1 = tool("storage/virtio/mdadm-D-md0-raid1.txt");
    raid1.replace("/dev/vda", "/dev/sda1").replace("/dev/vdb", "/dev/sdb1");
    ScriptedBackend backend;
    backend.expectLine(kDetail + "/dev/md0").prints(raid1.toUtf8());
    backend
        .expectLine("lsblk -ablJ -o name,pkname,path,type,size,tran,state,mountpoint,fssize,"
                    "fstype,parttypename,pttype,uuid,vendor,model,hctl")
        .prints(
            R"({"blockdevices": [{"name": "sdb", "path": "/dev/sdb", "type": "disk", "size": 2000}]})")
        .repeatedly();
    backend.expectLine("/usr/bin/sudo lsblk -ndpo pkname /dev/sdb1").prints("/dev/sdb\n");
    backend.expectLine(kDetail + "/dev/md1").prints(raid1.toUtf8());
    backend.expectLine(kDetail + "/dev/md2")
        .exits(1)
        .errs("mdadm: cannot open /dev/md2")
        .repeatedly();
    backend.expectLine(kDetail + "/dev/md3")
        .prints(readToolOutput("storage/virtio/mdadm-D-md0-degraded.txt").replace("md0", "md3"));
    backend.expectLine("lsblk -ablJ -o name,path,type,size,tran,state,mountpoint /dev/md3")
        .prints(R"({"blockdevices": [{"name": "md3", "mountpoint": "/data"}]})");
    backend.expectLine(kDetail + "/dev/md4")
        .prints(readToolOutput("storage/virtio/mdadm-D-md1-resyncing.txt"))
        .repeatedly();
    backend.allowOthers();

    VXRaid raid;
    QJsonObject r;
    QString error;
    ASSERT_EQ(raid.acquit(r, "/dev/md0"), kRaidOk);
    EXPECT_EQ(qAsConst(r)["members"][1]["dev"].toString(), "/dev/sdb");
    EXPECT_EQ(qAsConst(r)["members"][1]["capacity"].toInt(), 2000);
    QJsonObject other;
    EXPECT_EQ(raid.acquit(other, "/dev/md1", &error), kRaidFailed);
    EXPECT_EQ(error, raid1);
    EXPECT_EQ(raid.acquit(other, "/dev/md2", &error), kRaidFailed);
    EXPECT_EQ(error, "md not found");
    EXPECT_TRUE(other.isEmpty());
    QJsonObject flags;
    ASSERT_EQ(raid.status(flags, "/dev/md3"), kRaidOk);
    EXPECT_EQ(flags["used"].toInt() + flags["faulty"].toInt(), 2);
    ASSERT_EQ(raid.percents(flags, "/dev/md4"), kRaidOk);
    EXPECT_EQ(flags["percent"].toString(), "6%");
    EXPECT_TRUE(VXRaidPrivate().isRemodeling("/dev/md4"));
    EXPECT_EQ(raid.percents(flags, "/dev/md2", &error), kRaidFailed);
    EXPECT_EQ(error.trimmed(), "mdadm: cannot open /dev/md2");

    const int calls = backend.callLines().size();
    for (const QString bad : {"/dev/sda", "/dev/md0 ; reboot", "md0", "/dev/md/../sda"}) {
        EXPECT_EQ(raid.acquit(other, bad, &error), kRaidUnknown);
        EXPECT_EQ(error, "md not found");
        EXPECT_EQ(raid.percents(other, bad) + raid.status(other, bad), 2 * kRaidUnknown);
        EXPECT_FALSE(raid.isAllSsd(bad));
    }
    EXPECT_EQ(backend.callLines().size(), calls);
}

// The kernel files under the path root; every array parsed with one inventory.
TEST(RaidStatus, ArraysUnderTheRoot)
{
    QTemporaryDir root;
    qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
    const auto write = [&](const QString& path, const QByteArray& text) {
        QDir().mkpath(root.path() + path.section('/', 0, -2));
        QFile file(root.path() + path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
    };
    write("/proc/mdstat", readToolOutput("storage/virtio/mdstat-resyncing.txt"));
    write("/sys/block/vda/queue/rotational", "0\n");
    write("/sys/block/vdb/queue/rotational", "1\n");
    // vdb as a spare: isAllSsd looks at spares too.
    QString raid1 = tool("storage/virtio/mdadm-D-md0-raid1.txt");
    raid1.replace("1      active sync   /dev/vdb", "-      spare   /dev/vdb");
    ScriptedBackend backend;
    backend.expectLine(kDetail + "/dev/md0").prints(raid1.toUtf8()).repeatedly();
    backend.expectLine(kDetail + "/dev/md1")
        .prints(readToolOutput("storage/virtio/mdadm-D-md1-raid5.txt"))
        .repeatedly();
    backend.allowOthers();

    VXRaid raid;
    EXPECT_EQ(raid.names(), QStringList({"/dev/md1", "/dev/md0"}));
    EXPECT_TRUE(raid.exists("/dev/md0"));
    EXPECT_FALSE(raid.exists("/dev/md2") || raid.exists("/dev/md/nowhere"));
    EXPECT_EQ(VXRaidPrivate().mdevices().size(), 2);
    const QJsonObject all = raid.allist();
    EXPECT_EQ(all.keys(), QStringList({"/dev/md0", "/dev/md1"}));
    EXPECT_EQ(all["/dev/md0"]["spares"].toArray().size(), 1);
    EXPECT_EQ(raid.alload(), all);
    EXPECT_FALSE(raid.isAllSsd("/dev/md0"));
    write("/sys/block/vdb/queue/rotational", "0\n");
    EXPECT_TRUE(raid.isAllSsd("/dev/md0"));

    QList<VXRaidDev> devs;
    VXRaidPrivate::loadDevs(devs, all["/dev/md1"].toObject(), "members");
    ASSERT_EQ(devs.size(), 3);
    EXPECT_EQ(devs.at(2), VXRaidDev("/dev/vde", "/dev/vde", 3));
    qunsetenv("NASBROLT_ROOT");
}
