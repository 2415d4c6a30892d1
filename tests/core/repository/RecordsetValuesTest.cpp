// Values, statements and errors of the record set's write and read paths:
// what every value looks like after a round trip, statements kept across
// transactions, rollbacks and schema changes, and the database's own error
// texts.

#include "core/repository/Dialect.h"
#include "core/repository/RepositoryFixture.h"

#include <QByteArray>
#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>

#include <limits>

using namespace dorvane;
using namespace dorvane::test;

const QString kKey = u"iValueKey"_s;
const QString kText = u"sValueText"_s;
const QString kNumber = u"iValueNumber"_s;
const QString kBig = u"iValueBig"_s;
const QString kReal = u"fValueReal"_s;
const QString kFlag = u"bValueFlag"_s;

class RecordsetValuesTest : public BackendTest {
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        createTable(u"tValue"_s, u"iValueKey %1, sValueText %2, iValueNumber integer, bValueFlag smallint DEFAULT 0, "_s
                                     + (db->isOdbc() ? u"iValueBig bigint, fValueReal double precision"_s : u"iValueBig INTEGER, fValueReal REAL"_s));
    }

    // Adds one row through a fresh record set, as the copy engine does.
    qint32 add(const QVariant& text, const QVariant& number = QVariant())
    {
        return addRow(conn, u"SELECT * FROM tValue WHERE iValueKey=0"_s, {{kText, text}, {kNumber, number}});
    }

    QString number(int key) { return Rows(conn, u"SELECT iValueNumber FROM tValue WHERE iValueKey = %1"_s.arg(key)).value(0); }

    qint32 count() { return BackendTest::count(u"SELECT * FROM tValue"_s); }
};

// Each value is written once by adding a row and once by changing one, and
// read back with its type: Null apart from the empty text, integers as int
// within 32 bits and as 64-bit integers beyond.
TEST_P(RecordsetValuesTest, ValuesReadBackWithTheirType)
{
    const qlonglong beyond = qlonglong(std::numeric_limits<qint32>::max()) + 5;
    const qlonglong below = qlonglong(std::numeric_limits<qint32>::min()) - 5;
    const QString longText(5000, u'x');
    // Quotes, umlauts, CJK and a character outside the BMP (a surrogate pair).
    const QString quoted = u"O'Neil'); DROP TABLE tItem; -- Grüße 東京 \U0001F600"_s;
    const struct { const char* what; QString field; QVariant written; QVariant read; } cases[] = {
        {"the empty text", kText, u""_s, u""_s},
        {"an untouched text box's null text: still the empty text", kText, QString(), u""_s},
        {"Null text", kText, QVariant(), QVariant()},
        {"quotes and any character", kText, quoted, quoted},
        {"long text", kText, longText, longText},
        {"Null number", kNumber, QVariant(), QVariant()},
        {"the smallest int", kNumber, std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::min()},
        {"a number as text", kNumber, u"12"_s, 12},
        {"a fraction in an integer column rounds, as Jet does", kNumber, 3.6, 4},
        {"beyond 32 bits", kBig, beyond, beyond},
        {"below 32 bits", kBig, below, below},
        {"a small value of a 64-bit column", kBig, qlonglong(12), 12},
        {"a real", kReal, 2.5, 2.5},
        {"true is -1", kFlag, true, -1},
    };
    for (const auto& c : cases) {
        DB_ASSERT(addRow(conn, u"SELECT * FROM tValue WHERE iValueKey=0"_s, {{c.field, c.written}}));
        DB_ASSERT(Recordset changed(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(add(u"changed"_s)), conn);
                  changed.SetValue(c.field, c.written); changed.Update());
    }
    Recordset rs(u"SELECT * FROM tValue ORDER BY iValueKey"_s, conn);
    for (const auto& c : cases) {
        for (const char* how : {"added", "changed"}) {
            SCOPED_TRACE(std::string(c.what) + ", " + how);
            ASSERT_FALSE(rs.Eof());
            const QVariant read = rs.Value(c.field);
            EXPECT_EQ(std::tuple(read.typeId(), read, rs.IsNull(c.field)), std::tuple(c.read.typeId(), c.read, !c.read.isValid()));
            EXPECT_TRUE(c.read.isValid() || (rs.Text(c.field).isEmpty() && rs.Int(c.field) == 0));
            EXPECT_EQ(rs.Value(kKey).typeId(), QMetaType::Int);
            rs.MoveNext();
        }
    }
}

