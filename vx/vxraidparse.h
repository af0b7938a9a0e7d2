#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>

// Pure readers of mdadm's and the kernel's RAID output.

// Lookups the "mdadm -D" reader needs from the machine; both default to
// returning their argument.
struct RaidLookups
{
    std::function<QString(const QString&)> parentOf;  // partition -> its disk
    std::function<QString(const QString&)> canonical; // "/dev/md/NAME" -> "/dev/mdN"
};

// The array record of "mdadm -D md" output ("md", "dev", "level", "active",
// "attributes", "members", "spares"). inventory (may be null) is the disk
// inventory by path. False when the output is not about md.
bool raidDetailOf(QJsonObject& record, const QString& output, const QString& md,
                  const QJsonObject* inventory, const RaidLookups& lookups);

// "Creation Time :" and "Update Time :" values -> "yyyy-MM-dd HH:mm:ss"
// ("" when unreadable).
QString raidTimeOf(const QString& text);

// The progress keys of "mdadm -D" output: "synching", "state", "states" and
// the first status line's "*_percent" and "percent".
QJsonObject raidProgressOf(const QString& output);
// A resync, rebuild or reshape status line is present.
bool raidRemodelingOf(const QString& output);

// The derived flags of a record: "used", "faulty", "synching", "sync", "//sync".
QJsonObject raidStatusOf(const QJsonObject& record, bool used);

// /proc/mdstat: "/dev/mdN" of every array, and the quick list.
QStringList mdstatNames(const QString& mdstat);
QJsonArray mdstatQuickList(const QString& mdstat);

// Arrays whose members are other arrays of the list gain "submd" and
// "levels"; see the definition for what is merged.
QJsonObject raidFoldOf(const QJsonObject& arrays);
