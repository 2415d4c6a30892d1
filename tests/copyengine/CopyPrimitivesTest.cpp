// The copy primitives within one repository: what each column of a copied
// row holds, the maps they fill, the progress they report and the message
// of each failing stage.

#include "copyengine/CopyEngineFixture.h"

using namespace dorvane;
using namespace dorvane::test;

namespace {

const QString kWindow = QStringLiteral("tWindow");
const QString kObject = QStringLiteral("tObject");
const QString kProcess = QStringLiteral("tProcess");
const QString kStepWindow = QStringLiteral("tStepWindow");
const QString kStep = QStringLiteral("tStep");
const QString kKeywordRel = QStringLiteral("tKeywordRel");
const QString kCycle = QStringLiteral("tCycle");
const QString kCycleProcess = QStringLiteral("tCycleProcess");

} // namespace

class CopyPrimitivesTest : public CopyEngineTest {
protected:
    void SetUp() override
    {
        CopyEngineTest::SetUp();
        app = add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Order Entry")}});
        source = version(QStringLiteral("1.0"));
        destination = version(QStringLiteral("2.0"));
        environment = add(QStringLiteral("tEnvironment"), {{QStringLiteral("sEnvironmentName"), QStringLiteral("QA")}});
        backup->CurrentVersionLabel = QStringLiteral("Order Entry");
    }

    qint32 version(const QString& id)
    {
        return add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), id}});
    }
    qint32 window(qint32 ver, const QString& name)
    {
        return add(kWindow, {{QStringLiteral("iWindowVerKey"), ver}, {QStringLiteral("sWindowPhysicalName"), name}});
    }
    qint32 process(qint32 ver, const QString& name)
    {
        return add(kProcess, {{QStringLiteral("iProcessVerKey"), ver}, {QStringLiteral("sProcessName"), name}});
    }
    qint32 stepWindow(qint32 process, qint32 ver, qint32 window, qint32 sequence)
    {
        return add(kStepWindow, {{QStringLiteral("iStepWindowProcessKey"), process}, {QStringLiteral("iStepWindowVerKey"), ver},
                                 {QStringLiteral("iStepWindowWindowKey"), window}, {QStringLiteral("iStepWindowSequenceNum"), sequence}});
    }
    qint32 step(qint32 stepWindow, qint32 object, qint32 sequence, const QVariant& arguments = QVariant())
    {
        return add(kStep, {{QStringLiteral("iStepWindowKey"), stepWindow}, {QStringLiteral("iStepObjectKey"), object},
                           {QStringLiteral("iStepSequenceNum"), sequence}, {QStringLiteral("sStepArguments"), arguments}});
    }
    qint32 keyword(qint32 appKey, const QString& name, const QString& desc = QStringLiteral("d"))
    {
        return add(QStringLiteral("tKeyword"), {{QStringLiteral("iKeywordAppKey"), appKey}, {QStringLiteral("sKeywordName"), name},
                                                 {QStringLiteral("sKeywordDesc"), desc}});
    }
    void relation(qint32 keywordKey, const QString& holderColumn, qint32 holder)
    {
        add(kKeywordRel, {{QStringLiteral("iKeywordRelKeywordKey"), keywordKey}, {holderColumn, holder}});
    }
    std::vector<qint32> relationKeywords(const QString& holderColumn, qint32 holder)
    {
        return ints(QStringLiteral("SELECT * FROM tKeywordRel WHERE %1=%2").arg(holderColumn).arg(holder),
                    QStringLiteral("iKeywordRelKeywordKey"));
    }
    bool copyProcesses(qint32 target) { return backup->CopyProcesses(source, 0, conn, target, environment, conn); }

    qint32 app = 0;
    qint32 source = 0;
    qint32 destination = 0;
    qint32 environment = 0;
};

