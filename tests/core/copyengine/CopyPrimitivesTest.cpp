// The key maps (growth, replacement, the first-match lookup) and the
// rewriting of step argument texts through them; then the copy primitives
// within one repository: what each column of a copied row holds, the maps
// they fill, the progress they report and the message of each failing stage.

#include "core/copyengine/CopyEngineFixture.h"
#include "core/copyengine/KeyMap.h"
#include "core/copyengine/StepArguments.h"

#include <random>

using namespace dorvane;
using namespace dorvane::test;

static KeyMap& batch(KeyMap& map, std::initializer_list<std::pair<qint32, qint32>> pairs)
{
    map.Grow(qint32(pairs.size()));
    for (const auto& [oldKey, newKey] : pairs)
        map.StoreNext(oldKey, newKey);
    return map;
}

// Random growth, replacement, resets and stores against a plain two-row
// table scanned from position 1.
TEST(KeyMapTest, AgreesWithALinearScanOfTheTable)
{
    std::mt19937 random(20240611);
    const auto pick = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int round = 0; round < 50; ++round) {
        KeyMap map;
        std::vector<std::pair<qint32, qint32>> rows; // the old and the new key by position
        qint32 length = 0;
        for (int step = 0; step < 200; ++step) {
            const int action = pick(0, 9);
            const qint32 n = pick(0, 4);
            if (action == 0) {
                map.Grow(n);
                if (n > 0) // a batch of 0 rows keeps the storage, beyond a reset length too
                    rows.resize(size_t(length += n));
                std::fill(rows.end() - n, rows.end(), std::pair<qint32, qint32>());
            } else if (action == 1) {
                map.Replace(n);
                if (n > 0)
                    rows.assign(size_t(length = n), {});
            } else if (action == 2) {
                map.ResetLength();
                length = 0;
            } else if (!rows.empty()) {
                auto& row = rows[size_t(pick(1, qint32(rows.size())) - 1)];
                row = {pick(0, 5), pick(1, 1000)};
                map.Store(qint32(&row - rows.data()) + 1, row.first, row.second);
            }
            ASSERT_EQ(map.Length(), length);
            ASSERT_EQ(map.Size(), qint32(rows.size()));
            for (qint32 key = 0; key <= 5; ++key) {
                for (qint32 searched = -1; searched <= qint32(rows.size()) + 2; ++searched) {
                    const auto end = rows.begin() + std::clamp(searched, 0, qint32(rows.size()));
                    const auto first = std::find_if(rows.begin(), end, [key](const auto& row) { return row.first == key; });
                    ASSERT_EQ(LookupNewKey(map, key, searched), first == end ? 0 : first->second) << round << "/" << step;
                }
            }
        }
    }
}

TEST(StepArgumentsTest, ProcessCallsAndVariableTokensTakeTheNewKeys)
{
    const std::vector<std::pair<QString, std::optional<QString>>> cases = {
        // A process call becomes the pair alone, in the stored format; one
        // not copied is rewritten all the same, with the old number.
        {u"Run ProcessKey=17 now"_s, u"ProcessKey= 230"_s},
        {u"ProcessKey=99"_s, u"ProcessKey= 99"_s},
        {u"ProcessKey= 18;x"_s, u"ProcessKey= 231"_s},
        {u"ProcessKey="_s, u"ProcessKey= 0"_s},
        {u"ProcessKey=-3"_s, u"ProcessKey=-3"_s},
        // Only the process call is kept; the tokens go with the rest.
        {u"ProcessKey=17 Value=@[5|12]"_s, u"ProcessKey= 230"_s},
        {u"processkey=17"_s, std::nullopt},
        // Tokens take the destination version and the new variable; a
        // variable not copied keeps its key.
        {u"Value=@[5|12]"_s, u"Value=@[ 8| 40]"_s},
        {u"Value=@[5|77]"_s, u"Value=@[ 8| 77]"_s},
        {u"Text=@UserName[5|12];Clear=1"_s, u"Text=@UserName[ 8| 40];Clear=1"_s},
        {u"A=@[5|12] B=@x[6|13]"_s, u"A=@[ 8| 40] B=@x[ 8| 41]"_s},
        {u"Größe=@Maß[5|12] für «x»"_s, u"Größe=@Maß[ 8| 40] für «x»"_s},
        // An unterminated token ends the scan; what came before is rewritten.
        {u"Value=@[5|12"_s, std::nullopt},
        {u"Value=@[5 12]"_s, std::nullopt},
        {u"A=@[5|12] B=@[6|13"_s, u"A=@[ 8| 40] B=@[6|13"_s},
        {u"Text=Acme Tools"_s, std::nullopt},
        {QString(), std::nullopt},
    };
    KeyMap processes, variables;
    const auto lookup = [](const KeyMap& map) { return [&map](qint32 key) { return map.Lookup(key, map.Length()); }; };
    batch(processes, {{17, 230}, {18, 231}});
    batch(variables, {{12, 40}, {13, 41}});
    for (const auto& [text, expected] : cases) {
        const std::optional<QByteArray> fixed = FixUpStepArguments(text.toUtf8(), 8, lookup(processes), lookup(variables));
        EXPECT_EQ(fixed.has_value(), expected.has_value()) << text.toStdString();
        EXPECT_EQ(QString::fromUtf8(fixed.value_or(QByteArray())), expected.value_or(QString())) << text.toStdString();
    }
    EXPECT_THROW(FixUpStepArguments("ProcessKey=99999999999", 8, lookup(processes), lookup(variables)), DbError);
}

