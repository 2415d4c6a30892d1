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
    q.exec(ReadWriteSessionSql());
}

} // namespace dorvane::postgres
