#include "vx/vxzfs.h"

#include "tests/support/scriptedbackend.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

const QString kListing =
    QStringLiteral("/usr/bin/sudo zfs list -Hpro name,available,used,mountpoint,mounted");

// Pools: backup (root at /backup), data and fast (roots under /mnt/), scratch
// (root not mounted, one dataset mounted under /mnt/).
QString listing()
{
    return QString::fromUtf8(readToolOutput("storage/zfs/zfs-list-Hpro.txt"));
}

QString keys(const QJsonObject& obj)
{
    return obj.keys().join(QLatin1Char(' '));
}

} // namespace

TEST(Zfs, AlloadTakesMountedLinesUnderMntAndKeepsOneDatasetCollection)
{
    const QJsonObject pools = zfsAlloadOf(listing());
    // backup is mounted outside /mnt/, scratch's root is not mounted.
    EXPECT_EQ(keys(pools), "data fast");
    QJsonObject data = pools.value("data").toObject();
    // Unmounted, legacy and volume lines are left out.
    EXPECT_EQ(keys(data.take("lvs").toObject()), "data/docs data/media data/media/photos");
    EXPECT_EQ(QJsonDocument(data).toJson(QJsonDocument::Compact),
              R"({"available":3710851743744,"capacity":7929776082944,"mntpath":"/mnt/data",)"
              R"("name":"data","used":4218924339200})");
    // The second pool also lists the first one's datasets, and scratch/tmp,
    // listed after it, lands in it too.
    EXPECT_EQ(keys(pools.value("fast").toObject().value("lvs").toObject()),
              "data/docs data/media data/media/photos scratch/tmp");

    // Blanks separate like tabs; lines of four fields are skipped; "yes" only.
    EXPECT_EQ(QJsonDocument(zfsAlloadOf("p 1 2 /mnt/p yes\np/a 1 2 /mnt/p/a\np/b 5 6 /mnt/p/b "
                                        "Yes\np/c x 3 /mnt/p/c yes\n"))
                  .toJson(QJsonDocument::Compact),
              R"({"p":{"available":1,"capacity":3,"lvs":{"p/c":{"available":0,"capacity":3,)"
              R"("mntpath":"/mnt/p/c","name":"p/c","used":3}},"mntpath":"/mnt/p","name":"p",)"
              R"("used":2}})");
}

TEST(Zfs, AllistSumsMountedDatasetsUnderMntPerPool)
{
    // Every mounted root counts, wherever it is mounted; only docs, media and
    // photos are summed for data. backup's datasets are outside /mnt/, fast's
    // only one is not mounted: both are 0, not the root's figures.
    EXPECT_EQ(QJsonDocument(zfsAllistOf(listing())).toJson(QJsonDocument::Compact),
              R"({"backup":{"free":0,"size":0,"vg":"backup"},)"
              R"("data":{"free":11132555231232,"size":16167329193984,"vg":"data"},)"
              R"("fast":{"free":0,"size":0,"vg":"fast"}})");
}

TEST(Zfs, ReportsRunTheListingAndAreEmptyWhenItFails)
{
    {
        ScriptedBackend backend;
        backend.expectLine(kListing).prints(listing().toUtf8()).repeatedly();
        EXPECT_EQ(keys(VXZfs::vgAlload()), "data fast");
        EXPECT_EQ(keys(VXZfs::vgAllist()), "backup data fast");
    }
    // Debian has no zfs; a damaged pool prints what it could read and fails.
    for (const QByteArray& err : {QByteArray("sudo: zfs: command not found\n"),
                                  QByteArray("cannot iterate filesystems: I/O error\n")}) {
        ScriptedBackend backend;
        backend.expectLine(kListing).prints(listing().toUtf8()).errs(err).exits(1).repeatedly();
        EXPECT_TRUE(VXZfs::vgAlload().isEmpty()) << err.constData();
        EXPECT_TRUE(VXZfs::vgAllist().isEmpty()) << err.constData();
        EXPECT_EQ(backend.callLines().size(), 2);
    }
}
