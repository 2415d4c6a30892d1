// Save As of a populated environment: the whole copy checked row by row,
// the new-version-ID prompt and its checks, cancel and injected failures
// rolling everything back (repository and test data alike).

#include "environments/EnvironmentFixture.h"

using namespace dorvane;
using namespace dorvane::test;

namespace {

const QString kDataTable = QStringLiteral("Customer Order");

} // namespace

class EnvironmentCopyTest : public EnvironmentTest {
protected:
    // The source environment "Release 1": Billing 1.0 and Ledger 4.2, two
    // users, a schedule over a Billing cycle, and a record layout with two
    // fields and a file instance whose data rows live in the test data
    // database. A Ledger step window visits a Billing window, and Ledger's
    // initial window is that Billing window.
    void populate()
    {
        source = addEnvironment(QStringLiteral("Release 1"), QStringLiteral("First release"));
        billing = addApp(QStringLiteral("Billing"));
        ledger = addApp(QStringLiteral("Ledger"), kPlatform3270, 1);
        billing10 = addFull(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), billing},
                                                         {QStringLiteral("sVersionID"), QStringLiteral("1.0")}});
        ledger42 = addFull(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), ledger},
                                                        {QStringLiteral("sVersionID"), QStringLiteral("4.2")}});
        addDetail(source, billing10, 2, 0);
        addDetail(source, ledger42, 1, 1);

        jo = addUser(QStringLiteral("jo"), QStringLiteral("Jo"), QStringLiteral("Doe"));
        al = addUser(QStringLiteral("al"), QStringLiteral("Al"), QStringLiteral("Bee"));
        add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), source}, {QStringLiteral("iUserKey"), jo},
                                                 {QStringLiteral("bDorvane"), -1}, {QStringLiteral("bOmrik"), 0},
                                                 {QStringLiteral("bZulane"), -1}, {QStringLiteral("bVantrel"), 0},
                                                 {QStringLiteral("bKrestin"), -1}});
        add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), source}, {QStringLiteral("iUserKey"), al},
                                                 {QStringLiteral("bDorvane"), 0}, {QStringLiteral("bOmrik"), -1},
                                                 {QStringLiteral("bZulane"), 0}, {QStringLiteral("bVantrel"), -1},
                                                 {QStringLiteral("bKrestin"), 0}});

        // Billing 1.0: its system screen, two windows, an object.
        billingScreen = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10},
                                                        {QStringLiteral("sWindowPhysicalName"), QStringLiteral("[System Screen]")}});
        billingMain = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10},
                                                      {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmMain")}});
        billingInvoice = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10},
                                                         {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmInvoice")}});
        add(QStringLiteral("tObject"), {{QStringLiteral("iObjectWindowKey"), billingMain},
                                        {QStringLiteral("sObjectPhysicalName"), QStringLiteral("cmdOK")}});

        layout = add(QStringLiteral("tRecord"), {{QStringLiteral("iRecordEnvironmentKey"), source},
                                                 {QStringLiteral("sRecordName"), kDataTable},
                                                 {QStringLiteral("sRecordDesc"), QStringLiteral("Orders")},
                                                 {QStringLiteral("iRecordFileKey"), 7},
                                                 {QStringLiteral("iRecordKeyType"), 1},
                                                 {QStringLiteral("iRecordSourceType"), 2},
                                                 {QStringLiteral("iRecordSourceKey"), 3}});
        billingLogin = add(QStringLiteral("tProcess"), {{QStringLiteral("iProcessVerKey"), billing10},
                                                        {QStringLiteral("sProcessName"), QStringLiteral("Login")},
                                                        {QStringLiteral("iProcessType"), 1},
                                                        {QStringLiteral("iProcessRecordKey"), layout}});
        add(QStringLiteral("tStepWindow"), {{QStringLiteral("iStepWindowProcessKey"), billingLogin},
                                            {QStringLiteral("iStepWindowVerKey"), billing10},
                                            {QStringLiteral("iStepWindowWindowKey"), billingMain},
                                            {QStringLiteral("iStepWindowEnvironmentKey"), source},
                                            {QStringLiteral("iStepWindowSequenceNum"), 1}});
        billingCycle = add(QStringLiteral("tCycle"), {{QStringLiteral("iCycleVerKey"), billing10},
                                                      {QStringLiteral("sCycleName"), QStringLiteral("Smoke")},
                                                      {QStringLiteral("iCycleRecordKey"), layout}});
        add(QStringLiteral("tCycleProcess"), {{QStringLiteral("iCycleKey"), billingCycle},
                                              {QStringLiteral("iProcessKey"), billingLogin},
                                              {QStringLiteral("iCycleProcessRecordKey"), layout},
                                              {QStringLiteral("iProcessSequenceNum"), 1}});
        add(QStringLiteral("tUserVar"), {{QStringLiteral("iVarAppVerKey"), billing10}, {QStringLiteral("sVarName"), QStringLiteral("Customer")}});
        add(QStringLiteral("tRequirement"), {{QStringLiteral("iRequirementAppVerKey"), billing10},
                                             {QStringLiteral("sRequirementName"), QStringLiteral("R1")}});
        keyword = add(QStringLiteral("tKeyword"), {{QStringLiteral("iKeywordAppKey"), billing}, {QStringLiteral("sKeywordName"), QStringLiteral("smoke")}});
        add(QStringLiteral("tKeywordRel"), {{QStringLiteral("iKeywordRelKeywordKey"), keyword},
                                            {QStringLiteral("iKeywordRelProcessKey"), billingLogin}});
        setPointers(billing10, billingLogin, billingMain);

        // Ledger 4.2: one window; its process visits its own window and
        // then Billing's invoice window.
        ledgerMain = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), ledger42},
                                                     {QStringLiteral("sWindowPhysicalName"), QStringLiteral("LEDG01")}});
        ledgerPost = add(QStringLiteral("tProcess"), {{QStringLiteral("iProcessVerKey"), ledger42},
                                                      {QStringLiteral("sProcessName"), QStringLiteral("Post")}});
        for (const auto& [window, sequence] : {std::pair{ledgerMain, 1}, std::pair{billingInvoice, 2}})
            add(QStringLiteral("tStepWindow"), {{QStringLiteral("iStepWindowProcessKey"), ledgerPost},
                                                {QStringLiteral("iStepWindowVerKey"), ledger42},
                                                {QStringLiteral("iStepWindowWindowKey"), window},
                                                {QStringLiteral("iStepWindowEnvironmentKey"), source},
                                                {QStringLiteral("iStepWindowSequenceNum"), sequence}});
        setPointers(ledger42, ledgerPost, billingInvoice);

        const qint32 schedule = add(QStringLiteral("tSchedule"), {{QStringLiteral("iScheduleEnvironKey"), source},
                                                                  {QStringLiteral("sScheduleName"), QStringLiteral("Nightly")}});
        add(QStringLiteral("tScheduleCycles"), {{QStringLiteral("iScheduleKey"), schedule},
                                                {QStringLiteral("iCycleKey"), billingCycle},
                                                {QStringLiteral("iCycleSequenceNum"), 1}});

        add(QStringLiteral("tField"), {{QStringLiteral("iFieldRecordKey"), layout}, {QStringLiteral("sFieldName"), QStringLiteral("Qty")},
                                       {QStringLiteral("iFieldSequenceNum"), 2}, {QStringLiteral("iFieldLen"), 5}});
        add(QStringLiteral("tField"), {{QStringLiteral("iFieldRecordKey"), layout}, {QStringLiteral("sFieldName"), QStringLiteral("Customer")},
                                       {QStringLiteral("iFieldSequenceNum"), 1}, {QStringLiteral("iFieldLen"), 40}});
        instance = addFull(QStringLiteral("tFileInstance"), {{QStringLiteral("iFileInstanceRecordKey"), layout}});

        testData.Execute(QStringLiteral("CREATE TABLE [%1] (iRowKey INTEGER PRIMARY KEY AUTOINCREMENT, "
                                        "iRecordFileInstanceKey INTEGER, sCustomer TEXT, iQty INTEGER)")
                             .arg(kDataTable));
        addDataRow(instance, QStringLiteral("Acme"), 3);
        addDataRow(instance, QStringLiteral("Globex"), 5);
        addDataRow(instance + 100, QStringLiteral("Other layout"), 1);
    }

    void addDataRow(qint32 instanceKey, const QString& customer, qint32 quantity)
    {
        Recordset rs(QStringLiteral("SELECT * FROM [%1]").arg(kDataTable), testData);
        rs.AddNew();
        rs.SetValue(QStringLiteral("iRecordFileInstanceKey"), instanceKey);
        rs.SetValue(QStringLiteral("sCustomer"), customer);
        rs.SetValue(QStringLiteral("iQty"), quantity);
        rs.Update();
    }

    EnvironOutcome saveAs(const QString& name, const QString& description = QStringLiteral("Second release"))
    {
        EXPECT_TRUE(definition.Open(0, source, conn, messages).Ok);
        EnvironDefinitionInput input;
        input.Name = name;
        input.Description = description;
        return definition.SaveAs(input, copier(), messages);
    }

    // The one key a statement selects.
    qint32 only(const QString& sql, const QString& column)
    {
        const std::vector<qint32> keys = ints(sql, column);
        EXPECT_EQ(keys.size(), 1u) << sql.toStdString();
        return keys.empty() ? 0 : keys.front();
    }

    qint32 windowOf(qint32 version, const QString& physicalName)
    {
        return only(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1 AND sWindowPhysicalName='%2'")
                        .arg(version)
                        .arg(physicalName),
                    QStringLiteral("iWindowKey"));
    }

    qint32 source = 0, billing = 0, ledger = 0, billing10 = 0, ledger42 = 0, jo = 0, al = 0;
    qint32 billingScreen = 0, billingMain = 0, billingInvoice = 0, ledgerMain = 0;
    qint32 billingLogin = 0, ledgerPost = 0, billingCycle = 0, keyword = 0, layout = 0, instance = 0;
};

