#pragma once

#include <QString>

#include <optional>

namespace dorvane {

class Connection;
class MessageSink;
class VersionBackup;

// The two version operations of an environment's configuration page.
// Update: the listed (target) version's content goes into the version
// chosen in the drop-downs, which then takes the listed version's place in
// the environment. Copy: the same copy, the environment keeps its versions.
enum class VersionTransferKind { Update, Copy };

// What the configuration page holds when Update or Copy is pressed.
struct VersionTransferRequest {
    qint32 EnvironKey = 0;                   // CurrentEnvironKey
    std::optional<qint32> ListedVersionKey;  // lbEnvironAppVerList's highlighted entry; none when nothing is
    qint32 AppKey = 0;                       // cbEnvironApp's item data
    QString ChosenVersionText;               // cbEnvironVer's text
    qint32 ChosenVersionKey = 0;             // cbEnvironVer's item data
};

// The checks before the copy, in order, each with its message: a listed
// version is highlighted, a version is chosen, both belong to the same
// application, and the chosen version is new (at most one window, its
// seeded system screen). Reads through `connection`; a database failure
// shows "Error while updating environment application version: " (Copy:
// "Error while copying environment application version: ") and the
// description. True when the operation may go ahead.
bool CheckVersionTransfer(VersionTransferKind kind, const VersionTransferRequest& request, Connection& connection,
                          MessageSink& messages);

struct VersionTransferOutcome {
    bool Ok = false;
    // The environment's version list shows another version now.
    bool RefreshEnvironAppVerList = false;
};

// The whole button: the checks, UpdateVersion(listed, chosen, environment)
// on the backup's own connection, and for Update the environment's detail
// row moved from the listed to the chosen version through `connection`.
VersionTransferOutcome TransferVersion(VersionTransferKind kind, const VersionTransferRequest& request,
                                       Connection& connection, VersionBackup& backup, MessageSink& messages);

} // namespace dorvane
