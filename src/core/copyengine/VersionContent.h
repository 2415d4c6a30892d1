#pragma once

#include "core/repository/Connection.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace dorvane {

// One table of the tree of a version's content (and of an environment's
// schedules): where its rows hang and what a copy keeps of them. A table
// that hangs under more than one parent (tKeywordRel, under a process, a
// cycle or a schedule) has one entry per parent.
struct ContentTable {
    QString table;         // "tStep"
    QString key;           // its own key, as the schema names it
    QString parent;        // the table above it ("tStepWindow")
    QString parentColumn;  // its column that holds the parent's key
    QString stage;         // what its failures are named by ("Steps")
    // The columns besides the key and the parent column that a copy does
    // not take over as they stand: written from elsewhere (a map, the
    // destination's keys) or left at their defaults.
    QStringList notKept;
};

// The content below a version (windows, objects, variables, requirements,
// processes, step windows, steps, cycles, cycle processes, keyword
// relations) and the schedules below an environment, parents before their
// children; a parent's children in the order a version's deletion takes
// them.
const std::vector<ContentTable>& VersionContentTables();

// The rows the copies write around that content, declared alike:
// applications, versions, and an environment's record layouts with their
// fields and file instances. No deletion of content touches them.
const std::vector<ContentTable>& ContentOwnerTables();

// The columns of `table` (from either list) that a copy takes over from the
// source row as they stand: every column of the schema's definition but its
// key, its parent column, the columns declared not kept and `setApart`, in
// the schema's order.
QStringList KeptColumns(const QString& table, const QStringList& setApart = {});

// One statement of a content deletion: it deletes rows of `table` and
// failures are named by `stage`.
struct ContentDeletion {
    QString table;
    QString stage;
    QString sql;
    QString condition;  // the rows it deletes: those of `table` where this holds
};

// "IN (select)" on SQLite, "= ANY(ARRAY(select))" on PostgreSQL: a column
// among the keys a subquery selects. PostgreSQL gathers the keys first and
// searches the column's index for them, where with IN its planner hashes
// them and reads the table whole, every version's rows to find one's.
QString AmongKeys(BackendKind backend, const QString& select);

// The statements of the deletions of content, in the order they run: one
// DELETE a table, children before their parents, each finding its parents
// by a subquery over the tree
// ("DELETE FROM tStep WHERE iStepWindowKey IN (SELECT iStepWindowKey FROM
// tStepWindow WHERE iStepWindowProcessKey IN (SELECT ...))"; on PostgreSQL
// "= ANY(ARRAY(SELECT ...))", which its planner takes to the children's
// index instead of reading their table whole).
//
// DeleteVersionContents: everything below the version but its requirements,
// which stay (the version row is its own).
std::vector<ContentDeletion> DeleteVersionContentsStatements(qint32 versionKey, BackendKind backend);
// ClearVersionContent: everything below the version.
std::vector<ContentDeletion> ClearVersionContentStatements(qint32 versionKey, BackendKind backend);
// PrepareForRestore: the environment's schedules; and, when it lists a
// version (`listsVersions`), the content of the versions it lists but their
// step windows, and instead the step windows of the environment as a whole
// (whichever version's processes they belong to) with their steps.
std::vector<ContentDeletion> PrepareForRestoreStatements(qint32 environmentKey, bool listsVersions, BackendKind backend);
// The part of PrepareForRestore that falls on one version the environment
// lists: its content but its step windows, and the environment's step
// windows below its processes with their steps.
std::vector<ContentDeletion> PrepareForRestoreOfVersion(qint32 environmentKey, qint32 listedVersionKey, BackendKind backend);

// The rows below a version that a copy of it writes (CopyWindows with the
// system screen, CopyProcesses, CopyCycles, CopyVariables,
// CopyRequirements), selected as ClearVersionContentStatements selects
// them: everything but a lone step window without a window (a placeholder,
// which no copy takes) and its steps. Only `table` and `condition` are
// filled; nothing here is meant to run as a deletion.
std::vector<ContentDeletion> CopiedVersionContent(qint32 versionKey, BackendKind backend);

} // namespace dorvane
