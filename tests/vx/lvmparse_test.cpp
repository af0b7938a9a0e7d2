#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"
#include "vx/vxlvmtables.h"

#include "gx2/gx2utils.h"

#include "tests/support/scriptedbackend.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

QString tool(const QString& file)
{
    return QString::fromUtf8(readToolOutput(QStringLiteral("storage/virtio/") + file));
}

// A recorded file whose own first lines are comments, which readToolOutput
// would take for the command header.
QString recordedFile(const QString& file)
{
    const QString text = QString::fromUtf8(readFixture(QStringLiteral("storage/virtio/") + file));
    return text.section('\n', 1).remove(QRegularExpression("# rc=\\d+\n$"));
}

// The virtio group and its volumes (vgs.txt, lvs-a.txt) as the volume code
// queries them: "vgdisplay -c vg0" and the ":" lvs line of one volume.
const QString kVgdisplay = QStringLiteral(
    "  "
    "vg0:r/"
    "w:772:-1:0:4:3:-1:0:2:2:1560576:4096:381:213:168:vVFfvU-dCLg-ix0R-1OpX-a8uA-hfhU-VHW7eQ\n");
QString lvsLine(const char* lv, const char* attr, const char* tags,
                const char* vgFree = "704643072")
{
    return QStringLiteral("  vg0:%1B:%2:/dev/vg0/%2:/dev/mapper/vg0-%2:268435456B:%3:%4\n")
        .arg(vgFree, lv, attr, tags);
}

// type|fstype|extensible of the record, "none" when refused.
QString summary(const QString& line)
{
    QJsonObject r;
    if (!lvRecordOf(line, r))
        return QStringLiteral("none");
    return r["type"].toString() + '|' + r["fstype"].toString() + '|' +
           QString::number(r["extensible"].toInt());
}

} // namespace

TEST(LvmParse, SizesFromLvmVgdisplayAndDf)
{
    EXPECT_EQ(asCapacity("<1.50g"), 1610612736);
    EXPECT_EQ(asCapacity(" 4194304B "), 4194304);
    EXPECT_EQ(asCapacity("512"), 512);
    EXPECT_EQ(asCapacity("1.5T"), Q_INT64_C(1649267441664));
    EXPECT_EQ(asCapacity(">2s"), 1024);
    EXPECT_EQ(asCapacity("1e"), Q_INT64_C(1) << 60);
    for (const char* unreadable : {"x", "", "<", "1.5q", "g", "1,5g"})
        EXPECT_EQ(asCapacity(unreadable), 0) << unreadable;
    EXPECT_EQ(vgFreeOf("  704643072B\n"), 704643072);

    EXPECT_EQ(peSizeMbOf(kVgdisplay), 4);
    EXPECT_EQ(peSizeMbOf(QString(kVgdisplay).replace(":4096:", ":4097:")), 5);
    EXPECT_EQ(peSizeMbOf("  Volume group \"nosuch\" not found\n"), 32);
    EXPECT_EQ(peSizeMbOf("vg0:r/w:772:-1:0:4:3:-1:0:2:2:1560576"), 32);
    // 672 MiB free, as "vgs" printed it for the same group.
    EXPECT_EQ(vgSizesOf(kVgdisplay, "vg0"),
              QJsonObject({{"vg", "vg0"}, {"capacity", 1524}, {"free", 672}, {"unit", "mb"}}));
    EXPECT_TRUE(vgSizesOf(kVgdisplay.left(kVgdisplay.indexOf(":168:")), "vg0").isEmpty());

    const QJsonObject mounts = lvMountsOf(tool("df-k.txt"));
    EXPECT_EQ(mounts.keys(),
              QStringList({"/mnt/cached", "/mnt/cryptdata", "/mnt/plain", "/mnt/thin1"}));
    EXPECT_EQ(mounts["/mnt/plain"].toObject(), QJsonObject({{"userate", "4%"},
                                                            {"capacity", 262144 * 1024},
                                                            {"size", 5920 * 1024},
                                                            {"free", 179200 * 1024}}));
    qint64 size = 0, used = 0, avail = 0;
    ASSERT_TRUE(dfFiguresOf(tool("df-k.txt"), size, used, avail));
    EXPECT_EQ(QList<qint64>({size, used, avail}), QList<qint64>({1007140, 72, 1007068}));
    EXPECT_TRUE(dfListsSource("Filesystem\n/dev/vg0/plain\n", "/dev/vg0/plain"));
    EXPECT_FALSE(dfListsSource("/dev/vg0/plain\n", "/dev/vg0/plain"));
}

