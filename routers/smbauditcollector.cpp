// The collector thread of SmbAuditRouter: stores the queued audit records in
// batches, moves the database on request and applies the retention.

#include "routers/smbauditrouter.h"

#include "gx2/gx2logger.h"
#include "lnx2/lnx2process.h"

#include <QElapsedTimer>
#include <QJsonArray>

#include <malloc.h>

namespace {

const char kEngineScript[] = ":/res/smbaudit_engine.sql";

// Within a cycle the collector naps; it pauses while the commands hold the
// database (and between attempts to reopen a moved database). A backlog is
// stored batch after batch without a pause.
constexpr int kNapMs = 2000;
constexpr int kBacklogPauseMs = 1000;
constexpr int kBacklog = 100;
// After a backlog this large has been stored, its memory goes back.
constexpr int kTrimAfter = 10000;
constexpr int kMissesBeforeWaiting = 3;
constexpr int kPatientLockMs = 2000;
constexpr qint64 kDropReportMs = 60000;
constexpr int kReopenAttempts = 5;
constexpr int kBusyWaitMs = 5000;
// A move across file systems copies the whole database.
constexpr int kMoveStartMs = 5000;
constexpr int kMoveFinishMs = 600000;

// Both scale with a shortened cycle; with the daemon's cycle they are the
// constants above.
int napMs(int cycleMs)
{
    return qMin(kNapMs, cycleMs * 2 / 3);
}

int backlogPauseMs(int cycleMs)
{
    return qMin(kBacklogPauseMs, cycleMs / 3);
}

} // namespace

bool SmbAuditRouter::openStore()
{
    if (db.open(m_storageFile) && db.loadSqlEngine(QString::fromLatin1(kEngineScript), false)) {
        // Another process reading the file holds a shared lock for a moment;
        // without waiting, a commit fails and its batch stays uncommitted.
        int changes = 0;
        int lastId = 0;
        db.exec(changes, lastId, QStringLiteral("PRAGMA busy_timeout = %1").arg(kBusyWaitMs),
                QJsonObject());
        return true;
    }
    db.close();
    return false;
}

void SmbAuditRouter::loadWatchedDirs()
{
    int changes = 0;
    int lastId = 0;
    QJsonArray rows;
    if (!db.call(changes, lastId, rows, QStringLiteral("smbaudit_dir_loadby"), QJsonObject()))
        return;
    QWriteLocker guard(&dirLock);
    watchedDirs.clear();
    for (const QJsonValue& row : qAsConst(rows)) {
        const QJsonObject dir = dirByFields(row.toObject());
        watchedDirs.insert(dir.value(QStringLiteral("dir")).toString() + QLatin1Char('/'),
                           dir.value(QStringLiteral("sadno")).toInt());
    }
}

void SmbAuditRouter::run()
{
    running = true;
    QDate lastRetention = QDate::currentDate().addDays(-1);
    bool opened = false;
    {
        // The commands read the database under this lock; the statement
        // table must be in place before they do.
        QWriteLocker guard(&dbLock);
        opened = openStore();
        if (opened)
            loadWatchedDirs();
    }
    if (!opened) {
        running = false;
        return;
    }
    QElapsedTimer cycle;
    cycle.start();
    QElapsedTimer sinceDropReport;
    sinceDropReport.start();
    for (;;) {
        waitAtGate();
        if (stopRequested)
            break;
        if (moveRequested)
            moveStore();
        reportDropped(sinceDropReport);
        const qint64 left = cycleMs - cycle.elapsed();
        if (left > 0 && queueCount < kBatchSize) {
            pause(int(qMin<qint64>(napMs(cycleMs), left)), true);
            continue;
        }
        cycle.restart();
        if (queueCount > 0)
            drain();
        else
            retain(lastRetention);
    }
    {
        // What was received before the stop is stored, not lost.
        QWriteLocker guard(&dbLock);
        while (queueCount > 0 && db.isOpen())
            appendBatch();
        db.close();
    }
    running = false; // the last touch of this object: stop() may destroy it next
}

void SmbAuditRouter::moveStore()
{
    {
        QWriteLocker guard(&dbLock);
        db.close();
        const LNX2ProcResult moved =
            procRun(QStringLiteral("mv"), {QStringLiteral("-f"), m_storageFile, m_pendingFile},
                    kMoveStartMs, kMoveFinishMs);
        // A failed mv leaves the database closed until the next start.
        if (moved.ok()) {
            m_storageFile = m_pendingFile;
            reopenStore();
        }
    }
    moveRequested = false;
}

void SmbAuditRouter::reopenStore()
{
    for (int attempt = 1; attempt <= kReopenAttempts; ++attempt) {
        if (openStore())
            return;
        m_storageFile = defaultStorageFile();
        if (attempt < kReopenAttempts)
            pause(backlogPauseMs(cycleMs));
    }
    stopRequested = true;
}

void SmbAuditRouter::drain()
{
    int largest = queueCount;
    while (!stopRequested) {
        // The commands' readers are not waited for at first: a small queue
        // can wait a cycle. Readers that never pause would starve it, so
        // after a few misses it waits for the read in progress; a command
        // that comes meanwhile waits for one batch.
        const int patience = missedLocks >= kMissesBeforeWaiting ? kPatientLockMs : 0;
        if (!dbLock.tryLockForWrite(patience)) {
            ++missedLocks;
            if (queueCount <= kBacklog)
                break;
            pause(backlogPauseMs(cycleMs));
            continue;
        }
        missedLocks = 0;
        largest = qMax(largest, queueCount.load());
        appendBatch();
        dbLock.unlock();
        if (queueCount <= kBacklog)
            break;
    }
    // The queue's nodes and texts were freed one by one; hand the pages back.
    if (largest >= kTrimAfter)
        ::malloc_trim(0);
}

void SmbAuditRouter::appendBatch()
{
    int changes = 0;
    int lastId = 0;
    const QString append = QStringLiteral("smbaudit_log_append");
    QByteArray datagram;
    QJsonObject record;
    db.transactionBegin();
    for (int n = 0; n < kBatchSize && queue.dequeue(datagram); ++n) {
        --queueCount;
        // UTF-8: file names in the messages are not Latin-1.
        if (take(record, QString::fromUtf8(datagram)))
            db.call(changes, lastId, append, record);
    }
    if (!db.transactionCommit())
        GX2LOG_WARN(QStringLiteral("audit batch not committed: ") + db.lastError());
}

void SmbAuditRouter::reportDropped(QElapsedTimer& sinceReport)
{
    if (sinceReport.elapsed() < kDropReportMs)
        return;
    sinceReport.restart();
    const qint64 lost = dropped.exchange(0);
    if (lost > 0)
        GX2LOG_WARN(QStringLiteral("audit queue full (%1 waiting): %2 datagrams dropped")
                        .arg(queueLimit.load())
                        .arg(lost));
}

void SmbAuditRouter::retain(QDate& lastRetention)
{
    const int days = m_savedays;
    const QDate today = QDate::currentDate();
    if (days < 1 || lastRetention == today)
        return;
    lastRetention = today;
    const QString limit = today.addDays(-days).toString(QStringLiteral("yyyy-MM-dd"));
    QWriteLocker guard(&dbLock);
    db.callDetach(QStringLiteral("smbaudit_log_limitdate"),
                  QJsonObject{{QStringLiteral("limitdate"), limit}});
}
