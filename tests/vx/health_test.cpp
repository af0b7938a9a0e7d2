#include "vx/vxdisk.h"
#include "vx/vxhealthparse.h"

#include "gx2/gx2utils.h"

#include "tests/support/scriptedbackend.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

const QString kHealth = QStringLiteral("storage/health/");

QJsonObject report(const char* fixture)
{
    return QJsonDocument::fromJson(readFixture(kHealth + QLatin1String(fixture))).object();
}

// One ATA attribute as smartctl -aj writes it.
QJsonObject attribute(int id, int thresh, const QJsonValue& raw)
{
    return QJsonObject{{"id", id},         {"name", QStringLiteral("Attr_%1").arg(id)},
                       {"value", 100},     {"worst", 99},
                       {"thresh", thresh}, {"raw", QJsonObject{{"value", raw}}}};
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
    const QJsonObject realloc = rowById(rows, 5);
    EXPECT_EQ(realloc.value("ATTRIBUTE_NAME").toString(), "Reallocated_Sector_Ct");
    EXPECT_EQ(realloc.value("VALUE").toInt(), 100);
    EXPECT_EQ(realloc.value("THRESH").toInt(), 36);
    EXPECT_EQ(realloc.value("status").toInt(), 1);
    EXPECT_EQ(realloc.value("STATUS").toString(), "ok");
    EXPECT_EQ(rowById(rows, 9).value("STATUS").toString(), "-");
    EXPECT_EQ(int64Of(rowById(rows, 190), "RAW_VALUE"), 522125343);

    rows = QJsonArray();
    smartRowsOf(rows,
                ataReport({attribute(197, 0, 3), attribute(198, 0, 0),
                           attribute(9, 0, qint64(5000000000)), attribute(5, 0, "12")}),
                false);
    ASSERT_EQ(rows.size(), 4);
    EXPECT_EQ(rowById(rows, 197).value("status").toInt(), -1);
    EXPECT_EQ(rowById(rows, 197).value("STATUS").toString(), "warn");
    EXPECT_EQ(rowById(rows, 198).value("STATUS").toString(), "ok");
    EXPECT_EQ(rowById(rows, 9).value("status").toInt(), 0);
    EXPECT_EQ(int64Of(rowById(rows, 9), "RAW_VALUE"), 5000000000LL); // beyond 32 bits
    EXPECT_EQ(int64Of(rowById(rows, 5), "RAW_VALUE"), 0);            // not a number
    EXPECT_EQ(rowById(rows, 5).value("STATUS").toString(), "ok");
    EXPECT_EQ(rowById(rows, 9).value("WORST").toInt(), 99);

    rows = QJsonArray();
    smartRowsOf(rows, report("nvme/smartctl-aj-nvme0n1.json"), true);
    ASSERT_EQ(rows.size(), 17);
    for (const QJsonValue& value : rows) {
        const QJsonObject row = value.toObject();
        for (const char* zero : {"ID", "VALUE", "WORST", "THRESH", "status"})
            EXPECT_EQ(row.value(QLatin1String(zero)).toInt(-1), 0) << zero;
        EXPECT_EQ(row.value("STATUS").toString(), "-");
        const QString name = row.value("ATTRIBUTE_NAME").toString();
        if (name == "temperature" || name == "host_reads") {
            EXPECT_EQ(int64Of(row, "RAW_VALUE"), name == "temperature" ? 50 : 51);
        }
    }
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
    double celsius = -1;
    EXPECT_TRUE(temperatureOf(celsius, ata));
    EXPECT_EQ(celsius, 36);
    EXPECT_TRUE(temperatureOf(celsius, ata + nvme));
    EXPECT_EQ(celsius, 41);
    EXPECT_TRUE(temperatureOf(celsius, nvme + ata));
    EXPECT_EQ(celsius, 36);
    EXPECT_TRUE(
        temperatureOf(celsius, readToolOutput(kHealth + "nvme/smartctl-attribute-nvme0n1.txt")));
    EXPECT_EQ(celsius, 50);

    celsius = -1;
    // qemu's SATA disks only have 190 Airflow_Temperature_Cel.
    EXPECT_FALSE(
        temperatureOf(celsius, readToolOutput(kHealth + "sata/smartctl-attribute-sda.txt")));
    EXPECT_FALSE(temperatureOf(celsius, "194 Temperature_Celsius 0x0022 036 045 000 Old_age\n"));
    EXPECT_FALSE(temperatureOf(celsius, "Temperature: 41 Fahrenheit\nTemperature 41 Celsius\n"));
    EXPECT_FALSE(temperatureOf(celsius, ""));
    EXPECT_EQ(celsius, -1);
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
    for (const LNX2ProcRequest& call : backend.calls()) {
        EXPECT_EQ(call.startMs, 999);
        EXPECT_EQ(call.finishMs, 9999);
    }
}

