#pragma once

#include "core/repository/DbError.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <vector>

namespace dorvane {

class Connection;

// A static cursor over "SELECT ... FROM <table> ..." SQL text: the rows
// selected when it is first read, plus the rows it added itself. The
// statement runs on the first read, so a record set that is only added to
// never reads its table.
//
// Field names compare case-insensitively. Null reads as an invalid QVariant
// and is distinct from the empty text. Booleans are written as -1 / 0.
// Every failing call throws DbError.
class Recordset {
public:
    Recordset();
    Recordset(const QString& sql, Connection& connection);
    ~Recordset();
    Recordset(Recordset&&) noexcept;
    Recordset& operator=(Recordset&&) noexcept;

    void Open(const QString& sql, Connection& connection);
    void Close();
    bool IsOpen() const;

    bool Eof();
    bool Bof();
    void MoveFirst();
    void MoveNext();
    qint32 RecordCount();

    // AddNew starts a new row; Update writes it (or the changes to the
    // current row). After Update of a new row the new row is current and
    // its auto-number key can be read.
    void AddNew();
    void Update();
    // Deletes the current row; the cursor stays on it until the next move.
    void Delete();

    QVariant Value(const QString& field);
    bool IsNull(const QString& field);
    qint32 Int(const QString& field);     // Null reads as 0
    QString Text(const QString& field);   // Null reads as ""
    void SetValue(const QString& field, const QVariant& value);

    // The columns of the record set, as the database names them.
    QStringList FieldNames();
    // The table's own auto-number key column.
    QString KeyField() const;
    QString TableName() const;

private:
    friend class ChildReads;
    struct Private;
    std::unique_ptr<Private> d;
};

// The rows of one parent after another (the objects of each window, the
// steps of each step window): "SELECT * FROM <table> WHERE <parent> = key"
// plus an optional " ORDER BY ..." of the table's own columns, opened once
// per parent key. On a server, where each read is a round trip, the rows of
// a block of the parents named by SetParents are selected by one statement
// and each parent's record set is served from them, in the order its own
// statement returns its rows; a parent outside the list is read alone. On
// SQLite every parent's statement runs as written.
class ChildReads {
public:
    // The statement of one parent's rows is `head` + key + `tail`, for
    // example "SELECT * FROM tStep WHERE iStepWindowKey = " and
    // " ORDER BY iStepSequenceNum". `table`, `parentColumn` and `orderBy`
    // (a column list, may be empty) say the same for the block statement.
    ChildReads(Connection& connection, QString head, QString tail, QString table, QString parentColumn,
               QString orderBy = QString());
    ~ChildReads();

    // Whether this connection's reads are worth doing in blocks: whether
    // SetParents is worth its keys.
    bool ReadsInBlocks() const;
    // The parent keys in the order Open will mostly ask for them.
    void SetParents(std::vector<qint32> keys);
    // Opens `rs` on the rows of one parent.
    void Open(Recordset& rs, qint32 parentKey);
    // Each block read names the keys of its rows, in order, as the parents
    // of `children` (the steps of the step windows read).
    void FeedChildren(ChildReads& children) { m_children = &children; }

private:
    void readBlock(size_t from);

    Connection& m_connection;
    QString m_head;
    QString m_tail;
    QString m_table;
    QString m_parentColumn;
    QString m_orderBy;
    std::vector<qint32> m_parents;
    size_t m_next = 0;  // the position in m_parents after the last block read
    ChildReads* m_children = nullptr;
    struct Block;
    std::unique_ptr<Block> m_block;
};

// The values of one column over the rows of a record set, from its first
// row; the record set is left on its first row.
std::vector<qint32> ColumnKeys(Recordset& rs, const QString& column);

} // namespace dorvane
