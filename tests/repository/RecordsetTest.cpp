#include "repository/Connection.h"
#include "repository/Recordset.h"
#include "repository/RepositoryFixture.h"

#include <QSqlQuery>

#include <functional>

using namespace Qt::StringLiterals;

using namespace dorvane;
using namespace dorvane::test;

namespace {

const QString kNoCurrent
    = u"Either BOF or EOF is True, or the current record has been deleted. Requested operation requires a current record."_s;

} // namespace

class RecordsetTest : public BackendTest {
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        // iItemCount has a default of its own: a new row must read it back.
        DB_ASSERT(conn.Execute(
            u"CREATE TABLE tItem (iItemKey %1, sItemName %2, sItemDesc %2,"
            " iItemCount integer DEFAULT 7, bItemActive smallint DEFAULT 0)"_s.arg(db->autoKeyType(), db->textType())));
    }

    int add(const QString& name, int count = 0)
    {
        Recordset rs(u"SELECT * FROM tItem WHERE iItemKey=0"_s, conn);
        rs.AddNew();
        rs.SetValue(u"sItemName"_s, name);
        rs.SetValue(u"iItemCount"_s, count);
        rs.Update();
        return rs.Int(u"iItemKey"_s);
    }

    QStringList names(const QString& sql) { return texts(sql, u"sItemName"_s); }
};

TEST_P(RecordsetTest, StaticCursorKeepsItsRowsAndAddsItsOwn)
{
    DB_ASSERT(add(u"a"_s));
    DB_ASSERT(add(u"b"_s));

    Recordset rs(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
    ASSERT_EQ(rs.RecordCount(), 2);
    EXPECT_EQ(rs.Text(u"sItemName"_s), u"a"_s);

    // Rows written by others after the first read stay unseen.
    Connection other;
    DB_ASSERT(other.Open(db->connectionString()));
    DB_ASSERT(other.Execute(u"INSERT INTO tItem (sItemName) VALUES ('by other')"_s));
    DB_ASSERT(conn.Execute(u"DELETE * FROM tItem WHERE sItemName = 'b'"_s));

    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.SetValue(u"sItemName"_s, u"own"_s));
    DB_ASSERT(rs.Update());
    EXPECT_EQ(rs.Text(u"sItemName"_s), u"own"_s);
    EXPECT_EQ(rs.RecordCount(), 3);

    QStringList seen;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
        seen << rs.Text(u"sItemName"_s);
    EXPECT_EQ(seen, (QStringList {u"a"_s, u"b"_s, u"own"_s}));
    EXPECT_EQ(names(u"SELECT * FROM tItem ORDER BY sItemName"_s), (QStringList {u"a"_s, u"by other"_s, u"own"_s}));
}

TEST_P(RecordsetTest, NewRowReadsItsKeyAndDefaults)
{
    Recordset rs(u"SELECT * FROM tItem"_s, conn);
    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.SetValue(u"sItemName"_s, u"first"_s));
    DB_ASSERT(rs.Update());
    const int first = rs.Int(u"iItemKey"_s);
    EXPECT_GT(first, 0);
    EXPECT_EQ(rs.Value(u"iItemCount"_s), QVariant(7));
    EXPECT_TRUE(rs.IsNull(u"sItemDesc"_s));

    DB_ASSERT(rs.AddNew());
    DB_ASSERT(rs.Update());
    const int second = rs.Int(u"iItemKey"_s);
    EXPECT_GT(second, first);
    EXPECT_TRUE(rs.IsNull(u"sItemName"_s));
    EXPECT_EQ(rs.RecordCount(), 2);

    Recordset check(u"SELECT * FROM tItem WHERE iItemKey = %1"_s.arg(second), conn);
    ASSERT_FALSE(check.Eof());
    EXPECT_EQ(check.Int(u"iItemCount"_s), 7);
}

