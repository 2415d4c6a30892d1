#pragma once

#include "core/environments/EnvironmentRecords.h"
#include "core/repository/sqlite/SqliteDigest.h"

#include <QDate>
#include <QHash>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

namespace dorvane {

class Connection;
class VersionBackup;

// One backup file of an environment, as the restore chooser lists it.
struct BackupFileEntry {
    QString name;  // the file name, e.g. "03-07-2001.MDB"
    QString path;  // the folder & "\" & name, the text Restore opens
    QDate date;    // the day its name says (else the day it was written)
};

// The files of a backup folder (a Windows text) that match "*.mdb" without
// regard to case, newest first: by the date the name gives, then by the
// time the file was written. Empty when the folder is missing or empty.
std::vector<BackupFileEntry> ListBackupFiles(const QString& folder);
// The day a backup file's name gives ("MM-DD-YYYY.MDB", any case), or
// nothing for a name of another form.
std::optional<QDate> BackupFileDay(const QString& fileName);

// What a backup file holds: its versions (rows of tVersion) and its rows
// over all repository tables. Throws DbError when it cannot be read.
struct BackupFileContents {
    qint32 versions = 0;
    qint64 rows = 0;
};
BackupFileContents CountBackupFile(const QString& path);

// Removes the work files of backups that were killed before they finished
// ("<day>.MDB.<host>-<pid>.tmp" and the journal files beside it): this
// machine's whose process no longer runs, another machine's once nobody
// has written them for a day. Returns how many files went.
int RemoveAbandonedBackupFiles(const QString& folder);

// Deletes the content of a version (windows with their objects, processes
// with their step windows, steps and keyword relations, cycles with their
// processes and keyword relations, variables and requirements), keeping the
// version row. Begins no transaction; throws DbError.
void ClearVersionContent(qint32 versionKey, Connection& connection);

// The backup chooser (frmRestoreSelect): the files of `folder`, of which the
// user picks one. Returns the chosen path (the folder & "\" & the file
// name), or nothing when cancelled.
class RestoreChooser {
public:
    virtual ~RestoreChooser() = default;
    virtual std::optional<QString> ChooseBackup(const QString& folder) = 0;
};

// The backup of an environment into a dated database file made from the
// backup template, and the restore of an environment from such a file.
// Both are copy runs of `engine` (its key maps, its progress window, its
// messages and hourglass) and each runs in one transaction: the backup on
// the backup file, the restore on the repository.
//
// The backups live in SharedResourcePath & "\Environments\Backups\" &
// name; on the tutorial, start-up's shared resource path is ExePath &
// "\Tutorial", so its backups are below the installation.
// The schema version a backup file records (SQLite's user_version); a file
// of a later version is refused.
inline constexpr int kBackupSchemaVersion = 0;

// Refuses a backup file that could not have come from a backup, before
// anything of it is written: a newer schema or unknown columns, a number
// column holding something else, a text over 65,535 characters in a text
// column, a NUL character, an environment name, application ID or version
// ID that cannot name its folder. The message names the table, row and
// column. The values are checked as each table is read for its digest;
// returns the digests, by lower-case table name. Throws DbError.
QHash<QString, sqlite::TableDigest> CheckBackupFile(Connection& backup);

// The folder of an environment's backups (EnvironmentBackup::BackupFolder)
// for a shared resource path; throws DbError when the name cannot name one.
QString EnvironmentBackupFolder(const QString& sharedResourcePath, const QString& environmentName);
// Moves an environment's backup folder when its name changes (the backups
// follow their environment); nothing when it has none. Refuses when a
// folder of the new name exists already or the move fails.
void MoveEnvironmentBackups(const QString& sharedResourcePath, const QString& from, const QString& to);
// MoveEnvironmentBackups for EnvironmentRecords::Save.
BackupFolderMove BackupFolderMover(const QString& sharedResourcePath);

class EnvironmentBackup {
public:
    // Backups live below the shared resource folder; a new one starts as a
    // copy of the empty backup database in the installation folder.
    EnvironmentBackup(VersionBackup& engine, QString sharedResourcePath, QString installationPath);

    // The day a backup is named by; tests set another.
    std::function<QDate()> Today = [] { return QDate::currentDate(); };
    // Called once a restore's file has passed its checks, before anything
    // is written or held: false ends the restore there (a preview, or a
    // question the answer No to). `file` is the backup file, `repository`
    // the restore's own connection.
    std::function<bool(qint32 environmentKey, Connection& file, Connection& repository)> BeforeRestore;

