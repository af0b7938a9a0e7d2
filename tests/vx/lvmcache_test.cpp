#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"
#include "vx/vxlvmcacheparse.h"

#include "tests/support/scriptedbackend.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo ");
const QString kAvail = "lvs vg1/vg1_vdc_unused_cache --noheading -o lv_size --units m";
// 4 MiB extents.
const QByteArray kVgdisplay = "  vg1:r/w:772:-1:0:1:1:-1:0:2:2:1560576:4096:381:213:168:"
                              "vVFfvU-dCLg-ix0R-1OpX-a8uA-hfhU-VHW7eQ\n";

// "lvs -o +devices --noheadings -a vg1" (LVM 2.03) of a group on vdb with
// cache disks: vdc (the cache of "data", then its placeholder), vde (all of
// it the cache of "logs"), vdf (a pool not bound yet), vdd (placeholder only).
const QByteArray kListing =
    R"(  data                             vg1 Cwi-aoC---  10.00g [vg1_data_ssd_cache_cpool] [data_corig] 0.01   1.17            0.00             data_corig(0)
  [data_corig]                     vg1 owi-aoC---  10.00g                                                                            /dev/vdb(0)
  logs                             vg1 Cwi-aoC---   2.00g [vg1_logs_ssd_cache_cpool] [logs_corig] 0.00   0.72            0.00             logs_corig(0)
  [logs_corig]                     vg1 owi-aoC---   2.00g                                                                            /dev/vdb(2560)
  [lvol0_pmspare]                  vg1 ewi-------  96.00m                                                                            /dev/vdb(3072)
  plain                            vg1 -wi-a-----   1.00g                                                                            /dev/vdb(3096)
  [vg1_data_ssd_cache_cpool]       vg1 Cwi---C--- 920.00m                                          0.01   1.17            0.00             vg1_data_ssd_cache_cpool_cdata(0)
  [vg1_data_ssd_cache_cpool_cdata] vg1 Cwi-ao---- 920.00m                                                                            /dev/vdc(13)
  [vg1_data_ssd_cache_cpool_cmeta] vg1 ewi-ao----  52.00m                                                                            /dev/vdc(0)
  [vg1_logs_ssd_cache_cpool]       vg1 Cwi---C---  <1.82g                                          0.00   0.72            0.00             vg1_logs_ssd_cache_cpool_cdata(0)
  [vg1_logs_ssd_cache_cpool_cdata] vg1 Cwi-ao----  <1.82g                                                                            /dev/vde(24)
  [vg1_logs_ssd_cache_cpool_cmeta] vg1 ewi-ao----  96.00m                                                                            /dev/vde(0)
  vg1_temp_ssd_cache               vg1 Cwi---C--- 200.00m                                                                            vg1_temp_ssd_cache_cdata(0)
  [vg1_temp_ssd_cache_cdata]       vg1 Cwi------- 200.00m                                                                            /dev/vdf(3)
  [vg1_temp_ssd_cache_cmeta]       vg1 ewi-------  12.00m                                                                            /dev/vdf(0)
  vg1_vdc_unused_cache             vg1 -wi-a-----  <5.00g                                                                            /dev/vdc(243)
  vg1_vdd_unused_cache             vg1 -wi-a-----  <8.00g                                                                            /dev/vdd(0)
)";

QByteArray lvReport(const QByteArray& entries)
{
    return "  {\n      \"report\": [\n          {\n              \"lv\": [\n" + entries +
           "\n              ]\n          }\n      ]\n  }\n";
}

// A tool run as the test scripts it: its line, what it prints, its exit code
// (a failing one prints on stderr).
struct Step
{
    Step() = default;
    Step(const QString& line, const QByteArray& out = {}, int rc = 0) : line(line), out(out), rc(rc)
    {
    }
    QString line;
    QByteArray out;
    int rc = 0;
};

QStringList script(ScriptedBackend& backend, const QList<Step>& steps)
{
    QStringList lines;
    for (const Step& step : steps) {
        auto& expectation = backend.expectLine(kSudo + step.line);
        if (step.rc == 0)
            expectation.prints(step.out);
        else
            expectation.exits(step.rc).errs(step.out);
        lines << kSudo + step.line;
    }
    return lines;
}

