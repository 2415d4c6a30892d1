#pragma once

#include <QString>
#include <QVector>

#include <functional>
#include <optional>

namespace dorvane {

class Connection;
class EnvironmentCopy;
class MessageSink;

// Environment names as stored. Save replaces "?", "!", "/", then the
// double quote, "*", "'", "]" and "[" with "_"; Save As replaces the full
// stop as well. Both then replace what else a Windows folder name cannot
// hold ("\", ":", "<", ">", "|") and trim blanks at the ends: the stored
// name names the environment's backup folder. Case and inner blanks are
// kept.
QString NormaliseEnvironNameForSave(const QString& typedName);
QString NormaliseEnvironNameForSaveAs(const QString& typedName);

// Why `name` cannot be one folder below the backups folder on Windows and
// Linux (a blank name, control characters, a separator or other character
// Windows forbids, blanks at the ends, full stops only, a full stop at the
// end, a device name such as CON or LPT1, more than 255 bytes); empty when
// it can.
QString EnvironFolderNameProblem(const QString& name);

// The stored name of another environment (not `exceptKey`) whose backup
// folder `name` would name, compared as folder names are looked up
// (SameFolderName), the same on every backend; nothing when it is free.
std::optional<QString> EnvironmentNameHolder(Connection& connection, const QString& name, qint32 exceptKey);
// The stored name of another environment that shares the backup folder of
// environment `environmentKey`; nothing when none does.
std::optional<QString> CollidingEnvironmentName(Connection& connection, qint32 environmentKey);
// Why environment `environmentKey` cannot be deleted ("This environment is
// referenced in existing steps and cannot be deleted" when a step window
// runs in it), or empty when it can.
QString EnvironmentDeletionRefusal(Connection& connection, qint32 environmentKey);

// Moves an environment's backup folder from one name to another; throws
// DbError when it cannot.
using BackupFolderMove = std::function<void(const QString& from, const QString& to)>;

// Object name of the field an outcome may focus.
inline const QString kTxtEnvironName = QStringLiteral("txtEnvironName");

// Pages of SSEnvironTab.
inline constexpr int kEnvironDefinitionTab = 0;
inline constexpr int kEnvironConfigurationTab = 1;
inline constexpr int kEnvironUsersTab = 2;

// The enabled state of the definition pane's buttons and of the other two
// pages of SSEnvironTab.
struct EnvironDefinitionControls {
    bool SaveEnabled = false;    // cmdEnvironSave
    bool SaveAsEnabled = false;  // cmdEnvironSaveAs
    bool DeleteEnabled = false;  // cmdEnvironDelete, cmdEnvironBackup and cmdEnvironRestore
    bool TabsEnabled = false;    // pages 1 and 2 of SSEnvironTab

    bool operator==(const EnvironDefinitionControls&) const = default;
};

enum class EnvironField { Name, Description };

// The pane's states as plain functions of what happened.
// After New (and at start): everything disabled.
EnvironDefinitionControls EnvironControlsAfterNew();
// A stored environment opened: Delete, Backup, Restore and the pages
// enabled; Save and Save As disabled.
EnvironDefinitionControls EnvironControlsAfterOpen();
// A typed change (not while the program fills the boxes): Save enabled;
// a change of the name of a stored environment enables Save As too; the
// rest stays.
EnvironDefinitionControls EnvironControlsAfterEdit(const EnvironDefinitionControls& before, EnvironField field,
                                                   bool environIsNew);
// After Save: Save and Save As disabled, Delete as before, pages enabled
// (and the configuration page shown).
EnvironDefinitionControls EnvironControlsAfterSave(const EnvironDefinitionControls& before);

// What the definition pane holds when a command is pressed.
struct EnvironDefinitionInput {
    QString Name;         // txtEnvironName
    QString Description;  // txtEnvironDesc
    // lbEnvironAppVerList's item data, in list order (Save writes the
    // detail rows from it).
    QVector<qint32> ListedVersionKeys;
};

// What the window does after a command. Every outcome carries the
// controls' state; the rest is set only where there is something to do.
struct EnvironOutcome {
    // Save, Save As: SaveOk. Open, Delete, New: the command went through.
    bool Ok = false;
    // A check failed: the field to focus (the boxes keep what was typed).
    // Also set by New and Open, which leave the focus on the name.
    QString FocusField;
    // Open: the texts to show in txtEnvironName and txtEnvironDesc.
    std::optional<QString> Name;
    std::optional<QString> Description;
    // New: empty both boxes, set the selection of cbEnvironApp,
    // cbEnvironVer, lbEnvironList, cbEnvironTestTool and cbEnvironEmulator
    // to none and clear lbEnvironAppVerList.
    bool ClearForm = false;
    EnvironDefinitionControls Controls;
    bool RefreshEnvironList = false;
    bool RefreshEnvironAppVerList = false;
    bool RefreshEnvironUsers = false;
    // After Save: with EditLoading set, select in lbEnvironList the entry
    // whose item data is this key and report its index with
    // SetEnvironListIndex.
    std::optional<qint32> SelectEnvironKey;
    // A page of SSEnvironTab to show; -1 leaves it.
    int ShowTab = -1;
};

// The definition pane of the environments page without its widgets: the
// editor state the main window keeps (CurrentEnvironKey,
// CurrentEnvironName, EnvironIsNew, EnvironDirty, EnvironListIndex) and the
// commands New, Open, Save, Save As and Delete. Save, Save As and Delete
// each run in one transaction on the repository connection and roll it
// back on failure.
class EnvironmentRecords {
public:
    qint32 CurrentEnvironKey() const { return m_currentKey; }
    const QString& CurrentEnvironName() const { return m_currentName; }
    bool EnvironIsNew() const { return m_isNew; }
    bool EnvironDirty() const { return m_dirty; }
    int EnvironListIndex() const { return m_listIndex; }
    const EnvironDefinitionControls& Controls() const { return m_controls; }

    void SetEnvironListIndex(int index) { m_listIndex = index; }
    // The commands of the configuration and users pages that write at once
    // (adding, removing, updating or copying a version, highlighting a
    // registered user) leave the definition clean.
    void ClearDirty() { m_dirty = false; }

    // A change of txtEnvironName or txtEnvironDesc. Ignored while the
    // program fills the boxes; otherwise the definition is dirty and the
    // controls follow EnvironControlsAfterEdit.
    EnvironDefinitionControls TextChanged(EnvironField field, bool editLoading);

    // cmdEnvironNew. The key becomes 0: the editor stands on a new
    // environment.
    EnvironOutcome New();

    // A click on entry `listIndex` of lbEnvironList, whose item data is
    // `environKey`, after the save prompt (EnvironExitCancel) has let it
    // go on. Failure: "Error while opening environment : " + description.
    EnvironOutcome Open(int listIndex, qint32 environKey, Connection& connection, MessageSink& messages);

    // cmdEnvironSave: blank name refused; the normalised name must not be
    // another environment's; the row is written, its key learned, the
    // listed versions' detail rows added (for an existing environment
    // only those of versions that no environment lists yet); then the
    // configuration page is shown. Failure: "Error while saving environment
    // definition : " + description, rolled back.
    // A stored environment that changes its name takes its backup folder
    // along through `moveBackups(from, to)` (EnvironmentBackup's
    // MoveBackupFolder), in the same step: a move that fails refuses the
    // Save, and a commit that fails moves the folder back.
    EnvironOutcome Save(const EnvironDefinitionInput& input, Connection& connection, MessageSink& messages,
                        const BackupFolderMove& moveBackups = {});

    // cmdEnvironSaveAs: blank name refused; the normalised name (full stop
    // included) must be no environment's at all, the shown one's included;
    // then, in one transaction, the new row, the users copied, and
    // `copy.CopyEnvironment(source, new)`: committed when it returns true
    // (the editor then stands on a new environment), rolled back when it
    // returns false. The test data connection of `copy`, when it has one,
    // is committed and rolled back with the repository. Failure: "Error
    // while saving environment definition : " + description.
    EnvironOutcome SaveAs(const EnvironDefinitionInput& input, EnvironmentCopy& copy, MessageSink& messages);

    // cmdEnvironDelete, with an entry of lbEnvironList selected (no
    // question asked): refused with "This environment is referenced in
    // existing steps and cannot be deleted" when a step window refers to
    // it; otherwise its detail rows, user rows and row go in one
    // transaction and the editor stands on a new environment. Failure:
    // "Error while deleting environment: " + description, rolled back.
    EnvironOutcome Delete(bool entrySelected, Connection& connection, MessageSink& messages);

private:
    qint32 m_currentKey = 0;
    QString m_currentName;
    bool m_isNew = true;
    bool m_dirty = false;
    int m_listIndex = -1;
    EnvironDefinitionControls m_controls;
};

// EnvironExitCancel: with the definition or the configuration dirty, one
// question "Save changes to this Environment?" (Yes, No, Cancel). Cancel:
// true (stay). No: false. Yes: runs `saveDefinition` when the definition
// is dirty, then `saveConfiguration` when the configuration is dirty; each
// returns its SaveOk, and the result is the negation of the last one run.
// Restoring the list index around the definition's save is the window's.
bool EnvironExitCancel(bool environDirty, bool configDirty, MessageSink& messages,
                       const std::function<bool()>& saveDefinition, const std::function<bool()>& saveConfiguration);

} // namespace dorvane
