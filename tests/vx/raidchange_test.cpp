#include "vx/vxraid.h"
#include "vx/vxraid_p.h"
#include "vx/vxraidlines.h"

#include "gx2/gx2localserver.h"
#include "gx2/gx2workers.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSaveFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <future>

namespace {

const QString kMdadm = QStringLiteral("/usr/bin/sudo /sbin/mdadm ");

QString partsOf(const QStringList& disks)
{
    QStringList parts;
    for (const QString& disk : disks)
        parts << raidPartitionOf(disk);
    return parts.join(' ');
}

// "md1 : active raid5 sdb1[0] ..." for /proc/mdstat.
QString mdLine(const QString& md, int level, const QStringList& parts)
{
    QString line = md.mid(5) + " : active raid" + QString::number(level);
    for (int i = 0; i < parts.size(); ++i)
        line += " " + parts[i].mid(5) + "[" + QString::number(i) + "]";
    return line;
}

// A minimal "mdadm -D" as mdadm 4.2 prints it.
QByteArray detail(const QString& md, int level, const QStringList& members,
                  const QStringList& spares = {}, const QString& state = "clean",
                  int raidDevices = -1)
{
    QString text =
        md + ":\n        Raid Level : raid" + QString::number(level) + "\n      Raid Devices : " +
        QString::number(raidDevices < 0 ? members.size() : raidDevices) +
        "\n     Total Devices : " + QString::number(members.size() + spares.size()) +
        "\n             State : " + state + "\n\n    Number   Major   Minor   RaidDevice State\n";
    int n = 0;
    for (const QString& part : members + spares) {
        const QString slot = n < members.size() ? QString::number(n) : "-";
        const QString words = n < members.size() ? "active sync" : "spare";
        text += QString("       %1     8       %2        %3      %4   %5\n")
                    .arg(n)
                    .arg(16 * n + 1)
                    .arg(slot, words, part);
        ++n;
    }
    return text.toUtf8();
}

class RaidChange : public ::testing::Test
{
protected:
    void SetUp() override
    {
        GX2Workers::resetForTests();
        qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
        QDir(root.path()).mkpath("proc");
        QDir(root.path()).mkpath("sys/module/raid0/parameters");
        mdstat({});
        // Free disks sdb..sdm and nvme0n1; sda holds the root file system.
        QString devices = R"({"name": "sda1", "pkname": "sda", "path": "/dev/sda1",
            "type": "part", "mountpoint": "/"})";
        for (const QString& disk : disks("abcdefghijklm") + QStringList{"/dev/nvme0n1"}) {
            devices += QString(R"(, {"name": "%1", "path": "%2", "type": "disk", "size": 9})")
                           .arg(disk.mid(5), disk);
            backend.expectLine("/usr/bin/sudo lsblk -lno PATH,TYPE " + disk)
                .prints((disk + " disk\n" + raidPartitionOf(disk) + " part\n").toUtf8())
                .repeatedly();
            backend.expectLine("/usr/bin/sudo lsblk -ndpo pkname " + raidPartitionOf(disk))
                .prints(disk.toUtf8() + "\n")
                .repeatedly();
        }
        backend
            .expectIf("inventory",
                      [](const LNX2ProcRequest& r) {
                          return r.program == "lsblk" && r.arguments.value(0) == "-ablJ";
                      })
            .prints(("{\"blockdevices\": [" + devices + "]}").toUtf8())
            .repeatedly();
        for (const char* line : {"/usr/bin/sudo pvs --noheading --separator : -o vg_name,pv_name",
                                 "/usr/bin/sudo zpool status -LP"})
            backend.expectLine(line).repeatedly();
        backend
            .expectIf("parted",
                      [](const LNX2ProcRequest& r) {
                          return r.arguments.value(0) == "parted" && !r.arguments.contains("rm");
                      })
            .repeatedly();
    }
    void TearDown() override
    {
        EXPECT_TRUE(GX2Workers::joinAll(30000).isEmpty());
        qunsetenv("NASBROLT_ROOT");
    }

    static QStringList disks(const char* letters)
    {
        QStringList list;
        for (const char* c = letters; *c; ++c)
            list << QString("/dev/sd") + *c;
        return list;
    }
    // Atomic, as the creation threads read it while a scripted mdadm writes it.
    void mdstat(const QStringList& lines) const
    {
        QSaveFile file(root.filePath("proc/mdstat"));
        file.open(QIODevice::WriteOnly);
        file.write(("Personalities : [raid1]\n" + lines.join("\n") + "\nunused devices: <none>\n")
                       .toUtf8());
        file.commit();
    }
    // mdadm line that, when run, leaves mdstat with lines.
    ScriptedBackend::Expectation& expectMdadm(const QString& line, const QStringList& lines)
    {
        const QStringList words = procSplitCommand(line);
        return backend.expectIf(line, [this, words, lines](const LNX2ProcRequest& r) {
            if (QStringList{r.program} + r.arguments != words)
                return false;
            mdstat(lines);
            return true;
        });
    }
    // One "mdadm -D md" answer; same lines are answered in declaration order.
    ScriptedBackend::Expectation& detailOf(const QString& md, const QByteArray& out)
    {
        return backend.expectLine("/usr/bin/sudo mdadm -D " + md).prints(out);
    }
    // What changed disks or arrays, in call order.
    QStringList changes() const
    {
        QStringList lines;
        for (const QString& line : backend.callLines()) {
            const bool partedButRm = line.contains(" parted ") && !line.contains(" rm 1");
            if (!line.contains("lsblk") && !line.contains(" -D ") && !line.contains(" pvs ") &&
                !line.contains(" zpool ") && !partedButRm)
                lines << line;
        }
        return lines;
    }

    QTemporaryDir root;
    ScriptedBackend backend;
    VXRaid raid;
    QString error;
    QString md;
};

