// The declaration of a version's content: the columns each copy keeps, and
// the deletions made from its tree, which take exactly the rows below what
// they delete (with their quirks) along index searches, and roll back whole.

#include "core/copyengine/CopyEngineFixture.h"
#include "core/copyengine/VersionContent.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/repository/Transaction.h"

#include <QHash>
#include <QRegularExpression>

#include <functional>

using namespace dorvane;
using namespace dorvane::test;

// Every column of a declared table is its key, its parent column, kept by
// its copies or declared not kept, and every parent is declared before its
// children (or is what the tree hangs from).
TEST(VersionContentDeclaration, EveryColumnIsDeclaredAndEveryParentComesFirst)
{
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
            EXPECT_EQ(SortedLower(columns), SortedLower(def->columns));
            EXPECT_TRUE(t.parent.isEmpty() || parents.contains(t.parent));
            parents << t.table;
        }
    }
}

class VersionContentTest : public CopyEngineTest {
protected:
    // Whom a row belongs to: a version ('A' to 'D'; '0' for version 0) or,
    // for a schedule's rows, none; and the environment (1 to 3) its step
    // window runs in or its schedule belongs to.
    struct Owner {
        char version = 0;
        int environment = 0;
    };

    // Adds a row, its key first among `values`, and notes its owner.
    void put(const QString& table, const Values& values, Owner owner)
    {
        QStringList columns, literals;
        for (const auto& [column, value] : values) {
            columns << column;
            literals << (value.typeId() == QMetaType::QString ? u"'%1'"_s.arg(value.toString()) : value.toString());
        }
        conn.Execute(u"INSERT INTO %1 (%2) VALUES (%3)"_s.arg(table, columns.join(u", "_s), literals.join(u", "_s)));
        owners.insert(table + u':' + values.front().second.toString(), owner);
    }

