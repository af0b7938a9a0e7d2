#include "gx2/gx2dbsqlite.h"

#include "tests/support/scriptedbackend.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

const QByteArray kEngine = R"(notes before any header: select broken(
sql: Foo_Bar
  insert into t(v, s) values (:v, '12:00'); -- trailing comment
Params:
page
@v int
:s TEXT extra words
SQL: last
select v, s from t where s = '12:00' or v = :v
params:
v)";

bool put(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

// A database in a temporary directory with table t(v integer, s text).
struct Db
{
    QTemporaryDir dir;
    GX2DBSqlite db;
    int changes = -1;
    int lastId = -1;
    Db()
    {
        ScriptedBackend sb;
        sb.allowOthers();
        EXPECT_TRUE(db.open(dir.filePath(QStringLiteral("t.db"))));
        EXPECT_TRUE(exec(QStringLiteral("create table t(v integer, s text)")));
    }
    bool exec(const QString& sql, const QJsonObject& params = {})
    {
        return db.exec(changes, lastId, sql, params);
    }
    QJsonArray rows(const QString& sql, const QJsonObject& params = {})
    {
        QJsonArray out;
        db.exec(changes, lastId, out, sql, params);
        return out;
    }
    QJsonValue first(const QString& sql, const QJsonObject& params = {})
    {
        return rows(sql, params).at(0).toObject().value(QStringLiteral("x"));
    }
    int count() { return first(QStringLiteral("select count(*) as x from t")).toInt(); }
};

} // namespace

TEST(Gx2DbSqlite, StatementFileGrammar)
{
    Db t;
    const QString file = t.dir.filePath(QStringLiteral("engine.sql"));
    ASSERT_TRUE(put(file, kEngine));
    ASSERT_TRUE(t.db.loadSqlEngine(file, false));
    const GX2DBSqlite::SQLContext first = t.db.context(QStringLiteral("foo_bar"));
    EXPECT_EQ(first.sqlid, QStringLiteral("foo_bar"));
    EXPECT_EQ(first.sql, QStringLiteral("insert into t(v, s) values (@v, '12@00');\n"));
    EXPECT_EQ(first.params, (QJsonObject{{"page", "string"}, {"v", "int"}, {"s", "text"}}));
    const GX2DBSqlite::SQLContext last = t.db.context(QStringLiteral("last"));
    EXPECT_EQ(last.sql, QStringLiteral("select v, s from t where s = '12:00' or v = :v\n"));
    EXPECT_EQ(last.params, (QJsonObject{{"v", "string"}}));

    EXPECT_FALSE(t.db.call(t.changes, t.lastId, QStringLiteral("Foo_Bar"), {{"v", 7}}));
    EXPECT_EQ(t.db.lastError(), QStringLiteral("sqlid not found: Foo_Bar"));
    ASSERT_TRUE(t.db.call(t.changes, t.lastId, QStringLiteral("foo_bar"), {{"v", 7}}));
    EXPECT_EQ(t.changes, 1);
    EXPECT_EQ(t.lastId, 1);
    // "@v" and ":v" both bind the key "v"; the literal's colon was rewritten.
    QJsonArray rows;
    ASSERT_TRUE(t.db.call(t.changes, t.lastId, rows, QStringLiteral("last"), {{"v", 7}}));
    EXPECT_EQ(rows, (QJsonArray{QJsonObject{{"v", 7}, {"s", "12@00"}}}));
}

TEST(Gx2DbSqlite, LoadingKeepsMergesOrReplacesTheTable)
{
    GX2DBSqlite db;
    ASSERT_TRUE(db.loadSqlEngine(QStringLiteral("SQL: a\nselect 1\nSQL: b\nselect 2"), false));
    for (const QString& nothing : {QString(), QStringLiteral("no header\nParams:\nx int"),
                                   QStringLiteral("SQL: empty\n-- only a comment")})
        EXPECT_FALSE(db.loadSqlEngine(nothing, false)) << nothing.toStdString();
    EXPECT_EQ(db.context(QStringLiteral("a")).sql, QStringLiteral("select 1\n"));

    ASSERT_TRUE(db.loadSqlEngine(QStringLiteral("SQL: b\nselect 22\nSQL: c\nselect 3"), true));
    EXPECT_EQ(db.context(QStringLiteral("a")).sql, QStringLiteral("select 1\n"));
    EXPECT_EQ(db.context(QStringLiteral("b")).sql, QStringLiteral("select 22\n"));
    ASSERT_TRUE(db.loadSqlEngine(QStringLiteral("SQL: c\nselect 4"), false));
    EXPECT_TRUE(db.context(QStringLiteral("a")).sql.isEmpty());
    EXPECT_EQ(db.context(QStringLiteral("c")).sql, QStringLiteral("select 4\n"));
}

TEST(Gx2DbSqlite, BindingAndRowRules)
{
    Db t;
    const struct
    {
        QJsonValue value;
        const char* type;
    } cases[] = {{3.0, "integer"},           {2.5, "real"},          {true, "null"}, {"s", "text"},
                 {QJsonValue::Null, "null"}, {QJsonArray{1}, "null"}};
    for (const auto& c : cases)
        EXPECT_EQ(t.first(QStringLiteral("select typeof(:y) as X"), {{"y", c.value}}), c.type);
    EXPECT_EQ(t.first(QStringLiteral("select typeof(@z) as x"), {{"y", 1}}), "null");

    t.exec(QStringLiteral("insert into t values (:v, $s)"), {{"v", 4294967296.0 + 5}, {"s", "é"}});
    t.exec(QStringLiteral("insert into t values (2147483648, null)"));
    const QJsonArray rows = t.rows(QStringLiteral("select v, S, x'00' as b, 1.5 as F from t"));
    EXPECT_EQ(rows, (QJsonArray{QJsonObject{{"v", 5}, {"s", "é"}, {"f", 1.5}},
                                QJsonObject{{"v", -2147483647 - 1}, {"f", 1.5}}}));
}

