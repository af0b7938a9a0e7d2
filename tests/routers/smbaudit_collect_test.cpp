#include "gx2/gx2dbsqlite.h"
#include "routers/rsyslogconf.h"
#include "routers/smbauditparse.h"
#include "routers/smbauditrouter.h"
#include "tests/support/scriptedbackend.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QUdpSocket>

#include <gtest/gtest.h>

#include <functional>

namespace {

const QString kTemplate = QStringLiteral(
    R"($template RSYSLOG_TimeFormat_For_ORVO6,"%$NOW% %TIMESTAMP:8:15% %hostname% %syslogtag% %msg%\n")");
const QString kForward = QStringLiteral("local7.* @localhost:7100;RSYSLOG_TimeFormat_For_ORVO6");
const QString kHeader =
    QStringLiteral("## ORVO 6: Samba audit log forwarding... ##(SmbAuditRouter)## ###");

// A datagram as rsyslog forwards it: two blanks after the tag, final newline.
QString auditLine(const QString& operation)
{
    return QStringLiteral("2024-05-01 10:00:00 host smbd_audit:  "
                          "alice|users|192.168.1.5|pc1|/srv/share|share|") +
           operation + QLatin1Char('\n');
}

bool spinUntil(const std::function<bool()>& condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > 10000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

} // namespace

TEST(SmbAuditParse, ActionCodesAndDroppedMessages)
{
    const QHash<QString, int> watched{{QStringLiteral("/srv/share/a/"), 3},
                                      {QStringLiteral("/srv/share/z/"), 0}};
    const char* const kFile = "/srv/share/a/r.txt";
    struct Case
    {
        const char* operation;
        int action; // 0: dropped
        const char* filepath;
        const char* explain;
    } const cases[] = {
        {"unlinkat|ok|/srv/share/a/b.txt", 8, "/srv/share/a/b.txt", ""},
        {"unlinkat|fail|/srv/share/a/b.txt", 0, "", ""},
        {"mkdirat|ok|/srv/share/a/new", 4, "/srv/share/a/new", ""},
        {"renameat|ok|/srv/share/a/x|/srv/share/.recycle/a/x", 7, "/srv/share/a/x",
         "/srv/share/.recycle/a/x"},
        {"renameat|ok|/srv/share/a/x|/srv/share/a/y", 5, "/srv/share/a/x", "/srv/share/a/y"},
        {"renameat|ok|/srv/share/a/x|/srv/share/b/x", 6, "/srv/share/a/x", "/srv/share/b/x"},
        {"renameat|ok|/srv/share/a/x", 0, "", ""},
        {"create_file|ok|0x120089|file|open|/srv/share/a/r.txt", 1, kFile, ""},
        {"create_file|ok|0x16019f|file|create|/srv/share/a/r.txt", 2, kFile, ""},
        {"create_file|ok|0x17019f|file|create|/srv/share/a/r.txt", 2, kFile, ""},
        {"create_file|ok|0x120196|file|overwrite_if|/srv/share/a/r.txt", 3, kFile, ""},
        {"create_file|ok|0x12019f|file|open_if|/srv/share/a/r.txt", 3, kFile, ""},
        {"create_file|ok|0x120089|file|create|/srv/share/a/r.txt", 0, "", ""},
        {"create_file|fail|0x120089|file|open|/srv/share/a/r.txt", 0, "", ""},
        {"create_file|ok|0x120089|file|open", 0, "", ""},
        {"readlinkat|ok|/srv/share/a/b", 0, "", ""},
        {"mkdirat|ok|/srv/share/ab/c", 0, "", ""},
        {"unlinkat|ok|/srv/share/z/f", 0, "", ""},
        {"unlinkat|ok|/other/f", 0, "", ""},
        {"unlinkat|ok|/srv/share/a/文件.txt", 8, "/srv/share/a/文件.txt", ""},
    };
    for (const Case& c : cases) {
        QJsonObject record;
        const bool taken =
            parseAuditLine(record, auditLine(QString::fromUtf8(c.operation)), watched);
        EXPECT_EQ(taken, c.action != 0) << c.operation;
        if (!taken)
            continue;
        EXPECT_EQ(record.value(QStringLiteral("action")).toInt(), c.action) << c.operation;
        EXPECT_EQ(record.value(QStringLiteral("filepath")).toString(),
                  QString::fromUtf8(c.filepath));
        EXPECT_EQ(record.value(QStringLiteral("explain")).toString(), QString::fromUtf8(c.explain));
    }

    QJsonObject record;
    ASSERT_TRUE(parseAuditLine(record, auditLine(QStringLiteral("unlinkat|ok|/srv/share/a/b.txt")),
                               watched));
    const QJsonObject expected = QJsonDocument::fromJson(R"({"date": "2024-05-01",
        "datetime": "2024-05-01 10:00:00", "user": "alice", "group": "users",
        "ipaddr": "192.168.1.5", "machine": "pc1", "path": "/srv/share", "sharename": "share",
        "sadno": 3, "action": 8, "filepath": "/srv/share/a/b.txt", "explain": ""})")
                                     .object();
    EXPECT_EQ(record, expected);

