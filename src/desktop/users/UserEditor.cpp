// The user editor's controls on the main window's Users page.

#include "desktop/mainwindow/frmMainForm.h"
#include "core/startup/Startup.h"
#include "core/users/UserRecords.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTabWidget>

namespace dorvane {

namespace {

UserFields userFields(const MainFormControls& c)
{
    UserFields f;
    f.UserID = c.txtUserID->text();
    f.FirstName = c.txtFirstName->text();
    f.LastName = c.txtLastName->text();
    f.Email = c.txtEmail->text();
    f.Extension = c.txtExtension->text();
    f.Department = c.txtDepartment->text();
    f.Password = c.txtPassword->text();
    f.VerifyPassword = c.txtVerifyPassword->text();
    return f;
}

QList<QLineEdit*> userBoxes(const MainFormControls& c)
{
    return {c.txtUserID, c.txtFirstName, c.txtLastName, c.txtEmail, c.txtExtension, c.txtDepartment, c.txtPassword,
            c.txtVerifyPassword};
}

} // namespace

void frmMainForm::connectUsers()
{
    for (QLineEdit* box : userBoxes(c)) {
        connect(box, &QLineEdit::textChanged, this, [this] {
            c.cmdUserSave->setEnabled(true);
            m_users->MarkDirty();
        });
    }
    connect(c.cmdUserNew, &QPushButton::clicked, this, &frmMainForm::cmdUserNew_Click);
    connect(c.cmdUserSave, &QPushButton::clicked, this, &frmMainForm::cmdUserSave_Click);
    connect(c.cmdUserDelete, &QPushButton::clicked, this, &frmMainForm::cmdUserDelete_Click);
    connect(c.lbUserList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbUserList_Click();
    });
}

// Fills the boxes without counting it as an edit: the form's own flags and
// buttons are what the operation returned.
void frmMainForm::showUserForm(const UserForm& form)
{
    const QList<QLineEdit*> boxes = userBoxes(c);
    const QStringList texts = {form.Fields.UserID, form.Fields.FirstName, form.Fields.LastName,
                               form.Fields.Email, form.Fields.Extension, form.Fields.Department,
                               form.Fields.Password, form.Fields.VerifyPassword};
    for (int i = 0; i < boxes.size(); ++i) {
        const QSignalBlocker block(boxes[i]);
        SetBoxText(boxes[i], texts[i]);
    }
    c.cmdUserSave->setEnabled(form.SaveEnabled);
    c.cmdUserDelete->setEnabled(form.DeleteEnabled);
    focusField(form.FocusField);
}

void frmMainForm::cmdUserNew_Click()
{
    const QSignalBlocker block(c.lbUserList);
    c.lbUserList->setCurrentRow(-1);
    showUserForm(m_users->New());
}

void frmMainForm::lbUserList_Click()
{
    if (EditLoading)
        return;
    EditLoading = true;
    if (UserDirty() && UserExitCancel()) {
        returnToRow(c.lbUserList, m_users->UserListIndex());
        EditLoading = false;
        return;
    }
    const int index = c.lbUserList->currentRow();
    const UserOpenOutcome outcome = m_users->Open(index, ItemKey(c.lbUserList, index), m_session.repository, m_messages);
    if (outcome.Form)
        showUserForm(*outcome.Form);
    EditLoading = false;
}

void frmMainForm::cmdUserSave_Click()
{
    SaveOk = false;
    const UserSaveOutcome outcome = m_users->Save(userFields(c), m_session.repository, m_messages);
    if (outcome.MainTab >= 0)
        c.SSMainTab->setCurrentIndex(outcome.MainTab);
    if (outcome.RefreshUserList)
        RefreshUserList();
    if (outcome.Form) {
        const QSignalBlocker block(c.lbUserList);
        c.lbUserList->setCurrentRow(-1);
        showUserForm(*outcome.Form);
    }
    focusField(outcome.FocusField);
    SaveOk = outcome.SaveOk;
}

void frmMainForm::cmdUserDelete_Click()
{
    const UserDeleteOutcome outcome = m_users->Delete(userFields(c), m_session.repository, m_messages);
    if (outcome.Form)
        showUserForm(*outcome.Form);
    if (outcome.RefreshUserList)
        RefreshUserList();
    if (outcome.RefreshEnvironUsers)
        RefreshEnvironUsers();
}

} // namespace dorvane
