#include "lists/NameDescGrids.h"
#include "lists/NameDescTableModel.h"
#include "repository/Connection.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <memory>

using namespace dorvane;
using namespace dorvane::test;

namespace {

QString descriptionOf(Connection& conn, const QString& sql)
{
    try {
        Recordset rs(sql, conn);
        rs.Eof();
    } catch (const DbError& e) {
        return e.description();
    }
    return QStringLiteral("<no error>");
}

// The rows of a table as "name|description", in name order.
QStringList tableRows(Connection& conn, const NameDescGridInfo& info, const QString& where = QString())
{
    return Rows(conn, QStringLiteral("SELECT %1, %2 FROM %3 %4 ORDER BY %1").arg(info.nameColumn, info.descriptionColumn, info.table, where));
}

QStringList listRows(const clsNameDescPair& list)
{
    QStringList out;
    for (int i = 0; i < list.Count(); ++i)
        out << list.GetValue(i, 0) + u'|' + list.GetValue(i, 1);
    return out;
}

} // namespace

class NameDescGridsTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
        DB_ASSERT(appA = addApp(QStringLiteral("Billing")));
        DB_ASSERT(appB = addApp(QStringLiteral("Claims")));
    }

    qint32 addApp(const QString& name)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sAppName"), name);
        rs.SetValue(QStringLiteral("iAppPlatform"), kPlatformWindows);
        rs.Update();
        return rs.Int(QStringLiteral("iAppKey"));
    }

    qint32 addRow(NameDescGridKind kind, const QString& name, const QString& desc, qint32 appKey = 0)
    {
        const NameDescGridInfo& info = GridInfo(kind);
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE %2=0").arg(info.table, info.keyColumn), conn);
        rs.AddNew();
        rs.SetValue(info.nameColumn, name);
        rs.SetValue(info.descriptionColumn, desc);
        if (kind == NameDescGridKind::Keywords)
            rs.SetValue(QStringLiteral("iKeywordAppKey"), appKey);
        rs.Update();
        return rs.Int(info.keyColumn);
    }

    void useKeyword(qint32 keywordKey)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelKeywordKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("iKeywordRelKeywordKey"), keywordKey);
        rs.SetValue(QStringLiteral("iKeywordRelProcessKey"), 0);
        rs.SetValue(QStringLiteral("iKeywordRelCycleKey"), 7);
        rs.SetValue(QStringLiteral("iKeywordRelScheduleKey"), 0);
        rs.Update();
    }

    // Types into a cell as a user would.
    bool type(NameDescGrid& grid, int row, int column, const QString& text)
    {
        NameDescTableModel& model = grid.Model();
        return model.setData(model.index(row, column), text, Qt::EditRole);
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    ScriptedMessages messages;
    qint32 appA = 0;
    qint32 appB = 0;
};

