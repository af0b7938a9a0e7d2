#include "vx/vxraid.h"

#include "vx/vxraid_p.h"
#include "vx/vxraidlines.h"

#include "lnx2/lnx2utils.h"

VXRaid::VXRaid() : d(std::make_unique<VXRaidPrivate>()) {}

VXRaid::~VXRaid() = default;

int VXRaid::create(QString& error, int level, const QStringList& disks, const QStringList& spares,
                   int chunk, QString& md)
{
    return d->create(error, level, disks, spares, chunk, md);
}

int VXRaid::extend(const QString& md, const QStringList& disks, QString& error)
{
    return d->extend(md, disks, error);
}

int VXRaid::grow(const QString& md, int level, const QStringList& disks, QString& error)
{
    return d->grow(md, level, disks, error);
}

int VXRaid::push(QString& error, const QString& md, const QStringList& disks)
{
    return d->push(error, md, disks);
}

int VXRaid::pull(QString& error, const QString& md, const QString& member)
{
    return d->pull(error, md, member);
}

int VXRaid::remove(QString& error, const QString& md)
{
    return d->remove(error, md, true);
}

int VXRaid::removes(QString& error, const QString& md)
{
    return d->remove(error, md, false);
}

int VXRaid::repair(const QString& md)
{
    return d->repair(md);
}

int VXRaid::repairAll()
{
    return d->repairAll();
}

int VXRaid::rename(const QString& oldMd, const QString& newMd)
{
    return d->rename(oldMd, newMd);
}

bool VXRaid::active(const QString& md)
{
    if (!isRaidPath(md))
        return false;
    return cmdExec(QStringLiteral("/usr/bin/sudo /usr/sbin/mdadm --run ") + md, 9999);
}

void VXRaid::writeConfig()
{
    VXRaidPrivate::writeConfig();
}
