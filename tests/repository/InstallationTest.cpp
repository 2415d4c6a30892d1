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
// Ver, "iApp3270Key" -> 3270). Empty for codes, counts and keys of things
// outside the repository ("iObjectDataTypeKey", "iRecordFileKey").
QString ReferencedTable(const TableDef& table, const QString& column)
{
    if (column == table.key || ColumnTypeOf(column) != ColumnType::Integer)
        return {};
    for (const TableDef& other : RepositoryTables()) {
        if (other.key.compare(column, Qt::CaseInsensitive) == 0)
            return other.name;
    }

    static const QMap<QString, QString> aliases = {
        {QStringLiteral("Ver"), QStringLiteral("tVersion")},     {QStringLiteral("Environ"), QStringLiteral("tEnvironment")},
        {QStringLiteral("Var"), QStringLiteral("tUserVar")},     {QStringLiteral("Owner"), QStringLiteral("tUser")},
        {QStringLiteral("Creator"), QStringLiteral("tUser")},    {QStringLiteral("Modifier"), QStringLiteral("tUser")},
    };
    QString body = column.mid(1);
    if (body.endsWith(QLatin1String("Key")))
        body.chop(3);
    static const QRegularExpression word(QStringLiteral("[A-Z][a-z]*|[0-9]+"));
    QStringList words;
    for (auto it = word.globalMatch(body); it.hasNext();)
        words << it.next().captured();
    for (qsizetype n = 1; n <= words.size(); ++n) {
        const QString suffix = words.mid(words.size() - n).join(QString());
        if (suffix == QLatin1String("Parent") || suffix == QLatin1String("Dependency"))
            return table.name;
        if (aliases.contains(suffix))
            return aliases.value(suffix);
        if (const TableDef* target = FindTable(QStringLiteral("t") + suffix))
            return target->name;
    }
    return {};
}

struct ForeignKey {
    QString table;
    QString column;
    QString target;
};

std::vector<ForeignKey> DerivedForeignKeys()
{
    std::vector<ForeignKey> keys;
    for (const TableDef& table : RepositoryTables()) {
        for (const QString& column : table.columns) {
            const QString target = ReferencedTable(table, column);
            if (!target.isEmpty())
                keys.push_back({table.name, column, target});
        }
    }
    return keys;
}

TEST(ForeignKeyDerivation, FindsTheReferencesTheProgramWalks)
{
    QMap<QString, QString> found;
    for (const ForeignKey& fk : DerivedForeignKeys())
        found.insert(fk.table + u'.' + fk.column, fk.target);

    const QMap<QString, QString> expected = {
        {QStringLiteral("tApp.iAppPlatform"), QStringLiteral("tPlatform")},
        {QStringLiteral("tApp.iApp3270Key"), QStringLiteral("t3270")},
        {QStringLiteral("tVersion.iMapType"), QStringLiteral("tMapType")},
        {QStringLiteral("tVersion.iVersionLoginProcess"), QStringLiteral("tProcess")},
        {QStringLiteral("tVersion.iVersionMainWindow"), QStringLiteral("tWindow")},
        {QStringLiteral("tVersion.iVersionSourceVersion"), QStringLiteral("tVersion")},
        {QStringLiteral("tEnvironmentDetail.iEnvironKey"), QStringLiteral("tEnvironment")},
        {QStringLiteral("tEnvironmentDetail.iEnvironTestToolKey"), QStringLiteral("tTestTool")},
        {QStringLiteral("tEnvironmentUser.iUserKey"), QStringLiteral("tUser")},
        {QStringLiteral("tWindow.iWindowParentKey"), QStringLiteral("tWindow")},
        {QStringLiteral("tStep.iStepWindowKey"), QStringLiteral("tStepWindow")},
        {QStringLiteral("tStepWindow.iStepWindowWindowKey"), QStringLiteral("tWindow")},
        {QStringLiteral("tStepWindow.iStepWindowEnvironmentKey"), QStringLiteral("tEnvironment")},
        {QStringLiteral("tProcess.iProcessLastModifierKey"), QStringLiteral("tUser")},
        {QStringLiteral("tCycleProcess.iProcessKey"), QStringLiteral("tProcess")},
        {QStringLiteral("tCycleProcess.iCycleProcessRecordKey"), QStringLiteral("tRecord")},
        {QStringLiteral("tScheduleCycles.iCycleKey"), QStringLiteral("tCycle")},
        {QStringLiteral("tKeywordRel.iKeywordRelKeywordKey"), QStringLiteral("tKeyword")},
        {QStringLiteral("tRecord.iRecordFileInstanceKey"), QStringLiteral("tFileInstance")},
        {QStringLiteral("tField.iFieldVarKey"), QStringLiteral("tUserVar")},
        {QStringLiteral("tField.iFieldVarAppVerKey"), QStringLiteral("tVersion")},
    };
    for (auto it = expected.begin(); it != expected.end(); ++it)
        EXPECT_EQ(found.value(it.key()), it.value()) << it.key().toStdString();
    for (const char* notAKey : {"tObject.iObjectDataTypeKey", "tRecord.iRecordFileKey", "tProcess.iProcessSequenceNum",
                                "tUserVar.iVarType", "tRecord.iRecordKeyType"})
        EXPECT_FALSE(found.contains(QString::fromLatin1(notAKey))) << notAKey;
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

TEST_P(ReferenceDataTest, LaterRowsGetFreshKeys)
{
    DB_ASSERT(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
    const qint32 lastEmulator = IntOf(QStringLiteral("SELECT * FROM t3270 ORDER BY i3270Key DESC"), QStringLiteral("i3270Key"));
    DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM t3270 WHERE i3270Key=0"), m_conn); rs.AddNew();
              rs.SetValue(QStringLiteral("s3270EmulatorName"), QStringLiteral("New emulator")); rs.Update();
              EXPECT_EQ(rs.Int(QStringLiteral("i3270Key")), lastEmulator + 1));
    DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM tPlatform WHERE iPlatformKey=0"), m_conn); rs.AddNew();
              rs.SetValue(QStringLiteral("sPlatformDesc"), QStringLiteral("Unix")); rs.Update();
              EXPECT_EQ(rs.Int(QStringLiteral("iPlatformKey")), 5));
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
    for (const ForeignKey& fk : DerivedForeignKeys()) {
        const TableDef* target = FindTable(fk.target);
        ASSERT_NE(target, nullptr);
        DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM %1").arg(fk.table), m_conn);
                  for (; !rs.Eof(); rs.MoveNext()) {
                      EXPECT_FALSE(rs.IsNull(fk.column)) << fk.table.toStdString() << '.' << fk.column.toStdString();
                      const qint32 value = rs.Int(fk.column);
                      if (value == 0)
                          continue;
                      ++checked;
                      EXPECT_EQ(Count(QStringLiteral("SELECT * FROM %1 WHERE %2=%3").arg(target->name, target->key).arg(value)),
                                1)
                          << fk.table.toStdString() << '.' << fk.column.toStdString() << " = " << value << " has no "
                          << target->name.toStdString() << " row";
                  });
    }
    EXPECT_GT(checked, 150);
}

