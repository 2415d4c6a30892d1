#include "copyengine/VersionBackup.h"

#include "copyengine/StepArguments.h"
#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Interaction.h"
#include "repository/Recordset.h"
#include "startup/Registry.h"

#include <QStringList>

#include <initializer_list>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

// Assigns each listed column of the destination's new row the source
// row's value as it stands (text, number, date, flag or null alike).
void copyColumns(Recordset& from, Recordset& to, const QStringList& columns)
{
    for (const QString& column : columns)
        to.SetValue(column, from.Value(column));
}

// A foreign key rewritten through a map: the new key where the lookup gives
// at least `minimum`, else the source value unchanged.
QVariant mappedOrKept(Recordset& from, const QString& column, const KeyMap& map, qint32 minimum)
{
    const QVariant value = from.Value(column);
    const qint32 mapped = LookupNewKey(map, value.isValid() ? value.toInt() : 0, map.Length());
    return mapped >= minimum ? QVariant(mapped) : value;
}

// Column names, in the order the copies write them.
const QString kWindowKey = QStringLiteral("iWindowKey");
const QString kWindowVerKey = QStringLiteral("iWindowVerKey");
const QStringList kWindowColumns = {
    QStringLiteral("sWindowLogicalName"),     QStringLiteral("sWindowOverrideName"),
    QStringLiteral("sWindowRawLogicalName"),  QStringLiteral("sWindowPhysicalName"),
    QStringLiteral("iWindowClassKey"),        QStringLiteral("iWindowParentClassKey"),
    QStringLiteral("iWindowParentKey"),       QStringLiteral("sWindowNameLocation"),
    QStringLiteral("dWindowLastUpdate"),      QStringLiteral("sWindowExecutable"),
    QStringLiteral("iWindowUpdateStatusKey"), QStringLiteral("bWindowUserCreated"),
    QStringLiteral("iWindowSubAppKey"),       QStringLiteral("bWindowVisible"),
};

const QString kObjectKey = QStringLiteral("iObjectKey");
const QString kObjectWindowKey = QStringLiteral("iObjectWindowKey");
const QString kObjectVersionKey = QStringLiteral("iObjectVersionKey");
const QStringList kObjectColumns = {
    QStringLiteral("sObjectLogicalName"),     QStringLiteral("sObjectOverrideName"),
    QStringLiteral("sObjectRawLogicalName"),  QStringLiteral("sObjectPhysicalname"),
    QStringLiteral("iObjectClassKey"),        QStringLiteral("iObjectDataTypeKey"),
    QStringLiteral("sObjectAttributes"),      QStringLiteral("dObjectLastUpdate"),
    QStringLiteral("iObjectUpdateStatusKey"), QStringLiteral("bObjectUserCreated"),
    QStringLiteral("bObjectVisible"),
};

const QString kVarKey = QStringLiteral("iVarKey");
const QString kVarAppVerKey = QStringLiteral("iVarAppVerKey");
const QStringList kVarColumns = {
    QStringLiteral("sVarName"),    QStringLiteral("sVarDesc"),   QStringLiteral("iVarType"),
    QStringLiteral("iVarLen"),     QStringLiteral("iVarInMask"), QStringLiteral("iVarOutMask"),
    QStringLiteral("sVarValue"),   QStringLiteral("sVarDefValue"),
};

const QString kRequirementKey = QStringLiteral("iRequirementKey");
const QString kRequirementAppVerKey = QStringLiteral("iRequirementAppVerKey");
const QStringList kRequirementColumns = {QStringLiteral("sRequirementName"), QStringLiteral("sRequirementDesc")};

const QString kKeywordKey = QStringLiteral("iKeywordKey");
const QString kKeywordAppKey = QStringLiteral("iKeywordAppKey");
const QString kKeywordName = QStringLiteral("sKeywordName");
const QString kKeywordDesc = QStringLiteral("sKeywordDesc");

