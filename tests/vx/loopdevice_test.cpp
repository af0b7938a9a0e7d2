#include "vx/vxdisk.h"
#include "vx/vxfilesystem.h"

#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"

#include "tests/support/processes.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The real tools on loop devices: the machine's own disks are never touched.
namespace {

constexpr qint64 kMiB = 1024 * 1024;

QString run(const QString& program, const QStringList& args, bool* ok = nullptr)
{
    const LNX2ProcResult r = procRun(program, args, 999, 60000);
    if (ok)
        *ok = r.ok();
    return QString::fromUtf8(r.out).trimmed();
}

// A low-level probe each time: blkid's cache would remember the last format.
QString blkidTag(const QString& dev, const QString& tag)
{
    return run("blkid", {"-p", "-o", "value", "-s", tag, dev});
}

// A sparse image attached as a loop device with partition scanning, detached
// again on every way out of the test.
class LoopDevice
{
public:
    explicit LoopDevice(qint64 bytes)
    {
        image = dir.filePath("disk.img");
        QFile file(image);
        if (!dir.isValid() || !file.open(QIODevice::WriteOnly) || !file.resize(bytes))
            return;
        file.close();
        bool ok = false;
        const QString path = run("losetup", {"-f", "--show", "-P", image}, &ok);
        if (ok && path.startsWith("/dev/loop"))
            dev = path;
    }
    ~LoopDevice()
    {
        if (dev.isEmpty())
            return;
        run("losetup", {"-d", dev});
        // The kernel detaches only when the last opener closes: a probe of
        // another test (libblkid walks every device) may still hold it.
        EXPECT_TRUE(waitUntil(
            [&] {
                return run("losetup", {"-j", image}).isEmpty();
            },
            10000, 50))
            << "loop device left behind";
    }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    QString part(int number) const { return dev + "p" + QString::number(number); }
    // The kernel's view of the partition table, which parted updates itself;
    // partx covers the case where it could not.
    bool partitionShows(int number, bool present) const
    {
        run("partx", {"-u", dev});
        return waitUntil([&] { return QFile::exists(part(number)) == present; }, 10000, 50);
    }

    QTemporaryDir dir;
    QString image;
    QString dev;
};

QByteArray readAt(const QString& dev, qint64 offset, qint64 size)
{
    QFile file(dev);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(offset))
        return QByteArray();
    return file.read(size);
}

bool writeAt(const QString& dev, qint64 offset, const QByteArray& data)
{
    QFile file(dev);
    return file.open(QIODevice::ReadWrite) && file.seek(offset) && file.write(data) == data.size();
}

} // namespace

TEST(LoopDevice, PartitionFormatWipeAndRemoveWithTheRealTools)
{
    LoopDevice loop(400 * kMiB); // mkfs.xfs wants 300 MB
    ASSERT_FALSE(loop.dev.isEmpty()) << "losetup failed";
    VXDisk disk;
    const QString p1 = loop.part(1);

    ASSERT_TRUE(disk.createPart(loop.dev));
    ASSERT_TRUE(loop.partitionShows(1, true));
    const QString table = run("parted", {"-s", loop.dev, "print"});
    EXPECT_TRUE(table.contains("Partition Table: gpt")) << qPrintable(table);
    EXPECT_TRUE(table.contains("raid")) << qPrintable(table);
    EXPECT_TRUE(run("lsblk", {"-lno", "PATH,TYPE", loop.dev}).contains(p1 + " part"));

    // ntfs first: mkfs.ntfs leaves other signatures behind, the others do not.
    VXFileSystem fs;
    for (const char* type : {"ntfs", "ext4", "ext3", "xfs", "btrfs"}) {
        EXPECT_TRUE(fs.create(type, p1, 0)) << type << ": " << qPrintable(fs.lastError());
        EXPECT_EQ(blkidTag(p1, "TYPE"), type);
        if (QLatin1String(type) == QLatin1String("ext4")) {
            EXPECT_EQ(disk.fstype(loop.dev), "ext4");
            EXPECT_EQ(blkidTag(p1, "BLOCK_SIZE"), "4096");
        }
    }
    QString error;
    EXPECT_FALSE(fs.create(error, "xfs", p1, 1000));
    EXPECT_TRUE(error.contains("power of 2")) << qPrintable(error);
    EXPECT_EQ(fs.lastError(), error);
    EXPECT_EQ(blkidTag(p1, "TYPE"), "btrfs");

    // Marks inside and just past the 10 MiB that dd zeroes.
    const QByteArray mark(4096, '\xab');
    ASSERT_TRUE(writeAt(p1, 5 * kMiB, mark));
    ASSERT_TRUE(writeAt(p1, 10 * kMiB, mark));
    ASSERT_TRUE(disk.wipefs(p1, false));
    EXPECT_EQ(blkidTag(p1, "TYPE"), "");
    EXPECT_EQ(readAt(p1, 0, 10 * kMiB), QByteArray(10 * kMiB, '\0'));
    EXPECT_EQ(readAt(p1, 10 * kMiB, mark.size()), mark);

    EXPECT_TRUE(disk.removePart(loop.dev));
    EXPECT_TRUE(loop.partitionShows(1, false));
    EXPECT_EQ(blkidTag(loop.dev, "PTTYPE"), "");
    // Nothing left to delete: parted fails, the wipe still runs.
    EXPECT_FALSE(disk.removePart(loop.dev));
}

TEST(LoopDevice, WholeDeviceFileSystemSeenByLibblkid)
{
    LoopDevice loop(320 * kMiB);
    ASSERT_FALSE(loop.dev.isEmpty()) << "losetup failed";
    VXFileSystem fs;
    ASSERT_TRUE(fs.create("xfs", loop.dev, 0)) << qPrintable(fs.lastError());
    bool labelled = false;
    run("xfs_admin", {"-L", "vxloop", loop.dev}, &labelled);
    ASSERT_TRUE(labelled);
    const QJsonObject info = VXDisk().allDevicesInfo().value(loop.dev).toObject();
    EXPECT_EQ(info.value("type").toString(), "xfs");
    EXPECT_EQ(info.value("label").toString(), "vxloop");
    EXPECT_EQ(info.value("uuid").toString(), blkidTag(loop.dev, "UUID"));
    EXPECT_FALSE(info.value("uuid").toString().isEmpty());

    // Background wipe: the call returns, the worker does the rest.
    ASSERT_TRUE(VXDisk().wipefs(loop.dev, true));
    EXPECT_TRUE(GX2Workers::joinAll(30000).isEmpty());
    EXPECT_EQ(blkidTag(loop.dev, "TYPE"), "");
    EXPECT_EQ(VXDisk().allDevicesInfo().value(loop.dev).toObject().value("type").toString(), "");
}
