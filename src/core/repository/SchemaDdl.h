#pragma once

#include "core/repository/Connection.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace dorvane {

// The repository proper, or the template that environment backups are made
// from: the same tables plus the iOriginal... columns that remember each
// backed-up row's key in the repository it came from.
enum class SchemaVariant { Repository, BackupTemplate };

// The statements that create the schema on a backend, in the order they
// must run: tables, then the indexes on the foreign keys the copy engine
// selects by. Generated from the table list of Schema.h. The repository
// also gets Dorvane's history table; the backup template does not.
QStringList SchemaStatements(BackendKind backend, SchemaVariant variant);

// The history table (History.h) with its index on the time of entries.
QStringList HistoryTableStatements(BackendKind backend);
// Whether the connected repository has it. Throws DbError.
bool HistoryTableExists(Connection& connection);

// The type (with its default) of a repository column on a backend, as
// the schema creates it; not the key's.
QString ColumnTypeSql(BackendKind backend, const QString& column);

// An index Dorvane keeps on a repository's table, for the lookups its
// long operations repeat.
struct RepositoryIndex {
    QString name;
    QString table;
    QStringList columns;
};

// Every index of the schema, in creation order.
const std::vector<RepositoryIndex>& RepositoryIndexes();
// "CREATE INDEX name ON table (columns)"
QString CreateIndexSql(const RepositoryIndex& index);

// The indexes of RepositoryIndexes that the connected repository lacks (a
// repository the suite made, or an earlier Dorvane). Throws DbError.
std::vector<RepositoryIndex> MissingIndexes(Connection& connection);
// What UpgradeRepository added.
struct RepositoryUpgrade {
    std::vector<RepositoryIndex> indexes;
    bool historyTable = false;
};
// Adds the missing indexes and the history table where it is missing, in
// one transaction, and says what it added; adds nothing, and changes
// nothing else, when nothing is missing. Throws DbError.
RepositoryUpgrade UpgradeRepository(Connection& connection);
// What a program says once per run on a repository that lacks indexes or
// the history table; empty when it lacks neither (or its catalogue cannot
// be read).
QString UpgradeNote(Connection& connection);

// The repository tables that already exist in the connected database,
// named as Schema.h names them.
QStringList ExistingRepositoryTables(Connection& connection);

// Creates the schema inside the caller's transaction. Refuses, before
// running any statement, when one of the repository tables exists.
// Throws DbError.
void CreateSchemaTables(Connection& connection, SchemaVariant variant);

// CreateSchemaTables in a transaction of its own: on any failure nothing
// is left behind. Throws DbError.
void CreateSchema(Connection& connection, SchemaVariant variant);

} // namespace dorvane