TEST(RaidLines, RulesAndCommandLines)
{
    // The refusals create must make are checked through create below.
    for (const auto& [level, n, spares] : std::vector<std::tuple<int, int, int>>{
             {0, 2, 0}, {1, 2, 3}, {5, 3, 1}, {6, 4, 0}, {10, 4, 0}, {50, 6, 0}, {60, 8, 0}})
        EXPECT_EQ(raidCheckLevel(level, n, spares), kRaidOk) << level;
    for (const auto& [level, n] : std::vector<std::pair<int, int>>{
             {1, 1}, {5, 2}, {6, 3}, {10, 5}, {10, 2}, {50, 3}, {60, 4}, {11, 4}})
        EXPECT_EQ(raidCheckLevel(level, n, 0), kRaidInvalid) << level << " " << n;
    EXPECT_TRUE(raidMigrationAllowed(1, 5) && raidMigrationAllowed(10, 0));
    EXPECT_FALSE(raidMigrationAllowed(5, 1) || raidMigrationAllowed(1, 6));
    EXPECT_EQ(raidPartitionOf("/dev/sda") + raidPartitionOf("/dev/nvme0n1"),
              "/dev/sda1/dev/nvme0n1p1");
    for (const char* good : {"/dev/md0", "/dev/md127", "/dev/md/data_1.a:b-c"})
        EXPECT_TRUE(isRaidPath(good)) << good;
    for (const char* bad : {"/dev/md", "/dev/mdx", "/dev/md/", "/dev/md/a b", "/dev/md/..",
                            "/dev/md/a/b", "/dev/sda", "/dev/md0\n", "/dev/md1;x"})
        EXPECT_FALSE(isRaidPath(bad)) << bad;
    EXPECT_EQ(raidGrowLine("/dev/md1", 0, 3, {}),
              "/usr/bin/sudo /usr/sbin/mdadm --grow /dev/md1 -l 0");
}

