// The configuration page (Add with its checks and questions, the step
// windows it takes over, Remove and its refusal, the drop-down choices) and
// the users page (registrations and module rights, the shared current-user
// key).

#include "environments/EnvironmentConfig.h"
#include "environments/EnvironmentFixture.h"
#include "environments/EnvironmentUsers.h"
#include "users/UserRecords.h"

using namespace dorvane;
using namespace dorvane::test;

class EnvironmentConfigTest : public EnvironmentTest {
protected:
    void SetUp() override
    {
        EnvironmentTest::SetUp();
        env = addEnvironment(QStringLiteral("Prod"));
        billing = addApp(QStringLiteral("Billing"));
        host = addApp(QStringLiteral("Ledger"), kPlatform3270, 2);
        b1 = addVersion(billing, QStringLiteral("1"));
        b2 = addVersion(billing, QStringLiteral("2"));
        b3 = addVersion(billing, QStringLiteral("3"));
        l1 = addVersion(host, QStringLiteral("L1"));
        mainframe = only(QStringLiteral("SELECT * FROM tTestTool WHERE sTestToolName='Mainframe'"), QStringLiteral("iTestToolKey"));
        other = only(QStringLiteral("SELECT * FROM tTestTool WHERE sTestToolName<>'Mainframe'"), QStringLiteral("iTestToolKey"));
        emulator = ints(QStringLiteral("SELECT * FROM t3270 WHERE i3270Key > 0"), QStringLiteral("i3270Key")).front();
        ASSERT_TRUE(definition.Open(0, env, conn, messages).Ok);
    }

    qint32 only(const QString& sql, const QString& column)
    {
        const std::vector<qint32> keys = ints(sql, column);
        return keys.empty() ? 0 : keys.front();
    }

    // Billing version `v` with the non-host tool and no emulator.
    EnvironConfigInput choose(qint32 v, const ListEntries& listed = {})
    {
        EnvironConfigInput input;
        input.AppKey = billing;
        input.AppText = QStringLiteral("Billing");
        input.VersionKey = v;
        input.VersionText = value(QStringLiteral("tVersion"), v, QStringLiteral("sVersionID")).toString();
        input.TestToolKey = other;
        input.TestToolText = QStringLiteral("QuickTest");
        input.Listed = listed;
        return input;
    }

    QString details() { return QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(env); }

    qint32 env = 0, billing = 0, host = 0, b1 = 0, b2 = 0, b3 = 0, l1 = 0, mainframe = 0, other = 0, emulator = 0;
};

TEST_P(EnvironmentConfigTest, AddChecksItsInputInOrderWithoutWriting)
{
    EnvironmentConfig config(definition);
    EnvironConfigInput input = choose(b1);
    input.VersionKey.reset();
    input.TestToolText.clear(); // later checks would fail too: the first one speaks
    EXPECT_FALSE(config.Add(input, conn, messages).Ok);

    input = choose(b1);
    input.TestToolKey = mainframe;
    input.TestToolText = QStringLiteral("Mainframe");
    EXPECT_FALSE(config.Add(input, conn, messages).Ok);

    input = choose(b1);
    input.TestToolKey.reset();
    input.TestToolText.clear();
    EXPECT_FALSE(config.Add(input, conn, messages).Ok);

    EXPECT_EQ(messages.shown, QStringList({QStringLiteral("You must select an application and version to add"),
                                           QStringLiteral("You must select an emulator for host platforms"),
                                           QStringLiteral("You must select a test tool for this application version")}));
    EXPECT_EQ(count(details()), 0);
}

TEST_P(EnvironmentConfigTest, AddWritesTheRowAndChangesAListedVersionInPlace)
{
    EnvironmentConfig config(definition);
    config.MarkDirty();
    const EnvironAddOutcome added = config.Add(choose(b1), conn, messages);
    ASSERT_TRUE(added.Ok) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(added.NewEntry, (ListEntry{QStringLiteral("Billing - 1"), b1}));
    EXPECT_FALSE(config.ConfigDirty());
    // Another tool without an emulator writes emulator 0.
    EXPECT_EQ(ints(details(), QStringLiteral("iEnviron3270Key")), std::vector<qint32>{0});

    // Added again while listed: the same row takes the new tool and
    // emulator, without a question.
    EnvironConfigInput again = choose(b1, {*added.NewEntry});
    again.TestToolKey = mainframe;
    again.TestToolText = QStringLiteral("Mainframe");
    again.EmulatorKey = emulator;
    again.EmulatorText = QStringLiteral("IBM PCOMM");
    const EnvironAddOutcome changed = config.Add(again, conn, messages);
    ASSERT_TRUE(changed.Ok);
    EXPECT_FALSE(changed.NewEntry);
    EXPECT_EQ(ints(details(), QStringLiteral("iEnvironTestToolKey")), std::vector<qint32>{mainframe});
    EXPECT_EQ(ints(details(), QStringLiteral("iEnviron3270Key")), std::vector<qint32>{emulator});
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(EnvironmentConfigTest, AVersionOfAnotherEnvironmentIsRefusedWithThatEnvironmentsName)
{
    // The stored name is the one shown.
    EnvironmentRecords first;
    first.New();
    ASSERT_TRUE(first.Save({QStringLiteral("Test/Env?"), QString(), {b1}}, conn, messages).Ok);

    EnvironmentConfig config(definition);
    EXPECT_FALSE(config.Add(choose(b1), conn, messages).Ok);
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("This application version already exists in another environment (Test_Env_)")});
    EXPECT_EQ(count(details()), 0);
}

