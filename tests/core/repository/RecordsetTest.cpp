// The record set's cursor: what it holds, where it stands, and the errors
// of calls that need a row; then the values, statements and errors of its
// write and read paths: what every value looks like after a round trip,
// statements kept across transactions, rollbacks and schema changes, and
// the database's own error texts.

#include "core/repository/Dialect.h"
#include "core/repository/RepositoryFixture.h"

#include <QByteArray>
#include <QDateTime>
#include <QSqlError>
#include <QSqlQuery>

#include <limits>

using namespace dorvane;
using namespace dorvane::test;

class RecordsetTest : public ItemTest {
protected:
    QStringList names(Recordset& rs)
    {
        QStringList seen;
        for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
            seen << rs.Text(u"sItemName"_s);
        return seen;
    }
};

TEST_P(RecordsetTest, StaticCursorKeepsItsRowsAndAddsItsOwn)
{
    qint32 last = 0;
    DB_ASSERT(add(u"a"_s); last = add(u"b"_s));
    Recordset rs(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
    ASSERT_EQ(rs.RecordCount(), 2);

    // Rows written by others after the first read stay unseen.
    DB_ASSERT(other.Open(db->connectionString()));
    DB_ASSERT(other.Execute(u"INSERT INTO tItem (sItemName) VALUES ('by other')"_s));
    DB_ASSERT(conn.Execute(u"DELETE * FROM tItem WHERE sItemName = 'b'"_s));

    // A row it adds is current after Update, with its new key, the column
    // default and Null where nothing was written.
    qint32 own = 0;
    DB_ASSERT(own = addTo(rs, {{u"sItemName"_s, u"own"_s}}));
    EXPECT_GT(own, last);
    EXPECT_EQ(std::tuple(rs.Text(u"sItemName"_s), rs.Value(u"iItemCount"_s), rs.IsNull(u"sItemDesc"_s), rs.RecordCount()),
              std::tuple(u"own"_s, QVariant(7), true, 3));
    // A row with no value at all.
    DB_ASSERT(EXPECT_GT(addTo(rs, {}), own));
    EXPECT_EQ(std::tuple(rs.IsNull(u"sItemName"_s), rs.Int(u"iItemCount"_s), rs.RecordCount()), std::tuple(true, 7, 4));

    EXPECT_EQ(names(rs), (QStringList{u"a"_s, u"b"_s, u"own"_s, QString()}));
    EXPECT_EQ(Rows(conn, u"SELECT sItemName, iItemCount FROM tItem ORDER BY iItemKey"_s),
              (QStringList{u"a|0"_s, u"by other|7"_s, u"own|7"_s, u"<null>|7"_s}));
}

TEST_P(RecordsetTest, FieldNamesAreCaseInsensitive)
{
    DB_ASSERT(add(u"Mixed"_s, 4));
    Recordset rs(u"SELECT * FROM TITEM WHERE SITEMNAME = 'mixed'"_s, conn);
    ASSERT_FALSE(rs.Eof());
    EXPECT_EQ(std::tuple(rs.Text(u"sItemName"_s), rs.Text(u"SITEMNAME"_s), rs.Int(u"iitemcount"_s), rs.FieldNames().size(), rs.KeyField().toLower()),
              std::tuple(u"Mixed"_s, u"Mixed"_s, 4, 6, u"iitemkey"_s));
    // A column list is the statement's, also before the first read.
    Recordset some(u"SELECT sItemName, iItemCount FROM tItem"_s, conn);
    EXPECT_EQ(some.FieldNames().join(u',').toLower(), u"sitemname,iitemcount"_s);
    EXPECT_EQ(some.Int(u"iItemCount"_s), 4);

    // The same through [brackets] and an assignment with other casing.
    Recordset br(u"SELECT * FROM [tItem] WHERE [sItemName] = 'MIXED'"_s, conn);
    ASSERT_EQ(br.RecordCount(), 1);
    DB_ASSERT(br.SetValue(u"SITEMDESC"_s, u"described"_s); br.Update());
    EXPECT_EQ(Rows(conn, u"SELECT sItemName FROM tItem WHERE sItemDesc = 'described'"_s), QStringList{u"Mixed"_s});
}

// A deleted row stays current until the next move. Each call that needs a
// current row or a field, where there is none, fails with the text Jet gives.
TEST_P(RecordsetTest, DeletedRowsAndCallsWithoutTheirRowOrField)
{
    DB_ASSERT(add(u"a"_s); add(u"b"_s); add(u"c"_s));
    const QString noCurrent
        = u"Either BOF or EOF is True, or the current record has been deleted. Requested operation requires a current record."_s;
    const QString noItem = u"Item cannot be found in the collection corresponding to the requested name or ordinal."_s;
    const QString deleted = u"Row handle referred to a deleted row or a row marked for deletion."_s;

    Recordset empty(u"SELECT * FROM tItem WHERE iItemKey=0"_s, conn);
    EXPECT_EQ(std::tuple(empty.Eof(), empty.Bof(), empty.RecordCount()), std::tuple(true, true, 0));
    DB_ASSERT(empty.MoveFirst());
    Recordset rs(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
    ASSERT_EQ(rs.RecordCount(), 3);
    rs.MoveNext();
    DB_ASSERT(rs.Delete());
    EXPECT_EQ(std::pair(rs.Eof(), rs.RecordCount()), std::pair(false, 2));
    Recordset one(u"SELECT * FROM tItem WHERE sItemName = 'a'"_s, conn);
    Recordset closed(u"SELECT * FROM tItem"_s, conn);
    closed.Close();

    const struct { const char* call; std::function<void()> action; QString says; } cases[] = {
        {"MoveNext on an empty set", [&] { empty.MoveNext(); }, noCurrent},
        {"Value on an empty set", [&] { empty.Value(u"sItemName"_s); }, noCurrent},
        {"SetValue on an empty set", [&] { empty.SetValue(u"sItemName"_s, u"x"_s); }, noCurrent},
        {"Value of a misspelt field", [&] { one.Value(u"sItemNam"_s); }, noItem},
        {"SetValue of an unknown field", [&] { one.SetValue(u"sNoSuchField"_s, 1); }, noItem},
        {"Value of a deleted row", [&] { rs.Value(u"sItemName"_s); }, deleted},
        {"Delete of a deleted row", [&] { rs.Delete(); }, deleted},
        {"Eof when closed", [&] { closed.Eof(); }, u"Operation is not allowed when the object is closed."_s},
    };
    for (const auto& c : cases)
        EXPECT_EQ(descriptionOf(c.action), c.says) << c.call;

    rs.MoveNext();
    EXPECT_EQ(rs.Text(u"sItemName"_s), u"c"_s);
    EXPECT_EQ(names(rs), (QStringList{u"a"_s, u"c"_s}));
    EXPECT_EQ(Rows(conn, u"SELECT sItemName FROM tItem ORDER BY sItemName"_s), (QStringList{u"a"_s, u"c"_s}));
    // Deleting the only row leaves an empty set behind the next move.
    DB_ASSERT(one.Delete());
    one.MoveNext();
    EXPECT_TRUE(one.Eof() && one.Bof());
}

TEST_P(RecordsetTest, AddingDoesNotReadTheTable)
{
    DB_ASSERT(add(u"existing"_s));
    if (db->isOdbc()) {
        // The server counts every scan of the table within a transaction.
        auto scans = [&] {
            QSqlQuery q(conn.database());
            EXPECT_TRUE(q.exec(u"SELECT seq_scan + coalesce(idx_scan, 0) FROM pg_stat_xact_user_tables WHERE relname = 'titem'"_s));
            return q.next() ? q.value(0).toInt() : 0;
        };
        DB_ASSERT(conn.BeginTrans());
        const int before = scans();
        for (int i = 0; i < 3; ++i)
            EXPECT_GT(addRow(conn, u"SELECT * FROM tItem"_s, {{u"sItemName"_s, u"added"_s}}), 0);
        EXPECT_EQ(scans(), before);
        // The probe does see a read.
        EXPECT_EQ(count(u"SELECT * FROM tItem"_s), 4);
        EXPECT_GT(scans(), before);
        DB_ASSERT(conn.CommitTrans());
    } else {
        // A computed column that fails when the row "boom" is read.
        DB_ASSERT(conn.Execute(u"CREATE TABLE tTrap (iTrapKey INTEGER PRIMARY KEY AUTOINCREMENT, sTrapName TEXT)"_s));
        DB_ASSERT(conn.Execute(u"INSERT INTO tTrap (sTrapName) VALUES ('boom')"_s));
        DB_ASSERT(conn.Execute(u"ALTER TABLE tTrap ADD COLUMN iTrapBoom INTEGER GENERATED ALWAYS AS"
                               " (CASE WHEN sTrapName = 'boom' THEN abs(-9223372036854775807 - 1) ELSE 0 END) VIRTUAL"_s));
        for (int i = 0; i < 3; ++i) {
            Recordset rs(u"SELECT * FROM tTrap"_s, conn);
            DB_ASSERT(rs.AddNew(); rs.SetValue(u"sTrapName"_s, u"added"_s); rs.Update());
            EXPECT_EQ(std::pair(rs.Int(u"iTrapKey"_s), rs.Eof()), std::pair(i + 2, false));
        }
        Recordset reader(u"SELECT * FROM tTrap"_s, conn);
        EXPECT_TRUE(descriptionOf([&] { reader.Eof(); }).contains(u"overflow"_s));
    }
}

TEST_P(RecordsetTest, MovingOffAChangedRowWritesIt)
{
    DB_ASSERT(add(u"a"_s, 1); add(u"b"_s, 2));
    Recordset rs(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
    rs.SetValue(u"iItemCount"_s, 10);
    rs.MoveNext();
    rs.SetValue(u"sItemDesc"_s, u"second"_s);
    rs.AddNew(); // also writes the pending change
    rs.SetValue(u"sItemName"_s, u"c"_s);
    rs.MoveFirst(); // writes the new row
    EXPECT_EQ(rs.RecordCount(), 3);
    EXPECT_EQ(Rows(conn, u"SELECT sItemName, sItemDesc, iItemCount FROM tItem ORDER BY sItemName"_s),
              (QStringList{u"a|<null>|10"_s, u"b|second|2"_s, u"c|<null>|7"_s}));
}

INSTANTIATE_TEST_SUITE_P(Backends, RecordsetTest, ::testing::ValuesIn(TestBackends()), backendName);

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
