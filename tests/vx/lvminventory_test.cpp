#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"
#include "vx/vxlvminventoryparse.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo ");

// The recorded virtio group (vgs.txt, lvs-a.txt, vgdisplay.txt) as the
// inventory queries it; our volumes carry their file system as a tag.
const QByteArray kVgs = "  vg0:1598029824B:704643072B\n  vg1:532676608B:0B\n";
const QByteArray kLvs =
    "  vg0:cached:/dev/vg0/cached:/dev/mapper/vg0-cached:335544320B:Cwi-aoC---:ext4\n"
    "  vg0:plain:/dev/vg0/plain:/dev/mapper/vg0-plain:268435456B:-wi-ao----:btrfs\n"
    "  vg0:thin1:/dev/vg0/thin1:/dev/mapper/vg0-thin1:1073741824B:Vwi-aotz--:lun\n"
    "  vg0:tpool::/dev/mapper/vg0-tpool:201326592B:twi-aotz--:\n"
    "  vg1:vg1_vdg_unused_cache:/dev/vg1/vg1_vdg_unused_cache:"
    "/dev/mapper/vg1-vg1_vdg_unused_cache:532676608B:-wi-a-----:\n";
const QByteArray kVgdisplay = "  vg0:r/w:772:-1:0:4:3:-1:0:2:2:1560576:4096:381:213:168:"
                              "vVFfvU-dCLg-ix0R-1OpX-a8uA-hfhU-VHW7eQ\n";
// "lvs -o +devices --noheadings -a vg0" once vdf caches "cached" (LVM 2.03
// names the attached pool "<pool>_cpool").
const QByteArray kCacheDevices =
    "  cached                             vg0 Cwi-aoC--- 320.00m [vg0_cached_ssd_cache_cpool] "
    "[cached_corig] 13.09  0.68            0.00             cached_corig(0)\n"
    "  [cached_corig]                     vg0 owi-aoC--- 320.00m /dev/md1(114)\n"
    "  [lvol0_pmspare]                    vg0 ewi-------   8.00m /dev/md1(196)\n"
    "  plain                              vg0 -wi-ao---- 256.00m /dev/md1(0)\n"
    "  [vg0_cached_ssd_cache_cpool]       vg0 Cwi---C---  64.00m 13.09  0.68  0.00 "
    "vg0_cached_ssd_cache_cpool_cdata(0)\n"
    "  [vg0_cached_ssd_cache_cpool_cdata] vg0 Cwi-ao----  64.00m /dev/vdf(0)\n"
    "  [vg0_cached_ssd_cache_cpool_cmeta] vg0 ewi-ao----   8.00m /dev/vdf(16)\n"
    "  vg0_vdf_unused_cache               vg0 -wi-a----- 436.00m /dev/vdf(18)\n";

QStringList keysOf(const QJsonValue& value)
{
    return value.toObject().keys();
}

// The values under the keys (space-separated) as compact JSON, "~" for a missing key.
QString fields(const QJsonValue& record, const char* keys)
{
    QJsonArray values;
    for (const QString& key : QString::fromLatin1(keys).split(' '))
        values.append(record.toObject().contains(key) ? record[key] : QJsonValue("~"));
    return QString::fromUtf8(QJsonDocument(values).toJson(QJsonDocument::Compact));
}