TEST_F(RaidChange, CreateRefusesBeforeRunningMdadm)
{
    for (const auto& [level, n, spares] : std::vector<std::tuple<int, int, int>>{
             {0, 2, 1}, {50, 8, 0}, {60, 10, 0}, {2, 3, 0}, {3, 3, 0}, {4, 3, 0}, {7, 3, 0}})
        EXPECT_EQ(raid.create(error, level, disks("bcdefghijklm").mid(0, n),
                              disks("m").mid(0, spares), 64, md),
                  kRaidInvalid)
            << level;
    EXPECT_TRUE(backend.calls().isEmpty());
    EXPECT_EQ(raid.create(error, 1, disks("ab"), {}, 64, md), kRaidUnknown); // system disk
    EXPECT_EQ(raid.create(error, 1, disks("bz"), {}, 64, md), kRaidUnknown); // no such disk
    EXPECT_EQ(raid.create(error, 5, disks("bcd"), disks("z"), 64, md), kRaidUnknown); // spare
    EXPECT_EQ(raid.create(error, 1, {"/dev/sdb", "/dev/sd c"}, {}, 64, md), kRaidUnknown);
    EXPECT_EQ(raid.create(error, 1, disks("bb"), {}, 64, md), kRaidUnknown);
    EXPECT_TRUE(changes().isEmpty()) << changes().join("\n").toStdString();
    // A partition that never shows: createPart gives up after its wait.
    VXRaidPrivate d;
    QString part;
    backend.expectLine("/usr/bin/sudo lsblk -lno PATH,TYPE /dev/sdz").repeatedly();
    EXPECT_FALSE(d.createPart(part, "/dev/sdz", 50));
    const int calls = backend.calls().size();
    EXPECT_FALSE(d.createPart(part, "/dev/sd z", 50));
    EXPECT_EQ(backend.calls().size(), calls);
}

TEST_F(RaidChange, CreateTakesTheFirstFreeNumberAndWritesTheLines)
{
    QLocalServer daemon; // counts the configuration notices
    QLocalServer::removeServer(QString::fromLatin1(kBroltSocketName));
    ASSERT_TRUE(daemon.listen(QString::fromLatin1(kBroltSocketName)));
    const QStringList inUse{mdLine("/dev/md0", 1, {}), mdLine("/dev/md1", 1, {})};
    mdstat(inUse + QStringList{mdLine("/dev/md3", 1, {})});
    expectMdadm(kMdadm +
                    "-CR /dev/md2 -l 5 -n 3 -c 64 /dev/sdb1 /dev/sdc1 /dev/sdd1 -x 1 /dev/sde1",
                inUse + QStringList{mdLine("/dev/md2", 5, {"/dev/sdb1"})});
    ASSERT_EQ(raid.create(error, 5, disks("dcb"), disks("e"), 64, md), kRaidOk);
    EXPECT_EQ(md, "/dev/md2");
    const LNX2ProcRequest run = backend.calls().last();
    EXPECT_EQ(std::make_pair(run.startMs, run.finishMs), std::make_pair(999, 99999));
    EXPECT_EQ(backend.callLines().filter("parted -s /dev/sdb ").join("|"),
              "/usr/bin/sudo parted -s /dev/sdb mklabel gpt|"
              "/usr/bin/sudo parted -s /dev/sdb mkpart primary 0% 100%|"
              "/usr/bin/sudo parted -s /dev/sdb set 1 raid on");
    // No chunk for raid1 or below 4 KiB; raid0 sets the default layout first.
    mdstat(inUse);
    expectMdadm(kMdadm + "-CR /dev/md2 -l 1 -n 2 /dev/nvme0n1p1 /dev/sdf1",
                inUse + QStringList{mdLine("/dev/md2", 1, {})});
    EXPECT_EQ(raid.create(error, 1, {"/dev/sdf", "/dev/nvme0n1"}, {}, 64, md), kRaidOk);
    mdstat(inUse);
    expectMdadm(kMdadm + "-CR /dev/md2 -l 0 -n 2 /dev/sdg1 /dev/sdh1",
                inUse + QStringList{mdLine("/dev/md2", 0, {})});
    EXPECT_EQ(raid.create(error, 0, disks("gh"), {}, 2, md), kRaidOk);
    QFile layout(root.filePath("sys/module/raid0/parameters/default_layout"));
    ASSERT_TRUE(layout.open(QIODevice::ReadOnly));
    EXPECT_EQ(layout.readAll(), "2");
    // mdadm fails: the flag drops and the caller does not wait out the 10 s.
    backend
        .expectIf("failing -CR",
                  [](const LNX2ProcRequest& r) { return r.arguments.contains("-CR"); })
        .exits(1);
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(raid.create(error, 1, disks("ij"), {}, 64, md), kRaidNotAppeared);
    EXPECT_LT(clock.elapsed(), 5000);
    int notices = 0;
    while (daemon.waitForNewConnection(200)) {
        QLocalSocket* socket = daemon.nextPendingConnection();
        if (socket->bytesAvailable() == 0)
            socket->waitForReadyRead(1000);
        notices += socket->readAll().contains("raid_writeConfig") ? 1 : 0;
    }
    EXPECT_EQ(notices, 3);
    QStringList full;
    for (int n = 0; n <= 255; ++n)
        full << mdLine("/dev/md" + QString::number(n), 1, {});
    mdstat(full);
    EXPECT_EQ(raid.create(error, 1, disks("kl"), {}, 64, md), kRaidFailed);
}

