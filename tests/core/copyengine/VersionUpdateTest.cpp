// Version update and copy within an environment, on the tutorial
// repository: the copy, the re-pointing of the environment's other
// versions, layouts and version pointers, the single transaction, and the
// checks of the configuration page's Update and Copy buttons.

#include "core/copyengine/CopyEngineFixture.h"
#include "core/copyengine/VersionTransfer.h"
#include "core/repository/FilePaths.h"
#include "core/repository/SchemaDdl.h"

#include <QScopeGuard>

using namespace dorvane;
using namespace dorvane::test;

class VersionUpdateTest : public CopyEngineTest {
protected:
    std::optional<RepositoryContent> content() const override { return RepositoryContent::Tutorial; }
    void expectTheCopyTakesOverWhatTheEnvironmentHeld();

    // A new, empty version of Order Entry holding only its system screen,
    // with the start-up pointers of 1.1 as a version saved from it has.
    qint32 newVersion(const QString& id)
    {
        Values values = {{u"iVersionAppKey"_s, orderEntry}, {u"sVersionID"_s, id}};
        for (const char* column : {"InitialWindow", "MainWindow", "LoadProcess", "LoginProcess", "LogoutProcess", "TerminateProcess"})
            values.emplace_back(u"iVersion"_s + QLatin1String(column), versionValue(oe11, column));
        const qint32 version = add(u"tVersion"_s, values);
        add(u"tWindow"_s, {{u"iWindowVerKey"_s, version}, {u"sWindowPhysicalName"_s, u"[System Screen]"_s}});
        return version;
    }

    qint32 processOf(qint32 v, const QString& name) { return firstKey(u"SELECT * FROM tProcess WHERE iProcessVerKey=%1 AND sProcessName='%2'"_s.arg(v).arg(name)); }
    qint32 variableOf(qint32 v, const QString& name) { return firstKey(u"SELECT * FROM tUserVar WHERE iVarAppVerKey=%1 AND sVarName='%2'"_s.arg(v).arg(name)); }
    qint32 objectOf(qint32 window, const QString& name) { return firstKey(u"SELECT * FROM tObject WHERE iObjectWindowKey=%1 AND sObjectPhysicalName='%2'"_s.arg(window).arg(name)); }
    qint32 versionValue(qint32 version, const char* column) { return intValue(u"tVersion"_s, version, u"iVersion"_s + QLatin1String(column)); }

    // The tutorial's keys, which its data files fix (DataFilesTest): the
    // TUTORIAL environment, Order Entry with its versions 1.0 and 1.1, and
    // Customer Inquiry's R5.
    const qint32 environment = 1, orderEntry = 1, oe10 = 1, oe11 = 2, r5 = 3;
};

