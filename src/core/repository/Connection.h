#pragma once

#include "core/repository/DbError.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace dorvane {

struct Dialect;
struct TableInfo;
class HeldWrites;
class SqliteStatements;

enum class BackendKind { Sqlite, Odbc };

// The database a connection string names: the file of a Jet provider's
// "Data Source=", else the ODBC data source of "DSN=".
struct DataSource {
    QString name;
    bool isFile = false;
};
DataSource ConnectionDataSource(const QString& connectionString);
// The connection string with the value of every password setting (PWD=,
// Password=, ...) replaced by asterisks, for showing it.
QString MaskPasswords(const QString& connectionString);

// A connection opened from one of the suite's connection strings:
//   "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=FILE;"  -> SQLite file FILE
//   "PROVIDER=MSDASQL;DSN=NAME"                             -> ODBC data source NAME
// A missing database file is never created; opening it fails with a
// description that names it. Every failing call throws DbError.
// The page cache, in KiB, of every SQLite connection the program opens.
inline constexpr int kSqlitePageCacheKiB = 32 * 1024;
// The page cache of a connection that a long operation only reads through:
// its reads go along the tables' indexes, so the pages it keeps are
// seldom wanted again, and the writing connection needs the memory more.
inline constexpr int kSqliteReadingPageCacheKiB = 4 * 1024;

// "PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=" & path & ";", the path
// in double quotes (inner ones doubled) when a ";", a quote or blanks at
// its ends would otherwise change what the connection string says.
QString FileConnectionString(const QString& path);

// What a failed statement says when the server is no longer there.
inline const QString kConnectionLostText = QStringLiteral("The connection to the database server was lost: ");

// How long a statement waits for another program's write (SQLite: its
// write lock on the file; PostgreSQL: its locks on the rows) before it
// fails with a description that says the repository is busy and how long
// it waited. Applies to connections opened after it is set.
inline constexpr int kDefaultLockWaitMs = 5000;
void SetLockWaitMs(int milliseconds);
int LockWaitMs();

class Connection {
public:
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Open(const QString& connectionString);
    // The side databases are opened by path, as the suite's own tools do.
    void OpenFile(const QString& path);
    // An SQLite file opened for reading only: nothing written through the
    // connection can reach it (a backup file being checked).
    void OpenFileReadOnly(const QString& path);
    void Close();
    bool IsOpen() const;

    BackendKind backend() const;
    const Dialect& dialect() const;
    const QString& connectionString() const { return m_connectionString; }

    // A write transaction (on SQLite it takes the write lock at once).
    // Prefer the Transaction guard to calling these by hand.
    void BeginTrans();
    // A transaction that only reads and sees one state of the database
    // until it ends, whatever other programs commit meanwhile (SQLite: one
    // read transaction; PostgreSQL: REPEATABLE READ READ ONLY). End it with
    // RollbackTrans or CommitTrans.
    void BeginReadTrans();
    // Fails, rolling back, when a part of the transaction asked for that
    // (MarkRollbackOnly).
    void CommitTrans();
    void RollbackTrans();
    bool InTransaction() const { return m_inTransaction; }
    // The running transaction may only be rolled back: a part of it failed.
    void MarkRollbackOnly() { m_rollbackOnly = m_inTransaction; }

    // Runs a statement that returns no rows; returns the number of rows
    // it affected (-1 when the driver cannot tell).
    qint64 Execute(const QString& sql);

    // Runs a DELETE whose count of deleted rows nobody needs. Inside a
    // transaction on a server, one that deletes the rows of one parent
    // ("DELETE FROM tStep WHERE iStepWindowKey = 12") is held and sent with
    // others like it as one statement (see HeldWrites).
    void ExecuteDeletion(const QString& sql);

    // Whether rows written inside a transaction are held and sent many to a
    // statement where statements are round trips (see HeldWrites): the long
    // operations' choice. A failing row is then reported when its batch is
    // sent - by the end of the step that wrote it, as each step sends its
    // rows before it ends - not by the Update that wrote it. Rows still
    // held when it is turned off are sent by the next read, statement or
    // commit, as ever.
    void BatchWrites(bool on) { m_batching = on; }
    bool BatchesWrites() const { return m_batching; }

    // Shrinks a SQLite connection's page cache to
    // kSqliteReadingPageCacheKiB: for a connection a long operation only
    // reads through, or one it writes through with large statements only
    // (a restore), whose own sorting keeps the memory it needs. Never
    // fails; nothing changes on a server connection.
    void UseSmallPageCache();
    // Gives back the memory of the SQLite page cache (the pages a long
    // operation wrote stay in it otherwise as long as the connection is
    // open). Nothing changes on a server connection.
    void ReleaseMemory();

    // Sends the rows held for sending many to a statement (see HeldWrites)
    // now. A step that writes many rows calls it before it ends, so that a
    // failing row is reported by the step that wrote it. Throws
    // DbError naming the table of the rows (DbError::table()).
    void SendHeldWrites();

    // Makes `function` the SQL function `name` of one text argument on this
    // connection, for its statements to call: it takes and gives the text's
    // UTF-8 bytes as the database holds them (null for a null argument,
    // the argument itself where the function answers nullopt; a DbError it
    // throws fails the statement); an empty function removes it. False, and
    // nothing defined, on a backend whose functions live in the server
    // (PostgreSQL).
    bool DefineTextFunction(const QString& name, std::function<std::optional<QByteArray>(QByteArrayView)> function);

    // Column names of a table as the database reports them, cached per
    // connection; no rows are read.
    QStringList TableColumns(const QString& table);

    // The name of the sequence that hands out `key` of `table` on a
    // server ("public.tstep_istepkey_seq"), empty where there is none;
    // looked up once per connection. Throws DbError.
    QString KeySequence(const QString& table, const QString& key);

    // The first column of every row `sql` selects, as text, read as it is
    // written (no translation, no held writes sent). Throws DbError.
    QStringList FirstColumn(const QString& sql);

    // The error of a statement that failed on this connection, described by
    // the database; on a server, a connection found gone says so first.
    DbError StatementFailure(const QSqlError& error);

    // Creates a new, empty SQLite database file (write-ahead journal).
    // Fails when the file exists already or cannot be created.
    static void CreateDatabaseFile(const QString& path);
    // Removes an SQLite database file (a native path) with the journal
    // files SQLite keeps beside it.
    static void RemoveDatabaseFile(const QString& nativePath);

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
    // transaction on a backend whose statements are round trips, while
    // BatchWrites is on; also wherever rows are still held, so that they
    // are sent before they could be seen. nullptr elsewhere.
    HeldWrites* heldWrites();

private:
    // A server session set to read only for BeginReadTrans is set back.
    void endReadOnlySession();

    struct Private;
    std::unique_ptr<Private> d;
    QString m_connectionString;
    bool m_inTransaction = false;
    bool m_rollbackOnly = false;
    bool m_readOnlySession = false;
    bool m_batching = false;
};


// Turns BatchWrites on for a long operation's scope, and back to what it
// was after it; the pages the operation cached are given back then.
class WriteBatching {
public:
    explicit WriteBatching(Connection& connection) : m_connection(connection), m_was(connection.BatchesWrites())
    {
        connection.BatchWrites(true);
    }
    ~WriteBatching()
    {
        m_connection.BatchWrites(m_was);
        m_connection.ReleaseMemory();
    }
    WriteBatching(const WriteBatching&) = delete;
    WriteBatching& operator=(const WriteBatching&) = delete;

private:
    Connection& m_connection;
    bool m_was;
};

} // namespace dorvane