// Holds mdadm -CR until released, so that a second creation meets the flag.
class GatedBackend : public LNX2ProcBackend
{
public:
    explicit GatedBackend(LNX2ProcBackend& inner) : inner(inner), previous(setProcBackend(this)) {}
    ~GatedBackend() override { setProcBackend(previous); }
    LNX2ProcResult run(const LNX2ProcRequest& request) override
    {
        if (request.arguments.contains("-CR")) {
            entered.set_value();
            gate.get_future().wait();
        }
        return inner.run(request);
    }
    std::promise<void> entered;
    std::promise<void> gate;

private:
    LNX2ProcBackend& inner;
    LNX2ProcBackend* previous;
};

TEST_F(RaidChange, SecondCreationWhileOneRunsIsBusy)
{
    expectMdadm(kMdadm + "-CR /dev/md0 -l 1 -n 2 /dev/sdb1 /dev/sdc1", {mdLine("/dev/md0", 1, {})});
    GatedBackend gated(backend);
    std::promise<int> first;
    ASSERT_TRUE(GX2Workers::start("first", [&] {
        QString e, m;
        first.set_value(raid.create(e, 1, disks("bc"), {}, 64, m));
    }));
    ASSERT_EQ(gated.entered.get_future().wait_for(std::chrono::seconds(20)),
              std::future_status::ready);
    EXPECT_EQ(raid.create(error, 1, disks("de"), {}, 64, md), kRaidBusy);
    EXPECT_EQ(raid.create(error, 50, disks("fghijk"), {}, 64, md), kRaidBusy);
    gated.gate.set_value();
    EXPECT_EQ(first.get_future().get(), kRaidOk);
    GX2Workers::joinAll(30000);
}

