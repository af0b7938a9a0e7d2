#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// The appliance's Debian package state through dpkg and apt: what is
// installed, upgradable or broken, and the repairs. Stateless; every call
// runs the tools anew. Names that are not Debian package names never reach
// a tool: such a call answers false (or skips the entry) and runs nothing.
class LNX2Package
{
public:
    // A dpkg or apt process is running.
    bool isBusy() const;

    // Every entry of "dpkg -l": {"status", "package", "version"}.
    QList<QJsonObject> packages() const;
    // Names, and "name=version", of the entries in state "ii".
    QStringList installeds() const;
    QStringList packageVersions() const;
    bool installed(const QString& name, QString* version = nullptr) const;
    // The dpkg state ("ii", "rc", "iF", ...) and version of one package.
    bool status(const QString& name, QString& state, QString& version) const;
    // Entries neither installed ("ii") nor held ("hi").
    QList<QJsonObject> brokens() const;

    // The "apt list" lines of the upgradable packages.
    QStringList upgradables() const;
    // {"package", "version" (the candidate), "current"} each; false when apt failed.
    bool upgradables(QJsonArray& list) const;
    bool upgradable(QString& version, QString& current, const QString& name) const;

    // "dpkg -P", once more without a failing removal script.
    bool purge(const QString& name) const;
    int purge(const QList<QJsonObject>& list) const;
    // "apt reinstall", restoring missing configuration files.
    bool reinstall(const QString& name) const;
    int reinstall(const QList<QJsonObject>& list) const;

    // Single steps of the repair: "apt autoremove -y"; purging every broken
    // package (how many went); that, then reinstalling what is still broken
    // (true when nothing is broken afterwards).
    bool stepAutoRemove() const;
    int stepPurges() const;
    bool stepRepair() const;

    // Unlock, clean, set the clock, repair, reconfigure, rebuild the lists
    // and fix what apt finds broken; steps go on after a failure, and
    // brokens() tells afterwards whether it helped. False only when the
    // package system stayed busy (at once without wait, after an hour with).
    bool repairAll(bool wait) const;

    // The NTP server of the clock step: "ntpserver" of the configuration.
    static QString ntpServer();
};
