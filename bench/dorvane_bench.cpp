// dorvane-bench [--rows N] [--versions N] [--dsn NAME] [--backup-only]
//
// Generates an environment of about N rows (100,000 by default) shaped like
// a real repository (BenchContent.h): N versions (4 by default) of two
// applications sharing the rows, with step windows that visit other
// versions' windows, steps that call processes and refer to variables,
// cycles, schedules, keyword relations and record layouts, under keys with
// gaps, partly inserted out of key order. It is generated with set-based
// statements in a temporary SQLite repository and, with --dsn, again on
// that PostgreSQL data source (whose repository tables are replaced).
// Then it times, on that content:
//   - the raw sqlite3 C API reading the environment's rows parent by parent
//     and inserting each again with a prepared statement (the row-by-row
//     baseline, always on SQLite);
//   - the database's own set-based copy of the same rows, one
//     INSERT ... SELECT per table and parent;
//   - through the engine: the update of the environment's first version
//     into an empty version of its application, the environment copy
//     (its new IDs asked before the transaction), the backup, the restore
//     of that backup and the deletion of the contents of the copy's first
//     version; with --backup-only, the backup and the restore alone;
//   - the verification of the backup file (a part of the backup's time);
//   - the previews of a restore, an environment copy and a version
//     deletion, which count the rows those would write or delete.
// Each line gives the rows the operation copied (or deleted), counted in
// the database afterwards (before, for the deletion), its rows/s, its ratio
// to the row-by-row baseline and to the set-based copy, and the peak
// resident memory of this process while it ran. "generated:" lines give
// the generation's time, "load:" lines the machine's load averages at the
// start and the end. The last line is "ratio: R": the smallest ratio of
// any engine operation to the row-by-row baseline on SQLite, to the
// set-based copy on PostgreSQL.

#include "BenchContent.h"
#include "BenchSinks.h"
#include "core/copyengine/EnvironmentCopy.h"
#include "core/copyengine/OperationPreview.h"
#include "core/copyengine/VersionBackup.h"
#include "core/environments/BackupVerification.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/environments/RestorePreview.h"
#include "core/repository/Connection.h"
#include "core/installation/Installation.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/repository/Schema.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <malloc.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

using namespace dorvane;

namespace {

// A thin sqlite3 wrapper for the raw baseline.
class Db {
public:
    explicit Db(const std::string& path)
    {
        if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(m_db));
        // The page cache the program's own connections use.
        exec(("PRAGMA cache_size = -" + std::to_string(kSqlitePageCacheKiB)).c_str());
    }
    ~Db() { sqlite3_close(m_db); }
    void exec(const char* sql)
    {
        char* error = nullptr;
        if (sqlite3_exec(m_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
            std::string text = error ? error : "?";
            sqlite3_free(error);
            throw std::runtime_error(text);
        }
    }
    sqlite3_stmt* prepare(const std::string& sql)
    {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(m_db));
        return stmt;
    }
    sqlite3* handle() { return m_db; }

private:
    sqlite3* m_db = nullptr;
};

struct Stmt {
    Stmt(Db& db, const std::string& sql) : s(db.prepare(sql)) {}
    ~Stmt() { sqlite3_finalize(s); }
    long long insert(Db& db)
    {
        if (sqlite3_step(s) != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(db.handle()));
        sqlite3_reset(s);
        return sqlite3_last_insert_rowid(db.handle());
    }
    sqlite3_stmt* s;
};

