// Rows written in a transaction travel in batches on a server (HeldWrites);
// what a program sees through the data layer must not change with that.

#include "core/repository/RepositoryFixture.h"

#include <algorithm>

using namespace dorvane;
using namespace dorvane::test;

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
