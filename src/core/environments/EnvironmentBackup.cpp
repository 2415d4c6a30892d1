#include "core/environments/EnvironmentBackup.h"

#include "core/applications/AppFolders.h"
#include "core/copyengine/CopyStep.h"
#include "core/copyengine/FileStaging.h"
#include "core/copyengine/VersionBackup.h"
#include "core/copyengine/VersionContent.h"
#include "core/environments/BackupVerification.h"
#include "core/environments/EnvironmentRecords.h"
#include "core/environments/EnvironmentUsers.h"
#include "core/repository/Connection.h"
#include "core/repository/Dialect.h"
#include "core/repository/FilePaths.h"
#include "core/repository/History.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/repository/Retry.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Schema.h"
#include "core/repository/Transaction.h"
#include "core/repository/sqlite/SqliteHandle.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSqlError>
#include <QSqlQuery>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStringList>
#include <QSysInfo>
#include <QUrl>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include <signal.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

const QString kBackupsBelowShared = QStringLiteral("\\Environments\\Backups\\");
const QString kTemplateName = QStringLiteral("\\ZentrixBackup.mdb");

const QString kLookingFailed = QStringLiteral("Error while looking for environment backup file: ");
const QString kBackupFailed = QStringLiteral("Error while backing up environment: ");
const QString kNoBackups = QStringLiteral("This Environment has no backups to restore.");
const QString kPreparingFailed = QStringLiteral("Error while preparing for version restore: ");
const QString kRestoreFailed = QStringLiteral("Error while restoring environment: ");
const QString kNothingChanged = QStringLiteral("Nothing was changed.");
const QString kDeleteFailed = QStringLiteral("Error while deleting environment components for restore: ");

// tApp without its key (iOriginalAppKey is the backup file's own).
const QStringList kAppColumns = KeptColumns(QStringLiteral("tApp"));
// tVersion without its key and iVersionAppKey (nor iOriginalVersionKey).
const QStringList kVersionColumns = KeptColumns(QStringLiteral("tVersion"));

// The columns of `columns` that `table` has on `connection`: a backup file
// made from an older template may lack some.
QStringList presentColumns(const QStringList& present, const QStringList& columns)
{
    QStringList result;
    for (const QString& column : columns) {
        if (present.contains(column, Qt::CaseInsensitive))
            result << column;
    }
    return result;
}

QStringList columnsOf(Connection& connection, const QString& table, const QStringList& columns)
{
    return presentColumns(connection.TableColumns(table), columns);
}

// The same for the backup file attached to a SQLite connection.
QStringList fileColumns(Connection& connection, const QString& table, const QStringList& columns)
{
    // Table names are the schema's own, never user text.
    return presentColumns(connection.FirstColumn(QStringLiteral("SELECT name FROM pragma_table_info('%1', 'dv_file')").arg(table)),
                          columns);
}



void addDetail(Recordset& details, Recordset& from, qint32 environmentKey, qint32 versionKey)
{
    details.AddNew();
    details.SetValue(QStringLiteral("iEnvironKey"), environmentKey);
    details.SetValue(QStringLiteral("iEnvironVerKey"), versionKey);
    details.SetValue(QStringLiteral("iEnvironTestToolKey"), from.Value(QStringLiteral("iEnvironTestToolKey")));
    details.SetValue(QStringLiteral("iEnviron3270Key"), from.Value(QStringLiteral("iEnviron3270Key")));
    details.Update();
}

void addUsers(Recordset& users, Recordset& to, qint32 environmentKey)
{
    for (; !users.Eof(); users.MoveNext()) {
        to.AddNew();
        to.SetValue(QStringLiteral("iUserKey"), users.Value(QStringLiteral("iUserKey")));
        to.SetValue(QStringLiteral("iEnvironKey"), environmentKey);
        CopyColumns(users, to, RightColumns());
        to.Update();
    }
}

void deleteAll(Recordset& rs)
{
    for (; !rs.Eof(); rs.MoveNext())
        rs.Delete();
}

// What an operating-system error means for the administrator who meets it.
QString fileErrorText(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return QStringLiteral("The disk is full");
    case EACCES:
    case EPERM:
        return QStringLiteral("Permission denied");
    case EROFS:
        return QStringLiteral("Permission denied (the file system is read-only)");
    default:
        return QString::fromLocal8Bit(std::strerror(error));
    }
}

