// Copies rows of tObject within one SQLite repository file, first through
// the data layer exactly as the copy engine does it (a record set per
// window; per row a fresh "WHERE iObjectKey=0" record set, AddNew, SetValue
// of every column but the key, Update, the new key read back), then through
// the sqlite3 C API with prepared statements, and prints both rates.
//
//   dorvane-recordset-bench [ROWS [ROWS_PER_WINDOW [ROUNDS [raw|recordset]]]]
//
// Defaults: 1,000,000 rows, 50 rows per window, 1 round, both copies (name
// one of them to profile it alone). Each copy runs in
// one transaction, commit included; its rows are deleted again (untimed)
// before the next copy starts, so both copies see the same table.

#include "core/repository/Connection.h"
#include "core/installation/Installation.h"
#include "core/repository/Recordset.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QStringList>
#include <QTemporaryDir>

#include <sqlite3.h>

#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace dorvane;

namespace {

sqlite3* handleOf(Connection& conn)
{
    const QVariant v = conn.database().driver()->handle();
    return *static_cast<sqlite3* const*>(v.constData());
}

void check(sqlite3* db, int rc, const char* what)
{
    if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) {
        std::fprintf(stderr, "%s: %s\n", what, sqlite3_errmsg(db));
        std::exit(1);
    }
}

sqlite3_stmt* prepare(sqlite3* db, const char* sql)
{
    sqlite3_stmt* stmt = nullptr;
    check(db, sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr), sql);
    return stmt;
}

void exec(sqlite3* db, const char* sql) { check(db, sqlite3_exec(db, sql, nullptr, nullptr, nullptr), sql); }

// Peak resident memory since the last reset, in MB.
long peakMb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLong() / 1024;
    }
    return -1;
}

void resetPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

const char* const kColumns[] = {
    "iObjectWindowKey",   "iObjectClassKey",     "iObjectDataTypeKey",     "iObjectUpdateStatusKey",
    "iObjectVersionKey",  "sObjectPhysicalName", "sObjectLogicalName",     "sObjectRawLogicalName",
    "sObjectOverrideName", "sObjectAttributes",  "bObjectVisible",         "bObjectUserCreated",
    "dObjectLastUpdate",
};
constexpr int kColumnCount = int(sizeof(kColumns) / sizeof(kColumns[0]));

