#include "BenchContent.h"

#include "core/repository/Schema.h"

#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>
#include <functional>

namespace dorvane::bench {

namespace {

// Every statement here is generated from numbers and fixed texts, never
// from user text.

QString n(qint64 value) { return QString::number(value); }

// A version writes this many rows of a table before the next one does.
constexpr qint64 kRun = 64;
// One run in seven of every table is inserted after all the others.
constexpr qint64 kLateEvery = 7;
constexpr qint64 kLateRun = 3;
// Keyword relations' keywords per application.
constexpr qint64 kKeywords = 150;
constexpr qint64 kUsers = 30;

// A table's keys: slot s (a version, or an application) numbers its rows
// 0, 1, 2, ...; the slots' rows interleave in runs of kRun, and one key in
// ten, and 61 after every 4,096, is never used.
struct KeySpace {
    qint64 base = 0;
    qint64 lanes = 1;

    qint64 Key(qint64 slot, qint64 index) const
    {
        const qint64 g = index / kRun * (kRun * lanes) + slot * kRun + index % kRun;
        return base + 1 + g + g / 9 + g / 4096 * 61;
    }
    QString Sql(const QString& slot, const QString& index) const
    {
        const QString g = QStringLiteral("((%1) / %2 * %3 + (%4) * %2 + (%1) % %2)")
                              .arg(index, n(kRun), n(kRun * lanes), slot);
        return QStringLiteral("(%1 + %2 + %2 / 9 + %2 / 4096 * 61)").arg(n(base + 1), g);
    }
    // Past every key of `perSlot` rows a slot.
    qint64 End(qint64 perSlot) const
    {
        return perSlot == 0 ? base : Key(lanes - 1, (perSlot - 1) / kRun * kRun + kRun - 1) + 1;
    }
};

// How many children each parent has, repeating with the parents' number:
// parent p has counts[p % K]. Child c of all the parents' children, in
// order, belongs to parent Parent(c) at Position(c).
class Pattern {
public:
    Pattern(std::initializer_list<int> counts) : m_counts(counts)
    {
        m_prefix.push_back(0);
        for (const int count : m_counts)
            m_prefix.push_back(m_prefix.back() + count);
    }

    qint64 Children(qint64 parents) const
    {
        const qint64 k = qint64(m_counts.size());
        return parents / k * sum() + m_prefix[size_t(parents % k)];
    }
    QString Parent(const QString& child) const
    {
        return QStringLiteral("((%1) / %2 * %3 + %4)").arg(child, n(sum()), n(qint64(m_counts.size())), bySlot(child, [](size_t k, qint64) { return n(qint64(k)); }));
    }
    QString Position(const QString& child) const
    {
        return QStringLiteral("((%1) % %2 - %3)").arg(child, n(sum()), bySlot(child, [](size_t, qint64 first) { return n(first); }));
    }
    // How many children the parent of `child` has.
    QString Siblings(const QString& child) const
    {
        return bySlot(child, [this](size_t k, qint64) { return n(m_counts[k]); });
    }
    QString FirstChild(const QString& parent) const
    {
        return QStringLiteral("((%1) / %2 * %3 + %4)").arg(parent, n(qint64(m_counts.size())), n(sum()), byParent(parent, m_prefix));
    }
    QString ChildCount(const QString& parent) const
    {
        return byParent(parent, std::vector<qint64>(m_counts.begin(), m_counts.end()));
    }

private:
    qint64 sum() const { return m_prefix.back(); }
    // CASE over the slot k of the parent that `child` falls in.
    QString bySlot(const QString& child, const std::function<QString(size_t, qint64)>& value) const
    {
        QString sql = QStringLiteral("CASE");
        size_t last = 0;
        for (size_t k = 0; k < m_counts.size(); ++k) {
            if (m_counts[k] > 0)
                last = k;
        }
        for (size_t k = 0; k < last; ++k) {
            if (m_counts[k] > 0)
                sql += QStringLiteral(" WHEN (%1) % %2 < %3 THEN %4").arg(child, n(sum()), n(m_prefix[k + 1]), value(k, m_prefix[k]));
        }
        return sql + QStringLiteral(" ELSE %1 END").arg(value(last, m_prefix[last]));
    }
    QString byParent(const QString& parent, const std::vector<qint64>& values) const
    {
        QString sql = QStringLiteral("CASE (%1) % %2").arg(parent, n(qint64(m_counts.size())));
        for (size_t k = 0; k < m_counts.size(); ++k)
            sql += QStringLiteral(" WHEN %1 THEN %2").arg(n(qint64(k)), n(values[k]));
        return sql + QStringLiteral(" END");
    }

