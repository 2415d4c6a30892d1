#include "repository/Connection.h"
#include "repository/FilePaths.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "repository/Schema.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <memory>

namespace dorvane {
namespace {

using test::TestBackends;
using test::TestDatabase;

// The table a foreign-key column points at, read from its name: a column
// named like another table's key is that table's (iProcessKey in
// tCycleProcess); otherwise the shortest trailing word group of the name
// that names a table ("iStepWindowWindowKey" -> Window, "iVarAppVerKey" ->
// Ver, "iApp3270Key" -> 3270). Null for codes, counts and keys of things
// outside the repository ("iObjectDataTypeKey", "iRecordFileKey").
const TableDef* ReferencedTable(const TableDef& table, const QString& column)
{
    if (column == table.key || ColumnTypeOf(column) != ColumnType::Integer)
        return nullptr;
    for (const TableDef& other : RepositoryTables()) {
        if (other.key.compare(column, Qt::CaseInsensitive) == 0)
            return &other;
    }
    const QMap<QString, QString> aliases = {
        {QStringLiteral("Ver"), QStringLiteral("Version")}, {QStringLiteral("Environ"), QStringLiteral("Environment")},
        {QStringLiteral("Var"), QStringLiteral("UserVar")}, {QStringLiteral("Owner"), QStringLiteral("User")},
        {QStringLiteral("Creator"), QStringLiteral("User")}, {QStringLiteral("Modifier"), QStringLiteral("User")},
        {QStringLiteral("Parent"), table.name.mid(1)},      {QStringLiteral("Dependency"), table.name.mid(1)}};
    static const QRegularExpression word(QStringLiteral("[A-Z][a-z]*|[0-9]+"));
    QStringList words;
    for (auto it = word.globalMatch(column.mid(1).chopped(column.endsWith(QLatin1String("Key")) ? 3 : 0)); it.hasNext();)
        words << it.next().captured();
    for (qsizetype n = 1; n <= words.size(); ++n) {
        const QString suffix = words.mid(words.size() - n).join(QString());
        if (const TableDef* target = FindTable(QStringLiteral("t") + aliases.value(suffix, suffix)))
            return target;
    }
    return nullptr;
}

class ContentTest : public ::testing::TestWithParam<std::string> {
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

    qint32 IntOf(const QString& sql, const QString& field)
    {
        Recordset rs(sql, m_conn);
        return rs.Eof() ? -999 : rs.Int(field);
    }

    std::unique_ptr<TestDatabase> m_db;
    Connection m_conn;
};

using ReferenceDataTest = ContentTest;
using TutorialTest = ContentTest;

TEST_P(ReferenceDataTest, HoldsTheRowsTheProgramRefersTo)
{
    DB_ASSERT(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));

    // The system screen seeding names platforms 2 and 4 by key.
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tPlatform WHERE iPlatformKey IN (2, 4)")), 2);
    // Exactly one host platform, stored as -1.
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tPlatform WHERE bPlatformIs3270 <> 0")), 1);
    EXPECT_EQ(IntOf(QStringLiteral("SELECT * FROM tPlatform WHERE bPlatformIs3270 <> 0"), QStringLiteral("bPlatformIs3270")),
              -1);
    EXPECT_EQ(IntOf(QStringLiteral("SELECT * FROM tPlatform WHERE bPlatformIs3270 <> 0"), QStringLiteral("iPlatformKey")),
              kPlatform3270);

    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tTestTool WHERE sTestToolName = 'Mainframe'")), 1);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tTestTool")), 3);

    // The placeholder emulator exists but is never listed.
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM t3270 WHERE i3270Key = 0")), 1);
    DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM t3270 WHERE i3270Key > 0"), m_conn);
              EXPECT_GE(rs.RecordCount(), 2);
              for (; !rs.Eof(); rs.MoveNext()) EXPECT_GT(rs.Int(QStringLiteral("i3270Key")), 0););

    DB_ASSERT(Recordset platforms(QStringLiteral("SELECT * FROM tPlatform"), m_conn);
              EXPECT_EQ(platforms.RecordCount(), 4);
              for (; !platforms.Eof(); platforms.MoveNext()) {
                  const qint32 key = platforms.Int(QStringLiteral("iPlatformKey"));
                  SCOPED_TRACE(key);
                  EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tClass WHERE iClassPlatformKey=%1 AND "
                                                 "sClassPhysicalName = '[System]'")
                                      .arg(key)),
                            1);
                  EXPECT_GE(Count(QStringLiteral("SELECT * FROM tClass WHERE iClassPlatformKey=%1").arg(key)), 2);
                  EXPECT_GE(Count(QStringLiteral("SELECT * FROM tMapType WHERE iMapTypePlatformKey=%1").arg(key)), 1);
              });

    // A plain repository has no environments and no applications.
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tEnvironment")), 0);
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tApp")), 0);
}

