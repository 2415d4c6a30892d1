// The Delete buttons of the application and version sub-tabs, driven as an
// administrator does.

#include "mainwindow/MainWindowFixture.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QComboBox>
#include <QFileInfo>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>

namespace dorvane::test {
namespace {

class DeletionWidgetTest : public MainWindowFixture {
protected:
    void SetUp() override
    {
        MainWindowFixture::SetUp();
        OpenWindow(RepositoryContent::Tutorial);
        window->activateWindow();
        c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, repository());
        return CountRecords(&rs);
    }

    QStringList items(const QListWidget* list)
    {
        QStringList texts;
        for (int i = 0; i < list->count(); ++i)
            texts << list->item(i)->text();
        return texts;
    }

    void selectApp(const QString& name)
    {
        const int row = FindItemByText(c().lbAppList, name);
        ASSERT_GE(row, 0) << name.toStdString();
        c().lbAppList->setCurrentRow(row);
        ASSERT_EQ(c().txtAppName->text(), name);
    }

    void selectVersion(const QString& id)
    {
        c().SSAppTab->setCurrentIndex(1);
        const int row = FindItemByText(c().lbVersionList, id);
        ASSERT_GE(row, 0) << id.toStdString();
        c().lbVersionList->setCurrentRow(row);
        ASSERT_EQ(c().txtVersionID->text(), id);
    }

    bool folderExists(const QString& relative) const { return QFileInfo(sharedPath() + u'/' + relative).isDir(); }
};

TEST_P(DeletionWidgetTest, DeletingAnApplicationClearsTheEditorAndKeepsItsFolders)
{
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps/WS/3.0")));
    selectApp(QStringLiteral("Web Store"));
    ASSERT_TRUE(c().SSAppTab->isTabEnabled(1));
    ASSERT_TRUE(c().cmdAppDelete->isEnabled());
    messages.Queue(Answer::Yes);

    c().cmdAppDelete->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete Web Store and all its versions?")});
    EXPECT_EQ(items(c().lbAppList), (QStringList{QStringLiteral("Customer Inquiry"), QStringLiteral("Order Entry")}));
    EXPECT_EQ(c().lbAppList->currentRow(), -1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Web Store'")), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='3.0'")), 0);
    EXPECT_EQ(c().txtAppName->text(), QString());
    EXPECT_EQ(c().txtAppID->text(), QString());
    EXPECT_EQ(c().lbVersionList->count(), 0);
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(1));
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(2));
    EXPECT_FALSE(c().cmdAppDelete->isEnabled());
    EXPECT_EQ(window->CurrentAppKey, 0);
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/WS/3.0")));
    // The environment page's application list follows.
    EXPECT_EQ(c().cbEnvironApp->findText(QStringLiteral("Web Store")), -1);
}

TEST_P(DeletionWidgetTest, DeletingAFreeVersionTakesItOffTheList)
{
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps/OE/1.0")));
    selectApp(QStringLiteral("Order Entry"));
    selectVersion(QStringLiteral("1.0"));
    const qint32 key = window->CurrentVersionKey;
    messages.Queue(Answer::Yes);

    c().cmdVersionDelete->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete ALL elements of 1.0?")});
    EXPECT_EQ(items(c().lbVersionList), QStringList{QStringLiteral("1.1")});
    EXPECT_EQ(c().lbVersionList->currentRow(), -1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(key)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + QString::number(key)), 0);
    EXPECT_EQ(c().txtVersionID->text(), QString());
    EXPECT_FALSE(c().cmdVersionDelete->isEnabled());
    EXPECT_EQ(window->CurrentVersionKey, 0);
    // The application stays open.
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Order Entry"));
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/OE/1.0")));

    // Nothing is shown any more: a second click does nothing.
    messages.shown.clear();
    c().cmdVersionDelete->click();
    EXPECT_TRUE(messages.shown.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Backends, DeletionWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane::test