// Copies the template to `target` (both Windows texts), replacing what a
// broken earlier run may have left there. The copy must be writable even
// when the installed template is not. `folderError` is why the folder
// could not be made, if it could not.
void copyTemplate(const QString& templatePath, const QString& target, int folderError)
{
    const QString from = NativePath(templatePath);
    const QByteArray to = QFile::encodeName(NativePath(target));
    if (!QFileInfo(from).isFile())
        throw DbError(QStringLiteral("Could not find file '%1'.").arg(templatePath));
    if (!QFileInfo(QFileInfo(NativePath(target)).absolutePath()).isDir()) {
        if (folderError != 0)
            throw DbError(QStringLiteral("%1: the folder '%2' could not be created.")
                              .arg(fileErrorText(folderError), target.section(QLatin1Char('\\'), 0, -2)));
        throw DbError(QStringLiteral("Path not found: '%1'.").arg(target));
    }
    // Copied by hand: the library's copy reports a full disk as an
    // input/output error, and the administrator must learn which it was.
    QFile source(from);
    if (!source.open(QIODevice::ReadOnly))
        throw DbError(QStringLiteral("Could not open file '%1': %2").arg(templatePath, source.errorString()));
    const int out = ::open(to.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (out < 0)
        throw DbError(QStringLiteral("%1: could not write '%2'.").arg(fileErrorText(errno), target));
    int error = 0;
    while (error == 0 && !source.atEnd()) {
        const QByteArray block = source.read(1 << 20);
        if (block.isEmpty() && source.error() != QFileDevice::NoError)
            error = EIO;
        for (qsizetype done = 0; error == 0 && done < block.size();) {
            const ssize_t written = ::write(out, block.constData() + done, size_t(block.size() - done));
            if (written < 0 && errno != EINTR)
                error = errno;
            else if (written > 0)
                done += written;
        }
    }
    if (::close(out) != 0 && error == 0)
        error = errno;
    if (error != 0) {
        ::unlink(to.constData());
        throw DbError(QStringLiteral("%1: could not write '%2'.").arg(fileErrorText(error), target));
    }
}

// Puts `from` in the place of `to` in one step: whoever looks at the folder
// sees the earlier file or the new one, never a part of either.
void replaceFile(const QString& from, const QString& to)
{
    const QByteArray source = QFile::encodeName(NativePath(from));
    const QByteArray target = QFile::encodeName(NativePath(to));
    if (std::rename(source.constData(), target.constData()) != 0)
        throw DbError(QStringLiteral("%1: could not write '%2'.").arg(fileErrorText(errno), to));
}

// Refuses an environment whose stored name shares its backup folder with
// another's (names the database tells apart, written by another program):
// the two would replace each other's files.
void checkFolderIsItsOwn(Connection& connection, qint32 environmentKey)
{
    if (const std::optional<QString> other = CollidingEnvironmentName(connection, environmentKey)) {
        Recordset own(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey), connection);
        throw DbError(QStringLiteral("The environments \"%1\" and \"%2\" would share one backup folder. Rename one "
                                     "of them before backing up or restoring either.")
                          .arg(own.Text(QStringLiteral("sEnvironmentName")), *other));
    }
}

// The environment's name as stored, or nothing when there is no row.
QString storedName(Connection& connection, qint32 environmentKey)
{
    Recordset row(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey), connection);
    return row.Eof() ? QString() : row.Text(QStringLiteral("sEnvironmentName"));
}

// A backup replaces the day's file only when that holds this environment's
// backup too (by the key it remembers): another environment's file, left
// in this folder by a rename, is never overwritten.
void checkDayFileIsOwn(const QString& fileName, qint32 environmentKey)
{
    if (!QFileInfo::exists(NativePath(fileName)))
        return;
    Connection day;
    day.Open(FileConnectionString(fileName));
    Recordset saved(QStringLiteral("SELECT * FROM tEnvironment"), day);
    if (!saved.Eof() && saved.Int(QStringLiteral("iOriginalEnvironmentKey")) != environmentKey)
        throw DbError(QStringLiteral("The file '%1' holds a backup of another environment (%2); it was not replaced. "
                                     "Move it away, then back this environment up again.")
                          .arg(fileName, saved.Text(QStringLiteral("sEnvironmentName"))));
}

// One value of a backup file, for a refusal: "tApp row 2 (iAppKey 2), sAppID".
QString where(const TableDef& table, const QVariant& key, const QString& column)
{
    return QStringLiteral("%1 row %2 %3, %4").arg(table.name, table.key, key.toString(), column);
}

// The longest text an s-column of a backup may hold. The suite's own
// text columns hold 255 characters, but the repository's columns have no
// limit and other programs may write longer values, which a backup copies:
// the limit refuses texts no program writes (a megabyte in a name) without
// refusing a backup of such a value.
constexpr int kTextColumnLength = 65535;

// Opens a backup file (a native path) on a SQLite repository connection
// as the schema dv_file, for statements that cross between the two (see
// DatabaseCopy); read only for a restore. Outside any transaction.
void attachFile(Connection& connection, const QString& nativePath, bool readOnly)
{
    QString uri = QString::fromLatin1(QUrl::toPercentEncoding(nativePath, "/"));
    uri = QStringLiteral("file:") + uri + (readOnly ? QStringLiteral("?mode=ro") : QString());
    connection.Execute(QStringLiteral("ATTACH DATABASE '%1' AS dv_file").arg(QuoteSql(uri)));
}

// Never throws: it also runs as a failed or interrupted run ends.
void detachFile(Connection& connection)
{
    if (!connection.IsOpen() || connection.InTransaction())
        return;
    QSqlQuery query(connection.database());
    query.exec(QStringLiteral("DETACH DATABASE dv_file"));
}

} // namespace

