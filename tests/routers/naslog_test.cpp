#include "routers/naslog.h"

#include "gx2/gx2dbsqlite.h"

#include <QDate>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QJsonObject event(const QString& level, const QString& description,
                  const QString& user = QStringLiteral("admin"))
{
    return QJsonObject{{QStringLiteral("level"), level},
                       {QStringLiteral("username"), user},
                       {QStringLiteral("ipaddr"), QStringLiteral("192.0.2.7")},
                       {QStringLiteral("description"), description},
                       {QStringLiteral("appname"), QStringLiteral("storage")},
                       {QStringLiteral("devicename"), QStringLiteral("md0")}};
}

QStringList field(const QJsonArray& rows, const char* key)
{
    QStringList values;
    for (const QJsonValue& row : rows)
        values << row.toObject().value(QString::fromLatin1(key)).toString();
    return values;
}

// Every test gets its own root, so the database is new each time.
class NasLogTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QString dbPath() const { return root.filePath(QStringLiteral("var/lib/orvolog/orvolog.db")); }

    // Rows with chosen times, which the append statement cannot give.
    void insertAt(const QString& level, const QString& description, const QString& time)
    {
        GX2DBSqlite db;
        ASSERT_TRUE(db.openOnly(dbPath()));
        int changes = 0;
        int lastId = 0;
        ASSERT_TRUE(db.exec(changes, lastId,
                            QStringLiteral("INSERT INTO ORVOLOG (EVENTLEVEL, EVENTDES, EVENTTIME, "
                                           "USERNAME) VALUES (:l, :d, :t, 'admin')"),
                            {{QStringLiteral("l"), level},
                             {QStringLiteral("d"), description},
                             {QStringLiteral("t"), time}}));
    }

    QTemporaryDir root;
};

} // namespace

TEST_F(NasLogTest, FreshDatabaseIsCreatedOnFirstUse)
{
    NASLog log;
    EXPECT_FALSE(QFile::exists(dbPath()));
    log.reloadPool();
    EXPECT_TRUE(log.logPool().isEmpty());
    ASSERT_TRUE(QFile::exists(dbPath()));

    GX2DBSqlite db;
    ASSERT_TRUE(db.openOnly(dbPath()));
    int changes = 0;
    int lastId = 0;
    QJsonArray rows;
    ASSERT_TRUE(
        db.exec(changes, lastId, rows,
                QStringLiteral("SELECT cfg_key, cfg_value FROM t_configure ORDER BY cfg_no"), {}));
    EXPECT_EQ(field(rows, "cfg_key"),
              (QStringList{QStringLiteral("appid"), QStringLiteral("dbversion"),
                           QStringLiteral("createtime")}));
    EXPECT_EQ(field(rows, "cfg_value").mid(0, 2),
              (QStringList{QStringLiteral("naslog"), QStringLiteral("1")}));
}

TEST_F(NasLogTest, LoadByKeepsItsFilterRules)
{
    NASLog log;
    log.reloadPool(); // creates the database
    insertAt(QStringLiteral("Information"), QStringLiteral("a"),
             QStringLiteral("2024-05-01 00:00:00"));
    insertAt(QStringLiteral("Warning"), QStringLiteral("b"), QStringLiteral("2024-05-01 23:59:59"));
    insertAt(QStringLiteral("Error"), QStringLiteral("c"), QStringLiteral("2024-05-02 00:00:00"));
    insertAt(QStringLiteral("Information"), QStringLiteral("d"),
             QStringLiteral("2024-05-03 08:00:00"));

    const auto load = [&](bool info, bool warn, bool error, const QDate& from, const QDate& to,
                          int page, int ofPage) {
        QJsonArray rows;
        EXPECT_EQ(log.loadBy(rows, info, warn, error, QString(), QString(), QString(), QString(),
                             from, to, page, ofPage),
                  0);
        return field(rows, "eventdes").join(QString());
    };
    const QDate none;
    EXPECT_EQ(load(false, false, false, none, none, 1, 0), QStringLiteral("abcd"));
    EXPECT_EQ(load(true, false, false, none, none, 1, 0), QStringLiteral("ad"));
    // Levels are joined by AND: two flags select nothing.
    EXPECT_EQ(load(true, true, false, none, none, 1, 0), QString());
    // "page" is a row offset: page 3 skips two rows whatever the page size.
    EXPECT_EQ(load(false, false, false, none, none, 3, 1), QStringLiteral("c"));
    EXPECT_EQ(load(false, false, false, none, none, 3, 50), QStringLiteral("cd"));
    // The end date covers its whole day.
    EXPECT_EQ(load(false, false, false, QDate(2024, 5, 1), QDate(2024, 5, 1), 1, 0),
              QStringLiteral("ab"));
    EXPECT_EQ(load(false, false, false, QDate(2024, 5, 2), none, 1, 0), QStringLiteral("cd"));

    QJsonArray rows;
    EXPECT_EQ(log.loadBy(rows, false, false, false, QStringLiteral(" adm "), QString(), QString(),
                         QString(), none, none, 1, 0),
              0);
    EXPECT_EQ(rows.size(), 4);
    EXPECT_TRUE(rows[0].toObject().contains(QStringLiteral("log_no")));
}