// The source rows: windows 1..W, rows per window as asked, typical texts.
void fill(sqlite3* db, qint64 rows, int perWindow)
{
    exec(db, "BEGIN IMMEDIATE");
    sqlite3_stmt* insert = prepare(
        db, "INSERT INTO tObject (iObjectWindowKey, iObjectClassKey, iObjectDataTypeKey, iObjectUpdateStatusKey,"
            " iObjectVersionKey, sObjectPhysicalName, sObjectLogicalName, sObjectRawLogicalName,"
            " sObjectOverrideName, sObjectAttributes, bObjectVisible, bObjectUserCreated, dObjectLastUpdate)"
            " VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)");
    for (qint64 i = 0; i < rows; ++i) {
        const std::string physical = "Name=btnOk" + std::to_string(i) + ";Class=Button";
        const std::string logical = "OK button " + std::to_string(i % 997);
        sqlite3_bind_int64(insert, 1, i / perWindow + 1);
        sqlite3_bind_int(insert, 2, int(i % 40) + 1);
        sqlite3_bind_int(insert, 3, int(i % 7));
        sqlite3_bind_int(insert, 4, 0);
        sqlite3_bind_int(insert, 5, 1);
        sqlite3_bind_text(insert, 6, physical.c_str(), int(physical.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 7, logical.c_str(), int(logical.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 8, logical.c_str(), int(logical.size()), SQLITE_TRANSIENT);
        if (i % 3 == 0)
            sqlite3_bind_null(insert, 9);
        else
            sqlite3_bind_text(insert, 9, "", 0, SQLITE_STATIC);
        sqlite3_bind_text(insert, 10, "Visible=True;Enabled=True", -1, SQLITE_STATIC);
        sqlite3_bind_int(insert, 11, -1);
        sqlite3_bind_int(insert, 12, 0);
        sqlite3_bind_text(insert, 13, "2024-03-01 12:00:00", -1, SQLITE_STATIC);
        check(db, sqlite3_step(insert), "fill");
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    exec(db, "COMMIT");
}

// Copied rows go to negative window keys, so no later read selects them.
void dropCopies(sqlite3* db)
{
    exec(db, "DELETE FROM tObject WHERE iObjectWindowKey < 0");
    exec(db, "PRAGMA wal_checkpoint(TRUNCATE)");
}

// Processor time of the process (user and system), in seconds: steadier
// than the wall clock on a busy machine.
double cpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

struct Result {
    qint64 rows = 0;
    double seconds = 0;
    double cpu = 0;
    long peak = 0;
    std::vector<double> marks;  // seconds at each tenth of the windows
};

Result copyThroughRecordsets(Connection& conn, qint64 windows)
{
    const QString key = QStringLiteral("iObjectKey");
    const QString windowKey = QStringLiteral("iObjectWindowKey");
    QStringList columns;
    for (const char* c : kColumns)
        columns << QString::fromLatin1(c);
    columns.removeAll(windowKey);

    Result r;
    resetPeak();
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuSeconds();
    conn.BeginTrans();
    Recordset objects;
    Recordset newObject;
    qint64 keySum = 0;
    for (qint64 w = 1; w <= windows; ++w) {
        objects.Open(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey = ") + QString::number(w), conn);
        while (!objects.Eof()) {
            newObject.Open(QStringLiteral("SELECT * FROM tObject WHERE iObjectKey=0"), conn);
            newObject.AddNew();
            newObject.SetValue(windowKey, -qint32(w));
            for (const QString& column : columns)
                newObject.SetValue(column, objects.Value(column));
            newObject.Update();
            keySum += newObject.Int(key);
            newObject.Close();
            objects.MoveNext();
            ++r.rows;
        }
        objects.Close();
        if (w % (windows / 10 > 0 ? windows / 10 : 1) == 0)
            r.marks.push_back(double(timer.nsecsElapsed()) / 1e9);
    }
    conn.CommitTrans();
    r.seconds = double(timer.nsecsElapsed()) / 1e9;
    r.cpu = cpuSeconds() - cpuStart;
    r.peak = peakMb();
    if (keySum == 0)
        std::fprintf(stderr, "no keys read\n");
    return r;
}

Result copyThroughSqlite(sqlite3* db, qint64 windows)
{
    Result r;
    resetPeak();
    QElapsedTimer timer;
    timer.start();
    const double cpuStart = cpuSeconds();
    exec(db, "BEGIN IMMEDIATE");
    sqlite3_stmt* select = prepare(db, "SELECT * FROM tObject WHERE iObjectWindowKey = ?");
    sqlite3_stmt* insert = prepare(
        db, "INSERT INTO tObject (iObjectWindowKey, iObjectClassKey, iObjectDataTypeKey, iObjectUpdateStatusKey,"
            " iObjectVersionKey, sObjectPhysicalName, sObjectLogicalName, sObjectRawLogicalName,"
            " sObjectOverrideName, sObjectAttributes, bObjectVisible, bObjectUserCreated, dObjectLastUpdate)"
            " VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?)");
    qint64 keySum = 0;
    for (qint64 w = 1; w <= windows; ++w) {
        sqlite3_bind_int64(select, 1, w);
        int rc;
        while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
            sqlite3_bind_int64(insert, 1, -w);
            // Source column 0 is the key; the others follow in table order.
            for (int c = 2; c <= kColumnCount; ++c) {
                switch (sqlite3_column_type(select, c)) {
                case SQLITE_INTEGER:
                    sqlite3_bind_int64(insert, c, sqlite3_column_int64(select, c));
                    break;
                case SQLITE_FLOAT:
                    sqlite3_bind_double(insert, c, sqlite3_column_double(select, c));
                    break;
                case SQLITE_NULL:
                    sqlite3_bind_null(insert, c);
                    break;
                default:
                    sqlite3_bind_text(insert, c, reinterpret_cast<const char*>(sqlite3_column_text(select, c)),
                                      sqlite3_column_bytes(select, c), SQLITE_TRANSIENT);
                }
            }
            check(db, sqlite3_step(insert), "insert");
            sqlite3_reset(insert);
            keySum += sqlite3_last_insert_rowid(db);
            ++r.rows;
        }
        check(db, rc, "select");
        sqlite3_reset(select);
        if (w % (windows / 10 > 0 ? windows / 10 : 1) == 0)
            r.marks.push_back(double(timer.nsecsElapsed()) / 1e9);
    }
    sqlite3_finalize(select);
    sqlite3_finalize(insert);
    exec(db, "COMMIT");
    r.seconds = double(timer.nsecsElapsed()) / 1e9;
    r.cpu = cpuSeconds() - cpuStart;
    r.peak = peakMb();
    if (keySum == 0)
        std::fprintf(stderr, "no keys read\n");
    return r;
}

void print(const char* name, const Result& r)
{
    std::printf("%-10s %9lld rows  %7.3f s %9.0f rows/s  cpu %7.3f s %9.0f rows/s  peak %4ld MB  tenths:", name,
                static_cast<long long>(r.rows), r.seconds, double(r.rows) / r.seconds, r.cpu, double(r.rows) / r.cpu,
                r.peak);
    double last = 0;
    for (double m : r.marks) {
        std::printf(" %.2f", m - last);
        last = m;
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const qint64 rows = argc > 1 ? std::atoll(argv[1]) : 1000000;
    const int perWindow = argc > 2 ? std::atoi(argv[2]) : 50;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 1;
    const std::string only = argc > 4 ? argv[4] : "";
    if (rows <= 0 || perWindow <= 0 || rounds <= 0 || (only != "" && only != "raw" && only != "recordset")) {
        std::fprintf(stderr, "usage: %s [ROWS [ROWS_PER_WINDOW [ROUNDS [raw|recordset]]]]\n", argv[0]);
        return 2;
    }
    const qint64 windows = (rows + perWindow - 1) / perWindow;

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bench.mdb"));
    try {
        Connection::CreateDatabaseFile(path);
        Connection conn;
        conn.OpenFile(path);
        BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData);
        sqlite3* db = handleOf(conn);
        fill(db, rows, perWindow);
        std::printf("%lld rows of tObject, %d per window, %lld windows, %d columns written per row\n",
                    static_cast<long long>(rows), perWindow, static_cast<long long>(windows), kColumnCount);

        double best = 0;
        for (int round = 0; round < rounds; ++round) {
            Result raw;
            Result rs;
            if (only != "recordset") {
                raw = copyThroughSqlite(db, windows);
                dropCopies(db);
                print("sqlite3", raw);
            }
            if (only != "raw") {
                rs = copyThroughRecordsets(conn, windows);
                dropCopies(db);
                print("Recordset", rs);
            }
            if (!only.empty())
                continue;
            const double ratio = (double(rs.rows) / rs.seconds) / (double(raw.rows) / raw.seconds);
            const double cpuRatio = (double(rs.rows) / rs.cpu) / (double(raw.rows) / raw.cpu);
            std::printf("ratio Recordset / sqlite3: %.3f (by processor time %.3f)\n", ratio, cpuRatio);
            if (ratio > best)
                best = ratio;
        }
        if (rounds > 1)
            std::printf("best ratio: %.3f\n", best);
        conn.Close();
    } catch (const DbError& e) {
        std::fprintf(stderr, "failed: %s\n", e.what());
        return 1;
    }
    return 0;
}
