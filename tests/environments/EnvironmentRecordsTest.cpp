// The environment definition: name normalisation, Save with its uniqueness
// check and detail rows, the refusals of Save As, Delete and its refusal,
// the controls' states and the environment's save prompt.

#include "environments/EnvironmentFixture.h"

using namespace dorvane;
using namespace dorvane::test;
using namespace Qt::StringLiterals;

namespace {

EnvironDefinitionInput Input(const QString& name, const QString& description = QString(),
                             QVector<qint32> versions = {})
{
    EnvironDefinitionInput input;
    input.Name = name;
    input.Description = description;
    input.ListedVersionKeys = std::move(versions);
    return input;
}

} // namespace

TEST(EnvironmentNames, SaveAndSaveAsReplaceTheirCharactersButOnlySaveAsTheFullStop)
{
    struct Case {
        QString typed, forSave, forSaveAs;
    };
    const Case cases[] = {
        {u"Test/Env?"_s, u"Test_Env_"_s, u"Test_Env_"_s},
        {u"Release 1.0"_s, u"Release 1.0"_s, u"Release 1_0"_s},
        {u"a?b!c/d\"e*f'g]h[i.j k"_s, u"a_b_c_d_e_f_g_h_i.j k"_s, u"a_b_c_d_e_f_g_h_i_j k"_s},
        // What else a Windows folder name cannot hold, and blanks at the ends.
        {u"  Prod\\EU:Q3<a>|b  "_s, u"Prod_EU_Q3_a__b"_s, u"Prod_EU_Q3_a__b"_s},
        {u"../../../../x"_s, u".._.._.._.._x"_s, u"____________x"_s},
        {u"Semi;colon"_s, u"Semi;colon"_s, u"Semi;colon"_s},
        {u"Prod-EU Q3"_s, u"Prod-EU Q3"_s, u"Prod-EU Q3"_s},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(NormaliseEnvironNameForSave(c.typed), c.forSave) << c.typed.toStdString();
        EXPECT_EQ(NormaliseEnvironNameForSaveAs(c.typed), c.forSaveAs) << c.typed.toStdString();
    }
}

TEST(EnvironmentNames, OnlyNamesThatMakeOneSafeFolderAreAccepted)
{
    struct Case {
        QString name;
        QString problemStart;  // empty: accepted
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        const QString problem = EnvironFolderNameProblem(c.name);
        if (c.problemStart.isEmpty())
            EXPECT_TRUE(problem.isEmpty()) << c.name.toStdString() << ": " << problem.toStdString();
        else
            EXPECT_TRUE(problem.startsWith(c.problemStart)) << c.name.toStdString() << ": " << problem.toStdString();
    }
}

TEST(EnvironmentControls, FollowTheStatesOfTheDefinitionPane)
{
    const EnvironDefinitionControls empty = EnvironControlsAfterNew();
    EXPECT_EQ(empty, EnvironDefinitionControls{});

    // New environment: typing enables Save only.
    const EnvironDefinitionControls typedNew = EnvironControlsAfterEdit(empty, EnvironField::Name, true);
    EXPECT_TRUE(typedNew.SaveEnabled);
    EXPECT_FALSE(typedNew.SaveAsEnabled);
    EXPECT_FALSE(typedNew.DeleteEnabled);
    EXPECT_FALSE(typedNew.TabsEnabled);

    const EnvironDefinitionControls loaded = EnvironControlsAfterOpen();
    EXPECT_EQ(loaded, (EnvironDefinitionControls{false, false, true, true}));
    EXPECT_EQ(EnvironControlsAfterEdit(loaded, EnvironField::Name, false),
              (EnvironDefinitionControls{true, true, true, true}));
    EXPECT_EQ(EnvironControlsAfterEdit(loaded, EnvironField::Description, false),
              (EnvironDefinitionControls{true, false, true, true}));
    // The description leaves Save As as the name made it.
    const EnvironDefinitionControls renamed = EnvironControlsAfterEdit(loaded, EnvironField::Name, false);
    EXPECT_TRUE(EnvironControlsAfterEdit(renamed, EnvironField::Description, false).SaveAsEnabled);

    EXPECT_EQ(EnvironControlsAfterSave(renamed), (EnvironDefinitionControls{false, false, true, true}));
    // Delete stays as it was before the save.
    EXPECT_EQ(EnvironControlsAfterSave(typedNew), (EnvironDefinitionControls{false, false, false, true}));
}