// The calls of the volume tools, without the disk inventory wipefs consults.
QStringList lvmLines(const ScriptedBackend& backend)
{
    static const QStringList tools{"vgreduce", "wipefs",   "dd",       "pvcreate",
                                   "vgextend", "lvs",      "lvcreate", "lvextend",
                                   "lvremove", "lvreduce", "lvconvert"};
    QStringList lines;
    for (const LNX2ProcRequest& call : backend.calls()) {
        if (tools.contains(call.arguments.value(0)))
            lines << ScriptedBackend::lineOf(call);
    }
    return lines;
}

} // namespace

TEST(LvmCacheParse, PlaceholderSizeExtentsAndName)
{
    EXPECT_EQ(cachePlaceholderMbOf("  10.01m\n"), 11);
    EXPECT_EQ(cachePlaceholderMbOf("  10.00m\n"), 10);
    EXPECT_EQ(cachePlaceholderMbOf("  Failed to find logical volume\n"), 0);

    // Whole extents only; the metadata is a twentieth, rounded up to extents.
    const CacheExtents odd = cacheExtentsOf(2000, 1003, 4);
    EXPECT_EQ(std::make_tuple(odd.alignedMb, odd.reduceK, odd.metaK, odd.dataK),
              std::make_tuple(1000, 1024000, 53248, 917504));

    EXPECT_EQ(cachePlaceholderName("vg1", "/dev/disk/by-id/ata-SSD_1"),
              "vg1_ata-SSD_1_unused_cache");
}

TEST(LvmCacheParse, CacheDisksAndTheirSpaceFromTheListings)
{
    // vde's whole space is a bound pool: listed through its "_cpool_cdata]".
    EXPECT_EQ(cacheDisksOf(kListing),
              (QStringList{"/dev/vdc", "/dev/vde", "/dev/vdf", "/dev/vdd"}));

    // Per disk, the last cache line counts; the pool not bound yet is no cache.
    const QJsonObject disks = cacheDisksLoadOf(kListing);
    const auto entry = [](const char* dev, qint64 size, qint64 free) {
        return QJsonObject{{"dev", dev}, {"size", size}, {"free", free}, {"capacity", size + free}};
    };
    EXPECT_EQ(disks, (QJsonObject{{"/dev/vdc", entry("/dev/vdc", 0, qint64(5368709120))},
                                  {"/dev/vdd", entry("/dev/vdd", 0, qint64(8589934592))},
                                  {"/dev/vde", entry("/dev/vde", qint64(100663296), 0)}}));
}

