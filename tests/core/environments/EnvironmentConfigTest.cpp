// The configuration page (Add with its checks and questions, the step
// windows it takes over, Remove and its refusal, the drop-down choices) and
// the users page (registrations and module rights, the shared current-user
// key).

#include "core/environments/EnvironmentConfig.h"
#include "core/environments/EnvironmentFixture.h"
#include "core/environments/EnvironmentUsers.h"
#include "core/users/UserRecords.h"

using namespace dorvane;
using namespace dorvane::test;

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