TEST(LvmParse, VolumeLinesStatusAndProcesses)
{
    QJsonObject record;
    ASSERT_TRUE(lvRecordOf(lvsLine("plain", "-wi-ao----", "xfs"), record));
    EXPECT_EQ(record, QJsonObject({{"extensible", 1},
                                   {"vg", "vg0"},
                                   {"lv", "plain"},
                                   {"capacity", 268435456},
                                   {"dmpath", "/dev/mapper/vg0-plain"},
                                   {"lvpath", "/dev/vg0/plain"},
                                   {"attr", "-wi-ao----"},
                                   {"fstype", "xfs"},
                                   {"type", "lv"},
                                   {"mounted", 0}}));
    EXPECT_EQ(summary(lvsLine("cached", "Cwi-aoC---", "crypt")), "lv+cache||1");
    EXPECT_EQ(summary(lvsLine("thin1", "Vwi-aotz--", "ext4,lun")), "thin|lun|1");
    EXPECT_EQ(summary(lvsLine("tpool", "twi-aotz--", "")), "||1");
    EXPECT_EQ(summary(lvsLine("plain", "-wi-ao----", "ext4", "0")), "lv|ext4|0");
    EXPECT_EQ(summary(lvsLine("c_unused_cache", "-wi-ao----", "") + lvsLine("p", "-wi", "")),
              "lv||1");
    EXPECT_EQ(summary(lvsLine("plain", "-wi-ao----", "").section(':', 0, 6)), "none");

    const QString paths = "  vg0:plain:/dev/vg0/plain:/dev/mapper/vg0-plain\n"
                          "  vg0:thin1:/dev/vg0/thin1:/dev/mapper/vg0-thin1\n";
    QString dm;
    EXPECT_EQ(volumePathOf(paths, "vg0", "thin1", &dm), "/dev/vg0/thin1");
    EXPECT_EQ(dm, "/dev/mapper/vg0-thin1");
    EXPECT_EQ(volumePathOf(paths, "vg1", "thin1"), "");
    QString vg = "x", lv = "y";
    EXPECT_EQ(vgLvOf("  vg0:plain:/dev/vg0/plain\n", vg, lv), "/dev/vg0/plain");
    EXPECT_EQ(vg + "/" + lv, "vg0/plain");
    EXPECT_EQ(lvmNamesOf("  vg0\n\n  vg1  \n\n"), QStringList({"vg0", "", "vg1"}));

    EXPECT_TRUE(isLuks2StatusOf(tool("cryptsetup-status-luks2.txt")));
    EXPECT_FALSE(isLuks2StatusOf(tool("cryptsetup-status-luks1.txt")));
    const QString ps = "root 812 810 9 10:00 ? 00:00:01 /sbin/mkfs.xfs -f /dev/vg1/data\n"
                       "root 900 1 0 10:00 ? 00:00:00 tail -f /dev/vg1/logs\n";
    EXPECT_TRUE(mkfsRunningOf(ps, "/dev/vg1/data"));
    EXPECT_FALSE(mkfsRunningOf(ps, "/dev/vg1/dat"));
    EXPECT_FALSE(mkfsRunningOf(ps, "/dev/vg1/logs"));
}

