// Save As of a populated environment: the whole copy checked row by row,
// the new-version-ID prompt and its checks, cancel and injected failures
// rolling everything back (repository and test data alike).

#include "core/environments/EnvironmentFixture.h"

using namespace dorvane;
using namespace dorvane::test;

class EnvironmentCopyTest : public EnvironmentTest {
protected:
    void SetUp() override
    {
        EnvironmentTest::SetUp();
        r = populate();
    }

    EnvironOutcome saveAs(const QString& name, const QString& description = u"Second release"_s)
    {
        EXPECT_TRUE(definition.Open(0, r.env, conn, messages).Ok);
        return definition.SaveAs({name, description, {}}, copier(), messages);
    }

    Release r{};
};

// A Cancel on a later prompt, and a failure at any stage, leave the
// repository and the test data as they were; then the copy goes through and
// is checked row by row.
TEST_P(EnvironmentCopyTest, SaveAsRollsBackCancelAndFailuresThenCopiesTheWholeEnvironmentRowByRow)
{
    const QStringList before = dump(), dataBefore = testDataDump();
    prompt.answers = {u"2.5"_s, std::nullopt};
    const EnvironOutcome cancelled = saveAs(u"Release 2"_s);
    EXPECT_FALSE(cancelled.Ok || cancelled.ClearForm || conn.InTransaction());
    EXPECT_EQ(std::tuple(prompt.labels.size(), dump(), testDataDump()), std::tuple(2, before, dataBefore));
    // The pointer is restored; the progress window is left up on this path.
    EXPECT_TRUE(busy.begun == busy.ended && progress.visible);

    // Cycles fail after the windows and processes of the first version; the
    // record pointers after the layouts and data rows are in.
    const std::tuple<QString, QString, QString> failures[] = {
        {u"tCycle"_s, u"INSERT"_s, u"Error while copying Cycles:"_s},
        {u"tProcess"_s, u"UPDATE"_s, u"Error while fixing up recordset pointers: "_s},
        {u"tScheduleCycles"_s, u"INSERT"_s, u"Error while copying Schedule Cycles:"_s},
        {u"tVersion"_s, u"INSERT"_s, u"Error while copying environment: "_s},
    };
    for (const auto& [table, event, prefix] : failures) {
        SCOPED_TRACE(table.toStdString());
        abortOn(table, event);
        prompt.answers = {u"2.5"_s, u"3.5"_s, u"5.0"_s};
        EXPECT_FALSE(saveAs(u"Release 2"_s).Ok);
        expectFailure(prefix);
        EXPECT_EQ(std::pair(dump(), testDataDump()), std::pair(before, dataBefore));
        EXPECT_FALSE(conn.InTransaction() || testData.InTransaction() || progress.visible);
        dropAbort(table, event);
    }

    busy.begun = busy.ended = 0;
    prompt.labels.clear();
    prompt.answers = {u"2.5"_s, u"3.5"_s, u"5.0"_s};
    ASSERT_TRUE(saveAs(u"Release 2.0"_s).Ok) << shown();
    EXPECT_EQ(prompt.labels, QStringList({"Enter the new Version ID for Billing - 1.0:", "Enter the new Version ID for Billing - 2.0:",
                                          "Enter the new Version ID for Ledger - 4.2:"}));
    EXPECT_TRUE(!conn.InTransaction() && !testData.InTransaction() && !progress.visible && busy.begun == 1 && busy.ended == 1);
    // Nothing of the source changed.
    const QStringList after = dump();
    for (const QString& row : before)
        EXPECT_TRUE(after.contains(row)) << "changed or gone: " << row.toStdString();

    const qint32 copy = environmentNamed(u"Release 2_0"_s);
    ASSERT_NE(copy, 0);
    EXPECT_EQ(rows(u"SELECT sEnvironmentDesc FROM tEnvironment WHERE iEnvironmentKey=%1"_s.arg(copy)), QStringList{u"Second release"_s});
    // Users: registered once each, with the same rights.
    EXPECT_EQ(rows(u"SELECT iUserKey, bDorvane, bOmrik FROM tEnvironmentUser WHERE iEnvironKey=%1 ORDER BY iEnvironmentUserKey"_s.arg(copy)),
              QStringList({u"%1|-1|0"_s.arg(r.jo), u"%1|0|-1"_s.arg(r.al)}));
    // The versions: new rows of the same applications, in detail order.
    const QString details = u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey"_s.arg(copy);
    const std::vector<qint32> versions = ints(details, u"iEnvironVerKey"_s);
    ASSERT_EQ(versions.size(), 3u);
    const qint32 billing25 = versions[0], ledger50 = versions[2];
    EXPECT_EQ(rows(details, {u"iEnvironmentDetailKey"_s}),
              QStringList({u"%1|%2|2|0"_s.arg(copy).arg(billing25), u"%1|%2|1|0"_s.arg(copy).arg(versions[1]),
                           u"%1|%2|1|1"_s.arg(copy).arg(ledger50)}));

    const qint32 newMain = windowOf(billing25, u"frmMain"_s), newInvoice = windowOf(billing25, u"frmInvoice"_s);
    const qint32 newLogin = firstKey(u"SELECT * FROM tProcess WHERE iProcessVerKey=%1"_s.arg(billing25));
    const qint32 newPost = firstKey(u"SELECT * FROM tProcess WHERE iProcessVerKey=%1"_s.arg(ledger50));
    // The version rows: every column taken over (the list-handling
    // attributes too), the pointers through the maps; Ledger's name a
    // Billing window, copied before it.
    const auto version = [](const QString& id, qint32 process, qint32 window) {
        std::map<QString, QVariant> columns{{u"sVersionID"_s, id}, {u"iVersionInitialWindow"_s, window}, {u"iVersionMainWindow"_s, window}};
        for (const char* role : {"Load", "Login", "Logout", "Terminate", "Recover"})
            columns[u"iVersion%1Process"_s.arg(QLatin1String(role))] = process;
        return columns;
    };
    expectCopy(u"tVersion"_s, r.billing10, billing25, version(u"2.5"_s, newLogin, newMain));
    expectCopy(u"tVersion"_s, r.ledger42, ledger50, version(u"5.0"_s, newPost, newInvoice));
    // The system screen is copied too.
    EXPECT_EQ(rows(u"SELECT sWindowPhysicalName FROM tWindow WHERE iWindowVerKey=%1 ORDER BY iWindowKey"_s.arg(billing25)),
              QStringList({"[System Screen]", "frmMain", "frmInvoice"}));
    EXPECT_EQ(rows(u"SELECT sObjectPhysicalName FROM tObject WHERE iObjectWindowKey=%1"_s.arg(newMain)), QStringList{u"cmdOK"_s});
    // Step windows run in the new environment; Ledger's visit of the
    // Billing invoice window lands on that window's copy.
    const QString stepWindows = u"SELECT iStepWindowWindowKey, iStepWindowEnvironmentKey, iStepWindowVerKey FROM tStepWindow "
                                u"WHERE iStepWindowProcessKey=%1 ORDER BY iStepWindowSequenceNum"_s;
    EXPECT_EQ(rows(stepWindows.arg(newPost)),
              QStringList({u"%1|%2|%3"_s.arg(windowOf(ledger50, u"LEDG01"_s)).arg(copy).arg(ledger50),
                           u"%1|%2|%3"_s.arg(newInvoice).arg(copy).arg(ledger50)}));
    EXPECT_EQ(rows(stepWindows.arg(newLogin)), QStringList{u"%1|%2|%3"_s.arg(newMain).arg(copy).arg(billing25)});
    // Keywords are not copied: the relation keeps the keyword.
    EXPECT_EQ(rows(u"SELECT iKeywordRelKeywordKey FROM tKeywordRel WHERE iKeywordRelProcessKey=%1"_s.arg(newLogin)),
              QStringList{QString::number(r.keyword)});
    EXPECT_EQ(std::tuple(count(u"SELECT * FROM tKeyword"_s), count(u"SELECT * FROM tUserVar WHERE iVarAppVerKey=%1"_s.arg(billing25)),
                         count(u"SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1"_s.arg(billing25))), std::tuple(1, 1, 1));
    // The schedule runs the copied cycle.
    const qint32 newCycle = firstKey(u"SELECT * FROM tCycle WHERE iCycleVerKey=%1"_s.arg(billing25));
    EXPECT_EQ(rows(u"SELECT iCycleKey FROM tScheduleCycles WHERE iScheduleKey IN (SELECT iScheduleKey FROM tSchedule WHERE "
                   u"iScheduleEnvironKey=%1)"_s.arg(copy)),
              QStringList{QString::number(newCycle)});
    // The layout with its fields in sequence order and its file instance;
    // iRecordFileInstanceKey is not among the columns taken.
    const qint32 newLayout = firstKey(u"SELECT * FROM tRecord WHERE iRecordEnvironmentKey=%1"_s.arg(copy));
    expectCopy(u"tRecord"_s, r.layout, newLayout, {{u"iRecordEnvironmentKey"_s, copy}}, {u"iRecordFileInstanceKey"_s});
    EXPECT_EQ(rows(u"SELECT sFieldName FROM tField WHERE iFieldRecordKey=%1 ORDER BY iFieldKey"_s.arg(newLayout)),
              QStringList({"Customer", "Qty"}));
    const qint32 newInstance = firstKey(u"SELECT * FROM tFileInstance WHERE iFileInstanceRecordKey=%1"_s.arg(newLayout));
    expectCopy(u"tFileInstance"_s, r.instance, newInstance, {{u"iFileInstanceRecordKey"_s, newLayout}});
    // The record pointers of the copied processes, cycles and cycle
    // processes name the copied layout; the source's keep theirs.
    EXPECT_EQ(rows(u"SELECT iProcessRecordKey FROM tProcess WHERE iProcessKey IN (%1, %2) ORDER BY iProcessKey"_s.arg(r.login).arg(newLogin)),
              QStringList({QString::number(r.layout), QString::number(newLayout)}));
    EXPECT_EQ(rows(u"SELECT c.iCycleRecordKey, p.iCycleProcessRecordKey FROM tCycle c, tCycleProcess p WHERE c.iCycleKey=%1 AND "
                   u"p.iCycleKey=%1"_s.arg(newCycle)),
              QStringList{u"%1|%1"_s.arg(newLayout)});
    // The data rows of the file instance, copied whole under the new instance.
    EXPECT_EQ(Rows(testData, u"SELECT sCustomer, iQty FROM [%1] WHERE iRecordFileInstanceKey=%2 ORDER BY iRowKey"_s.arg(kDataTable).arg(newInstance)),
              QStringList({"Acme|3", "Globex|5"}));
    EXPECT_EQ(testDataDump().size(), 5);
}

