#include "vx/vxdisk.h"
#include "vx/vxhealthparse.h"

#include "gx2/gx2utils.h"

#include "tests/support/scriptedbackend.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

const QString kHealth = QStringLiteral("storage/health/");

QJsonObject report(const char* fixture)
{
    return QJsonDocument::fromJson(readFixture(kHealth + QLatin1String(fixture))).object();
}

// One ATA attribute as smartctl -aj writes it.
QJsonObject attribute(int id, const QJsonValue& raw)
{
    return QJsonObject{{"id", id},     {"name", QStringLiteral("Attr_%1").arg(id)},
                       {"value", 100}, {"worst", 99},
                       {"thresh", 0},  {"raw", QJsonObject{{"value", raw}}}};
}

QJsonObject ataReport(const QJsonArray& table)
{
    return QJsonObject{{"ata_smart_attributes", QJsonObject{{"table", table}}}};
}

QJsonObject rowById(const QJsonArray& rows, int id)
{
    for (const QJsonValue& row : rows) {
        if (row.toObject().value("ID").toInt() == id)
            return row.toObject();
    }
    return QJsonObject();
}

// A row's values in a fixed order, as compact JSON.
QString rowText(const QJsonObject& row)
{
    QJsonArray values;
    for (const char* key :
         {"ID", "ATTRIBUTE_NAME", "VALUE", "WORST", "THRESH", "RAW_VALUE", "status", "STATUS"})
        values.append(row.value(QLatin1String(key)));
    return QString::fromUtf8(QJsonDocument(values).toJson(QJsonDocument::Compact));
}

qint64 int64Of(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toVariant().toLongLong();
}

} // namespace

TEST(SmartVerdict, ZeroCountersFirstThenThresholdsElseNotJudged)
{
    // 10, 11 and 198 warn on any raw value, even one below the threshold.
    for (int id : {10, 11, 198}) {
        EXPECT_EQ(smartVerdict(id, 1, 100), -1) << id;
        EXPECT_EQ(smartVerdict(id, 0, 0), 1) << id;
    }
    for (int id : {5, 184, 187, 188, 191, 196, 197, 201}) {
        EXPECT_EQ(smartVerdict(id, 37, 36), -1) << id;
        EXPECT_EQ(smartVerdict(id, 36, 36), 1) << id;
    }
    for (int id : {1, 9, 12, 190, 194, 199})
        EXPECT_EQ(smartVerdict(id, 5000, 0), 0) << id;
}

TEST(SmartRows, AtaTableJudgedNvmeLogUnjudged)
{
    QJsonArray rows{QJsonObject{{"ID", -7}}}; // rows are appended to
    smartRowsOf(rows, report("sata/smartctl-aj-sda.json"), false);
    ASSERT_EQ(rows.size(), 8);
    EXPECT_EQ(rows.first().toObject().value("ID").toInt(), -7);
    EXPECT_EQ(rowText(rowById(rows, 5)), R"([5,"Reallocated_Sector_Ct",100,100,36,0,1,"ok"])");
    EXPECT_EQ(rowText(rowById(rows, 190)),
              R"([190,"Airflow_Temperature_Cel",69,69,50,522125343,0,"-"])");

    // Raw values beyond 32 bits stay whole; a string is no number.
    rows = QJsonArray();
    smartRowsOf(rows,
                ataReport({attribute(197, 3), attribute(198, 0), attribute(9, qint64(5000000000)),
                           attribute(5, "12")}),
                false);
    EXPECT_EQ(rows.size(), 4);
    for (const auto& [id, text] :
         std::vector<std::pair<int, QString>>{{197, R"([197,"Attr_197",100,99,0,3,-1,"warn"])"},
                                              {198, R"([198,"Attr_198",100,99,0,0,1,"ok"])"},
                                              {9, R"([9,"Attr_9",100,99,0,5000000000,0,"-"])"},
                                              {5, R"([5,"Attr_5",100,99,0,0,1,"ok"])"}})
        EXPECT_EQ(rowText(rowById(rows, id)), text);

    rows = QJsonArray();
    smartRowsOf(rows, report("nvme/smartctl-aj-nvme0n1.json"), true);
    QStringList texts;
    for (const QJsonValue& row : rows)
        texts << rowText(row.toObject());
    EXPECT_TRUE(texts.contains(R"([0,"temperature",0,0,0,50,0,"-"])"));
    EXPECT_TRUE(texts.contains(R"([0,"host_reads",0,0,0,51,0,"-"])"));
    EXPECT_EQ(texts.filter(QRegularExpression(R"(^\[0,"\w+",0,0,0,\d+,0,"-"\]$)")).size(), 17);
    // An NVMe report has no ATA table and the other way round.
    rows = QJsonArray();
    smartRowsOf(rows, report("nvme/smartctl-aj-nvme0n1.json"), false);
    smartRowsOf(rows, report("sata/smartctl-aj-sda.json"), true);
    EXPECT_TRUE(rows.isEmpty());
}

