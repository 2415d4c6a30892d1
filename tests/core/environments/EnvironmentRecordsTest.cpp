// The environment definition: name normalisation and the folder-name
// check, the save prompt, Save with its uniqueness check and detail rows,
// the refusals of Save As, Delete and its refusal, and the rollbacks; the
// configuration page (Add with its checks and questions, the step windows
// it takes over, Remove and its refusal, the drop-down choices) and the
// users page (registrations and module rights, the shared current-user
// key).

#include "core/environments/EnvironmentConfig.h"
#include "core/environments/EnvironmentFixture.h"
#include "core/environments/EnvironmentUsers.h"
#include "core/users/UserRecords.h"

using namespace dorvane;
using namespace dorvane::test;

TEST(EnvironmentNames, SaveAsAloneReplacesTheFullStopAndOnlySafeFolderNamesAreAccepted)
{
    const std::tuple<QString, QString, QString> cases[] = {
        {u"Test/Env?"_s, u"Test_Env_"_s, u"Test_Env_"_s},
        {u"Release 1.0"_s, u"Release 1.0"_s, u"Release 1_0"_s},
        {u"a?b!c/d\"e*f'g]h[i.j k"_s, u"a_b_c_d_e_f_g_h_i.j k"_s, u"a_b_c_d_e_f_g_h_i_j k"_s},
        // What else a Windows folder name cannot hold, and blanks at the ends.
        {u"  Prod\\EU:Q3<a>|b  "_s, u"Prod_EU_Q3_a__b"_s, u"Prod_EU_Q3_a__b"_s},
        {u"../../../../x"_s, u".._.._.._.._x"_s, u"____________x"_s},
        {u"Semi;colon"_s, u"Semi;colon"_s, u"Semi;colon"_s},
        {u"Prod-EU Q3"_s, u"Prod-EU Q3"_s, u"Prod-EU Q3"_s},
    };
    for (const auto& [typed, forSave, forSaveAs] : cases) {
        EXPECT_EQ(NormaliseEnvironNameForSave(typed), forSave) << typed.toStdString();
        EXPECT_EQ(NormaliseEnvironNameForSaveAs(typed), forSaveAs) << typed.toStdString();
    }
    // Only names that make one safe folder are accepted.
    const std::pair<QString, QString> problems[] = { // the name, how the problem starts (empty: accepted)
        {u"Release 1.0"_s, {}},
        {u"Semi;colon"_s, {}},
        {u"Ünïcødé €"_s, {}},
        {u"   "_s, u"Environment name cannot be blank"_s},
        {u"Tab\there"_s, u"Environment name cannot contain control characters"_s},
        {u"../../x"_s, u"Environment name cannot contain any of"_s},
        {u"a\\b"_s, u"Environment name cannot contain any of"_s},
        {u" lead"_s, u"Environment name cannot begin or end with a blank"_s},
        {u".."_s, u"Environment name cannot consist of full stops only"_s},
        {u"Release 1."_s, u"Environment name cannot end with a full stop"_s},
        {QString(256, u'x'), u"Environment name is too long for a folder name"_s},
        {QString(128, u'é'), u"Environment name is too long for a folder name"_s},
        {u"con"_s, u"Environment name cannot be con"_s},
        {u"LPT1.old"_s, u"Environment name cannot be LPT1"_s},
    };
    for (const auto& [name, start] : problems) {
        const QString problem = EnvironFolderNameProblem(name);
        EXPECT_TRUE(start.isEmpty() ? problem.isEmpty() : problem.startsWith(start)) << name.toStdString() << ": " << problem.toStdString();
    }
}

// One prompt for both parts; Yes saves both and the configuration's outcome
// replaces the definition's; No leaves, Cancel stays.
TEST(EnvironmentEditState, OnePromptForBothPartsAndYesSavesBoth)
{
    ScriptedMessages messages;
    int saves = 0;
    const std::function<bool()> ok = [&] { return ++saves > 0; }, failed = [&] { return ++saves < 0; };
    EXPECT_TRUE(!EnvironExitCancel(false, false, messages, ok, ok) && messages.shown.isEmpty());
    const std::tuple<bool, bool, std::function<bool()>, std::function<bool()>, Answer, bool, int> cases[] = {
        {true, true, ok, ok, Answer::Yes, false, 2},         {true, true, failed, ok, Answer::Yes, false, 2},
        {true, true, ok, failed, Answer::Yes, true, 2},      {true, false, failed, ok, Answer::Yes, true, 1},
        {false, true, ok, ok, Answer::No, false, 0},         {false, true, ok, ok, Answer::Cancel, true, 0},
    };
    for (const auto& [definitionDirty, configDirty, saveDefinition, saveConfig, answer, stays, saved] : cases) {
        saves = 0;
        messages.Queue(answer);
        const bool stayed = EnvironExitCancel(definitionDirty, configDirty, messages, saveDefinition, saveConfig);
        EXPECT_EQ(std::tuple(stayed, std::exchange(messages.shown, {}), saves), std::tuple(stays, QStringList{u"Save changes to this Environment?"_s}, saved));
    }
}

