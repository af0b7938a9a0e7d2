#include "routers/sysinfomodule.h"

#include "gx2/gx2brolt.h"
#include "gx2/gx2localserver.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include "tests/support/offloop.h"

#include <gtest/gtest.h>

namespace {

GX2RpcPacket dispatch(GX2TodoRouter& root, const QString& cmd, const QJsonObject& params = {})
{
    GX2RpcPacket request;
    request.insert(QStringLiteral("cmd"), cmd);
    if (!params.isEmpty())
        request.insert(QStringLiteral("params"), params);
    GX2RpcPacket response;
    root.doSlot(response, request);
    if (!response.isDeferred())
        return response;
    // Appends are stored by the module's own loop turn.
    GX2RpcPacket later;
    for (int i = 0; i < 1000 && !response.deferred().wait(later, 0); ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_FALSE(later.isEmpty()) << cmd.toStdString();
    return later;
}

QJsonArray records(GX2TodoRouter& root)
{
    return dispatch(root, QStringLiteral("naslog_recent"))
        .value(QStringLiteral("results"))
        .toObject()
        .value(QStringLiteral("records"))
        .toArray();
}

class SysInfoModuleTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QTemporaryDir root;
};

} // namespace

TEST_F(SysInfoModuleTest, AppendThenRecentNewestFirstAndSurvivesANewModule)
{
    {
        GX2LocalServer server;
        SysInfoModule module;
        server.add(&module);
        for (const char* text : {"first", "second"}) {
            const GX2RpcPacket answer =
                dispatch(server, QStringLiteral("naslog_append"),
                         {{QStringLiteral("level"), QStringLiteral("Information")},
                          {QStringLiteral("description"), QString::fromLatin1(text)}});
            EXPECT_EQ(answer, (QJsonObject{{QStringLiteral("err"), 0}}));
        }
        // Refused by the database (no level): the one failure code, pool unchanged.
        EXPECT_EQ(dispatch(server, QStringLiteral("naslog_append")).value(QStringLiteral("err")),
                  9990);
        const QJsonArray got = records(server);
        ASSERT_EQ(got.size(), 2);
        EXPECT_EQ(got[0].toObject().value(QStringLiteral("description")), QStringLiteral("second"));
    }
    // A new module (a restart) starts from what the database holds.
    SysInfoModule again;
    const QJsonArray reloaded = records(again);
    ASSERT_EQ(reloaded.size(), 2);
    EXPECT_EQ(reloaded[0].toObject().value(QStringLiteral("description")),
              QStringLiteral("second"));
    EXPECT_FALSE(reloaded[0].toObject().value(QStringLiteral("timestamp")).toString().isEmpty());
}

TEST_F(SysInfoModuleTest, WorkerThreadReachesTheRouterThroughTheSocket)
{
    GX2LocalServer server;
    SysInfoModule module;
    server.add(&module);
    ASSERT_TRUE(server.start(QString::fromLatin1(kBroltSocketName)));

    const bool added = offLoop([] {
        return naslogAdd(QStringLiteral("Warning"), QStringLiteral("raid"), QString(),
                         QStringLiteral("md0 degraded"), QStringLiteral("raid"), QString());
    });

    EXPECT_TRUE(added);
    const QJsonObject newest = records(module).first().toObject();
    EXPECT_EQ(newest.value(QStringLiteral("description")), QStringLiteral("md0 degraded"));
    EXPECT_EQ(newest.value(QStringLiteral("devicename")), QString());
}
