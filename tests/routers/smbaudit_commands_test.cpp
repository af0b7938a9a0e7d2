#include "routers/smbauditrouter.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2file.h"
#include "gx2/gx2utils.h"
#include "lnx2/lnx2process.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>

namespace {

// While set, a database move waits in "mv", so a test can act during it.
std::atomic<bool> holdMv{false};

// Runs every child process for real, holding "mv" as asked.
class HoldingBackend : public LNX2ProcBackend
{
public:
    HoldingBackend() : real(setProcBackend(this)) {}
    ~HoldingBackend() override { setProcBackend(real); }
    LNX2ProcResult run(const LNX2ProcRequest& request) override
    {
        LNX2ProcBackend* const runner = real; // outlives this object
        while (request.program == "mv" && holdMv)
            QThread::msleep(10);
        return runner->run(request);
    }

private:
    LNX2ProcBackend* real;
};

bool waitUntil(const std::function<bool()>& done)
{
    for (int step = 0; step < 1000 && !done(); ++step) {
        QCoreApplication::processEvents();
        QThread::msleep(10);
    }
    return done();
}

QJsonObject json(const QString& text)
{
    return toJsonValue(text.toUtf8()).toObject();
}

class SmbAuditCommandsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
        router = std::make_unique<SmbAuditRouter>();
        router->setCycleMs(300);
    }
    void TearDown() override
    {
        holdMv = false;
        router->stop();
        qunsetenv("NASBROLT_ROOT");
    }
    // The collector opens the database; the commands answer once it is open.
    void startCollector()
    {
        ASSERT_NE(router->start(0), 0);
        ASSERT_TRUE(waitUntil([&] { return err(ask("smbaudit_dir_loadby")) == kErrOk; }));
    }
    QJsonObject ask(const QString& cmd, const QJsonObject& params = {})
    {
        GX2RpcPacket response;
        EXPECT_TRUE(router->doSlot(response, QJsonObject{{"cmd", cmd}, {"params", params}}));
        if (!response.isDeferred())
            return response;
        GX2RpcPacket later;
        EXPECT_TRUE(response.deferred().wait(later, 20000)) << cmd.toStdString();
        return later;
    }
    static int err(const QJsonObject& answer) { return answer.value("err").toInt(-1); }
    static QJsonValue results(const QJsonObject& answer, const char* key)
    {
        return answer.value("results").toObject().value(key);
    }
    int count(int sadno)
    {
        return ask("smbaudit_log_loadby", {{"sadno", sadno}}).value("reccount").toInt(-1);
    }
    // Through a second connection, as the collector's batches arrive.
    void addLog(int sadno, const QString& file, int action = 8, const QString& explain = "")
    {
        GX2DBSqlite db;
        ASSERT_TRUE(db.openOnly(path("orvo/etc/samba/smbaudit.db")));
        ASSERT_TRUE(db.loadSqlEngine(":/res/smbaudit_engine.sql", false));
        QJsonObject row{
            {"sadno", sadno}, {"filepath", file}, {"action", action}, {"explain", explain}};
        jsonMerge(row, json(R"({"datetime": "2024-05-01 10:00:00", "user": "alice",
            "group": "users", "ipaddr": "192.168.1.5", "machine": "pc1", "sharename": "share"})"));
        int changes = 0, lastId = 0;
        ASSERT_TRUE(db.call(changes, lastId, "smbaudit_log_append", row));
    }
    QString path(const QString& relative) const { return root.filePath(relative); }

    QTemporaryDir root;
    std::unique_ptr<SmbAuditRouter> router;
};

} // namespace

