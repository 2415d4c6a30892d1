#include "core/copyengine/VersionBackup.h"

#include "core/copyengine/VersionContent.h"
#include "core/repository/Connection.h"
#include "core/repository/History.h"
#include "core/repository/Interaction.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <QScopeGuard>

#include <optional>
#include <vector>

namespace dorvane {

bool DeleteVersionContents(qint32 versionKey, Connection& connection, MessageSink& messages)
{
    // One statement a table, children before their parents; the version's
    // requirements stay.
    const std::vector<ContentDeletion> deletions = DeleteVersionContentsStatements(versionKey, connection.backend());
    // The table being deleted from names the failure.
    QString stage = deletions.front().stage;
    // The pages the deletion read are given back when it ends.
    const auto releaseMemory = qScopeGuard([&connection] { connection.ReleaseMemory(); });
    // Inside a larger transaction (an application's deletion) this is one
    // part of it: a failure here rolls the whole of it back.
    std::optional<OperationLocks> locks;
    std::optional<Transaction> transaction;
    try {
        // Held against other operations for the deletion's length (a larger
        // deletion holds its versions itself, before its transaction).
        if (!connection.InTransaction())
            locks.emplace(connection, std::vector<OperationLocks::Target>{{OperationLocks::Kind::Version, versionKey}});
        transaction.emplace(connection);

        for (const ContentDeletion& deletion : deletions) {
            stage = deletion.stage;
            CountWrittenRows(connection.Execute(deletion.sql));
        }

        // The version row itself (a version that is not there fails here);
        // a failure is still named by the windows' stage.
        stage = QStringLiteral("Windows");
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(versionKey),
                          connection);
        version.Delete();
        CountWrittenRows(1);
        connection.SendHeldWrites();

        transaction->Commit();
        return true;
    } catch (const DbError& e) {
        transaction.reset();
        locks.reset();
        messages.Show(QStringLiteral("Error while deleting %1:").arg(stage) + e.description() +
                          QStringLiteral("! New version not fully deleted."),
                      Buttons::Ok);
        return false;
    }
}

} // namespace dorvane
