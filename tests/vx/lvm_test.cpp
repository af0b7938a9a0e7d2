#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo ");
const QString kDev = QStringLiteral("/dev/vg1/data");
const QString kMnt = QStringLiteral("/mnt/vg1/data");
const QString kKey = QStringLiteral("/orvo/etc/cryptlvm/lvm.vg1-data_crypt.pass");
const QString kFindmnt = kSudo + "findmnt -seJ -o UUID,SOURCE,TARGET,FSTYPE,OPTIONS,FREQ,PASSNO";
const QString kXfsOptions = QStringLiteral("nofail,defaults,usrquota,grpquota");
const QString kDetail = kSudo + "lvs --noheading --separator : -o vg_name,vg_free,lv_name,lv_path,"
                                "lv_dm_path,lv_size,lv_attr,lv_tags --units b /dev/vg1/data";
// "vgdisplay -c vg1" of the recorded group: 4 MiB extents, 168 free (672 MiB).
const QByteArray kVgdisplay = "  vg1:r/w:772:-1:0:1:1:-1:0:2:2:1560576:4096:381:213:168:"
                              "vVFfvU-dCLg-ix0R-1OpX-a8uA-hfhU-VHW7eQ\n";

// A recorded file as it stood: without the "# cat" line and the "# rc=" trailer.
QByteArray recordedFile(const QString& name)
{
    QList<QByteArray> lines = readFixture("storage/virtio/" + name).split('\n');
    lines.removeFirst();
    while (!lines.isEmpty() && (lines.last().isEmpty() || lines.last().startsWith("# rc=")))
        lines.removeLast();
    return lines.join('\n') + '\n';
}

QByteArray partedPrint(const QString& fstype)
{
    return "Model: Linux device-mapper (linear) (dm)\nPartition Table: loop\n\n"
           "Number  Start  End    Size   File system  Flags\n 1      0.00B  268MB  268MB  " +
           fstype.toUtf8() + "\n\n";
}

