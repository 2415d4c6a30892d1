// The declaration of a version's content: the columns each copy keeps.

#include "core/copyengine/CopyEngineFixture.h"
#include "core/copyengine/VersionContent.h"

using namespace dorvane;
using namespace dorvane::test;

namespace {

QStringList sortedLower(QStringList columns)
{
    for (QString& column : columns)
        column = column.toLower();
    columns.sort();
    return columns;
}

// What each copy takes over as it stands, written out: a column added to
// the schema joins one of these or is declared not kept beside its table.
struct Kept {
    const char* copy;
    const char* table;
    QStringList setApart;
    const char* columns;
};
const Kept kKept[] = {
    {"windows", "tWindow", {},
     "sWindowLogicalName sWindowOverrideName sWindowRawLogicalName sWindowPhysicalName iWindowClassKey iWindowParentClassKey "
     "iWindowParentKey sWindowNameLocation dWindowLastUpdate sWindowExecutable iWindowUpdateStatusKey bWindowUserCreated "
     "iWindowSubAppKey bWindowVisible"},
    {"objects", "tObject", {},
     "sObjectLogicalName sObjectOverrideName sObjectRawLogicalName sObjectPhysicalName iObjectClassKey iObjectDataTypeKey "
     "sObjectAttributes dObjectLastUpdate iObjectUpdateStatusKey bObjectUserCreated bObjectVisible"},
    {"variables", "tUserVar", {}, "sVarName sVarDesc iVarType iVarLen iVarInMask iVarOutMask sVarValue sVarDefValue"},
    {"requirements", "tRequirement", {}, "sRequirementName sRequirementDesc"},
    {"processes", "tProcess", {},
     "sProcessName mProcessDesc iProcessCreatorKey dProcessCreateDate iProcessLastModifierKey dProcessLastModifyDate "
     "iProcessStartStateKey iProcessRoleKey iProcessStatusKey iProcessRequirementKey iProcessDependencyKey "
     "bProcessIsAutomated iProcessOwnerKey iProcessType iProcessRecordKey sProcessData bProcessCompiled iProcessExecStatus"},
    {"step windows", "tStepWindow", {}, "iStepWindowSequenceNum"},
    {"steps", "tStep", {}, "iStepActionKey sStepNarrative iStepRecoveryKey sStepArguments iStepSequenceNum iStepUpdateStatusKey"},
    {"keyword relations", "tKeywordRel", {}, ""},
    {"cycles", "tCycle", {},
     "sCycleName mCycleDesc iCycleStatusKey iCycleRoleKey bCycleIsAutomated iCycleCreatorKey dCycleCreateDate "
     "iCycleLastModifierKey dCycleLastModifiedDate iCycleRecordKey sCycleData iCycleExecStatus"},
    {"cycle processes", "tCycleProcess", {}, "iProcessSequenceNum sCycleProcessData iCycleProcessRecordKey"},
    {"schedules", "tSchedule", {},
     "sScheduleName sScheduleDesc iScheduleStatus iScheduleCreatorKey dScheduleCreateDate iScheduleLastModifierKey "
     "dScheduleLastModifiedDate"},
    {"schedule cycles", "tScheduleCycles", {}, "iCycleSequenceNum"},
    {"environment copy: versions", "tVersion", {u"sVersionID"_s},
     "sVersionDesc iMapType iVersionSourceVersion bVersionActive iVersionLoadProcess iVersionLoginProcess "
     "iVersionLogoutProcess iVersionTerminateProcess iVersionRecoverProcess iVersionInitialWindow iVersionMainWindow "
     "iVersionUpdateStatusKey sVersionAttributes"},
    {"environment copy: record layouts", "tRecord", {},
     "iRecordFileKey sRecordName sRecordDesc iRecordKeyType iRecordSourceType iRecordSourceKey"},
    {"environment copy: fields", "tField", {},
     "iFieldFileKey sFieldName sFieldDesc iFieldLen iFieldFormat sFieldID iFieldVarKey iFieldVarAppVerKey iFieldKeyType "
     "iFieldSequenceNum"},
    {"environment copy: file instances", "tFileInstance", {},
     "iFileInstanceFileKey iFileInstanceParentFileKey sFileInstanceName sFileInstanceDesc dFileInstanceCreated "
     "dFileInstanceCreatedBy dFileInstanceModified dFileInstanceModifiedBy"},
    {"backup and restore: applications", "tApp", {},
     "sAppName sAppID iAppPlatform iApp3270Key sAppDesc mAppEnviron sAppMapPath sAppEnginePath mAppAttributes"},
    {"backup and restore: versions", "tVersion", {},
     "sVersionID sVersionDesc iMapType iVersionSourceVersion bVersionActive iVersionLoadProcess iVersionLoginProcess "
     "iVersionLogoutProcess iVersionTerminateProcess iVersionRecoverProcess iVersionInitialWindow iVersionMainWindow "
     "iVersionUpdateStatusKey sVersionAttributes"},
};

} // namespace

// Each copy keeps exactly the columns it kept when they were written out by
// hand; every other column of a declared table is its key, its parent
// column or declared not kept, and every parent is declared before its
// children (or is what the tree hangs from).
TEST(VersionContentDeclaration, EachCopyKeepsItsColumnsAndEveryOtherColumnIsDeclared)
{
    for (const Kept& kept : kKept) {
        SCOPED_TRACE(kept.copy);
        EXPECT_EQ(sortedLower(KeptColumns(QString::fromLatin1(kept.table), kept.setApart)),
                  sortedLower(QString::fromLatin1(kept.columns).split(u' ', Qt::SkipEmptyParts)));
    }
    QStringList parents = {u"tVersion"_s, u"tEnvironment"_s};
    for (const std::vector<ContentTable>* tables : {&VersionContentTables(), &ContentOwnerTables()}) {
        for (const ContentTable& t : *tables) {
            SCOPED_TRACE((t.table + u" below "_s + t.parent).toStdString());
            const TableDef* def = FindTable(t.table);
            ASSERT_TRUE(def);
            EXPECT_EQ(t.key, def->key);
            QStringList columns = KeptColumns(t.table) + QStringList{t.key} + t.notKept;
            if (!t.parent.isEmpty())
                columns << t.parentColumn;
            EXPECT_EQ(sortedLower(columns), sortedLower(def->columns));
            EXPECT_TRUE(t.parent.isEmpty() || parents.contains(t.parent));
            parents << t.table;
            EXPECT_TRUE(std::any_of(std::begin(kKept), std::end(kKept), [&](const Kept& k) { return t.table == QLatin1String(k.table); }));
        }
    }
}
