#pragma once

#include "core/repository/Connection.h"

#include <QBitArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <vector>

class QSqlDatabase;
class QSqlError;

namespace dorvane {

// How the data layer treats a column's values.
enum class ColumnKind { Integer, Text, Other };

// What the data layer knows about one table: read from the database's
// catalogue once per connection, never from the table's rows.
struct TableInfo {
    QString tableRef;                // the table as the SQL text names it, e.g. tApp or [My Table]
    QStringList columns;             // as the database names them
    std::vector<ColumnKind> kinds;   // one per column
    QStringList types;               // the catalogue's type names, one per column
    int keyIndex = -1;               // the table's own auto-number key, -1 when it has none
    QHash<QString, int> index;       // lower-case column name -> position
    // INSERT statements by the set of columns they write: the copy engine
    // adds its rows one record set at a time.
    mutable QHash<QBitArray, QString> insertSql;
    // UPDATE statements by the set of columns they change, and the DELETE
    // by key: built once, as the rows are changed or deleted one by one.
    mutable QHash<QBitArray, QString> updateSql;
    mutable QString deleteSql;

    // The position of a column, looked up case-insensitively (as `index`
    // does with the lower-case name), -1 when there is none. Field names
    // are looked up for every value read and assigned: an ASCII name is
    // compared in place, without building its lower-case copy.
    int IndexOf(const QString& column) const;
    bool HasKey() const { return keyIndex >= 0; }
    const QString& Key() const { return columns.at(keyIndex); }

private:
    struct Entry {
        QString lower;     // a key of `index`
        QString original;  // the column's own spelling
        int position;
        uint hash;
    };
    void buildLookup() const;
    // An open-addressing table over `index`, built when first needed (and
    // again if `index` grew): slots hold positions in m_entries, -1 free.
    mutable std::vector<Entry> m_entries;
    mutable std::vector<int> m_slots;
};

// The per-backend facts of the data layer: one instance per backend.
struct Dialect {
    enum class KeyReadBack { LastInsertId, Returning };
    enum class Brackets { Keep, FoldToIdentifier };

    BackendKind backend;
    const char* name;
    // How the key of a new row is learnt after its INSERT.
    KeyReadBack keyReadBack;
    // How a Jet [bracketed] name is written: SQLite accepts brackets;
    // PostgreSQL folds unquoted names to lower case, and so must we.
    Brackets brackets;
    // Statements that open, commit and roll back a transaction; nullptr
    // where the driver's own transaction calls are used (ODBC autocommit).
    const char* beginSql;
    const char* commitSql;
    const char* rollbackSql;
    // Whether each statement is a round trip worth saving: rows written
    // inside a transaction are then held and sent many to a statement
    // (HeldWrites).
    bool batchesStatements = false;

    // Adapts Jet SQL text: "DELETE * FROM" -> "DELETE FROM" and [name]
    // quoting. Text inside '...' literals (and "..." names) is never touched.
    QString Translate(const QString& jetSql) const;

    // A column name of the catalogue, quoted for a generated statement.
    static QString QuoteColumn(const QString& column);

    QString InsertSql(const TableInfo& table, const std::vector<int>& columns) const;
    // One INSERT of `rows` rows of the same columns, every value bound.
    QString InsertRowsSql(const TableInfo& table, const std::vector<int>& columns, int rows) const;
    // One UPDATE of `rows` rows by key: each row binds its key and then the
    // values of `columns`, typed as the catalogue types the columns.
    QString UpdateRowsSql(const TableInfo& table, const std::vector<int>& columns, int rows) const;
    QString UpdateSql(const TableInfo& table, const std::vector<int>& columns) const;
    QString DeleteSql(const TableInfo& table) const;
    // One DELETE of the rows whose `column` (the key, or a parent key)
    // holds one of `values` bound values.
    QString DeleteRowsSql(const TableInfo& table, int column, int values) const;
    QString SelectByKeySql(const TableInfo& table) const;

    // Reads a table's columns, their kinds and its primary key from the
    // catalogue. Returns no columns when the table does not exist.
    TableInfo ReadTableInfo(QSqlDatabase& db, const QString& tableRef) const;
};

const Dialect& SqliteDialect();
const Dialect& PostgresDialect();

// The database's own description of an error (its text, else Qt's); when
// the statement gave up waiting for another program's lock, said so first
// (LockWaitDescription).
QString ErrorDescription(const QSqlError& error);

// Notes how long the last statement that gave up on another program's lock
// waited (SQLite's busy handler does).
void NoteLockWait(qint64 milliseconds);
// For the text of a failed statement: when it failed because another
// program holds the repository ("database is locked", a lock timeout or a
// deadlock), "The repository is busy with another program: ..." with how
// long this one waited, and the database's own text in brackets; when
// another operation changed a row this one's transaction was about to
// change, "The repository was changed by another operation meanwhile; try
// again"; other texts as they are.
QString LockWaitDescription(const QString& databaseText);
// How many failures of the second kind (another operation changed a row
// meanwhile) this process has described: RetryOnConcurrentChange compares.
quint64 ConcurrentChanges();

// The table a single-table "SELECT ... FROM <table> ..." reads, as written
// (bare, [bracketed] or "quoted"); empty when there is none.
QString TableRefOf(const QString& selectSql);
// The table's name without its quoting.
QString UnquoteName(const QString& tableRef);

// Values as the data layer hands them out: Null is an invalid QVariant,
// integers fitting 32 bits are int, booleans are -1 / 0.
QVariant NormaliseRead(const QVariant& value);
// A value assigned to a column of the given kind, as it is bound and kept.
QVariant NormaliseAssigned(const QVariant& value, ColumnKind kind);
// A Null of the column's kind, for binding.
QVariant TypedNull(ColumnKind kind);

} // namespace dorvane