TEST_F(RaidChange, TwoTierGroupsSortedDisksUnderATopArray)
{
    mdstat({"md0 : active raid1 sdx1[0] sdy1[1]"});
    QStringList listed{"md0 : active raid1 sdx1[0] sdy1[1]"};
    const QStringList sorted = disks("bcdefghij");
    for (int g = 0; g < 3; ++g) {
        const QString sub = "/dev/md" + QString::number(g + 1);
        listed << mdLine(sub, 5, {});
        expectMdadm(kMdadm + "-CR " + sub + " -l 5 -n 3 -c 128 " + partsOf(sorted.mid(3 * g, 3)),
                    listed);
    }
    // A sub-array still held by its own mdadm: the top array is tried again.
    expectMdadm(kMdadm + "-CR /dev/md4 -l 0 -n 3 /dev/md1 /dev/md2 /dev/md3", listed)
        .exits(1)
        .errs("mdadm: super1.x cannot open /dev/md2: Device or resource busy\n");
    expectMdadm(kMdadm + "-CR /dev/md4 -l 0 -n 3 /dev/md1 /dev/md2 /dev/md3",
                listed + QStringList{mdLine("/dev/md4", 0, {"/dev/md1"})});
    ASSERT_EQ(raid.create(error, 50, disks("jihgfedcb"), disks("k"), 128, md), kRaidOk);
    EXPECT_EQ(md, "/dev/md4");
    const QList<LNX2ProcRequest> calls = backend.calls();
    EXPECT_EQ(
        std::count_if(calls.cbegin(), calls.cend(),
                      [](const LNX2ProcRequest& r) { return r.mode == LNX2ProcMode::Detached; }),
        3);
    EXPECT_EQ(changes().filter("/dev/sdk").size(), 0); // the spare is checked, not used
    // raid60: groups of four; the top fails: 9999, or 9992 when a sub-array vanished.
    for (const bool subGone : {false, true}) {
        mdstat({});
        listed.clear();
        for (int g = 0; g < 3; ++g) {
            const QStringList group = disks("bcdefghijklm").mid(4 * g, 4);
            listed << mdLine("/dev/md" + QString::number(g), 6, group);
            expectMdadm(kMdadm + "-CR /dev/md" + QString::number(g) + " -l 6 -n 4 " +
                            partsOf(group),
                        listed);
        }
        expectMdadm(kMdadm + "-CR /dev/md3 -l 0 -n 3 /dev/md0 /dev/md1 /dev/md2",
                    subGone ? listed.mid(1) : listed)
            .exits(1);
        EXPECT_EQ(raid.create(error, 60, disks("bcdefghijklm"), {}, 0, md),
                  subGone ? kRaidBusy : kRaidFailed);
    }
}