TEST(EnvironmentEditState, EditsWhileTheProgramFillsTheBoxesDoNotCount)
{
    EnvironmentRecords records;
    records.TextChanged(EnvironField::Name, true);
    EXPECT_FALSE(records.EnvironDirty());
    EXPECT_FALSE(records.Controls().SaveEnabled);
    records.TextChanged(EnvironField::Description, false);
    EXPECT_TRUE(records.EnvironDirty());
    EXPECT_TRUE(records.Controls().SaveEnabled);
}

TEST(EnvironmentEditState, OnePromptForBothPartsAndYesSavesBoth)
{
    ScriptedMessages messages;
    int saves = 0;
    const auto ok = [&] { ++saves; return true; };
    const auto failed = [&] { ++saves; return false; };

    EXPECT_FALSE(EnvironExitCancel(false, false, messages, ok, ok));
    EXPECT_TRUE(messages.shown.isEmpty());

    messages.Queue(Answer::Yes);
    EXPECT_FALSE(EnvironExitCancel(true, true, messages, ok, ok));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to this Environment?")});
    EXPECT_EQ(saves, 2);

    // The configuration's outcome replaces the definition's.
    saves = 0;
    messages.Queue(Answer::Yes);
    EXPECT_FALSE(EnvironExitCancel(true, true, messages, failed, ok));
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(EnvironExitCancel(true, true, messages, ok, failed));
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(EnvironExitCancel(true, false, messages, failed, ok));
    EXPECT_EQ(saves, 5);

    saves = 0;
    messages.Queue(Answer::No);
    EXPECT_FALSE(EnvironExitCancel(false, true, messages, ok, ok));
    messages.Queue(Answer::Cancel);
    EXPECT_TRUE(EnvironExitCancel(false, true, messages, ok, ok));
    EXPECT_EQ(saves, 0);
}

class EnvironmentRecordsTest : public EnvironmentTest {};

TEST_P(EnvironmentRecordsTest, SaveStoresTheNormalisedNameAndShowsTheConfiguration)
{
    const qint32 app = addApp(QStringLiteral("Billing"));
    const qint32 v1 = addVersion(app, QStringLiteral("1"));
    const qint32 v2 = addVersion(app, QStringLiteral("2"));

    definition.New();
    definition.TextChanged(EnvironField::Name, false);
    const EnvironOutcome saved = definition.Save(Input(QStringLiteral("Test/Env?"), QStringLiteral("QA"), {v2, v1}), conn, messages);
    ASSERT_TRUE(saved.Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty());

    const qint32 key = environmentNamed(QStringLiteral("Test_Env_"));
    ASSERT_NE(key, 0);
    EXPECT_EQ(definition.CurrentEnvironKey(), key);
    EXPECT_EQ(definition.CurrentEnvironName(), QStringLiteral("Test_Env_"));
    EXPECT_EQ(value(QStringLiteral("tEnvironment"), key, QStringLiteral("sEnvironmentDesc")).toString(), QStringLiteral("QA"));
    // A new environment's detail rows: one per listed version, in list order.
    EXPECT_EQ(ints(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(key),
                   QStringLiteral("iEnvironVerKey")),
              (std::vector<qint32>{v2, v1}));

    EXPECT_EQ(saved.ShowTab, kEnvironConfigurationTab);
    EXPECT_EQ(saved.SelectEnvironKey, key);
    EXPECT_TRUE(saved.RefreshEnvironList);
    EXPECT_TRUE(saved.RefreshEnvironUsers);
    EXPECT_TRUE(saved.Controls.TabsEnabled);
    EXPECT_FALSE(saved.Controls.SaveEnabled);
    EXPECT_FALSE(definition.EnvironDirty());

    // Saved again: the same row, no second one; the full stop is kept.
    const EnvironOutcome again = definition.Save(Input(QStringLiteral("Release 1.0")), conn, messages);
    ASSERT_TRUE(again.Ok);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironment")), 1);
    EXPECT_EQ(environmentNamed(QStringLiteral("Release 1.0")), key);
}