class CopyPrimitivesTest : public CopyEngineTest {
protected:
    void SetUp() override
    {
        CopyEngineTest::SetUp();
        app = add(u"tApp"_s, {{u"sAppName"_s, u"Order Entry"_s}});
        source = addVersion(app, u"1.0"_s);
        destination = addVersion(app, u"2.0"_s);
        environment = add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"QA"_s}});
        backup->CurrentVersionLabel = u"Order Entry"_s;
    }

    void relation(qint32 keywordKey, const QString& holderColumn, qint32 holder)
    {
        add(u"tKeywordRel"_s, {{u"iKeywordRelKeywordKey"_s, keywordKey}, {holderColumn, holder}});
    }
    std::vector<qint32> relationKeywords(const QString& holderColumn, qint32 holder)
    {
        return ints(u"SELECT * FROM tKeywordRel WHERE %1=%2"_s.arg(holderColumn).arg(holder), u"iKeywordRelKeywordKey"_s);
    }
    bool copyProcesses(qint32 target) { return backup->CopyProcesses(source, target, environment, conn); }
    // A key map of the run, its pairs in the order of their new keys.
    std::vector<std::pair<qint32, qint32>> pairs(const QString& name) { return backup->MapPairs(conn, name); }
    qint32 newKey(const QString& name, qint32 oldKey)
    {
        const auto map = pairs(name);
        const auto at = std::find_if(map.begin(), map.end(), [oldKey](const auto& pair) { return pair.first == oldKey; });
        return at == map.end() ? 0 : at->second;
    }

    qint32 app = 0, source = 0, destination = 0, environment = 0;
};

