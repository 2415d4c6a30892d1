#include "core/environments/RestorePreview.h"

#include "core/copyengine/OperationPreview.h"
#include "core/copyengine/VersionContent.h"
#include "core/environments/EnvironmentRecords.h"
#include "core/repository/Connection.h"
#include "core/repository/DbError.h"
#include "core/repository/Recordset.h"

#include <QHash>
#include <QSet>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

const char* actionWord(RestorePreview::Action action)
{
    switch (action) {
    case RestorePreview::Action::Refilled:
        return "refilled";
    case RestorePreview::Action::Recreated:
        return "recreated";
    case RestorePreview::Action::Emptied:
        break;
    }
    return "emptied";
}

// The users registered with an environment, by key, in the order of its rows.
QList<qint32> usersOf(Connection& db, qint32 environmentKey)
{
    QList<qint32> keys;
    Recordset users(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=") + num(environmentKey), db);
    for (; !users.Eof(); users.MoveNext())
        keys << users.Int(QStringLiteral("iUserKey"));
    return keys;
}

QString userName(Connection& repository, qint32 userKey)
{
    Recordset user(QStringLiteral("SELECT * FROM tUser WHERE iUserKey=") + num(userKey), repository);
    return user.Eof() ? QStringLiteral("#") + num(userKey) : user.Text(QStringLiteral("sUserID"));
}

} // namespace

RestorePreview PreviewRestore(Connection& repository, qint32 environmentKey, Connection& file)
{
    RestorePreview preview;
    // A backup file holds one environment; its first row is taken, as the
    // restore takes it.
    Recordset saved(QStringLiteral("SELECT * FROM tEnvironment"), file);
    if (saved.Eof())
        throw DbError(QStringLiteral("The file holds no environment backup."));
    const qint32 backupEnvironmentKey = saved.Int(QStringLiteral("iEnvironmentKey"));
    const QString savedName = saved.Text(QStringLiteral("sEnvironmentName"));
    saved.Close();

    Recordset environment(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey),
                          repository);
    preview.nameBefore = environment.Eof() ? QString() : environment.Text(QStringLiteral("sEnvironmentName"));
    environment.Close();
    // The name goes back unless another environment holds it now.
    preview.nameAfter = EnvironmentNameHolder(repository, savedName, environmentKey) ? preview.nameBefore : savedName;

    // The file's versions, each written into the version it remembers when
    // that still exists.
    QSet<qint32> restored;
    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey =") + num(backupEnvironmentKey),
                      file);
    for (; !details.Eof(); details.MoveNext()) {
        const qint32 backupVersionKey = details.Int(QStringLiteral("iEnvironVerKey"));
        Recordset version(QStringLiteral("SELECT v.*, a.sAppName FROM tVersion v LEFT JOIN tApp a ON a.iAppKey = "
                                         "v.iVersionAppKey WHERE v.iVersionKey = ") +
                              num(backupVersionKey),
                          file);
        RestorePreview::Version entry;
        entry.application = version.Text(QStringLiteral("sAppName"));
        entry.version = version.Text(QStringLiteral("sVersionID"));
        const qint32 original = version.Int(QStringLiteral("iOriginalVersionKey"));
        Recordset existing(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(original), repository);
        if (existing.Eof()) {
            entry.action = RestorePreview::Action::Recreated;
        } else {
            entry.rowsNow = TotalRows(VersionContentRows(repository, original));
            restored.insert(original);
        }
        entry.rowsFromFile = TotalRows(CopiedVersionRows(file, backupVersionKey));
        preview.versions.push_back(entry);
    }

    // The versions listed now that the file does not bring back lose their
    // content and their place in the list.
    Recordset listed(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") + num(environmentKey), repository);
    for (; !listed.Eof(); listed.MoveNext()) {
        const qint32 versionKey = listed.Int(QStringLiteral("iEnvironVerKey"));
        if (restored.contains(versionKey))
            continue;
        restored.insert(versionKey);
        Recordset version(QStringLiteral("SELECT v.sVersionID, a.sAppName FROM tVersion v LEFT JOIN tApp a ON "
                                         "a.iAppKey = v.iVersionAppKey WHERE v.iVersionKey = ") +
                              num(versionKey),
                          repository);
        RestorePreview::Version entry;
        entry.action = RestorePreview::Action::Emptied;
        if (!version.Eof()) {
            entry.application = version.Text(QStringLiteral("sAppName"));
            entry.version = version.Text(QStringLiteral("sVersionID"));
        }
        entry.rowsNow = TotalRows(CountContentRows(repository, PrepareForRestoreOfVersion(environmentKey, versionKey, repository.backend())));
        preview.versions.push_back(entry);
    }

    preview.scheduleRowsNow = TotalRows(CountContentRows(repository, PrepareForRestoreStatements(environmentKey, false, repository.backend())));
    preview.scheduleRowsFromFile = TotalRows(CountContentRows(file, PrepareForRestoreStatements(backupEnvironmentKey, false, file.backend())));

    const QList<qint32> before = usersOf(repository, environmentKey), after = usersOf(file, backupEnvironmentKey);
    QList<qint32> all = before;
    for (const qint32 key : after) {
        if (!all.contains(key))
            all << key;
    }
    for (const qint32 key : all)
        preview.users.push_back({userName(repository, key), before.contains(key), after.contains(key)});
    return preview;
}

