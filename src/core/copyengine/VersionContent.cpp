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

// What a walk over the tree leaves out of a table's rows besides their
// parents' condition ("" when nothing): those rows and everything below
// them are passed over.
using Narrowing = QString (*)(const ContentTable& t);

QString nothingLeftOut(const ContentTable&) { return QString(); }

// A walk over the tree below a parent: the tables it leaves out, what it
// narrows, and the backend, which names a child's parents (AmongKeys).
struct Walk {
    BackendKind backend;
    QStringList left;
    Narrowing narrow = nothingLeftOut;
};

void addDeletionBelow(std::vector<ContentDeletion>& deletions, const QString& parent, const QString& keys, const Walk& walk);

// The rows of `t` where `condition` holds: those below them first.
void addDeletion(std::vector<ContentDeletion>& deletions, const ContentTable& t, QString condition, const Walk& walk)
{
    if (const QString narrower = walk.narrow(t); !narrower.isEmpty())
        condition = QStringLiteral("%1 AND %2").arg(condition, narrower);
    const QString keys = QStringLiteral("SELECT %1 FROM %2 WHERE %3").arg(t.key, t.table, condition);
    addDeletionBelow(deletions, t.table, AmongKeys(walk.backend, keys), walk);
    deletions.push_back({t.table, t.stage, QStringLiteral("DELETE FROM %1 WHERE %2").arg(t.table, condition), condition});
}

void addDeletionBelow(std::vector<ContentDeletion>& deletions, const QString& parent, const QString& keys, const Walk& walk)
{
    for (const ContentTable& child : VersionContentTables()) {
        if (child.parent.compare(parent, Qt::CaseInsensitive) == 0 && !walk.left.contains(child.table, Qt::CaseInsensitive))
            addDeletion(deletions, child, child.parentColumn + QLatin1Char(' ') + keys, walk);
    }
}

// A copy of a process takes its step windows but a placeholder: one
// without a window that is the only step window of its process.
QString withoutPlaceholders(const ContentTable& t)
{
    if (t.table != QLatin1String("tStepWindow"))
        return QString();
    return QStringLiteral("NOT (COALESCE(tStepWindow.iStepWindowWindowKey, 0) = 0 AND (SELECT COUNT(*) FROM "
                          "tStepWindow c WHERE c.iStepWindowProcessKey = tStepWindow.iStepWindowProcessKey) = 1)");
}

} // namespace

QString AmongKeys(BackendKind backend, const QString& select)
{
    return backend == BackendKind::Sqlite ? QStringLiteral("IN (%1)").arg(select)
                                          : QStringLiteral("= ANY(ARRAY(%1))").arg(select);
}

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

std::vector<ContentDeletion> DeleteVersionContentsStatements(qint32 versionKey, BackendKind backend)
{
    std::vector<ContentDeletion> deletions;
    addDeletionBelow(deletions, QStringLiteral("tVersion"), QStringLiteral("= ") + QString::number(versionKey),
                     {backend, {QStringLiteral("tRequirement")}});
    return deletions;
}

std::vector<ContentDeletion> ClearVersionContentStatements(qint32 versionKey, BackendKind backend)
{
    std::vector<ContentDeletion> deletions;
    addDeletionBelow(deletions, QStringLiteral("tVersion"), QStringLiteral("= ") + QString::number(versionKey), {backend, {}});
    return deletions;
}

std::vector<ContentDeletion> PrepareForRestoreStatements(qint32 environmentKey, bool listsVersions, BackendKind backend)
{
    const QString environment = QString::number(environmentKey);
    std::vector<ContentDeletion> deletions;
    const Walk all{backend, {}};
    addDeletionBelow(deletions, QStringLiteral("tEnvironment"), QStringLiteral("= ") + environment, all);
    if (!listsVersions)
        return deletions;
    addDeletion(deletions, *find(VersionContentTables(), QStringLiteral("tStepWindow")),
                QStringLiteral("iStepWindowEnvironmentKey = ") + environment, all);
    // An entry of the list without a version stands for version 0.
    const QString listed =
        QStringLiteral("SELECT COALESCE(iEnvironVerKey, 0) FROM tEnvironmentDetail WHERE iEnvironKey = ") + environment;
    addDeletionBelow(deletions, QStringLiteral("tVersion"), AmongKeys(backend, listed), {backend, {QStringLiteral("tStepWindow")}});
    return deletions;
}

std::vector<ContentDeletion> PrepareForRestoreOfVersion(qint32 environmentKey, qint32 listedVersionKey, BackendKind backend)
{
    const QString version = QString::number(listedVersionKey);
    const Walk all{backend, {}};
    std::vector<ContentDeletion> deletions;
    addDeletion(deletions, *find(VersionContentTables(), QStringLiteral("tStepWindow")),
                QStringLiteral("iStepWindowEnvironmentKey = %1 AND iStepWindowProcessKey %2")
                    .arg(QString::number(environmentKey),
                         AmongKeys(backend, QStringLiteral("SELECT iProcessKey FROM tProcess WHERE iProcessVerKey = ") + version)),
                all);
    addDeletionBelow(deletions, QStringLiteral("tVersion"), QStringLiteral("= ") + version,
                     {backend, {QStringLiteral("tStepWindow")}});
    return deletions;
}

std::vector<ContentDeletion> CopiedVersionContent(qint32 versionKey, BackendKind backend)
{
    std::vector<ContentDeletion> parts;
    addDeletionBelow(parts, QStringLiteral("tVersion"), QStringLiteral("= ") + QString::number(versionKey),
                     {backend, {}, withoutPlaceholders});
    for (ContentDeletion& part : parts)
        part.sql.clear();
    return parts;
}

} // namespace dorvane
