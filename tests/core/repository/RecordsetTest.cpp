// The record set's cursor: what it holds, where it stands, and the errors
// of calls that need a row.

#include "core/repository/RepositoryFixture.h"

#include <QSqlQuery>

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
