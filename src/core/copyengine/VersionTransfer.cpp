#include "core/copyengine/VersionTransfer.h"

#include "core/copyengine/VersionBackup.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/History.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/repository/Retry.h"

#include <functional>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

QString failurePrefix(VersionTransferKind kind)
{
    return kind == VersionTransferKind::Update
               ? QStringLiteral("Error while updating environment application version: ")
               : QStringLiteral("Error while copying environment application version: ");
}

// The checks; DbError goes to the caller's trap.
bool passesChecks(VersionTransferKind kind, const VersionTransferRequest& request, Connection& connection,
                  MessageSink& messages)
{
    const bool update = kind == VersionTransferKind::Update;
    if (!request.ListedVersionKey) {
        messages.Inform(QStringLiteral("Please select target application version from the list on the right"));
        return false;
    }
    if (request.ChosenVersionText.isEmpty()) {
        messages.Inform(update ? QStringLiteral("You must select a source version and a destination version to update")
                               : QStringLiteral("You must select a source version and a destination version to Copy"));
        return false;
    }
    Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(*request.ListedVersionKey),
                      connection);
    Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(version.Int(QStringLiteral("iVersionAppKey"))),
                  connection);
    if (app.Int(QStringLiteral("iAppKey")) != request.AppKey) {
        messages.Inform(QStringLiteral("The source and destination versions must belong to the same application"));
        return false;
    }
    // No window, or only the seeded system screen: the version is new.
    Recordset windows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + num(request.ChosenVersionKey),
                      connection);
    if (CountRecords(&windows) > 1) {
        messages.Inform(update ? QStringLiteral("You can only update an existing application version from a new (empty) one")
                               : QStringLiteral("You can only Copy an existing application version to a new (empty) one"));
        return false;
    }
    // Another operation may have moved the environment on since the list
    // was shown.
    if (update) {
        Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") + num(request.EnvironKey) +
                             QStringLiteral(" AND iEnvironVerKey=") + num(*request.ListedVersionKey),
                         connection);
        if (detail.Eof()) {
            messages.Inform(QStringLiteral("The environment no longer lists this version: another operation has "
                                           "changed it. Refresh the list and try again."));
            return false;
        }
    }
    return true;
}

} // namespace

bool CheckVersionTransfer(VersionTransferKind kind, const VersionTransferRequest& request, Connection& connection,
                          MessageSink& messages)
{
    try {
        return passesChecks(kind, request, connection, messages);
    } catch (const DbError& e) {
        messages.Inform(failurePrefix(kind) + e.description());
        return false;
    }
}

VersionTransferOutcome TransferVersion(VersionTransferKind kind, const VersionTransferRequest& request,
                                       Connection& connection, VersionBackup& backup, MessageSink& shown)
{
    HistoryRecord record(shown, connection.connectionString(),
                         kind == VersionTransferKind::Update ? HistoryOperation::UpdateVersion : HistoryOperation::CopyVersion);
    record.EnvironmentKey(request.EnvironKey);
    MessageSink& messages = record;
    VersionTransferOutcome outcome;
    try {
        if (!passesChecks(kind, request, connection, messages)) {
            record.Refused();
            return outcome;
        }
        const qint32 listed = *request.ListedVersionKey;
        {
            Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(listed), connection);
            Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(request.AppKey), connection);
            record.Name(QString(), QStringLiteral("%1 - %2 -> %3").arg(app.Text(QStringLiteral("sAppName")),
                                                                       version.Text(QStringLiteral("sVersionID")),
                                                                       request.ChosenVersionText));
        }
        // The checks again inside the copy's transaction, on what other
        // operations have left: two updates of one version take turns, and
        // the second finds it filled. An update's list entry moves in the
        // same transaction: the environment never lists the old version
        // beside a filled new one.
        VersionBackup::UpdateParts parts;
        MessageSink* attemptMessages = &messages;
        parts.check = [&](Connection& db) {
            const bool passed = passesChecks(kind, request, db, *attemptMessages);
            if (!passed)
                record.Refused();
            return passed;
        };
        if (kind == VersionTransferKind::Update) {
            parts.finish = [&request, listed](Connection& db) {
                Recordset detail(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") +
                                     num(request.EnvironKey) + QStringLiteral(" AND iEnvironVerKey=") + num(listed),
                                 db);
                detail.SetValue(QStringLiteral("iEnvironVerKey"), request.ChosenVersionKey);
                detail.Update();
            };
        }
        const bool updated = RetryOnConcurrentChange(messages, [&](MessageSink& held) {
            attemptMessages = &held;
            const auto redirect = backup.MessagesTo(held);
            return backup.UpdateVersion(listed, request.ChosenVersionKey, request.EnvironKey, parts);
        });
        if (!updated)
            return outcome;
        outcome.RefreshEnvironAppVerList = kind == VersionTransferKind::Update;
        outcome.Ok = true;
        record.Done();
        return outcome;
    } catch (const DbError& e) {
        messages.Inform(failurePrefix(kind) + e.description());
        return outcome;
    }
}

} // namespace dorvane
