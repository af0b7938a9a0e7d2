#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"
#include "vx/vxlvmtables.h"

#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QDir>
#include <QFileInfo>

namespace {

constexpr int kToolMs = 9999;
constexpr int kDirectStartMs = 999;
constexpr int kDirectFinishMs = 10000;

const QString kSudo = QStringLiteral("/usr/bin/sudo ");

bool keyExists(const QString& keyFile)
{
    return !keyFile.isEmpty() && QFileInfo::exists(sysPath(keyFile));
}

struct VolumeKey
{
    QString lvPath;
    QString keyFile;
    QString name; // the mapping
};

// False when the volume or its key file path is unknown.
bool volumeKey(VolumeKey& key, const QString& dev)
{
    QString vg;
    QString lv;
    key.lvPath = VXLvm::toVgLv(vg, lv, dev);
    if (key.lvPath.isEmpty())
        return false;
    key.keyFile = VXLvmPrivate::cryptFilePath(vg, lv);
    key.name = vg + QLatin1Char('-') + lv + QStringLiteral("_crypt");
    return !key.keyFile.isEmpty();
}

QString crypttabText()
{
    return cmdText(GX2File::readAll(sysPath(VXLvmPrivate::ETC_CRYPTTAB)));
}

bool writeCrypttab(const QStringList& lines)
{
    return writeFile(sysPath(VXLvmPrivate::ETC_CRYPTTAB), lines);
}

void daemonReload()
{
    cmdExec(kSudo + QStringLiteral("systemctl daemon-reload"), kToolMs);
}

} // namespace

QString VXLvmPrivate::cryptFilePath(const QString& vg, const QString& lv, QDir* dir)
{
    // The names end up in a path: only LVM names, which hold no "/" and are never "..".
    if (!isLvmName(vg) || !isLvmName(lv))
        return QString();
    const QDir keys(ORVO_ETC_CRYPTDIR);
    if (dir)
        *dir = keys;
    return keys.absoluteFilePath(QStringLiteral("lvm.") + vg + QLatin1Char('-') + lv +
                                 QStringLiteral("_crypt.pass"));
}

bool VXLvm::lvSavePwd(QString& msg, const QString& vg, const QString& lv, const QString& pwd)
{
    const QString keyFile = VXLvmPrivate::cryptFilePath(vg, lv);
    if (keyFile.isEmpty() || !isLvmPassword(pwd)) {
        msg = QStringLiteral("参数错误");
        return false;
    }
    // No password: forget the kept one.
    if (pwd.isEmpty())
        return !keyExists(keyFile) || cmdExec(kSudo + QStringLiteral("rm -f ") + keyFile, kToolMs);
    if (writeFile(sysPath(keyFile), pwd))
        return true;
    msg = QStringLiteral("文件保存失败");
    return false;
}

int VXLvm::lvLoadPwd(QString& msg, QString& pwd, const QString& vg, const QString& lv)
{
    const QString keyFile = VXLvmPrivate::cryptFilePath(vg, lv);
    if (keyFile.isEmpty()) {
        msg = QStringLiteral("参数错误");
        return kLvmTooSmall;
    }
    // A volume without a kept key is not an error: the caller sees the message
    // and an untouched pwd.
    if (!keyExists(keyFile)) {
        msg = QStringLiteral("密钥文件不存在(未保存密钥)");
        return kLvmOk;
    }
    QString text;
    if (!GX2File::loadText(text, sysPath(keyFile))) {
        msg = QStringLiteral("密钥文件读取失败");
        return kLvmKeyUnreadable;
    }
    pwd = text.trimmed();
    return kLvmOk;
}

bool VXLvmPrivate::crypttabAppend(const QString& dev)
{
    VolumeKey key;
    // Without a kept key the volume is unlocked by hand, not at boot.
    if (!volumeKey(key, dev) || !keyExists(key.keyFile))
        return false;
    const QString line = key.name + QLatin1Char(' ') + key.lvPath + QLatin1Char(' ') + key.keyFile;
    bool written = false;
    {
        std::lock_guard<std::mutex> guard(tablesLock());
        written = writeCrypttab(crypttabAppendLines(crypttabText(), key.lvPath, line));
    }
    if (written)
        daemonReload();
    return written;
}

bool VXLvmPrivate::crypttabRemove(const QString& dev)
{
    VolumeKey key;
    if (!volumeKey(key, dev) || !keyExists(key.keyFile))
        return false;
    procStartDetached(QStringLiteral("/usr/bin/sudo"),
                      {QStringLiteral("rm"), QStringLiteral("-f"), key.keyFile});
    bool written = false;
    {
        std::lock_guard<std::mutex> guard(tablesLock());
        bool dropped = false;
        const QStringList lines = crypttabRemoveLines(crypttabText(), key.lvPath, &dropped);
        if (!dropped)
            return true;
        written = writeCrypttab(lines);
    }
    if (written)
        daemonReload();
    return written;
}

QString VXLvmPrivate::toDeviceMapperPath(const QString& dev)
{
    if (!isDevicePath(dev))
        return QString();
    const LNX2ProcResult run =
        procRunLine(kSudo + QStringLiteral("lvs --noheading -o lv_dm_path ") + dev, kDirectStartMs,
                    kDirectFinishMs);
    return run.ok() ? QString::fromUtf8(run.out).trimmed() : QString();
}

QString VXLvm::toDeviceMapperPath(const QString& dev)
{
    if (!isDevicePath(dev))
        return QString();
    const LNX2ProcResult run = procRun(QStringLiteral("sudo"),
                                       {QStringLiteral("lvs"), QStringLiteral("--noheading"),
                                        QStringLiteral("-o"), QStringLiteral("lv_dm_path"), dev},
                                       kDirectStartMs, kDirectFinishMs);
    return run.ok() ? QString::fromUtf8(run.out).trimmed() : QString();
}

bool VXLvmPrivate::lvIsCrypt(const QString& dev)
{
    // Only an open mapping answers; a closed one reads as not encrypted.
    const QString dm = toDeviceMapperPath(dev);
    if (!isDevicePath(dm))
        return false;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("cryptsetup status ") + dm + QStringLiteral("_crypt"),
                 output, kToolMs))
        return false;
    return isLuks2StatusOf(output);
}

bool VXLvm::lvIsCrypt(const QString& dev)
{
    return VXLvmPrivate::lvIsCrypt(dev);
}