    std::vector<int> m_counts;
    std::vector<qint64> m_prefix;
};

// Objects a window, step windows a process, steps a step window, ...
const Pattern kObjects{6, 14, 9, 2, 11, 0, 12, 18};
const Pattern kStepWindows{3, 1, 5, 2, 4, 1, 0, 8};
const Pattern kSteps{8, 14, 3, 11, 6, 20, 1, 9};
const Pattern kProcessKeywords{2, 0, 1, 3, 0, 1, 2, 3};
const Pattern kCycleProcesses{5, 2, 3, 8, 1, 6, 4, 3};
const Pattern kCycleKeywords{1, 3, 2, 2};
const Pattern kScheduleCycles{4, 2, 6, 1};
const Pattern kScheduleKeywords{1, 0, 2};
const Pattern kFields{8, 12, 5, 10};

// One layer: the parent (named `parent`) of row i and its position j
// among the parent's children.
std::vector<QStringList> below(const Pattern& pattern, const char* parent)
{
    return {{pattern.Parent(QStringLiteral("i")) + QStringLiteral(" AS ") + QLatin1String(parent),
             pattern.Position(QStringLiteral("i")) + QStringLiteral(" AS j")}};
}

QStringList keywordRelColumns()
{
    return {QStringLiteral("iKeywordRelKey"), QStringLiteral("iKeywordRelKeywordKey"), QStringLiteral("iKeywordRelProcessKey"),
            QStringLiteral("iKeywordRelCycleKey"), QStringLiteral("iKeywordRelScheduleKey")};
}

// One INSERT ... SELECT: `layers` compute named values from the row number
// i (and from the values of the layers before), `values` the columns.
struct Insert {
    QString table;
    QStringList columns;
    QStringList values;
    std::vector<QStringList> layers;  // each "expression AS name"
};

class Generator {
public:
    Generator(Connection& connection, const ContentShape& shape) : m_c(connection), m_v(std::max(1, shape.versions))
    {
        m_sqlite = connection.backend() == BackendKind::Sqlite;
        const qint64 perVersion = std::max<qint64>(100, shape.rows / m_v);
        // The parents come to about 92% of the rows with the children below.
        const qint64 r = perVersion * 100 / 92;
        m_windows = std::max<qint64>(2, r * 2 / 100);
        m_variables = std::max<qint64>(1, r * 3 / 100);
        m_requirements = std::max<qint64>(1, r / 200);
        m_processes = std::max<qint64>(5, r * 2 / 100);
        m_cycles = std::max<qint64>(1, r / 200);
        m_schedules = std::max<qint64>(1, m_cycles * m_v / 8);
        m_layouts = std::max<qint64>(2, shape.rows / 50000);
    }

    GeneratedEnvironment Run()
    {
        allocateKeys();
        GeneratedEnvironment g;
        g.environment = qint32(m_environment);
        for (int v = 0; v < m_v; ++v)
            g.versions.push_back(qint32(versionKey(v)));
        g.updateSource = g.versions.front();
        g.updateTarget = qint32(m_target);

        const bool own = !m_c.InTransaction();
        if (own)
            m_c.BeginTrans();
        masterRows();
        const qint64 stepWindowCount = kStepWindows.Children(m_processes);
        using Build = Insert (Generator::*)(int) const;
        const std::pair<Build, qint64> tables[] = {
            {&Generator::windows, m_windows},
            {&Generator::objects, kObjects.Children(m_windows)},
            {&Generator::variables, m_variables},
            {&Generator::requirements, m_requirements},
            {&Generator::processes, m_processes},
            {&Generator::stepWindows, stepWindowCount},
            {&Generator::steps, kSteps.Children(stepWindowCount)},
            {&Generator::processKeywords, kProcessKeywords.Children(m_processes)},
            {&Generator::cycles, m_cycles},
            {&Generator::cycleProcesses, kCycleProcesses.Children(m_cycles)},
            {&Generator::cycleKeywords, kCycleKeywords.Children(m_cycles)},
        };
        for (const auto& [build, count] : tables)
            perVersion([&, build = build](int v) { return (this->*build)(v); }, count);
        environmentRows();
        if (!m_sqlite)
            continueSequences();
        if (own)
            m_c.CommitTrans();

        ContentCounts& c = g.counts;
        c.windows = m_windows * m_v;
        c.objects = kObjects.Children(m_windows) * m_v;
        c.variables = m_variables * m_v;
        c.requirements = m_requirements * m_v;
        c.processes = m_processes * m_v;
        c.stepWindows = stepWindowCount * m_v;
        c.steps = kSteps.Children(stepWindowCount) * m_v;
        c.processKeywords = kProcessKeywords.Children(m_processes) * m_v;
        c.cycles = m_cycles * m_v;
        c.cycleProcesses = kCycleProcesses.Children(m_cycles) * m_v;
        c.cycleKeywords = kCycleKeywords.Children(m_cycles) * m_v;
        c.schedules = m_schedules;
        c.scheduleCycles = kScheduleCycles.Children(m_schedules);
        c.scheduleKeywords = kScheduleKeywords.Children(m_schedules);
        c.layouts = m_layouts;
        c.fields = kFields.Children(m_layouts);
        c.instances = m_layouts;
        c.users = kUsers;
        return g;
    }

private:
    void exec(const QString& sql)
    {
        QSqlQuery q(m_c.database());
        if (!q.exec(sql))
            throw DbError(q.lastError().text() + QStringLiteral(" in ") + sql.left(400));
    }

    qint64 maxKey(const char* table)
    {
        const TableDef* def = FindTable(QLatin1String(table));
        QSqlQuery q(m_c.database());
        if (!q.exec(QStringLiteral("SELECT MAX(%1) FROM %2").arg(def->key, def->name)) || !q.next())
            throw DbError(q.lastError().text());
        return q.value(0).toLongLong();
    }

    // Each table's keys start a little past its largest key.
    void allocateKeys()
    {
        auto space = [&](const char* table, qint64 lanes) { return KeySpace{maxKey(table) + 37, lanes}; };
        m_app = space("tApp", 1).base + 3;
        m_versionBase = space("tVersion", 1).base;
        m_target = versionKey(m_v) + 5;
        m_environment = space("tEnvironment", 1).base + 4;
        m_user = space("tUser", 1);
        m_keyword = space("tKeyword", 2);
        m_window = space("tWindow", m_v);
        m_targetScreen = m_window.End(m_windows) + 11;
        m_object = space("tObject", m_v);
        m_variable = space("tUserVar", m_v);
        m_requirement = space("tRequirement", m_v);
        m_process = space("tProcess", m_v);
        m_stepWindow = space("tStepWindow", m_v);
        m_step = space("tStep", m_v);
        m_cycle = space("tCycle", m_v);
        m_cycleProcess = space("tCycleProcess", m_v);
        m_schedule = space("tSchedule", 1);
        m_scheduleCycle = space("tScheduleCycles", 1);
        m_layout = space("tRecord", 1);
        m_field = space("tField", 1);
        m_instance = space("tFileInstance", 1);
        // The three kinds of keyword relation share the table's keys.
        m_processKeyword = space("tKeywordRel", m_v);
        m_cycleKeyword = KeySpace{m_processKeyword.End(kProcessKeywords.Children(m_processes)) + 37, m_v};
        m_scheduleKeyword = KeySpace{m_cycleKeyword.End(kCycleKeywords.Children(m_cycles)) + 37, 1};
    }