class LvmInventory : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QString read(const QString& path) const
    {
        QFile file(root.path() + path);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : "<missing>";
    }
    void write(const QString& path, const QByteArray& text) const
    {
        QDir(root.path()).mkpath(QFileInfo(path).path().mid(1));
        QFile file(root.path() + path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    // No volume of the recorded group is an open LUKS mapping.
    void notEncrypted()
    {
        backend
            .expectIf("lv_dm_path",
                      [](const LNX2ProcRequest& r) {
                          return r.arguments.mid(0, 4) ==
                                 QStringList{"lvs", "--noheading", "-o", "lv_dm_path"};
                      })
            .prints("  /dev/mapper/vg0-x\n")
            .repeatedly();
        backend.expectLine(kSudo + "cryptsetup status /dev/mapper/vg0-x_crypt")
            .exits(4)
            .repeatedly();
    }

    QTemporaryDir root;
    ScriptedBackend backend;
};

TEST(LvmInventoryParse, RecordedOutputs)
{
    const QJsonObject list = volumeListOf(
        "  plain:vg0:/dev/vg0/plain:/dev/mapper/vg0-plain:268435456B\n"
        "  tpool:vg0::/dev/mapper/vg0-tpool:201326592B\n"
        "  vg1_vdg_unused_cache:vg1:/dev/vg1/vg1_vdg_unused_cache:/dev/mapper/x:1B\n\n");
    EXPECT_EQ(list.keys(), QStringList{"vg0"});
    EXPECT_EQ(list["vg0"]["tpool"]["dmpath"].toString(), "/dev/mapper/vg0-tpool");

    // The first known file system tag wins, in the fixed order.
    EXPECT_EQ(tagFstypeOf({"crypt", "ext4", "xfs"}), "xfs");
    EXPECT_EQ(tagFstypeOf({"crypt"}), "");
    const QList<InventoryVolume> volumes = inventoryVolumesOf(kLvs);
    ASSERT_EQ(volumes.size(), 4);
    const QString types[] = {"lv+cache", "lv", "thin", ""};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(inventoryRecordOf(volumes[i], true)["type"].toString(), types[i]);

    EXPECT_EQ(pvNamesOf(readToolOutput("storage/virtio/pvs.json")),
              QStringList({"/dev/md1", "/dev/vdf"}));
    EXPECT_TRUE(pvNamesOf("  Volume group \"vg9\" not found\n").isEmpty());

    // "df -P -l -BM": the figures carry "M" and read as 0, as they always did.
    const QJsonObject free =
        lvFreeOf("Filesystem            1M-blocks  Used Available Capacity Mounted on\n"
                 "/dev/mapper/vg0-plain      256M    6M      175M       4% /mnt/plain\n");
    EXPECT_EQ(free, QJsonObject({{"lvsize", 0},
                                 {"lvused", 0},
                                 {"lvfree", 0},
                                 {"capacity", "4"},
                                 {"mntpath", "/mnt/plain"}}));
}

// alload and whole over the same group: whole takes the file system from the
// tags and finds mounts by device, alload asks parted and looks at the
// volume's own mount point (the recorded mounts are elsewhere).
TEST_F(LvmInventory, VolumeReports)
{
    notEncrypted();
    backend.expectLine(kSudo + "vgs --noheading --separator : -o vg_name,vg_size,vg_free --units b")
        .prints(kVgs)
        .repeatedly();
    backend
        .expectLine(kSudo + "lvs --noheading --separator : -o "
                            "vg_name,lv_name,lv_path,lv_dm_path,lv_size,lv_attr,lv_tags --units b")
        .prints(kLvs)
        .repeatedly();
    backend.expect("sudo", {"df", "-k"})
        .prints(readToolOutput("storage/virtio/df-k.txt"))
        .repeatedly();
    for (const char* lv : {"cached", "plain"})
        backend.expectLine(kSudo + "parted -s /dev/vg0/" + lv + " print")
            .prints("Model: Linux device-mapper (linear) (dm)\nPartition Table: loop\n\nNumber  "
                    "Start  End    Size   File system  Flags\n 1      0.00B  268MB  268MB  xfs\n");
    // Only the cached volume is asked about a cache.
    backend.expectLine(kSudo + "lvs -a --noheadings -o lv_layout -S lv_name=cached vg0")
        .exits(5)
        .repeatedly();
    backend
        .expectLine(kSudo + "lvs -a --reportformat json --noheadings -o "
                            "vg_name,lv_path,lv_name,lv_size --unit b")
        .prints(R"({"report": [{"lv": [{"vg_name":"vg1", "lv_path":"/dev/vg1/vg1_vdg_unused_cache",
                  "lv_name":"vg1_vdg_unused_cache", "lv_size":"532676608B"}]}]})")
        .repeatedly();

    const QJsonObject all = VXLvm::alload();
    EXPECT_EQ(all["vg1"]["lvs"].toObject(), QJsonObject());
    EXPECT_EQ(all["vg1"]["cache"]["free"].toDouble(), 532676608.0);
    EXPECT_EQ(keysOf(all["vg0"]["lvs"]), QStringList({"cached", "plain", "thin1", "tpool"}));
    EXPECT_EQ(fields(all["vg0"]["lvs"]["plain"], "fstype mounted extensible"), R"(["xfs",0,1])");
    EXPECT_EQ(all["vg0"]["lvs"]["thin1"]["fstype"].toString(), "lun");
    EXPECT_FALSE(all["vg0"]["lvs"]["cached"].toObject().contains("cache"));

    const QJsonObject whole = VXLvm::whole();
    EXPECT_EQ(whole["vg0"]["capacity"].toDouble(), 1598029824.0);
    // free: df's 276353 KiB.
    EXPECT_EQ(fields(whole["vg0"]["lvs"]["cached"], "fstype mounted mntpath free"),
              R"(["ext4",1,"/mnt/cached",282985472])");
    EXPECT_EQ(whole["vg0"]["lvs"]["tpool"]["mounted"].toInt(), 0);

    // Created and formatted, not mounted yet.
    backend
        .expectLine(kSudo + "lvs --noheading --separator : -o vg_name,vg_free,lv_name,lv_path,"
                            "lv_dm_path,lv_size,lv_attr,lv_tags --units b /dev/vg0/fresh")
        .prints("  vg0:704643072B:fresh:/dev/vg0/fresh:/dev/mapper/vg0-fresh:268435456B:"
                "-wi-a-----:xfs\n");
    QJsonObject detail;
    ASSERT_TRUE(VXLvm::lvDetail(detail, "/dev/vg0/fresh"));
    EXPECT_EQ(fields(detail, "mounted size free mntpath cache"), R"([0,"~","~","~","~"])");
}

