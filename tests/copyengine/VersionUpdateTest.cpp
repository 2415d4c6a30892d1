// Version update and copy within an environment, on the tutorial
// repository: the copy, the re-pointing of the environment's other
// versions, layouts and version pointers, the single transaction, and the
// checks of the configuration page's Update and Copy buttons.

#include "copyengine/CopyEngineFixture.h"
#include "copyengine/VersionTransfer.h"
#include "repository/FilePaths.h"

using namespace dorvane;
using namespace dorvane::test;

class VersionUpdateTest : public CopyEngineTest {
protected:
    RepositoryContent content() const override { return RepositoryContent::Tutorial; }

    void SetUp() override
    {
        CopyEngineTest::SetUp();
        environment = key(QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'"));
        oe11 = key(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='1.1'"));
        oe10 = key(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='1.0'"));
        r5 = key(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='R5'"));
        orderEntry = intValue(QStringLiteral("tVersion"), oe11, QStringLiteral("iVersionAppKey"));
        inquiry = intValue(QStringLiteral("tVersion"), r5, QStringLiteral("iVersionAppKey"));
    }

    // The key column of the first row a statement selects.
    qint32 key(const QString& sql)
    {
        Recordset rs(sql, conn);
        if (rs.Eof()) {
            ADD_FAILURE() << "nothing selected by " << sql.toStdString();
            return 0;
        }
        return rs.Int(FindTable(rs.TableName())->key);
    }

    // A new, empty version of Order Entry holding only its system screen,
    // with the start-up pointers of 1.1 as a version saved from it has.
    qint32 newVersion(const QString& id)
    {
        Values values = {{QStringLiteral("iVersionAppKey"), orderEntry}, {QStringLiteral("sVersionID"), id}};
        for (const char* column : {"iVersionInitialWindow", "iVersionMainWindow", "iVersionLoadProcess",
                                   "iVersionLoginProcess", "iVersionLogoutProcess", "iVersionTerminateProcess"}) {
            const QString name = QString::fromLatin1(column);
            values.emplace_back(name, intValue(QStringLiteral("tVersion"), oe11, name));
        }
        const qint32 version = add(QStringLiteral("tVersion"), values);
        add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), version},
                                        {QStringLiteral("sWindowPhysicalName"), QStringLiteral("[System Screen]")}});
        return version;
    }