using EnvironmentRecordsTest = EnvironmentTest;

TEST_P(EnvironmentRecordsTest, SaveStoresTheNormalisedNameAndTheDetailRowsAndRefusesTakenAndBlankNames)
{
    const qint32 app = addApp(u"Billing"_s);
    const qint32 v1 = addVersion(app, u"1"_s), v2 = addVersion(app, u"2"_s), v3 = addVersion(app, u"3"_s);
    const qint32 other = addEnvironment(u"Other"_s);
    addDetail(other, v3);
    definition.New();
    definition.TextChanged(EnvironField::Name, false);
    ASSERT_TRUE(definition.Save({u"Test/Env?"_s, u"QA"_s, {v2, v1}}, conn, messages).Ok) << shown();
    const qint32 key = environmentNamed(u"Test_Env_"_s);
    ASSERT_NE(key, 0);
    EXPECT_EQ(rows(u"SELECT sEnvironmentDesc FROM tEnvironment WHERE iEnvironmentKey=%1"_s.arg(key)), QStringList{u"QA"_s});
    EXPECT_EQ(listed(key), (std::vector<qint32>{v2, v1})) << "one row per listed version, in list order";
    // Saved again: the same row, the full stop kept; a stored environment
    // adds rows only for versions no environment lists.
    ASSERT_TRUE(definition.Save({u"Release 1.0"_s, {}, {v1, v2, v3, addVersion(app, u"4"_s)}}, conn, messages).Ok);
    EXPECT_EQ(std::tuple(count(u"SELECT * FROM tEnvironment"_s), environmentNamed(u"Release 1.0"_s), listed(key).size()), std::tuple(2, key, 3u));
    EXPECT_EQ(listed(other), std::vector<qint32>{v3});

    // Names that normalise alike collide; Save As excludes no key, so its
    // own name (in any letter case) is taken; a blank name is refused by both.
    definition.New();
    ASSERT_TRUE(definition.Save({u"A?"_s, {}, {}}, conn, messages).Ok);
    definition.New();
    EXPECT_EQ(definition.Save({u"A!"_s, {}, {}}, conn, messages).FocusField, kTxtEnvironName);
    EXPECT_FALSE(conn.InTransaction()) << "nothing is left open";
    EXPECT_EQ(definition.Save({QString(), {}, {}}, conn, messages).FocusField, kTxtEnvironName);
    EXPECT_EQ(definition.SaveAs({QString(), {}, {}}, copier(), messages).FocusField, kTxtEnvironName);
    ASSERT_TRUE(definition.Save({u"B"_s, {}, {}}, conn, messages).Ok);
    ASSERT_TRUE(definition.Open(0, environmentNamed(u"B"_s), conn, messages).Ok);
    addEnvironment(u"Release 1_0"_s);
    const QStringList before = dump();
    EXPECT_TRUE(definition.Save({u"B"_s, {}, {}}, conn, messages).Ok) << "Save keeps its own name";
    EXPECT_EQ(definition.SaveAs({u"b"_s, {}, {}}, copier(), messages).FocusField, kTxtEnvironName);
    EXPECT_FALSE(definition.SaveAs({u"Release 1.0"_s, {}, {}}, copier(), messages).Ok);
    EXPECT_EQ(taken(), QStringList({"A! already exists - please choose another ID", "Environment name cannot be blank",
                                           "Environment name cannot be blank", "b already exists - please choose another ID",
                                           "Release 1_0 already exists - please choose another ID"}));
    EXPECT_TRUE(prompt.labels.isEmpty() && dump() == before);
}

