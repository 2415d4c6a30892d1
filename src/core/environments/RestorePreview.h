#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace dorvane {

class Connection;

// What the restore of a backup file into an environment will do, computed
// beforehand by reading the repository and the file only: the environment's
// name before and after, what becomes of each version, its schedules and
// the users registered before and after.
struct RestorePreview {
    enum class Action {
        Refilled,   // still exists: emptied, then filled from the file
        Recreated,  // deleted since the backup: made anew from the file
        Emptied,    // listed now but not in the file: its content goes
    };
    struct Version {
        QString application;
        QString version;  // its ID (the file's, or the repository's when emptied)
        Action action = Action::Refilled;
        qint64 rowsNow = 0;       // content rows the restore deletes
        qint64 rowsFromFile = 0;  // content rows it writes
    };
    struct User {
        QString name;  // sUserID, or "#key" for a user deleted since
        bool before = false, after = false;
    };

    QString nameBefore, nameAfter;
    std::vector<Version> versions;
    qint64 scheduleRowsNow = 0, scheduleRowsFromFile = 0;
    std::vector<User> users;

    // The lines dorvanectl prints, fields separated by TABs:
    //   environment NAME-BEFORE NAME-AFTER
    //   version APP ID refilled|recreated|emptied ROWS-NOW ROWS-FROM-FILE
    //   schedules ROWS-NOW ROWS-FROM-FILE
    //   user NAME kept|removed|added
    QStringList Lines() const;
    // The same for a person, for the question asked before a restore.
    QString Text() const;
};

// The preview of restoring `file` (a backup file, open) into environment
// `environmentKey`, as EnvironmentBackup::RestoreEnvironment will do it:
// PrepareForRestore's deletions, then per version of the file its content
// written into the version the file remembers (emptied first) or into a
// new one. Counts rows as the copy engine's content declaration selects
// them. Throws DbError.
RestorePreview PreviewRestore(Connection& repository, qint32 environmentKey, Connection& file);

// The question the window asks before a restore: the preview and
// "Restore environment NAME from FILE?".
QString RestoreQuestion(const RestorePreview& preview, const QString& fileName);

} // namespace dorvane
