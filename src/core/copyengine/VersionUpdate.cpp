#include "core/copyengine/VersionBackup.h"

#include "core/copyengine/DatabaseCopy.h"
#include "core/copyengine/VersionContent.h"

#include "core/repository/Connection.h"
#include "core/repository/Interaction.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Transaction.h"

#include <optional>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

const QString kFailed = QStringLiteral("Error while creating new version:");
const QString kNotFullyCreated = QStringLiteral("! New version not fully created.");

} // namespace

bool VersionBackup::UpdateVersion(qint32 sourceVersionKey, qint32 destinationVersionKey, qint32 environmentKey,
                                  const UpdateParts& parts)
{
    std::optional<BusyScope> busy;
    std::optional<OperationLocks> locks;
    std::optional<Transaction> transaction;
    try {
        DestinationConnection = OpenDestinationDatabase();
        ResetCopyRunMaps(false);
        busy.emplace(m_busy);
        m_progress.SetTitle(QStringLiteral("Version update progress..."));
        m_progress.ShowWindow();
        if (!DestinationConnection)
            throw DbError(QStringLiteral("The destination database is not open."));
        Connection& db = *DestinationConnection;
        db.BatchWrites(true);
        locks.emplace(db, std::vector<OperationLocks::Target>{{OperationLocks::Kind::Environment, environmentKey},
                                                              {OperationLocks::Kind::Version, destinationVersionKey}});
        transaction.emplace(db);
        if (parts.check && !parts.check(db)) {
            transaction.reset();
            locks.reset();
            busy.reset();
            DestinationConnection.reset();
            m_progress.HideWindow();
            return false;
        }

        // Within one database: the destination connection reads and writes.
        bool ok = CopyWindows(sourceVersionKey, destinationVersionKey, db, false) &&
                  CopyProcesses(sourceVersionKey, destinationVersionKey, environmentKey, db) &&
                  CopyCycles(sourceVersionKey, destinationVersionKey, db) &&
                  CopyVariables(sourceVersionKey, destinationVersionKey, db) &&
                  CopyRequirements(sourceVersionKey, destinationVersionKey, db);
        if (ok) {
            // A failed fix-up fails the update but the re-pointing still runs.
            ok = FixUpSteps(destinationVersionKey, db);

            // The environment's other versions: their step windows that
            // visit the source version now visit the destination version,
            // their steps' objects and windows the copies. A key not in its
            // map keeps its value.
            // The maps hold this one version.
            DatabaseCopy copy(db);
            const QString objectMap = map(copy, QStringLiteral("object"));
            const QString windowMap = map(copy, QStringLiteral("window"));
            const QString processMap = map(copy, QStringLiteral("process"));
            const QString otherVersions =
                QStringLiteral("SELECT iEnvironVerKey FROM tEnvironmentDetail WHERE iEnvironKey=%1 AND iEnvironVerKey<>%2")
                    .arg(environmentKey)
                    .arg(sourceVersionKey);
            const auto remapped = [](const QString& column, const QString& table, const QString& map) {
                return QStringLiteral("%1 = COALESCE(%2, %1)").arg(column, DatabaseCopy::Lookup(map, table + u'.' + column));
            };
            // Version by version, the bar counting them.
            const std::vector<std::pair<qint32, qint32>> others =
                copy.Rows(QStringLiteral("SELECT DISTINCT iEnvironVerKey, 0 FROM tEnvironmentDetail WHERE iEnvironKey=%1 "
                                         "AND iEnvironVerKey<>%2 ORDER BY iEnvironVerKey")
                              .arg(environmentKey)
                              .arg(sourceVersionKey));
            m_progress.SetAction(QStringLiteral("Fixing up other versions..."));
            m_progress.SetRange(0, float(others.size()));
            m_progress.SetValue(0);
            m_progress.Refresh();
            // The source version's step windows that the other versions'
            // processes hold, by version, found in one pass over the source
            // version's step windows, not in one for each version and
            // statement; each version's are found by the key, not by reading
            // every version's.
            const QString visitingTable =
                copy.TemporaryTable(QStringLiteral("dv_visiting"),
                                    QStringLiteral("version integer, step_window integer, PRIMARY KEY (version, step_window)"));
            db.Execute(QStringLiteral("DELETE FROM ") + visitingTable);
            db.Execute(QStringLiteral("INSERT INTO %1 (version, step_window) SELECT p.iProcessVerKey, sw.iStepWindowKey "
                                      "FROM tStepWindow sw JOIN tProcess p ON p.iProcessKey = sw.iStepWindowProcessKey "
                                      "WHERE sw.iStepWindowVerKey = %2 AND p.iProcessVerKey IN (%3)")
                           .arg(visitingTable, num(sourceVersionKey), otherVersions));
            for (std::size_t i = 0; i < others.size(); ++i) {
                const QString visiting =
                    QStringLiteral("SELECT step_window FROM %1 WHERE version = %2").arg(visitingTable).arg(others[i].first);
                // Only the steps whose object was copied change: the others
                // are not written again.
                // The steps through their step windows' index: the work
                // follows the visiting step windows, not the table.
                db.Execute(QStringLiteral("UPDATE tStep SET %1 WHERE iStepWindowKey %2 AND iStepObjectKey IN "
                                          "(SELECT old FROM %3)")
                               .arg(remapped(QStringLiteral("iStepObjectKey"), QStringLiteral("tStep"), objectMap),
                                    AmongKeys(db.backend(), visiting), objectMap));
                db.Execute(QStringLiteral("UPDATE tStepWindow SET %1, iStepWindowVerKey = %2 WHERE iStepWindowKey %3")
                               .arg(remapped(QStringLiteral("iStepWindowWindowKey"), QStringLiteral("tStepWindow"), windowMap))
                               .arg(destinationVersionKey)
                               .arg(AmongKeys(db.backend(), visiting)));
                m_progress.SetValue(float(i + 1));
                m_progress.Refresh();
                m_progress.Yield();
            }

            // Their cycles run the destination version's copies of the
            // source version's processes.
            m_progress.SetAction(QStringLiteral("Fixing up cycles..."));
            db.Execute(QStringLiteral("UPDATE tCycleProcess SET %1 WHERE iCycleKey IN (SELECT iCycleKey FROM tCycle WHERE "
                                      "iCycleVerKey IN (%2)) AND iProcessKey IN (SELECT old FROM %3)")
                           .arg(remapped(QStringLiteral("iProcessKey"), QStringLiteral("tCycleProcess"), processMap),
                                otherVersions, processMap));

            // The environment's record layouts: fields that take a variable
            // of the source version take its copy.
            m_progress.SetAction(QStringLiteral("Fixing up layouts..."));
            const QString variableMap = map(copy, QStringLiteral("variable"));
            db.Execute(QStringLiteral("UPDATE tField SET iFieldVarAppVerKey = %1, %2 WHERE iFieldVarAppVerKey = %3 AND "
                                      "iFieldRecordKey IN (SELECT iRecordKey FROM tRecord WHERE iRecordEnvironmentKey = %4)")
                           .arg(destinationVersionKey)
                           .arg(remapped(QStringLiteral("iFieldVarKey"), QStringLiteral("tField"), variableMap))
                           .arg(sourceVersionKey)
                           .arg(environmentKey));
            m_progress.Yield();

            // The destination version's own process and window pointers: a
            // pointer to a row the copy did not make becomes 0.
            QStringList pointers;
            const auto repoint = [&](const QStringList& columns, const QString& mapTable) {
                for (const QString& column : columns)
                    pointers << QStringLiteral("%1 = CASE WHEN %1 > 0 THEN COALESCE(%2, 0) ELSE %1 END")
                                    .arg(column, DatabaseCopy::Lookup(mapTable, column));
            };
            repoint(VersionProcessPointers(), processMap);
            repoint(VersionWindowPointers(), windowMap);
            db.Execute(QStringLiteral("UPDATE tVersion SET %1, iVersionSourceVersion = %2 WHERE iVersionKey = %3")
                           .arg(pointers.join(QStringLiteral(", ")), num(sourceVersionKey), num(destinationVersionKey)));
            if (ok && parts.finish)
                parts.finish(db);
        }

        busy.reset();
        if (ok)
            transaction->Commit();
        else
            transaction->Rollback();
        transaction.reset();
        locks.reset();
        DestinationConnection.reset();
        m_progress.HideWindow();
        return ok;
    } catch (const DbError& e) {
        // Rolled back before the message is shown: the repository is not
        // held while the administrator reads it. The connection stays open
        // on this path.
        transaction.reset();
        locks.reset();
        m_messages->Show(kFailed + e.description() + kNotFullyCreated, Buttons::Ok);
        busy.reset();
        m_progress.HideWindow();
        return false;
    }
}

} // namespace dorvane