TEST_F(RaidChange, GrowAndExtend)
{
    const QString grow = "/usr/bin/sudo /usr/sbin/mdadm --grow /dev/md1 -l 5 -n ";
    const QStringList two{"/dev/sdb1", "/dev/sdc1"};
    const QByteArray raid1 = detail("/dev/md1", 1, two);
    mdstat({mdLine("/dev/md1", 1, two)});
    detailOf("/dev/md1", raid1);
    EXPECT_EQ(raid.grow("/dev/md1", 6, disks("d"), error), kRaidNoMigration);
    EXPECT_EQ(error, "该迁移不支持: 1 -> 6");
    EXPECT_EQ(raid.grow("/dev/md9", 5, disks("d"), error), kRaidUnknown);
    EXPECT_EQ(error, "md not found");
    detailOf("/dev/md1", raid1);
    EXPECT_EQ(raid.grow("/dev/md1", 5, disks("a"), error), kRaidUnknown);
    EXPECT_TRUE(changes().isEmpty());
    // sdb is a member already: only sdd is prepared and added.
    detailOf("/dev/md1", raid1);
    backend.expectLine(grow + "3 --add /dev/sdd1");
    detailOf("/dev/md1",
             detail("/dev/md1", 5, two + QStringList{"/dev/sdd1"}, {}, "clean, reshaping"));
    EXPECT_EQ(raid.grow("/dev/md1", 5, disks("db"), error), kRaidOk);
    EXPECT_EQ(backend.callLines().filter("parted -s /dev/sdb").size(), 0);
    const QString growLine = grow + "2";
    detailOf("/dev/md1", raid1);
    backend.expectLine(growLine).exits(1);
    EXPECT_EQ(raid.grow("/dev/md1", 5, {}, error), kRaidFailed);
    EXPECT_EQ(error, "请检查磁盘容量是否支持迁移");
    // Nothing taken (the array is gone at once), and taken without a reshape.
    for (const auto& [after, rc] : std::vector<std::pair<QByteArray, int>>{
             {QByteArray(), kRaidFailed},
             {detail("/dev/md1", 1, two, {}, "clean", 3), kRaidNoReshape}}) {
        detailOf("/dev/md1", raid1);
        backend.expectLine(growLine);
        if (!after.isEmpty())
            detailOf("/dev/md1", after);
        detailOf("/dev/md1", {}).exits(1);
        EXPECT_EQ(raid.grow("/dev/md1", 5, {}, error), rc);
        EXPECT_EQ(error,
                  rc == kRaidFailed ? "请检查磁盘容量是否支持迁移" : "the reshape did not start");
    }
    // extend: -n counts the members, not the spares.
    const QStringList three{"/dev/sdb1", "/dev/sdc1", "/dev/sdd1"};
    detailOf("/dev/md1", detail("/dev/md1", 5, three, {"/dev/sdh1"}));
    backend.expectLine(grow + "5 --add /dev/sde1 /dev/sdf1");
    detailOf("/dev/md1", detail("/dev/md1", 5, three + QStringList{"/dev/sde1", "/dev/sdf1"}));
    EXPECT_EQ(raid.extend("/dev/md1", disks("fe"), error), kRaidOk);
    detailOf("/dev/md1", detail("/dev/md1", 5, three));
    backend.expectLine(grow + "4 --add /dev/sde1").exits(1).errs("mdadm: no space\n");
    EXPECT_EQ(raid.extend("/dev/md1", disks("e"), error), kRaidFailed);
    EXPECT_EQ(error, "mdadm: no space\n");
    detailOf("/dev/md1", detail("/dev/md1", 5, three));
    EXPECT_EQ(raid.extend("/dev/md1", disks("a"), error), kRaidUnknown);
    // The array never changes: 9934 after the 3 s start wait.
    detailOf("/dev/md1", detail("/dev/md1", 5, three)).repeatedly();
    backend.expectLine(grow + "4 --add /dev/sde1");
    EXPECT_EQ(raid.extend("/dev/md1", disks("e"), error), kRaidNoReshape);
}

