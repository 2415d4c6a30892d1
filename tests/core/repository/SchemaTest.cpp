#include "core/repository/Schema.h"
#include "core/repository/SchemaDdl.h"
#include "core/repository/RepositoryFixture.h"

#include <QRegularExpression>

using namespace dorvane;
using namespace dorvane::test;

// The tables of a repository, written out here rather than read from the
// list the schema is built from.
static const QStringList kTables = {u"t3270"_s, u"tApp"_s, u"tClass"_s, u"tCycle"_s, u"tCycleProcess"_s, u"tEnvironment"_s,
    u"tEnvironmentDetail"_s, u"tEnvironmentUser"_s, u"tField"_s, u"tFileInstance"_s, u"tKeyword"_s, u"tKeywordRel"_s, u"tMapType"_s,
    u"tObject"_s, u"tPlatform"_s, u"tProcess"_s, u"tProject"_s, u"tRecord"_s, u"tRequirement"_s, u"tRole"_s, u"tSchedule"_s,
    u"tScheduleCycles"_s, u"tStep"_s, u"tStepWindow"_s, u"tTestTool"_s, u"tUser"_s, u"tUserVar"_s, u"tVersion"_s, u"tWindow"_s};

// The tables the database holds, lower case and sorted; with the original
// key columns that only the backup template has, as "table.column".
static QStringList tablesOf(Connection& conn)
{
    QStringList names;
    for (const QString& table : FileTables(conn)) {
        names << table;
        for (const QString& column : {u"iOriginalAppKey"_s, u"iOriginalVersionKey"_s, u"iOriginalEnvironmentKey"_s}) {
            if (conn.TableColumns(table).contains(column, Qt::CaseInsensitive))
                names << table + u'.' + column;
        }
    }
    return SortedLower(names);
}

class SchemaTest : public BackendTest {
protected:
    void SetUp() override
    {
        BackendTest::SetUp();
        DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    }

    qint32 addApp(const QString& name) { return addRow(conn, u"SELECT * FROM tApp WHERE iAppKey=0"_s, {{u"sAppName"_s, name}}); }
};

// Every table is there and empty; a row written with nothing but its key has
// zero in its integers and booleans and Null in the rest.
TEST_P(SchemaTest, CreatesEmptyTablesWhoseUnwrittenIntegersAreZero)
{
    // The repository also has Dorvane's own history table.
    EXPECT_EQ(tablesOf(conn), SortedLower(kTables + QStringList{u"dvHistory"_s}));
    for (const QString& table : kTables) {
        SCOPED_TRACE(table.toStdString());
        EXPECT_EQ(count(u"SELECT * FROM %1"_s.arg(table)), 0);
        DB_ASSERT(conn.Execute(u"INSERT INTO %1 DEFAULT VALUES"_s.arg(table)));
        DB_ASSERT(Recordset rs(u"SELECT * FROM %1"_s.arg(table), conn); ASSERT_FALSE(rs.Eof());
                  for (const QString& column : rs.FieldNames()) {
                      const ColumnType type = ColumnTypeOf(column);
                      if (column.compare(rs.KeyField(), Qt::CaseInsensitive) == 0)
                          EXPECT_GT(rs.Int(column), 0);
                      else if (type == ColumnType::Integer || type == ColumnType::Boolean)
                          EXPECT_TRUE(!rs.IsNull(column) && rs.Int(column) == 0) << column.toStdString();
                      else
                          EXPECT_TRUE(rs.IsNull(column)) << column.toStdString();
                  });
    }
}

// A second creation is refused and leaves the tables alone; keys of deleted
// rows are never handed out again.
TEST_P(SchemaTest, RefusesToCreateItAgainAndNeverReusesKeys)
{
    qint32 last = 0, next = 0;
    DB_ASSERT(addApp(u"One"_s); addApp(u"Two"_s); last = addApp(u"Three"_s));
    const QString refused = descriptionOf([&] { CreateSchema(conn, SchemaVariant::Repository); });
    EXPECT_TRUE(refused.contains(u"tApp"_s) && refused.contains(u"already"_s)) << refused.toStdString();
    EXPECT_FALSE(conn.InTransaction()); // and the connection goes on
    DB_ASSERT(conn.Execute(u"DELETE FROM tApp WHERE iAppKey=%1"_s.arg(last)); next = addApp(u"Four"_s));
    EXPECT_GT(next, last);
    EXPECT_EQ(Rows(conn, u"SELECT sAppName FROM tApp ORDER BY iAppKey"_s), (QStringList{u"One"_s, u"Two"_s, u"Four"_s}));

    // Link tables have their own auto-number too; emptying one does not
    // restart it.
    for (const QString& statement : {u"INSERT INTO tKeywordRel (iKeywordRelKeywordKey) VALUES (7)"_s, u"DELETE FROM tKeywordRel"_s,
                                     u"INSERT INTO tKeywordRel (iKeywordRelKeywordKey) VALUES (8)"_s})
        DB_ASSERT(conn.Execute(statement));
    EXPECT_EQ(Rows(conn, u"SELECT iKeywordRelKey FROM tKeywordRel"_s), QStringList{u"2"_s});
}

