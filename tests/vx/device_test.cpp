#include "vx/vxdevice.h"
#include "vx/vxdisk.h"

#include "tests/support/scriptedbackend.h"

#include <gtest/gtest.h>

TEST(DeviceArguments, OnlyPlainPathsUnderDev)
{
    for (const char* good :
         {"/dev/sda", "/dev/nvme0n1p1", "/dev/mapper/vg0-data_crypt",
          "/dev/disk/by-id/ata-VMDISK-SATA_VMDISK0", "/dev/md/data:5", "/dev/vg_0/lv.x+y@z"})
        EXPECT_TRUE(isDevicePath(good)) << good;
    for (const char* bad :
         {"", "/dev/", "sda", "/dev/sda mklabel msdos", "/dev/sda\n", "/dev/sda\t", "-/dev/sda",
          "/dev/-x", "/dev/../etc/passwd", "/dev/./sda", "/dev//sda", "/dev/sd\"a", "/dev/sd'a",
          "/dev/sd;a", "/dev/sd$a", "/dev/sd`a`", "/dev/sda/", "/sys/block/sda", "/dev/sdä"})
        EXPECT_FALSE(isDevicePath(QString::fromUtf8(bad))) << bad;
}

// Nothing may run for an argument that could add an option or a second
// device to a root command.
TEST(DeviceArguments, InventoryFunctionsRunNothingForBadPaths)
{
    ScriptedBackend tools; // any call fails the test
    VXDisk disk;
    for (const QString bad : {"/dev/sda b", "-x", "/dev/../sda", "/dev/sd\"a", "/dev/sda\n"}) {
        bool a = false, b = false, c = false, d = false, e = false, f = false;
        QString text;
        EXPECT_TRUE(disk.acquit(bad).isEmpty());
        if (!bad.endsWith('\n')) { // usedFor trims first
            EXPECT_EQ(disk.usedFor(bad), 0);
        }
        EXPECT_FALSE(disk.usedForLvm(bad));
        EXPECT_FALSE(disk.usedForZfs(bad));
        EXPECT_FALSE(disk.devTypes(bad, a, b, c, d, e, f));
        EXPECT_EQ(disk.devOf(bad), "");
        EXPECT_TRUE(disk.partsOf(bad).isEmpty());
        EXPECT_EQ(disk.partOf(bad), "");
        EXPECT_TRUE(disk.partitions(bad).isEmpty());
        EXPECT_FALSE(disk.partExists(bad));
        EXPECT_FALSE(disk.serialNumber(text, bad));
        EXPECT_EQ(disk.fstype(bad), "");
    }
    EXPECT_TRUE(tools.calls().isEmpty());
}
