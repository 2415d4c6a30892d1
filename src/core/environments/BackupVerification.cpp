#include "core/environments/BackupVerification.h"

#include "core/environments/EnvironmentBackup.h"
#include "core/repository/Connection.h"
#include "core/repository/FilePaths.h"
#include "core/repository/Interruption.h"
#include "core/repository/Schema.h"
#include "core/repository/sqlite/SqliteDigest.h"
#include "core/repository/sqlite/SqliteHandle.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QScopeGuard>
#include <QSqlQuery>

#include <thread>

namespace dorvane {

namespace {

// The names of the tables of a file.
QStringList tableNames(Connection& connection, const QString& schema)
{
    return connection.FirstColumn(QStringLiteral("SELECT name FROM %1.sqlite_master WHERE type = 'table'").arg(schema));
}

// The repository tables a file has, by the names the schema gives them.
std::vector<const TableDef*> tablesOf(Connection& connection, const QString& schema)
{
    const QStringList present = tableNames(connection, schema);
    std::vector<const TableDef*> tables;
    for (const TableDef& table : RepositoryTables()) {
        if (present.contains(table.name, Qt::CaseInsensitive))
            tables.push_back(&table);
    }
    return tables;
}

sqlite::TableDigest digestOf(Connection& connection, const QString& schema, const TableDef& table)
{
    sqlite3* handle = sqlite::Handle(connection.database());
    if (!handle)
        throw DbError(QStringLiteral("A backup file's manifest is read and written on its SQLite connection only."));
    return sqlite::DigestTable(handle, schema, table.name, table.key);
}

BackupFileCheck failed(const QString& message) { return {BackupFileCheck::State::Failed, message}; }

// What SQLite's integrity check says is wrong, or nothing.
std::optional<QString> integrityProblem(Connection& file)
{
    QSqlQuery query(file.database());
    query.setForwardOnly(true);
    // The first problem is enough to refuse the file.
    if (!query.exec(QStringLiteral("PRAGMA integrity_check(1)")))
        throw file.StatementFailure(query.lastError());
    const QString first = query.next() ? query.value(0).toString() : QString();
    if (first == QLatin1String("ok"))
        return std::nullopt;
    return QStringLiteral("The file fails the database's integrity check: %1").arg(first);
}

// Why the file is not the backup of exactly one environment (the one with
// `environmentKey`, when given), or nothing.
std::optional<QString> environmentProblem(Connection& file, std::optional<qint32> environmentKey)
{
    QSqlQuery query(file.database());
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT iOriginalEnvironmentKey, sEnvironmentName FROM tEnvironment")))
        throw file.StatementFailure(query.lastError());
    int count = 0;
    qint32 original = 0;
    QString name;
    while (query.next()) {
        if (++count == 1)
            original = query.value(0).toInt(), name = query.value(1).toString();
    }
    if (count == 0)
        return QStringLiteral("The file holds no environment.");
    if (count > 1)
        return QStringLiteral("The file holds %1 environments; a backup holds one.").arg(count);
    if (environmentKey && original != *environmentKey)
        return QStringLiteral("The file is a backup of another environment (\"%1\", key %2).").arg(name).arg(original);
    return std::nullopt;
}

// Why the file's tables do not match its manifest, or nothing; no manifest
// at all is told apart by the caller.
std::optional<QString> manifestProblem(Connection& file, const QHash<QString, sqlite::TableDigest>& digests)
{
    struct Entry {
        qint64 rows = 0;
        QByteArray digest;
        bool seen = false;
    };
    QHash<QString, Entry> manifest;
    QStringList order;
    {
        QSqlQuery query(file.database());
        query.setForwardOnly(true);
        if (!query.exec(QStringLiteral("SELECT sTableName, iRows, sDigest FROM %1 ORDER BY sTableName").arg(kManifestTable)))
            throw file.StatementFailure(query.lastError());
        while (query.next()) {
            const QString name = query.value(0).toString();
            manifest.insert(name.toLower(), {query.value(1).toLongLong(), query.value(2).toString().toLatin1()});
            order << name;
        }
    }
    for (const TableDef* table : tablesOf(file, QStringLiteral("main"))) {
        const auto entry = manifest.find(table->name.toLower());
        if (entry == manifest.end())
            return QStringLiteral("Its manifest does not list the table %1.").arg(table->name);
        entry->seen = true;
        const sqlite::TableDigest found = digests.value(table->name.toLower());
        if (found.rows != entry->rows)
            return QStringLiteral("The table %1 holds %2 rows; its manifest says %3.").arg(table->name).arg(found.rows).arg(entry->rows);
        if (found.digest != entry->digest)
            return QStringLiteral("The content of the table %1 does not match its manifest.").arg(table->name);
    }
    for (const QString& name : order) {
        if (!manifest.value(name.toLower()).seen)
            return QStringLiteral("Its manifest lists a table %1 that the file does not hold.").arg(name);
    }
    return std::nullopt;
}

} // namespace

void WriteManifest(Connection& connection, const QString& schema)
{
    const QString manifest = schema + u'.' + kManifestTable;
    connection.Execute(QStringLiteral("CREATE TABLE IF NOT EXISTS %1 (sTableName TEXT PRIMARY KEY COLLATE NOCASE, "
                                      "iRows INTEGER NOT NULL, sDigest TEXT NOT NULL)")
                           .arg(manifest));
    connection.Execute(QStringLiteral("DELETE FROM ") + manifest);
    for (const TableDef* table : tablesOf(connection, schema)) {
        const sqlite::TableDigest digest = digestOf(connection, schema, *table);
        // The schema's table names and a hexadecimal digest: no user text.
        connection.Execute(QStringLiteral("INSERT INTO %1 (sTableName, iRows, sDigest) VALUES ('%2', %3, '%4')")
                               .arg(manifest, table->name)
                               .arg(digest.rows)
                               .arg(QString::fromLatin1(digest.digest)));
    }
}

BackupFileCheck VerifyOpenBackupFile(Connection& file, const QString& path, std::optional<qint32> environmentKey)
{
    // SQLite's integrity check reads the whole file once more: it runs on a
    // connection and a thread of its own while this one checks the values
    // and takes the digests. Its verdict comes first, as if it had run
    // first: a damaged file may fail the other checks too.
    std::optional<QString> integrity;
    std::optional<DbError> integrityFailure;
    std::thread checker([&] {
        try {
            Connection own;
            own.OpenFileReadOnly(path);
            own.UseSmallPageCache();
            integrity = integrityProblem(own);
        } catch (const DbError& e) {
            integrityFailure = e;
        } catch (...) {
            integrityFailure = DbError(QStringLiteral("The file's integrity could not be checked."));
        }
    });
    auto joined = qScopeGuard([&] { checker.join(); });
    std::optional<DbError> checkFailure;
    QHash<QString, sqlite::TableDigest> digests;
    try {
        digests = CheckBackupFile(file);
    } catch (const DbError& e) {
        checkFailure = e;
    }
    joined.dismiss();
    checker.join();
    if (integrityFailure) {
        // SQLite stops a statement when an interruption is asked for.
        CheckInterruption();
        return failed(integrityFailure->description());
    }
    if (integrity)
        return failed(*integrity);
    if (checkFailure)
        return failed(checkFailure->description());
    try {
        if (const auto problem = environmentProblem(file, environmentKey))
            return failed(*problem);
        if (!tableNames(file, QStringLiteral("main")).contains(kManifestTable, Qt::CaseInsensitive))
            return {BackupFileCheck::State::NoManifest,
                    QStringLiteral("The file has no manifest (it was written before Dorvane wrote them): its content "
                                   "cannot be verified.")};
        if (const auto problem = manifestProblem(file, digests))
            return failed(*problem);
        return {BackupFileCheck::State::Verified, QString()};
    } catch (const DbError& e) {
        return failed(e.description());
    }
}

BackupFileCheck VerifyBackupFile(const QString& path, std::optional<qint32> environmentKey)
{
    Connection file;
    try {
        file.OpenFileReadOnly(path);
    } catch (const DbError& e) {
        return failed(e.description());
    }
    // Every page is read once: a large cache would only hold memory.
    file.UseSmallPageCache();
    return VerifyOpenBackupFile(file, path, environmentKey);
}

namespace {

// Whether the file is a backup of the environment by the key it remembers;
// false for a file that cannot be read.
bool isBackupOf(const QString& path, qint32 environmentKey)
{
    try {
        Connection file;
        file.OpenFileReadOnly(path);
        return !environmentProblem(file, environmentKey);
    } catch (const DbError&) {
        return false;
    }
}

bool sameFile(const QString& a, const QString& b)
{
    const QFileInfo first(NativePath(a)), second(NativePath(b));
    return first.exists() && first.canonicalFilePath() == second.canonicalFilePath();
}

} // namespace

QStringList ApplyRetention(const QString& folder, qint32 environmentKey, const QString& justWritten,
                           const RetentionPolicy& policy, const QDate& today, QStringList& failures)
{
    // The environment's own backups, newest first.
    std::vector<BackupFileEntry> own;
    for (BackupFileEntry& file : ListBackupFiles(folder)) {
        if (isBackupOf(file.path, environmentKey))
            own.push_back(std::move(file));
    }
    // The newest that verifies: the file just written has been, by its
    // backup, unless a file dated later is there.
    const BackupFileEntry* newestVerified = nullptr;
    for (const BackupFileEntry& file : own) {
        if (sameFile(file.path, justWritten) || VerifyBackupFile(file.path, environmentKey).verified()) {
            newestVerified = &file;
            break;
        }
    }
    QStringList removed;
    int newer = 0;  // dated backups newer than this one
    for (const BackupFileEntry& file : own) {
        // A file whose name gives no day has no age: it stays, and does not
        // count among the newest.
        const std::optional<QDate> day = BackupFileDay(file.name);
        if (!day)
            continue;
        const bool kept = &file == newestVerified || sameFile(file.path, justWritten) ||
                          (policy.keepDays && day->daysTo(today) < *policy.keepDays) ||
                          (policy.keepLast && newer < *policy.keepLast);
        ++newer;
        if (kept)
            continue;
        const QString native = NativePath(file.path);
        QFile target(native);
        if (!target.remove()) {
            failures << QStringLiteral("Could not remove '%1': %2").arg(native, target.errorString());
            continue;
        }
        Connection::RemoveDatabaseFile(native);
        removed << file.path;
    }
    return removed;
}

} // namespace dorvane