TEST_P(RecordsetTest, NullEmptyAndLongTextStayApart)
{
    const QString longText(5000, QLatin1Char('x'));
    // Quotes, umlauts, CJK and a character outside the BMP (a surrogate pair).
    const QString quoted = u"O'Neil'); DROP TABLE tItem; -- Grüße 東京 \U0001F600"_s;
    {
        Recordset rs(u"SELECT * FROM tItem"_s, conn);
        rs.AddNew();
        rs.SetValue(u"sItemName"_s, QString(u""_s));
        rs.SetValue(u"sItemDesc"_s, QVariant());
        rs.SetValue(u"iItemCount"_s, QVariant());
        rs.Update();
        rs.AddNew();
        rs.SetValue(u"sItemName"_s, quoted);
        rs.SetValue(u"sItemDesc"_s, longText);
        rs.SetValue(u"bItemActive"_s, true);
        rs.SetValue(u"iItemCount"_s, u"12"_s);
        rs.Update();
        // An untouched text box's text is a null QString: still the empty text.
        rs.AddNew();
        rs.SetValue(u"sItemName"_s, QString());
        rs.Update();
    }
    Recordset rs(u"SELECT * FROM tItem ORDER BY iItemKey"_s, conn);
    ASSERT_EQ(rs.RecordCount(), 3);
    const QVariant empty = rs.Value(u"sItemName"_s);
    EXPECT_TRUE(empty.isValid());
    EXPECT_EQ(empty.typeId(), QMetaType::QString);
    EXPECT_TRUE(empty.toString().isEmpty());
    EXPECT_TRUE(rs.IsNull(u"sItemDesc"_s));
    EXPECT_TRUE(rs.IsNull(u"iItemCount"_s));
    EXPECT_EQ(rs.Text(u"sItemDesc"_s), QString());
    EXPECT_EQ(rs.Int(u"iItemCount"_s), 0);

    rs.MoveNext();
    EXPECT_EQ(rs.Text(u"sItemName"_s), quoted);
    EXPECT_EQ(rs.Text(u"sItemDesc"_s), longText);
    const QVariant active = rs.Value(u"bItemActive"_s);
    EXPECT_EQ(active.typeId(), QMetaType::Int);
    EXPECT_EQ(active.toInt(), -1);
    const QVariant count = rs.Value(u"iItemCount"_s);
    EXPECT_EQ(count.typeId(), QMetaType::Int);
    EXPECT_EQ(count.toInt(), 12);
    EXPECT_EQ(rs.Value(u"iItemKey"_s).typeId(), QMetaType::Int);

    rs.MoveNext();
    EXPECT_FALSE(rs.IsNull(u"sItemName"_s));
    EXPECT_EQ(rs.Value(u"sItemName"_s).toString(), u""_s);
}

TEST_P(RecordsetTest, FieldNamesAreCaseInsensitive)
{
    DB_ASSERT(add(u"Mixed"_s, 4));
    Recordset rs(u"SELECT * FROM TITEM WHERE SITEMNAME = 'mixed'"_s, conn);
    ASSERT_FALSE(rs.Eof());
    EXPECT_EQ(rs.Text(u"sItemName"_s), u"Mixed"_s);
    EXPECT_EQ(rs.Text(u"SITEMNAME"_s), u"Mixed"_s);
    EXPECT_EQ(rs.Int(u"iitemcount"_s), 4);
    EXPECT_EQ(rs.FieldNames().size(), 5);
    // A column list is the statement's, also before the first read.
    Recordset some(u"SELECT sItemName, iItemCount FROM tItem"_s, conn);
    const QStringList listed = some.FieldNames();
    ASSERT_EQ(listed.size(), 2);
    EXPECT_EQ(listed[1].compare(u"iItemCount"_s, Qt::CaseInsensitive), 0);
    EXPECT_EQ(some.Int(u"iItemCount"_s), 4);
    EXPECT_EQ(rs.KeyField().compare(u"iItemKey"_s, Qt::CaseInsensitive), 0);
    EXPECT_EQ(descriptionOf([&] { rs.Value(u"sItemNam"_s); }),
              u"Item cannot be found in the collection corresponding to the requested name or ordinal."_s);
    EXPECT_EQ(descriptionOf([&] { rs.SetValue(u"sNoSuchField"_s, 1); }),
              u"Item cannot be found in the collection corresponding to the requested name or ordinal."_s);

    // The same through [brackets] and an assignment with other casing.
    Recordset br(u"SELECT * FROM [tItem] WHERE [sItemName] = 'MIXED'"_s, conn);
    ASSERT_EQ(br.RecordCount(), 1);
    DB_ASSERT(br.SetValue(u"SITEMDESC"_s, u"described"_s));
    DB_ASSERT(br.Update());
    EXPECT_EQ(names(u"SELECT * FROM tItem WHERE sItemDesc = 'described'"_s), QStringList {u"Mixed"_s});
}

TEST_P(RecordsetTest, AddingDoesNotReadTheTable)
{
    DB_ASSERT(add(u"existing"_s));
    if (db->isOdbc()) {
        // The server counts every scan of the table within a transaction.
        auto scans = [&] {
            QSqlQuery q(conn.database());
            EXPECT_TRUE(q.exec(u"SELECT seq_scan + coalesce(idx_scan, 0) FROM pg_stat_xact_user_tables"
                               " WHERE relname = 'titem'"_s));
            const int n = q.next() ? q.value(0).toInt() : 0;
            q.finish();
            return n;
        };
        DB_ASSERT(conn.BeginTrans());
        const int before = scans();
        for (int i = 0; i < 3; ++i) {
            Recordset rs(u"SELECT * FROM tItem"_s, conn);
            DB_ASSERT(rs.AddNew());
            DB_ASSERT(rs.SetValue(u"sItemName"_s, u"added"_s));
            DB_ASSERT(rs.Update());
            EXPECT_GT(rs.Int(u"iItemKey"_s), 0);
        }
        EXPECT_EQ(scans(), before);
        // The probe does see a read.
        Recordset reader(u"SELECT * FROM tItem"_s, conn);
        EXPECT_EQ(reader.RecordCount(), 4);
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
            DB_ASSERT(rs.AddNew());
            DB_ASSERT(rs.SetValue(u"sTrapName"_s, u"added"_s));
            DB_ASSERT(rs.Update());
            EXPECT_EQ(rs.Int(u"iTrapKey"_s), i + 2);
            EXPECT_FALSE(rs.Eof());
        }
        Recordset reader(u"SELECT * FROM tTrap"_s, conn);
        EXPECT_TRUE(descriptionOf([&] { reader.Eof(); }).contains(u"overflow"_s));
    }
}

