#include "vx/vxdisk.h"
#include "vx/vxdisk_p.h"
#include "vx/vxdiskparse.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString kAllistLine = QStringLiteral(
    "lsblk -ablJ -o name,pkname,path,type,size,tran,state,mountpoint,fssize,fstype,parttypename,"
    "pttype,uuid,vendor,model,hctl");

QJsonObject lsblkFixture(const QString& relative)
{
    return lsblkJson(QString::fromUtf8(readToolOutput(relative)));
}

QJsonObject entry(const QString& name, const QString& pkname, const QString& type,
                  const QString& mountpoint = QString(), const QString& fstype = QString())
{
    const auto orNull = [](const QString& s) { return s.isEmpty() ? QJsonValue() : s; };
    return QJsonObject{{"name", name},
                       {"path", "/dev/" + name},
                       {"type", type},
                       {"size", 1000},
                       {"pkname", orNull(pkname)},
                       {"mountpoint", orNull(mountpoint)},
                       {"fstype", orNull(fstype)}};
}

QJsonObject lsblkOf(const QJsonArray& entries)
{
    return QJsonObject{{"blockdevices", entries}};
}

// The values of a record under the keys (space-separated), as compact JSON;
// a key the record lacks shows as "~", so that types and absence both show.
QString fields(const QJsonValue& record, const char* keys)
{
    QJsonArray values;
    for (const QString& key : QString::fromLatin1(keys).split(' ')) {
        const QJsonObject object = record.toObject();
        values.append(object.contains(key) ? object.value(key) : QJsonValue("~"));
    }
    return QString::fromUtf8(QJsonDocument(values).toJson(QJsonDocument::Compact));
}

} // namespace

// Whole-disk members of two running arrays, a whole-disk PV, and a PV on an
// array: the member lists decide, and arrays get records of their own.
TEST(DiskInventory, WholeDiskMembersAndArraysFromRealOutput)
{
    const QStringList raid = mdstatMembers(readToolOutput("storage/virtio/mdstat.txt"));
    EXPECT_EQ(raid, QStringList({"/dev/vde", "/dev/vdd", "/dev/vdc", "/dev/vdb", "/dev/vda"}));
    const QStringList lvm = pvsMembers("  vg0:/dev/md1\n  vg0:/dev/vdf\n");
    const QJsonObject inv = inventoryOf(lsblkFixture("storage/virtio/lsblk.json"), raid, lvm, {});

    EXPECT_EQ(inv.keys(), QStringList({"/dev/md0", "/dev/md1", "/dev/vda", "/dev/vdb", "/dev/vdc",
                                       "/dev/vdd", "/dev/vde", "/dev/vdf"}));
    for (const QString& dev : raid)
        EXPECT_EQ(fields(inv[dev], "raid used lvm"), "[1,1,0]") << dev.toStdString();
    EXPECT_EQ(fields(inv["/dev/vdf"], "raid used lvm"), "[0,1,1]");
    EXPECT_EQ(fields(inv["/dev/md1"], "md dev level model lvm used size capacity"),
              R"(["/dev/md1","/dev/md1",5,"RAID-5",1,1,1069547520,1069547520])");
    // LUKS inside is not looked at.
    EXPECT_EQ(fields(inv["/dev/md0"], "model type used system mountpoint"),
              R"(["RAID-1","raid1",0,"~","~"])");
}