const QString kProcessKey = QStringLiteral("iProcessKey");
const QString kProcessVerKey = QStringLiteral("iProcessVerKey");
// iProcessRequirementKey and iProcessDependencyKey keep the source keys;
// iProcessSequenceNum is not among the columns copied.
const QStringList kProcessColumns = {
    QStringLiteral("sProcessName"),           QStringLiteral("mProcessDesc"),
    QStringLiteral("iProcessCreatorKey"),     QStringLiteral("dProcessCreateDate"),
    QStringLiteral("iProcessLastModifierKey"), QStringLiteral("dProcessLastModifyDate"),
    QStringLiteral("iProcessStartStateKey"),  QStringLiteral("iProcessRoleKey"),
    QStringLiteral("iProcessStatusKey"),      QStringLiteral("iProcessRequirementKey"),
    QStringLiteral("iProcessDependencyKey"),  QStringLiteral("bProcessIsAutomated"),
    QStringLiteral("iProcessOwnerKey"),       QStringLiteral("iProcessType"),
    QStringLiteral("iProcessRecordKey"),      QStringLiteral("sProcessData"),
    QStringLiteral("bProcessCompiled"),       QStringLiteral("iProcessExecStatus"),
};

const QString kStepWindowKey = QStringLiteral("iStepWindowKey");
const QString kStepWindowWindowKey = QStringLiteral("iStepWindowWindowKey");
const QString kStepWindowProcessKey = QStringLiteral("iStepWindowProcessKey");
const QString kStepWindowSequenceNum = QStringLiteral("iStepWindowSequenceNum");
const QString kStepWindowVerKey = QStringLiteral("iStepWindowVerKey");
const QString kStepWindowEnvironmentKey = QStringLiteral("iStepWindowEnvironmentKey");

const QString kStepObjectKey = QStringLiteral("iStepObjectKey");
const QString kStepArguments = QStringLiteral("sStepArguments");
const QStringList kStepColumns = {
    QStringLiteral("iStepActionKey"),   QStringLiteral("sStepNarrative"),   QStringLiteral("iStepRecoveryKey"),
    QStringLiteral("sStepArguments"),   QStringLiteral("iStepSequenceNum"), QStringLiteral("iStepUpdateStatusKey"),
};

const QString kKeywordRelKeywordKey = QStringLiteral("iKeywordRelKeywordKey");
const QString kKeywordRelProcessKey = QStringLiteral("iKeywordRelProcessKey");
const QString kKeywordRelCycleKey = QStringLiteral("iKeywordRelCycleKey");
const QString kKeywordRelScheduleKey = QStringLiteral("iKeywordRelScheduleKey");

const QString kCycleKey = QStringLiteral("iCycleKey");
const QString kCycleVerKey = QStringLiteral("iCycleVerKey");
const QString kCycleDependencyKey = QStringLiteral("iCycleDependencyKey");
const QString kCycleStartStateKey = QStringLiteral("iCycleStartStateKey");
const QStringList kCycleColumnsBeforeDependency = {
    QStringLiteral("sCycleName"), QStringLiteral("mCycleDesc"), QStringLiteral("iCycleStatusKey"),
    QStringLiteral("iCycleRoleKey"),
};
const QStringList kCycleColumnsAfterDependency = {
    QStringLiteral("bCycleIsAutomated"),     QStringLiteral("iCycleCreatorKey"),
    QStringLiteral("dCycleCreateDate"),      QStringLiteral("iCycleLastModifierKey"),
    QStringLiteral("dCycleLastModifiedDate"), QStringLiteral("iCycleRecordKey"),
    QStringLiteral("sCycleData"),
};
const QString kCycleExecStatus = QStringLiteral("iCycleExecStatus");

const QStringList kCycleProcessColumns = {
    QStringLiteral("iProcessSequenceNum"), QStringLiteral("sCycleProcessData"),
    QStringLiteral("iCycleProcessRecordKey"),
};

const QString kScheduleKey = QStringLiteral("iScheduleKey");
const QString kScheduleEnvironKey = QStringLiteral("iScheduleEnvironKey");
const QStringList kScheduleColumns = {
    QStringLiteral("sScheduleName"),       QStringLiteral("sScheduleDesc"),
    QStringLiteral("iScheduleStatus"),     QStringLiteral("iScheduleCreatorKey"),
    QStringLiteral("dScheduleCreateDate"), QStringLiteral("iScheduleLastModifierKey"),
    QStringLiteral("dScheduleLastModifiedDate"),
};
const QString kCycleSequenceNum = QStringLiteral("iCycleSequenceNum");

