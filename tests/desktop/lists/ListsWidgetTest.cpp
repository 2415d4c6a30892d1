// The Users page, the roles grid and the Keywords tab walked as an
// administrator does, the repository checked after; and the frmFileList
// chooser.

#include "core/lists/NameDescGrids.h"
#include "desktop/lists/frmFileList.h"
#include "desktop/mainwindow/MainWindowFixture.h"

#include <QAction>
#include <QGroupBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTest>

namespace dorvane::test {
namespace {

// A grid's rows, the adding row last: the names, or "name|description".
QStringList column(QTableView* view, bool withDescription = false)
{
    QStringList result;
    for (int row = 0; row < view->model()->rowCount(); ++row)
        result << view->model()->index(row, 0).data().toString() + (withDescription ? u'|' + view->model()->index(row, 1).data().toString() : QString());
    return result;
}

// Types into the cell's own editor and presses Enter.
void typeInEditor(QTableView* view, int row, const QString& text)
{
    const QModelIndex index = view->model()->index(row, 0);
    view->setCurrentIndex(index);
    view->edit(index);
    auto* editor = qobject_cast<QLineEdit*>(view->indexWidget(index));
    ASSERT_NE(editor, nullptr);
    editor->selectAll();
    QTest::keyClicks(editor, text);
    QTest::keyClick(editor, Qt::Key_Return);
    QCoreApplication::processEvents(); // the delegate commits by a queued call
}

void deleteRow(QTableView* view, int row)
{
    view->setCurrentIndex(view->model()->index(row, 0));
    for (QAction* action : view->actions())
        if (action->text() == u"&Delete Row"_s)
            return action->trigger();
    ADD_FAILURE() << "no Delete Row action on " << view->objectName().toStdString();
}

class ListsWidgetTest : public MainWindowFixture {
protected:
    void SetUp() override { MainWindowFixture::SetUp(); OpenTutorial(); }

    void openKeywords(const QString& app)
    {
        mainTab()->setCurrentIndex(frmMainForm::ApplicationsPage);
        applications().lbAppList->setCurrentRow(FindItemByText(applications().lbAppList, app));
        ASSERT_EQ(applications().txtAppName->text(), app);
        applications().SSAppTab->setCurrentIndex(2);
    }