TEST_P(CopyPrimitivesTest, WindowsAndObjectsKeepEveryColumnAndTheParentWindowKey)
{
    const qint32 top = addFull(u"tWindow"_s, {{u"iWindowVerKey"_s, source}});
    // The parent lies in the same version; the copy still names the source's.
    const qint32 child = addFull(u"tWindow"_s, {{u"iWindowVerKey"_s, source}, {u"iWindowParentKey"_s, top}});
    // The system screen is compared on the exact text.
    add(u"tWindow"_s, {{u"iWindowVerKey"_s, source}, {u"sWindowPhysicalName"_s, u"[System Screen]"_s}});
    add(u"tWindow"_s, {{u"iWindowVerKey"_s, source}, {u"sWindowPhysicalName"_s, u"[system screen] "_s}});
    const qint32 full = addFull(u"tObject"_s, {{u"iObjectWindowKey"_s, child}});
    const qint32 sparse = add(u"tObject"_s, {{u"iObjectWindowKey"_s, child}});  // nulls stay null

    ASSERT_TRUE(backup->CopyWindows(source, destination, conn, false)) << shown();
    const auto windows = pairs(u"window"_s);
    ASSERT_EQ(windows.size(), 3u);
    EXPECT_EQ(std::pair(windows[0].first, windows[1].first), std::pair(top, child));
    expectCopy(u"tWindow"_s, top, windows[0].second, {{u"iWindowVerKey"_s, destination}});
    expectCopy(u"tWindow"_s, child, windows[1].second, {{u"iWindowVerKey"_s, destination}});

    // Windows without objects leave the object map alone.
    const auto objects = pairs(u"object"_s);
    ASSERT_EQ(std::pair(objects.size(), objects[1].first), std::pair(size_t(2), sparse));
    const std::map<QString, QVariant> objectColumns = {{u"iObjectWindowKey"_s, windows[1].second}, {u"iObjectVersionKey"_s, destination}};
    expectCopy(u"tObject"_s, full, objects[0].second, objectColumns);
    expectCopy(u"tObject"_s, sparse, objects[1].second, objectColumns);

    // The bar counts windows.
    EXPECT_EQ(progress.events.mid(0, 2), (QStringList{"action:Windows in Order Entry", "range:0-3"}));

    // A version holding only its system screen copies nothing and leaves
    // the window alone; asked for, the system screen is copied.
    const qint32 lone = addVersion(app, {u"1.1"_s, {u"[System Screen]"_s}});
    progress.events.clear();
    ASSERT_TRUE(backup->CopyWindows(lone, destination, conn, false));
    EXPECT_TRUE(progress.events.isEmpty() && pairs(u"window"_s).size() == 3);
    ASSERT_TRUE(backup->CopyWindows(lone, destination, conn, true));
    EXPECT_EQ(pairs(u"window"_s).size(), 4u);

    // A second copy of the same version in the run: the first copies keep
    // their place in the map.
    ASSERT_TRUE(backup->CopyWindows(source, destination, conn, false));
    EXPECT_EQ(std::pair(pairs(u"window"_s).size(), newKey(u"window"_s, top)), std::pair(size_t(4), windows[0].second));
    EXPECT_EQ(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(destination)), 7);

    // A failed object leaves the windows of its call, written before the
    // objects, for the caller's transaction to remove; the object map
    // gains nothing.
    abortOn(u"tObject"_s, u"INSERT"_s);
    EXPECT_FALSE(backup->CopyWindows(source, destination, conn, true));
    expectFailure(u"Error while copying Windows:"_s);
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(destination)), pairs(u"object"_s).size()), std::pair(11, size_t(2)));
}