QStringList RestorePreview::Lines() const
{
    QStringList lines{QStringLiteral("environment\t%1\t%2").arg(nameBefore, nameAfter)};
    for (const Version& v : versions) {
        lines << QStringLiteral("version\t%1\t%2\t%3\t%4\t%5")
                     .arg(v.application, v.version, QLatin1String(actionWord(v.action)))
                     .arg(v.rowsNow)
                     .arg(v.rowsFromFile);
    }
    lines << QStringLiteral("schedules\t%1\t%2").arg(scheduleRowsNow).arg(scheduleRowsFromFile);
    for (const User& user : users) {
        const QString state = user.before && user.after ? QStringLiteral("kept")
                              : user.before            ? QStringLiteral("removed")
                                                       : QStringLiteral("added");
        lines << QStringLiteral("user\t%1\t%2").arg(user.name, state);
    }
    return lines;
}

QString RestorePreview::Text() const
{
    QStringList lines;
    lines << (nameAfter == nameBefore ? QStringLiteral("Environment: %1").arg(nameBefore)
                                      : QStringLiteral("Environment: %1, renamed %2").arg(nameBefore, nameAfter));
    for (const Version& v : versions) {
        const QString name = v.application + QLatin1Char(' ') + v.version;
        switch (v.action) {
        case Action::Refilled:
            lines << QStringLiteral("%1: emptied and refilled (%2 now, %3 from the file)")
                         .arg(name, RowsText(v.rowsNow), RowsText(v.rowsFromFile));
            break;
        case Action::Recreated:
            lines << QStringLiteral("%1: recreated (%2 from the file)").arg(name, RowsText(v.rowsFromFile));
            break;
        case Action::Emptied:
            lines << QStringLiteral("%1: emptied, not in the file (%2 now)").arg(name, RowsText(v.rowsNow));
            break;
        }
    }
    lines << QStringLiteral("Schedules: %1 now, %2 from the file").arg(RowsText(scheduleRowsNow), RowsText(scheduleRowsFromFile));
    QStringList before, after;
    for (const User& user : users) {
        if (user.before)
            before << user.name;
        if (user.after)
            after << user.name;
    }
    const QString none = QStringLiteral("(none)");
    lines << QStringLiteral("Users before: ") + (before.isEmpty() ? none : before.join(QStringLiteral(", ")));
    lines << QStringLiteral("Users after: ") + (after.isEmpty() ? none : after.join(QStringLiteral(", ")));
    return lines.join(QLatin1Char('\n'));
}

QString RestoreQuestion(const RestorePreview& preview, const QString& fileName)
{
    return preview.Text() + QStringLiteral("\n\nRestore environment %1 from %2?").arg(preview.nameBefore, fileName);
}

} // namespace dorvane