    qint64 versionKey(int v) const { return m_versionBase + 2 + v * 3; }
    qint64 appKey(int v) const { return m_app + (v % 2) * 4; }
    // The key of the version whose index is the SQL value `v`.
    QString versionKeySql(const QString& v) const
    {
        QString sql = QStringLiteral("CASE %1").arg(v);
        for (int i = 0; i < m_v; ++i)
            sql += QStringLiteral(" WHEN %1 THEN %2").arg(i).arg(versionKey(i));
        return sql + QStringLiteral(" END");
    }
    // Another listed version than `v`, chosen by `which`.
    QString otherVersion(int v, const QString& which) const
    {
        return m_v == 1 ? n(v) : QStringLiteral("((%1 + 1 + (%2) % %3) % %4)").arg(v).arg(which).arg(m_v - 1).arg(m_v);
    }
    QString keywordSql(int app, const QString& index) const { return m_keyword.Sql(n(app), QStringLiteral("(%1) % %2").arg(index).arg(kKeywords)); }
    QString userSql(const QString& index) const { return n(m_user.base + 1) + QStringLiteral(" + ((%1) % %2) * 3").arg(index).arg(kUsers); }
    QString layoutSql(const QString& index) const { return m_layout.Sql(QStringLiteral("0"), QStringLiteral("(%1) % %2").arg(index).arg(m_layouts)); }
    static QString text(const QString& value) { return QStringLiteral("CAST(%1 AS TEXT)").arg(value); }

    QString sequence(qint64 count) const
    {
        if (m_sqlite)
            return QStringLiteral("(WITH RECURSIVE s(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM s WHERE i + 1 < %1) "
                                  "SELECT i FROM s)")
                .arg(count);
        return QStringLiteral("(SELECT i FROM generate_series(0, %1) AS g(i))").arg(count - 1);
    }
    // Keeps the database from folding a layer into the next, which would
    // compute its values again wherever they are used.
    QString fence() const { return m_sqlite ? QStringLiteral(" LIMIT -1 OFFSET 0") : QStringLiteral(" OFFSET 0"); }

    void run(const Insert& insert, qint64 count, const QString& filter)
    {
        if (count <= 0)
            return;
        QString from = QStringLiteral("(SELECT i FROM %1 AS s WHERE i < %2%3%4) AS l0")
                           .arg(sequence(count), n(count), filter.isEmpty() ? QString() : QStringLiteral(" AND ") + filter, fence());
        for (size_t k = 0; k < insert.layers.size(); ++k)
            from = QStringLiteral("(SELECT *, %1 FROM %2%3) AS l%4").arg(insert.layers[k].join(QStringLiteral(", ")), from, fence()).arg(k + 1);
        exec(QStringLiteral("INSERT INTO %1 (%2) SELECT %3 FROM %4")
                 .arg(insert.table, insert.columns.join(QStringLiteral(", ")), insert.values.join(QStringLiteral(", ")), from));
    }

    // A table's rows of every version: first all but the late runs, version
    // by version, then the late runs.
    void perVersion(const std::function<Insert(int)>& build, qint64 count)
    {
        const QString late = QStringLiteral("i / %1 % %2 = %3").arg(kRun).arg(kLateEvery).arg(kLateRun);
        for (int v = 0; v < m_v; ++v)
            run(build(v), count, QStringLiteral("NOT (%1)").arg(late));
        for (int v = 0; v < m_v; ++v)
            run(build(v), count, late);
    }