TEST_P(CopyPrimitivesTest, WindowsAndObjectsKeepEveryColumnAndTheParentWindowKey)
{
    const qint32 top = addFull(kWindow, {{QStringLiteral("iWindowVerKey"), source}});
    // The parent lies in the same version; the copy still names the source's.
    const qint32 child = addFull(kWindow, {{QStringLiteral("iWindowVerKey"), source}, {QStringLiteral("iWindowParentKey"), top}});
    window(source, QStringLiteral("[System Screen]"));
    window(source, QStringLiteral("[system screen] "));  // compared on the exact text
    const qint32 full = addFull(kObject, {{QStringLiteral("iObjectWindowKey"), child}});
    // Texts, dates and flags left null stay null.
    const qint32 sparse = add(kObject, {{QStringLiteral("iObjectWindowKey"), child}});

    ASSERT_TRUE(backup->CopyWindows(source, conn, destination, conn, false)) << messages.shown.join(u'\n').toStdString();
    const KeyMap& windows = backup->WindowMap;
    ASSERT_EQ(windows.Length(), 3);
    EXPECT_EQ(windows.OldKey(1), top);
    EXPECT_EQ(windows.OldKey(2), child);
    expectCopy(kWindow, top, windows.NewKey(1), {{QStringLiteral("iWindowVerKey"), destination}});
    expectCopy(kWindow, child, windows.NewKey(2), {{QStringLiteral("iWindowVerKey"), destination}});
    EXPECT_EQ(intValue(kWindow, windows.NewKey(2), QStringLiteral("iWindowParentKey")), top);

    // Windows without objects leave ObjectMap alone.
    const KeyMap& objects = backup->ObjectMap;
    ASSERT_EQ(objects.Length(), 2);
    EXPECT_EQ(objects.BatchCount(), 2);
    EXPECT_EQ(objects.OldKey(2), sparse);
    const std::map<QString, QVariant> objectColumns = {{QStringLiteral("iObjectWindowKey"), windows.NewKey(2)},
                                                       {QStringLiteral("iObjectVersionKey"), destination}};
    expectCopy(kObject, full, objects.NewKey(1), objectColumns);
    expectCopy(kObject, sparse, objects.NewKey(2), objectColumns);

    // The bar counts windows; each window yields twice.
    EXPECT_EQ(progress.events, (QStringList{"action:Windows in Order Entry", "range:0-3", "value:0", "refresh", "yield",
                                            "value:1", "refresh", "yield", "yield", "value:2", "refresh", "yield",
                                            "yield", "value:3", "refresh", "yield"}));

    // A version holding only its system screen copies nothing and leaves
    // the window alone; asked for, the system screen is copied.
    const qint32 lone = version(QStringLiteral("1.1"));
    window(lone, QStringLiteral("[System Screen]"));
    progress.events.clear();
    ASSERT_TRUE(backup->CopyWindows(lone, conn, destination, conn, false));
    EXPECT_TRUE(progress.events.isEmpty());
    EXPECT_EQ(windows.Length(), 3);
    ASSERT_TRUE(backup->CopyWindows(lone, conn, destination, conn, true));
    EXPECT_EQ(windows.Length(), 4);

    // A failed object leaves the rows saved before it, and the positions
    // of its batch that were not filled hold 0.
    abortOn(kObject, QStringLiteral("INSERT"));
    EXPECT_FALSE(backup->CopyWindows(source, conn, destination, conn, true));
    expectFailure(QStringLiteral("Error while copying Windows:"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(destination)), 6);
    EXPECT_EQ(objects.Length(), 4);
    EXPECT_EQ(objects.NewKey(3), 0);
    EXPECT_EQ(objects.NewKey(4), 0);
}

TEST_P(CopyPrimitivesTest, VariablesAndRequirementsReplaceTheirMapsOnEveryCall)
{
    const qint32 v1 = addFull(QStringLiteral("tUserVar"), {{QStringLiteral("iVarAppVerKey"), source}});
    const qint32 v2 = add(QStringLiteral("tUserVar"), {{QStringLiteral("iVarAppVerKey"), source}});
    const qint32 r1 = addFull(QStringLiteral("tRequirement"), {{QStringLiteral("iRequirementAppVerKey"), source}});

    ASSERT_TRUE(backup->CopyVariables(source, conn, destination, conn));
    const KeyMap& variables = backup->VariableMap;
    ASSERT_EQ(variables.Length(), 2);
    expectCopy(QStringLiteral("tUserVar"), v1, variables.NewKey(1), {{QStringLiteral("iVarAppVerKey"), destination}});
    expectCopy(QStringLiteral("tUserVar"), v2, variables.NewKey(2), {{QStringLiteral("iVarAppVerKey"), destination}});
    EXPECT_EQ(progress.events, (QStringList{"action:Variables in Order Entry", "range:0-2", "value:0", "refresh",
                                            "value:1", "refresh", "value:2", "refresh", "yield"}));

    ASSERT_TRUE(backup->CopyRequirements(source, conn, destination, conn));
    ASSERT_EQ(backup->RequirementMap.Length(), 1);
    expectCopy(QStringLiteral("tRequirement"), r1, backup->RequirementMap.NewKey(1),
               {{QStringLiteral("iRequirementAppVerKey"), destination}});
    EXPECT_EQ(progress.action, QStringLiteral("Requirements in Order Entry"));

    // The next version's variables replace the first's; a version without
    // any leaves the map and the window alone.
    const qint32 other = version(QStringLiteral("1.1"));
    const qint32 v3 = add(QStringLiteral("tUserVar"), {{QStringLiteral("iVarAppVerKey"), other}});
    ASSERT_TRUE(backup->CopyVariables(other, conn, destination, conn));
    EXPECT_EQ(LookupNewKey(variables, v1, 2), 0);
    const QStringList before = progress.events;
    ASSERT_TRUE(backup->CopyVariables(version(QStringLiteral("1.2")), conn, destination, conn));
    EXPECT_EQ(variables.Length(), 1);
    EXPECT_NE(LookupNewKey(variables, v3, variables.Length()), 0);
    EXPECT_EQ(progress.events, before);
}

