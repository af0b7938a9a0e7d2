#pragma once

#include "gx2/gx2dbsqlite.h"
#include "gx2/gx2inflight.h"
#include "gx2/gx2lfqueue.h"
#include "gx2/gx2todorouter.h"
#include "routers/smbauditreceiver.h"

#include <QDate>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QReadWriteLock>

#include <atomic>
#include <condition_variable>
#include <mutex>

// Samba file-access auditing: rsyslog forwards Samba's audit messages over
// UDP, a receiving thread queues them, and a collector thread parses them,
// keeps those below watched directories and stores them in batches. The
// commands manage the configuration and the watched directories, page,
// delete and export records.
class SmbAuditRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit SmbAuditRouter(QObject* parent = nullptr);
    ~SmbAuditRouter() override;

    static constexpr short kAuditPort = 7100;
    static constexpr int kCycleMs = 3000;
    // Datagrams waiting at most; more are dropped and counted. About 60 MB
    // at the size of a forwarded line.
    static constexpr int kQueueLimit = 250000;
    // Records stored in one transaction at most.
    static constexpr int kBatchSize = 1000;

    void mapTo(const QString& facility, short port);
    void correctRSyslogConf(const QString& facility, short port) const;
    int start(short port);
    // Stops receiving and waits for the collector to end.
    void stop();
    // Tells the receiver and the collector to end, without waiting.
    void requestStop();
    void suspend();
    void resume();
    bool isRunning() const { return running; }
    unsigned short port() const { return receiver.port(); }
    int pendingRecords() const { return queueCount; }
    qint64 droppedRecords() const { return droppedTotal; }

    bool take(QJsonObject& record, const QString& line);
    void run();
    QJsonObject dirByFields(const QJsonObject& row) const;
    QJsonObject logByFields(const QJsonObject& row) const;

    // The collector's cycle and the queue's bound; tests change them. The
    // daemon never does.
    void setCycleMs(int ms) { cycleMs = ms; }
    void setQueueLimit(int records) { queueLimit = records; }

public slots:
    // Queues the datagrams waiting on the socket; runs on the receiving thread.
    void udpReadyRead();

private slots:
    void smbaudit_config_load(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_config_save(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_dir_loadby(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_dir_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_dir_remove(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_dir_erase(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_log_loadby(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_log_remove(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_log_export(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void smbaudit_log_saveas(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);

private:
    Q_DISABLE_COPY(SmbAuditRouter)

    static QString defaultStorageFile();
    // The collector and its gate.
    void loadConfig();
    bool openStore();
    void loadWatchedDirs();
    void moveStore();
    void reopenStore();
    void enqueue(const char* data, int size);
    void drain();
    void appendBatch();
    void retain(QDate& lastRetention);
    void reportDropped(QElapsedTimer& sinceReport);
    // The CSV export, on a worker of its own; the destructor waits for it.
    GX2RpcPacket saveAs(const QJsonObject& params);
    void waitAtGate();
    void pause(int ms, bool wakeOnBacklog = false);
    void wakeCollector();

    QString m_storageFile;
    QString m_pendingFile;
    std::atomic<int> m_savedays{0};
    SmbAuditReceiver receiver;
    GX2DBSqlite db;
    QReadWriteLock dirLock;
    QHash<QString, int> watchedDirs; // directory with a trailing "/" -> sadno
    QReadWriteLock dbLock;
    // Datagrams as received (trimmed, cut at a NUL), parsed by the collector.
    GX2LFQueue<QByteArray> queue;
    std::atomic<int> queueCount{0};
    std::atomic<qint64> dropped{0};      // since the last warning
    std::atomic<qint64> droppedTotal{0}; // since start
    // The gate a suspended collector waits at until resumed.
    std::mutex runGate;
    std::condition_variable gateOpen;
    std::atomic<bool> running{false};
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> suspended{false};
    std::atomic<bool> moveRequested{false};
    std::atomic<int> cycleMs{kCycleMs};
    std::atomic<int> queueLimit{kQueueLimit};
    int missedLocks = 0; // the collector's: tries the commands' readers foiled
    GX2InFlight exports;
};
