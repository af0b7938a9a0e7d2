#include "routers/lvmrouter.h"

#include "gx2/gx2workers.h"
#include "tests/support/processes.h"
#include "tests/support/scriptedbackend.h"
#include "vx/vxlvm.h"

#include <QDir>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <condition_variable>

namespace {

const char kVolumes[] =
    "/usr/bin/sudo lvs --noheading --separator : -o vg_name,lv_name,lv_path,lv_dm_path";
const char kDetail[] = "-o vg_name,vg_free,lv_name,lv_path";

// Holds the calls whose line contains held until released. It sits in front
// of the scripted answers, which answer under one lock.
class Gate : public LNX2ProcBackend
{
public:
    explicit Gate(const QString& held) : held(held), next(setProcBackend(this)) {}
    ~Gate() override { setProcBackend(next); }

    LNX2ProcResult run(const LNX2ProcRequest& request) override
    {
        std::unique_lock<std::mutex> guard(lock);
        if (ScriptedBackend::lineOf(request).contains(held))
            opened.wait_for(guard, std::chrono::seconds(30), [this] { return open; });
        guard.unlock();
        return next->run(request);
    }
    void release()
    {
        std::lock_guard<std::mutex> guard(lock);
        open = true;
        opened.notify_all();
    }

private:
    QString held;
    LNX2ProcBackend* next;
    std::mutex lock;
    std::condition_variable opened;
    bool open = false;
};

QJsonObject volume(const QString& lv, const QJsonObject& more = {})
{
    QJsonObject params{{"vg", "vg0"},   {"lv", lv},        {"mbsize", 256},
                       {"type", "lvm"}, {"fstype", "xfs"}, {"block", 4096}};
    for (auto it = more.begin(); it != more.end(); ++it)
        params.insert(it.key(), it.value());
    return params;
}

class LvmRouterTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
        tools.expectLine(kVolumes)
            .prints("  vg0:plain:/dev/vg0/plain:/dev/mapper/vg0-plain\n"
                    "  vg0:other:/dev/vg0/other:/dev/mapper/vg0-other\n")
            .repeatedly();
    }
    void TearDown() override
    {
        gate.release();
        EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty());
        GX2Workers::resetForTests();
        qunsetenv("NASBROLT_ROOT");
    }

    GX2RpcPacket send(const QString& cmd, const QJsonObject& params)
    {
        GX2RpcPacket response;
        EXPECT_TRUE(router.doSlot(response, QJsonObject{{"cmd", cmd}, {"params", params}}));
        if (response.isDeferred() && !response.deferred().wait(response, 20000))
            return GX2RpcPacket::ofErr(-1);
        return response;
    }
    int create(const QJsonObject& params)
    {
        return send("lvm_creating", params).value("err").toInt(-1);
    }
    QJsonObject progress(const QString& lv)
    {
        const GX2RpcPacket answer = send("lvm_formating", {{"vg", "vg0"}, {"lv", lv}});
        EXPECT_EQ(answer.value("err"), 0);
        return answer.value("results").toObject();
    }
    int count(const QString& part) const { return tools.callLines().filter(part).size(); }
    void settle() { EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty()); }

    QTemporaryDir root;
    ScriptedBackend tools;
    Gate gate{"--addtag"};
    LvmRouter router;
};

TEST_F(LvmRouterTest, AnswersOnceCreatedThenFormatsAndMountsOnAWorker)
{
    tools.expectLine("/usr/bin/sudo lvcreate -y -L 256 -n plain vg0");
    tools.expectLine("/usr/bin/sudo lvcreate -y -L 256 -n other vg0");
    tools.expectLine("ps -ef").prints("root 812 790 3 10:02 ? 00:00:01 /sbin/mkfs.xfs -f "
                                      "/dev/vg0/plain\n");
    tools
        .expectLine(QString("/usr/bin/sudo lvs --noheading --separator : ") + kDetail +
                    ",lv_dm_path,lv_size,lv_attr,lv_tags --units b /dev/vg0/plain")
        .prints("  vg0:0B:plain:/dev/vg0/plain:/dev/mapper/vg0-plain:268435456B:-wi-a-----:\n")
        .repeatedly();
    tools.allowOthers();
    ASSERT_TRUE(QDir().mkpath(root.path() + "/mnt/vg0/plain"));

    // Answered while the worker cannot end: it is held at the tag, after formatting.
    EXPECT_EQ(create(volume("plain")), kLvmOk);
    EXPECT_EQ(progress("plain"), (QJsonObject{{"creating", 1}, {"formating", 1}, {"mounted", 0}}));
    EXPECT_EQ(create(volume("plain")), kLvmNotFound);
    EXPECT_EQ(create(volume("other")), kLvmOk);
    EXPECT_EQ(count("lvcreate"), 2);

    gate.release();
    settle();
    const QStringList lines = tools.callLines();
    const int tag = lines.indexOf("/usr/bin/sudo lvchange -y /dev/vg0/plain --addtag xfs");
    ASSERT_GE(tag, 0);
    const QStringList mounts = lines.mid(tag).filter("/usr/bin/sudo /bin/mount ");
    ASSERT_EQ(mounts.size(), 1) << lines.join('\n').toStdString();
    EXPECT_TRUE(mounts.first().endsWith(" /dev/vg0/plain /mnt/vg0/plain"))
        << mounts.first().toStdString();

    tools.expectLine("sudo df -l --block=1 --output=source,size,used,avail /dev/vg0/plain")
        .prints(
            "Filesystem 1B-blocks Used Avail\n/dev/mapper/vg0-plain 268435456 6062080 183500800\n");
    EXPECT_EQ(QJsonDocument(progress("plain")).toJson(QJsonDocument::Compact),
              R"({"avail":183500800,"creating":0,"formating":0,"mounted":1,"size":268435456,)"
              R"("used":6062080})");
}

