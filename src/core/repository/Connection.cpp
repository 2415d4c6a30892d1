#include "core/repository/Connection.h"

#include "core/repository/Dialect.h"
#include "core/repository/FilePaths.h"
#include "core/repository/HeldWrites.h"
#include "core/repository/Interruption.h"
#include "core/repository/postgres/PostgresSession.h"
#include "core/repository/sqlite/SqliteHandle.h"
#include "core/repository/sqlite/SqliteStatements.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSqlDriver>
#include <QSqlError>
#include <QUrl>

#include <algorithm>
#include <atomic>
#include <utility>

namespace dorvane {

namespace {

const char* const kClosedText = "Operation is not allowed when the object is closed.";
const char* const kOpenText = "Operation is not allowed when the object is open.";
const char* const kNestedText = "Cannot start more transactions on this session.";
const char* const kNoTransactionText = "No transaction is active.";
const char* const kNoProviderText = "Provider cannot be found. It may not be properly installed.";

const char* const kRolledBackText =
    "The transaction was rolled back because a part of it failed; nothing of it was written.";
constexpr qsizetype kStatementCacheLimit = 256;

QString nextConnectionName()
{
    static std::atomic<quint64> counter{0};
    return QStringLiteral("dorvane-%1").arg(++counter);
}

struct Setting {
    QString key;     // lower case
    QString value;
    qsizetype valueStart = 0;  // where the value begins in the connection string
    qsizetype valueEnd = 0;    // and where it ends, closing quote or brace included
};

// Splits "key=value;key=value" at semicolons outside quoted values. A
// value may be quoted with " or ', or braced as ODBC does ({a;b}, with }}
// standing for one closing brace).
QList<Setting> parseSettings(const QString& text)
{
    QList<Setting> settings;
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n) {
        const qsizetype eq = text.indexOf(QLatin1Char('='), i);
        const qsizetype semi = text.indexOf(QLatin1Char(';'), i);
        if (eq < 0 || (semi >= 0 && semi < eq)) {
            i = semi < 0 ? n : semi + 1;
            continue;
        }
        Setting s;
        s.key = text.mid(i, eq - i).trimmed().toLower();
        qsizetype v = eq + 1;
        while (v < n && text.at(v).isSpace())
            ++v;
        s.valueStart = v;
        const QChar open = v < n ? text.at(v) : QChar();
        if (open == QLatin1Char('"') || open == QLatin1Char('\'') || open == QLatin1Char('{')) {
            // A quoted or braced value ends at its closing quote or brace;
            // a doubled closing character inside it stands for one.
            const QChar close = open == QLatin1Char('{') ? QLatin1Char('}') : open;
            qsizetype end = v + 1;
            while (end < n) {
                if (text.at(end) == close) {
                    if (end + 1 < n && text.at(end + 1) == close) {
                        s.value += close;
                        end += 2;
                        continue;
                    }
                    break;
                }
                s.value += text.at(end++);
            }
            s.valueEnd = std::min(end + 1, n);
            const qsizetype next = text.indexOf(QLatin1Char(';'), end);
            i = next < 0 ? n : next + 1;
        } else {
            const qsizetype end = semi < 0 ? n : semi;
            s.value = text.mid(v, end - v).trimmed();
            s.valueEnd = end;
            i = end + 1;
        }
        settings << s;
    }
    return settings;
}

const Setting* findSetting(const QList<Setting>& settings, const char* key)
{
    for (const Setting& s : settings) {
        if (s.key == QLatin1String(key))
            return &s;
    }
    return nullptr;
}

bool isDdl(const QString& sql)
{
    const QString head = sql.trimmed().left(6).toUpper();
    return head.startsWith(QLatin1String("CREATE")) || head.startsWith(QLatin1String("DROP")) ||
           head.startsWith(QLatin1String("ALTER"));
}

// A database file must be there: SQLite is never let to create one.
void requireFile(const QString& givenPath, const QString& nativePath)
{
    const QFileInfo info(nativePath);
    if (!info.exists() || info.isDir())
        throw DbError(QStringLiteral("Could not find file '%1'.").arg(givenPath));
}

std::atomic<int> lockWaitMs{kDefaultLockWaitMs};

bool isFileProvider(const QString& provider)
{
    return provider.startsWith(QLatin1String("Microsoft.Jet.OLEDB."), Qt::CaseInsensitive) ||
           provider.startsWith(QLatin1String("Microsoft.ACE.OLEDB."), Qt::CaseInsensitive);
}

} // namespace

void SetLockWaitMs(int milliseconds) { lockWaitMs.store(std::max(0, milliseconds)); }

