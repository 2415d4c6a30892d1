#include "core/copyengine/VersionBackup.h"

#include "core/copyengine/DatabaseCopy.h"
#include "core/copyengine/StepArguments.h"
#include "core/copyengine/VersionContent.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Interaction.h"

#include <QElapsedTimer>
#include <QHash>
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
const QString kStepArguments = QLatin1String(kStepArgumentsColumn);
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

} // namespace

const QString* CopyFailurePrefix(const QString& table)
{
    static const std::initializer_list<std::pair<const char*, const QString*>> writers = {
        {"tWindow", &kWindowsFailed},         {"tObject", &kWindowsFailed},
        {"tUserVar", &kVariablesFailed},      {"tRequirement", &kRequirementsFailed},
        {"tKeyword", &kKeywordsFailed},       {"tProcess", &kProcessesFailed},
        {"tStepWindow", &kStepWindowsFailed}, {"tStep", &kStepsFailed},
        {"tKeywordRel", &kProcessKeywordsFailed}, {"tCycle", &kCyclesFailed},
        {"tCycleProcess", &kCycleProcessesFailed}, {"tSchedule", &kSchedulesFailed},
        {"tScheduleCycles", &kScheduleCyclesFailed},
    };
    for (const auto& [name, prefix] : writers) {
        if (table.compare(QLatin1String(name), Qt::CaseInsensitive) == 0)
            return prefix;
    }
    return nullptr;
}

namespace {

// The rules of FixUpStepArguments for variable tokens as session functions
// of a PostgreSQL connection (process calls are plain SQL: ArgumentFixUp):
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
    R"(CREATE OR REPLACE FUNCTION pg_temp.dv_argument_number(t text) RETURNS integer LANGUAGE plpgsql IMMUTABLE AS $f$
DECLARE digits text := ltrim(t, ' '); r text[];
BEGIN
  -- Up to nine digits after spaces, the commonest number, are read by a
  -- cast; the rest by the rules (the pattern costs twice the cast).
  IF digits <> '' AND length(digits) <= 9 AND translate(digits, '0123456789', '') = '' THEN RETURN digits::integer; END IF;
  r := regexp_match(t, '^[ \t]*([+-]?)([0-9]*)');
  IF r[2] = '' THEN RETURN 0; END IF;
  IF length(ltrim(r[2], '0')) <= 9 THEN RETURN (r[1] || r[2])::integer; END IF;
  RETURN pg_temp.dv_read_number(t);
END $f$)",
    // The variable map comes as one jsonb object of old key to new key,
    // built once a statement: a lookup in it costs about a quarter of a
    // query of the map's table from plpgsql, made for every token.
    R"(CREATE OR REPLACE FUNCTION pg_temp.dv_fixed_tokens(arg text, destination integer, variables jsonb) RETURNS text
LANGUAGE plpgsql AS $f$
DECLARE t text := arg; k integer; m integer; scan integer := 1;
        s integer; o integer; b integer; c integer;
BEGIN
  IF t IS NULL THEN RETURN NULL; END IF;
  LOOP
    s := strpos(substr(t, scan), '=@'); EXIT WHEN s = 0; s := s + scan - 1;
    o := strpos(substr(t, s), chr(91)); EXIT WHEN o = 0; o := o + s - 1;
    b := strpos(substr(t, o + 1), '|'); EXIT WHEN b = 0; b := b + o;
    c := strpos(substr(t, b + 1), chr(93)); EXIT WHEN c = 0; c := c + b;
    k := pg_temp.dv_argument_number(substr(t, b + 1, c - b - 1));
    m := (variables ->> k::text)::integer;
    IF m IS NOT NULL AND m <> 0 THEN k := m; END IF;
    t := substr(t, 1, o) || CASE WHEN destination >= 0 THEN ' ' || destination::text ELSE destination::text END || '|' ||
         CASE WHEN k >= 0 THEN ' ' || k::text ELSE k::text END || substr(t, c);
    scan := o;
  END LOOP;
  RETURN t;
END $f$)",
};

// The key maps of a copy run, by name (DatabaseCopy::MapTable).
const QString kWindowMap = QStringLiteral("window");
const QString kObjectMap = QStringLiteral("object");
const QString kProcessMap = QStringLiteral("process");
const QString kCycleMap = QStringLiteral("cycle");
const QString kKeywordMap = QStringLiteral("keyword");
const QString kVariableMap = QStringLiteral("variable");
const QString kRequirementMap = QStringLiteral("requirement");

// The rewriting of a step's arguments for the destination version, by the
// database: an application-defined function over the process and variable
// maps read once on SQLite, session functions over the map tables on
// PostgreSQL. Only a text that holds a process call or a variable token can
// change (LIKE finds more, in any letter case: the rules decide).
class ArgumentFixUp {
public:
    ArgumentFixUp(DatabaseCopy& copy, Connection& db, qint32 destinationVersionKey, const QString& processes,
                  const QString& variables)
        : m_db(db), m_destination(destinationVersionKey), m_processes(processes), m_variables(variables)
    {
        if (db.backend() != BackendKind::Sqlite) {
            for (const char* definition : kPostgresFixUpFunctions)
                copy.Run(QString::fromUtf8(definition));
            return;
        }
        for (const auto& [oldKey, newKey] : copy.Rows(QStringLiteral("SELECT old, new FROM ") + processes))
            m_processKeys.insert(oldKey, newKey);
        for (const auto& [oldKey, newKey] : copy.Rows(QStringLiteral("SELECT old, new FROM ") + variables))
            m_variableKeys.insert(oldKey, newKey);
        db.DefineTextFunction(kFunction, [this](QByteArrayView text) {
            return FixUpStepArguments(
                       text, m_destination, [this](qint32 key) { return m_processKeys.value(key); },
                       [this](qint32 key) { return m_variableKeys.value(key); });
        });
    }
    ~ArgumentFixUp()
    {
        if (m_db.backend() == BackendKind::Sqlite)
            m_db.DefineTextFunction(kFunction, nullptr);
    }
    ArgumentFixUp(const ArgumentFixUp&) = delete;
    ArgumentFixUp& operator=(const ArgumentFixUp&) = delete;

    // Whether the text of `column` may change.
    QString Candidate(const QString& column) const
    {
        const QString text = m_db.backend() == BackendKind::Sqlite ? column : column + QStringLiteral("::text");
        return QStringLiteral("(%1 LIKE '%ProcessKey=%' OR %1 LIKE '%=@%')").arg(text);
    }
    // The fixed text of `column`: the text itself where nothing changes.
    QString Fixed(const QString& column) const
    {
        if (m_db.backend() == BackendKind::Sqlite)
            return QStringLiteral("CASE WHEN %1 THEN %2(%3) ELSE %3 END").arg(Candidate(column), kFunction, column);
        // A process call, the commoner case, by plain SQL: the number read
        // once by a pattern (past nine digits by the function that knows the
        // overflow), looked up in the map, written back alone.
        const QString text = column + QStringLiteral("::text");
        const QString rest = QStringLiteral("substr(%1, strpos(%1, 'ProcessKey=') + 11)").arg(text);
        const QString call = QStringLiteral(
            "(SELECT 'ProcessKey=' || CASE WHEN n.k >= 0 THEN ' ' || n.k::text ELSE n.k::text END FROM (SELECT "
            "COALESCE((SELECT pm.new FROM %1 pm WHERE pm.old = q.k AND pm.new > 0), q.k) AS k FROM (SELECT CASE "
            "WHEN r.digits = '' THEN 0 WHEN length(ltrim(r.digits, '0')) <= 9 THEN (r.sign || r.digits)::integer "
            "ELSE pg_temp.dv_read_number(%2) END AS k FROM (SELECT substring(%2 FROM '^[ \\t]*([+-]?)') AS sign, "
            "substring(%2 FROM '^[ \\t]*[+-]?([0-9]*)') AS digits OFFSET 0) r) q OFFSET 0) n)")
                                 .arg(m_processes, rest);
        return QStringLiteral("CASE WHEN %1 LIKE '%ProcessKey=%' THEN %2 WHEN %1 LIKE '%=@%' THEN pg_temp.dv_fixed_tokens(%1, %3, "
                              "(SELECT jsonb_object_agg(old, new) FROM %4)) ELSE %1 END")
            .arg(text, call, num(m_destination), m_variables);
    }

