#pragma once

#include <QHash>
#include <QString>
#include <QVariant>

#include <optional>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace dorvane {

// The statements the data layer runs again and again on an SQLite
// connection (the INSERT of a new row, the UPDATE and DELETE of the current
// one, the read-back by key), prepared once on the connection's own handle
// and kept. They share the handle, and with it the transaction, with
// everything run through Qt. A kept statement is always reset after use, so
// it holds no lock and no read position between uses.
class SqliteStatements {
public:
    explicit SqliteStatements(sqlite3* handle);
    ~SqliteStatements();
    SqliteStatements(const SqliteStatements&) = delete;
    SqliteStatements& operator=(const SqliteStatements&) = delete;

    sqlite3* handle() const { return m_handle; }

    // The statement for `sql`, prepared on first use. Throws DbError with
    // SQLite's own text when it cannot be prepared.
    sqlite3_stmt* Statement(const QString& sql);

    // Finalises every kept statement: before the schema changes and before
    // the connection closes.
    void Clear();

    // SQLite's description of the connection's last failure.
    QString ErrorText() const;

    // Room for the UTF-8 of the text bound to a parameter. The buffers are
    // kept: texts are bound without a copy and without an allocation, and
    // stay valid until the parameter is bound again.
    char* TextBuffer(int parameter, qsizetype size);

private:
    sqlite3* m_handle;
    QHash<QString, sqlite3_stmt*> m_statements;
    std::vector<QByteArray> m_texts;
};

// Binds `text` to a parameter as UTF-8, SQLite's storage encoding, from
// the parameter's kept buffer (SqliteStatements::TextBuffer).
int BindUtf8(SqliteStatements& statements, sqlite3_stmt* statement, int parameter, QStringView text);

// Inserts the `count` rows of `rows`, a JSON array of arrays as a server
// writes it (numbers, texts, null), through INSERT statements of many rows
// each made of `insertHead` ("INSERT INTO t (a, b) VALUES "), each row's
// `columns` values in order: integers as integers, other numbers as reals,
// texts as texts. Throws DbError with SQLite's text, or when `rows` is not
// such an array of `count` rows of `columns` values.
void InsertJsonRows(SqliteStatements& statements, const QString& insertHead, int columns, QStringView rows, qint64 count);

// One execution of a prepared statement: binds values, steps, reads
// columns; resets the statement and clears its bindings when it ends,
// whatever happens in between.
class SqliteRun {
public:
    SqliteRun(SqliteStatements& statements, sqlite3_stmt* statement);
    ~SqliteRun();
    SqliteRun(const SqliteRun&) = delete;
    SqliteRun& operator=(const SqliteRun&) = delete;

    // Binds a value as Qt's SQLite driver binds it: Null (an invalid or null
    // variant, a null text, an invalid date) as NULL, integers and doubles
    // natively, text as text, byte arrays as blobs, dates and times as their
    // ISO text, anything else as its text. Throws DbError.
    void Bind(int parameter, const QVariant& value);

    // Runs the statement to its next row: true for a row, false when done.
    // Throws DbError with SQLite's text.
    bool Step();

    int ColumnCount() const;
    // A column of the current row as the data layer hands values out: NULL
    // invalid, integers that fit 32 bits int (others qlonglong), REAL
    // double, TEXT QString, BLOB QByteArray.
    QVariant Column(int column) const;

private:
    int bindText(int parameter, QStringView text);

    SqliteStatements& m_statements;
    sqlite3_stmt* m_statement;
};

// Prepares SQL text that is run once (a record set's SELECT). Returns
// nullptr, having prepared nothing, for text that is not exactly one
// statement; throws DbError with SQLite's text when it does not compile.
sqlite3_stmt* PrepareOnce(sqlite3* handle, const QString& sql);

// SQLite's description of the handle's last failure.
QString SqliteErrorText(sqlite3* handle);

// `text`, a description of a failure on `handle` (none for a server), with
// the database file named when SQLite refused to write it: its own words
// ("attempt to write a readonly database") name no file.
QString NamingReadonlyFile(sqlite3* handle, const QString& text);

// The text of one statement with the integer literals it compares against
// (`iKey=12`, `iKey <> -3`) turned into parameters, and their values in
// order: statements that differ only in those keys share one prepared
// statement. False, with nothing filled in, when the text has no such
// literal or is not a single statement. Literals inside quotes, in
// identifiers and anywhere else (ORDER BY 1, LIMIT 5) are left as written.
bool ParameterizeKeyLiterals(const QString& sql, QString* shape, std::vector<qint64>* values);

// Runs a statement that returns no rows through a kept statement of its
// shape (see ParameterizeKeyLiterals) and returns the rows it changed;
// nullopt, having run nothing, when the text has no shape to keep.
std::optional<qint64> ExecuteKept(SqliteStatements& statements, const QString& sql);

} // namespace dorvane