QHash<QString, sqlite::TableDigest> CheckBackupFile(Connection& backup)
{
    const auto refuse = [](const QString& what) {
        throw DbError(QStringLiteral("The backup file cannot be restored: %1. Nothing was changed.").arg(what));
    };
    QSqlQuery query(backup.database());
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        throw DbError(ErrorDescription(query.lastError()));
    if (const int version = query.value(0).toInt(); version > kBackupSchemaVersion)
        refuse(QStringLiteral("it was written by a newer version of Dorvane (schema %1; this one reads up to %2)")
                   .arg(version)
                   .arg(kBackupSchemaVersion));
    query.finish();

    sqlite3* const handle = sqlite::Handle(backup.database());
    if (!handle)
        throw DbError(QStringLiteral("A backup file is read on its SQLite connection only."));
    QHash<QString, sqlite::TableDigest> digests;
    for (const TableDef& table : RepositoryTables()) {
        const QStringList present = backup.TableColumns(table.name);
        if (present.isEmpty())
            continue;
        sqlite::ValueRules rules;
        rules.textLimit = kTextColumnLength;
        for (int i = 0; i < int(present.size()); ++i) {
            if (present[i].compare(table.key, Qt::CaseInsensitive) == 0)
                rules.keyColumn = i;
        }
        for (const QString& column : present) {
            if (!table.columns.contains(column, Qt::CaseInsensitive) && !table.backupOnly.contains(column, Qt::CaseInsensitive))
                refuse(QStringLiteral("its table %1 has a column %2 that this version of Dorvane does not know").arg(table.name, column));
            const ColumnType type = ColumnTypeOf(column);
            rules.columns.push_back(type == ColumnType::Integer || type == ColumnType::Boolean ? sqlite::ValueRule::Number
                                    : type == ColumnType::Text                               ? sqlite::ValueRule::ShortText
                                    : type == ColumnType::Memo                               ? sqlite::ValueRule::Text
                                                                                             : sqlite::ValueRule::Any);
        }
        // One pass reads each table: the first value its column cannot
        // hold, and the digest its manifest is compared with.
        sqlite::TableDigest digest = sqlite::DigestTable(handle, QStringLiteral("main"), table.name, table.key, rules);
        if (const auto& problem = digest.problem) {
            using Kind = sqlite::ValueProblem::Kind;
            refuse(where(table, problem->key, present[problem->column]) +
                   (problem->kind == Kind::NotANumber ? QStringLiteral(": not a number")
                    : problem->kind == Kind::TooLong  ? QStringLiteral(": longer than %1 characters").arg(kTextColumnLength)
                                                      : QStringLiteral(": not text, or a text with a NUL character")));
        }
        digests.insert(table.name.toLower(), std::move(digest));
    }

    // Names and IDs by the rules of typed ones: each names one folder.
    const struct { const char* table; const char* column; std::function<QString(const QString&)> problem; } named[] = {
        {"tEnvironment", "sEnvironmentName", [](const QString& v) { return EnvironFolderNameProblem(v); }},
        {"tApp", "sAppID", [](const QString& v) { return FolderIdProblem(QStringLiteral("application ID"), v); }},
        {"tVersion", "sVersionID", [](const QString& v) { return FolderIdProblem(QStringLiteral("version ID"), v); }},
    };
    for (const auto& [tableName, column, problemOf] : named) {
        const TableDef& table = *FindTable(QLatin1String(tableName));
        for (Recordset rs(QStringLiteral("SELECT * FROM ") + table.name, backup); !rs.Eof(); rs.MoveNext()) {
            // An ID another program left empty names no folder here: the
            // restore makes none.
            const QString value = rs.Text(QLatin1String(column));
            QString problem = value.isEmpty() && table.name != QLatin1String("tEnvironment") ? QString() : problemOf(value);
            if (problem.endsWith(u'.'))
                problem.chop(1);
            if (!problem.isEmpty())
                refuse(where(table, rs.Value(table.key), QLatin1String(column)) + QStringLiteral(": ") + problem);
        }
    }
    return digests;
}

namespace {

// Refuses a stored name that cannot name a backup folder.
void checkFolderName(const QString& environmentName)
{
    const QString problem = EnvironFolderNameProblem(environmentName);
    if (!problem.isEmpty())
        throw DbError(QStringLiteral("The environment name \"%1\" cannot name its backup folder: %2. Rename the "
                                     "environment before backing it up or restoring it.")
                          .arg(environmentName, problem));
}

// This machine's name as it may stand in a file name.
QString hostTag()
{
    QString host = QSysInfo::machineHostName();
    for (QChar& c : host) {
        if (!(c.isLetterOrNumber() && c.unicode() < 0x80) && c != QLatin1Char('-'))
            c = QLatin1Char('_');
    }
    return host.isEmpty() ? QStringLiteral("host") : host;
}

// A backup is written to "<day>.MDB.<host>-<pid>.tmp" until it commits.
// Names of this form whose writer has gone are leftovers of a backup that
// was killed; files of an older run without a host name count as this
// machine's.
const QRegularExpression& workFilePattern()
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^\d\d-\d\d-\d{4}\.MDB\.(?:(.+)-)?(\d+)\.tmp(?:-wal|-shm|-journal)?$)"),
        QRegularExpression::CaseInsensitiveOption);
    return pattern;
}

// Another machine's leftovers are removed once nobody has written them for
// this long: its backups are never checked for by process.
constexpr qint64 kForeignWorkFileAgeSecs = 24 * 60 * 60;

bool processRuns(qint64 pid)
{
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    if (pid == QCoreApplication::applicationPid())
        return false;  // this process writes no backup while it looks
    return ::kill(pid_t(pid), 0) == 0 || errno == EPERM;
}

} // namespace

std::vector<BackupFileEntry> ListBackupFiles(const QString& folder)
{
    const QDir dir(NativePath(folder));
    // Name filters compare without regard to case unless told otherwise.
    const QFileInfoList files = dir.entryInfoList({QStringLiteral("*.mdb")}, QDir::Files | QDir::Hidden, QDir::NoSort);
    struct Sorted {
        BackupFileEntry entry;
        QDateTime written;
    };
    std::vector<Sorted> found;
    for (const QFileInfo& file : files) {
        BackupFileEntry entry;
        entry.name = file.fileName();
        entry.path = folder + QLatin1Char('\\') + entry.name;
        const QDateTime written = file.lastModified();
        entry.date = BackupFileDay(entry.name).value_or(written.date());
        found.push_back({entry, written});
    }
    std::sort(found.begin(), found.end(), [](const Sorted& a, const Sorted& b) {
        if (a.entry.date != b.entry.date)
            return a.entry.date > b.entry.date;
        if (a.written != b.written)
            return a.written > b.written;
        return a.entry.name < b.entry.name;
    });
    std::vector<BackupFileEntry> result;
    result.reserve(found.size());
    for (Sorted& s : found)
        result.push_back(std::move(s.entry));
    return result;
}

std::optional<QDate> BackupFileDay(const QString& fileName)
{
    if (!fileName.endsWith(QLatin1String(".mdb"), Qt::CaseInsensitive))
        return std::nullopt;
    const QDate day = QDate::fromString(fileName.left(fileName.size() - 4), QStringLiteral("MM-dd-yyyy"));
    return day.isValid() ? std::optional<QDate>(day) : std::nullopt;
}

