#pragma once

#include "core/repository/DbError.h"

#include <QString>
#include <QVector>

#include <utility>

namespace dorvane {

class Connection;

// One entry of a list or drop-down: the text shown and the row's key,
// which the control keeps as the entry's item data.
struct ListEntry {
    QString text;
    qint32 key = 0;

    bool operator==(const ListEntry&) const = default;
};

using ListEntries = QVector<ListEntry>;

// A list query that failed part way: the database's error, and the entries
// read before it, which a loader keeps.
class ListQueryError : public DbError {
public:
    ListQueryError(const DbError& error, ListEntries read) : DbError(error), entriesRead(std::move(read)) {}
    ListEntries entriesRead;
};

// The entries of the main window's lists, in query order. Each throws
// ListQueryError (or, for the environment's lists, DbError) when its
// query fails.

// The state processes of a version (process type 1), after "None" with key 0.
ListEntries VersionProcessEntries(Connection& connection, qint32 versionKey);
// The windows of a version by logical name, after "None" with key 0.
ListEntries VersionWindowEntries(Connection& connection, qint32 versionKey);
// The versions of an application, ordered by ID.
ListEntries VersionListEntries(Connection& connection, qint32 appKey);
// The map types of a platform.
ListEntries MapTypeEntries(Connection& connection, qint32 platformKey);

// The applications by name (lbAppList and cbEnvironApp).
ListEntries AppEntries(Connection& connection);
// The environments by name.
ListEntries EnvironmentEntries(Connection& connection);
// The versions of an environment, as "App - VersionID" with the version key.
ListEntries EnvironAppVerEntries(Connection& connection, qint32 environmentKey);
// The users registered for an environment, as "First Last" with the user key.
ListEntries EnvironUserEntries(Connection& connection, qint32 environmentKey);
// Reference lists: platforms, test tools, and the real 3270 emulators.
ListEntries PlatformEntries(Connection& connection);
ListEntries TestToolEntries(Connection& connection);
ListEntries EmulatorEntries(Connection& connection);

} // namespace dorvane
