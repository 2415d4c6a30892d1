#pragma once

#include "core/lists/NameDescTableModel.h"
#include "core/lists/clsNameDescPair.h"

#include <QString>

#include <memory>

namespace dorvane {

class Connection;
class MessageSink;

enum class NameDescGridKind { Roles, Projects, Keywords };

// What tells the three grids apart: their table, columns, texts and the
// statements that are not built the same way for all three.
struct NameDescGridInfo {
    NameDescGridKind kind;
    QString gridName;            // TDBGridRoles, TDBGridProjects, TDBGridKeywords
    QString table;               // tRole, tProject, tKeyword
    QString nameColumn;          // sRoleName, ...
    QString descriptionColumn;   // sRoleDesc, ...
    QString keyColumn;           // iRoleKey, ...
    QString nameCaption;         // column captions of the grid
    QString descriptionCaption;
    QString blankNameMessage;    // "Role name cannot be blank", ...
    QString removeErrorPrefix;   // "Error removing Role: ", ...
    QString saveErrorPrefix;     // "Error while saving Roles: ", ...
    QString readErrorPrefix;     // "Error while reading Roles: ", ...
    QString savePrompt;          // "Save changes to Roles?", ...
};

const NameDescGridInfo& GridInfo(NameDescGridKind kind);

// The result of a grid's Save.
struct GridSaveOutcome {
    bool SaveOk = false;
};

// One of the roles, projects and keywords grids without its widget: the
// list of rows, the table model a view shows, the grid's dirty flag
// (RoleDirty, ProjectDirty, KeywordDirty) and the operations that read and
// write the repository. The keywords grid works on the keywords of one
// application, whose key the caller passes to Refresh and Save.
class NameDescGrid {
public:
    // `messages` shows the name check's messages while a view edits the
    // model; the other operations take the sink they report to.
    NameDescGrid(NameDescGridKind kind, MessageSink& messages);
    ~NameDescGrid();
    NameDescGrid(const NameDescGrid&) = delete;
    NameDescGrid& operator=(const NameDescGrid&) = delete;

    const NameDescGridInfo& Info() const { return *m_info; }
    clsNameDescPair& List() { return m_list; }
    const clsNameDescPair& List() const { return m_list; }
    NameDescTableModel& Model() { return *m_model; }

    // Set by every edit of the model (its changed() signal); cleared by a
    // successful Save.
    bool Dirty() const { return m_dirty; }
    void SetDirty(bool dirty) { m_dirty = dirty; }

    // RefreshRoleGrid / RefreshProjectGrid / RefreshKeywordGrid: clears the
    // list and reads the table in name order (the keywords of `appKey`).
    // On a database error the rows read so far stay and the error is shown
    // after readErrorPrefix. The dirty flag is left alone.
    bool Refresh(Connection& connection, MessageSink& messages, qint32 appKey = 0);

    // The check before a name is stored in row `index` (Count() for a row
    // being added): a blank name and a name another row has exactly are
    // refused with a message.
    bool CheckName(int index, const QString& name, MessageSink& messages) const;

    // Deletes the entry at `index`: a stored one from the repository at
    // once, found by the entry's key (a keyword also checked for use by
    // that key), then from the list. Returns whether the entry was removed; a
    // refusal or an error leaves it in place. The adding row (or any other
    // index outside the list) deletes nothing.
    bool DeleteRow(int index, Connection& connection, MessageSink& messages);

    // Writes the new and changed entries, each new one learning its key,
    // then reloads the grid. A database error stops the loop with a
    // message; the entries written before it stay written (and clean).
    GridSaveOutcome Save(Connection& connection, MessageSink& messages, qint32 appKey = 0);

    // The grid's save prompt on leaving: false at once when nothing was
    // edited; otherwise asks savePrompt (Yes, No, Cancel). Cancel returns
    // true (stay), No false (changes dropped), Yes saves and returns true
    // when the save failed.
    bool ExitCancel(Connection& connection, MessageSink& messages, qint32 appKey = 0);

private:
    QString deleteLookupSql(int index) const;
    QString addSetSql(int index, qint32 appKey) const;
    QString rowSql(int index) const;

    const NameDescGridInfo* m_info;
    clsNameDescPair m_list;
    std::unique_ptr<NameDescTableModel> m_model;
    bool m_dirty = false;
};

// The grids' loaders by their usual names; each reads its table in name
// order into the grid's list (see NameDescGrid::Refresh).
bool RefreshRoleGrid(NameDescGrid& grid, Connection& connection, MessageSink& messages);
bool RefreshProjectGrid(NameDescGrid& grid, Connection& connection, MessageSink& messages);
bool RefreshKeywordGrid(NameDescGrid& grid, Connection& connection, MessageSink& messages, qint32 appKey);

} // namespace dorvane
