#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxfilesystem.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"

#include "gx2/gx2syspath.h"
#include "gx2/gx2utils.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QFileInfo>

namespace {

constexpr int kToolMs = 9999;
constexpr int kDirectStartMs = 999;
constexpr int kDirectFinishMs = 10000;
constexpr int kReopenMs = 60000;
constexpr int kFuserMs = 15000;
constexpr int kCloseMs = 25000;
constexpr int kDfStartMs = 5000;
constexpr int kDfFinishMs = 10000;

const QString kSudo = QStringLiteral("/usr/bin/sudo ");
const QString kCryptSuffix = QStringLiteral("_crypt");

// A mount path reaches root command lines, one of them through bash: the
// device path rule (segments of "._+:@-" and alphanumerics) applied to it.
bool isMountPath(const QString& path)
{
    return path.startsWith(QLatin1Char('/')) && isDevicePath(QStringLiteral("/dev") + path);
}

// The group's free MiB as the group detail reports it, without the disk
// inventory the rest of that detail costs.
qint64 groupFreeMb(const QString& vg)
{
    QString output;
    if (!isLvmName(vg) || !cmdExec(kSudo + QStringLiteral("vgdisplay -c ") + vg, output, kToolMs))
        return 0;
    return toInt(vgSizesOf(output, vg).value(QStringLiteral("free")));
}

int refused(QString& msg)
{
    msg = QStringLiteral("参数错误");
    return kLvmTooSmall;
}

int notFound(QString& msg)
{
    msg = QStringLiteral("逻辑卷不存在");
    return kLvmNotFound;
}

bool isDir(const QString& path)
{
    return QFileInfo(sysPath(path)).isDir();
}

void removeDir(const QString& path)
{
    cmdExec(kSudo + QStringLiteral("/bin/rm -rf ") + QFileInfo(path).absoluteFilePath(), kToolMs);
}

QString mapperName(const QJsonObject& record)
{
    return record.value(QStringLiteral("vg")).toString() + QLatin1Char('-') +
           record.value(QStringLiteral("lv")).toString() + kCryptSuffix;
}

bool isCrypt(const QJsonObject& record)
{
    return toInt(record.value(QStringLiteral("crypt"))) >= 1;
}

} // namespace

bool VXLvmPrivate::mount(QString& msg, const QString& dev, const QString& mountPath, bool withType)
{
    if (!isDevicePath(dev) || !isMountPath(mountPath)) {
        refused(msg);
        return false;
    }
    const bool created = !isDir(mountPath);
    if (created)
        cmdExec(kSudo + QStringLiteral("/bin/mkdir -p ") + mountPath, kToolMs);
    if (!isDir(mountPath)) {
        msg = QStringLiteral("挂载目录不存在");
        return false;
    }
    // systemd remounts from its own picture of fstab; let it read the current one.
    cmdExec(kSudo + QStringLiteral("systemctl daemon-reload"), kToolMs);
    QString command = kSudo + QStringLiteral("/bin/mount ");
    if (withType) {
        const QString fstype = VXDisk().fstype(dev);
        command += QStringLiteral("-t ") + fstype + QStringLiteral(" -o ") +
                   VXFileSystem::mountOptions(fstype) + QLatin1Char(' ');
    }
    command += dev + QLatin1Char(' ') + mountPath;
    QString output;
    if (!cmdExec(command, output, kToolMs)) {
        msg = dev + QLatin1Char('\n') + command + QLatin1Char('\n') + output;
        if (created)
            removeDir(mountPath);
        return false;
    }
    const QString volume = dev.endsWith(kCryptSuffix) ? dev.chopped(kCryptSuffix.size()) : dev;
    const bool mounted = lvMounted(volume);
    if (!mounted && created)
        removeDir(mountPath);
    return mounted;
}

bool VXLvmPrivate::pathForMount(QString& out, const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    if (dev.endsWith(kCryptSuffix)) {
        out = dev;
        return true;
    }
    QString output;
    QString dmPath;
    if (!cmdExec(kSudo +
                     QStringLiteral(
                         "lvs --noheading --separator : -o vg_name,lv_name,lv_dm_path,lv_tags ") +
                     dev,
                 output, kToolMs) ||
        !dmPathOf(output, dmPath))
        return false;
    out = lvIsCrypt(dev) ? dmPath + kCryptSuffix : dmPath;
    return true;
}

bool VXLvmPrivate::lvMounted(const QString& dev)
{
    QString path;
    if (!pathForMount(path, dev))
        return false;
    // df fails for some other file system now and then; its listing still counts.
    const LNX2ProcResult run = procRun(
        QStringLiteral("sudo"),
        {QStringLiteral("df"), QStringLiteral("-l"), QStringLiteral("--output=source"), path},
        kDfStartMs, kDfFinishMs);
    return dfListsSource(QString::fromUtf8(run.out), path);
}

bool VXLvm::lvMounted(const QString& dev)
{
    return VXLvmPrivate::lvMounted(dev);
}