    void masterRows()
    {
        exec(QStringLiteral("INSERT INTO tApp (iAppKey, sAppName, sAppID, iAppPlatform, sAppDesc, mAppEnviron) VALUES "
                            "(%1, 'Order Entry %1', 'OE%1', 1, 'Orders and invoices', 'Server=orders'), "
                            "(%2, 'Billing %2', 'BL%2', 1, 'Billing runs', 'Server=billing')")
                 .arg(appKey(0))
                 .arg(appKey(1)));
        QStringList versions;
        for (int v = 0; v < m_v; ++v) {
            const auto window = [&](qint64 index) { return m_window.Key(v, std::min(index, m_windows - 1)); };
            versions << QStringLiteral("(%1, %2, '%3.%4', 'Release %3.%4', 1, -1, %5, %6, %7, %8, %9, %10, %11)")
                            .arg(versionKey(v))
                            .arg(appKey(v))
                            .arg(1 + v / 2 / 10)
                            .arg(v / 2 % 10)
                            .arg(m_process.Key(v, 0))
                            .arg(m_process.Key(v, 1))
                            .arg(m_process.Key(v, 2))
                            .arg(m_process.Key(v, 3))
                            .arg(m_process.Key(v, 4))
                            .arg(window(1))
                            .arg(window(2));
        }
        versions << QStringLiteral("(%1, %2, 'next', 'The next release', 1, -1, 0, 0, 0, 0, 0, 0, 0)").arg(m_target).arg(appKey(0));
        exec(QStringLiteral("INSERT INTO tVersion (iVersionKey, iVersionAppKey, sVersionID, sVersionDesc, iMapType, "
                            "bVersionActive, iVersionLoadProcess, iVersionLoginProcess, iVersionLogoutProcess, "
                            "iVersionTerminateProcess, iVersionRecoverProcess, iVersionInitialWindow, iVersionMainWindow) "
                            "VALUES ") +
             versions.join(QStringLiteral(", ")));
        exec(QStringLiteral("INSERT INTO tWindow (iWindowKey, iWindowVerKey, iWindowClassKey, sWindowPhysicalName, "
                            "sWindowLogicalName, sWindowRawLogicalName, bWindowVisible) VALUES "
                            "(%1, %2, 1, '[System Screen]', '[System Screen]', '[System Screen]', -1)")
                 .arg(m_targetScreen)
                 .arg(m_target));
        exec(QStringLiteral("INSERT INTO tEnvironment (iEnvironmentKey, sEnvironmentName, sEnvironmentDesc) "
                            "VALUES (%1, 'Bench %1', 'Orders and billing, nightly')")
                 .arg(m_environment));
        for (int v = 0; v < m_v; ++v)
            exec(QStringLiteral("INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey, iEnvironTestToolKey, "
                                "iEnviron3270Key) VALUES (%1, %2, 2, 0)")
                     .arg(m_environment)
                     .arg(versionKey(v)));
        run({QStringLiteral("tUser"),
             {QStringLiteral("iUserKey"), QStringLiteral("sUserID"), QStringLiteral("sUserFirst"), QStringLiteral("sUserLast"),
              QStringLiteral("sUserDepartment")},
             {userSql(QStringLiteral("i")), QStringLiteral("'tester%1-' || %2").arg(m_environment).arg(text(QStringLiteral("i"))),
              QStringLiteral("'Tess'"), QStringLiteral("'Tester ' || ") + text(QStringLiteral("i")), QStringLiteral("'QA'")},
             {}},
            kUsers, QString());
        run({QStringLiteral("tEnvironmentUser"),
             {QStringLiteral("iEnvironKey"), QStringLiteral("iUserKey"), QStringLiteral("bDorvane"), QStringLiteral("bVantrel"),
              QStringLiteral("bOmrik")},
             {n(m_environment), userSql(QStringLiteral("i")), QStringLiteral("-1"), QStringLiteral("CASE WHEN i % 3 = 0 THEN -1 ELSE 0 END"),
              QStringLiteral("0")},
             {}},
            kUsers, QString());
        for (int app = 0; app < 2; ++app)
            run({QStringLiteral("tKeyword"),
                 {QStringLiteral("iKeywordKey"), QStringLiteral("iKeywordAppKey"), QStringLiteral("sKeywordName"),
                  QStringLiteral("sKeywordDesc")},
                 {m_keyword.Sql(n(app), QStringLiteral("i")), n(appKey(app)), QStringLiteral("'Keyword ' || ") + text(QStringLiteral("i")),
                  QStringLiteral("'Runs with the nightly set'")},
                 {}},
                kKeywords, QString());
    }

    // The layers that describe step window `s` (a column of the layer
    // before) of version v: its process pr, its position pos and the number
    // of the process's step windows pc; then ph, 1 for a lone placeholder
    // without a window, and the window w of version vv it visits.
    std::vector<QStringList> stepWindowLayers(int v, const QString& s) const
    {
        return {
            {kStepWindows.Parent(s) + QStringLiteral(" AS pr"), kStepWindows.Position(s) + QStringLiteral(" AS pos"),
             kStepWindows.Siblings(s) + QStringLiteral(" AS pc")},
            {QStringLiteral("CASE WHEN pc = 1 AND pr / 8 % 4 = 0 THEN 1 ELSE 0 END AS ph"),
             QStringLiteral("CASE WHEN pc <> 1 AND %1 % 8 = 5 THEN %2 ELSE %3 END AS vv")
                 .arg(s, otherVersion(v, s + QStringLiteral(" / 8")), n(v)),
             QStringLiteral("1 + (%1 * 7 + %1 / 13) % %2 AS w").arg(s, n(m_windows - 1))},
        };
    }

    Insert windows(int v) const
    {
        const QString name = QStringLiteral("CASE WHEN i = 0 THEN '[System Screen]' ELSE 'Order window ' || %1 END").arg(text(QStringLiteral("i")));
        return {QStringLiteral("tWindow"),
                {QStringLiteral("iWindowKey"), QStringLiteral("iWindowVerKey"), QStringLiteral("iWindowClassKey"),
                 QStringLiteral("iWindowParentKey"), QStringLiteral("sWindowPhysicalName"), QStringLiteral("sWindowLogicalName"),
                 QStringLiteral("sWindowRawLogicalName"), QStringLiteral("sWindowOverrideName"),
                 QStringLiteral("sWindowExecutable"), QStringLiteral("bWindowVisible")},
                {m_window.Sql(n(v), QStringLiteral("i")), n(versionKey(v)), QStringLiteral("2 + i % 4"),
                 QStringLiteral("CASE WHEN i % 6 = 1 AND i > 1 THEN %1 ELSE 0 END").arg(m_window.Sql(n(v), QStringLiteral("i - 1"))),
                 QStringLiteral("CASE WHEN i = 0 THEN '[System Screen]' ELSE 'frmOrder' || %1 END").arg(text(QStringLiteral("i"))),
                 name, name, QStringLiteral("' '"), QStringLiteral("'orders.exe'"), QStringLiteral("-1")},
                {}};
    }

