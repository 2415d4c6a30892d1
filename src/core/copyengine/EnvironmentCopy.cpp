#include "core/copyengine/EnvironmentCopy.h"

#include "core/copyengine/DatabaseCopy.h"

#include "core/applications/AppFolders.h"
#include "core/copyengine/CopyStep.h"
#include "core/users/ModuleRights.h"
#include "core/copyengine/VersionBackup.h"
#include "core/copyengine/VersionContent.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <QScopeGuard>
#include <QSqlDatabase>
#include <QStringList>

#include <optional>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

const QString kCopyFailed = QStringLiteral("Error while copying environment: ");
const QString kRecordsetsFailed = QStringLiteral("Error while copying environment recordsets: ");
const QString kPointersFailed = QStringLiteral("Error while fixing up recordset pointers: ");


// Taken from the source version by the new one; its ID is the one asked
// for, its application set apart.
const QStringList kVersionColumns = KeptColumns(QStringLiteral("tVersion"), {QStringLiteral("sVersionID")});
const QStringList kRecordColumns = KeptColumns(QStringLiteral("tRecord"));
const QStringList kFieldColumns = KeptColumns(QStringLiteral("tField"));
const QStringList kFileInstanceColumns = KeptColumns(QStringLiteral("tFileInstance"));

const QString kDataInstanceColumn = QStringLiteral("iRecordFileInstanceKey");


// Rewrites a key column through a map over its whole length; a key the map
// does not hold keeps its value. True when the column changed.
// The data table a layout names, as the test data database spells it;
// empty when there is none.
QString existingTable(Connection& testData, const QString& name)
{
    if (name.isEmpty())
        return QString();
    const QStringList tables = testData.database().tables(QSql::Tables);
    for (const QString& table : tables) {
        if (table.compare(name, Qt::CaseInsensitive) == 0)
            return table;
    }
    return QString();
}

// The rows of a layout's data table that belong to one file instance,
// copied whole for the instance's copy. Their columns are the table's own,
// whatever they are.
void copyDataRows(Connection& testData, const QString& dataTable, qint32 oldInstanceKey, qint32 newInstanceKey)
{
    const QString table = QStringLiteral("[") + dataTable + QStringLiteral("]");
    Recordset rows(QStringLiteral("SELECT * FROM ") + table + QStringLiteral(" WHERE ") + kDataInstanceColumn +
                       QStringLiteral("=") + num(oldInstanceKey),
                   testData);
    Recordset newRows(QStringLiteral("SELECT * FROM ") + table, testData);
    const QStringList columns = rows.FieldNames();
    const QString key = newRows.KeyField();
    while (!rows.Eof()) {
        newRows.AddNew();
        for (const QString& column : columns) {
            if (column.compare(key, Qt::CaseInsensitive) == 0 ||
                column.compare(kDataInstanceColumn, Qt::CaseInsensitive) == 0)
                continue;
            newRows.SetValue(column, rows.Value(column));
        }
        newRows.SetValue(kDataInstanceColumn, newInstanceKey);
        newRows.Update();
        rows.MoveNext();
    }
}

} // namespace

EnvironmentCopy::EnvironmentCopy(VersionBackup& engine, Connection& mainConnection, NewVersionIdPrompt& prompt,
                                 Connection* testData)
    : m_engine(engine), m_main(mainConnection), m_prompt(prompt), m_testData(testData)
{
}

QString EnvironmentCopy::PromptLabel(const QString& appName, const QString& versionId)
{
    return QStringLiteral("Enter the new Version ID for ") + appName + QStringLiteral(" - ") + versionId +
           QStringLiteral(":");
}

std::optional<std::pair<qint32, bool>> EnvironmentCopy::versionNamed(qint32 appKey, const QString& id)
{
    Recordset versions(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=") + num(appKey) +
                           QStringLiteral(" AND sVersionID='") + QuoteSql(id) + QStringLiteral("'"),
                       m_main);
    if (versions.Eof())
        return std::nullopt;
    const qint32 versionKey = versions.Int(QStringLiteral("iVersionKey"));
    // Only a version with content is taken; one with no window or just its
    // seeded system screen counts as empty.
    Recordset windows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") + num(versionKey), m_main);
    return std::pair(versionKey, CountRecords(&windows) > 1);
}

