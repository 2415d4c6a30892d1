#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace dorvane {

// How a column is stored. The type follows from the column's prefix:
// i integer, s text, m long text, b boolean (true = -1), d date/time.
enum class ColumnType { Integer, Text, Memo, Boolean, DateTime };

struct TableDef {
    QString name;
    QString key;              // the table's own auto-number key
    QStringList columns;      // every column, the key first
    QStringList backupOnly;   // columns that exist only in the backup template
};

// The repository's tables, in the order they are created.
const std::vector<TableDef>& RepositoryTables();

// The table of that name (case-insensitive), or nullptr.
const TableDef* FindTable(const QString& name);

ColumnType ColumnTypeOf(const QString& column);

} // namespace dorvane
