// The main window: its pages, the first activation, and leaving it: cmdExit
// asks editor by editor in a fixed order, and a failed save keeps it open.
// A second copy of the program finds the first, which restores and raises
// its window.

#include "core/lists/NameDescGrids.h"
#include "desktop/mainwindow/MainWindowFixture.h"
#include "desktop/mainwindow/QtInteraction.h"
#include "desktop/startup/SingleInstance.h"

#include <QDeadlineTimer>
#include <QLabel>
#include <QPushButton>

#include <future>

namespace dorvane::test {
namespace {

class MainWindowTest : public MainWindowFixture {
protected:
    // Rows of a query, or of the tables the editors write, as another
    // program sees them (also once the window is gone).
    QStringList stored(const QString& sql = {}) { Connection again; again.Open(m_db->connectionString()); return sql.isEmpty() ? TableRows(again) : Rows(again, sql); }
    void exitFrom(frmMainForm::Page page) { window->findChild<QPushButton*>(u"cmdExit_%1"_s.arg(page))->click(); }
};

// Closing by the title bar asks nothing, even after edits.
TEST_P(MainWindowTest, AnEmptyRepositoryShowsTheFourPagesAndStartsLumenoOncePerRun)
{
    OpenWindow();
    // The title and the status bar name the repository's file or data
    // source, never the connection string.
    const bool odbc = m_db->isOdbc();
    EXPECT_EQ(window->windowTitle(), (odbc ? TestDsn() : u"Test.mdb"_s) + u" - Dorvane"_s);
    const auto* repository = window->findChild<QLabel*>(u"lblRepository"_s);
    EXPECT_TRUE(repository && repository->text().endsWith(u" repository: "_s + (odbc ? TestDsn() : m_db->tempPath() + u"/Test.mdb"_s)));
    EXPECT_EQ(Items(mainTab()), (QStringList{u"Users"_s, u"Options"_s, u"Applications"_s, u"Environments"_s}));
    window->Form_Activate();
    EXPECT_TRUE(environments().EnvironCount() == 0 && launcher.started.size() == 1 && launcher.started[0].endsWith(u"/Lumeno.exe"_s))
        << launcher.started.join(u' ').toStdString();
    Retype(users().txtUserID, u"changed"_s);
    Retype(applications().txtAppName, u"changed"_s);
    window->close();
    EXPECT_TRUE(window->IsUnloaded() && messages.shown.isEmpty() && !session.repository.IsOpen());
}

// A repository with all its indexes needs no word on the status bar; one
// without them (made by the suite) says that it can be upgraded.
TEST_P(MainWindowTest, ARepositoryWithoutItsIndexesSaysItCanBeUpgraded)
{
    OpenWindow();
    EXPECT_EQ(window->findChild<QLabel*>(u"lblUpgradeNote"_s), nullptr);
    DB_ASSERT(session.repository.Execute(u"DROP INDEX ix_tVersion_iVersionAppKey"_s));
    // The new window is made while the first still holds the session open.
    window = std::make_unique<frmMainForm>(session, messages, launcher, printer);
    const auto* note = window->findChild<QLabel*>(u"lblUpgradeNote"_s);
    EXPECT_TRUE(note && note->text().contains(u"\"dorvanectl upgrade-repository\" adds them"_s));
}

// Every list is loaded, each entry with its row's key; a loader whose query
// fails says so with the database's reason, ends there, and keeps what it
// loaded before. Opening records is no change: Exit unloads at once and
// closes the connections.
TEST_P(MainWindowTest, ListsAreLoadedOrTheirErrorsShownAndOpeningRecordsIsNoChange)
{
    OpenWindow(RepositoryContent::Tutorial);
    QStringList apps;
    for (int i = 0; i < applications().lbAppList->count(); ++i)
        apps << stored(u"SELECT sAppName FROM tApp WHERE iAppKey=%1"_s.arg(ItemKey(applications().lbAppList, i))).value(0);
    EXPECT_EQ(std::pair(stored(u"SELECT sAppName FROM tApp ORDER BY sAppName"_s), Items(applications().lbAppList)), std::pair(apps, apps));
    EXPECT_EQ(std::tuple(environments().cbEnvironApp->count(), users().lbUserList->count(), environments().EnvironCount()),
              std::tuple(int(apps.size()), environments().lbEnvironUserList->count(), environments().lbEnvironList->count()));
    // The placeholder emulator of key 0 is never listed. With environments
    // Lumeno is not started.
    EXPECT_EQ(std::tuple(FindComboItem(0, applications().cbEmulator), FindComboItem(0, environments().cbEnvironEmulator), applications().cbEmulator->count() > 0, applications().cbPlatform->count()),
              std::tuple(-1, -1, true, 4));
    EXPECT_TRUE(launcher.started.isEmpty() && environments().EnvironCount() > 0 && !window->FirstActivate());

    DB_ASSERT(repository().Execute(u"ALTER TABLE tEnvironment RENAME TO tEnvironmentGone"_s));
    DB_ASSERT(repository().Execute(u"ALTER TABLE tTestTool RENAME TO tTestToolGone"_s));
    environments().RefreshEnvironList();
    window->RefreshReferenceLists();
    const QStringList prefixes = {u"Error while refreshing environment list : "_s, u"Error while refreshing test tool list : "_s};
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(messages.shown.value(i).startsWith(prefixes[i]) && messages.shown.value(i).size() > prefixes[i].size()) << shown();
    // The platforms are read before the failure, the emulators after it.
    EXPECT_EQ(std::tuple(environments().lbEnvironList->count(), environments().EnvironCount(), environments().EditLoading(), applications().cbPlatform->count(),
                         environments().cbEnvironTestTool->count(), applications().cbEmulator->count()), std::tuple(0, 0, false, 4, 0, 0));
    users().lbUserList->setCurrentRow(1);
    Select(applications().lbAppList, u"Order Entry"_s);
    Select(applications().lbVersionList, u"1.0"_s);
    // The process lists keep their "None", which comes before the query.
    DB_ASSERT(repository().Execute(u"ALTER TABLE tProcess RENAME TO tProcessGone"_s));
    applications().RefreshVersionProcesses(applications().CurrentVersionKey());
    EXPECT_TRUE(messages.shown.value(2).startsWith(u"Error while refreshing process list : "_s) && Items(applications().cbVersionLoadProcess) == QStringList{u"None"_s}) << shown();
    exitFrom(frmMainForm::EnvironmentsPage);
    EXPECT_TRUE(window->IsUnloaded() && !window->isVisible() && messages.shown.size() == 3 // the three errors only
                && !session.testData.IsOpen() && !session.repository.IsOpen() && !session.userData.IsOpen()) << shown();
}

// With every editor changed the prompts come in a fixed order; Cancel on
// the first asks nothing else and keeps every edit, No to all saves nothing.
TEST_P(MainWindowTest, PromptsComeInOrderAndCancelOrNoSaveNothing)
{
    OpenWindow(RepositoryContent::Tutorial);
    const QStringList before = stored();
    users().lbUserList->setCurrentRow(0);
    Retype(users().txtFirstName, u"Janet"_s);
    Select(applications().lbAppList, u"Order Entry"_s);
    Retype(applications().txtAppName, u"Order Entry II"_s);
    ASSERT_TRUE(TypeCell(applications().TDBGridKeywords, applications().keywordsGrid().List().Count(), 0, u"Nightly"_s));
    Select(applications().lbVersionList, u"1.1"_s);
    Retype(applications().txtVersionDesc, u"Changed"_s);
    ASSERT_TRUE(TypeCell(options().TDBGridProjects, 0, 1, u"Changed"_s));
    ASSERT_TRUE(TypeCell(options().TDBGridRoles, options().rolesGrid().List().Count(), 0, u"Auditor"_s));
    Retype(environments().txtEnvironName, u"Nightly"_s);
    answerNext({Answer::Cancel});
    exitFrom(frmMainForm::OptionsPage);
    EXPECT_EQ(std::pair(messages.shown, stored()), std::pair(QStringList{u"Save changes to User record?"_s}, before));
    EXPECT_TRUE(!window->IsUnloaded() && session.repository.IsOpen() && applications().AppDirty() && users().txtFirstName->text() == u"Janet"_s);

    answerNext({Answer::No, Answer::No, Answer::No, Answer::No, Answer::No, Answer::No, Answer::No});
    exitFrom(frmMainForm::OptionsPage);
    // The version is asked about after the grids, just before the environment.
    EXPECT_EQ(messages.shown, (QStringList{u"Save changes to User record?"_s, u"Save changes to this Application?"_s,
                                           u"Save changes to Keywords?"_s, u"Save changes to Projects?"_s, u"Save changes to Roles?"_s,
                                           u"Save changes to this Version?"_s, u"Save changes to this Environment?"_s}));
    EXPECT_TRUE(window->IsUnloaded() && !session.repository.IsOpen() && stored() == before);
}

TEST_P(MainWindowTest, YesSavesBeforeLeavingAndAFailedSaveKeepsTheProgramOpen)
{
    OpenTutorial();
    ASSERT_TRUE(TypeCell(options().TDBGridRoles, options().rolesGrid().List().Count(), 0, u"Auditor"_s)
                && TypeCell(options().TDBGridProjects, 0, 1, u"Reworked"_s));
    users().cmdUserNew->click();
    for (const auto& [box, text] : {std::pair(users().txtUserID, u"plee"_s), {users().txtLastName, u"Lee"_s}, {users().txtPassword, u"x"_s}, {users().txtVerifyPassword, u"x"_s}})
        Retype(box, text);
    applications().cmdAppNew->click();
    Retype(applications().txtAppName, u"Payroll"_s);
    Retype(environments().txtEnvironName, u"Nightly"_s);

    // The user's save fails: the program stays open, the editor as it was.
    answerNext({Answer::Yes});
    exitFrom(frmMainForm::ApplicationsPage);
    EXPECT_EQ(messages.shown, (QStringList{u"Save changes to User record?"_s, u"First Name cannot be blank"_s}));
    EXPECT_TRUE(!window->IsUnloaded() && window->isVisible() && users().txtUserID->text() == u"plee"_s && users().txtLastName->text() == u"Lee"_s);
    // Filled in it is saved; the application's save fails and the later
    // prompts (the environment) are not asked.
    Retype(users().txtFirstName, u"Pat"_s);
    answerNext({Answer::Yes, Answer::Yes});
    exitFrom(frmMainForm::UsersPage);
    EXPECT_EQ(messages.shown, (QStringList{u"Save changes to User record?"_s, u"Save changes to this Application?"_s,
                                           u"You must specify an ID for this application."_s}));
    EXPECT_TRUE(!window->IsUnloaded() && applications().txtAppName->text() == u"Payroll"_s);
    EXPECT_EQ(stored(u"SELECT sUserFirst FROM tUser WHERE sUserID='plee' UNION ALL SELECT sAppID FROM tApp WHERE sAppName='Payroll'"_s), QStringList{u"Pat"_s});

    // Dropping the application, Yes on the grids: saved before leaving.
    answerNext({Answer::No, Answer::Yes, Answer::Yes, Answer::No});
    exitFrom(frmMainForm::ApplicationsPage);
    EXPECT_EQ(messages.shown, (QStringList{u"Save changes to this Application?"_s, u"Save changes to Projects?"_s, u"Save changes to Roles?"_s,
                                           u"Save changes to this Environment?"_s}));
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_EQ(stored(u"SELECT sRoleName, sRoleDesc FROM tRole WHERE sRoleName='Auditor' UNION ALL "
                     "SELECT 'project', sProjectDesc FROM tProject WHERE sProjectDesc='Reworked'"_s),
              (QStringList{u"Auditor| "_s, u"project|Reworked"_s}));
}

// On a 640x450 screen (1280x900 at scale 2) every control stays reachable:
// the pages scroll, and a window remembered from a larger screen, or the
// default size, is moved and shrunk into the screen's free area.
TEST_P(MainWindowTest, TheWindowFitsASmallScreen)
{
    OpenWindow(RepositoryContent::Tutorial);
    const QSize smallest = window->minimumSizeHint();
    EXPECT_TRUE(smallest.width() <= 600 && smallest.height() <= 400) << smallest.width() << "x" << smallest.height();
    const QRect screen(0, 0, 640, 450), panelled(0, 24, 640, 426);
    const std::tuple<QRect, QRect, QRect> cases[] = { // frame, free area, fitted
        {QRect(100, 80, 1960, 1320), screen, screen},
        {QRect(10, 10, 400, 300), screen, QRect(10, 10, 400, 300)},
        {QRect(500, 400, 400, 300), screen, QRect(240, 150, 400, 300)},
        {QRect(-50, 0, 980, 660), panelled, panelled},
    };
    for (const auto& [frame, available, fitted] : cases)
        EXPECT_EQ(FitInto(frame, available), fitted);
}

INSTANTIATE_TEST_SUITE_P(Backends, MainWindowTest, ::testing::ValuesIn(TestBackends()));

// The second copy runs in another thread, as it would in another process,
// while this thread's event loop serves the first copy.
bool activateFromAnotherCopy()
{
    auto second = std::async(std::launch::async, [] { return SingleInstance().ActivateInstance(); });
    QDeadlineTimer deadline(5000);
    while (second.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return second.get();
}

TEST(SingleInstanceTest, ASecondCopyRestoresTheFirstCopysMinimisedWindowOnItsDisplayOnly)
{
    qputenv("DISPLAY", ":dorvane-test-none");
    EXPECT_FALSE(SingleInstance().ActivateInstance()) << "without a first copy the program starts normally";

    qputenv("DISPLAY", ":dorvane-test-raise");
    QWidget window;
    window.showMinimized();
    SingleInstance first;
    first.Listen(&window);
    EXPECT_TRUE(activateFromAnotherCopy());
    EXPECT_TRUE(!window.isMinimized() && window.isVisible());

    qputenv("DISPLAY", ":dorvane-test-other");
    EXPECT_FALSE(activateFromAnotherCopy()) << "copies on other displays do not meet";
}

} // namespace
} // namespace dorvane::test