TEST_P(EnvironmentCopyTest, SaveAsCopiesTheWholeEnvironmentRowByRow)
{
    populate();
    const QStringList before = dump();
    prompt.answers = {QStringLiteral("2.0"), QStringLiteral("5.0")};

    const EnvironOutcome saved = saveAs(QStringLiteral("Release 2.0"));
    ASSERT_TRUE(saved.Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(prompt.labels, QStringList({QStringLiteral("Enter the new Version ID for Billing - 1.0:"),
                                          QStringLiteral("Enter the new Version ID for Ledger - 4.2:")}));
    // The editor stands on a new environment and reloads its lists.
    EXPECT_TRUE(saved.ClearForm);
    EXPECT_TRUE(saved.RefreshEnvironList && saved.RefreshEnvironAppVerList && saved.RefreshEnvironUsers);
    EXPECT_TRUE(definition.EnvironIsNew());
    EXPECT_FALSE(conn.InTransaction());
    EXPECT_EQ(progress.matching(QStringLiteral("title:")), QStringList{QStringLiteral("title:Environment Copy progress...")});
    EXPECT_FALSE(progress.visible);
    EXPECT_EQ(busy.begun, 1);
    EXPECT_EQ(busy.ended, 1);

    // Nothing of the source changed: every row is still there as it was.
    const QStringList after = dump();
    for (const QString& row : before)
        EXPECT_TRUE(after.contains(row)) << "changed or gone: " << row.toStdString();

    const qint32 copy = environmentNamed(QStringLiteral("Release 2_0"));
    ASSERT_NE(copy, 0);
    EXPECT_EQ(rows(QStringLiteral("SELECT sEnvironmentDesc FROM tEnvironment WHERE iEnvironmentKey=%1").arg(copy)),
              QStringList{QStringLiteral("Second release")});

    // Users: registered once each, with the same rights.
    const QString joRow = QStringLiteral("%1|-1|0").arg(jo), alRow = QStringLiteral("%1|0|-1").arg(al);
    EXPECT_EQ(rows(QStringLiteral("SELECT iUserKey, bDorvane, bOmrik FROM tEnvironmentUser WHERE iEnvironKey=%1 "
                                  "ORDER BY iEnvironmentUserKey")
                       .arg(copy)),
              (QStringList{joRow, alRow}));

    // The versions: new rows of the same applications, in detail order.
    const QString details = QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(copy);
    const std::vector<qint32> versions = ints(details, QStringLiteral("iEnvironVerKey"));
    ASSERT_EQ(versions.size(), 2u);
    const qint32 billing20 = versions[0];
    const qint32 ledger50 = versions[1];
    EXPECT_EQ(rows(details, {QStringLiteral("iEnvironmentDetailKey")}),
              (QStringList{QStringLiteral("%1|%2|2|0").arg(copy).arg(billing20), QStringLiteral("%1|%2|1|1").arg(copy).arg(ledger50)}));

    const qint32 newMain = windowOf(billing20, QStringLiteral("frmMain"));
    const qint32 newInvoice = windowOf(billing20, QStringLiteral("frmInvoice"));
    const qint32 newLedgerMain = windowOf(ledger50, QStringLiteral("LEDG01"));
    const qint32 newLogin = only(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(billing20), QStringLiteral("iProcessKey"));
    const qint32 newPost = only(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(ledger50), QStringLiteral("iProcessKey"));
    // The version rows: every column taken over (the list-handling
    // attributes too), the pointers through the maps.
    // Ledger's window pointers name a Billing window, copied before it.
    const QStringList pointers = {QStringLiteral("sVersionID"), QStringLiteral("iVersionLoadProcess"),
                                  QStringLiteral("iVersionLoginProcess"), QStringLiteral("iVersionLogoutProcess"),
                                  QStringLiteral("iVersionTerminateProcess"), QStringLiteral("iVersionRecoverProcess"),
                                  QStringLiteral("iVersionInitialWindow"), QStringLiteral("iVersionMainWindow")};
    expectCopied(QStringLiteral("tVersion"), billing10, billing20, pointers,
                 QStringLiteral("2.0|%1|%1|%1|%1|%1|%2|%2").arg(newLogin).arg(newMain));
    expectCopied(QStringLiteral("tVersion"), ledger42, ledger50, pointers,
                 QStringLiteral("5.0|%1|%1|%1|%1|%1|%2|%2").arg(newPost).arg(newInvoice));

    // The system screen is copied too.
    EXPECT_EQ(rows(QStringLiteral("SELECT sWindowPhysicalName FROM tWindow WHERE iWindowVerKey=%1 ORDER BY iWindowKey").arg(billing20)),
              (QStringList{QStringLiteral("[System Screen]"), QStringLiteral("frmMain"), QStringLiteral("frmInvoice")}));
    EXPECT_EQ(rows(QStringLiteral("SELECT sObjectPhysicalName FROM tObject WHERE iObjectWindowKey=%1").arg(newMain)),
              QStringList{QStringLiteral("cmdOK")});

    // Step windows run in the new environment; Ledger's visit of the
    // Billing invoice window lands on that window's copy.
    const QString stepWindows = QStringLiteral("SELECT iStepWindowWindowKey, iStepWindowEnvironmentKey, iStepWindowVerKey FROM "
                                               "tStepWindow WHERE iStepWindowProcessKey=%1 ORDER BY iStepWindowSequenceNum");
    EXPECT_EQ(rows(stepWindows.arg(newPost)), (QStringList{QStringLiteral("%1|%2|%3").arg(newLedgerMain).arg(copy).arg(ledger50),
                                                           QStringLiteral("%1|%2|%3").arg(newInvoice).arg(copy).arg(ledger50)}));
    EXPECT_EQ(rows(stepWindows.arg(newLogin)), QStringList{QStringLiteral("%1|%2|%3").arg(newMain).arg(copy).arg(billing20)});

    // Keywords are not copied: the relation keeps the keyword.
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword")), 1);
    EXPECT_EQ(rows(QStringLiteral("SELECT iKeywordRelKeywordKey FROM tKeywordRel WHERE iKeywordRelProcessKey=%1").arg(newLogin)),
              QStringList{QString::number(keyword)});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey=%1").arg(billing20)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1").arg(billing20)), 1);

    // The schedule runs the copied cycle.
    const qint32 newCycle = only(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey=%1").arg(billing20), QStringLiteral("iCycleKey"));
    EXPECT_EQ(rows(QStringLiteral("SELECT iCycleKey FROM tScheduleCycles WHERE iScheduleKey IN (SELECT iScheduleKey FROM "
                                  "tSchedule WHERE iScheduleEnvironKey=%1)")
                       .arg(copy)),
              QStringList{QString::number(newCycle)});

    // The layout with its fields in sequence order and its file instance;
    // iRecordFileInstanceKey is not among the columns taken.
    const qint32 newLayout = only(QStringLiteral("SELECT * FROM tRecord WHERE iRecordEnvironmentKey=%1").arg(copy), QStringLiteral("iRecordKey"));
    expectCopied(QStringLiteral("tRecord"), layout, newLayout,
                 {QStringLiteral("iRecordEnvironmentKey"), QStringLiteral("iRecordFileInstanceKey")}, QStringLiteral("%1|0").arg(copy));
    EXPECT_EQ(rows(QStringLiteral("SELECT sFieldName FROM tField WHERE iFieldRecordKey=%1 ORDER BY iFieldKey").arg(newLayout)),
              (QStringList{QStringLiteral("Customer"), QStringLiteral("Qty")}));
    const qint32 newInstance = only(QStringLiteral("SELECT * FROM tFileInstance WHERE iFileInstanceRecordKey=%1").arg(newLayout),
                                    QStringLiteral("iFileInstanceKey"));
    expectCopied(QStringLiteral("tFileInstance"), instance, newInstance, {QStringLiteral("iFileInstanceRecordKey")},
                 QString::number(newLayout));

    // The record pointers of the copied processes, cycles and cycle
    // processes name the copied layout; the source's keep theirs.
    EXPECT_EQ(rows(QStringLiteral("SELECT iProcessRecordKey FROM tProcess WHERE iProcessKey IN (%1, %2) ORDER BY iProcessKey")
                       .arg(billingLogin)
                       .arg(newLogin)),
              (QStringList{QString::number(layout), QString::number(newLayout)}));
    EXPECT_EQ(rows(QStringLiteral("SELECT iCycleRecordKey FROM tCycle WHERE iCycleKey=%1").arg(newCycle)), QStringList{QString::number(newLayout)});
    EXPECT_EQ(rows(QStringLiteral("SELECT iCycleProcessRecordKey FROM tCycleProcess WHERE iCycleKey=%1").arg(newCycle)),
              QStringList{QString::number(newLayout)});

    // The data rows of the file instance, copied whole in the test data
    // database under the new instance.
    EXPECT_EQ(Rows(testData, QStringLiteral("SELECT sCustomer, iQty FROM [%1] WHERE iRecordFileInstanceKey=%2 ORDER BY iRowKey")
                                 .arg(kDataTable)
                                 .arg(newInstance)),
              (QStringList{QStringLiteral("Acme|3"), QStringLiteral("Globex|5")}));
    EXPECT_EQ(testDataDump().size(), 5);
    EXPECT_FALSE(testData.InTransaction());
}

