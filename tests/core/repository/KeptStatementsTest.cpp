#include "core/repository/sqlite/SqliteStatements.h"
#include "core/repository/RepositoryFixture.h"

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
