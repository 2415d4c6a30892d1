#include "core/lists/ListQueries.h"

#include "core/repository/Recordset.h"

#include <utility>

namespace dorvane {

namespace {

// Reads one entry per row of `sql`, text and key taken from the named
// columns, after `first`.
ListRead ReadRows(
    Connection& connection, const QString& sql, const QString& textField, const QString& keyField, ListEntries first = {})
{
    ListRead read{std::move(first), std::nullopt};
    try {
        Recordset rs(sql, connection);
        for (; !rs.Eof(); rs.MoveNext())
            read.entries.append({rs.Text(textField), rs.Int(keyField)});
    } catch (const DbError& e) {
        read.error = e;
    }
    return read;
}

ListEntries NoneFirst() { return {{QStringLiteral("None"), 0}}; }

} // namespace

const ListEntries& ListRead::all() const
{
    if (error)
        throw *error;
    return entries;
}

ListRead VersionProcessEntries(Connection& connection, qint32 versionKey)
{
    return ReadRows(connection,
        QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey = ") + QString::number(versionKey)
            + QStringLiteral(" AND iProcessType = 1"),
        QStringLiteral("sProcessName"), QStringLiteral("iProcessKey"), NoneFirst());
}

ListRead VersionWindowEntries(Connection& connection, qint32 versionKey)
{
    return ReadRows(connection,
        QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + QString::number(versionKey),
        QStringLiteral("sWindowLogicalName"), QStringLiteral("iWindowKey"), NoneFirst());
}

ListRead VersionListEntries(Connection& connection, qint32 appKey)
{
    return ReadRows(connection,
        QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey = ") + QString::number(appKey)
            + QStringLiteral(" ORDER BY sVersionID"),
        QStringLiteral("sVersionID"), QStringLiteral("iVersionKey"));
}

ListRead MapTypeEntries(Connection& connection, qint32 platformKey)
{
    return ReadRows(connection,
        QStringLiteral("SELECT * FROM tMapType WHERE iMapTypePlatformKey=") + QString::number(platformKey),
        QStringLiteral("sMapTypeDesc"), QStringLiteral("iMapTypeKey"));
}

ListRead AppEntries(Connection& connection)
{
    return ReadRows(connection, QStringLiteral("SELECT * FROM tApp ORDER by sAppName"), QStringLiteral("sAppName"),
        QStringLiteral("iAppKey"));
}

ListRead EnvironmentEntries(Connection& connection)
{
    return ReadRows(connection, QStringLiteral("SELECT * FROM tEnvironment ORDER BY sEnvironmentName"),
        QStringLiteral("sEnvironmentName"), QStringLiteral("iEnvironmentKey"));
}

ListEntries EnvironAppVerEntries(Connection& connection, qint32 environmentKey)
{
    ListEntries entries;
    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey = ") + QString::number(environmentKey),
        connection);
    for (; !details.Eof(); details.MoveNext()) {
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey = ")
                + QString::number(details.Int(QStringLiteral("iEnvironVerKey"))),
            connection);
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + QString::number(version.Int(QStringLiteral("iVersionAppKey"))),
            connection);
        entries.append({app.Text(QStringLiteral("sAppName")) + QStringLiteral(" - ") + version.Text(QStringLiteral("sVersionID")),
            version.Int(QStringLiteral("iVersionKey"))});
    }
    return entries;
}

ListEntries EnvironUserEntries(Connection& connection, qint32 environmentKey)
{
    ListEntries entries;
    Recordset members(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey = ") + QString::number(environmentKey),
        connection);
    for (; !members.Eof(); members.MoveNext()) {
        Recordset user(QStringLiteral("SELECT * FROM tUser WHERE iUserKey=") + QString::number(members.Int(QStringLiteral("iUserKey"))),
            connection);
        entries.append({user.Text(QStringLiteral("sUserFirst")) + QStringLiteral(" ") + user.Text(QStringLiteral("sUserLast")),
            user.Int(QStringLiteral("iUserKey"))});
    }
    return entries;
}

ListRead PlatformEntries(Connection& connection)
{
    return ReadRows(connection, QStringLiteral("SELECT * FROM tPlatform"), QStringLiteral("sPlatformDesc"),
        QStringLiteral("iPlatformKey"));
}

ListRead TestToolEntries(Connection& connection)
{
    return ReadRows(connection, QStringLiteral("SELECT * FROM tTestTool"), QStringLiteral("sTestToolName"),
        QStringLiteral("iTestToolKey"));
}

ListRead EmulatorEntries(Connection& connection)
{
    return ReadRows(connection, QStringLiteral("SELECT * FROM t3270 WHERE i3270Key > 0"), QStringLiteral("s3270EmulatorName"),
        QStringLiteral("i3270Key"));
}

} // namespace dorvane