    // The fixed text of the arguments of the steps s, for a statement that
    // writes them: the expression over s and the join it needs. On
    // PostgreSQL the rewrite is a lateral subquery of the step's text
    // alone, so that the planner memoizes it by the text: steps repeat
    // their calls and tokens, and each rewrite costs microseconds.
    std::pair<QString, QString> ForSteps(const QString& column) const
    {
        const QString argument = QStringLiteral("s.") + column;
        if (m_db.backend() == BackendKind::Sqlite)
            return {Fixed(argument), QString()};
        return {QStringLiteral("COALESCE(f.fixed, %1)").arg(argument),
                QStringLiteral("LEFT JOIN LATERAL (SELECT %1 AS fixed FROM (SELECT %2::text AS a) d WHERE %3 OFFSET 0) f ON true")
                    .arg(Fixed(QStringLiteral("d.a")), argument, Candidate(argument))};
    }

private:
    inline static const QString kFunction = QStringLiteral("dv_fixed_step_arguments");
    Connection& m_db;
    qint32 m_destination;
    QString m_processes, m_variables;
    QHash<qint32, qint32> m_processKeys, m_variableKeys;
};

} // namespace

VersionBackup::VersionBackup(MessageSink& messages, ProgressSink& progress, QString repository, BusyIndicator* busy)
    : m_messages(&messages), m_progress(progress), m_busy(busy), m_repository(std::move(repository))
{
}

VersionBackup::~VersionBackup() = default;

void VersionBackup::ResetCopyRunMaps(bool includeKeywordMap)
{
    m_chosenList = {};
    m_fixedAsCopied = {};
    for (const QString& name : {kWindowMap, kObjectMap, kProcessMap, kCycleMap}) {
        if (!m_mapsToClear.contains(name))
            m_mapsToClear << name;
    }
    if (includeKeywordMap && !m_mapsToClear.contains(kKeywordMap))
        m_mapsToClear << kKeywordMap;
}

QString VersionBackup::map(DatabaseCopy& copy, const QString& name)
{
    const QString table = copy.MapTable(name);
    if (m_mapsToClear.removeAll(name) > 0)
        copy.ClearMap(name);
    return table;
}

std::vector<std::pair<qint32, qint32>> VersionBackup::MapPairs(Connection& db, const QString& name)
{
    DatabaseCopy copy = databaseCopy(db);
    return copy.Rows(QStringLiteral("SELECT old, new FROM %1 ORDER BY new, old").arg(map(copy, name)));
}

void VersionBackup::SetMap(Connection& db, const QString& name, const std::vector<std::pair<qint32, qint32>>& pairs)
{
    DatabaseCopy copy = databaseCopy(db);
    map(copy, name);
    copy.Map(name, pairs);
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
    m_progress.Yield();
}