// Reads a selection's rows parent by parent, as the engine reads them, and
// inserts each again through a prepared INSERT of every column but the key:
// the raw cost of a row copy. The copy hangs off the negated parent key, so
// no later selection meets the rows it adds.
long long rawCopy(Db& db, const bench::ContentRows& rows)
{
    const std::string table = rows.table.toStdString();
    const std::string parentColumn = rows.parentColumn.toStdString();
    Stmt columns(db, "SELECT name FROM pragma_table_info('" + table + "') WHERE pk = 0");
    std::vector<std::string> names;
    while (sqlite3_step(columns.s) == SQLITE_ROW)
        names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(columns.s, 0)));
    std::string list, marks;
    for (size_t i = 0; i < names.size(); ++i) {
        list += (i ? ", " : "") + names[i];
        marks += i ? ", ?" : "?";
    }
    std::vector<long long> parents;
    {
        Stmt select(db, "SELECT DISTINCT " + parentColumn + " FROM " + table + " WHERE " + parentColumn +
                            rows.condition.toStdString() + " ORDER BY 1");
        while (sqlite3_step(select.s) == SQLITE_ROW)
            parents.push_back(sqlite3_column_int64(select.s, 0));
    }
    Stmt select(db, "SELECT rowid, " + list + " FROM " + table + " WHERE " + parentColumn + " = ?");
    Stmt insert(db, "INSERT INTO " + table + " (" + list + ") VALUES (" + marks + ")");
    long long copied = 0;
    for (const long long parent : parents) {
        sqlite3_bind_int64(select.s, 1, parent);
        while (sqlite3_step(select.s) == SQLITE_ROW) {
            for (int i = 0; i < static_cast<int>(names.size()); ++i) {
                if (names[static_cast<size_t>(i)] == parentColumn)
                    sqlite3_bind_int64(insert.s, i + 1, -parent);
                else
                    sqlite3_bind_value(insert.s, i + 1, sqlite3_column_value(select.s, i + 1));
            }
            insert.insert(db);
            ++copied;
        }
        sqlite3_reset(select.s);
    }
    return copied;
}

// The row-by-row copy of every selection in one transaction.
long long rawCopyAll(Db& db, const std::vector<bench::ContentRows>& content)
{
    long long rows = 0;
    db.exec("BEGIN");
    for (const bench::ContentRows& selection : content)
        rows += rawCopy(db, selection);
    db.exec("COMMIT");
    return rows;
}

// The peak resident memory since the last reset, in MB.
double peakMegabytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::strtod(line.c_str() + 6, nullptr) / 1024.0;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Starts the peak memory afresh at what the process holds now, without the
// free memory the allocator kept from earlier operations.
void resetPeakMemory()
{
    malloc_trim(0);
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
}

// The set-based copy of a selection's rows: INSERT INTO t (every column
// but the key) SELECT the same, the copies hanging off the negated parent.
std::string setCopySql(const bench::ContentRows& rows)
{
    const TableDef* def = FindTable(rows.table);
    std::string insert, select;
    for (const QString& column : def->columns) {
        if (column == def->key)
            continue;
        const std::string name = column.toStdString();
        insert += (insert.empty() ? "" : ", ") + name;
        select += (select.empty() ? "" : ", ") + (column == rows.parentColumn ? "-" + name : name);
    }
    const std::string table = rows.table.toStdString();
    return "INSERT INTO " + table + " (" + insert + ") SELECT " + select + " FROM " + table + " WHERE " +
           rows.parentColumn.toStdString() + rows.condition.toStdString();
}

// Runs a statement on a server connection; returns the rows it changed.
long long serverExec(Connection& connection, const QString& sql)
{
    QSqlQuery q(connection.database());
    if (!q.exec(sql))
        throw std::runtime_error(q.lastError().text().toStdString() + " in " + sql.toStdString());
    return q.numRowsAffected();
}

// Answers each new version ID question with the next free "C<n>".
class NumberedIds : public NewVersionIdPrompt {
public:
    std::optional<QString> Ask(const QString&, const std::function<bool(const QString&)>& okCheck) override
    {
        const QString id = QStringLiteral("C%1").arg(++m_asked);
        if (!okCheck(id))
            return std::nullopt;
        return id;
    }

private:
    int m_asked = 0;
};