// Delete takes the detail and user rows with it (another environment's
// stay, and its step windows do not hold this one); it is refused while a
// step window runs in the environment; a failed Save or Delete rolls back.
TEST_P(EnvironmentRecordsTest, DeleteAndItsRefusalsAndRollbacks)
{
    const qint32 app = addApp(u"Billing"_s);
    const qint32 v1 = addVersion(app, {u"1"_s, {u"[System Screen]"_s, u"frmMain1"_s}}), v2 = addVersion(app, u"2"_s);
    const qint32 user = addUser(u"jd"_s);
    const qint32 env = addEnvironment(u"Prod"_s), other = addEnvironment(u"Other"_s);
    for (const auto& [e, v] : {std::pair{env, v1}, std::pair{other, v2}}) {
        addDetail(e, v);
        registerUser(e, user);
    }
    addProcessOn(v2, 0, other, u"Login"_s);
    const qint32 held = addProcessOn(v1, 0, env, u"Login"_s);
    ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    QStringList before = dump();
    EXPECT_FALSE(definition.Delete(false, conn, messages).Ok) << "nothing selected: nothing happens";
    EXPECT_FALSE(definition.Delete(true, conn, messages).Ok);
    EXPECT_EQ(taken(), QStringList{u"This environment is referenced in existing steps and cannot be deleted"_s});
    EXPECT_EQ(dump(), before);

    conn.Execute(u"DELETE FROM tStepWindow WHERE iStepWindowProcessKey=%1"_s.arg(held));
    before = dump();
    abortOn(u"tEnvironment"_s, u"DELETE"_s);
    EXPECT_FALSE(definition.Delete(true, conn, messages).Ok);
    expectFailure(u"Error while deleting environment: "_s);
    EXPECT_EQ(dump(), before);
    dropAbort(u"tEnvironment"_s, u"DELETE"_s);

    ASSERT_TRUE(definition.Delete(true, conn, messages).Ok) << shown();
    EXPECT_EQ(rows(u"SELECT iEnvironKey FROM tEnvironmentDetail UNION ALL SELECT iEnvironKey FROM tEnvironmentUser "
                   u"UNION ALL SELECT iEnvironmentKey FROM tEnvironment"_s),
              QStringList({QString::number(other), QString::number(other), QString::number(other)}));

    abortOn(u"tEnvironmentDetail"_s, u"INSERT"_s);
    definition.New();
    EXPECT_FALSE(definition.Save({u"Prod"_s, {}, {v1}}, conn, messages).Ok);
    expectFailure(u"Error while saving environment definition : "_s);
    EXPECT_TRUE(environmentNamed(u"Prod"_s) == 0 && !conn.InTransaction());
}

// Two names that would name one backup folder (equal but for letter case,
// as the folder lookup compares, Unicode's case folding included) cannot
// both be environments, whether or not the database tells them apart (a
// pair written by another program: EnvironmentBackupTest).
TEST_P(EnvironmentRecordsTest, NamesThatShareABackupFolderCannotBothBeEnvironments)
{
    const struct { QString stored, typed, note; } pairs[] = {
        {u"ΟΔΟΣ"_s, u"οδος"_s, u" (ΟΔΟΣ has one backup folder with it)"_s},  // final sigma
        {u"Sx"_s, u"ſx"_s, u" (Sx has one backup folder with it)"_s},        // long s
        {u"Тест"_s, u"ТЕСТ"_s, QString()},                                    // Cyrillic, beyond SQLite's NOCASE
        {u"Prod"_s, u"PROD"_s, QString()},
    };
    for (const auto& [stored, typed, note] : pairs) {
        SCOPED_TRACE(typed.toStdString());
        const qint32 key = addEnvironment(stored);
        definition.New();
        EXPECT_FALSE(definition.Save({typed, {}, {}}, conn, messages).Ok);
        ASSERT_TRUE(definition.Open(0, key, conn, messages).Ok);
        EXPECT_FALSE(definition.SaveAs({typed, {}, {}}, copier(), messages).Ok);
        EXPECT_EQ(taken(), QStringList(2, typed + u" already exists - please choose another ID"_s + note));
        EXPECT_EQ(count(u"SELECT * FROM tEnvironment"_s), 1);
        EXPECT_TRUE(definition.Save({stored, u"Kept"_s, {}}, conn, messages).Ok) << "its own name stays free for it";
        conn.Execute(u"DELETE FROM tEnvironment"_s);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentRecordsTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });

// ---- the configuration and users pages ----

class EnvironmentConfigTest : public EnvironmentTest {
protected:
    void SetUp() override
    {
        EnvironmentTest::SetUp();
        env = addEnvironment(u"Prod"_s);
        billing = addApp(u"Billing"_s);
        host = addApp(u"Ledger"_s, {}, kPlatform3270, 2);
        b1 = addVersion(billing, u"1"_s);
        b2 = addVersion(billing, u"2"_s);
        b3 = addVersion(billing, u"3"_s);
        l1 = addVersion(host, u"L1"_s);
        mainframe = ints(u"SELECT * FROM tTestTool WHERE sTestToolName='Mainframe'"_s, u"iTestToolKey"_s).front();
        other = ints(u"SELECT * FROM tTestTool WHERE sTestToolName<>'Mainframe'"_s, u"iTestToolKey"_s).front();
        emulator = ints(u"SELECT * FROM t3270 WHERE i3270Key > 0"_s, u"i3270Key"_s).front();
        ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    }