    Insert objects(int v) const
    {
        return {QStringLiteral("tObject"),
                {QStringLiteral("iObjectKey"), QStringLiteral("iObjectWindowKey"), QStringLiteral("iObjectClassKey"),
                 QStringLiteral("iObjectVersionKey"), QStringLiteral("sObjectPhysicalName"), QStringLiteral("sObjectLogicalName"),
                 QStringLiteral("sObjectRawLogicalName"), QStringLiteral("sObjectAttributes"), QStringLiteral("bObjectVisible")},
                {m_object.Sql(n(v), QStringLiteral("i")), m_window.Sql(n(v), QStringLiteral("w")), QStringLiteral("6 + j % 5"),
                 n(versionKey(v)), QStringLiteral("'edtField' || ") + text(QStringLiteral("j")),
                 QStringLiteral("'Field ' || ") + text(QStringLiteral("i")), QStringLiteral("'Field ' || ") + text(QStringLiteral("i")),
                 QStringLiteral("'Left=120;Top=' || %1 || ';Width=200'").arg(text(QStringLiteral("j * 24"))), QStringLiteral("-1")},
                below(kObjects, "w")};
    }

    Insert variables(int v) const
    {
        return {QStringLiteral("tUserVar"),
                {QStringLiteral("iVarKey"), QStringLiteral("iVarAppVerKey"), QStringLiteral("sVarName"), QStringLiteral("sVarDesc"),
                 QStringLiteral("sVarDefValue"), QStringLiteral("iVarType"), QStringLiteral("iVarLen")},
                {m_variable.Sql(n(v), QStringLiteral("i")), n(versionKey(v)), QStringLiteral("'Var' || ") + text(QStringLiteral("i")),
                 QStringLiteral("'Customer number'"), QStringLiteral("'0'"), QStringLiteral("1 + i % 3"), QStringLiteral("10 + i % 40")},
                {}};
    }

    Insert requirements(int v) const
    {
        return {QStringLiteral("tRequirement"),
                {QStringLiteral("iRequirementKey"), QStringLiteral("iRequirementAppVerKey"), QStringLiteral("sRequirementName"),
                 QStringLiteral("sRequirementDesc")},
                {m_requirement.Sql(n(v), QStringLiteral("i")), n(versionKey(v)), QStringLiteral("'REQ-' || ") + text(QStringLiteral("i")),
                 QStringLiteral("'The order is confirmed'")},
                {}};
    }

    Insert processes(int v) const
    {
        return {QStringLiteral("tProcess"),
                {QStringLiteral("iProcessKey"), QStringLiteral("iProcessVerKey"), QStringLiteral("sProcessName"),
                 QStringLiteral("mProcessDesc"), QStringLiteral("sProcessData"), QStringLiteral("iProcessType"),
                 QStringLiteral("iProcessOwnerKey"), QStringLiteral("iProcessCreatorKey"), QStringLiteral("iProcessLastModifierKey"),
                 QStringLiteral("iProcessRequirementKey"), QStringLiteral("iProcessRecordKey"), QStringLiteral("iProcessDependencyKey"),
                 QStringLiteral("iProcessSequenceNum"), QStringLiteral("bProcessIsAutomated")},
                {m_process.Sql(n(v), QStringLiteral("i")), n(versionKey(v)), QStringLiteral("'Process ' || ") + text(QStringLiteral("i")),
                 QStringLiteral("'Enters order ' || %1 || ' for a new customer and checks the confirmation number on the "
                                "summary page'")
                     .arg(text(QStringLiteral("i"))),
                 QStringLiteral("'Region=North'"), QStringLiteral("CASE WHEN i % 10 = 0 THEN 1 ELSE 2 END"), userSql(QStringLiteral("i")),
                 userSql(QStringLiteral("i + 1")), userSql(QStringLiteral("i + 2")),
                 QStringLiteral("CASE WHEN i % 3 = 0 THEN %1 ELSE 0 END")
                     .arg(m_requirement.Sql(n(v), QStringLiteral("i % %1").arg(m_requirements))),
                 QStringLiteral("CASE WHEN i % 10 = 0 THEN %1 ELSE 0 END").arg(layoutSql(QStringLiteral("i / 10"))),
                 QStringLiteral("CASE WHEN i % 9 = 4 THEN %1 ELSE 0 END").arg(m_process.Sql(n(v), QStringLiteral("i - 1"))),
                 QStringLiteral("i"), QStringLiteral("CASE WHEN i % 5 = 0 THEN 0 ELSE -1 END")},
                {}};
    }

    Insert stepWindows(int v) const
    {
        return {QStringLiteral("tStepWindow"),
                {QStringLiteral("iStepWindowKey"), QStringLiteral("iStepWindowProcessKey"), QStringLiteral("iStepWindowVerKey"),
                 QStringLiteral("iStepWindowWindowKey"), QStringLiteral("iStepWindowEnvironmentKey"),
                 QStringLiteral("iStepWindowSequenceNum")},
                {m_stepWindow.Sql(n(v), QStringLiteral("i")), m_process.Sql(n(v), QStringLiteral("pr")), versionKeySql(QStringLiteral("vv")),
                 QStringLiteral("CASE WHEN ph = 1 THEN 0 ELSE %1 END").arg(m_window.Sql(QStringLiteral("vv"), QStringLiteral("w"))),
                 n(m_environment), QStringLiteral("pos")},
                stepWindowLayers(v, QStringLiteral("i"))};
    }