TEST_P(ReferenceDataTest, ASecondBuildRefusesAndAddsNothing)
{
    DB_ASSERT(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
    EXPECT_THROW(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::ReferenceData), DbError);
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tPlatform")), 4);
    EXPECT_EQ(Count(QStringLiteral("SELECT * FROM t3270 WHERE i3270Key = 0")), 1);
}

TEST_P(TutorialTest, EveryForeignKeyPointsAtARowOrIsZero)
{
    DB_ASSERT(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::Tutorial));

    int checked = 0;
    for (const TableDef& table : RepositoryTables()) {
        for (const QString& column : table.columns) {
            const TableDef* target = ReferencedTable(table, column);
            if (!target)
                continue;
            SCOPED_TRACE((table.name + u'.' + column + QStringLiteral(" -> ") + target->name).toStdString());
            const QString filled = QStringLiteral("SELECT * FROM %1 WHERE %2 IS NULL OR %2<>0").arg(table.name, column);
            checked += Count(filled);
            EXPECT_EQ(Count(filled + QStringLiteral(" AND %1 NOT IN (SELECT %2 FROM %3)").arg(column, target->key, target->name)), 0);
            EXPECT_EQ(Count(QStringLiteral("SELECT * FROM %1 WHERE %2 IS NULL").arg(table.name, column)), 0);
        }
    }
    EXPECT_GT(checked, 150);
}