// Variables and requirements replace their maps on every call; keywords
// match by name or are added again, the map growing.
TEST_P(CopyPrimitivesTest, VariablesRequirementsAndKeywordsFillTheirMaps)
{
    const qint32 v1 = addFull(u"tUserVar"_s, {{u"iVarAppVerKey"_s, source}});
    const qint32 v2 = add(u"tUserVar"_s, {{u"iVarAppVerKey"_s, source}});
    const qint32 r1 = addFull(u"tRequirement"_s, {{u"iRequirementAppVerKey"_s, source}});

    ASSERT_TRUE(backup->CopyVariables(source, destination, conn));
    const auto variables = pairs(u"variable"_s);
    ASSERT_EQ(variables.size(), 2u);
    expectCopy(u"tUserVar"_s, v1, variables[0].second, {{u"iVarAppVerKey"_s, destination}});
    expectCopy(u"tUserVar"_s, v2, variables[1].second, {{u"iVarAppVerKey"_s, destination}});
    EXPECT_EQ(progress.events.mid(0, 2), (QStringList{"action:Variables in Order Entry", "range:0-2"}));

    ASSERT_TRUE(backup->CopyRequirements(source, destination, conn));
    ASSERT_EQ(pairs(u"requirement"_s).size(), 1u);
    expectCopy(u"tRequirement"_s, r1, newKey(u"requirement"_s, r1), {{u"iRequirementAppVerKey"_s, destination}});
    EXPECT_EQ(progress.action, u"Requirements in Order Entry"_s);

    // The next version's variables replace the first's; a version without
    // any leaves the map and the window alone.
    const qint32 other = addVersion(app, u"1.1"_s);
    const qint32 v3 = add(u"tUserVar"_s, {{u"iVarAppVerKey"_s, other}});
    ASSERT_TRUE(backup->CopyVariables(other, destination, conn));
    EXPECT_EQ(newKey(u"variable"_s, v1), 0);
    const QStringList before = progress.events;
    ASSERT_TRUE(backup->CopyVariables(addVersion(app, u"1.2"_s), destination, conn));
    EXPECT_TRUE(pairs(u"variable"_s).size() == 1 && newKey(u"variable"_s, v3) != 0);
    EXPECT_EQ(progress.events, before);

    // Keywords match by their exact name, though the database finds names
    // in other letter cases first, or are added again.
    const qint32 smoke = addKeyword(app, u"Smoke"_s);
    const qint32 regression = addKeyword(app, u"Regression"_s);
    const qint32 target = add(u"tApp"_s, {{u"sAppName"_s, u"Target"_s}});
    const qint32 upper = addKeyword(target, u"SMOKE"_s, u"other case"_s);
    const qint32 existing = addKeyword(target, u"Smoke"_s, u"kept"_s);
    const qint32 lower = addKeyword(target, u"regression"_s);

    ASSERT_TRUE(backup->CopyKeywords(app, target, conn, true)) << shown();
    EXPECT_EQ(newKey(u"keyword"_s, smoke), existing);
    const qint32 added = newKey(u"keyword"_s, regression);
    EXPECT_TRUE(added > lower && added != upper) << added;
    EXPECT_EQ(Rows(conn, u"SELECT iKeywordAppKey, sKeywordName, sKeywordDesc FROM tKeyword WHERE iKeywordKey IN (%1, %2) ORDER BY iKeywordKey"_s
                             .arg(existing).arg(added)),
              (QStringList{u"%1|Smoke|kept"_s.arg(target), u"%1|Regression|d"_s.arg(target)}));

    // Without matching a second "Smoke" is added; the map keeps growing and
    // the first entry still wins.
    ASSERT_TRUE(backup->CopyKeywords(app, target, conn, false));
    EXPECT_EQ(std::tuple(pairs(u"keyword"_s).size(), count(u"SELECT * FROM tKeyword WHERE iKeywordAppKey=%1"_s.arg(target)),
                         newKey(u"keyword"_s, smoke)), std::tuple(size_t(2), 6, existing));

    // A name with an apostrophe is matched like any other, twice over.
    const qint32 quoted = add(u"tApp"_s, {{u"sAppName"_s, u"Quoted"_s}});
    addKeyword(quoted, u"O'Neil"_s);
    ASSERT_TRUE(backup->CopyKeywords(quoted, target, conn, true)) << shown();
    ASSERT_TRUE(backup->CopyKeywords(quoted, target, conn, true)) << shown();
    EXPECT_EQ(count(u"SELECT * FROM tKeyword WHERE iKeywordAppKey=%1 AND sKeywordName='O''Neil'"_s.arg(target)), 1);
}