TEST(LvmCacheAppend, CarvesMetaAndDataOutOfThePlaceholderInWholeExtents)
{
    const QString create = "lvcreate -y -n vg1_data_ssd_cache";
    const QString bind = "lvconvert --type cache --cachepool vg1_data_ssd_cache --cachemode "
                         "writethrough vg1/data --force -y";
    QString msg;
    {
        // All of it: 100000 MiB in 4 MiB extents.
        ScriptedBackend backend;
        const QStringList lines = script(
            backend, {{kAvail, "  100000.00m\n"},
                      {"vgdisplay -c vg1", kVgdisplay},
                      {"lvremove -f vg1/vg1_vdc_unused_cache -y"},
                      {create + "_meta -L 5120000K vg1 /dev/vdc"},
                      {create + " -L 92160000K vg1 /dev/vdc"},
                      {"lvconvert --type cache-pool --poolmetadata vg1_data_ssd_cache_meta "
                       "vg1/vg1_data_ssd_cache -y"},
                      {bind},
                      {kAvail, "  Failed to find logical volume \"vg1/vg1_vdc_unused_cache\"\n", 5},
                      {"lvcreate -y -n vg1_vdc_unused_cache -l 100%FREE vg1 /dev/vdc", "", 5}});
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 0, "writethrough"), 0);
        EXPECT_EQ(backend.callLines(), lines);
    }
    {
        // 500 MiB: the reduce of the (removed) placeholder follows its removal.
        ScriptedBackend backend;
        const QStringList lines =
            script(backend, {{kAvail, "  100000.00m\n"},
                             {"vgdisplay -c vg1", kVgdisplay},
                             {"lvremove -f vg1/vg1_vdc_unused_cache -y"},
                             {"lvreduce -L 101888000K vg1/vg1_vdc_unused_cache --force -y", "", 5},
                             {create + "_meta -L 28672K vg1 /dev/vdc"},
                             {create + " -L 454656K vg1 /dev/vdc", "", 5}});
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 500, "writethrough"), 9969);
        EXPECT_EQ(msg, "缓存空间创建失败");
        EXPECT_EQ(backend.callLines(), lines);
    }
    {
        // Under three extents, and a disk without a placeholder.
        ScriptedBackend backend;
        script(backend, {{kAvail, "  100000.00m\n"}, {"vgdisplay -c vg1", kVgdisplay}});
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 11, "writeback"), 9973);
        EXPECT_EQ(msg, "可用缓存空间不够");
        script(backend, {{kAvail, "  Failed to find logical volume\n", 5}});
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 100, "writeback"), 9973);
        EXPECT_EQ(msg, "可用缓存空间不足");
    }
    {
        // Pool and binding failures leave what was made.
        ScriptedBackend backend;
        backend.allowOthers();
        backend.expectLine(kSudo + kAvail).prints("  100000.00m\n").repeatedly();
        backend.expectLine(kSudo + "vgdisplay -c vg1").prints(kVgdisplay).repeatedly();
        backend
            .expectLine(kSudo + "lvconvert --type cache-pool --poolmetadata "
                                "vg1_data_ssd_cache_meta vg1/vg1_data_ssd_cache -y")
            .exits(5);
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 0, "writethrough"), 9908);
        EXPECT_EQ(msg, "缓存池创建失败");
        EXPECT_TRUE(backend.callLines().last().contains("cache-pool"));
        backend.expectLine(kSudo + bind).exits(5);
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 0, "writethrough"), 9922);
        EXPECT_EQ(msg, "绑定缓存区失败");
        EXPECT_EQ(backend.callLines().last(), kSudo + bind);
    }
}

TEST(LvmCacheRemove, StopsAtEachFailureInOrder)
{
    const QList<Step> all{
        {"lvs -a vg1 -o pool_lv --noheadings -S lv_name=data", "  [vg1_data_ssd_cache_cpool]\n"},
        {"lvs -a vg1 -o devices --noheadings -S lv_name=vg1_data_ssd_cache_cpool",
         "  vg1_data_ssd_cache_cpool_cdata(0)\n"},
        {"lvs -a vg1 -o devices --noheadings -S lv_name=vg1_data_ssd_cache_cpool_cdata",
         "  /dev/vdc(13)\n"},
        {"vgreduce vg1 --removemissing --force -y"},
        {"lvconvert --uncache vg1/data --force -y"},
        {"lvs vg1/vg1_vdc_unused_cache --noheading -o lv_size --units m", "  5116.00m\n"},
        {"lvextend -l +100%FREE vg1/vg1_vdc_unused_cache /dev/vdc"},
    };
    // The step that fails (or answers what makes the next one fail), its
    // answer, the code and message, and how many steps ran.
    const std::tuple<int, Step, int, QString, int> cases[] = {
        {0, {"", "  vg1_data_ssd_cache\n"}, 9994, "逻辑卷的缓存空间不存在", 1},
        {1, {"", "  Volume group \"vg1\" not found\n", 5}, 9921, "缓存池空间解绑失败", 2},
        {1, {"", "  \n"}, 9914, "逻辑卷缓存区名称错误", 2},
        {2, {"", "  Unrecognised field: devices\n", 3}, 9924, "  Unrecognised field: devices\n", 3},
        {4, {"", "  Cannot uncache\n", 5}, 9999, "  /dev/vdc(13)\n", 5},
        {6, {"", "  Insufficient free space\n", 5}, 9999, "  /dev/vdc(13)\n", 7},
        {7, {}, 0, "", 7},
    };
    for (const auto& [at, answer, code, text, ran] : cases) {
        ScriptedBackend backend;
        QList<Step> steps = all.mid(0, ran);
        if (at < all.size())
            steps[at] = {all.at(at).line, answer.out, answer.rc};
        const QStringList lines = script(backend, steps);
        QString msg;
        EXPECT_EQ(VXLvm::lvCacheRemove(msg, "vg1", "data"), code) << at;
        EXPECT_EQ(msg, text) << at;
        EXPECT_EQ(backend.callLines(), lines) << at;
    }
}

