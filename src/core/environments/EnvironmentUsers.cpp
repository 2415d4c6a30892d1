#include "core/environments/EnvironmentUsers.h"

#include "core/environments/EnvironmentRecords.h"
#include "core/repository/Connection.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/users/UserRecords.h"

#include <QSet>

#include <algorithm>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

constexpr qint32 kTrue = -1;
constexpr qint32 kFalse = 0;

QString registrationSql(qint32 userKey, qint32 environKey)
{
    return QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iUserKey=") + num(userKey) +
           QStringLiteral(" AND iEnvironKey = ") + num(environKey);
}

} // namespace

void MoveUserEntry(ListEntries& from, int& fromSelection, ListEntries& to, int& toSelection, int index)
{
    if (index < 0 || index >= from.size())
        return;
    to.push_back(from.at(index));
    from.remove(index);
    toSelection = int(to.size()) - 1;
    fromSelection = from.isEmpty() ? -1 : std::min(index, int(from.size()) - 1);
}

EnvironUserLists EnvironmentUsers::Refresh(Connection& connection, MessageSink& messages,
                                           const std::vector<UserListItem>* users)
{
    EnvironUserLists lists;
    const std::vector<UserListItem> read = users ? std::vector<UserListItem>() : ReadUserList(connection, messages);
    QSet<qint32> registered;
    try {
        Recordset members(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey = ") +
                              num(m_definition.CurrentEnvironKey()),
                          connection);
        Recordset user;
        for (; !members.Eof(); members.MoveNext()) {
            const qint32 userKey = members.Int(QStringLiteral("iUserKey"));
            user.Open(QStringLiteral("SELECT * FROM tUser WHERE iUserKey=") + num(userKey), connection);
            lists.Registered.push_back(
                {user.Text(QStringLiteral("sUserFirst")) + QStringLiteral(" ") + user.Text(QStringLiteral("sUserLast")),
                 userKey});
            registered.insert(userKey);
        }
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error reading Application users: ") + e.description());
    }
    // A registered user leaves the other list once, at its first entry.
    for (const UserListItem& item : users ? *users : read) {
        if (!registered.remove(item.Key))
            lists.Unregistered.push_back({item.Text, item.Key});
    }
    return lists;
}

std::optional<ModuleRights> EnvironmentUsers::Highlight(qint32 userKey, bool editLoading, Connection& connection,
                                                        MessageSink& messages)
{
    if (editLoading)
        return std::nullopt;
    m_currentUserKey.Set(userKey);
    m_definition.ClearDirty();
    try {
        Recordset registration(registrationSql(userKey, m_definition.CurrentEnvironKey()), connection);
        ModuleRights rights{};
        for (const ModuleRight right : {ModuleRight::Dorvane, ModuleRight::Zulane, ModuleRight::Omrik,
                                        ModuleRight::Vantrel, ModuleRight::Krestin}) {
            const QVariant value = registration.Value(RightColumn(right));
            rights[size_t(right)] = value.isValid() && value.toInt() == kTrue;
        }
        return rights;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while selecting application user:") + e.description());
        return std::nullopt;
    }
}

bool EnvironmentUsers::SetRight(ModuleRight right, bool checked, std::optional<qint32> highlightedUserKey,
                                bool editLoading, Connection& connection, MessageSink& messages)
{
    // The boxes are being set from the row: nothing goes back to it.
    if (editLoading || !highlightedUserKey)
        return false;
    try {
        Recordset registration(registrationSql(*highlightedUserKey, m_definition.CurrentEnvironKey()), connection);
        registration.SetValue(RightColumn(right), checked ? kTrue : kFalse);
        registration.Update();
        return true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while setting access rights: ") + e.description());
        return false;
    }
}

bool EnvironmentUsers::Add(std::optional<qint32> userKey, Connection& connection, MessageSink& messages)
{
    if (!userKey)
        return false;
    const qint32 environKey = m_definition.CurrentEnvironKey();
    try {
        Recordset registrations(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=") + num(environKey),
                                connection);
        registrations.AddNew();
        registrations.SetValue(QStringLiteral("iEnvironKey"), environKey);
        registrations.SetValue(QStringLiteral("iUserKey"), *userKey);
        for (const ModuleRight right : kModuleRights)
            registrations.SetValue(RightColumn(right), kFalse);
        registrations.Update();
        return true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while adding application user : ") + e.description());
        return false;
    }
}

bool EnvironmentUsers::Remove(std::optional<qint32> userKey, Connection& connection, MessageSink& messages)
{
    if (!userKey)
        return false;
    try {
        Recordset registration(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=") +
                                   num(m_definition.CurrentEnvironKey()) + QStringLiteral(" AND iUserKey=") +
                                   num(*userKey),
                               connection);
        registration.Delete();
        return true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while Removing application user : ") + e.description());
        return false;
    }
}

} // namespace dorvane
