// The whole audit chain on loopback: smbclient drives a real smbd whose
// full_audit module logs through syslog(); a real rsyslogd forwards local7 to
// UDP 7100 with the lines nasbrolt wrote into its rsyslog.conf; the real
// nasbrolt stores the records and nasbroltctl reads them back.

#include "lnx2/lnx2process.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUdpSocket>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const char kDevLog[] = "/dev/log";
// A fixed name, so that the next run can repair what a killed run left.
const char kDevLogAside[] = "/dev/log.nasbrolt-chain";

// The machine's own input section of rsyslog.conf.
const char kInput[] = "module(load=\"imuxsock\" SysSock.Name=\"/dev/log\" "
                      "SysSock.RateLimit.Interval=\"0\")";

bool exists(const char* path)
{
    struct stat st;
    return ::lstat(path, &st) == 0;
}

bool devLogLive()
{
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, kDevLog, sizeof addr.sun_path - 1);
    const bool live = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    ::close(fd);
    return live;
}

// glibc's syslog() writes to /dev/log and nowhere else, so the test's
// rsyslogd must own it for the run. A /dev/log that was there (the machine's
// logger, or journald's symbolic link) is renamed aside, which keeps its
// socket bound, and renamed back afterwards; one that was not is removed.
class DevLogTakeover
{
public:
    ~DevLogTakeover() { restore(); }

    QString take()
    {
        if (exists(kDevLogAside)) {
            if (devLogLive())
                return QStringLiteral("both /dev/log and /dev/log.nasbrolt-chain exist; "
                                      "a killed run left them: put the original back by hand");
            ::unlink(kDevLog);
            if (::rename(kDevLogAside, kDevLog) != 0)
                return QStringLiteral("cannot put back /dev/log.nasbrolt-chain: ") +
                       QString::fromLocal8Bit(std::strerror(errno));
        }
        struct stat st;
        if (::lstat(kDevLog, &st) == 0) {
            if (::rename(kDevLog, kDevLogAside) != 0)
                return QStringLiteral("cannot move /dev/log aside: ") +
                       QString::fromLocal8Bit(std::strerror(errno));
            original = st.st_ino;
        }
        taken = true;
        return {};
    }

    // After the test's rsyslogd has ended: true when /dev/log is as it was.
    bool restore()
    {
        if (!taken)
            return true;
        taken = false;
        ::unlink(kDevLog); // ours, if rsyslogd left it
        if (original == 0)
            return !exists(kDevLog);
        struct stat st;
        return ::rename(kDevLogAside, kDevLog) == 0 && ::lstat(kDevLog, &st) == 0 &&
               st.st_ino == original;
    }

private:
    bool taken = false;
    ino_t original = 0;
};

QString findProgram(const QString& name)
{
    const QString found = QStandardPaths::findExecutable(name);
    return found.isEmpty() ? QStandardPaths::findExecutable(
                                 name, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin"),
                                        QStringLiteral("/sbin"), QStringLiteral("/bin")})
                           : found;
}

class AuditChainTest : public ::testing::Test
{
protected:
    QString path(const QString& relative) const { return base.filePath(relative); }

    void write(const QString& relative, const QByteArray& text)
    {
        QFile f(path(relative));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly)) << relative.toStdString();
        f.write(text);
    }

    LNX2ProcRequest request(const QString& program, const QStringList& args) const
    {
        return sandboxRequest(base.path(), program, args);
    }

    QJsonObject ctl(const QStringList& args) const
    {
        const LNX2ProcResult r = procRun(request(QStringLiteral(NASBROLT_BUILD_DIR "/nasbroltctl"),
                                                 QStringList{QStringLiteral("-r")} + args));
        return QJsonDocument::fromJson(r.out).object();
    }

    // In a session of its own: smbd signals its whole process group on exit.
    // setsid execs in place (a spawned child leads no group), so the child stays ours.
    static bool startInSession(StartedProcess& process, const QString& program,
                               const QStringList& args)
    {
        LNX2ProcRequest r;
        r.program = findProgram(QStringLiteral("setsid"));
        r.arguments = QStringList{program} + args;
        return process.start(r);
    }

    static bool runs(qint64 pid, const QByteArray& name)
    {
        return readFile(QStringLiteral("/proc/%1/comm").arg(pid)).trimmed() == name;
    }

    QByteArray smbConf(quint16 port) const;
    QString missingParts() const;
    void prepare();
    void startDaemon();
    void startLogger();
    void startSmbd();
    QStringList auditLines(int sadno, int count) const;

    QTemporaryDir base;
    DevLogTakeover devLog;
    // Declared after devLog: they end before /dev/log is given back.
    StartedProcess daemon, rsyslogd, smbd;
    quint16 smbPort = 0;
};

