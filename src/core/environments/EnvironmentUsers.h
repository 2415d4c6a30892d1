#pragma once

#include "core/lists/ListQueries.h"
#include "core/users/ModuleRights.h"
#include "core/users/UserRecords.h"

#include <QString>
#include <QStringList>

#include <array>
#include <optional>
#include <vector>

namespace dorvane {

class Connection;
class CurrentUserKey;
class EnvironmentRecords;
class MessageSink;

// The five boxes, indexed by ModuleRight.
using ModuleRights = std::array<bool, 5>;

// The two lists of the users page.
struct EnvironUserLists {
    ListEntries Unregistered;  // lbEnvironUserList: users not registered
    ListEntries Registered;    // lbEnvironUsers: the environment's users
};

// Moves the entry at `index` from one list to the other (appended) and
// keeps both selections within their lists: the source keeps the same
// position (or the last entry), the destination selects the moved entry.
// Nothing happens for an index outside the source.
void MoveUserEntry(ListEntries& from, int& fromSelection, ListEntries& to, int& toSelection, int index);

// The users page of an environment without its widgets. Registrations are
// written at once; nothing waits for a save. Highlighting a registered
// user makes that user the main window's current user (the key the user
// editor saves to).
class EnvironmentUsers {
public:
    EnvironmentUsers(EnvironmentRecords& definition, CurrentUserKey& currentUserKey)
        : m_definition(definition), m_currentUserKey(currentUserKey)
    {
    }

    // RefreshEnvironUsers: every user (the user list's rows, "first last"
    // by last name), the environment's registered users taken out of that
    // list and listed in the order read. Failure: "Error reading
    // Application users: " + description. `users`, when given, is the
    // user list as the caller has just read it, not read again.
    EnvironUserLists Refresh(Connection& connection, MessageSink& messages,
                             const std::vector<UserListItem>* users = nullptr);

    // A click on lbEnvironUsers (not while the program fills the page):
    // the user becomes current, and the boxes are to show the returned
    // rights (the window sets them with EditLoading set). Also leaves the
    // environment definition clean. Failure: "Error while selecting
    // application user:" + description.
    std::optional<ModuleRights> Highlight(qint32 userKey, bool editLoading, Connection& connection,
                                          MessageSink& messages);

    // A click on one check box: writes that one right of the highlighted
    // registered user (`highlightedUserKey`, none when no entry of
    // lbEnvironUsers is selected). Writes nothing while the program sets
    // the boxes or with no user highlighted. Failure: "Error while setting
    // access rights: " + description. True when the right was written.
    bool SetRight(ModuleRight right, bool checked, std::optional<qint32> highlightedUserKey, bool editLoading,
                  Connection& connection, MessageSink& messages);

    // cmdAddEnvironUser with `userKey` selected in lbEnvironUserList (none:
    // nothing happens): the registration with every right false. On true
    // the window clears the boxes (with EditLoading set) and moves the
    // entry (MoveUserEntry). Failure: "Error while adding application user
    // : " + description.
    bool Add(std::optional<qint32> userKey, Connection& connection, MessageSink& messages);

    // cmdRemoveEnvironUser with `userKey` selected in lbEnvironUsers:
    // deletes the registration. On true the window unchecks the boxes and
    // moves the entry back. Failure: "Error while Removing application user
    // : " + description.
    bool Remove(std::optional<qint32> userKey, Connection& connection, MessageSink& messages);

private:
    EnvironmentRecords& m_definition;
    CurrentUserKey& m_currentUserKey;
};

} // namespace dorvane
