// The nasbroltadm machinery: arguments, overloads, output, exit status.

#include "tools/adm/admtable.h"

#include "gx2/gx2workers.h"
#include "tests/support/processes.h"
#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <tuple>

namespace {

using T = AdmType;
using R = AdmResult;

// Says which form was called and what it got.
AdmEntry form(const QString& name, const QList<AdmParam>& inputs, const QStringList& outs,
              const QString& tag)
{
    return {name, inputs, outs, R::Value, [tag, outs](AdmCall& c) {
                for (const QString& out : outs)
                    c.out(out, out + QLatin1Char('!'));
                return QJsonValue(tag);
            }};
}

AdmEntry returning(const QString& name, R kind, const QJsonValue& value)
{
    return {name, {}, {"n"}, kind, [value](AdmCall& c) {
                c.out("n", 7);
                return value;
            }};
}

std::tuple<int, QByteArray, QByteArray> run(const QList<AdmEntry>& table, const QStringList& args)
{
    const AdmOutput o = admRun(args, table);
    return {o.status, o.out, o.err};
}

QByteArray usage(const char* message)
{
    return QByteArray("nasbroltadm: ") + message +
           "\nTry 'nasbroltadm --help' for more information.\n";
}

} // namespace

TEST(AdmArgs, JsonWhenItParsesAndTakenLenientlyByType)
{
    const QJsonValue unusable(QJsonValue::Undefined);
    // {word, type, value, or undefined when the word does not fit the type}
    const std::tuple<QString, AdmType, QJsonValue> cases[] = {
        {"/dev/sda", T::String, "/dev/sda"},
        {"\"a b\"", T::String, "a b"},
        {"1e3", T::String, "1e3"}, // the number as written
        {"01", T::String, "01"},   // not JSON
        {"1,2", T::String, "1,2"},
        {"", T::String, ""},
        {"[1]", T::String, unusable},
        {"4096", T::Int, 4096},
        {"\"512\"", T::Int, 512},
        {"1.5", T::Int, unusable},
        {"9999999999", T::Int, unusable},
        {"sda", T::Int, unusable},
        {"\"2.5\"", T::Double, 2.5},
        {"1", T::Bool, true},
        {"\"true\"", T::Bool, true},
        {"0", T::Bool, false},
        {"false", T::Bool, false},
        {"2", T::Bool, unusable},
        {"maybe", T::Bool, unusable},
        {R"({"name":"sda"})", T::Object, QJsonObject{{"name", "sda"}}},
        {"sda", T::Object, unusable},
        {"[\"a\",1]", T::StringList, QJsonArray{"a", "1"}},
        {"sda", T::StringList, QJsonArray{"sda"}},
        {"[[1]]", T::StringList, unusable},
    };
    for (const auto& [word, type, expected] : cases) {
        QJsonValue value(QJsonValue::Undefined);
        const bool ok = admConvert(admParseArg(word), word, type, value);
        EXPECT_EQ(ok, !expected.isUndefined()) << qPrintable(word);
        if (ok) {
            EXPECT_EQ(value, expected) << qPrintable(word);
        }
    }
}

