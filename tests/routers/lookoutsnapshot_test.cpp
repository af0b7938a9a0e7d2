#include "routers/lookoutsnapshot.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QJsonObject mount(const char* path, qint64 capacity, qint64 used, qint64 free)
{
    return {{"mntpath", path}, {"capacity", capacity}, {"size", used}, {"free", free}};
}

QJsonObject event(const char* eventlevel)
{
    return {{"level", "Information"}, {"eventlevel", eventlevel}};
}

} // namespace

TEST(LookoutSnapshot, FahrenheitKeepsOneDecimal)
{
    // 36.55 * 1.8 + 32 is 97.78999... in binary; "f" with 1 decimal gives 97.8.
    EXPECT_EQ(lookoutFahrenheit(36.55), 97.8);
    EXPECT_EQ(lookoutFahrenheitOf({{"/dev/sda", 40}, {"/dev/sdb", 21.25}}, 21.25, 40),
              (QJsonObject{{"min", 70.3},
                           {"max", 104.0},
                           {"devs", QJsonObject{{"/dev/sda", 104.0}, {"/dev/sdb", 70.3}}}}));
}

TEST(LookoutSnapshot, StorageSumsDataMountsAndListsRootAndGroups)
{
    const QJsonObject zfs{{"vg0", QJsonObject{{"vg", "vg0"}, {"size", 7}, {"free", 7}}}};
    const QJsonObject storage = lookoutStorageOf(
        {{"a", mount("/", 100, 60, 40)},
         {"b", mount("/mnt/vg0/lv0", 40, 30, 10)},
         {"c", mount("/mnt/tank/data", 60, 50, 10)}},
        {{"vg0", QJsonObject{{"vg", "vg0"}}}, {"vg1", QJsonObject{{"vg", "vg1"}}}}, zfs);
    EXPECT_EQ(storage.value("size"), 80);
    EXPECT_EQ(storage.value("free"), 20);
    EXPECT_EQ(storage.value("capacity"), 100);
    EXPECT_EQ(storage.value("userate"), 80.0);
    // The root's size is its capacity; a later source wins a shared name.
    EXPECT_EQ(storage.value("vgs").toObject(),
              (QJsonObject{{"/", QJsonObject{{"vg", "/"}, {"size", 100}, {"free", 40}}},
                           {"vg0", zfs.value("vg0")},
                           {"vg1", QJsonObject{{"vg", "vg1"}}}}));

    // Only "/": 0 * 100 / 0 goes out as null, the key kept.
    EXPECT_EQ(QJsonDocument(lookoutStorageOf({{"a", mount("/", 100, 60, 40)}}, {}, {}))
                  .toJson(QJsonDocument::Compact),
              R"({"capacity":0,"free":0,"size":0,"userate":null,)"
              R"("vgs":{"/":{"free":40,"size":100,"vg":"/"}}})");
}

TEST(LookoutSnapshot, StatusReadsEventlevelAndTheSnapshotPlacesEverySource)
{
    EXPECT_EQ(lookoutStatusOf({event("Warning"), event("Information")}), 1);
    EXPECT_EQ(lookoutStatusOf({event("Warning"), event("Error"), event("Warning")}), 2);
    // Case counts, and the pool's own "level" does not.
    EXPECT_EQ(lookoutStatusOf({event("error"), QJsonObject{{"level", "Error"}}}), 0);

    LookoutParts parts;
    parts.nics = {{"eth0", QJsonObject{{"nic", "eth0"}}}};
    parts.readall = 7;
    parts.writeall = 3;
    parts.temperatures = {{"/dev/sda", 40}};
    parts.maxTemperature = 40;
    parts.logs = {event("Error")};
    parts.kernelVersion = "6.1.0-18-amd64";
    const QJsonObject s = lookoutSnapshotOf(parts);
    EXPECT_EQ(s.keys(), (QStringList{"cpu", "disk", "hostname", "kernelversion", "loadaverage",
                                     "logs", "memory", "mount", "network", "process", "status",
                                     "storage", "uptime"}));
    EXPECT_EQ(s.value("network").toObject(),
              (QJsonObject{{"readall", 7}, {"writeall", 3}, {"nic", parts.nics}}));
    const QJsonObject disk = s.value("disk").toObject();
    EXPECT_EQ(disk.value("temperature").toObject().value("devs"), parts.temperatures);
    EXPECT_EQ(disk.value("fahrenheit").toObject().value("max"), 104.0);
    EXPECT_EQ(s.value("status"), 2);
    EXPECT_EQ(s.value("logs").toArray(), parts.logs);
    EXPECT_EQ(s.value("kernelversion"), "6.1.0-18-amd64");
}