    Insert steps(int v) const
    {
        std::vector<QStringList> layers = {{kSteps.Parent(QStringLiteral("i")) + QStringLiteral(" AS s"),
                                            kSteps.Position(QStringLiteral("i")) + QStringLiteral(" AS j"),
                                            kSteps.Siblings(QStringLiteral("i")) + QStringLiteral(" AS cnt")}};
        for (const QStringList& layer : stepWindowLayers(v, QStringLiteral("s")))
            layers.push_back(layer);
        layers.push_back({kObjects.ChildCount(QStringLiteral("w")) + QStringLiteral(" AS oc"),
                          kObjects.FirstChild(QStringLiteral("w")) + QStringLiteral(" AS ofs")});

        const QString object = m_object.Sql(QStringLiteral("vv"), QStringLiteral("ofs + (j * 3 + i / 4) % (CASE WHEN oc = 0 THEN 1 ELSE oc END)"));
        const QString callee =
            QStringLiteral("CASE WHEN i % 40 = 1 THEN %1 ELSE %2 END")
                .arg(m_process.Sql(otherVersion(v, QStringLiteral("i / 40")), QStringLiteral("i / 4 % %1").arg(m_processes)),
                     m_process.Sql(n(v), QStringLiteral("(i / 4 * 7 + s) % %1").arg(m_processes)));
        // The variable is counted by i / 8, not i / 4: the two kinds of
        // token step (i % 8 = 2 and 6) would otherwise take the even and the
        // odd variables apart where their number is even, and half as many
        // texts would differ at one size as at another.
        const QString token = QStringLiteral("'=@[ %1| ' || %2 || ']'").arg(versionKey(v));
        const QString first = token.arg(text(m_variable.Sql(n(v), QStringLiteral("i / 8 % %1").arg(m_variables))));
        const QString second = token.arg(text(m_variable.Sql(n(v), QStringLiteral("(i / 8 + 1) % %1").arg(m_variables))));
        const QString arguments = QStringLiteral("CASE i % 4 WHEN 1 THEN 'ProcessKey= ' || %1 "
                                                 "WHEN 2 THEN CASE WHEN i % 8 = 6 THEN 'From' || %2 || ';To' || %3 "
                                                 "ELSE 'Value' || %2 END "
                                                 "WHEN 3 THEN 'Click' ELSE 'Text=Customer ' || %4 END")
                                      .arg(text(callee), first, second, text(QStringLiteral("i % 1000")));
        return {QStringLiteral("tStep"),
                {QStringLiteral("iStepKey"), QStringLiteral("iStepWindowKey"), QStringLiteral("iStepObjectKey"),
                 QStringLiteral("iStepActionKey"), QStringLiteral("iStepSequenceNum"), QStringLiteral("sStepArguments"),
                 QStringLiteral("sStepNarrative")},
                {m_step.Sql(n(v), QStringLiteral("i")), m_stepWindow.Sql(n(v), QStringLiteral("s")),
                 QStringLiteral("CASE WHEN ph = 1 OR oc = 0 OR i % 4 = 1 OR j = 0 THEN 0 ELSE %1 END").arg(object),
                 QStringLiteral("CASE i % 4 WHEN 1 THEN 9 WHEN 2 THEN 3 ELSE 1 + j % 6 END"),
                 QStringLiteral("CASE WHEN s % 6 = 5 THEN (j + 1) % cnt ELSE j END"), arguments,
                 QStringLiteral("'Type the value in field ' || ") + text(QStringLiteral("j"))},
                layers};
    }

    Insert processKeywords(int v) const
    {
        return {QStringLiteral("tKeywordRel"),
                keywordRelColumns(),
                {m_processKeyword.Sql(n(v), QStringLiteral("i")), keywordSql(v % 2, QStringLiteral("pr * 7 + j * 13")),
                 m_process.Sql(n(v), QStringLiteral("pr")), QStringLiteral("0"), QStringLiteral("0")},
                below(kProcessKeywords, "pr")};
    }

    Insert cycles(int v) const
    {
        return {QStringLiteral("tCycle"),
                {QStringLiteral("iCycleKey"), QStringLiteral("iCycleVerKey"), QStringLiteral("sCycleName"), QStringLiteral("mCycleDesc"),
                 QStringLiteral("iCycleCreatorKey"), QStringLiteral("iCycleDependencyKey"), QStringLiteral("iCycleStartStateKey"),
                 QStringLiteral("iCycleRecordKey"), QStringLiteral("iCycleSequenceNum"), QStringLiteral("bCycleIsAutomated")},
                {m_cycle.Sql(n(v), QStringLiteral("i")), n(versionKey(v)), QStringLiteral("'Regression ' || ") + text(QStringLiteral("i")),
                 QStringLiteral("'Nightly regression of the order screens'"), userSql(QStringLiteral("i")),
                 QStringLiteral("CASE WHEN i % 4 = 0 THEN %1 ELSE 0 END").arg(m_process.Sql(n(v), QStringLiteral("i % %1").arg(m_processes))),
                 QStringLiteral("CASE WHEN i % 8 = 0 THEN %1 ELSE 0 END")
                     .arg(m_process.Sql(n(v), QStringLiteral("(i + 1) % %1").arg(m_processes))),
                 QStringLiteral("CASE WHEN i % 5 = 0 THEN %1 ELSE 0 END").arg(layoutSql(QStringLiteral("i"))), QStringLiteral("i"),
                 QStringLiteral("-1")},
                {}};
    }

    Insert cycleProcesses(int v) const
    {
        return {QStringLiteral("tCycleProcess"),
                {QStringLiteral("iCycleProcessKey"), QStringLiteral("iCycleKey"), QStringLiteral("iProcessKey"),
                 QStringLiteral("iCycleProcessRecordKey"), QStringLiteral("iProcessSequenceNum")},
                {m_cycleProcess.Sql(n(v), QStringLiteral("i")), m_cycle.Sql(n(v), QStringLiteral("c")),
                 QStringLiteral("CASE WHEN i % 10 = 3 THEN %1 ELSE %2 END")
                     .arg(m_process.Sql(otherVersion(v, QStringLiteral("i / 10")), QStringLiteral("i * 11 % %1").arg(m_processes)),
                          m_process.Sql(n(v), QStringLiteral("(c * 5 + j * 3) % %1").arg(m_processes))),
                 QStringLiteral("CASE WHEN i % 7 = 0 THEN %1 ELSE 0 END").arg(layoutSql(QStringLiteral("i"))), QStringLiteral("j")},
                below(kCycleProcesses, "c")};
    }

