#include "vx/vxfilesystem.h"
#include "vx/vxfilesystem_p.h"

#include "gx2/gx2workers.h"

#include "tests/support/scriptedbackend.h"

#include <gtest/gtest.h>

#include <tuple>

TEST(VXFileSystem, MountOptionsByFileSystem)
{
    const QString journaled =
        "nofail,defaults,usrjquota=aquota.user,grpjquota=aquota.group,jqfmt=vfsv0";
    EXPECT_EQ(VXFileSystem::mountOptions("ext4"), journaled);
    EXPECT_EQ(VXFileSystem::mountOptions("ext3"), journaled);
    EXPECT_EQ(VXFileSystem::mountOptions("ntfs"), journaled);
    EXPECT_EQ(VXFileSystem::mountOptions("xfs"), "nofail,defaults,usrquota,grpquota");
    EXPECT_EQ(VXFileSystem::mountOptions("btrfs"), "nofail,defaults");
    EXPECT_EQ(VXFileSystem::mountOptions("zfs"), "");
    EXPECT_EQ(VXFileSystem::mountOptions(""), "");
}

TEST(VXFileSystem, MkfsLinesAndTimeLimitsOfBothForms)
{
    const std::tuple<const char*, int, const char*> cases[] = {
        {"ext4", 0, "/usr/bin/sudo /sbin/mkfs.ext4 -F -q -T largefile /dev/vg0/lv0 -b 4096"},
        {"ext3", 1024, "/usr/bin/sudo /sbin/mkfs.ext3 -F -q -T largefile /dev/vg0/lv0 -b 1024"},
        {"xfs", 0, "/usr/bin/sudo /sbin/mkfs.xfs -f -q -b size=4096 /dev/vg0/lv0"},
        {"xfs", -3, "/usr/bin/sudo /sbin/mkfs.xfs -f -q -b size=4096 /dev/vg0/lv0"},
        {"xfs", 65536, "/usr/bin/sudo /sbin/mkfs.xfs -f -q -b size=65536 /dev/vg0/lv0"},
        {"ntfs", 8192, "/usr/bin/sudo /sbin/mkfs.ntfs -f -q /dev/vg0/lv0"},
        {"btrfs", 0, "/usr/bin/sudo /sbin/mkfs.btrfs -f -q /dev/vg0/lv0"},
    };
    for (const auto& [fs, size, line] : cases) {
        EXPECT_EQ(VXFileSystemPrivate::formatCommand(fs, "/dev/vg0/lv0", size), line);
        ScriptedBackend backend;
        backend.expectLine(line);
        backend.expectLine(line);
        VXFileSystem job;
        QString error = "untouched";
        EXPECT_TRUE(job.create(fs, "/dev/vg0/lv0", size)) << line;
        EXPECT_TRUE(job.create(error, fs, "/dev/vg0/lv0", size)) << line;
        EXPECT_EQ(error, "untouched");
        const QList<LNX2ProcRequest> calls = backend.calls();
        ASSERT_EQ(calls.size(), 2);
        EXPECT_EQ(calls.at(0).startMs, 999);
        EXPECT_EQ(calls.at(0).finishMs, 7200000);
        EXPECT_EQ(calls.at(1).startMs, 999);
        EXPECT_EQ(calls.at(1).finishMs, 60000);
    }
}

TEST(VXFileSystem, FailedRunKeepsItsStandardErrorUnknownNameRunsNothing)
{
    const QString line = "/usr/bin/sudo /sbin/mkfs.ext4 -F -q -T largefile /dev/md0 -b 4096";
    ScriptedBackend backend;
    backend.expectLine(line).exits(1).errs("mke2fs: bad device\n");
    backend.expectLine(line).timesOut().errs("slow\n");
    backend.expectLine(line).crashes().errs("killed\n");
    backend.expectLine(line);
    VXFileSystem job;
    EXPECT_FALSE(job.create("ext4", "/dev/md0", 0));
    EXPECT_EQ(job.lastError(), "mke2fs: bad device\n");
    QString error;
    EXPECT_FALSE(job.create(error, "ext4", "/dev/md0", 0));
    EXPECT_EQ(error, "slow\n");
    EXPECT_EQ(job.lastError(), "slow\n");
    EXPECT_FALSE(job.create("ext4", "/dev/md0", 0));
    EXPECT_EQ(job.lastError(), "killed\n");
    EXPECT_TRUE(job.create("ext4", "/dev/md0", 0));
    EXPECT_EQ(job.lastError(), "killed\n"); // the last failed run's

    for (const char* fs : {"zfs", "", "EXT4", "ext4 -x"}) {
        EXPECT_EQ(VXFileSystemPrivate::formatCommand(fs, "/dev/md0", 0), "") << fs;
        EXPECT_FALSE(job.create(fs, "/dev/md0", 0));
        EXPECT_FALSE(job.create(error, fs, "/dev/md0", 0));
        EXPECT_FALSE(job.creating(fs, "/dev/md0", "volume", 0));
    }
    EXPECT_EQ(backend.calls().size(), 4);
}

TEST(VXFileSystem, CreatingFormatsOnAThreadOfItsOwn)
{
    ScriptedBackend backend;
    backend.expectLine("/usr/bin/sudo /sbin/mkfs.btrfs -f -q /dev/md1").exits(1);
    EXPECT_TRUE(VXFileSystem().creating("btrfs", "/dev/md1", "", 0));
    EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty());
    ASSERT_EQ(backend.calls().size(), 1);
    EXPECT_EQ(backend.calls().first().startMs, 999);
    EXPECT_EQ(backend.calls().first().finishMs, 7200000);
}

TEST(DeviceArguments, NoMkfsForAnythingButADevicePath)
{
    ScriptedBackend backend; // every call would be unexpected
    VXFileSystem job;
    for (const char* bad :
         {"/dev/sda b", "-x", "/dev/../sda", "/dev/sd\"a", "/dev/sda\n", "sda", ""}) {
        for (const char* fs : {"ext4", "ext3", "xfs", "ntfs", "btrfs"}) {
            EXPECT_EQ(VXFileSystemPrivate::formatCommand(fs, bad, 0), "");
            QString error = "untouched";
            EXPECT_FALSE(job.create(fs, bad, 0));
            EXPECT_FALSE(job.create(error, fs, bad, 0));
            EXPECT_EQ(error, "untouched");
            EXPECT_FALSE(job.creating(fs, bad, "", 0));
        }
    }
    EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty());
    EXPECT_EQ(backend.callLines(), QStringList());
}