int LockWaitMs() { return lockWaitMs.load(); }

QString FileConnectionString(const QString& path)
{
    QString value = path;
    const bool plain = !path.contains(QLatin1Char(';')) && !path.startsWith(QLatin1Char('"')) &&
                       !path.startsWith(QLatin1Char('\'')) && path.trimmed() == path;
    if (!plain)
        value = QLatin1Char('"') + QString(path).replace(QLatin1String("\""), QLatin1String("\"\"")) + QLatin1Char('"');
    return QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + value + QLatin1Char(';');
}

DataSource ConnectionDataSource(const QString& connectionString)
{
    const QList<Setting> settings = parseSettings(connectionString);
    const Setting* provider = findSetting(settings, "provider");
    DataSource source;
    source.isFile = provider && isFileProvider(provider->value);
    if (const Setting* setting = findSetting(settings, source.isFile ? "data source" : "dsn"))
        source.name = setting->value;
    return source;
}

QString MaskPasswords(const QString& connectionString)
{
    QString masked = connectionString;
    const QList<Setting> settings = parseSettings(connectionString);
    // From the end, so that the positions before each value stay valid.
    for (auto it = settings.crbegin(); it != settings.crend(); ++it) {
        if (it->key == QLatin1String("pwd") || it->key.endsWith(QLatin1String("password")) ||
            it->key.endsWith(QLatin1String("passwd")))
            masked.replace(it->valueStart, it->valueEnd - it->valueStart, QStringLiteral("********"));
    }
    return masked;
}

struct Connection::Private {
    QString name;
    QSqlDatabase db;
    const Dialect* dialect = nullptr;
    QHash<QString, std::shared_ptr<const TableInfo>> tables;
    // KeySequence's answers, by "table.key" in lower case.
    QHash<QString, QString> sequences;
    // The same, by the table's name exactly as written: a record set is
    // opened per copied row, and its table need not be lower-cased each time.
    QHash<QString, std::shared_ptr<const TableInfo>> tablesAsWritten;
    QHash<QString, std::shared_ptr<QSqlQuery>> statements;
    std::unique_ptr<SqliteStatements> sqliteStatements;
    std::unique_ptr<HeldWrites> held;
    sqlite::LockWait lockWait;

    void requireOpen() const
    {
        if (!db.isValid() || !db.isOpen())
            throw DbError(QString::fromLatin1(kClosedText));
    }

    void forgetMetadata()
    {
        // The reserved keys are kept by table: sent before the schema
        // changes (Execute), held rows go with them.
        held.reset();
        statements.clear();
        if (sqliteStatements)
            sqliteStatements->Clear();
        tables.clear();
        tablesAsWritten.clear();
    }

    void release()
    {
        held.reset();
        forgetMetadata();
        // SQLite refuses to close a handle with statements still prepared.
        sqliteStatements.reset();
        if (db.isValid())
            db.close();
        db = QSqlDatabase();
        if (!name.isEmpty())
            QSqlDatabase::removeDatabase(name);
        name.clear();
        dialect = nullptr;
    }

    // Runs a statement of the data layer's own; throws the database's text.
    void run(const QString& sql)
    {
        QSqlQuery q(db);
        if (!q.exec(sql))
            throw DbError(NamingReadonlyFile(sqlite::Handle(db), ErrorDescription(q.lastError())));
    }

    void openSqlite(const QString& givenPath, bool readOnly = false)
    {
        const QString path = NativePath(givenPath);
        requireFile(givenPath, path);

        name = nextConnectionName();
        db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        if (!db.isValid()) {
            release();
            throw DbError(QString::fromLatin1(kNoProviderText));
        }
        // mode=rw: SQLite itself never creates the file, even if it vanished
        // since it was checked.
        QUrl uri = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
        uri.setQuery(readOnly ? QStringLiteral("mode=ro") : QStringLiteral("mode=rw"));
        db.setDatabaseName(uri.toString(QUrl::FullyEncoded));
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_URI"));
        if (!db.open()) {
            const QString text = ErrorDescription(db.lastError());
            release();
            throw DbError(text);
        }
        dialect = &SqliteDialect();
        try {
            if (sqlite3* handle = sqlite::Handle(db)) {
                sqlite::CheckHeader(handle, givenPath);
                lockWait.limitMs = LockWaitMs();
                sqlite::InstallHandlers(handle, lockWait);
                sqliteStatements = std::make_unique<SqliteStatements>(handle);
            }
            run(QStringLiteral("PRAGMA foreign_keys = OFF"));
            // A copy run writes hundreds of thousands of rows in one
            // transaction; SQLite's default page cache of 2 MB would spill
            // it to the journal page by page.
            run(QStringLiteral("PRAGMA cache_size = -%1").arg(kSqlitePageCacheKiB));
        } catch (...) {
            release();
            throw;
        }
    }