// An empty version (only its system screen) of the application may be
// named: the copy goes into it, which keeps its ID and system screen. The
// ID of a version with content, of a version being copied, or of one the
// copy has filled already, is refused, as are blank IDs.
TEST_P(EnvironmentCopyTest, TheNewVersionIdPromptChecksBlankAndTakenIds)
{
    const qint32 billing30 = addVersion(r.billing, {u"3.0"_s, {u"[System Screen]"_s}});
    const qint32 ownScreen = windowOf(billing30, u"[System Screen]"_s);
    const qint32 audit = addApp(u"Audit"_s);
    addDetail(r.env, addVersion(audit, u"0.9"_s));
    addVersion(audit, u"1.0"_s);
    addDetail(r.env, addVersion(audit, u"0.8"_s));
    prompt.answers = {u""_s,  u"   "_s, u"1.0"_s, u"2.0"_s, u"3.0"_s, u"3.0"_s, u"3.1"_s, u"4.2"_s,
                      u"4.3"_s, u"1.0"_s, u"1.0"_s, u"1.1"_s};
    // The administrator answers with the repository free: no transaction is open.
    prompt.whileAsked = [this] { EXPECT_FALSE(conn.InTransaction()); };
    ASSERT_TRUE(saveAs(u"Release 2"_s).Ok) << shown();
    EXPECT_TRUE(prompt.answers.empty());
    const QString exists = u" already exists - please choose another ID"_s;
    EXPECT_EQ(taken(), QStringList({u"Version ID cannot be blank"_s, u"Version ID cannot be blank"_s, u"1.0"_s + exists,
                                           u"2.0"_s + exists, u"3.0"_s + exists, u"4.2"_s + exists, u"1.0"_s + exists}));
    // One version per ID: Billing 3.0 received the copy of 1.0 and kept its own system screen.
    EXPECT_EQ(rows(u"SELECT sVersionID FROM tVersion WHERE iVersionAppKey=%1 ORDER BY sVersionID"_s.arg(r.billing)),
              QStringList({"1.0", "2.0", "3.0", "3.1"}));
    EXPECT_EQ(rows(u"SELECT sVersionID FROM tVersion WHERE iVersionAppKey=%1 ORDER BY sVersionID"_s.arg(audit)),
              QStringList({"0.8", "0.9", "1.0", "1.1"}));
    EXPECT_EQ(rows(u"SELECT iWindowKey, sWindowPhysicalName FROM tWindow WHERE iWindowVerKey=%1 ORDER BY iWindowKey"_s.arg(billing30)),
              QStringList({u"%1|[System Screen]"_s.arg(ownScreen), u"%1|frmMain"_s.arg(windowOf(billing30, u"frmMain"_s)),
                           u"%1|frmInvoice"_s.arg(windowOf(billing30, u"frmInvoice"_s))}));
    EXPECT_EQ(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(r.ledger42)), 1);
    const qint32 copy = environmentNamed(u"Release 2"_s);
    EXPECT_EQ(count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 AND iEnvironVerKey=%2"_s.arg(copy).arg(billing30)), 1);
    EXPECT_EQ(rows(u"SELECT iVersionSourceVersion FROM tVersion WHERE iVersionKey=%1"_s.arg(billing30)), QStringList{QString::number(r.billing10)});
}

