#include "core/copyengine/VersionBackup.h"

#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/HeldWrites.h"
#include "core/repository/Interaction.h"
#include "core/repository/OperationLocks.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <optional>

#include <vector>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

// Deletes every row of a record set, one by one.
void deleteAll(Recordset& rs)
{
    while (!rs.Eof()) {
        rs.Delete();
        rs.MoveNext();
    }
}

} // namespace

bool DeleteVersionContents(qint32 versionKey, Connection& connection, MessageSink& messages)
{
    // The table being deleted from names the failure.
    QString stage;
    const auto enter = [&stage](const char* table) { stage = QStringLiteral("Error while deleting %1:").arg(QLatin1String(table)); };
    // On a server deletions are held and sent in batches (HeldWrites), by
    // the end of each part at the latest: a failed batch is named by the
    // part's stage for its table.
    struct HeldStage {
        const char* table;
        const char* stage;
    };
    std::vector<HeldStage> heldStages;
    const auto endPart = [&](std::vector<HeldStage> next) {
        connection.SendHeldWrites();
        heldStages = std::move(next);
    };
    const WriteBatching batching(connection);
    enter("Variables");
    heldStages = {{"tUserVar", "Variables"}};
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

        Recordset variables(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey = ") + num(versionKey), connection);
        if (CountRecords(&variables) > 0)
            deleteAll(variables);

        // Children always go before their parent row.
        endPart({{"tKeywordRel", "Cycle Keywords"}, {"tCycleProcess", "Cycle Processes"}, {"tCycle", "Cycles"}});
        enter("Cycles");
        Recordset cycles(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey =") + num(versionKey), connection);
        Recordset children;
        ChildReads cycleRelations(connection, QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelCycleKey = "),
                                  QString(), QStringLiteral("tKeywordRel"), QStringLiteral("iKeywordRelCycleKey"));
        ChildReads cycleProcesses(connection, QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey = "), QString(),
                                  QStringLiteral("tCycleProcess"), QStringLiteral("iCycleKey"));
        if (cycleProcesses.ReadsInBlocks()) {
            const std::vector<qint32> keys = ColumnKeys(cycles, QStringLiteral("iCycleKey"));
            cycleRelations.SetParents(keys);
            cycleProcesses.SetParents(keys);
        }
        while (!cycles.Eof()) {
            const qint32 cycleKey = cycles.Int(QStringLiteral("iCycleKey"));
            enter("Cycle Keywords");
            cycleRelations.Open(children, cycleKey);
            deleteAll(children);
            enter("Cycle Processes");
            cycleProcesses.Open(children, cycleKey);
            deleteAll(children);
            enter("Cycles");
            cycles.Delete();
            cycles.MoveNext();
        }

        endPart({{"tStep", "Steps"}, {"tStepWindow", "Step Windows"}, {"tKeywordRel", "Process Keywords"},
                 {"tProcess", "Processes"}});
        enter("Processes");
        Recordset processes(QStringLiteral("SELECT * from tProcess WHERE iProcessVerKey = ") + num(versionKey), connection);
        Recordset stepWindows;
        ChildReads steps(connection, QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey = "), QString(),
                         QStringLiteral("tStep"), QStringLiteral("iStepWindowKey"));
        ChildReads processStepWindows(connection, QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey = "),
                                      QStringLiteral(" ORDER BY iStepWindowSequenceNum"), QStringLiteral("tStepWindow"),
                                      QStringLiteral("iStepWindowProcessKey"), QStringLiteral("iStepWindowSequenceNum"));
        processStepWindows.FeedChildren(steps);
        ChildReads processRelations(connection, QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelProcessKey = "),
                                    QString(), QStringLiteral("tKeywordRel"), QStringLiteral("iKeywordRelProcessKey"));
        if (processStepWindows.ReadsInBlocks()) {
            const std::vector<qint32> keys = ColumnKeys(processes, QStringLiteral("iProcessKey"));
            processStepWindows.SetParents(keys);
            processRelations.SetParents(keys);
        }
        while (!processes.Eof()) {
            const qint32 processKey = processes.Int(QStringLiteral("iProcessKey"));
            enter("Step Windows");
            processStepWindows.Open(stepWindows, processKey);
            while (!stepWindows.Eof()) {
                enter("Steps");
                steps.Open(children, stepWindows.Int(QStringLiteral("iStepWindowKey")));
                deleteAll(children);
                enter("Step Windows");
                stepWindows.Delete();
                stepWindows.MoveNext();
            }
            enter("Process Keywords");
            processRelations.Open(children, processKey);
            deleteAll(children);
            enter("Processes");
            processes.Delete();
            processes.MoveNext();
        }

        endPart({{"tObject", "Objects"}, {"tWindow", "Windows"}});
        enter("Windows");
        Recordset windows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + num(versionKey), connection);
        ChildReads objects(connection, QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey = "), QString(),
                           QStringLiteral("tObject"), QStringLiteral("iObjectWindowKey"));
        if (objects.ReadsInBlocks())
            objects.SetParents(ColumnKeys(windows, QStringLiteral("iWindowKey")));
        while (!windows.Eof()) {
            enter("Objects");
            objects.Open(children, windows.Int(QStringLiteral("iWindowKey")));
            deleteAll(children);
            enter("Windows");
            windows.Delete();
            windows.MoveNext();
        }

        // The version row itself; a failure here is still named by the
        // windows' stage.
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(versionKey), connection);
        version.Delete();

        transaction->Commit();
        return true;
    } catch (const DbError& e) {
        const QString heldTable = e.table();
        for (const HeldStage& held : heldStages) {
            if (heldTable.compare(QLatin1String(held.table), Qt::CaseInsensitive) == 0)
                enter(held.stage);
        }
        transaction.reset();
        locks.reset();
        messages.Show(stage + e.description() + QStringLiteral("! New version not fully deleted."), Buttons::Ok);
        return false;
    }
}

} // namespace dorvane
