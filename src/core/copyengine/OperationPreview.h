#pragma once

#include "core/copyengine/VersionContent.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace dorvane {

class Connection;

// Rows by table, in the order the tables were first met.
struct TableRows {
    QString table;
    qint64 rows = 0;
};
using RowCounts = std::vector<TableRows>;

// Adds `rows` to the count of `table` (a new entry when it has none).
void AddRows(RowCounts& counts, const QString& table, qint64 rows);
void AddRows(RowCounts& counts, const RowCounts& more);
qint64 TotalRows(const RowCounts& counts);

// The rows the parts of a content walk select on `db` (the repository, or
// a backup file), one statement a table: a row that two parts select (a
// keyword relation held twice) counts once, as its deletion takes it once.
// Reads only.
RowCounts CountContentRows(Connection& db, const std::vector<ContentDeletion>& parts);

// What a copy or a deletion will write or delete, computed beforehand by
// reading only: the versions it concerns, each with the rows of its content
// that the operation takes, and the rows of every table over the whole
// operation (content, version rows and the rows around them).
struct OperationPreview {
    struct Version {
        QString application;
        QString version;  // its ID
        qint64 rows = 0;
    };
    std::vector<Version> versions;
    RowCounts rows;

    // The lines dorvanectl prints, fields separated by TABs:
    // "version APP ID ROWS" for each version, "rows TABLE N" for each table
    // with rows, "total N".
    QStringList Lines() const;
    // The same for a person: "Order Entry 1.1: 1234 rows" a version, then
    // "In all: 1300 rows (tWindow 12, ...)".
    QString Text() const;
};

// The deletion of a version (DeleteVersionContents): its content but its
// requirements, and the version row.
OperationPreview PreviewVersionDeletion(Connection& repository, qint32 versionKey);
// The deletion of an application: each of its versions as above, and the
// application row.
OperationPreview PreviewApplicationDeletion(Connection& repository, qint32 appKey);
// Save As of an environment with the copy of its versions as new versions:
// the environment row, its users and list entries, each version's row and
// copied content (CopiedVersionContent), its schedules and its record
// layouts with their fields and file instances. The rows of the layouts'
// data tables live in the test data database and are not counted.
OperationPreview PreviewEnvironmentCopy(Connection& repository, qint32 environmentKey);
// The deletion of an environment: its row, list entries and users. Its
// versions stay; each is listed with the rows of content it holds.
OperationPreview PreviewEnvironmentDeletion(Connection& repository, qint32 environmentKey);

// The rows of the content below a version as a copy of it takes them, and
// all of them as a restore's emptying takes them, by table.
RowCounts CopiedVersionRows(Connection& db, qint32 versionKey);
RowCounts VersionContentRows(Connection& db, qint32 versionKey);

// "1234 rows" ("1 row").
QString RowsText(qint64 rows);

} // namespace dorvane
