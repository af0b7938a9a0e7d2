#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"

#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

const QString VXLvmPrivate::MOUNTPOINT = QStringLiteral("/mnt");
const QString VXLvmPrivate::ETC_FSTAB = QStringLiteral("/etc/fstab");
const QString VXLvmPrivate::ETC_CRYPTTAB = QStringLiteral("/etc/crypttab");
const QString VXLvmPrivate::ORVO_ETC_CRYPTDIR = QStringLiteral("/orvo/etc/cryptlvm");

namespace {

constexpr int kToolMs = 9999;
constexpr int kDirectStartMs = 999;
constexpr int kDirectFinishMs = 10000;
constexpr int kDefaultPeMb = 32;

const QString kSudo = QStringLiteral("/usr/bin/sudo ");

LNX2ProcResult runDirect(const QString& line)
{
    return procRunLine(line, kDirectStartMs, kDirectFinishMs);
}

bool disksValid(const QStringList& disks)
{
    if (disks.isEmpty())
        return false;
    for (const QString& disk : disks) {
        if (!isDevicePath(disk))
            return false;
    }
    return true;
}

int refused(QString& msg)
{
    msg = QStringLiteral("参数错误");
    return kLvmTooSmall;
}

} // namespace

int VXLvm::vgCreate(QString& msg, const QString& vg, const QStringList& disks, int peSizeMb)
{
    if (!isLvmName(vg) || !disksValid(disks))
        return refused(msg);
    if (vgExists(vg))
        return kLvmGroupExists;
    // A device directory left by an older group of that name would confuse udev.
    cmdExec(kSudo + QStringLiteral("rm -rf /dev/") + vg, kToolMs);
    for (const QString& disk : disks) {
        cmdExec(kSudo + QStringLiteral("wipefs -a ") + disk, kToolMs);
        cmdExec(kSudo + QStringLiteral("dd if=/dev/zero of=") + disk +
                    QStringLiteral(" bs=512K count=20"),
                kToolMs);
    }
    const int pe = peSizeMb > 0 ? peSizeMb : kDefaultPeMb;
    QString output;
    if (cmdExec(kSudo + QStringLiteral("vgcreate -s ") + QString::number(pe) + QLatin1Char(' ') +
                    vg + QLatin1Char(' ') + disks.join(QLatin1Char(' ')),
                output, kToolMs))
        return kLvmOk;
    msg = output;
    return kLvmFailed;
}

int VXLvm::vgExtend(QString& msg, const QString& vg, const QStringList& disks)
{
    if (!isLvmName(vg) || !disksValid(disks))
        return refused(msg);
    return cmdExec(kSudo + QStringLiteral("vgextend -y ") + vg + QLatin1Char(' ') +
                       disks.join(QLatin1Char(' ')),
                   msg, kToolMs)
               ? kLvmOk
               : kLvmFailed;
}

bool VXLvm::vgRemove(QString& msg, const QString& vg)
{
    if (!isLvmName(vg)) {
        refused(msg);
        return false;
    }
    const QStringList steps{
        kSudo + QStringLiteral("vgreduce -y --removemissing ") + vg,
        kSudo + QStringLiteral("vgremove -y ") + vg,
        kSudo + QStringLiteral("rm -rf /dev/") + vg,
        kSudo + QStringLiteral("rm -rf ") + VXLvmPrivate::MOUNTPOINT + QLatin1Char('/') + vg,
    };
    for (const QString& step : steps) {
        const LNX2ProcResult run = runDirect(step);
        if (!run.ok()) {
            msg = QString::fromUtf8(run.err);
            return false;
        }
    }
    return true;
}

bool VXLvm::vgExists(const QString& vg)
{
    if (!isLvmName(vg))
        return false;
    const LNX2ProcResult run =
        runDirect(kSudo + QStringLiteral("vgs --noheading -o vg_name ") + vg);
    return run.ok() && !QString::fromUtf8(run.out).trimmed().isEmpty();
}

qint64 VXLvm::vgFree(const QString& vg)
{
    if (!isLvmName(vg))
        return 0;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("vgs --noheading -o vg_free --units b ") + vg, output,
                 kToolMs))
        return 0;
    return vgFreeOf(output);
}

QStringList VXLvm::vgNames()
{
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("vgs --noheading -o vg_name"), output, kToolMs))
        return {};
    QStringList names;
    for (const QString& name : lvmNamesOf(output)) {
        if (!name.isEmpty())
            names << name;
    }
    return names;
}

QStringList VXLvm::lvNames(const QString& vg)
{
    if (!isLvmName(vg))
        return {};
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("lvs --noheading --separator : -o lv_name ") + vg, output,
                 kToolMs))
        return {};
    return lvmNamesOf(output);
}

int VXLvmPrivate::GetPESizeMb(const QString& vg)
{
    // An unknown group gets the extent size vgCreate would give it.
    if (!isLvmName(vg))
        return kDefaultPeMb;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("vgdisplay -c ") + vg, output, kToolMs))
        return kDefaultPeMb;
    return peSizeMbOf(output);
}

QString VXLvm::toMountPath(const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return QString();
    return VXLvmPrivate::MOUNTPOINT + QLatin1Char('/') + vg + QLatin1Char('/') + lv;
}

QString VXLvm::toMountPath(const QString& dev)
{
    QString vg;
    QString lv;
    if (toVgLv(vg, lv, dev).isEmpty())
        return QString();
    return toMountPath(vg, lv);
}

QString VXLvm::toVolumePath(const QString& vg, const QString& lv, QString* dmPath)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return QString();
    const LNX2ProcResult run = runDirect(
        kSudo +
        QStringLiteral("lvs --noheading --separator : -o vg_name,lv_name,lv_path,lv_dm_path"));
    if (!run.ok())
        return QString();
    return volumePathOf(QString::fromUtf8(run.out), vg, lv, dmPath);
}

QString VXLvm::toVgLv(QString& vg, QString& lv, const QString& dev)
{
    if (!isDevicePath(dev))
        return QString();
    const LNX2ProcResult run = runDirect(
        kSudo + QStringLiteral("lvs --noheading --separator : -o vg_name,lv_name,lv_path ") + dev);
    if (!run.ok())
        return QString();
    return vgLvOf(QString::fromUtf8(run.out), vg, lv);
}

QString VXLvm::toFstype(const QString& dev)
{
    return VXDisk().fstype(dev);
}