// The prefixes of the failure messages, by stage.
const QString kWindowsFailed = QStringLiteral("Error while copying Windows:");
const QString kVariablesFailed = QStringLiteral("Error while copying Variables:");
const QString kRequirementsFailed = QStringLiteral("Error while copying Requirements:");
const QString kKeywordsFailed = QStringLiteral("Error while copying Keywords:");
const QString kProcessesFailed = QStringLiteral("Error while copying Processes:");
const QString kStepWindowsFailed = QStringLiteral("Error while copying Step Windows:");
const QString kStepsFailed = QStringLiteral("Error while copying Steps:");
const QString kProcessKeywordsFailed = QStringLiteral("Error while copying Process Keywords:");
const QString kCyclesFailed = QStringLiteral("Error while copying Cycles:");
const QString kCycleProcessesFailed = QStringLiteral("Error while copying Cycle Processes:");
const QString kCycleKeywordsFailed = QStringLiteral("Error while copying Cycle Keywords:");
const QString kSchedulesFailed = QStringLiteral("Error while copying Schedules:");
const QString kScheduleCyclesFailed = QStringLiteral("Error while copying Schedule Cycles:");
const QString kScheduleKeywordsFailed = QStringLiteral("Error while copying Schedule Keywords:");
const QString kFixUpFailed = QStringLiteral("Error while fixing up steps: ");

// Copies the keyword relations of one holder (a process, cycle or
// schedule): the holder column gets the new holder key, the keyword is
// rewritten through KeywordMap where found (non-zero) and kept otherwise.
// The other holder columns keep their defaults.
void copyKeywordRelations(const QString& holderColumn, qint32 oldHolder, qint32 newHolder, Connection& source,
                          Recordset& relations, const KeyMap& keywordMap)
{
    Recordset rs(QStringLiteral("SELECT * FROM tKeywordRel WHERE %1 = ").arg(holderColumn) + num(oldHolder), source);
    while (!rs.Eof()) {
        relations.AddNew();
        relations.SetValue(holderColumn, newHolder);
        relations.SetValue(kKeywordRelKeywordKey, mappedOrKept(rs, kKeywordRelKeywordKey, keywordMap, 1));
        relations.Update();
        rs.MoveNext();
    }
}

} // namespace

VersionBackup::VersionBackup(MessageSink& messages, ProgressSink& progress, BusyIndicator* busy)
    : m_messages(messages), m_progress(progress), m_busy(busy)
{
}

VersionBackup::~VersionBackup() = default;

void VersionBackup::ResetCopyRunMaps(bool includeKeywordMap)
{
    WindowMap.ResetLength();
    ObjectMap.ResetLength();
    ProcessMap.ResetLength();
    CycleMap.ResetLength();
    if (includeKeywordMap)
        KeywordMap.ResetLength();
}

bool VersionBackup::fail(const QString& prefix, const QString& description)
{
    m_messages.Show(prefix + description, Buttons::Ok);
    return false;
}

void VersionBackup::startProgress(const QString& labelWords, qint32 count)
{
    m_progress.SetAction(labelWords + CurrentVersionLabel);
    m_progress.SetRange(0, float(count));
    m_progress.SetValue(0);
    m_progress.Refresh();
}

void VersionBackup::advanceProgress()
{
    // The bar never passes its maximum.
    if (m_progress.Maximum() > m_progress.Value())
        m_progress.SetValue(m_progress.Value() + 1);
    m_progress.Refresh();
}

std::unique_ptr<Connection> VersionBackup::OpenDestinationDatabase()
{
    try {
        const qint32 isLocal = SettingDword(QStringLiteral("IsLocalDatabase"));
        const QString activeDb = SettingString(QStringLiteral("ActiveDB"));
        auto connection = std::make_unique<Connection>();
        QString file;
        if (activeDb == QLatin1String("Tutorial"))
            file = SettingString(QStringLiteral("ExePath")) + QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb");
        else if (isLocal != 0)
            file = SettingString(QStringLiteral("LocalDatabasePath")) + QLatin1Char('\\') +
                   SettingString(QStringLiteral("LocalDatabaseName"));
        if (!file.isNull())
            connection->Open(QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;") + QStringLiteral("Data Source=") +
                             file + QLatin1Char(';'));
        else
            connection->Open(QStringLiteral("PROVIDER=MSDASQL;DSN=") + SettingString(QStringLiteral("ActiveDSN")));
        return connection;
    } catch (const DbError& e) {
        m_messages.Show(QStringLiteral("Error while opening destination database for version copy: ") + e.description(),
                        Buttons::Ok);
        return nullptr;
    }
}

