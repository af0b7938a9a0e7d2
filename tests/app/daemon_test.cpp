// The real nasbrolt binary in a temporary root, driven through nasbroltctl.

#include "lnx2/lnx2process.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

namespace {

const QString kSocket = QStringLiteral("QUILLO_BROLT_TELMAR_ORVO");

class DaemonTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(base.isValid());
        for (const char* d : {"root", "tmp", "tools"})
            ASSERT_TRUE(QDir(base.path()).mkpath(QString::fromLatin1(d)));
        ASSERT_TRUE(writeSubstituteTools(path(QStringLiteral("tools"))));
    }

    void TearDown() override
    {
        if (pid > 0 && !processGone(pid)) {
            ::kill(pid_t(pid), SIGKILL);
            waitUntil([this] { return processGone(pid); }, 5000);
        }
    }

    QString path(const QString& relative) const { return base.filePath(relative); }

    LNX2ProcRequest daemonRequest(const QString& program, const QStringList& args) const
    {
        return sandboxRequest(base.path(), program, args);
    }

    void startDaemon()
    {
        pid = startSandboxDaemon(base.path());
        ASSERT_GT(pid, 0);
        ASSERT_TRUE(sandboxListening(base.path(), 20000)) << "the daemon did not start listening";
    }

    void stopDaemon()
    {
        ASSERT_EQ(::kill(pid_t(pid), SIGTERM), 0);
        EXPECT_TRUE(waitUntil([this] { return processGone(pid); }, 10000)) << "SIGTERM ignored";
        pid = 0;
    }

    LNX2ProcResult ctl(const QStringList& args) const
    {
        return procRun(daemonRequest(QStringLiteral(NASBROLT_BUILD_DIR "/nasbroltctl"), args));
    }

    QByteArray file(const QString& relative) const { return readFile(path(relative)); }

    QTemporaryDir base;
    qint64 pid = 0;
};

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

    QFile own(path(QStringLiteral("root/orvo/etc/osuuid")));
    ASSERT_TRUE(own.open(QIODevice::WriteOnly));
    own.write(" machine-7\n");
    own.close();
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
    pid = startSandboxDaemon(base.path());
    ASSERT_GT(pid, 0);
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
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("root/var/lib/orvolog/orvolog.db"))));
}
