#include "repository/Recordset.h"
#include "repository/Schema.h"
#include "repository/SchemaDdl.h"
#include "support/TestSupport.h"

#include <QRegularExpression>

#include <memory>

namespace dorvane {
namespace {

using test::TestBackends;
using test::TestDatabase;

class SchemaTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        m_db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(m_conn.Open(m_db->connectionString()));
    }

    qint32 Count(const QString& sql)
    {
        Recordset rs(sql, m_conn);
        return rs.RecordCount();
    }

    QStringList Column(const QString& sql, const QString& field)
    {
        QStringList values;
        Recordset rs(sql, m_conn);
        for (; !rs.Eof(); rs.MoveNext())
            values << rs.Text(field);
        return values;
    }

    qint32 AddApp(const QString& name)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=0"), m_conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sAppName"), name);
        rs.Update();
        return rs.Int(QStringLiteral("iAppKey"));
    }

    static QStringList Lower(QStringList names)
    {
        for (QString& n : names)
            n = n.toLower();
        names.sort();
        return names;
    }

    std::unique_ptr<TestDatabase> m_db;
    Connection m_conn;
};

TEST_P(SchemaTest, CreatesEveryTableWithExactlyItsColumns)
{
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::Repository));
    ASSERT_EQ(ExistingRepositoryTables(m_conn).size(), RepositoryTables().size());

    for (const TableDef& table : RepositoryTables()) {
        SCOPED_TRACE(table.name.toStdString());
        EXPECT_EQ(Lower(m_conn.TableColumns(table.name)), Lower(table.columns));
        // Every column can be named in a statement, as the program names it.
        DB_ASSERT(Recordset rs(QStringLiteral("SELECT %1 FROM %2 WHERE %3 = 0")
                                   .arg(table.columns.join(QStringLiteral(", ")), table.name, table.key),
                               m_conn);
                  EXPECT_TRUE(rs.Eof()));
    }
}

TEST_P(SchemaTest, OnlyTheBackupTemplateHasTheOriginalKeyColumns)
{
    const QStringList original = {QStringLiteral("tApp.iOriginalAppKey"), QStringLiteral("tVersion.iOriginalVersionKey"),
                                  QStringLiteral("tEnvironment.iOriginalEnvironmentKey")};
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::BackupTemplate));
    for (const TableDef& table : RepositoryTables()) {
        SCOPED_TRACE(table.name.toStdString());
        EXPECT_EQ(Lower(m_conn.TableColumns(table.name)), Lower(table.columns + table.backupOnly));
    }
    for (const QString& column : original) {
        const QStringList parts = column.split(u'.');
        EXPECT_TRUE(m_conn.TableColumns(parts.at(0)).contains(parts.at(1), Qt::CaseInsensitive)) << column.toStdString();
    }

    const QStringList statements = SchemaStatements(m_conn.backend(), SchemaVariant::Repository);
    for (const QString& column : original)
        EXPECT_FALSE(statements.join(u'\n').contains(column.split(u'.').at(1))) << column.toStdString();
}

TEST_P(SchemaTest, KeysOfDeletedRowsAreNeverHandedOutAgain)
{
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::Repository));
    qint32 last = 0;
    DB_ASSERT(AddApp(QStringLiteral("One")); AddApp(QStringLiteral("Two")); last = AddApp(QStringLiteral("Three")));
    DB_ASSERT(m_conn.Execute(QStringLiteral("DELETE FROM tApp WHERE iAppKey=%1").arg(last)));
    qint32 next = 0;
    DB_ASSERT(next = AddApp(QStringLiteral("Four")));
    EXPECT_GT(next, last);

    // Link tables have their own auto-number too; emptying one does not
    // restart it.
    DB_ASSERT(m_conn.Execute(QStringLiteral("INSERT INTO tKeywordRel (iKeywordRelKeywordKey) VALUES (7)")));
    DB_ASSERT(m_conn.Execute(QStringLiteral("DELETE FROM tKeywordRel")));
    DB_ASSERT(m_conn.Execute(QStringLiteral("INSERT INTO tKeywordRel (iKeywordRelKeywordKey) VALUES (8)")));
    DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM tKeywordRel"), m_conn);
              ASSERT_FALSE(rs.Eof()); EXPECT_EQ(rs.Int(QStringLiteral("iKeywordRelKey")), 2));
}

