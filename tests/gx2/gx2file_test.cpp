#include "gx2/gx2file.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo");
const QStringList kNewFileSteps{QStringLiteral("touch"), QStringLiteral("chmod 777"),
                                QStringLiteral("chmod 666"),
                                QStringLiteral("chown www-data:www-data")};

std::string s(const QString& text)
{
    return text.toStdString();
}

void put(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(data);
}

std::string lines(const ScriptedBackend& sb)
{
    return s(sb.callLines().join(QLatin1Char('\n')));
}

// The expected sudo lines: each of words gets "/usr/bin/sudo " before it and path after.
std::string sudoLines(const QStringList& words, const QString& path)
{
    QStringList expected;
    for (const QString& w : words)
        expected << kSudo + QLatin1Char(' ') + w + QLatin1Char(' ') + path;
    return s(expected.join(QLatin1Char('\n')));
}

} // namespace

TEST(Gx2File, WholeFileReadsAndWrites)
{
    QTemporaryDir root;
    EXPECT_TRUE(GX2File::readAll(root.filePath(QStringLiteral("missing"))).isEmpty());
    EXPECT_TRUE(GX2File::readAll(root.path()).isEmpty());

    const QString path = root.filePath(QStringLiteral("a/b c/d/value"));
    EXPECT_TRUE(GX2File::saveBinary("a longer first content", path));
    EXPECT_TRUE(GX2File::saveBinary("-3600", path));
    EXPECT_EQ(GX2File::readAll(path), QByteArray("-3600"));
    EXPECT_FALSE(GX2File::saveBinary("x", root.path())); // a directory
}

TEST(Gx2File, JsonReadersTellObjectsFromArrays)
{
    QTemporaryDir root;
    const QString object = root.filePath(QStringLiteral("o.json"));
    const QString array = root.filePath(QStringLiteral("a.json"));
    const QString broken = root.filePath(QStringLiteral("b.json"));
    put(object, R"({"debug":1})");
    put(array, R"([1,2])");
    put(broken, R"({"debug":)");

    EXPECT_EQ(GX2File::readJsonObject(object).value(QStringLiteral("debug")).toInt(), 1);
    EXPECT_TRUE(GX2File::readJsonObject(array).isEmpty());
    EXPECT_EQ(GX2File::readJsonArray(array).size(), 2);

    const QJsonObject before{{QStringLiteral("keep"), true}};
    QJsonObject loaded = before;
    EXPECT_FALSE(GX2File::loadJson(loaded, broken));
    EXPECT_FALSE(GX2File::loadJson(loaded, root.filePath(QStringLiteral("none"))));
    EXPECT_EQ(loaded, before);
    EXPECT_TRUE(GX2File::loadJson(loaded, array)); // parses, but holds no object
    EXPECT_TRUE(loaded.isEmpty());
}

TEST(Gx2File, LoadTextDecodesUtf8UnlessTold)
{
    QTemporaryDir root;
    const QString utf8 = root.filePath(QStringLiteral("u.pass"));
    const QString gbk = root.filePath(QStringLiteral("g.pass"));
    put(utf8, "\xe5\xaf\x86\xe9\x92\xa5\r\n");
    put(gbk, "\xc3\xdc\xd4\xbf");
    const QString word = QString::fromUtf8("\xe5\xaf\x86\xe9\x92\xa5");
    QString text;
    EXPECT_TRUE(GX2File::loadText(text, utf8));
    EXPECT_EQ(s(text), s(word + QLatin1Char('\n'))); // text mode drops the CR
    EXPECT_TRUE(GX2File::loadText(text, gbk, QStringLiteral("GBK")));
    EXPECT_EQ(s(text), s(word));
}