bool VersionBackup::CopyWindows(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                                Connection& destination, bool includeSystemScreen)
{
    try {
        QString sql = QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + num(sourceVersionKey);
        if (!includeSystemScreen)
            sql += QStringLiteral(" AND sWindowPhysicalName <> '[System Screen]'");
        Recordset windows(sql, source);
        // Only added to: its rows are never read.
        Recordset newWindows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + num(destinationVersionKey),
                             destination);
        const qint32 count = CountRecords(&windows);
        WindowMap.Grow(count);
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Windows in "), count);

        Recordset objects;
        Recordset newObject;
        while (!windows.Eof()) {
            const qint32 oldWindowKey = windows.Int(kWindowKey);
            newWindows.AddNew();
            newWindows.SetValue(kWindowVerKey, destinationVersionKey);
            copyColumns(windows, newWindows, kWindowColumns);
            newWindows.Update();
            const qint32 newWindowKey = newWindows.Int(kWindowKey);
            WindowMap.StoreNext(oldWindowKey, newWindowKey);
            m_progress.Yield();

            objects.Open(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey = ") + num(oldWindowKey), source);
            const qint32 objectCount = CountRecords(&objects);
            if (objectCount > 0)
                ObjectMap.Grow(objectCount);
            while (!objects.Eof()) {
                const qint32 oldObjectKey = objects.Int(kObjectKey);
                newObject.Open(QStringLiteral("SELECT * FROM tObject WHERE iObjectKey=0"), destination);
                newObject.AddNew();
                newObject.SetValue(kObjectWindowKey, newWindowKey);
                newObject.SetValue(kObjectVersionKey, destinationVersionKey);
                copyColumns(objects, newObject, kObjectColumns);
                newObject.Update();
                const qint32 newObjectKey = newObject.Int(kObjectKey);
                newObject.Close();
                objects.MoveNext();
                ObjectMap.StoreNext(oldObjectKey, newObjectKey);
            }

            advanceProgress();
            m_progress.Yield();
            objects.Close();
            windows.MoveNext();
        }
        return true;
    } catch (const DbError& e) {
        return fail(kWindowsFailed, e.description());
    }
}

bool VersionBackup::CopyVariables(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                                  Connection& destination)
{
    try {
        Recordset variables(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey = ") + num(sourceVersionKey),
                            source);
        const qint32 count = CountRecords(&variables);
        VariableMap.Replace(count);
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Variables in "), count);

        Recordset newVariable;
        while (!variables.Eof()) {
            newVariable.Open(QStringLiteral("SELECT * FROM tUserVar"), destination);
            newVariable.AddNew();
            newVariable.SetValue(kVarAppVerKey, destinationVersionKey);
            copyColumns(variables, newVariable, kVarColumns);
            newVariable.Update();
            const qint32 newKey = newVariable.Int(kVarKey);
            newVariable.Close();
            VariableMap.StoreNext(variables.Int(kVarKey), newKey);
            variables.MoveNext();
            advanceProgress();
        }
        m_progress.Yield();
        return true;
    } catch (const DbError& e) {
        return fail(kVariablesFailed, e.description());
    }
}

bool VersionBackup::CopyRequirements(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                                     Connection& destination)
{
    try {
        Recordset requirements(
            QStringLiteral("SELECT * FROM tRequirement WHERE iRequirementAppVerKey = ") + num(sourceVersionKey), source);
        const qint32 count = CountRecords(&requirements);
        RequirementMap.Replace(count);
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Requirements in "), count);

        Recordset newRequirement;
        while (!requirements.Eof()) {
            newRequirement.Open(QStringLiteral("SELECT * FROM tRequirement"), destination);
            newRequirement.AddNew();
            newRequirement.SetValue(kRequirementAppVerKey, destinationVersionKey);
            copyColumns(requirements, newRequirement, kRequirementColumns);
            newRequirement.Update();
            const qint32 newKey = newRequirement.Int(kRequirementKey);
            newRequirement.Close();
            RequirementMap.StoreNext(requirements.Int(kRequirementKey), newKey);
            requirements.MoveNext();
            advanceProgress();
        }
        m_progress.Yield();
        return true;
    } catch (const DbError& e) {
        return fail(kRequirementsFailed, e.description());
    }
}