TEST_P(TutorialTest, StepArgumentsReferToProcessesAndVariablesOfTheirVersion)
{
    DB_ASSERT(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::Tutorial));

    const QRegularExpression processCall(QStringLiteral("ProcessKey= *(-?\\d+)"));
    const QRegularExpression variable(QStringLiteral("=@([A-Za-z]+)\\[ *(\\d+)\\| *(\\d+)\\]"));
    int calls = 0;
    int variables = 0;
    DB_ASSERT(Recordset steps(QStringLiteral("SELECT * FROM tStep"), m_conn); for (; !steps.Eof(); steps.MoveNext()) {
        const QString arguments = steps.Text(QStringLiteral("sStepArguments"));
        const qint32 version = IntOf(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowKey=%1")
                                         .arg(steps.Int(QStringLiteral("iStepWindowKey"))),
                                     QStringLiteral("iStepWindowVerKey"));
        const QRegularExpressionMatch call = processCall.match(arguments);
        if (call.hasMatch()) {
            ++calls;
            EXPECT_EQ(IntOf(QStringLiteral("SELECT * FROM tProcess WHERE iProcessKey=%1").arg(call.captured(1)),
                            QStringLiteral("iProcessVerKey")),
                      version)
                << arguments.toStdString();
            continue;
        }
        for (auto it = variable.globalMatch(arguments); it.hasNext();) {
            const QRegularExpressionMatch token = it.next();
            ++variables;
            EXPECT_EQ(token.captured(2).toInt(), version) << arguments.toStdString();
            DB_ASSERT(Recordset var(QStringLiteral("SELECT * FROM tUserVar WHERE iVarKey=%1").arg(token.captured(3)), m_conn);
                      ASSERT_FALSE(var.Eof()) << arguments.toStdString();
                      EXPECT_EQ(var.Text(QStringLiteral("sVarName")), token.captured(1));
                      EXPECT_EQ(var.Int(QStringLiteral("iVarAppVerKey")), version));
        }
    });
    EXPECT_GE(calls, 2);
    EXPECT_GE(variables, 4);
}