TEST(AdmOverloads, CountThenJsonTypeThenMoreOutParameters)
{
    const QList<AdmEntry> forms{
        form("T::pick", {{"item", T::String}}, {}, "single"),
        form("T::pick", {{"items", T::StringList}}, {}, "list"),
        form("T::pick", {{"a", T::String}, {"n", T::Int}}, {}, "two"),
        form("T::make", {{"fs", T::String}}, {}, "plain"),
        form("T::make", {{"fs", T::String}}, {"error"}, "with error"),
    };
    // The choice must not depend on the order of registration.
    for (const QList<AdmEntry>& table : {forms, QList<AdmEntry>{forms.crbegin(), forms.crend()}}) {
        const std::tuple<QStringList, QByteArray> cases[] = {
            {{"-r", "T::pick", "sda"}, R"({"result":"single"})"},
            {{"-r", "T::pick", "5"}, R"({"result":"single"})"},
            {{"-r", "T::pick", R"(["sda","sdb"])"}, R"({"result":"list"})"},
            {{"-r", "T::pick", "sda", "\"5\""}, R"({"result":"two"})"},
            {{"-r", "T::make", "ext4"}, R"({"error":"error!","result":"with error"})"},
        };
        for (const auto& [args, out] : cases)
            EXPECT_EQ(run(table, args), std::make_tuple(0, out + '\n', QByteArray()))
                << qPrintable(args.join(' '));
    }
    EXPECT_EQ(run(forms, {"T::pick"}),
              std::make_tuple(2, QByteArray(),
                              usage("T::pick takes 1 argument (item) or 1 argument (items) or 2 "
                                    "arguments (a n), 0 given")));
    EXPECT_EQ(run(forms, {"T::pick", "a", "b"}),
              std::make_tuple(2, QByteArray(), usage("T::pick: n must be an integer, not 'b'")));

    // The real two forms of create take the same inputs.
    ScriptedBackend tools;
    LNX2ProcResult failing = ScriptedBackend::succeeded();
    failing.exitCode = 1;
    failing.err = "no such device\n";
    tools.allowOthers(failing);
    const AdmOutput made = admRun({"VXFileSystem::create", "ext4", "/dev/sdb", "0"}, admEntries());
    const QJsonObject printed = QJsonDocument::fromJson(made.out).object();
    EXPECT_EQ(printed.keys(), (QStringList{"error", "result"}));
    EXPECT_EQ(printed.value("result"), false);
    EXPECT_EQ(made.status, 1);
    EXPECT_EQ(run(admEntries(), {"VXFileSystem::create", "ext4", "/dev/sdb", "0", "1"}),
              std::make_tuple(2, QByteArray(),
                              usage("VXFileSystem::create takes 3 arguments (fs dev blockSize), "
                                    "4 given")));
}

TEST(AdmOutput, OneObjectWithTheResultAndOutParametersAndItsExitStatus)
{
    const QList<AdmEntry> table{
        returning("T::none", R::None, admVoid()), returning("T::yes", R::Bool, true),
        returning("T::no", R::Bool, false),       returning("T::code0", R::Code, 0),
        returning("T::code3", R::Code, 3),        returning("T::count", R::Value, 0),
        returning("T::empty", R::Value, ""),      returning("T::list", R::Value, QJsonArray{"a"}),
    };
    const std::tuple<const char*, int, QByteArray> cases[] = {
        {"T::none", 0, R"({"n":7})"},
        {"T::yes", 0, R"({"n":7,"result":true})"},
        {"T::no", 1, R"({"n":7,"result":false})"},
        {"T::code0", 0, R"({"n":7,"result":0})"},
        {"T::code3", 1, R"({"n":7,"result":3})"},
        {"T::count", 0, R"({"n":7,"result":0})"},
        {"T::empty", 0, R"({"n":7,"result":""})"},
    };
    for (const auto& [name, status, out] : cases) {
        // A failed code is told on stderr, with no meaning for an unknown class.
        const QByteArray err = name == QByteArray("T::code3") ? "nasbroltadm: error 3\n" : "";
        EXPECT_EQ(run(table, {"-r", name}), std::make_tuple(status, out + '\n', err)) << name;
    }
    EXPECT_EQ(run(table, {"T::list"}),
              std::make_tuple(0,
                              QByteArray("{\n    \"n\": 7,\n    \"result\": [\n        \"a\"\n"
                                         "    ]\n}\n"),
                              QByteArray()));

    // Library functions run against recorded tool output.
    ScriptedBackend tools;
    tools.allowOthers(
        ScriptedBackend::succeeded(readToolOutput("storage/health/sata/parted-print-sdc.txt")));
    EXPECT_EQ(run(admEntries(), {"-r", "VXDisk::fstype", "/dev/sdb"}),
              std::make_tuple(0, QByteArray("{\"result\":\"xfs\"}\n"), QByteArray()));
}