int RemoveAbandonedBackupFiles(const QString& folder)
{
    const QDir dir(NativePath(folder));
    const QString host = hostTag();
    const QDateTime now = QDateTime::currentDateTimeUtc();
    int removed = 0;
    for (const QFileInfo& file : dir.entryInfoList(QDir::Files | QDir::Hidden | QDir::System, QDir::NoSort)) {
        const QRegularExpressionMatch match = workFilePattern().match(file.fileName());
        if (!match.hasMatch())
            continue;
        const bool ours = !match.hasCaptured(1) || match.captured(1) == host;
        const bool abandoned = ours ? !processRuns(match.captured(2).toLongLong())
                                    : file.lastModified().toUTC().secsTo(now) > kForeignWorkFileAgeSecs;
        if (abandoned && QFile::remove(file.absoluteFilePath()))
            ++removed;
    }
    return removed;
}

BackupFileContents CountBackupFile(const QString& path)
{
    Connection file;
    file.Open(FileConnectionString(path));
    BackupFileContents contents;
    for (const TableDef& table : RepositoryTables()) {
        // Table names are the schema's own, never user text.
        QSqlQuery query(file.database());
        if (!query.exec(QStringLiteral("SELECT COUNT(*) FROM ") + table.name) || !query.next())
            throw DbError(ErrorDescription(query.lastError()));
        const qint64 rows = query.value(0).toLongLong();
        contents.rows += rows;
        if (table.name == QLatin1String("tVersion"))
            contents.versions = qint32(rows);
    }
    return contents;
}

// The day's file and the work file it is written to until it commits. A
// run that ends without its file in place (a failure, a refusal, an
// interruption) rolls the file's transaction back and removes the work
// file with its journal files; an earlier backup of the day stays as it was.
struct EnvironmentBackup::BackupRun {
    QString fileName;  // the day's file
    QString workName;  // where it is written until it commits
    // On SQLite the work file is attached to the reading connection and
    // written through it; on a server it is written through its own
    // connection, in its own transaction.
    Connection* attachedTo = nullptr;
    std::unique_ptr<Connection> file;
    std::optional<FileStaging> staging;  // the file's tables on the server
    std::optional<Transaction> writing;  // on `file`
    bool inPlace = false;

    BackupRun() = default;
    BackupRun(const BackupRun&) = delete;
    BackupRun& operator=(const BackupRun&) = delete;
    ~BackupRun()
    {
        if (inPlace)
            return;
        writing.reset();
        staging.reset();
        file.reset();
        // The read transaction has ended with its guard.
        if (attachedTo)
            detachFile(*attachedTo);
        if (!workName.isEmpty())
            Connection::RemoveDatabaseFile(NativePath(workName));
    }
};

EnvironmentBackup::EnvironmentBackup(VersionBackup& engine, QString sharedResourcePath, QString installationPath)
    : m_engine(engine), m_sharedResourcePath(std::move(sharedResourcePath)), m_installationPath(std::move(installationPath))
{
}

QString EnvironmentBackup::BackupFileName(const QDate& day)
{
    return day.toString(QStringLiteral("MM-dd-yyyy")) + QStringLiteral(".MDB");
}

QString EnvironmentBackup::BackupQuestion(const QString& environmentName) const
{
    QString question = QStringLiteral("Back up all application/versions of ") + environmentName + QStringLiteral(" to ") +
                       BackupFileName(Today()) + QStringLiteral("?");
    if (EnvironFolderNameProblem(environmentName).isEmpty() &&
        QFileInfo::exists(NativePath(BackupFolder(environmentName) + QLatin1Char('\\') + BackupFileName(Today()))))
        question += QStringLiteral(" It replaces the backup made earlier today.");
    return question;
}

void EnvironmentBackup::MoveBackupFolder(const QString& from, const QString& to) const
{
    MoveEnvironmentBackups(m_sharedResourcePath, from, to);
}

void EnvironmentBackup::CheckFolderName(const QString& environmentName) { checkFolderName(environmentName); }

QString EnvironmentBackup::BackupFolder(const QString& environmentName) const
{
    return EnvironmentBackupFolder(m_sharedResourcePath, environmentName);
}

QString EnvironmentBackupFolder(const QString& sharedResourcePath, const QString& environmentName)
{
    checkFolderName(environmentName);
    return sharedResourcePath + kBackupsBelowShared + environmentName;
}

void MoveEnvironmentBackups(const QString& sharedResourcePath, const QString& from, const QString& to)
{
    const QString source = NativePath(EnvironmentBackupFolder(sharedResourcePath, from));
    if (!QFileInfo(source).isDir())
        return;
    const QString target = NativePath(EnvironmentBackupFolder(sharedResourcePath, to));
    // A change of letter case alone is a rename of the same folder.
    if (QFileInfo::exists(target) && QFileInfo(target).canonicalFilePath() != QFileInfo(source).canonicalFilePath())
        throw DbError(QStringLiteral("The backup folder '%1' exists already: move it away before renaming the "
                                     "environment, so that its backups are not mixed with this one's.")
                          .arg(target));
    const QString targetPath = QFileInfo(target).absolutePath() + QLatin1Char('/') + to;
    if (std::rename(QFile::encodeName(source).constData(), QFile::encodeName(targetPath).constData()) != 0)
        throw DbError(QStringLiteral("%1: the backup folder '%2' could not be renamed.").arg(fileErrorText(errno), source));
}

BackupFolderMove BackupFolderMover(const QString& sharedResourcePath)
{
    return [sharedResourcePath](const QString& from, const QString& to) {
        MoveEnvironmentBackups(sharedResourcePath, from, to);
    };
}

QString EnvironmentBackup::RestoreFolder(const QString& environmentName) const { return BackupFolder(environmentName); }

bool EnvironmentBackup::AskAndBackUp(qint32 environmentKey, const QString& environmentName)
{
    MessageSink& messages = m_engine.Messages();
    try {
        BackupFolder(environmentName);
        if (messages.Show(BackupQuestion(environmentName), Buttons::YesNo) != Answer::Yes)
            return false;
    } catch (const DbError& e) {
        messages.Inform(kLookingFailed + e.description());
        return false;
    }
    return BackupEnvironment(environmentKey);
}

