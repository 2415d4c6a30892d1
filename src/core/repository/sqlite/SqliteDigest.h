#pragma once

#include <QByteArray>
#include <QString>

struct sqlite3;

namespace dorvane::sqlite {

// The rows of one table and a digest of their content, read through
// SQLite's own interface so that a table of a million rows costs a fraction
// of a second. The digest covers the column names and every value of every
// row in the order of `orderBy` (the table's key), each value with its
// storage class: NULL, an empty text and a zero differ, as do 1 and '1'.
struct TableDigest {
    qint64 rows = 0;
    QByteArray digest;  // hexadecimal
};

// `schema` is "main" or the name of an attached database; names are the
// schema's own, never user text. Throws DbError.
TableDigest DigestTable(sqlite3* handle, const QString& schema, const QString& table, const QString& orderBy);

} // namespace dorvane::sqlite