TEST_P(EnvironmentRecordsTest, SaveOfAStoredEnvironmentAddsRowsOnlyForVersionsNoEnvironmentLists)
{
    const qint32 app = addApp(QStringLiteral("Billing"));
    const qint32 mine = addVersion(app, QStringLiteral("1"));
    const qint32 elsewhere = addVersion(app, QStringLiteral("2"));
    const qint32 fresh = addVersion(app, QStringLiteral("3"));
    const qint32 env = addEnvironment(QStringLiteral("Prod"));
    const qint32 other = addEnvironment(QStringLiteral("Other"));
    addDetail(env, mine);
    addDetail(other, elsewhere);

    ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    ASSERT_TRUE(definition.Save(Input(QStringLiteral("Prod"), QString(), {mine, elsewhere, fresh}), conn, messages).Ok);
    EXPECT_EQ(ints(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(env),
                   QStringLiteral("iEnvironVerKey")),
              (std::vector<qint32>{mine, fresh}));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail")), 3);
}

TEST_P(EnvironmentRecordsTest, NamesThatNormaliseAlikeCollide)
{
    definition.New();
    ASSERT_TRUE(definition.Save(Input(QStringLiteral("A?")), conn, messages).Ok);
    definition.New();
    const EnvironOutcome second = definition.Save(Input(QStringLiteral("A!")), conn, messages);
    EXPECT_FALSE(second.Ok);
    EXPECT_EQ(second.FocusField, kTxtEnvironName);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("A! already exists - please choose another ID")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironment")), 1);
    // Nothing is left open: the next save goes through.
    EXPECT_FALSE(conn.InTransaction());
    messages.shown.clear();
    EXPECT_TRUE(definition.Save(Input(QStringLiteral("B")), conn, messages).Ok);
}

TEST_P(EnvironmentRecordsTest, ABlankNameIsRefusedByBothSaves)
{
    definition.New();
    EXPECT_EQ(definition.Save(Input(QString()), conn, messages).FocusField, kTxtEnvironName);
    EXPECT_EQ(definition.SaveAs(Input(QString()), copier(), messages).FocusField, kTxtEnvironName);
    EXPECT_EQ(messages.shown, QStringList({QStringLiteral("Environment name cannot be blank"),
                                           QStringLiteral("Environment name cannot be blank")}));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironment")), 0);
}

TEST_P(EnvironmentRecordsTest, SaveAsExcludesNoKeySoItsOwnNameIsTaken)
{
    const qint32 env = addEnvironment(QStringLiteral("Prod"));
    ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    const QStringList before = dump();

    // Save keeps its own name; Save As refuses it, in any letter case.
    EXPECT_TRUE(definition.Save(Input(QStringLiteral("Prod")), conn, messages).Ok);
    const EnvironOutcome refused = definition.SaveAs(Input(QStringLiteral("PROD")), copier(), messages);
    EXPECT_FALSE(refused.Ok);
    EXPECT_EQ(refused.FocusField, kTxtEnvironName);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("PROD already exists - please choose another ID")});
    EXPECT_TRUE(prompt.labels.isEmpty());
    EXPECT_EQ(dump(), before);

    // The normalised name is what collides, and what the message names.
    addEnvironment(QStringLiteral("Release 1_0"));
    messages.shown.clear();
    EXPECT_FALSE(definition.SaveAs(Input(QStringLiteral("Release 1.0")), copier(), messages).Ok);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Release 1_0 already exists - please choose another ID")});
}

