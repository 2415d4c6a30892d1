#include "repository/Connection.h"
#include "repository/Recordset.h"
#include "repository/SqliteStatements.h"
#include "support/TestSupport.h"

using namespace dorvane;
using namespace dorvane::test;

namespace {

struct ShapeCase {
    const char* sql;
    const char* shape;  // nullptr: the text is left to be compiled as it stands
    std::vector<qint64> keys;
};

} // namespace

TEST(KeyLiteralsTest, OnlyComparedIntegersBecomeParameters)
{
    const std::vector<ShapeCase> cases = {
        {"SELECT * FROM tStep WHERE iStepWindowKey=123", "SELECT * FROM tStep WHERE iStepWindowKey=?", {123}},
        {"DELETE FROM tObject WHERE iObjectWindowKey = 5 AND iObjectKey <> -7",
         "DELETE FROM tObject WHERE iObjectWindowKey = ? AND iObjectKey <> ?", {5, -7}},
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
    for (const ShapeCase& c : cases) {
        QString shape;
        std::vector<qint64> keys;
        const bool made = ParameterizeKeyLiterals(QString::fromUtf8(c.sql), &shape, &keys);
        EXPECT_EQ(made, c.shape != nullptr) << c.sql;
        if (made && c.shape) {
            EXPECT_EQ(shape, QString::fromUtf8(c.shape)) << c.sql;
            EXPECT_EQ(keys, c.keys) << c.sql;
        }
    }
}

class KeptStatementsTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(conn.Execute(QStringLiteral("CREATE TABLE tItem (iItemKey %1, iItemParent integer, sItemName %2,"
                                              " iItemCount integer DEFAULT 7)")
                                   .arg(db->autoKeyType(), db->textType())));
    }

    qint32 addChild(Recordset& rs, int parent, const QString& name)
    {
        rs.AddNew();
        rs.SetValue(QStringLiteral("iItemParent"), parent);
        rs.SetValue(QStringLiteral("sItemName"), name);
        rs.Update();
        return rs.Int(QStringLiteral("iItemKey"));
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

// The copy engine's pattern: the children of one parent after another,
// through statements that differ only in the parent's key, with rows
// deleted by key in between and the schema changing under kept statements.
TEST_P(KeptStatementsTest, SelectionsByKeyReadTheirOwnRows)
{
    Recordset writer(QStringLiteral("SELECT * FROM tItem WHERE iItemKey=0"), conn);
    for (int parent = 1; parent <= 3; ++parent) {
        for (int i = 0; i < parent; ++i)
            DB_ASSERT(addChild(writer, parent, QStringLiteral("%1.%2").arg(parent).arg(i)));
    }
    for (int parent = 1; parent <= 3; ++parent) {
        Recordset rs(QStringLiteral("SELECT * FROM tItem WHERE iItemParent=%1 ORDER BY sItemName").arg(parent), conn);
        ASSERT_EQ(rs.RecordCount(), parent);
        EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("%1.0").arg(parent));
        // A nested selection of the same shape while this one is open.
        Recordset other(QStringLiteral("SELECT * FROM tItem WHERE iItemParent=%1").arg(4 - parent), conn);
        EXPECT_EQ(other.RecordCount(), 4 - parent);
        EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("%1.0").arg(parent));
    }
    EXPECT_EQ(conn.Execute(QStringLiteral("DELETE FROM tItem WHERE iItemParent = 3")), 3);
    EXPECT_EQ(conn.Execute(QStringLiteral("DELETE FROM tItem WHERE iItemParent = 3")), 0);
    DB_ASSERT(conn.Execute(QStringLiteral("ALTER TABLE tItem ADD COLUMN sItemNote %1").arg(db->textType())));
    EXPECT_EQ(conn.Execute(QStringLiteral("DELETE FROM tItem WHERE iItemParent = 2")), 2);
    Recordset rest(QStringLiteral("SELECT * FROM tItem WHERE iItemParent=1"), conn);
    EXPECT_EQ(rest.RecordCount(), 1);
    EXPECT_TRUE(rest.IsNull(QStringLiteral("sItemNote")));
}

// Added rows are kept compactly once another row is current; the values
// they did not write (a column default here) are still read back when
// asked for, and a row changed after being kept writes its change.
TEST_P(KeptStatementsTest, AddedRowsKeepTheirValuesAndReadTheRestBack)
{
    Recordset rs(QStringLiteral("SELECT * FROM tItem WHERE iItemParent=0"), conn);
    const qint32 first = addChild(rs, 5, QStringLiteral("first"));
    addChild(rs, 5, QStringLiteral("second"));
    addChild(rs, 5, QStringLiteral("third"));
    DB_ASSERT(conn.Execute(QStringLiteral("UPDATE tItem SET iItemCount = 9 WHERE sItemName = 'first'")));

    QStringList names;
    QList<int> counts;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext()) {
        names << rs.Text(QStringLiteral("sItemName"));
        counts << rs.Int(QStringLiteral("iItemCount"));
    }
    EXPECT_EQ(names, (QStringList{QStringLiteral("first"), QStringLiteral("second"), QStringLiteral("third")}));
    EXPECT_EQ(counts, (QList<int>{9, 7, 7}));

    rs.MoveFirst();
    ASSERT_EQ(rs.Int(QStringLiteral("iItemKey")), first);
    DB_ASSERT(rs.SetValue(QStringLiteral("sItemName"), QStringLiteral("renamed")));
    DB_ASSERT(rs.MoveNext());
    rs.MoveFirst();
    EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("renamed"));
    EXPECT_EQ(rs.Int(QStringLiteral("iItemCount")), 9);
    Recordset check(QStringLiteral("SELECT * FROM tItem WHERE iItemKey=%1").arg(first), conn);
    EXPECT_EQ(check.Text(QStringLiteral("sItemName")), QStringLiteral("renamed"));
}

INSTANTIATE_TEST_SUITE_P(Backends, KeptStatementsTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