TEST_P(RecordsetValuesTest, StatementsAreReusedAcrossTransactionsAndRollbacks)
{
    int first = 0, kept = 0;
    DB_ASSERT(conn.BeginTrans(); first = add(u"rolled back"_s, 1); conn.RollbackTrans());
    EXPECT_EQ(count(), 0);

    // The same statements again, in a transaction that is kept.
    DB_ASSERT(conn.BeginTrans(); for (int i = 0; i < 20; ++i) kept = add(u"kept %1"_s.arg(i), i); conn.CommitTrans());
    EXPECT_GT(kept, first);
    EXPECT_EQ(count(), 20);

    // Update and delete of the current row, rolled back and then kept.
    for (bool commit : {false, true}) {
        DB_ASSERT(conn.BeginTrans());
        Recordset rs(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(kept), conn);
        DB_ASSERT(rs.SetValue(kNumber, 100); rs.Update());
        Recordset gone(u"SELECT * FROM tValue WHERE iValueNumber = 0"_s, conn);
        DB_ASSERT(gone.Delete(); commit ? conn.CommitTrans() : conn.RollbackTrans());
        EXPECT_EQ(std::pair(number(kept), count()), commit ? std::pair(u"100"_s, 19) : std::pair(u"19"_s, 20));
    }

    // Outside any transaction every statement commits on its own.
    int alone = 0;
    DB_ASSERT(alone = add(u"alone"_s));
    EXPECT_EQ(committed(u"SELECT sValueText FROM tValue WHERE iValueKey = %1"_s.arg(alone)), QStringList{u"alone"_s});
}

TEST_P(RecordsetValuesTest, ConstraintViolationsCarryTheDatabaseTextAndLeaveStatementsUsable)
{
    DB_ASSERT(conn.Execute(u"CREATE UNIQUE INDEX ix_tValue_number ON tValue (iValueNumber)"_s));
    int key = 0;
    DB_ASSERT(key = add(u"one"_s, 1); add(u"two"_s, 2));

    DB_ASSERT(conn.BeginTrans(); add(u"three"_s, 3));
    const QString insert = descriptionOf([&] { add(u"again"_s, 1); });
    EXPECT_TRUE(insert.contains(db->isOdbc() ? u"duplicate key"_s : u"UNIQUE constraint failed: tValue.iValueNumber"_s)) << insert.toStdString();
    Recordset rs(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(key), conn);
    DB_ASSERT(rs.SetValue(kNumber, 2));
    const QString update = descriptionOf([&] { rs.Update(); });
    EXPECT_TRUE(update.contains(db->isOdbc() ? u"duplicate key"_s : u"UNIQUE constraint failed"_s)) << update.toStdString();
    DB_ASSERT(conn.RollbackTrans());
    EXPECT_EQ(count(), 2);

    // The same statements work once the values are right.
    DB_ASSERT(add(u"four"_s, 4));
    Recordset again(u"SELECT * FROM tValue WHERE iValueKey = %1"_s.arg(key), conn);
    DB_ASSERT(again.SetValue(kNumber, 5); again.Update());
    EXPECT_EQ(std::pair(number(key), count()), std::pair(u"5"_s, 3));
}

INSTANTIATE_TEST_SUITE_P(Backends, RecordsetValuesTest, ::testing::ValuesIn(TestBackends()), backendName);

// --- SQLite only -----------------------------------------------------------

