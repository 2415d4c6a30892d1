#include "core/copyengine/VersionBackup.h"

#include "core/repository/Connection.h"
#include "core/repository/Interaction.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <optional>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

const QString kFailed = QStringLiteral("Error while creating new version:");
const QString kNotFullyCreated = QStringLiteral("! New version not fully created.");

// Rewrites a key column through a map where the lookup finds it; a key not
// in the map keeps its value.
void remap(Recordset& rs, const QString& column, const KeyMap& map, qint32 length)
{
    const qint32 mapped = LookupNewKey(map, rs.Int(column), length);
    if (mapped > 0)
        rs.SetValue(column, mapped);
}

} // namespace

bool VersionBackup::UpdateVersion(qint32 sourceVersionKey, qint32 destinationVersionKey, qint32 environmentKey,
                                  const UpdateParts& parts)
{
    std::optional<BusyScope> busy;
    std::optional<OperationLocks> locks;
    std::optional<Transaction> transaction;
    try {
        DestinationConnection = OpenDestinationDatabase();
        ObjectMap.ResetLength();
        WindowMap.ResetLength();
        ProcessMap.ResetLength();
        CycleMap.ResetLength();
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
        bool ok = CopyWindows(sourceVersionKey, db, destinationVersionKey, db, false) &&
                  CopyProcesses(sourceVersionKey, environmentKey, db, destinationVersionKey, environmentKey, db) &&
                  CopyCycles(sourceVersionKey, db, destinationVersionKey, db) &&
                  CopyVariables(sourceVersionKey, db, destinationVersionKey, db) &&
                  CopyRequirements(sourceVersionKey, db, destinationVersionKey, db);
        if (ok) {
            // A failed fix-up fails the update but the re-pointing still runs.
            ok = FixUpSteps(destinationVersionKey, db);

            // The maps hold this one version: their batch counts are their
            // lengths.
            const qint32 windows = WindowMap.BatchCount();
            const qint32 processes = ProcessMap.BatchCount();

            // The environment's other versions: their step windows that
            // visit the source version now visit the destination version.
            Recordset others(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=") + num(environmentKey) +
                                 QStringLiteral(" AND iEnvironVerKey<>") + num(sourceVersionKey),
                             db);
            Recordset otherProcesses;
            Recordset stepWindows;
            Recordset steps;
            while (!others.Eof()) {
                otherProcesses.Open(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=") +
                                        num(others.Int(QStringLiteral("iEnvironVerKey"))),
                                    db);
                while (!otherProcesses.Eof()) {
                    stepWindows.Open(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=") +
                                         num(otherProcesses.Int(QStringLiteral("iProcessKey"))) +
                                         QStringLiteral(" AND iStepWindowVerKey=") + num(sourceVersionKey) +
                                         QStringLiteral(" ORDER BY iStepWindowSequenceNum"),
                                     db);
                    while (!stepWindows.Eof()) {
                        steps.Open(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey=") +
                                       num(stepWindows.Int(QStringLiteral("iStepWindowKey"))) +
                                       QStringLiteral(" ORDER BY iStepSequenceNum"),
                                   db);
                        while (!steps.Eof()) {
                            remap(steps, QStringLiteral("iStepObjectKey"), ObjectMap, ObjectMap.Length());
                            steps.Update();
                            steps.MoveNext();
                        }
                        remap(stepWindows, QStringLiteral("iStepWindowWindowKey"), WindowMap, windows);
                        stepWindows.SetValue(QStringLiteral("iStepWindowVerKey"), destinationVersionKey);
                        stepWindows.Update();
                        stepWindows.MoveNext();
                    }
                    otherProcesses.MoveNext();
                }
                others.MoveNext();
            }

            // Their cycles run the destination version's copies of the
            // source version's processes.
            m_progress.SetAction(QStringLiteral("Fixing up cycles..."));
            Recordset cycles;
            Recordset cycleProcesses;
            others.MoveFirst();
            while (!others.Eof()) {
                cycles.Open(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey=") +
                                num(others.Int(QStringLiteral("iEnvironVerKey"))),
                            db);
                while (!cycles.Eof()) {
                    cycleProcesses.Open(QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey=") +
                                            num(cycles.Int(QStringLiteral("iCycleKey"))),
                                        db);
                    while (!cycleProcesses.Eof()) {
                        const qint32 mapped =
                            LookupNewKey(ProcessMap, cycleProcesses.Int(QStringLiteral("iProcessKey")), processes);
                        if (mapped > 0) {
                            cycleProcesses.SetValue(QStringLiteral("iProcessKey"), mapped);
                            cycleProcesses.Update();
                        }
                        cycleProcesses.MoveNext();
                    }
                    cycles.MoveNext();
                }
                others.MoveNext();
            }

            // The environment's record layouts: fields that take a variable
            // of the source version take its copy.
            m_progress.SetAction(QStringLiteral("Fixing up layouts..."));
            Recordset layouts(QStringLiteral("SELECT * FROM tRecord WHERE iRecordEnvironmentKey=") + num(environmentKey),
                              db);
            Recordset fields;
            while (!layouts.Eof()) {
                fields.Open(QStringLiteral("SELECT  * FROM tField WHERE iFieldRecordKey=") +
                                num(layouts.Int(QStringLiteral("iRecordKey"))),
                            db);
                while (!fields.Eof()) {
                    if (fields.Int(QStringLiteral("iFieldVarAppVerKey")) == sourceVersionKey) {
                        fields.SetValue(QStringLiteral("iFieldVarAppVerKey"), destinationVersionKey);
                        remap(fields, QStringLiteral("iFieldVarKey"), VariableMap, VariableMap.Length());
                        fields.Update();
                    }
                    fields.MoveNext();
                }
                m_progress.Yield();
                layouts.MoveNext();
            }

            // The destination version's own process and window pointers.
            Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey =") + num(destinationVersionKey),
                              db);
            for (const char* column : {"iVersionLoadProcess", "iVersionLoginProcess", "iVersionLogoutProcess",
                                       "iVersionTerminateProcess", "iVersionRecoverProcess"}) {
                const QString name = QString::fromLatin1(column);
                const qint32 key = version.Int(name);
                if (key > 0)
                    version.SetValue(name, LookupNewKey(ProcessMap, key, processes));
            }
            for (const char* column : {"iVersionInitialWindow", "iVersionMainWindow"}) {
                const QString name = QString::fromLatin1(column);
                const qint32 key = version.Int(name);
                if (key > 0)
                    version.SetValue(name, LookupNewKey(WindowMap, key, windows));
            }
            version.SetValue(QStringLiteral("iVersionSourceVersion"), sourceVersionKey);
            version.Update();
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