TEST_F(LvmRouterTest, FailedCreateOrQuitFreesTheName)
{
    gate.release();
    tools.expectLine("/usr/bin/sudo lvcreate -y -L 256 -n plain vg0").exits(5);
    tools.expectLine("/usr/bin/sudo lvcreate -y -l 100%FREE -n plain vg0");
    tools.allowOthers();
    EXPECT_EQ(create(volume("plain")), kLvmCreateFailed);
    EXPECT_EQ(create(volume("plain", {{"mbsize", 0}})), kLvmOk);
    settle();
    EXPECT_EQ(count("--addtag"), 1);

    // A worker refused by a quit answers 9969 and leaves nothing taken.
    GX2Workers::requestStop();
    EXPECT_EQ(create(volume("other")), kLvmCreateFailed);
    GX2Workers::resetForTests();
    EXPECT_EQ(create(volume("other")), kLvmOk);
    EXPECT_EQ(count("lvcreate"), 3);
}

TEST_F(LvmRouterTest, RefusedNamesAndPasswordsRunNothingAndTakeNoName)
{
    const std::pair<QJsonObject, int> refused[] = {
        {volume("plain", {{"vg", "a b"}}), 9969},
        {volume("-x"), 9969},
        {volume(".."), 9969},
        {volume(QString(128, 'a')), 9969},
        {QJsonObject{{"lv", "plain"}}, 9969},
        {volume("plain", {{"pwd", "$(reboot)"}}), 9995},
        {volume("plain", {{"pwd", "-x"}}), 9995},
        {volume("plain", {{"pwd", QString(513, 'a')}}), 9995},
    };
    for (const auto& [params, err] : refused) {
        const GX2RpcPacket answer = send("lvm_creating", params);
        EXPECT_EQ(answer.value("err"), err);
        EXPECT_EQ(answer.contains("errmsg"), err == 9995);
    }
    EXPECT_EQ(tools.callLines(), QStringList());
    gate.release();
    tools.allowOthers();
    EXPECT_EQ(create(volume("plain", {{"pwd", "中文密码"}})), kLvmOk);
}

TEST_F(LvmRouterTest, KeyKeptOnlyWhenAskedAndAFailedSaveSkipsTheMount)
{
    gate.release();
    tools.allowOthers();
    const QString keys = root.path() + "/orvo/etc/cryptlvm";
    ASSERT_TRUE(QDir().mkpath(keys)); // the scripted mkdir makes nothing
    EXPECT_EQ(create(volume("plain", {{"pwd", "中文密码"}, {"savepwd", 1}})), kLvmOk);
    EXPECT_EQ(create(volume("other", {{"pwd", "pw2"}, {"savepwd", 0}})), kLvmOk);
    settle();
    EXPECT_EQ(readFile(keys + "/lvm.vg0-plain_crypt.pass"), QByteArray("中文密码"));
    EXPECT_FALSE(QFile::exists(keys + "/lvm.vg0-other_crypt.pass"));
    EXPECT_EQ(count(kDetail), 2); // both went on to the mount

    ASSERT_TRUE(QDir(keys).removeRecursively());
    ASSERT_TRUE(QFile(keys).open(QIODevice::WriteOnly)); // no key directory possible
    EXPECT_EQ(create(volume("plain", {{"pwd", "pw3"}, {"savepwd", 1}})), kLvmOk);
    settle();
    EXPECT_EQ(count("luksOpen /dev/vg0/plain vg0-plain_crypt"), 2);
    EXPECT_EQ(count(kDetail), 2);
}

} // namespace