TEST_P(CopyPrimitivesTest, ProcessesRemapWindowsObjectsAndKeywordsButKeepTheirOwnReferences)
{
    // Main visits frmLogin (2) and the system screen (1); Lone visits
    // frmLogin alone; a lone placeholder step window is not copied.
    const Built v = build(app, {{u"1.5"_s, {{u"frmLogin"_s, {u"txtUser"_s}}, {u"[System Screen]"_s}},
                                 {u"Start"_s, {u"Lone"_s, {u"frmLogin"_s}}, u"Placeholder"_s}}});
    source = v.version;
    const qint32 first = v[u"Start"_s], mapped = v[u"frmLogin"_s], object = v[u"txtUser"_s];
    const qint32 system = v[u"[System Screen]"_s], placeholder = v[u"Placeholder"_s];
    const qint32 kw = addKeyword(app, u"Smoke"_s);
    const qint32 requirement = add(u"tRequirement"_s, {{u"iRequirementAppVerKey"_s, source}});
    relation(kw, u"iKeywordRelProcessKey"_s, first);
    const qint32 main = addFull(u"tProcess"_s, {{u"iProcessVerKey"_s, source}, {u"iProcessDependencyKey"_s, first},
                                                {u"iProcessRequirementKey"_s, requirement}});
    const auto step = [&](qint32 sw, qint32 obj, int sequence) {
        return add(u"tStep"_s, {{u"iStepWindowKey"_s, sw}, {u"iStepObjectKey"_s, obj}, {u"iStepSequenceNum"_s, sequence}});
    };
    const qint32 visit = addStepWindow(main, source, mapped, 0, 2);
    addStepWindow(main, source, system, 0, 1);
    const qint32 full = addFull(u"tStep"_s, {{u"iStepWindowKey"_s, visit}, {u"iStepObjectKey"_s, object}, {u"iStepSequenceNum"_s, 2}});
    step(visit, 0, 1);
    step(visit, 987654, 3);
    step(addStepWindow(placeholder, source, 0, 0), 0, 1);

    ASSERT_TRUE(backup->CopyWindows(source, destination, conn, false));
    progress.events.clear();
    ASSERT_TRUE(copyProcesses(destination)) << shown();

    ASSERT_EQ(pairs(u"process"_s).size(), 4u);
    const qint32 newMain = newKey(u"process"_s, main);
    // The requirement and the dependency keep the source keys; the
    // sequence number is not copied.
    expectCopy(u"tProcess"_s, main, newMain, {{u"iProcessVerKey"_s, destination}}, {u"iProcessSequenceNum"_s});

    // Step windows in sequence order; the system screen was not copied, so
    // its step window keeps the source window key.
    const QString mainWindows = u"SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1 ORDER BY iStepWindowSequenceNum"_s.arg(newMain);
    EXPECT_EQ(std::tuple(ints(mainWindows, u"iStepWindowWindowKey"_s), ints(mainWindows, u"iStepWindowVerKey"_s), ints(mainWindows, u"iStepWindowEnvironmentKey"_s)),
              std::tuple(std::vector<qint32>{system, newKey(u"window"_s, mapped)}, std::vector<qint32>(2, destination), std::vector<qint32>(2, environment)));
    const qint32 newVisit = ints(mainWindows, u"iStepWindowKey"_s).back();

    // Steps: the object through ObjectMap, 0 and unknown keys kept.
    const qint32 newObject = newKey(u"object"_s, object);
    const QString visitSteps = u"SELECT * FROM tStep WHERE iStepWindowKey=%1 ORDER BY iStepSequenceNum"_s.arg(newVisit);
    EXPECT_EQ(ints(visitSteps, u"iStepObjectKey"_s), (std::vector<qint32>{0, newObject, 987654}));
    expectCopy(u"tStep"_s, full, ints(visitSteps, u"iStepKey"_s).at(1),
               {{u"iStepWindowKey"_s, newVisit}, {u"iStepObjectKey"_s, newObject}});

    const QString windowsOf = u"SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1"_s;
    EXPECT_EQ(std::pair(count(windowsOf.arg(newKey(u"process"_s, placeholder))),
                        count(windowsOf.arg(newKey(u"process"_s, v[u"Lone"_s])))), std::pair(0, 1));

    // The keyword map is empty: the relation keeps its keyword.
    EXPECT_EQ(relationKeywords(u"iKeywordRelProcessKey"_s, newKey(u"process"_s, first)), (std::vector<qint32>{kw}));

    // The bar counts processes, from none to all of them.
    EXPECT_EQ(std::tuple(progress.events.first(), progress.matching(u"range:"_s), progress.matching(u"value:"_s).first(), progress.matching(u"value:"_s).last()),
              std::tuple(u"action:Processes in Order Entry"_s, QStringList{u"range:0-4"_s}, u"value:0"_s, u"value:4"_s));
}

// A version large enough to be copied in several blocks: the copies come
// out keyed as one statement per table would key them, in the order of
// their parents' keys and their own sequence numbers.
TEST_P(CopyPrimitivesTest, ACopyInBlocksKeysItsRowsAsOneStatementWould)
{
    const QString numbers = u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 700) "_s;
    const QString pair = u"(SELECT 0 AS j UNION ALL SELECT 1) x"_s;
    // Keys shuffled against the order of insertion; sequence numbers
    // against the order of the keys.
    conn.Execute(numbers + u"INSERT INTO tProcess (iProcessKey, iProcessVerKey) SELECT 100000 + (i * 37) % 701, %1 FROM n"_s.arg(source));
    conn.Execute(u"INSERT INTO tStepWindow (iStepWindowKey, iStepWindowProcessKey, iStepWindowVerKey, iStepWindowWindowKey, "
                 "iStepWindowSequenceNum) SELECT 300000 + 2 * iProcessKey + j, iProcessKey, %1, 1, 2 - j FROM tProcess, %2 "
                 "WHERE iProcessVerKey = %1"_s.arg(source).arg(pair));
    conn.Execute(u"INSERT INTO tStep (iStepKey, iStepWindowKey, iStepSequenceNum) SELECT 900000 + 2 * iStepWindowKey + j, "
                 "iStepWindowKey, 2 - j FROM tStepWindow, %1 WHERE iStepWindowVerKey = %2"_s.arg(pair).arg(source));
    ASSERT_TRUE(copyProcesses(destination)) << shown();
    const QString stepWindows = u"SELECT iStepWindowKey FROM tStepWindow WHERE iStepWindowVerKey = %1 ORDER BY "_s.arg(destination);
    const QStringList byKey = Rows(conn, stepWindows + u"iStepWindowKey"_s);
    EXPECT_EQ(byKey.size(), 1400);
    EXPECT_EQ(byKey, Rows(conn, stepWindows + u"iStepWindowProcessKey, iStepWindowSequenceNum"_s));
    const QString steps = u"SELECT s.iStepKey FROM tStep s JOIN tStepWindow w ON w.iStepWindowKey = s.iStepWindowKey WHERE "
                          "w.iStepWindowVerKey = %1 ORDER BY "_s.arg(destination);
    const QStringList stepsByKey = Rows(conn, steps + u"s.iStepKey"_s);
    EXPECT_EQ(stepsByKey.size(), 2800);
    EXPECT_EQ(stepsByKey, Rows(conn, steps + u"s.iStepWindowKey, s.iStepSequenceNum"_s));
    // The bar moved up to all the processes, on SQLite block by block (on
    // PostgreSQL the copy is one statement per table).
    const QStringList values = progress.matching(u"value:"_s);
    EXPECT_GE(values.size(), conn.backend() == BackendKind::Sqlite ? 3 : 2);
    EXPECT_EQ(values.last(), u"value:700"_s);
}