bool VersionBackup::CopyKeywords(qint32 sourceAppKey, Connection& source, qint32 destinationAppKey,
                                 Connection& destination, bool matchByName)
{
    try {
        Recordset keywords(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey = ") + num(sourceAppKey), source);
        const qint32 count = CountRecords(&keywords);
        KeywordMap.Grow(count);
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Keywords in "), count);

        Recordset target;
        while (!keywords.Eof()) {
            const qint32 oldKey = keywords.Int(kKeywordKey);
            bool matched = false;
            if (matchByName) {
                // The name goes between the quotes as it stands, so a name
                // with an apostrophe makes the statement invalid. That
                // failure is reported without sending such a statement.
                const QString name = keywords.Text(kKeywordName);
                const QString condition = QStringLiteral("sKeywordName='") + name +
                                          QStringLiteral("' and iKeywordAppKey=") + num(destinationAppKey);
                if (name.contains(QLatin1Char('\'')))
                    throw DbError(
                        QStringLiteral("Syntax error (missing operator) in query expression '%1'.").arg(condition));
                target.Open(QStringLiteral("SELECT * FROM tKeyword WHERE sKeywordName='") + QuoteSql(name) +
                                QStringLiteral("' and iKeywordAppKey=") + num(destinationAppKey),
                            destination);
                matched = !target.Eof();
            } else {
                target.Open(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=") + num(destinationAppKey),
                            destination);
            }
            if (!matched) {
                target.AddNew();
                target.SetValue(kKeywordAppKey, destinationAppKey);
                target.SetValue(kKeywordName, keywords.Value(kKeywordName));
                target.SetValue(kKeywordDesc, keywords.Value(kKeywordDesc));
                target.Update();
            }
            KeywordMap.StoreNext(oldKey, target.Int(kKeywordKey));
            target.Close();
            keywords.MoveNext();
            advanceProgress();
        }
        m_progress.Yield();
        return true;
    } catch (const DbError& e) {
        return fail(kKeywordsFailed, e.description());
    }
}

bool VersionBackup::CopyProcesses(qint32 sourceVersionKey, qint32 /*sourceEnvironmentKey*/, Connection& source,
                                  qint32 destinationVersionKey, qint32 destinationEnvironmentKey,
                                  Connection& destination)
{
    const QString* stage = &kProcessesFailed;
    try {
        Recordset processes(QStringLiteral("SELECT * from tProcess WHERE iProcessVerKey = ") + num(sourceVersionKey),
                            source);
        const qint32 count = CountRecords(&processes);
        ProcessMap.Grow(count);
        if (count == 0)
            return true;

        // Only added to for the whole call: their rows are never read.
        Recordset newProcesses(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=") + num(destinationVersionKey),
                               destination);
        Recordset newSteps(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey=0"), destination);
        Recordset newStepWindows(
            QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowVerKey=") + num(destinationVersionKey), destination);
        Recordset newRelations(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelKeywordKey=0"), destination);
        startProgress(QStringLiteral("Processes in "), count);

        // The process key of the step window copied last, for the rule that
        // skips a lone placeholder step window or a process met twice.
        qint32 lastStepWindowProcessKey = 0;
        Recordset stepWindows;
        Recordset steps;
        while (!processes.Eof()) {
            stage = &kProcessesFailed;
            const qint32 oldProcessKey = processes.Int(kProcessKey);
            newProcesses.AddNew();
            newProcesses.SetValue(kProcessVerKey, destinationVersionKey);
            copyColumns(processes, newProcesses, kProcessColumns);
            newProcesses.Update();
            const qint32 newProcessKey = newProcesses.Int(kProcessKey);
            ProcessMap.StoreNext(oldProcessKey, newProcessKey);
            processes.MoveNext();

            stage = &kStepWindowsFailed;
            stepWindows.Open(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey = ") +
                                 num(oldProcessKey) + QStringLiteral(" ORDER BY iStepWindowSequenceNum"),
                             source);
            qint32 stepWindowCount = CountRecords(&stepWindows);
            if (stepWindowCount == 1 && (stepWindows.Int(kStepWindowWindowKey) == 0 ||
                                         stepWindows.Int(kStepWindowProcessKey) == lastStepWindowProcessKey))
                stepWindowCount = 0;

            for (qint32 i = 0; i < stepWindowCount; ++i) {
                lastStepWindowProcessKey = stepWindows.Int(kStepWindowProcessKey);
                newStepWindows.AddNew();
                newStepWindows.SetValue(kStepWindowWindowKey,
                                        mappedOrKept(stepWindows, kStepWindowWindowKey, WindowMap, 1));
                newStepWindows.SetValue(kStepWindowProcessKey, newProcessKey);
                newStepWindows.SetValue(kStepWindowSequenceNum, stepWindows.Value(kStepWindowSequenceNum));
                newStepWindows.SetValue(kStepWindowVerKey, destinationVersionKey);
                newStepWindows.SetValue(kStepWindowEnvironmentKey, destinationEnvironmentKey);
                newStepWindows.Update();
                const qint32 newStepWindowKey = newStepWindows.Int(kStepWindowKey);
                const qint32 oldStepWindowKey = stepWindows.Int(kStepWindowKey);

                steps.Open(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey = ") + num(oldStepWindowKey) +
                               QStringLiteral(" ORDER BY iStepSequenceNum"),
                           source);
                while (!steps.Eof()) {
                    stage = &kStepsFailed;
                    newSteps.AddNew();
                    newSteps.SetValue(kStepWindowKey, newStepWindowKey);
                    newSteps.SetValue(kStepObjectKey, mappedOrKept(steps, kStepObjectKey, ObjectMap, 1));
                    copyColumns(steps, newSteps, kStepColumns);
                    newSteps.Update();
                    m_progress.Yield();
                    steps.MoveNext();
                }
                // The stage stays where the steps left it.
                m_progress.Yield();
                stepWindows.MoveNext();
            }

            stage = &kProcessKeywordsFailed;
            copyKeywordRelations(kKeywordRelProcessKey, oldProcessKey, newProcessKey, source, newRelations, KeywordMap);

            m_progress.Yield();
            advanceProgress();
        }
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::CopyCycles(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                               Connection& destination)
{
    const QString* stage = &kCyclesFailed;
    try {
        Recordset cycles(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey =") + num(sourceVersionKey), source);
        const qint32 count = CountRecords(&cycles);
        CycleMap.Grow(count);
        if (count == 0)
            return true;

        Recordset newCycles(QStringLiteral("SELECT * FROM tCycle"), destination);
        Recordset newCycleProcesses(QStringLiteral("SELECT * FROM tCycleProcess"), destination);
        Recordset newRelations(QStringLiteral("SELECT * FROM tKeywordRel"), destination);

        // 0 stays 0; any other key goes through ProcessMap and becomes 0
        // when the process was not copied.
        const auto throughProcessMap = [this](Recordset& rs, const QString& column) -> QVariant {
            const QVariant value = rs.Value(column);
            const qint32 key = value.isValid() ? value.toInt() : 0;
            if (key == 0)
                return value;
            return LookupNewKey(ProcessMap, key, ProcessMap.Length());
        };

        Recordset cycleProcesses;
        while (!cycles.Eof()) {
            stage = &kCyclesFailed;
            const qint32 oldCycleKey = cycles.Int(kCycleKey);
            const QVariant startState = throughProcessMap(cycles, kCycleStartStateKey);
            const QVariant dependency = throughProcessMap(cycles, kCycleDependencyKey);
            newCycles.AddNew();
            newCycles.SetValue(kCycleVerKey, destinationVersionKey);
            copyColumns(cycles, newCycles, kCycleColumnsBeforeDependency);
            newCycles.SetValue(kCycleDependencyKey, dependency);
            copyColumns(cycles, newCycles, kCycleColumnsAfterDependency);
            newCycles.SetValue(kCycleStartStateKey, startState);
            newCycles.SetValue(kCycleExecStatus, cycles.Value(kCycleExecStatus));
            newCycles.Update();
            const qint32 newCycleKey = newCycles.Int(kCycleKey);
            CycleMap.StoreNext(oldCycleKey, newCycleKey);

            stage = &kCycleProcessesFailed;
            cycleProcesses.Open(QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey = ") + num(oldCycleKey), source);
            while (!cycleProcesses.Eof()) {
                newCycleProcesses.AddNew();
                newCycleProcesses.SetValue(kCycleKey, newCycleKey);
                newCycleProcesses.SetValue(kProcessKey, mappedOrKept(cycleProcesses, kProcessKey, ProcessMap, 1));
                copyColumns(cycleProcesses, newCycleProcesses, kCycleProcessColumns);
                newCycleProcesses.Update();
                cycleProcesses.MoveNext();
            }

            stage = &kCycleKeywordsFailed;
            copyKeywordRelations(kKeywordRelCycleKey, oldCycleKey, newCycleKey, source, newRelations, KeywordMap);
            cycles.MoveNext();
        }
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::CopySchedules(qint32 sourceEnvironmentKey, Connection& source, qint32 destinationEnvironmentKey,
                                  Connection& destination)
{
    const QString* stage = &kSchedulesFailed;
    try {
        Recordset schedules(QStringLiteral("SELECT * FROM tSchedule WHERE iScheduleEnvironKey =") +
                                num(sourceEnvironmentKey),
                            source);
        if (CountRecords(&schedules) == 0)
            return true;

        Recordset newSchedules(QStringLiteral("SELECT * FROM tSchedule"), destination);
        Recordset newScheduleCycles(QStringLiteral("SELECT * FROM tScheduleCycles"), destination);
        Recordset newRelations(QStringLiteral("SELECT * FROM tKeywordRel"), destination);

        Recordset scheduleCycles;
        while (!schedules.Eof()) {
            stage = &kSchedulesFailed;
            const qint32 oldScheduleKey = schedules.Int(kScheduleKey);
            newSchedules.AddNew();
            newSchedules.SetValue(kScheduleEnvironKey, destinationEnvironmentKey);
            copyColumns(schedules, newSchedules, kScheduleColumns);
            newSchedules.Update();
            const qint32 newScheduleKey = newSchedules.Int(kScheduleKey);

            stage = &kScheduleCyclesFailed;
            scheduleCycles.Open(QStringLiteral("SELECT * FROM tScheduleCycles WHERE iScheduleKey = ") +
                                    num(oldScheduleKey),
                                source);
            while (!scheduleCycles.Eof()) {
                newScheduleCycles.AddNew();
                newScheduleCycles.SetValue(kScheduleKey, newScheduleKey);
                // Written as it comes: 0 for a cycle not copied in this run.
                newScheduleCycles.SetValue(
                    kCycleKey, LookupNewKey(CycleMap, scheduleCycles.Int(kCycleKey), CycleMap.Length()));
                newScheduleCycles.SetValue(kCycleSequenceNum, scheduleCycles.Value(kCycleSequenceNum));
                newScheduleCycles.Update();
                scheduleCycles.MoveNext();
            }

            stage = &kScheduleKeywordsFailed;
            copyKeywordRelations(kKeywordRelScheduleKey, oldScheduleKey, newScheduleKey, source, newRelations,
                                 KeywordMap);
            schedules.MoveNext();
        }
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::CopyReserved(qint32, Connection&, qint32, Connection&) { return true; }

bool VersionBackup::FixUpSteps(qint32 destinationVersionKey, Connection& destination)
{
    try {
        Recordset stepWindows(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowVerKey=") +
                                  num(destinationVersionKey),
                              destination);
        m_progress.SetAction(QStringLiteral("Fixing up steps...."));
        Recordset steps;
        while (!stepWindows.Eof()) {
            steps.Open(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey=") + num(stepWindows.Int(kStepWindowKey)),
                       destination);
            while (!steps.Eof()) {
                const std::optional<QString> rewritten =
                    FixUpStepArguments(steps.Text(kStepArguments), destinationVersionKey, ProcessMap, VariableMap);
                if (rewritten) {
                    steps.SetValue(kStepArguments, *rewritten);
                    steps.Update();
                }
                steps.MoveNext();
                m_progress.Yield();
            }
            stepWindows.MoveNext();
        }
        return true;
    } catch (const DbError& e) {
        return fail(kFixUpFailed, e.description());
    }
}

} // namespace dorvane
