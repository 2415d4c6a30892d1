#include "repository/Connection.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <QSqlQuery>

#include <functional>

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

const QString kNoCurrent = QStringLiteral(
    "Either BOF or EOF is True, or the current record has been deleted. Requested operation requires a current record.");

} // namespace

class RecordsetTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        // iItemCount has a default of its own: a new row must read it back.
        DB_ASSERT(conn.Execute(QStringLiteral("CREATE TABLE tItem (iItemKey %1, sItemName %2, sItemDesc %2,"
                                              " iItemCount integer DEFAULT 7, bItemActive smallint DEFAULT 0)")
                                   .arg(db->autoKeyType(), db->textType())));
    }

    int add(const QString& name, int count = 0)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tItem WHERE iItemKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sItemName"), name);
        rs.SetValue(QStringLiteral("iItemCount"), count);
        rs.Update();
        return rs.Int(QStringLiteral("iItemKey"));
    }

    QStringList names(const QString& sql)
    {
        QStringList out;
        Recordset rs(sql, conn);
        for (; !rs.Eof(); rs.MoveNext())
            out << rs.Text(QStringLiteral("sItemName"));
        return out;
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
};

TEST_P(RecordsetTest, StaticCursorKeepsItsRowsAndAddsItsOwn)
{
    DB_ASSERT(add(QStringLiteral("a")));
    DB_ASSERT(add(QStringLiteral("b")));

    Recordset rs(QStringLiteral("SELECT * FROM tItem ORDER BY sItemName"), conn);
    ASSERT_EQ(rs.RecordCount(), 2);
    EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("a"));

    // Rows written by others after the first read stay unseen.
    Connection other;
    DB_ASSERT(other.Open(db->connectionString()));
    DB_ASSERT(other.Execute(QStringLiteral("INSERT INTO tItem (sItemName) VALUES ('by other')")));
    DB_ASSERT(conn.Execute(QStringLiteral("DELETE * FROM tItem WHERE sItemName = 'b'")));

    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.SetValue(QStringLiteral("sItemName"), QStringLiteral("own")));
    DB_ASSERT(rs.Update());
    EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("own"));
    EXPECT_EQ(rs.RecordCount(), 3);

    QStringList seen;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
        seen << rs.Text(QStringLiteral("sItemName"));
    EXPECT_EQ(seen, (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("own")}));
    EXPECT_EQ(names(QStringLiteral("SELECT * FROM tItem ORDER BY sItemName")),
              (QStringList{QStringLiteral("a"), QStringLiteral("by other"), QStringLiteral("own")}));
}

TEST_P(RecordsetTest, NewRowReadsItsKeyAndDefaults)
{
    Recordset rs(QStringLiteral("SELECT * FROM tItem"), conn);
    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.SetValue(QStringLiteral("sItemName"), QStringLiteral("first")));
    DB_ASSERT(rs.Update());
    const int first = rs.Int(QStringLiteral("iItemKey"));
    EXPECT_GT(first, 0);
    EXPECT_EQ(rs.Value(QStringLiteral("iItemCount")), QVariant(7));
    EXPECT_TRUE(rs.IsNull(QStringLiteral("sItemDesc")));

    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.Update());
    const int second = rs.Int(QStringLiteral("iItemKey"));
    EXPECT_GT(second, first);
    EXPECT_TRUE(rs.IsNull(QStringLiteral("sItemName")));
    EXPECT_EQ(rs.RecordCount(), 2);

    Recordset check(QStringLiteral("SELECT * FROM tItem WHERE iItemKey = %1").arg(second), conn);
    ASSERT_FALSE(check.Eof());
    EXPECT_EQ(check.Int(QStringLiteral("iItemCount")), 7);
}

