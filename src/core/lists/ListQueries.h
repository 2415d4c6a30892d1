#pragma once

#include "core/repository/DbError.h"

#include <QString>
#include <QVector>

#include <optional>

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

// What a list query read: its entries in query order and, when the query
// failed part way, the database's error (the entries are then those read
// before it, which the window's loaders keep).
struct ListRead {
    ListEntries entries;
    std::optional<DbError> error;

    // The entries of a query that must read them all; throws its error.
    const ListEntries& all() const;
};

// The entries of the main window's lists.

// The state processes of a version (process type 1), after "None" with key 0.
ListRead VersionProcessEntries(Connection& connection, qint32 versionKey);
// The windows of a version by logical name, after "None" with key 0.
ListRead VersionWindowEntries(Connection& connection, qint32 versionKey);
// The versions of an application, ordered by ID.
ListRead VersionListEntries(Connection& connection, qint32 appKey);
// The map types of a platform.
ListRead MapTypeEntries(Connection& connection, qint32 platformKey);

// The applications by name (lbAppList and cbEnvironApp).
ListRead AppEntries(Connection& connection);
// The environments by name.
ListRead EnvironmentEntries(Connection& connection);
// The versions of an environment, as "App - VersionID" with the version key.
ListEntries EnvironAppVerEntries(Connection& connection, qint32 environmentKey);
// The users registered for an environment, as "First Last" with the user key.
// These two throw DbError when a query fails.
ListEntries EnvironUserEntries(Connection& connection, qint32 environmentKey);
// Reference lists: platforms, test tools, and the real 3270 emulators.
ListRead PlatformEntries(Connection& connection);
ListRead TestToolEntries(Connection& connection);
ListRead EmulatorEntries(Connection& connection);

} // namespace dorvane