TEST(SmartHasErrors, AnyWarningRowOfAnInventoryDisk)
{
    const QByteArray fdisk = "Disk /dev/sda: 512 MiB, 536870912 bytes, 1048576 sectors\n"
                             "Disk /dev/sdb: 512 MiB, 536870912 bytes, 1048576 sectors\n";
    const QByteArray healthy = readFixture(kHealth + "sata/smartctl-aj-sda.json");
    const QByteArray failing =
        QJsonDocument(ataReport({attribute(9, 0, 7), attribute(197, 0, 3)})).toJson();
    for (bool broken : {false, true}) {
        ScriptedBackend backend;
        backend.allowOthers();
        backend.expectLine("/usr/bin/sudo fdisk -l").prints(fdisk);
        backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sda").prints(healthy);
        backend.expectLine("/usr/bin/sudo smartctl -aj /dev/sdb")
            .prints(broken ? failing : healthy);
        EXPECT_EQ(VXDisk().smartHasErrors(), broken);
    }
}

TEST(Temperatures, PerDiskMinMaxOverTheDisksThatAnswer)
{
    const QByteArray lsblk = R"({"blockdevices": [
        {"name": "sda", "path": "/dev/sda", "type": "disk"},
        {"name": "sda1", "path": "/dev/sda1", "type": "part"},
        {"name": "sdb", "path": "/dev/sdb", "type": "disk"},
        {"name": "sdc", "path": "/dev/sdc", "type": "disk"},
        {"name": "nvme0n1", "path": "/dev/nvme0n1", "type": "disk"}]})";
    const auto ata = [](int celsius) {
        return QByteArray("194 Temperature_Celsius 0x0022 036 045 000 Old_age Always - ") +
               QByteArray::number(celsius) + "\n";
    };
    ScriptedBackend backend;
    backend.expectLine("lsblk -ablJ -o name,path,type").prints(lsblk).repeatedly();
    backend.expectLine("/usr/bin/sudo smartctl --attribute /dev/sda").prints(ata(36)).repeatedly();
    backend.expectLine("/usr/bin/sudo smartctl --attribute /dev/sdb").exits(2).repeatedly();
    backend.expectLine("/usr/bin/sudo smartctl --attribute /dev/sdc").prints(ata(29)).repeatedly();
    backend.expectLine("/usr/bin/sudo smartctl --attribute /dev/nvme0n1")
        .printsFile(kHealth + "nvme/smartctl-attribute-nvme0n1.txt")
        .repeatedly();
    VXDisk disk;
    QJsonObject perDisk;
    double min = -1;
    double max = -1;
    EXPECT_EQ(disk.temperatures(perDisk, min, max), 3);
    EXPECT_EQ(perDisk,
              (QJsonObject{{"/dev/sda", 36.0}, {"/dev/sdc", 29.0}, {"/dev/nvme0n1", 50.0}}));
    EXPECT_EQ(min, 29);
    EXPECT_EQ(max, 50);
    EXPECT_EQ(disk.maxTemperature(), 50);
    for (const LNX2ProcRequest& call : backend.calls())
        EXPECT_EQ(call.finishMs, 9999); // lsblk included
}

TEST(Temperatures, NoDiskOrNoReadingGivesZeroes)
{
    for (const QByteArray& lsblk :
         {QByteArray(R"({"blockdevices": []})"),
          QByteArray(
              R"({"blockdevices": [{"name": "sdb", "path": "/dev/sdb", "type": "disk"}]})")}) {
        ScriptedBackend backend;
        backend.expectLine("lsblk -ablJ -o name,path,type").prints(lsblk);
        backend.expectLine("/usr/bin/sudo smartctl --attribute /dev/sdb").exits(1).repeatedly();
        QJsonObject perDisk;
        double min = -1;
        double max = -1;
        EXPECT_EQ(VXDisk().temperatures(perDisk, min, max), 0);
        EXPECT_TRUE(perDisk.isEmpty());
        EXPECT_EQ(min, 0);
        EXPECT_EQ(max, 0);
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
    EXPECT_EQ(int64Of(speeds, "read_speed"), 2048);
    EXPECT_EQ(int64Of(speeds, "write_speed"), 1048576);
    EXPECT_EQ(backend.calls().value(0).finishMs, 1500);
    QJsonObject none;
    EXPECT_EQ(disk.totalSpeed(none), 0);
    EXPECT_TRUE(none.isEmpty());
}