TEST(SqliteRecordsetValuesTest, EmbeddedNulBytesAndDatesRoundTripAndStatementsFollowTheSchema)
{
    TestDatabase db("sqlite");
    Connection conn;
    DB_ASSERT(conn.Open(db.connectionString()));
    DB_ASSERT(conn.Execute(u"CREATE TABLE tBlob (iBlobKey INTEGER PRIMARY KEY AUTOINCREMENT, sBlobText TEXT, xBlobData BLOB, dBlobWhen DATETIME, sGröße TEXT)"_s));
    const auto add = [&](const QString& text) { return addRow(conn, u"SELECT * FROM tBlob WHERE iBlobKey=0"_s, {{u"sBlobText"_s, text}}); };

    const QString withNul = u"before"_s + QChar(u'\0') + u"after"_s;
    const QByteArray bytes("\x00\x01\xff\x00z", 5);
    const QDateTime when(QDate(2024, 3, 1), QTime(12, 30, 5, 250));
    int key = 0;
    {
        Recordset rs(u"SELECT * FROM tBlob"_s, conn);
        DB_ASSERT(rs.AddNew(); rs.SetValue(u"sBlobText"_s, withNul); rs.SetValue(u"xBlobData"_s, bytes);
                  rs.SetValue(u"dBlobWhen"_s, when); rs.Update(); key = rs.Int(u"iBlobKey"_s));
        // The new row holds the values as assigned.
        EXPECT_EQ(rs.Value(u"dBlobWhen"_s), QVariant(when));
    }
    Recordset rs(u"SELECT * FROM tBlob WHERE iBlobKey = %1"_s.arg(key), conn);
    ASSERT_EQ(rs.RecordCount(), 1);
    EXPECT_EQ(std::pair(rs.Text(u"sBlobText"_s).size(), rs.Text(u"sBlobText"_s)), std::pair(withNul.size(), withNul));
    const QVariant blob = rs.Value(u"xBlobData"_s);
    EXPECT_EQ(std::pair(blob.typeId(), blob.toByteArray()), std::pair(int(QMetaType::QByteArray), bytes));
    // Dates are stored as Qt's SQLite driver stores them: ISO text.
    EXPECT_EQ(rs.Value(u"dBlobWhen"_s), QVariant(u"2024-03-01T12:30:05.250"_s));

    // Nothing but the text itself reaches the statement.
    QSqlQuery q(conn.database());
    ASSERT_TRUE(q.exec(u"SELECT length(CAST(sBlobText AS BLOB)) FROM tBlob"_s) && q.next());
    EXPECT_EQ(q.value(0).toInt(), 12);

    // Kept statements neither block the schema nor outlive the connection.
    for (int i = 0; i < 3; ++i) {
        Recordset current(u"SELECT * FROM tBlob WHERE iBlobKey = %1"_s.arg(add(u"row"_s)), conn);
        DB_ASSERT(current.SetValue(u"sBlobText"_s, u"changed"_s); current.Update());
    }
    // A schema change made past the data layer: kept statements are reset,
    // so SQLite lets the table go, and prepares them again for the new one.
    ASSERT_TRUE(q.exec(u"DROP TABLE tBlob"_s)) << q.lastError().text().toStdString();
    ASSERT_TRUE(q.exec(u"CREATE TABLE tBlob (iBlobKey INTEGER PRIMARY KEY AUTOINCREMENT, sBlobText TEXT)"_s));
    q.finish();
    DB_ASSERT(add(u"new"_s));

    // Closing finalises every kept statement: the file is free again and a
    // reopened connection prepares its own.
    conn.Close();
    DB_ASSERT(conn.Open(db.connectionString()); add(u"reopened"_s));
    EXPECT_EQ(Rows(conn, u"SELECT sBlobText FROM tBlob"_s), (QStringList{u"new"_s, u"reopened"_s}));
}

TEST(TableRefTest, FindsTheTableAsWritten)
{
    const std::pair<QString, QString> cases[] = {
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
    for (const auto& [sql, table] : cases)
        EXPECT_EQ(TableRefOf(sql), table) << sql.toStdString();
}