class LvmOps : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
        for (const char* dir : {"etc", "orvo/etc/cryptlvm", "dev/mapper", "mnt/vg1"})
            QDir(root.path()).mkpath(dir);
        // writeFile brackets its write with these.
        backend
            .expectIf("writeFile",
                      [](const LNX2ProcRequest& r) {
                          return r.program == "/usr/bin/sudo" &&
                                 QStringList{"mkdir", "touch", "chmod", "chown"}.contains(
                                     r.arguments.value(0));
                      })
            .repeatedly();
        backend.expectLine(kSudo + "systemctl daemon-reload").repeatedly();
    }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QString read(const QString& path) const
    {
        QFile file(root.path() + path);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : "<missing>";
    }
    void write(const QString& path, const QByteArray& text) const
    {
        QFile file(root.path() + path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    // The queries about /dev/vg1/data (mapper vg1-data, LUKS2 mapping open
    // when tagged "crypt") that every volume operation makes.
    void volume(const QString& tags)
    {
        backend.expectLine(kDetail)
            .prints(("  vg1:704643072B:data:/dev/vg1/data:/dev/mapper/vg1-data:268435456B:"
                     "-wi-a-----:" +
                     tags + "\n")
                        .toUtf8())
            .repeatedly();
        for (const QString& dev : {kDev, QString("/dev/mapper/vg1-data")})
            backend.expectLine(kSudo + "lvs --noheading -o lv_dm_path " + dev)
                .prints("  /dev/mapper/vg1-data\n")
                .repeatedly();
        auto& status = backend.expectLine(kSudo + "cryptsetup status /dev/mapper/vg1-data_crypt");
        status.repeatedly();
        if (tags == "crypt")
            status.prints(readToolOutput("storage/virtio/cryptsetup-status-luks2.txt"));
        else
            status.exits(4);
        backend
            .expectLine(kSudo + "lvs --noheading --separator : -o vg_name,lv_name,lv_path " + kDev)
            .prints("  vg1:data:/dev/vg1/data\n")
            .repeatedly();
    }
    void unmountedDf()
    {
        backend.expect("sudo", {"df", "-k"})
            .prints(readToolOutput("storage/virtio/df-k.txt"))
            .repeatedly();
    }
    // Mounting: the mount line, then the check that df lists source.
    void mounts(const QString& line, const QString& dev, const QString& source)
    {
        backend.expectLine(line);
        backend
            .expectLine(kSudo +
                        "lvs --noheading --separator : -o vg_name,lv_name,lv_dm_path,lv_tags " +
                        dev)
            .prints("  vg1:data:/dev/mapper/vg1-data:\n");
        backend.expect("sudo", {"df", "-l", "--output=source", source})
            .prints(("Filesystem\n" + source + "\n").toUtf8());
    }
    void findmnt()
    {
        backend.expectLine(kFindmnt).prints(readToolOutput("storage/virtio/findmnt-seJ.json"));
    }

    QTemporaryDir root;
    ScriptedBackend backend;
    QString msg;
};

TEST_F(LvmOps, GroupCreationAndExtentSize)
{
    backend.expectLine(kSudo + "vgs --noheading -o vg_name vg1").prints("  vg1\n");
    EXPECT_EQ(VXLvm::vgCreate(msg, "vg1", {"/dev/vdb"}, 64), kLvmGroupExists);
    backend.expectLine(kSudo + "vgs --noheading -o vg_name vg1").exits(5);
    for (const char* disk : {"/dev/vdb", "/dev/vdc"}) {
        backend.expectLine(kSudo + "wipefs -a " + disk);
        backend.expectLine(kSudo + "dd if=/dev/zero of=" + disk + " bs=512K count=20");
    }
    backend.expectLine(kSudo + "rm -rf /dev/vg1");
    backend.expectLine(kSudo + "vgcreate -s 32 vg1 /dev/vdb /dev/vdc");
    EXPECT_EQ(VXLvm::vgCreate(msg, "vg1", {"/dev/vdb", "/dev/vdc"}, 0), kLvmOk);
    const QStringList lines = backend.callLines();
    EXPECT_TRUE(lines.indexOf(kSudo + "rm -rf /dev/vg1") <
                lines.indexOf(kSudo + "wipefs -a /dev/vdb"));
    EXPECT_EQ(lines.last(), kSudo + "vgcreate -s 32 vg1 /dev/vdb /dev/vdc");

    backend.expectLine(kSudo + "vgdisplay -c vg9")
        .exits(5)
        .errs("  Volume group \"vg9\" not found\n");
    EXPECT_EQ(VXLvmPrivate::GetPESizeMb("vg9"), 32);
    backend.expectLine(kSudo + "vgdisplay -c vg1").prints(kVgdisplay);
    EXPECT_EQ(VXLvmPrivate::GetPESizeMb("vg1"), 4);
}

TEST_F(LvmOps, CreatesPlainAndThinVolumes)
{
    const QString create = kSudo + "lvcreate -y ";
    backend.expectLine(create + "-L 100 -n data vg1");
    backend.expectLine(create + "-l 100%FREE -n data vg1").repeatedly();
    EXPECT_TRUE(VXLvm::lvCreate("vg1", "data", 100, "xfs"));
    EXPECT_TRUE(VXLvm::lvCreate("vg1", "data", 0, "xfs"));
    EXPECT_TRUE(VXLvm::lvCreate("vg1", "data", -1, "Thin")); // only "thin" is thin

    // 1000 MiB free: up to 959 MiB the pool is the volume's size.
    backend.expectLine(kSudo + "vgs --noheading -o vg_free --units b vg1")
        .prints("  1048576000B\n")
        .repeatedly();
    for (const auto& [lv, mb] : {std::pair{"small", 32}, std::pair{"t959", 959}}) {
        const QString pool = QString(" vg1/") + lv + "_thinpool";
        backend.expectLine(create + "-T -L " + QString::number(mb) + pool);
        backend.expectLine(create + "-V " + QString::number(mb) + " -T" + pool + " -n " + lv);
    }
    EXPECT_TRUE(VXLvm::lvCreate("vg1", "small", 10, "thin"));
    EXPECT_TRUE(VXLvm::lvCreate("vg1", "t959", 959, "thin"));
    // 960 is 96 %: the pool takes the rest and the volume, named after the
    // group, the pool's real size.
    backend.expectLine(create + "-T -l 100%FREE vg1/big_thinpool");
    backend.expectLine(kSudo + "lvs vg1/big_thinpool --noheading -o lv_size --units b")
        .prints("  1044381696B\n");
    backend.expectLine(create + "-V 996 -T vg1/big_thinpool -n vg1");
    EXPECT_TRUE(VXLvm::lvCreate("vg1", "big", 960, "thin"));
    // A pool that fails stops the creation.
    backend.expectLine(create + "-T -L 32 vg1/bad_thinpool").exits(5);
    EXPECT_FALSE(VXLvm::lvCreate("vg1", "bad", 1, "thin"));
}

TEST_F(LvmOps, FormatsEncryptedAndLunVolumes)
{
    backend
        .expectLine(kSudo + "lvs --noheading --separator : -o vg_name,lv_name,lv_path,lv_dm_path")
        .prints("  vg0:plain:/dev/vg0/plain:/dev/mapper/vg0-plain\n"
                "  vg1:data:/dev/vg1/data:/dev/mapper/vg1-data\n")
        .repeatedly();
    const auto shell = [this](const QString& script) -> ScriptedBackend::Expectation& {
        return backend.expect("/usr/bin/sudo", {"/bin/bash", "-c", script});
    };
    const QString luksFormat =
        "/usr/bin/sudo echo -e s3cr@t | sudo cryptsetup -q -c aes-cbc-plain luksFormat " + kDev;
    backend.expectLine(kSudo + "lvchange -y /dev/vg1/data --addtag crypt");
    shell(luksFormat);
    shell("/usr/bin/sudo echo -e s3cr@t | sudo cryptsetup luksOpen /dev/vg1/data vg1-data_crypt");
    backend.expectLine(kSudo +
                       "/sbin/mkfs.ext4 -F -q -T largefile /dev/mapper/vg1-data_crypt -b 4096");
    EXPECT_TRUE(VXLvm::lvFormat(msg, "vg1", "data", "ext4", 4096, "s3cr@t"));

    // "lun": a tag and no file system.
    backend.expectLine(kSudo + "lvchange -y /dev/vg1/data --addtag lun");
    EXPECT_TRUE(VXLvm::lvFormat(msg, "vg1", "data", "lun", 0, ""));

    backend.expectLine(kSudo + "lvchange -y /dev/vg1/data --addtag crypt");
    shell(luksFormat).exits(5).errs("Cannot format device /dev/vg1/data in use.\n");
    EXPECT_FALSE(VXLvm::lvFormat(msg, "vg1", "data", "ext4", 4096, "s3cr@t"));
    EXPECT_EQ(msg, "Cannot format device /dev/vg1/data in use.\n");
}

TEST_F(LvmOps, MountsPlainVolumeAndAppendsFstab)
{
    volume("xfs");
    unmountedDf();
    write("/etc/fstab", recordedFile("etc-fstab.txt"));
    backend.expectIf(kSudo + "/bin/mkdir -p " + kMnt, [this](const LNX2ProcRequest& r) {
        const bool match = ScriptedBackend::lineOf(r) == kSudo + "/bin/mkdir -p " + kMnt;
        if (match)
            QDir(root.path()).mkpath("mnt/vg1/data");
        return match;
    });
    backend.expectLine(kSudo + "parted -s /dev/vg1/data print")
        .prints(partedPrint("xfs"))
        .repeatedly();
    mounts(kSudo + "/bin/mount -t xfs -o " + kXfsOptions + " /dev/vg1/data " + kMnt, kDev,
           "/dev/mapper/vg1-data");
    findmnt();
    EXPECT_EQ(VXLvm::lvMount(msg, kDev, kMnt, ""), kLvmOk) << msg.toStdString();

    const QStringList lines = backend.callLines();
    const int mkdir = lines.indexOf(kSudo + "/bin/mkdir -p " + kMnt);
    EXPECT_TRUE(mkdir >= 0 && mkdir < lines.indexOf(kSudo + "systemctl daemon-reload"));
    EXPECT_EQ(read("/etc/fstab"), "# UNCONFIGURED FSTAB FOR BASE SYSTEM\n"
                                  "/dev/mapper/cryptdata /mnt/cryptdata xfs defaults,nofail 0 2\n"
                                  "/dev/vg0/plain /mnt/plain btrfs defaults 0 0\n"
                                  "/dev/mapper/vg0-thin1 /mnt/thin1 xfs defaults,noatime 0 2\n"
                                  "/dev/mapper/vg0-cached /mnt/cached ext4 defaults 0 2\n"
                                  "/dev/md127 /mnt/notthere ext4 noauto 0 0\n"
                                  "/dev/vg1/data /mnt/vg1/data xfs " +
                                      kXfsOptions + " 0 0");
}

TEST_F(LvmOps, MountsEncryptedVolumeWithItsKey)
{
    volume("crypt");
    unmountedDf();
    QDir(root.path()).mkpath("mnt/vg1/data");
    write("/etc/fstab", recordedFile("etc-fstab.txt"));
    write("/etc/crypttab", recordedFile("etc-crypttab.txt"));
    // The mapping must be open already.
    EXPECT_EQ(VXLvm::lvMount(msg, kDev, kMnt, "s3cr@t"), kLvmFailed);

    write("/dev/mapper/vg1-data_crypt", "");
    ASSERT_TRUE(VXLvm::lvSavePwd(msg, "vg1", "data", "s3cr@t"));
    backend.expectLine(kSudo + "cryptsetup luksClose vg1-data_crypt");
    backend.expect("sudo", {"/bin/bash", "-c",
                            "/usr/bin/sudo echo -e s3cr@t | sudo cryptsetup luksOpen "
                            "/dev/vg1/data vg1-data_crypt"});
    mounts(kSudo + "/bin/mount /dev/mapper/vg1-data_crypt " + kMnt, "/dev/mapper/vg1-data",
           "/dev/mapper/vg1-data_crypt");
    backend.expectLine(kSudo + "parted -s /dev/mapper/vg1-data_crypt print")
        .prints(partedPrint("xfs"));
    backend.expect("/usr/bin/sudo", {"/bin/bash", "-c",
                                     "/usr/bin/sudo /usr/sbin/xfs_growfs " + kMnt + " >/dev/null"});
    findmnt();
    EXPECT_EQ(VXLvm::lvMount(msg, kDev, kMnt, "s3cr@t"), kLvmOk) << msg.toStdString();

    EXPECT_TRUE(
        read("/etc/fstab")
            .endsWith("\n/dev/mapper/vg1-data_crypt /mnt/vg1/data xfs " + kXfsOptions + " 0 0"));
    EXPECT_EQ(read("/etc/crypttab"),
              "cryptdata UUID=f81b6557-57ce-46e3-816d-d4b529bee01b /etc/keys/cryptdata.key luks\n"
              "vg1-data_crypt /dev/vg1/data " +
                  kKey + "\n");
    EXPECT_EQ(read(kKey), "s3cr@t");
}

TEST_F(LvmOps, KeepsLoadsAndForgetsKeys)
{
    QString pwd = "unchanged";
    EXPECT_EQ(VXLvm::lvLoadPwd(msg, pwd, "vg1", "data"), kLvmOk);
    EXPECT_EQ(msg, "密钥文件不存在(未保存密钥)");
    EXPECT_EQ(pwd, "unchanged");
    EXPECT_TRUE(VXLvm::lvSavePwd(msg, "vg1", "data", "")); // nothing kept, nothing to run
    EXPECT_TRUE(backend.callLines().isEmpty());

    EXPECT_TRUE(VXLvm::lvSavePwd(msg, "vg1", "data", "中文密码"));
    msg.clear();
    EXPECT_EQ(VXLvm::lvLoadPwd(msg, pwd, "vg1", "data"), kLvmOk);
    EXPECT_EQ(pwd, "中文密码");
    EXPECT_TRUE(msg.isEmpty());
    backend.expectLine(kSudo + "rm -f " + kKey);
    EXPECT_TRUE(VXLvm::lvSavePwd(msg, "vg1", "data", ""));
}

TEST_F(LvmOps, RefusesNamesPasswordsAndPathsBeforeRunning)
{
    QString pwd;
    EXPECT_FALSE(VXLvm::lvCreate("vg1", "$(reboot)", 10, "thin"));
    EXPECT_FALSE(VXLvm::lvFormat(msg, "vg1", "data", "xfs", 0, "a b"));
    EXPECT_EQ(msg, "参数错误");
    for (const char* bad : {"x;reboot", "-x", "$(reboot)"})
        EXPECT_EQ(VXLvm::lvMount(msg, kDev, kMnt, bad), kLvmTooSmall) << bad;
    EXPECT_EQ(VXLvm::lvMount(msg, kDev, kMnt + ";reboot", ""), kLvmTooSmall);
    EXPECT_EQ(VXLvm::lvMount(msg, "/dev/vg1/data -x", kMnt, ""), kLvmTooSmall);
    EXPECT_EQ(VXLvm::vgCreate(msg, "vg1", {"/dev/vdb", "/dev/vdc;reboot"}, 0), kLvmTooSmall);
    EXPECT_EQ(VXLvm::lvRemove(msg, "..", "data"), kLvmTooSmall);
    EXPECT_EQ(VXLvm::lvExtend(msg, "/dev/vg1/../data", 10), kLvmTooSmall);
    EXPECT_FALSE(VXLvm::lvSavePwd(msg, "vg1", "../../etc/x", "pw"));
    EXPECT_EQ(VXLvm::lvLoadPwd(msg, pwd, "..", "data"), kLvmTooSmall);
    EXPECT_EQ(VXLvmPrivate::cryptFilePath("vg1", "a/b"), "");
    EXPECT_TRUE(backend.callLines().isEmpty()) << backend.callLines().join("\n").toStdString();
}

TEST_F(LvmOps, FstabRewriteAndFindmntFailureGuard)
{
    const QByteArray fstab = recordedFile("etc-fstab.txt");
    write("/etc/fstab", fstab);
    findmnt();
    EXPECT_TRUE(VXLvmPrivate::fstabAppend("/dev/vg0/plain", "/mnt/plain", "xfs", "defaults", 0, 0));
    EXPECT_EQ(read("/etc/fstab").count("/dev/vg0/plain"), 1);
    EXPECT_TRUE(read("/etc/fstab").endsWith("\n/dev/vg0/plain /mnt/plain xfs defaults 0 0"));
    findmnt();
    EXPECT_FALSE(VXLvmPrivate::fstabRemove("/mnt/absent"));

    // findmnt failing must not wipe the table.
    write("/etc/fstab", fstab);
    backend.expectLine(kFindmnt).exits(1).errs("findmnt: can't read /etc/fstab\n");
    EXPECT_FALSE(VXLvmPrivate::fstabAppend(kDev, kMnt, "xfs", kXfsOptions, 0, 0));
    EXPECT_EQ(read("/etc/fstab"), QString::fromUtf8(fstab));
    EXPECT_EQ(backend.callLines().count(kSudo + "systemctl daemon-reload"), 1);
    // A table of comments only has nothing to lose.
    write("/etc/fstab", "# none yet\n\n");
    backend.expectLine(kFindmnt).exits(1);
    EXPECT_TRUE(VXLvmPrivate::fstabAppend(kDev, kMnt, "xfs", kXfsOptions, 0, 0));
    EXPECT_EQ(read("/etc/fstab"),
              "# none yet\n/dev/vg1/data /mnt/vg1/data xfs " + kXfsOptions + " 0 0");
}

TEST_F(LvmOps, ExtendChecksVolumeSizeThenSpace)
{
    backend.expectLine(kDetail).exits(5);
    EXPECT_EQ(VXLvm::lvExtend(msg, kDev, 600), kLvmNotFound);
    EXPECT_EQ(msg, "逻辑卷不存在");

    volume("ext4");
    // Mounted: df's used space (512 KiB) stands for the current size.
    backend.expect("sudo", {"df", "-k"})
        .prints(readToolOutput("storage/virtio/df-k.txt") +
                "/dev/mapper/vg1-data      262144      512    250000   1% /mnt/vg1/data\n");
    EXPECT_EQ(VXLvm::lvExtend(msg, kDev, 600), kLvmTooSmall);
    EXPECT_EQ(msg, "新的卷容量不能小于现有容量(只能扩容不能收缩)");
    unmountedDf();
    EXPECT_EQ(VXLvm::lvExtend(msg, kDev, 0), kLvmTooSmall);

    backend.expectLine(kSudo + "vgdisplay -c vg1").prints(kVgdisplay).repeatedly();
    EXPECT_EQ(VXLvm::lvExtend(msg, kDev, 673), kLvmNoSpace);
    EXPECT_EQ(msg, "可供扩容的空间不足");
    backend.expectLine(kSudo + "parted -s /dev/vg1/data print").prints(partedPrint("ext4"));
    backend.expectLine(kSudo + "lvextend -L 672M /dev/vg1/data");
    EXPECT_EQ(VXLvm::lvExtend(msg, kDev, 672), kLvmOk);
}

TEST_F(LvmOps, RemoveGoesOnWhenTheMappingStaysOpen)
{
    volume("crypt");
    unmountedDf();
    const QByteArray crypttab = "# <target name> <source device> <key file> <options>\n"
                                "vg1-data_crypt /dev/vg1/data " +
                                kKey.toUtf8() + "\n";
    write("/etc/crypttab", crypttab);
    write(kKey, "s3cr@t");
    backend.expectLine(kSudo + "cryptsetup luksClose vg1-data_crypt")
        .exits(5)
        .errs("Device vg1-data_crypt is still in use.\n");
    backend.expectLine(kSudo + "fuser -kc " + kDev).repeatedly();
    backend.expectLine(kSudo + "lvremove -f " + kDev)
        .exits(5)
        .errs("Logical volume vg1/data contains a filesystem in use.\n");
    EXPECT_EQ(VXLvm::lvRemove(msg, kDev), kLvmCloseFailed);
    EXPECT_EQ(msg, "Logical volume vg1/data contains a filesystem in use.\n");
    EXPECT_EQ(read("/etc/crypttab"), QString::fromUtf8(crypttab));
    EXPECT_EQ(read(kKey), "s3cr@t");

    // Closed: the key goes (detached) and so does its crypttab line.
    backend.expectLine(kSudo + "cryptsetup luksClose vg1-data_crypt");
    backend.expectLine(kSudo + "rm -f " + kKey);
    backend.expectLine(kSudo + "lvremove -f " + kDev);
    EXPECT_EQ(VXLvm::lvRemove(msg, kDev), kLvmOk);
    EXPECT_EQ(read("/etc/crypttab"), "# <target name> <source device> <key file> <options>\n");
    EXPECT_EQ(backend.calls().at(backend.callLines().indexOf(kSudo + "rm -f " + kKey)).mode,
              LNX2ProcMode::Detached);
}

} // namespace
