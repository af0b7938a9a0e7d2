// Who may talk to the daemon, how much one request may be, and a command
// whose answer comes later.

#include "tests/app/daemonfixture.h"

#include <QFileInfo>
#include <QThread>

#include <csignal>
#include <grp.h>
#include <sys/stat.h>

namespace {

// An account that exists nowhere: not root, not in the socket's group.
constexpr int kOutsider = 4242;

gid_t groupId(const char* name)
{
    const group* g = ::getgrnam(name);
    return g ? g->gr_gid : gid_t(-1);
}

QByteArray header(quint32 jsonBytes)
{
    QByteArray h("\x00gx\x01\x01", 5);
    h.append(reinterpret_cast<const char*>(&jsonBytes), 4);
    h.append(QByteArray(4, '\0'));
    h.append(QByteArray(3, '\xff'));
    return h;
}

class DaemonSocketTest : public DaemonTest
{
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        ::signal(SIGPIPE, SIG_IGN);
        // Other accounts must reach the socket's directory to try.
        const QString parent = QFileInfo(base.path()).path();
        for (const QString& dir : {parent, path(QString()), path(QStringLiteral("tmp"))})
            ::chmod(QFile::encodeName(dir).constData(), 0755);
    }

    void configure(const QByteArray& json)
    {
        write(QStringLiteral("root/orvo/etc/quillo/nasbrolt.json"), json);
    }

    QByteArray log() const { return file(QStringLiteral("root/var/log/nasbrolt.log")); }
};

} // namespace

TEST_F(DaemonSocketTest, OnlyRootAndTheSocketGroupGetIn)
{
    const gid_t www = groupId("www-data");
    ASSERT_NE(www, gid_t(-1)) << "the default socket group is missing";
    startDaemon();

    // Listening starts root-only; the group and mode follow at once.
    struct stat st = {};
    EXPECT_TRUE(waitUntil(
        [&] {
            return ::stat(QFile::encodeName(socketPath()).constData(), &st) == 0 &&
                   st.st_gid == www;
        },
        5000));
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    EXPECT_EQ(st.st_uid, 0u);

    const QStringList working{QStringLiteral("system_working")};
    // The file's mode keeps an outsider out...
    const LNX2ProcResult outsider = ctlAs(kOutsider, QString(), QString(), working);
    EXPECT_EQ(outsider.exitCode, 3);
    EXPECT_TRUE(outsider.err.contains("permission denied")) << outsider.err.constData();
    // ...and one that gets past it is turned away by its credentials.
    const LNX2ProcResult overriding =
        ctlAs(kOutsider, QString(), QStringLiteral("+dac_override"), working);
    EXPECT_EQ(overriding.exitCode, 4) << overriding.err.constData();
    EXPECT_TRUE(waitUntil(
        [&] {
            return log().contains(
                QStringLiteral("refused a connection of uid %1 pid ").arg(kOutsider).toUtf8());
        },
        5000))
        << log().constData();
    // A member of the group by a supplementary group is served.
    const LNX2ProcResult member = ctlAs(kOutsider, QString::number(www), QString(), working);
    EXPECT_EQ(member.exitCode, 0) << member.err.constData();
    stopDaemon();
}

TEST_F(DaemonSocketTest, AStarOpensTheSocketToEveryone)
{
    configure("{\"socketgroup\": \"*\"}");
    startDaemon();
    struct stat st = {};
    ASSERT_EQ(::stat(QFile::encodeName(socketPath()).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777u);
    const LNX2ProcResult outsider =
        ctlAs(kOutsider, QString(), QString(), {QStringLiteral("system_working")});
    EXPECT_EQ(outsider.exitCode, 0) << outsider.err.constData();
    stopDaemon();
}

TEST_F(DaemonSocketTest, OversizedRequestsCloseOnlyTheirConnection)
{
    configure("{\"maxrequest\": 1048576}");
    startDaemon();
    RawClient other(socketPath());
    const QJsonObject working{{"cmd", "system_working"}};

    // Announcing 2 GiB is enough to be closed; nothing of it is awaited.
    RawClient announcing(socketPath());
    announcing.send(header(0x80000000u) + QByteArray(4096, 'x'));
    EXPECT_TRUE(announcing.closedWithin(5000));
    other.send(working);
    EXPECT_EQ(other.answer(5000), (QJsonObject{{"err", 0}}));

    // Bytes that never form a datagram are closed once past the limit.
    RawClient streaming(socketPath());
    const QByteArray chunk(64 * 1024, 'y');
    for (int i = 0; i < 40 && streaming.connected(); ++i)
        streaming.send(chunk);
    EXPECT_TRUE(streaming.closedWithin(5000));
    other.send(working);
    EXPECT_EQ(other.answer(5000), (QJsonObject{{"err", 0}}));

    // At the limit a request is still served.
    RawClient large(socketPath());
    large.send(QJsonObject{{"cmd", "system_working"}, {"pad", QString(1000000, 'z')}});
    EXPECT_EQ(large.answer(5000), (QJsonObject{{"err", 0}}));

    EXPECT_TRUE(log().contains("a request announces more than 1048576 bytes")) << log().constData();
    EXPECT_TRUE(log().contains("bytes arrived without a whole request")) << log().constData();
    stopDaemon();
}

TEST_F(DaemonSocketTest, AWaitingCommandHoldsOnlyItsOwnConnection)
{
    // The CSV export links its file with "ln", held here until released.
    tool(QStringLiteral("ln"),
         "#!/bin/sh\nd=\"$(dirname \"$0\")\"\ntouch \"$d/ln.started\"\n"
         "n=0\nwhile [ ! -e \"$d/release\" ] && [ $n -lt 600 ]; do sleep 0.05; "
         "n=$((n+1)); done\nexec /bin/ln \"$@\"\n");
    startDaemon();
    ASSERT_EQ(ctl({QStringLiteral("smbaudit_dir_loadby")}).exitCode, 0);

    RawClient waiting(socketPath());
    waiting.send(QJsonObject{{"cmd", "smbaudit_log_saveas"},
                             {"seq", 1},
                             {"params", QJsonObject{{"language", "en"}, {"sadno", 0}}}});
    waiting.send(QJsonObject{{"cmd", "naslog_recent"}, {"seq", 2}});
    ASSERT_TRUE(
        waitUntil([&] { return QFile::exists(path(QStringLiteral("tools/ln.started"))); }, 20000));

    RawClient other(socketPath());
    other.send(QJsonObject{{"cmd", "system_working"}});
    EXPECT_EQ(other.answer(5000), (QJsonObject{{"err", 0}}));
    EXPECT_TRUE(waiting.answer(0).isEmpty()) << "answered before the export finished";

    write(QStringLiteral("tools/release"), "");
    const QJsonObject first = waiting.answer(10000);
    EXPECT_EQ(first.value("err").toInt(-1), 0);
    EXPECT_TRUE(
        first.value("results").toObject().value("path").toString().startsWith("/shares/smbaudit_"));
    const QJsonObject second = waiting.answer(10000);
    EXPECT_TRUE(second.contains("results")) << "the next request was not answered after the first";
    stopDaemon();
}
