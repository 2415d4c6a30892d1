#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QElapsedTimer>
#include <QString>

#include <functional>
#include <optional>

struct sqlite3;
class QSqlDatabase;

namespace dorvane::sqlite {

// What the data layer does through SQLite's own interface, below Qt's
// driver: everything else about an SQLite connection goes through Qt.

// The handle under a Qt connection; null when the connection is not
// SQLite's.
sqlite3* Handle(const QSqlDatabase& db);

// Refuses a file that is not an SQLite database (a Microsoft Access file is
// named as one), reading its header through the descriptor SQLite has just
// opened. Throws DbError.
void CheckHeader(sqlite3* handle, const QString& givenPath);

// How long a connection's statement waited for another program's lock.
struct LockWait {
    QElapsedTimer timer;
    int limitMs = 0;
};

// Installs the busy handler, which waits for another program's lock up to
// wait.limitMs (or until an interruption is requested) and notes how long
// it waited, and the progress handler, which stops a long statement when an
// interruption is requested. `wait` must outlive the handle.
void InstallHandlers(sqlite3* handle, LockWait& wait);

// An SQL function of one text argument, in UTF-8: nullopt hands the
// argument back as it came.
using TextFunction = std::function<std::optional<QByteArray>(QByteArrayView)>;

// Makes `function` the SQL function `name` on the handle (null for a null
// argument); a DbError it throws fails the statement with its description.
// An empty function removes it.
void DefineTextFunction(sqlite3* handle, const QString& name, TextFunction function);

// Sets the page cache; only a hint.
void SetPageCache(sqlite3* handle, int kibibytes);
void ReleaseMemory(sqlite3* handle);
// Whether a transaction is open (SQLite may end one itself on a failure).
bool InTransaction(sqlite3* handle);

// Creates an empty database file in write-ahead-log mode; returns the
// error's text, empty on success (the file is then removed).
QString CreateFile(const QString& nativePath);

} // namespace dorvane::sqlite
