// dorvane-bench [--rows N]
//
// Builds, in a temporary SQLite repository, an environment whose version
// holds about N rows of content (windows, objects, variables, requirements,
// processes with step windows and steps whose arguments call processes and
// refer to variables, cycles with their processes, keyword relations),
// then times:
//   - the version update (the copy engine, through record sets),
//   - the deletion of the updated version's contents,
//   - the raw sqlite3 C API reading and inserting the same rows with
//     prepared statements.
// The last line is "ratio: R", the engine's update rows/s divided by the
// raw rows/s.

#include "copyengine/VersionBackup.h"
#include "repository/Connection.h"
#include "repository/Installation.h"
#include "repository/Interaction.h"
#include "startup/Registry.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <sqlite3.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

using namespace dorvane;

namespace {

class Silent : public MessageSink {
public:
    Answer Show(const QString& text, Buttons) override
    {
        std::fprintf(stderr, "%s\n", qPrintable(text));
        failed = true;
        return Answer::Ok;
    }
    bool failed = false;
};

class NoProgress : public ProgressSink {
public:
    void SetTitle(const QString&) override {}
    void ShowWindow() override {}
    void SetAction(const QString&) override {}
    void SetRange(float, float maximum) override { m_max = maximum; }
    void SetValue(float value) override { m_value = value; }
    float Value() const override { return m_value; }
    float Maximum() const override { return m_max; }
    void Refresh() override {}
    void Yield() override {}
    void HideWindow() override {}

private:
    float m_value = 0;
    float m_max = 0;
};

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

double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void writeSettings(const QString& path, const QString& folder)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw std::runtime_error("cannot write the settings file");
    file.write(QStringLiteral("Windows Registry Editor Version 5.00\r\n\r\n"
                              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"
                              "\"IsLocalDatabase\"=dword:00000001\r\n"
                              "\"LocalDatabasePath\"=\"%1\"\r\n"
                              "\"LocalDatabaseName\"=\"bench.mdb\"\r\n")
                   .arg(folder)
                   .toUtf8());
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    long long rows = 100000;
    const QStringList arguments = QCoreApplication::arguments();
    for (int i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("--rows") && i + 1 < arguments.size()) {
            rows = arguments[++i].toLongLong();
        } else {
            std::fprintf(stderr, "usage: dorvane-bench [--rows N]\n");
            return 1;
        }
    }
    if (rows < 100) {
        std::fprintf(stderr, "dorvane-bench: --rows must be at least 100\n");
        return 1;
    }

    try {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("bench.mdb"));
        {
            Connection::CreateDatabaseFile(file);
            Connection setup;
            setup.OpenFile(file);
            BuildDatabase(setup, SchemaVariant::Repository, RepositoryContent::ReferenceData);
        }
        writeSettings(dir.filePath(QStringLiteral("zentrix.reg")), dir.path());
        SetSettingsFileOverride(dir.filePath(QStringLiteral("zentrix.reg")));

        Generated g;
        {
            Db db(file.toStdString());
            g = generate(db, rows);
        }
        const long long total = g.counts.total();
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
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
        double rawSeconds = 0;
        long long rawRows = 0;
        {
            QElapsedTimer timer;
            timer.start();
            {
                Db db(rawFile.toStdString());
                rawRows = rawCopyVersion(db, g.sourceVersion);
            }
            rawSeconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
            QFile::remove(rawFile);
        }
        const double rawRate = static_cast<double>(rawRows) / rawSeconds;
        std::printf("raw sqlite3 read and insert: %lld rows in %.2f s, %.0f rows/s\n", rawRows, rawSeconds, rawRate);

        Silent messages;
        NoProgress progress;
        double updateSeconds = 0;
        {
            VersionBackup backup(messages, progress);
            QElapsedTimer timer;
            timer.start();
            const bool ok = backup.UpdateVersion(static_cast<qint32>(g.sourceVersion), static_cast<qint32>(g.targetVersion),
                                                 static_cast<qint32>(g.environment));
            updateSeconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
            if (!ok || messages.failed)
                throw std::runtime_error("the version update failed");
        }
        const double updateRate = static_cast<double>(total) / updateSeconds;
        std::printf("engine version update: %lld rows in %.2f s, %.0f rows/s\n", total, updateSeconds, updateRate);

        double deleteSeconds = 0;
        {
            Connection connection;
            connection.OpenFile(file);
            QElapsedTimer timer;
            timer.start();
            const bool ok = DeleteVersionContents(static_cast<qint32>(g.targetVersion), connection, messages);
            deleteSeconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
            if (!ok || messages.failed)
                throw std::runtime_error("the version deletion failed");
        }
        std::printf("engine version contents deletion: %lld rows in %.2f s, %.0f rows/s\n", total, deleteSeconds,
                    static_cast<double>(total) / deleteSeconds);
        std::printf("peak memory: %.0f MB\n", peakMegabytes());
        std::printf("ratio: %.2f\n", updateRate / rawRate);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "dorvane-bench: %s\n", e.what());
        return 1;
    }
}
