// Values, statements and errors of the record set's write and read paths:
// what every value looks like after a round trip, statements kept across
// transactions, rollbacks and schema changes, and the database's own error
// texts.

#include "repository/Connection.h"
#include "repository/Dialect.h"
#include "repository/Recordset.h"
#include "repository/RepositoryFixture.h"

#include <QByteArray>
#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>

#include <functional>
#include <limits>

using namespace Qt::StringLiterals;

using namespace dorvane;
using namespace dorvane::test;

namespace {

const QString kKey = u"iValueKey"_s;
const QString kText = u"sValueText"_s;
const QString kNumber = u"iValueNumber"_s;
const QString kBig = u"iValueBig"_s;
const QString kReal = u"fValueReal"_s;

} // namespace

class RecordsetValuesTest : public BackendTest {
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        const QString big = db->isOdbc() ? u"bigint"_s : u"INTEGER"_s;
        const QString real = db->isOdbc() ? u"double precision"_s : u"REAL"_s;
        DB_ASSERT(conn.Execute(u"CREATE TABLE tValue (iValueKey %1, sValueText %2, iValueNumber integer,"
                               " iValueBig %3, fValueReal %4)"_s.arg(db->autoKeyType(), db->textType(), big, real)));
    }

    // Adds one row through a fresh record set, as the copy engine does.
    int add(const QVariant& text, const QVariant& number = QVariant(), const QVariant& big = QVariant())
    {
        Recordset rs(u"SELECT * FROM tValue WHERE iValueKey=0"_s, conn);
        rs.AddNew();
        rs.SetValue(kText, text);
        rs.SetValue(kNumber, number);
        rs.SetValue(kBig, big);
        rs.Update();
        return rs.Int(kKey);
    }

    QVariant read(int key, const QString& field)
    {
        Recordset rs(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(key), conn);
        if (rs.Eof())
            return u"<no row>"_s;
        return rs.Value(field);
    }

    qint32 count() { return BackendTest::count(u"SELECT * FROM tValue"_s); }
};

TEST_P(RecordsetValuesTest, IntegersKeepTheirWidthAndRealsTheirFraction)
{
    const qint64 beyond = qint64(std::numeric_limits<qint32>::max()) + 5;
    const qint64 below = qint64(std::numeric_limits<qint32>::min()) - 5;
    int key = 0;
    DB_ASSERT(key = add(u"wide"_s, std::numeric_limits<qint32>::min(), QVariant(qlonglong(beyond))));
    int low = 0;
    DB_ASSERT(low = add(u"low"_s, -1, QVariant(qlonglong(below))));
    int small = 0;
    DB_ASSERT(small = add(u"small"_s, 7, QVariant(qlonglong(12))));

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

    Recordset rs(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(small), conn);
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
    DB_ASSERT(first = add(u"rolled back"_s, 1));
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(), 0);

    // The same statements again, in a transaction that is kept.
    int kept = 0;
    DB_ASSERT(conn.BeginTrans());
    for (int i = 0; i < 20; ++i)
        DB_ASSERT(kept = add(u"kept %1"_s.arg(i), i));
    DB_ASSERT(conn.CommitTrans());
    EXPECT_GT(kept, first);
    EXPECT_EQ(count(), 20);

    // Update and delete of the current row, rolled back and then kept.
    for (bool commit : {false, true}) {
        DB_ASSERT(conn.BeginTrans());
        Recordset rs(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(kept), conn);
        DB_ASSERT(rs.SetValue(kNumber, 100));
        DB_ASSERT(rs.Update());
        Recordset gone(u"SELECT * FROM tValue WHERE iValueNumber = 0"_s, conn);
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
    DB_ASSERT(alone = add(u"alone"_s));
    Connection other;
    DB_ASSERT(other.Open(db->connectionString()));
    Recordset seen(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(alone), other);
    EXPECT_EQ(seen.RecordCount(), 1);
}