TEST_P(NameDescGridsTest, LoadersReadNameOrderWithKeysAndKeywordsOfOneApplication)
{
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Zeta"), QStringLiteral("z")));
    qint32 alpha = 0;
    DB_ASSERT(alpha = addRow(NameDescGridKind::Roles, QStringLiteral("alpha"), QStringLiteral("a")));
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Beta"), QStringLiteral("b")));
    DB_ASSERT(addRow(NameDescGridKind::Keywords, QStringLiteral("Smoke"), QStringLiteral("s"), appA));
    DB_ASSERT(addRow(NameDescGridKind::Keywords, QStringLiteral("Regression"), QStringLiteral("r"), appB));

    NameDescGrid roles(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(RefreshRoleGrid(roles, conn, messages));
    EXPECT_EQ(listRows(roles.List()), QStringList({"alpha|a", "Beta|b", "Zeta|z"}));
    EXPECT_EQ(roles.List().GetValue(0, 2), QString::number(alpha));
    EXPECT_FALSE(roles.List().IsNew(0));
    EXPECT_EQ(roles.Model().rowCount(), 4) << "three rows and the adding row";

    NameDescGrid keywords(NameDescGridKind::Keywords, messages);
    ASSERT_TRUE(RefreshKeywordGrid(keywords, conn, messages, appB));
    EXPECT_EQ(listRows(keywords.List()), QStringList({"Regression|r"}));
    ASSERT_TRUE(RefreshKeywordGrid(keywords, conn, messages, 0));
    EXPECT_EQ(keywords.List().Count(), 0);
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(NameDescGridsTest, LoaderFailureKeepsNothingStaleAndSaysWhy)
{
    NameDescGrid projects(NameDescGridKind::Projects, messages);
    projects.List().Add(QStringLiteral("Stale"), QString(), 0, true);
    DB_ASSERT(conn.Execute(QStringLiteral("DROP TABLE tProject")));
    EXPECT_FALSE(RefreshProjectGrid(projects, conn, messages));
    EXPECT_EQ(projects.List().Count(), 0);
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error while reading Projects: ")))
        << messages.shown[0].toStdString();
}

TEST_P(NameDescGridsTest, NameCheckRefusesBlankAndExactClashesOnly)
{
    for (NameDescGridKind kind : {NameDescGridKind::Roles, NameDescGridKind::Projects, NameDescGridKind::Keywords}) {
        NameDescGrid grid(kind, messages);
        grid.List().Add(QStringLiteral("Admin"), QStringLiteral("a"), 1, false);
        grid.List().Add(QStringLiteral("Tester"), QStringLiteral("t"), 2, false);
        messages.shown.clear();

        EXPECT_FALSE(type(grid, 1, 0, QString()));
        EXPECT_FALSE(type(grid, 1, 0, QStringLiteral("Admin")));
        // A name that differs in letter case only is another name.
        EXPECT_TRUE(type(grid, 1, 0, QStringLiteral("admin")));
        // A row may keep its own name.
        EXPECT_TRUE(grid.CheckName(0, QStringLiteral("Admin"), messages));

        EXPECT_EQ(messages.shown, QStringList({GridInfo(kind).blankNameMessage, "Admin already exists!"}));
        EXPECT_EQ(listRows(grid.List()), QStringList({"Admin|a", "admin|t"}));
        EXPECT_FALSE(grid.List().IsDirty(0));
        EXPECT_TRUE(grid.List().IsDirty(1));
    }
    EXPECT_EQ(GridInfo(NameDescGridKind::Roles).blankNameMessage, QStringLiteral("Role name cannot be blank"));
    EXPECT_EQ(GridInfo(NameDescGridKind::Projects).blankNameMessage, QStringLiteral("Project name cannot be blank"));
    EXPECT_EQ(GridInfo(NameDescGridKind::Keywords).blankNameMessage, QStringLiteral("Keyword cannot be blank"));
}

TEST_P(NameDescGridsTest, ModelAddsRowsOnTheAddingRowAndReportsEdits)
{
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    NameDescTableModel& model = grid.Model();
    int changes = 0;
    QObject::connect(&model, &NameDescTableModel::changed, [&changes] { ++changes; });
    EXPECT_EQ(model.headerData(0, Qt::Horizontal).toString(), QStringLiteral("Role"));
    EXPECT_EQ(model.headerData(1, Qt::Horizontal).toString(), QStringLiteral("Description"));
    ASSERT_EQ(model.rowCount(), 1);
    EXPECT_TRUE(model.IsAddingRow(0));

    // Leaving the adding row untouched adds nothing and says nothing.
    EXPECT_FALSE(type(grid, 0, 0, QString()));
    EXPECT_EQ(changes, 0);
    EXPECT_FALSE(grid.Dirty());

    // A description alone does not make a row: the name is blank.
    EXPECT_FALSE(type(grid, 0, 1, QStringLiteral("orphan")));
    EXPECT_EQ(messages.shown, QStringList({"Role name cannot be blank"}));
    EXPECT_EQ(grid.List().Count(), 0);
    EXPECT_TRUE(grid.Dirty()) << "the change event comes before the check";

    ASSERT_TRUE(type(grid, 0, 0, QStringLiteral("Auditor")));
    ASSERT_EQ(grid.List().Count(), 1);
    EXPECT_EQ(grid.List().GetValue(0, 1), QStringLiteral(" ")) << "a missing description is one blank";
    EXPECT_EQ(grid.List().GetValue(0, 2), QStringLiteral("0"));
    EXPECT_TRUE(grid.List().IsNew(0));
    EXPECT_EQ(model.rowCount(), 2);
    EXPECT_TRUE(model.IsAddingRow(1));
    EXPECT_EQ(model.headerData(1, Qt::Vertical).toString(), QStringLiteral("*"));

    ASSERT_TRUE(type(grid, 0, 1, QStringLiteral("Reads everything")));
    EXPECT_EQ(model.data(model.index(0, 1)).toString(), QStringLiteral("Reads everything"));
    // The same name again on the adding row clashes with the row above.
    EXPECT_FALSE(type(grid, 1, 0, QStringLiteral("Auditor")));
    EXPECT_EQ(messages.shown.last(), QStringLiteral("Auditor already exists!"));
    EXPECT_EQ(changes, 4);
}

TEST_P(NameDescGridsTest, SaveWritesNewAndChangedEntriesAndReloadGivesKeys)
{
    qint32 admin = 0;
    DB_ASSERT(admin = addRow(NameDescGridKind::Roles, QStringLiteral("Admin"), QStringLiteral("old")));
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Tester"), QStringLiteral("t")));
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages));

    ASSERT_TRUE(type(grid, 0, 1, QStringLiteral("new description")));
    ASSERT_TRUE(type(grid, grid.Model().AddingRow(), 0, QStringLiteral("Viewer")));
    ASSERT_TRUE(type(grid, grid.Model().AddingRow(), 0, QStringLiteral("Auditor")));
    ASSERT_TRUE(type(grid, 3, 1, QStringLiteral("Checks")));
    ASSERT_TRUE(grid.Dirty());

    const GridSaveOutcome outcome = grid.Save(conn, messages);
    EXPECT_TRUE(outcome.SaveOk);
    EXPECT_FALSE(grid.Dirty());
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();

    const NameDescGridInfo& info = grid.Info();
    EXPECT_EQ(tableRows(conn, info),
              QStringList({"Admin|new description", "Auditor|Checks", "Tester|t", "Viewer| "}));
    // The reloaded list is in name order and every row has its key.
    EXPECT_EQ(listRows(grid.List()), QStringList({"Admin|new description", "Auditor|Checks", "Tester|t", "Viewer| "}));
    EXPECT_EQ(grid.List().GetValue(0, 2), QString::number(admin));
    for (int i = 0; i < grid.List().Count(); ++i) {
        EXPECT_NE(grid.List().GetValue(i, 2), QStringLiteral("0")) << i;
        EXPECT_FALSE(grid.List().IsNew(i)) << i;
        EXPECT_FALSE(grid.List().IsDirty(i)) << i;
    }

    // A second save writes nothing new.
    EXPECT_TRUE(grid.Save(conn, messages).SaveOk);
    EXPECT_EQ(tableRows(conn, info).size(), 4);
}

TEST_P(NameDescGridsTest, KeywordsAndProjectsAreAddedWithTheirOwnAddSets)
{
    NameDescGrid keywords(NameDescGridKind::Keywords, messages);
    ASSERT_TRUE(keywords.Refresh(conn, messages, appB));
    ASSERT_TRUE(type(keywords, 0, 0, QStringLiteral("Smoke")));
    ASSERT_TRUE(keywords.Save(conn, messages, appB).SaveOk);
    EXPECT_EQ(tableRows(conn, keywords.Info(), QStringLiteral("WHERE iKeywordAppKey = %1").arg(appB)),
              QStringList({"Smoke| "}));
    EXPECT_TRUE(tableRows(conn, keywords.Info(), QStringLiteral("WHERE iKeywordAppKey = %1").arg(appA)).isEmpty());
    EXPECT_EQ(listRows(keywords.List()), QStringList({"Smoke| "}));
    EXPECT_NE(keywords.List().GetValue(0, 2), QStringLiteral("0"));

    NameDescGrid projects(NameDescGridKind::Projects, messages);
    ASSERT_TRUE(projects.Refresh(conn, messages));
    ASSERT_TRUE(type(projects, 0, 0, QStringLiteral("Apollo")));
    ASSERT_TRUE(type(projects, 0, 1, QStringLiteral("Moon")));
    ASSERT_TRUE(projects.Save(conn, messages).SaveOk);
    EXPECT_EQ(tableRows(conn, projects.Info()), QStringList({"Apollo|Moon"}));
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(NameDescGridsTest, SaveStopsAtTheFirstFailureAndKeepsWhatItWrote)
{
    qint32 gone = 0;
    DB_ASSERT(gone = addRow(NameDescGridKind::Roles, QStringLiteral("Zulu"), QStringLiteral("z")));
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    clsNameDescPair& list = grid.List();
    list.Add(QStringLiteral("Alpha"), QStringLiteral(" "), 0, true);
    list.Add(QStringLiteral("Zulu"), QStringLiteral("z"), gone, false);
    list.SetValue(1, 1, QStringLiteral("changed"));
    list.Add(QStringLiteral("Omega"), QStringLiteral(" "), 0, true);
    grid.SetDirty(true);
    // Somebody else deletes the changed row before the save.
    DB_ASSERT(conn.Execute(QStringLiteral("DELETE * FROM tRole WHERE iRoleKey = %1").arg(gone)));

    EXPECT_FALSE(grid.Save(conn, messages).SaveOk);
    EXPECT_TRUE(grid.Dirty());
    const QString prefix = QStringLiteral("Error while saving Roles: ");
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(prefix)) << messages.shown[0].toStdString();
    EXPECT_GT(messages.shown[0].size(), prefix.size()) << "the database's reason follows";
    // The entry before the failure stays written; the one after it is not.
    EXPECT_EQ(tableRows(conn, grid.Info()), QStringList({"Alpha| "}));
    EXPECT_FALSE(list.IsNew(0));
    EXPECT_TRUE(list.IsDirty(1));
    EXPECT_TRUE(list.IsNew(2));
    // No reload after a failed save: the list is as it was, and the entry
    // written carries its row's key, so deleting it deletes that row.
    EXPECT_EQ(listRows(list), QStringList({"Alpha| ", "Zulu|changed", "Omega| "}));
    EXPECT_NE(list.GetValue(0, 2), QStringLiteral("0"));
    messages.shown.clear();
    EXPECT_TRUE(grid.DeleteRow(0, conn, messages));
    EXPECT_TRUE(tableRows(conn, grid.Info()).isEmpty());
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(NameDescGridsTest, DeletingAStoredRoleRemovesRowAndEntry)
{
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Admin"), QStringLiteral("a")));
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("O'Brien's"), QStringLiteral("o")));
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages));
    ASSERT_EQ(grid.List().GetValue(1, 0), QStringLiteral("O'Brien's"));

    EXPECT_TRUE(grid.DeleteRow(1, conn, messages));
    EXPECT_EQ(listRows(grid.List()), QStringList({"Admin|a"}));
    EXPECT_EQ(tableRows(conn, grid.Info()), QStringList({"Admin|a"}));
    EXPECT_EQ(grid.Model().rowCount(), 2);
    // The adding row holds no entry.
    EXPECT_FALSE(grid.DeleteRow(grid.Model().AddingRow(), conn, messages));
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(NameDescGridsTest, DeletingAnUnsavedRowLeavesTheRepositoryAlone)
{
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Admin"), QStringLiteral("a")));
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages));
    // Same name but for letter case: a lookup by name in the repository
    // would find the stored row.
    ASSERT_TRUE(type(grid, grid.Model().AddingRow(), 0, QStringLiteral("admin")));

    EXPECT_TRUE(grid.DeleteRow(1, conn, messages));
    EXPECT_EQ(listRows(grid.List()), QStringList({"Admin|a"}));
    EXPECT_EQ(tableRows(conn, grid.Info()), QStringList({"Admin|a"}));
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(NameDescGridsTest, DeletingARowGoneFromTheRepositoryFailsAndKeepsTheEntry)
{
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Admin"), QStringLiteral("a")));
    NameDescGrid grid(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages));
    DB_ASSERT(conn.Execute(QStringLiteral("DELETE * FROM tRole")));

    EXPECT_FALSE(grid.DeleteRow(0, conn, messages));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error removing Role: ")))
        << messages.shown[0].toStdString();
    EXPECT_EQ(listRows(grid.List()), QStringList({"Admin|a"}));
}