// The five buses, each with a GPT "Linux RAID" partition on its first disk:
// the signature alone never makes a disk used; listed as a member it does.
TEST(DiskInventory, PartitionMembersOnEveryBus)
{
    struct Bus
    {
        const char* name;
        const char* disk;
        const char* part;
        const char* tran;
        const char* vendor;
    };
    const Bus buses[] = {{"virtio", "/dev/vda", "/dev/vda1", "", "0x1af4"},
                         {"scsi", "/dev/sda", "/dev/sda1", "", "QEMU    "},
                         {"sata", "/dev/sda", "/dev/sda1", "sata", "ATA     "},
                         {"nvme", "/dev/nvme0n1", "/dev/nvme0n1p1", "nvme", ""},
                         {"usb", "/dev/sda", "/dev/sda1", "usb", "QEMU    "}};
    for (const Bus& bus : buses) {
        SCOPED_TRACE(bus.name);
        const QJsonObject lsblk =
            lsblkFixture(QStringLiteral("storage/bus/lsblk-%1.json").arg(bus.name));
        ASSERT_FALSE(lsblk.isEmpty());
        const QJsonObject stale = inventoryOf(lsblk, {}, {}, {});
        const QJsonObject disk = stale.value(bus.disk).toObject();
        EXPECT_EQ(fields(disk, "raid used tran"), QString(R"([0,0,"%1"])").arg(bus.tran));
        if (QLatin1String(bus.name) != QLatin1String("usb")) {
            EXPECT_EQ(disk.value("vendor").toString(), bus.vendor);
        }
        EXPECT_TRUE(disk.value("state").isString() && disk.value("model").isString());

        const QJsonObject member = inventoryOf(lsblk, {bus.part}, {}, {});
        EXPECT_EQ(fields(member[bus.disk], "raid used"), "[1,1]");
        EXPECT_EQ(member.size(), stale.size());
    }
}

TEST(DiskInventory, MountsOrphansAndUnknownParents)
{
    const QJsonArray entries{entry("sda", "", "disk"),
                             entry("sda1", "sda", "part", "/data", "ext4"),
                             entry("sda2", "sda", "part", "/", "ext4"),
                             entry("sda3", "sda", "part", "/home", "ext4"),
                             entry("sdb", "", "disk"),
                             entry("sdb1", "sdb", "part", "", "LVM2_member"),
                             entry("sdc", "", "disk", "", "zfs_member"),
                             entry("sdz9", "sdz", "part", "/lost"),
                             entry("md5", "sdb1", "raid0")};
    const QJsonObject inv = inventoryOf(lsblkOf(entries), {}, {}, {"/dev/sdc"});
    EXPECT_EQ(fields(inv["/dev/sda"], "mountpoint system mounted used"), R"(["/",1,1,1])");
    // Root first, another mount after it: "/" stays.
    const QJsonArray reversed{entries[0], entries[2], entries[1]};
    EXPECT_EQ(fields(inventoryOf(lsblkOf(reversed), {}, {}, {})["/dev/sda"], "mountpoint"),
              R"(["/"])");
    // An orphan PV: no volume group lists it.
    EXPECT_EQ(fields(inv["/dev/sdb"], "lvm used mountpoint"), R"([0,0,"~"])");
    EXPECT_EQ(fields(inv["/dev/sdc"], "zfs used"), "[1,1]");
    EXPECT_FALSE(inv.contains("/dev/sdz") || inv.contains("/dev/sdz9"));
    EXPECT_EQ(fields(inv["/dev/md5"], "level model"), R"([0,"RAID-0"])");
    EXPECT_TRUE(inventoryOf(QJsonObject(), {}, {}, {}).isEmpty());
}

TEST(DiskInventory, OlderInventoryKinds)
{
    QJsonArray entries{entry("sda", "", "disk"),
                       entry("sda1", "sda", "part", "/", "ext4"),
                       entry("sdb", "", "disk"),
                       entry("sdb1", "sdb", "part", "", "LVM2_member"),
                       entry("vg-lv", "sdb1", "lvm"),
                       entry("sdc", "", "disk"),
                       entry("sdc1", "sdc", "part", "", "linux_raid_member"),
                       entry("sdd", "", "disk"),
                       entry("vg-lv2", "sdd", "lvm")};
    const QJsonObject inv = inventory2Of(lsblkOf(entries));
    EXPECT_EQ(inv.size(), 4);
    EXPECT_EQ(fields(inv["/dev/sda"], "kind system"), "[1,1]");
    EXPECT_EQ(fields(inv["/dev/sdb"], "kind lvm"), "[2,1]");
    EXPECT_EQ(fields(inv["/dev/sdc"], "kind raid"), "[3,1]"); // the signature alone, unlike allist
    EXPECT_EQ(fields(inv["/dev/sdd"], "kind lvm used"), "[0,1,1]");
    for (const QString& dev : inv.keys())
        EXPECT_TRUE(inv.value(dev).toObject().contains("hctl"));
}