TEST_P(EnvironmentCopyTest, TheNewVersionIdPromptChecksBlankAndTakenIds)
{
    populate();
    // Billing 3.0 holds only its system screen: it counts as empty, its ID
    // may be given again, and the copy goes into it. Billing 1.0 has
    // content. Ledger 4.2 has a single window but is the version being
    // copied, so its own ID is refused too.
    const qint32 billing30 = addVersion(billing, QStringLiteral("3.0"), 1);
    const qint32 ownScreen = windowOf(billing30, QStringLiteral("[System Screen]"));
    prompt.answers = {QStringLiteral(""), QStringLiteral("   "), QStringLiteral("1.0"), QStringLiteral("3.0"),
                      QStringLiteral("4.2"), QStringLiteral("4.3")};

    ASSERT_TRUE(saveAs(QStringLiteral("Release 2")).Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(prompt.answers.empty());
    EXPECT_EQ(messages.shown, QStringList({QStringLiteral("Version ID cannot be blank"),
                                           QStringLiteral("Version ID cannot be blank"),
                                           QStringLiteral("1.0 already exists - please choose another ID"),
                                           QStringLiteral("4.2 already exists - please choose another ID")}));
    // One version per ID: Billing 3.0 received the copy and kept its own
    // system screen; Ledger 4.2 is untouched.
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='3.0'").arg(billing)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='4.2'").arg(ledger)), 1);
    EXPECT_EQ(rows(QStringLiteral("SELECT iWindowKey, sWindowPhysicalName FROM tWindow WHERE iWindowVerKey=%1 ORDER BY iWindowKey")
                       .arg(billing30))
                  .join(u','),
              QStringLiteral("%1|[System Screen],%2|frmMain,%3|frmInvoice")
                  .arg(ownScreen)
                  .arg(windowOf(billing30, QStringLiteral("frmMain")))
                  .arg(windowOf(billing30, QStringLiteral("frmInvoice"))));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(ledger42)), 1);
    const qint32 copy = environmentNamed(QStringLiteral("Release 2"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 AND iEnvironVerKey=%2").arg(copy).arg(billing30)), 1);
    EXPECT_EQ(rows(QStringLiteral("SELECT iVersionSourceVersion FROM tVersion WHERE iVersionKey=%1").arg(billing30)),
              QStringList{QString::number(billing10)});
}

TEST_P(EnvironmentCopyTest, OneEmptyVersionReceivesOneCopyOnly)
{
    populate();
    // Both versions of the source are given the ID of one empty version of
    // Billing; the second is refused once the first has filled it.
    const qint32 audit = addApp(QStringLiteral("Audit"));
    addDetail(source, addVersion(audit, QStringLiteral("0.9"), 0));
    addVersion(audit, QStringLiteral("1.0"), 0);
    const qint32 secondAudit = addVersion(audit, QStringLiteral("0.8"), 0);
    addDetail(source, secondAudit);
    prompt.answers = {QStringLiteral("2.0"), QStringLiteral("5.0"), QStringLiteral("1.0"), QStringLiteral("1.0"),
                      QStringLiteral("1.1")};
    ASSERT_TRUE(saveAs(QStringLiteral("Release 2")).Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("1.0 already exists - please choose another ID")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='1.0'").arg(audit)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='1.1'").arg(audit)), 1);
}