// The update of 1.1 into a new 1.2 while Customer Inquiry visits 1.1, and
// what the environment then holds.
void VersionUpdateTest::expectTheCopyTakesOverWhatTheEnvironmentHeld()
{
    const qint32 v12 = newVersion(u"1.2"_s);
    const qint32 login = windowOf(oe11, u"frmLogin"_s), loginProcess = processOf(oe11, u"Login"_s);

    // Customer Inquiry runs an Order Entry login: a step window visiting
    // 1.1 and a cycle calling its process.
    const qint32 cross = add(u"tProcess"_s, {{u"iProcessVerKey"_s, r5}, {u"sProcessName"_s, u"Cross"_s}});
    const qint32 crossWindow = addStepWindow(cross, oe11, login, 0);
    const qint32 crossStep = add(u"tStep"_s, {{u"iStepWindowKey"_s, crossWindow}, {u"iStepObjectKey"_s, objectOf(login, u"txtUserName"_s)},
                                              {u"iStepSequenceNum"_s, 1}});
    const qint32 hostCycle = firstKey(u"SELECT * FROM tCycle WHERE iCycleVerKey=%1"_s.arg(r5));
    const qint32 crossCall = add(u"tCycleProcess"_s, {{u"iCycleKey"_s, hostCycle}, {u"iProcessKey"_s, loginProcess}});
    const qint32 ownCall = firstKey(u"SELECT * FROM tCycleProcess WHERE iCycleKey=%1 ORDER BY iCycleProcessKey"_s.arg(hostCycle));
    const qint32 ownProcess = intValue(u"tCycleProcess"_s, ownCall, u"iProcessKey"_s);
    // A layout field on a variable of another version stays as it is.
    const qint32 hostUser = variableOf(r5, u"HostUser"_s);
    const qint32 hostField = add(u"tField"_s, {{u"iFieldRecordKey"_s, firstKey(u"SELECT * FROM tRecord WHERE iRecordEnvironmentKey=%1"_s.arg(environment))},
                                               {u"sFieldName"_s, u"Host user"_s}, {u"iFieldVarKey"_s, hostUser}, {u"iFieldVarAppVerKey"_s, r5}});
    const qint32 customerField = firstKey(u"SELECT * FROM tField WHERE sFieldName='Customer'"_s);
    // The keywords an earlier run of the same engine mapped (an environment
    // copy or a backup, of this application's keywords into another's).
    const qint32 kw = add(u"tKeyword"_s, {{u"iKeywordAppKey"_s, orderEntry}, {u"sKeywordName"_s, u"Smoke"_s}});
    add(u"tKeywordRel"_s, {{u"iKeywordRelKeywordKey"_s, kw}, {u"iKeywordRelProcessKey"_s, loginProcess}});
    backup->ResetCopyRunMaps(true);
    ASSERT_TRUE(backup->CopyKeywords(orderEntry, add(u"tApp"_s, {{u"sAppName"_s, u"Other"_s}}), conn, false)) << shown();

    ASSERT_TRUE(backup->UpdateVersion(oe11, v12, environment)) << shown();
    EXPECT_EQ(backup->DestinationConnection, nullptr);

    // The content, without 1.1's own system screen; six step windows
    // copied, and Customer Inquiry's visit that now names the copy.
    EXPECT_EQ(std::tuple(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1 AND sWindowPhysicalName='[System Screen]'"_s.arg(v12)),
                         count(u"SELECT * FROM tStepWindow WHERE iStepWindowVerKey=%1"_s.arg(v12)),
                         count(u"SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1"_s.arg(v12))), std::tuple(1, 7, 2));
    const qint32 newLogin = windowOf(v12, u"frmLogin"_s), newLoginProcess = processOf(v12, u"Login"_s);
    // Step arguments point at the copies.
    const qint32 orderWindow = firstKey(u"SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1"_s.arg(processOf(v12, u"Create Order"_s)));
    EXPECT_EQ(Rows(conn, u"SELECT sStepArguments FROM tStep WHERE iStepWindowKey=%1"_s.arg(orderWindow)),
              QStringList{u"ProcessKey= %1"_s.arg(newLoginProcess)});
    // The other version's step window and step, its cycle, the layout.
    EXPECT_EQ(Rows(conn, u"SELECT iStepWindowWindowKey, iStepWindowVerKey FROM tStepWindow WHERE iStepWindowKey=%1"_s.arg(crossWindow)),
              QStringList{u"%1|%2"_s.arg(newLogin).arg(v12)});
    EXPECT_EQ(std::tuple(intValue(u"tStep"_s, crossStep, u"iStepObjectKey"_s), intValue(u"tCycleProcess"_s, crossCall, u"iProcessKey"_s),
                         intValue(u"tCycleProcess"_s, ownCall, u"iProcessKey"_s)), std::tuple(objectOf(newLogin, u"txtUserName"_s), newLoginProcess, ownProcess));
    EXPECT_EQ(Rows(conn, u"SELECT iFieldVarAppVerKey, iFieldVarKey FROM tField WHERE iFieldKey IN (%1, %2) ORDER BY iFieldKey"_s.arg(customerField).arg(hostField)),
              QStringList({u"%1|%2"_s.arg(v12).arg(variableOf(v12, u"CustomerName"_s)), u"%1|%2"_s.arg(r5).arg(hostUser)}));

    // An update copies no keywords, and never reaches the map of an earlier
    // run: the copied process keeps the keyword of its source.
    EXPECT_EQ(ints(u"SELECT * FROM tKeywordRel WHERE iKeywordRelProcessKey=%1"_s.arg(newLoginProcess), u"iKeywordRelKeywordKey"_s), std::vector<qint32>{kw});

    // The new version's pointers; a pointer of 0 stays 0.
    EXPECT_EQ(std::tuple(versionValue(v12, "LoginProcess"), versionValue(v12, "InitialWindow"), versionValue(v12, "TerminateProcess"),
                         versionValue(v12, "SourceVersion"), versionValue(oe11, "LoginProcess")),
              std::tuple(newLoginProcess, newLogin, 0, oe11, loginProcess));

    // The other versions are re-pointed one by one, the bar counting them.
    EXPECT_EQ(progress.matching(u"action:Fixing"_s),
              (QStringList {"action:Fixing up steps....", "action:Fixing up other versions...", "action:Fixing up cycles...",
                            "action:Fixing up layouts..."}));
    const qsizetype others = progress.events.indexOf(u"action:Fixing up other versions..."_s);
    ASSERT_GT(progress.events.size(), others + 1);
    EXPECT_TRUE(progress.events[others + 1].startsWith(u"range:0-"_s)) << progress.events[others + 1].toStdString();
}

