#pragma once

#include <QString>

#include <optional>

namespace dorvane {

class Connection;
class MessageSink;

// An application ID as stored and as its folder is named: blanks, "/",
// ".", "!", "-", "?", "[", "]", ":", "*" and double quotes become "_";
// letter case is kept.
QString NormaliseAppId(const QString& typedId);

// Whether a platform needs a 3270 emulator (false when it has no row).
// Throws DbError.
bool PlatformIsHost(Connection& connection, qint32 platformKey);

// What the application editor shows for one stored application.
struct ApplicationRecord {
    QString name; // sAppName
    QString environ; // mAppEnviron
    // iAppPlatform; empty when the column is Null: the editor then shows
    // the first platform, disables the platform drop-down and keeps its
    // current platform key and host flag.
    std::optional<qint32> platformKey;
    bool AppIsHost = false; // the platform needs a 3270 emulator
    qint32 emulatorKey = 0; // iApp3270Key, for a host platform only
    QString id; // sAppID
    QString description; // sAppDesc
    QString AppFolderName; // the stored sAppID
};

// The fields of the application editor as typed and selected.
struct ApplicationInput {
    QString name;
    QString id;
    QString description;
    QString environ;
    std::optional<qint32> platformKey; // item data of the platform selection
    std::optional<qint32> emulatorKey; // item data of the emulator selection
    QString emulatorText; // the text the emulator drop-down shows
};

// The editor state a save reads and changes.
struct ApplicationState {
    qint32 CurrentAppKey = 0; // 0 for a new application
    bool AppIsNew = true;
    qint32 CurrentPlatformKey = 0;
    QString AppFolderName;
    bool AppIsHost = false;
};

struct ApplicationSaveOutcome {
    bool SaveOk = false;
    // The state as the save left it, also after a failure. The platform key
    // is taken before the emulator check, so that refusal already shows
    // it. Once the row is written the application is a stored one (not
    // new, its key and its folder name, the stored ID, learnt), even when
    // the folder work after it fails; before that the folder name stays
    // the stored ID of the application shown.
    ApplicationState state;
    bool dirtyCleared = false; // the row was written
    QString focusField; // object name of the field to focus; empty: leave it
    int mainTab = -1; // page of SSMainTab to select; -1: leave it
    int appTab = -1; // page of SSAppTab to select; -1: leave it
};

// Opens and saves rows of tApp for the application editor, and keeps the
// application folders under sharedResourcePath & "\Apps". Every message
// goes through the message sink.
class ApplicationRecords {
public:
    ApplicationRecords(Connection& connection, MessageSink& messages, QString sharedResourcePath);

    // Empty after a database error, which has been shown.
    std::optional<ApplicationRecord> Open(qint32 appKey);

    // Checks the input in order, each failure with its message and the
    // field to focus (nothing written), then writes the row, learns its key
    // and renames the folder when the ID changed, or creates it when it is
    // missing. An ID typed as stored is written as stored, not normalised. On success the outcome points at
    // the versions page (SSAppTab page 1, focus txtVersionID).
    ApplicationSaveOutcome Save(const ApplicationInput& input, const ApplicationState& state);

private:
    Connection& m_connection;
    MessageSink& m_messages;
    QString m_sharedResourcePath;
};

} // namespace dorvane
