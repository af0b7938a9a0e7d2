#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxlvmparse.h"
#include "vx/vxlvmtables.h"

#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "lnx2/lnx2utils.h"

namespace {

constexpr int kToolMs = 9999;

// A field with a blank or line break would shift every later field of the line.
bool isField(const QString& text)
{
    for (const QChar c : text) {
        if (c.isSpace() || c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

QString fstabText()
{
    return cmdText(GX2File::readAll(sysPath(VXLvmPrivate::ETC_FSTAB)));
}

// findmnt knows nothing while fstab still lists file systems: rewriting from
// that nothing would drop them all, the root file system's included.
bool findmntFailed(const QJsonArray& entries, const QString& text)
{
    if (!entries.isEmpty())
        return false;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty() && !trimmed.startsWith(QLatin1Char('#')))
            return true;
    }
    return false;
}

bool writeFstab(const QStringList& lines)
{
    return writeFile(sysPath(VXLvmPrivate::ETC_FSTAB), lines);
}

void daemonReload()
{
    cmdExec(QStringLiteral("/usr/bin/sudo systemctl daemon-reload"), kToolMs);
}

} // namespace

std::mutex& VXLvmPrivate::tablesLock()
{
    static std::mutex lock;
    return lock;
}

QJsonArray VXLvmPrivate::loadFromFstab()
{
    QString output;
    if (!cmdExec(QStringLiteral(
                     "/usr/bin/sudo findmnt -seJ -o UUID,SOURCE,TARGET,FSTYPE,OPTIONS,FREQ,PASSNO"),
                 output, kToolMs))
        return QJsonArray();
    return fstabEntriesOf(output.toUtf8());
}

bool VXLvmPrivate::fstabAppend(const QString& source, const QString& target, const QString& fstype,
                               const QString& options, int freq, int passno)
{
    if (!isDevicePath(source) || !target.startsWith(QLatin1Char('/')) || !isField(target) ||
        !isField(fstype) || !isField(options))
        return false;
    // An empty field would make mount read the next one in its place.
    const QStringList fields{
        source,
        target,
        fstype.isEmpty() ? QStringLiteral("auto") : fstype,
        options.isEmpty() ? QStringLiteral("defaults") : options,
        QString::number(freq),
        QString::number(passno),
    };
    bool written = false;
    {
        std::lock_guard<std::mutex> guard(tablesLock());
        const QJsonArray entries = loadFromFstab();
        const QString text = fstabText();
        if (findmntFailed(entries, text))
            return false;
        written =
            writeFstab(fstabAppendLines(entries, text, source, fields.join(QLatin1Char(' '))));
    }
    if (written)
        daemonReload();
    return written;
}

bool VXLvmPrivate::fstabRemove(const QString& target)
{
    bool written = false;
    {
        std::lock_guard<std::mutex> guard(tablesLock());
        const QJsonArray entries = loadFromFstab();
        const QString text = fstabText();
        if (findmntFailed(entries, text))
            return false;
        bool dropped = false;
        const QStringList lines = fstabRemoveLines(entries, text, target, &dropped);
        if (!dropped)
            return false;
        written = writeFstab(lines);
    }
    if (written)
        daemonReload();
    return written;
}