INSTANTIATE_TEST_SUITE_P(Backends, ReferenceDataTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
INSTANTIATE_TEST_SUITE_P(Backends, TutorialTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

// --- files on disk --------------------------------------------------------

qint32 CountIn(const QString& path, const QString& sql)
{
    Connection connection;
    connection.OpenFile(path);
    Recordset rs(sql, connection);
    return rs.RecordCount();
}

QStringList Entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
}

TEST(InstallationTree, HasTheFilesStartUpAndBackupLookFor)
{
    QTemporaryDir dir;
    const QString root = dir.path();
    const SetupResult result = CreateInstallation(root);
    ASSERT_TRUE(result.ok) << result.message.toStdString();

    EXPECT_EQ(Entries(root), (QStringList{QStringLiteral("Tutorial"), QStringLiteral("UserData.mdb"),
                                          QStringLiteral("ZentrixBackup.mdb")}));
    // "Tutorial\database" and "Tutorial\Database" are one folder.
    EXPECT_EQ(Entries(root + QStringLiteral("/Tutorial")),
              (QStringList{QStringLiteral("Database"), QStringLiteral("Environments"), QStringLiteral("TestData.mdb")}));
    EXPECT_EQ(Entries(root + QStringLiteral("/Tutorial/Database")),
              (QStringList{QStringLiteral("Tutorial.mdb"), QStringLiteral("UserData.mdb")}));
    EXPECT_TRUE(QFileInfo(root + QStringLiteral("/Tutorial/Environments/Backups")).isDir());

    // Every file opens the way start-up names it.
    const InstallationFiles files(root);
    for (const QString& path : {files.backupTemplate, files.userData, files.tutorialRepository, files.tutorialTestData,
                                files.tutorialUserData}) {
        Connection connection;
        DB_ASSERT(connection.OpenFile(path));
    }
    Connection tutorial;
    DB_ASSERT(tutorial.Open(QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + root +
                            QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb;")));
    DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM tEnvironment"), tutorial); EXPECT_GE(rs.RecordCount(), 1));
    EXPECT_FALSE(tutorial.TableColumns(QStringLiteral("tApp")).contains(QStringLiteral("iOriginalAppKey"), Qt::CaseInsensitive));
}

TEST(InstallationTree, RefusesToOverwriteAndCreatesNothingThen)
{
    QTemporaryDir dir;
    ASSERT_TRUE(CreateInstallation(dir.path()).ok);
    const QString tutorial = dir.path() + QStringLiteral("/Tutorial/Database/Tutorial.mdb");
    const qint64 size = QFileInfo(tutorial).size();

    const SetupResult again = CreateInstallation(dir.path());
    EXPECT_FALSE(again.ok);
    EXPECT_TRUE(again.message.contains(QStringLiteral("already exists"))) << again.message.toStdString();
    EXPECT_EQ(QFileInfo(tutorial).size(), size);
    EXPECT_GE(CountIn(tutorial, QStringLiteral("SELECT * FROM tEnvironment")), 1);

    // One existing file of the set is enough, and then nothing is created.
    QTemporaryDir partial;
    ASSERT_TRUE(QDir().mkpath(partial.path() + QStringLiteral("/tutorial/DATABASE")));
    QFile stray(partial.path() + QStringLiteral("/tutorial/DATABASE/userdata.MDB"));
    ASSERT_TRUE(stray.open(QIODevice::WriteOnly));
    stray.close();
    const SetupResult refused = CreateInstallation(partial.path());
    EXPECT_FALSE(refused.ok);
    EXPECT_TRUE(refused.message.contains(QStringLiteral("userdata.MDB"))) << refused.message.toStdString();
    EXPECT_EQ(Entries(partial.path()), QStringList{QStringLiteral("tutorial")});
}

TEST(RepositoryFile, HasReferenceDataAndRefusesAnExistingFile)
{
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/Repo.mdb");
    const SetupResult created = CreateRepositoryFile(path);
    ASSERT_TRUE(created.ok) << created.message.toStdString();
    EXPECT_EQ(CountIn(path, QStringLiteral("SELECT * FROM tPlatform")), 4);
    EXPECT_EQ(CountIn(path, QStringLiteral("SELECT * FROM tEnvironment")), 0);

    const SetupResult again = CreateRepositoryFile(path);
    EXPECT_FALSE(again.ok);
    EXPECT_TRUE(again.message.contains(QStringLiteral("already exists"))) << again.message.toStdString();
    EXPECT_EQ(CountIn(path, QStringLiteral("SELECT * FROM tPlatform")), 4);

    // A file that cannot be created leaves nothing behind.
    const SetupResult nowhere = CreateRepositoryFile(dir.path() + QStringLiteral("/missing/Repo.mdb"));
    EXPECT_FALSE(nowhere.ok);
    EXPECT_FALSE(QFileInfo::exists(dir.path() + QStringLiteral("/missing")));
}

TEST(SharedFolder, HoldsTestDataAndTheFoldersAndKeepsWhatIsThere)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.path() + QStringLiteral("/Apps/OE")));
    const SetupResult created = CreateSharedFolder(dir.path());
    ASSERT_TRUE(created.ok) << created.message.toStdString();
    EXPECT_EQ(Entries(dir.path()),
              (QStringList{QStringLiteral("Apps"), QStringLiteral("Environments"), QStringLiteral("testdata.mdb")}));
    EXPECT_TRUE(QFileInfo(dir.path() + QStringLiteral("/Apps/OE")).isDir());
    EXPECT_TRUE(QFileInfo(dir.path() + QStringLiteral("/Environments/Backups")).isDir());
    Connection testData;
    DB_ASSERT(testData.OpenFile(dir.path() + QStringLiteral("/testdata.mdb")));

    const SetupResult again = CreateSharedFolder(dir.path());
    EXPECT_FALSE(again.ok);
    EXPECT_TRUE(again.message.contains(QStringLiteral("testdata.mdb"))) << again.message.toStdString();
}

} // namespace
} // namespace dorvane
