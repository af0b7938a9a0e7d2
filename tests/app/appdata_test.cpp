#include "app/appdata.h"
#include "gx2/gx2uuid.h"

#include "tests/support/scriptedbackend.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

void put(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

QByteArray get(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

TEST(MachineId, FoldIsKeptExactly)
{
    // '0' is 48: base 36 "1c".
    EXPECT_EQ(GX2Uuid(QStringLiteral("0")), QStringLiteral("1c"));
    // Braces and dashes are dropped before folding.
    EXPECT_EQ(GX2Uuid(QStringLiteral("{0-}")), QStringLiteral("1c"));
    // "ab": 97 * 10 + 98 = 1068 = "to" in base 36.
    EXPECT_EQ(GX2Uuid(QStringLiteral("ab")), QStringLiteral("to"));
    // Bytes above 0x7f count as negative; "é" is C3 A9: (-61) * 10 + (-87) wraps.
    const quint64 h = quint64(-61) * 10 + quint64(-87);
    EXPECT_EQ(GX2Uuid(QStringLiteral("é")), QString::number(h, 36));
    EXPECT_TRUE(GX2Uuid(QStringLiteral("{-}")).isEmpty());

    const QString a = GX2Uuid(QString());
    const QString b = GX2Uuid(QString());
    EXPECT_NE(a, b);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[0-9a-z]{1,13}$")).match(a).hasMatch())
        << a.toStdString();
}

TEST(MachineId, CreatedOnceAndKeptByteForByte)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("etc/osuuid"));
    ScriptedBackend sb;
    // The privileged writer's sudo steps: let them do what sudo would.
    sb.allowOthers();

    ASSERT_TRUE(QDir().mkpath(dir.filePath(QStringLiteral("etc"))));
    put(path, "  \n\t");
    const QString made = AppData::loadOrCreateOsUuid(path);
    EXPECT_FALSE(made.isEmpty());
    EXPECT_EQ(get(path), made.toUtf8());
    EXPECT_TRUE(sb.callLines().contains(QStringLiteral("/usr/bin/sudo chmod 666 ") + path));

    put(path, "  kept-id\n");
    const int callsBefore = sb.calls().size();
    EXPECT_EQ(AppData::loadOrCreateOsUuid(path), QStringLiteral("kept-id"));
    EXPECT_EQ(get(path), QByteArray("  kept-id\n"));
    EXPECT_EQ(sb.calls().size(), callsBefore);
}

TEST(AppConfig, DebugFlagIsReadLeniently)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("nasbrolt.json"));
    const QDir config(dir.path());
    EXPECT_FALSE(AppData::readDebugFlag(config));
    for (const auto& [text, expected] : {std::pair<QByteArray, bool>{"{\"debug\": true}", true},
                                         {"{\"debug\": \"true\"}", true},
                                         {"{\"debug\": 1}", true},
                                         {"{\"debug\": \"no\"}", false},
                                         {"{}", false},
                                         {"{\"debug\": tru", false}}) {
        put(file, text);
        EXPECT_EQ(AppData::readDebugFlag(config), expected) << text.constData();
    }
}
