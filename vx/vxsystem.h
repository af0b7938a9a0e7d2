#pragma once

#include <QJsonObject>
#include <QString>

// Facts about the running system sampled by the dashboard.
class VXSystem
{
public:
    // {"duration", "days", "hours", "minutes", "seconds"} since boot.
    static QJsonObject uptime();
    // The three load figures as uptime prints them, e.g. "0.08, 0.12, 0.10".
    static QString loadAverage();
    static QString kernelVersion();
    // The installed package version from the product's version file.
    static QString version();
    // Asked of the daemon (they need root); false when it says no.
    static bool processExists(int pid);
    static bool processKill(int pid);
};