bool EnvironmentBackup::ChooseAndRestore(qint32 environmentKey, const QString& environmentName,
                                         RestoreChooser& chooser)
{
    MessageSink& messages = m_engine.Messages();
    std::optional<QString> chosen;
    try {
        const QString folder = RestoreFolder(environmentName);
        RemoveAbandonedBackupFiles(folder);
        if (ListBackupFiles(folder).empty()) {
            messages.Inform(kNoBackups);
            return false;
        }
        chosen = chooser.ChooseBackup(folder);
    } catch (const DbError& e) {
        messages.Inform(kPreparingFailed + e.description());
        return false;
    }
    return chosen && RestoreEnvironment(environmentKey, *chosen);
}

Connection* EnvironmentBackup::startRun()
{
    m_engine.DestinationConnection = m_engine.OpenDestinationDatabase();
    m_engine.ResetCopyRunMaps(true);
    // Without a connection OpenDestinationDatabase has said why.
    return m_engine.DestinationConnection.get();
}

void EnvironmentBackup::finishRun()
{
    m_engine.DestinationConnection.reset();
    m_engine.Progress().HideWindow();
}

bool EnvironmentBackup::BackupEnvironment(qint32 environmentKey)
{
    HistoryRecord record(m_engine.Messages(), m_engine.RepositoryConnectionString(), HistoryOperation::Backup);
    record.EnvironmentKey(environmentKey);
    const auto recorded = m_engine.MessagesTo(record);
    m_lastBackupFile.clear();
    const auto finish = qScopeGuard([this] { finishRun(); });
    BusyScope busy(m_engine.Busy());
    Connection* const opened = startRun();
    if (!opened)
        return false;
    Connection& reading = *opened;
    reading.UseSmallPageCache();
    BackupRun run;
    try {
        const QString name = startBackupFile(environmentKey, run);
        const QStringList versionColumns = run.attachedTo
                                               ? fileColumns(reading, QStringLiteral("tVersion"), kVersionColumns)
                                               : columnsOf(*run.file, QStringLiteral("tVersion"), kVersionColumns);
        // Everything is read from one state of the repository: what
        // another program commits meanwhile is wholly in the file or wholly
        // absent. On a server the transaction writes its staging tables
        // (a read-only one could not); it writes nothing else.
        Transaction snapshot(reading, run.attachedTo ? Transaction::Kind::Snapshot : Transaction::Kind::Write);
        if (storedName(reading, environmentKey) != name)
            throw DbError(QStringLiteral("The environment \"%1\" was renamed or deleted as its backup began; nothing "
                                         "was written. Back it up again.")
                              .arg(name));
        if (!backupContent(environmentKey, reading, versionColumns))
            return false;
        if (run.attachedTo) {
            WriteManifest(reading, QStringLiteral("dv_file"));
            snapshot.Commit();
            detachFile(reading);
            run.attachedTo = nullptr;
        } else {
            m_engine.Progress().SetAction(QStringLiteral("Writing the backup file..."));
            m_engine.Progress().Refresh();
            try {
                run.staging->Save();
            } catch (const DbError& e) {
                // A content row the file refuses fails as its copy would.
                const QString* prefix = CopyFailurePrefix(e.table());
                if (!prefix)
                    throw;
                m_engine.Messages().Show(*prefix + e.description(), Buttons::Ok);
                return false;
            }
            WriteManifest(*run.file, QStringLiteral("main"));
            run.writing->Commit();
            // One self-contained file, without a write-ahead journal beside
            // it, before it takes the day's name.
            run.file->Execute(QStringLiteral("PRAGMA journal_mode=DELETE"));
            run.file->Close();
            snapshot.Commit();
        }
        // What was written is read back before it takes the day's name: a
        // file that does not verify never replaces a good one.
        m_engine.Progress().SetAction(QStringLiteral("Verifying the backup file..."));
        m_engine.Progress().Refresh();
        if (const BackupFileCheck check = VerifyBackupFile(run.workName, environmentKey); !check.verified())
            throw DbError(QStringLiteral("The file written does not verify, so it was not kept: ") + check.message);
        checkDayFileIsOwn(run.fileName, environmentKey);
        replaceFile(run.workName, run.fileName);
        run.inPlace = true;
        m_lastBackupFile = run.fileName;
        record.Name(QString(), NativePath(run.fileName));
        record.Done();
        return true;
    } catch (const DbError& e) {
        m_engine.Messages().Inform(kBackupFailed + e.description());
        return false;
    }
}

// The work file of a backup: the environment's backup folder made where
// missing, the template copied to the work name and opened for writing.
// Before the backup's read transaction (a file is attached outside any).
// Returns the environment's name.
QString EnvironmentBackup::startBackupFile(qint32 environmentKey, BackupRun& run)
{
    Connection& reading = *m_engine.DestinationConnection;
    Recordset environment(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey),
                          reading);
    const QString name = environment.Text(QStringLiteral("sEnvironmentName"));
    environment.Close();
    checkFolderIsItsOwn(reading, environmentKey);

    const QString folder = BackupFolder(name);
    // A folder that cannot be made is passed over here, as the suite always
    // has; the template's copy then meets the problem and says why.
    int folderError = 0;
    if (!QFileInfo::exists(NativePath(folder))) {
        // One level only: the backups folder itself must be there.
        if (::mkdir(QFile::encodeName(NativePath(folder)).constData(), 0777) != 0)
            folderError = errno;
    } else {
        RemoveAbandonedBackupFiles(folder);
    }
    run.fileName = folder + QLatin1Char('\\') + BackupFileName(Today());
    run.workName = run.fileName + QStringLiteral(".%1-%2.tmp").arg(hostTag()).arg(QCoreApplication::applicationPid());
    copyTemplate(m_installationPath + kTemplateName, run.workName, folderError);

    if (reading.backend() == BackendKind::Sqlite) {
        attachFile(reading, NativePath(run.workName), false);
        run.attachedTo = &reading;
        // One self-contained file, without a write-ahead journal beside it.
        reading.Execute(QStringLiteral("PRAGMA dv_file.journal_mode=DELETE"));
    } else {
        run.file = std::make_unique<Connection>();
        run.file->Open(FileConnectionString(run.workName));
        // Written in place, as on SQLite: through a write-ahead journal
        // every page of the file would be written twice.
        run.file->Execute(QStringLiteral("PRAGMA journal_mode=DELETE"));
        run.staging.emplace(reading, *run.file);
        run.staging->Create();
        run.writing.emplace(*run.file);
    }
    return name;
}