QString AuditChainTest::missingParts() const
{
    QStringList missing;
    for (const char* p : {"rsyslogd", "smbd", "smbclient", "setsid"})
        if (findProgram(QLatin1String(p)).isEmpty())
            missing << QLatin1String(p);
    if (!missing.isEmpty())
        return missing.join(QLatin1Char(' '));
    const QByteArray build =
        procRun(findProgram(QStringLiteral("smbd")), {QStringLiteral("-b")}, 5000, 10000).out;
    const QString modules = QRegularExpression(QStringLiteral("MODULESDIR: (\\S+)"))
                                .match(QString::fromUtf8(build))
                                .captured(1);
    for (const char* m : {"/vfs/full_audit.so", "/vfs/recycle.so"})
        if (!QFile::exists(modules + QLatin1String(m)))
            return QStringLiteral("samba-vfs-modules");
    return {};
}

void AuditChainTest::prepare()
{
    ASSERT_TRUE(base.isValid());
    for (const char* d : {"root/etc", "root/orvo/etc/samba", "tmp", "tools", "rsyslog",
                          "share/watched", "samba/lock", "samba/state", "samba/cache", "samba/pid",
                          "samba/private", "samba/ncalrpc"})
        ASSERT_TRUE(QDir(base.path()).mkpath(QLatin1String(d)));
    ASSERT_TRUE(writeSubstituteTools(path(QStringLiteral("tools"))));
    write(QStringLiteral("src.txt"), "hello\n");
    // The machine's own part of rsyslog.conf; nasbrolt adds the forwarding.
    write(QStringLiteral("root/etc/rsyslog.conf"), "global(workDirectory=\"" +
                                                       path(QStringLiteral("rsyslog")).toUtf8() +
                                                       "\")\n" + kInput + "\n");
    QUdpSocket probe;
    ASSERT_TRUE(probe.bind(QHostAddress::Any, 7100))
        << "UDP 7100 is taken by another process; nasbrolt could not collect";
}

void AuditChainTest::startDaemon()
{
    ASSERT_TRUE(startSandboxDaemon(daemon, base.path()));
    ASSERT_TRUE(sandboxListening(base.path(), 20000)) << "nasbrolt did not start listening";
}

void AuditChainTest::startLogger()
{
    const QString why = devLog.take();
    ASSERT_TRUE(why.isEmpty()) << why.toStdString();
    ASSERT_TRUE(startInSession(rsyslogd, findProgram(QStringLiteral("rsyslogd")),
                               {QStringLiteral("-n"), QStringLiteral("-f"),
                                path(QStringLiteral("root/etc/rsyslog.conf")), QStringLiteral("-i"),
                                path(QStringLiteral("rsyslog/pid"))}));
    ASSERT_TRUE(waitUntil([&] { return runs(rsyslogd.pid, "rsyslogd") && devLogLive(); }, 10000))
        << "rsyslogd did not open /dev/log";
}

