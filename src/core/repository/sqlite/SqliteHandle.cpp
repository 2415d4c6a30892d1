#include "core/repository/sqlite/SqliteHandle.h"

#include "core/repository/DbError.h"
#include "core/repository/Dialect.h"
#include "core/repository/Interruption.h"

#include <QByteArray>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QVariant>

#include <sqlite3.h>

#include <algorithm>
#include <utility>

namespace dorvane::sqlite {

namespace {

// SQLite's busy handler: waits for another program's lock until the limit
// (or an interruption), then lets the statement fail and notes how long it
// waited, for the description of the failure.
int waitForLock(void* data, int attempt)
{
    auto* wait = static_cast<LockWait*>(data);
    if (attempt == 0)
        wait->timer.start();
    const qint64 waited = wait->timer.elapsed();
    if (waited >= wait->limitMs || InterruptionRequested()) {
        NoteLockWait(waited);
        return 0;
    }
    sqlite3_sleep(int(std::min<qint64>(attempt < 8 ? 5 : 25, wait->limitMs - waited)) + 1);
    return 1;
}

// SQLite's progress handler: a long statement stops when an interruption
// was requested.
int stopWhenInterrupted(void*) { return InterruptionRequested() ? 1 : 0; }
constexpr int kInterruptCheckInstructions = 10000;

void callTextFunction(sqlite3_context* context, int, sqlite3_value** arguments)
{
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL) {
        sqlite3_result_null(context);
        return;
    }
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(arguments[0]));
    const int bytes = sqlite3_value_bytes(arguments[0]);
    try {
        const std::optional<QByteArray> result =
            (*static_cast<TextFunction*>(sqlite3_user_data(context)))(QByteArrayView(text, bytes));
        if (!result)
            sqlite3_result_value(context, arguments[0]);
        else
            sqlite3_result_text(context, result->constData(), int(result->size()), SQLITE_TRANSIENT);
    } catch (const DbError& e) {
        const QByteArray message = e.description().toUtf8();
        sqlite3_result_error(context, message.constData(), int(message.size()));
    }
}

void deleteTextFunction(void* function) { delete static_cast<TextFunction*>(function); }

} // namespace

void DefineTextFunction(sqlite3* handle, const QString& name, TextFunction function)
{
    const QByteArray utf8 = name.toUtf8();
    if (!function) {
        sqlite3_create_function_v2(handle, utf8.constData(), 1, SQLITE_UTF8, nullptr, nullptr, nullptr, nullptr, nullptr);
        return;
    }
    auto* held = new TextFunction(std::move(function));
    // On failure SQLite has called the destructor itself.
    if (sqlite3_create_function_v2(handle, utf8.constData(), 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, held,
                                   callTextFunction, nullptr, nullptr, deleteTextFunction) != SQLITE_OK)
        throw DbError(QString::fromUtf8(sqlite3_errmsg(handle)));
}

sqlite3* Handle(const QSqlDatabase& db)
{
    const QVariant v = db.driver() ? db.driver()->handle() : QVariant();
    if (v.isValid() && qstrcmp(v.typeName(), "sqlite3*") == 0)
        return *static_cast<sqlite3* const*>(v.constData());
    return nullptr;
}

// A descriptor of our own would do harm: on Linux, closing any descriptor
// of a file drops every lock the process holds on it, and with them the
// locks of this process's other connections to the file (another program
// would then take itself for the file's last user and remove its
// write-ahead log under them).
void CheckHeader(sqlite3* handle, const QString& givenPath)
{
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(handle, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !file ||
        !file->pMethods)
        return;  // SQLite itself says what is wrong at the first read
    char bytes[100] = {};
    const int rc = file->pMethods->xRead(file, bytes, int(sizeof bytes), 0);
    if (rc != SQLITE_OK && rc != SQLITE_IOERR_SHORT_READ)
        throw DbError(QStringLiteral("Could not open file '%1': %2").arg(givenPath, QString::fromUtf8(sqlite3_errstr(rc))));
    const QByteArray header(bytes, int(sizeof bytes));
    const QByteArray signature = header.mid(4, 15);
    if (signature == "Standard Jet DB" || signature == "Standard ACE DB") {
        throw DbError(QStringLiteral("'%1' is a Microsoft Access (Jet) database file. Dorvane opens SQLite "
                                     "databases only: the file must be converted to SQLite first.")
                          .arg(givenPath));
    }
    if (!header.startsWith(QByteArrayLiteral("SQLite format 3\0"))) {
        throw DbError(QStringLiteral("Unrecognized database format '%1': the file is not an SQLite database.")
                          .arg(givenPath));
    }
}

void InstallHandlers(sqlite3* handle, LockWait& wait)
{
    sqlite3_busy_handler(handle, waitForLock, &wait);
    sqlite3_progress_handler(handle, kInterruptCheckInstructions, stopWhenInterrupted, nullptr);
}

void SetPageCache(sqlite3* handle, int kibibytes)
{
    const QByteArray pragma = "PRAGMA cache_size = -" + QByteArray::number(kibibytes);
    sqlite3_exec(handle, pragma.constData(), nullptr, nullptr, nullptr);
}

void ReleaseMemory(sqlite3* handle) { sqlite3_db_release_memory(handle); }

bool InTransaction(sqlite3* handle) { return sqlite3_get_autocommit(handle) == 0; }

QString CreateFile(const QString& nativePath)
{
    sqlite3* handle = nullptr;
    const QByteArray file = QFile::encodeName(nativePath);
    int rc = sqlite3_open_v2(file.constData(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    QString error;
    if (rc == SQLITE_OK) {
        // The write-ahead journal is a property of the file: every later
        // connection uses it, and a writer no longer blocks a reader of the
        // same file.
        char* message = nullptr;
        rc = sqlite3_exec(handle, "PRAGMA journal_mode=WAL; PRAGMA user_version = 0;", nullptr, nullptr, &message);
        if (rc != SQLITE_OK)
            error = QString::fromUtf8(message ? message : sqlite3_errmsg(handle));
        sqlite3_free(message);
    } else {
        error = handle ? QString::fromUtf8(sqlite3_errmsg(handle)) : QString::fromUtf8(sqlite3_errstr(rc));
    }
    sqlite3_close(handle);
    return error;
}

} // namespace dorvane::sqlite