// The machine's load averages over 1, 5 and 15 minutes.
std::string loadAverages()
{
    std::ifstream file("/proc/loadavg");
    std::string one, five, fifteen;
    file >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

struct Timed {
    std::string name;
    long long rows;
    double seconds;
    double peak;
};

// Run before each timed operation, so that no operation pays for what the
// one before it left. The system writes out the files' dirty pages: at 10M
// rows a copy leaves gigabytes of them, and the next operation ran while
// they were written out (at 10M rows an SQLite update took 7.9-8.0 s after
// the set-based copy, 7.25 s with its pages written out first). On a
// server, also a vacuum and a checkpoint: autovacuum visiting the tables an
// operation filled, or writing out its dirty pages (a checkpoint the WAL
// forces, or an autovacuum, falls in one operation in one run and in another
// the next, and moves a ratio by a tenth).
std::function<void()> settleServer = [] {};
void settle()
{
    settleServer();
    sync();
}

// Times an operation; its rows are counted afterwards, untimed.
Timed timed(const std::string& name, const std::function<bool()>& operation)
{
    settle();
    resetPeakMemory();
    QElapsedTimer timer;
    timer.start();
    if (!operation())
        throw std::runtime_error("the " + name + " failed");
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    return {name, 0, seconds, peakMegabytes()};
}

double secondsOf(const QElapsedTimer& timer) { return static_cast<double>(timer.nsecsElapsed()) / 1e9; }

// Generates the content through a connection of its own, timed.
bench::GeneratedEnvironment generateInto(Connection& connection, const bench::ContentShape& shape, const char* where)
{
    QElapsedTimer timer;
    timer.start();
    bench::GeneratedEnvironment g = bench::GenerateEnvironment(connection, shape);
    std::printf("generated: %lld rows in %.2f s (%s)\n", g.counts.Total(), secondsOf(timer), where);
    return g;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    bench::ContentShape shape;
    QString dsn;
    bool backupOnly = false;
    const QStringList arguments = QCoreApplication::arguments();
    for (int i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("--rows") && i + 1 < arguments.size()) {
            shape.rows = arguments[++i].toLongLong();
        } else if (arguments[i] == QLatin1String("--versions") && i + 1 < arguments.size()) {
            shape.versions = arguments[++i].toInt();
        } else if (arguments[i] == QLatin1String("--dsn") && i + 1 < arguments.size()) {
            dsn = arguments[++i];
        } else if (arguments[i] == QLatin1String("--backup-only")) {
            backupOnly = true;
        } else {
            std::fprintf(stderr, "usage: dorvane-bench [--rows N] [--versions N] [--dsn NAME] [--backup-only]\n");
            return 1;
        }
    }
    if (shape.rows < 100 || shape.versions < 1 || shape.versions > 50) {
        std::fprintf(stderr, "dorvane-bench: --rows must be at least 100, --versions 1 to 50\n");
        return 1;
    }
    const bool server = !dsn.isEmpty();

    try {
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        std::printf("backend: %s\n", server ? "PostgreSQL through ODBC" : "SQLite");
        std::printf("load: %s\n", loadAverages().c_str());
        QTemporaryDir dir;
        const QString folder = dir.path();
        const QString file = dir.filePath(QStringLiteral("bench.mdb"));
        for (const SetupResult& made : {CreateInstallation(dir.filePath(QStringLiteral("exe"))),
                                        CreateSharedFolder(dir.filePath(QStringLiteral("shared")))}) {
            if (!made.ok)
                throw std::runtime_error(made.message.toStdString());
        }

        // The row-by-row baseline always runs on SQLite: the content is
        // generated there in any case, and again on the server.
        bench::GeneratedEnvironment g;
        {
            Connection::CreateDatabaseFile(file);
            Connection setup;
            setup.OpenFile(file);
            BuildDatabase(setup, SchemaVariant::Repository, RepositoryContent::ReferenceData);
            g = generateInto(setup, shape, "SQLite");
        }
        std::printf("rows: %lld in %zu versions of 2 applications (%s)\n", g.counts.Total(), g.versions.size(),
                    qPrintable(g.counts.Describe()));
        const std::vector<bench::ContentRows> content = bench::EnvironmentContent(g.environment, g.versions);

        // The baseline runs on its own copy of the generated file, so that
        // both start from the same database and both pay for the whole
        // write: the commit, and the checkpoint when the connection closes.
        const QString rawFile = dir.filePath(QStringLiteral("raw.mdb"));
        if (!QFile::copy(file, rawFile))
            throw std::runtime_error("cannot copy the generated database");
        Timed raw{"raw sqlite3 row-by-row copy", 0, 0, 0};
        {
            settle();
            resetPeakMemory();
            QElapsedTimer timer;
            timer.start();
            {
                Db db(rawFile.toStdString());
                raw.rows = rawCopyAll(db, content);
            }
            raw.seconds = secondsOf(timer);
            raw.peak = peakMegabytes();
        }

        const QString connectionString = server ? QStringLiteral("PROVIDER=MSDASQL;DSN=") + dsn : FileConnectionString(file);
        Connection main;
        if (server) {
            main.Open(connectionString);
            for (auto table = RepositoryTables().rbegin(); table != RepositoryTables().rend(); ++table)
                main.Execute(QStringLiteral("DROP TABLE IF EXISTS ") + table->name + QStringLiteral(" CASCADE"));
            BuildDatabase(main, SchemaVariant::Repository, RepositoryContent::ReferenceData);
            // The same rows under the same keys: the generator starts from
            // the same reference data.
            if (generateInto(main, shape, "server").environment != g.environment)
                throw std::runtime_error("the server's content differs from the file's");
        }

        // The database's own copy: on SQLite on the raw copy's file (its
        // copies hang off other parents), on the server in a transaction whose
        // copies are deleted again afterwards, untimed.
        if (server) {
            // A role without the right to ask for checkpoints gets none.
            settleServer = [&main] {
                // The generated content too: the first reader of freshly
                // loaded rows sets their hint bits, writing every page it
                // reads, and the reference would pay for that.
                main.Execute(QStringLiteral("VACUUM ANALYZE"));
                QSqlQuery q(main.database());
                if (!q.exec(QStringLiteral("CHECKPOINT"))) {
                    std::printf("checkpoints: none, the role may not ask for them (%s)\n",
                                q.lastError().text().toStdString().c_str());
                    settleServer = [] {};
                }
            };
        }
        Timed set{"set-based INSERT ... SELECT copy", 0, 0, 0};
        {
            settle();
            resetPeakMemory();
            QElapsedTimer timer;
            timer.start();
            if (server) {
                main.BeginTrans();
                for (const bench::ContentRows& rows : content)
                    set.rows += serverExec(main, QString::fromStdString(setCopySql(rows)));
                main.CommitTrans();
            } else {
                Db db(rawFile.toStdString());
                db.exec("BEGIN");
                for (const bench::ContentRows& rows : content) {
                    db.exec(setCopySql(rows).c_str());
                    set.rows += sqlite3_changes(db.handle());
                }
                db.exec("COMMIT");
            }
            set.seconds = secondsOf(timer);
            set.peak = peakMegabytes();
            if (server) {
                main.BeginTrans();
                for (const bench::ContentRows& rows : content)
                    serverExec(main, QStringLiteral("DELETE FROM %1 WHERE %2 < 0").arg(rows.table, rows.parentColumn));
                main.CommitTrans();
            }
            QFile::remove(rawFile);
        }
        if (!server)
            main.Open(connectionString);

        const double rawRate = static_cast<double>(raw.rows) / raw.seconds;
        const double setRate = static_cast<double>(set.rows) / set.seconds;
        double smallest = 1e9;
        // One line per operation as it ends: a long run shows its progress.
        auto report = [&](const Timed& t, bool engine) {
            const double rate = static_cast<double>(t.rows) / t.seconds;
            std::printf("%s: %lld rows in %.2f s, %.0f rows/s, %.2f of row-by-row, %.2f of set-based, peak %.0f MB\n",
                        t.name.c_str(), t.rows, t.seconds, rate, rate / rawRate, rate / setRate, t.peak);
            if (engine)
                smallest = std::min(smallest, rate / (server ? setRate : rawRate));
        };
        report(raw, false);
        report(set, false);

        bench::StderrMessages messages;
        bench::NoProgress progress;
        VersionBackup engine(messages, progress, connectionString);
        const qint32 environment = g.environment;

        // --backup-only: the backup, its verification and the restore.
        qint32 copyEnvironment = 0;
        std::vector<qint32> copiedVersions;
        if (!backupOnly) {
            Timed update = timed("version update", [&] { return engine.UpdateVersion(g.updateSource, g.updateTarget, environment); });
            update.rows = bench::CountRows(main, bench::VersionContent(g.updateTarget));
            report(update, true);

            Timed copy = timed("environment copy", [&] {
                Recordset row(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=0"), main);
                row.AddNew();
                row.SetValue(QStringLiteral("sEnvironmentName"), QStringLiteral("Bench copy"));
                row.Update();
                qint32 source = environment;
                copyEnvironment = row.Int(QStringLiteral("iEnvironmentKey"));
                row.Close();
                NumberedIds prompt;
                // The IDs are asked before the transaction, as Save As does.
                EnvironmentCopy environmentCopy(engine, main, prompt);
                if (!environmentCopy.PlanCopy(source))
                    return false;
                main.BeginTrans();
                if (!environmentCopy.CopyEnvironment(source, copyEnvironment)) {
                    main.RollbackTrans();
                    return false;
                }
                main.CommitTrans();
                return true;
            });
            copiedVersions = bench::ListedVersions(main, copyEnvironment);
            copy.rows = bench::CountRows(main, bench::EnvironmentContent(copyEnvironment, copiedVersions));
            report(copy, true);
        }

        EnvironmentBackup backups(engine, folder + QStringLiteral("\\shared"), folder + QStringLiteral("\\exe"));
        Timed backup = timed("backup", [&] { return backups.BackupEnvironment(environment); });
        {
            Connection saved;
            saved.Open(FileConnectionString(backups.LastBackupFile()));
            QSqlQuery key(saved.database());
            if (!key.exec(QStringLiteral("SELECT iEnvironmentKey FROM tEnvironment")) || !key.next())
                throw std::runtime_error("the backup file holds no environment");
            const qint32 savedEnvironment = key.value(0).toInt();
            key.finish();
            backup.rows = bench::CountRows(saved, bench::EnvironmentContent(savedEnvironment, bench::ListedVersions(saved, savedEnvironment)));
        }
        report(backup, true);
        // The part of the backup that reads its file back (it is in the
        // backup's time too).
        Timed verification = timed("backup file verification", [&] {
            return VerifyBackupFile(backups.LastBackupFile(), environment).verified();
        });
        verification.rows = backup.rows;
        report(verification, false);

        Timed restore = timed("restore", [&] { return backups.RestoreEnvironment(environment, backups.LastBackupFile()); });
        restore.rows = bench::CountRows(main, bench::EnvironmentContent(environment, bench::ListedVersions(main, environment)));
        report(restore, true);

        if (!backupOnly) {
            // The previews before destroying read only: each line gives the
            // rows it counted (a restore's: now and from the file).
            {
                Connection saved;
                saved.Open(FileConnectionString(backups.LastBackupFile()));
                RestorePreview restorePreview;
                Timed previewed = timed("restore preview", [&] {
                    restorePreview = PreviewRestore(main, environment, saved);
                    return true;
                });
                for (const RestorePreview::Version& v : restorePreview.versions)
                    previewed.rows += v.rowsNow + v.rowsFromFile;
                report(previewed, false);
            }
            OperationPreview operationPreview;
            Timed copyPreview = timed("environment copy preview", [&] {
                operationPreview = PreviewEnvironmentCopy(main, environment);
                return true;
            });
            copyPreview.rows = TotalRows(operationPreview.rows);
            report(copyPreview, false);
            Timed deletionPreview = timed("version deletion preview", [&] {
                operationPreview = PreviewVersionDeletion(main, copiedVersions.front());
                return true;
            });
            deletionPreview.rows = TotalRows(operationPreview.rows);
            report(deletionPreview, false);

            // The first version of the environment's copy: a whole version, its
            // steps included (a restore has removed the updated version's step
            // windows with the environment's). Its requirements stay.
            std::vector<bench::ContentRows> deleted;
            for (const bench::ContentRows& rows : bench::VersionContent(copiedVersions.front())) {
                if (rows.table != QLatin1String("tRequirement"))
                    deleted.push_back(rows);
            }
            const long long deletedRows = bench::CountRows(main, deleted);
            Timed deletion = timed("version contents deletion",
                                   [&] { return DeleteVersionContents(copiedVersions.front(), main, messages); });
            deletion.rows = deletedRows;
            report(deletion, true);
        }
        if (messages.failed)
            throw std::runtime_error("an operation reported a failure");
        std::printf("load: %s\n", loadAverages().c_str());
        std::printf("ratio: %.2f\n", smallest);
        return 0;
    } catch (const DbError& e) {
        std::fprintf(stderr, "dorvane-bench: %s\n", qPrintable(e.description()));
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "dorvane-bench: %s\n", e.what());
        return 1;
    }
}