bool EnvironmentCopy::NewVersionIdAcceptable(qint32 appKey, const QString& id)
{
    MessageSink& messages = m_engine.Messages();
    if (id.trimmed().isEmpty()) {
        messages.Inform(QStringLiteral("Version ID cannot be blank"));
        return false;
    }
    // The ID names the version's folder: what no folder name holds is
    // replaced, and "." and ".." are refused.
    if (const QString problem = FolderIdProblem(QStringLiteral("version ID"), CleanFolderId(id)); !problem.isEmpty()) {
        messages.Inform(problem);
        return false;
    }
    // An ID given to another version of the application in this run is
    // taken, as the repository compares IDs.
    const QString cleaned = CleanFolderId(id);
    bool planned = false;
    for (const PlannedVersion& version : m_plan)
        planned = planned || (version.appKey == appKey && version.newId.compare(cleaned, Qt::CaseInsensitive) == 0);
    const std::optional<std::pair<qint32, bool>> existing = versionNamed(appKey, cleaned);
    // A version this run copies from is not empty, whatever it holds.
    if (planned || (existing && (existing->second || m_sourceVersions.contains(existing->first)))) {
        messages.Inform(cleaned + QStringLiteral(" already exists - please choose another ID"));
        return false;
    }
    return true;
}

void EnvironmentCopy::finishRun(bool hideProgress)
{
    m_engine.DestinationConnection.reset();
    if (hideProgress)
        m_engine.Progress().HideWindow();
}

bool EnvironmentCopy::PlanCopy(qint32 sourceEnvironmentKey)
{
    m_plan.clear();
    m_sourceVersions.clear();
    ProgressSink& progress = m_engine.Progress();
    progress.SetTitle(QStringLiteral("Environment Copy progress..."));
    progress.ShowWindow();

    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey =") + num(sourceEnvironmentKey),
                      m_main);
    for (; !details.Eof(); details.MoveNext())
        m_sourceVersions.insert(details.Int(QStringLiteral("iEnvironVerKey")));
    for (details.MoveFirst(); !details.Eof(); details.MoveNext()) {
        const qint32 sourceVersionKey = details.Int(QStringLiteral("iEnvironVerKey"));
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey =") + num(sourceVersionKey), m_main);
        const qint32 appKey = version.Int(QStringLiteral("iVersionAppKey"));
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(appKey), m_main);
        const QString appName = app.Text(QStringLiteral("sAppName"));
        m_engine.CurrentVersionLabel = appName;

        // The check runs inside the prompt, which may be a dialog's event
        // loop: a database error is kept and raised once it has closed.
        std::optional<QString> checkError;
        const std::optional<QString> newId =
            m_prompt.Ask(PromptLabel(appName, version.Text(QStringLiteral("sVersionID"))), [&](const QString& id) {
                try {
                    return NewVersionIdAcceptable(appKey, id);
                } catch (const DbError& e) {
                    checkError = e.description();
                    return true;
                }
            });
        if (checkError)
            throw DbError(*checkError);
        if (!newId) {
            // The copy ends before it began; the progress window is left as it is.
            m_plan.clear();
            return false;
        }
        const QString cleaned = CleanFolderId(*newId);
        const std::optional<std::pair<qint32, bool>> existing = versionNamed(appKey, cleaned);
        m_plan.push_back({sourceVersionKey, appKey, cleaned, existing ? existing->first : 0});
    }
    return true;
}

std::vector<qint32> EnvironmentCopy::PlannedTargets() const
{
    std::vector<qint32> keys;
    for (const PlannedVersion& version : m_plan) {
        if (version.existingKey != 0)
            keys.push_back(version.existingKey);
    }
    return keys;
}