TEST_F(LvmInventory, GroupDetailInMibWithCacheAndAvailableDisks)
{
    backend.expectLine(kSudo + "vgs --noheading --separator : -o vg_name,vg_size,vg_free --units b")
        .prints(kVgs);
    EXPECT_EQ(VXLvm::vgAlload()["vg0"].toObject(),
              QJsonObject({{"vg", "vg0"}, {"size", 1598029824.0}, {"free", 704643072.0}}));

    backend.expectLine(kSudo + "vgdisplay -c vg0").prints(kVgdisplay);
    backend.expectLine(kSudo + "pvs --noheadings -o pv_name --reportformat json -S vg_name=vg0")
        .prints(readToolOutput("storage/virtio/pvs.json"));
    backend.expectLine(kSudo + "lvs -o +devices --noheadings -a vg0")
        .prints(kCacheDevices)
        .repeatedly();
    backend
        .expectLine("lsblk -ablJ -o name,pkname,path,type,size,tran,state,mountpoint,fssize,fstype,"
                    "parttypename,pttype,uuid,vendor,model,hctl")
        .prints(readToolOutput("storage/virtio/lsblk.json"));
    backend.expectLine(kSudo + "pvs --noheading --separator : -o vg_name,pv_name")
        .prints("  vg0:/dev/md1\n  vg0:/dev/vdf\n");
    backend.expectLine(kSudo + "zpool status -LP").failsToStart();
    // vda and vdb are md0's members; only an array of SSDs may cache.
    write("/proc/mdstat", readToolOutput("storage/virtio/mdstat.txt"));
    write("/sys/block/vda/queue/rotational", "0\n");
    write("/sys/block/vdb/queue/rotational", "1\n");
    backend.expectLine(kSudo + "mdadm -D /dev/md0")
        .prints(readToolOutput("storage/virtio/mdadm-D-md0-raid1.txt"));
    for (const char* member : {"/dev/vda", "/dev/vdb"})
        backend.expectLine(kSudo + "lsblk -ndpo pkname " + member).prints("\n");

    const QJsonObject detail = VXLvm::vgDetail("vg0", true);
    EXPECT_EQ(fields(detail, "capacity free unit"), R"([1524,672,"mb"])");
    EXPECT_EQ(detail["disks//"].toString(), "逻辑卷组成员盘");
    EXPECT_EQ(detail["caches//"].toString(), "逻辑卷组缓存盘");
    EXPECT_EQ(detail["availables//"].toString(), "允许扩展逻辑卷组或添加为缓存的磁盘");

    const QJsonArray disks = detail["disks"].toArray();
    ASSERT_EQ(disks.size(), 1);
    EXPECT_EQ(fields(disks[0], "model capacity role"), R"(["RAID-5",1069547520,"data"])");

    // The cache figures are those of the disk's last cache line (the
    // placeholder's 436 MiB); the disk's own size stays in "devsize".
    const QJsonArray caches = detail["caches"].toArray();
    ASSERT_EQ(caches.size(), 1);
    EXPECT_EQ(fields(caches[0], "dev role devsize capacity free size"),
              R"(["/dev/vdf","cache",536870912,457179136,457179136,0])");

    // md0 holds no volume of ours; its rotational member rules it out as cache.
    const QJsonArray availables = detail["availables"].toArray();
    ASSERT_EQ(availables.size(), 1);
    EXPECT_EQ(fields(availables[0], "dev ascache role"), R"(["/dev/md0",0,""])");
    EXPECT_EQ(availables[0]["ascache//"].toString(), "Usage: 1:允许作为缓存, 0:禁止作为缓存");
}