TEST(TemperatureOf, AtaTenthWordNvmeLineLastMatchWins)
{
    const QString ata = "194 Temperature_Celsius   0x0022 036 045 000 Old_age Always - 36 "
                        "(Min/Max 21/45)\n";
    const QString nvme = "Temperature:                        41 Celsius\n";
    // -1: nothing found, and the reading is left alone.
    const std::vector<std::pair<QString, double>> cases{
        {ata, 36},
        {ata + nvme, 41},
        {nvme + ata, 36},
        {readToolOutput(kHealth + "nvme/smartctl-attribute-nvme0n1.txt"), 50},
        // qemu's SATA disks only have 190 Airflow_Temperature_Cel.
        {readToolOutput(kHealth + "sata/smartctl-attribute-sda.txt"), -1},
        {"194 Temperature_Celsius 0x0022 036 045 000 Old_age\n", -1},
        {"Temperature: 41 Fahrenheit\nTemperature 41 Celsius\n", -1},
        {"", -1}};
    for (const auto& [output, expected] : cases) {
        double celsius = -1;
        EXPECT_EQ(temperatureOf(celsius, output), expected >= 0) << output.toStdString();
        EXPECT_EQ(celsius, expected) << output.toStdString();
    }
}

TEST(TotalSpeedOf, UnitsScaleByPowersOf1024AndTruncate)
{
    EXPECT_EQ(asUnitSpeed("KB/s"), 1); // unknown
    EXPECT_EQ(asUnitSpeed("M/S"), 1024 * 1024);

    const auto speeds = [](const QString& read, const QString& write) {
        QJsonObject out;
        EXPECT_TRUE(totalSpeedOf(out, "Total DISK READ:   " + read + " | Total DISK WRITE:   " +
                                          write + "\nCurrent DISK READ: 9.00 M/s | x\n"));
        return std::make_pair(int64Of(out, "read_speed"), int64Of(out, "write_speed"));
    };
    EXPECT_EQ(speeds("1.50 K/s", "2.25 M/s"), std::make_pair(1536LL, 2359296LL));
    EXPECT_EQ(speeds("512.70 B/s", "3.00 X/s"), std::make_pair(512LL, 3LL));
    EXPECT_EQ(speeds("1.00 g/s", "2.00 T/s"), std::make_pair(1LL << 30, 2LL << 40));
    EXPECT_EQ(speeds("4.00 P/s", "0.00 B/s"), std::make_pair(4LL << 50, 0LL));

    for (const char* bus : {"sata", "nvme"}) {
        QJsonObject out;
        EXPECT_TRUE(totalSpeedOf(out, readToolOutput(kHealth + bus + "/iotop-oqn1.txt")));
        EXPECT_EQ(out, (QJsonObject{{"read_speed", 0}, {"write_speed", 0}}));
    }
    QJsonObject out{{"kept", 1}};
    EXPECT_FALSE(totalSpeedOf(out, "Current DISK READ: 1.00 K/s | Current DISK WRITE: 1.00 K/s\n"));
    EXPECT_FALSE(totalSpeedOf(out, "Total DISK READ: fast K/s | Total DISK WRITE: 1.00 K/s\n"));
    EXPECT_EQ(out, (QJsonObject{{"kept", 1}}));
}

TEST(SmartInfo, RunsSmartctlJsonAndFailsOnAnyBadRun)
{
    const QByteArray sata = readFixture(kHealth + "sata/smartctl-aj-sda.json");
    ScriptedBackend backend;
    backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sda").prints(sata);
    backend.expectLine("/usr/bin/sudo smartctl -aj /dev/nvme0n1")
        .printsFile(kHealth + "nvme/smartctl-aj-nvme0n1.json");
    backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sdb").prints(sata).exits(4);
    backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sdc").failsToStart();
    backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sdd").prints("not json");
    VXDisk disk;
    QJsonArray rows;
    EXPECT_EQ(disk.smartInfo(rows, "/dev/sda"), 0);
    EXPECT_EQ(rows.size(), 7);
    EXPECT_EQ(disk.smartInfo(rows, "/dev/nvme0n1"), 0);
    EXPECT_EQ(rows.size(), 24);
    EXPECT_EQ(rows.last().toObject().value("STATUS").toString(), "-");
    for (const char* dev : {"/dev/sdb", "/dev/sdc", "/dev/sdd"})
        EXPECT_NE(disk.smartInfo(rows, dev), 0) << dev;
    EXPECT_EQ(rows.size(), 24);
    for (const LNX2ProcRequest& call : backend.calls())
        EXPECT_EQ(std::make_pair(call.startMs, call.finishMs), std::make_pair(999, 9999));
}

