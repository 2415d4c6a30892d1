#include "core/installation/Installation.h"
#include "core/repository/Schema.h"
#include "core/repository/RepositoryFixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace dorvane {
namespace {

using test::TestBackends;

using ReferenceDataTest = test::BackendTest;
using TutorialTest = test::BackendTest;

TEST_P(ReferenceDataTest, HoldsTheRowsTheProgramRefersToAndASecondBuildAddsNothing)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
    // The system screen seeding names platforms 2 and 4 by key; exactly one
    // host platform, stored as -1.
    EXPECT_EQ(test::Rows(conn, u"SELECT iPlatformKey, bPlatformIs3270 FROM tPlatform WHERE iPlatformKey IN (2, 4) OR bPlatformIs3270 <> 0 "
                               "ORDER BY bPlatformIs3270, iPlatformKey"_s),
              (QStringList{u"%1|-1"_s.arg(kPlatform3270), u"2|0"_s, u"4|0"_s}));
    // The placeholder emulator exists but is never listed.
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tTestTool WHERE sTestToolName = 'Mainframe'"_s), count(u"SELECT * FROM t3270 WHERE i3270Key = 0"_s)), std::pair(1, 1));
    EXPECT_GE(count(u"SELECT * FROM t3270 WHERE i3270Key > 0"_s), 2);

    // Each of the four platforms has one [System] class, another class and a map type.
    EXPECT_EQ(test::Rows(conn, u"SELECT iPlatformKey FROM tPlatform WHERE 1 <> (SELECT COUNT(*) FROM tClass WHERE iClassPlatformKey = "
                               "tPlatform.iPlatformKey AND sClassPhysicalName = '[System]') OR 2 > (SELECT COUNT(*) FROM tClass WHERE "
                               "iClassPlatformKey = tPlatform.iPlatformKey) OR 1 > (SELECT COUNT(*) FROM tMapType WHERE iMapTypePlatformKey = "
                               "tPlatform.iPlatformKey)"_s),
              QStringList());
    // A plain repository has no environments and no applications.
    EXPECT_EQ(count(u"SELECT * FROM tEnvironment"_s) + count(u"SELECT * FROM tApp"_s), 0);

    EXPECT_THROW(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData), DbError);
    EXPECT_EQ(count(u"SELECT * FROM tPlatform"_s) + count(u"SELECT * FROM t3270 WHERE i3270Key = 0"_s), 5);
}

TEST_P(TutorialTest, EveryForeignKeyPointsAtARowOrIsZero)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::Tutorial));

    int checked = 0;
    for (const TableDef& table : RepositoryTables()) {
        for (const QString& column : table.columns) {
            const TableDef* target = test::ReferencedTable(table, column);
            if (!target)
                continue;
            SCOPED_TRACE((table.name + u'.' + column + u" -> "_s + target->name).toStdString());
            const QString filled = u"SELECT * FROM %1 WHERE %2 IS NULL OR %2<>0"_s.arg(table.name, column);
            checked += count(filled);
            EXPECT_EQ(count(filled + u" AND %1 NOT IN (SELECT %2 FROM %3)"_s.arg(column, target->key, target->name)) + count(u"SELECT * FROM %1 WHERE %2 IS NULL"_s.arg(table.name, column)), 0);
        }
    }
    EXPECT_GT(checked, 150);
}

INSTANTIATE_TEST_SUITE_P(Backends, ReferenceDataTest, ::testing::ValuesIn(TestBackends()), test::backendName);
INSTANTIATE_TEST_SUITE_P(Backends, TutorialTest, ::testing::ValuesIn(TestBackends()), test::backendName);

// --- files on disk --------------------------------------------------------

qsizetype CountIn(const QString& path, const QString& sql) { Connection connection; connection.OpenFile(path); return test::Rows(connection, sql).size(); }

QStringList Entries(const QString& dir) { return QDir(dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name); }

// A refusal that names what is in the way.
void ExpectRefused(const SetupResult& result, const QString& says) { EXPECT_TRUE(!result.ok && result.message.contains(says)) << result.message.toStdString(); }