// Steps 1 to 8 of the backup, up to the commit, as statements that cross
// from the repository to the file on the same connection (attached, or
// staged on a server). Throws
// DbError for its own statements; a primitive's failure (already reported)
// returns false.
bool EnvironmentBackup::backupContent(qint32 environmentKey, Connection& db, const QStringList& versionColumns)
{
    ProgressSink& progress = m_engine.Progress();
    const auto sides = m_engine.CopyBetween(DatabaseCopy::Side::Repository, DatabaseCopy::Side::File);
    DatabaseCopy copy(db, DatabaseCopy::Side::Repository, DatabaseCopy::Side::File);
    // One row of the repository, written into the file under a new key;
    // returns that key.
    const auto copyRow = [&](const QString& table, const QString& key, qint32 sourceKey, const QStringList& columns,
                             const QStringList& values) {
        copy.CopyRows(table, key, QStringLiteral("s.%1 = %2").arg(key, num(sourceKey)), columns, values);
        const auto pairs = copy.Pairs(table);
        return pairs.empty() ? 0 : pairs.front().second;
    };

    const qint32 backupEnvironmentKey =
        copyRow(QStringLiteral("tEnvironment"), QStringLiteral("iEnvironmentKey"), environmentKey,
                {QStringLiteral("iOriginalEnvironmentKey"), QStringLiteral("sEnvironmentName"),
                 QStringLiteral("sEnvironmentDesc")},
                {QStringLiteral("s.iEnvironmentKey"), QStringLiteral("s.sEnvironmentName"),
                 QStringLiteral("s.sEnvironmentDesc")});

    progress.SetTitle(QStringLiteral("Environment backup progress..."));
    progress.ShowWindow();

    const QString users = QStringLiteral("tEnvironmentUser"), userKey = QStringLiteral("iEnvironmentUserKey");
    copy.CopyRows(users, userKey, QStringLiteral("s.iEnvironKey = ") + num(environmentKey),
                  QStringList{QStringLiteral("iUserKey"), QStringLiteral("iEnvironKey")} + RightColumns(),
                  QStringList{QStringLiteral("s.iUserKey"), num(backupEnvironmentKey)} + DatabaseCopy::Kept(RightColumns()));

    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey =") + num(environmentKey), db);
    for (; !details.Eof(); details.MoveNext()) {
        const qint32 versionKey = details.Int(QStringLiteral("iEnvironVerKey"));
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey =") + num(versionKey), db);
        const qint32 appKey = version.Int(QStringLiteral("iVersionAppKey"));
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(appKey), db);
        m_engine.CurrentVersionLabel = app.Text(QStringLiteral("sAppName"));

        // Every version brings its own copy of its application.
        const qint32 newAppKey = copyRow(QStringLiteral("tApp"), QStringLiteral("iAppKey"), appKey,
                                         QStringList{QStringLiteral("iOriginalAppKey")} + kAppColumns,
                                         QStringList{QStringLiteral("s.iAppKey")} + DatabaseCopy::Kept(kAppColumns));
        const qint32 newVersionKey =
            copyRow(QStringLiteral("tVersion"), QStringLiteral("iVersionKey"), versionKey,
                    QStringList{QStringLiteral("iOriginalVersionKey")} + versionColumns + QStringList{QStringLiteral("iVersionAppKey")},
                    QStringList{QStringLiteral("s.iVersionKey")} + DatabaseCopy::Kept(versionColumns) + QStringList{num(newAppKey)});

        if (!m_engine.CopyWindows(versionKey, newVersionKey, db, true) ||
            !m_engine.CopyKeywords(appKey, newAppKey, db, false))
            return false;
        copyRow(QStringLiteral("tEnvironmentDetail"), QStringLiteral("iEnvironmentDetailKey"),
                details.Int(QStringLiteral("iEnvironmentDetailKey")),
                {QStringLiteral("iEnvironKey"), QStringLiteral("iEnvironVerKey"), QStringLiteral("iEnvironTestToolKey"),
                 QStringLiteral("iEnviron3270Key")},
                {num(backupEnvironmentKey), num(newVersionKey), QStringLiteral("s.iEnvironTestToolKey"),
                 QStringLiteral("s.iEnviron3270Key")});
        if (!m_engine.CopyProcesses(versionKey, newVersionKey, backupEnvironmentKey, db) ||
            !m_engine.CopyCycles(versionKey, newVersionKey, db) || !m_engine.CopyVariables(versionKey, newVersionKey, db) ||
            !m_engine.CopyRequirements(versionKey, newVersionKey, db) || !m_engine.FixUpSteps(newVersionKey, db))
            return false;
        m_engine.RemapVersionPointers(newVersionKey, db);
    }
    return m_engine.CopySchedules(environmentKey, backupEnvironmentKey, db);
}