TEST(LvmTables, FstabAndCrypttabRewrites)
{
    const QJsonArray loaded = fstabEntriesOf(readToolOutput("storage/virtio/findmnt-seJ.json"));
    ASSERT_EQ(loaded.size(), 5);
    EXPECT_EQ(loaded[4].toObject(), QJsonObject({{"uuid", ""},
                                                 {"source", "/dev/md127"},
                                                 {"target", "/mnt/notthere"},
                                                 {"fstype", "ext4"},
                                                 {"options", "noauto"},
                                                 {"freq", "0"},
                                                 {"passno", "0"}}));
    EXPECT_EQ(loaded[0].toObject()["passno"].toString(), "2");
    EXPECT_TRUE(fstabEntriesOf("{\"filesystems\": [").isEmpty());

    const auto extra = [](const char* uuid, const char* source, const char* target) {
        return QJsonObject{{"uuid", uuid},     {"source", source}, {"target", target},
                           {"fstype", "ext4"}, {"options", ""},    {"freq", ""}};
    };
    QJsonArray entries = loaded;
    entries << extra("r00t", "/dev/vda1", "/") << extra("5db1", "/dev/sdb1", "/srv/my data")
            << extra("c0de", "/dev/sdc1", "/mnt/vg2/v_crypt") << extra("", "", "/mnt/gone");
    // The UUID= and LABEL= lines of the recorded fstab come back as findmnt
    // resolved them.
    const QString fstab = recordedFile("etc-fstab.txt");
    const QStringList kept = {"/dev/mapper/cryptdata /mnt/cryptdata xfs defaults,nofail 0 2",
                              "/dev/mapper/vg0-thin1 /mnt/thin1 xfs defaults,noatime 0 2",
                              "/dev/mapper/vg0-cached /mnt/cached ext4 defaults 0 2",
                              "/dev/md127 /mnt/notthere ext4 noauto 0 0"};
    const QStringList extras = {"UUID=r00t / ext4 defaults 0 0",
                                "UUID=5db1 /srv/my\\040data ext4 defaults 0 0",
                                "/dev/sdc1 /mnt/vg2/v_crypt ext4 defaults 0 0"};
    const QString added = "/dev/vg0/plain /mnt/vg0/plain xfs rw 0 0";
    EXPECT_EQ(fstabAppendLines(entries, "  # kept as is\n" + fstab, "/dev/vg0/plain", added),
              QStringList({"  # kept as is", "# UNCONFIGURED FSTAB FOR BASE SYSTEM"}) + kept +
                  extras + QStringList{added});

    bool dropped = false;
    EXPECT_EQ(fstabRemoveLines(loaded, fstab, "/mnt/plain", &dropped),
              QStringList{"# UNCONFIGURED FSTAB FOR BASE SYSTEM"} + kept + QStringList{""});
    EXPECT_TRUE(dropped);
    fstabRemoveLines(entries, fstab, "/mnt/none", &dropped);
    EXPECT_FALSE(dropped);

    const QString own = "vg0-data_crypt /dev/vg0/data /orvo/etc/cryptlvm/lvm.vg0-data_crypt.pass";
    const QString crypttab = "# <target> <source>\n\n" + tool("etc-crypttab.txt") + "\n \n";
    const QStringList once = crypttabAppendLines(crypttab, "/dev/vg0/data", own);
    const QStringList expected = {"# <target> <source>",
                                  "cryptdata UUID=f81b6557-57ce-46e3-816d-d4b529bee01b "
                                  "/etc/keys/cryptdata.key luks",
                                  own, ""};
    EXPECT_EQ(once, expected);
    EXPECT_EQ(crypttabAppendLines(once.join('\n'), "/dev/vg0/data", own), expected);

    const QStringList removed =
        crypttabRemoveLines(crypttab + "  " + own + "\n", "/dev/vg0/data", &dropped);
    EXPECT_TRUE(dropped);
    EXPECT_EQ(removed, QStringList({expected[0], "", expected[1], "", "", ""}));
    crypttabRemoveLines(removed.join('\n'), "/dev/vg0/data", &dropped);
    EXPECT_FALSE(dropped);
}

TEST(LvmLines, NamesPasswordsAndThinSizes)
{
    for (const QString& name : QStringList{"vg0", "data_1.bak+x", "a-", QString(127, 'n')})
        EXPECT_TRUE(isLvmName(name)) << name.toStdString();
    for (const QString& name :
         QStringList{"", "-x", ".", "..", "a b", "$(reboot)", "a/b", "名字", QString(128, 'n')})
        EXPECT_FALSE(isLvmName(name)) << name.toStdString();
    for (const QString& pwd :
         QStringList{"", "Pa55_w0rd-!@%^+=:,./", "中文密码", "🔑" + QString(511, 'p')})
        EXPECT_TRUE(isLvmPassword(pwd)) << pwd.toStdString();
    for (const QString& pwd :
         QStringList{"$(reboot)", "a b", "-x", "a;b", "a\\nb", "`id`", "a'b", "x\x01", "x\u0085",
                     QString(513, 'p'), QString(QChar(0xd800)), "🔑" + QString(QChar(0xdc00))})
        EXPECT_FALSE(isLvmPassword(pwd)) << pwd.toStdString();

    // The virtio group: 704643072 bytes free, a 201326592-byte pool.
    EXPECT_EQ(lvmFreeMb(704643072), 672);
    EXPECT_EQ(lvmFreeMb(704643073), 673);
    EXPECT_TRUE(thinPoolOwnSize(645, 672));
    EXPECT_FALSE(thinPoolOwnSize(646, 672));
    EXPECT_EQ(thinSizeFromPool(201326592, 32), 192);
    EXPECT_EQ(thinSizeFromPool(201326593, 32), 193);
    EXPECT_EQ(thinSizeFromPool(0, 32), 32);
}
