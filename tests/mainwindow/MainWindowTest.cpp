// The main window's pages, first activation, exit and unloading.

#include "mainwindow/MainWindowFixture.h"
#include "repository/Recordset.h"

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>

namespace dorvane::test {
namespace {

QStringList captions(const QTabWidget* tabs)
{
    QStringList result;
    for (int i = 0; i < tabs->count(); ++i)
        result << tabs->tabText(i);
    return result;
}

QStringList texts(const QListWidget* list)
{
    QStringList result;
    for (int i = 0; i < list->count(); ++i)
        result << list->item(i)->text();
    return result;
}

using MainWindowTest = MainWindowFixture;

TEST_P(MainWindowTest, HasTheFourPagesWithTheirInnerTabs)
{
    OpenWindow();
    EXPECT_EQ(window->objectName(), QStringLiteral("frmMainForm"));
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Dorvane"));
    QTabWidget* main = c().SSMainTab;
    EXPECT_EQ(main->objectName(), QStringLiteral("SSMainTab"));
    EXPECT_EQ(captions(main), (QStringList{QStringLiteral("Users"), QStringLiteral("Options"),
                                          QStringLiteral("Applications"), QStringLiteral("Environments")}));
    EXPECT_TRUE(main->widget(frmMainForm::OptionsPage)->isAncestorOf(c().SSOptionsTab));
    EXPECT_TRUE(main->widget(frmMainForm::ApplicationsPage)->isAncestorOf(c().SSAppTab));
    EXPECT_TRUE(main->widget(frmMainForm::EnvironmentsPage)->isAncestorOf(c().SSEnvironTab));
    EXPECT_EQ(captions(c().SSAppTab).first(), QStringLiteral("&Definition"));
    EXPECT_EQ(captions(c().SSEnvironTab).first(), QStringLiteral("&Definition"));
    EXPECT_EQ(c().SSEnvironTab->count(), 3);
    // A new application has no versions or keywords until it is saved.
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(1));
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(2));
}

TEST_P(MainWindowTest, PageChangesPutTheFocusInTheFirstField)
{
    OpenWindow();
    window->activateWindow();
    c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    EXPECT_EQ(window->focusWidget(), static_cast<QWidget*>(c().txtAppName));
    c().SSMainTab->setCurrentIndex(frmMainForm::EnvironmentsPage);
    EXPECT_EQ(window->focusWidget(), static_cast<QWidget*>(c().txtEnvironName));
    c().SSMainTab->setCurrentIndex(frmMainForm::UsersPage);
    EXPECT_EQ(window->focusWidget(), static_cast<QWidget*>(c().txtUserID));
}

TEST_P(MainWindowTest, FirstActivationLoadsEveryListWithKeys)
{
    OpenWindow(RepositoryContent::Tutorial);
    ASSERT_GT(c().lbAppList->count(), 0);
    EXPECT_EQ(c().lbAppList->count(), c().cbEnvironApp->count());
    // Every entry carries its row's key.
    for (int i = 0; i < c().lbAppList->count(); ++i) {
        Recordset rs(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") +
                         QString::number(ItemKey(c().lbAppList, i)), repository());
        ASSERT_FALSE(rs.Eof());
        EXPECT_EQ(rs.Text(QStringLiteral("sAppName")), c().lbAppList->item(i)->text());
    }
    QStringList sorted = texts(c().lbAppList);
    std::sort(sorted.begin(), sorted.end(), [](const QString& a, const QString& b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    EXPECT_EQ(texts(c().lbAppList), sorted);

    EXPECT_EQ(c().lbUserList->count(), c().lbEnvironUserList->count());
    EXPECT_GT(c().lbEnvironList->count(), 0);
    EXPECT_EQ(window->nEnvironCount, c().lbEnvironList->count());
    // The placeholder emulator of key 0 is never listed.
    EXPECT_EQ(FindComboItem(0, c().cbEmulator), -1);
    EXPECT_EQ(FindComboItem(0, c().cbEnvironEmulator), -1);
    EXPECT_GT(c().cbEmulator->count(), 0);
    EXPECT_EQ(c().cbPlatform->count(), 4);
    // A repository with environments never starts Lumeno.
    EXPECT_TRUE(launcher.started.isEmpty());
    EXPECT_FALSE(window->FirstActivate);
}

// A loader whose query fails says so, "Error while refreshing NAME list : "
// and the database's reason, ends there, and keeps what it loaded before.
TEST_P(MainWindowTest, LoadersReportTheirErrorsAndKeepWhatTheyLoaded)
{
    OpenWindow(RepositoryContent::Tutorial);
    ASSERT_GT(c().lbEnvironList->count(), 0);
    DB_ASSERT(repository().Execute(QStringLiteral("ALTER TABLE tEnvironment RENAME TO tEnvironmentGone")));
    DB_ASSERT(repository().Execute(QStringLiteral("ALTER TABLE tTestTool RENAME TO tTestToolGone")));
    const QString prefixes[] = {QStringLiteral("Error while refreshing environment list : "),
                                QStringLiteral("Error while refreshing test tool list : ")};

    window->RefreshEnvironList();
    window->RefreshReferenceLists();
    ASSERT_EQ(messages.shown.size(), 2) << messages.shown.join(u'\n').toStdString();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(messages.shown[i].startsWith(prefixes[i])) << messages.shown[i].toStdString();
        EXPECT_GT(messages.shown[i].size(), prefixes[i].size()) << "the database's reason follows";
    }
    EXPECT_EQ(c().lbEnvironList->count(), 0);
    EXPECT_EQ(window->nEnvironCount, 0);
    EXPECT_FALSE(window->EditLoading);
    // The platforms were read before the failure; the emulators come after it.
    EXPECT_EQ(c().cbPlatform->count(), 4);
    EXPECT_EQ(c().cbEnvironTestTool->count(), 0);
    EXPECT_EQ(c().cbEmulator->count(), 0);
}

TEST_P(MainWindowTest, AnEmptyRepositoryStartsLumenoOncePerRun)
{
    OpenWindow();
    EXPECT_EQ(window->nEnvironCount, 0);
    ASSERT_EQ(launcher.started.size(), 1);
    EXPECT_TRUE(launcher.started.first().endsWith(QStringLiteral("/Lumeno.exe")));
    window->Form_Activate();
    window->Form_Activate();
    EXPECT_EQ(launcher.started.size(), 1);
}

TEST_P(MainWindowTest, ExitWithNothingChangedUnloadsAtOnceFromEveryPage)
{
    OpenWindow();
    for (int page = 0; page < 4; ++page)
        EXPECT_TRUE(c().SSMainTab->widget(page)->isAncestorOf(c().cmdExit.at(page))) << "page " << page;
    c().SSMainTab->setCurrentIndex(frmMainForm::EnvironmentsPage);
    c().cmdExit.at(frmMainForm::EnvironmentsPage)->click();
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_FALSE(window->isVisible());
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_FALSE(session.testData.IsOpen());
    EXPECT_FALSE(session.repository.IsOpen());
    EXPECT_FALSE(session.userData.IsOpen());
}

TEST_P(MainWindowTest, ClosingByTheTitleBarAsksNothing)
{
    OpenWindow();
    c().txtUserID->setText(QStringLiteral("changed"));
    c().txtAppName->setText(QStringLiteral("changed"));
    window->close();
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_FALSE(session.repository.IsOpen());
}

INSTANTIATE_TEST_SUITE_P(Backends, MainWindowTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