TEST(SmartHasErrors, AnyWarningRowOfAnInventoryDisk)
{
    const QByteArray healthy = readFixture(kHealth + "sata/smartctl-aj-sda.json");
    const QByteArray failing =
        QJsonDocument(ataReport({attribute(9, 7), attribute(197, 3)})).toJson();
    for (bool broken : {false, true}) {
        ScriptedBackend backend;
        backend.allowOthers();
        backend.expectLine("/usr/bin/sudo fdisk -l")
            .prints("Disk /dev/sda: 512 MiB, 536870912 bytes, 1048576 sectors\n"
                    "Disk /dev/sdb: 512 MiB, 536870912 bytes, 1048576 sectors\n");
        backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sda").prints(healthy);
        backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sdb")
            .prints(broken ? failing : healthy);
        EXPECT_EQ(VXDisk().smartHasErrors(), broken);
    }
}

// Disks that give no reading are left out; none at all gives zeroes.
TEST(Temperatures, PerDiskMinMaxOverTheDisksThatAnswer)
{
    const QByteArray lsblk = R"({"blockdevices": [
        {"name": "sda", "path": "/dev/sda", "type": "disk"},
        {"name": "sda1", "path": "/dev/sda1", "type": "part"},
        {"name": "sdb", "path": "/dev/sdb", "type": "disk"},
        {"name": "sdc", "path": "/dev/sdc", "type": "disk"},
        {"name": "nvme0n1", "path": "/dev/nvme0n1", "type": "disk"}]})";
    const auto ata = [](int celsius) {
        return "194 Temperature_Celsius 0x0022 036 045 000 Old_age Always - " +
               QByteArray::number(celsius) + "\n";
    };
    const QByteArray onlySdb = R"({"blockdevices": [{"name": "sdb", "path": "/dev/sdb",
        "type": "disk"}]})";
    const QJsonObject all{{"/dev/sda", 36.0}, {"/dev/sdc", 29.0}, {"/dev/nvme0n1", 50.0}};
    for (const auto& [listed, perDiskWanted, minWanted, maxWanted] :
         std::vector<std::tuple<QByteArray, QJsonObject, double, double>>{
             {lsblk, all, 29, 50}, {R"({"blockdevices": []})", {}, 0, 0}, {onlySdb, {}, 0, 0}}) {
        ScriptedBackend backend;
        backend.expectLine("lsblk -ablJ -o name,path,type").prints(listed).repeatedly();
        const QString smartctl = "/usr/bin/sudo smartctl --attribute /dev/";
        backend.expectLine(smartctl + "sda").prints(ata(36)).repeatedly();
        backend.expectLine(smartctl + "sdb").exits(2).repeatedly();
        backend.expectLine(smartctl + "sdc").prints(ata(29)).repeatedly();
        backend.expectLine(smartctl + "nvme0n1")
            .printsFile(kHealth + "nvme/smartctl-attribute-nvme0n1.txt")
            .repeatedly();
        VXDisk disk;
        QJsonObject perDisk;
        double min = -1;
        double max = -1;
        EXPECT_EQ(disk.temperatures(perDisk, min, max), perDiskWanted.size());
        EXPECT_EQ(perDisk, perDiskWanted);
        EXPECT_EQ(std::make_pair(min, max), std::make_pair(minWanted, maxWanted));
        EXPECT_EQ(disk.maxTemperature(), maxWanted);
        for (const LNX2ProcRequest& call : backend.calls())
            EXPECT_EQ(call.finishMs, 9999); // lsblk included
    }
}

TEST(TotalSpeed, OneQuietIotopSampleWithinOneAndAHalfSeconds)
{
    ScriptedBackend backend;
    backend.expectLine("/usr/bin/sudo iotop -o -q -n 1")
        .prints("Total DISK READ:  2.00 K/s | Total DISK WRITE:  1.00 M/s\n");
    backend.expectLine("/usr/bin/sudo iotop -o -q -n 1").timesOut();
    VXDisk disk;
    QJsonObject speeds;
    EXPECT_EQ(disk.totalSpeed(speeds), 0);
    EXPECT_EQ(speeds, (QJsonObject{{"read_speed", 2048}, {"write_speed", 1048576}}));
    EXPECT_EQ(backend.calls().value(0).finishMs, 1500);
    QJsonObject none;
    EXPECT_EQ(disk.totalSpeed(none), 0);
    EXPECT_TRUE(none.isEmpty());
}