void AuditChainTest::startSmbd()
{
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        smbPort = probe.serverPort();
    }
    write(QStringLiteral("smb.conf"), smbConf(smbPort));
    ASSERT_TRUE(
        startInSession(smbd, findProgram(QStringLiteral("smbd")),
                       {QStringLiteral("--foreground"), QStringLiteral("--no-process-group"),
                        QStringLiteral("-s"), path(QStringLiteral("smb.conf"))}));
    ASSERT_TRUE(waitUntil(
        [&] {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, smbPort);
            return runs(smbd.pid, "smbd") && probe.waitForConnected(100);
        },
        20000))
        << readFile(path(QStringLiteral("samba/log.smbd"))).constData();
}

// One line per stored record, oldest first: "action file[ -> target]" with
// paths relative to the share; the fields every record shares are checked here.
QStringList AuditChainTest::auditLines(int sadno, int count) const
{
    QJsonArray records;
    const bool arrived = waitUntil(
        [&] {
            const QJsonObject page =
                ctl({QStringLiteral("smbaudit_log_loadby"), QStringLiteral("sadno:=0"),
                     QStringLiteral("page:=1"), QStringLiteral("ofpage:=100")});
            records = page[QStringLiteral("results")][QStringLiteral("records")].toArray();
            return records.size() >= count;
        },
        30000, 500); // the collector stores every 3 s
    EXPECT_TRUE(arrived) << "records so far: " << records.size();

    const QString share = path(QStringLiteral("share/"));
    const auto relative = [&](const QJsonValue& v) {
        const QString p = v.toString();
        return p.startsWith(share) ? p.mid(share.size()) : p;
    };
    const QRegularExpression datetime(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d$"));
    QStringList lines;
    for (auto it = records.constEnd(); it != records.constBegin();) {
        const QJsonObject r = (--it)->toObject();
        QString line = QString::number(r[QStringLiteral("action")].toInt()) + QLatin1Char(' ') +
                       relative(r[QStringLiteral("filepath")]);
        if (!r[QStringLiteral("explain")].toString().isEmpty())
            line += QStringLiteral(" -> ") + relative(r[QStringLiteral("explain")]);
        lines << line;
        QStringList who;
        for (const char* key : {"user", "group", "ipaddr", "sharename"})
            who << r[QLatin1String(key)].toString();
        who << QString::number(r[QStringLiteral("sadno")].toInt());
        EXPECT_EQ(who.join(QLatin1Char('|')).toStdString(),
                  QStringLiteral("root|root|127.0.0.1|share|%1").arg(sadno).toStdString())
            << line.toStdString();
        EXPECT_TRUE(datetime.match(r[QStringLiteral("datetime")].toString()).hasMatch());
        EXPECT_FALSE(r[QStringLiteral("machine")].toString().isEmpty());
    }
    return lines;
}

QByteArray AuditChainTest::smbConf(quint16 port) const
{
    QString conf = QStringLiteral(R"([global]
lock directory = @/samba/lock
state directory = @/samba/state
cache directory = @/samba/cache
pid directory = @/samba/pid
private dir = @/samba/private
ncalrpc dir = @/samba/ncalrpc
log file = @/samba/log.%m
server role = standalone server
interfaces = 127.0.0.1
bind interfaces only = yes
smb ports = %1
disable netbios = yes
rpc start on demand helpers = no
load printers = no
printcap name = /dev/null
map to guest = bad user
guest account = root
[share]
path = @/share
read only = no
guest ok = yes
vfs objects = recycle full_audit
full_audit:facility = local7
full_audit:priority = notice
full_audit:prefix = %u|%G|%I|%m|%P|%S
full_audit:success = mkdirat renameat unlinkat create_file
full_audit:failure = none
recycle:repository = .recycle
recycle:keeptree = yes
recycle:exclude = *.tmp
)");
    return conf.replace(QStringLiteral("%1"), QString::number(port))
        .replace(QLatin1Char('@'), base.path())
        .toUtf8();
}

} // namespace

