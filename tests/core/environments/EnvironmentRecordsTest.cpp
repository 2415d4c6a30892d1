// The environment definition: name normalisation and the folder-name
// check, the save prompt, Save with its
// uniqueness check and detail rows, the refusals of Save As, Delete and
// its refusal, and the rollbacks.

#include "core/environments/EnvironmentFixture.h"

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