TEST_P(EnvironmentConfigTest, ASecondVersionOfAnApplicationIsAskedOncePerListedVersion)
{
    EnvironmentConfig config(definition);
    const ListEntries listed = {{QStringLiteral("Billing - 1"), b1}, {QStringLiteral("Ledger - L1"), l1},
                                {QStringLiteral("Billing - 2"), b2}};
    addDetail(env, b1);
    addDetail(env, l1);
    addDetail(env, b2);
    const QString question = QStringLiteral("Are you sure you want multiple versions of this application in the same environment?");

    // Yes to the first, No to the second: nothing is written.
    messages.Queue(Answer::Yes);
    messages.Queue(Answer::No);
    const qint32 process = addProcessOn(b3, 0, 0, QStringLiteral("Login"));
    EXPECT_FALSE(config.Add(choose(b3, listed), conn, messages).Ok);
    EXPECT_EQ(messages.shown, QStringList({question, question}));
    EXPECT_EQ(count(details()), 3);
    EXPECT_EQ(ints(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1").arg(process),
                   QStringLiteral("iStepWindowEnvironmentKey")),
              std::vector<qint32>{0});

    messages.shown.clear();
    messages.Queue(Answer::Yes);
    messages.Queue(Answer::Yes);
    const EnvironAddOutcome added = config.Add(choose(b3, listed), conn, messages);
    ASSERT_TRUE(added.Ok);
    EXPECT_EQ(messages.shown, QStringList({question, question}));
    EXPECT_EQ(count(details()), 4);
}

TEST_P(EnvironmentConfigTest, AddingAVersionTakesAllItsStepWindowsIntoTheEnvironment)
{
    const qint32 elsewhere = addEnvironment(QStringLiteral("Elsewhere"));
    const qint32 p1 = addProcessOn(b1, 0, elsewhere, QStringLiteral("Login"));
    const qint32 p2 = addProcessOn(b1, 0, 0, QStringLiteral("Logout"));
    add(QStringLiteral("tStepWindow"), {{QStringLiteral("iStepWindowProcessKey"), p2}, {QStringLiteral("iStepWindowEnvironmentKey"), 0}});
    const qint32 unrelated = addProcessOn(b2, 0, elsewhere, QStringLiteral("Other"));

    EnvironmentConfig config(definition);
    ASSERT_TRUE(config.Add(choose(b1), conn, messages).Ok);
    EXPECT_EQ(ints(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey IN (%1, %2)").arg(p1).arg(p2),
                   QStringLiteral("iStepWindowEnvironmentKey")),
              (std::vector<qint32>{env, env, env}));
    EXPECT_EQ(only(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1").arg(unrelated),
                   QStringLiteral("iStepWindowEnvironmentKey")),
              elsewhere);
}

TEST_P(EnvironmentConfigTest, RemoveIsRefusedWhileAStepWindowOfThisEnvironmentUsesTheVersion)
{
    addDetail(env, b1);
    addDetail(env, b2);
    addProcessOn(b1, 0, env, QStringLiteral("Login"));
    addProcessOn(b2, 0, 0, QStringLiteral("Login"));
    EnvironmentConfig config(definition);

    EXPECT_FALSE(config.Remove(std::nullopt, conn, messages).Ok);
    EXPECT_FALSE(config.Remove(b1, conn, messages).Ok);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral(
                                  "Error: This application version is referenced in existing steps and cannot be removed")});
    EXPECT_TRUE(config.Remove(b2, conn, messages).Ok);
    EXPECT_EQ(ints(details(), QStringLiteral("iEnvironVerKey")), std::vector<qint32>{b1});

    // A new environment has no rows to delete: only the entry goes.
    EnvironmentRecords fresh;
    fresh.New();
    EnvironmentConfig newConfig(fresh);
    EXPECT_TRUE(newConfig.Remove(b1, conn, messages).Ok);
    EXPECT_EQ(count(details()), 1);
}

