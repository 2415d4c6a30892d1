#include "core/repository/Schema.h"

namespace dorvane {

namespace {

TableDef table(const char* name, const char* key, std::initializer_list<const char*> columns,
               std::initializer_list<const char*> backupOnly = {})
{
    TableDef def;
    def.name = QString::fromLatin1(name);
    def.key = QString::fromLatin1(key);
    def.columns << def.key;
    for (const char* c : columns)
        def.columns << QString::fromLatin1(c);
    for (const char* c : backupOnly)
        def.backupOnly << QString::fromLatin1(c);
    return def;
}

std::vector<TableDef> makeTables()
{
    return {
        // Reference data maintained elsewhere in the suite.
        table("tPlatform", "iPlatformKey", {"sPlatformDesc", "bPlatformIs3270"}),
        table("t3270", "i3270Key", {"s3270EmulatorName"}),
        table("tTestTool", "iTestToolKey", {"sTestToolName"}),
        table("tMapType", "iMapTypeKey", {"sMapTypeDesc", "iMapTypePlatformKey"}),
        table("tClass", "iClassKey", {"iClassPlatformKey", "sClassPhysicalName"}),

        // Master data.
        table("tApp", "iAppKey",
              {"sAppName", "sAppDesc", "sAppID", "mAppEnviron", "mAppAttributes", "iAppPlatform",
               "iApp3270Key", "sAppEnginePath", "sAppMapPath"},
              {"iOriginalAppKey"}),
        table("tVersion", "iVersionKey",
              {"iVersionAppKey", "sVersionID", "sVersionDesc", "sVersionAttributes", "bVersionActive",
               "iMapType", "iVersionInitialWindow", "iVersionMainWindow", "iVersionLoadProcess",
               "iVersionLoginProcess", "iVersionLogoutProcess", "iVersionTerminateProcess",
               "iVersionRecoverProcess", "iVersionSourceVersion", "iVersionUpdateStatusKey"},
              {"iOriginalVersionKey"}),
        table("tUser", "iUserKey",
              {"sUserID", "sUserFirst", "sUserLast", "sUserPassword", "sUserDepartment", "sUserEmail",
               "sUserExtension"}),
        table("tRole", "iRoleKey", {"sRoleName", "sRoleDesc"}),
        table("tProject", "iProjectKey", {"sProjectName", "sProjectDesc"}),
        table("tKeyword", "iKeywordKey", {"iKeywordAppKey", "sKeywordName", "sKeywordDesc"}),
        table("tEnvironment", "iEnvironmentKey", {"sEnvironmentName", "sEnvironmentDesc"},
              {"iOriginalEnvironmentKey"}),
        table("tEnvironmentDetail", "iEnvironmentDetailKey",
              {"iEnvironKey", "iEnvironVerKey", "iEnvironTestToolKey", "iEnviron3270Key"}),
        table("tEnvironmentUser", "iEnvironmentUserKey",
              {"iEnvironKey", "iUserKey", "bDorvane", "bVantrel", "bOmrik", "bZulane", "bKrestin"}),

        // Content below a version.
        table("tWindow", "iWindowKey",
              {"iWindowVerKey", "iWindowClassKey", "iWindowParentKey", "iWindowParentClassKey",
               "iWindowSubAppKey", "iWindowUpdateStatusKey", "sWindowPhysicalName", "sWindowLogicalName",
               "sWindowRawLogicalName", "sWindowOverrideName", "sWindowNameLocation", "sWindowExecutable",
               "bWindowVisible", "bWindowUserCreated", "dWindowLastUpdate"}),
        table("tObject", "iObjectKey",
              {"iObjectWindowKey", "iObjectClassKey", "iObjectDataTypeKey", "iObjectUpdateStatusKey",
               "iObjectVersionKey", "sObjectPhysicalName", "sObjectLogicalName", "sObjectRawLogicalName",
               "sObjectOverrideName", "sObjectAttributes", "bObjectVisible", "bObjectUserCreated",
               "dObjectLastUpdate"}),
        table("tUserVar", "iVarKey",
              {"iVarAppVerKey", "sVarName", "sVarDesc", "sVarDefValue", "sVarValue", "iVarType", "iVarLen",
               "iVarInMask", "iVarOutMask"}),
        table("tRequirement", "iRequirementKey",
              {"iRequirementAppVerKey", "sRequirementName", "sRequirementDesc"}),
        table("tProcess", "iProcessKey",
              {"iProcessVerKey", "sProcessName", "mProcessDesc", "sProcessData", "iProcessType",
               "iProcessOwnerKey", "iProcessCreatorKey", "iProcessLastModifierKey", "iProcessRoleKey",
               "iProcessRequirementKey", "iProcessRecordKey", "iProcessDependencyKey",
               "iProcessStartStateKey", "iProcessStatusKey", "iProcessExecStatus", "iProcessSequenceNum",
               "bProcessCompiled", "bProcessIsAutomated", "dProcessCreateDate", "dProcessLastModifyDate"}),
        table("tStepWindow", "iStepWindowKey",
              {"iStepWindowProcessKey", "iStepWindowVerKey", "iStepWindowWindowKey",
               "iStepWindowEnvironmentKey", "iStepWindowSequenceNum"}),
        table("tStep", "iStepKey",
              {"iStepWindowKey", "iStepObjectKey", "iStepActionKey", "iStepRecoveryKey",
               "iStepUpdateStatusKey", "iStepSequenceNum", "sStepArguments", "sStepNarrative"}),
        table("tCycle", "iCycleKey",
              {"iCycleVerKey", "sCycleName", "mCycleDesc", "sCycleData", "iCycleCreatorKey",
               "iCycleLastModifierKey", "iCycleRoleKey", "iCycleRecordKey", "iCycleDependencyKey",
               "iCycleStartStateKey", "iCycleStatusKey", "iCycleExecStatus", "iCycleSequenceNum",
               "bCycleIsAutomated", "dCycleCreateDate", "dCycleLastModifiedDate"}),
        table("tCycleProcess", "iCycleProcessKey",
              {"iCycleKey", "iProcessKey", "iCycleProcessRecordKey", "sCycleProcessData",
               "iProcessSequenceNum"}),
        table("tSchedule", "iScheduleKey",
              {"iScheduleEnvironKey", "sScheduleName", "sScheduleDesc", "iScheduleCreatorKey",
               "iScheduleLastModifierKey", "iScheduleStatus", "dScheduleCreateDate",
               "dScheduleLastModifiedDate"}),
        table("tScheduleCycles", "iScheduleCyclesKey", {"iScheduleKey", "iCycleKey", "iCycleSequenceNum"}),
        table("tKeywordRel", "iKeywordRelKey",
              {"iKeywordRelKeywordKey", "iKeywordRelProcessKey", "iKeywordRelCycleKey",
               "iKeywordRelScheduleKey"}),

        // Record layouts of an environment.
        table("tRecord", "iRecordKey",
              {"iRecordEnvironmentKey", "sRecordName", "sRecordDesc", "iRecordFileKey",
               "iRecordFileInstanceKey", "iRecordKeyType", "iRecordSourceKey", "iRecordSourceType"}),
        table("tField", "iFieldKey",
              {"iFieldRecordKey", "sFieldName", "sFieldDesc", "sFieldID", "iFieldLen", "iFieldFormat",
               "iFieldKeyType", "iFieldSequenceNum", "iFieldVarKey", "iFieldVarAppVerKey", "iFieldFileKey"}),
        table("tFileInstance", "iFileInstanceKey",
              {"iFileInstanceRecordKey", "iFileInstanceFileKey", "iFileInstanceParentFileKey",
               "sFileInstanceName", "sFileInstanceDesc", "dFileInstanceCreated", "dFileInstanceCreatedBy",
               "dFileInstanceModified", "dFileInstanceModifiedBy"}),
    };
}

} // namespace

const std::vector<TableDef>& RepositoryTables()
{
    static const std::vector<TableDef> tables = makeTables();
    return tables;
}

const TableDef* FindTable(const QString& name)
{
    for (const TableDef& t : RepositoryTables()) {
        if (t.name.compare(name, Qt::CaseInsensitive) == 0)
            return &t;
    }
    return nullptr;
}

ColumnType ColumnTypeOf(const QString& column)
{
    // The "...By" columns of tFileInstance name a person despite their prefix.
    if (column.endsWith(QLatin1String("By"), Qt::CaseInsensitive) && column.startsWith(QLatin1Char('d')))
        return ColumnType::Text;
    const char16_t prefix = column.isEmpty() ? u'\0' : column.at(0).toLower().unicode();
    switch (prefix) {
    case u'i': return ColumnType::Integer;
    case u'b': return ColumnType::Boolean;
    case u'm': return ColumnType::Memo;
    case u'd': return ColumnType::DateTime;
    default: return ColumnType::Text;
    }
}

} // namespace dorvane
