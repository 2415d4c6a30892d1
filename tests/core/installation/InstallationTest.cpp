// What a new repository holds (the reference data, the tutorial, the rows
// of the data files and the values they load), and the installation tree,
// repository file and shared folder the create commands make.

#include "core/applications/ApplicationRecords.h"
#include "core/applications/SystemScreen.h"
#include "core/installation/DataFiles.h"
#include "core/installation/Installation.h"
#include "core/repository/Schema.h"
#include "core/repository/RepositoryFixture.h"

#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTime>

namespace dorvane {
namespace {

using test::addRow;
using test::Rows;
using test::TestBackends;

using ReferenceDataTest = test::BackendTest;
using TutorialTest = test::BackendTest;
using DataFilesTest = test::BackendTest;

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

// The tutorial's rows keep the keys its data files give them (the rows
// that refer to them are checked by TutorialTest and used by the window
// and command tests).
TEST_P(DataFilesTest, TheTutorialKeepsItsKeysAndItsSystemScreensAreThoseTheProgramMakes)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::Tutorial));
    // Each version's system screen has the keys the other rows refer to,
    // and is what the version editor makes for a new version of its
    // application.
    EXPECT_EQ(Rows(conn, u"SELECT w.iWindowVerKey, w.iWindowKey, o.iObjectKey, w.iWindowClassKey FROM tWindow w, tObject o "
                         "WHERE o.iObjectWindowKey = w.iWindowKey AND w.sWindowPhysicalName = '[System Screen]' ORDER BY w.iWindowVerKey"_s),
              (QStringList{u"1|1|1|0"_s, u"2|4|5|0"_s, u"3|9|14|1"_s, u"4|13|19|100"_s}));
    const QString window = u"SELECT * FROM tWindow WHERE iWindowVerKey = %1 AND sWindowPhysicalName = '[System Screen]'"_s;
    const QString object = u"SELECT * FROM tObject WHERE iObjectVersionKey = %1 AND iObjectWindowKey IN "
                           "(SELECT iWindowKey FROM tWindow WHERE sWindowPhysicalName = '[System Screen]')"_s;
    const QStringList windowKeys = {u"iWindowKey"_s, u"iWindowVerKey"_s};
    const QStringList objectKeys = {u"iObjectKey"_s, u"iObjectWindowKey"_s, u"iObjectVersionKey"_s};
    for (int version = 1; version <= 4; ++version) {
        SCOPED_TRACE(version);
        const QStringList app = Rows(conn, u"SELECT a.iAppKey, a.iAppPlatform FROM tApp a, tVersion v WHERE a.iAppKey = v.iVersionAppKey "
                                           "AND v.iVersionKey = %1"_s.arg(version)).value(0).split(u'|');
        ASSERT_EQ(app.size(), 2);
        qint32 made = 0;
        DB_ASSERT(made = addRow(conn, u"SELECT * FROM tVersion WHERE 1=0"_s, {{u"iVersionAppKey"_s, app[0].toInt()}, {u"sVersionID"_s, u"new"_s}});
                  CreateSystemScreen(conn, made, PlatformIsHost(conn, app[1].toInt()), app[1].toInt()));
        EXPECT_EQ(Rows(conn, window.arg(version), windowKeys), Rows(conn, window.arg(made), windowKeys));
        const QStringList objects = Rows(conn, object.arg(version), objectKeys);
        EXPECT_TRUE(objects.size() == 1 && objects == Rows(conn, object.arg(made), objectKeys));
    }
}

TEST_P(DataFilesTest, RowsTheProgramAddsAfterTheLoadGetKeysAboveTheLoadedOnes)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::Tutorial));
    int tables = 0;
    for (const TableDef& table : RepositoryTables()) {
        SCOPED_TRACE(table.name.toStdString());
        const qint32 highest = Rows(conn, u"SELECT MAX(%1) AS high FROM %2"_s.arg(table.key, table.name)).value(0).toInt();
        if (highest == 0)
            continue;
        // Any column but the key, with a value of its type.
        const QString column = table.columns.at(1);
        QVariant value = QVariant(0);
        if (ColumnTypeOf(column) == ColumnType::Text || ColumnTypeOf(column) == ColumnType::Memo)
            value = u"new"_s;
        else if (ColumnTypeOf(column) == ColumnType::DateTime)
            value = QDateTime(QDate(2025, 1, 2), QTime(3, 4));
        qint32 key = 0;
        DB_ASSERT(key = addRow(conn, u"SELECT * FROM %1 WHERE 1=0"_s.arg(table.name), {{column, value}}));
        EXPECT_GT(key, highest);
        ++tables;
    }
    EXPECT_EQ(tables, int(RepositoryTables().size()));
}