TEST_F(SmbAuditCommandsTest, ClosedDatabaseAndStoppedCollector)
{
    for (const char* cmd :
         {"smbaudit_dir_loadby", "smbaudit_dir_append", "smbaudit_dir_remove", "smbaudit_dir_erase",
          "smbaudit_log_loadby", "smbaudit_log_remove", "smbaudit_log_saveas"})
        EXPECT_EQ(err(ask(cmd, json(R"({"dirs": ["/"], "sadnos": [1], "audnos": [1]})"))), 9908)
            << cmd;
    EXPECT_EQ(err(ask("smbaudit_log_export")), kErrNothing);

    QDir().mkpath(path("store"));
    EXPECT_EQ(err(ask("smbaudit_config_save", {{"storagedir", path("store/.")}, {"savedays", 7}})),
              9905);
    EXPECT_EQ(GX2File::readJsonObject(path("orvo/etc/samba/smbaudit.json")),
              (QJsonObject{{"storagedir", path("store")}, {"savedays", 7}}));
    ask("smbaudit_config_save", {{"storagedir", path("missing")}, {"savedays", "3"}});
    EXPECT_EQ(ask("smbaudit_config_load"),
              json(R"({"err": 0, "results": {"storagedir": "", "savedays": 3}})"));
}

TEST_F(SmbAuditCommandsTest, PagesNewestFirst)
{
    startCollector();
    EXPECT_EQ(ask("smbaudit_log_loadby", {{"page", 0}, {"ofpage", 0}}),
              json(R"({"err": 0, "reccount": 0, "page": 1, "ofpage": 10})"));
    for (int n = 1; n <= 12; ++n)
        addLog(1, QString("/srv/share/a/%1").arg(n));
    addLog(2, "/srv/share/b/x", 6, "/srv/share/c/x");

    const QJsonObject first = ask("smbaudit_log_loadby", {{"page", 0}, {"ofpage", 0}});
    EXPECT_EQ(first.value("reccount"), 13);
    ASSERT_EQ(results(first, "records").toArray().size(), 10);
    EXPECT_EQ(results(first, "records")[0],
              json(R"({"audno": 13, "sadno": 2, "datetime": "2024-05-01 10:00:00",
        "filepath": "/srv/share/b/x", "user": "alice", "group": "users", "ipaddr": "192.168.1.5",
        "machine": "pc1", "sharename": "share", "action": 6, "explain": "/srv/share/c/x"})"));
}

TEST_F(SmbAuditCommandsTest, WatchedDirectoriesAndTheirRecords)
{
    startCollector();
    const QString a = path("a"), b = path("b"), none = path("none");
    for (const QString& dir : {a, b})
        QDir().mkpath(dir);
    // The collector's filter sees a change at once.
    const auto watched = [&](const QString& file) {
        QJsonObject record;
        return router->take(record, "2024-05-01 10:00:00 nas smbd_audit: "
                                    "alice|users|192.168.1.5|pc1|/srv|share|unlinkat|ok|" +
                                        file);
    };
    const auto append = [&](const QStringList& dirs) {
        return ask("smbaudit_dir_append", {{"dirs", QJsonArray::fromStringList(dirs)}});
    };
    EXPECT_EQ(err(append({})), kErrBadParam);
    EXPECT_EQ(results(append({a}), "dirs"), (QJsonArray{QJsonObject{{"dir", a}, {"sadno", 1}}}));
    EXPECT_TRUE(watched(a + "/f"));
    EXPECT_EQ(err(append({a})), kErrExists);
    EXPECT_EQ(err(append({none})), kErrNothing);
    EXPECT_EQ(
        append({b, none}),
        json(QString(R"({"err": 0, "results": {"dirs": [{"dir": "%1", "sadno": 2}]}})").arg(b)));
    EXPECT_EQ(results(ask("smbaudit_dir_loadby"), "records").toArray().size(), 2);

    addLog(1, a + "/f");
    addLog(2, b + "/g");
    addLog(2, b + "/h");
    EXPECT_EQ(results(ask("smbaudit_dir_remove", json(R"({"sadnos": [1, 9]})")), "records"),
              QJsonArray{1});
    EXPECT_FALSE(watched(a + "/f"));
    EXPECT_TRUE(waitUntil([&] { return count(1) == 0; })); // cleaned on a detached thread
    EXPECT_EQ(err(ask("smbaudit_dir_remove", json(R"({"sadnos": [1]})"))), kErrNothing);

    EXPECT_EQ(results(ask("smbaudit_log_remove", json(R"({"audnos": [2, 99]})")), "records"),
              QJsonArray{2});
    EXPECT_EQ(err(ask("smbaudit_log_remove", json(R"({"audnos": [2]})"))), kErrNothing);
    EXPECT_EQ(count(2), 1);
    EXPECT_EQ(err(ask("smbaudit_dir_erase", json(R"({"sadnos": [2]})"))), kErrOk);
    EXPECT_EQ(count(2), 0);
    EXPECT_EQ(results(ask("smbaudit_dir_loadby"), "records").toArray().size(), 1);
}