TEST(Gx2DbSqlite, ExecStopsAtAStatementThatFailsToPrepare)
{
    Db t;
    EXPECT_TRUE(
        t.exec(QStringLiteral("insert into t values (1, 'a');\n"
                              "insert into nosuch values (2); insert into t values (3, 'c')")));
    EXPECT_EQ(t.db.lastError(), QStringLiteral("no such table: nosuch"));
    EXPECT_EQ(t.count(), 1);
    EXPECT_FALSE(t.exec(QStringLiteral("selec 1; insert into t values (4, 'd')")));
    EXPECT_EQ(t.count(), 1);
}

TEST(Gx2DbSqlite, OpenPreparesTheDirectoryOfANewFile)
{
    QTemporaryDir root;
    GX2DBSqlite db;
    bool created = false;
    {
        ScriptedBackend sb;
        sb.expect(QStringLiteral("chmod"), {QStringLiteral("755"), root.path()});
        ASSERT_TRUE(db.open(root.filePath(QStringLiteral("a.db")), &created));
        EXPECT_TRUE(created);
    }
    // The scripted mkdir makes nothing, so SQLite cannot create the file.
    const QString dir = root.filePath(QStringLiteral("x/y"));
    ScriptedBackend sb;
    sb.expect(QStringLiteral("mkdir"), {QStringLiteral("-p"), dir});
    sb.expect(QStringLiteral("chmod"), {QStringLiteral("755"), dir});
    EXPECT_FALSE(db.open(dir + QStringLiteral("/b.db"), &created));
    EXPECT_FALSE(db.isOpen());
    EXPECT_EQ(sb.calls().size(), 2);
}

TEST(Gx2DbSqlite, CreatorScriptRunsOnlyForANewFile)
{
    QTemporaryDir root;
    const QString creator = root.filePath(QStringLiteral("creator.sql"));
    ASSERT_TRUE(put(creator, "\n create table t(v integer);\ninsert into t values (1);\n\n"));
    const QString path = root.filePath(QStringLiteral("new/dir/t.db")); // real mkdir
    GX2DBSqlite db;
    db.loadSqlCreator(creator);
    db.loadSqlCreator(root.filePath(QStringLiteral("missing.sql"))); // keeps the script
    EXPECT_FALSE(db.openOnly(path));
    for (const bool expectCreated : {true, false}) {
        bool created = !expectCreated;
        ASSERT_TRUE(db.open(path, &created));
        EXPECT_EQ(created, expectCreated);
        int changes = 0;
        int lastId = 0;
        QJsonArray rows;
        db.exec(changes, lastId, rows, QStringLiteral("select count(*) as n from t"), {});
        EXPECT_EQ(rows, (QJsonArray{QJsonObject{{"n", 1}}}));
    }
    EXPECT_EQ(QFileInfo(root.filePath(QStringLiteral("new/dir"))).permissions() & 0x7777,
              QFile::Permissions(0x7755));
    EXPECT_TRUE(db.openOnly(path));
}

TEST(Gx2DbSqlite, TransactionsAndDetachedCalls)
{
    Db t;
    ASSERT_TRUE(t.db.transactionBegin());
    t.exec(QStringLiteral("insert into t values (1, 'a')"));
    ASSERT_TRUE(t.db.transactionRollback());
    EXPECT_EQ(t.count(), 0);
    ASSERT_TRUE(t.db.transactionBegin());
    t.exec(QStringLiteral("insert into t values (1, 'a')"));
    ASSERT_TRUE(t.db.transactionCommit());
    EXPECT_EQ(t.count(), 1);

    ASSERT_TRUE(
        t.db.loadSqlEngine(QStringLiteral("SQL: add\ninsert into t values (:v, 'd')"), false));
    t.db.callDetach(QStringLiteral("add"), {{"v", 2}});
    QElapsedTimer waited;
    waited.start();
    while (t.count() < 2 && waited.elapsed() < 5000)
        QThread::msleep(10);
    EXPECT_EQ(t.count(), 2);

    t.db.close();
    EXPECT_FALSE(t.db.transactionBegin());
}

TEST(Gx2DbSqlite, WriteAheadLogAndStatementsKeptAcrossReopening)
{
    Db t;
    EXPECT_EQ(t.rows(QStringLiteral("PRAGMA journal_mode")).at(0).toObject().value("journal_mode"),
              QStringLiteral("wal"));
    // A kept statement binds afresh each time: what one call bound, the next does not see.
    const QString insert = QStringLiteral("insert into t values (:v, :s)");
    ASSERT_TRUE(t.exec(insert, {{"v", 1}, {"s", "a"}}));
    ASSERT_TRUE(t.exec(insert, {{"v", 2}}));
    EXPECT_EQ(t.first(QStringLiteral("select count(*) as x from t where s is null")).toInt(), 1);
    // Reopened, the same text runs on the new connection, not a finalized statement.
    ASSERT_TRUE(t.db.open(t.dir.filePath(QStringLiteral("t.db"))));
    ASSERT_TRUE(t.exec(insert, {{"v", 3}, {"s", "c"}}));
    EXPECT_EQ(t.count(), 3);
    // Rows of a kept query come fresh every time.
    const QString select = QStringLiteral("select max(v) as x from t");
    EXPECT_EQ(t.first(select).toInt(), 3);
    ASSERT_TRUE(t.exec(insert, {{"v", 9}}));
    EXPECT_EQ(t.first(select).toInt(), 9);
}
