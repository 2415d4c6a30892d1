// The save prompts on the way out: cmdExit asks editor by editor, in a
// fixed order, and a failed save keeps the program open.

#include "mainwindow/MainWindowFixture.h"
#include "lists/NameDescGrids.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTableView>
#include <QTest>

namespace dorvane::test {
namespace {

// Replaces the text of a box by typing, as a person does: select all, type.
void retype(QLineEdit* box, const QString& text)
{
    box->selectAll();
    if (text.isEmpty())
        QTest::keyClick(box, Qt::Key_Backspace);
    else
        QTest::keyClicks(box, text);
}

const QString kUserPrompt = QStringLiteral("Save changes to User record?");
const QString kAppPrompt = QStringLiteral("Save changes to this Application?");
const QString kKeywordPrompt = QStringLiteral("Save changes to Keywords?");
const QString kProjectPrompt = QStringLiteral("Save changes to Projects?");
const QString kRolePrompt = QStringLiteral("Save changes to Roles?");
const QString kVersionPrompt = QStringLiteral("Save changes to this Version?");
const QString kEnvironPrompt = QStringLiteral("Save changes to this Environment?");

class PromptsTest : public MainWindowFixture {
protected:
    void openActive(RepositoryContent content)
    {
        OpenWindow(content);
        window->activateWindow();
    }

    void selectByText(QListWidget* list, const QString& text)
    {
        const int row = FindItemByText(list, text);
        ASSERT_GE(row, 0) << text.toStdString();
        list->setCurrentRow(row);
    }

    // Types a cell of a grid through its model, as the grid's editor
    // commits it.
    static bool typeCell(QTableView* view, int row, int column, const QString& text)
    {
        return view->model()->setData(view->model()->index(row, column), text, Qt::EditRole);
    }

    // Every row of the tables the editors write, as text, to compare the
    // repository before and after.
    static QStringList snapshot(Connection& connection)
    {
        QStringList rows;
        for (const char* sql : {"SELECT * FROM tUser ORDER BY iUserKey", "SELECT * FROM tApp ORDER BY iAppKey",
                                "SELECT * FROM tVersion ORDER BY iVersionKey", "SELECT * FROM tRole ORDER BY iRoleKey",
                                "SELECT * FROM tProject ORDER BY iProjectKey",
                                "SELECT * FROM tKeyword ORDER BY iKeywordKey",
                                "SELECT * FROM tWindow ORDER BY iWindowKey"}) {
            Recordset rs(QString::fromLatin1(sql), connection);
            const QStringList fields = rs.FieldNames();
            for (; !rs.Eof(); rs.MoveNext()) {
                QStringList values;
                for (const QString& field : fields)
                    values << rs.Text(field);
                rows << values.join(u'|');
            }
            rows << QStringLiteral("--");
        }
        return rows;
    }

    // The repository as another program sees it once the window is gone.
    QStringList snapshotAfterUnload()
    {
        Connection again;
        again.Open(m_db->connectionString());
        return snapshot(again);
    }