TEST_P(VersionUpdateTest, TheCopyTakesOverWhatTheEnvironmentHeldOfTheSourceVersion)
{
    expectTheCopyTakesOverWhatTheEnvironmentHeld();
}

// A repository the suite made, which Dorvane's indexes have not reached
// (on PostgreSQL the copies then join as the planner likes, not through
// them): the same update, the same result.
TEST_P(VersionUpdateTest, ARepositoryWithoutDorvanesIndexesIsUpdatedAlike)
{
    for (const RepositoryIndex& index : RepositoryIndexes())
        DB_ASSERT(conn.Execute(u"DROP INDEX "_s + index.name));
    expectTheCopyTakesOverWhatTheEnvironmentHeld();
}

TEST_P(VersionUpdateTest, AnEmptySourceStillRepointsTheEnvironment)
{
    const qint32 empty = add(u"tVersion"_s, {{u"iVersionAppKey"_s, orderEntry}, {u"sVersionID"_s, u"0.9"_s}});
    const qint32 target = newVersion(u"1.2"_s);
    const qint32 visit = addStepWindow(processOf(r5, u"Sign On"_s), empty, 4242, 0, 9);
    ASSERT_TRUE(backup->UpdateVersion(empty, target, environment)) << shown();
    // Pointers to nothing that was copied become 0.
    EXPECT_EQ(std::tuple(intValue(u"tStepWindow"_s, visit, u"iStepWindowVerKey"_s), intValue(u"tStepWindow"_s, visit, u"iStepWindowWindowKey"_s),
                         versionValue(target, "LoginProcess")), std::tuple(target, 4242, 0));
}

// Each failure leaves the repository as it was, with its stage's message:
// a failed step copy; no destination database (the update fails before
// writing anything, and says so twice); the update's own writes, which
// leave the destination connection open.
TEST_P(VersionUpdateTest, FailuresRollBackWithTheirStagesMessages)
{
    const qint32 v12 = newVersion(u"1.2"_s);
    const QStringList before = dump();
    const std::tuple<QString, QString, QString> cases[] = {{u"tStep"_s, u"INSERT"_s, u"Error while copying Steps:"_s},
                                                           {QString(), QString(), u"Error while creating new version:"_s},
                                                           {u"tVersion"_s, u"UPDATE"_s, u"Error while creating new version:"_s}};
    for (const auto& [table, event, prefix] : cases) {
        SCOPED_TRACE(table.toStdString());
        if (table.isEmpty()) {
            VersionBackup missing(messages, progress, FileConnectionString(db->tempPath() + u"\\Missing.mdb"_s));
            EXPECT_FALSE(missing.UpdateVersion(oe11, v12, environment));
            const QStringList said = taken();
            EXPECT_TRUE(said.size() == 2 && said[0].startsWith(u"Error while opening destination database for version copy: "_s)
                        && said[0].contains(u"Missing.mdb"_s) && said[1].startsWith(prefix)) << said.join(u'\n').toStdString();
        } else {
            abortOn(table, event);
            EXPECT_FALSE(backup->UpdateVersion(oe11, v12, environment));
            EXPECT_EQ(messages.shown.value(0).endsWith(u"! New version not fully created."_s), table == u"tVersion"_s);
            expectFailure(prefix);
            dropAbort(table, event);
            // Only the update's own failure leaves the connection open.
            EXPECT_EQ(backup->DestinationConnection && backup->DestinationConnection->IsOpen(), table == u"tVersion"_s);
        }
        EXPECT_EQ(dump(), before);
    }
}