TEST_F(RaidChange, PushAndPull)
{
    const QStringList parts{"/dev/sdb1", "/dev/sdc1"};
    mdstat(
        {mdLine("/dev/md0", 0, parts), mdLine("/dev/md4", 4, parts), mdLine("/dev/md1", 1, parts)});
    detailOf("/dev/md0", detail("/dev/md0", 0, parts)).repeatedly();
    detailOf("/dev/md4", detail("/dev/md4", 4, parts)).repeatedly();
    // mdadm -D lists the spare sdd1 until a removal really took it out.
    bool removed = false;
    const QString md1 = "/usr/bin/sudo mdadm -D /dev/md1";
    backend
        .expectIf(
            md1,
            [&](const LNX2ProcRequest& r) { return ScriptedBackend::lineOf(r) == md1 && !removed; })
        .prints(detail("/dev/md1", 1, parts, {"/dev/sdd1"}))
        .repeatedly();
    backend
        .expectIf(
            md1 + " after removal",
            [&](const LNX2ProcRequest& r) { return ScriptedBackend::lineOf(r) == md1 && removed; })
        .prints(detail("/dev/md1", 1, parts))
        .repeatedly();
    EXPECT_EQ(raid.push(error, "/dev/md0", disks("e")), kRaidNoMigration);
    EXPECT_EQ(raid.push(error, "/dev/md4", disks("e")), kRaidBusy);
    EXPECT_EQ(raid.push(error, "/dev/md7", disks("e")), kRaidUnknown);
    EXPECT_EQ(raid.push(error, "/dev/md1", disks("a")), kRaidUnknown);
    EXPECT_EQ(raid.push(error, "/dev/md1", {}), kRaidInvalid);
    backend.expectLine("/usr/bin/sudo /usr/sbin/mdadm /dev/md1 --add /dev/sde1 /dev/sdf1");
    EXPECT_EQ(raid.push(error, "/dev/md1", disks("fe")), kRaidOk);
    backend.expectLine("/usr/bin/sudo /usr/sbin/mdadm /dev/md1 --add /dev/sde1")
        .exits(1)
        .errs("busy");
    EXPECT_EQ(raid.push(error, "/dev/md1", disks("e")), kRaidPushFailed);
    EXPECT_EQ(error, "busy");

    EXPECT_EQ(raid.pull(error, "/dev/md1", "/dev/sdg"), kRaidUnknown);
    EXPECT_EQ(raid.pull(error, "/dev/md7", "/dev/sdb"), kRaidUnknown);
    const QStringList clean{kMdadm + "--zero-superblock /dev/sdd1",
                            "/usr/bin/sudo parted -s /dev/sdd rm 1",
                            "/usr/bin/sudo wipefs -a /dev/sdd"};
    const QString removal = kMdadm + "/dev/md1 --remove /dev/sdd1";
    const auto removes = [&] {
        removed = false;
        backend.expectIf(removal, [&](const LNX2ProcRequest& r) {
            return ScriptedBackend::lineOf(r) == removal && (removed = true);
        });
    };
    backend.expectLine(kMdadm + "/dev/md1 -f /dev/sdd1").repeatedly();
    backend.expectLine(removal).exits(1).errs(
        "mdadm: hot remove failed for /dev/sdd1: Device or resource busy\n");
    EXPECT_EQ(raid.pull(error, "/dev/md1", "/dev/sdd"), kRaidMemberBusy);
    EXPECT_EQ(error, "当前磁盘被占用中，禁止拔除。若强行取出磁盘，将直接破坏数据");
    backend.expectLine(removal).exits(1).errs("mdadm: other\n");
    EXPECT_EQ(raid.pull(error, "/dev/md1", "/dev/sdd1"), kRaidFailed);
    EXPECT_EQ(error, "mdadm: other\n");
    // A removal that exits 0 but leaves the member: its disk is not touched.
    int before = changes().size();
    backend.expectLine(removal);
    EXPECT_EQ(raid.pull(error, "/dev/md1", "/dev/sdd"), kRaidFailed);
    EXPECT_EQ(changes().mid(before).last(), removal);
    before = changes().size();
    removes();
    for (const QString& line : clean)
        backend.expectLine(line);
    EXPECT_EQ(raid.pull(error, "/dev/md1", "/dev/sdd"), kRaidOk);
    const QStringList pulled{kMdadm + "/dev/md1 -f /dev/sdd1", removal};
    EXPECT_EQ(changes().mid(before), pulled + clean);
    removes();
    backend.expectLine(clean[0]);
    backend.expectLine(clean[1]).exits(1);
    backend.expectLine(clean[2]);
    EXPECT_EQ(raid.pull(error, "/dev/md1", "/dev/sdd"), kRaidCleanFailed);
}