    // Billing version `v` with the non-host tool and no emulator.
    EnvironConfigInput choose(qint32 v, const ListEntries& entries = {}, qint32 tool = -1)
    {
        return {billing, u"Billing"_s, v, value(u"tVersion"_s, v, u"sVersionID"_s).toString(), tool == -1 ? other : tool,
                tool == mainframe ? u"Mainframe"_s : u"QuickTest"_s, std::nullopt, QString(), entries};
    }
    std::vector<qint32> stepEnvironments(const QString& processes)
    {
        return ints(u"SELECT * FROM tStepWindow WHERE iStepWindowProcessKey IN (%1) ORDER BY iStepWindowKey"_s.arg(processes),
                    u"iStepWindowEnvironmentKey"_s);
    }

    qint32 env = 0, billing = 0, host = 0, b1 = 0, b2 = 0, b3 = 0, l1 = 0, mainframe = 0, other = 0, emulator = 0;
};

// Add's checks speak in order, the first failing one only, and write
// nothing; a version of another environment is refused with that
// environment's stored name. Then Add writes the row (emulator 0 without
// one) and takes every step window of the version into the environment;
// added again while listed, the same row takes the new tool and emulator
// without a question.
TEST_P(EnvironmentConfigTest, AddChecksItsInputThenWritesTheRowAndTakesTheVersionsStepWindows)
{
    EnvironmentConfig config(definition);
    EnvironConfigInput noVersion = choose(b1), noEmulator = choose(b1, {}, mainframe), noTool = choose(b1);
    noVersion.VersionKey.reset();
    noVersion.TestToolText.clear();
    noTool.TestToolKey.reset();
    noTool.TestToolText.clear();
    addDetail(addEnvironment(u"Test_Env_"_s), b2);
    for (const EnvironConfigInput& input : {noVersion, noEmulator, noTool, choose(b2)})
        EXPECT_FALSE(config.Add(input, conn, messages).Ok);
    EXPECT_EQ(taken(), QStringList({"You must select an application and version to add",
                                           "You must select an emulator for host platforms",
                                           "You must select a test tool for this application version",
                                           "This application version already exists in another environment (Test_Env_)"}));
    EXPECT_TRUE(listed(env).empty());

    const qint32 elsewhere = addEnvironment(u"Elsewhere"_s);
    const qint32 p1 = addProcessOn(b1, 0, elsewhere, u"Login"_s), p2 = addProcessOn(b1, 0, 0, u"Logout"_s);
    add(u"tStepWindow"_s, {{u"iStepWindowProcessKey"_s, p2}, {u"iStepWindowEnvironmentKey"_s, 0}});
    const qint32 unrelated = addProcessOn(b2, 0, elsewhere, u"Other"_s);
    config.MarkDirty();
    const EnvironAddOutcome added = config.Add(choose(b1), conn, messages);
    ASSERT_TRUE(added.Ok) << shown();
    EXPECT_EQ(added.NewEntry, (ListEntry{u"Billing - 1"_s, b1}));
    EXPECT_EQ(std::tuple(listed(env, u"iEnviron3270Key"_s), stepEnvironments(u"%1, %2"_s.arg(p1).arg(p2)), stepEnvironments(QString::number(unrelated))),
              std::tuple(std::vector<qint32>{0}, std::vector<qint32>(3, env), std::vector<qint32>{elsewhere}));

    EnvironConfigInput again = choose(b1, {*added.NewEntry}, mainframe);
    again.EmulatorKey = emulator;
    again.EmulatorText = u"IBM PCOMM"_s;
    const EnvironAddOutcome changed = config.Add(again, conn, messages);
    ASSERT_TRUE(changed.Ok && !changed.NewEntry);
    EXPECT_EQ(std::pair(listed(env, u"iEnvironTestToolKey"_s), listed(env, u"iEnviron3270Key"_s)),
              std::pair(std::vector<qint32>{mainframe}, std::vector<qint32>{emulator}));
}