TEST_P(DataFilesTest, ValuesAreStoredAsTheProgramStoresThemAndAValueOfAnotherTypeIsNamed)
{
    DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
    const auto load = [&](const QByteArray& text) {
        EXPECT_TRUE(test::WriteFile(db->tempPath() + u"/data.json"_s, text));
        return test::descriptionOf([&] { LoadDataFile(conn, db->tempPath() + u"/data.json"_s); });
    };
    EXPECT_EQ(load(R"({"about": "two rows", "sections": [
        {"table": "tFileInstance", "columns": ["iFileInstanceKey", "iFileInstanceRecordKey", "sFileInstanceName", "sFileInstanceDesc",
                                               "dFileInstanceCreated", "dFileInstanceCreatedBy", "dFileInstanceModified"],
         "rows": [[7, -2, "a\tb\r\nc \\ \"d\"", "", "2024-02-21 11:00:00", "Jane", null]]},
        {"table": "tEnvironmentUser", "columns": ["iEnvironmentUserKey", "bDorvane", "bVantrel", "bOmrik"], "rows": [[5, true, false, null]]}]})"),
              u"<no error>"_s);
    // The same rows as the program writes them.
    DB_ASSERT(addRow(conn, u"SELECT * FROM tFileInstance WHERE 1=0"_s,
                     {{u"iFileInstanceKey"_s, 8}, {u"iFileInstanceRecordKey"_s, -2}, {u"sFileInstanceName"_s, u"a\tb\r\nc \\ \"d\""_s},
                      {u"sFileInstanceDesc"_s, QString()}, {u"dFileInstanceCreated"_s, QDateTime(QDate(2024, 2, 21), QTime(11, 0))},
                      {u"dFileInstanceCreatedBy"_s, u"Jane"_s}, {u"dFileInstanceModified"_s, QVariant()}});
              addRow(conn, u"SELECT * FROM tEnvironmentUser WHERE 1=0"_s,
                     {{u"iEnvironmentUserKey"_s, 6}, {u"bDorvane"_s, -1}, {u"bVantrel"_s, 0}, {u"bOmrik"_s, QVariant()}}));
    for (const QString& table : {u"tFileInstance"_s, u"tEnvironmentUser"_s}) {
        const TableDef& def = *FindTable(table);
        const QStringList rows = Rows(conn, table, {def.key});
        ASSERT_EQ(rows.size(), 2);
        EXPECT_EQ(rows[0], rows[1]) << table.toStdString();
    }
    if (db->isOdbc()) {
        EXPECT_EQ(Rows(conn, u"SELECT CAST(dFileInstanceCreated AS varchar) AS d, CAST(bOmrik AS varchar) AS b FROM tFileInstance, "
                             "tEnvironmentUser WHERE iFileInstanceKey = 7 AND iEnvironmentUserKey = 5"_s),
                  QStringList{u"2024-02-21 11:00:00|<null>"_s});
    } else {
        EXPECT_EQ(Rows(conn, u"SELECT typeof(iFileInstanceRecordKey) || typeof(sFileInstanceDesc) || typeof(dFileInstanceModified) || "
                             "dFileInstanceCreated AS t FROM tFileInstance WHERE iFileInstanceKey = 7"_s),
                  QStringList{u"integertextnull2024-02-21T11:00:00.000"_s});
    }

    // A value the column cannot take, an unknown column, a row without its
    // key: named, and the file's earlier rows stay the caller's to roll back.
    const std::pair<const char*, QString> refusals[] = { // the file, what its refusal says after "The data file FILE"
        {R"({"sections": [{"table": "tRole", "columns": ["iRoleKey", "sRoleName"], "rows": [[1, "Tester"], [2, 3]]}]})",
         u", section 1 (tRole): row 2, column sRoleName: 3 is not a text or null."_s},
        {R"({"sections": [{"table": "tRole", "columns": ["iRoleKey", "sRoleTitle"], "rows": []}]})",
         u", section 1 (tRole): the table has no column sRoleTitle, or the section names it twice."_s},
        {R"({"sections": [{"table": "tRole", "columns": ["sRoleName"], "rows": []}]})", u", section 1 (tRole): no column iRoleKey: every row needs its key."_s},
        {R"({"sections": [{"table": "tRole", "colums": ["iRoleKey"], "rows": []}]})", u", section 1 (tRole): \"colums\" is none of note, columns, rows, table."_s},
        {R"({"sections": [{"table": "tFileInstance", "columns": ["iFileInstanceKey", "dFileInstanceCreated"], "rows": [[9, "2024-02-30 10:00:00"]]}]})",
         u", section 1 (tFileInstance): row 1, column dFileInstanceCreated: \"2024-02-30 10:00:00\" is not a time written yyyy-MM-dd HH:mm:ss or null."_s},
        {R"({"sections": [{"table": "tRole", "columns": ["iRoleKey"]}]})", u", section 1 (tRole): a section needs its columns and its rows."_s},
        {R"([{"table": "tRole", "columns": ["iRoleKey"], "rows": [[1]]}])", u": not an object with a list of sections."_s},
        {R"({"sections": [{"program": "CreateSystemScreen", "columns": ["iVersionKey", "iWindowKey", "iObjectKey"], "rows": [[9, 1, 1]]}]})",
         u", section 1 (CreateSystemScreen): row 1: version 9 has no application."_s},
    };
    for (const auto& [text, says] : refusals)
        EXPECT_EQ(load(text), u"The data file "_s + db->tempPath() + u"/data.json"_s + says) << text;
    EXPECT_EQ(count(u"SELECT * FROM tRole"_s), 1);
}

INSTANTIATE_TEST_SUITE_P(Backends, DataFilesTest, ::testing::ValuesIn(TestBackends()), test::backendName);

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