TEST(LvmCacheGroup, DisksJoinWithAPlaceholderAndLeaveOnlyWhenCacheDisks)
{
    const QList<Step> all{
        {"vgreduce vg1 --removemissing --force -y"},
        {"wipefs -a /dev/vdc"},
        {"dd if=/dev/zero of=/dev/vdc bs=512K count=20"},
        {"pvcreate /dev/vdc", "  Physical volume \"/dev/vdc\" successfully created.\n"},
        {"vgextend -y vg1 /dev/vdc", "  Volume group \"vg1\" successfully extended\n"},
        {kAvail, "  Failed to find logical volume \"vg1/vg1_vdc_unused_cache\"\n", 5},
        {"lvcreate -y -n vg1_vdc_unused_cache -l 100%FREE vg1 /dev/vdc"},
    };
    const QByteArray busy = "  Can't open /dev/vdc exclusively.  Mounted filesystem?\n";
    const std::tuple<int, int, int, QString> cases[] = {
        // failing step, code, steps that ran, message
        {1, 9914, 2, ""},
        {3, 9969, 4, busy},
        {4, 9900, 5, busy},
        {6, 9985, 7, "  Volume group \"vg1\" successfully extended\n"},
        {7, 0, 7, "  Volume group \"vg1\" successfully extended\n"},
    };
    for (const auto& [at, code, ran, text] : cases) {
        ScriptedBackend backend;
        // The inventory wipefs checks for the system disk.
        backend.allowOthers(ScriptedBackend::succeeded(
            R"({"blockdevices": [{"name": "vdc", "path": "/dev/vdc", "type": "disk"}]})"));
        QList<Step> steps = all.mid(0, ran);
        if (at < ran)
            steps[at] = {all.at(at).line, busy, 5};
        const QStringList lines = script(backend, steps);
        QString msg;
        EXPECT_EQ(VXLvm::vgCacheAppend(msg, "vg1", "/dev/vdc"), code) << at;
        EXPECT_EQ(msg, text) << at;
        EXPECT_EQ(lvmLines(backend), lines) << at;
    }

    const Step repair{"vgreduce vg1 --removemissing --force -y"};
    const Step listing{"lvs -o +devices --noheadings -a vg1", kListing};
    {
        // vdb holds data only.
        ScriptedBackend backend;
        const QStringList lines = script(backend, {repair, listing});
        EXPECT_EQ(VXLvm::vgCacheRemove("vg1", "/dev/vdb"), 1);
        EXPECT_EQ(backend.callLines(), lines);
    }
    {
        // vdc still holds a bound pool: the placeholder comes back.
        ScriptedBackend backend;
        const QStringList lines =
            script(backend, {repair,
                             listing,
                             {"lvremove -f vg1/vg1_vdc_unused_cache -y"},
                             {"vgreduce vg1 /dev/vdc -y", "  Physical volume still in use\n", 5},
                             {kAvail, "  Failed to find logical volume\n", 5},
                             {"lvcreate -y -n vg1_vdc_unused_cache -l 100%FREE vg1 /dev/vdc"}});
        EXPECT_NE(VXLvm::vgCacheRemove("vg1", "/dev/vdc"), 0);
        EXPECT_EQ(backend.callLines(), lines);
    }
    {
        ScriptedBackend backend;
        // Over all groups: bound pools' data and metadata, and placeholders.
        script(
            backend,
            {{"lvs -a --reportformat json --noheadings -o "
              "vg_name,lv_path,lv_name,lv_size --unit b",
              lvReport(
                  R"j({"vg_name":"vg1", "lv_path":"", "lv_name":"[vg1_data_ssd_cache_cpool]", "lv_size":"964689920B"},
{"vg_name":"vg1", "lv_path":"", "lv_name":"[vg1_data_ssd_cache_cpool_cdata]", "lv_size":"964689920B"},
{"vg_name":"vg1", "lv_path":"", "lv_name":"[vg1_data_ssd_cache_cpool_cmeta]", "lv_size":"54525952B"},
{"vg_name":"vg1", "lv_path":"", "lv_name":"[vg1_temp_ssd_cache_cdata]", "lv_size":"209715200B"},
{"vg_name":"vg1", "lv_path":"/dev/vg1/vg1_vdc_unused_cache", "lv_name":"vg1_vdc_unused_cache", "lv_size":"5364514816B"},
{"vg_name":"vg2", "lv_path":"/dev/vg2/plain", "lv_name":"plain", "lv_size":"1073741824B"})j")}});
        EXPECT_EQ(VXLvm::vgCacheAlload(),
                  (QJsonObject{{"vg1", QJsonObject{{"capacity", qint64(6383730688)},
                                                   {"size", qint64(1019215872)},
                                                   {"free", qint64(5364514816)}}}}));
    }
}

TEST(LvmCacheDetail, ReportsThePoolWithItsDiskOnlyForCachedVolumes)
{
    const QString pool = "-S lv_name=vg1_data_ssd_cache_cpool";
    const QByteArray devices = "  vg1_data_ssd_cache_cpool_cdata(0)\n";
    ScriptedBackend backend;
    script(
        backend,
        {{"lvs -a --noheadings -o lv_layout -S lv_name=plain vg1", "  linear\n"},
         {"lvs -a --noheadings -o lv_layout -S lv_name=data vg1", "  cache\n"},
         {"lvs -a vg1 -o pool_lv --noheadings -S lv_name=data", "  [vg1_data_ssd_cache_cpool]\n"},
         {"lvs -a vg1 " + pool +
              " --units k  --reportformat json  -o lv_size,lv_metadata_size,cache_total_blocks,"
              "data_percent,metadata_percent,copy_percent,cache_used_blocks,cache_dirty_blocks,"
              "cache_read_hits,cache_read_misses,cache_write_hits,cache_write_misses,cache_mode",
          lvReport(
              R"j({"lv_size":"942080.00k", "lv_metadata_size":"53248.00k", "cache_mode":"writeback"})j")},
         {"lvs -a vg1 -o lv_name,pool_lv,devices --noheadings --reportformat json",
          lvReport(
              R"j({"lv_name":"data", "pool_lv":"[vg1_data_ssd_cache_cpool]", "devices":"data_corig(0)"},
{"lv_name":"[vg1_data_ssd_cache_cpool]", "pool_lv":"", "devices":"vg1_data_ssd_cache_cpool_cdata(0)"},
{"lv_name":"[vg1_data_ssd_cache_cpool_cdata]", "pool_lv":"", "devices":"/dev/vdc(13)"})j")},
         {"lvs -a vg1 -o devices --noheadings " + pool, devices}});
    QJsonObject obj;
    EXPECT_FALSE(VXLvm::lvCacheDetail(obj, "vg1", "plain"));
    ASSERT_TRUE(VXLvm::lvCacheDetail(obj, "vg1", "data"));
    EXPECT_EQ(obj, (QJsonObject{{"size", qint64(1073741824)},
                                {"cache_mode", "writeback"},
                                {"lvpath", "/dev/vdc"},
                                {"cachepath", QString(devices)}}));
    // Volumes without a pool, and one whose pool is thin.
    QString dev = "unset";
    backend
        .expectLine(kSudo + "lvs -a vg1 -o lv_name,pool_lv,devices --noheadings --reportformat "
                            "json")
        .prints(lvReport(R"j({"lv_name":"plain", "pool_lv":"", "devices":"/dev/vdb(3096)"},
{"lv_name":"thin1", "pool_lv":"tpool", "devices":""})j"))
        .repeatedly();
    for (const char* lv : {"plain", "thin1", "gone"})
        EXPECT_FALSE(VXLvm::lvCacheDev(dev, "vg1", lv)) << lv;
    EXPECT_EQ(dev, "unset");
}

TEST(LvmCacheArgs, RefusedArgumentsAndModesRunNothing)
{
    ScriptedBackend backend;
    QString msg;
    EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 0, "WriteBack"), 9922);
    EXPECT_EQ(msg, "绑定缓存区失败");
    for (const char* mode : {"", "write-back", "writeback --yes"})
        EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "data", "/dev/vdc", 0, mode), 9922) << mode;
    EXPECT_EQ(VXLvm::lvCacheAppend(msg, "vg1", "da ta", "/dev/vdc", 0, "writeback"), 9995);
    EXPECT_EQ(msg, "参数错误");
    EXPECT_EQ(VXLvm::vgCacheAppend(msg, "vg1", "/dev/../vdc"), 9995);
    EXPECT_EQ(VXLvm::lvCacheRemove(msg, "-vg1", "data"), 9995);
    EXPECT_EQ(VXLvm::vgCacheRemove("vg1", "vdc"), 1);
    EXPECT_FALSE(VXLvm::vgCacheActive("vg1;", "/dev/vdc"));
    EXPECT_FALSE(VXLvmPrivate::CombineLVWithCache("vg1", "data", "pool", "writeback -y"));
    EXPECT_EQ(VXLvmPrivate::availCacheSizeMb("vg1", "/dev/vdc x"), 0);
    EXPECT_TRUE(VXLvm::vgCacheAllist("..").isEmpty());
    EXPECT_TRUE(backend.callLines().isEmpty()) << backend.callLines().join("\n").toStdString();
}

// What LVM 2.03 really printed in the guest along one cache's life
// (tests/fixtures/storage/cache/README.md).
TEST(LvmCacheParse, RecordedLvm203Outputs)
{
    const auto out = [](const char* name) {
        return QString::fromUtf8(readToolOutput(QStringLiteral("storage/cache/") + name));
    };
    const qint64 mib = 1 << 20;
    // The cache disk of a pool bound (with and without a placeholder beside
    // it) and of a pool made but not bound yet.
    EXPECT_EQ(cacheDisksOf(out("37-vgcacheallist.txt")), QStringList{"/dev/vdb"});
    EXPECT_EQ(cacheDisksOf(out("27-lvs-devices-cached.txt")), QStringList{"/dev/vdb"});
    EXPECT_EQ(cacheDisksOf(out("24-lvs-devices-cachepool.txt")), QStringList{"/dev/vdb"});
    EXPECT_EQ(cacheGroupsOf(out("38-vgcachealload-all.txt")),
              (QJsonObject{{"vg1", QJsonObject{{"capacity", 224 * mib},
                                               {"size", 96 * mib},
                                               {"free", 128 * mib}}}}));
    // The regrown placeholder has two segments, each listed with the whole size.
    EXPECT_EQ(cacheDisksLoadOf(out("67-lvs-devices-regrown.txt")),
              (QJsonObject{{"/dev/vdb", QJsonObject{{"dev", "/dev/vdb"},
                                                    {"size", 0},
                                                    {"free", 224 * mib},
                                                    {"capacity", 224 * mib}}}}));
    EXPECT_EQ(cacheDevOf(out("34-lvcachedev.txt"), "data"), "/dev/vdb");
    EXPECT_EQ(bracketedNameOf(out("33-lvcachelvpool.txt")), "vg1_data_ssd_cache_cpool");
    EXPECT_EQ(bracketedNameOf(out("70-lvcachelvpool-uncached.txt")), "");
    EXPECT_EQ(deviceBeforeParenOf(out("59-lvcacheremove-pooldevices.txt")),
              "vg1_data_ssd_cache_cpool_cdata");
    EXPECT_EQ(cachePlaceholderMbOf(out("13-availcache.txt")), 224);

    const QJsonObject detail = cacheDetailOf(out("35-lvcachedetail.txt"));
    EXPECT_EQ(detail.value("size").toVariant().toLongLong(), 128 * mib);
    EXPECT_EQ(detail.value("cache_read_hits").toString(), "145");
    EXPECT_FALSE(detail.contains("lv_size") || detail.contains("lv_metadata_size"));
}
