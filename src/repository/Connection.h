#pragma once

#include "repository/DbError.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <memory>

namespace dorvane {

struct Dialect;
struct TableInfo;
class HeldWrites;
class SqliteStatements;

enum class BackendKind { Sqlite, Odbc };

// A connection opened from one of the suite's connection strings:
//   "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=FILE;"  -> SQLite file FILE
//   "PROVIDER=MSDASQL;DSN=NAME"                             -> ODBC data source NAME
// A missing database file is never created; opening it fails with a
// description that names it. Every failing call throws DbError.
// The page cache, in KiB, of every SQLite connection the program opens.
inline constexpr int kSqlitePageCacheKiB = 32 * 1024;

// "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=" & path & ";", the path
// in double quotes (inner ones doubled) when a ";", a quote or blanks at
// its ends would otherwise change what the connection string says.
QString FileConnectionString(const QString& path);

// What a failed statement says when the server is no longer there.
inline const QString kConnectionLostText = QStringLiteral("The connection to the database server was lost: ");

class Connection {
public:
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Open(const QString& connectionString);
    // The side databases are opened by path, as the suite's own tools do.
    void OpenFile(const QString& path);
    void Close();
    bool IsOpen() const;

    BackendKind backend() const;
    const Dialect& dialect() const;
    const QString& connectionString() const { return m_connectionString; }

    void BeginTrans();
    void CommitTrans();
    void RollbackTrans();
    bool InTransaction() const { return m_inTransaction; }

    // Runs a statement that returns no rows; returns the number of rows
    // it affected (-1 when the driver cannot tell).
    qint64 Execute(const QString& sql);

    // Sends the rows held for sending many to a statement (see HeldWrites)
    // now. A step that writes many rows calls it before it ends, so that a
    // failing row is reported by the step that wrote it. Throws
    // HeldWriteError.
    void SendHeldWrites();

    // Column names of a table as the database reports them, cached per
    // connection; no rows are read.
    QStringList TableColumns(const QString& table);

    // The error of a statement that failed on this connection, described by
    // the database; on a server, a connection found gone says so first.
    DbError StatementFailure(const QSqlError& error);

    // Creates a new, empty SQLite database file (write-ahead journal).
    // Fails when the file exists already or cannot be created.
    static void CreateDatabaseFile(const QString& path);

    // For the data layer itself (Recordset and the per-backend helpers).
    QSqlDatabase& database();
    // What the catalogue says about the table a statement names (bare,
    // [bracketed] or "quoted"), read once per connection.
    std::shared_ptr<const TableInfo> tableInfo(const QString& tableRef);
    // A statement prepared once on this connection and kept for reuse.
    QSqlQuery& preparedStatement(const QString& sql);
    // The statements kept on an SQLite connection's own handle, for the data
    // layer's direct path; nullptr on other backends. Emptied whenever the
    // schema may change and before the connection closes.
    SqliteStatements* sqliteStatements();
    // Where rows written now are held instead of sent one by one: inside a
    // transaction on a backend whose statements are round trips; nullptr
    // elsewhere.
    HeldWrites* heldWrites();

private:
    struct Private;
    std::unique_ptr<Private> d;
    QString m_connectionString;
    bool m_inTransaction = false;
};

} // namespace dorvane
