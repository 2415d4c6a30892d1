#pragma once

#include "core/lists/ListQueries.h"

#include <QString>

#include <optional>

namespace dorvane {

class Connection;
class MessageSink;

// A version ID as stored and as its folder is named: blanks, "/", "!", "?",
// "[", "]", "'", "*" and double quotes become "_". Unlike application IDs,
// "." , "-" and ":" are kept, so 1.0 and 1-0 are different versions.
QString NormaliseVersionId(const QString& typedId);

// The seven process and window pointers of a version. Empty means no
// selection in the drop-down (stored as 0).
struct VersionLinks {
    std::optional<qint32> loadProcess;
    std::optional<qint32> loginProcess;
    std::optional<qint32> logoutProcess;
    std::optional<qint32> terminateProcess;
    std::optional<qint32> recoverProcess;
    std::optional<qint32> initialWindow;
    std::optional<qint32> mainWindow;
};

// What the version editor shows for one stored version.
struct VersionRecord {
    QString id; // sVersionID, also the version's folder name
    QString description; // sVersionDesc
    qint32 mapTypeKey = 0; // iMapType, to select in the map type drop-down
    // The entries of the five process drop-downs and the two window
    // drop-downs: those of the version itself, or, for a copy made by
    // Save As, those of the version it was copied from.
    ListEntries processes;
    ListEntries windows;
    VersionLinks links; // a column holding 0 leaves its drop-down unselected
};

// The fields of the version editor as typed and selected.
struct VersionInput {
    QString id;
    QString description;
    std::optional<qint32> mapTypeKey; // item data of the map type selection
    VersionLinks links;
};

// The application editor's state that the version editor works for.
struct VersionApplication {
    qint32 CurrentAppKey = 0;
    QString AppFolderName;
    bool AppIsHost = false;
    qint32 CurrentPlatformKey = 0;
};

// The version editor's state a save reads and changes.
struct VersionState {
    qint32 CurrentVersionKey = 0; // 0 for a new version
    bool VersionIsNew = true;
    QString VersionFolderName;
};

struct VersionSaveOutcome {
    bool SaveOk = false;
    // The state as the save left it. Once the row is committed the version
    // is a stored one (not new, its key and folder name learnt), even when
    // the folder work after it fails; a refusal or a write that was rolled
    // back leaves the state as it was.
    VersionState state;
    bool dirtyCleared = false; // the row was written
    QString focusField; // object name of the field to focus; empty: leave it
    int mainTab = -1; // page of SSMainTab to select; -1: leave it
    int appTab = -1; // page of SSAppTab to select; -1: leave it
};

// Opens and saves rows of tVersion for the version editor, seeds each
// saved version's system screen and keeps the version folders (with their
// "Primary Map Source" and "Secondary Map Source" sub-folders) below the
// application's folder under sharedResourcePath & "\Apps". Every message
// goes through the message sink.
class VersionRecords {
public:
    VersionRecords(Connection& connection, MessageSink& messages, QString sharedResourcePath);

    // Empty after a database error, which has been shown.
    std::optional<VersionRecord> Open(qint32 versionKey);

    // Checks the input, then writes the row, learns its key and seeds the
    // system screen in one transaction (rolled back on failure), then
    // creates or renames the folders. An ID typed as stored is written as
    // stored, not normalised. After a successful save the editor
    // reloads the version list and clears its fields.
    VersionSaveOutcome Save(const VersionInput& input, const VersionApplication& app, const VersionState& state);

    // Writes the fields shown as a further version of the application that
    // remembers the shown version as its source; the source's content is
    // not copied. No transaction: a failure after the row was written
    // leaves the row.
    VersionSaveOutcome SaveAs(const VersionInput& input, const VersionApplication& app, const VersionState& state);

private:
    VersionSaveOutcome Refuse(VersionSaveOutcome out, const QString& message, const char* field);
    void CreateVersionFolders(const QString& versionFolder);
    QString AppFolder(const VersionApplication& app) const;

    Connection& m_connection;
    MessageSink& m_messages;
    QString m_sharedResourcePath;
};

// cmdVersionDelete is enabled only while a stored version is shown.
bool VersionDeleteEnabled(const VersionState& state);
// cmdAttributes is enabled, when a version is opened, only for an
// application with a host emulator selected.
bool AttributesEnabled(const std::optional<qint32>& emulatorSelection);

} // namespace dorvane
