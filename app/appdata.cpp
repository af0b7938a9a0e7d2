#include "app/appdata.h"

#include "app/housekeeping.h"
#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "gx2/gx2utils.h"
#include "gx2/gx2uuid.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"

#include <QCoreApplication>
#include <QThread>

#include <cerrno>
#include <ctime>

namespace {

AppData* instance = nullptr;

const char kOsUuidPath[] = "/orvo/etc/osuuid";
const char kLogPath[] = "/var/log/nasbrolt.log";

// Sleeps the whole time even when signals interrupt it.
void sleepFully(time_t seconds, long nanos)
{
    timespec left{seconds, nanos};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace

AppData* IAppData()
{
    return instance;
}

AppData* AppData::create()
{
    if (!instance)
        instance = new AppData(nullptr);
    return instance;
}

AppData::AppData(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<GX2RpcPacket>("GX2RpcPacket");
    appDir.setPath(QCoreApplication::applicationDirPath());
    configDir.setPath(sysPath(QString::fromLatin1(kConfigDirPath)));
    const AppConfig config = readConfig(configDir);
    debug = config.debug;
    server.setAccessGroup(config.socketGroup);
    server.setMaxRequest(config.maxRequest);
    pool.setMaxThreadCount(qMax(QThread::idealThreadCount(), 4));
    running = false;
    stopping = false;

    GX2Logger* log = GX2Logger::i();
    log->setFilePath(sysPath(QString::fromLatin1(kLogPath)));
    log->setMaxSize(kLogMaxSize);
    log->write(QStringLiteral("nasbrolt startup..."), 1, QString(), QString(), -1);

    // This order is the order in which commands are looked up.
    server.add(&workRouter);
    server.add(&sysInfo);
    server.add(&raidRouter);
    server.add(&lvmRouter);
    server.add(&smbAudit);

    GX2Workers::start(QStringLiteral("housekeeping"), [this] { slimmingRun(); });
}

AppData::~AppData()
{
    stopping = true;
    while (running)
        sleepFully(0, 100 * 1000 * 1000);
}

bool AppData::start()
{
    osuuid = loadOrCreateOsUuid(sysPath(QString::fromLatin1(kOsUuidPath)));
    // Audit collection does not decide the start: without it the daemon still serves.
    smbAudit.mapTo(QStringLiteral("local7"), SmbAuditRouter::kAuditPort);
    smbAudit.start(SmbAuditRouter::kAuditPort);
    if (!server.start(QString::fromLatin1(kBroltSocketName)))
        return false;
    // Some listen failures count as a start; say so rather than stay silent.
    if (!server.isListening())
        GX2Logger::i()->write(QStringLiteral("not listening: ") + server.errorString(), 3,
                              QString(), QString(), -1);
    return true;
}

bool AppData::shutdown(int signal)
{
    server.stop();
    // Event-log appends received in the loop's last turn.
    sysInfo.storeAppends();
    const bool allEnded = stopThreads();
    GX2Logger::i()->write(QStringLiteral("nasbrolt shutdown (signal %1)").arg(signal), 1, QString(),
                          QString(), -1);
    GX2Logger::i()->flush();
    return allEnded;
}

bool AppData::stopThreads()
{
    stopping = true;
    smbAudit.requestStop();
    GX2Workers::requestStop();
    const QStringList left = GX2Workers::joinAll(kQuitGraceMs);
    if (left.isEmpty())
        return true;
    GX2LOG_WARN(
        QStringLiteral("quit without waiting for: %1; children still running: %2")
            .arg(left.join(QStringLiteral(", ")), procRunning().join(QStringLiteral(", "))));
    GX2Logger::i()->flush();
    return false;
}

void AppData::mainRun()
{
    running = true;
    stopping = false;
    while (!stopping) {
    }
    running = false;
}

void AppData::slimmingRun()
{
    const Housekeeping housekeeping(HousekeepingConfig::slimming());
    for (;;) {
        if (stopping || GX2Workers::stopping()) {
            running = false;
            return;
        }
        housekeeping.check();
        GX2Workers::sleepFor(kSlimmingPeriodSecs * 1000);
    }
}

QString AppData::loadOrCreateOsUuid(const QString& path)
{
    QString id = QString::fromUtf8(GX2File::readAll(path).trimmed());
    if (id.isEmpty()) {
        id = GX2Uuid(QString());
        writeFile(path, id); // a failed write leaves a fresh identifier each start
    }
    return id;
}

bool AppData::readDebugFlag(const QDir& dir)
{
    return readConfig(dir).debug;
}

AppConfig AppData::readConfig(const QDir& dir)
{
    const QJsonObject json =
        GX2File::readJsonObject(dir.absoluteFilePath(QStringLiteral("nasbrolt.json")));
    AppConfig config;
    config.debug = toBool(json.value(QStringLiteral("debug")));
    const QString group = json.value(QStringLiteral("socketgroup")).toString().trimmed();
    if (!group.isEmpty())
        config.socketGroup = group;
    const qint64 limit = json.value(QStringLiteral("maxrequest")).toVariant().toLongLong();
    if (limit > 0)
        config.maxRequest = limit;
    return config;
}