TEST_F(LvmInventory, MountsAndDeviceQueries)
{
    backend.expect("sudo", {"-H", "-u", "www-data", "df", "-k"})
        .prints(readToolOutput("storage/virtio/df-k.txt"));
    const QJsonObject all = VXLvm::lvAllMounts();
    EXPECT_EQ(all.keys(),
              QStringList({"/", "/mnt/cached", "/mnt/cryptdata", "/mnt/plain", "/mnt/thin1"}));
    EXPECT_EQ(all["/mnt/plain"].toObject(), QJsonObject({{"dev", "/dev/mapper/vg0-plain"},
                                                         {"userate", "4%"},
                                                         {"capacity", 262144.0 * 1024},
                                                         {"size", 5920.0 * 1024},
                                                         {"free", 179200.0 * 1024},
                                                         {"mntpath", "/mnt/plain"}}));

    backend.expect("sudo", {"df", "-k"})
        .prints(readToolOutput("storage/virtio/df-k.txt"))
        .repeatedly();
    const QJsonObject byDev = VXLvm::lvMountsByDev();
    EXPECT_EQ(VXLvm::lvDevMounts().keys(), byDev.keys());
    EXPECT_EQ(byDev.keys(), QStringList({"/dev/mapper/cryptdata", "/dev/mapper/vg0-cached",
                                         "/dev/mapper/vg0-plain", "/dev/mapper/vg0-thin1"}));
    EXPECT_EQ(keysOf(byDev["/dev/mapper/vg0-thin1"]),
              QStringList({"capacity", "free", "size", "userate"}));

    backend.expect("sudo", {"df", "-l", "--output=source"})
        .prints("Filesystem\noverlay\ndevtmpfs\ntmpfs\ntmpfs\nhostroot\nvmout\n"
                "/dev/mapper/cryptdata\n/dev/mapper/vg0-thin1\n/dev/mapper/vg0-plain\n"
                "/dev/mapper/vg0-cached\n");
    EXPECT_EQ(VXLvmPrivate::allMounted().size(), 10);

    backend.expectLine(kSudo + "blkid -o export /dev/mapper/vg0-plain")
        .prints("DEVNAME=/dev/mapper/vg0-plain\nLABEL=plainbtrfs\n"
                "UUID=d9896ea7-3319-4f0f-b4c3-84915e66d06d\n"
                "UUID_SUB=0223ba4c-aeb9-400d-89b5-6a3c620de3ac\nBLOCK_SIZE=4096\nTYPE=btrfs\n");
    const QJsonObject blkid = VXLvm::blockDevice("/dev/mapper/vg0-plain");
    EXPECT_EQ(blkid.keys(), QStringList({"BLOCK_SIZE", "LABEL", "TYPE", "UUID", "UUID_SUB"}));
    backend.expectLine(kSudo + "blkid -s UUID -o export /dev/mapper/vg0-plain >/dev/null")
        .prints("UUID=d9896ea7-3319-4f0f-b4c3-84915e66d06d\n");
    EXPECT_EQ(VXLvm::toUuid("/dev/mapper/vg0-plain"), "d9896ea7-3319-4f0f-b4c3-84915e66d06d");
    EXPECT_EQ(VXLvm::toUuid("/dev/x;reboot"), "");
}