TEST_P(EnvironmentCopyTest, CancellingTheSecondOfThreePromptsRollsEverythingBack)
{
    populate();
    const qint32 audit = addApp(QStringLiteral("Audit"));
    addDetail(source, addVersion(audit, QStringLiteral("0.9"), 2));
    const QStringList before = dump();
    const QStringList dataBefore = testDataDump();
    prompt.answers = {QStringLiteral("2.0"), std::nullopt};

    const EnvironOutcome saved = saveAs(QStringLiteral("Release 2"));
    EXPECT_FALSE(saved.Ok);
    EXPECT_FALSE(saved.ClearForm);
    EXPECT_EQ(prompt.labels.size(), 2);
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(testDataDump(), dataBefore);
    EXPECT_FALSE(conn.InTransaction());
    // The editor still shows the source environment.
    EXPECT_EQ(definition.CurrentEnvironKey(), source);
    // The pointer is restored; the progress window is left up on this path.
    EXPECT_EQ(busy.begun, busy.ended);
    EXPECT_TRUE(progress.visible);
}

struct InjectedFailure {
    const char* table;
    const char* event;
    const char* prefix;
};

TEST_P(EnvironmentCopyTest, AFailureInTheMiddleLeavesTheRepositoryAndTestDataUnchanged)
{
    populate();
    const QStringList before = dump();
    const QStringList dataBefore = testDataDump();
    // Cycles fail after the windows and processes of the first version;
    // the record pointers fail after the layouts and data rows are in.
    const std::vector<InjectedFailure> failures = {
        {"tCycle", "INSERT", "Error while copying Cycles:"},
        {"tProcess", "UPDATE", "Error while fixing up recordset pointers: "},
        {"tScheduleCycles", "INSERT", "Error while copying Schedule Cycles:"},
        {"tVersion", "INSERT", "Error while copying environment: "},
    };
    for (const InjectedFailure& failure : failures) {
        SCOPED_TRACE(failure.table);
        abortOn(QString::fromLatin1(failure.table), QString::fromLatin1(failure.event));
        prompt.answers = {QStringLiteral("2.0"), QStringLiteral("5.0")};
        prompt.labels.clear();
        const EnvironOutcome saved = saveAs(QStringLiteral("Release 2"));
        EXPECT_FALSE(saved.Ok);
        expectFailure(QString::fromLatin1(failure.prefix));
        EXPECT_EQ(dump(), before);
        EXPECT_EQ(testDataDump(), dataBefore);
        EXPECT_FALSE(conn.InTransaction());
        EXPECT_FALSE(testData.InTransaction());
        EXPECT_FALSE(progress.visible);
        dropAbort(QString::fromLatin1(failure.table), QString::fromLatin1(failure.event));
    }

    // And then it goes through.
    prompt.answers = {QStringLiteral("2.0"), QStringLiteral("5.0")};
    EXPECT_TRUE(saveAs(QStringLiteral("Release 2")).Ok);
    EXPECT_NE(environmentNamed(QStringLiteral("Release 2")), 0);
}

