#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

struct sqlite3;

namespace dorvane::sqlite {

// The rows of one table and a digest of their content, read through
// SQLite's own interface so that a table of a million rows costs a fraction
// of a second. The digest covers the column names and every value of every
// row in the order of `orderBy` (the table's key), each value with its
// storage class: NULL, an empty text and a zero differ, as do 1 and '1'.
//
// The same pass may check what each column holds, as a restore must before
// it reads a file: the first value (in the order of the rows, then of the
// columns) that its column's rule refuses ends the reading.
enum class ValueRule {
    Any,
    Number,     // an integer or NULL
    ShortText,  // anything but a blob or a text with a NUL, and a text of at most the limit's characters
    Text,       // anything but a blob or a text with a NUL
};
struct ValueProblem {
    enum class Kind { NotANumber, TooLong, NotText };
    qint64 key = 0;  // the row's value of the key column
    int column = 0;
    Kind kind = Kind::NotANumber;
};
struct ValueRules {
    std::vector<ValueRule> columns;  // by the table's columns, in order
    int keyColumn = 0;
    int textLimit = 0;  // characters, as SQLite's length() counts them
};

struct TableDigest {
    qint64 rows = 0;
    QByteArray digest;  // hexadecimal
    std::optional<ValueProblem> problem;  // then rows and digest are incomplete
};

// `schema` is "main" or the name of an attached database; names are the
// schema's own, never user text. Throws DbError.
TableDigest DigestTable(sqlite3* handle, const QString& schema, const QString& table, const QString& orderBy,
                        const ValueRules& rules = {});

} // namespace dorvane::sqlite
