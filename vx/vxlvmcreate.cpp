#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxfilesystem.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"

#include "gx2/gx2brolt.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QJsonObject>

namespace {

constexpr int kToolMs = 9999;
constexpr int kDirectStartMs = 999;
constexpr int kDirectFinishMs = 10000;
constexpr int kLuksMs = 720000;
constexpr int kCreatingMs = 15000;
constexpr int kThinMinMb = 32;

const QString kSudo = QStringLiteral("/usr/bin/sudo ");
const QString kLvcreate = QStringLiteral("/usr/bin/sudo lvcreate -y ");

bool runDirect(const QString& line, QString* out = nullptr)
{
    const LNX2ProcResult run = procRunLine(line, kDirectStartMs, kDirectFinishMs);
    if (out)
        *out = QString::fromUtf8(run.out);
    return run.ok();
}

bool createThin(const QString& vg, const QString& lv, int mbsize)
{
    int size = qMax(mbsize, kThinMinMb);
    const int freeMb = lvmFreeMb(VXLvm::vgFree(vg));
    const QString pool = vg + QLatin1Char('/') + lv + QStringLiteral("_thinpool");
    if (thinPoolOwnSize(size, freeMb)) {
        const QString mb = QString::number(size);
        return runDirect(kLvcreate + QStringLiteral("-T -L ") + mb + QLatin1Char(' ') + pool) &&
               runDirect(kLvcreate + QStringLiteral("-V ") + mb + QStringLiteral(" -T ") + pool +
                         QStringLiteral(" -n ") + lv);
    }
    // Near the whole group: the pool takes what is left and the volume its
    // real size, which the pool's metadata has made smaller than asked.
    if (!runDirect(kLvcreate + QStringLiteral("-T -l 100%FREE ") + pool))
        return false;
    QString poolSize;
    if (!runDirect(kSudo + QStringLiteral("lvs ") + pool +
                       QStringLiteral(" --noheading -o lv_size --units b"),
                   &poolSize))
        return false;
    size = thinSizeFromPool(vgFreeOf(poolSize), size);
    // The volume of this branch is named after the group; clients rely on it.
    return runDirect(kLvcreate + QStringLiteral("-V ") + QString::number(size) +
                     QStringLiteral(" -T ") + pool + QStringLiteral(" -n ") + vg);
}

} // namespace

bool VXLvm::lvExists(const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return false;
    QString output;
    return cmdExec(kSudo + QStringLiteral("lvs ") + vg + QLatin1Char('/') + lv +
                       QStringLiteral(" --noheading --separator : -o vg_name,lv_name"),
                   output, kToolMs) &&
           !output.trimmed().isEmpty();
}

bool VXLvm::lvCreate(const QString& vg, const QString& lv, int mbsize, const QString& type)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return false;
    if (type == QLatin1String("thin"))
        return createThin(vg, lv, mbsize);
    const QString size = mbsize < 1 ? QStringLiteral("-l 100%FREE")
                                    : QStringLiteral("-L ") + QString::number(mbsize);
    return cmdExec(kLvcreate + size + QStringLiteral(" -n ") + lv + QLatin1Char(' ') + vg, kToolMs);
}

bool VXLvm::lvCreating(const QString& vg, const QString& lv, int mbsize, const QString& type,
                       const QString& fstype, int block, const QString& pwd, bool savepwd)
{
    if (!isLvmName(vg) || !isLvmName(lv) || !isLvmPassword(pwd))
        return false;
    const QJsonObject params{
        {QStringLiteral("vg"), vg},         {QStringLiteral("lv"), lv},
        {QStringLiteral("mbsize"), mbsize}, {QStringLiteral("type"), type},
        {QStringLiteral("fstype"), fstype}, {QStringLiteral("block"), block},
        {QStringLiteral("pwd"), pwd},       {QStringLiteral("savepwd"), savepwd ? 1 : 0},
    };
    const QJsonObject request{{QStringLiteral("cmd"), QStringLiteral("lvm_creating")},
                              {QStringLiteral("params"), params}};
    QJsonObject result;
    return broltRequest(result, request, kCreatingMs) == 0;
}

bool VXLvm::lvFormat(QString& msg, const QString& vg, const QString& lv, const QString& fstype,
                     int block, const QString& pwd)
{
    if (!isLvmName(vg) || !isLvmName(lv) || !isLvmPassword(pwd)) {
        msg = QStringLiteral("参数错误");
        return false;
    }
    const QString dev = toVolumePath(vg, lv);
    if (!isDevicePath(dev)) {
        msg = QStringLiteral("逻辑卷不存在");
        return false;
    }
    VXFileSystem fs;
    const QString tag = kSudo + QStringLiteral("lvchange -y ") + dev + QStringLiteral(" --addtag ");
    if (pwd.isEmpty()) {
        // A "lun" volume stays raw; the tag alone tells the inventory so.
        if (fstype != QLatin1String("lun") && !fs.create(fstype, dev, block)) {
            msg = fs.lastError();
            return false;
        }
        // fstype passed the creation or is "lun", so it is one plain word here.
        cmdExec(tag + fstype, kToolMs);
        return true;
    }
    if (!cmdExec(tag + QStringLiteral("crypt"), msg, kLuksMs))
        return false;
    const QString name = vg + QLatin1Char('-') + lv + QStringLiteral("_crypt");
    const QString feed = kSudo + QStringLiteral("echo -e ") + pwd;
    const QStringList shells{
        feed + QStringLiteral(" | sudo cryptsetup -q -c aes-cbc-plain luksFormat ") + dev,
        feed + QStringLiteral(" | sudo cryptsetup luksOpen ") + dev + QLatin1Char(' ') + name,
    };
    for (const QString& shell : shells) {
        QString output;
        if (!execBash(shell, output, kLuksMs)) {
            msg = output;
            return false;
        }
    }
    return fs.create(msg, fstype, QStringLiteral("/dev/mapper/") + name, block);
}

bool VXLvm::lvFormating(const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return false;
    QString ps;
    if (!cmdExec(QStringLiteral("ps -ef"), ps, kToolMs))
        return false;
    const QString dev = toVolumePath(vg, lv);
    if (dev.isEmpty() || !ps.contains(dev))
        return false;
    return mkfsRunningOf(ps, dev);
}