TEST(AdmOutput, WaitsForTheThreadsTheCallStarted)
{
    auto done = std::make_shared<std::atomic<bool>>(false);
    const auto starting = [done](int ms) {
        return AdmEntry{"T::start", {}, {}, R::Bool, [done, ms](AdmCall&) {
                            return GX2Workers::start("adm test", [done, ms] {
                                GX2Workers::sleepFor(ms);
                                *done = true;
                            });
                        }};
    };
    EXPECT_EQ(std::get<0>(run({starting(300)}, {"T::start"})), 0);
    EXPECT_TRUE(*done);

    *done = false;
    const AdmOutput cut = admRun({"T::start"}, {starting(300)}, 0);
    EXPECT_EQ(std::make_tuple(cut.status, cut.err),
              std::make_tuple(1, QByteArray("nasbroltadm: still running after 0 ms: adm test\n")));
    // The abandoned thread still ends before the test does.
    EXPECT_TRUE(waitUntil([&] { return done->load(); }, 10000));
}

TEST(AdmUsage, ListsFunctionsAndRefusesWrongCommandLines)
{
    const auto [status, out, err] = run(admEntries(), {"--list"});
    const QStringList lines = QString::fromUtf8(out).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(std::make_tuple(status, err), std::make_tuple(0, QByteArray()));
    for (const char* line :
         {"VXDisk::allist", "VXDisk::temperature dev",
          "VXDisk::alload withSystem withUsb withUsed withCdrom", "VXDisk::wipefs dev background",
          "VXDiskPrivate::devTypes entry", "VXFileSystem::lastError"})
        EXPECT_TRUE(lines.contains(line)) << line;
    EXPECT_EQ(lines.count("VXFileSystem::create fs dev blockSize"), 1);

    // Out-parameters carry the names the headers give them.
    QSet<QString> outs;
    for (const AdmEntry& entry : admEntries())
        outs += QSet<QString>(entry.outs.cbegin(), entry.outs.cend());
    EXPECT_EQ(outs, (QSet<QString>{
                        "rows",   "celsius",    "perDisk",  "min", "max",     "speeds",  "serial",
                        "vendor", "mountpoint", "raid",     "lvm", "mounted", "system",  "crypt",
                        "cdrom",  "error",      "disks",    "out", "md",      "devs",    "part",
                        "msg",    "dmPath",     "vg",       "lv",  "pwd",     "obj",     "size",
                        "used",   "avail",      "dir",      "dev", "cpu",     "process", "memory",
                        "nics",   "readall",    "writeall", "row", "version", "state",   "current",
                        "list"}));

    const std::tuple<QStringList, QByteArray> refused[] = {
        {{"VXDisk::Allist"},
         usage("unknown function 'VXDisk::Allist'; did you mean "
               "'VXDisk::allist'?")},
        {{"VXDisk::nothing"}, usage("unknown function 'VXDisk::nothing'")},
        {{"VXDisk::fstype"}, usage("VXDisk::fstype takes 1 argument (dev), 0 given")},
        {{"-x", "VXDisk::allist"}, usage("unknown option '-x'")},
        {{"-r"}, usage("no function given")},
    };
    for (const auto& [args, message] : refused)
        EXPECT_EQ(run(admEntries(), args), std::make_tuple(2, QByteArray(), message))
            << qPrintable(args.join(' '));
}

TEST(AdmUsage, ListsArrayFunctionsTheGuestDoesNotCall)
{
    const QStringList lines =
        QString::fromUtf8(admRun({"--list"}, admEntries()).out).split('\n', Qt::SkipEmptyParts);
    // Those the guest scripts call fail there when missing from the table.
    for (const char* line :
         {"VXRaid::names", "VXRaid::removes md", "VXRaid::repair md", "VXRaid::active md",
          "VXRaid::writeConfig", "VXRaid::waitForWriteConfig msecs",
          "VXRaid::setLimitSpeeds max min", "VXRaidPrivate::acquit md",
          "VXRaidPrivate::acquit md inventory", "VXRaidPrivate::loadDevs record key",
          "VXRaidPrivate::createPart disk waitMs"})
        EXPECT_TRUE(lines.contains(line)) << line;

    // The out-parameters come back under their own names; a refused level
    // runs no tool.
    ScriptedBackend tools;
    tools.allowOthers(ScriptedBackend::succeeded());
    const AdmOutput refused =
        admRun({"VXRaid::create", "7", R"(["/dev/sdb","/dev/sdc"])", "[]", "64"}, admEntries());
    const QJsonObject printed = QJsonDocument::fromJson(refused.out).object();
    EXPECT_EQ(printed.keys(), (QStringList{"error", "md", "result"}));
    EXPECT_EQ(std::make_tuple(refused.status, printed.value("result").toInt(), refused.err),
              std::make_tuple(1, 9995,
                              QByteArray("nasbroltadm: error 9995: level or disk count not "
                                         "allowed\n")));
    EXPECT_EQ(tools.callLines(), QStringList());
}

