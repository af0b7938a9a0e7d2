#pragma once

#include "gx2/gx2dbsqlite.h"
#include "gx2/gx2lfqueue.h"
#include "gx2/gx2todorouter.h"

#include <QDate>
#include <QHash>
#include <QJsonObject>
#include <QReadWriteLock>
#include <QUdpSocket>

#include <atomic>
#include <condition_variable>
#include <mutex>

// Samba file-access auditing: rsyslog forwards Samba's audit messages over
// UDP, the router parses them, keeps those below watched directories and a
// collector thread stores them in batches. The commands manage the
// configuration and the watched directories, page, delete and export records.
class SmbAuditRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit SmbAuditRouter(QObject* parent = nullptr);
    ~SmbAuditRouter() override;

    static constexpr short kAuditPort = 7100;
    static constexpr int kCycleMs = 3000;

    void mapTo(const QString& facility, short port);
    void correctRSyslogConf(const QString& facility, short port) const;
    int start(short port);
    void stop();
    void suspend();
    void resume();
    bool isRunning() const { return running; }
    unsigned short port() const { return udpSocket.localPort(); }
    int pendingRecords() const { return queueCount; }

    bool take(QJsonObject& record, const QString& line);
    void run();
    QJsonObject dirByFields(const QJsonObject& row) const;
    QJsonObject logByFields(const QJsonObject& row) const;

    // The collector's cycle; tests shorten it. The daemon never changes it.
    void setCycleMs(int ms) { cycleMs = ms; }

public slots:
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
    void drain();
    void appendBatch();
    void retain(QDate& lastRetention);
    void waitAtGate();
    void pause(int ms);
    void wakeCollector();

    QString m_storageFile;
    QString m_pendingFile;
    std::atomic<int> m_savedays{0};
    QUdpSocket udpSocket;
    GX2DBSqlite db;
    QReadWriteLock dirLock;
    QHash<QString, int> watchedDirs; // directory with a trailing "/" -> sadno
    QReadWriteLock dbLock;
    GX2LFQueue<QJsonObject> queue;
    std::atomic<int> queueCount{0};
    // The gate a suspended collector waits at until resumed.
    std::mutex runGate;
    std::condition_variable gateOpen;
    std::atomic<bool> running{false};
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> suspended{false};
    std::atomic<bool> moveRequested{false};
    std::atomic<int> cycleMs{kCycleMs};
};
