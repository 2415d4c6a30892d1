#include "repository/Schema.h"
#include "repository/SchemaDdl.h"
#include "repository/RepositoryFixture.h"

#include <QRegularExpression>

using namespace dorvane;
using namespace dorvane::test;

namespace {

// The tables of a repository, written out here rather than read from the
// list the schema is built from.
const QStringList kTables = {u"t3270"_s, u"tApp"_s, u"tClass"_s, u"tCycle"_s, u"tCycleProcess"_s, u"tEnvironment"_s,
    u"tEnvironmentDetail"_s, u"tEnvironmentUser"_s, u"tField"_s, u"tFileInstance"_s, u"tKeyword"_s, u"tKeywordRel"_s,
    u"tMapType"_s, u"tObject"_s, u"tPlatform"_s, u"tProcess"_s, u"tProject"_s, u"tRecord"_s, u"tRequirement"_s, u"tRole"_s,
    u"tSchedule"_s, u"tScheduleCycles"_s, u"tStep"_s, u"tStepWindow"_s, u"tTestTool"_s, u"tUser"_s, u"tUserVar"_s,
    u"tVersion"_s, u"tWindow"_s};
// Only the backup template has these.
const std::vector<std::pair<QString, QString>> kOriginalKeys = {
    {u"tApp"_s, u"iOriginalAppKey"_s}, {u"tVersion"_s, u"iOriginalVersionKey"_s}, {u"tEnvironment"_s, u"iOriginalEnvironmentKey"_s}};

QStringList lower(QStringList names)
{
    for (QString& n : names)
        n = n.toLower();
    names.sort();
    return names;
}

} // namespace

class SchemaTest : public BackendTest {
protected:
    qint32 addApp(const QString& name)
    {
        Recordset rs(u"SELECT * FROM tApp WHERE iAppKey=0"_s, conn);
        rs.AddNew();
        rs.SetValue(u"sAppName"_s, name);
        rs.Update();
        return rs.Int(u"iAppKey"_s);
    }
};

TEST_P(SchemaTest, CreatesTheRepositoryTablesWithoutTheOriginalKeys)
{
    DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    EXPECT_EQ(lower(ExistingRepositoryTables(conn)), lower(kTables));
    for (const QString& table : kTables)
        DB_ASSERT(Recordset rs(u"SELECT * FROM %1"_s.arg(table), conn); EXPECT_TRUE(rs.Eof()) << table.toStdString());
    for (const auto& [table, column] : kOriginalKeys)
        EXPECT_FALSE(conn.TableColumns(table).contains(column, Qt::CaseInsensitive)) << column.toStdString();
}

TEST_P(SchemaTest, OnlyTheBackupTemplateHasTheOriginalKeyColumns)
{
    DB_ASSERT(CreateSchema(conn, SchemaVariant::BackupTemplate));
    EXPECT_EQ(lower(ExistingRepositoryTables(conn)), lower(kTables));
    for (const auto& [table, column] : kOriginalKeys)
        EXPECT_TRUE(conn.TableColumns(table).contains(column, Qt::CaseInsensitive)) << column.toStdString();
}

TEST_P(SchemaTest, KeysOfDeletedRowsAreNeverHandedOutAgain)
{
    DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    qint32 last = 0;
    DB_ASSERT(addApp(u"One"_s); addApp(u"Two"_s); last = addApp(u"Three"_s));
    DB_ASSERT(conn.Execute(u"DELETE FROM tApp WHERE iAppKey=%1"_s.arg(last)));
    qint32 next = 0;
    DB_ASSERT(next = addApp(u"Four"_s));
    EXPECT_GT(next, last);

    // Link tables have their own auto-number too; emptying one does not
    // restart it.
    DB_ASSERT(conn.Execute(u"INSERT INTO tKeywordRel (iKeywordRelKeywordKey) VALUES (7)"_s));
    DB_ASSERT(conn.Execute(u"DELETE FROM tKeywordRel"_s));
    DB_ASSERT(conn.Execute(u"INSERT INTO tKeywordRel (iKeywordRelKeywordKey) VALUES (8)"_s));
    DB_ASSERT(Recordset rs(u"SELECT * FROM tKeywordRel"_s, conn); ASSERT_FALSE(rs.Eof());
              EXPECT_EQ(rs.Int(u"iKeywordRelKey"_s), 2));
}