    void openOdbc(const QString& dsn)
    {
        name = nextConnectionName();
        db = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), name);
        if (!db.isValid()) {
            release();
            throw DbError(QString::fromLatin1(kNoProviderText));
        }
        // Qt puts "DSN=" in front of the name unless the text names a driver
        // or server itself; then it must carry its own "DSN=".
        const bool complete = dsn.contains(QLatin1String("DRIVER="), Qt::CaseInsensitive) ||
                              dsn.contains(QLatin1String("SERVER="), Qt::CaseInsensitive);
        db.setDatabaseName(complete ? QLatin1String("DSN=") + dsn : dsn);
        if (!db.open()) {
            const QString text = ErrorDescription(db.lastError());
            release();
            throw DbError(text);
        }
        dialect = &PostgresDialect();
        postgres::ConfigureSession(db, LockWaitMs());
    }
};

Connection::Connection() : d(std::make_unique<Private>()) {}

Connection::~Connection()
{
    try {
        Close();
    } catch (...) {
        // Nothing sensible to report while being destroyed.
    }
}

void Connection::Open(const QString& connectionString)
{
    if (IsOpen())
        throw DbError(QString::fromLatin1(kOpenText));
    d->release();

    const QList<Setting> settings = parseSettings(connectionString);
    const Setting* provider = findSetting(settings, "provider");
    const QString providerName = provider ? provider->value : QString();

    if (isFileProvider(providerName)) {
        const Setting* source = findSetting(settings, "data source");
        d->openSqlite(source ? source->value : QString());
    } else if (providerName.isEmpty() || providerName.compare(QLatin1String("MSDASQL"), Qt::CaseInsensitive) == 0 ||
               providerName.startsWith(QLatin1String("MSDASQL."), Qt::CaseInsensitive)) {
        // Everything after "DSN=" goes to the driver manager as written.
        const Setting* dsn = findSetting(settings, "dsn");
        d->openOdbc(dsn ? connectionString.mid(dsn->valueStart) : QString());
    } else {
        throw DbError(QString::fromLatin1(kNoProviderText));
    }
    m_connectionString = connectionString;
    m_inTransaction = false;
}

void Connection::OpenFile(const QString& path)
{
    if (IsOpen())
        throw DbError(QString::fromLatin1(kOpenText));
    d->release();
    d->openSqlite(path);
    m_connectionString = path;
    m_inTransaction = false;
}

void Connection::OpenFileReadOnly(const QString& path)
{
    if (IsOpen())
        throw DbError(QString::fromLatin1(kOpenText));
    d->release();
    d->openSqlite(path, true);
    m_connectionString = path;
    m_inTransaction = false;
}

void Connection::UseSmallPageCache()
{
    // Only a hint: a connection that keeps its larger cache works as well.
    if (sqlite3* handle = IsOpen() ? sqlite::Handle(d->db) : nullptr)
        sqlite::SetPageCache(handle, kSqliteReadingPageCacheKiB);
}

bool Connection::DefineTextFunction(const QString& name, std::function<std::optional<QByteArray>(QByteArrayView)> function)
{
    d->requireOpen();
    sqlite3* handle = sqlite::Handle(d->db);
    if (!handle)
        return false;
    // A statement kept prepared may name the function: it is prepared again.
    if (d->sqliteStatements)
        d->sqliteStatements->Clear();
    sqlite::DefineTextFunction(handle, name, std::move(function));
    return true;
}

void Connection::ReleaseMemory()
{
    if (sqlite3* handle = IsOpen() ? sqlite::Handle(d->db) : nullptr)
        sqlite::ReleaseMemory(handle);
}

void Connection::Close()
{
    if (d->held)
        d->held->Discard();
    if (m_inTransaction && IsOpen()) {
        try {
            RollbackTrans();
        } catch (const DbError&) {
            // Closing ends the transaction anyway.
        }
    }
    m_inTransaction = false;
    m_readOnlySession = false;
    d->release();
    m_connectionString.clear();
}

bool Connection::IsOpen() const { return d->db.isValid() && d->db.isOpen(); }

BackendKind Connection::backend() const { return dialect().backend; }

const Dialect& Connection::dialect() const
{
    d->requireOpen();
    return *d->dialect;
}

QSqlDatabase& Connection::database()
{
    d->requireOpen();
    return d->db;
}

