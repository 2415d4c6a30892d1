#pragma once

#include "core/lists/ListQueries.h"
#include "core/users/UserRecords.h"
#include "desktop/mainwindow/EditorPage.h"
#include "ui_UsersPage.h"

#include <memory>
#include <vector>

namespace dorvane {

// The Users page: the registered users and the user editor.
class UsersPage : public EditorPage, public Ui::UsersPage {
    Q_OBJECT
public:
    explicit UsersPage(PageContext& context, QWidget* parent = nullptr);
    ~UsersPage() override;

    // Lists the users again; returns the users it listed.
    std::vector<UserListItem> RefreshUserList();
    // The save prompt: true when the user chose to stay.
    bool UserExitCancel();

signals:
    // The users were listed again (the Environments page lists them too).
    void userListRefreshed(const ListEntries& users);
    // A user left the environments' registrations.
    void environUsersChanged();

private:
    void cmdUserNew_Click();
    void cmdUserSave_Click();
    void cmdUserDelete_Click();
    void lbUserList_Click();
    void showUserForm(const UserForm& form);
    UserFields userFields() const;
    QList<QLineEdit*> userBoxes() const;

    // The user the page shows; the Environments page has its own.
    CurrentUserKey m_currentUserKey;
    UserRecords m_users{m_currentUserKey};
};

} // namespace dorvane
