// Values, statements and errors of the record set's write and read paths:
// what every value looks like after a round trip, statements kept across
// transactions, rollbacks and schema changes, and the database's own error
// texts.

#include "repository/Connection.h"
#include "repository/Dialect.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <QByteArray>
#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>

#include <functional>
#include <limits>

using namespace dorvane;
using namespace dorvane::test;

namespace {

QString descriptionOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const DbError& e) {
        return e.description();
    }
    return QStringLiteral("<no error>");
}

const QString kKey = QStringLiteral("iValueKey");
const QString kText = QStringLiteral("sValueText");
const QString kNumber = QStringLiteral("iValueNumber");
const QString kBig = QStringLiteral("iValueBig");
const QString kReal = QStringLiteral("fValueReal");

} // namespace

class RecordsetValuesTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        const QString big = db->isOdbc() ? QStringLiteral("bigint") : QStringLiteral("INTEGER");
        const QString real = db->isOdbc() ? QStringLiteral("double precision") : QStringLiteral("REAL");
        DB_ASSERT(conn.Execute(QStringLiteral("CREATE TABLE tValue (iValueKey %1, sValueText %2, iValueNumber integer,"
                                              " iValueBig %3, fValueReal %4)")
                                   .arg(db->autoKeyType(), db->textType(), big, real)));
    }

    // Adds one row through a fresh record set, as the copy engine does.
    int add(const QVariant& text, const QVariant& number = QVariant(), const QVariant& big = QVariant())
    {
        Recordset rs(QStringLiteral("SELECT * FROM tValue WHERE iValueKey=0"), conn);
        rs.AddNew();
        rs.SetValue(kText, text);
        rs.SetValue(kNumber, number);
        rs.SetValue(kBig, big);
        rs.Update();
        return rs.Int(kKey);
    }

    QVariant read(int key, const QString& field)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tValue WHERE iValueKey = %1").arg(key), conn);
        if (rs.Eof())
            return QStringLiteral("<no row>");
        return rs.Value(field);
    }

    qint32 count()
    {
        Recordset rs(QStringLiteral("SELECT * FROM tValue"), conn);
        return rs.RecordCount();
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

TEST_P(RecordsetValuesTest, IntegersKeepTheirWidthAndRealsTheirFraction)
{
    const qint64 beyond = qint64(std::numeric_limits<qint32>::max()) + 5;
    const qint64 below = qint64(std::numeric_limits<qint32>::min()) - 5;
    int key = 0;
    DB_ASSERT(key = add(QStringLiteral("wide"), std::numeric_limits<qint32>::min(), QVariant(qlonglong(beyond))));
    int low = 0;
    DB_ASSERT(low = add(QStringLiteral("low"), -1, QVariant(qlonglong(below))));
    int small = 0;
    DB_ASSERT(small = add(QStringLiteral("small"), 7, QVariant(qlonglong(12))));

    // Within 32 bits an integer reads as int, beyond as a 64-bit integer.
    const QVariant min = read(key, kNumber);
    EXPECT_EQ(min.typeId(), QMetaType::Int);
    EXPECT_EQ(min.toInt(), std::numeric_limits<qint32>::min());
    const QVariant big = read(key, kBig);
    EXPECT_EQ(big.typeId(), QMetaType::LongLong);
    EXPECT_EQ(big.toLongLong(), beyond);
    EXPECT_EQ(read(low, kBig).toLongLong(), below);
    EXPECT_EQ(read(low, kNumber).toInt(), -1);
    const QVariant twelve = read(small, kBig);
    EXPECT_EQ(twelve.typeId(), QMetaType::Int);
    EXPECT_EQ(twelve.toInt(), 12);

    Recordset rs(QStringLiteral("SELECT * FROM tValue WHERE iValueKey = %1").arg(small), conn);
    DB_ASSERT(rs.SetValue(kReal, 2.5));
    DB_ASSERT(rs.Update());
    const QVariant real = read(small, kReal);
    EXPECT_EQ(real.typeId(), QMetaType::Double);
    EXPECT_DOUBLE_EQ(real.toDouble(), 2.5);
    // Assigning to an integer column rounds, as Jet does.
    DB_ASSERT(rs.SetValue(kNumber, 3.6));
    DB_ASSERT(rs.Update());
    EXPECT_EQ(read(small, kNumber), QVariant(4));
}

TEST_P(RecordsetValuesTest, StatementsAreReusedAcrossTransactionsAndRollbacks)
{
    int first = 0;
    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(first = add(QStringLiteral("rolled back"), 1));
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(), 0);

    // The same statements again, in a transaction that is kept.
    int kept = 0;
    DB_ASSERT(conn.BeginTrans());
    for (int i = 0; i < 20; ++i)
        DB_ASSERT(kept = add(QStringLiteral("kept %1").arg(i), i));
    DB_ASSERT(conn.CommitTrans());
    EXPECT_GT(kept, first);
    EXPECT_EQ(count(), 20);

    // Update and delete of the current row, rolled back and then kept.
    for (bool commit : {false, true}) {
        DB_ASSERT(conn.BeginTrans());
        Recordset rs(QStringLiteral("SELECT * FROM tValue WHERE iValueKey = %1").arg(kept), conn);
        DB_ASSERT(rs.SetValue(kNumber, 100));
        DB_ASSERT(rs.Update());
        Recordset gone(QStringLiteral("SELECT * FROM tValue WHERE iValueNumber = 0"), conn);
        DB_ASSERT(gone.Delete());
        if (commit) {
            DB_ASSERT(conn.CommitTrans());
        } else {
            DB_ASSERT(conn.RollbackTrans());
        }
        EXPECT_EQ(read(kept, kNumber).toInt(), commit ? 100 : 19);
        EXPECT_EQ(count(), commit ? 19 : 20);
    }

    // Outside any transaction every statement commits on its own.
    int alone = 0;
    DB_ASSERT(alone = add(QStringLiteral("alone")));
    Connection other;
    DB_ASSERT(other.Open(db->connectionString()));
    Recordset seen(QStringLiteral("SELECT * FROM tValue WHERE iValueKey = %1").arg(alone), other);
    EXPECT_EQ(seen.RecordCount(), 1);
}