bool EnvironmentBackup::RestoreEnvironment(qint32 environmentKey, const QString& backupFilePath)
{
    HistoryRecord record(m_engine.Messages(), m_engine.RepositoryConnectionString(), HistoryOperation::Restore,
                         QString(), NativePath(backupFilePath));
    record.EnvironmentKey(environmentKey);
    const auto recorded = m_engine.MessagesTo(record);
    const auto finish = qScopeGuard([this] { finishRun(); });
    BusyScope busy(m_engine.Busy());
    Connection* const opened = startRun();
    if (!opened)
        return false;
    Connection& repository = *opened;
    // Its writes are large statements: a small cache keeps the restore's
    // memory flat at any size, at no cost in time.
    repository.UseSmallPageCache();
    const WriteBatching batching(repository);
    // A restore touches no file but the one it reads, so nothing here can
    // fail with "Path/File access error" to be passed over.
    Connection backup;
    try {
        // Opened for reading only: nothing of a restore writes to its file.
        backup.OpenFileReadOnly(backupFilePath);
        backup.UseSmallPageCache();
        // Which environment it belongs to is asked below, where a file of
        // one deleted since may be restored all the same.
        const BackupFileCheck check = VerifyOpenBackupFile(backup, backupFilePath, std::nullopt);
        if (check.state == BackupFileCheck::State::Failed) {
            m_engine.Messages().Inform(kRestoreFailed + check.message +
                                       (check.message.endsWith(kNothingChanged) ? QString() : u' ' + kNothingChanged));
            record.Refused();
            return false;
        }
        if (check.state == BackupFileCheck::State::NoManifest &&
            m_engine.Messages().Show(QStringLiteral("The backup %1 has no manifest: it was written before Dorvane "
                                                    "verified its backups, so whether its content is intact cannot "
                                                    "be told. Restore it all the same?")
                                         .arg(backupFilePath.section(QLatin1Char('\\'), -1).section(QLatin1Char('/'), -1)),
                                     Buttons::YesNo) != Answer::Yes)
            return false;
        if (!BackupBelongsHere(environmentKey, backupFilePath, backup, repository)) {
            record.Refused();
            return false;
        }
        if (BeforeRestore && !BeforeRestore(environmentKey, backup, repository))
            return false;
        // The file's rows cross by statements of the repository's
        // connection: attached on SQLite, staged on a server.
        if (repository.backend() == BackendKind::Sqlite)
            attachFile(repository, NativePath(backupFilePath), true);
        else
            FileStaging(repository, backup).Load();
    } catch (const DbError& e) {
        m_engine.Messages().Inform(kRestoreFailed + e.description());
        return false;
    }
    const auto detach = qScopeGuard([&] {
        if (repository.backend() == BackendKind::Sqlite)
            detachFile(repository);
    });
    const bool restored = RetryOnConcurrentChange(m_engine.Messages(), [&](MessageSink& held) {
        const auto redirect = m_engine.MessagesTo(held);
        try {
            m_engine.ResetCopyRunMaps(true);
            // The environment, and the names a restore may write back, are
            // held against other operations; its name is checked inside.
            const OperationLocks locks(repository, {{OperationLocks::Kind::EnvironmentNames, 0},
                                                    {OperationLocks::Kind::Environment, environmentKey}});
            Transaction transaction(repository);
            checkFolderIsItsOwn(repository, environmentKey);
            const QString nameBefore = storedName(repository, environmentKey);
            if (!PrepareForRestore(environmentKey, repository) || !restoreContent(environmentKey, backup, repository))
                return false;
            // A name the backup brings back takes the backup folder along, as
            // a rename does; a commit that fails moves it back.
            const QString nameAfter = storedName(repository, environmentKey);
            const bool move = !nameBefore.isEmpty() && nameAfter != nameBefore;
            if (move)
                MoveBackupFolder(nameBefore, nameAfter);
            try {
                transaction.Commit();
            } catch (const DbError&) {
                if (move)
                    MoveBackupFolder(nameAfter, nameBefore);
                throw;
            }
            return true;
        } catch (const DbError& e) {
            held.Inform(kRestoreFailed + e.description());
            return false;
        }
    });
    if (restored)
        record.Done();
    return restored;
}

bool EnvironmentBackup::BackupBelongsHere(qint32 environmentKey, const QString& backupFilePath, Connection& backup,
                                          Connection& repository)
{
    Recordset saved(QStringLiteral("SELECT * FROM tEnvironment"), backup);
    if (saved.Eof())
        throw DbError(QStringLiteral("The file '%1' holds no environment backup.").arg(backupFilePath));
    const qint32 original = saved.Int(QStringLiteral("iOriginalEnvironmentKey"));
    if (original == environmentKey)
        return true;
    const QString file = backupFilePath.section(QLatin1Char('\\'), -1).section(QLatin1Char('/'), -1);
    Recordset target(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey),
                     repository);
    const QString targetName = target.Eof() ? QString() : target.Text(QStringLiteral("sEnvironmentName"));
    Recordset owner(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(original), repository);
    if (!owner.Eof()) {
        m_engine.Messages().Inform(QStringLiteral("The backup %1 belongs to environment \"%2\" and cannot be restored "
                                                  "into environment \"%3\". Nothing was changed.")
                                       .arg(file, owner.Text(QStringLiteral("sEnvironmentName")), targetName));
        return false;
    }
    return m_engine.Messages().Show(QStringLiteral("The backup %1 was made of environment \"%2\", which no longer "
                                                   "exists. Restore it into environment \"%3\"?")
                                        .arg(file, saved.Text(QStringLiteral("sEnvironmentName")), targetName),
                                    Buttons::YesNo) == Answer::Yes;
}