TEST_P(CopyPrimitivesTest, EachStageOfAProcessCopyNamesItsFailure)
{
    const Built v = build(app, {{u"1.5"_s, {u"frmLogin"_s}, {{u"Login"_s, {u"frmLogin"_s}}}}});
    source = v.version;
    relation(addKeyword(app, u"Smoke"_s), u"iKeywordRelProcessKey"_s, v[u"Login"_s]);
    for (const auto& [table, stage] : std::vector<std::pair<QString, QString>>{
             {u"tProcess"_s, u"Processes"_s}, {u"tStepWindow"_s, u"Step Windows"_s}, {u"tStep"_s, u"Steps"_s}, {u"tKeywordRel"_s, u"Process Keywords"_s}}) {
        SCOPED_TRACE(table.toStdString());
        const qint32 target = addVersion(app, u"T "_s + table);
        abortOn(table, u"INSERT"_s);
        EXPECT_FALSE(copyProcesses(target));
        expectFailure(u"Error while copying %1:"_s.arg(stage));
        dropAbort(table, u"INSERT"_s);
        // What was saved before the failure stays.
        EXPECT_EQ(count(u"SELECT * FROM tProcess WHERE iProcessVerKey=%1"_s.arg(target)), table == u"tProcess"_s ? 0 : 1);
    }
}