TEST_P(RecordsetTest, NullEmptyAndLongTextStayApart)
{
    const QString longText(5000, QLatin1Char('x'));
    // Quotes, umlauts, CJK and a character outside the BMP (a surrogate pair).
    const QString quoted = QStringLiteral("O'Neil'); DROP TABLE tItem; -- Grüße 東京 \U0001F600");
    {
        Recordset rs(QStringLiteral("SELECT * FROM tItem"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sItemName"), QString(QLatin1String("")));
        rs.SetValue(QStringLiteral("sItemDesc"), QVariant());
        rs.SetValue(QStringLiteral("iItemCount"), QVariant());
        rs.Update();
        rs.AddNew();
        rs.SetValue(QStringLiteral("sItemName"), quoted);
        rs.SetValue(QStringLiteral("sItemDesc"), longText);
        rs.SetValue(QStringLiteral("bItemActive"), true);
        rs.SetValue(QStringLiteral("iItemCount"), QStringLiteral("12"));
        rs.Update();
        // An untouched text box's text is a null QString: still the empty text.
        rs.AddNew();
        rs.SetValue(QStringLiteral("sItemName"), QString());
        rs.Update();
    }
    Recordset rs(QStringLiteral("SELECT * FROM tItem ORDER BY iItemKey"), conn);
    ASSERT_EQ(rs.RecordCount(), 3);
    const QVariant empty = rs.Value(QStringLiteral("sItemName"));
    EXPECT_TRUE(empty.isValid());
    EXPECT_EQ(empty.typeId(), QMetaType::QString);
    EXPECT_TRUE(empty.toString().isEmpty());
    EXPECT_TRUE(rs.IsNull(QStringLiteral("sItemDesc")));
    EXPECT_TRUE(rs.IsNull(QStringLiteral("iItemCount")));
    EXPECT_EQ(rs.Text(QStringLiteral("sItemDesc")), QString());
    EXPECT_EQ(rs.Int(QStringLiteral("iItemCount")), 0);

    rs.MoveNext();
    EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), quoted);
    EXPECT_EQ(rs.Text(QStringLiteral("sItemDesc")), longText);
    const QVariant active = rs.Value(QStringLiteral("bItemActive"));
    EXPECT_EQ(active.typeId(), QMetaType::Int);
    EXPECT_EQ(active.toInt(), -1);
    const QVariant count = rs.Value(QStringLiteral("iItemCount"));
    EXPECT_EQ(count.typeId(), QMetaType::Int);
    EXPECT_EQ(count.toInt(), 12);
    EXPECT_EQ(rs.Value(QStringLiteral("iItemKey")).typeId(), QMetaType::Int);

    rs.MoveNext();
    EXPECT_FALSE(rs.IsNull(QStringLiteral("sItemName")));
    EXPECT_EQ(rs.Value(QStringLiteral("sItemName")).toString(), QStringLiteral(""));
}

TEST_P(RecordsetTest, FieldNamesAreCaseInsensitive)
{
    DB_ASSERT(add(QStringLiteral("Mixed"), 4));
    Recordset rs(QStringLiteral("SELECT * FROM TITEM WHERE SITEMNAME = 'mixed'"), conn);
    ASSERT_FALSE(rs.Eof());
    EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("Mixed"));
    EXPECT_EQ(rs.Text(QStringLiteral("SITEMNAME")), QStringLiteral("Mixed"));
    EXPECT_EQ(rs.Int(QStringLiteral("iitemcount")), 4);
    EXPECT_EQ(rs.FieldNames().size(), 5);
    // A column list is the statement's, also before the first read.
    Recordset some(QStringLiteral("SELECT sItemName, iItemCount FROM tItem"), conn);
    const QStringList listed = some.FieldNames();
    ASSERT_EQ(listed.size(), 2);
    EXPECT_EQ(listed[1].compare(QLatin1String("iItemCount"), Qt::CaseInsensitive), 0);
    EXPECT_EQ(some.Int(QStringLiteral("iItemCount")), 4);
    EXPECT_EQ(rs.KeyField().compare(QLatin1String("iItemKey"), Qt::CaseInsensitive), 0);
    EXPECT_EQ(descriptionOf([&] { rs.Value(QStringLiteral("sItemNam")); }),
              QStringLiteral("Item cannot be found in the collection corresponding to the requested name or ordinal."));
    EXPECT_EQ(descriptionOf([&] { rs.SetValue(QStringLiteral("sNoSuchField"), 1); }),
              QStringLiteral("Item cannot be found in the collection corresponding to the requested name or ordinal."));

    // The same through [brackets] and an assignment with other casing.
    Recordset br(QStringLiteral("SELECT * FROM [tItem] WHERE [sItemName] = 'MIXED'"), conn);
    ASSERT_EQ(br.RecordCount(), 1);
    DB_ASSERT(br.SetValue(QStringLiteral("SITEMDESC"), QStringLiteral("described")));
    DB_ASSERT(br.Update());
    EXPECT_EQ(names(QStringLiteral("SELECT * FROM tItem WHERE sItemDesc = 'described'")),
              QStringList{QStringLiteral("Mixed")});
}