    qint32 windowOf(qint32 version, const QString& name)
    {
        return key(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1 AND sWindowPhysicalName='%2'").arg(version).arg(name));
    }
    qint32 processOf(qint32 version, const QString& name)
    {
        return key(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1 AND sProcessName='%2'").arg(version).arg(name));
    }
    qint32 variableOf(qint32 version, const QString& name)
    {
        return key(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey=%1 AND sVarName='%2'").arg(version).arg(name));
    }
    qint32 versionValue(qint32 version, const char* column)
    {
        return intValue(QStringLiteral("tVersion"), version, QString::fromLatin1(column));
    }

    qint32 environment = 0;
    qint32 oe10 = 0;
    qint32 oe11 = 0;
    qint32 r5 = 0;
    qint32 orderEntry = 0;
    qint32 inquiry = 0;
};

TEST_P(VersionUpdateTest, TheCopyTakesOverWhatTheEnvironmentHeldOfTheSourceVersion)
{
    const qint32 v12 = newVersion(QStringLiteral("1.2"));
    const qint32 login = windowOf(oe11, QStringLiteral("frmLogin"));
    const qint32 userName = key(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey=%1 AND "
                                               "sObjectPhysicalName='txtUserName'").arg(login));
    const qint32 loginProcess = processOf(oe11, QStringLiteral("Login"));

    // Customer Inquiry runs an Order Entry login: a step window visiting
    // 1.1 and a cycle calling its process.
    const qint32 cross = add(QStringLiteral("tProcess"), {{QStringLiteral("iProcessVerKey"), r5},
                                                          {QStringLiteral("sProcessName"), QStringLiteral("Cross")}});
    const qint32 crossWindow = add(QStringLiteral("tStepWindow"), {{QStringLiteral("iStepWindowProcessKey"), cross},
                                                                   {QStringLiteral("iStepWindowVerKey"), oe11},
                                                                   {QStringLiteral("iStepWindowWindowKey"), login},
                                                                   {QStringLiteral("iStepWindowSequenceNum"), 1}});
    const qint32 crossStep = add(QStringLiteral("tStep"), {{QStringLiteral("iStepWindowKey"), crossWindow},
                                                           {QStringLiteral("iStepObjectKey"), userName},
                                                           {QStringLiteral("iStepSequenceNum"), 1}});
    const qint32 hostCycle = key(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey=%1").arg(r5));
    const qint32 crossCall = add(QStringLiteral("tCycleProcess"), {{QStringLiteral("iCycleKey"), hostCycle},
                                                                   {QStringLiteral("iProcessKey"), loginProcess}});
    const qint32 ownCall = key(QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey=%1 ORDER BY iCycleProcessKey").arg(hostCycle));
    const qint32 ownProcess = intValue(QStringLiteral("tCycleProcess"), ownCall, QStringLiteral("iProcessKey"));
    // A layout field on a variable of another version stays as it is.
    const qint32 record = key(QStringLiteral("SELECT * FROM tRecord WHERE iRecordEnvironmentKey=%1").arg(environment));
    const qint32 hostUser = variableOf(r5, QStringLiteral("HostUser"));
    const qint32 hostField = add(QStringLiteral("tField"), {{QStringLiteral("iFieldRecordKey"), record},
                                                            {QStringLiteral("sFieldName"), QStringLiteral("Host user")},
                                                            {QStringLiteral("iFieldVarKey"), hostUser},
                                                            {QStringLiteral("iFieldVarAppVerKey"), r5}});
    const qint32 customerField = key(QStringLiteral("SELECT * FROM tField WHERE sFieldName='Customer'"));

    settingsForTestDatabase();
    ASSERT_TRUE(backup->UpdateVersion(oe11, v12, environment)) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_EQ(backup->DestinationConnection, nullptr);

    // The content, without 1.1's own system screen; six step windows
    // copied, and Customer Inquiry's visit that now names the copy.
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1 AND sWindowPhysicalName='[System Screen]'").arg(v12)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowVerKey=%1").arg(v12)), 7);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1").arg(v12)), 2);

    const qint32 newLogin = windowOf(v12, QStringLiteral("frmLogin"));
    const qint32 newLoginProcess = processOf(v12, QStringLiteral("Login"));
    const qint32 newUserName = key(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey=%1 AND "
                                                  "sObjectPhysicalName='txtUserName'").arg(newLogin));
    // Step arguments point at the copies.
    const qint32 orderWindow = key(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1")
                                       .arg(processOf(v12, QStringLiteral("Create Order"))));
    EXPECT_EQ(texts(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey=%1").arg(orderWindow), QStringLiteral("sStepArguments")),
              QStringList{QStringLiteral("ProcessKey= %1").arg(newLoginProcess)});
    // The other version's step window and step, its cycle, the layout.
    EXPECT_EQ(intValue(QStringLiteral("tStepWindow"), crossWindow, QStringLiteral("iStepWindowWindowKey")), newLogin);
    EXPECT_EQ(intValue(QStringLiteral("tStepWindow"), crossWindow, QStringLiteral("iStepWindowVerKey")), v12);
    EXPECT_EQ(intValue(QStringLiteral("tStep"), crossStep, QStringLiteral("iStepObjectKey")), newUserName);
    EXPECT_EQ(intValue(QStringLiteral("tCycleProcess"), crossCall, QStringLiteral("iProcessKey")), newLoginProcess);
    EXPECT_EQ(intValue(QStringLiteral("tCycleProcess"), ownCall, QStringLiteral("iProcessKey")), ownProcess);
    EXPECT_EQ(intValue(QStringLiteral("tField"), customerField, QStringLiteral("iFieldVarAppVerKey")), v12);
    EXPECT_EQ(intValue(QStringLiteral("tField"), customerField, QStringLiteral("iFieldVarKey")),
              variableOf(v12, QStringLiteral("CustomerName")));
    EXPECT_EQ(intValue(QStringLiteral("tField"), hostField, QStringLiteral("iFieldVarAppVerKey")), r5);
    EXPECT_EQ(intValue(QStringLiteral("tField"), hostField, QStringLiteral("iFieldVarKey")), hostUser);

    // The new version's pointers; a pointer of 0 stays 0.
    EXPECT_EQ(versionValue(v12, "iVersionLoginProcess"), newLoginProcess);
    EXPECT_EQ(versionValue(v12, "iVersionInitialWindow"), newLogin);
    EXPECT_EQ(versionValue(v12, "iVersionTerminateProcess"), 0);
    EXPECT_EQ(versionValue(v12, "iVersionSourceVersion"), oe11);
    EXPECT_EQ(versionValue(oe11, "iVersionLoginProcess"), loginProcess);

    EXPECT_EQ(progress.events.first(), QStringLiteral("title:Version update progress..."));
    EXPECT_EQ(progress.matching(QStringLiteral("action:Fixing")),
              (QStringList{"action:Fixing up steps....", "action:Fixing up cycles...", "action:Fixing up layouts..."}));
    EXPECT_EQ(progress.events.last(), QStringLiteral("hide"));
    EXPECT_EQ(busy.ended, 1);
}

TEST_P(VersionUpdateTest, AnEmptySourceStillRepointsTheEnvironment)
{
    const qint32 empty = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), orderEntry},
                                                          {QStringLiteral("sVersionID"), QStringLiteral("0.9")}});
    const qint32 target = newVersion(QStringLiteral("1.2"));
    const qint32 visit = add(QStringLiteral("tStepWindow"),
                             {{QStringLiteral("iStepWindowProcessKey"), processOf(r5, QStringLiteral("Sign On"))},
                              {QStringLiteral("iStepWindowVerKey"), empty},
                              {QStringLiteral("iStepWindowWindowKey"), 4242},
                              {QStringLiteral("iStepWindowSequenceNum"), 9}});

    settingsForTestDatabase();
    ASSERT_TRUE(backup->UpdateVersion(empty, target, environment)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(intValue(QStringLiteral("tStepWindow"), visit, QStringLiteral("iStepWindowVerKey")), target);
    EXPECT_EQ(intValue(QStringLiteral("tStepWindow"), visit, QStringLiteral("iStepWindowWindowKey")), 4242);
    // Pointers to nothing that was copied become 0.
    EXPECT_EQ(versionValue(target, "iVersionLoginProcess"), 0);
}