TEST(DiskInventory, AlloadSwitches)
{
    const QJsonObject lsblk = lsblkFixture("storage/health/sata/lsblk-alload.json");
    QJsonObject inv{
        {"/dev/sda", QJsonObject{{"dev", "/dev/sda"}, {"used", 1}, {"lvm", 1}}},
        {"/dev/sdb", QJsonObject{{"dev", "/dev/sdb"}, {"used", 1}, {"system", 1}, {"mounted", 1}}}};
    const QJsonArray all = alloadOf(lsblk, inv, true, true, true, true);
    ASSERT_EQ(all.size(), 3);
    // sata probe order varies: the serial shows which disk came first.
    EXPECT_EQ(fields(all[0], "path serial tran lvm cdrom"), R"(["/dev/sda","VMDISK1","sata",1,0])");
    EXPECT_EQ(all[0].toObject().value("capacity"), all[0].toObject().value("size"));

    const QJsonArray unused = alloadOf(lsblk, inv, false, true, false, false);
    ASSERT_EQ(unused.size(), 1);
    EXPECT_EQ(unused[0].toObject().value("path").toString(), "/dev/sdc");
    EXPECT_EQ(alloadOf(lsblk, inv, true, true, false, false).size(), 2); // system, not used

    QJsonArray usb{
        QJsonObject{{"name", "sdx"}, {"path", "/dev/sdx"}, {"type", "disk"}, {"tran", "usb"}},
        QJsonObject{{"name", "sr0"}, {"path", "/dev/sr0"}, {"type", "rom"}}};
    EXPECT_TRUE(alloadOf(lsblkOf(usb), {}, true, false, true, false).isEmpty());
    const QJsonArray both = alloadOf(lsblkOf(usb), {}, false, true, false, true);
    ASSERT_EQ(both.size(), 2);
    EXPECT_EQ(both[1].toObject().value("cdrom").toInt(), 1);
}

// The readers of the tools' and the kernel's text.
TEST(DiskInventory, SmallReaders)
{
    EXPECT_TRUE(mdstatMembers(readToolOutput("storage/virtio/mdstat-empty.txt")).isEmpty());
    // A failed member is still listed.
    EXPECT_TRUE(
        mdstatMembers(readToolOutput("storage/virtio/mdstat-degraded.txt")).contains("/dev/vdb"));
    const QStringList recovering =
        mdstatMembers(readToolOutput("storage/virtio/mdstat-recovering.txt"));
    EXPECT_EQ(recovering.size(), 5);
    EXPECT_FALSE(recovering.contains("/dev/["));
    const QString mdstat = readToolOutput("storage/virtio/mdstat.txt");
    EXPECT_TRUE(mdstatHasArray(mdstat, "md0"));
    EXPECT_FALSE(mdstatHasArray(mdstat, "vda"));
    EXPECT_EQ(pvsMembers("  vg0:/dev/md1\n  :/dev/sdb\nnoise\n"),
              QStringList({"/dev/md1", "/dev/sdb"}));
    EXPECT_EQ(zpoolMembers("  pool: tank\n config:\n\t  /dev/sdb1  ONLINE 0 0 0\n"),
              QStringList({"/dev/sdb1"}));

    const QString sata = "storage/health/sata/";
    for (const auto& [output, fstype] : std::vector<std::pair<QString, QString>>{
             {readToolOutput(sata + "parted-print-sda.txt"), "primary"},
             {readToolOutput(sata + "parted-print-sdb.txt"), "primary"},
             {readToolOutput(sata + "parted-print-sdc.txt"), "xfs"},
             {"Error: /dev/sdx: unrecognised disk label\n", ""}})
        EXPECT_EQ(partedFstype(output), fstype);

    QString serial;
    EXPECT_TRUE(hdparmSerial(serial, readToolOutput(sata + "hdparm-I-sda.txt")));
    EXPECT_EQ(serial, "VMDISK1");
    EXPECT_FALSE(hdparmSerial(serial, readToolOutput("storage/health/nvme/hdparm-I-nvme0n1.txt")));

    EXPECT_EQ(parentDiskOf(readToolOutput(sata + "lsblk-ndpo-pkname.txt"), "/dev/sda1"),
              "/dev/sda");
    EXPECT_EQ(parentDiskOf("\n", "/dev/sda"), "/dev/sda");
    EXPECT_EQ(partitionsOf(readToolOutput("storage/health/nvme/lsblk-lno-PATH-TYPE-nvme0n1.txt")),
              QStringList({"/dev/nvme0n1p1"}));
    const QStringList stats = diskstatsDevices(readToolOutput(sata + "proc-diskstats.txt"));
    EXPECT_TRUE(stats.contains("/dev/sda") && stats.contains("/dev/sdb1"));
    EXPECT_TRUE(fdiskLists("Device Start End\n/dev/sda1 2048 4096\n", "/dev/sda1"));
    EXPECT_FALSE(fdiskLists("Disk /dev/sda1: 1 MiB\n", "/dev/sda1"));

    QString mountpoint;
    EXPECT_TRUE(mtabMountOf("/dev/sdb1 /mnt/my\\040data ext4 rw 0 0\n", "/dev/sdb1", &mountpoint));
    EXPECT_EQ(mountpoint, "/mnt/my data");
    EXPECT_FALSE(mtabMountOf("/dev/sdb1 /mnt ext4 rw 0 0\n", "/dev/sdb", nullptr));
}