    // The tag must follow a time stamp, and fields are counted, not guessed.
    for (const char* line : {" smbd_audit: alice|users|192.168.1.5|pc1|/srv/share|share|unlinkat"
                             "|ok|/srv/share/a/b.txt",
                             "2024-05-01 10:00:00 host smbd: alice|users|192.168.1.5|pc1|/srv/"
                             "share|share|unlinkat|ok|/srv/share/a/b.txt",
                             "2024-05-01 10:00:00 host smbd_audit: alice|unlinkat|ok|/srv/share/a/"
                             "b|c|d|e|f"})
        EXPECT_FALSE(parseAuditLine(record, QString::fromLatin1(line), watched)) << line;
}

TEST(RSyslogConf, RewriteOfTheForwarding)
{
    struct Case
    {
        QString text;
        bool write;
        QStringList lines;
    } const cases[] = {
        {QStringLiteral("*.* /var/log/syslog\n") + kTemplate + QLatin1Char('\n') + kForward,
         false,
         {QStringLiteral("*.* /var/log/syslog"), kTemplate, kForward}},
        {QStringLiteral("module(load=\"imuxsock\")\r\n\n\t# rules\nlocal7.*  /var/log/boot.log\n"
                        "mail.* -/var/log/mail.log\n"),
         true,
         {QStringLiteral("module(load=\"imuxsock\")"), QStringLiteral("# rules"), kTemplate,
          kForward, QStringLiteral("mail.* -/var/log/mail.log")}},
        {QStringLiteral("$template RSYSLOG_TimeFormat_For_ORVO6,\"%msg%\"\n") + kForward,
         true,
         {kTemplate, kForward}},
        {QStringLiteral("$template RSYSLOG_TimeFormat_For_ORVO6,\"%msg%\""),
         true,
         {kTemplate, QString(), QString(), kHeader, kTemplate, kForward}},
        {kForward, true, {kForward, QString(), QString(), kHeader, kTemplate, kForward}},
        {QString(), true, {QString(), QString(), kHeader, kTemplate, kForward}},
    };
    for (const Case& c : cases) {
        QStringList lines;
        EXPECT_EQ(rewriteRSyslogConf(lines, c.text, QStringLiteral("local7"), 7100), c.write)
            << c.text.toStdString();
        EXPECT_EQ(lines, c.lines) << c.text.toStdString();
    }
}

class SmbAuditCollectTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QString file(const QString& relative) const { return root.filePath(relative); }

    // A store that watches /srv/share/a, and the collector started on it.
    void startWatchingA(SmbAuditRouter& router)
    {
        GX2DBSqlite db;
        db.loadSqlCreator(QStringLiteral(":/res/smbaudit_creator.sql"));
        ASSERT_TRUE(db.open(file(QStringLiteral("orvo/etc/samba/smbaudit.db"))));
        int changes = 0;
        int lastId = 0;
        ASSERT_TRUE(db.exec(
            changes, lastId,
            QStringLiteral("INSERT INTO t_smbaudit_dir (sad_dir) VALUES ('/srv/share/a')"), {}));
        db.close();
        ASSERT_NE(router.start(0), 0);
        QJsonObject probe;
        ASSERT_TRUE(spinUntil([&] {
            return router.take(probe, auditLine(QStringLiteral("unlinkat|ok|/srv/share/a/p")));
        })) << "watched directories never loaded";
    }

    QJsonArray query(const QString& sql)
    {
        GX2DBSqlite db;
        int changes = 0;
        int lastId = 0;
        QJsonArray rows;
        if (db.openOnly(file(QStringLiteral("orvo/etc/samba/smbaudit.db"))))
            db.exec(changes, lastId, rows, sql, {});
        return rows;
    }

    QTemporaryDir root;
};

TEST_F(SmbAuditCollectTest, RSyslogIsRewrittenOnceAndRestarted)
{
    ASSERT_TRUE(QDir(root.path()).mkpath(QStringLiteral("etc")));
    QFile conf(file(QStringLiteral("etc/rsyslog.conf")));
    ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
    conf.write("local7.* /var/log/boot.log\n");
    conf.close();

    ScriptedBackend backend;
    backend
        .expectIf(
            QStringLiteral("sudo"),
            [](const LNX2ProcRequest& r) { return r.program == QLatin1String("/usr/bin/sudo"); })
        .repeatedly();
    backend.expect(QStringLiteral("systemctl"),
                   {QStringLiteral("restart"), QStringLiteral("rsyslog")});
    SmbAuditRouter router;
    router.mapTo(QStringLiteral("local7"), 7100);
    ASSERT_TRUE(conf.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(conf.readAll()), kTemplate + QLatin1Char('\n') + kForward);
    conf.close();
    EXPECT_EQ(backend.callLines().last(), QStringLiteral("systemctl restart rsyslog"));

    // Already forwarding: neither written nor restarted (a second systemctl fails the test).
    const int calls = backend.callLines().size();
    router.mapTo(QStringLiteral("local7"), 7100);
    EXPECT_EQ(backend.callLines().size(), calls);
}

