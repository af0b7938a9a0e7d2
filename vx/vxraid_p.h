#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>
#include <tuple>

// (part, dev, number) of one member or spare, for the reshaping code.
using VXRaidDev = std::tuple<QString, QString, int>;

// The working code behind VXRaid.
class VXRaidPrivate
{
public:
    // Status (vxraidstatus.cpp).
    int acquit(QJsonObject& out, const QString& md, const QJsonObject* inventory = nullptr);
    bool isRemodeling(const QString& md);
    QJsonArray mdevices();
    QStringList names() const;
    static void loadDevs(QList<VXRaidDev>& out, const QJsonObject& record, const QString& key);
    // "/dev/md/NAME" -> "/dev/mdN" when the link exists; anything else unchanged.
    static QString canonical(const QString& md);
    // canonical(md) is listed in /proc/mdstat.
    bool known(const QString& md) const;

    // Creation (vxraidcreate.cpp).
    int create(QString& error, int level, const QStringList& disks, const QStringList& spares,
               int chunk, QString& md);
    int createRaid(QString& error, int level, const QStringList& disks,
                   const QStringList& spares, int chunk, QString& md);
    int createRaidX0(QString& error, QString& md, int subLevel, int groupSize,
                     const QStringList& disks, int chunk);
    // One GPT partition flagged for RAID over the whole disk; true when it
    // appeared within waitMs.
    bool createPart(QString& part, const QString& disk, int waitMs);
    bool setDefaultLayout();

    // Reshaping, repair and removal (vxraidreshape.cpp).
    int extend(const QString& md, const QStringList& disks, QString& error);
    int grow(const QString& md, int level, const QStringList& disks, QString& error);
    int push(QString& error, const QString& md, const QStringList& disks);
    int pull(QString& error, const QString& md, const QString& member);
    int remove(QString& error, const QString& md, bool wait);
    int repair(const QString& md);
    int repairAll();
    int rename(const QString& oldMd, const QString& newMd);

    // Sends {"cmd": "raid_writeConfig"} to the daemon (vxraidconfig.cpp).
    static void writeConfig();

    // Set while a creation thread runs; shared with that thread, which may
    // outlive this object.
    std::shared_ptr<std::atomic_bool> creating = std::make_shared<std::atomic_bool>(false);
};