TEST_F(NasLogTest, TailAndPool)
{
    NASLog log;
    for (int i = 1; i <= 11; ++i)
        ASSERT_TRUE(log.logPush(event(QStringLiteral("Information"), QString::number(i))));
    // The ten newest, newest first, as the caller gave them.
    QJsonArray pool = log.logPool();
    ASSERT_EQ(pool.size(), 10);
    EXPECT_EQ(pool.first().toObject(), event(QStringLiteral("Information"), QStringLiteral("11")));
    EXPECT_EQ(field(pool, "description").last(), QStringLiteral("2"));

    // A smaller pool shrinks by one entry per push.
    log.setPoolSize(3);
    EXPECT_EQ(log.logPool().size(), 10);
    ASSERT_TRUE(log.logPush(event(QStringLiteral("Warning"), QStringLiteral("12"))));
    EXPECT_EQ(log.logPool().size(), 10);
    log.setPoolSize(10);

    // A refused insert never reaches the pool.
    const QJsonArray before = log.logPool();
    EXPECT_FALSE(log.logPush(QJsonObject{{QStringLiteral("username"), QStringLiteral("x")}}));
    EXPECT_EQ(log.add(QJsonObject()), 9999);
    EXPECT_EQ(log.logPool(), before);

    // Amount 0 means ten; entries read back carry the stored time.
    QJsonArray tail;
    EXPECT_EQ(log.loadTail(tail, 0, true, true, true), 0);
    ASSERT_EQ(tail.size(), 10);
    const QJsonObject newest = tail.first().toObject();
    EXPECT_EQ(newest.keys().size(), 7);
    EXPECT_EQ(newest.value(QStringLiteral("description")).toString(), QStringLiteral("12"));

    // The database's clock wins over a caller's time.
    const QDateTime lastYear = QDateTime::currentDateTime().addYears(-1);
    EXPECT_EQ(log.add(QStringLiteral("Error"), QStringLiteral("u"), QString(),
                      QStringLiteral("late"), QString(), QString(), lastYear, QString(), QString(),
                      QString()),
              0);
    log.reloadPool();
    pool = log.logPool();
    EXPECT_EQ(pool.first().toObject().value(QStringLiteral("description")).toString(),
              QStringLiteral("late"));
    EXPECT_TRUE(pool.first()
                    .toObject()
                    .value(QStringLiteral("timestamp"))
                    .toString()
                    .startsWith(QString::number(QDate::currentDate().year())));

    EXPECT_EQ(log.removeAll(), 0);
    EXPECT_EQ(log.loadTail(tail, 5, true, true, true), 0);
    EXPECT_TRUE(tail.isEmpty());
}

TEST(NasLogBroken, UnopenableDatabaseGives9975)
{
    QTemporaryDir root;
    // A regular file where the database's directory belongs.
    QFile blocker(root.filePath(QStringLiteral("var")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
    NASLog log;
    QJsonArray rows;
    EXPECT_EQ(log.loadTail(rows, 5, true, true, true), 9975);
    EXPECT_EQ(log.add(event(QStringLiteral("Error"), QStringLiteral("x"))), 9975);
    EXPECT_FALSE(log.logPush(event(QStringLiteral("Error"), QStringLiteral("x"))));
    qunsetenv("NASBROLT_ROOT");
}