TEST_P(CopyPrimitivesTest, KeywordsMatchByNameOrAreAddedAgain)
{
    const qint32 smoke = keyword(app, QStringLiteral("Smoke"));
    const qint32 regression = keyword(app, QStringLiteral("Regression"));
    const qint32 target = add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Target")}});
    const qint32 existing = keyword(target, QStringLiteral("SMOKE"), QStringLiteral("kept"));

    ASSERT_TRUE(backup->CopyKeywords(app, conn, target, conn, true)) << messages.shown.join(u'\n').toStdString();
    const KeyMap& keywords = backup->KeywordMap;
    EXPECT_EQ(LookupNewKey(keywords, smoke, 2), existing);  // without regard to case
    EXPECT_EQ(intValue(QStringLiteral("tKeyword"), LookupNewKey(keywords, regression, 2), QStringLiteral("iKeywordAppKey")), target);
    EXPECT_EQ(value(QStringLiteral("tKeyword"), existing, QStringLiteral("sKeywordDesc")).toString(), QStringLiteral("kept"));

    // Without matching a second "Smoke" is added; the map keeps growing and
    // the first entry still wins.
    ASSERT_TRUE(backup->CopyKeywords(app, conn, target, conn, false));
    EXPECT_EQ(keywords.Length(), 4);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=%1").arg(target)), 4);
    EXPECT_EQ(LookupNewKey(keywords, smoke, keywords.Length()), existing);

    // A name with an apostrophe is matched like any other, twice over.
    const qint32 quoted = add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Quoted")}});
    keyword(quoted, QStringLiteral("O'Neil"));
    ASSERT_TRUE(backup->CopyKeywords(quoted, conn, target, conn, true)) << messages.shown.join(u'\n').toStdString();
    ASSERT_TRUE(backup->CopyKeywords(quoted, conn, target, conn, true)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=%1 AND sKeywordName='O''Neil'").arg(target)), 1);
}

TEST_P(CopyPrimitivesTest, ProcessesRemapWindowsObjectsAndKeywordsButKeepTheirOwnReferences)
{
    const qint32 mapped = window(source, QStringLiteral("frmLogin"));
    const qint32 system = window(source, QStringLiteral("[System Screen]"));
    const qint32 object = add(kObject, {{QStringLiteral("iObjectWindowKey"), mapped}});
    const qint32 kw = keyword(app, QStringLiteral("Smoke"));
    const qint32 requirement = add(QStringLiteral("tRequirement"), {{QStringLiteral("iRequirementAppVerKey"), source}});
    const qint32 first = process(source, QStringLiteral("Start"));
    relation(kw, QStringLiteral("iKeywordRelProcessKey"), first);
    const qint32 main = addFull(kProcess, {{QStringLiteral("iProcessVerKey"), source}, {QStringLiteral("iProcessDependencyKey"), first},
                                           {QStringLiteral("iProcessRequirementKey"), requirement}});
    const qint32 visitsMapped = stepWindow(main, source, mapped, 2);
    stepWindow(main, source, system, 1);
    const qint32 full = addFull(kStep, {{QStringLiteral("iStepWindowKey"), visitsMapped}, {QStringLiteral("iStepObjectKey"), object},
                                        {QStringLiteral("iStepSequenceNum"), 2}});
    step(visitsMapped, 0, 1);
    step(visitsMapped, 987654, 3);
    // A lone placeholder step window is not copied; a lone real one is.
    const qint32 placeholder = process(source, QStringLiteral("Placeholder"));
    step(stepWindow(placeholder, source, 0, 1), 0, 1);
    const qint32 lone = process(source, QStringLiteral("Lone"));
    stepWindow(lone, source, mapped, 1);

    ASSERT_TRUE(backup->CopyWindows(source, conn, destination, conn, false));
    progress.events.clear();
    ASSERT_TRUE(copyProcesses(destination)) << messages.shown.join(u'\n').toStdString();

    const KeyMap& processes = backup->ProcessMap;
    ASSERT_EQ(processes.Length(), 4);
    const qint32 newMain = LookupNewKey(processes, main, 4);
    // The requirement and the dependency keep the source keys; the
    // sequence number is not copied.
    expectCopy(kProcess, main, newMain, {{QStringLiteral("iProcessVerKey"), destination}}, {QStringLiteral("iProcessSequenceNum")});
    EXPECT_EQ(intValue(kProcess, newMain, QStringLiteral("iProcessDependencyKey")), first);
    EXPECT_EQ(intValue(kProcess, newMain, QStringLiteral("iProcessRequirementKey")), requirement);

    // Step windows in sequence order; the system screen was not copied, so
    // its step window keeps the source window key.
    const QString mainWindows =
        QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1 ORDER BY iStepWindowSequenceNum").arg(newMain);
    EXPECT_EQ(ints(mainWindows, QStringLiteral("iStepWindowWindowKey")),
              (std::vector<qint32>{system, LookupNewKey(backup->WindowMap, mapped, backup->WindowMap.Length())}));
    EXPECT_EQ(ints(mainWindows, QStringLiteral("iStepWindowVerKey")), (std::vector<qint32>{destination, destination}));
    EXPECT_EQ(ints(mainWindows, QStringLiteral("iStepWindowEnvironmentKey")), (std::vector<qint32>{environment, environment}));
    const qint32 newVisit = ints(mainWindows, QStringLiteral("iStepWindowKey")).back();

    // Steps: the object through ObjectMap, 0 and unknown keys kept.
    const qint32 newObject = LookupNewKey(backup->ObjectMap, object, backup->ObjectMap.Length());
    const QString visitSteps = QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey=%1 ORDER BY iStepSequenceNum").arg(newVisit);
    EXPECT_EQ(ints(visitSteps, QStringLiteral("iStepObjectKey")), (std::vector<qint32>{0, newObject, 987654}));
    expectCopy(kStep, full, ints(visitSteps, QStringLiteral("iStepKey")).at(1),
               {{QStringLiteral("iStepWindowKey"), newVisit}, {QStringLiteral("iStepObjectKey"), newObject}});

    const QString windowsOf = QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1");
    EXPECT_EQ(count(windowsOf.arg(LookupNewKey(processes, placeholder, 4))), 0);
    EXPECT_EQ(count(windowsOf.arg(LookupNewKey(processes, lone, 4))), 1);

    // KeywordMap is empty: the relation keeps its keyword.
    EXPECT_EQ(relationKeywords(QStringLiteral("iKeywordRelProcessKey"), LookupNewKey(processes, first, 4)), (std::vector<qint32>{kw}));

    // One step of the bar per process.
    EXPECT_EQ(progress.events.first(), QStringLiteral("action:Processes in Order Entry"));
    EXPECT_EQ(progress.matching(QStringLiteral("value:")), (QStringList{"value:0", "value:1", "value:2", "value:3", "value:4"}));
}

TEST_P(CopyPrimitivesTest, EachStageOfAProcessCopyNamesItsFailure)
{
    const qint32 w = window(source, QStringLiteral("frmLogin"));
    const qint32 p = process(source, QStringLiteral("Login"));
    step(stepWindow(p, source, w, 1), 0, 1);
    relation(keyword(app, QStringLiteral("Smoke")), QStringLiteral("iKeywordRelProcessKey"), p);

    const std::vector<std::pair<QString, QString>> stages = {
        {kProcess, QStringLiteral("Error while copying Processes:")},
        {kStepWindow, QStringLiteral("Error while copying Step Windows:")},
        {kStep, QStringLiteral("Error while copying Steps:")},
        {kKeywordRel, QStringLiteral("Error while copying Process Keywords:")},
    };
    for (const auto& [table, prefix] : stages) {
        SCOPED_TRACE(table.toStdString());
        const qint32 target = version(QStringLiteral("T ") + table);
        abortOn(table, QStringLiteral("INSERT"));
        EXPECT_FALSE(copyProcesses(target));
        expectFailure(prefix);
        dropAbort(table, QStringLiteral("INSERT"));
        // What was saved before the failure stays.
        EXPECT_EQ(count(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(target)), table == kProcess ? 0 : 1);
    }
}

TEST_P(CopyPrimitivesTest, CyclesTreatProcessReferencesEachInItsOwnWay)
{
    const qint32 pa = process(source, QStringLiteral("A"));
    const qint32 pb = process(source, QStringLiteral("B"));
    const qint32 outside = process(version(QStringLiteral("9.0")), QStringLiteral("Elsewhere"));
    ASSERT_TRUE(copyProcesses(destination));
    const QStringList before = progress.events;

    const qint32 c1 = addFull(kCycle, {{QStringLiteral("iCycleVerKey"), source}, {QStringLiteral("iCycleDependencyKey"), pa},
                                       {QStringLiteral("iCycleStartStateKey"), outside}});
    const qint32 c2 = add(kCycle, {{QStringLiteral("iCycleVerKey"), source}});
    const qint32 cp1 = addFull(kCycleProcess, {{QStringLiteral("iCycleKey"), c1}, {QStringLiteral("iProcessKey"), pb}});
    add(kCycleProcess, {{QStringLiteral("iCycleKey"), c1}, {QStringLiteral("iProcessKey"), outside}});

    ASSERT_TRUE(backup->CopyCycles(source, conn, destination, conn)) << messages.shown.join(u'\n').toStdString();
    const KeyMap& cycles = backup->CycleMap;
    ASSERT_EQ(cycles.Length(), 2);
    const qint32 newC1 = LookupNewKey(cycles, c1, 2);
    const qint32 newPb = LookupNewKey(backup->ProcessMap, pb, 2);
    // The dependency through the map; a start state outside the copy
    // becomes 0; the sequence number is not copied.
    expectCopy(kCycle, c1, newC1,
               {{QStringLiteral("iCycleVerKey"), destination},
                {QStringLiteral("iCycleDependencyKey"), LookupNewKey(backup->ProcessMap, pa, 2)},
                {QStringLiteral("iCycleStartStateKey"), 0}},
               {QStringLiteral("iCycleSequenceNum")});
    const qint32 newC2 = LookupNewKey(cycles, c2, 2);
    EXPECT_EQ(intValue(kCycle, newC2, QStringLiteral("iCycleDependencyKey")), 0);
    EXPECT_EQ(intValue(kCycle, newC2, QStringLiteral("iCycleStartStateKey")), 0);

    // A cycle process outside the copy keeps its process.
    const QString newProcesses = QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey=%1 ORDER BY iCycleProcessKey").arg(newC1);
    EXPECT_EQ(ints(newProcesses, QStringLiteral("iProcessKey")), (std::vector<qint32>{newPb, outside}));
    expectCopy(kCycleProcess, cp1, ints(newProcesses, QStringLiteral("iCycleProcessKey")).front(),
               {{QStringLiteral("iCycleKey"), newC1}, {QStringLiteral("iProcessKey"), newPb}});

    // Cycles neither move the bar nor yield.
    EXPECT_EQ(progress.events, before);

    abortOn(kCycleProcess, QStringLiteral("INSERT"));
    EXPECT_FALSE(backup->CopyCycles(source, conn, destination, conn));
    expectFailure(QStringLiteral("Error while copying Cycle Processes:"));
}

TEST_P(CopyPrimitivesTest, SchedulesTakeCopiedCyclesAndZeroForOthersAndCopiedKeywords)
{
    const qint32 copied = add(kCycle, {{QStringLiteral("iCycleVerKey"), source}});
    const qint32 other = add(kCycle, {{QStringLiteral("iCycleVerKey"), version(QStringLiteral("9.0"))}});
    const qint32 kw = keyword(app, QStringLiteral("Nightly"));
    const qint32 schedule = addFull(QStringLiteral("tSchedule"), {{QStringLiteral("iScheduleEnvironKey"), environment}});
    for (const qint32 cycle : {copied, other})
        add(QStringLiteral("tScheduleCycles"), {{QStringLiteral("iScheduleKey"), schedule}, {QStringLiteral("iCycleKey"), cycle},
                                                {QStringLiteral("iCycleSequenceNum"), cycle == copied ? 1 : 2}});
    relation(kw, QStringLiteral("iKeywordRelScheduleKey"), schedule);
    const qint32 targetApp = add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Target")}});
    const qint32 target = add(QStringLiteral("tEnvironment"), {{QStringLiteral("sEnvironmentName"), QStringLiteral("QA copy")}});

    ASSERT_TRUE(backup->CopyKeywords(app, conn, targetApp, conn, false));
    ASSERT_TRUE(backup->CopyCycles(source, conn, destination, conn));
    progress.events.clear();
    ASSERT_TRUE(backup->CopySchedules(environment, conn, target, conn)) << messages.shown.join(u'\n').toStdString();
    const std::vector<qint32> schedules =
        ints(QStringLiteral("SELECT * FROM tSchedule WHERE iScheduleEnvironKey=%1").arg(target), QStringLiteral("iScheduleKey"));
    ASSERT_EQ(schedules.size(), 1u);
    expectCopy(QStringLiteral("tSchedule"), schedule, schedules[0], {{QStringLiteral("iScheduleEnvironKey"), target}});
    const QString cyclesOf = QStringLiteral("SELECT * FROM tScheduleCycles WHERE iScheduleKey=%1 ORDER BY iCycleSequenceNum").arg(schedules[0]);
    EXPECT_EQ(ints(cyclesOf, QStringLiteral("iCycleKey")), (std::vector<qint32>{LookupNewKey(backup->CycleMap, copied, 1), 0}));
    EXPECT_EQ(relationKeywords(QStringLiteral("iKeywordRelScheduleKey"), schedules[0]),
              (std::vector<qint32>{LookupNewKey(backup->KeywordMap, kw, 1)}));
    EXPECT_TRUE(progress.events.isEmpty());

    abortOn(QStringLiteral("tScheduleCycles"), QStringLiteral("INSERT"));
    EXPECT_FALSE(backup->CopySchedules(environment, conn, target, conn));
    expectFailure(QStringLiteral("Error while copying Schedule Cycles:"));
}

TEST_P(CopyPrimitivesTest, StepFixUpRewritesTheDestinationVersionOnly)
{
    backup->ProcessMap.Grow(1);
    backup->ProcessMap.StoreNext(17, 230);
    backup->VariableMap.Replace(1);
    backup->VariableMap.StoreNext(12, 40);
    const qint32 sw = stepWindow(process(destination, QStringLiteral("Copied")), destination, 0, 1);
    const qint32 call = step(sw, 0, 1, QStringLiteral("Run ProcessKey=17 now"));
    const qint32 token = step(sw, 0, 2, QStringLiteral("Value=@[5|12]"));
    const qint32 null = step(sw, 0, 3);
    const qint32 untouched = step(stepWindow(process(source, QStringLiteral("Original")), source, 0, 1), 0, 1,
                                  QStringLiteral("ProcessKey=17"));

    ASSERT_TRUE(backup->FixUpSteps(destination, conn)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(value(kStep, call, QStringLiteral("sStepArguments")).toString(), QStringLiteral("ProcessKey= 230"));
    EXPECT_EQ(value(kStep, token, QStringLiteral("sStepArguments")).toString(), QStringLiteral("Value=@[ %1| 40]").arg(destination));
    EXPECT_FALSE(value(kStep, null, QStringLiteral("sStepArguments")).isValid());
    EXPECT_EQ(value(kStep, untouched, QStringLiteral("sStepArguments")).toString(), QStringLiteral("ProcessKey=17"));
    EXPECT_EQ(progress.events.first(), QStringLiteral("action:Fixing up steps...."));

    // Texts without keys are not written at all; a text that is fails
    // with the fix-up's own prefix, which ends in a blank.
    abortOn(kStep, QStringLiteral("UPDATE"));
    conn.Execute(QStringLiteral("DELETE FROM tStep WHERE iStepKey IN (%1, %2)").arg(call).arg(token));
    EXPECT_TRUE(backup->FixUpSteps(destination, conn)) << messages.shown.join(u'\n').toStdString();
    step(sw, 0, 5, QStringLiteral("ProcessKey=17"));
    EXPECT_FALSE(backup->FixUpSteps(destination, conn));
    expectFailure(QStringLiteral("Error while fixing up steps: "));
}

INSTANTIATE_TEST_SUITE_P(Backends, CopyPrimitivesTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