    qint32 countAfterUnload(const QString& sql)
    {
        Connection again;
        again.Open(m_db->connectionString());
        Recordset rs(sql, again);
        return CountRecords(&rs);
    }
};

TEST_P(PromptsTest, OpeningRecordsIsNoChangeAndExitAsksNothing)
{
    openActive(RepositoryContent::Tutorial);
    // Loading a user, an application and a version fills their boxes; none
    // of it counts as an edit.
    c().lbUserList->setCurrentRow(1);
    c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    selectByText(c().lbAppList, QStringLiteral("Order Entry"));
    c().SSAppTab->setCurrentIndex(1);
    c().lbVersionList->setCurrentRow(0);
    ASSERT_EQ(c().txtVersionID->text(), QStringLiteral("1.0"));
    EXPECT_FALSE(window->UserDirty());
    EXPECT_FALSE(window->AppDirty);
    EXPECT_FALSE(window->VersionDirty);

    c().cmdExit.at(frmMainForm::ApplicationsPage)->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(window->IsUnloaded());
}

TEST_P(PromptsTest, TheUserIsAskedFirstAndCancelThereAsksNothingElse)
{
    openActive(RepositoryContent::Tutorial);
    c().lbUserList->setCurrentRow(0);
    retype(c().txtExtension, QStringLiteral("9999"));
    c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    selectByText(c().lbAppList, QStringLiteral("Web Store"));
    retype(c().txtAppDesc, QStringLiteral("Shop front, new look"));
    // The environment editor stands in through its flag.
    window->EnvironDirty = true;
    const QStringList before = snapshot(repository());

    messages.Queue(Answer::Cancel);
    c().cmdExit.at(frmMainForm::ApplicationsPage)->click();
    EXPECT_EQ(messages.shown, QStringList{kUserPrompt});
    EXPECT_FALSE(window->IsUnloaded());
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(session.repository.IsOpen());
    // Every edit is still there, still unsaved.
    EXPECT_TRUE(window->UserDirty());
    EXPECT_TRUE(window->AppDirty);
    EXPECT_TRUE(window->EnvironDirty);
    EXPECT_EQ(c().txtExtension->text(), QStringLiteral("9999"));
    EXPECT_EQ(c().txtAppDesc->text(), QStringLiteral("Shop front, new look"));
    EXPECT_EQ(snapshot(repository()), before);

    // Leaving again and dropping everything: the three prompts in order.
    messages.shown.clear();
    for (int i = 0; i < 3; ++i)
        messages.Queue(Answer::No);
    c().cmdExit.at(frmMainForm::ApplicationsPage)->click();
    EXPECT_EQ(messages.shown, (QStringList{kUserPrompt, kAppPrompt, kEnvironPrompt}));
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_EQ(snapshotAfterUnload(), before);
}

TEST_P(PromptsTest, NoToEveryPromptExitsWithoutSavingAnything)
{
    openActive(RepositoryContent::Tutorial);
    const QStringList before = snapshot(repository());

    // Users.
    c().lbUserList->setCurrentRow(0);
    retype(c().txtFirstName, QStringLiteral("Janet"));
    // The application, one of its keywords and one of its versions.
    c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    selectByText(c().lbAppList, QStringLiteral("Order Entry"));
    retype(c().txtAppName, QStringLiteral("Order Entry II"));
    c().SSAppTab->setCurrentIndex(2);
    ASSERT_TRUE(typeCell(c().TDBGridKeywords, window->keywordsGrid().List().Count(), 0, QStringLiteral("Nightly")));
    c().SSAppTab->setCurrentIndex(1);
    c().lbVersionList->setCurrentRow(1);
    retype(c().txtVersionDesc, QStringLiteral("Changed"));
    // Roles and projects.
    c().SSMainTab->setCurrentIndex(frmMainForm::OptionsPage);
    ASSERT_TRUE(typeCell(c().TDBGridProjects, 0, 1, QStringLiteral("Changed")));
    ASSERT_TRUE(typeCell(c().TDBGridRoles, window->rolesGrid().List().Count(), 0, QStringLiteral("Auditor")));
    window->EnvironDirty = true;

    ASSERT_TRUE(window->UserDirty() && window->AppDirty && window->KeywordDirty() && window->ProjectDirty() &&
                window->RoleDirty() && window->VersionDirty);
    for (int i = 0; i < 7; ++i)
        messages.Queue(Answer::No);
    c().cmdExit.at(frmMainForm::OptionsPage)->click();
    // The version is asked about after the grids, just before the
    // environment.
    EXPECT_EQ(messages.shown, (QStringList{kUserPrompt, kAppPrompt, kKeywordPrompt, kProjectPrompt, kRolePrompt,
                                           kVersionPrompt, kEnvironPrompt}));
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_FALSE(session.repository.IsOpen());
    EXPECT_EQ(snapshotAfterUnload(), before);
}

TEST_P(PromptsTest, YesOnTheGridPromptsSavesThemBeforeLeaving)
{
    openActive(RepositoryContent::Tutorial);
    c().SSMainTab->setCurrentIndex(frmMainForm::OptionsPage);
    ASSERT_TRUE(typeCell(c().TDBGridRoles, window->rolesGrid().List().Count(), 0, QStringLiteral("Auditor")));
    ASSERT_TRUE(typeCell(c().TDBGridProjects, 0, 1, QStringLiteral("Reworked")));

    messages.Queue(Answer::Yes);
    messages.Queue(Answer::Yes);
    c().cmdExit.at(frmMainForm::OptionsPage)->click();
    EXPECT_EQ(messages.shown, (QStringList{kProjectPrompt, kRolePrompt}));
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_EQ(countAfterUnload(QStringLiteral("SELECT * FROM tRole WHERE sRoleName='Auditor' AND sRoleDesc=' '")), 1);
    EXPECT_EQ(countAfterUnload(QStringLiteral("SELECT * FROM tProject WHERE sProjectDesc='Reworked'")), 1);
}

TEST_P(PromptsTest, AFailingUserSaveKeepsTheProgramOpen)
{
    openActive(RepositoryContent::ReferenceData);
    c().cmdUserNew->click();
    retype(c().txtUserID, QStringLiteral("plee"));
    retype(c().txtLastName, QStringLiteral("Lee"));
    retype(c().txtPassword, QStringLiteral("secret"));
    retype(c().txtVerifyPassword, QStringLiteral("secret"));
    c().SSMainTab->setCurrentIndex(frmMainForm::EnvironmentsPage);

    messages.Queue(Answer::Yes);
    c().cmdExit.at(frmMainForm::EnvironmentsPage)->click();
    EXPECT_EQ(messages.shown, (QStringList{kUserPrompt, QStringLiteral("First Name cannot be blank")}));
    EXPECT_FALSE(window->IsUnloaded());
    EXPECT_TRUE(window->isVisible());
    EXPECT_FALSE(window->SaveOk);
    // The editor is as it was, and shows the field to fill in.
    EXPECT_TRUE(window->UserDirty());
    EXPECT_EQ(c().txtUserID->text(), QStringLiteral("plee"));
    EXPECT_EQ(c().txtLastName->text(), QStringLiteral("Lee"));
    EXPECT_TRUE(c().cmdUserSave->isEnabled());
    EXPECT_EQ(c().SSMainTab->currentIndex(), frmMainForm::UsersPage);
    EXPECT_EQ(window->focusWidget(), static_cast<QWidget*>(c().txtFirstName));
    Recordset users(QStringLiteral("SELECT * FROM tUser"), repository());
    EXPECT_EQ(CountRecords(&users), 0);

    // Filled in, Yes saves and the program ends.
    retype(c().txtFirstName, QStringLiteral("Pat"));
    messages.shown.clear();
    messages.Queue(Answer::Yes);
    c().cmdExit.at(frmMainForm::UsersPage)->click();
    EXPECT_EQ(messages.shown, QStringList{kUserPrompt});
    EXPECT_TRUE(window->IsUnloaded());
    EXPECT_EQ(countAfterUnload(QStringLiteral("SELECT * FROM tUser WHERE sUserID='plee' AND sUserFirst='Pat'")), 1);
}

TEST_P(PromptsTest, AFailingApplicationSaveStopsBeforeTheLaterPrompts)
{
    openActive(RepositoryContent::ReferenceData);
    c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    c().cmdAppNew->click();
    retype(c().txtAppName, QStringLiteral("Payroll"));
    window->EnvironDirty = true;

    messages.Queue(Answer::Yes);
    c().cmdExit.at(frmMainForm::ApplicationsPage)->click();
    // The environment is not asked about: the program stays open.
    EXPECT_EQ(messages.shown,
              (QStringList{kAppPrompt, QStringLiteral("You must specify an ID for this application.")}));
    EXPECT_FALSE(window->IsUnloaded());
    EXPECT_TRUE(window->AppDirty);
    EXPECT_TRUE(window->AppIsNew);
    EXPECT_EQ(window->CurrentAppKey, 0);
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Payroll"));
    EXPECT_EQ(c().SSAppTab->currentIndex(), 0);
    EXPECT_EQ(window->focusWidget(), static_cast<QWidget*>(c().txtAppID));
    Recordset apps(QStringLiteral("SELECT * FROM tApp"), repository());
    EXPECT_EQ(CountRecords(&apps), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, PromptsTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
