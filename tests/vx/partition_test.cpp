#include "vx/vxdisk.h"

#include "gx2/gx2workers.h"

#include "tests/support/scriptedbackend.h"

#include <gtest/gtest.h>

#include <future>

namespace {

// The command lines of the tools that change a disk, in call order; the
// inventory look-ups around them are answered by allowOthers.
QStringList writeLines(const ScriptedBackend& backend)
{
    QStringList lines;
    for (const LNX2ProcRequest& call : backend.calls()) {
        const QString tool = call.arguments.value(0);
        if (tool == "parted" || tool == "wipefs" || tool == "dd")
            lines << ScriptedBackend::lineOf(call);
    }
    return lines;
}

QStringList parted(const QString& dev, const QStringList& actions)
{
    QStringList lines;
    for (const QString& action : actions)
        lines << "/usr/bin/sudo parted -s " + dev + " " + action;
    return lines;
}

// Every call but those a test expects answers with an inventory of one
// free disk, so that the system-disk check lets the work go ahead.
void answerWithFreeDisk(ScriptedBackend& backend)
{
    backend.allowOthers(ScriptedBackend::succeeded(
        R"({"blockdevices": [{"name": "sdb", "path": "/dev/sdb", "type": "disk"}]})"));
}

const QString kWipe = QStringLiteral("/usr/bin/sudo wipefs -a /dev/sdb");
const QString kZero = QStringLiteral("/usr/bin/sudo dd if=/dev/zero of=/dev/sdb bs=512K count=20");

// Holds wipefs and dd until released, so that a test sees what happened
// before the background thread got to them.
class GatedBackend : public LNX2ProcBackend
{
public:
    explicit GatedBackend(LNX2ProcBackend& inner) : inner(inner), gate(open.get_future().share())
    {
        previous = setProcBackend(this);
    }
    ~GatedBackend() override
    {
        release();
        setProcBackend(previous);
    }
    void release()
    {
        if (!released) {
            released = true;
            open.set_value();
        }
    }
    LNX2ProcResult run(const LNX2ProcRequest& request) override
    {
        const QString tool = request.arguments.value(0);
        if (tool == "wipefs" || tool == "dd")
            gate.wait();
        return inner.run(request);
    }

private:
    LNX2ProcBackend& inner;
    LNX2ProcBackend* previous = nullptr;
    std::promise<void> open;
    std::shared_future<void> gate;
    bool released = false;
};

} // namespace

TEST(CreatePart, GptPartitionRaidFlagStoppingAtTheFirstFailure)
{
    const QStringList all{"mklabel gpt", "mkpart primary 0% 100%", "set 1 raid on"};
    for (int failing = 0; failing <= 3; ++failing) {
        ScriptedBackend backend;
        answerWithFreeDisk(backend);
        if (failing < 3)
            backend.expectLine(parted("/dev/sdb", {all.at(failing)}).first()).exits(1);
        EXPECT_EQ(VXDisk().createPart("/dev/sdb"), failing == 3);
        EXPECT_EQ(writeLines(backend), parted("/dev/sdb", all.mid(0, qMin(failing + 1, 3))));
        for (const LNX2ProcRequest& call : backend.calls()) {
            if (call.arguments.value(0) == "parted") {
                EXPECT_EQ(call.finishMs, 9999);
            }
        }
    }
}

TEST(RemovePart, DeletesPartitionOneAndWipesEvenWhenThatFailed)
{
    for (int failing = 0; failing <= 2; ++failing) {
        ScriptedBackend backend;
        answerWithFreeDisk(backend);
        if (failing == 0)
            backend.expectLine("/usr/bin/sudo parted -s /dev/sdb rm 1").exits(1);
        if (failing == 1)
            backend.expectLine(kWipe).exits(1);
        EXPECT_EQ(VXDisk().removePart("/dev/sdb"), failing == 2);
        EXPECT_EQ(writeLines(backend),
                  (QStringList{"/usr/bin/sudo parted -s /dev/sdb rm 1", kWipe}));
    }
}

