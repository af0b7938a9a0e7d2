#include "vx/vxfilesystem.h"
#include "vx/vxdevice.h"
#include "vx/vxfilesystem_p.h"

#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"

namespace {

constexpr int kStartMs = 999;
constexpr int kLongFormatMs = 7200000;
constexpr int kShortFormatMs = 60000;

} // namespace

QString VXFileSystemPrivate::formatCommand(const QString& fs, const QString& dev, int blockSize)
{
    if (!isDevicePath(dev))
        return QString();
    const QString size = QString::number(blockSize < 1 ? 4096 : blockSize);
    if (fs == QLatin1String("ext4") || fs == QLatin1String("ext3"))
        return QStringLiteral("/usr/bin/sudo /sbin/mkfs.") + fs +
               QStringLiteral(" -F -q -T largefile ") + dev + QStringLiteral(" -b ") + size;
    if (fs == QLatin1String("xfs"))
        return QStringLiteral("/usr/bin/sudo /sbin/mkfs.xfs -f -q -b size=") + size +
               QLatin1Char(' ') + dev;
    if (fs == QLatin1String("ntfs") || fs == QLatin1String("btrfs"))
        return QStringLiteral("/usr/bin/sudo /sbin/mkfs.") + fs + QStringLiteral(" -f -q ") + dev;
    return QString();
}

bool VXFileSystem::create(const QString& fs, const QString& dev, int blockSize)
{
    const QString command = VXFileSystemPrivate::formatCommand(fs, dev, blockSize);
    if (command.isEmpty())
        return false;
    const LNX2ProcResult run = procRunLine(command, kStartMs, kLongFormatMs);
    if (!run.ok())
        error_ = QString::fromUtf8(run.err);
    return run.ok();
}

bool VXFileSystem::create(QString& error, const QString& fs, const QString& dev, int blockSize)
{
    const QString command = VXFileSystemPrivate::formatCommand(fs, dev, blockSize);
    if (command.isEmpty())
        return false;
    const LNX2ProcResult run = procRunLine(command, kStartMs, kShortFormatMs);
    if (run.ok())
        return true;
    error = error_ = QString::fromUtf8(run.err);
    return false;
}

bool VXFileSystem::creating(const QString& fs, const QString& dev, const QString& extra,
                            int blockSize)
{
    const QString command = VXFileSystemPrivate::formatCommand(fs, dev, blockSize);
    if (command.isEmpty())
        return false;
    // extra names the job, so that a quit that has to leave it running says
    // which volume it was formatting.
    const QString name = extra.isEmpty() ? QStringLiteral("mkfs ") + dev : extra;
    return GX2Workers::start(name, [command] { procRunLine(command, kStartMs, kLongFormatMs); });
}

QString VXFileSystem::mountOptions(const QString& fs)
{
    if (fs == QLatin1String("ext4") || fs == QLatin1String("ext3") || fs == QLatin1String("ntfs"))
        return QStringLiteral("nofail,defaults,usrjquota=aquota.user,grpjquota=aquota.group,"
                              "jqfmt=vfsv0");
    if (fs == QLatin1String("xfs"))
        return QStringLiteral("nofail,defaults,usrquota,grpquota");
    if (fs == QLatin1String("btrfs"))
        return QStringLiteral("nofail,defaults");
    return QString();
}

QString VXFileSystem::lastError() const
{
    return error_;
}
