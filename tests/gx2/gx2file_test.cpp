#include "gx2/gx2file.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

// The calls made, one a line, each with its arguments joined by '|' so that a split path shows.
std::string calls(const ScriptedBackend& sb)
{
    QStringList lines;
    for (const LNX2ProcRequest& r : sb.calls())
        lines << r.program + '|' + r.arguments.join('|');
    return lines.join('\n').toStdString();
}

// The sudo calls that open a file's mode around the write and then set its owner.
std::string sudoCalls(QStringList steps, const QString& path, const QString& owner)
{
    steps << "chmod|777|" + path << "chmod|666|" + path << "chown|" + owner + '|' + path;
    return ("/usr/bin/sudo|" + steps.join("\n/usr/bin/sudo|")).toStdString();
}

} // namespace

TEST(Gx2File, SaveAndReadWholeFilesAndJson)
{
    QTemporaryDir root;
    const QString array = root.filePath("a b/c/a.json"); // directories are made
    EXPECT_TRUE(GX2File::saveBinary("[1,2] and a longer first content", array));
    EXPECT_TRUE(GX2File::saveBinary("[1,2]", array));
    EXPECT_EQ(GX2File::readAll(array), QByteArray("[1,2]"));
    EXPECT_FALSE(GX2File::saveBinary("x", root.path())); // a directory
    EXPECT_TRUE(GX2File::readAll(root.filePath("missing")).isEmpty());

    EXPECT_TRUE(GX2File::readJsonObject(array).isEmpty());
    EXPECT_EQ(GX2File::readJsonArray(array).size(), 2);
    // loadJson leaves the object alone for a broken file and empties it for an array.
    GX2File::saveBinary(R"({"debug":)", root.filePath("broken"));
    QJsonObject loaded{{"keep", true}};
    EXPECT_FALSE(GX2File::loadJson(loaded, root.filePath("broken")));
    EXPECT_TRUE(loaded.contains("keep"));
    EXPECT_TRUE(GX2File::loadJson(loaded, array));
    EXPECT_TRUE(loaded.isEmpty());
}

TEST(Gx2File, RemoveDirsEmptiesTreesButNotLinkTargets)
{
    QTemporaryDir root;
    const QString tree = root.filePath("tree");
    const QString precious = root.filePath("outside/precious");
    GX2File::saveBinary("h", tree + "/.hidden");
    GX2File::saveBinary("f", tree + "/sub/.deep/file");
    GX2File::saveBinary("p", precious);
    ASSERT_TRUE(QFile::link(root.filePath("outside"), tree + "/sub/link"));

    EXPECT_TRUE(GX2File::removeDirs(tree, false));
    EXPECT_TRUE(QDir(tree).exists());
    EXPECT_TRUE(QDir(tree).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    EXPECT_TRUE(QFile::exists(precious));

    EXPECT_TRUE(GX2File::removeDirs(tree, true));
    EXPECT_FALSE(QFile::exists(tree));
    EXPECT_FALSE(GX2File::removeDirs(precious, true)); // not a directory
    EXPECT_TRUE(QFile::exists(precious));
}

TEST(Gx2File, AutoRenameFindsTheFirstFreeNumber)
{
    QTemporaryDir root;
    const QString path = root.filePath("report.tar.gz");
    EXPECT_EQ(GX2File::autoRename(path), path);
    GX2File::saveBinary("1", path);
    GX2File::saveBinary("2", root.filePath("report.tar(2).gz"));
    EXPECT_EQ(GX2File::autoRename(path), root.filePath("report.tar(3).gz"));
}

// sudo is scripted. In the first round its "mkdir -p" really makes the directory; in
// the second it does nothing, the file cannot be opened, and mode and owner are still set.
TEST(Gx2WriteFile, NewFileInMissingDirectory)
{
    for (const bool dirMade : {true, false}) {
        QTemporaryDir root;
        const QString dir = root.filePath("etc dir/samba");
        const QString path = dir + "/smbaudit.json";
        const QJsonObject config{{"savedays", 30}};
        ScriptedBackend sb;
        sb.allowOthers();
        if (dirMade)
            sb.expectIf("sudo mkdir -p <dir>, made for real", [&](const LNX2ProcRequest& r) {
                return r.arguments.value(0) == "mkdir" && QDir().mkpath(dir);
            });

        EXPECT_EQ(writeFile(path, config), dirMade);
        EXPECT_EQ(calls(sb),
                  sudoCalls({"mkdir|-p|" + dir, "touch|" + path}, path, "www-data:www-data"));
        EXPECT_EQ(GX2File::readJsonObject(path), dirMade ? config : QJsonObject());
    }
}

TEST(Gx2WriteFile, ExistingFileKeepsItsOwner)
{
    const passwd* user = getpwnam("nobody");
    const group* grp = getgrnam("nogroup");
    if (!user || !grp || geteuid() != 0)
        GTEST_SKIP() << "needs root and the nobody:nogroup account";
    QTemporaryDir root;
    const QString path = root.filePath("fstab");
    GX2File::saveBinary("an older and much longer content\n", path);
    ASSERT_EQ(::chown(QFile::encodeName(path).constData(), user->pw_uid, grp->gr_gid), 0);

    ScriptedBackend sb;
    sb.allowOthers();
    EXPECT_TRUE(writeFile(path, QStringList{"# one", "two"}));
    EXPECT_EQ(calls(sb), sudoCalls({}, path, "nobody:nogroup"));
    EXPECT_EQ(GX2File::readAll(path), QByteArray("# one\ntwo"));
}