bool EnvironmentCopy::CopyEnvironment(qint32& sourceEnvironmentKey, qint32& destinationEnvironmentKey)
{
    const WriteBatching batching(m_main);
    m_engine.DestinationConnection = m_engine.OpenDestinationDatabase();
    m_engine.ResetCopyRunMaps(true);
    std::optional<BusyScope> busy;
    busy.emplace(m_engine.Busy());
    ProgressSink& progress = m_engine.Progress();
    progress.SetTitle(QStringLiteral("Environment Copy progress..."));
    progress.ShowWindow();
    const auto finish = qScopeGuard([&] {
        busy.reset();
        finishRun(true);
    });
    // OpenDestinationDatabase has said why.
    if (!m_engine.DestinationConnection)
        return false;

    // The copy reads the source through this connection, from one state of
    // the repository, and writes through the main one.
    Connection& reading = *m_engine.DestinationConnection;
    reading.UseSmallPageCache();
    try {
        const Transaction snapshot(reading, Transaction::Kind::Snapshot);
        return copyVersions(sourceEnvironmentKey, destinationEnvironmentKey) &&
               m_engine.CopySchedules(sourceEnvironmentKey, destinationEnvironmentKey, m_main) &&
               CopyRecordLayouts(sourceEnvironmentKey, reading, destinationEnvironmentKey, m_main) &&
               FixUpRecordsetPointers(destinationEnvironmentKey, m_main);
    } catch (const DbError& e) {
        m_engine.Messages().Inform(kCopyFailed + e.description());
        return false;
    }
}