// Cycles treat process references each in their own way; schedules take
// the copied cycles (0 for others) and the copied keywords.
TEST_P(CopyPrimitivesTest, CyclesAndSchedulesTakeWhatWasCopied)
{
    const Built v = build(app, {{u"1.5"_s, {}, {u"A"_s, u"B"_s}}}), elsewhere = build(app, {{u"9.0"_s, {}, {u"Elsewhere"_s}}});
    source = v.version;
    const qint32 pa = v[u"A"_s], pb = v[u"B"_s], outside = elsewhere[u"Elsewhere"_s];
    ASSERT_TRUE(copyProcesses(destination));
    const QStringList before = progress.events;

    const qint32 c1 = addFull(u"tCycle"_s, {{u"iCycleVerKey"_s, source}, {u"iCycleDependencyKey"_s, pa}, {u"iCycleStartStateKey"_s, outside}});
    const qint32 c2 = add(u"tCycle"_s, {{u"iCycleVerKey"_s, source}});
    const qint32 cp1 = addFull(u"tCycleProcess"_s, {{u"iCycleKey"_s, c1}, {u"iProcessKey"_s, pb}});
    add(u"tCycleProcess"_s, {{u"iCycleKey"_s, c1}, {u"iProcessKey"_s, outside}});

    ASSERT_TRUE(backup->CopyCycles(source, destination, conn)) << shown();
    ASSERT_EQ(pairs(u"cycle"_s).size(), 2u);
    const qint32 newC1 = newKey(u"cycle"_s, c1), newC2 = newKey(u"cycle"_s, c2);
    const qint32 newPb = newKey(u"process"_s, pb);
    // The dependency through the map; a start state outside the copy
    // becomes 0; the sequence number is not copied.
    expectCopy(u"tCycle"_s, c1, newC1,
               {{u"iCycleVerKey"_s, destination}, {u"iCycleDependencyKey"_s, newKey(u"process"_s, pa)}, {u"iCycleStartStateKey"_s, 0}},
               {u"iCycleSequenceNum"_s});
    EXPECT_EQ(std::pair(intValue(u"tCycle"_s, newC2, u"iCycleDependencyKey"_s), intValue(u"tCycle"_s, newC2, u"iCycleStartStateKey"_s)), std::pair(0, 0));

    // A cycle process outside the copy keeps its process.
    const QString newProcesses = u"SELECT * FROM tCycleProcess WHERE iCycleKey=%1 ORDER BY iCycleProcessKey"_s.arg(newC1);
    EXPECT_EQ(ints(newProcesses, u"iProcessKey"_s), (std::vector<qint32>{newPb, outside}));
    expectCopy(u"tCycleProcess"_s, cp1, ints(newProcesses, u"iCycleProcessKey"_s).front(), {{u"iCycleKey"_s, newC1}, {u"iProcessKey"_s, newPb}});
    EXPECT_EQ(progress.events, before);  // cycles neither move the bar nor yield

    // A schedule running a copied cycle and one of another version.
    const qint32 other = add(u"tCycle"_s, {{u"iCycleVerKey"_s, elsewhere.version}});
    const qint32 kw = addKeyword(app, u"Nightly"_s);
    const qint32 schedule = addFull(u"tSchedule"_s, {{u"iScheduleEnvironKey"_s, environment}});
    for (const qint32 cycle : {c1, other})
        add(u"tScheduleCycles"_s, {{u"iScheduleKey"_s, schedule}, {u"iCycleKey"_s, cycle}, {u"iCycleSequenceNum"_s, cycle == c1 ? 1 : 2}});
    relation(kw, u"iKeywordRelScheduleKey"_s, schedule);
    const qint32 target = add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"QA copy"_s}});
    ASSERT_TRUE(backup->CopyKeywords(app, add(u"tApp"_s, {{u"sAppName"_s, u"Target"_s}}), conn, false));
    progress.events.clear();
    ASSERT_TRUE(backup->CopySchedules(environment, target, conn)) << shown();
    const std::vector<qint32> schedules = ints(u"SELECT * FROM tSchedule WHERE iScheduleEnvironKey=%1"_s.arg(target), u"iScheduleKey"_s);
    ASSERT_EQ(schedules.size(), 1u);
    expectCopy(u"tSchedule"_s, schedule, schedules[0], {{u"iScheduleEnvironKey"_s, target}});
    EXPECT_EQ(ints(u"SELECT * FROM tScheduleCycles WHERE iScheduleKey=%1 ORDER BY iCycleSequenceNum"_s.arg(schedules[0]), u"iCycleKey"_s),
              (std::vector<qint32>{newC1, 0}));
    EXPECT_TRUE(relationKeywords(u"iKeywordRelScheduleKey"_s, schedules[0]) == std::vector<qint32>{newKey(u"keyword"_s, kw)} && progress.events.isEmpty());

    abortOn(u"tCycleProcess"_s, u"INSERT"_s);
    EXPECT_FALSE(backup->CopyCycles(source, destination, conn));
    expectFailure(u"Error while copying Cycle Processes:"_s);
    abortOn(u"tScheduleCycles"_s, u"INSERT"_s);
    EXPECT_FALSE(backup->CopySchedules(environment, target, conn));
    expectFailure(u"Error while copying Schedule Cycles:"_s);
}