TEST_P(VersionUpdateTest, AFailedStepCopyLeavesTheRepositoryAsItWas)
{
    const qint32 v12 = newVersion(QStringLiteral("1.2"));
    abortOn(QStringLiteral("tStep"), QStringLiteral("INSERT"));
    const QStringList before = dump();

    settingsForTestDatabase();
    EXPECT_FALSE(backup->UpdateVersion(oe11, v12, environment));
    expectFailure(QStringLiteral("Error while copying Steps:"));
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(backup->DestinationConnection, nullptr);
}

TEST_P(VersionUpdateTest, ItsOwnFailuresRollBackWithItsOwnMessage)
{
    const qint32 v12 = newVersion(QStringLiteral("1.2"));
    const QStringList before = dump();
    // No destination database: the update fails before writing anything.
    writeSettings(QStringLiteral("\"ActiveDB\"=\"Local\"\r\n\"IsLocalDatabase\"=dword:00000001\r\n"
                                 "\"LocalDatabasePath\"=\"%1\"\r\n\"LocalDatabaseName\"=\"Missing.mdb\"\r\n")
                      .arg(db->tempPath()));
    EXPECT_FALSE(backup->UpdateVersion(oe11, v12, environment));
    ASSERT_EQ(messages.shown.size(), 2);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error while opening destination database for version copy: ")));
    EXPECT_TRUE(messages.shown[0].contains(QStringLiteral("Missing.mdb")));
    EXPECT_TRUE(messages.shown[1].startsWith(QStringLiteral("Error while creating new version:")));
    EXPECT_EQ(dump(), before);

    messages.shown.clear();
    abortOn(QStringLiteral("tVersion"), QStringLiteral("UPDATE"));
    settingsForTestDatabase();
    EXPECT_FALSE(backup->UpdateVersion(oe11, v12, environment));
    EXPECT_TRUE(messages.shown.value(0).endsWith(QStringLiteral("! New version not fully created.")));
    expectFailure(QStringLiteral("Error while creating new version:"));
    EXPECT_EQ(dump(), before);
    // This path leaves the connection open.
    ASSERT_NE(backup->DestinationConnection, nullptr);
    EXPECT_TRUE(backup->DestinationConnection->IsOpen());
    EXPECT_FALSE(progress.visible);
}

