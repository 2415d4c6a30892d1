#pragma once

// The content the benchmarks run on: an environment shaped like the
// repositories the suite keeps for years, generated with set-based
// statements (one INSERT ... SELECT over a number sequence per table and
// pass) on SQLite or PostgreSQL, so that millions of rows take minutes.
//
// The environment lists `versions` versions, alternately of two
// applications ("Order Entry" 1.0, "Billing" 1.0, "Order Entry" 1.1, ...),
// which share the rows equally. Each version holds, in about these
// proportions: windows (2%, the first one its "[System Screen]") with their
// objects (18%, 0 to 18 a window), variables (3%), requirements (0.5%),
// processes (2%) with their step windows (6%, 0 to 8 a process, some a lone
// placeholder without a window) and steps (54%, 1 to 20 a step window),
// process keyword relations (3%), cycles (0.5%) with their cycle processes
// (2%) and keyword relations (1%). One step window in eight visits a window
// of another listed version (iStepWindowVerKey is that version, its steps
// use that window's objects); a quarter of the steps call a process
// ("ProcessKey= N", one call in ten to another version's process), a
// quarter refer to one or two variables ("Value=@[ version| variable]"); one
// cycle process in ten runs another version's process. The environment
// has its users, schedules (one per eight cycles) with their cycles and
// keyword relations, and record layouts with fields that take variables;
// some processes and cycles point at a layout, every version at its load,
// login, ... processes and its initial and main windows. Beside the
// environment the first application has an empty version (its system
// screen only) for a version update to fill.
//
// Keys are the database's own kind but chosen by the generator: each
// table's keys start past its largest one, a tenth of them are missing,
// the versions' rows interleave in runs of 64 (they were written at the
// same time), and one run in seven of every table is inserted after all
// the others (edited later), so rows do not arrive in key order. In some
// step windows the step with the highest key comes first. Everything is
// computed from the row's number: the same shape gives the same rows on
// both backends.

#include "core/repository/Connection.h"

#include <QString>

#include <vector>

namespace dorvane::bench {

struct ContentShape {
    qint64 rows = 100000;  // about this many content rows in all
    int versions = 4;      // listed versions of the environment, at least 1
};

// Rows per table over the whole environment.
struct ContentCounts {
    qint64 windows = 0, objects = 0, variables = 0, requirements = 0, processes = 0, stepWindows = 0, steps = 0,
           processKeywords = 0, cycles = 0, cycleProcesses = 0, cycleKeywords = 0, schedules = 0, scheduleCycles = 0,
           scheduleKeywords = 0, layouts = 0, fields = 0, instances = 0, users = 0;
    qint64 Total() const;
    // "windows 2000, objects 18000, ..." for a report line.
    QString Describe() const;
};

struct GeneratedEnvironment {
    qint32 environment = 0;
    std::vector<qint32> versions;  // the listed versions, in detail order
    qint32 updateSource = 0;       // versions[0]
    qint32 updateTarget = 0;       // the empty version of the same application
    ContentCounts counts;
};

// Generates the environment through `connection` (inside its transaction
// when it has one, else in one of its own). The repository's reference
// data must be there; other rows may be, the generated keys come after
// theirs. On PostgreSQL the identity sequences then continue after the
// largest keys. Throws DbError.
GeneratedEnvironment GenerateEnvironment(Connection& connection, const ContentShape& shape);

// One table's rows below a version or an environment: `parentColumn`
// `condition` (" = 12" or " IN (SELECT ...)") selects them.
struct ContentRows {
    QString table;
    QString parentColumn;
    QString condition;
};

// The rows an update or a copy of the version copies: its windows and
// objects, variables, requirements, processes with their step windows,
// steps and keyword relations, cycles with their cycle processes and
// keyword relations.
std::vector<ContentRows> VersionContent(qint32 versionKey);
// The rows of every listed version, given by key, and the environment's own:
// users, schedules with their cycles and keyword relations, record layouts
// with their fields and file instances.
std::vector<ContentRows> EnvironmentContent(qint32 environmentKey, const std::vector<qint32>& versionKeys);
// The keys of the versions an environment lists, in detail order.
std::vector<qint32> ListedVersions(Connection& connection, qint32 environmentKey);
// How many rows the selections hold. Throws DbError.
qint64 CountRows(Connection& connection, const std::vector<ContentRows>& rows);

} // namespace dorvane::bench