void Connection::BeginTrans()
{
    d->requireOpen();
    CheckInterruption();
    if (m_inTransaction)
        throw DbError(QString::fromLatin1(kNestedText));
    if (d->dialect->beginSql) {
        d->run(QString::fromLatin1(d->dialect->beginSql));
    } else if (!d->db.transaction()) {
        throw StatementFailure(d->db.lastError());
    }
    m_inTransaction = true;
    m_rollbackOnly = false;
}

void Connection::BeginReadTrans()
{
    d->requireOpen();
    CheckInterruption();
    if (m_inTransaction)
        throw DbError(QString::fromLatin1(kNestedText));
    if (d->dialect->backend == BackendKind::Sqlite) {
        d->run(QStringLiteral("BEGIN DEFERRED"));
        m_inTransaction = true;
        m_rollbackOnly = false;
        // The snapshot is taken by the first read: take it now, not at the
        // first read of the operation's own.
        d->run(QStringLiteral("SELECT COUNT(*) FROM sqlite_master"));
        return;
    }
    d->run(postgres::ReadOnlySessionSql());
    if (!d->db.transaction())
        throw StatementFailure(d->db.lastError());
    m_inTransaction = true;
    m_rollbackOnly = false;
    m_readOnlySession = true;
    d->run(QStringLiteral("SELECT 1"));
}

void Connection::endReadOnlySession()
{
    if (!m_readOnlySession)
        return;
    m_readOnlySession = false;
    d->run(postgres::ReadWriteSessionSql());
}

void Connection::CommitTrans()
{
    d->requireOpen();
    if (!m_inTransaction)
        throw DbError(QString::fromLatin1(kNoTransactionText));
    if (m_rollbackOnly) {
        RollbackTrans();
        throw DbError(QString::fromLatin1(kRolledBackText));
    }
    CheckInterruption();
    if (d->held)
        d->held->Flush();
    if (d->dialect->commitSql) {
        try {
            d->run(QString::fromLatin1(d->dialect->commitSql));
        } catch (const DbError&) {
            // SQLite may have ended the transaction itself.
            if (sqlite3* h = sqlite::Handle(d->db))
                m_inTransaction = sqlite::InTransaction(h);
            throw;
        }
    } else if (!d->db.commit()) {
        throw StatementFailure(d->db.lastError());
    }
    m_inTransaction = false;
    endReadOnlySession();
}

void Connection::RollbackTrans()
{
    d->requireOpen();
    if (!m_inTransaction)
        throw DbError(QString::fromLatin1(kNoTransactionText));
    if (d->held)
        d->held->Discard();
    if (d->dialect->rollbackSql) {
        try {
            d->run(QString::fromLatin1(d->dialect->rollbackSql));
        } catch (const DbError&) {
            // After some failures SQLite has rolled back already: done.
            sqlite3* h = sqlite::Handle(d->db);
            if (!h || sqlite::InTransaction(h))
                throw;
        }
    } else if (!d->db.rollback()) {
        throw DbError(ErrorDescription(d->db.lastError()));
    }
    m_inTransaction = false;
    m_rollbackOnly = false;
    endReadOnlySession();
}

qint64 Connection::Execute(const QString& sql)
{
    d->requireOpen();
    CheckInterruption();
    const QString text = d->dialect->Translate(sql);
    SendHeldWrites();
    // A changed table invalidates what is known about it, and SQLite will
    // not drop a table while statements on it are kept prepared.
    if (isDdl(text)) {
        d->forgetMetadata();
    } else if (d->sqliteStatements) {
        // Statements that differ only in the keys they name (a deletion
        // run per parent row) are compiled once.
        if (const std::optional<qint64> affected = ExecuteKept(*d->sqliteStatements, text))
            return *affected;
    }
    QSqlQuery q(d->db);
    q.setForwardOnly(true);
    if (!q.exec(text))
        throw StatementFailure(q.lastError()).WithStatement(text);
    const qint64 affected = q.numRowsAffected();
    q.finish();
    return affected;
}

void Connection::ExecuteDeletion(const QString& sql)
{
    if (HeldWrites* held = heldWrites(); held && held->HoldDeletion(d->dialect->Translate(sql)))
        return;
    Execute(sql);
}

void Connection::SendHeldWrites()
{
    if (d->held)
        d->held->Flush();
}

HeldWrites* Connection::heldWrites()
{
    d->requireOpen();
    if (d->held && !d->held->IsEmpty())
        return d->held.get();
    if (!d->dialect->batchesStatements || !m_inTransaction || !m_batching)
        return nullptr;
    if (!d->held)
        d->held = std::make_unique<HeldWrites>(*this);
    return d->held.get();
}

