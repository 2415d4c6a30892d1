// The main window's pages and its unloading.

#include "mainwindow/frmMainForm.h"
#include "repository/Connection.h"
#include "startup/Startup.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>

namespace dorvane {
namespace {

class MainWindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        for (const char* name : {"repo.mdb", "testdata.mdb", "UserData.mdb"})
            Connection::CreateDatabaseFile(m_dir.filePath(QString::fromLatin1(name)));
        m_session.repository.Open(QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") +
                                  m_dir.filePath(QStringLiteral("repo.mdb")) + QStringLiteral(";"));
        m_session.testData.OpenFile(m_dir.filePath(QStringLiteral("testdata.mdb")));
        m_session.userData.OpenFile(m_dir.filePath(QStringLiteral("UserData.mdb")));
    }

    QTemporaryDir m_dir;
    Session m_session;
    test::ScriptedMessages m_messages;
};

QStringList captions(const QTabWidget* tabs)
{
    QStringList result;
    for (int i = 0; i < tabs->count(); ++i)
        result << tabs->tabText(i);
    return result;
}

TEST_F(MainWindowTest, HasTheFourPagesWithTheirInnerTabs)
{
    frmMainForm window(m_session, m_messages);
    EXPECT_EQ(window.objectName(), QStringLiteral("frmMainForm"));
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Dorvane"));

    auto* main = window.findChild<QTabWidget*>(QStringLiteral("SSMainTab"));
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(captions(main), (QStringList{QStringLiteral("Users"), QStringLiteral("Options"),
                                          QStringLiteral("Applications"), QStringLiteral("Environments")}));

    // Each inner tab control sits on its own page of the main tab control.
    auto* options = window.findChild<QTabWidget*>(QStringLiteral("SSOptionsTab"));
    auto* apps = window.findChild<QTabWidget*>(QStringLiteral("SSAppTab"));
    auto* environs = window.findChild<QTabWidget*>(QStringLiteral("SSEnvironTab"));
    ASSERT_TRUE(options && apps && environs);
    EXPECT_TRUE(main->widget(frmMainForm::OptionsPage)->isAncestorOf(options));
    EXPECT_TRUE(main->widget(frmMainForm::ApplicationsPage)->isAncestorOf(apps));
    EXPECT_TRUE(main->widget(frmMainForm::EnvironmentsPage)->isAncestorOf(environs));
    EXPECT_EQ(apps->count(), 2);
    EXPECT_EQ(environs->count(), 3);
    EXPECT_TRUE(captions(options).contains(QStringLiteral("&Roles")));
    EXPECT_TRUE(captions(options).contains(QStringLiteral("&Projects")));
    EXPECT_EQ(captions(apps).first(), QStringLiteral("&Definition"));
    EXPECT_EQ(captions(environs).first(), QStringLiteral("&Definition"));
}

TEST_F(MainWindowTest, EveryPageHasAnExitButtonThatUnloadsTheWindow)
{
    for (int page = 0; page < 4; ++page) {
        Session session;
        session.repository.Open(m_session.repository.connectionString());
        frmMainForm window(session, m_messages);
        QTabWidget* main = window.SSMainTab();
        ASSERT_EQ(window.cmdExit().size(), 4);
        QPushButton* exit = window.cmdExit().at(page);
        EXPECT_TRUE(main->widget(page)->isAncestorOf(exit)) << "page " << page;

        window.show();
        main->setCurrentIndex(page);
        exit->click();
        EXPECT_TRUE(window.IsUnloaded());
        EXPECT_FALSE(window.isVisible());
        EXPECT_FALSE(session.repository.IsOpen()) << "unloading leaves the repository open";
    }
    // Nothing changed anywhere: no prompt was shown.
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

TEST_F(MainWindowTest, ClosingByTheTitleBarClosesTheDatabases)
{
    {
        frmMainForm window(m_session, m_messages);
        window.show();
        window.close();
        EXPECT_TRUE(window.IsUnloaded());
    }
    EXPECT_FALSE(m_session.testData.IsOpen());
    EXPECT_FALSE(m_session.repository.IsOpen());
    EXPECT_FALSE(m_session.userData.IsOpen());
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

} // namespace
} // namespace dorvane