// What runs, and in which form, is part of the contract.
TEST(DiskInventory, CommandLines)
{
    ScriptedBackend tools;
    tools.expectLine(kAllistLine).prints(readToolOutput("storage/bus/lsblk-sata.json"));
    tools.expectLine("/usr/bin/sudo pvs --noheading --separator : -o vg_name,pv_name")
        .prints("  vg:/dev/sdb\n");
    tools.expectLine("/usr/bin/sudo zpool status -LP").failsToStart();
    EXPECT_EQ(VXDisk().allist().value("/dev/sdb").toObject().value("vendor").toString(),
              "ATA     ");

    tools.expectLine("/usr/bin/sudo lsblk -ndpo pkname /dev/sda1").prints("/dev/sda\n");
    EXPECT_EQ(VXDisk().devOf("/dev/sda1"), "/dev/sda");
    tools.expectLine("/usr/bin/sudo lsblk -ndpo pkname /dev/sda").prints("\n");
    EXPECT_EQ(VXDisk().devOf("/dev/sda"), "/dev/sda");
    tools.expectLine("/usr/bin/sudo parted -s /dev/sdc print")
        .prints(readToolOutput("storage/health/sata/parted-print-sdc.txt"));
    EXPECT_EQ(VXDisk().fstype("/dev/sdc"), "xfs");
    tools.expectLine("/usr/bin/sudo hdparm -I /dev/sda").exits(1);
    QString serial;
    EXPECT_FALSE(VXDisk().serialNumber(serial, "/dev/sda"));
    tools.expectLine("lsblk -ablJ -o name,path,type")
        .prints(readToolOutput("storage/health/nvme/lsblk-alload.json"));
    EXPECT_EQ(VXDisk().names(), QStringList({"/dev/nvme0n1", "/dev/nvme1n1", "/dev/nvme2n1"}));
    tools.expectLine("/usr/bin/sudo pvs --noheading --separator : -o vg_name /dev/sdb")
        .prints("  \n");
    EXPECT_FALSE(VXDisk().usedForLvm("/dev/sdb"));
    for (const LNX2ProcRequest& call : tools.calls())
        EXPECT_EQ(std::make_pair(call.startMs, call.finishMs), std::make_pair(9999, 9999))
            << call.program.toStdString();
}