// A second version of an application is asked once per listed version.
// Remove is refused while a step window of this environment uses the
// version; for a new environment, with no rows to delete, only the entry goes.
TEST_P(EnvironmentConfigTest, ASecondVersionIsAskedForAndRemoveIsRefusedWhileAStepWindowUsesTheVersion)
{
    EnvironmentConfig config(definition);
    const ListEntries entries = {{u"Billing - 1"_s, b1}, {u"Ledger - L1"_s, l1}, {u"Billing - 2"_s, b2}};
    for (const qint32 v : {b1, l1, b2})
        addDetail(env, v);
    const QString question = u"Are you sure you want multiple versions of this application in the same environment?"_s;
    // Yes to the first, No to the second: nothing is written.
    const qint32 process = addProcessOn(b3, 0, 0, u"Login"_s);
    messages.Queue(Answer::Yes);
    messages.Queue(Answer::No);
    EXPECT_FALSE(config.Add(choose(b3, entries), conn, messages).Ok);
    EXPECT_EQ(std::pair(listed(env).size(), stepEnvironments(QString::number(process))), std::pair(size_t(3), std::vector<qint32>{0}));
    messages.Queue(Answer::Yes);
    messages.Queue(Answer::Yes);
    ASSERT_TRUE(config.Add(choose(b3, entries), conn, messages).Ok);
    EXPECT_EQ(taken(), QStringList({question, question, question, question}));
    EXPECT_EQ(listed(env), (std::vector<qint32>{b1, l1, b2, b3}));

    addProcessOn(b1, 0, env, u"Login"_s);
    addProcessOn(b2, 0, 0, u"Login"_s);
    EXPECT_FALSE(config.Remove(std::nullopt, conn, messages).Ok);
    EXPECT_FALSE(config.Remove(b1, conn, messages).Ok);
    EXPECT_EQ(taken(), QStringList{u"Error: This application version is referenced in existing steps and cannot be removed"_s});
    EXPECT_TRUE(config.Remove(b2, conn, messages).Ok);
    EXPECT_EQ(listed(env), (std::vector<qint32>{b1, l1, b3}));
    EnvironmentRecords fresh;
    fresh.New();
    EXPECT_TRUE(EnvironmentConfig(fresh).Remove(b1, conn, messages).Ok);
    EXPECT_EQ(listed(env), (std::vector<qint32>{b1, l1, b3}));
}

TEST_P(EnvironmentConfigTest, TheDropDownsFollowTheChosenApplicationAndListedVersion)
{
    EnvironmentConfig config(definition);
    EXPECT_EQ(std::pair(config.ChooseApp(host, conn, messages).PreselectEmulator, config.ChooseApp(billing, conn, messages).PreselectEmulator),
              std::pair(std::optional<qint32>(2), std::optional<qint32>()));
    EXPECT_TRUE(config.ChooseTestTool(mainframe, false, conn, messages).EmulatorUsable && !config.ChooseTestTool(other, false, conn, messages).EmulatorUsable
                && !config.ChooseTestTool(mainframe, true, conn, messages).Ok);
    addDetail(env, l1, mainframe, emulator);
    addDetail(env, b2, other, emulator);
    EXPECT_EQ(config.HighlightListed(l1, false, conn, messages).EmulatorKey, emulator);
    // Not a host platform: the emulator is left unselected.
    EXPECT_FALSE(config.HighlightListed(b2, false, conn, messages).EmulatorKey);
}

// What the page's flow does not show: the lists' order, Add without a
// user, and a highlight while the boxes are being set.
TEST_P(EnvironmentConfigTest, UserRegistrationsAndRightsAreWrittenOneAtATime)
{
    const qint32 jo = addUser(u"jo"_s, u"Jo"_s, u"Zed"_s), al = addUser(u"al"_s, u"Al"_s, u"Bee"_s);
    CurrentUserKey current;
    EnvironmentUsers users(definition, current);
    EXPECT_EQ(users.Refresh(conn, messages).Unregistered, (ListEntries{{u"Al Bee"_s, al}, {u"Jo Zed"_s, jo}}));
    EXPECT_FALSE(users.Add(std::nullopt, conn, messages));
    ASSERT_TRUE(users.Add(jo, conn, messages));
    EXPECT_EQ(users.Refresh(conn, messages).Registered, (ListEntries{{u"Jo Zed"_s, jo}}));
    EXPECT_TRUE(users.SetRight(ModuleRight::Zulane, true, jo, false, conn, messages));
    EXPECT_EQ(users.Highlight(jo, false, conn, messages), (ModuleRights{false, false, true, false, false}));
    EXPECT_FALSE(users.SetRight(ModuleRight::Dorvane, true, jo, true, conn, messages));
    EXPECT_FALSE(users.Highlight(al, true, conn, messages));
    EXPECT_EQ(current.Get(), jo);
    EXPECT_EQ(rows(u"SELECT bDorvane, bOmrik, bZulane, bVantrel, bKrestin FROM tEnvironmentUser"_s), QStringList{u"0|0|-1|0|0"_s});
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentConfigTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