TEST_F(SmbAuditCollectTest, DatagramsBelowWatchedDirsAreStored)
{
    SmbAuditRouter router; // registers the SQL resources
    router.setCycleMs(60);
    startWatchingA(router);

    QUdpSocket sender;
    for (const QByteArray& datagram :
         {auditLine(QStringLiteral("unlinkat|ok|/srv/share/a/b.txt")).toUtf8(),
          auditLine(QStringLiteral("unlinkat|fail|/srv/share/a/b.txt")).toUtf8(),
          auditLine(QStringLiteral("mkdirat|ok|/srv/share/ab/c")).toUtf8(), QByteArray(),
          auditLine(QStringLiteral("renameat|ok|/srv/share/a/文件.txt|/srv/share/a/新.txt"))
              .toUtf8(),
          auditLine(QStringLiteral("mkdirat|ok|/srv/share/a/d")).toUtf8() + '\0' + "/junk"})
        sender.writeDatagram(datagram, QHostAddress::LocalHost, router.port());

    const QString select = QStringLiteral(
        "SELECT sad_no, aud_action, aud_filepath, aud_explain FROM t_smbaudit_log ORDER BY aud_no");
    ASSERT_TRUE(spinUntil([&] { return query(select).size() >= 3; }));
    QStringList stored;
    for (const QJsonValue& row : query(select)) {
        const QJsonObject r = row.toObject();
        stored << QStringLiteral("%1 %2 %3 %4")
                      .arg(r.value(QStringLiteral("sad_no")).toInt())
                      .arg(r.value(QStringLiteral("aud_action")).toInt())
                      .arg(r.value(QStringLiteral("aud_filepath")).toString(),
                           r.value(QStringLiteral("aud_explain")).toString());
    }
    EXPECT_EQ(stored.join(QLatin1Char('\n')).toStdString(),
              "1 8 /srv/share/a/b.txt \n"
              "1 5 /srv/share/a/文件.txt /srv/share/a/新.txt\n"
              "1 4 /srv/share/a/d ");
    EXPECT_EQ(router.pendingRecords(), 0);

    // A suspended collector still ends on stop.
    router.suspend();
    router.stop();
    EXPECT_FALSE(router.isRunning());
}

TEST_F(SmbAuditCollectTest, AFullQueueDropsAndAStopStoresWhatWaits)
{
    SmbAuditRouter router;
    // No cycle ends during the test: only the stop stores.
    router.setCycleMs(600000);
    router.setQueueLimit(3);
    startWatchingA(router);
    QUdpSocket sender;
    for (int i = 0; i < 10; ++i)
        sender.writeDatagram(
            auditLine(QStringLiteral("unlinkat|ok|/srv/share/a/%1").arg(i)).toUtf8(),
            QHostAddress::LocalHost, router.port());
    ASSERT_TRUE(spinUntil([&] { return router.droppedRecords() == 7; }));
    EXPECT_EQ(router.pendingRecords(), 3);
    router.stop();
    EXPECT_EQ(query(QStringLiteral("SELECT aud_filepath FROM t_smbaudit_log")).size(), 3);
}

TEST_F(SmbAuditCollectTest, StorageDirMustExistToBeUsed)
{
    const QString elsewhere = file(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir().mkpath(elsewhere));
    const QString defaultFile = file(QStringLiteral("orvo/etc/samba/smbaudit.db"));
    const QString missing = file(QStringLiteral("missing"));
    for (const auto& [dir, expected] :
         {std::pair{missing, defaultFile},
          std::pair{elsewhere, elsewhere + QStringLiteral("/smbaudit.db")}}) {
        QFile::remove(defaultFile);
        ASSERT_TRUE(QDir().mkpath(file(QStringLiteral("orvo/etc/samba"))));
        QFile config(file(QStringLiteral("orvo/etc/samba/smbaudit.json")));
        ASSERT_TRUE(config.open(QIODevice::WriteOnly));
        config.write(QStringLiteral("{\"storagedir\": \"%1\"}").arg(dir).toUtf8());
        config.close();

        SmbAuditRouter router;
        ASSERT_NE(router.start(0), 0);
        // A structured binding cannot be captured before C++20.
        const QString want = expected;
        EXPECT_TRUE(spinUntil([&] { return QFile::exists(want); })) << want.toStdString();
        router.stop();
    }
    EXPECT_FALSE(QFile::exists(defaultFile))
        << "the default file was made beside the configured one";
}