TEST(DiskInventory, ProcessStyleCallsAndUsage)
{
    ScriptedBackend tools;
    tools.expectLine("lsblk -aJ -o name,path,tran,size,serial,mountpoint,model,type /dev/sda")
        .prints(readToolOutput("storage/health/sata/lsblk-devtypes.json"));
    bool raid = false, lvm = false, mounted = false, system = false, crypt = false, cdrom = false;
    EXPECT_TRUE(VXDisk().devTypes("/dev/sda", raid, lvm, mounted, system, crypt, cdrom));
    EXPECT_FALSE(raid || lvm || mounted || system || crypt || cdrom);
    tools.expectLine("/usr/bin/sudo lsblk -lno PATH,TYPE /dev/sda")
        .prints("/dev/sda disk\n/dev/sda1 part\n/dev/sda2 part\n");
    EXPECT_EQ(VXDisk().partitions("/dev/sda"), QStringList({"/dev/sda1", "/dev/sda2"}));
    for (const LNX2ProcRequest& call : tools.calls())
        EXPECT_EQ(std::make_pair(call.startMs, call.finishMs), std::make_pair(999, 9999));

    tools.expectLine("lsblk -ablJ -o name,path,type,size,tran,state,mountpoint /dev/sdb1")
        .prints(R"({"blockdevices":[{"name":"sdb1","mountpoint":"/srv"}]})");
    tools
        .expectLine("lsblk -ablJ -o "
                    "name,pkname,path,type,size,tran,state,mountpoint,fssize,fstype,pttype,"
                    "uuid,vendor,model,hctl /dev/sdb1")
        .prints(R"({"blockdevices":[{"name":"sdb1","path":"/dev/sdb1","type":"part",)"
                R"("size":5,"mountpoint":"/srv"}]})");
    EXPECT_EQ(fields(VXDisk().acquit("/dev/sdb1"), "mountpoint mounted used raid capacity"),
              R"(["/srv",1,1,0,5])");
}

TEST(DiskInventory, TreeClassification)
{
    const QJsonObject tree = QJsonDocument::fromJson(R"({"type":"disk","children":[
        {"type":"part","children":[{"type":"raid1","children":[{"type":"lvm",
        "mountpoint":"/"}]}]},{"type":"rom"}]})")
                                 .object();
    bool raid = false, lvm = false, mounted = false, system = false, cdrom = false;
    VXDiskPrivate::devTypes(tree, raid, lvm, mounted, system, cdrom);
    EXPECT_TRUE(raid && lvm && mounted && system && cdrom);
    bool stays = true, none = false;
    VXDiskPrivate::devTypes(QJsonObject{{"type", "disk"}}, stays, none, none, none, none);
    EXPECT_TRUE(stays);
    EXPECT_FALSE(none);
}

// Kernel files are read under the path root.
TEST(DiskInventory, SysfsReadsUnderTheRoot)
{
    QTemporaryDir root;
    qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
    const auto write = [&](const QString& path, const QByteArray& text) {
        QDir().mkpath(QFileInfo(root.path() + path).path());
        QFile file(root.path() + path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    };
    write("/sys/block/sda/queue/rotational", "1\n");
    write("/sys/class/block/sda/device/model", "VMDISK-SATA     \n");
    write("/sys/class/block/sda/device/vendor", "ATA     \n");
    write("/proc/diskstats", "   8       0 sda 1 2 3\n   7       0 loop0 1 2 3\n");
    QDir().mkpath(root.path() + "/sys/block/sda/device");
    write("/proc/mdstat", readToolOutput("storage/virtio/mdstat.txt"));
    write("/etc/mtab", "/dev/sdb1 /mnt/data ext4 rw 0 0\n");

    VXDisk disk;
    EXPECT_FALSE(disk.isSsd("/dev/sda"));
    EXPECT_TRUE(disk.isSsd("/dev/sdb")); // no flag file: counts as SSD
    QString vendor;
    EXPECT_EQ(disk.model("/dev/sda", &vendor), "VMDISK-SATA");
    EXPECT_EQ(vendor, "ATA");
    EXPECT_EQ(disk.allDevices(), QStringList({"/dev/sda", "/dev/loop0"}));
    EXPECT_EQ(disk.physicalDevices(), QStringList({"/dev/sda"}));
    EXPECT_TRUE(disk.usedForRaid("/dev/md1"));
    EXPECT_FALSE(disk.usedForRaid("/dev/vdc")); // a member, not an array
    EXPECT_EQ(disk.allRaidMembers().size(), 5);
    QString mountpoint;
    EXPECT_TRUE(disk.usedForMounted("/dev/sdb1", &mountpoint));
    EXPECT_EQ(mountpoint, "/mnt/data");
    qunsetenv("NASBROLT_ROOT");
}
