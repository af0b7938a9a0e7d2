#include "app/appdata.h"
#include "gx2/gx2file.h"
#include "gx2/gx2uuid.h"

#include "tests/support/scriptedbackend.h"

#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(MachineId, FoldIsKeptExactly)
{
    const std::pair<const char*, QString> cases[] = {
        {"0", "1c"},    // '0' is 48: base 36 "1c"
        {"{0-}", "1c"}, // braces and dashes are dropped before folding
        {"ab", "to"},   // 97 * 10 + 98 = 1068
        // Bytes above 0x7f count as negative; "é" is C3 A9: (-61) * 10 + (-87) wraps.
        {"é", QString::number(quint64(-61) * 10 + quint64(-87), 36)},
        {"{-}", ""},
    };
    for (const auto& [text, folded] : cases)
        EXPECT_EQ(GX2Uuid(QString::fromUtf8(text)), folded) << text;

    const QString fresh = GX2Uuid(QString());
    EXPECT_NE(fresh, GX2Uuid(QString()));
    EXPECT_TRUE(QRegularExpression("^[0-9a-z]{1,13}$").match(fresh).hasMatch());
}

TEST(MachineId, CreatedOnceAndKeptByteForByte)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("etc/osuuid");
    ScriptedBackend sb;
    sb.allowOthers(); // the privileged writer's sudo steps: let them do what sudo would

    ASSERT_TRUE(GX2File::saveBinary("  \n\t", path));
    const QString made = AppData::loadOrCreateOsUuid(path);
    EXPECT_FALSE(made.isEmpty());
    EXPECT_EQ(GX2File::readAll(path), made.toUtf8());
    EXPECT_TRUE(sb.callLines().contains("/usr/bin/sudo chmod 666 " + path));

    ASSERT_TRUE(GX2File::saveBinary("  kept-id\n", path));
    const int callsBefore = sb.calls().size();
    EXPECT_EQ(AppData::loadOrCreateOsUuid(path), QStringLiteral("kept-id"));
    EXPECT_EQ(GX2File::readAll(path), QByteArray("  kept-id\n"));
    EXPECT_EQ(sb.calls().size(), callsBefore);
}

TEST(AppConfig, DebugFlagIsReadLeniently)
{
    QTemporaryDir dir;
    const QDir config(dir.path());
    EXPECT_FALSE(AppData::readDebugFlag(config));
    for (const auto& [text, expected] : {std::pair<QByteArray, bool>{"{\"debug\": true}", true},
                                         {"{\"debug\": \"true\"}", true},
                                         {"{\"debug\": 1}", true},
                                         {"{\"debug\": \"no\"}", false},
                                         {"{}", false},
                                         {"{\"debug\": tru", false}}) {
        ASSERT_TRUE(GX2File::saveBinary(text, dir.filePath("nasbrolt.json")));
        EXPECT_EQ(AppData::readDebugFlag(config), expected) << text.constData();
    }
}