    Insert cycleKeywords(int v) const
    {
        return {QStringLiteral("tKeywordRel"),
                keywordRelColumns(),
                {m_cycleKeyword.Sql(n(v), QStringLiteral("i")), keywordSql(v % 2, QStringLiteral("c * 3 + j * 17")), QStringLiteral("0"),
                 m_cycle.Sql(n(v), QStringLiteral("c")), QStringLiteral("0")},
                below(kCycleKeywords, "c")};
    }

    // Schedules with their cycles (of any listed version) and keyword
    // relations; record layouts with fields that take variables, and one
    // file instance each.
    void environmentRows()
    {
        const QString versionIndex = QStringLiteral("i % %1").arg(m_v);
        const QString zero = QStringLiteral("0");
        run({QStringLiteral("tSchedule"),
             {QStringLiteral("iScheduleKey"), QStringLiteral("iScheduleEnvironKey"), QStringLiteral("sScheduleName"),
              QStringLiteral("sScheduleDesc"), QStringLiteral("iScheduleCreatorKey"), QStringLiteral("iScheduleStatus")},
             {m_schedule.Sql(zero, QStringLiteral("i")), n(m_environment), QStringLiteral("'Nightly run ' || ") + text(QStringLiteral("i")),
              QStringLiteral("'Runs the regression cycles'"), userSql(QStringLiteral("i")), QStringLiteral("1")},
             {}},
            m_schedules, QString());
        run({QStringLiteral("tScheduleCycles"),
             {QStringLiteral("iScheduleCyclesKey"), QStringLiteral("iScheduleKey"), QStringLiteral("iCycleKey"),
              QStringLiteral("iCycleSequenceNum")},
             {m_scheduleCycle.Sql(zero, QStringLiteral("i")), m_schedule.Sql(zero, QStringLiteral("sc")),
              m_cycle.Sql(versionIndex, QStringLiteral("i * 5 % %1").arg(m_cycles)), QStringLiteral("j")},
             below(kScheduleCycles, "sc")},
            kScheduleCycles.Children(m_schedules), QString());
        run({QStringLiteral("tKeywordRel"),
             keywordRelColumns(),
             {m_scheduleKeyword.Sql(zero, QStringLiteral("i")), keywordSql(0, QStringLiteral("sc + j * 29")), zero, zero,
              m_schedule.Sql(zero, QStringLiteral("sc"))},
             below(kScheduleKeywords, "sc")},
            kScheduleKeywords.Children(m_schedules), QString());
        run({QStringLiteral("tRecord"),
             {QStringLiteral("iRecordKey"), QStringLiteral("iRecordEnvironmentKey"), QStringLiteral("sRecordName"),
              QStringLiteral("sRecordDesc"), QStringLiteral("iRecordKeyType")},
             {m_layout.Sql(zero, QStringLiteral("i")), n(m_environment), QStringLiteral("'Customers' || ") + text(QStringLiteral("i")),
              QStringLiteral("'Customer records'"), QStringLiteral("1")},
             {}},
            m_layouts, QString());
        run({QStringLiteral("tField"),
             {QStringLiteral("iFieldKey"), QStringLiteral("iFieldRecordKey"), QStringLiteral("sFieldName"), QStringLiteral("sFieldDesc"),
              QStringLiteral("sFieldID"), QStringLiteral("iFieldLen"), QStringLiteral("iFieldSequenceNum"), QStringLiteral("iFieldVarKey"),
              QStringLiteral("iFieldVarAppVerKey")},
             {m_field.Sql(zero, QStringLiteral("i")), m_layout.Sql(zero, QStringLiteral("r")), QStringLiteral("'Field' || ") + text(QStringLiteral("j")),
              QStringLiteral("'Customer field'"), QStringLiteral("'F' || ") + text(QStringLiteral("j")), QStringLiteral("10 + j"),
              QStringLiteral("j"), m_variable.Sql(versionIndex, QStringLiteral("i * 3 % %1").arg(m_variables)),
              versionKeySql(versionIndex)},
             below(kFields, "r")},
            kFields.Children(m_layouts), QString());
        run({QStringLiteral("tFileInstance"),
             {QStringLiteral("iFileInstanceKey"), QStringLiteral("iFileInstanceRecordKey"), QStringLiteral("sFileInstanceName"),
              QStringLiteral("sFileInstanceDesc")},
             {m_instance.Sql(zero, QStringLiteral("i")), m_layout.Sql(zero, QStringLiteral("i")),
              QStringLiteral("'Customers ' || ") + text(QStringLiteral("i")), QStringLiteral("'Test customers'")},
             {}},
            m_layouts, QString());
    }

    // The identity sequences continue after the keys given here.
    void continueSequences()
    {
        for (const TableDef& table : RepositoryTables())
            exec(QStringLiteral("SELECT setval(pg_get_serial_sequence('%1', '%2'), (SELECT COALESCE(MAX(%2), 0) + 1 FROM %1), false)")
                     .arg(table.name.toLower(), table.key.toLower()));
    }

