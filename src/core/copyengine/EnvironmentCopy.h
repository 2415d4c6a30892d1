#pragma once

#include <QSet>
#include <QString>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace dorvane {

class Connection;
class VersionBackup;

// The new-version-ID prompt (frmNewVersionID): a label, a text box that
// starts empty, OK and Cancel. `labelText` goes into the label. The OK
// button hands the typed text to `okCheck`, which shows its own message
// when the text is not acceptable; the prompt then stays open with the
// text as typed. Returns the accepted text, or nothing after Cancel.
class NewVersionIdPrompt {
public:
    virtual ~NewVersionIdPrompt() = default;
    virtual std::optional<QString> Ask(const QString& labelText,
                                       const std::function<bool(const QString& id)>& okCheck) = 0;
};

// The copy of a whole environment into a newly saved one (Save As of the
// environment definition): its users, every version with all its content
// as a new version of the same application, its schedules and its record
// layouts. The new IDs are asked first (PlanCopy), outside any
// transaction; then rows are read through a reading connection that the
// run opens (VersionBackup::OpenDestinationDatabase), from one snapshot,
// and written through the main repository connection, inside the caller's
// transaction; nothing here begins, commits or rolls back a write.
//
// The rows of a layout's data table live in the test data database, in
// the table that the layout's sRecordName names (the text between the
// brackets of "SELECT * FROM [...]"). They are read and written through
// `testData`; without a test data connection, or when the table does not
// exist there, a layout has no data rows to copy. Whoever owns the
// transaction on the main connection owns one on `testData` too.
class EnvironmentCopy {
public:
    EnvironmentCopy(VersionBackup& engine, Connection& mainConnection, NewVersionIdPrompt& prompt,
                    Connection* testData = nullptr);

    Connection& MainConnection() const { return m_main; }
    VersionBackup& Engine() const { return m_engine; }
    Connection* TestData() const { return m_testData; }

    // The questions of a copy run, asked before anything is written or any
    // transaction is open: progress window "Environment Copy progress...",
    // then per version of the source (in detail-row order) the prompt for
    // its new ID. False after a Cancel (the pointer is restored, the
    // progress window stays up, as it always has); throws DbError.
    bool PlanCopy(qint32 sourceEnvironmentKey);
    // The versions the planned IDs name already (empty ones, which the copy
    // fills): what the copy must hold against other operations.
    std::vector<qint32> PlannedTargets() const;

    // The copy run on the plan, inside the caller's transaction: reading
    // connection (one snapshot of the repository), maps reset, users, then
    // per planned version its ID checked again against what other
    // operations committed since the question (an ID now taken refuses the
    // copy: ID + " already exists - please choose another ID"), the new
    // version (or the empty one the ID names) and detail row,
    // CopyWindows (system screen included), CopyProcesses, CopyCycles,
    // CopyVariables, CopyRequirements, FixUpSteps and the version's seven
    // pointers through the cumulative maps; then CopySchedules,
    // CopyRecordLayouts and FixUpRecordsetPointers. False after a refusal
    // or a failure, whose message has been shown; the caller rolls back. A
    // failure of this routine's own statements shows "Error while copying
    // environment: " and the description.
    bool CopyEnvironment(qint32& sourceEnvironmentKey, qint32& destinationEnvironmentKey);

    // The layouts of the source environment with their fields, file
    // instances and data rows; fills the engine's RecordMap. Failure:
    // "Error while copying environment recordsets: " + description.
    bool CopyRecordLayouts(qint32 sourceEnvironmentKey, Connection& source, qint32 destinationEnvironmentKey,
                           Connection& destination);

    // The record pointers of the environment's processes, cycles and cycle
    // processes through RecordMap; a key the map does not hold is kept.
    // Failure: "Error while fixing up recordset pointers: " + description.
    bool FixUpRecordsetPointers(qint32 destinationEnvironmentKey, Connection& connection);

    // The prompt's OK check for a new version of application `appKey`:
    // "Version ID cannot be blank"; ID + " already exists - please choose
    // another ID" when a version of that application with this ID has more
    // than one window, or this run copies from it, or the plan has given the
    // ID to another version of the application already. A version with at
    // most one window counts as empty and the ID is accepted: the copy then
    // goes into that version. Throws DbError.
    bool NewVersionIdAcceptable(qint32 appKey, const QString& id);

    // "Enter the new Version ID for " & app & " - " & version & ":".
    static QString PromptLabel(const QString& appName, const QString& versionId);

private:
    struct PlannedVersion {
        qint32 sourceVersionKey = 0;
        qint32 appKey = 0;
        QString newId;
        qint32 existingKey = 0;  // the empty version the ID names, or 0
    };

    bool copyVersions(qint32 sourceEnvironmentKey, qint32 destinationEnvironmentKey);
    // The version of `appKey` named `id`: its key and whether it holds more
    // than its system screen; nothing when there is none.
    std::optional<std::pair<qint32, bool>> versionNamed(qint32 appKey, const QString& id);
    void finishRun(bool hideProgress);

    VersionBackup& m_engine;
    Connection& m_main;
    NewVersionIdPrompt& m_prompt;
    Connection* m_testData;
    // The versions this run copies from, and the plan for each.
    QSet<qint32> m_sourceVersions;
    std::vector<PlannedVersion> m_plan;
};

} // namespace dorvane