TEST_P(VersionUpdateTest, TheDestinationDatabaseComesFromTheSettings)
{
    if (db->isOdbc())
        GTEST_SKIP() << "local database files only";
    const QString exePath = db->tempPath() + QStringLiteral("/install");
    const QString tutorial = exePath + QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb");
    QDir().mkpath(exePath + QStringLiteral("/Tutorial/Database"));
    Connection::CreateDatabaseFile(NativePath(tutorial));
    const QString local = QStringLiteral("\"IsLocalDatabase\"=dword:00000001\r\n\"LocalDatabasePath\"=\"%1\"\r\n"
                                         "\"LocalDatabaseName\"=\"Test.mdb\"\r\n\"ExePath\"=\"%2\"\r\n")
                              .arg(db->tempPath(), exePath);

    writeSettings(QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n") + local);
    std::unique_ptr<Connection> opened = backup->OpenDestinationDatabase();
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->connectionString(), QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1;").arg(tutorial));

    // Another case is not the tutorial.
    writeSettings(QStringLiteral("\"ActiveDB\"=\"tutorial\"\r\n") + local);
    opened = backup->OpenDestinationDatabase();
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->connectionString(),
              QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1\\Test.mdb;").arg(db->tempPath()));
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(VersionUpdateTest, OnlyANewVersionOfTheSameApplicationIsAccepted)
{
    VersionTransferRequest r;
    r.EnvironKey = environment;
    r.AppKey = orderEntry;
    r.ChosenVersionText = QStringLiteral("1.2");
    r.ChosenVersionKey = newVersion(QStringLiteral("1.2"));  // holds its system screen only
    r.ListedVersionKey = r5;
    EXPECT_FALSE(CheckVersionTransfer(VersionTransferKind::Update, r, conn, messages));
    EXPECT_EQ(messages.shown.value(0), QStringLiteral("The source and destination versions must belong to the same application"));
    r.ListedVersionKey = oe11;
    EXPECT_TRUE(CheckVersionTransfer(VersionTransferKind::Update, r, conn, messages));
    r.ChosenVersionKey = oe10;
    messages.shown.clear();
    EXPECT_FALSE(CheckVersionTransfer(VersionTransferKind::Copy, r, conn, messages));
    EXPECT_EQ(messages.shown.value(0), QStringLiteral("You can only Copy an existing application version to a new (empty) one"));
}

TEST_P(VersionUpdateTest, UpdateMovesTheEnvironmentToTheNewVersionAndCopyDoesNot)
{
    const qint32 v12 = newVersion(QStringLiteral("1.2"));
    const qint32 v13 = newVersion(QStringLiteral("1.3"));
    settingsForTestDatabase();
    const QString details = QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(environment);

    VersionTransferRequest request;
    request.EnvironKey = environment;
    request.ListedVersionKey = oe11;
    request.AppKey = orderEntry;
    request.ChosenVersionText = QStringLiteral("1.2");
    request.ChosenVersionKey = v12;
    VersionTransferOutcome outcome = TransferVersion(VersionTransferKind::Update, request, conn, *backup, messages);
    EXPECT_TRUE(outcome.Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(outcome.RefreshEnvironAppVerList);
    EXPECT_EQ(ints(details, QStringLiteral("iEnvironVerKey")), (std::vector<qint32>{v12, r5}));

    request.ListedVersionKey = v12;
    request.ChosenVersionText = QStringLiteral("1.3");
    request.ChosenVersionKey = v13;
    outcome = TransferVersion(VersionTransferKind::Copy, request, conn, *backup, messages);
    EXPECT_FALSE(outcome.RefreshEnvironAppVerList);
    EXPECT_EQ(ints(details, QStringLiteral("iEnvironVerKey")), (std::vector<qint32>{v12, r5}));
    EXPECT_EQ(versionValue(v13, "iVersionSourceVersion"), v12);
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionUpdateTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