TEST_P(RecordsetValuesTest, ConstraintViolationsCarryTheDatabaseTextAndLeaveStatementsUsable)
{
    DB_ASSERT(conn.Execute(QStringLiteral("CREATE UNIQUE INDEX ix_tValue_number ON tValue (iValueNumber)")));
    int key = 0;
    DB_ASSERT(key = add(QStringLiteral("one"), 1));
    DB_ASSERT(add(QStringLiteral("two"), 2));

    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(add(QStringLiteral("three"), 3));
    const QString insert = descriptionOf([&] { add(QStringLiteral("again"), 1); });
    if (db->isOdbc())
        EXPECT_TRUE(insert.contains(QLatin1String("duplicate key"))) << insert.toStdString();
    else
        EXPECT_TRUE(insert.contains(QLatin1String("UNIQUE constraint failed: tValue.iValueNumber")))
            << insert.toStdString();

    Recordset rs(QStringLiteral("SELECT * FROM tValue WHERE iValueKey = %1").arg(key), conn);
    DB_ASSERT(rs.SetValue(kNumber, 2));
    const QString update = descriptionOf([&] { rs.Update(); });
    EXPECT_TRUE(update.contains(QLatin1String(db->isOdbc() ? "duplicate key" : "UNIQUE constraint failed")))
        << update.toStdString();
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(), 2);

    // The same statements work once the values are right.
    DB_ASSERT(add(QStringLiteral("four"), 4));
    Recordset again(QStringLiteral("SELECT * FROM tValue WHERE iValueKey = %1").arg(key), conn);
    DB_ASSERT(again.SetValue(kNumber, 5));
    DB_ASSERT(again.Update());
    EXPECT_EQ(read(key, kNumber).toInt(), 5);
    EXPECT_EQ(count(), 3);
}