TEST_P(RecordsetTest, EmptyRecordsetIsAtBothEnds)
{
    Recordset rs(u"SELECT * FROM tItem WHERE iItemKey=0"_s, conn);
    EXPECT_TRUE(rs.Eof());
    EXPECT_TRUE(rs.Bof());
    EXPECT_EQ(rs.RecordCount(), 0);
    DB_ASSERT(rs.MoveFirst());
    EXPECT_TRUE(rs.Eof());
    EXPECT_EQ(descriptionOf([&] { rs.MoveNext(); }), kNoCurrent);
    EXPECT_EQ(descriptionOf([&] { rs.Value(u"sItemName"_s); }), kNoCurrent);
    EXPECT_EQ(descriptionOf([&] { rs.SetValue(u"sItemName"_s, u"x"_s); }), kNoCurrent);
    rs.Close();
    EXPECT_EQ(descriptionOf([&] { rs.Eof(); }), u"Operation is not allowed when the object is closed."_s);
}

TEST_P(RecordsetTest, DeletedRowStaysCurrentUntilTheNextMove)
{
    DB_ASSERT(add(u"a"_s));
    DB_ASSERT(add(u"b"_s));
    DB_ASSERT(add(u"c"_s));
    Recordset rs(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
    ASSERT_EQ(rs.RecordCount(), 3);
    rs.MoveNext();
    DB_ASSERT(rs.Delete());
    EXPECT_FALSE(rs.Eof());
    EXPECT_EQ(rs.RecordCount(), 2);
    EXPECT_EQ(descriptionOf([&] { rs.Value(u"sItemName"_s); }),
              u"Row handle referred to a deleted row or a row marked for deletion."_s);
    EXPECT_THROW(rs.Delete(), DbError);
    rs.MoveNext();
    EXPECT_EQ(rs.Text(u"sItemName"_s), u"c"_s);
    QStringList seen;
    for (rs.MoveFirst(); !rs.Eof(); rs.MoveNext())
        seen << rs.Text(u"sItemName"_s);
    EXPECT_EQ(seen, (QStringList {u"a"_s, u"c"_s}));
    EXPECT_EQ(names(u"SELECT * FROM tItem ORDER BY sItemName"_s), seen);

    // Deleting the only row leaves an empty set behind the next move.
    Recordset one(u"SELECT * FROM tItem WHERE sItemName = 'a'"_s, conn);
    DB_ASSERT(one.Delete());
    one.MoveNext();
    EXPECT_TRUE(one.Eof());
    EXPECT_TRUE(one.Bof());
}

TEST_P(RecordsetTest, MovingOffAChangedRowWritesIt)
{
    DB_ASSERT(add(u"a"_s, 1));
    DB_ASSERT(add(u"b"_s, 2));
    {
        Recordset rs(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
        rs.SetValue(u"iItemCount"_s, 10);
        EXPECT_EQ(rs.Int(u"iItemCount"_s), 10);
        rs.MoveNext();
        rs.SetValue(u"sItemDesc"_s, u"second"_s);
        rs.AddNew(); // also writes the pending change
        rs.SetValue(u"sItemName"_s, u"c"_s);
        rs.MoveFirst(); // writes the new row
        EXPECT_EQ(rs.RecordCount(), 3);
    }
    Recordset check(u"SELECT * FROM tItem ORDER BY sItemName"_s, conn);
    ASSERT_EQ(check.RecordCount(), 3);
    EXPECT_EQ(check.Int(u"iItemCount"_s), 10);
    check.MoveNext();
    EXPECT_EQ(check.Text(u"sItemDesc"_s), u"second"_s);
    EXPECT_EQ(check.Int(u"iItemCount"_s), 2);
    check.MoveNext();
    EXPECT_EQ(check.Text(u"sItemName"_s), u"c"_s);
}

INSTANTIATE_TEST_SUITE_P(Backends, RecordsetTest, ::testing::ValuesIn(TestBackends()), backendName);
