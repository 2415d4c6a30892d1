#pragma once

#include <QString>

class QSqlDatabase;

namespace dorvane::postgres {

// The session settings of a connection to PostgreSQL, which the data layer
// sets with plain statements after the ODBC driver has connected.

// Waiting for another program's row locks has the limit of SQLite's busy
// handler (`lockWaitMs`), and every transaction reads one state of the
// repository: what another operation commits meanwhile is seen wholly or
// not at all, and a row it changed meanwhile is not written over (the
// statement fails instead). Only hints: a server without the settings
// works on.
void ConfigureSession(QSqlDatabase& db, int lockWaitMs);

// The session's transactions from now on: read-only (a backup's one read
// transaction) or, as set up, read-write. Set for the session, before a
// transaction begins: the driver may put its own statements (savepoints)
// at the start of a transaction, after which the level can no longer be
// chosen.
QString ReadOnlySessionSql();
QString ReadWriteSessionSql();

} // namespace dorvane::postgres