DbError Connection::StatementFailure(const QSqlError& error)
{
    const QString text = ErrorDescription(error);
    const auto failure = [&error](const QString& description) {
        DbError e(description);
        e.WithDatabaseText(error.databaseText().trimmed(), error.nativeErrorCode());
        return e;
    };
    if (!IsOpen() || d->dialect->backend != BackendKind::Odbc)
        return failure(NamingReadonlyFile(IsOpen() ? sqlite::Handle(d->db) : nullptr, text));
    // The driver's words for a vanished server vary with the moment it went
    // ("internal SAVEPOINT failed", "Could not send Query"); a statement
    // that needs nothing of the database tells.
    QSqlQuery probe(d->db);
    probe.setForwardOnly(true);
    if (probe.exec(QStringLiteral("SELECT 1")))
        return failure(text);
    return failure(kConnectionLostText + text);
}

QStringList Connection::TableColumns(const QString& table) { return tableInfo(table)->columns; }

QStringList Connection::FirstColumn(const QString& sql)
{
    d->requireOpen();
    QSqlQuery query(d->db);
    query.setForwardOnly(true);
    if (!query.exec(sql))
        throw StatementFailure(query.lastError()).WithStatement(sql);
    QStringList values;
    while (query.next())
        values << query.value(0).toString();
    return values;
}

QString Connection::KeySequence(const QString& table, const QString& key)
{
    d->requireOpen();
    const QString id = (table + u'.' + key).toLower();
    auto found = d->sequences.constFind(id);
    if (found == d->sequences.constEnd()) {
        QSqlQuery q(d->db);
        q.setForwardOnly(true);
        q.prepare(QStringLiteral("SELECT pg_get_serial_sequence(?, ?)"));
        q.addBindValue(table.toLower());
        q.addBindValue(key.toLower());
        if (!q.exec())
            throw StatementFailure(q.lastError());
        found = d->sequences.insert(id, q.next() && !q.isNull(0) ? q.value(0).toString() : QString());
    }
    return *found;
}

std::shared_ptr<const TableInfo> Connection::tableInfo(const QString& tableRef)
{
    d->requireOpen();
    if (auto found = d->tablesAsWritten.constFind(tableRef); found != d->tablesAsWritten.constEnd())
        return *found;
    const QString cacheKey = tableRef.startsWith(QLatin1Char('"')) ? tableRef : tableRef.toLower();
    if (auto found = d->tables.constFind(cacheKey); found != d->tables.constEnd()) {
        d->tablesAsWritten.insert(tableRef, *found);
        return *found;
    }

    auto info = std::make_shared<TableInfo>(d->dialect->ReadTableInfo(d->db, tableRef));
    if (info->columns.isEmpty()) {
        // Let the database say why, in its own words; no row is read.
        QSqlQuery probe(d->db);
        probe.setForwardOnly(true);
        if (!probe.exec(QLatin1String("SELECT * FROM ") + d->dialect->Translate(tableRef) +
                        QLatin1String(" WHERE 1 = 0")))
            throw DbError(ErrorDescription(probe.lastError()));
        throw DbError(QStringLiteral("The table '%1' has no columns that can be read.").arg(UnquoteName(tableRef)));
    }
    d->tables.insert(cacheKey, info);
    d->tablesAsWritten.insert(tableRef, info);
    return info;
}

QSqlQuery& Connection::preparedStatement(const QString& sql)
{
    d->requireOpen();
    if (auto found = d->statements.constFind(sql); found != d->statements.constEnd())
        return **found;
    if (d->statements.size() >= kStatementCacheLimit)
        d->statements.clear();
    auto q = std::make_shared<QSqlQuery>(d->db);
    q->setForwardOnly(true);
    if (!q->prepare(sql))
        throw StatementFailure(q->lastError());
    d->statements.insert(sql, q);
    return *q;
}

SqliteStatements* Connection::sqliteStatements()
{
    d->requireOpen();
    return d->sqliteStatements.get();
}

void Connection::CreateDatabaseFile(const QString& path)
{
    const QString native = NativePath(path);
    if (QFileInfo::exists(native))
        throw DbError(QStringLiteral("Database '%1' already exists.").arg(path));

    const QString error = sqlite::CreateFile(native);
    if (!error.isEmpty()) {
        QFile::remove(native);
        throw DbError(QStringLiteral("Could not create database '%1': %2").arg(path, error));
    }
}

void Connection::RemoveDatabaseFile(const QString& nativePath)
{
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        QFile::remove(nativePath + QLatin1String(suffix));
}

} // namespace dorvane