// The configuration page's checks, then Update that moves the environment
// to the new version and Copy that does not.
TEST_P(VersionUpdateTest, UpdateAndCopyAcceptOnlyANewVersionAndOnlyUpdateMovesTheEnvironment)
{
    const qint32 v12 = newVersion(u"1.2"_s), v13 = newVersion(u"1.3"_s);  // holding their system screens only
    VersionTransferRequest r{environment, r5, orderEntry, u"1.2"_s, v12};
    EXPECT_FALSE(CheckVersionTransfer(VersionTransferKind::Update, r, conn, messages));
    r.ListedVersionKey = oe11;
    EXPECT_TRUE(CheckVersionTransfer(VersionTransferKind::Update, r, conn, messages));
    r.ChosenVersionKey = oe10;
    EXPECT_FALSE(CheckVersionTransfer(VersionTransferKind::Copy, r, conn, messages));
    EXPECT_EQ(taken(), QStringList({"The source and destination versions must belong to the same application",
                                           "You can only Copy an existing application version to a new (empty) one"}));

    r.ChosenVersionKey = v12;
    VersionTransferOutcome outcome = TransferVersion(VersionTransferKind::Update, r, conn, *backup, messages);
    EXPECT_TRUE(outcome.Ok && outcome.RefreshEnvironAppVerList) << shown();
    EXPECT_EQ(listed(environment), (std::vector<qint32>{v12, r5}));
    r = {environment, v12, orderEntry, u"1.3"_s, v13};
    outcome = TransferVersion(VersionTransferKind::Copy, r, conn, *backup, messages);
    EXPECT_FALSE(outcome.RefreshEnvironAppVerList);
    EXPECT_EQ(std::pair(listed(environment), versionValue(v13, "SourceVersion")), std::pair(std::vector<qint32>{v12, r5}, v12));
}

// Another program holds what the update must write (SQLite: the file's
// write lock from before the update; PostgreSQL: the environment's list
// entry, locked while the update copies): the update gives up after the
// lock wait, says so, and leaves everything as it was, the list entry and
// the copied content alike; once the other program is done it runs.
TEST_P(VersionUpdateTest, AnUpdateThatMeetsAnotherProgramsLockChangesNothingAndCanBeRetried)
{
    const qint32 v12 = newVersion(u"1.2"_s);
    const VersionTransferRequest request{environment, oe11, orderEntry, u"1.2"_s, v12};
    const auto restore = qScopeGuard([] { SetLockWaitMs(kDefaultLockWaitMs); });
    SetLockWaitMs(300);
    DB_ASSERT(other.Open(db->connectionString()));
    const auto holdListEntry = [&] {
        other.BeginTrans();
        other.Execute(u"UPDATE tEnvironmentDetail SET iEnviron3270Key=iEnviron3270Key WHERE iEnvironVerKey=%1"_s.arg(oe11));
    };
    if (db->isOdbc())
        progress.At(u"action:Fixing up cycles"_s, holdListEntry);
    else
        holdListEntry();
    const QStringList before = dump();
    EXPECT_FALSE(TransferVersion(VersionTransferKind::Update, request, conn, *backup, messages).Ok);
    const QStringList shownNow = taken();
    EXPECT_TRUE(shownNow.size() == 1 && shownNow[0].startsWith(u"Error while creating new version:The repository is busy with another program: this one waited 0."_s)
                && shownNow[0].endsWith(u"! New version not fully created."_s)) << shownNow.join(u'\n').toStdString();
    other.RollbackTrans();
    EXPECT_EQ(dump(), before);
    EXPECT_TRUE(TransferVersion(VersionTransferKind::Update, request, conn, *backup, messages).Ok) << shown();
    EXPECT_EQ(ints(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey IN (%1, %2)"_s.arg(oe11).arg(v12), u"iEnvironVerKey"_s),
              std::vector<qint32>{v12});
}

// On a server another operation may commit while the update reads its
// source: the update reads one state, so the copy holds the steps that
// were there when it began, every one of them.
TEST_P(VersionUpdateTest, AnUpdateReadsOneStateOfItsSource)
{
    if (!db->isOdbc())
        GTEST_SKIP() << "on SQLite nobody else writes while the update holds the file";
    const qint32 v12 = newVersion(u"1.2"_s);
    const QString steps = u"SELECT s.iStepKey FROM tStep s, tStepWindow w, tProcess p WHERE s.iStepWindowKey=w.iStepWindowKey "
                          u"AND w.iStepWindowProcessKey=p.iProcessKey AND p.iProcessVerKey=%1"_s;
    const qsizetype before = Rows(conn, steps.arg(oe11)).size();
    ASSERT_GT(before, 0);
    DB_ASSERT(other.Open(db->connectionString()));
    progress.At(u"action:Processes in"_s, [&] { other.Execute(u"DELETE FROM tStep WHERE iStepWindowKey IN (SELECT w.iStepWindowKey FROM "
                                                                 u"tStepWindow w, tProcess p WHERE w.iStepWindowProcessKey=p.iProcessKey AND "
                                                                 u"p.iProcessVerKey=%1)"_s.arg(oe11)); });
    ASSERT_TRUE(backup->UpdateVersion(oe11, v12, environment)) << shown();
    EXPECT_EQ(std::pair(Rows(conn, steps.arg(v12)).size(), Rows(conn, steps.arg(oe11)).size()), std::pair(before, qsizetype(0)));
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionUpdateTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
