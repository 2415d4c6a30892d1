// The statements the data layer keeps and the rows it holds back: literal
// keys made parameters, selections by key through kept statements, added
// rows kept compactly, a server's blocks of rows inserted into a file; and
// rows written in a transaction, which travel in batches on a server
// (HeldWrites), where what a program sees through the data layer must not
// change with that.

#include "core/repository/sqlite/SqliteStatements.h"
#include "core/repository/RepositoryFixture.h"

#include <algorithm>

using namespace dorvane;
using namespace dorvane::test;

TEST(KeyLiteralsTest, OnlyComparedIntegersBecomeParameters)
{
    // shape nullptr: the text is left to be compiled as it stands.
    const struct { const char* sql; const char* shape; std::vector<qint64> keys; } cases[] = {
        {"SELECT * FROM tStep WHERE iStepWindowKey=123", "SELECT * FROM tStep WHERE iStepWindowKey=?", {123}},
        {"DELETE FROM tObject WHERE iObjectWindowKey = 5 AND iObjectKey <> -7", "DELETE FROM tObject WHERE iObjectWindowKey = ? AND iObjectKey <> ?", {5, -7}},
        {"SELECT * FROM t WHERE a>=1 AND b<=2 AND c!=3", "SELECT * FROM t WHERE a>=? AND b<=? AND c!=?", {1, 2, 3}},
        // Quoted text, identifiers and names with digits are not literals.
        {"SELECT * FROM t WHERE s='k=1' AND \"c=2\"=3 AND [x=4]=b4", "SELECT * FROM t WHERE s='k=1' AND \"c=2\"=? AND [x=4]=b4", {3}},
        // Arithmetic after a column stays; a trailing semicolon is one statement.
        {"UPDATE t SET a=a-1 WHERE k=10;", "UPDATE t SET a=a-1 WHERE k=?;", {10}},
        {"SELECT * FROM t ORDER BY 1 LIMIT 3", nullptr, {}},
        {"SELECT * FROM t WHERE k=1.5", nullptr, {}},
        {"SELECT * FROM t WHERE k=1e3", nullptr, {}},
        {"SELECT * FROM t WHERE k=1; DELETE FROM t", nullptr, {}},
        {"SELECT * FROM t WHERE k=1 -- k=2", nullptr, {}},
        {"SELECT * FROM t WHERE k=12345678901234567890", nullptr, {}},
    };
    for (const auto& c : cases) {
        QString shape;
        std::vector<qint64> keys;
        EXPECT_EQ(ParameterizeKeyLiterals(QString::fromUtf8(c.sql), &shape, &keys), c.shape != nullptr) << c.sql;
        EXPECT_TRUE(!c.shape || std::pair(shape, keys) == std::pair(QString::fromUtf8(c.shape), c.keys)) << c.sql << " gave " << shape.toStdString();
    }
}

class KeptStatementsTest : public ItemTest {
protected:
    qint32 addChild(Recordset& rs, int parent, const QString& name) { return addTo(rs, {{u"iItemParent"_s, parent}, {u"sItemName"_s, name}}); }
};

// The copy engine's pattern: the children of one parent after another,
// through statements that differ only in the parent's key, with rows
// deleted by key in between and the schema changing under kept statements.
TEST_P(KeptStatementsTest, SelectionsByKeyReadTheirOwnRows)
{
    Recordset writer(u"SELECT * FROM tItem WHERE iItemKey=0"_s, conn);
    for (int parent = 1; parent <= 3; ++parent)
        DB_ASSERT(for (int i = 0; i < parent; ++i) addChild(writer, parent, u"%1.%2"_s.arg(parent).arg(i)));
    for (int parent = 1; parent <= 3; ++parent) {
        Recordset rs(u"SELECT * FROM tItem WHERE iItemParent=%1 ORDER BY sItemName"_s.arg(parent), conn);
        ASSERT_EQ(rs.RecordCount(), parent);
        // A nested selection of the same shape while this one is open.
        Recordset other(u"SELECT * FROM tItem WHERE iItemParent=%1"_s.arg(4 - parent), conn);
        EXPECT_EQ(std::pair(other.RecordCount(), rs.Text(u"sItemName"_s)), std::pair(4 - parent, u"%1.0"_s.arg(parent)));
    }
    for (const qint64 deleted : {3, 0})
        EXPECT_EQ(conn.Execute(u"DELETE FROM tItem WHERE iItemParent = 3"_s), deleted);
    DB_ASSERT(conn.Execute(u"ALTER TABLE tItem ADD COLUMN sItemNote %1"_s.arg(db->textType())));
    EXPECT_EQ(conn.Execute(u"DELETE FROM tItem WHERE iItemParent = 2"_s), 2);
    EXPECT_EQ(Rows(conn, u"SELECT * FROM tItem WHERE iItemParent=1"_s, {u"iItemKey"_s}), QStringList{u"1|1.0|<null>|7|0|<null>"_s});
}