TEST_P(RecordsetTest, AddingDoesNotReadTheTable)
{
    DB_ASSERT(add(QStringLiteral("existing")));
    if (db->isOdbc()) {
        // The server counts every scan of the table within a transaction.
        auto scans = [&] {
            QSqlQuery q(conn.database());
            EXPECT_TRUE(q.exec(QStringLiteral("SELECT seq_scan + coalesce(idx_scan, 0) FROM pg_stat_xact_user_tables"
                                              " WHERE relname = 'titem'")));
            const int n = q.next() ? q.value(0).toInt() : 0;
            q.finish();
            return n;
        };
        DB_ASSERT(conn.BeginTrans());
        const int before = scans();
        for (int i = 0; i < 3; ++i) {
            Recordset rs(QStringLiteral("SELECT * FROM tItem"), conn);
            DB_ASSERT(rs.AddNew());
            DB_ASSERT(rs.SetValue(QStringLiteral("sItemName"), QStringLiteral("added")));
            DB_ASSERT(rs.Update());
            EXPECT_GT(rs.Int(QStringLiteral("iItemKey")), 0);
        }
        EXPECT_EQ(scans(), before);
        // The probe does see a read.
        Recordset reader(QStringLiteral("SELECT * FROM tItem"), conn);
        EXPECT_EQ(reader.RecordCount(), 4);
        EXPECT_GT(scans(), before);
        DB_ASSERT(conn.CommitTrans());
    } else {
        // A computed column that fails when the row "boom" is read.
        DB_ASSERT(conn.Execute(
            QStringLiteral("CREATE TABLE tTrap (iTrapKey INTEGER PRIMARY KEY AUTOINCREMENT, sTrapName TEXT)")));
        DB_ASSERT(conn.Execute(QStringLiteral("INSERT INTO tTrap (sTrapName) VALUES ('boom')")));
        DB_ASSERT(conn.Execute(QStringLiteral(
            "ALTER TABLE tTrap ADD COLUMN iTrapBoom INTEGER GENERATED ALWAYS AS"
            " (CASE WHEN sTrapName = 'boom' THEN abs(-9223372036854775807 - 1) ELSE 0 END) VIRTUAL")));
        for (int i = 0; i < 3; ++i) {
            Recordset rs(QStringLiteral("SELECT * FROM tTrap"), conn);
            DB_ASSERT(rs.AddNew());
            DB_ASSERT(rs.SetValue(QStringLiteral("sTrapName"), QStringLiteral("added")));
            DB_ASSERT(rs.Update());
            EXPECT_EQ(rs.Int(QStringLiteral("iTrapKey")), i + 2);
            EXPECT_FALSE(rs.Eof());
        }
        Recordset reader(QStringLiteral("SELECT * FROM tTrap"), conn);
        EXPECT_TRUE(descriptionOf([&] { reader.Eof(); }).contains(QLatin1String("overflow")));
    }
}

