// Rows written in a transaction travel in batches on a server (HeldWrites);
// what a program sees through the data layer must not change with that.

#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <algorithm>

using namespace dorvane;
using namespace dorvane::test;
using namespace Qt::StringLiterals;

class HeldWritesTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        conn.BatchWrites(true);
        for (const QString& table : {u"tItem"_s, u"tPart"_s})
            DB_ASSERT(conn.Execute(u"CREATE TABLE %1 (iKey %2, sName %3, sDesc %3, iCount integer DEFAULT 7,"
                                   u" iGroup integer)"_s.arg(table, db->autoKeyType(), db->textType())));
    }

    qint32 add(const QString& name, int count = 0, const QString& table = u"tItem"_s)
    {
        Recordset rs(u"SELECT * FROM %1 WHERE iKey=0"_s.arg(table), conn);
        rs.AddNew();
        rs.SetValue(u"sName"_s, name);
        rs.SetValue(u"iGroup"_s, count % 10);
        if (count != 0)
            rs.SetValue(u"iCount"_s, count);
        rs.Update();
        return rs.Int(u"iKey"_s);
    }

    // What another connection sees of a table, in key order.
    QStringList committed(const QString& table = u"tItem"_s)
    {
        Connection other;
        other.Open(db->connectionString());
        QStringList out;
        Recordset rs(u"SELECT * FROM %1 ORDER BY iKey"_s.arg(table), other);
        for (; !rs.Eof(); rs.MoveNext())
            out << rs.Text(u"sName"_s) + u':' + rs.Text(u"iCount"_s);
        return out;
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
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
    EXPECT_EQ(row.Text(u"sName"_s), u"Row"_s);
    EXPECT_EQ(row.Int(u"iCount"_s), 7);
    Recordset third(u"SELECT * FROM tItem WHERE iGroup=3 AND sName = 'late'"_s, conn);
    EXPECT_EQ(CountRecords(&third), 1);

    row.SetValue(u"sDesc"_s, u"changed"_s);
    row.Update();
    row.SetValue(u"iCount"_s, 8);
    row.Update();
    Recordset changed(u"SELECT * FROM tItem WHERE sDesc = 'changed'"_s, conn);
    ASSERT_EQ(CountRecords(&changed), 1);
    EXPECT_EQ(changed.Int(u"iCount"_s), 8);
    // A statement of its own sees them too.
    EXPECT_EQ(conn.Execute(u"UPDATE tItem SET iCount = iCount + 100 WHERE iGroup = 3"_s), 2);
    conn.CommitTrans();
    EXPECT_EQ(committed(), (QStringList{u"early 1:1"_s, u"early 2:2"_s, u"early 3:103"_s, u"early 4:4"_s,
                                        u"early 5:5"_s, u"Row:8"_s, u"late:103"_s}));
}

TEST_P(HeldWritesTest, AFailureInTheMiddleOfABatchLeavesTheTableAsItWas)
{
    add(u"kept"_s, 1);
    if (db->isOdbc()) {
        conn.Execute(u"CREATE FUNCTION refuse_300() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
                     u"IF NEW.sName = 'item 300' THEN RAISE EXCEPTION 'boom'; END IF; RETURN NEW; END $$"_s);
        conn.Execute(u"CREATE TRIGGER refuse_300 BEFORE INSERT ON tItem FOR EACH ROW EXECUTE FUNCTION refuse_300()"_s);
    } else {
        conn.Execute(u"CREATE TRIGGER refuse_300 BEFORE INSERT ON tItem WHEN NEW.sName = 'item 300' "
                     u"BEGIN SELECT RAISE(ABORT, 'boom'); END"_s);
    }
    for (const bool changeFirst : {false, true}) {
        SCOPED_TRACE(changeFirst ? "after a change" : "adding only");
        conn.BeginTrans();
        const QString failure = [&] {
            try {
                if (changeFirst) {
                    Recordset kept(u"SELECT * FROM tItem"_s, conn);
                    kept.SetValue(u"iCount"_s, 2);
                    kept.Update();
                }
                for (int i = 1; i <= 500; ++i)
                    add(u"item %1"_s.arg(i), i);
                conn.CommitTrans();
            } catch (const DbError& e) {
                return e.description();
            }
            return u"<no error>"_s;
        }();
        EXPECT_TRUE(failure.contains(u"boom"_s)) << failure.toStdString();
        ASSERT_TRUE(conn.InTransaction());
        conn.RollbackTrans();
        EXPECT_EQ(committed(), QStringList{u"kept:1"_s});
    }
}