TEST_P(EnvironmentCopyTest, AnEnvironmentWithoutVersionsCopiesUsersSchedulesAndLayouts)
{
    r.env = addEnvironment(u"Bare"_s);
    registerUser(r.env, r.jo);
    add(u"tSchedule"_s, {{u"iScheduleEnvironKey"_s, r.env}, {u"sScheduleName"_s, u"Weekly"_s}});
    // A layout with neither fields nor file instances, whose name is no table of the test data.
    add(u"tRecord"_s, {{u"iRecordEnvironmentKey"_s, r.env}, {u"sRecordName"_s, u"Loose"_s}});
    const qint32 fields = count(u"SELECT * FROM tField"_s), instances = count(u"SELECT * FROM tFileInstance"_s);
    ASSERT_TRUE(saveAs(u"Bare 2"_s).Ok) << shown();
    EXPECT_TRUE(prompt.labels.isEmpty());
    const qint32 copy = environmentNamed(u"Bare 2"_s);
    EXPECT_EQ(rows(u"SELECT sRecordName FROM tRecord WHERE iRecordEnvironmentKey=%1"_s.arg(copy)), QStringList{u"Loose"_s});
    EXPECT_EQ(std::tuple(count(u"SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(copy)), count(u"SELECT * FROM tSchedule WHERE iScheduleEnvironKey=%1"_s.arg(copy)),
                         count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(copy)), count(u"SELECT * FROM tField"_s),
                         count(u"SELECT * FROM tFileInstance"_s)), std::tuple(1, 1, 0, fields, instances));
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentCopyTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