TEST_P(RecordsetTest, EmptyRecordsetIsAtBothEnds)
{
    Recordset rs(QStringLiteral("SELECT * FROM tItem WHERE iItemKey=0"), conn);
    EXPECT_TRUE(rs.Eof());
    EXPECT_TRUE(rs.Bof());
    EXPECT_EQ(rs.RecordCount(), 0);
    DB_ASSERT(rs.MoveFirst());
    EXPECT_TRUE(rs.Eof());
    EXPECT_EQ(descriptionOf([&] { rs.MoveNext(); }), kNoCurrent);
    EXPECT_EQ(descriptionOf([&] { rs.Value(QStringLiteral("sItemName")); }), kNoCurrent);
    EXPECT_EQ(descriptionOf([&] { rs.SetValue(QStringLiteral("sItemName"), QStringLiteral("x")); }), kNoCurrent);
    rs.Close();
    EXPECT_EQ(descriptionOf([&] { rs.Eof(); }), QStringLiteral("Operation is not allowed when the object is closed."));
}

TEST_P(RecordsetTest, DeletedRowStaysCurrentUntilTheNextMove)
{
    DB_ASSERT(add(QStringLiteral("a")));
    DB_ASSERT(add(QStringLiteral("b")));
    DB_ASSERT(add(QStringLiteral("c")));
    Recordset rs(QStringLiteral("SELECT * FROM tItem ORDER BY sItemName"), conn);
    ASSERT_EQ(rs.RecordCount(), 3);
    rs.MoveNext();
    DB_ASSERT(rs.Delete());
    EXPECT_FALSE(rs.Eof());
    EXPECT_EQ(rs.RecordCount(), 2);
    EXPECT_EQ(descriptionOf([&] { rs.Value(QStringLiteral("sItemName")); }),
              QStringLiteral("Row handle referred to a deleted row or a row marked for deletion."));
    EXPECT_THROW(rs.Delete(), DbError);
    rs.MoveNext();
    EXPECT_EQ(rs.Text(QStringLiteral("sItemName")), QStringLiteral("c"));
    QStringList seen;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
        seen << rs.Text(QStringLiteral("sItemName"));
    EXPECT_EQ(seen, (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
    EXPECT_EQ(names(QStringLiteral("SELECT * FROM tItem ORDER BY sItemName")), seen);

    // Deleting the only row leaves an empty set behind the next move.
    Recordset one(QStringLiteral("SELECT * FROM tItem WHERE sItemName = 'a'"), conn);
    DB_ASSERT(one.Delete());
    one.MoveNext();
    EXPECT_TRUE(one.Eof());
    EXPECT_TRUE(one.Bof());
}

TEST_P(RecordsetTest, MovingOffAChangedRowWritesIt)
{
    DB_ASSERT(add(QStringLiteral("a"), 1));
    DB_ASSERT(add(QStringLiteral("b"), 2));
    {
        Recordset rs(QStringLiteral("SELECT * FROM tItem ORDER BY sItemName"), conn);
        rs.SetValue(QStringLiteral("iItemCount"), 10);
        EXPECT_EQ(rs.Int(QStringLiteral("iItemCount")), 10);
        rs.MoveNext();
        rs.SetValue(QStringLiteral("sItemDesc"), QStringLiteral("second"));
        rs.AddNew();  // also writes the pending change
        rs.SetValue(QStringLiteral("sItemName"), QStringLiteral("c"));
        rs.MoveFirst();  // writes the new row
        EXPECT_EQ(rs.RecordCount(), 3);
    }
    Recordset check(QStringLiteral("SELECT * FROM tItem ORDER BY sItemName"), conn);
    ASSERT_EQ(check.RecordCount(), 3);
    EXPECT_EQ(check.Int(QStringLiteral("iItemCount")), 10);
    check.MoveNext();
    EXPECT_EQ(check.Text(QStringLiteral("sItemDesc")), QStringLiteral("second"));
    EXPECT_EQ(check.Int(QStringLiteral("iItemCount")), 2);
    check.MoveNext();
    EXPECT_EQ(check.Text(QStringLiteral("sItemName")), QStringLiteral("c"));
}

INSTANTIATE_TEST_SUITE_P(Backends, RecordsetTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