// Added rows are kept compactly once another row is current; the values
// they did not write (a column default here) are still read back when
// asked for, and a row changed after being kept writes its change.
TEST_P(KeptStatementsTest, AddedRowsKeepTheirValuesAndReadTheRestBack)
{
    Recordset rs(u"SELECT * FROM tItem WHERE iItemParent=0"_s, conn);
    const qint32 first = addChild(rs, 5, u"first"_s);
    addChild(rs, 5, u"second"_s);
    addChild(rs, 5, u"third"_s);
    DB_ASSERT(conn.Execute(u"UPDATE tItem SET iItemCount = 9 WHERE sItemName = 'first'"_s));

    QStringList rows;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
        rows << rs.Text(u"sItemName"_s) + u':' + rs.Text(u"iItemCount"_s);
    EXPECT_EQ(rows, (QStringList{u"first:9"_s, u"second:7"_s, u"third:7"_s}));

    rs.MoveFirst();
    DB_ASSERT(rs.SetValue(u"sItemName"_s, u"renamed"_s));
    DB_ASSERT(rs.MoveNext());
    rs.MoveFirst();
    EXPECT_EQ(std::pair(rs.Text(u"sItemName"_s), rs.Int(u"iItemCount"_s)), std::pair(u"renamed"_s, 9));
    EXPECT_EQ(Rows(conn, u"SELECT sItemName FROM tItem WHERE iItemKey=%1"_s.arg(first)), QStringList{u"renamed"_s});
}

INSTANTIATE_TEST_SUITE_P(Backends, KeptStatementsTest, ::testing::ValuesIn(TestBackends()), backendName);

// A server's block of rows as JSON, inserted into a file a hundred rows to a
// statement: each value keeps its kind, each escape its character, and a
// block that is not an array of rows of the right width fails.
TEST(JsonRowsTest, BlocksKeepTheirValuesAndMalformedOnesFail)
{
    TestDatabase db("sqlite");
    Connection file;
    DB_ASSERT(file.Open(db.connectionString());
              file.Execute(u"CREATE TABLE tItem (k INTEGER PRIMARY KEY AUTOINCREMENT, n integer, s TEXT COLLATE NOCASE)"_s));
    const QString head = u"INSERT INTO tItem (k, n, s) VALUES "_s;
    SqliteStatements& statements = *file.sqliteStatements();

    QStringList many;
    for (int k = 1; k <= 250; ++k)
        many << u"[%1, %2, \"r%1\"]"_s.arg(k).arg(-k);
    InsertJsonRows(statements, head, 3, u"[%1]"_s.arg(many.join(u',')), 250);
    EXPECT_EQ(Rows(file, u"SELECT COUNT(*), SUM(n), MAX(s), (SELECT s FROM tItem WHERE k = 250) FROM tItem"_s),
              QStringList{u"250|-31375|r99|r250"_s});

    InsertJsonRows(statements, head, 3, uR"( [ [301,null,"a\"b\\c\/d\n\t\u0001\ud83d\ude00é"] , [302, 1.5, ""], [303, true, null] ] )"_s, 3);
    EXPECT_EQ(Rows(file, u"SELECT typeof(n), n, typeof(s), s = ? FROM tItem WHERE k > 300 ORDER BY k"_s
                             .replace(u"?"_s, u"'a\"b\\c/d' || char(10, 9, 1, 128512, 233)"_s)),
              (QStringList{u"null|<null>|text|1"_s, u"real|1.5|text|0"_s, u"integer|1|null|<null>"_s}));
    InsertJsonRows(statements, head, 3, u"[]"_s, 0);

    for (const QString& malformed : {u"[[401, 1, \"x\"]"_s, u"[[402, 1]]"_s, u"[[403, 1, \"x\", 2]]"_s, u"[[404, 1, \"x]]"_s,
                                     u"[[405, 1, \"x\"]] ["_s, u"[[406, abc, \"x\"]]"_s, u"[[407, 1, \"\\u00\"]]"_s}) {
        SCOPED_TRACE(malformed.toStdString());
        EXPECT_THROW(InsertJsonRows(statements, head, 3, malformed, 1), DbError);
    }
}