TEST_P(SchemaTest, UnwrittenIntegersAndBooleansAreZeroAndTheRestNull)
{
    DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    for (const QString& table : kTables) {
        SCOPED_TRACE(table.toStdString());
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

TEST_P(SchemaTest, TextComparesAndSortsIgnoringCase)
{
    DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    DB_ASSERT(addApp(u"Banana"_s); addApp(u"apple"_s); addApp(u"Cherry"_s));
    EXPECT_EQ(texts(u"SELECT * FROM tApp WHERE sAppName = 'APPLE'"_s, u"sAppName"_s), QStringList{u"apple"_s});
    EXPECT_EQ(texts(u"SELECT * FROM tApp WHERE sAppName IN ('BANANA', 'cherry') ORDER BY sAppName"_s, u"sAppName"_s),
              (QStringList{u"Banana"_s, u"Cherry"_s}));
    EXPECT_EQ(texts(u"SELECT * FROM tApp WHERE sAppName LIKE 'APP%'"_s, u"sAppName"_s), QStringList{u"apple"_s});
    // Byte order would put both capitals before "apple".
    EXPECT_EQ(texts(u"SELECT * FROM tApp ORDER BY sAppName"_s, u"sAppName"_s), (QStringList{u"apple"_s, u"Banana"_s, u"Cherry"_s}));

    // Long text, and the file-instance "...By" columns that hold a name.
    DB_ASSERT(conn.Execute(u"UPDATE tApp SET mAppEnviron = 'Needs The Host' WHERE sAppName = 'Apple'"_s));
    EXPECT_EQ(count(u"SELECT * FROM tApp WHERE mAppEnviron = 'needs the host'"_s), 1);
    DB_ASSERT(conn.Execute(u"INSERT INTO tFileInstance (dFileInstanceCreatedBy, dFileInstanceModifiedBy) VALUES ('Jane Smith', 'Mark Brown')"_s));
    EXPECT_EQ(count(u"SELECT * FROM tFileInstance WHERE dFileInstanceCreatedBy = 'JANE SMITH' AND dFileInstanceModifiedBy = 'mark brown'"_s), 1);
}

TEST_P(SchemaTest, RefusesADatabaseWithRepositoryTablesAndLeavesItAlone)
{
    DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    DB_ASSERT(addApp(u"Kept"_s));
    const QString refused = descriptionOf([&] { CreateSchema(conn, SchemaVariant::Repository); });
    EXPECT_TRUE(refused.contains(u"tApp"_s) && refused.contains(u"already"_s)) << refused.toStdString();
    EXPECT_EQ(texts(u"SELECT * FROM tApp"_s, u"sAppName"_s), QStringList{u"Kept"_s});
    EXPECT_FALSE(conn.InTransaction());  // and the connection goes on
    DB_ASSERT(addApp(u"Later"_s));
}

TEST_P(SchemaTest, AFailureHalfwayRollsEveryTableBack)
{
    // A table that takes the name of the last index lets every table be
    // created and then makes the last statement fail.
    const QString lastStatement = SchemaStatements(conn.backend(), SchemaVariant::Repository).back();
    const QRegularExpressionMatch index = QRegularExpression(u"^CREATE INDEX (\\w+) ON"_s).match(lastStatement);
    ASSERT_TRUE(index.hasMatch()) << lastStatement.toStdString();
    DB_ASSERT(conn.Execute(u"CREATE TABLE %1 (x integer)"_s.arg(index.captured(1))));

    EXPECT_THROW(CreateSchema(conn, SchemaVariant::Repository), DbError);
    EXPECT_FALSE(conn.InTransaction());
    EXPECT_EQ(ExistingRepositoryTables(conn), QStringList());

    // With the obstacle gone the same connection creates the schema.
    DB_ASSERT(conn.Execute(u"DROP TABLE %1"_s.arg(index.captured(1))));
    DB_ASSERT(CreateSchema(conn, SchemaVariant::Repository));
    EXPECT_EQ(ExistingRepositoryTables(conn).size(), kTables.size());
}

INSTANTIATE_TEST_SUITE_P(Backends, SchemaTest, ::testing::ValuesIn(TestBackends()), backendName);
