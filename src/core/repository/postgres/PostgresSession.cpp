#include "core/repository/postgres/PostgresSession.h"

#include <QSqlDatabase>
#include <QSqlQuery>

namespace dorvane::postgres {

QString ReadOnlySessionSql()
{
    return QStringLiteral("SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY");
}

QString ReadWriteSessionSql()
{
    return QStringLiteral("SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ WRITE");
}

void ConfigureSession(QSqlDatabase& db, int lockWaitMs)
{
    QSqlQuery q(db);
    q.exec(QStringLiteral("SET lock_timeout = %1").arg(lockWaitMs));
    // The long operations' statements are planned expensive enough for the
    // server to compile them, which costs more than it gains (a copy at 1M
    // rows took about a tenth longer). A server without JIT refuses the
    // setting, harmlessly.
    q.exec(QStringLiteral("SET jit = off"));
    // A copy sorts its rows by their new keys: a version's steps or
    // objects are tens of megabytes, sorted in memory rather than through
    // temporary files (the server's default allows 4 MB a sort).
    q.exec(QStringLiteral("SET work_mem = '64MB'"));
    // Texts are written into statements as literals with their quotes
    // doubled and nothing else: a backslash in them must stay a backslash,
    // whatever the server's own default.
    q.exec(QStringLiteral("SET standard_conforming_strings = on"));
    q.exec(ReadWriteSessionSql());
}

} // namespace dorvane::postgres
