#include "core/repository/OperationLocks.h"

#include "core/repository/Connection.h"
#include "core/repository/Dialect.h"
#include "core/repository/Recordset.h"

#include <QSqlQuery>

#include <algorithm>

namespace dorvane {

namespace {

// The advisory lock space of the suite's repository: the first key says
// what is locked, the second which one.
constexpr int kLockSpace = 0x5A540000;

int lockClass(OperationLocks::Kind kind) { return kLockSpace + int(kind); }

// What the administrator knows the locked thing by.
QString describe(Connection& connection, const OperationLocks::Target& target)
{
    try {
        switch (target.kind) {
        case OperationLocks::Kind::Environment: {
            Recordset rs(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1").arg(target.key), connection);
            return QStringLiteral("Environment ") + (rs.Eof() ? QString::number(target.key) : rs.Text(QStringLiteral("sEnvironmentName")));
        }
        case OperationLocks::Kind::Version: {
            Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(target.key), connection);
            if (version.Eof())
                return QStringLiteral("Version %1").arg(target.key);
            Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=%1").arg(version.Int(QStringLiteral("iVersionAppKey"))),
                          connection);
            return QStringLiteral("Version ") + (app.Eof() ? QString() : app.Text(QStringLiteral("sAppName")) + QStringLiteral(" - ")) +
                   version.Text(QStringLiteral("sVersionID"));
        }
        case OperationLocks::Kind::EnvironmentNames:
            break;
        }
    } catch (const DbError&) {
        // The lock's own message says enough without the name.
    }
    return QStringLiteral("The list of environment names");
}

} // namespace

OperationLocks::OperationLocks(Connection& connection, std::vector<Target> targets) : m_connection(connection)
{
    if (connection.backend() != BackendKind::Odbc)
        return;
    // One order for every operation: two of them never wait for each other.
    std::sort(targets.begin(), targets.end(), [](const Target& a, const Target& b) {
        return std::pair(int(a.kind), a.key) < std::pair(int(b.kind), b.key);
    });
    targets.erase(std::unique(targets.begin(), targets.end(),
                              [](const Target& a, const Target& b) { return a.kind == b.kind && a.key == b.key; }),
                  targets.end());
    for (const Target& target : targets) {
        QSqlQuery q(connection.database());
        if (!q.exec(QStringLiteral("SELECT pg_advisory_lock(%1, %2)").arg(lockClass(target.kind)).arg(target.key))) {
            const QString text = ErrorDescription(q.lastError());
            q.finish();
            release();
            if (!text.contains(QLatin1String("another program")))
                throw DbError(text);
            throw DbError(QStringLiteral("%1 is in use by another operation; try again when it has finished.")
                              .arg(describe(connection, target)));
        }
        m_held.push_back(target);
    }
}

OperationLocks::~OperationLocks() { release(); }

void OperationLocks::release() noexcept
{
    if (m_held.empty() || !m_connection.IsOpen())
        return;
    for (auto it = m_held.rbegin(); it != m_held.rend(); ++it) {
        QSqlQuery q(m_connection.database());
        // A lock that cannot be given back goes with the session.
        q.exec(QStringLiteral("SELECT pg_advisory_unlock(%1, %2)").arg(lockClass(it->kind)).arg(it->key));
    }
    m_held.clear();
}

} // namespace dorvane