TEST_F(RaidChange, RemoveRepairRename)
{
    const QStringList parts{"/dev/sdc1", "/dev/sdb1"};
    mdstat({mdLine("/dev/md1", 1, parts)});
    detailOf("/dev/md1", detail("/dev/md1", 5, parts, {"/dev/sdd1"}));
    EXPECT_EQ(raid.repair("/dev/md1"), kRaidOk); // a hot spare is no missing member
    detailOf("/dev/md1", detail("/dev/md1", 5, parts, {"/dev/sdd1"}, "clean, degraded", 4))
        .repeatedly();
    EXPECT_EQ(raid.remove(error, "/dev/md2"), kRaidUnknown);
    EXPECT_EQ(raid.removes(error, "/dev/md/x y"), kRaidUnknown);
    EXPECT_EQ(raid.repair("/dev/md2"), kRaidUnknown);
    EXPECT_EQ(raid.rename("/dev/md2", "/dev/md3"), kRaidUnknown);
    EXPECT_EQ(raid.rename("/dev/md1", "/dev/md/a b"), kRaidUnknown);
    EXPECT_TRUE(changes().isEmpty());
    const QString grow = kMdadm + "--force --grow /dev/md1 -l 5 -n 2";
    backend.expectLine(grow).exits(1);
    EXPECT_EQ(raid.repair("/dev/md1"), kRaidRepairFailed);
    backend.expectLine(grow);
    EXPECT_EQ(raid.repair("/dev/md1"), kRaidOk);
    // Members and spares, sorted; a failed assemble brings the old name back.
    backend.expectLine(kMdadm + "--stop /dev/md1").repeatedly();
    backend.expectLine(kMdadm + "-A --auto=md /dev/md/data /dev/sdb1 /dev/sdc1 /dev/sdd1").exits(1);
    backend.expectLine(kMdadm + "-A --auto=md /dev/md1 /dev/sdb1 /dev/sdc1 /dev/sdd1");
    EXPECT_EQ(raid.rename("/dev/md1", "/dev/md/data"), kRaidFailed);
    backend.expectLine(kMdadm + "-A --auto=md /dev/md5 /dev/sdb1 /dev/sdc1 /dev/sdd1");
    EXPECT_EQ(raid.rename("/dev/md1", "/dev/md5"), kRaidOk);

    const int before = changes().size();
    backend.expectLine("/usr/bin/sudo mdadm -S /dev/md1").exits(1);
    EXPECT_EQ(raid.removes(error, "/dev/md1"), kRaidOk);
    GX2Workers::joinAll(30000);
    EXPECT_EQ(changes().mid(before), QStringList{"/usr/bin/sudo mdadm -S /dev/md1"});
    expectMdadm("/usr/bin/sudo mdadm -S /dev/md1", {});
    QStringList expected{"/usr/bin/sudo mdadm -S /dev/md1"};
    for (const QString& disk : disks("bcd")) {
        expected << "/usr/bin/sudo mdadm --zero-superblock " + raidPartitionOf(disk)
                 << "/usr/bin/sudo parted -s " + disk + " rm 1"
                 << "/usr/bin/sudo wipefs -a " + disk;
        backend.expectLine(expected[expected.size() - 2]);
    }
    backend
        .expectIf("zero and wipe",
                  [](const LNX2ProcRequest& r) {
                      return r.arguments.contains("--zero-superblock") ||
                             r.arguments.contains("wipefs");
                  })
        .repeatedly();
    EXPECT_EQ(raid.remove(error, "/dev/md1"), kRaidOk);
    GX2Workers::joinAll(30000);
    EXPECT_EQ(changes().mid(before + 1), expected);
}

TEST_F(RaidChange, RepairAllSwitchesStopsAndAssembles)
{
    mdstat({"md1 : active (auto-read-only) raid1 sdb1[0] sdc1[1]",
            "md127 : inactive sdd1[1](S) sde1[0](S)", mdLine("/dev/md2", 1, {"/dev/sdf1"})});
    const QString assemble = kMdadm + "--assemble --scan --force";
    // What the kernel assembles comes up auto-read-only.
    backend
        .expectIf(assemble,
                  [&](const LNX2ProcRequest& r) {
                      if (ScriptedBackend::lineOf(r) != assemble)
                          return false;
                      mdstat({"md1 : active raid1 sdb1[0] sdc1[1]",
                              "md127 : active (auto-read-only) raid1 sdd1[1] sde1[0]"});
                      return true;
                  })
        .exits(2);
    backend
        .expectIf("readwrite and stop",
                  [](const LNX2ProcRequest& r) {
                      return r.arguments.contains("--readwrite") || r.arguments.contains("--stop");
                  })
        .repeatedly();
    EXPECT_EQ(raid.repairAll(), kRaidOk);
    EXPECT_EQ(changes(), QStringList({kMdadm + "--readwrite /dev/md1", kMdadm + "--stop /dev/md127",
                                      assemble, kMdadm + "--readwrite /dev/md127"}));
}

} // namespace
