#include "core/users/UserRecords.h"

#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

// A text box cannot hold Null. The optional columns (email, extension,
// department), which the suite's other modules may leave Null, read as the
// empty text; a Null in a required column makes the open fail.
QString requiredText(Recordset& rs, const QString& column)
{
    if (rs.IsNull(column))
        throw DbError(QStringLiteral("Invalid use of Null"));
    return rs.Text(column);
}

// A text box's text is never Null: an empty text is stored as the empty
// text, not as Null (the data layer binds a null QString as Null).
QVariant boxText(const QString& text)
{
    return text.isNull() ? QVariant(QStringLiteral("")) : QVariant(text);
}

} // namespace

UserRecords::UserRecords(CurrentUserKey& currentUserKey) : m_currentUserKey(currentUserKey) {}

UserForm UserRecords::New()
{
    m_userListIndex = -1;
    m_userIsNew = true;
    m_currentUserKey.Set(0);
    m_userDirty = false;
    return UserForm{};
}

UserOpenOutcome UserRecords::Open(int listIndex, qint32 userKey, Connection& connection, MessageSink& messages)
{
    UserOpenOutcome outcome;
    m_userListIndex = listIndex;
    m_currentUserKey.Set(userKey);
    try {
        Recordset rs(QStringLiteral("SELECT * FROM tUser WHERE iUserKey=") + QString::number(userKey), connection);
        UserForm form;
        form.Fields.UserID = requiredText(rs, QStringLiteral("sUserID"));
        form.Fields.FirstName = requiredText(rs, QStringLiteral("sUserFirst"));
        form.Fields.LastName = requiredText(rs, QStringLiteral("sUserLast"));
        form.Fields.Extension = rs.Text(QStringLiteral("sUserExtension"));
        form.Fields.Email = rs.Text(QStringLiteral("sUserEmail"));
        form.Fields.Department = rs.Text(QStringLiteral("sUserDepartment"));
        form.Fields.Password = requiredText(rs, QStringLiteral("sUserPassword"));
        form.Fields.VerifyPassword = form.Fields.Password;
        form.FocusField = kTxtUserID;
        form.SaveEnabled = false;
        form.DeleteEnabled = true;
        outcome.Form = form;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error opening user: ") + e.description());
        return outcome;
    }
    m_userIsNew = false;
    m_userDirty = false;
    outcome.Ok = true;
    return outcome;
}

UserSaveOutcome UserRecords::Save(const UserFields& fields, Connection& connection, MessageSink& messages)
{
    UserSaveOutcome outcome;

    // Only the empty text is blank: a field of blanks passes.
    const struct {
        const QString& text;
        const QString& field;
        const char* message;
    } required[] = {
        {fields.UserID, kTxtUserID, "User ID cannot be blank"},
        {fields.FirstName, kTxtFirstName, "First Name cannot be blank"},
        {fields.LastName, kTxtLastName, "Last Name cannot be blank"},
        {fields.Password, kTxtPassword, "Password cannot be blank"},
        {fields.VerifyPassword, kTxtVerifyPassword, "Verify Password cannot be blank"},
    };
    for (const auto& check : required) {
        if (check.text.isEmpty()) {
            outcome.MainTab = kUsersTabIndex;
            outcome.FocusField = check.field;
            messages.Inform(QString::fromLatin1(check.message));
            return outcome;
        }
    }

    const QString key = QString::number(m_currentUserKey.Get());
    try {
        {
            // The database's own comparison decides: on the repository it
            // ignores letter case. A new user (key 0) meets every row.
            Recordset same(QStringLiteral("SELECT * FROM tUser WHERE sUserID='") + QuoteSql(fields.UserID) +
                               QStringLiteral("' AND iUserKey <>") + key,
                           connection);
            if (!same.Eof()) {
                outcome.FocusField = kTxtUserID;
                messages.Inform(fields.UserID + QStringLiteral(" already exists - please choose another ID"));
                return outcome;
            }
            if (fields.Password != fields.VerifyPassword) {
                outcome.FocusField = kTxtPassword;
                messages.Inform(QStringLiteral("Passwords don't match - please re-enter"));
                return outcome;
            }
        }

        Recordset rs(QStringLiteral("SELECT * FROM tUser WHERE iUserKey=") + key, connection);
        if (m_userIsNew)
            rs.AddNew();
        rs.SetValue(QStringLiteral("sUserID"), boxText(fields.UserID));
        rs.SetValue(QStringLiteral("sUserFirst"), boxText(fields.FirstName));
        rs.SetValue(QStringLiteral("sUserLast"), boxText(fields.LastName));
        rs.SetValue(QStringLiteral("sUserEmail"), boxText(fields.Email));
        rs.SetValue(QStringLiteral("sUserExtension"), boxText(fields.Extension));
        // Only the department keeps a blank in place of an empty text.
        rs.SetValue(QStringLiteral("sUserDepartment"),
                    boxText(fields.Department.isEmpty() ? QStringLiteral(" ") : fields.Department));
        rs.SetValue(QStringLiteral("sUserPassword"), boxText(fields.Password));
        rs.Update();
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while saving user: ") + e.description());
        return outcome;
    }

    m_userDirty = false;
    outcome.RefreshUserList = true;
    outcome.Form = New();
    outcome.SaveOk = true;
    return outcome;
}

UserDeleteOutcome UserRecords::Delete(const UserFields& fields, Connection& connection, MessageSink& messages)
{
    UserDeleteOutcome outcome;
    const Answer answer = messages.Show(QStringLiteral("Are you sure you want to delete ") + fields.FirstName +
                                            QStringLiteral(" ") + fields.LastName + QStringLiteral("?"),
                                        Buttons::YesNo);
    if (answer != Answer::Yes)
        return outcome;

    const QString key = QString::number(m_currentUserKey.Get());
    try {
        // The registrations with their module rights go first.
        Recordset registrations(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iUserKey = ") + key, connection);
        while (!registrations.Eof()) {
            registrations.Delete();
            registrations.MoveNext();
        }
        Recordset user(QStringLiteral("SELECT * FROM tUser WHERE iUserKey = ") + key, connection);
        user.Delete();
    } catch (const DbError& e) {
        messages.Inform(e.description());
        return outcome;
    }

    outcome.Deleted = true;
    outcome.Form = New();
    outcome.RefreshUserList = true;
    outcome.RefreshEnvironUsers = true;
    return outcome;
}

std::vector<UserListItem> ReadUserList(Connection& connection, MessageSink& messages)
{
    std::vector<UserListItem> items;
    try {
        Recordset rs(QStringLiteral("SELECT * FROM tUser ORDER BY sUserLast"), connection);
        for (; !rs.Eof(); rs.MoveNext())
            items.push_back({rs.Text(QStringLiteral("sUserFirst")) + QStringLiteral(" ") +
                                 rs.Text(QStringLiteral("sUserLast")),
                             rs.Int(QStringLiteral("iUserKey"))});
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error reading Users: ") + e.description());
    }
    return items;
}

} // namespace dorvane