    // Versions A to D of one application, each with content of the same
    // shape, the keys handed out so that the keys of one table are those of
    // others, within a version and across versions (A's process is B's
    // window, C's step window and D's cycle). Environment 1 lists A and B,
    // environment 2 C and an entry without a version, environment 3 none;
    // each has a schedule. Every process has a step window in its version's
    // environment (3 for D) and one in another. The second object of a
    // window and the second step window of a process name version 0 as
    // theirs. Version 0 holds a window with an object and a variable. The
    // repository's tables are emptied first.
    void build()
    {
        owners.clear();
        for (const TableDef& table : RepositoryTables())
            conn.Execute(u"DELETE FROM "_s + table.name);
        Transaction transaction(conn);
        const qint32 app = addApp(u"Ledger"_s);
        for (int e = 1; e <= 3; ++e) {
            environments[e] = add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"E%1"_s.arg(e)}});
            const qint32 schedule = 10 * e;
            put(u"tSchedule"_s, {{u"iScheduleKey"_s, schedule}, {u"iScheduleEnvironKey"_s, environments[e]}}, {0, e});
            put(u"tScheduleCycles"_s, {{u"iScheduleCyclesKey"_s, schedule}, {u"iScheduleKey"_s, schedule}, {u"iCycleKey"_s, schedule}}, {0, e});
            put(u"tKeywordRel"_s, {{u"iKeywordRelKey"_s, schedule + 2}, {u"iKeywordRelKeywordKey"_s, 1}, {u"iKeywordRelScheduleKey"_s, schedule}},
                {0, e});
        }
        for (int v = 0; v < 4; ++v) {
            const char letter = char('A' + v);
            const qint32 version = add(u"tVersion"_s, {{u"iVersionAppKey"_s, app}, {u"sVersionID"_s, QString(QLatin1Char(letter))}});
            versions[letter] = version;
            owners.insert(u"tVersion:%1"_s.arg(version), {letter, 0});
            const int own = v < 2 ? 1 : v == 2 ? 2 : 3, other = v < 2 ? 2 : 1;
            // The key of a version's row in a table of the offset given.
            const auto key = [v](int offset) { return 10 * (1 + (v + offset) % 4); };
            const qint32 window = key(0), process = key(1), cycle = key(2), stepWindow = key(3);
            put(u"tWindow"_s, {{u"iWindowKey"_s, window}, {u"iWindowVerKey"_s, version}}, {letter});
            for (int n : {0, 1})
                put(u"tObject"_s, {{u"iObjectKey"_s, key(2) + n}, {u"iObjectWindowKey"_s, window}, {u"iObjectVersionKey"_s, n == 0 ? version : 0}}, {letter});
            put(u"tUserVar"_s, {{u"iVarKey"_s, key(3)}, {u"iVarAppVerKey"_s, version}}, {letter});
            put(u"tRequirement"_s, {{u"iRequirementKey"_s, key(0)}, {u"iRequirementAppVerKey"_s, version}}, {letter});
            put(u"tProcess"_s, {{u"iProcessKey"_s, process}, {u"iProcessVerKey"_s, version}}, {letter});
            for (const int environment : {own, other}) {
                const int n = environment == own ? 0 : 1;
                put(u"tStepWindow"_s, {{u"iStepWindowKey"_s, stepWindow + n}, {u"iStepWindowProcessKey"_s, process}, {u"iStepWindowVerKey"_s, n == 0 ? version : 0},
                                       {u"iStepWindowWindowKey"_s, window}, {u"iStepWindowEnvironmentKey"_s, environments[environment]}},
                    {letter, environment});
                put(u"tStep"_s, {{u"iStepKey"_s, key(1) + n}, {u"iStepWindowKey"_s, stepWindow + n}}, {letter, environment});
            }
            put(u"tKeywordRel"_s, {{u"iKeywordRelKey"_s, key(2)}, {u"iKeywordRelKeywordKey"_s, 1}, {u"iKeywordRelProcessKey"_s, process}}, {letter});
            put(u"tCycle"_s, {{u"iCycleKey"_s, cycle}, {u"iCycleVerKey"_s, version}}, {letter});
            put(u"tCycleProcess"_s, {{u"iCycleProcessKey"_s, key(3)}, {u"iCycleKey"_s, cycle}, {u"iProcessKey"_s, process}}, {letter});
            put(u"tKeywordRel"_s, {{u"iKeywordRelKey"_s, key(2) + 1}, {u"iKeywordRelKeywordKey"_s, 1}, {u"iKeywordRelCycleKey"_s, cycle}}, {letter});
        }
        put(u"tWindow"_s, {{u"iWindowKey"_s, 50}, {u"iWindowVerKey"_s, 0}}, {'0'});
        put(u"tObject"_s, {{u"iObjectKey"_s, 50}, {u"iObjectWindowKey"_s, 50}, {u"iObjectVersionKey"_s, 0}}, {'0'});
        put(u"tUserVar"_s, {{u"iVarKey"_s, 50}, {u"iVarAppVerKey"_s, 0}}, {'0'});
        addDetail(environments[1], versions['A']);
        addDetail(environments[1], versions['B']);
        addDetail(environments[2], versions['C']);
        conn.Execute(u"INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey) VALUES (%1, NULL)"_s.arg(environments[2]));
        transaction.Commit();
    }

    // The rows of `before` that `deleted` leaves.
    QStringList leftOf(const QStringList& before, const std::function<bool(const QString& table, Owner)>& deleted) const
    {
        QStringList left;
        for (const QString& row : before) {
            const QString id = row.section(u'|', 0, 0);
            const auto owner = owners.constFind(id);
            if (owner == owners.constEnd() || !deleted(id.section(u':', 0, 0), *owner))
                left << row;
        }
        return left;
    }

    // PrepareForRestore of environment `e`, inside a transaction of its own
    // as a restore runs it: committed when it succeeds.
    bool prepareForRestore(int e)
    {
        EnvironmentBackup backups(*backup, db->tempPath(), db->tempPath());
        Transaction transaction(conn);
        if (!backups.PrepareForRestore(environments[e], conn))
            return false;
        transaction.Commit();
        return true;
    }

    QHash<QString, Owner> owners;  // by "table:key"
    QHash<char, qint32> versions;
    qint32 environments[4] = {};
};