TEST_P(EnvironmentConfigTest, TheDropDownsFollowTheChosenApplicationAndListedVersion)
{
    EnvironmentConfig config(definition);
    const EnvironAppChoice hostChoice = config.ChooseApp(host, conn, messages);
    ASSERT_TRUE(hostChoice.Ok);
    EXPECT_EQ(hostChoice.PreselectEmulator, 2);
    EXPECT_EQ(hostChoice.Versions, (ListEntries{{QStringLiteral("L1"), l1}}));
    EXPECT_FALSE(config.ChooseApp(billing, conn, messages).PreselectEmulator);

    EXPECT_TRUE(config.ChooseTestTool(mainframe, false, conn, messages).EmulatorUsable);
    EXPECT_FALSE(config.ChooseTestTool(other, false, conn, messages).EmulatorUsable);
    EXPECT_FALSE(config.ChooseTestTool(mainframe, true, conn, messages).Ok);

    addDetail(env, l1, mainframe, emulator);
    addDetail(env, b2, other, emulator);
    const EnvironListedVersion listedHost = config.HighlightListed(l1, false, conn, messages);
    ASSERT_TRUE(listedHost.Ok);
    EXPECT_EQ(listedHost.AppKey, host);
    EXPECT_EQ(listedHost.VersionKey, l1);
    EXPECT_EQ(listedHost.TestToolKey, mainframe);
    EXPECT_EQ(listedHost.EmulatorKey, emulator);
    // Not a host platform: the emulator is left unselected.
    const EnvironListedVersion listedBilling = config.HighlightListed(b2, false, conn, messages);
    EXPECT_EQ(listedBilling.Versions.size(), 3);
    EXPECT_FALSE(listedBilling.EmulatorKey);
    EXPECT_FALSE(config.ConfigDirty());
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
}

class EnvironmentUsersTest : public EnvironmentConfigTest {};

TEST_P(EnvironmentUsersTest, RegistrationsAndRightsAreWrittenOneAtATime)
{
    const qint32 jo = addUser(QStringLiteral("jo"), QStringLiteral("Jo"), QStringLiteral("Zed"));
    const qint32 al = addUser(QStringLiteral("al"), QStringLiteral("Al"), QStringLiteral("Bee"));
    CurrentUserKey current;
    EnvironmentUsers users(definition, current);

    EnvironUserLists lists = users.Refresh(conn, messages);
    EXPECT_EQ(lists.Unregistered, (ListEntries{{QStringLiteral("Al Bee"), al}, {QStringLiteral("Jo Zed"), jo}}));
    EXPECT_TRUE(lists.Registered.isEmpty());

    EXPECT_FALSE(users.Add(std::nullopt, conn, messages));
    ASSERT_TRUE(users.Add(jo, conn, messages));
    const QString registration = QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iUserKey=%1").arg(jo);
    for (const ModuleRight right : kModuleRights)
        EXPECT_EQ(texts(registration, RightColumn(right)), QStringList{QStringLiteral("0")}) << RightColumn(right).toStdString();
    lists = users.Refresh(conn, messages);
    EXPECT_EQ(lists.Unregistered, (ListEntries{{QStringLiteral("Al Bee"), al}}));
    EXPECT_EQ(lists.Registered, (ListEntries{{QStringLiteral("Jo Zed"), jo}}));

    // Highlighting makes the user current for the user editor too.
    const std::optional<ModuleRights> shown = users.Highlight(jo, false, conn, messages);
    ASSERT_TRUE(shown);
    EXPECT_EQ(*shown, (ModuleRights{false, false, false, false, false}));
    EXPECT_EQ(current.Get(), jo);

    // One click writes one column.
    EXPECT_TRUE(users.SetRight(ModuleRight::Zulane, true, jo, false, conn, messages));
    EXPECT_EQ(texts(registration, QStringLiteral("bZulane")), QStringList{QStringLiteral("-1")});
    EXPECT_EQ(texts(registration, QStringLiteral("bOmrik")), QStringList{QStringLiteral("0")});
    EXPECT_EQ(users.Highlight(jo, false, conn, messages), (ModuleRights{false, false, true, false, false}));

    // While the boxes are being set, or with nobody highlighted, nothing
    // is written.
    EXPECT_FALSE(users.SetRight(ModuleRight::Dorvane, true, jo, true, conn, messages));
    EXPECT_FALSE(users.SetRight(ModuleRight::Dorvane, true, std::nullopt, false, conn, messages));
    EXPECT_EQ(texts(registration, QStringLiteral("bDorvane")), QStringList{QStringLiteral("0")});
    EXPECT_FALSE(users.Highlight(al, true, conn, messages));
    EXPECT_EQ(current.Get(), jo);

    EXPECT_TRUE(users.SetRight(ModuleRight::Zulane, false, jo, false, conn, messages));
    EXPECT_EQ(texts(registration, QStringLiteral("bZulane")), QStringList{QStringLiteral("0")});

    ASSERT_TRUE(users.Remove(jo, conn, messages));
    EXPECT_EQ(count(registration), 0);
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentConfigTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentUsersTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
