// dorvane-bench [--rows N] [--dsn NAME]
//
// Builds an environment whose one version holds about N rows of content
// (windows, objects, variables, requirements, processes with step windows
// and steps whose arguments call processes and refer to variables, cycles
// with their processes, keyword relations), in a temporary SQLite
// repository or, with --dsn, on that PostgreSQL data source (whose
// repository tables are replaced). Then it times, on that content:
//   - through the engine: the version update, the environment copy, the
//     backup, the restore and the deletion of the updated version's
//     contents;
//   - the raw sqlite3 C API reading and inserting the same rows one by one
//     with prepared statements (the row-by-row baseline, always on SQLite);
//   - the database's own set-based copy of the same rows, one
//     INSERT ... SELECT per table.
// Each operation's line gives its rows/s, its ratio to the row-by-row
// baseline and to the set-based copy, and the peak memory while it ran.
// The last line is "ratio: R": the smallest ratio of any engine operation
// to the row-by-row baseline on SQLite, to the set-based copy on
// PostgreSQL.

#include "core/copyengine/EnvironmentCopy.h"
#include "BenchSinks.h"
#include "core/copyengine/VersionBackup.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/repository/Connection.h"
#include "core/repository/Installation.h"
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

// A thin sqlite3 wrapper for generating data and for the raw baseline.
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
    Stmt& i(int index, long long v)
    {
        sqlite3_bind_int64(s, index, v);
        return *this;
    }
    Stmt& t(int index, const std::string& v)
    {
        sqlite3_bind_text(s, index, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    long long insert(Db& db)
    {
        if (sqlite3_step(s) != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(db.handle()));
        sqlite3_reset(s);
        return sqlite3_last_insert_rowid(db.handle());
    }
    sqlite3_stmt* s;
};

struct Counts {
    long long windows, objects, variables, requirements, processes, stepWindows, steps, cycles, cycleProcesses,
        keywordRels;
    long long total() const
    {
        return windows + objects + variables + requirements + processes + stepWindows + steps + cycles + cycleProcesses +
               keywordRels;
    }
};

// Proportions of a real version: most rows are steps and objects.
Counts countsFor(long long rows)
{
    Counts c{};
    c.windows = std::max(1LL, rows * 2 / 100);
    c.objects = rows * 20 / 100;
    c.variables = std::max(1LL, rows * 3 / 100);
    c.requirements = std::max(1LL, rows / 200);
    c.processes = std::max(1LL, rows * 2 / 100);
    c.stepWindows = std::max(1LL, rows * 6 / 100);
    c.cycles = std::max(1LL, rows / 200);
    c.cycleProcesses = rows * 2 / 100;
    c.keywordRels = rows * 4 / 100;
    c.steps = std::max(0LL, rows - (c.windows + c.objects + c.variables + c.requirements + c.processes + c.stepWindows +
                                    c.cycles + c.cycleProcesses + c.keywordRels));
    return c;
}

struct Generated {
    long long environment = 0;
    long long sourceVersion = 0;
    long long targetVersion = 0;
    Counts counts{};
};

Generated generate(Db& db, long long rows)
{
    Generated g;
    g.counts = countsFor(rows);
    const Counts& c = g.counts;
    db.exec("BEGIN");
    g.environment = Stmt(db, "INSERT INTO tEnvironment (sEnvironmentName, sEnvironmentDesc) VALUES ('Bench', 'Benchmark')")
                        .insert(db);
    const long long app = Stmt(db, "INSERT INTO tApp (sAppName, sAppID, iAppPlatform, sAppDesc, mAppEnviron) "
                                   "VALUES ('Order Entry', 'OE', 1, ' ', ' ')")
                              .insert(db);
    Stmt version(db, "INSERT INTO tVersion (iVersionAppKey, sVersionID, sVersionDesc, iMapType, bVersionActive) "
                     "VALUES (?, ?, 'bench', 1, -1)");
    g.sourceVersion = version.i(1, app).t(2, "1.0").insert(db);
    g.targetVersion = version.i(1, app).t(2, "2.0").insert(db);
    Stmt(db, "INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey, iEnvironTestToolKey, iEnviron3270Key) "
             "VALUES (?, ?, 2, 0)")
        .i(1, g.environment)
        .i(2, g.sourceVersion)
        .insert(db);

    std::vector<long long> keywords;
    Stmt keyword(db, "INSERT INTO tKeyword (iKeywordAppKey, sKeywordName, sKeywordDesc) VALUES (?, ?, ' ')");
    for (int k = 0; k < 50; ++k)
        keywords.push_back(keyword.i(1, app).t(2, "kw" + std::to_string(k)).insert(db));

    std::vector<long long> windows, objects, variables, processes, stepWindows, cycles;
    Stmt window(db, "INSERT INTO tWindow (iWindowVerKey, iWindowClassKey, iWindowParentKey, sWindowPhysicalName, "
                    "sWindowLogicalName, sWindowRawLogicalName, sWindowOverrideName, bWindowVisible) "
                    "VALUES (?, 5, ?, ?, ?, ?, ' ', -1)");
    for (long long w = 0; w < c.windows; ++w) {
        const std::string name = "Window " + std::to_string(w);
        windows.push_back(window.i(1, g.sourceVersion).i(2, windows.empty() ? 0 : windows.front()).t(3, "wnd" + std::to_string(w))
                              .t(4, name).t(5, name).insert(db));
    }
    Stmt object(db, "INSERT INTO tObject (iObjectWindowKey, iObjectClassKey, iObjectVersionKey, sObjectPhysicalName, "
                    "sObjectLogicalName, sObjectRawLogicalName, sObjectAttributes, bObjectVisible) "
                    "VALUES (?, 6, ?, ?, ?, ?, 'x=1;y=2', -1)");
    for (long long o = 0; o < c.objects; ++o) {
        const std::string name = "Field " + std::to_string(o);
        objects.push_back(object.i(1, windows[static_cast<size_t>(o % c.windows)]).i(2, g.sourceVersion)
                              .t(3, "obj" + std::to_string(o)).t(4, name).t(5, name).insert(db));
    }
    Stmt variable(db, "INSERT INTO tUserVar (iVarAppVerKey, sVarName, sVarDesc, sVarDefValue, iVarType, iVarLen) "
                      "VALUES (?, ?, 'variable', '0', 1, 10)");
    for (long long v = 0; v < c.variables; ++v)
        variables.push_back(variable.i(1, g.sourceVersion).t(2, "var" + std::to_string(v)).insert(db));
    Stmt requirement(db, "INSERT INTO tRequirement (iRequirementAppVerKey, sRequirementName, sRequirementDesc) "
                         "VALUES (?, ?, 'requirement')");
    for (long long r = 0; r < c.requirements; ++r)
        requirement.i(1, g.sourceVersion).t(2, "req" + std::to_string(r)).insert(db);
    Stmt process(db, "INSERT INTO tProcess (iProcessVerKey, sProcessName, mProcessDesc, iProcessType, iProcessOwnerKey, "
                     "iProcessSequenceNum, bProcessIsAutomated) VALUES (?, ?, 'process', ?, 1, ?, -1)");
    for (long long p = 0; p < c.processes; ++p)
        processes.push_back(process.i(1, g.sourceVersion).t(2, "Process " + std::to_string(p)).i(3, p % 10 == 0 ? 1 : 2)
                                .i(4, p).insert(db));
    Stmt stepWindow(db, "INSERT INTO tStepWindow (iStepWindowProcessKey, iStepWindowVerKey, iStepWindowWindowKey, "
                        "iStepWindowEnvironmentKey, iStepWindowSequenceNum) VALUES (?, ?, ?, ?, ?)");
    for (long long s = 0; s < c.stepWindows; ++s)
        stepWindows.push_back(stepWindow.i(1, processes[static_cast<size_t>(s % c.processes)]).i(2, g.sourceVersion)
                                  .i(3, windows[static_cast<size_t>(s % c.windows)]).i(4, g.environment)
                                  .i(5, s / c.processes).insert(db));
    Stmt step(db, "INSERT INTO tStep (iStepWindowKey, iStepObjectKey, iStepActionKey, iStepSequenceNum, sStepArguments, "
                  "sStepNarrative) VALUES (?, ?, 3, ?, ?, 'Type the value')");
    for (long long s = 0; s < c.steps; ++s) {
        std::string arguments;
        if (s % 10 == 0)
            arguments = "ProcessKey= " + std::to_string(processes[static_cast<size_t>(s % c.processes)]);
        else if (s % 3 == 0)
            arguments = "Value=@Amount[ " + std::to_string(g.sourceVersion) + "| " +
                        std::to_string(variables[static_cast<size_t>(s % c.variables)]) + "]";
        else
            arguments = "Text=Hello";
        step.i(1, stepWindows[static_cast<size_t>(s % c.stepWindows)]).i(2, objects.empty() ? 0 : objects[static_cast<size_t>(s % c.objects)])
            .i(3, s / c.stepWindows).t(4, arguments).insert(db);
    }
    Stmt cycle(db, "INSERT INTO tCycle (iCycleVerKey, sCycleName, mCycleDesc, iCycleCreatorKey, iCycleSequenceNum) "
                   "VALUES (?, ?, 'cycle', 1, ?)");
    for (long long y = 0; y < c.cycles; ++y)
        cycles.push_back(cycle.i(1, g.sourceVersion).t(2, "Cycle " + std::to_string(y)).i(3, y).insert(db));
    Stmt cycleProcess(db, "INSERT INTO tCycleProcess (iCycleKey, iProcessKey, iProcessSequenceNum) VALUES (?, ?, ?)");
    for (long long cp = 0; cp < c.cycleProcesses; ++cp)
        cycleProcess.i(1, cycles[static_cast<size_t>(cp % c.cycles)]).i(2, processes[static_cast<size_t>(cp % c.processes)])
            .i(3, cp / c.cycles).insert(db);
    Stmt keywordRel(db, "INSERT INTO tKeywordRel (iKeywordRelKeywordKey, iKeywordRelProcessKey, iKeywordRelCycleKey, "
                        "iKeywordRelScheduleKey) VALUES (?, ?, ?, 0)");
    for (long long k = 0; k < c.keywordRels; ++k) {
        const bool forProcess = k % 4 != 0;
        keywordRel.i(1, keywords[static_cast<size_t>(k % 50)])
            .i(2, forProcess ? processes[static_cast<size_t>(k % c.processes)] : 0)
            .i(3, forProcess ? 0 : cycles[static_cast<size_t>(k % c.cycles)])
            .insert(db);
    }
    db.exec("COMMIT");
    return g;
}

// Reads every row of a statement and inserts it again through a prepared
// INSERT of every column but the key: the raw cost of a row copy.
long long rawCopy(Db& db, const std::string& table, const std::string& parentColumn, const std::vector<long long>& parents,
                  std::vector<long long>* keysOut)
{
    const std::string where = parentColumn + " = ?";
    Stmt columns(db, "SELECT name FROM pragma_table_info('" + table + "') WHERE pk = 0");
    std::vector<std::string> names;
    while (sqlite3_step(columns.s) == SQLITE_ROW)
        names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(columns.s, 0)));
    std::string list, marks;
    for (size_t i = 0; i < names.size(); ++i) {
        list += (i ? ", " : "") + names[i];
        marks += i ? ", ?" : "?";
    }
    Stmt select(db, "SELECT rowid, " + list + " FROM " + table + " WHERE " + where);
    Stmt insert(db, "INSERT INTO " + table + " (" + list + ") VALUES (" + marks + ")");
    long long copied = 0;
    for (const long long parent : parents) {
        sqlite3_bind_int64(select.s, 1, parent);
        while (sqlite3_step(select.s) == SQLITE_ROW) {
            if (keysOut)
                keysOut->push_back(sqlite3_column_int64(select.s, 0));
            for (int i = 0; i < static_cast<int>(names.size()); ++i) {
                // The copy hangs off another parent, so the selection never
                // meets the rows it adds.
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

long long rawCopyVersion(Db& db, long long version)
{
    long long rows = 0;
    std::vector<long long> windows, processes, stepWindows, cycles;
    db.exec("BEGIN");
    rows += rawCopy(db, "tWindow", "iWindowVerKey", {version}, &windows);
    rows += rawCopy(db, "tObject", "iObjectWindowKey", windows, nullptr);
    rows += rawCopy(db, "tUserVar", "iVarAppVerKey", {version}, nullptr);
    rows += rawCopy(db, "tRequirement", "iRequirementAppVerKey", {version}, nullptr);
    rows += rawCopy(db, "tProcess", "iProcessVerKey", {version}, &processes);
    rows += rawCopy(db, "tStepWindow", "iStepWindowProcessKey", processes, &stepWindows);
    rows += rawCopy(db, "tStep", "iStepWindowKey", stepWindows, nullptr);
    rows += rawCopy(db, "tKeywordRel", "iKeywordRelProcessKey", processes, nullptr);
    rows += rawCopy(db, "tCycle", "iCycleVerKey", {version}, &cycles);
    rows += rawCopy(db, "tCycleProcess", "iCycleKey", cycles, nullptr);
    rows += rawCopy(db, "tKeywordRel", "iKeywordRelCycleKey", cycles, nullptr);
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

// The set-based copy of the version's rows: one INSERT ... SELECT per
// table, the copies hanging off the negated parent key.
struct SetCopy {
    const char* table;
    const char* parent;
    std::string parents;  // which parent keys, as a condition on `parent`
};

std::vector<SetCopy> setCopies(long long version)
{
    const std::string v = std::to_string(version);
    const std::string windows = " IN (SELECT iWindowKey FROM tWindow WHERE iWindowVerKey = " + v + ")";
    const std::string processes = " IN (SELECT iProcessKey FROM tProcess WHERE iProcessVerKey = " + v + ")";
    const std::string stepWindows =
        " IN (SELECT iStepWindowKey FROM tStepWindow WHERE iStepWindowProcessKey" + processes + ")";
    const std::string cycles = " IN (SELECT iCycleKey FROM tCycle WHERE iCycleVerKey = " + v + ")";
    return {
        {"tWindow", "iWindowVerKey", " = " + v},           {"tObject", "iObjectWindowKey", windows},
        {"tUserVar", "iVarAppVerKey", " = " + v},          {"tRequirement", "iRequirementAppVerKey", " = " + v},
        {"tProcess", "iProcessVerKey", " = " + v},         {"tStepWindow", "iStepWindowProcessKey", processes},
        {"tStep", "iStepWindowKey", stepWindows},          {"tKeywordRel", "iKeywordRelProcessKey", processes},
        {"tCycle", "iCycleVerKey", " = " + v},             {"tCycleProcess", "iCycleKey", cycles},
        {"tKeywordRel", "iKeywordRelCycleKey", cycles},
    };
}

// INSERT INTO t (columns but the key) SELECT the same, the parent negated.
std::string setCopySql(const SetCopy& copy)
{
    const TableDef* def = FindTable(QString::fromLatin1(copy.table));
    std::string insert, select;
    for (const QString& column : def->columns) {
        if (column == def->key)
            continue;
        const std::string name = column.toStdString();
        insert += (insert.empty() ? "" : ", ") + name;
        select += (select.empty() ? "" : ", ") + (name == copy.parent ? "-" + name : name);
    }
    return std::string("INSERT INTO ") + copy.table + " (" + insert + ") SELECT " + select + " FROM " + copy.table +
           " WHERE " + copy.parent + copy.parents;
}

// Runs a statement on a server connection; returns the rows it changed.
long long serverExec(Connection& connection, const QString& sql)
{
    QSqlQuery q(connection.database());
    if (!q.exec(sql))
        throw std::runtime_error(q.lastError().text().toStdString() + " in " + sql.toStdString());
    return q.numRowsAffected();
}

// Copies every repository row of the generated SQLite file to the server,
// keys included, many rows to a statement; the identity sequences then
// continue after the largest key.
void transfer(Db& from, Connection& to)
{
    for (const TableDef& table : RepositoryTables()) {
        const int columns = static_cast<int>(table.columns.size());
        const int perStatement = std::min(1000, 2000 / columns);
        std::vector<QMetaType::Type> nullTypes;
        for (const QString& column : table.columns) {
            switch (ColumnTypeOf(column)) {
            case ColumnType::Integer:
            case ColumnType::Boolean: nullTypes.push_back(QMetaType::Int); break;
            case ColumnType::DateTime: nullTypes.push_back(QMetaType::QDateTime); break;
            default: nullTypes.push_back(QMetaType::QString); break;
            }
        }
        Stmt select(from, "SELECT " + table.columns.join(QStringLiteral(", ")).toStdString() + " FROM " +
                              table.name.toStdString());
        const QString head = QStringLiteral("INSERT INTO %1 (%2) VALUES ").arg(table.name, table.columns.join(u", "));
        QString row = QStringLiteral("(?") + QStringLiteral(", ?").repeated(columns - 1) + QStringLiteral(")");
        std::vector<QVariant> values;
        auto flush = [&] {
            const int rows = static_cast<int>(values.size()) / columns;
            if (rows == 0)
                return;
            QStringList marks;
            for (int r = 0; r < rows; ++r)
                marks << row;
            QSqlQuery q(to.database());
            q.prepare(head + marks.join(u", "));
            for (int i = 0; i < static_cast<int>(values.size()); ++i)
                q.bindValue(i, values[static_cast<size_t>(i)]);
            if (!q.exec())
                throw std::runtime_error(q.lastError().text().toStdString());
            values.clear();
        };
        while (sqlite3_step(select.s) == SQLITE_ROW) {
            for (int i = 0; i < columns; ++i) {
                switch (sqlite3_column_type(select.s, i)) {
                case SQLITE_NULL: values.emplace_back(QMetaType(nullTypes[static_cast<size_t>(i)])); break;
                case SQLITE_INTEGER: values.emplace_back(static_cast<int>(sqlite3_column_int64(select.s, i))); break;
                default:
                    values.emplace_back(QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(select.s, i))));
                }
            }
            if (static_cast<int>(values.size()) == perStatement * columns)
                flush();
        }
        flush();
        serverExec(to, QStringLiteral("SELECT setval(pg_get_serial_sequence('%1', '%2'), (SELECT COALESCE(MAX(%2), 0) + 1 "
                                      "FROM %1), false)")
                           .arg(table.name.toLower(), table.key.toLower()));
    }
}

class FixedId : public NewVersionIdPrompt {
public:
    std::optional<QString> Ask(const QString&, const std::function<bool(const QString&)>& okCheck) override
    {
        const QString id = QStringLiteral("3.0");
        if (!okCheck(id))
            return std::nullopt;
        return id;
    }
};

struct Timed {
    std::string name;
    long long rows;
    double seconds;
    double peak;
};

Timed timed(const std::string& name, long long rows, const std::function<bool()>& operation)
{
    resetPeakMemory();
    QElapsedTimer timer;
    timer.start();
    if (!operation())
        throw std::runtime_error("the " + name + " failed");
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    return {name, rows, seconds, peakMegabytes()};
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    long long rows = 100000;
    QString dsn;
    const QStringList arguments = QCoreApplication::arguments();
    for (int i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("--rows") && i + 1 < arguments.size()) {
            rows = arguments[++i].toLongLong();
        } else if (arguments[i] == QLatin1String("--dsn") && i + 1 < arguments.size()) {
            dsn = arguments[++i];
        } else {
            std::fprintf(stderr, "usage: dorvane-bench [--rows N] [--dsn NAME]\n");
            return 1;
        }
    }
    if (rows < 100) {
        std::fprintf(stderr, "dorvane-bench: --rows must be at least 100\n");
        return 1;
    }
    const bool server = !dsn.isEmpty();

    try {
        QTemporaryDir dir;
        const QString folder = dir.path();
        const QString file = dir.filePath(QStringLiteral("bench.mdb"));
        {
            Connection::CreateDatabaseFile(file);
            Connection setup;
            setup.OpenFile(file);
            BuildDatabase(setup, SchemaVariant::Repository, RepositoryContent::ReferenceData);
        }
        for (const SetupResult& made : {CreateInstallation(dir.filePath(QStringLiteral("exe"))),
                                        CreateSharedFolder(dir.filePath(QStringLiteral("shared")))}) {
            if (!made.ok)
                throw std::runtime_error(made.message.toStdString());
        }

        Generated g;
        {
            Db db(file.toStdString());
            g = generate(db, rows);
        }
        const long long total = g.counts.total();
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        std::printf("backend: %s\n", server ? "PostgreSQL through ODBC" : "SQLite");
        std::printf("rows: %lld (windows %lld, objects %lld, variables %lld, requirements %lld, processes %lld, "
                    "step windows %lld, steps %lld, cycles %lld, cycle processes %lld, keyword relations %lld)\n",
                    total, g.counts.windows, g.counts.objects, g.counts.variables, g.counts.requirements,
                    g.counts.processes, g.counts.stepWindows, g.counts.steps, g.counts.cycles, g.counts.cycleProcesses,
                    g.counts.keywordRels);

        // The baseline runs on its own copy of the generated file, so that
        // both start from the same database and both pay for the whole
        // write: the commit, and the checkpoint when the connection closes.
        const QString rawFile = dir.filePath(QStringLiteral("raw.mdb"));
        if (!QFile::copy(file, rawFile))
            throw std::runtime_error("cannot copy the generated database");
        Timed raw{"raw sqlite3 row-by-row copy", 0, 0, 0};
        {
            resetPeakMemory();
            QElapsedTimer timer;
            timer.start();
            {
                Db db(rawFile.toStdString());
                raw.rows = rawCopyVersion(db, g.sourceVersion);
            }
            raw.seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
            raw.peak = peakMegabytes();
        }

        const QString connectionString = server ? QStringLiteral("PROVIDER=MSDASQL;DSN=") + dsn : FileConnectionString(file);
        Connection main;
        if (server) {
            main.Open(connectionString);
            for (auto table = RepositoryTables().rbegin(); table != RepositoryTables().rend(); ++table)
                main.Execute(QStringLiteral("DROP TABLE IF EXISTS ") + table->name + QStringLiteral(" CASCADE"));
            BuildDatabase(main, SchemaVariant::Repository, RepositoryContent::Empty);
            Db db(file.toStdString());
            transfer(db, main);
            main.Execute(QStringLiteral("ANALYZE"));
        }

        // The database's own copy: on SQLite on the raw copy's file (its
        // copies hang off other parents), on the server in a transaction whose
        // copies are deleted again afterwards, untimed.
        Timed set{"set-based INSERT ... SELECT copy", 0, 0, 0};
        {
            resetPeakMemory();
            QElapsedTimer timer;
            timer.start();
            if (server) {
                main.BeginTrans();
                for (const SetCopy& copy : setCopies(g.sourceVersion))
                    set.rows += serverExec(main, QString::fromStdString(setCopySql(copy)));
                main.CommitTrans();
            } else {
                Db db(rawFile.toStdString());
                db.exec("BEGIN");
                for (const SetCopy& copy : setCopies(g.sourceVersion)) {
                    db.exec(setCopySql(copy).c_str());
                    set.rows += sqlite3_changes(db.handle());
                }
                db.exec("COMMIT");
            }
            set.seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
            set.peak = peakMegabytes();
            if (server) {
                main.BeginTrans();
                for (const SetCopy& copy : setCopies(g.sourceVersion))
                    serverExec(main, QStringLiteral("DELETE FROM %1 WHERE %2 < 0")
                                         .arg(QLatin1String(copy.table), QLatin1String(copy.parent)));
                main.CommitTrans();
                main.Execute(QStringLiteral("VACUUM ANALYZE"));
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
        const qint32 environment = static_cast<qint32>(g.environment);
        report(timed("version update", total,
                     [&] {
                         return engine.UpdateVersion(static_cast<qint32>(g.sourceVersion),
                                                     static_cast<qint32>(g.targetVersion), environment);
                     }),
               true);
        report(timed("environment copy", total,
                     [&] {
                         Recordset copy(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=0"), main);
                         copy.AddNew();
                         copy.SetValue(QStringLiteral("sEnvironmentName"), QStringLiteral("Bench copy"));
                         copy.Update();
                         qint32 source = environment;
                         qint32 destination = copy.Int(QStringLiteral("iEnvironmentKey"));
                         copy.Close();
                         FixedId prompt;
                         // The IDs are asked before the transaction, as Save As does.
                         EnvironmentCopy environmentCopy(engine, main, prompt);
                         if (!environmentCopy.PlanCopy(source))
                             return false;
                         main.BeginTrans();
                         if (!environmentCopy.CopyEnvironment(source, destination)) {
                             main.RollbackTrans();
                             return false;
                         }
                         main.CommitTrans();
                         return true;
                     }),
               true);
        EnvironmentBackup backups(engine, folder + QStringLiteral("\\shared"), folder + QStringLiteral("\\exe"));
        report(timed("backup", total, [&] { return backups.BackupEnvironment(environment); }), true);
        report(timed("restore", total,
                     [&] { return backups.RestoreEnvironment(environment, backups.LastBackupFile()); }),
               true);
        report(timed("version contents deletion", total,
                     [&] { return DeleteVersionContents(static_cast<qint32>(g.targetVersion), main, messages); }),
               true);
        if (messages.failed)
            throw std::runtime_error("an operation reported a failure");
        std::printf("ratio: %.2f\n", smallest);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "dorvane-bench: %s\n", e.what());
        return 1;
    }
}