TEST_P(SchemaTest, UnwrittenIntegersAndBooleansAreZeroAndTheRestNull)
{
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::Repository));
    for (const TableDef& table : RepositoryTables()) {
        SCOPED_TRACE(table.name.toStdString());
        DB_ASSERT(m_conn.Execute(QStringLiteral("INSERT INTO %1 DEFAULT VALUES").arg(table.name)));
        DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM %1").arg(table.name), m_conn); ASSERT_FALSE(rs.Eof());
                  for (const QString& column : table.columns) {
                      if (column == table.key) {
                          EXPECT_GT(rs.Int(column), 0);
                          continue;
                      }
                      const ColumnType type = ColumnTypeOf(column);
                      if (type == ColumnType::Integer || type == ColumnType::Boolean) {
                          EXPECT_FALSE(rs.IsNull(column)) << column.toStdString();
                          EXPECT_EQ(rs.Int(column), 0) << column.toStdString();
                      } else {
                          EXPECT_TRUE(rs.IsNull(column)) << column.toStdString();
                      }
                  });
    }
}

TEST_P(SchemaTest, TextComparesAndSortsIgnoringCase)
{
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::Repository));
    DB_ASSERT(AddApp(QStringLiteral("Banana")); AddApp(QStringLiteral("apple")); AddApp(QStringLiteral("Cherry")));

    EXPECT_EQ(Column(QStringLiteral("SELECT * FROM tApp WHERE sAppName = 'APPLE'"), QStringLiteral("sAppName")),
              QStringList{QStringLiteral("apple")});
    EXPECT_EQ(Column(QStringLiteral("SELECT * FROM tApp WHERE sAppName IN ('BANANA', 'cherry') ORDER BY sAppName"),
                     QStringLiteral("sAppName")),
              (QStringList{QStringLiteral("Banana"), QStringLiteral("Cherry")}));
    EXPECT_EQ(Column(QStringLiteral("SELECT * FROM tApp WHERE sAppName LIKE 'APP%'"), QStringLiteral("sAppName")),
              QStringList{QStringLiteral("apple")});
    // Byte order would put both capitals before "apple".
    EXPECT_EQ(Column(QStringLiteral("SELECT * FROM tApp ORDER BY sAppName"), QStringLiteral("sAppName")),
              (QStringList{QStringLiteral("apple"), QStringLiteral("Banana"), QStringLiteral("Cherry")}));

    // Long text, and the file-instance "...By" columns that hold a name.
    DB_ASSERT(m_conn.Execute(QStringLiteral("UPDATE tApp SET mAppEnviron = 'Needs The Host' WHERE sAppName = 'Apple'")));
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tApp WHERE mAppEnviron = 'needs the host'")), 1);
    DB_ASSERT(m_conn.Execute(
        QStringLiteral("INSERT INTO tFileInstance (dFileInstanceCreatedBy, dFileInstanceModifiedBy) VALUES ('Jane Smith', 'Mark Brown')")));
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tFileInstance WHERE dFileInstanceCreatedBy = 'JANE SMITH' AND "
                                   "dFileInstanceModifiedBy = 'mark brown'")),
              1);
}

TEST_P(SchemaTest, RefusesADatabaseWithRepositoryTablesAndLeavesItAlone)
{
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::Repository));
    DB_ASSERT(AddApp(QStringLiteral("Kept")));

    try {
        CreateSchema(m_conn, SchemaVariant::Repository);
        FAIL() << "a second schema was created";
    } catch (const DbError& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("tApp"))) << e.description().toStdString();
        EXPECT_TRUE(e.description().contains(QStringLiteral("already"))) << e.description().toStdString();
    }
    EXPECT_EQ(Column(QStringLiteral("SELECT * FROM tApp"), QStringLiteral("sAppName")), QStringList{QStringLiteral("Kept")});
    // The connection is not left inside a transaction.
    EXPECT_FALSE(m_conn.InTransaction());
    DB_ASSERT(AddApp(QStringLiteral("Later")));
}

TEST_P(SchemaTest, AFailureHalfwayRollsEveryTableBack)
{
    // A table that takes the name of the last index lets every table be
    // created and then makes the last statement fail.
    const QString lastStatement = SchemaStatements(m_conn.backend(), SchemaVariant::Repository).back();
    const QRegularExpressionMatch index =
        QRegularExpression(QStringLiteral("^CREATE INDEX (\\w+) ON")).match(lastStatement);
    ASSERT_TRUE(index.hasMatch()) << lastStatement.toStdString();
    DB_ASSERT(m_conn.Execute(QStringLiteral("CREATE TABLE %1 (x integer)").arg(index.captured(1))));

    EXPECT_THROW(CreateSchema(m_conn, SchemaVariant::Repository), DbError);
    EXPECT_FALSE(m_conn.InTransaction());
    EXPECT_EQ(ExistingRepositoryTables(m_conn), QStringList());

    // With the obstacle gone the same connection creates the schema.
    DB_ASSERT(m_conn.Execute(QStringLiteral("DROP TABLE %1").arg(index.captured(1))));
    DB_ASSERT(CreateSchema(m_conn, SchemaVariant::Repository));
    EXPECT_EQ(ExistingRepositoryTables(m_conn).size(), RepositoryTables().size());
}

INSTANTIATE_TEST_SUITE_P(Backends, SchemaTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane
