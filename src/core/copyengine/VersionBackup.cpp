#include "core/copyengine/VersionBackup.h"

#include "core/copyengine/CopyStep.h"
#include "core/copyengine/DatabaseCopy.h"
#include "core/copyengine/StepArguments.h"
#include "core/copyengine/VersionContent.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/HeldWrites.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"

#include <QStringList>

#include <algorithm>
#include <utility>

namespace dorvane {

namespace {

QString num(qint32 key) { return QString::number(key); }

// Column names. What each copy takes over from the source row as it stands
// is declared with the content's tree (VersionContent).
const QString kWindowKey = QStringLiteral("iWindowKey");
const QString kWindowVerKey = QStringLiteral("iWindowVerKey");
const QStringList kWindowColumns = KeptColumns(QStringLiteral("tWindow"));

const QString kObjectKey = QStringLiteral("iObjectKey");
const QString kObjectWindowKey = QStringLiteral("iObjectWindowKey");
const QString kObjectVersionKey = QStringLiteral("iObjectVersionKey");
const QStringList kObjectColumns = KeptColumns(QStringLiteral("tObject"));

const QString kVarKey = QStringLiteral("iVarKey");
const QString kVarAppVerKey = QStringLiteral("iVarAppVerKey");
const QStringList kVarColumns = KeptColumns(QStringLiteral("tUserVar"));

const QString kRequirementKey = QStringLiteral("iRequirementKey");
const QString kRequirementAppVerKey = QStringLiteral("iRequirementAppVerKey");
const QStringList kRequirementColumns = KeptColumns(QStringLiteral("tRequirement"));

const QString kKeywordKey = QStringLiteral("iKeywordKey");
const QString kKeywordAppKey = QStringLiteral("iKeywordAppKey");
const QString kKeywordName = QStringLiteral("sKeywordName");
const QString kKeywordDesc = QStringLiteral("sKeywordDesc");

const QString kProcessKey = QStringLiteral("iProcessKey");
const QString kProcessVerKey = QStringLiteral("iProcessVerKey");
// iProcessRequirementKey and iProcessDependencyKey keep the source keys.
const QStringList kProcessColumns = KeptColumns(QStringLiteral("tProcess"));

const QString kStepWindowKey = QStringLiteral("iStepWindowKey");
const QString kStepWindowWindowKey = QStringLiteral("iStepWindowWindowKey");
const QString kStepWindowProcessKey = QStringLiteral("iStepWindowProcessKey");
const QString kStepWindowSequenceNum = QStringLiteral("iStepWindowSequenceNum");
const QString kStepWindowVerKey = QStringLiteral("iStepWindowVerKey");
const QString kStepWindowEnvironmentKey = QStringLiteral("iStepWindowEnvironmentKey");
const QStringList kStepWindowColumns = KeptColumns(QStringLiteral("tStepWindow"));

const QString kStepObjectKey = QStringLiteral("iStepObjectKey");
const QString kStepArguments = QStringLiteral("sStepArguments");
const QStringList kStepColumns = KeptColumns(QStringLiteral("tStep"));

const QString kKeywordRelKeywordKey = QStringLiteral("iKeywordRelKeywordKey");
const QString kKeywordRelProcessKey = QStringLiteral("iKeywordRelProcessKey");
const QString kKeywordRelCycleKey = QStringLiteral("iKeywordRelCycleKey");
const QString kKeywordRelScheduleKey = QStringLiteral("iKeywordRelScheduleKey");
const QStringList kKeywordRelColumns = KeptColumns(QStringLiteral("tKeywordRel"));

const QString kCycleKey = QStringLiteral("iCycleKey");
const QString kCycleVerKey = QStringLiteral("iCycleVerKey");
const QString kCycleDependencyKey = QStringLiteral("iCycleDependencyKey");
const QString kCycleStartStateKey = QStringLiteral("iCycleStartStateKey");
const QStringList kCycleColumns = KeptColumns(QStringLiteral("tCycle"));

const QStringList kCycleProcessColumns = KeptColumns(QStringLiteral("tCycleProcess"));

const QString kScheduleKey = QStringLiteral("iScheduleKey");
const QString kScheduleEnvironKey = QStringLiteral("iScheduleEnvironKey");
const QStringList kScheduleColumns = KeptColumns(QStringLiteral("tSchedule"));
const QStringList kScheduleCycleColumns = KeptColumns(QStringLiteral("tScheduleCycles"));

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

// Rows held for sending many to a statement are sent by the end of the step
// that wrote them, maybe after later rows of other tables: a failure names
// the stage that wrote the rows its statement carried.
struct TableStage {
    const char* table;
    const QString* stage;
};
const QString& failedStage(const DbError& error, const QString& running, std::initializer_list<TableStage> writers)
{
    const QString table = error.table();
    for (const TableStage& writer : writers) {
        if (table.compare(QLatin1String(writer.table), Qt::CaseInsensitive) == 0)
            return *writer.stage;
    }
    return running;
}

// The keyword relations of one holder (a process, cycle or schedule): the
// holder column takes the new holder key, the keyword goes through
// KeywordMap and keeps its key where the map has none. The other holder
// columns keep their defaults.
class KeywordRelationCopy {
public:
    KeywordRelationCopy(QString holderColumn, const KeyMap& keywordMap, Recordset& relations, Connection& source)
        : m_holder(std::move(holderColumn)),
          m_row(RowCopy().Parent(m_holder).MappedOrKept(kKeywordRelKeywordKey, keywordMap).Keep(kKeywordRelColumns)),
          m_copy(m_row, relations),
          m_reads(source, QStringLiteral("SELECT * FROM tKeywordRel WHERE %1 = ").arg(m_holder), QString(),
                  QStringLiteral("tKeywordRel"), m_holder)
    {
    }

    // The holders whose relations Run will copy, in order.
    void SetHolders(const std::vector<qint32>& keys)
    {
        if (m_reads.ReadsInBlocks())
            m_reads.SetParents(keys);
    }

    void Run(qint32 oldHolder, qint32 newHolder)
    {
        Recordset rs;
        m_reads.Open(rs, oldHolder);
        m_copy.Run(rs, {newHolder});
    }

private:
    QString m_holder;
    RowCopy m_row;
    TableCopy m_copy;
    ChildReads m_reads;
};

// The rules of FixUpStepArguments as session functions of a PostgreSQL
// connection, over the temporary maps dv_map_process and dv_map_variable:
// numbers read as ReadArgumentNumber reads them ("Overflow" past 32 bits),
// written as FormatArgumentNumber writes them. Positions count from 1.
const char* const kPostgresFixUpFunctions[] = {
    R"(CREATE OR REPLACE FUNCTION pg_temp.dv_read_number(t text) RETURNS integer LANGUAGE plpgsql IMMUTABLE AS $f$
DECLARE i integer := 1; n integer := length(t); negative boolean := false; v bigint := 0;
BEGIN
  WHILE i <= n AND substr(t, i, 1) IN (' ', chr(9)) LOOP i := i + 1; END LOOP;
  IF i <= n AND substr(t, i, 1) IN ('-', '+') THEN negative := substr(t, i, 1) = '-'; i := i + 1; END IF;
  WHILE i <= n AND ascii(substr(t, i, 1)) BETWEEN 48 AND 57 LOOP
    v := v * 10 + ascii(substr(t, i, 1)) - 48;
    IF v > 2147483648 THEN RAISE EXCEPTION 'Overflow'; END IF;
    i := i + 1;
  END LOOP;
  IF negative THEN v := -v; END IF;
  IF v > 2147483647 OR v < -2147483648 THEN RAISE EXCEPTION 'Overflow'; END IF;
  RETURN v;
END $f$)",
    R"(CREATE OR REPLACE FUNCTION pg_temp.dv_format_number(k integer) RETURNS text LANGUAGE sql IMMUTABLE AS
$f$ SELECT CASE WHEN k >= 0 THEN ' ' || k::text ELSE k::text END $f$)",
    R"(CREATE OR REPLACE FUNCTION pg_temp.dv_fixed_step_arguments(arg text, destination integer) RETURNS text
LANGUAGE plpgsql AS $f$
DECLARE t text := arg; p integer; k integer; m integer; scan integer := 1;
        s integer; o integer; b integer; c integer; changed boolean := false;
BEGIN
  IF t IS NULL THEN RETURN NULL; END IF;
  p := strpos(t, 'ProcessKey=');
  IF p > 0 THEN
    k := pg_temp.dv_read_number(substr(t, p + 11));
    SELECT new INTO m FROM dv_map_process WHERE old = k;
    IF m > 0 THEN k := m; END IF;
    RETURN 'ProcessKey=' || pg_temp.dv_format_number(k);
  END IF;
  LOOP
    s := strpos(substr(t, scan), '=@'); EXIT WHEN s = 0; s := s + scan - 1;
    o := strpos(substr(t, s), chr(91)); EXIT WHEN o = 0; o := o + s - 1;
    b := strpos(substr(t, o + 1), '|'); EXIT WHEN b = 0; b := b + o;
    c := strpos(substr(t, b + 1), chr(93)); EXIT WHEN c = 0; c := c + b;
    k := pg_temp.dv_read_number(substr(t, b + 1, c - b - 1));
    m := NULL;
    SELECT new INTO m FROM dv_map_variable WHERE old = k;
    IF m IS NOT NULL AND m <> 0 THEN k := m; END IF;
    t := substr(t, 1, o) || pg_temp.dv_format_number(destination) || '|' || pg_temp.dv_format_number(k) || substr(t, c);
    changed := true;
    scan := o;
  END LOOP;
  IF changed THEN RETURN t; END IF;
  RETURN arg;
END $f$)",
};

} // namespace

void VersionBackup::storeBatch(KeyMap& map, DatabaseCopy& copy, const QString& table)
{
    for (const auto& [oldKey, newKey] : copy.Pairs(table))
        map.StoreNext(oldKey, newKey);
}

VersionBackup::VersionBackup(MessageSink& messages, ProgressSink& progress, QString repository, BusyIndicator* busy)
    : m_messages(&messages), m_progress(progress), m_busy(busy), m_repository(std::move(repository))
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
    m_messages->Show(prefix + description, Buttons::Ok);
    return false;
}

void VersionBackup::startProgress(const QString& labelWords, qint32 count)
{
    m_progress.SetAction(labelWords + CurrentVersionLabel);
    m_progress.SetRange(0, float(count));
    m_progress.SetValue(0);
    m_progress.Refresh();
}

void VersionBackup::finishProgress(qint32 rows)
{
    // The bar never passes its maximum.
    m_progress.SetValue(std::min(m_progress.Maximum(), m_progress.Value() + float(rows)));
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
        auto connection = std::make_unique<Connection>();
        connection->Open(m_repository);
        return connection;
    } catch (const DbError& e) {
        m_messages->Show(QStringLiteral("Error while opening destination database for version copy: ") + e.description(),
                        Buttons::Ok);
        return nullptr;
    }
}

bool VersionBackup::CopyWindows(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                                Connection& destination, bool includeSystemScreen)
{
    if (&source == &destination)
        return copyWindowsInDatabase(sourceVersionKey, destinationVersionKey, destination, includeSystemScreen);
    try {
        QString sql = QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + num(sourceVersionKey);
        if (!includeSystemScreen)
            sql += QStringLiteral(" AND sWindowPhysicalName <> '[System Screen]'");
        Recordset windows(sql, source);
        // Only added to: its rows are never read.
        Recordset newWindows(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey = ") + num(destinationVersionKey),
                             destination);

        // A window's parent window key is copied as it stands.
        const RowCopy windowRow = RowCopy(kWindowKey).Parent(kWindowVerKey).Keep(kWindowColumns);
        const RowCopy objectRow =
            RowCopy(kObjectKey).Parent(kObjectWindowKey, 0).Parent(kObjectVersionKey, 1).Keep(kObjectColumns);

        Recordset objects;
        ChildReads objectReads(source, QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey = "), QString(),
                               QStringLiteral("tObject"), kObjectWindowKey);
        Recordset newObject;
        TableCopy objectCopy(objectRow, newObject);
        objectCopy.reopen = QStringLiteral("SELECT * FROM tObject WHERE iObjectKey=0");
        objectCopy.reopenOn = &destination;
        objectCopy.map = &ObjectMap;
        objectCopy.growth = MapGrowth::GrowUnlessEmpty;

        TableCopy windowCopy(windowRow, newWindows);
        windowCopy.map = &WindowMap;
        windowCopy.growth = MapGrowth::Grow;
        windowCopy.started = [&](qint32 count) {
            startProgress(QStringLiteral("Windows in "), count);
            if (objectReads.ReadsInBlocks())
                objectReads.SetParents(ColumnKeys(windows, kWindowKey));
        };
        windowCopy.afterRow = [&](Recordset&, qint32 oldWindowKey, qint32 newWindowKey) {
            m_progress.Yield();
            objectReads.Open(objects, oldWindowKey);
            objectCopy.Run(objects, {newWindowKey, destinationVersionKey});
            advanceProgress();
            m_progress.Yield();
            objects.Close();
        };
        windowCopy.Run(windows, {destinationVersionKey});
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(kWindowsFailed, e.description());
    }
}

bool VersionBackup::copyWindowsInDatabase(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db,
                                          bool includeSystemScreen)
{
    try {
        DatabaseCopy copy(db);
        QString windows = QStringLiteral("tWindow s WHERE s.iWindowVerKey = ") + num(sourceVersionKey);
        if (!includeSystemScreen)
            windows += QStringLiteral(" AND s.sWindowPhysicalName <> '[System Screen]'");
        const qint32 count = qint32(copy.Choose(QStringLiteral("tWindow"), kWindowKey, windows, QStringLiteral("s.iWindowKey")));
        WindowMap.Grow(count);
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Windows in "), count);
        // A window's parent window key is copied as it stands.
        copy.Insert(QStringLiteral("tWindow"), kWindowKey, QStringList{kWindowVerKey} + kWindowColumns,
                    QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(kWindowColumns));
        storeBatch(WindowMap, copy, QStringLiteral("tWindow"));

        // The objects of each window, window by window.
        const QString windowBatch = copy.Batch(QStringLiteral("tWindow"));
        const qint32 objects = qint32(copy.Choose(QStringLiteral("tObject"), kObjectKey,
                                                  QStringLiteral("tObject s JOIN %1 w ON s.iObjectWindowKey = w.old").arg(windowBatch),
                                                  QStringLiteral("w.pos, s.iObjectKey")));
        if (objects > 0) {
            ObjectMap.Grow(objects);
            copy.Insert(QStringLiteral("tObject"), kObjectKey, QStringList{kObjectWindowKey, kObjectVersionKey} + kObjectColumns,
                        QStringList{QStringLiteral("w.new"), num(destinationVersionKey)} + DatabaseCopy::Kept(kObjectColumns),
                        QStringLiteral("JOIN %1 w ON w.old = s.iObjectWindowKey").arg(windowBatch));
            storeBatch(ObjectMap, copy, QStringLiteral("tObject"));
        }
        finishProgress(count);
        return true;
    } catch (const DbError& e) {
        return fail(kWindowsFailed, e.description());
    }
}