class HeldWritesTest : public BackendTest {
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        conn.BatchWrites(true);
        for (const QString& table : {u"tItem"_s, u"tPart"_s})
            createTable(table, u"iKey %1, sName %2, sDesc %2, iCount integer DEFAULT 7, iGroup integer"_s);
    }

    // A row with a name, a count (0: the default) and a group (the count's last digit).
    qint32 add(const QString& name, int count = 0, const QString& table = u"tItem"_s)
    {
        Values values{{u"sName"_s, name}, {u"iGroup"_s, count % 10}};
        if (count != 0)
            values.emplace_back(u"iCount"_s, count);
        return addRow(conn, u"SELECT * FROM %1 WHERE iKey=0"_s.arg(table), values);
    }

    // What another connection sees of a table, "name|count" in key order.
    QStringList stored(const QString& table = u"tItem"_s) { return committed(u"SELECT sName, iCount FROM %1 ORDER BY iKey"_s.arg(table)); }
};

TEST_P(HeldWritesTest, ARowAddedIsReadAndChangedBeforeItsBatchIsSent)
{
    conn.BeginTrans();
    for (int i = 1; i <= 5; ++i)
        add(u"early %1"_s.arg(i), i);
    const qint32 key = add(u"Row"_s);
    add(u"late"_s, 3);

    // By its key, by another column, and its default read back.
    Recordset row(u"SELECT * FROM tItem WHERE iKey = %1"_s.arg(key), conn);
    ASSERT_FALSE(row.Eof());
    EXPECT_EQ(std::tuple(row.Text(u"sName"_s), row.Int(u"iCount"_s), count(u"SELECT * FROM tItem WHERE iGroup=3 AND sName = 'late'"_s)), std::tuple(u"Row"_s, 7, 1));

    DB_ASSERT(row.SetValue(u"sDesc"_s, u"changed"_s); row.Update(); row.SetValue(u"iCount"_s, 8); row.Update());
    EXPECT_EQ(Rows(conn, u"SELECT iCount FROM tItem WHERE sDesc = 'changed'"_s), QStringList{u"8"_s});
    // A statement of its own sees them too.
    EXPECT_EQ(conn.Execute(u"UPDATE tItem SET iCount = iCount + 100 WHERE iGroup = 3"_s), 2);
    // Rows still held when the transaction commits are committed with it,
    // rows rolled back are gone, and outside a transaction a row is written at once.
    add(u"held"_s, 9);
    conn.CommitTrans();
    EXPECT_EQ(stored(), (QStringList{u"early 1|1"_s, u"early 2|2"_s, u"early 3|103"_s, u"early 4|4"_s, u"early 5|5"_s,
                                     u"Row|8"_s, u"late|103"_s, u"held|9"_s}));
    conn.BeginTrans();
    add(u"dropped"_s, 3);
    conn.RollbackTrans();
    add(u"alone"_s, 4);
    EXPECT_EQ(stored().mid(8), QStringList{u"alone|4"_s});
}

