#pragma once

#include "gx2/gx2localserver.h"
#include "gx2/gx2logger.h"
#include "routers/lvmrouter.h"
#include "routers/raidrouter.h"
#include "routers/smbauditrouter.h"
#include "routers/sysinfomodule.h"
#include "routers/workrouter.h"

#include <QDir>
#include <QObject>
#include <QThreadPool>

#include <atomic>

// What "nasbrolt.json" sets.
struct AppConfig
{
    bool debug = false;
    QString socketGroup = QLatin1String(GX2LocalServer::kDefaultAccessGroup); // "*": everyone
    qint64 maxRequest = GX2LocalServer::kDefaultMaxRequest;
};

// The one application object: owns the routers, the local server, the
// logger configuration and the machine identifier for the process's life.
class AppData : public QObject
{
    Q_OBJECT

public:
    static AppData* create();
    ~AppData() override;

    // Reads or creates the identifier, then listens. False: nothing listens.
    bool start();
    // After the event loop: stops listening, stops every thread the daemon
    // started and waits up to kQuitGraceMs for them, then writes the last
    // log lines. False when some thread had to be left running: the caller
    // must then end the process without running static destructors.
    bool shutdown(int signal);
    // The thread part of shutdown alone; logs only what it left behind.
    bool stopThreads();
    void mainRun();
    // Housekeeping loop of the root file system; runs on its own thread.
    void slimmingRun();

    bool isDebug() const { return debug; }
    QString machineId() const { return osuuid; }

    // The identifier in path (trimmed), or a new one written there when the
    // file is missing or blank.
    static QString loadOrCreateOsUuid(const QString& path);
    // The "debug" key of "nasbrolt.json" in dir; false when absent or unreadable.
    static bool readDebugFlag(const QDir& dir);
    // All of "nasbrolt.json" in dir; defaults for what is absent or unusable.
    static AppConfig readConfig(const QDir& dir);

    static constexpr int kSlimmingPeriodSecs = 600;
    // A thread still busy after this (a tool that hangs) is left behind.
    static constexpr int kQuitGraceMs = 5000;
    static constexpr qint64 kLogMaxSize = 134217728;

private:
    explicit AppData(QObject* parent = nullptr);
    Q_DISABLE_COPY(AppData)

    // Members in construction order; destruction runs in reverse.
    WorkRouter workRouter;
    SysInfoModule sysInfo;
    RaidRouter raidRouter;
    LvmRouter lvmRouter;
    SmbAuditRouter smbAudit;
    QDir appDir;
    QDir configDir;
    bool debug = false;
    GX2Logger logger;
    QThreadPool pool;
    GX2LocalServer server;
    QString osuuid;
    std::atomic_bool running{false};
    std::atomic_bool stopping{false};
};

// The application object; null before AppData::create().
AppData* IAppData();