    // "MM-DD-YYYY.MDB"
    static QString BackupFileName(const QDate& day);
    // "Back up all application/versions of " & name & " to " & file & "?",
    // and " It replaces the backup made earlier today." when that file
    // exists.
    QString BackupQuestion(const QString& environmentName) const;
    // MoveEnvironmentBackups below this run's shared resource path.
    void MoveBackupFolder(const QString& from, const QString& to) const;
    // The folders throw DbError when the stored name cannot name a folder
    // (EnvironFolderNameProblem): nothing is written outside the backups.
    QString BackupFolder(const QString& environmentName) const;
    QString RestoreFolder(const QString& environmentName) const;

    // The Backup button: asks BackupQuestion (Yes/No) and, on Yes, backs
    // the environment up. False when the answer was No or the backup
    // failed. A failure of the handler's own steps shows "Error while
    // looking for environment backup file: " and the description.
    bool AskAndBackUp(qint32 environmentKey, const QString& environmentName);

    // The Restore button: "This Environment has no backups to restore."
    // when RestoreFolder holds no "*.mdb" file; else the chooser, and the
    // restore of the chosen file. False when there was nothing to restore,
    // the chooser was cancelled or the restore failed; on true the caller
    // reloads its environment lists and starts a new environment. A failure
    // of the handler's own steps shows "Error while preparing for version
    // restore: " and the description.
    bool ChooseAndRestore(qint32 environmentKey, const QString& environmentName, RestoreChooser& chooser);

    // Writes the environment with its users, every version with its
    // application and all its content, and the environment's schedules to
    // BackupFolder & "\" & BackupFileName(Today()); a second backup on the
    // same day replaces the first. True when committed. Failures show
    // "Error while backing up environment: " and the description (or the
    // failing copy primitive's own message).
    //
    // A failed backup leaves no file behind and never touches an earlier
    // file of the same day: the template is copied to a temporary name in
    // the backup folder, everything is written there in one transaction,
    // and only a committed backup is renamed onto the day's file name. So
    // an administrator never finds a half-written or empty file dated today
    // in place of the good backup taken earlier that day. The transaction
    // writes the file's manifest too, and the file is verified
    // (VerifyBackupFile) before it takes the day's name: one that does not
    // verify is a failed backup.
    bool BackupEnvironment(qint32 environmentKey);
    // The file the last successful backup wrote (a Windows text).
    const QString& LastBackupFile() const { return m_lastBackupFile; }

    // Replaces the environment's users, versions and content with those of
    // a backup file. Applications and versions that still exist (by the
    // keys the backup remembered) keep their keys and are overwritten;
    // those deleted since are recreated with new keys. One transaction on a
    // second repository connection: a failure leaves the repository as it
    // was. Failures show "Error while restoring environment: " and the
    // description (or the failing step's own message).
    //
    // A file that fails verification (VerifyOpenBackupFile) is refused,
    // saying why; one without a manifest is restored only after a Yes to a
    // question that says so.
    // A file of another environment that still exists is refused, naming
    // both, before anything is written; one whose environment no longer
    // exists is restored only after a Yes to a question that says so.
    // Versions written into are emptied first, so content that reached
    // them since the backup is replaced, not doubled.
    bool RestoreEnvironment(qint32 environmentKey, const QString& backupFilePath);

    // Deletes the environment's schedules and, for each of its versions,
    // the cycles (with their processes and keyword relations), the step
    // windows the environment's steps run in (with their steps), the
    // variables, requirements, windows (with their objects) and processes
    // (with their keyword relations), through `repository`. Begins no
    // transaction. Failure: "Error while deleting environment components
    // for restore: " and the description; returns false.
    bool PrepareForRestore(qint32 environmentKey, Connection& repository);

private:
    struct BackupRun;
    static void CheckFolderName(const QString& environmentName);
    bool BackupBelongsHere(qint32 environmentKey, const QString& backupFilePath, Connection& backup,
                           Connection& repository);
    QString startBackupFile(qint32 environmentKey, BackupRun& run);
    bool backupContent(qint32 environmentKey, Connection& db, const QStringList& versionColumns);
    bool restoreContent(qint32 environmentKey, Connection& backup, Connection& repository);
    // The start of a backup or restore run: its own connection to the
    // repository (nullptr when it could not be opened) and empty key maps.
    Connection* startRun();
    // Its end: the connection closed, the progress window hidden.
    void finishRun();

    VersionBackup& m_engine;
    QString m_sharedResourcePath;
    QString m_installationPath;
    QString m_lastBackupFile;
};

} // namespace dorvane