// Each deletion takes exactly the rows below what it deletes, though the
// same keys stand in other tables and the same shapes below other versions
// and environments: DeleteVersionContents leaves the requirements;
// PrepareForRestore takes the step windows of the environment (with their
// steps) instead of those of its versions' processes, and none of them when
// it lists no version; an entry of its list without a version stands for
// version 0.
TEST_P(VersionContentTest, EachDeletionTakesExactlyTheRowsBelowWhatItDeletes)
{
    const auto steps = [](const QString& table) { return table == u"tStepWindow"_s || table == u"tStep"_s; };
    const auto restorePreparation = [&](int e, QList<char> listed) {
        return [=](const QString& table, Owner o) {
            if (o.version == 0)
                return o.environment == e;
            if (steps(table))
                return !listed.isEmpty() && o.environment == e;
            return table != u"tVersion"_s && listed.contains(o.version);
        };
    };
    struct Case {
        const char* name;
        std::function<bool()> run;
        std::function<bool(const QString& table, Owner)> deleted;
    };
    const Case cases[] = {
        {"DeleteVersionContents of B", [&] { return DeleteVersionContents(versions['B'], conn, messages); },
         [](const QString& table, Owner o) { return o.version == 'B' && table != u"tRequirement"_s; }},
        {"ClearVersionContent of B", [&] {
             ClearVersionContent(versions['B'], conn);
             return true;
         },
         [](const QString& table, Owner o) { return o.version == 'B' && table != u"tVersion"_s; }},
        {"PrepareForRestore of environment 1", [&] { return prepareForRestore(1); }, restorePreparation(1, {'A', 'B'})},
        {"PrepareForRestore of environment 2", [&] { return prepareForRestore(2); }, restorePreparation(2, {'C', '0'})},
        {"PrepareForRestore of environment 3", [&] { return prepareForRestore(3); }, restorePreparation(3, {})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        build();
        const QStringList before = dump();
        const QStringList expected = leftOf(before, c.deleted);
        ASSERT_LT(expected.size(), before.size());
        ASSERT_TRUE(c.run()) << shown();
        EXPECT_EQ(dump(), expected);
        EXPECT_TRUE(messages.shown.isEmpty() && !conn.InTransaction()) << shown();
    }
}

// A statement that fails anywhere in DeleteVersionContents names the stage
// of its table (the version row's is the windows') and rolls every table
// back; a failing PrepareForRestore says so and its restore rolls back.
TEST_P(VersionContentTest, AFailureAnywhereNamesItsStageAndRollsEverythingBack)
{
    build();
    const QStringList before = dump();
    const struct {
        const char* table;
        const char* when;
        const char* stage;
    } failures[] = {
        {"tUserVar", "", "Variables"},
        {"tKeywordRel", "OLD.iKeywordRelCycleKey > 0", "Cycle Keywords"},
        {"tCycleProcess", "", "Cycle Processes"},
        {"tCycle", "", "Cycles"},
        {"tStep", "", "Steps"},
        {"tStepWindow", "", "Step Windows"},
        {"tKeywordRel", "OLD.iKeywordRelProcessKey > 0", "Process Keywords"},
        {"tProcess", "", "Processes"},
        {"tObject", "", "Objects"},
        {"tWindow", "", "Windows"},
        {"tVersion", "", "Windows"},
    };
    for (const auto& failure : failures) {
        const QString table = QString::fromLatin1(failure.table);
        SCOPED_TRACE(failure.stage);
        abortOn(table, u"DELETE"_s, QString::fromLatin1(failure.when));
        EXPECT_FALSE(DeleteVersionContents(versions['B'], conn, messages));
        EXPECT_TRUE(messages.shown.value(0).endsWith(u"! New version not fully deleted."_s)) << shown();
        expectFailure(u"Error while deleting %1:"_s.arg(QLatin1String(failure.stage)));
        EXPECT_TRUE(dump() == before && !conn.InTransaction());
        dropAbort(table, u"DELETE"_s);
    }

    abortOn(u"tStep"_s, u"DELETE"_s);
    EXPECT_FALSE(prepareForRestore(1));
    expectFailure(u"Error while deleting environment components for restore: "_s);
    EXPECT_TRUE(dump() == before && !conn.InTransaction());
}

// Every statement of the deletions finds its rows, and the parents of each,
// by index searches on the columns it filters on: none reads a table whole.
TEST_P(VersionContentTest, EveryDeletionIsIndexSearchesOnItsColumns)
{
    std::vector<ContentDeletion> deletions = DeleteVersionContentsStatements(1, conn.backend());
    for (const std::vector<ContentDeletion>& more : {ClearVersionContentStatements(1, conn.backend()), PrepareForRestoreStatements(1, true, conn.backend())})
        deletions.insert(deletions.end(), more.begin(), more.end());
    const QRegularExpression filter(u"FROM (\\w+) WHERE (\\w+)"_s);
    for (const ContentDeletion& deletion : deletions) {
        QStringList searched;
        for (auto match = filter.globalMatch(deletion.sql); match.hasNext();)
            searched << match.next().capturedTexts().mid(1).join(u'.');
        ExpectIndexSearches(conn, deletion.sql, searched);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionContentTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
