#include "core/mainwindow/ListQueries.h"

#include "core/repository/Recordset.h"

namespace dorvane {

namespace {

// Appends one entry per row of `sql`, text and key taken from the named
// columns. A failure throws ListQueryError with the entries read so far.
void AppendRows(
    ListEntries& entries, Connection& connection, const QString& sql, const QString& textField, const QString& keyField)
{
    try {
        Recordset rs(sql, connection);
        for (; !rs.Eof(); rs.MoveNext())
            entries.append({rs.Text(textField), rs.Int(keyField)});
    } catch (const DbError& e) {
        throw ListQueryError(e, entries);
    }
}

ListEntries NoneFirst() { return {{QStringLiteral("None"), 0}}; }

} // namespace

ListEntries VersionProcessEntries(Connection& connection, qint32 versionKey)
{
    ListEntries entries = NoneFirst();
    AppendRows(entries, connection,
        QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey = ") + QString::number(versionKey)
            + QStringLiteral(" AND iProcessType = 1"),
        QStringLiteral("sProcessName"), QStringLiteral("iProcessKey"));
    return entries;
}

ListEntries VersionWindowEntries(Connection& connection, qint32 versionKey)
{
    ListEntries entries = NoneFirst();
    AppendRows(entries, connection,
        QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + QString::number(versionKey),
        QStringLiteral("sWindowLogicalName"), QStringLiteral("iWindowKey"));
    return entries;
}

ListEntries VersionListEntries(Connection& connection, qint32 appKey)
{
    ListEntries entries;
    AppendRows(entries, connection,
        QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey = ") + QString::number(appKey)
            + QStringLiteral(" ORDER BY sVersionID"),
        QStringLiteral("sVersionID"), QStringLiteral("iVersionKey"));
    return entries;
}

ListEntries MapTypeEntries(Connection& connection, qint32 platformKey)
{
    ListEntries entries;
    AppendRows(entries, connection,
        QStringLiteral("SELECT * FROM tMapType WHERE iMapTypePlatformKey=") + QString::number(platformKey),
        QStringLiteral("sMapTypeDesc"), QStringLiteral("iMapTypeKey"));
    return entries;
}

ListEntries AppEntries(Connection& connection)
{
    ListEntries entries;
    AppendRows(entries, connection, QStringLiteral("SELECT * FROM tApp ORDER by sAppName"), QStringLiteral("sAppName"),
        QStringLiteral("iAppKey"));
    return entries;
}

ListEntries EnvironmentEntries(Connection& connection)
{
    ListEntries entries;
    AppendRows(entries, connection, QStringLiteral("SELECT * FROM tEnvironment ORDER BY sEnvironmentName"),
        QStringLiteral("sEnvironmentName"), QStringLiteral("iEnvironmentKey"));
    return entries;
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

ListEntries PlatformEntries(Connection& connection)
{
    ListEntries entries;
    AppendRows(entries, connection, QStringLiteral("SELECT * FROM tPlatform"), QStringLiteral("sPlatformDesc"),
        QStringLiteral("iPlatformKey"));
    return entries;
}

ListEntries TestToolEntries(Connection& connection)
{
    ListEntries entries;
    AppendRows(entries, connection, QStringLiteral("SELECT * FROM tTestTool"), QStringLiteral("sTestToolName"),
        QStringLiteral("iTestToolKey"));
    return entries;
}

ListEntries EmulatorEntries(Connection& connection)
{
    ListEntries entries;
    AppendRows(entries, connection, QStringLiteral("SELECT * FROM t3270 WHERE i3270Key > 0"), QStringLiteral("s3270EmulatorName"),
        QStringLiteral("i3270Key"));
    return entries;
}

} // namespace dorvane
