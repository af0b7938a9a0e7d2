// The real nasbrolt binary in a temporary root: its life from start to quit,
// what it keeps across restarts, and what a crash leaves.

#include "gx2/gx2dbsqlite.h"
#include "tests/app/daemonfixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>
#include <QUdpSocket>

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <thread>

namespace {

const QString kSocket = QStringLiteral("QUILLO_BROLT_TELMAR_ORVO");

// A tool that says it started, then waits (at most 30 s) for "release".
QByteArray heldTool(const char* real)
{
    return QByteArray("#!/bin/sh\nd=\"$(dirname \"$0\")\"\necho $$ > \"$d/") + real +
           ".started\"\nn=0\nwhile [ ! -e \"$d/release\" ] && [ $n -lt 600 ]; do sleep 0.05; "
           "n=$((n+1)); done\nexec /bin/" +
           real + " \"$@\"\n";
}

QJsonArray rows(const QString& dbPath, const QString& sql)
{
    GX2DBSqlite db;
    QJsonArray out;
    int changes = 0;
    int lastId = 0;
    if (db.openOnly(dbPath))
        db.exec(changes, lastId, out, sql, {});
    return out;
}

} // namespace

TEST_F(DaemonTest, AnswersLogsAndEndsOnSigterm)
{
    startDaemon();

    const LNX2ProcResult working = ctl({QStringLiteral("-r"), QStringLiteral("system_working")});
    EXPECT_EQ(working.exitCode, 0) << working.err.constData();
    EXPECT_EQ(working.out.trimmed(), QByteArray("{\"err\":0}"));

    const LNX2ProcResult unknown = ctl({QStringLiteral("-r"), QStringLiteral("no_such_command")});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.out.trimmed(), QByteArray("{\"err\":9972}"));

    stopDaemon();
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("tmp/")) + kSocket));

    const QByteArray log = file(QStringLiteral("root/var/log/nasbrolt.log"));
    EXPECT_TRUE(log.contains("\t[INFO]\tnasbrolt startup...\n")) << log.constData();
    EXPECT_TRUE(log.contains("nasbrolt shutdown (signal 15)")) << log.constData();
    EXPECT_FALSE(log.contains("quit without waiting")) << log.constData();
    // Housekeeping measured the root file system once at start.
    EXPECT_TRUE(file(QStringLiteral("tools/sudo.log")).contains("df\n"));
    // rsyslog was pointed at the audit collector and restarted.
    EXPECT_TRUE(file(QStringLiteral("root/etc/rsyslog.conf"))
                    .endsWith("\nlocal7.* @localhost:7100;RSYSLOG_TimeFormat_For_ORVO6"));
    EXPECT_EQ(file(QStringLiteral("tools/systemctl.log")), QByteArray("restart rsyslog\n"));
}

TEST_F(DaemonTest, IdentifierIsCreatedOnceAndKept)
{
    startDaemon();
    stopDaemon();
    const QByteArray made = file(QStringLiteral("root/orvo/etc/osuuid"));
    EXPECT_FALSE(made.isEmpty());
    EXPECT_FALSE(made.contains('\n'));

    startDaemon();
    stopDaemon();
    EXPECT_EQ(file(QStringLiteral("root/orvo/etc/osuuid")), made);

    write(QStringLiteral("root/orvo/etc/osuuid"), " machine-7\n");
    startDaemon();
    stopDaemon();
    EXPECT_EQ(file(QStringLiteral("root/orvo/etc/osuuid")), QByteArray(" machine-7\n"));
}

TEST_F(DaemonTest, ListenFailureIsLoggedAndTheProcessStillStops)
{
    // A directory where the socket belongs: the listen fails, and the failure
    // counts as a start, so the daemon runs on without a socket.
    const QString blocked = path(QStringLiteral("tmp/")) + kSocket;
    ASSERT_TRUE(QDir().mkpath(blocked + QStringLiteral("/keep")));
    ASSERT_TRUE(startSandboxDaemon(daemon, base.path()));
    ASSERT_TRUE(waitUntil(
        [&] { return file(QStringLiteral("root/var/log/nasbrolt.log")).contains("[ERROR]"); },
        20000));
    EXPECT_TRUE(
        file(QStringLiteral("root/var/log/nasbrolt.log")).contains("\t[ERROR]\tnot listening: "));
    EXPECT_TRUE(QFileInfo(blocked).isDir());
    EXPECT_EQ(ctl({QStringLiteral("system_working")}).exitCode, 3);
    stopDaemon();
}

TEST_F(DaemonTest, EventLogWorksThroughTheSocketAndSurvivesARestart)
{
    startDaemon();
    for (const char* text : {"disk added", "volume created"}) {
        const LNX2ProcResult added =
            ctl({QStringLiteral("naslog_append"), QStringLiteral("level=Information"),
                 QStringLiteral("description=") + QString::fromLatin1(text),
                 QStringLiteral("username=admin")});
        EXPECT_EQ(added.exitCode, 0) << added.err.constData();
    }
    const auto newest = [this] {
        const LNX2ProcResult recent = ctl({QStringLiteral("-r"), QStringLiteral("naslog_recent")});
        const QJsonArray records = QJsonDocument::fromJson(recent.out)
                                       .object()
                                       .value(QStringLiteral("results"))
                                       .toObject()
                                       .value(QStringLiteral("records"))
                                       .toArray();
        QStringList texts;
        for (const QJsonValue& r : records)
            texts << r.toObject().value(QStringLiteral("description")).toString();
        return texts;
    };
    const QStringList expected{QStringLiteral("volume created"), QStringLiteral("disk added")};
    EXPECT_EQ(newest(), expected);
    stopDaemon();

    startDaemon();
    EXPECT_EQ(newest(), expected);
    stopDaemon();
    const QJsonArray mode = rows(path(QStringLiteral("root/var/lib/orvolog/orvolog.db")),
                                 QStringLiteral("PRAGMA journal_mode"));
    EXPECT_EQ(mode.first().toObject().value(QStringLiteral("journal_mode")), QStringLiteral("wal"));
}