TEST_P(NameDescGridsTest, AKeywordInUseIsNotDeleted)
{
    qint32 used = 0;
    DB_ASSERT(used = addRow(NameDescGridKind::Keywords, QStringLiteral("Smoke"), QStringLiteral("s"), appA));
    DB_ASSERT(addRow(NameDescGridKind::Keywords, QStringLiteral("Spare"), QStringLiteral("x"), appA));
    DB_ASSERT(useKeyword(used));
    NameDescGrid grid(NameDescGridKind::Keywords, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages, appA));

    EXPECT_FALSE(grid.DeleteRow(0, conn, messages));
    EXPECT_EQ(messages.shown, QStringList({"You can't delete this keyword because it is being used"}));
    EXPECT_EQ(listRows(grid.List()), QStringList({"Smoke|s", "Spare|x"}));

    EXPECT_TRUE(grid.DeleteRow(1, conn, messages));
    EXPECT_EQ(tableRows(conn, grid.Info()), QStringList({"Smoke|s"}));
    EXPECT_EQ(messages.shown.size(), 1);
}

// The row deleted, and the row checked for use, is the one the grid shows:
// a keyword of the same name in another application, or a role whose name
// differs only in letter case, is neither deleted nor asked about.
TEST_P(NameDescGridsTest, DeletionTakesTheRowShownByItsKey)
{
    qint32 otherLogin = 0;
    DB_ASSERT(otherLogin = addRow(NameDescGridKind::Keywords, QStringLiteral("Login"), QStringLiteral("of A"), appA));
    DB_ASSERT(addRow(NameDescGridKind::Keywords, QStringLiteral("Login"), QStringLiteral("of B"), appB));
    DB_ASSERT(useKeyword(otherLogin));
    NameDescGrid keywords(NameDescGridKind::Keywords, messages);
    ASSERT_TRUE(keywords.Refresh(conn, messages, appB));
    EXPECT_TRUE(keywords.DeleteRow(0, conn, messages)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(tableRows(conn, keywords.Info()), QStringList({"Login|of A"}));

    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("Tester"), QStringLiteral("upper")));
    DB_ASSERT(addRow(NameDescGridKind::Roles, QStringLiteral("tester"), QStringLiteral("lower")));
    NameDescGrid roles(NameDescGridKind::Roles, messages);
    ASSERT_TRUE(roles.Refresh(conn, messages));
    const int lower = roles.List().GetValue(0, 1) == QStringLiteral("lower") ? 0 : 1;
    EXPECT_TRUE(roles.DeleteRow(lower, conn, messages));
    EXPECT_EQ(tableRows(conn, roles.Info()), QStringList({"Tester|upper"}));
    EXPECT_EQ(listRows(roles.List()), QStringList({"Tester|upper"}));
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(NameDescGridsTest, AStoredProjectIsNeverDeleted)
{
    DB_ASSERT(addRow(NameDescGridKind::Projects, QStringLiteral("Apollo"), QStringLiteral("Moon")));
    NameDescGrid grid(NameDescGridKind::Projects, messages);
    ASSERT_TRUE(grid.Refresh(conn, messages));
    ASSERT_TRUE(type(grid, grid.Model().AddingRow(), 0, QStringLiteral("Gemini")));

    EXPECT_FALSE(grid.DeleteRow(0, conn, messages));
    const QString reason = descriptionOf(conn, QStringLiteral("SELECT * FROM sProjectName = 'Apollo'"));
    ASSERT_NE(reason, QStringLiteral("<no error>"));
    EXPECT_EQ(messages.shown, QStringList({QStringLiteral("Error removing Project: ") + reason}));
    EXPECT_EQ(tableRows(conn, grid.Info()), QStringList({"Apollo|Moon"}));

    // One that was only added in the grid goes.
    EXPECT_TRUE(grid.DeleteRow(1, conn, messages));
    EXPECT_EQ(listRows(grid.List()), QStringList({"Apollo|Moon"}));
    EXPECT_EQ(messages.shown.size(), 1);
}

INSTANTIATE_TEST_SUITE_P(Backends, NameDescGridsTest, ::testing::ValuesIn(TestBackends()));
