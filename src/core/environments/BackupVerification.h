#pragma once

#include <QDate>
#include <QString>
#include <QStringList>

#include <optional>

namespace dorvane {

class Connection;

// Every backup file carries a table of Dorvane's own, tDorvaneManifest: for
// each repository table of the file its name, its rows and a digest of its
// content (sqlite::DigestTable). It is written in the backup's own
// transaction, so a file either has the manifest of its committed content
// or is no backup at all; a later change to a row, a lost page or a cut-off
// file then shows as a table that no longer matches it.
inline const QString kManifestTable = QStringLiteral("tDorvaneManifest");

// Writes the manifest of the file open on `connection` as `schema` ("main",
// or "dv_file" where it is attached), inside the caller's transaction.
// Throws DbError.
void WriteManifest(Connection& connection, const QString& schema);

// The outcome of checking one backup file.
struct BackupFileCheck {
    enum class State { Verified, NoManifest, Failed };
    State state = State::Failed;
    QString message;  // why it failed, or what its lack of a manifest means

    bool verified() const { return state == State::Verified; }
};

// Checks the file open on `file`, in this order: SQLite's integrity check,
// the restore's own checks of a backup file (CheckBackupFile), that it holds
// exactly one environment (and, when `environmentKey` is given, that this
// is the environment whose original key it remembers), and that every
// table matches the manifest. A file that passes all but has no manifest
// (written before there were manifests) comes back as NoManifest.
// `path` is the file's (a Windows text), for a second connection.
BackupFileCheck VerifyOpenBackupFile(Connection& file, const QString& path, std::optional<qint32> environmentKey);

// VerifyBackupFile for a file (a Windows text) it opens for reading only;
// a file that cannot be opened so fails with the reason.
BackupFileCheck VerifyBackupFile(const QString& path, std::optional<qint32> environmentKey);

// Which of an environment's backups a retention run keeps besides the file
// just written and the newest file that verifies: those of the last
// `keepDays` days (today is day 1) and the `keepLast` newest. A file is
// kept when either keeps it; an option not given keeps nothing by itself.
// A file whose name gives no day is always kept and not counted.
struct RetentionPolicy {
    std::optional<int> keepDays;
    std::optional<int> keepLast;

    bool any() const { return keepDays || keepLast; }
};

// Removes the backups in `folder` (a Windows text) of the environment with
// `environmentKey` that `policy` does not keep. A file's age is the day its
// name gives ("MM-DD-YYYY.MDB"). Never
// removed: `justWritten`, the newest file that verifies, and every file that
// is not this environment's backup by the key it remembers (another
// environment's, or one that cannot be read). Returns the paths removed
// (Windows texts); `failures` gets one message per file that could not be.
QStringList ApplyRetention(const QString& folder, qint32 environmentKey, const QString& justWritten,
                           const RetentionPolicy& policy, const QDate& today, QStringList& failures);

} // namespace dorvane