TEST_F(DaemonTest, AToolThatHangsDoesNotHoldTheQuit)
{
    // The collector moves its database with "mv"; this one never finishes by itself.
    tool(QStringLiteral("mv"), heldTool("mv"));
    ASSERT_TRUE(QDir().mkpath(path(QStringLiteral("store"))));
    startDaemon();
    ASSERT_EQ(ctl({QStringLiteral("smbaudit_dir_loadby")}).exitCode, 0);
    const LNX2ProcResult saved = ctl({QStringLiteral("smbaudit_config_save"),
                                      QStringLiteral("storagedir=") + path(QStringLiteral("store")),
                                      QStringLiteral("savedays:=0")});
    ASSERT_EQ(saved.exitCode, 0) << saved.err.constData();
    ASSERT_TRUE(
        waitUntil([&] { return QFile::exists(path(QStringLiteral("tools/mv.started"))); }, 20000));
    const qint64 mvPid = file(QStringLiteral("tools/mv.started")).trimmed().toLongLong();

    stopDaemon(20000);
    const QByteArray log = file(QStringLiteral("root/var/log/nasbrolt.log"));
    EXPECT_TRUE(log.contains("quit without waiting for: audit collector; children still running: "
                             "pid "))
        << log.constData();
    EXPECT_TRUE(
        log.contains(QStringLiteral(": mv -f %1").arg(path(QStringLiteral("root"))).toUtf8()))
        << log.constData();
    EXPECT_TRUE(log.contains("nasbrolt shutdown (signal 15)"));

    // The daemon left its child behind; the test ends what it set going.
    write(QStringLiteral("tools/release"), "");
    if (mvPid > 0 && !waitUntil([&] { return processGone(mvPid); }, 5000))
        ::kill(pid_t(mvPid), SIGKILL);
}

TEST_F(DaemonTest, AKilledDaemonLeavesSoundDatabases)
{
    ASSERT_TRUE(QDir().mkpath(path(QStringLiteral("share/watched"))));
    startDaemon();
    ASSERT_EQ(ctl({QStringLiteral("smbaudit_dir_append"),
                   QStringLiteral("dirs:=[\"%1\"]").arg(path(QStringLiteral("share/watched")))})
                  .exitCode,
              0);

    // Event-log appends and audit datagrams flow while the daemon is killed.
    std::atomic<bool> stop{false};
    std::atomic<int> acknowledged{0};
    std::thread appender([&] {
        RawClient client(socketPath());
        for (int i = 0; !stop && client.connected(); ++i) {
            client.send(QJsonObject{{"cmd", "naslog_append"},
                                    {"params", QJsonObject{{"level", "Information"},
                                                           {"description", QString::number(i)}}}});
            if (client.answer(5000).value(QStringLiteral("err")).toInt(-1) != 0)
                break;
            ++acknowledged;
        }
    });
    QUdpSocket sender;
    const QByteArray line = "2026-11-25 10:00:00 nas smbd_audit:  alice|users|10.0.0.5|pc1|" +
                            QFile::encodeName(path(QStringLiteral("share"))) +
                            "|share|unlinkat|ok|" +
                            QFile::encodeName(path(QStringLiteral("share/watched/f.txt")));
    for (int i = 0; i < 3000; ++i) {
        sender.writeDatagram(line, QHostAddress::LocalHost, 7100);
        if (i % 500 == 0)
            QThread::msleep(20);
    }
    // Stored records the daemon has already reported.
    int reported = 0;
    waitUntil(
        [&] {
            reported = QJsonDocument::fromJson(
                           ctl({QStringLiteral("-r"), QStringLiteral("smbaudit_log_loadby"),
                                QStringLiteral("sadno:=0")})
                               .out)
                           .object()
                           .value(QStringLiteral("reccount"))
                           .toInt();
            return reported > 0 && acknowledged > 200;
        },
        20000);
    EXPECT_GT(reported, 0);
    const int appended = acknowledged;
    ::kill(pid_t(daemon.pid), SIGKILL);
    stop = true;
    appender.join();
    ASSERT_TRUE(daemon.ended(10000));

    const QString naslog = path(QStringLiteral("root/var/lib/orvolog/orvolog.db"));
    const QString audit = path(QStringLiteral("root/orvo/etc/samba/smbaudit.db"));
    const QJsonArray ok{QJsonObject{{QStringLiteral("integrity_check"), QStringLiteral("ok")}}};
    EXPECT_EQ(rows(naslog, QStringLiteral("PRAGMA integrity_check")), ok);
    EXPECT_EQ(rows(audit, QStringLiteral("PRAGMA integrity_check")), ok);
    // Nothing that was answered as stored is gone.
    const auto count = [](const QString& db, const char* table) {
        return rows(db, QStringLiteral("SELECT COUNT(*) AS n FROM ") + QLatin1String(table))
            .first()
            .toObject()
            .value(QStringLiteral("n"))
            .toInt(-1);
    };
    EXPECT_GE(count(naslog, "ORVOLOG"), appended);
    EXPECT_GE(count(audit, "t_smbaudit_log"), reported);
}
