#include "core/copyengine/VersionContent.h"

#include "core/repository/Schema.h"

namespace dorvane {

namespace {

ContentTable below(const char* table, const char* parent, const char* parentColumn, const char* stage,
                   std::initializer_list<const char*> notKept = {})
{
    ContentTable t;
    t.table = QString::fromLatin1(table);
    t.key = FindTable(t.table)->key;
    t.parent = QString::fromLatin1(parent);
    t.parentColumn = QString::fromLatin1(parentColumn);
    t.stage = QString::fromLatin1(stage);
    for (const char* column : notKept)
        t.notKept << QString::fromLatin1(column);
    return t;
}

// The keyword relations of one kind of holder: the keyword goes through
// the keyword map, the other holders' columns keep their defaults.
ContentTable keywordRelations(const char* holder, const char* holderColumn, const char* stage)
{
    ContentTable t = below("tKeywordRel", holder, holderColumn, stage, {"iKeywordRelKeywordKey"});
    for (const char* column : {"iKeywordRelProcessKey", "iKeywordRelCycleKey", "iKeywordRelScheduleKey"}) {
        if (t.parentColumn != QLatin1String(column))
            t.notKept << QString::fromLatin1(column);
    }
    return t;
}

const ContentTable* find(const std::vector<ContentTable>& tables, const QString& table)
{
    for (const ContentTable& t : tables) {
        if (t.table.compare(table, Qt::CaseInsensitive) == 0)
            return &t;
    }
    return nullptr;
}

} // namespace

const std::vector<ContentTable>& VersionContentTables()
{
    static const std::vector<ContentTable> tables = {
        below("tUserVar", "tVersion", "iVarAppVerKey", "Variables"),
        // The dependency and the start state go through the process map;
        // the sequence number is left at its default.
        below("tCycle", "tVersion", "iCycleVerKey", "Cycles",
              {"iCycleDependencyKey", "iCycleStartStateKey", "iCycleSequenceNum"}),
        keywordRelations("tCycle", "iKeywordRelCycleKey", "Cycle Keywords"),
        // The process goes through the process map.
        below("tCycleProcess", "tCycle", "iCycleKey", "Cycle Processes", {"iProcessKey"}),
        // The sequence number is left at its default.
        below("tProcess", "tVersion", "iProcessVerKey", "Processes", {"iProcessSequenceNum"}),
        // The window goes through the window map; the version and the
        // environment are the destination's.
        below("tStepWindow", "tProcess", "iStepWindowProcessKey", "Step Windows",
              {"iStepWindowWindowKey", "iStepWindowVerKey", "iStepWindowEnvironmentKey"}),
        // The object goes through the object map.
        below("tStep", "tStepWindow", "iStepWindowKey", "Steps", {"iStepObjectKey"}),
        keywordRelations("tProcess", "iKeywordRelProcessKey", "Process Keywords"),
        below("tWindow", "tVersion", "iWindowVerKey", "Windows"),
        // The version is the destination's.
        below("tObject", "tWindow", "iObjectWindowKey", "Objects", {"iObjectVersionKey"}),
        below("tRequirement", "tVersion", "iRequirementAppVerKey", "Requirements"),
        below("tSchedule", "tEnvironment", "iScheduleEnvironKey", "Schedules"),
        // The cycle goes through the cycle map.
        below("tScheduleCycles", "tSchedule", "iScheduleKey", "Schedule Cycles", {"iCycleKey"}),
        keywordRelations("tSchedule", "iKeywordRelScheduleKey", "Schedule Keywords"),
    };
    return tables;
}

const std::vector<ContentTable>& ContentOwnerTables()
{
    static const std::vector<ContentTable> tables = {
        below("tApp", "", "", ""),
        below("tVersion", "tApp", "iVersionAppKey", ""),
        // The file instance is left at its default.
        below("tRecord", "tEnvironment", "iRecordEnvironmentKey", "", {"iRecordFileInstanceKey"}),
        below("tField", "tRecord", "iFieldRecordKey", ""),
        below("tFileInstance", "tRecord", "iFileInstanceRecordKey", ""),
    };
    return tables;
}

QStringList KeptColumns(const QString& table, const QStringList& setApart)
{
    const ContentTable* t = find(VersionContentTables(), table);
    if (!t)
        t = find(ContentOwnerTables(), table);
    const TableDef* def = FindTable(table);
    if (!t || !def)
        return {};
    QStringList kept;
    for (const QString& column : def->columns) {
        if (column.compare(t->key, Qt::CaseInsensitive) != 0 && column.compare(t->parentColumn, Qt::CaseInsensitive) != 0 &&
            !t->notKept.contains(column, Qt::CaseInsensitive) && !setApart.contains(column, Qt::CaseInsensitive))
            kept << column;
    }
    return kept;
}

} // namespace dorvane
