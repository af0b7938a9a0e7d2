#include "app/housekeeping.h"

#include "gx2/gx2syspath.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QDir>
#include <QFileInfo>

namespace {

const QString kSnapperConfig = QStringLiteral("ORVO_BASE_OS");
const QString kAppSnapshotMark = QStringLiteral("| APPS_SNAPPER_");

// Limit of the snapper command lines run through the runners.
constexpr int kSnapperLineTimeoutMs = 9999;
// Limits of the "rm" and "echo" calls on log files.
constexpr int kLogCommandStartMs = 5000;
constexpr int kLogCommandFinishMs = 5000;
// A "*.log" above 128 MiB is emptied; "messages" from just over 64 MiB on.
constexpr qint64 kBigLogBytes = 134217728;
constexpr qint64 kBigMessagesBytes = 67108865;

QString sudo()
{
    return QStringLiteral("/usr/bin/sudo");
}

void removeLog(const QString& path)
{
    procRun(sudo(), {QStringLiteral("rm"), QStringLiteral("-f"), path}, kLogCommandStartMs,
            kLogCommandFinishMs);
}

// Kept on purpose exactly as it is: no shell runs it, so sudo merely echoes
// its arguments and the file stays as it was.
void emptyLog(const QString& path)
{
    procRun(sudo(), {QStringLiteral("echo"), QStringLiteral("''"), QStringLiteral(">"), path},
            kLogCommandStartMs, kLogCommandFinishMs);
}

bool isPositiveNumber(const QString& text)
{
    bool nonZero = false;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
        nonZero = nonZero || c != QLatin1Char('0');
    }
    return nonZero;
}

} // namespace

HousekeepingConfig HousekeepingConfig::slimming()
{
    HousekeepingConfig c;
    c.dfProgram = QStringLiteral("sudo");
    c.dfArguments = QStringList{QStringLiteral("df")};
    c.dfStartMs = 10000;
    c.dfFinishMs = 5000;
    c.dfNeedsSixFields = true;
    c.cleanAtUse = 91;
    c.snapperThroughShell = true;
    c.anyRotatedNumber = false;
    return c;
}

HousekeepingConfig HousekeepingConfig::workThread()
{
    HousekeepingConfig c;
    c.dfProgram = QStringLiteral("df");
    c.dfStartMs = 5000;
    c.dfFinishMs = 10000;
    c.dfNeedsSixFields = false;
    c.cleanAtUse = 90; // "above 89"
    c.snapperThroughShell = false;
    c.snapperStartMs = 1000;
    c.snapperFinishMs = 1000;
    // A deletion may have to drop a large snapshot: a short start, a longer end.
    c.snapperDeleteStartMs = 1000;
    c.snapperDeleteFinishMs = 9999;
    c.anyRotatedNumber = true;
    return c;
}

Housekeeping::Housekeeping(const HousekeepingConfig& config) : cfg(config) {}

int Housekeeping::rootUse() const
{
    const LNX2ProcResult r = procRun(cfg.dfProgram, cfg.dfArguments, cfg.dfStartMs, cfg.dfFinishMs);
    // df exits 1 when some other mount cannot be read, yet still reports "/".
    if (!r.started || !r.finished)
        return 0;
    return parseRootUse(r.out, cfg.dfNeedsSixFields);
}

bool Housekeeping::needsCleaning(int use) const
{
    return use >= cfg.cleanAtUse;
}

void Housekeeping::clean() const
{
    deleteSnapshots();
    cleanLogs();
}

void Housekeeping::check() const
{
    if (needsCleaning(rootUse()))
        clean();
}

int Housekeeping::parseRootUse(const QByteArray& dfOutput, bool needSixFields)
{
    QString text = QString::fromUtf8(dfOutput);
    text.remove(QLatin1Char('\r'));
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const QStringList fields = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (needSixFields && fields.size() <= 5)
            continue;
        if (fields.value(5) != QStringLiteral("/"))
            continue;
        QString use = fields.value(4);
        if (!use.endsWith(QLatin1Char('%')))
            continue;
        use.chop(1);
        return use.toInt();
    }
    return 0;
}

QList<int> Housekeeping::appSnapshots(const QString& snapperListing)
{
    QString text = snapperListing;
    text.remove(QLatin1Char('\r'));
    const QStringList lines = text.trimmed().split(QLatin1Char('\n'));
    QList<int> numbers;
    for (const QString& line : lines) {
        if (!line.contains(kAppSnapshotMark))
            continue;
        const int number = line.split(QLatin1Char(' '), Qt::SkipEmptyParts).value(0).toInt();
        if (number > 0)
            numbers.append(number);
    }
    return numbers;
}

bool Housekeeping::listSnapshots(QString& listing) const
{
    if (cfg.snapperThroughShell) {
        return cmdExec(sudo() + QStringLiteral(" snapper -c ") + kSnapperConfig +
                           QStringLiteral(" list"),
                       listing, kSnapperLineTimeoutMs);
    }
    const LNX2ProcResult r = procRun(QStringLiteral("snapper"),
                                     {QStringLiteral("-c"), kSnapperConfig, QStringLiteral("list")},
                                     cfg.snapperStartMs, cfg.snapperFinishMs);
    listing = QString::fromUtf8(r.out);
    return r.ok();
}

void Housekeeping::deleteSnapshot(int number) const
{
    const QString n = QString::number(number);
    if (cfg.snapperThroughShell) {
        cmdExec(sudo() + QStringLiteral(" snapper -c ") + kSnapperConfig +
                    QStringLiteral(" delete ") + n,
                kSnapperLineTimeoutMs);
        return;
    }
    procRun(QStringLiteral("snapper"),
            {QStringLiteral("-c"), kSnapperConfig, QStringLiteral("delete"), n},
            cfg.snapperDeleteStartMs, cfg.snapperDeleteFinishMs);
}

void Housekeeping::deleteSnapshots() const
{
    QString listing;
    if (!listSnapshots(listing))
        return;
    const QList<int> numbers = appSnapshots(listing);
    for (const int number : numbers)
        deleteSnapshot(number);
}

bool Housekeeping::isRotated(const QString& suffix) const
{
    return cfg.anyRotatedNumber ? isPositiveNumber(suffix) : suffix == QStringLiteral("1");
}

void Housekeeping::cleanLogs() const
{
    const QString dir = sysPath(QStringLiteral("/var/log"));
    const QString messages = sysPath(QStringLiteral("/var/log/messages"));
    const QFileInfoList files =
        QDir(dir).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDir::Unsorted);
    for (const QFileInfo& file : files) {
        const QString path = dir + QLatin1Char('/') + file.fileName();
        const QString suffix = file.suffix();
        if (isRotated(suffix) || suffix == QStringLiteral("gz")) {
            removeLog(path);
        } else if (suffix == QStringLiteral("log")) {
            if (file.size() > kBigLogBytes)
                emptyLog(path);
        } else if (path == messages && file.size() >= kBigMessagesBytes) {
            emptyLog(path);
        }
    }
}