INSTANTIATE_TEST_SUITE_P(Backends, RecordsetValuesTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

// --- SQLite only -----------------------------------------------------------

class SqliteRecordsetValuesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>("sqlite");
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(conn.Execute(QStringLiteral("CREATE TABLE tBlob (iBlobKey INTEGER PRIMARY KEY AUTOINCREMENT,"
                                              " sBlobText TEXT, xBlobData BLOB, dBlobWhen DATETIME, sGröße TEXT)")));
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

TEST_F(SqliteRecordsetValuesTest, EmbeddedNulBytesAndDatesRoundTrip)
{
    const QString withNul = QStringLiteral("before") + QChar(u'\0') + QStringLiteral("after");
    const QByteArray bytes("\x00\x01\xff\x00z", 5);
    const QDateTime when(QDate(2024, 3, 1), QTime(12, 30, 5, 250));
    int key = 0;
    {
        Recordset rs(QStringLiteral("SELECT * FROM tBlob"), conn);
        DB_ASSERT(rs.AddNew());
        DB_ASSERT(rs.SetValue(QStringLiteral("sBlobText"), withNul));
        DB_ASSERT(rs.SetValue(QStringLiteral("xBlobData"), bytes));
        DB_ASSERT(rs.SetValue(QStringLiteral("dBlobWhen"), when));
        DB_ASSERT(rs.Update());
        DB_ASSERT(key = rs.Int(QStringLiteral("iBlobKey")));
        // The new row holds the values as assigned.
        EXPECT_EQ(rs.Value(QStringLiteral("dBlobWhen")), QVariant(when));
    }
    Recordset rs(QStringLiteral("SELECT * FROM tBlob WHERE iBlobKey = %1").arg(key), conn);
    ASSERT_EQ(rs.RecordCount(), 1);
    const QString text = rs.Text(QStringLiteral("sBlobText"));
    EXPECT_EQ(text.size(), withNul.size());
    EXPECT_EQ(text, withNul);
    const QVariant blob = rs.Value(QStringLiteral("xBlobData"));
    EXPECT_EQ(blob.typeId(), QMetaType::QByteArray);
    EXPECT_EQ(blob.toByteArray(), bytes);
    // Dates are stored as Qt's SQLite driver stores them: ISO text.
    EXPECT_EQ(rs.Value(QStringLiteral("dBlobWhen")), QVariant(QStringLiteral("2024-03-01T12:30:05.250")));

    // Nothing but the text itself reaches the statement.
    QSqlQuery q(conn.database());
    ASSERT_TRUE(q.exec(QStringLiteral("SELECT length(CAST(sBlobText AS BLOB)) FROM tBlob")));
    ASSERT_TRUE(q.next());
    EXPECT_EQ(q.value(0).toInt(), 12);
}

TEST_F(SqliteRecordsetValuesTest, KeptStatementsNeitherBlockTheSchemaNorOutliveTheConnection)
{
    for (int i = 0; i < 3; ++i) {
        Recordset rs(QStringLiteral("SELECT * FROM tBlob WHERE iBlobKey=0"), conn);
        DB_ASSERT(rs.AddNew());
        DB_ASSERT(rs.SetValue(QStringLiteral("sBlobText"), QStringLiteral("row")));
        DB_ASSERT(rs.Update());
        Recordset current(QStringLiteral("SELECT * FROM tBlob WHERE iBlobKey = %1").arg(rs.Int(QStringLiteral("iBlobKey"))),
                          conn);
        DB_ASSERT(current.SetValue(QStringLiteral("sBlobText"), QStringLiteral("changed")));
        DB_ASSERT(current.Update());
    }
    // A schema change made past the data layer: kept statements are reset,
    // so SQLite lets the table go, and prepares them again for the new one.
    QSqlQuery q(conn.database());
    ASSERT_TRUE(q.exec(QStringLiteral("DROP TABLE tBlob"))) << q.lastError().text().toStdString();
    ASSERT_TRUE(q.exec(QStringLiteral("CREATE TABLE tBlob (iBlobKey INTEGER PRIMARY KEY AUTOINCREMENT, sBlobText TEXT)")));
    q.finish();
    {
        Recordset rs(QStringLiteral("SELECT * FROM tBlob WHERE iBlobKey=0"), conn);
        DB_ASSERT(rs.AddNew());
        DB_ASSERT(rs.SetValue(QStringLiteral("sBlobText"), QStringLiteral("new")));
        DB_ASSERT(rs.Update());
        EXPECT_EQ(rs.Text(QStringLiteral("sBlobText")), QStringLiteral("new"));
    }

    // Closing finalises every kept statement: the file is free again and a
    // reopened connection prepares its own.
    conn.Close();
    DB_ASSERT(conn.Open(db->connectionString()));
    Recordset rs(QStringLiteral("SELECT * FROM tBlob WHERE iBlobKey=0"), conn);
    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.SetValue(QStringLiteral("sBlobText"), QStringLiteral("reopened")));
    DB_ASSERT(rs.Update());
    Recordset all(QStringLiteral("SELECT * FROM tBlob WHERE sBlobText = 'reopened'"), conn);
    EXPECT_EQ(all.RecordCount(), 1);
}

TEST(TableRefTest, FindsTheTableAsWritten)
{
    struct Case {
        QString sql;
        QString table;
    };
    const std::vector<Case> cases = {
        {QStringLiteral("SELECT * FROM tObject WHERE iObjectKey=0"), QStringLiteral("tObject")},
        {QStringLiteral("select * from\ttStep;"), QStringLiteral("tStep")},
        {QStringLiteral("SELECT sFrom, iFromKey FROM [My Table] WHERE x = 1"), QStringLiteral("[My Table]")},
        {QStringLiteral("SELECT * FROM \"odd \"\"name\"\"\" WHERE 1"), QStringLiteral("\"odd \"\"name\"\"\"")},
        {QStringLiteral("SELECT * FROM [unclosed WHERE 1"), QStringLiteral("[unclosed")},
        {QStringLiteral("SELECT * FROM (SELECT * FROM tInner) AS x"), QStringLiteral("tInner")},
        {QStringLiteral("SELECT * FROM tKeyword,tApp"), QStringLiteral("tKeyword")},
        {QStringLiteral("SELECT * FROM tÄrger WHERE s = 'x'"), QStringLiteral("tÄrger")},
        {QStringLiteral("SELECT 1"), QString()},
        {QStringLiteral("SELECT * FROM"), QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sql.toStdString());
        EXPECT_EQ(TableRefOf(c.sql), c.table);
    }
}
