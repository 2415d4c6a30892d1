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
    retype(c().txtUserID, QStringLiteral("JSMITH"));
    EXPECT_EQ(save(), QStringLiteral("First Name cannot be blank"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtFirstName));
    // Blanks are not blank.
    retype(c().txtFirstName, QStringLiteral(" "));
    EXPECT_EQ(save(), QStringLiteral("Last Name cannot be blank"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtLastName));
    retype(c().txtLastName, QStringLiteral("Kim"));
    EXPECT_EQ(save(), QStringLiteral("Password cannot be blank"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtPassword));
    retype(c().txtPassword, QStringLiteral("Secret"));
    EXPECT_EQ(save(), QStringLiteral("Verify Password cannot be blank"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtVerifyPassword));

    // The ID is checked before the passwords, by the repository's
    // comparison, which ignores letter case.
    retype(c().txtVerifyPassword, QStringLiteral("secret"));
    EXPECT_EQ(save(), QStringLiteral("JSMITH already exists - please choose another ID"));
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtUserID));
    retype(c().txtUserID, QStringLiteral("skim"));
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

TEST_P(UserEditorWidgetTest, ABlankDepartmentIsStoredAndShownAgainAsABlank)
{
    openActive(RepositoryContent::ReferenceData);
    c().cmdUserNew->click();
    retype(c().txtUserID, QStringLiteral("obrien"));
    retype(c().txtFirstName, QStringLiteral("Pat"));
    retype(c().txtLastName, QStringLiteral("O'Brien"));
    retype(c().txtPassword, QStringLiteral("pw"));
    retype(c().txtVerifyPassword, QStringLiteral("pw"));
    EXPECT_EQ(save(), QString());

    Recordset row(QStringLiteral("SELECT * FROM tUser WHERE sUserID='obrien'"), repository());
    ASSERT_FALSE(row.Eof());
    EXPECT_EQ(row.Text(QStringLiteral("sUserDepartment")), QStringLiteral(" "));
    EXPECT_EQ(row.Text(QStringLiteral("sUserEmail")), QString());
    EXPECT_FALSE(row.IsNull(QStringLiteral("sUserEmail")));
    EXPECT_EQ(row.Text(QStringLiteral("sUserExtension")), QString());

    ASSERT_EQ(c().lbUserList->count(), 1);
    EXPECT_EQ(c().lbUserList->item(0)->text(), QStringLiteral("Pat O'Brien"));
    c().lbUserList->setCurrentRow(0);
    EXPECT_EQ(window->CurrentUserKey(), row.Int(QStringLiteral("iUserKey")));
    EXPECT_EQ(boxTexts(), (QStringList{QStringLiteral("obrien"), QStringLiteral("Pat"), QStringLiteral("O'Brien"),
                                       QStringLiteral("pw"), QStringLiteral("pw"), QStringLiteral(" "), QString(),
                                       QString()}));
    // Opening is no edit.
    EXPECT_FALSE(window->UserDirty());
    EXPECT_FALSE(c().cmdUserSave->isEnabled());
    EXPECT_TRUE(c().cmdUserDelete->isEnabled());
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtUserID));

    // Saved again unchanged, the user keeps its ID (its own row is not a
    // clash) and the department stays one blank.
    retype(c().txtExtension, QStringLiteral("12"));
    EXPECT_EQ(save(), QString());
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser")), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tUser WHERE sUserDepartment=' ' AND sUserExtension='12'")), 1);
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
