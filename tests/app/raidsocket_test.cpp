// The RAID router in the running daemon: refreshes in turn, waits answered
// later without holding up other connections.

#include "tests/app/daemonfixture.h"

namespace {

class RaidSocketTest : public DaemonTest
{
protected:
    int err(RawClient& client, const QJsonObject& request)
    {
        client.send(request);
        return client.answer(5000).value("err").toInt(-1);
    }
};

const QJsonObject kWrite{{"cmd", "raid_writeconfig"}};

QJsonObject waitFor(int timeout)
{
    return {{"cmd", "raid_writeconfig_waitfor"}, {"params", QJsonObject{{"timeout", timeout}}}};
}

} // namespace

TEST_F(RaidSocketTest, RefreshesRunInTurnWhileOtherConnectionsAreServed)
{
    // Held until the test creates "release", so that "in progress" is certain.
    const QByteArray log = path("update.log").toUtf8();
    tool("update-initramfs", "#!/bin/sh\necho \"start $$ $*\" >> " + log + "\ni=0\nwhile [ ! -e " +
                                 path("release").toUtf8() +
                                 " ] && [ $i -lt 600 ]; do sleep 0.05; i=$((i+1)); done\n"
                                 "sleep 0.5\necho \"end $$\" >> " +
                                 log + "\n");
    startDaemon();
    RawClient waiter(socketPath()), other(socketPath());
    ASSERT_TRUE(waiter.connected() && other.connected());

    EXPECT_EQ(err(waiter, waitFor(0)), 9992);
    // The library's notice spelling is no command of this daemon.
    EXPECT_EQ(err(waiter, {{"cmd", "raid_writeConfig"}}), 9972);
    EXPECT_EQ(err(waiter, kWrite), 0);
    EXPECT_EQ(err(waiter, kWrite), 0);
    EXPECT_EQ(err(waiter, waitFor(100)), 9998);

    waiter.send(waitFor(60000));
    other.send(QJsonObject{{"cmd", "raid_limit_speeds"}});
    const QJsonObject speeds = other.answer(5000);
    EXPECT_EQ(speeds.value("err"), 0);
    EXPECT_EQ(speeds.value("results"), (QJsonObject{{"max", 200000}, {"min", 1000}}));
    EXPECT_TRUE(waiter.answer(200).isEmpty());
    write("release", QByteArray());
    EXPECT_EQ(waiter.answer(30000).value("err"), 0);

    // Two runs, the second begun after the first ended.
    const QByteArray text = file("update.log");
    const QList<QByteArray> lines = text.split('\n');
    const QByteArray first = lines[0].split(' ').value(1),
                     second = lines.value(2).split(' ').value(1);
    EXPECT_NE(first, second);
    EXPECT_EQ(text.toStdString(), ("start " + first + " -u\nend " + first + "\nstart " + second +
                                   " -u\nend " + second + "\n")
                                      .toStdString());
    EXPECT_EQ(err(waiter, waitFor(0)), 9992);
    stopDaemon();
}