TEST_P(RecordsetValuesTest, ConstraintViolationsCarryTheDatabaseTextAndLeaveStatementsUsable)
{
    DB_ASSERT(conn.Execute(u"CREATE UNIQUE INDEX ix_tValue_number ON tValue (iValueNumber)"_s));
    int key = 0;
    DB_ASSERT(key = add(u"one"_s, 1));
    DB_ASSERT(add(u"two"_s, 2));

    DB_ASSERT(conn.BeginTrans());
    DB_ASSERT(add(u"three"_s, 3));
    const QString insert = descriptionOf([&] { add(u"again"_s, 1); });
    if (db->isOdbc())
        EXPECT_TRUE(insert.contains(u"duplicate key"_s)) << insert.toStdString();
    else
        EXPECT_TRUE(insert.contains(u"UNIQUE constraint failed: tValue.iValueNumber"_s)) << insert.toStdString();

    Recordset rs(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(key), conn);
    DB_ASSERT(rs.SetValue(kNumber, 2));
    const QString update = descriptionOf([&] { rs.Update(); });
    EXPECT_TRUE(update.contains(QLatin1String(db->isOdbc() ? "duplicate key" : "UNIQUE constraint failed")))
        << update.toStdString();
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(), 2);

    // The same statements work once the values are right.
    DB_ASSERT(add(u"four"_s, 4));
    Recordset again(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(key), conn);
    DB_ASSERT(again.SetValue(kNumber, 5));
    DB_ASSERT(again.Update());
    EXPECT_EQ(read(key, kNumber).toInt(), 5);
    EXPECT_EQ(count(), 3);
}

INSTANTIATE_TEST_SUITE_P(Backends, RecordsetValuesTest, ::testing::ValuesIn(TestBackends()), backendName);

// --- SQLite only -----------------------------------------------------------

class SqliteRecordsetValuesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>("sqlite");
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(conn.Execute(u"CREATE TABLE tBlob (iBlobKey INTEGER PRIMARY KEY AUTOINCREMENT,"
                               " sBlobText TEXT, xBlobData BLOB, dBlobWhen DATETIME, sGröße TEXT)"_s));
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

TEST_F(SqliteRecordsetValuesTest, EmbeddedNulBytesAndDatesRoundTrip)
{
    const QString withNul = u"before"_s + QChar(u'\0') + u"after"_s;
    const QByteArray bytes("\x00\x01\xff\x00z", 5);
    const QDateTime when(QDate(2024, 3, 1), QTime(12, 30, 5, 250));
    int key = 0;
    {
        Recordset rs(u"SELECT * FROM tBlob"_s, conn);
        DB_ASSERT(rs.AddNew());
        DB_ASSERT(rs.SetValue(u"sBlobText"_s, withNul));
        DB_ASSERT(rs.SetValue(u"xBlobData"_s, bytes));
        DB_ASSERT(rs.SetValue(u"dBlobWhen"_s, when));
        DB_ASSERT(rs.Update());
        DB_ASSERT(key = rs.Int(u"iBlobKey"_s));
        // The new row holds the values as assigned.
        EXPECT_EQ(rs.Value(u"dBlobWhen"_s), QVariant(when));
    }
    Recordset rs(u"SELECT * FROM tBlob WHERE iBlobKey = %1"_s.arg(key), conn);
    ASSERT_EQ(rs.RecordCount(), 1);
    const QString text = rs.Text(u"sBlobText"_s);
    EXPECT_EQ(text.size(), withNul.size());
    EXPECT_EQ(text, withNul);
    const QVariant blob = rs.Value(u"xBlobData"_s);
    EXPECT_EQ(blob.typeId(), QMetaType::QByteArray);
    EXPECT_EQ(blob.toByteArray(), bytes);
    // Dates are stored as Qt's SQLite driver stores them: ISO text.
    EXPECT_EQ(rs.Value(u"dBlobWhen"_s), QVariant(u"2024-03-01T12:30:05.250"_s));

    // Nothing but the text itself reaches the statement.
    QSqlQuery q(conn.database());
    ASSERT_TRUE(q.exec(u"SELECT length(CAST(sBlobText AS BLOB)) FROM tBlob"_s));
    ASSERT_TRUE(q.next());
    EXPECT_EQ(q.value(0).toInt(), 12);
}

