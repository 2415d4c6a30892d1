// The user editor on the Users page, driven as an administrator does.

#include "mainwindow/MainWindowFixture.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>

namespace dorvane::test {
namespace {

void retype(QLineEdit* box, const QString& text)
{
    box->selectAll();
    if (text.isEmpty())
        QTest::keyClick(box, Qt::Key_Backspace);
    else
        QTest::keyClicks(box, text);
}

class UserEditorWidgetTest : public MainWindowFixture {
protected:
    void openActive(RepositoryContent content)
    {
        OpenWindow(content);
        window->activateWindow();
        c().SSMainTab->setCurrentIndex(frmMainForm::UsersPage);
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, repository());
        return CountRecords(&rs);
    }

    QWidget* focused() { return window->focusWidget(); }

    // Presses Save and returns the one message it showed.
    QString save()
    {
        messages.shown.clear();
        c().cmdUserSave->click();
        return messages.shown.size() == 1 ? messages.shown.first() : messages.shown.join(QStringLiteral(" / "));
    }

    QStringList boxTexts()
    {
        QStringList texts;
        for (QLineEdit* box : {c().txtUserID, c().txtFirstName, c().txtLastName, c().txtPassword,
                               c().txtVerifyPassword, c().txtDepartment, c().txtEmail, c().txtExtension})
            texts << box->text();
        return texts;
    }
};

// Right after start-up the editor stands on a new, empty user: typing and
// Save add one. A user whose optional columns the suite's other modules
// left Null opens with those boxes empty.
TEST_P(UserEditorWidgetTest, StartsOnANewUserAndOpensNullOptionalsAsEmpty)
{
    openActive(RepositoryContent::Tutorial);
    const qint32 before = count(QStringLiteral("SELECT * FROM tUser"));
    const QStringList typed = {QStringLiteral("skim"), QStringLiteral("Sam"), QStringLiteral("Kim"),
                               QStringLiteral("secret"), QStringLiteral("secret")};
    const QList<QLineEdit*> boxes = {c().txtUserID, c().txtFirstName, c().txtLastName, c().txtPassword,
                                     c().txtVerifyPassword};
    for (int i = 0; i < boxes.size(); ++i)
        retype(boxes[i], typed[i]);
    EXPECT_EQ(save(), QString());
    EXPECT_TRUE(window->SaveOk);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser")), before + 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser WHERE sUserID='skim' AND sUserDepartment=' '")), 1);

    DB_ASSERT(repository().Execute(QStringLiteral(
        "UPDATE tUser SET sUserEmail=NULL, sUserExtension=NULL, sUserDepartment=NULL WHERE sUserID='jsmith'")));
    c().lbUserList->setCurrentRow(FindItemByText(c().lbUserList, QStringLiteral("Jane Smith")));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(boxTexts(), (QStringList{QStringLiteral("jsmith"), QStringLiteral("Jane"), QStringLiteral("Smith"),
                                       QStringLiteral("tutorial"), QStringLiteral("tutorial"), QString(), QString(),
                                       QString()}));
    EXPECT_TRUE(c().cmdUserDelete->isEnabled());
}

// A login ID stored longer than the box lets a user type is shown whole
// and saved as stored when another field was edited.
TEST_P(UserEditorWidgetTest, ALongStoredIdIsShownWholeAndKept)
{
    openActive(RepositoryContent::Tutorial);
    const QString id = QStringLiteral("jane.smith.qa.team");
    DB_ASSERT(repository().Execute(QStringLiteral("UPDATE tUser SET sUserID='%1' WHERE sUserID='jsmith'").arg(id)));
    c().lbUserList->setCurrentRow(FindItemByText(c().lbUserList, QStringLiteral("Jane Smith")));
    EXPECT_EQ(c().txtUserID->text(), id);
    retype(c().txtDepartment, QStringLiteral("Release"));
    EXPECT_EQ(save(), QString());
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser WHERE sUserID='%1' AND sUserDepartment='Release'").arg(id)), 1);
}