TEST(Gx2File, RemoveDirsEmptiesTreesButNotLinkTargets)
{
    QTemporaryDir root;
    const QString tree = root.filePath(QStringLiteral("tree"));
    const QString outside = root.filePath(QStringLiteral("outside"));
    put(tree + QStringLiteral("/.hidden"), "h");
    put(tree + QStringLiteral("/sub/.deep/file"), "f");
    put(outside + QStringLiteral("/precious"), "p");
    ASSERT_TRUE(QFile::link(outside, tree + QStringLiteral("/sub/link")));

    EXPECT_TRUE(GX2File::removeDirs(tree, false));
    EXPECT_TRUE(QFileInfo(tree).isDir());
    EXPECT_TRUE(QDir(tree).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    EXPECT_TRUE(QFile::exists(outside + QStringLiteral("/precious")));

    EXPECT_TRUE(GX2File::removeDirs(tree, true));
    EXPECT_FALSE(QFileInfo::exists(tree));
    EXPECT_FALSE(GX2File::removeDirs(tree, true));
    EXPECT_FALSE(GX2File::removeDirs(outside + QStringLiteral("/precious"), true));
    EXPECT_TRUE(QFile::exists(outside + QStringLiteral("/precious")));
}

TEST(Gx2File, AutoRenameFindsTheFirstFreeNumber)
{
    QTemporaryDir root;
    const QString path = root.filePath(QStringLiteral("report.tar.gz"));
    EXPECT_EQ(GX2File::autoRename(path), path);
    put(path, "1");
    put(root.filePath(QStringLiteral("report.tar(2).gz")), "2");
    EXPECT_EQ(s(GX2File::autoRename(path)), s(root.filePath(QStringLiteral("report.tar(3).gz"))));
}

TEST(Gx2WriteFile, NewFileInMissingDirectory)
{
    QTemporaryDir root;
    const QString dir = root.filePath(QStringLiteral("etc dir/samba"));
    const QString path = dir + QStringLiteral("/smbaudit.json");
    const QJsonObject config{{QStringLiteral("savedays"), 30}};
    ScriptedBackend sb;
    sb.expectIf(
        QStringLiteral("sudo mkdir -p <dir>, made for real"), [dir](const LNX2ProcRequest& r) {
            return r.program == kSudo &&
                   r.arguments == QStringList{QStringLiteral("mkdir"), QStringLiteral("-p"), dir} &&
                   QDir().mkpath(dir);
        });
    sb.expect(kSudo, {QStringLiteral("touch"), path});
    sb.expect(kSudo, {QStringLiteral("chmod"), QStringLiteral("777"), path});
    sb.expect(kSudo, {QStringLiteral("chmod"), QStringLiteral("666"), path});
    sb.expect(kSudo, {QStringLiteral("chown"), QStringLiteral("www-data:www-data"), path});

    EXPECT_TRUE(writeFile(path, config));
    EXPECT_EQ(lines(sb), s(kSudo + QStringLiteral(" mkdir -p ") + dir + QLatin1Char('\n')) +
                             sudoLines(kNewFileSteps, path));
    EXPECT_EQ(GX2File::readJsonObject(path), config);
}

TEST(Gx2WriteFile, ExistingFileKeepsItsOwner)
{
    const passwd* user = getpwnam("nobody");
    const group* grp = getgrnam("nogroup");
    if (!user || !grp || geteuid() != 0)
        GTEST_SKIP() << "needs root and the nobody:nogroup account";
    QTemporaryDir root;
    const QString path = root.filePath(QStringLiteral("fstab"));
    put(path, "an older and much longer content\n");
    ASSERT_EQ(::chown(QFile::encodeName(path).constData(), user->pw_uid, grp->gr_gid), 0);

    ScriptedBackend sb;
    sb.allowOthers();
    EXPECT_TRUE(writeFile(path, QStringList{QStringLiteral("# one"), QStringLiteral("two")}));
    EXPECT_EQ(lines(sb), sudoLines({QStringLiteral("chmod 777"), QStringLiteral("chmod 666"),
                                    QStringLiteral("chown nobody:nogroup")},
                                   path));
    EXPECT_EQ(GX2File::readAll(path), QByteArray("# one\ntwo"));
}

TEST(Gx2WriteFile, FailedOpenStillRestoresModeAndOwner)
{
    QTemporaryDir root;
    const QString dir = root.filePath(QStringLiteral("never"));
    const QString path = dir + QStringLiteral("/osuuid");
    ScriptedBackend sb;
    sb.allowOthers(); // this sudo does nothing, so the directory stays missing
    EXPECT_FALSE(writeFile(path, QStringLiteral("id")));
    EXPECT_EQ(lines(sb), s(kSudo + QStringLiteral(" mkdir -p ") + dir + QLatin1Char('\n')) +
                             sudoLines(kNewFileSteps, path));
}