TEST_F(SmbAuditCommandsTest, CsvExportInBothLanguages)
{
    startCollector();
    addLog(1, "/srv/share/报告 \"终稿\".docx", 5, "/srv/share/x.docx");
    addLog(1, "/srv/share/b", 3);
    const auto saveas = [&](const QString& language, const char* expected) {
        const QString web =
            results(ask("smbaudit_log_saveas", {{"language", language}}), "path").toString();
        ASSERT_TRUE(QRegularExpression("^/shares/smbaudit_\\d{14}\\.csv$").match(web).hasMatch());
        const QString file = path("tmp/" + web.mid(8)), link = path("orvo/shares/" + web.mid(8));
        EXPECT_EQ(GX2File::readAll(file), QByteArray(expected));
        EXPECT_EQ(QFileInfo(link).symLinkTarget(), file);
    };
    saveas(
        "zh_cn",
        R"("文件/文件夹","共享名","机器名","用户","用户组","IP","修改时间","操作","新文件名/文件夹"
"/srv/share/b","share","pc1","alice","users","192.168.1.5","2024-05-01 10:00:00","新建文件",""
"/srv/share/报告 ""终稿"".docx","share","pc1","alice","users","192.168.1.5","2024-05-01 10:00:00","重命名","/srv/share/x.docx")");
    saveas("English",
           R"("File/Folder","Sharename","Machine","User","Group","IP","Time","Operation","Explain"
"/srv/share/b","share","pc1","alice","users","192.168.1.5","2024-05-01 10:00:00","create",""
"/srv/share/报告 ""终稿"".docx","share","pc1","alice","users","192.168.1.5","2024-05-01 10:00:00","rename","/srv/share/x.docx")");
}

TEST_F(SmbAuditCommandsTest, ConfigSaveMovesTheDatabase)
{
    startCollector();
    addLog(1, "/srv/share/a");
    const QString store = path("store2"), moved = store + "/smbaudit.db";
    const QString config = path("orvo/etc/samba/smbaudit.json");
    QDir().mkpath(store);
    const QJsonObject save{{"storagedir", store}, {"savedays", 5}};
    HoldingBackend tools;
    EXPECT_EQ(results(ask("smbaudit_log_export"), "path"), "/shares/smbaudit.db");
    {
        // The download is the file alone; the write-ahead log went into it.
        const QString alone = path("alone.db");
        ASSERT_TRUE(QFile::copy(path("orvo/etc/samba/smbaudit.db"), alone));
        GX2DBSqlite copy;
        QJsonArray rows;
        int changes = 0, lastId = 0;
        ASSERT_TRUE(copy.openOnly(alone));
        copy.exec(changes, lastId, rows, "SELECT COUNT(*) AS n FROM t_smbaudit_log", {});
        EXPECT_EQ(rows.at(0).toObject().value("n").toInt(), 1);
    }
    holdMv = true;
    EXPECT_EQ(err(ask("smbaudit_config_save", save)), kErrOk);
    const QByteArray saved = GX2File::readAll(config);
    EXPECT_EQ(err(ask("smbaudit_config_save", {{"savedays", 1}})), kErrBusy);
    EXPECT_EQ(GX2File::readAll(config), saved);
    holdMv = false;

    // Saving the same place again moves nothing and answers 0 once the move is done.
    ASSERT_TRUE(waitUntil([&] { return err(ask("smbaudit_config_save", save)) == kErrOk; }));
    EXPECT_TRUE(QFile::exists(moved));
    EXPECT_FALSE(QFile::exists(path("orvo/etc/samba/smbaudit.db")));
    EXPECT_EQ(count(0), 1);
    EXPECT_EQ(results(ask("smbaudit_log_export"), "path"), "/shares/smbaudit.db");
    EXPECT_EQ(QFileInfo(path("orvo/shares/smbaudit.db")).symLinkTarget(), moved); // relinked
}