TEST_P(SchemaTest, TextComparesAndSortsIgnoringCase)
{
    DB_ASSERT(addApp(u"Banana"_s); addApp(u"apple"_s); addApp(u"Cherry"_s));
    const auto names = [&](const QString& where) { return Rows(conn, u"SELECT sAppName FROM tApp "_s + where); };
    EXPECT_EQ(names(u"WHERE sAppName = 'APPLE'"_s), QStringList{u"apple"_s});
    EXPECT_EQ(names(u"WHERE sAppName IN ('BANANA', 'cherry') ORDER BY sAppName"_s), (QStringList{u"Banana"_s, u"Cherry"_s}));
    EXPECT_EQ(names(u"WHERE sAppName LIKE 'APP%'"_s), QStringList{u"apple"_s});
    // Byte order would put both capitals before "apple".
    EXPECT_EQ(names(u"ORDER BY sAppName"_s), (QStringList{u"apple"_s, u"Banana"_s, u"Cherry"_s}));

    // Long text, and the file-instance "...By" columns that hold a name.
    DB_ASSERT(conn.Execute(u"UPDATE tApp SET mAppEnviron = 'Needs The Host' WHERE sAppName = 'Apple'"_s));
    EXPECT_EQ(count(u"SELECT * FROM tApp WHERE mAppEnviron = 'needs the host'"_s), 1);
    DB_ASSERT(conn.Execute(u"INSERT INTO tFileInstance (dFileInstanceCreatedBy, dFileInstanceModifiedBy) VALUES ('Jane Smith', 'Mark Brown')"_s));
    EXPECT_EQ(count(u"SELECT * FROM tFileInstance WHERE dFileInstanceCreatedBy = 'JANE SMITH' AND dFileInstanceModifiedBy = 'mark brown'"_s), 1);
}

// The lookups that the long operations repeat once per row of another
// table (copies, updates, backups, restores) find their rows through an
// index on every column they filter on, so that none of them reads a table
// from end to end, nor picks an index on one column and reads every row
// that matches the other. (The deletions' lookups: VersionContentTest.)
TEST_P(SchemaTest, EveryRepeatedLookupIsAnIndexSearchOnItsColumns)
{
    const std::pair<QString, QStringList> lookups[] = {
        {u"tStepWindow WHERE iStepWindowProcessKey=1 AND iStepWindowVerKey=2 ORDER BY iStepWindowSequenceNum"_s,
         {u"iStepWindowProcessKey"_s, u"iStepWindowVerKey"_s}},
        {u"tKeyword WHERE sKeywordName='Smoke' and iKeywordAppKey=1 ORDER BY iKeywordKey"_s, {u"iKeywordAppKey"_s, u"sKeywordName"_s}},
        {u"tStepWindow WHERE iStepWindowVerKey=1"_s, {u"iStepWindowVerKey"_s}},
        {u"tKeywordRel WHERE iKeywordRelKeywordKey=1"_s, {u"iKeywordRelKeywordKey"_s}},
        {u"tRecord WHERE iRecordEnvironmentKey=1"_s, {u"iRecordEnvironmentKey"_s}},
        {u"tField WHERE iFieldRecordKey=1"_s, {u"iFieldRecordKey"_s}},
        {u"tFileInstance WHERE iFileInstanceRecordKey=1"_s, {u"iFileInstanceRecordKey"_s}},
        {u"tEnvironmentDetail WHERE iEnvironKey=1 AND iEnvironVerKey<>2"_s, {u"iEnvironKey"_s}},
        {u"tEnvironmentDetail WHERE iEnvironVerKey=1"_s, {u"iEnvironVerKey"_s}},
        {u"tEnvironmentUser WHERE iEnvironKey = 1"_s, {u"iEnvironKey"_s}},
        {u"tVersion WHERE iVersionAppKey=1"_s, {u"iVersionAppKey"_s}},
    };
    for (const auto& [lookup, columns] : lookups)
        ExpectIndexSearches(conn, u"SELECT * FROM "_s + lookup, QStringList(columns).replaceInStrings(QRegularExpression(u"^"_s), lookup.section(u' ', 0, 0) + u'.'));
}

// A failure halfway rolls every table back; the backup template then made
// on the same connection has the original key columns.
TEST_P(SchemaTest, AFailureHalfwayRollsEveryTableBack)
{
    for (const QString& table : kTables + QStringList{u"dvHistory"_s})
        DB_ASSERT(conn.Execute(u"DROP TABLE %1"_s.arg(table)));
    // A table that takes the name of the last index lets every table be
    // created and then makes the last statement fail.
    const QString lastStatement = SchemaStatements(conn.backend(), SchemaVariant::BackupTemplate).back();
    const QRegularExpressionMatch index = QRegularExpression(u"^CREATE INDEX (\\w+) ON"_s).match(lastStatement);
    ASSERT_TRUE(index.hasMatch()) << lastStatement.toStdString();
    DB_ASSERT(conn.Execute(u"CREATE TABLE %1 (x integer)"_s.arg(index.captured(1))));

    EXPECT_THROW(CreateSchema(conn, SchemaVariant::BackupTemplate), DbError);
    EXPECT_FALSE(conn.InTransaction());
    EXPECT_EQ(tablesOf(conn), QStringList{index.captured(1).toLower()});

    DB_ASSERT(conn.Execute(u"DROP TABLE %1"_s.arg(index.captured(1))));
    DB_ASSERT(CreateSchema(conn, SchemaVariant::BackupTemplate));
    EXPECT_EQ(tablesOf(conn), SortedLower(kTables + QStringList{u"tApp.iOriginalAppKey"_s, u"tEnvironment.iOriginalEnvironmentKey"_s, u"tVersion.iOriginalVersionKey"_s}));
}

INSTANTIATE_TEST_SUITE_P(Backends, SchemaTest, ::testing::ValuesIn(TestBackends()), backendName);