    // A file of the test's folder, written when there is content.
    QString file(const QString& name, const QByteArray& content = {})
    {
        EXPECT_TRUE(content.isEmpty() || WriteFile(m_db->tempPath() + u'/' + name, content));
        return m_db->tempPath() + u'/' + name;
    }
};

// A name typed into the cell's editor and Enter, Save, and the Delete Row
// action reach the repository (the checks themselves are pinned on the
// grid's own tests; where the grids are, on the main window's).
TEST_P(ListsWidgetTest, TheRolesGridIsEditedSavedAndDeletedFrom)
{
    mainTab()->setCurrentIndex(frmMainForm::OptionsPage);
    options().SSOptionsTab->setCurrentWidget(options().grpUserRoles);
    QTableView* view = options().TDBGridRoles;
    typeInEditor(view, 3, u"Tester"_s);
    typeInEditor(view, 3, u"tester"_s);
    EXPECT_EQ(messages.shown, QStringList({"Tester already exists!"}));
    ASSERT_TRUE(TypeCell(view, 2, 1, u"Runs the tests"_s));
    options().cmdRoleSave->click();
    const QString sql = u"SELECT sRoleName, sRoleDesc FROM tRole WHERE sRoleDesc IN (' ', 'Runs the tests') ORDER BY iRoleKey"_s;
    EXPECT_EQ(Rows(repository(), sql), QStringList({"Tester|Runs the tests", "tester| "}));
    deleteRow(view, column(view).indexOf(u"tester"_s));
    EXPECT_EQ(std::pair(Rows(repository(), sql), column(view)), std::pair(QStringList({"Tester|Runs the tests"}), QStringList({"Developer", "Test Lead", "Tester", ""})));
}

TEST_P(ListsWidgetTest, KeywordsAreExportedAndImportedFromTheirTab)
{
    openKeywords(u"Order Entry"_s);
    // Cancelled choosers do nothing.
    dialogs.fileAnswers = {std::nullopt, std::nullopt};
    applications().cmdExportKeywords->click();
    applications().cmdImportKeywords->click();
    EXPECT_TRUE(messages.shown.isEmpty());
    // An export replaces a longer file whole.
    dialogs.fileAnswers = {file(u"oe.txt"_s, QByteArray(1000, 'x'))};
    applications().cmdExportKeywords->click();
    EXPECT_EQ(dialogs.fileListCaptions, QStringList({"Export Keywords to Tab-Delimited Text File", "Import Keywords From Tab-Delimited Text File",
                                                     "Export Keywords to Tab-Delimited Text File"}));
    EXPECT_EQ(dialogs.fileListPresets, (std::vector{FileNamePreset::TextFileInCurrentFolder, FileNamePreset::None, FileNamePreset::TextFileInCurrentFolder}));
    EXPECT_EQ(ReadFile(file(u"oe.txt"_s)), "Orders\tTouches order data\r\nRegression\tPart of the full regression\r\nSmoke\tQuick check after each build\r\n");
    EXPECT_EQ(messages.shown, QStringList{u"The Keywords have been exported to tab delimited text format in the file you selected"_s});

    // Import adds the rows, ended by CR LF or LF, and reloads the grid in
    // name order.
    openKeywords(u"Web Store"_s);
    messages.shown.clear();
    dialogs.fileAnswers = {file(u"in.txt"_s, "Search\tFinding products\nAccount\t\r\n")};
    applications().cmdImportKeywords->click();
    EXPECT_EQ(std::pair(messages.shown, column(applications().TDBGridKeywords, true)),
              std::pair(QStringList{u"The Keywords have been imported - added: 2  skipped: 0"_s}, QStringList({"Account| ", "Checkout|Payment pages", "Search|Finding products", "|"})));

    // Unsaved grid edits meet the save prompt first: Cancel stops the
    // import, Yes saves them, and the import then skips them.
    ASSERT_TRUE(TypeCell(applications().TDBGridKeywords, 3, 0, u"Coupons"_s));
    const QString again = file(u"again.txt"_s, "Checkout\tFrom the file\r\nCoupons\tFrom the file\r\nBasket\tNew\r\n");
    answerNext({Answer::Cancel});
    dialogs.fileListCaptions.clear();
    applications().cmdImportKeywords->click();
    EXPECT_TRUE(messages.shown == QStringList{u"Save changes to Keywords?"_s} && dialogs.fileListCaptions.isEmpty() && applications().KeywordDirty()) << shown();
    messages.Queue(Answer::Yes);
    dialogs.fileAnswers = {again};
    applications().cmdImportKeywords->click();
    EXPECT_EQ(messages.shown, QStringList({"Save changes to Keywords?", "Save changes to Keywords?", "The Keywords have been imported - added: 1  skipped: 2"}));
    EXPECT_EQ(std::pair(Rows(repository(), u"SELECT sKeywordName FROM tKeyword WHERE iKeywordAppKey=%1 ORDER BY sKeywordName"_s.arg(applications().CurrentAppKey())),
                        column(applications().TDBGridKeywords).size()), std::pair(QStringList({"Account", "Basket", "Checkout", "Coupons", "Search"}), qsizetype(6)));

    // Typed as a person types: the name on the adding row, Tab, the
    // description, Return; both land on that row.
    QTableView* grid = applications().TDBGridKeywords;
    window->activateWindow();
    grid->setFocus();
    grid->setCurrentIndex(grid->model()->index(5, 0));
    grid->edit(grid->currentIndex());
    // The editor open on the current cell.
    const auto editor = [grid]() -> QWidget* {
        QCoreApplication::processEvents();
        const QRect cell = grid->visualRect(grid->currentIndex());
        for (QLineEdit* box : grid->viewport()->findChildren<QLineEdit*>())
            if (box->isVisible() && cell.contains(box->geometry().center().x(), cell.center().y()) && box->x() >= cell.x() - 2)
                return box;
        return grid;
    };
    QTest::keyClicks(editor(), u"Gift"_s);
    QTest::keyClick(editor(), Qt::Key_Tab);
    QTest::keyClicks(editor(), u"Vouchers"_s);
    QTest::keyClick(editor(), Qt::Key_Return);
    QCoreApplication::processEvents();
    EXPECT_EQ(std::pair(column(grid, true).mid(5), messages.shown.mid(3)), std::pair(QStringList({"Gift|Vouchers", "|"}), QStringList()));

    // Opening another application, or another page, with grid edits not
    // saved asks first: Cancel stays, No drops them (the grid shows the
    // stored rows again and Save is off).
    answerNext({Answer::Cancel});
    Select(applications().lbAppList, u"Order Entry"_s);
    EXPECT_EQ(std::pair(messages.shown, applications().txtAppName->text()), std::pair(QStringList{u"Save changes to Keywords?"_s}, u"Web Store"_s));
    messages.Queue(Answer::Cancel);
    mainTab()->setCurrentIndex(frmMainForm::UsersPage);
    EXPECT_EQ(mainTab()->currentIndex(), int(frmMainForm::ApplicationsPage));
    messages.Queue(Answer::No);
    mainTab()->setCurrentIndex(frmMainForm::UsersPage);
    EXPECT_EQ(std::tuple(mainTab()->currentIndex(), column(applications().TDBGridKeywords).contains(u"Gift"_s), applications().cmdKeywordSave->isEnabled(),
                         count(u"SELECT * FROM tKeyword WHERE sKeywordName='Gift'"_s)),
              std::tuple(int(frmMainForm::UsersPage), false, false, qsizetype(0)));
}

INSTANTIATE_TEST_SUITE_P(Backends, ListsWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

// The chooser: the preset is the current folder and the extension, a click
// on a file takes its name, Cancel hands nothing back.
TEST(frmFileListTest, PresetClickAndCancel)
{
    QTemporaryDir dir;
    ScriptedMessages messages;
    ASSERT_TRUE(QFile(dir.path() + u"/keywords.txt"_s).open(QIODevice::WriteOnly));
    frmFileList dialog(messages);
    EXPECT_EQ(dialog.CurrentFolder(), QDir::currentPath());
    dialog.SetFolder(dir.path());
    dialog.show();
    QAbstractItemModel* files = dialog.flbFileList->model();
    QTRY_COMPARE(files->rowCount(dialog.flbFileList->rootIndex()), 1);
    dialog.flbFileList_Click(files->index(0, 0, dialog.flbFileList->rootIndex()));
    EXPECT_EQ(dialog.txtFileName->text(), dir.path() + u"/keywords.txt"_s);
    dialog.PresetTextFileName();
    EXPECT_EQ(dialog.txtFileName->text(), dir.path() + u"/.txt"_s);
    dialog.txtFileName->setCursorPosition(dialog.txtFileName->text().size() - 4);
    QTest::keyClicks(dialog.txtFileName, u"export"_s);
    dialog.cmdOK->click();
    EXPECT_EQ(std::pair(dialog.Cancelled(), dialog.FileName()), std::pair(false, dir.path() + u"/export.txt"_s));

    frmFileList cancelled(messages);
    cancelled.show();
    cancelled.txtFileName->setText(u"/tmp/x.txt"_s);
    cancelled.cmdCancel->click();
    EXPECT_TRUE(cancelled.Cancelled() && cancelled.FileName().isEmpty() && !cancelled.isVisible());
}

// ---- the Users page ----

class UsersPageTest : public MainWindowFixture {
protected:
    void SetUp() override { MainWindowFixture::SetUp(); OpenTutorial(frmMainForm::UsersPage); }
    // The eight boxes: ID, names, passwords, department, e-mail, extension.
    QStringList boxes()
    {
        return {users().txtUserID->text(), users().txtFirstName->text(), users().txtLastName->text(), users().txtPassword->text(),
                users().txtVerifyPassword->text(), users().txtDepartment->text(), users().txtEmail->text(), users().txtExtension->text()};
    }
    // Presses Save; the messages it showed.
    QStringList save() { messages.shown.clear(); users().cmdUserSave->click(); return messages.shown; }
};

// Right after start-up the editor stands on a new, empty user. Save checks
// the fields (their order, messages and focus: UserRecordsTest) and writes
// only when all pass.
TEST_P(UsersPageTest, AddingAUser)
{
    const qsizetype before = count(u"SELECT * FROM tUser"_s);
    Retype(users().txtEmail, u"kim@example.com"_s);
    EXPECT_EQ(std::pair(save(), count(u"SELECT * FROM tUser"_s)), std::pair(QStringList{u"User ID cannot be blank"_s}, before));

    const QStringList typed = {u"skim"_s, u" "_s, u"Kim"_s, u"Secret"_s, u"Secret"_s};
    for (int i = 0; i < typed.size(); ++i)
        Retype(QList<QLineEdit*>{users().txtUserID, users().txtFirstName, users().txtLastName, users().txtPassword, users().txtVerifyPassword}[i], typed[i]);
    EXPECT_TRUE(save().isEmpty() && users().SaveOk()) << shown();
    // Stored, and the list shows the new one.
    EXPECT_TRUE(count(u"SELECT * FROM tUser WHERE sUserID='skim' AND sUserFirst=' ' AND sUserPassword='Secret' AND sUserEmail='kim@example.com' AND sUserDepartment=' '"_s) == 1
                && FindItemByText(users().lbUserList, u"  Kim"_s) >= 0);
}

// Another user clicked with changes made asks first. Null optional texts
// and a login ID longer than the box allows, as the suite's other modules
// write them, open empty and whole, and are kept when another field is saved.
TEST_P(UsersPageTest, SwitchingUsersAndStoredValues)
{
    const QString id = u"jane.smith.qa.team"_s;
    DB_ASSERT(repository().Execute(u"UPDATE tUser SET sUserID='%1', sUserEmail=NULL, sUserExtension=NULL, sUserDepartment=NULL "
                                   "WHERE sUserID='jsmith'"_s.arg(id)));
    // Sorted by last name: Brown, Chen, Smith.
    ASSERT_EQ(users().lbUserList->item(0)->text(), u"Mark Brown"_s);
    users().lbUserList->setCurrentRow(0);
    Retype(users().txtExtension, u"1234"_s);
    messages.Queue(Answer::Cancel);
    users().lbUserList->setCurrentRow(2);
    EXPECT_EQ(std::pair(users().lbUserList->currentRow(), users().txtExtension->text()), std::pair(0, u"1234"_s));
    messages.Queue(Answer::Yes);
    users().lbUserList->setCurrentRow(2);
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tUser WHERE sUserID='mbrown' AND sUserExtension='1234'"_s), boxes()),
              std::pair(qsizetype(1), QStringList{id, u"Jane"_s, u"Smith"_s, u"tutorial"_s, u"tutorial"_s, QString(), QString(), QString()}));
    Retype(users().txtDepartment, u"Nowhere"_s);
    messages.Queue(Answer::No);
    users().lbUserList->setCurrentRow(1);
    EXPECT_EQ(std::pair(messages.shown, count(u"SELECT * FROM tUser WHERE sUserDepartment='Nowhere'"_s)), std::pair(QStringList(3, u"Save changes to User record?"_s), qsizetype(0)));

    users().lbUserList->setCurrentRow(2);
    Retype(users().txtDepartment, u"Release"_s);
    EXPECT_TRUE(save().isEmpty() && count(u"SELECT * FROM tUser WHERE sUserID='%1' AND sUserDepartment='Release'"_s.arg(id)) == 1) << shown();
}

// The Users page acts on the user it shows, whichever registered user the
// Environments page highlights meanwhile.
TEST_P(UsersPageTest, DeleteActsOnTheUserThePageShows)
{
    Select(users().lbUserList, u"Jane Smith"_s);
    mainTab()->setCurrentIndex(frmMainForm::EnvironmentsPage);
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    environments().SSEnvironTab->setCurrentIndex(2);
    Select(environments().lbEnvironUsers, u"Mark Brown"_s);
    mainTab()->setCurrentIndex(frmMainForm::UsersPage);
    messages.Queue(Answer::Yes);
    users().cmdUserDelete->click();
    EXPECT_EQ(messages.shown.value(0), u"Are you sure you want to delete Jane Smith?"_s) << shown();
    EXPECT_EQ(Rows(repository(), u"SELECT sUserFirst, sUserLast FROM tUser ORDER BY sUserLast"_s),
              QStringList({u"Mark|Brown"_s, u"Li|Chen"_s}));
}

INSTANTIATE_TEST_SUITE_P(Backends, UsersPageTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