TEST_F(SqliteRecordsetValuesTest, KeptStatementsNeitherBlockTheSchemaNorOutliveTheConnection)
{
    for (int i = 0; i < 3; ++i) {
        Recordset rs(u"SELECT * FROM tBlob WHERE iBlobKey=0"_s, conn);
        DB_ASSERT(rs.AddNew());
        DB_ASSERT(rs.SetValue(u"sBlobText"_s, u"row"_s));
        DB_ASSERT(rs.Update());
        Recordset current(u"SELECT * FROM tBlob WHERE iBlobKey = %1"_s.arg(rs.Int(u"iBlobKey"_s)), conn);
        DB_ASSERT(current.SetValue(u"sBlobText"_s, u"changed"_s));
        DB_ASSERT(current.Update());
    }
    // A schema change made past the data layer: kept statements are reset,
    // so SQLite lets the table go, and prepares them again for the new one.
    QSqlQuery q(conn.database());
    ASSERT_TRUE(q.exec(u"DROP TABLE tBlob"_s)) << q.lastError().text().toStdString();
    ASSERT_TRUE(q.exec(u"CREATE TABLE tBlob (iBlobKey INTEGER PRIMARY KEY AUTOINCREMENT, sBlobText TEXT)"_s));
    q.finish();
    {
        Recordset rs(u"SELECT * FROM tBlob WHERE iBlobKey=0"_s, conn);
        DB_ASSERT(rs.AddNew());
        DB_ASSERT(rs.SetValue(u"sBlobText"_s, u"new"_s));
        DB_ASSERT(rs.Update());
        EXPECT_EQ(rs.Text(u"sBlobText"_s), u"new"_s);
    }

    // Closing finalises every kept statement: the file is free again and a
    // reopened connection prepares its own.
    conn.Close();
    DB_ASSERT(conn.Open(db->connectionString()));
    Recordset rs(u"SELECT * FROM tBlob WHERE iBlobKey=0"_s, conn);
    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.SetValue(u"sBlobText"_s, u"reopened"_s));
    DB_ASSERT(rs.Update());
    Recordset all(u"SELECT * FROM tBlob WHERE sBlobText = 'reopened'"_s, conn);
    EXPECT_EQ(all.RecordCount(), 1);
}

TEST(TableRefTest, FindsTheTableAsWritten)
{
    struct Case {
        QString sql;
        QString table;
    };
    const std::vector<Case> cases = {
        {u"SELECT * FROM tObject WHERE iObjectKey=0"_s, u"tObject"_s},
        {u"select * from\ttStep;"_s, u"tStep"_s},
        {u"SELECT sFrom, iFromKey FROM [My Table] WHERE x = 1"_s, u"[My Table]"_s},
        {u"SELECT * FROM \"odd \"\"name\"\"\" WHERE 1"_s, u"\"odd \"\"name\"\"\""_s},
        {u"SELECT * FROM [unclosed WHERE 1"_s, u"[unclosed"_s},
        {u"SELECT * FROM (SELECT * FROM tInner) AS x"_s, u"tInner"_s},
        {u"SELECT * FROM tKeyword,tApp"_s, u"tKeyword"_s},
        {u"SELECT * FROM tÄrger WHERE s = 'x'"_s, u"tÄrger"_s},
        {u"SELECT 1"_s, QString()},
        {u"SELECT * FROM"_s, QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sql.toStdString());
        EXPECT_EQ(TableRefOf(c.sql), c.table);
    }
}