bool VersionBackup::copySchedulesInDatabase(qint32 sourceEnvironmentKey, qint32 destinationEnvironmentKey, Connection& db)
{
    const QString* stage = &kSchedulesFailed;
    try {
        DatabaseCopy copy(db);
        const QString schedule = QStringLiteral("tSchedule");
        const qint64 count = copy.Choose(schedule, kScheduleKey,
                                         QStringLiteral("tSchedule s WHERE s.iScheduleEnvironKey = ") + num(sourceEnvironmentKey),
                                         QStringLiteral("s.iScheduleKey"));
        if (count == 0)
            return true;
        copy.Insert(schedule, kScheduleKey, QStringList{kScheduleEnvironKey} + kScheduleColumns,
                    QStringList{num(destinationEnvironmentKey)} + DatabaseCopy::Kept(kScheduleColumns));
        const QString schedules = copy.Batch(schedule);

        // The cycle written as the lookup gives it: 0 for a cycle not copied
        // in this run.
        stage = &kScheduleCyclesFailed;
        copy.CopyChildren({QStringLiteral("tScheduleCycles"), QStringLiteral("iScheduleCyclesKey"), kScheduleKey, schedules,
                           QString(), kCycleKey, copy.Map(QStringLiteral("cycle"), CycleMap.Pairs()), kScheduleCycleColumns,
                           true});

        stage = &kScheduleKeywordsFailed;
        copyKeywordRelations(copy, kKeywordRelScheduleKey, schedules);
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::copyListInDatabase(const ListCopy& list, qint32 sourceVersionKey, qint32 destinationVersionKey,
                                       Connection& db, KeyMap& map)
{
    try {
        DatabaseCopy copy(db);
        const qint32 count = qint32(copy.Choose(list.table, list.key,
                                                QStringLiteral("%1 s WHERE s.%2 = %3").arg(list.table, list.parent, num(sourceVersionKey)),
                                                QStringLiteral("s.") + list.key));
        if (count == 0) {
            map.Replace(0);
            return true;
        }
        startProgress(list.label, count);
        map.Replace(count);
        copy.Insert(list.table, list.key, QStringList{list.parent} + list.columns,
                    QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(list.columns));
        storeBatch(map, copy, list.table);
        finishProgress(count);
        m_progress.Yield();
        return true;
    } catch (const DbError& e) {
        return fail(list.failure, e.description());
    }
}

bool VersionBackup::CopyVariables(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                                  Connection& destination)
{
    if (&source == &destination) {
        return copyListInDatabase({QStringLiteral("tUserVar"), kVarKey, kVarAppVerKey, kVarColumns,
                                   QStringLiteral("Variables in "), kVariablesFailed},
                                  sourceVersionKey, destinationVersionKey, destination, VariableMap);
    }
    try {
        Recordset variables(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey = ") + num(sourceVersionKey),
                            source);
        const RowCopy variableRow = RowCopy(kVarKey).Parent(kVarAppVerKey).Keep(kVarColumns);
        Recordset newVariable;
        TableCopy copy(variableRow, newVariable);
        copy.reopen = QStringLiteral("SELECT * FROM tUserVar");
        copy.reopenOn = &destination;
        copy.map = &VariableMap;
        copy.growth = MapGrowth::Replace;
        copy.started = [this](qint32 count) { startProgress(QStringLiteral("Variables in "), count); };
        copy.afterRow = [this](Recordset&, qint32, qint32) { advanceProgress(); };
        if (copy.Run(variables, {destinationVersionKey}) > 0)
            m_progress.Yield();
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(kVariablesFailed, e.description());
    }
}

bool VersionBackup::CopyRequirements(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                                     Connection& destination)
{
    if (&source == &destination) {
        return copyListInDatabase({QStringLiteral("tRequirement"), kRequirementKey, kRequirementAppVerKey,
                                   kRequirementColumns, QStringLiteral("Requirements in "), kRequirementsFailed},
                                  sourceVersionKey, destinationVersionKey, destination, RequirementMap);
    }
    try {
        Recordset requirements(
            QStringLiteral("SELECT * FROM tRequirement WHERE iRequirementAppVerKey = ") + num(sourceVersionKey), source);
        const RowCopy requirementRow =
            RowCopy(kRequirementKey).Parent(kRequirementAppVerKey).Keep(kRequirementColumns);
        Recordset newRequirement;
        TableCopy copy(requirementRow, newRequirement);
        copy.reopen = QStringLiteral("SELECT * FROM tRequirement");
        copy.reopenOn = &destination;
        copy.map = &RequirementMap;
        copy.growth = MapGrowth::Replace;
        copy.started = [this](qint32 count) { startProgress(QStringLiteral("Requirements in "), count); };
        copy.afterRow = [this](Recordset&, qint32, qint32) { advanceProgress(); };
        if (copy.Run(requirements, {destinationVersionKey}) > 0)
            m_progress.Yield();
        destination.SendHeldWrites();
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
                // The name is quoted: a keyword such as "Don't save" finds
                // its match like any other. The repository compares names
                // without regard to case, but keywords are told apart by
                // their exact names (SMOKE is not smoke): of the rows the
                // database finds, only one with exactly this name matches.
                const QString name = keywords.Text(kKeywordName);
                target.Open(QStringLiteral("SELECT * FROM tKeyword WHERE sKeywordName='") + QuoteSql(name) +
                                QStringLiteral("' and iKeywordAppKey=") + num(destinationAppKey) +
                                QStringLiteral(" ORDER BY iKeywordKey"),
                            destination);
                while (!target.Eof() && target.Text(kKeywordName) != name)
                    target.MoveNext();
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
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(kKeywordsFailed, e.description());
    }
}

bool VersionBackup::CopyProcesses(qint32 sourceVersionKey, qint32 /*sourceEnvironmentKey*/, Connection& source,
                                  qint32 destinationVersionKey, qint32 destinationEnvironmentKey,
                                  Connection& destination)
{
    if (&source == &destination)
        return copyProcessesInDatabase(sourceVersionKey, destinationVersionKey, destinationEnvironmentKey, destination);
    const QString* stage = &kProcessesFailed;
    try {
        Recordset processes(QStringLiteral("SELECT * from tProcess WHERE iProcessVerKey = ") + num(sourceVersionKey),
                            source);

        // iProcessRequirementKey and iProcessDependencyKey keep the source
        // keys. A step window's process, version and environment are the
        // destination's; its window and a step's object go through the maps.
        const RowCopy processRow = RowCopy(kProcessKey).Parent(kProcessVerKey).Keep(kProcessColumns);
        const RowCopy stepWindowRow = RowCopy(kStepWindowKey)
                                          .MappedOrKept(kStepWindowWindowKey, WindowMap)
                                          .Parent(kStepWindowProcessKey, 0)
                                          .Keep(kStepWindowColumns)
                                          .Parent(kStepWindowVerKey, 1)
                                          .Parent(kStepWindowEnvironmentKey, 2);
        const RowCopy stepRow = RowCopy().Parent(kStepWindowKey).MappedOrKept(kStepObjectKey, ObjectMap).Keep(kStepColumns);

        // Only added to for the whole call: their rows are never read.
        Recordset newProcesses;
        Recordset newSteps;
        Recordset newStepWindows;
        Recordset newRelations;
        KeywordRelationCopy relationCopy(kKeywordRelProcessKey, KeywordMap, newRelations, source);

        ChildReads stepReads(source, QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey = "),
                             QStringLiteral(" ORDER BY iStepSequenceNum"), QStringLiteral("tStep"), kStepWindowKey,
                             QStringLiteral("iStepSequenceNum"));
        ChildReads stepWindowReads(source, QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey = "),
                                   QStringLiteral(" ORDER BY iStepWindowSequenceNum"), QStringLiteral("tStepWindow"),
                                   kStepWindowProcessKey, kStepWindowSequenceNum);
        stepWindowReads.FeedChildren(stepReads);

        Recordset steps;
        TableCopy stepCopy(stepRow, newSteps);
        stepCopy.beforeRow = [&] { stage = &kStepsFailed; };
        stepCopy.afterRow = [this](Recordset&, qint32, qint32) { m_progress.Yield(); };

        Recordset stepWindows;
        TableCopy stepWindowCopy(stepWindowRow, newStepWindows);
        // The process key of the step window copied last, for the rule that
        // skips a lone placeholder step window or a process met twice.
        qint32 lastStepWindowProcessKey = 0;
        stepWindowCopy.beforeRow = [&] { lastStepWindowProcessKey = stepWindows.Int(kStepWindowProcessKey); };
        stepWindowCopy.afterRow = [&](Recordset&, qint32 oldStepWindowKey, qint32 newStepWindowKey) {
            stepReads.Open(steps, oldStepWindowKey);
            stepCopy.Run(steps, {newStepWindowKey});
            // The stage stays where the steps left it.
            m_progress.Yield();
        };

        TableCopy processCopy(processRow, newProcesses);
        processCopy.map = &ProcessMap;
        processCopy.growth = MapGrowth::Grow;
        processCopy.started = [&](qint32 count) {
            newProcesses.Open(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=") + num(destinationVersionKey),
                              destination);
            newSteps.Open(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey=0"), destination);
            newStepWindows.Open(
                QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowVerKey=") + num(destinationVersionKey),
                destination);
            newRelations.Open(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelKeywordKey=0"), destination);
            startProgress(QStringLiteral("Processes in "), count);
            if (stepWindowReads.ReadsInBlocks()) {
                const std::vector<qint32> keys = ColumnKeys(processes, kProcessKey);
                stepWindowReads.SetParents(keys);
                relationCopy.SetHolders(keys);
            }
        };
        processCopy.beforeRow = [&] { stage = &kProcessesFailed; };
        processCopy.afterRow = [&](Recordset&, qint32 oldProcessKey, qint32 newProcessKey) {
            stage = &kStepWindowsFailed;
            stepWindowReads.Open(stepWindows, oldProcessKey);
            const qint32 stepWindowCount = CountRecords(&stepWindows);
            const bool skipped = stepWindowCount == 1 && (stepWindows.Int(kStepWindowWindowKey) == 0 ||
                                                          stepWindows.Int(kStepWindowProcessKey) == lastStepWindowProcessKey);
            if (!skipped)
                stepWindowCopy.Run(stepWindows, {newProcessKey, destinationVersionKey, destinationEnvironmentKey});

            stage = &kProcessKeywordsFailed;
            relationCopy.Run(oldProcessKey, newProcessKey);

            m_progress.Yield();
            advanceProgress();
        };
        processCopy.Run(processes, {destinationVersionKey});
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(failedStage(e, *stage,
                                {{"tProcess", &kProcessesFailed},
                                 {"tStepWindow", &kStepWindowsFailed},
                                 {"tStep", &kStepsFailed},
                                 {"tKeywordRel", &kProcessKeywordsFailed}}),
                    e.description());
    }
}

void VersionBackup::copyKeywordRelations(DatabaseCopy& copy, const QString& holderColumn, const QString& holders)
{
    // The holder column takes the new holder key; the keyword goes through
    // KeywordMap and keeps its key where the map has none.
    const QString keywords = copy.Map(QStringLiteral("keyword"), KeywordMap.Pairs());
    copy.CopyChildren({QStringLiteral("tKeywordRel"), QStringLiteral("iKeywordRelKey"), holderColumn, holders, QString(),
                       kKeywordRelKeywordKey, keywords, kKeywordRelColumns});
}

bool VersionBackup::copyProcessesInDatabase(qint32 sourceVersionKey, qint32 destinationVersionKey,
                                            qint32 destinationEnvironmentKey, Connection& db)
{
    const QString* stage = &kProcessesFailed;
    try {
        DatabaseCopy copy(db);
        const QString process = QStringLiteral("tProcess"), stepWindow = QStringLiteral("tStepWindow"),
                      step = QStringLiteral("tStep");
        const qint32 count = qint32(copy.Choose(process, kProcessKey,
                                                QStringLiteral("tProcess s WHERE s.iProcessVerKey = ") + num(sourceVersionKey),
                                                QStringLiteral("s.iProcessKey")));
        ProcessMap.Grow(count);
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Processes in "), count);
        // iProcessRequirementKey and iProcessDependencyKey keep the source keys.
        copy.Insert(process, kProcessKey, QStringList{kProcessVerKey} + kProcessColumns,
                    QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(kProcessColumns));
        storeBatch(ProcessMap, copy, process);
        const QString processes = copy.Batch(process);

        // A process's step windows in sequence, but not a lone step window
        // without a window (a placeholder). A step window's window goes
        // through WindowMap and keeps its key where the map has none.
        stage = &kStepWindowsFailed;
        const QString windows = copy.Map(QStringLiteral("window"), WindowMap.Pairs());
        copy.Choose(stepWindow, kStepWindowKey,
                    QStringLiteral("tStepWindow s JOIN %1 p ON s.iStepWindowProcessKey = p.old WHERE NOT "
                                   "(COALESCE(s.iStepWindowWindowKey, 0) = 0 AND (SELECT COUNT(*) FROM tStepWindow c "
                                   "WHERE c.iStepWindowProcessKey = s.iStepWindowProcessKey) = 1)")
                        .arg(processes),
                    QStringLiteral("p.pos, s.iStepWindowSequenceNum, s.iStepWindowKey"));
        copy.Insert(stepWindow, kStepWindowKey,
                    QStringList{kStepWindowWindowKey, kStepWindowProcessKey, kStepWindowVerKey, kStepWindowEnvironmentKey} +
                        kStepWindowColumns,
                    QStringList{QStringLiteral("COALESCE(m.new, s.iStepWindowWindowKey)"), QStringLiteral("p.new"),
                                num(destinationVersionKey), num(destinationEnvironmentKey)} +
                        DatabaseCopy::Kept(kStepWindowColumns),
                    QStringLiteral("JOIN %1 p ON p.old = s.iStepWindowProcessKey LEFT JOIN %2 m ON m.old = s.iStepWindowWindowKey")
                        .arg(processes, windows));

        // Their steps in sequence; a step's object goes through ObjectMap.
        stage = &kStepsFailed;
        const QString stepWindows = copy.Batch(stepWindow);
        const QString objects = copy.Map(QStringLiteral("object"), ObjectMap.Pairs());
        copy.CopyChildren({step, QStringLiteral("iStepKey"), kStepWindowKey, stepWindows, QStringLiteral("iStepSequenceNum"),
                           kStepObjectKey, objects, kStepColumns});

        // The processes' keyword relations; a keyword goes through KeywordMap.
        stage = &kProcessKeywordsFailed;
        copyKeywordRelations(copy, kKeywordRelProcessKey, processes);
        finishProgress(count);
        m_progress.Yield();
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::CopyCycles(qint32 sourceVersionKey, Connection& source, qint32 destinationVersionKey,
                               Connection& destination)
{
    if (&source == &destination)
        return copyCyclesInDatabase(sourceVersionKey, destinationVersionKey, destination);
    const QString* stage = &kCyclesFailed;
    try {
        Recordset cycles(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey =") + num(sourceVersionKey), source);

        // The dependency and the start state: 0 stays 0; any other key goes
        // through ProcessMap and becomes 0 when the process was not copied.
        // A cycle process keeps a process outside the copy.
        const RowCopy cycleRow = RowCopy(kCycleKey)
                                     .Parent(kCycleVerKey)
                                     .Keep(kCycleColumns)
                                     .MappedUnlessZero(kCycleDependencyKey, ProcessMap)
                                     .MappedUnlessZero(kCycleStartStateKey, ProcessMap);
        const RowCopy cycleProcessRow =
            RowCopy().Parent(kCycleKey).MappedOrKept(kProcessKey, ProcessMap).Keep(kCycleProcessColumns);

        Recordset newCycles;
        Recordset newCycleProcesses;
        Recordset newRelations;
        KeywordRelationCopy relationCopy(kKeywordRelCycleKey, KeywordMap, newRelations, source);
        Recordset cycleProcesses;
        ChildReads cycleProcessReads(source, QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey = "), QString(),
                                     QStringLiteral("tCycleProcess"), kCycleKey);
        TableCopy cycleProcessCopy(cycleProcessRow, newCycleProcesses);

        TableCopy cycleCopy(cycleRow, newCycles);
        cycleCopy.map = &CycleMap;
        cycleCopy.growth = MapGrowth::Grow;
        cycleCopy.started = [&](qint32) {
            newCycles.Open(QStringLiteral("SELECT * FROM tCycle"), destination);
            newCycleProcesses.Open(QStringLiteral("SELECT * FROM tCycleProcess"), destination);
            newRelations.Open(QStringLiteral("SELECT * FROM tKeywordRel"), destination);
            if (cycleProcessReads.ReadsInBlocks()) {
                const std::vector<qint32> keys = ColumnKeys(cycles, kCycleKey);
                cycleProcessReads.SetParents(keys);
                relationCopy.SetHolders(keys);
            }
        };
        cycleCopy.beforeRow = [&] { stage = &kCyclesFailed; };
        cycleCopy.afterRow = [&](Recordset&, qint32 oldCycleKey, qint32 newCycleKey) {
            stage = &kCycleProcessesFailed;
            cycleProcessReads.Open(cycleProcesses, oldCycleKey);
            cycleProcessCopy.Run(cycleProcesses, {newCycleKey});

            stage = &kCycleKeywordsFailed;
            relationCopy.Run(oldCycleKey, newCycleKey);
        };
        cycleCopy.Run(cycles, {destinationVersionKey});
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(failedStage(e, *stage,
                                {{"tCycle", &kCyclesFailed},
                                 {"tCycleProcess", &kCycleProcessesFailed},
                                 {"tKeywordRel", &kCycleKeywordsFailed}}),
                    e.description());
    }
}

bool VersionBackup::copyCyclesInDatabase(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db)
{
    const QString* stage = &kCyclesFailed;
    try {
        DatabaseCopy copy(db);
        const QString cycle = QStringLiteral("tCycle"), cycleProcess = QStringLiteral("tCycleProcess");
        const qint32 count = qint32(copy.Choose(cycle, kCycleKey,
                                                QStringLiteral("tCycle s WHERE s.iCycleVerKey = ") + num(sourceVersionKey),
                                                QStringLiteral("s.iCycleKey")));
        CycleMap.Grow(count);
        if (count == 0)
            return true;
        // The dependency and the start state: 0 stays 0; any other key goes
        // through ProcessMap and becomes 0 when the process was not copied.
        const QString processes = copy.Map(QStringLiteral("process"), ProcessMap.Pairs());
        const auto unlessZero = [&](const QString& column) {
            return QStringLiteral("CASE WHEN COALESCE(s.%1, 0) = 0 THEN s.%1 ELSE COALESCE(%2, 0) END")
                .arg(column, DatabaseCopy::Lookup(processes, QStringLiteral("s.") + column));
        };
        copy.Insert(cycle, kCycleKey,
                    QStringList{kCycleVerKey} + kCycleColumns + QStringList{kCycleDependencyKey, kCycleStartStateKey},
                    QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(kCycleColumns) +
                        QStringList{unlessZero(kCycleDependencyKey), unlessZero(kCycleStartStateKey)});
        storeBatch(CycleMap, copy, cycle);
        const QString cycles = copy.Batch(cycle);

        // A cycle process keeps a process outside the copy.
        stage = &kCycleProcessesFailed;
        copy.CopyChildren({cycleProcess, QStringLiteral("iCycleProcessKey"), kCycleKey, cycles, QString(), kProcessKey,
                           processes, kCycleProcessColumns});

        stage = &kCycleKeywordsFailed;
        copyKeywordRelations(copy, kKeywordRelCycleKey, cycles);
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::CopySchedules(qint32 sourceEnvironmentKey, Connection& source, qint32 destinationEnvironmentKey,
                                  Connection& destination)
{
    if (&source == &destination)
        return copySchedulesInDatabase(sourceEnvironmentKey, destinationEnvironmentKey, destination);
    const QString* stage = &kSchedulesFailed;
    try {
        Recordset schedules(QStringLiteral("SELECT * FROM tSchedule WHERE iScheduleEnvironKey =") +
                                num(sourceEnvironmentKey),
                            source);

        const RowCopy scheduleRow = RowCopy(kScheduleKey).Parent(kScheduleEnvironKey).Keep(kScheduleColumns);
        // The cycle written as the lookup gives it: 0 for a cycle not copied
        // in this run.
        const RowCopy scheduleCycleRow =
            RowCopy().Parent(kScheduleKey).Mapped(kCycleKey, CycleMap).Keep(kScheduleCycleColumns);

        Recordset newSchedules;
        Recordset newScheduleCycles;
        Recordset newRelations;
        KeywordRelationCopy relationCopy(kKeywordRelScheduleKey, KeywordMap, newRelations, source);
        Recordset scheduleCycles;
        TableCopy scheduleCycleCopy(scheduleCycleRow, newScheduleCycles);

        TableCopy scheduleCopy(scheduleRow, newSchedules);
        scheduleCopy.started = [&](qint32) {
            newSchedules.Open(QStringLiteral("SELECT * FROM tSchedule"), destination);
            newScheduleCycles.Open(QStringLiteral("SELECT * FROM tScheduleCycles"), destination);
            newRelations.Open(QStringLiteral("SELECT * FROM tKeywordRel"), destination);
        };
        scheduleCopy.beforeRow = [&] { stage = &kSchedulesFailed; };
        scheduleCopy.afterRow = [&](Recordset&, qint32 oldScheduleKey, qint32 newScheduleKey) {
            stage = &kScheduleCyclesFailed;
            scheduleCycles.Open(QStringLiteral("SELECT * FROM tScheduleCycles WHERE iScheduleKey = ") +
                                    num(oldScheduleKey),
                                source);
            scheduleCycleCopy.Run(scheduleCycles, {newScheduleKey});

            stage = &kScheduleKeywordsFailed;
            relationCopy.Run(oldScheduleKey, newScheduleKey);
        };
        scheduleCopy.Run(schedules, {destinationEnvironmentKey});
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(failedStage(e, *stage,
                                {{"tSchedule", &kSchedulesFailed},
                                 {"tScheduleCycles", &kScheduleCyclesFailed},
                                 {"tKeywordRel", &kScheduleKeywordsFailed}}),
                    e.description());
    }
}

bool VersionBackup::CopyReserved(qint32, Connection&, qint32, Connection&) { return true; }

bool VersionBackup::FixUpSteps(qint32 destinationVersionKey, Connection& destination)
{
    try {
        // Only a text that holds a process call or a variable token can
        // change (LIKE finds more, in any letter case: the rules decide).
        const QString candidates = QStringLiteral(
            "SELECT s.iStepKey FROM tStep s JOIN tStepWindow w ON s.iStepWindowKey = w.iStepWindowKey "
            "WHERE w.iStepWindowVerKey = %1 AND (s.sStepArguments LIKE '%ProcessKey=%' OR s.sStepArguments LIKE '%=@%')")
                                       .arg(destinationVersionKey);
        const QString function = QStringLiteral("dv_fixed_step_arguments");
        const bool defined = destination.DefineTextFunction(function, [&](const QString& text) {
            return FixUpStepArguments(text, destinationVersionKey, ProcessMap, VariableMap).value_or(text);
        });
        if (defined) {
            m_progress.SetAction(QStringLiteral("Fixing up steps...."));
            const auto removeFunction = qScopeGuard([&] { destination.DefineTextFunction(function, nullptr); });
            destination.Execute(QStringLiteral("UPDATE tStep SET sStepArguments = %1(sStepArguments) WHERE iStepKey IN (%2) "
                                               "AND %1(sStepArguments) IS NOT sStepArguments")
                                    .arg(function, candidates));
            return true;
        }

        // On PostgreSQL the same rules run as session functions.
        m_progress.SetAction(QStringLiteral("Fixing up steps...."));
        DatabaseCopy copy(destination);
        copy.Map(QStringLiteral("process"), ProcessMap.Pairs());
        copy.Map(QStringLiteral("variable"), VariableMap.Pairs());
        for (const char* definition : kPostgresFixUpFunctions)
            copy.Run(QString::fromUtf8(definition));
        copy.Run(QStringLiteral("UPDATE tStep SET sStepArguments = f.fixed FROM (SELECT iStepKey AS k, sStepArguments::text "
                                "AS old, pg_temp.dv_fixed_step_arguments(sStepArguments::text, %1) AS fixed FROM tStep "
                                "WHERE iStepKey IN (%2)) f WHERE tStep.iStepKey = f.k AND f.fixed IS DISTINCT FROM f.old")
                     .arg(destinationVersionKey)
                     .arg(candidates));
        destination.SendHeldWrites();
        return true;
    } catch (const DbError& e) {
        return fail(kFixUpFailed, e.description());
    }
}

const QStringList& VersionProcessPointers()
{
    static const QStringList columns = {
        QStringLiteral("iVersionLoadProcess"),      QStringLiteral("iVersionLoginProcess"),
        QStringLiteral("iVersionLogoutProcess"),    QStringLiteral("iVersionTerminateProcess"),
        QStringLiteral("iVersionRecoverProcess"),
    };
    return columns;
}

const QStringList& VersionWindowPointers()
{
    static const QStringList columns = {QStringLiteral("iVersionInitialWindow"), QStringLiteral("iVersionMainWindow")};
    return columns;
}

void VersionBackup::RemapVersionPointers(Recordset& version) const
{
    const QStringList& processPointers = VersionProcessPointers();
    const QStringList& windowPointers = VersionWindowPointers();
    auto remap = [&](const QString& column, const KeyMap& map) {
        const qint32 mapped = LookupNewKey(map, version.Int(column), map.Length());
        if (mapped != 0)
            version.SetValue(column, mapped);
    };
    for (const QString& column : processPointers)
        remap(column, ProcessMap);
    for (const QString& column : windowPointers)
        remap(column, WindowMap);
    version.Update();
}

} // namespace dorvane
