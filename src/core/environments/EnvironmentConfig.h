#pragma once

#include "core/lists/ListQueries.h"

#include <QString>

#include <optional>

namespace dorvane {

class Connection;
class EnvironmentRecords;
class MessageSink;

// The test tool that marks a host application: only with it is an
// emulator required.
inline const QString kHostTestTool = QStringLiteral("Mainframe");

// cbEnvironApp chosen: the application's versions for cbEnvironVer and,
// for an application on a host platform, its default emulator to preselect.
struct EnvironAppChoice {
    bool Ok = false;
    ListEntries Versions;                  // text sVersionID, key iVersionKey
    std::optional<qint32> PreselectEmulator;  // iApp3270Key of a host application
};

// cbEnvironTestTool chosen: whether the emulator list is usable.
struct EnvironTestToolChoice {
    bool Ok = false;       // false also when ignored (EditLoading)
    bool EmulatorUsable = false;
};

// A listed version highlighted: what the drop-downs select.
struct EnvironListedVersion {
    bool Ok = false;
    qint32 AppKey = 0;           // select in cbEnvironApp
    ListEntries Versions;        // refill cbEnvironVer
    qint32 VersionKey = 0;       // and select it
    std::optional<qint32> TestToolKey;  // select in cbEnvironTestTool; none: leave it
    // Select in cbEnvironEmulator on a host platform; none: no selection.
    std::optional<qint32> EmulatorKey;
};

// The configuration page's selections when Add (or the configuration Save)
// is pressed. An optional key is empty when the drop-down has no selection.
struct EnvironConfigInput {
    std::optional<qint32> AppKey;       // cbEnvironApp
    QString AppText;
    std::optional<qint32> VersionKey;   // cbEnvironVer
    QString VersionText;
    std::optional<qint32> TestToolKey;  // cbEnvironTestTool
    QString TestToolText;
    std::optional<qint32> EmulatorKey;  // cbEnvironEmulator
    QString EmulatorText;
    ListEntries Listed;                 // lbEnvironAppVerList, in order
};

struct EnvironAddOutcome {
    bool Ok = false;  // the detail row was written
    // Append this entry to lbEnvironAppVerList (a version not listed yet).
    std::optional<ListEntry> NewEntry;
};

struct EnvironRemoveOutcome {
    bool Ok = false;  // remove the highlighted entry from lbEnvironAppVerList
};

// The configuration page of an environment without its widgets: the
// choices in the drop-downs, Add (which also changes a listed version's
// test tool and emulator), the configuration Save and Remove. Every
// command writes at once, without a transaction. Keeps ConfigDirty; reads
// CurrentEnvironKey and EnvironIsNew from the definition, and clears the
// definition's dirty flag where a command writes.
class EnvironmentConfig {
public:
    explicit EnvironmentConfig(EnvironmentRecords& definition) : m_definition(definition) {}

    bool ConfigDirty() const { return m_dirty; }
    // A click on cbEnvironVer or cbEnvironEmulator.
    void MarkDirty() { m_dirty = true; }
    // After Update or Copy (VersionTransfer) has written: both the
    // configuration and the definition are clean.
    void VersionCommandDone();

    // RefreshEnvironAppVerList: the entries of the environment's versions,
    // "App - VersionID". Clears ConfigDirty. On a database error shows
    // "Error while refreshing Environment detail: " and returns the entries
    // read before it.
    ListEntries RefreshEnvironAppVerList(Connection& connection, MessageSink& messages);

    // A click on cbEnvironApp. Failure: "Error while opening environment
    // apps : ".
    EnvironAppChoice ChooseApp(qint32 appKey, Connection& connection, MessageSink& messages);
    // A click on cbEnvironTestTool, ignored while the program fills the
    // page. Failure: "Error while setting App Test Tool in Environment
    // Configuration: ".
    EnvironTestToolChoice ChooseTestTool(qint32 testToolKey, bool editLoading, Connection& connection,
                                         MessageSink& messages);
    // A click on an entry of lbEnvironAppVerList, ignored while the program
    // fills the page. Clears ConfigDirty. Failure: "Error while opening
    // environment app/version: ".
    EnvironListedVersion HighlightListed(qint32 versionKey, bool editLoading, Connection& connection,
                                         MessageSink& messages);

    // cmdAddAppVer, the checks in order: an application and a version
    // chosen; an emulator for "Mainframe"; a test tool; the version in no
    // other environment ("This application version already exists in
    // another environment (NAME)"). A version not listed yet asks "Are you
    // sure you want multiple versions of this application in the same
    // environment?" once per listed version of the same application (No
    // stops), takes its processes' step windows into this environment and
    // becomes a new entry. Then the detail row is written. Failure: "Error
    // while adding an application/version to environment: ".
    EnvironAddOutcome Add(const EnvironConfigInput& input, Connection& connection, MessageSink& messages);

    // cmdEnvironConfigSave: Add; SaveOk when ConfigDirty is clear after it.
    bool SaveConfiguration(const EnvironConfigInput& input, Connection& connection, MessageSink& messages,
                           EnvironAddOutcome* addOutcome = nullptr);

    // cmdRemoveAppVer with the listed version `versionKey` highlighted
    // (none: nothing happens): refused with "Error: This application
    // version is referenced in existing steps and cannot be removed" when a
    // step window of this environment uses the version; otherwise a stored
    // environment's detail row goes. Failure: "Error while removing
    // application version from environment: ".
    EnvironRemoveOutcome Remove(std::optional<qint32> versionKey, Connection& connection, MessageSink& messages);

private:
    EnvironmentRecords& m_definition;
    bool m_dirty = false;
};

} // namespace dorvane