TEST_F(LvmInventory, FixlostDropsLinesOfLostVolumes)
{
    const QByteArray fstab = "# /etc/fstab: static file system information.\n"
                             "UUID=0f4e8b7a-8f1c-4f55-9d2b-2a6c1e0d9f11 / ext4 defaults 0 1\n"
                             "/dev/mapper/vg0-plain /mnt/vg0/plain btrfs nofail,defaults 0 0\n"
                             "/dev/mapper/vg0-safe_crypt /mnt/vg0/safe xfs nofail,defaults 0 0\n"
                             "/dev/mapper/vg0-gone_crypt /mnt/vg0/gone xfs nofail,defaults 0 0\n"
                             "/dev/mapper/vg0-old /mnt/vg0/old ext4 nofail,defaults 0 0\n";
    const QByteArray crypttab =
        "# <target name> <source device> <key file> <options>\n"
        "vg0-safe_crypt /dev/vg0/safe /orvo/etc/cryptlvm/lvm.vg0-safe_crypt.pass\n"
        "vg0-gone_crypt /dev/vg0/gone /orvo/etc/cryptlvm/lvm.vg0-gone_crypt.pass\n"
        "vg0-lost_crypt /dev/vg0/lost /orvo/etc/cryptlvm/lvm.vg0-lost_crypt.pass\n";
    write("/etc/fstab", fstab);
    write("/etc/crypttab", crypttab);

    // A failing df (here: a hung mount) must not make /mnt/ lines look lost.
    backend.expect("sudo", {"df", "-l", "--output=target"})
        .prints("Mounted on\n/\n")
        .errs("df: /mnt/vg0/plain: Transport endpoint is not connected\n")
        .exits(1);
    EXPECT_FALSE(VXLvm::fixlost());
    EXPECT_EQ(read("/etc/fstab"), fstab);
    EXPECT_EQ(read("/etc/crypttab"), crypttab);

    backend.expect("sudo", {"df", "-l", "--output=target"})
        .prints("Mounted on\n/\n/dev\n/run\n/mnt/vg0/plain\n/mnt/vg0/safe\n")
        .repeatedly();
    EXPECT_TRUE(VXLvm::fixlost());
    EXPECT_EQ(read("/etc/fstab"), "# /etc/fstab: static file system information.\n"
                                  "UUID=0f4e8b7a-8f1c-4f55-9d2b-2a6c1e0d9f11 / ext4 defaults 0 1\n"
                                  "/dev/mapper/vg0-plain /mnt/vg0/plain btrfs nofail,defaults 0 0\n"
                                  "/dev/mapper/vg0-safe_crypt /mnt/vg0/safe xfs nofail,defaults 0 "
                                  "0\n");
    // gone's fstab line went, but having been named there keeps its mapping.
    EXPECT_EQ(read("/etc/crypttab"),
              "# <target name> <source device> <key file> <options>\n"
              "vg0-safe_crypt /dev/vg0/safe /orvo/etc/cryptlvm/lvm.vg0-safe_crypt.pass\n"
              "vg0-gone_crypt /dev/vg0/gone /orvo/etc/cryptlvm/lvm.vg0-gone_crypt.pass\n");
    // Nothing more to drop: fstab stays as it is.
    EXPECT_FALSE(VXLvm::fixlost());
}

} // namespace