    Connection& m_c;
    const int m_v;
    bool m_sqlite = true;
    qint64 m_windows, m_variables, m_requirements, m_processes, m_cycles, m_schedules, m_layouts;
    qint64 m_app = 0, m_versionBase = 0, m_target = 0, m_environment = 0, m_targetScreen = 0;
    KeySpace m_user, m_keyword, m_window, m_object, m_variable, m_requirement, m_process, m_stepWindow, m_step, m_cycle,
        m_cycleProcess, m_schedule, m_scheduleCycle, m_layout, m_field, m_instance, m_processKeyword, m_cycleKeyword,
        m_scheduleKeyword;
};

ContentRows rows(const char* table, const char* parent, const QString& condition)
{
    return {QLatin1String(table), QLatin1String(parent), condition};
}

} // namespace

qint64 ContentCounts::Total() const
{
    return windows + objects + variables + requirements + processes + stepWindows + steps + processKeywords + cycles +
           cycleProcesses + cycleKeywords + schedules + scheduleCycles + scheduleKeywords + layouts + fields + instances + users;
}

QString ContentCounts::Describe() const
{
    return QStringLiteral("windows %1, objects %2, variables %3, requirements %4, processes %5, step windows %6, "
                          "steps %7, process keywords %8, cycles %9, cycle processes %10, cycle keywords %11, "
                          "schedules %12, schedule cycles %13, schedule keywords %14, layouts %15, fields %16, file instances %17, "
                          "users %18")
        .arg(windows)
        .arg(objects)
        .arg(variables)
        .arg(requirements)
        .arg(processes)
        .arg(stepWindows)
        .arg(steps)
        .arg(processKeywords)
        .arg(cycles)
        .arg(cycleProcesses)
        .arg(cycleKeywords)
        .arg(schedules)
        .arg(scheduleCycles)
        .arg(scheduleKeywords)
        .arg(layouts)
        .arg(fields)
        .arg(instances)
        .arg(users);
}

GeneratedEnvironment GenerateEnvironment(Connection& connection, const ContentShape& shape)
{
    return Generator(connection, shape).Run();
}

std::vector<ContentRows> VersionContent(qint32 versionKey)
{
    const QString v = QString::number(versionKey);
    const QString windows = QStringLiteral(" IN (SELECT iWindowKey FROM tWindow WHERE iWindowVerKey = %1)").arg(v);
    const QString processes = QStringLiteral(" IN (SELECT iProcessKey FROM tProcess WHERE iProcessVerKey = %1)").arg(v);
    const QString stepWindows = QStringLiteral(" IN (SELECT iStepWindowKey FROM tStepWindow WHERE iStepWindowProcessKey%1)").arg(processes);
    const QString cycles = QStringLiteral(" IN (SELECT iCycleKey FROM tCycle WHERE iCycleVerKey = %1)").arg(v);
    const QString equals = QStringLiteral(" = ") + v;
    return {
        rows("tWindow", "iWindowVerKey", equals),
        rows("tObject", "iObjectWindowKey", windows),
        rows("tUserVar", "iVarAppVerKey", equals),
        rows("tRequirement", "iRequirementAppVerKey", equals),
        rows("tProcess", "iProcessVerKey", equals),
        rows("tStepWindow", "iStepWindowProcessKey", processes),
        rows("tStep", "iStepWindowKey", stepWindows),
        rows("tKeywordRel", "iKeywordRelProcessKey", processes),
        rows("tCycle", "iCycleVerKey", equals),
        rows("tCycleProcess", "iCycleKey", cycles),
        rows("tKeywordRel", "iKeywordRelCycleKey", cycles),
    };
}

std::vector<ContentRows> EnvironmentContent(qint32 environmentKey, const std::vector<qint32>& versionKeys)
{
    std::vector<ContentRows> all;
    for (const qint32 version : versionKeys) {
        const std::vector<ContentRows> content = VersionContent(version);
        all.insert(all.end(), content.begin(), content.end());
    }
    const QString e = QString::number(environmentKey);
    const QString schedules = QStringLiteral(" IN (SELECT iScheduleKey FROM tSchedule WHERE iScheduleEnvironKey = %1)").arg(e);
    const QString layouts = QStringLiteral(" IN (SELECT iRecordKey FROM tRecord WHERE iRecordEnvironmentKey = %1)").arg(e);
    for (const ContentRows& own : {
             rows("tEnvironmentUser", "iEnvironKey", QStringLiteral(" = ") + e),
             rows("tSchedule", "iScheduleEnvironKey", QStringLiteral(" = ") + e),
             rows("tScheduleCycles", "iScheduleKey", schedules),
             rows("tKeywordRel", "iKeywordRelScheduleKey", schedules),
             rows("tRecord", "iRecordEnvironmentKey", QStringLiteral(" = ") + e),
             rows("tField", "iFieldRecordKey", layouts),
             rows("tFileInstance", "iFileInstanceRecordKey", layouts),
         })
        all.push_back(own);
    return all;
}

std::vector<qint32> ListedVersions(Connection& connection, qint32 environmentKey)
{
    QSqlQuery q(connection.database());
    if (!q.exec(QStringLiteral("SELECT iEnvironVerKey FROM tEnvironmentDetail WHERE iEnvironKey = %1 ORDER BY iEnvironmentDetailKey")
                    .arg(environmentKey)))
        throw DbError(q.lastError().text());
    std::vector<qint32> keys;
    while (q.next())
        keys.push_back(q.value(0).toInt());
    return keys;
}

qint64 CountRows(Connection& connection, const std::vector<ContentRows>& rows)
{
    qint64 total = 0;
    for (const ContentRows& r : rows) {
        QSqlQuery q(connection.database());
        if (!q.exec(QStringLiteral("SELECT COUNT(*) FROM %1 WHERE %2%3").arg(r.table, r.parentColumn, r.condition)) || !q.next())
            throw DbError(q.lastError().text());
        total += q.value(0).toLongLong();
    }
    return total;
}

} // namespace dorvane::bench