TEST(InstallationTree, HasTheFilesStartUpAndBackupLookForAndIsNeverOverwritten)
{
    QTemporaryDir dir;
    const QString root = dir.path();
    ASSERT_TRUE(CreateInstallation(root).ok);

    EXPECT_EQ(Entries(root), (QStringList{u"Tutorial"_s, u"UserData.mdb"_s, u"ZentrixBackup.mdb"_s}));
    // "Tutorial\database" and "Tutorial\Database" are one folder.
    EXPECT_EQ(Entries(root + u"/Tutorial"_s), (QStringList{u"Apps"_s, u"Database"_s, u"Environments"_s, u"TestData.mdb"_s}));
    EXPECT_EQ(Entries(root + u"/Tutorial/Database"_s), (QStringList{u"Tutorial.mdb"_s, u"UserData.mdb"_s}));
    EXPECT_TRUE(QFileInfo(root + u"/Tutorial/Environments/Backups"_s).isDir());
    // A folder per tutorial application and version, so that the first Save
    // in the tutorial finds what it needs.
    EXPECT_TRUE(QFileInfo(root + u"/Tutorial/Apps/OE/1.1/Primary Map Source"_s).isDir() &&
                QFileInfo(root + u"/Tutorial/Apps/WS/3.0/Secondary Map Source"_s).isDir()) << Entries(root + u"/Tutorial/Apps"_s).join(u' ').toStdString();

    // Every file opens the way start-up names it.
    const InstallationFiles files(root);
    for (const QString& path : {files.backupTemplate, files.userData, files.tutorialRepository, files.tutorialTestData, files.tutorialUserData})
        DB_ASSERT(Connection connection; connection.OpenFile(path));
    Connection tutorial;
    DB_ASSERT(tutorial.Open(u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source="_s + root + u"\\Tutorial\\Database\\Tutorial.mdb;"_s));
    DB_ASSERT(Recordset rs(u"SELECT * FROM tEnvironment"_s, tutorial); EXPECT_GE(rs.RecordCount(), 1));
    EXPECT_FALSE(tutorial.TableColumns(u"tApp"_s).contains(u"iOriginalAppKey"_s, Qt::CaseInsensitive));
    tutorial.Close();

    const qint64 size = QFileInfo(files.tutorialRepository).size();
    ExpectRefused(CreateInstallation(root), u"already exists"_s);
    EXPECT_EQ(QFileInfo(files.tutorialRepository).size(), size);

    // One existing file of the set is enough, and then nothing is created.
    QTemporaryDir partial;
    QFile stray(partial.path() + u"/tutorial/DATABASE/userdata.MDB"_s);
    ASSERT_TRUE(QDir().mkpath(partial.path() + u"/tutorial/DATABASE"_s) && stray.open(QIODevice::WriteOnly));
    stray.close();
    ExpectRefused(CreateInstallation(partial.path()), u"userdata.MDB"_s);
    EXPECT_EQ(Entries(partial.path()), QStringList{u"tutorial"_s});
}

TEST(RepositoryFileAndSharedFolder, HoldTheirDataAndRefuseAnExistingFile)
{
    QTemporaryDir dir;
    const QString path = dir.path() + u"/Repo.mdb"_s;
    ASSERT_TRUE(CreateRepositoryFile(path).ok);
    ExpectRefused(CreateRepositoryFile(path), u"already exists"_s);
    EXPECT_EQ(CountIn(path, u"SELECT * FROM tPlatform"_s), 4);
    // A file that cannot be created leaves nothing behind.
    EXPECT_FALSE(CreateRepositoryFile(dir.path() + u"/missing/Repo.mdb"_s).ok || QFileInfo::exists(dir.path() + u"/missing"_s));

    // The shared folder keeps what is there.
    QTemporaryDir shared;
    ASSERT_TRUE(QDir().mkpath(shared.path() + u"/Apps/OE"_s));
    ASSERT_TRUE(CreateSharedFolder(shared.path()).ok);
    EXPECT_EQ(Entries(shared.path()), (QStringList{u"Apps"_s, u"Environments"_s, u"testdata.mdb"_s}));
    EXPECT_TRUE(QFileInfo(shared.path() + u"/Apps/OE"_s).isDir() && QFileInfo(shared.path() + u"/Environments/Backups"_s).isDir());
    Connection testData;
    DB_ASSERT(testData.OpenFile(shared.path() + u"/testdata.mdb"_s));
    ExpectRefused(CreateSharedFolder(shared.path()), u"testdata.mdb"_s);
}

} // namespace
} // namespace dorvane