TEST(AdmUsage, ListsEveryVolumeFunctionWithItsInputs)
{
    const QStringList lines =
        QString::fromUtf8(admRun({"--list"}, admEntries()).out).split('\n', Qt::SkipEmptyParts);
    // Overloads and long input lists, as scripts call them.
    for (const char* line :
         {"VXLvm::lvRemove dev", "VXLvm::lvRemove vg lv", "VXLvm::toMountPath dev",
          "VXLvm::toMountPath vg lv", "VXLvm::lvMounted path",
          "VXLvm::lvCreating vg lv mbsize type fstype block pwd savepwd",
          "VXLvmPrivate::fstabAppend source target fstype options freq passno"})
        EXPECT_TRUE(lines.contains(line)) << line;

    // Out-parameters under their own names; a refused name or password runs no tool.
    ScriptedBackend tools;
    tools.allowOthers(ScriptedBackend::succeeded());
    const AdmOutput load = admRun({"VXLvm::lvLoadPwd", "vg0", "a b"}, admEntries());
    const QJsonObject printed = QJsonDocument::fromJson(load.out).object();
    EXPECT_EQ(printed.keys(), (QStringList{"msg", "pwd", "result"}));
    EXPECT_EQ(std::make_tuple(load.status, printed.value("result").toInt(), load.err),
              std::make_tuple(1, 9995,
                              QByteArray("nasbroltadm: error 9995: a volume only grows; or a "
                                         "refused name or password\n")));
    const AdmOutput format =
        admRun({"-r", "VXLvm::lvFormat", "vg0", "data", "xfs", "0", "$(reboot)"}, admEntries());
    EXPECT_EQ(std::make_tuple(format.status, format.out),
              std::make_tuple(1, QByteArray("{\"msg\":\"参数错误\",\"result\":false}\n")));
    EXPECT_EQ(tools.callLines(), QStringList());
}

TEST(AdmBinary, CallsTheLibraryThroughTheSubstituteTools)
{
    QTemporaryDir base;
    ASSERT_TRUE(base.isValid());
    const QString tools = base.path() + "/tools";
    ASSERT_TRUE(QDir().mkpath(tools) && writeSubstituteTools(tools));
    QFile lsblk(tools + "/lsblk");
    ASSERT_TRUE(lsblk.open(QIODevice::WriteOnly));
    lsblk.write("#!/bin/sh\ngrep -v '^#' '" +
                fixturePath("storage/health/sata/lsblk-lno-PATH-TYPE-sda.txt").toUtf8() + "'\n");
    lsblk.close();
    ASSERT_TRUE(lsblk.setPermissions(QFile::ReadOwner | QFile::ExeOwner));

    const QString adm = QStringLiteral(NASBROLT_BUILD_DIR "/nasbroltadm");
    const LNX2ProcResult parts =
        procRun(sandboxRequest(base.path(), adm, {"-r", "VXDisk::partsOf", "/dev/sda"}));
    EXPECT_EQ(std::make_tuple(parts.exitCode, parts.out, parts.err),
              std::make_tuple(0, QByteArray("{\"result\":[\"/dev/sda1\"]}\n"), QByteArray()));
    EXPECT_EQ(readFile(tools + "/sudo.log"), "lsblk -lno PATH,TYPE /dev/sda\n");

    const LNX2ProcResult wrong = procRun(sandboxRequest(base.path(), adm, {"VXDisk::partsOf"}));
    EXPECT_EQ(std::make_tuple(wrong.exitCode, wrong.out), std::make_tuple(2, QByteArray()));
}