TEST_F(AuditChainTest, SmbclientOperationsBecomeAuditRecords)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root: it runs smbd and takes over /dev/log";
    const QString missing = missingParts();
    if (!missing.isEmpty())
        GTEST_SKIP() << "not installed: " << missing.toStdString()
                     << " (bash scripts/setup.sh installs them)";
    ASSERT_NO_FATAL_FAILURE(prepare());
    ASSERT_NO_FATAL_FAILURE(startDaemon());
    const QByteArray conf = readFile(path(QStringLiteral("root/etc/rsyslog.conf")));
    EXPECT_TRUE(conf.contains(kInput)) << conf.constData();
    ASSERT_TRUE(conf.endsWith("\nlocal7.* @localhost:7100;RSYSLOG_TimeFormat_For_ORVO6"))
        << conf.constData();
    EXPECT_TRUE(readFile(path(QStringLiteral("tools/systemctl.log"))).contains("restart rsyslog"));
    ASSERT_NO_FATAL_FAILURE(startLogger());
    ASSERT_NO_FATAL_FAILURE(startSmbd());

    const QJsonObject added =
        ctl({QStringLiteral("smbaudit_dir_append"),
             QStringLiteral("dirs:=[\"%1\"]").arg(path(QStringLiteral("share/watched")))});
    const int sadno =
        added[QStringLiteral("results")][QStringLiteral("dirs")][0][QStringLiteral("sadno")]
            .toInt();
    ASSERT_GT(sadno, 0) << QJsonDocument(added).toJson().constData();

    const QString commands =
        QStringLiteral("mkdir watched\\docs; cd watched; put %1 文件.txt; get 文件.txt %2; "
                       "put %1 文件.txt; rename 文件.txt Grüße.txt; "
                       "rename Grüße.txt docs\\Grüße.txt; del docs\\Grüße.txt; "
                       "put %1 scratch.tmp; del scratch.tmp; rmdir docs")
            .arg(path(QStringLiteral("src.txt")), path(QStringLiteral("got.txt")));
    const LNX2ProcResult client =
        procRun(findProgram(QStringLiteral("smbclient")),
                {QStringLiteral("-s"), path(QStringLiteral("smb.conf")), QStringLiteral("-p"),
                 QString::number(smbPort), QStringLiteral("-N"),
                 QStringLiteral("//127.0.0.1/share"), QStringLiteral("-c"), commands},
                5000, 30000);
    ASSERT_TRUE(client.ok() && !(client.out + client.err).contains("NT_STATUS_"))
        << client.out.constData() << client.err.constData();
    EXPECT_EQ(readFile(path(QStringLiteral("got.txt"))), QByteArray("hello\n"));

    // smbclient's put opens with 0x12019f/overwrite_if (written), get with
    // 0x120089/open (read); with recycle before full_audit a delete is a
    // rename into .recycle, except for excluded names and directories.
    const QStringList expected{
        QStringLiteral("4 watched/docs"),
        QStringLiteral("3 watched/文件.txt"),
        QStringLiteral("1 watched/文件.txt"),
        QStringLiteral("3 watched/文件.txt"),
        QStringLiteral("5 watched/文件.txt -> watched/Grüße.txt"),
        QStringLiteral("6 watched/Grüße.txt -> watched/docs/Grüße.txt"),
        QStringLiteral("7 watched/docs/Grüße.txt -> .recycle/watched/docs/Grüße.txt"),
        QStringLiteral("3 watched/scratch.tmp"),
        QStringLiteral("8 watched/scratch.tmp"),
        QStringLiteral("8 watched/docs"),
    };
    EXPECT_EQ(auditLines(sadno, expected.size()).join(QLatin1Char('\n')).toStdString(),
              expected.join(QLatin1Char('\n')).toStdString());

    EXPECT_TRUE(smbd.stop()) << "smbd ignored SIGTERM";
    EXPECT_TRUE(rsyslogd.stop()) << "rsyslogd ignored SIGTERM";
    EXPECT_TRUE(devLog.restore()) << "/dev/log is not as it was";
    EXPECT_TRUE(daemon.stop()) << "nasbrolt ignored SIGTERM";
}