TEST_P(HeldWritesTest, AFailureInTheMiddleOfABatchLeavesTheTableAsItWas)
{
    add(u"kept"_s, 1);
    DB_ASSERT(abortOn(u"tItem"_s, u"INSERT"_s, u"NEW.sName = 'item 300'"_s));
    for (const bool changeFirst : {false, true}) {
        SCOPED_TRACE(changeFirst ? "after a change" : "adding only");
        conn.BeginTrans();
        const QString failure = descriptionOf([&] {
            if (changeFirst) {
                Recordset kept(u"SELECT * FROM tItem"_s, conn);
                kept.SetValue(u"iCount"_s, 2);
                kept.Update();
            }
            for (int i = 1; i <= 500; ++i)
                add(u"item %1"_s.arg(i), i);
            conn.CommitTrans();
        });
        EXPECT_TRUE(failure.contains(u"boom"_s)) << failure.toStdString();
        ASSERT_TRUE(conn.InTransaction());
        conn.RollbackTrans();
        EXPECT_EQ(stored(), QStringList{u"kept|1"_s});
    }
}

TEST_P(HeldWritesTest, KeysAscendInTheOrderRowsWereAdded)
{
    conn.BeginTrans();
    std::vector<qint32> items, parts;
    QStringList expected;
    for (int i = 0; i < 120; ++i) {
        items.push_back(add(u"i%1"_s.arg(i), i + 1));
        expected << u"i%1|%2"_s.arg(i).arg(i + 1);
        if (i % 3 == 0)
            parts.push_back(add(u"p%1"_s.arg(i), i + 1, u"tPart"_s));
        // A read between the additions sends nothing out of order.
        EXPECT_TRUE(i % 50 != 0 || count(u"SELECT * FROM tItem WHERE iKey = %1"_s.arg(items.back())) == 1);
    }
    conn.CommitTrans();
    for (const auto* keys : {&items, &parts})
        EXPECT_TRUE(std::adjacent_find(keys->begin(), keys->end(), std::greater_equal<qint32>()) == keys->end());
    EXPECT_EQ(std::pair(stored(), stored(u"tPart"_s).size()), std::pair(expected, qsizetype(40)));
}

TEST_P(HeldWritesTest, BatchesLargerThanTheServersParameterLimitArriveWhole)
{
    // 14,000 rows of five values: 70,000 parameters, more than one
    // statement may carry.
    constexpr int kRows = 14000;
    conn.BeginTrans();
    Recordset rows(u"SELECT * FROM tItem WHERE iKey=0"_s, conn);
    for (int i = 1; i <= kRows; ++i)
        addTo(rows, {{u"sName"_s, u"n%1"_s.arg(i)}, {u"sDesc"_s, u"d"_s}, {u"iCount"_s, i}, {u"iGroup"_s, i % 10}});
    // Its statement selects none of them, but a record set shows the rows
    // it added, in order, also those it no longer holds itself.
    rows.MoveFirst();
    EXPECT_EQ(std::pair(rows.RecordCount(), rows.Text(u"sName"_s)), std::pair(kRows, u"n1"_s));
    for (int i = 1; i < kRows; ++i)
        rows.MoveNext();
    EXPECT_EQ(rows.Text(u"sName"_s), u"n%1"_s.arg(kRows));
    conn.CommitTrans();

    // Changed one by one, they travel in batches too.
    conn.BeginTrans();
    for (Recordset all(u"SELECT * FROM tItem ORDER BY iKey"_s, conn); !all.Eof(); all.MoveNext()) {
        all.SetValue(u"iCount"_s, all.Int(u"iCount"_s) * 2);
        all.Update();
    }
    conn.CommitTrans();

    const QStringList after = stored();
    ASSERT_EQ(after.size(), kRows);
    for (int i : {1, 2, 400, 401, kRows / 2, kRows})
        EXPECT_EQ(after[i - 1], u"n%1|%2"_s.arg(i).arg(2 * i));
}

INSTANTIATE_TEST_SUITE_P(Backends, HeldWritesTest, ::testing::ValuesIn(TestBackends()), backendName);