TEST_P(UserEditorWidgetTest, SaveChecksTheFieldsInOrderAndWritesOnlyWhenAllPass)
{
    openActive(RepositoryContent::Tutorial);
    const qint32 before = count(QStringLiteral("SELECT * FROM tUser"));
    c().cmdUserNew->click();
    EXPECT_FALSE(c().cmdUserSave->isEnabled());
    EXPECT_FALSE(c().cmdUserDelete->isEnabled());

    // Typing enables Save; each blank required field is named in turn.
    retype(c().txtEmail, QStringLiteral("kim@example.com"));
    EXPECT_TRUE(c().cmdUserSave->isEnabled());
    EXPECT_EQ(save(), QStringLiteral("User ID cannot be blank"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtUserID));
    // The rest of the order is the core's; here the message, the focus and
    // the boxes kept as typed.
    retype(c().txtUserID, QStringLiteral("skim"));
    retype(c().txtFirstName, QStringLiteral(" "));
    retype(c().txtLastName, QStringLiteral("Kim"));
    retype(c().txtPassword, QStringLiteral("Secret"));
    retype(c().txtVerifyPassword, QStringLiteral("secret"));
    EXPECT_EQ(save(), QStringLiteral("Passwords don't match - please re-enter"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtPassword));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser")), before);
    EXPECT_TRUE(window->UserDirty());
    EXPECT_EQ(boxTexts(), (QStringList{QStringLiteral("skim"), QStringLiteral(" "), QStringLiteral("Kim"),
                                       QStringLiteral("Secret"), QStringLiteral("secret"), QString(),
                                       QStringLiteral("kim@example.com"), QString()}));

    retype(c().txtVerifyPassword, QStringLiteral("Secret"));
    EXPECT_EQ(save(), QString());
    EXPECT_TRUE(window->SaveOk);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser WHERE sUserID='skim' AND sUserFirst=' ' AND "
                                   "sUserPassword='Secret' AND sUserEmail='kim@example.com'")),
              1);
    // The editor stands on an empty new user; the list shows the new one,
    // unselected.
    EXPECT_EQ(boxTexts(), QStringList(8, QString()));
    EXPECT_FALSE(c().cmdUserSave->isEnabled());
    EXPECT_FALSE(c().cmdUserDelete->isEnabled());
    EXPECT_FALSE(window->UserDirty());
    EXPECT_EQ(window->CurrentUserKey(), 0);
    EXPECT_EQ(c().lbUserList->currentRow(), -1);
    EXPECT_GE(FindItemByText(c().lbUserList, QStringLiteral("  Kim")), 0);
    EXPECT_EQ(c().lbUserList->count(), before + 1);
}

TEST_P(UserEditorWidgetTest, SwitchingUsersWithChangesAsksFirst)
{
    openActive(RepositoryContent::Tutorial);
    // Sorted by last name: Brown, Chen, Smith.
    ASSERT_EQ(c().lbUserList->item(0)->text(), QStringLiteral("Mark Brown"));
    c().lbUserList->setCurrentRow(0);
    retype(c().txtExtension, QStringLiteral("1234"));

    // Cancel: the selection goes back, the edit stays.
    messages.Queue(Answer::Cancel);
    c().lbUserList->setCurrentRow(2);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to User record?")});
    EXPECT_EQ(c().lbUserList->currentRow(), 0);
    EXPECT_EQ(c().txtFirstName->text(), QStringLiteral("Mark"));
    EXPECT_EQ(c().txtExtension->text(), QStringLiteral("1234"));
    EXPECT_TRUE(window->UserDirty());
    EXPECT_FALSE(window->EditLoading);

    // Yes: the edit is saved and the user clicked is shown.
    messages.shown.clear();
    messages.Queue(Answer::Yes);
    c().lbUserList->setCurrentRow(2);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to User record?")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser WHERE sUserID='mbrown' AND sUserExtension='1234'")), 1);
    EXPECT_EQ(c().lbUserList->currentRow(), 2);
    EXPECT_EQ(c().txtUserID->text(), QStringLiteral("jsmith"));
    EXPECT_FALSE(window->UserDirty());
    EXPECT_FALSE(window->EditLoading);

    // No: the edit is dropped.
    retype(c().txtDepartment, QStringLiteral("Nowhere"));
    messages.shown.clear();
    messages.Queue(Answer::No);
    c().lbUserList->setCurrentRow(1);
    EXPECT_EQ(c().txtUserID->text(), QStringLiteral("lchen"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser WHERE sUserDepartment='Nowhere'")), 0);
    EXPECT_FALSE(window->UserDirty());
}

INSTANTIATE_TEST_SUITE_P(Backends, UserEditorWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
