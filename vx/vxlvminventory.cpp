#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"

#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

namespace {

constexpr int kToolMs = 9999;
constexpr int kDfStartMs = 5000;
constexpr int kDfFinishMs = 10000;

// df's exit code is not looked at: one unreadable file system fails it while
// the lines of the others are fine.
QString df(const QStringList& arguments)
{
    return QString::fromUtf8(procRun(QStringLiteral("sudo"),
                                     QStringList{QStringLiteral("df")} + arguments, kDfStartMs,
                                     kDfFinishMs)
                                 .out);
}

} // namespace

bool VXLvm::lvDetail(QJsonObject& obj, const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    QString output;
    QJsonObject record;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo lvs --noheading --separator : -o "
                                "vg_name,vg_free,lv_name,lv_path,lv_dm_path,lv_size,lv_attr,"
                                "lv_tags --units b ") +
                     dev,
                 output, kToolMs) ||
        !lvRecordOf(output, record))
        return false;
    record.insert(QStringLiteral("crypt"), lvIsCrypt(dev) ? 1 : 0);
    const QString mountPath = toMountPath(record.value(QStringLiteral("vg")).toString(),
                                          record.value(QStringLiteral("lv")).toString());
    const QJsonObject mounts = lvMounts();
    if (!mountPath.isEmpty() && mounts.contains(mountPath)) {
        const QJsonObject mount = mounts.value(mountPath).toObject();
        record.insert(QStringLiteral("size"), mount.value(QStringLiteral("size")));
        record.insert(QStringLiteral("free"), mount.value(QStringLiteral("free")));
        record.insert(QStringLiteral("mntpath"), mountPath);
        record.insert(QStringLiteral("mounted"), 1);
    } else {
        record.insert(QStringLiteral("mounted"), 0);
    }
    obj = record;
    return true;
}

QJsonObject VXLvm::vgDetail(const QString& vg, bool withAvailables)
{
    Q_UNUSED(withAvailables)
    if (!isLvmName(vg))
        return QJsonObject();
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo vgdisplay -c ") + vg, output, kToolMs))
        return QJsonObject();
    return vgSizesOf(output, vg);
}

QJsonObject VXLvm::lvMounts()
{
    return lvMountsOf(df({QStringLiteral("-k")}));
}

bool VXLvm::lvMounted(qint64& size, qint64& used, qint64& avail, const QString& path)
{
    // A path starting with "-" would be read as an option.
    if (!path.startsWith(QLatin1Char('/')))
        return false;
    return dfFiguresOf(df({QStringLiteral("-l"), QStringLiteral("--block=1"),
                           QStringLiteral("--output=source,size,used,avail"), path}),
                       size, used, avail);
}