TEST_P(HeldWritesTest, KeysAscendInTheOrderRowsWereAdded)
{
    conn.BeginTrans();
    std::vector<qint32> items;
    std::vector<qint32> parts;
    for (int i = 0; i < 120; ++i) {
        items.push_back(add(u"i%1"_s.arg(i), i + 1));
        if (i % 3 == 0)
            parts.push_back(add(u"p%1"_s.arg(i), i + 1, u"tPart"_s));
        if (i % 50 == 0) {
            // A read between the additions sends nothing out of order.
            Recordset rs(u"SELECT * FROM tItem WHERE iKey = %1"_s.arg(items.back()), conn);
            EXPECT_FALSE(rs.Eof());
        }
    }
    conn.CommitTrans();
    for (const auto* keys : {&items, &parts})
        EXPECT_TRUE(std::is_sorted(keys->begin(), keys->end(), std::less_equal<qint32>()) &&
                    std::adjacent_find(keys->begin(), keys->end()) == keys->end());
    const QStringList stored = committed();
    ASSERT_EQ(stored.size(), 120);
    for (int i = 0; i < 120; ++i)
        EXPECT_EQ(stored[i], u"i%1:%2"_s.arg(i).arg(i + 1));
    EXPECT_EQ(committed(u"tPart"_s).size(), 40);
}

TEST_P(HeldWritesTest, RowsHeldBeforeACommitAreCommittedAndOnlyThose)
{
    conn.BeginTrans();
    add(u"first"_s, 1);
    add(u"second"_s, 2);
    conn.CommitTrans();
    EXPECT_EQ(committed(), (QStringList{u"first:1"_s, u"second:2"_s}));

    conn.BeginTrans();
    add(u"dropped"_s, 3);
    conn.RollbackTrans();
    // Outside a transaction a row is written at once.
    add(u"third"_s, 4);
    EXPECT_EQ(committed(), (QStringList{u"first:1"_s, u"second:2"_s, u"third:4"_s}));
}

TEST_P(HeldWritesTest, BatchesLargerThanTheServersParameterLimitArriveWhole)
{
    // 14,000 rows of five values: 70,000 parameters, more than one
    // statement may carry.
    constexpr int kRows = 14000;
    conn.BeginTrans();
    Recordset rows(u"SELECT * FROM tItem WHERE iKey=0"_s, conn);
    for (int i = 1; i <= kRows; ++i) {
        rows.AddNew();
        rows.SetValue(u"sName"_s, u"n%1"_s.arg(i));
        rows.SetValue(u"sDesc"_s, u"d"_s);
        rows.SetValue(u"iCount"_s, i);
        rows.SetValue(u"iGroup"_s, i % 10);
        rows.Update();
    }
    // Its statement selects none of them, but a record set shows the rows
    // it added, in order, also those it no longer holds itself.
    rows.MoveFirst();
    EXPECT_EQ(rows.RecordCount(), kRows);
    EXPECT_EQ(rows.Text(u"sName"_s), u"n1"_s);
    for (int i = 1; i < kRows; ++i)
        rows.MoveNext();
    EXPECT_EQ(rows.Text(u"sName"_s), u"n%1"_s.arg(kRows));
    conn.CommitTrans();

    // Changed one by one, they travel in batches too.
    conn.BeginTrans();
    Recordset all(u"SELECT * FROM tItem ORDER BY iKey"_s, conn);
    for (; !all.Eof(); all.MoveNext()) {
        all.SetValue(u"iCount"_s, all.Int(u"iCount"_s) * 2);
        all.Update();
    }
    conn.CommitTrans();

    const QStringList stored = committed();
    ASSERT_EQ(stored.size(), kRows);
    for (int i : {1, 2, 400, 401, kRows / 2, kRows})
        EXPECT_EQ(stored[i - 1], u"n%1:%2"_s.arg(i).arg(2 * i));
}

INSTANTIATE_TEST_SUITE_P(Backends, HeldWritesTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
