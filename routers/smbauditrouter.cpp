#include "routers/smbauditrouter.h"

#include "app/appdata.h"
#include "gx2/gx2file.h"
#include "gx2/gx2logger.h"
#include "gx2/gx2syspath.h"
#include "gx2/gx2utils.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"
#include "res/resources.h"
#include "routers/rsyslogconf.h"
#include "routers/smbauditparse.h"

#include <QDir>
#include <QFileInfo>

#include <chrono>
#include <thread>

namespace {

const char kDefaultDir[] = "/orvo/etc/samba";
const char kDefaultFile[] = "/orvo/etc/samba/smbaudit.db";
const char kConfigFile[] = "/orvo/etc/samba/smbaudit.json";
const char kRSyslogConf[] = "/etc/rsyslog.conf";
const char kCreatorScript[] = ":/res/smbaudit_creator.sql";

constexpr int kStopPollMs = 25;
// systemctl waits for rsyslog to come back up, which takes a few seconds.
constexpr int kRestartStartMs = 5000;
constexpr int kRestartFinishMs = 30000;

} // namespace

SmbAuditRouter::SmbAuditRouter(QObject* parent) : GX2TodoRouter(parent)
{
    initResources();
    db.loadSqlCreator(QString::fromLatin1(kCreatorScript));
    m_storageFile = defaultStorageFile();
}

QString SmbAuditRouter::defaultStorageFile()
{
    return sysPath(QString::fromLatin1(kDefaultFile));
}

SmbAuditRouter::~SmbAuditRouter()
{
    exports.waitForNone();
    stop();
}

void SmbAuditRouter::mapTo(const QString& facility, short port)
{
    correctRSyslogConf(facility, port);
}

void SmbAuditRouter::correctRSyslogConf(const QString& facility, short port) const
{
    const QString path = sysPath(QString::fromLatin1(kRSyslogConf));
    QStringList lines;
    if (!rewriteRSyslogConf(lines, QString::fromUtf8(GX2File::readAll(path)), facility, port))
        return;
    if (!writeFile(path, lines)) {
        GX2LOG_WARN(QStringLiteral("cannot write ") + path);
        return;
    }
    const LNX2ProcResult restarted =
        procRun(QStringLiteral("systemctl"), {QStringLiteral("restart"), QStringLiteral("rsyslog")},
                kRestartStartMs, kRestartFinishMs);
    if (!restarted.ok())
        GX2LOG_WARN(QStringLiteral("rsyslog restart failed: ") + QString::fromUtf8(restarted.err));
}

void SmbAuditRouter::loadConfig()
{
    const QString defaultDir = sysPath(QString::fromLatin1(kDefaultDir));
    m_storageFile = defaultStorageFile();
    const QJsonObject config = GX2File::readJsonObject(sysPath(QString::fromLatin1(kConfigFile)));
    const QString dir = config.value(QStringLiteral("storagedir")).toString();
    if (!dir.isEmpty() && dir != defaultDir && QFileInfo(dir).isDir())
        m_storageFile = QDir(dir).absoluteFilePath(QStringLiteral("smbaudit.db"));
    m_savedays = toInt(config.value(QStringLiteral("savedays")));
}

int SmbAuditRouter::start(short port)
{
    stop();
    loadConfig();
    if (!receiver.bind(quint16(port)))
        return 0;
    // Cleared here rather than by the thread, so that a stop() arriving
    // before the thread runs is not lost.
    stopRequested = false;
    running = true;
    if (!GX2Workers::start(QStringLiteral("audit collector"), [this] { run(); })) {
        running = false; // the daemon is quitting
        receiver.close();
        return 0;
    }
    receiver.start([this] { udpReadyRead(); });
    return 1;
}

void SmbAuditRouter::requestStop()
{
    receiver.requestStop();
    stopRequested = true;
    resume();
    wakeCollector(); // cuts a nap short
}

void SmbAuditRouter::stop()
{
    receiver.close();
    requestStop();
    while (running)
        std::this_thread::sleep_for(std::chrono::milliseconds(kStopPollMs));
}

void SmbAuditRouter::suspend()
{
    suspended = true;
}

void SmbAuditRouter::resume()
{
    if (suspended.exchange(false))
        wakeCollector();
}

void SmbAuditRouter::wakeCollector()
{
    // Taking the gate orders the flag change before the collector's next
    // look at it, so the notification cannot fall between look and wait.
    {
        std::lock_guard<std::mutex> gate(runGate);
    }
    gateOpen.notify_all();
}

void SmbAuditRouter::waitAtGate()
{
    std::unique_lock<std::mutex> gate(runGate);
    gateOpen.wait(gate, [this] { return !suspended || stopRequested; });
}

void SmbAuditRouter::pause(int ms, bool wakeOnBacklog)
{
    std::unique_lock<std::mutex> gate(runGate);
    gateOpen.wait_for(gate, std::chrono::milliseconds(ms), [this, wakeOnBacklog] {
        return stopRequested || (wakeOnBacklog && queueCount >= kBatchSize);
    });
}

void SmbAuditRouter::udpReadyRead()
{
    receiver.readPending([this](const char* data, int size) { enqueue(data, size); });
    resume();
}

void SmbAuditRouter::enqueue(const char* data, int size)
{
    if (size < 1)
        return;
    if (queueCount >= queueLimit) {
        ++dropped;
        ++droppedTotal;
        return;
    }
    QByteArray text = QByteArray(data, size).trimmed();
    const int nul = text.indexOf('\0');
    if (nul >= 0)
        text.truncate(nul);
    if (text.isEmpty())
        return;
    queue.enqueue(std::move(text));
    // A full batch is waiting: the collector need not finish its nap.
    if (++queueCount == kBatchSize)
        wakeCollector();
}

bool SmbAuditRouter::take(QJsonObject& record, const QString& line)
{
    QString message;
    if (!auditMessageOf(message, line))
        return false;
    if (IAppData() && IAppData()->isDebug())
        GX2LOG_DEBUG(message);
    SmbAuditOp op;
    if (!classifyAuditMessage(op, line, message))
        return false;
    int sadno = 0;
    {
        QReadLocker guard(&dirLock);
        sadno = watchedDirOf(op.path, watchedDirs);
    }
    if (sadno < 1)
        return false;
    record = auditRecordOf(line, op, sadno);
    return true;
}

QJsonObject SmbAuditRouter::dirByFields(const QJsonObject& row) const
{
    return QJsonObject{{QStringLiteral("sadno"), toInt(row.value(QStringLiteral("sad_no")))},
                       {QStringLiteral("dir"), row.value(QStringLiteral("sad_dir")).toString()}};
}