// Steps 3 to 7 of the restore, up to the commit. Throws DbError for its own
// statements; a primitive's failure (already reported) returns false.
bool EnvironmentBackup::restoreContent(qint32 environmentKey, Connection& backup, Connection& repository)
{
    // The content's rows come through the repository's connection, which
    // has the file attached or staged; the few rows read here come from
    // the file itself.
    const auto sides = m_engine.CopyBetween(DatabaseCopy::Side::File, DatabaseCopy::Side::Repository);
    ProgressSink& progress = m_engine.Progress();
    progress.SetTitle(QStringLiteral("Environment restore progress..."));
    progress.ShowWindow();

    // A backup file holds one environment; its first row is taken.
    Recordset saved(QStringLiteral("SELECT * FROM tEnvironment"), backup);
    const qint32 backupEnvironmentKey = saved.Int(QStringLiteral("iEnvironmentKey"));
    Recordset environment(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + num(environmentKey),
                          repository);
    if (environment.Eof())
        environment.AddNew();
    // The name the backup remembers goes back unless another environment
    // has taken it, or a name of the same folder, since: two environments
    // never share a name or a backup folder.
    if (!EnvironmentNameHolder(repository, saved.Text(QStringLiteral("sEnvironmentName")), environmentKey))
        environment.SetValue(QStringLiteral("sEnvironmentName"), saved.Value(QStringLiteral("sEnvironmentName")));
    environment.SetValue(QStringLiteral("sEnvironmentDesc"), saved.Value(QStringLiteral("sEnvironmentDesc")));
    environment.Update();

    Recordset oldDetails(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") + num(environmentKey),
                         repository);
    deleteAll(oldDetails);
    Recordset oldUsers(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=") + num(environmentKey),
                       repository);
    deleteAll(oldUsers);
    Recordset users(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=") + num(backupEnvironmentKey),
                    backup);
    Recordset newUsers(QStringLiteral("SELECT * FROM tEnvironmentUser"), repository);
    addUsers(users, newUsers, environmentKey);

    // The backup holds one application row per version. An application that
    // has to be recreated is recreated once: its other versions find the
    // new row here instead of adding yet another application.
    QHash<qint32, qint32> restoredApps;

    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey =") + num(backupEnvironmentKey),
                      backup);
    Recordset newDetails(QStringLiteral("SELECT * FROM tEnvironmentDetail"), repository);
    const QStringList versionColumns = columnsOf(backup, QStringLiteral("tVersion"), kVersionColumns);
    for (; !details.Eof(); details.MoveNext()) {
        const qint32 backupVersionKey = details.Int(QStringLiteral("iEnvironVerKey"));
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey =") + num(backupVersionKey), backup);
        const qint32 backupAppKey = version.Int(QStringLiteral("iVersionAppKey"));
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(backupAppKey), backup);
        m_engine.CurrentVersionLabel = app.Text(QStringLiteral("sAppName"));

        const qint32 originalAppKey = app.Int(QStringLiteral("iOriginalAppKey"));
        Recordset repositoryApp(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") +
                                    num(restoredApps.value(originalAppKey, originalAppKey)),
                                repository);
        if (repositoryApp.Eof())
            repositoryApp.AddNew();
        CopyColumns(app, repositoryApp, kAppColumns);
        repositoryApp.Update();
        const qint32 appKey = repositoryApp.Int(QStringLiteral("iAppKey"));
        restoredApps.insert(originalAppKey, appKey);

        // What this routine writes itself is sent before a step's rows, so
        // that a failure of its own rows is reported as its own.
        repository.SendHeldWrites();
        // The application kept its keywords: the backup's are matched to
        // them by name, and only those missing are added.
        if (!m_engine.CopyKeywords(backupAppKey, appKey, repository, true))
            return false;

        Recordset repositoryVersion(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") +
                                        num(version.Int(QStringLiteral("iOriginalVersionKey"))),
                                    repository);
        if (repositoryVersion.Eof())
            repositoryVersion.AddNew();
        else
            // The version may have been filled again since the backup (an
            // update, or another environment that lists it): what the
            // backup holds replaces that content instead of joining it.
            ClearVersionContent(repositoryVersion.Int(QStringLiteral("iVersionKey")), repository);
        CopyColumns(version, repositoryVersion, versionColumns);
        repositoryVersion.SetValue(QStringLiteral("iVersionAppKey"), appKey);
        repositoryVersion.Update();
        const qint32 versionKey = repositoryVersion.Int(QStringLiteral("iVersionKey"));

        addDetail(newDetails, details, environmentKey, versionKey);
        repository.SendHeldWrites();

        if (!m_engine.CopyWindows(backupVersionKey, versionKey, repository, true) ||
            !m_engine.CopyProcesses(backupVersionKey, versionKey, environmentKey, repository) ||
            !m_engine.CopyCycles(backupVersionKey, versionKey, repository) ||
            !m_engine.CopyVariables(backupVersionKey, versionKey, repository) ||
            !m_engine.CopyRequirements(backupVersionKey, versionKey, repository) ||
            !m_engine.FixUpSteps(versionKey, repository))
            return false;
        m_engine.RemapVersionPointers(versionKey, repository);
        repository.SendHeldWrites();
    }
    repository.SendHeldWrites();
    return m_engine.CopySchedules(backupEnvironmentKey, environmentKey, repository);
}

bool EnvironmentBackup::PrepareForRestore(qint32 environmentKey, Connection& repository)
{
    ProgressSink& progress = m_engine.Progress();
    progress.SetAction(QStringLiteral("Preparing database for restore..."));
    progress.ShowWindow();
    progress.Refresh();
    try {
        // The content of the versions the environment lists goes only when
        // it lists one; its schedules go in any case.
        Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") + num(environmentKey),
                          repository);
        const std::vector<ContentDeletion> deletions = PrepareForRestoreStatements(environmentKey, !details.Eof(), repository.backend());
        for (const ContentDeletion& deletion : deletions)
            CountWrittenRows(repository.Execute(deletion.sql));
        return true;
    } catch (const DbError& e) {
        m_engine.Messages().Inform(kDeleteFailed + e.description());
        return false;
    }
}

void ClearVersionContent(qint32 versionKey, Connection& connection)
{
    for (const ContentDeletion& deletion : ClearVersionContentStatements(versionKey, connection.backend()))
        CountWrittenRows(connection.Execute(deletion.sql));
}

} // namespace dorvane
