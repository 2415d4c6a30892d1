#include "copyengine/VersionBackup.h"

#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Interaction.h"
#include "repository/Recordset.h"

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
    enter("Variables");
    try {
        connection.BeginTrans();

        Recordset variables(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey = ") + num(versionKey), connection);
        if (CountRecords(&variables) > 0)
            deleteAll(variables);

        // Children always go before their parent row.
        enter("Cycles");
        Recordset cycles(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey =") + num(versionKey), connection);
        Recordset children;
        while (!cycles.Eof()) {
            const qint32 cycleKey = cycles.Int(QStringLiteral("iCycleKey"));
            enter("Cycle Keywords");
            children.Open(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelCycleKey = ") + num(cycleKey), connection);
            deleteAll(children);
            enter("Cycle Processes");
            children.Open(QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey = ") + num(cycleKey), connection);
            deleteAll(children);
            enter("Cycles");
            cycles.Delete();
            cycles.MoveNext();
        }

        enter("Processes");
        Recordset processes(QStringLiteral("SELECT * from tProcess WHERE iProcessVerKey = ") + num(versionKey), connection);
        Recordset stepWindows;
        while (!processes.Eof()) {
            const qint32 processKey = processes.Int(QStringLiteral("iProcessKey"));
            enter("Step Windows");
            stepWindows.Open(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey = ") + num(processKey) +
                                 QStringLiteral(" ORDER BY iStepWindowSequenceNum"),
                             connection);
            while (!stepWindows.Eof()) {
                enter("Steps");
                children.Open(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey = ") +
                                  num(stepWindows.Int(QStringLiteral("iStepWindowKey"))),
                              connection);
                deleteAll(children);
                enter("Step Windows");
                stepWindows.Delete();
                stepWindows.MoveNext();
            }
            enter("Process Keywords");
            children.Open(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelProcessKey = ") + num(processKey),
                          connection);
            deleteAll(children);
            enter("Processes");
            processes.Delete();
            processes.MoveNext();
        }

        enter("Windows");
        Recordset windows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + num(versionKey), connection);
        while (!windows.Eof()) {
            enter("Objects");
            children.Open(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey = ") +
                              num(windows.Int(QStringLiteral("iWindowKey"))),
                          connection);
            deleteAll(children);
            enter("Windows");
            windows.Delete();
            windows.MoveNext();
        }

        // The version row itself; a failure here is still named by the
        // windows' stage.
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + num(versionKey), connection);
        version.Delete();

        connection.CommitTrans();
        return true;
    } catch (const DbError& e) {
        messages.Show(stage + e.description() + QStringLiteral("! New version not fully deleted."), Buttons::Ok);
        if (connection.InTransaction()) {
            try {
                connection.RollbackTrans();
            } catch (const DbError& rollbackError) {
                messages.Show(stage + rollbackError.description() + QStringLiteral("! New version not fully deleted."),
                              Buttons::Ok);
            }
        }
        return false;
    }
}

} // namespace dorvane
