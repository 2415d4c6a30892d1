// The Users page, walked as an administrator does.

#include "desktop/mainwindow/MainWindowFixture.h"

#include <QPushButton>
#include <QTabWidget>

namespace dorvane::test {
namespace {

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