TEST_P(EnvironmentCopyTest, AnEnvironmentWithoutVersionsCopiesUsersSchedulesAndLayouts)
{
    source = addEnvironment(QStringLiteral("Bare"));
    jo = addUser(QStringLiteral("jo"), QStringLiteral("Jo"), QStringLiteral("Doe"));
    add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), source}, {QStringLiteral("iUserKey"), jo}});
    add(QStringLiteral("tSchedule"), {{QStringLiteral("iScheduleEnvironKey"), source}, {QStringLiteral("sScheduleName"), QStringLiteral("Weekly")}});
    // A layout with neither fields nor file instances, whose name is no
    // table of the test data database.
    add(QStringLiteral("tRecord"), {{QStringLiteral("iRecordEnvironmentKey"), source}, {QStringLiteral("sRecordName"), QStringLiteral("Loose")}});

    const EnvironOutcome saved = saveAs(QStringLiteral("Bare 2"));
    ASSERT_TRUE(saved.Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(prompt.labels.isEmpty());
    const qint32 copy = environmentNamed(QStringLiteral("Bare 2"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(copy)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tSchedule WHERE iScheduleEnvironKey=%1").arg(copy)), 1);
    EXPECT_EQ(texts(QStringLiteral("SELECT * FROM tRecord WHERE iRecordEnvironmentKey=%1").arg(copy), QStringLiteral("sRecordName")),
              QStringList{QStringLiteral("Loose")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(copy)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tField")), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tFileInstance")), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentCopyTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
