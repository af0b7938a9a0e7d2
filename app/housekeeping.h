#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// How one housekeeper measures and cleans. The application's slimming loop
// and WorkThread are the two configurations of the same job.
struct HousekeepingConfig
{
    QString dfProgram;
    QStringList dfArguments;
    int dfStartMs = 0;
    int dfFinishMs = 0;
    bool dfNeedsSixFields = false;    // the slimming loop also demands more than 5 fields
    int cleanAtUse = 0;               // clean when the root use in percent is at least this
    bool snapperThroughShell = false; // command lines through the runners, else program "snapper"
    int snapperStartMs = 0;           // listing as program "snapper"
    int snapperFinishMs = 0;
    int snapperDeleteStartMs = 0; // deletion as program "snapper"
    int snapperDeleteFinishMs = 0;
    bool anyRotatedNumber = false; // "syslog.2" counts as rotated, not only "syslog.1"

    static HousekeepingConfig slimming();
    static HousekeepingConfig workThread();
};

class Housekeeping
{
public:
    explicit Housekeeping(const HousekeepingConfig& config);

    // Use of the root file system in percent; 0 when df cannot tell.
    int rootUse() const;
    bool needsCleaning(int use) const;
    // Deletes application snapshots, then rotated and oversized logs.
    void clean() const;
    // One look: measure, and clean when the threshold is reached.
    void check() const;

    const HousekeepingConfig& config() const { return cfg; }

    static int parseRootUse(const QByteArray& dfOutput, bool needSixFields);
    static QList<int> appSnapshots(const QString& snapperListing);

private:
    bool listSnapshots(QString& listing) const;
    void deleteSnapshot(int number) const;
    void deleteSnapshots() const;
    void cleanLogs() const;
    bool isRotated(const QString& suffix) const;

    HousekeepingConfig cfg;
};
