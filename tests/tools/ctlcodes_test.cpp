// The table of result codes, made from the constants' own lists.

#include "tools/ctlcodes.h"

#include "routers/routercodes.h"
#include "vx/vxlvm.h"
#include "vx/vxraid.h"

#include <QMap>
#include <QSet>

#include <gtest/gtest.h>

#include <tuple>

TEST(CtlCodes, EveryConstantHasAMeaningOnceInItsScope)
{
    const QList<CtlCode> table = codeTable();
    QSet<QString> seen;
    QMap<QString, int> byName; // the first scope's value of each constant
    int previous = -1;
    for (const CtlCode& c : table) {
        EXPECT_GT(qstrlen(c.meaning), 0u) << c.name;
        EXPECT_LE(previous, c.code) << "not sorted at " << c.name;
        previous = c.code;
        const QString key = QString::number(c.code) + ' ' + c.scope;
        EXPECT_FALSE(seen.contains(key)) << "two meanings for " << qPrintable(key);
        seen.insert(key);
        byName.insert(c.name, c.code);
        // The lookup finds each entry in its own scope.
        EXPECT_EQ(codeMeaning(c.code, QString(c.scope).remove('*')), c.meaning) << c.name;
    }
    // One constant of each list, with the value the code uses.
    const std::tuple<const char*, int> constants[] = {
        {"kErrWriteFailed", kErrWriteFailed},
        {"kErrNotOpen", kErrNotOpen},
        {"kErrNoChange", kErrNoChange},
        {"kRaidRepairFailed", kRaidRepairFailed},
        {"kLvmCreateFailed", kLvmCreateFailed},
        {"kLvmCachePlaceholderFailed", kLvmCachePlaceholderFailed},
    };
    for (const auto& [name, code] : constants)
        EXPECT_EQ(byName.value(name, -1), code) << name;
}

TEST(CtlCodes, ACommandsRouterComesFirstAndAClassKeepsToItsOwn)
{
    const std::tuple<int, const char*, QString> cases[] = {
        {9990, "naslog_append", "a write failed"},
        {9908, "smbaudit_log_loadby", "the audit database is not open"},
        {9994, "smbaudit_log_loadby", "nothing found or nothing to do"},
        {9972, "lvm_bogus", "unknown command"}, // the daemon's answer to any command
        {9994, "lvm_creating", "no such volume (or it is being created)"},
        {9908, "lvm_creating", ""}, // the cache's codes are not the router's
        {9908, "VXLvm", "lvconvert to a cache pool failed"},
        {9994, "VXRaid", "unknown array or unavailable disk"},
        {9972, "VXRaid", ""},
        {-1, "VXDisk", ""},
        {1234, "system_working", ""},
    };
    for (const auto& [code, scope, meaning] : cases)
        EXPECT_EQ(codeMeaning(code, scope), meaning) << code << ' ' << scope;
}