int VXLvm::lvMount(QString& msg, const QString& dev, const QString& mountPath, const QString& pwd)
{
    if (!isDevicePath(dev) || !isMountPath(mountPath) || !isLvmPassword(pwd))
        return refused(msg);
    QJsonObject record;
    if (!lvDetail(record, dev))
        return notFound(msg);
    if (!isCrypt(record)) {
        if (!VXLvmPrivate::mount(msg, dev, mountPath, true))
            return kLvmFailed;
        const QString fstype = toFstype(dev);
        VXLvmPrivate::fstabAppend(dev, mountPath, fstype, VXFileSystem::mountOptions(fstype), 0, 0);
        return kLvmOk;
    }
    // The mapping must be open already, as formatting leaves it; closing and
    // reopening it proves the password.
    const QString name = mapperName(record);
    const QString mapper = QStringLiteral("/dev/mapper/") + name;
    if (!isDevicePath(mapper) || !QFileInfo::exists(sysPath(mapper)))
        return kLvmFailed;
    if (!procRunLine(kSudo + QStringLiteral("cryptsetup luksClose ") + name, kDirectStartMs,
                     kReopenMs)
             .ok())
        return kLvmFailed;
    const QString reopen = kSudo + QStringLiteral("echo -e ") + pwd +
                           QStringLiteral(" | sudo cryptsetup luksOpen ") + dev + QLatin1Char(' ') +
                           name;
    if (!procRun(QStringLiteral("sudo"),
                 {QStringLiteral("/bin/bash"), QStringLiteral("-c"), reopen}, kDirectStartMs,
                 kReopenMs)
             .ok())
        return kLvmFailed;
    if (!VXLvmPrivate::mount(msg, mapper, mountPath, false))
        return kLvmFailed;
    const QString fstype = toFstype(mapper);
    if (fstype == QLatin1String("xfs"))
        execBash(kSudo + QStringLiteral("/usr/sbin/xfs_growfs ") + mountPath +
                     QStringLiteral(" >/dev/null"),
                 kToolMs);
    VXLvmPrivate::fstabAppend(mapper, mountPath, fstype, VXFileSystem::mountOptions(fstype), 0, 0);
    VXLvmPrivate::crypttabAppend(dev);
    return kLvmOk;
}

bool VXLvm::lvUmount(const QString& dev)
{
    QString path;
    if (!VXLvmPrivate::pathForMount(path, dev))
        return false;
    // Whatever still holds the mount is killed; a forced unmount may leave it lazy otherwise.
    cmdExec(kSudo + QStringLiteral("fuser -kc ") + path, kFuserMs);
    if (!procRunLine(kSudo + QStringLiteral("/bin/umount -f ") + path, kDirectStartMs,
                     kDirectFinishMs)
             .ok())
        return false;
    const QString target = toMountPath(dev);
    if (!target.isEmpty())
        VXLvmPrivate::fstabRemove(target);
    return true;
}

int VXLvm::lvExtend(QString& msg, const QString& dev, int newMb)
{
    if (!isDevicePath(dev))
        return refused(msg);
    QJsonObject record;
    if (!lvDetail(record, dev))
        return notFound(msg);
    // "size" is only there for a mounted volume; an unmounted one counts as
    // 0, and so does a figure beyond the int range.
    const qint64 size = toInt64(record.value(QStringLiteral("size")));
    const qint64 cur = size == qint64(int(size)) ? size : 0;
    if (cur >= newMb) {
        msg = QStringLiteral("新的卷容量不能小于现有容量(只能扩容不能收缩)");
        return kLvmTooSmall;
    }
    const qint64 free = groupFreeMb(record.value(QStringLiteral("vg")).toString());
    if (free < 1 || cur + free < newMb) {
        msg = QStringLiteral("可供扩容的空间不足");
        return kLvmNoSpace;
    }
    const QString fstype = toFstype(dev);
    if (!cmdExec(kSudo + QStringLiteral("lvextend -L ") + QString::number(newMb) +
                     QStringLiteral("M ") + dev,
                 msg, kToolMs))
        return kLvmFailed;
    if (fstype != QLatin1String("xfs"))
        return kLvmOk;
    // The record carries no "path4mount" yet: xfs_growfs then fails and says
    // so, after the volume itself has grown.
    const QString mountPath = record.value(QStringLiteral("path4mount")).toString();
    if (!mountPath.isEmpty() && !isMountPath(mountPath)) {
        msg = QStringLiteral("参数错误");
        return kLvmFailed;
    }
    QString output;
    if (!execBash(kSudo + QStringLiteral("/usr/sbin/xfs_growfs ") + mountPath, output, kToolMs)) {
        msg = output;
        return kLvmFailed;
    }
    return kLvmOk;
}

int VXLvm::lvRemove(QString& msg, const QString& dev)
{
    if (!isDevicePath(dev))
        return refused(msg);
    QJsonObject record;
    if (!lvDetail(record, dev))
        return notFound(msg);
    int code = kLvmFailed;
    if (isCrypt(record)) {
        QString output;
        if (cmdExec(kSudo + QStringLiteral("cryptsetup luksClose ") + mapperName(record), output,
                    kCloseMs)) {
            VXLvmPrivate::crypttabRemove(dev);
        } else {
            // The key and its crypttab line stay, so the volume can still be opened.
            code = kLvmCloseFailed;
            msg = output;
        }
    }
    cmdExec(kSudo + QStringLiteral("fuser -kc ") + dev, kFuserMs);
    QString output;
    if (cmdExec(kSudo + QStringLiteral("lvremove -f ") + dev, output, kToolMs))
        return kLvmOk;
    msg = output;
    return code;
}

int VXLvm::lvRemove(QString& msg, const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return refused(msg);
    const QString dev = toVolumePath(vg, lv);
    if (dev.isEmpty())
        return notFound(msg);
    return lvRemove(msg, dev);
}