// The fix-up runs in the database, but by the rules of FixUpStepArguments:
// every text of the destination version comes out as that function makes
// it, through the run's maps; a Null text stays Null, and the steps of
// other versions keep their texts.
TEST_P(CopyPrimitivesTest, StepFixUpFollowsTheRulesToTheLetterInTheDestinationVersionOnly)
{
    backup->SetMap(conn, u"process"_s, {{17, 230}, {-5, 6}});
    backup->SetMap(conn, u"variable"_s, {{12, 40}, {13, 41}});
    const auto mapped = [this](const QString& map) { return [this, map](qint32 key) { return newKey(map, key); }; };
    const Built copied = build(app, {{u"2.1"_s, {u"w"_s}, {{u"Copied"_s, {u"w"_s}}}}});
    const qint32 elsewhere = build(app, {{u"1.1"_s, {u"w"_s}, {{u"Original"_s, {u"w"_s}}}}})[u"Original/w"_s];
    const qint32 untouched = add(u"tStep"_s, {{u"iStepWindowKey"_s, elsewhere}, {u"sStepArguments"_s, u"ProcessKey=17"_s}});
    int sequence = 1; // after the builder's step, whose text is Null
    const auto step = [&](const QString& arguments) {
        return add(u"tStep"_s, {{u"iStepWindowKey"_s, copied[u"Copied/w"_s]}, {u"iStepSequenceNum"_s, ++sequence}, {u"sStepArguments"_s, arguments}});
    };
    const QString texts[] = {u"ProcessKey=17"_s, u"Run ProcessKey=17 now"_s, u"ProcessKey=99"_s, u"ProcessKey= \t-5x"_s,
                             u"ProcessKey="_s, u"ProcessKey=+17"_s, u"processkey=17"_s, u"ProcessKey=17 =@[1|12]"_s,
                             u"Value=@[5|12]"_s, u"=@[5|12] and =@x[6| 13]"_s, u"=@[5|12"_s, u"=@[5 12]"_s, u"a=@b[|]"_s,
                             u"=@[[1|2]]"_s, u"x=@[1|12]y=@[2|99]z"_s, u"=@"_s, u"[1|12]"_s, u"Wert=@[ 7| 13] ünd"_s,
                             u"=@[1|-13]"_s, u"=@[1|\t+0012x]"_s, u"=@[1|000000000013]"_s, u"=@[1|1234567890]"_s,
                             u"=@[1|  13 ]"_s, u"=@[1|1 3]"_s, u"=@[1| ]"_s, u"=@[1|000000013]"_s, u"=@[1|999999999]"_s,
                             u"ProcessKey=000000000017"_s, u"ProcessKey=2147483647"_s};
    std::vector<std::pair<qint32, QString>> steps;
    for (const QString& text : texts)
        steps.emplace_back(step(text), text);
    ASSERT_TRUE(backup->FixUpSteps(copied.version, conn)) << shown();
    for (const auto& [key, text] : steps) {
        const QByteArray utf8 = text.toUtf8();
        const QString expected = QString::fromUtf8(FixUpStepArguments(utf8, copied.version, mapped(u"process"_s), mapped(u"variable"_s)).value_or(utf8));
        EXPECT_EQ(value(u"tStep"_s, key, u"sStepArguments"_s).toString(), expected) << text.toStdString();
    }
    EXPECT_EQ(Rows(conn, u"SELECT sStepArguments FROM tStep WHERE iStepKey IN (%1, %2) ORDER BY iStepKey"_s.arg(copied[u"Copied/w/1"_s]).arg(untouched)),
              QStringList({u"<null>"_s, u"ProcessKey=17"_s}));
    EXPECT_EQ(progress.events.first(), u"action:Fixing up steps...."_s);

    // Texts without keys are not written at all; a text that is fails
    // with the fix-up's own prefix, which ends in a blank.
    abortOn(u"tStep"_s, u"UPDATE"_s);
    conn.Execute(u"DELETE FROM tStep WHERE iStepWindowKey=%1 AND sStepArguments IS NOT NULL"_s.arg(copied[u"Copied/w"_s]));
    EXPECT_TRUE(backup->FixUpSteps(copied.version, conn)) << shown();
    step(u"ProcessKey=17"_s);
    EXPECT_FALSE(backup->FixUpSteps(copied.version, conn));
    expectFailure(u"Error while fixing up steps: "_s);

    // A key past 32 bits fails the fix-up, whichever side of the database
    // the rules run on, and writes nothing.
    dropAbort(u"tStep"_s, u"UPDATE"_s);
    const qint32 later = step(u"Run ProcessKey=17"_s);
    step(u"ProcessKey=99999999999"_s);
    EXPECT_FALSE(backup->FixUpSteps(copied.version, conn));
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown.first().startsWith(u"Error while fixing up steps: "_s) && messages.shown.first().contains(u"Overflow"_s)) << shown();
    EXPECT_EQ(value(u"tStep"_s, later, u"sStepArguments"_s).toString(), u"Run ProcessKey=17"_s);
}

INSTANTIATE_TEST_SUITE_P(Backends, CopyPrimitivesTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