// The users and the versions, steps 2 to 5 of the run. Throws DbError for
// the run's own statements; a primitive's failure or a refused ID returns
// false.
bool EnvironmentCopy::copyVersions(qint32 sourceEnvironmentKey, qint32 destinationEnvironmentKey)
{
    Connection& reading = *m_engine.DestinationConnection;

    Recordset users(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=") + num(sourceEnvironmentKey),
                    reading);
    Recordset newUsers(QStringLiteral("SELECT * FROM tEnvironmentUser"), m_main);
    const RowCopy userRow =
        RowCopy().Keep({QStringLiteral("iUserKey")}).Parent(QStringLiteral("iEnvironKey")).Keep(RightColumns());
    TableCopy(userRow, newUsers).Run(users, {destinationEnvironmentKey});
    // What this routine writes itself is sent before a step's rows, so
    // that a failure of its own rows is reported as its own.
    m_main.SendHeldWrites();

    Recordset details(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey =") + num(sourceEnvironmentKey),
                      reading);
    Recordset newDetails(QStringLiteral("SELECT * FROM tEnvironmentDetail"), m_main);
    const RowCopy detailRow = RowCopy()
                                  .Parent(QStringLiteral("iEnvironKey"), 0)
                                  .Parent(QStringLiteral("iEnvironVerKey"), 1)
                                  .Keep({QStringLiteral("iEnvironTestToolKey"), QStringLiteral("iEnviron3270Key")});
    std::vector<PlannedVersion>::const_iterator planned = m_plan.cbegin();
    for (; !details.Eof(); details.MoveNext()) {
        const qint32 sourceVersionKey = details.Int(QStringLiteral("iEnvironVerKey"));
        // The environment's list changed since the questions were asked.
        if (planned == m_plan.cend() || planned->sourceVersionKey != sourceVersionKey)
            throw DbError(QStringLiteral("The versions of the environment were changed by another operation; try again."));
        const PlannedVersion& plan = *planned++;
        Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey =") + num(sourceVersionKey), reading);
        const qint32 appKey = plan.appKey;
        Recordset app(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=") + num(appKey), reading);
        m_engine.CurrentVersionLabel = app.Text(QStringLiteral("sAppName"));

        // The ID again, as other operations have left it since it was
        // asked: a version with content under it refuses the copy.
        const std::optional<std::pair<qint32, bool>> existing = versionNamed(appKey, plan.newId);
        if (existing && (existing->second || m_sourceVersions.contains(existing->first))) {
            m_engine.Messages().Inform(plan.newId + QStringLiteral(" already exists - please choose another ID"));
            return false;
        }

        // An ID the prompt accepted may name an empty version of the
        // application (at most its system screen): the copy goes into that
        // one, as an update would, rather than beside it under the same ID.
        Recordset newVersion(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=") + num(appKey) +
                                 QStringLiteral(" AND sVersionID='") + QuoteSql(plan.newId) + QStringLiteral("'"),
                             m_main);
        bool includeSystemScreen = true;
        if (newVersion.Eof()) {
            newVersion.AddNew();
            newVersion.SetValue(QStringLiteral("sVersionID"), plan.newId);
            newVersion.SetValue(QStringLiteral("iVersionAppKey"), appKey);
            CopyColumns(version, newVersion, kVersionColumns);
        } else {
            Recordset systemScreen(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=") +
                                       num(newVersion.Int(QStringLiteral("iVersionKey"))) +
                                       QStringLiteral(" AND sWindowPhysicalName = '[System Screen]'"),
                                   m_main);
            includeSystemScreen = systemScreen.Eof();
            // As an update fills it: the source's pointers (rewritten through
            // the maps below); its ID, description and settings stay its own.
            CopyColumns(version, newVersion, VersionProcessPointers() + VersionWindowPointers());
            newVersion.SetValue(QStringLiteral("iVersionSourceVersion"), sourceVersionKey);
        }
        newVersion.Update();
        const qint32 newVersionKey = newVersion.Int(QStringLiteral("iVersionKey"));

        detailRow.Write(details, newDetails, {destinationEnvironmentKey, newVersionKey});
        m_main.SendHeldWrites();

        // A version's content is copied by the database within the main
        // connection's transaction, which reads the source as it was when
        // the copy began: nothing it writes belongs to the source.
        const bool copied =
            m_engine.CopyWindows(sourceVersionKey, newVersionKey, m_main, includeSystemScreen) &&
            m_engine.CopyProcesses(sourceVersionKey, newVersionKey, destinationEnvironmentKey, m_main) &&
            m_engine.CopyCycles(sourceVersionKey, newVersionKey, m_main) &&
            m_engine.CopyVariables(sourceVersionKey, newVersionKey, m_main) &&
            m_engine.CopyRequirements(sourceVersionKey, newVersionKey, m_main) &&
            m_engine.FixUpSteps(newVersionKey, m_main);
        if (!copied)
            return false;

        // The maps are cumulative over the run: a pointer at another
        // version's process or window finds that one's copy when its
        // version was copied before.
        m_engine.RemapVersionPointers(newVersionKey, m_main);
        m_main.SendHeldWrites();
    }
    if (planned != m_plan.cend())
        throw DbError(QStringLiteral("The versions of the environment were changed by another operation; try again."));
    // Keywords are not copied: the new versions belong to the same
    // applications, so their keyword relations keep the keyword keys.
    return true;
}

bool EnvironmentCopy::CopyRecordLayouts(qint32 sourceEnvironmentKey, Connection& source,
                                        qint32 destinationEnvironmentKey, Connection& destination)
{
    KeyMap& recordMap = m_engine.RecordMap;
    ProgressSink& progress = m_engine.Progress();
    try {
        recordMap.ResetLength();
        Recordset layouts(QStringLiteral("SELECT * FROM tRecord WHERE iRecordEnvironmentKey=") + num(sourceEnvironmentKey),
                          source);

        const RowCopy layoutRow =
            RowCopy(QStringLiteral("iRecordKey")).Keep(kRecordColumns).Parent(QStringLiteral("iRecordEnvironmentKey"));
        const RowCopy fieldRow = RowCopy().Parent(QStringLiteral("iFieldRecordKey")).Keep(kFieldColumns);
        const RowCopy instanceRow = RowCopy(QStringLiteral("iFileInstanceKey"))
                                        .Keep(kFileInstanceColumns)
                                        .Parent(QStringLiteral("iFileInstanceRecordKey"));

        Recordset newLayouts;
        Recordset newFields;
        Recordset newInstances;
        Recordset fields;
        Recordset instances;
        TableCopy fieldCopy(fieldRow, newFields);
        TableCopy instanceCopy(instanceRow, newInstances);

        TableCopy layoutCopy(layoutRow, newLayouts);
        layoutCopy.map = &recordMap;
        layoutCopy.growth = MapGrowth::Grow;
        layoutCopy.started = [&](qint32) {
            newLayouts.Open(QStringLiteral("SELECT * FROM tRecord"), destination);
            newFields.Open(QStringLiteral("SELECT * FROM tField"), destination);
            newInstances.Open(QStringLiteral("SELECT * FROM tFileInstance"), destination);
        };
        layoutCopy.afterRow = [&](Recordset& layout, qint32 oldRecordKey, qint32 newRecordKey) {
            fields.Open(QStringLiteral("SELECT * FROM tField WHERE iFieldRecordKey=") + num(oldRecordKey) +
                            QStringLiteral(" ORDER by iFieldSequenceNum"),
                        source);
            fieldCopy.Run(fields, {newRecordKey});

            // The layout's data table: named by sRecordName, in the test
            // data database.
            QString dataTable;
            if (m_testData && m_testData->IsOpen())
                dataTable = existingTable(*m_testData, layout.Text(QStringLiteral("sRecordName")));
            if (dataTable.contains(QLatin1Char(']')))
                throw DbError(QStringLiteral("The data table name '%1' cannot be written between brackets.").arg(dataTable));

            instances.Open(QStringLiteral("SELECT * FROM tFileInstance WHERE iFileInstanceRecordKey=") + num(oldRecordKey),
                           source);
            instanceCopy.afterRow = nullptr;
            if (!dataTable.isEmpty()) {
                instanceCopy.afterRow = [&](Recordset&, qint32 oldInstanceKey, qint32 newInstanceKey) {
                    copyDataRows(*m_testData, dataTable, oldInstanceKey, newInstanceKey);
                };
            }
            instanceCopy.Run(instances, {newRecordKey});
            progress.Yield();
        };
        layoutCopy.Run(layouts, {destinationEnvironmentKey});
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        m_engine.Messages().Inform(kRecordsetsFailed + e.description());
        return false;
    }
}

bool EnvironmentCopy::FixUpRecordsetPointers(qint32 destinationEnvironmentKey, Connection& connection)
{
    try {
        // The processes, cycles and cycle processes of the environment's
        // versions that name a copied layout name its copy; any other
        // layout key stays.
        DatabaseCopy copy(connection);
        const QString records = copy.Map(QStringLiteral("record"), m_engine.RecordMap.Pairs());
        const QString versions =
            QStringLiteral("SELECT iEnvironVerKey FROM tEnvironmentDetail WHERE iEnvironKey = ") + num(destinationEnvironmentKey);
        const auto repoint = [&](const QString& table, const QString& column, const QString& rows) {
            connection.Execute(QStringLiteral("UPDATE %1 SET %2 = %3 WHERE %2 IN (SELECT old FROM %4) AND %5")
                                   .arg(table, column, DatabaseCopy::Lookup(records, column), records, rows));
        };
        repoint(QStringLiteral("tProcess"), QStringLiteral("iProcessRecordKey"),
                QStringLiteral("iProcessVerKey IN (%1)").arg(versions));
        repoint(QStringLiteral("tCycle"), QStringLiteral("iCycleRecordKey"), QStringLiteral("iCycleVerKey IN (%1)").arg(versions));
        repoint(QStringLiteral("tCycleProcess"), QStringLiteral("iCycleProcessRecordKey"),
                QStringLiteral("iCycleKey IN (SELECT iCycleKey FROM tCycle WHERE iCycleVerKey IN (%1))").arg(versions));
        return true;
    } catch (const DbError& e) {
        m_engine.Messages().Inform(kPointersFailed + e.description());
        return false;
    }
}

} // namespace dorvane
