#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace dorvane {

class Connection;
class MessageSink;

// The key of the user the main window regards as current. The user editor
// sets it when a user is opened (0 on New); the environment users page sets
// it to the registered user it highlights. Each page has a key of its own,
// so that Save and Delete on the users tab act on the user that page shows,
// whatever the environment page highlights.
class CurrentUserKey {
public:
    qint32 Get() const { return m_key; }
    void Set(qint32 key) { m_key = key; }

private:
    qint32 m_key = 0;
};

// The texts of the user editor's eight text boxes.
struct UserFields {
    QString UserID;          // txtUserID
    QString FirstName;       // txtFirstName
    QString LastName;        // txtLastName
    QString Email;           // txtEmail
    QString Extension;       // txtExtension
    QString Department;      // txtDepartment
    QString Password;        // txtPassword
    QString VerifyPassword;  // txtVerifyPassword

    bool operator==(const UserFields&) const = default;
};

// Object names of the fields an outcome may put the focus on.
inline const QString kTxtUserID = QStringLiteral("txtUserID");
inline const QString kTxtFirstName = QStringLiteral("txtFirstName");
inline const QString kTxtLastName = QStringLiteral("txtLastName");
inline const QString kTxtPassword = QStringLiteral("txtPassword");
inline const QString kTxtVerifyPassword = QStringLiteral("txtVerifyPassword");

// The users page of the main tab control.
inline constexpr int kUsersTabIndex = 0;

// What the editor's controls show after New or after opening a user.
struct UserForm {
    UserFields Fields;
    QString FocusField = kTxtUserID;
    bool SaveEnabled = false;
    bool DeleteEnabled = false;
};

// One entry of the user list: "first last" and the user's key.
struct UserListItem {
    QString Text;
    qint32 Key = 0;
};

struct UserOpenOutcome {
    bool Ok = false;
    std::optional<UserForm> Form;  // set when the user was read
};

struct UserSaveOutcome {
    bool SaveOk = false;
    // A check that failed: the field to focus and, for a blank required
    // field, the main tab page to select first (-1: leave the page).
    QString FocusField;
    int MainTab = -1;
    // After a successful save: reload the user list, then show this empty
    // form (the editor stands on a new user).
    bool RefreshUserList = false;
    std::optional<UserForm> Form;
};

struct UserDeleteOutcome {
    bool Deleted = false;
    // After a delete: show this empty form, then reload the user list and
    // the environment's users.
    std::optional<UserForm> Form;
    bool RefreshUserList = false;
    bool RefreshEnvironUsers = false;
};

// The user editor without its widgets: the editor's state and the
// operations behind New, a click in the user list, Save and Delete. The
// widgets pass the texts of the boxes, apply the outcome (fill the boxes,
// focus a field, select the page, enable the buttons, reload lists) and
// report edits with MarkDirty.
class UserRecords {
public:
    explicit UserRecords(CurrentUserKey& currentUserKey);

    qint32 CurrentKey() const { return m_currentUserKey.Get(); }
    bool UserIsNew() const { return m_userIsNew; }
    bool UserDirty() const { return m_userDirty; }
    int UserListIndex() const { return m_userListIndex; }

    // A text box changed: the record is dirty and Save is to be enabled.
    void MarkDirty() { m_userDirty = true; }

    // cmdUserNew: empty boxes, focus on the ID, Save and Delete disabled.
    UserForm New();

    // A click on entry `listIndex` of the user list, whose item data is
    // `userKey`. The key becomes current before the row is read. Failures:
    // "Error opening user: " and the description.
    UserOpenOutcome Open(int listIndex, qint32 userKey, Connection& connection, MessageSink& messages);

    // cmdUserSave: the checks in order (blank fields, the ID unique by the
    // database's comparison, the passwords equal), then the row is written
    // for the current key (added when the user is new). Failures of the
    // database: "Error while saving user: " and the description.
    UserSaveOutcome Save(const UserFields& fields, Connection& connection, MessageSink& messages);

    // cmdUserDelete: asks, then removes the user's environment
    // registrations and the user row, without a transaction. A database
    // error is shown as its bare description (the command has no message
    // of its own); what was deleted before it stays deleted.
    UserDeleteOutcome Delete(const UserFields& fields, Connection& connection, MessageSink& messages);

private:
    CurrentUserKey& m_currentUserKey;
    // After start-up the editor stands on a new, empty user.
    bool m_userIsNew = true;
    bool m_userDirty = false;
    int m_userListIndex = -1;
};

// RefreshUserList's rows: "SELECT * FROM tUser ORDER BY sUserLast", text
// first name, a blank, last name. On a database error shows "Error reading
// Users: " and the description and returns the entries read before it.
std::vector<UserListItem> ReadUserList(Connection& connection, MessageSink& messages);

} // namespace dorvane
