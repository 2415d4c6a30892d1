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
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace dorvane
