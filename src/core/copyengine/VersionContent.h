#pragma once

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

} // namespace dorvane