TEST_P(EnvironmentRecordsTest, AFailedSaveLeavesNoPartialEnvironment)
{
    const qint32 app = addApp(QStringLiteral("Billing"));
    const qint32 v1 = addVersion(app, QStringLiteral("1"));
    abortOn(QStringLiteral("tEnvironmentDetail"), QStringLiteral("INSERT"));
    definition.New();
    const EnvironOutcome saved = definition.Save(Input(QStringLiteral("Prod"), QString(), {v1}), conn, messages);
    EXPECT_FALSE(saved.Ok);
    expectFailure(QStringLiteral("Error while saving environment definition : "));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironment")), 0);
    EXPECT_FALSE(conn.InTransaction());
}

TEST_P(EnvironmentRecordsTest, DeleteIsRefusedWhileAStepWindowRefersToTheEnvironment)
{
    const qint32 app = addApp(QStringLiteral("Billing"));
    const qint32 v1 = addVersion(app, QStringLiteral("1"), 2);
    const qint32 env = addEnvironment(QStringLiteral("Prod"));
    addDetail(env, v1);
    const qint32 stepWindowProcess = addProcessOn(v1, 0, env, QStringLiteral("Login"));
    ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    const QStringList before = dump();

    EXPECT_FALSE(definition.Delete(false, conn, messages).Ok); // nothing selected: nothing happens
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_FALSE(definition.Delete(true, conn, messages).Ok);
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("This environment is referenced in existing steps and cannot be deleted")});
    EXPECT_EQ(dump(), before);
    (void)stepWindowProcess;
}

TEST_P(EnvironmentRecordsTest, DeleteTakesTheDetailAndUserRowsWithIt)
{
    const qint32 app = addApp(QStringLiteral("Billing"));
    const qint32 v1 = addVersion(app, QStringLiteral("1"));
    const qint32 v2 = addVersion(app, QStringLiteral("2"));
    const qint32 user = addUser(QStringLiteral("jd"), QStringLiteral("Jo"), QStringLiteral("Doe"));
    const qint32 env = addEnvironment(QStringLiteral("Prod"));
    const qint32 other = addEnvironment(QStringLiteral("Other"));
    addDetail(env, v1);
    addDetail(other, v2);
    for (const qint32 e : {env, other})
        add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), e}, {QStringLiteral("iUserKey"), user}});
    // A step window of another environment does not hold this one.
    addProcessOn(v2, 0, other, QStringLiteral("Login"));

    ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    const EnvironOutcome deleted = definition.Delete(true, conn, messages);
    ASSERT_TRUE(deleted.Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(deleted.RefreshEnvironList);
    EXPECT_TRUE(deleted.ClearForm);
    EXPECT_EQ(deleted.Controls, EnvironControlsAfterNew());
    EXPECT_TRUE(definition.EnvironIsNew());
    EXPECT_EQ(definition.CurrentEnvironKey(), 0);

    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1").arg(env)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(env)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(env)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(other)), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(other)), 1);
}

TEST_P(EnvironmentRecordsTest, AFailedDeleteRollsBack)
{
    const qint32 app = addApp(QStringLiteral("Billing"));
    const qint32 env = addEnvironment(QStringLiteral("Prod"));
    addDetail(env, addVersion(app, QStringLiteral("1")));
    ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    const QStringList before = dump();
    abortOn(QStringLiteral("tEnvironment"), QStringLiteral("DELETE"));
    EXPECT_FALSE(definition.Delete(true, conn, messages).Ok);
    expectFailure(QStringLiteral("Error while deleting environment: "));
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(definition.CurrentEnvironKey(), env);
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentRecordsTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