void VersionBackup::inBlocks(Connection& db, qint64 count, const std::function<void(qint64, qint64)>& block)
{
    // On PostgreSQL the rows go in one statement per table: there each
    // block's steps would hash the whole object map again, build the
    // variable map's jsonb again and rewrite again the texts the block
    // before had rewritten, all of which grow with the version, not the
    // block (at 1M rows an update took 1.79 against 1.53 s in blocks).
    if (db.backend() != BackendKind::Sqlite) {
        if (count > 0)
            block(1, count);
        finishProgress(qint32(count));
        return;
    }
    // A fifth of a second a block: the window repaints between them and
    // the bar moves with the work, however fast the database is.
    constexpr qint64 kTargetMs = 200;
    qint64 size = 256;
    for (qint64 first = 1; first <= count;) {
        const qint64 last = std::min(count, first + size - 1);
        QElapsedTimer clock;
        clock.start();
        block(first, last);
        m_progress.SetValue(std::min(m_progress.Maximum(), float(last)));
        m_progress.Refresh();
        m_progress.Yield();
        const qint64 took = std::max<qint64>(1, clock.elapsed());
        size = std::clamp(size * kTargetMs / took, std::max<qint64>(16, size / 2), size * 8);
        first = last + 1;
    }
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

bool VersionBackup::CopyWindows(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db,
                                bool includeSystemScreen)
{
    try {
        DatabaseCopy copy = databaseCopy(db);
        const QString window = QStringLiteral("tWindow"), object = QStringLiteral("tObject");
        QString windows = QStringLiteral("s.iWindowVerKey = ") + num(sourceVersionKey);
        if (!includeSystemScreen)
            windows += QStringLiteral(" AND s.sWindowPhysicalName <> '[System Screen]'");
        // A window's parent window key is copied as it stands.
        const qint32 count = qint32(copy.CopyRows(window, kWindowKey, windows, QStringList{kWindowVerKey} + kWindowColumns,
                                                  QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(kWindowColumns),
                                                  [&](qint64 n) { startProgress(QStringLiteral("Windows in "), qint32(n)); }));
        if (count == 0)
            return true;
        copy.Remember(map(copy, kWindowMap), window);

        // The objects of each window, window by window, in blocks of
        // windows.
        const QString windowBatch = copy.Batch(window);
        const QString objects = map(copy, kObjectMap);
        inBlocks(db, count, [&](qint64 first, qint64 last) {
            const QString block = QStringLiteral("w.pos BETWEEN %1 AND %2").arg(first).arg(last);
            const qint64 chosen = copy.Choose(
                object, kObjectKey,
                QStringLiteral("%1 WHERE %2")
                    .arg(copy.JoinedToBatch(object, kObjectWindowKey, windowBatch, QStringLiteral("w")), block),
                QStringLiteral("w.pos, s.iObjectKey"), QStringLiteral("w.new"));
            if (chosen == 0)
                return;
            // The window's new key comes with the batch: nothing joins the
            // windows again.
            copy.Insert(object, kObjectKey, QStringList{kObjectWindowKey, kObjectVersionKey} + kObjectColumns,
                        QStringList{QStringLiteral("b.parent"), num(destinationVersionKey)} + DatabaseCopy::Kept(kObjectColumns));
            copy.Remember(objects, object);
        });
        return true;
    } catch (const DbError& e) {
        return fail(kWindowsFailed, e.description());
    }
}

bool VersionBackup::copyList(const ListCopy& list, qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db)
{
    try {
        DatabaseCopy copy = databaseCopy(db);
        qint64 count = 0;
        // The rows may have been chosen, and their map filled, before the
        // processes were copied (their steps' arguments take the new keys).
        const ChosenList chosen = std::exchange(m_chosenList, {});
        if (chosen.table == list.table && chosen.source == sourceVersionKey && chosen.destination == destinationVersionKey)
            count = chosen.count;
        else
            count = chooseList(copy, list, sourceVersionKey);
        if (count == 0)
            return true;
        startProgress(list.label, qint32(count));
        copy.Insert(list.table, list.key, QStringList{list.parent} + list.columns,
                    QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(list.columns));
        finishProgress(qint32(count));
        return true;
    } catch (const DbError& e) {
        return fail(list.failure, e.description());
    }
}

qint64 VersionBackup::chooseList(DatabaseCopy& copy, const ListCopy& list, qint32 sourceVersionKey)
{
    const qint64 count = copy.Choose(list.table, list.key,
                                     QStringLiteral("%1 s WHERE s.%2 = %3").arg(copy.Source(list.table), list.parent, num(sourceVersionKey)),
                                     QStringLiteral("s.") + list.key);
    // A version without rows leaves the map of the last one that had some.
    if (count > 0) {
        const QString mapTable = map(copy, list.map);
        copy.ClearMap(list.map);
        copy.Remember(mapTable, list.table);
    }
    return count;
}

const VersionBackup::ListCopy& VersionBackup::variables()
{
    static const ListCopy list{QStringLiteral("tUserVar"), kVarKey, kVarAppVerKey, kVarColumns, QStringLiteral("Variables in "),
                               kVariablesFailed, kVariableMap};
    return list;
}

bool VersionBackup::CopyVariables(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db)
{
    return copyList(variables(), sourceVersionKey, destinationVersionKey, db);
}

bool VersionBackup::CopyRequirements(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db)
{
    return copyList({QStringLiteral("tRequirement"), kRequirementKey, kRequirementAppVerKey, kRequirementColumns,
                     QStringLiteral("Requirements in "), kRequirementsFailed, kRequirementMap},
                    sourceVersionKey, destinationVersionKey, db);
}

bool VersionBackup::CopyKeywords(qint32 sourceAppKey, qint32 destinationAppKey, Connection& db, bool matchByName)
{
    try {
        DatabaseCopy copy = databaseCopy(db);
        const QString keyword = QStringLiteral("tKeyword");
        const QString source = copy.Source(keyword), destination = copy.Destination(keyword);
        const QString ofSourceApp = QStringLiteral(" s WHERE s.iKeywordAppKey = ") + num(sourceAppKey);
        const qint32 count = qint32(copy.Scalar(QStringLiteral("SELECT COUNT(*) FROM ") + source + ofSourceApp));
        if (count == 0)
            return true;
        startProgress(QStringLiteral("Keywords in "), count);
        const QString keywords = map(copy, kKeywordMap);
        // With matchByName a keyword whose exact name (letter case counts)
        // the destination application has already maps to the first such
        // keyword, and of the others only the first of each exact name is
        // added, the later ones mapping to it.
        const auto named = [&](const QString& table, const QString& alias, const QString& condition) {
            return QStringLiteral("EXISTS (SELECT 1 FROM %1 %2 WHERE %3 AND %4)")
                .arg(table, alias, condition,
                     copy.ExactlyEqual(alias + QStringLiteral(".sKeywordName"), QStringLiteral("s.sKeywordName")));
        };
        QString added = QStringLiteral("s.iKeywordAppKey = ") + num(sourceAppKey);
        if (matchByName) {
            added += QStringLiteral(" AND NOT ") +
                     named(destination, QStringLiteral("d"), QStringLiteral("d.iKeywordAppKey = ") + num(destinationAppKey)) +
                     QStringLiteral(" AND NOT ") +
                     named(source, QStringLiteral("e"),
                           QStringLiteral("e.iKeywordAppKey = s.iKeywordAppKey AND e.iKeywordKey < s.iKeywordKey"));
        }
        copy.CopyRows(keyword, kKeywordKey, added, {kKeywordAppKey, kKeywordName, kKeywordDesc},
                      {num(destinationAppKey), QStringLiteral("s.sKeywordName"), QStringLiteral("s.sKeywordDesc")});
        if (!matchByName) {
            copy.Remember(keywords, keyword);
        } else {
            copy.RememberPairs(keywords,
                               QStringLiteral("SELECT s.iKeywordKey, (SELECT MIN(d.iKeywordKey) FROM %1 d WHERE "
                                              "d.iKeywordAppKey = %2 AND %3) FROM %4%5 ORDER BY s.iKeywordKey")
                                   .arg(destination, num(destinationAppKey),
                                        copy.ExactlyEqual(QStringLiteral("d.sKeywordName"), QStringLiteral("s.sKeywordName")),
                                        source, ofSourceApp));
        }
        finishProgress(count);
        return true;
    } catch (const DbError& e) {
        return fail(kKeywordsFailed, e.description());
    }
}

void VersionBackup::copyKeywordRelations(DatabaseCopy& copy, const QString& holderColumn, const QString& holders)
{
    // The holder column takes the new holder key; the keyword goes through
    // the keyword map and keeps its key where the map has none.
    copy.CopyChildren({QStringLiteral("tKeywordRel"), QStringLiteral("iKeywordRelKey"), holderColumn, holders, QString(),
                       kKeywordRelKeywordKey, map(copy, kKeywordMap), kKeywordRelColumns});
}

bool VersionBackup::CopyProcesses(qint32 sourceVersionKey, qint32 destinationVersionKey, qint32 destinationEnvironmentKey,
                                  Connection& db)
{
    const QString* stage = &kProcessesFailed;
    m_chosenList = {};
    m_fixedAsCopied = {};
    try {
        DatabaseCopy copy = databaseCopy(db);
        const QString process = QStringLiteral("tProcess"), stepWindow = QStringLiteral("tStepWindow"),
                      step = QStringLiteral("tStep");
        // iProcessRequirementKey and iProcessDependencyKey keep the source keys.
        const qint32 count = qint32(copy.CopyRows(process, kProcessKey, QStringLiteral("s.iProcessVerKey = ") + num(sourceVersionKey),
                                                  QStringList{kProcessVerKey} + kProcessColumns,
                                                  QStringList{num(destinationVersionKey)} + DatabaseCopy::Kept(kProcessColumns),
                                                  [&](qint64 n) { startProgress(QStringLiteral("Processes in "), qint32(n)); }));
        if (count == 0)
            return true;
        copy.Remember(map(copy, kProcessMap), process);
        const QString processes = copy.Batch(process);

        // The variables' new keys are chosen now, so that the steps are
        // written with their arguments fixed up for this version.
        stage = &kVariablesFailed;
        m_chosenList = {variables().table, sourceVersionKey, destinationVersionKey,
                        chooseList(copy, variables(), sourceVersionKey)};
        const ArgumentFixUp fixUp(copy, db, destinationVersionKey, map(copy, kProcessMap), map(copy, kVariableMap));
        m_fixedAsCopied = {destinationVersionKey, processes};

        // Block by block of processes: their step windows in sequence, but
        // not a lone step window without a window (a placeholder); a step
        // window's window goes through the window map and keeps its key
        // where the map has none. Then their steps in sequence, a step's
        // object through the object map, and the processes' keyword
        // relations. Keys come out as one statement per table would give
        // them: each block continues where the last left off.
        const QString windows = map(copy, kWindowMap), objects = map(copy, kObjectMap), keywords = map(copy, kKeywordMap);
        inBlocks(db, count, [&](qint64 first, qint64 last) {
            const QString block = QStringLiteral("p.pos BETWEEN %1 AND %2").arg(first).arg(last);
            stage = &kStepWindowsFailed;
            const qint64 chosen =
                copy.Choose(stepWindow, kStepWindowKey,
                            QStringLiteral("%1 WHERE %3 AND NOT (COALESCE(s.iStepWindowWindowKey, 0) = 0 AND (SELECT "
                                           "COUNT(*) FROM %2 c WHERE c.iStepWindowProcessKey = s.iStepWindowProcessKey) = 1)")
                                .arg(copy.JoinedToBatch(stepWindow, kStepWindowProcessKey, processes, QStringLiteral("p")),
                                     copy.Source(stepWindow), block),
                            QStringLiteral("p.pos, s.iStepWindowSequenceNum, s.iStepWindowKey"), QStringLiteral("p.new"));
            if (chosen > 0) {
                copy.Insert(stepWindow, kStepWindowKey,
                            QStringList{kStepWindowWindowKey, kStepWindowProcessKey, kStepWindowVerKey,
                                        kStepWindowEnvironmentKey} +
                                kStepWindowColumns,
                            QStringList{QStringLiteral("COALESCE(m.new, s.iStepWindowWindowKey)"), QStringLiteral("b.parent"),
                                        num(destinationVersionKey), num(destinationEnvironmentKey)} +
                                DatabaseCopy::Kept(kStepWindowColumns),
                            QStringLiteral("LEFT JOIN %1 m ON m.old = s.iStepWindowWindowKey").arg(windows));
                stage = &kStepsFailed;
                const auto [arguments, fixedJoin] =
                    fixUp.ForSteps(kStepArguments);
                copy.CopyChildren({step, QStringLiteral("iStepKey"), kStepWindowKey, copy.Batch(stepWindow),
                                   QStringLiteral("iStepSequenceNum"), kStepObjectKey, objects, kStepColumns, false, QString(),
                                   {{kStepArguments, arguments}}, fixedJoin});
            }
            stage = &kProcessKeywordsFailed;
            copy.CopyChildren({QStringLiteral("tKeywordRel"), QStringLiteral("iKeywordRelKey"), kKeywordRelProcessKey,
                               processes, QString(), kKeywordRelKeywordKey, keywords, kKeywordRelColumns, false,
                               QStringLiteral("h.pos BETWEEN %1 AND %2").arg(first).arg(last)});
        });
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::CopyCycles(qint32 sourceVersionKey, qint32 destinationVersionKey, Connection& db)
{
    const QString* stage = &kCyclesFailed;
    try {
        DatabaseCopy copy = databaseCopy(db);
        const QString cycle = QStringLiteral("tCycle"), cycleProcess = QStringLiteral("tCycleProcess");
        // The dependency and the start state: 0 stays 0; any other key goes
        // through the process map and becomes 0 when the process was not
        // copied.
        const QString processes = map(copy, kProcessMap);
        const auto unlessZero = [&](const QString& column) {
            return QStringLiteral("CASE WHEN COALESCE(s.%1, 0) = 0 THEN s.%1 ELSE COALESCE(%2, 0) END")
                .arg(column, DatabaseCopy::Lookup(processes, QStringLiteral("s.") + column));
        };
        const qint64 count =
            copy.CopyRows(cycle, kCycleKey, QStringLiteral("s.iCycleVerKey = ") + num(sourceVersionKey),
                          QStringList{kCycleVerKey, kCycleDependencyKey, kCycleStartStateKey} + kCycleColumns,
                          QStringList{num(destinationVersionKey), unlessZero(kCycleDependencyKey), unlessZero(kCycleStartStateKey)} +
                              DatabaseCopy::Kept(kCycleColumns));
        if (count == 0)
            return true;
        copy.Remember(map(copy, kCycleMap), cycle);
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

bool VersionBackup::CopySchedules(qint32 sourceEnvironmentKey, qint32 destinationEnvironmentKey, Connection& db)
{
    const QString* stage = &kSchedulesFailed;
    try {
        DatabaseCopy copy = databaseCopy(db);
        const QString schedule = QStringLiteral("tSchedule");
        const qint64 count =
            copy.CopyRows(schedule, kScheduleKey, QStringLiteral("s.iScheduleEnvironKey = ") + num(sourceEnvironmentKey),
                          QStringList{kScheduleEnvironKey} + kScheduleColumns,
                          QStringList{num(destinationEnvironmentKey)} + DatabaseCopy::Kept(kScheduleColumns));
        if (count == 0)
            return true;
        const QString schedules = copy.Batch(schedule);

        // The cycle written as the lookup gives it: 0 for a cycle not copied
        // in this run.
        stage = &kScheduleCyclesFailed;
        copy.CopyChildren({QStringLiteral("tScheduleCycles"), QStringLiteral("iScheduleCyclesKey"), kScheduleKey, schedules,
                           QString(), kCycleKey, map(copy, kCycleMap), kScheduleCycleColumns, true});

        stage = &kScheduleKeywordsFailed;
        copyKeywordRelations(copy, kKeywordRelScheduleKey, schedules);
        return true;
    } catch (const DbError& e) {
        return fail(*stage, e.description());
    }
}

bool VersionBackup::FixUpSteps(qint32 destinationVersionKey, Connection& db)
{
    // The steps of the processes just copied into this version were fixed
    // as they were written; the others of its step windows are fixed here.
    const FixedAsCopied fixedAsCopied = std::exchange(m_fixedAsCopied, {});
    try {
        DatabaseCopy copy = databaseCopy(db);
        m_progress.SetAction(QStringLiteral("Fixing up steps...."));
        QString stepWindows = QStringLiteral("SELECT iStepWindowKey FROM %1 WHERE iStepWindowVerKey = %2")
                                  .arg(copy.Destination(QStringLiteral("tStepWindow")), num(destinationVersionKey));
        if (fixedAsCopied.version == destinationVersionKey)
            stepWindows += QStringLiteral(" AND iStepWindowProcessKey NOT IN (SELECT new FROM %1)").arg(fixedAsCopied.processes);
        // The work follows the version, not the table.
        stepWindows = AmongKeys(db.backend(), stepWindows);
        const ArgumentFixUp fixUp(copy, db, destinationVersionKey, map(copy, kProcessMap), map(copy, kVariableMap));
        const QString column = kStepArguments;
        const QString changed = db.backend() == BackendKind::Sqlite ? QStringLiteral("(%1) IS NOT %2")
                                                                     : QStringLiteral("(%1) IS DISTINCT FROM %2::text");
        copy.Run(QStringLiteral("UPDATE %1 SET %2 = %3 WHERE iStepWindowKey %4 AND %5 AND %6")
                     .arg(copy.Destination(QStringLiteral("tStep")), column, fixUp.Fixed(column), stepWindows,
                          fixUp.Candidate(column), changed.arg(fixUp.Fixed(column), column)));
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

void VersionBackup::RemapVersionPointers(qint32 versionKey, Connection& db)
{
    DatabaseCopy copy = databaseCopy(db);
    const QString processes = map(copy, kProcessMap), windows = map(copy, kWindowMap);
    QStringList sets;
    const auto remap = [&](const QStringList& columns, const QString& mapTable) {
        for (const QString& column : columns)
            sets << QStringLiteral("%1 = COALESCE(%2, %1)").arg(column, DatabaseCopy::Lookup(mapTable, column));
    };
    remap(VersionProcessPointers(), processes);
    remap(VersionWindowPointers(), windows);
    db.Execute(QStringLiteral("UPDATE %1 SET %2 WHERE iVersionKey = %3")
                   .arg(copy.Destination(QStringLiteral("tVersion")), sets.join(QStringLiteral(", ")), num(versionKey)));
}

} // namespace dorvane