TEST_P(TutorialTest, HoldsWhatTheEditorsAndTheCopyEngineWorkOn)
{
    DB_ASSERT(BuildDatabase(m_conn, SchemaVariant::Repository, RepositoryContent::Tutorial));

    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tUser")), 3);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tRole")), 3);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tProject")), 3);

    // Every version has one system screen; each Windows-style version a
    // window standing for the application.
    DB_ASSERT(Recordset versions(QStringLiteral("SELECT * FROM tVersion"), m_conn); EXPECT_GE(versions.RecordCount(), 3);
              for (; !versions.Eof(); versions.MoveNext()) {
                  const qint32 v = versions.Int(QStringLiteral("iVersionKey"));
                  SCOPED_TRACE(v);
                  EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tWindow WHERE sWindowPhysicalName = '[System Screen]' AND "
                                                 "iWindowVerKey=%1")
                                      .arg(v)),
                            1);
                  EXPECT_GE(Count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowClassKey = 1 AND iWindowVerKey = %1").arg(v)), 1);
                  // Start-up processes are type 1 processes of the version itself.
                  for (const char* column : {"iVersionLoadProcess", "iVersionLoginProcess", "iVersionLogoutProcess"}) {
                      const qint32 process = versions.Int(QString::fromLatin1(column));
                      if (process != 0) {
                          EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tProcess WHERE iProcessKey=%1 AND iProcessType = 1 "
                                                         "AND iProcessVerKey=%2")
                                              .arg(process)
                                              .arg(v)),
                                    1)
                              << column;
                      }
                  }
              });

    // The host application: default emulator, system screen with the
    // platform's "[System]" class on its pseudo-object.
    DB_ASSERT(Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppPlatform=%1").arg(kPlatform3270), m_conn);
              ASSERT_EQ(app.RecordCount(), 1); EXPECT_GT(app.Int(QStringLiteral("iApp3270Key")), 0);
              const qint32 version = IntOf(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1")
                                               .arg(app.Int(QStringLiteral("iAppKey"))),
                                           QStringLiteral("iVersionKey"));
              const qint32 screen = IntOf(QStringLiteral("SELECT * FROM tWindow WHERE iWindowClassKey = 1 AND iWindowVerKey = %1 "
                                                         "AND sWindowPhysicalName = '[System Screen]'")
                                              .arg(version),
                                          QStringLiteral("iWindowKey"));
              const qint32 systemClass = IntOf(QStringLiteral("SELECT * FROM tClass WHERE iClassPlatformKey=%1 AND "
                                                              "sClassPhysicalName = '[System]'")
                                                   .arg(kPlatform3270),
                                               QStringLiteral("iClassKey"));
              EXPECT_EQ(Count(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey=%1 AND iObjectClassKey=%2 AND "
                                             "sObjectPhysicalName = '[System]'")
                                  .arg(screen)
                                  .arg(systemClass)),
                        1));

    // The environment: a host version on the Mainframe tool with an
    // emulator, the others without; rights stored as -1 / 0.
    ASSERT_GE(Count(QStringLiteral("SELECT * FROM tEnvironment")), 1);
    DB_ASSERT(Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail"), m_conn); EXPECT_GE(detail.RecordCount(), 2);
              for (; !detail.Eof(); detail.MoveNext()) {
                  const bool mainframe =
                      Count(QStringLiteral("SELECT * FROM tTestTool WHERE iTestToolKey=%1 AND sTestToolName = 'Mainframe'")
                                .arg(detail.Int(QStringLiteral("iEnvironTestToolKey")))) == 1;
                  EXPECT_EQ(detail.Int(QStringLiteral("iEnviron3270Key")) > 0, mainframe);
              });
    DB_ASSERT(Recordset users(QStringLiteral("SELECT * FROM tEnvironmentUser"), m_conn); EXPECT_GE(users.RecordCount(), 3);
              for (; !users.Eof(); users.MoveNext()) {
                  for (const char* right : {"bDorvane", "bVantrel", "bOmrik", "bZulane", "bKrestin"}) {
                      const qint32 value = users.Int(QString::fromLatin1(right));
                      EXPECT_TRUE(value == -1 || value == 0) << right << " = " << value;
                  }
              });
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE bDorvane = -1")), 1);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE bDorvane = 0")), 1);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tScheduleCycles")), 1);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tCycleProcess")), 2);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelProcessKey > 0")), 1);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelCycleKey > 0")), 1);
    EXPECT_GE(Count(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelScheduleKey > 0")), 1);
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

TEST(InstallationTree, BackupTemplateIsEmptyWithTheOriginalKeyColumns)
{
    QTemporaryDir dir;
    ASSERT_TRUE(CreateInstallation(dir.path()).ok);
    const QString path = NativePath(InstallationFiles(dir.path()).backupTemplate);
    Connection connection;
    DB_ASSERT(connection.OpenFile(path));
    for (const TableDef& table : RepositoryTables()) {
        SCOPED_TRACE(table.name.toStdString());
        DB_ASSERT(Recordset rs(QStringLiteral("SELECT * FROM %1").arg(table.name), connection); EXPECT_TRUE(rs.Eof()));
        for (const QString& column : table.backupOnly)
            EXPECT_TRUE(connection.TableColumns(table.name).contains(column, Qt::CaseInsensitive));
    }
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