TEST(Wipefs, ZeroesOnlyAfterASuccessfulWipeAndWaitsUnlessInBackground)
{
    {
        ScriptedBackend backend;
        answerWithFreeDisk(backend);
        backend.expectLine(kWipe).exits(1);
        EXPECT_FALSE(VXDisk().wipefs("/dev/sdb", false));
        EXPECT_EQ(writeLines(backend), QStringList{kWipe});
    }
    {
        ScriptedBackend backend;
        answerWithFreeDisk(backend);
        EXPECT_TRUE(VXDisk().wipefs("/dev/sdb", false));
        EXPECT_EQ(writeLines(backend), (QStringList{kWipe, kZero}));
        for (const LNX2ProcRequest& call : backend.calls()) {
            if (call.arguments.value(0) == "dd" || call.arguments.value(0) == "wipefs") {
                EXPECT_EQ(call.startMs, 999);
                EXPECT_EQ(call.finishMs, 9999);
            }
        }
    }
    ScriptedBackend backend;
    answerWithFreeDisk(backend);
    {
        GatedBackend gated(backend);
        EXPECT_TRUE(VXDisk().wipefs("/dev/sdb", true));
        EXPECT_TRUE(writeLines(backend).isEmpty()); // returned before the thread ran a tool
        gated.release();
        EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty());
    }
    EXPECT_EQ(writeLines(backend), (QStringList{kWipe, kZero}));
}

TEST(Partitions, SystemDiskIsNeverTouched)
{
    // sda holds the root file system; sdb is free.
    const QByteArray lsblk = R"({"blockdevices": [
        {"name": "sda", "pkname": null, "path": "/dev/sda", "type": "disk", "mountpoint": null},
        {"name": "sda2", "pkname": "sda", "path": "/dev/sda2", "type": "part", "mountpoint": "/"},
        {"name": "sdb", "pkname": null, "path": "/dev/sdb", "type": "disk", "mountpoint": null}]})";
    ScriptedBackend backend;
    backend.allowOthers();
    backend
        .expectIf("lsblk inventory",
                  [](const LNX2ProcRequest& r) {
                      return r.program == "lsblk" && r.arguments.join(' ').contains("parttypename");
                  })
        .prints(lsblk)
        .repeatedly();
    backend.expectLine("/usr/bin/sudo lsblk -ndpo pkname /dev/sda2")
        .prints("/dev/sda\n")
        .repeatedly();
    VXDisk disk;
    EXPECT_FALSE(disk.createPart("/dev/sda"));
    EXPECT_FALSE(disk.removePart("/dev/sda2"));
    EXPECT_FALSE(disk.wipefs("/dev/sda", false));
    EXPECT_FALSE(disk.wipefs("/dev/sda2", true));
    EXPECT_TRUE(writeLines(backend).isEmpty());
    EXPECT_TRUE(disk.createPart("/dev/sdb"));
    EXPECT_EQ(writeLines(backend).size(), 3);
}

TEST(Partitions, NothingRunsWhenTheInventoryCannotBeRead)
{
    ScriptedBackend backend;
    backend.allowOthers(); // lsblk prints nothing
    VXDisk disk;
    EXPECT_FALSE(disk.createPart("/dev/sdb"));
    EXPECT_FALSE(disk.removePart("/dev/sdb"));
    EXPECT_FALSE(disk.wipefs("/dev/sdb", true));
    EXPECT_TRUE(writeLines(backend).isEmpty());
}

TEST(DeviceArguments, NoToolRunsForAnythingButADevicePath)
{
    ScriptedBackend backend; // every call would be unexpected
    VXDisk disk;
    for (const char* bad :
         {"/dev/sda b", "-x", "/dev/../sda", "/dev/sd\"a", "/dev/sda\n", "sda", ""}) {
        QJsonArray rows;
        EXPECT_NE(disk.smartInfo(rows, bad), 0);
        EXPECT_TRUE(rows.isEmpty());
        double celsius = 7;
        EXPECT_FALSE(disk.temperature(celsius, bad));
        EXPECT_EQ(celsius, 7);
        EXPECT_FALSE(disk.createPart(bad));
        EXPECT_FALSE(disk.removePart(bad));
        EXPECT_FALSE(disk.wipefs(bad, false));
        EXPECT_FALSE(disk.wipefs(bad, true));
    }
    EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty());
    EXPECT_EQ(backend.callLines(), QStringList());
}
