#include "desktop/users/UsersPage.h"

#include "core/repository/Interaction.h"
#include "core/startup/Startup.h"
#include "desktop/mainwindow/ListControls.h"

#include <QSignalBlocker>

namespace dorvane {

UsersPage::UsersPage(PageContext& context, QWidget* parent) : EditorPage(context, parent)
{
    setupUi(this);
    KeepTypingLimits(this);
    setFirstField(txtUserID);
    for (QLineEdit* box : userBoxes()) {
        connect(box, &QLineEdit::textChanged, this, [this] {
            cmdUserSave->setEnabled(true);
            m_users.MarkDirty();
        });
    }
    connect(cmdUserNew, &QPushButton::clicked, this, &UsersPage::cmdUserNew_Click);
    connect(cmdUserSave, &QPushButton::clicked, this, &UsersPage::cmdUserSave_Click);
    connect(cmdUserDelete, &QPushButton::clicked, this, &UsersPage::cmdUserDelete_Click);
    connect(cmdUserPrint, &QPushButton::clicked, this, [this] { printList(QStringLiteral("Registered Users"), lbUserList); });
    connect(lbUserList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbUserList_Click();
    });
}

UsersPage::~UsersPage() = default;

UserFields UsersPage::userFields() const
{
    UserFields f;
    f.UserID = txtUserID->text();
    f.FirstName = txtFirstName->text();
    f.LastName = txtLastName->text();
    f.Email = txtEmail->text();
    f.Extension = txtExtension->text();
    f.Department = txtDepartment->text();
    f.Password = txtPassword->text();
    f.VerifyPassword = txtVerifyPassword->text();
    return f;
}

QList<QLineEdit*> UsersPage::userBoxes() const
{
    return {txtUserID, txtFirstName, txtLastName, txtEmail, txtExtension, txtDepartment, txtPassword, txtVerifyPassword};
}

std::vector<UserListItem> UsersPage::RefreshUserList()
{
    m_editLoading = true;
    lbUserList->clear();
    std::vector<UserListItem> users = ReadUserList(session().repository, messages());
    ListEntries entries;
    entries.reserve(qsizetype(users.size()));
    for (const UserListItem& user : users)
        entries.append({user.Text, user.Key});
    FillList(lbUserList, entries);
    emit userListRefreshed(entries);
    m_editLoading = false;
    return users;
}

bool UsersPage::UserExitCancel()
{
    if (!m_users.UserDirty())
        return false;
    return listEditorExitCancel(QStringLiteral("Save changes to User record?"), lbUserList, [this] { cmdUserSave_Click(); });
}

// Fills the boxes without counting it as an edit: the form's own flags and
// buttons are what the operation returned.
void UsersPage::showUserForm(const UserForm& form)
{
    const QList<QLineEdit*> boxes = userBoxes();
    const QStringList texts = {form.Fields.UserID, form.Fields.FirstName, form.Fields.LastName,
                               form.Fields.Email, form.Fields.Extension, form.Fields.Department,
                               form.Fields.Password, form.Fields.VerifyPassword};
    for (int i = 0; i < boxes.size(); ++i) {
        const QSignalBlocker block(boxes[i]);
        SetBoxText(boxes[i], texts[i]);
    }
    cmdUserSave->setEnabled(form.SaveEnabled);
    cmdUserDelete->setEnabled(form.DeleteEnabled);
    focusField(form.FocusField);
}

void UsersPage::cmdUserNew_Click()
{
    const QSignalBlocker block(lbUserList);
    lbUserList->setCurrentRow(-1);
    showUserForm(m_users.New());
}

void UsersPage::lbUserList_Click()
{
    if (m_editLoading)
        return;
    m_editLoading = true;
    if (m_users.UserDirty() && UserExitCancel()) {
        returnToRow(lbUserList, m_users.UserListIndex());
        m_editLoading = false;
        return;
    }
    const int index = lbUserList->currentRow();
    const UserOpenOutcome outcome = m_users.Open(index, ItemKey(lbUserList, index), session().repository, messages());
    if (outcome.Form)
        showUserForm(*outcome.Form);
    m_editLoading = false;
}

void UsersPage::cmdUserSave_Click()
{
    m_saveOk = false;
    const UserSaveOutcome outcome = m_users.Save(userFields(), session().repository, messages());
    if (outcome.MainTab >= 0)
        emit showRequested();
    if (outcome.RefreshUserList)
        RefreshUserList();
    if (outcome.Form) {
        const QSignalBlocker block(lbUserList);
        lbUserList->setCurrentRow(-1);
        showUserForm(*outcome.Form);
    }
    focusField(outcome.FocusField);
    m_saveOk = outcome.SaveOk;
}

void UsersPage::cmdUserDelete_Click()
{
    const UserDeleteOutcome outcome = m_users.Delete(userFields(), session().repository, messages());
    if (outcome.Form)
        showUserForm(*outcome.Form);
    if (outcome.RefreshUserList)
        RefreshUserList();
    if (outcome.RefreshEnvironUsers)
        emit environUsersChanged();
}

} // namespace dorvane
