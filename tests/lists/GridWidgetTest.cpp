// The roles, projects and keywords grids, edited in their views.

#include "mainwindow/MainWindowFixture.h"
#include "lists/NameDescGrids.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QAction>
#include <QCoreApplication>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTableView>
#include <QTest>

namespace dorvane::test {
namespace {

class GridWidgetTest : public MainWindowFixture {
protected:
    void openActive(RepositoryContent content)
    {
        OpenWindow(content);
        window->activateWindow();
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, repository());
        return CountRecords(&rs);
    }

    static QString cell(QTableView* view, int row, int column)
    {
        return view->model()->index(row, column).data().toString();
    }

    static QStringList names(QTableView* view)
    {
        QStringList result;
        for (int row = 0; row < view->model()->rowCount(); ++row)
            result << cell(view, row, 0);
        return result;
    }

    // A cell committed by the grid's editor.
    static bool typeCell(QTableView* view, int row, int column, const QString& text)
    {
        return view->model()->setData(view->model()->index(row, column), text, Qt::EditRole);
    }

    // Types into the cell's own editor and presses Enter.
    static void typeInEditor(QTableView* view, int row, int column, const QString& text)
    {
        const QModelIndex index = view->model()->index(row, column);
        view->setCurrentIndex(index);
        view->edit(index);
        auto* editor = qobject_cast<QLineEdit*>(view->indexWidget(index));
        if (!editor)
            editor = view->viewport()->findChild<QLineEdit*>();
        ASSERT_NE(editor, nullptr);
        editor->selectAll();
        QTest::keyClicks(editor, text);
        QTest::keyClick(editor, Qt::Key_Return);
        // The delegate commits and closes its editor by a queued call.
        QCoreApplication::processEvents();
    }

    static void deleteRow(QTableView* view, int row)
    {
        view->setCurrentIndex(view->model()->index(row, 0));
        for (QAction* action : view->actions()) {
            if (action->text() == QStringLiteral("&Delete Row")) {
                action->trigger();
                return;
            }
        }
        ADD_FAILURE() << "no Delete Row action on " << view->objectName().toStdString();
    }

    void showRoles()
    {
        c().SSMainTab->setCurrentIndex(frmMainForm::OptionsPage);
        c().SSOptionsTab->setCurrentWidget(c().grpUserRoles);
    }
};

TEST_P(GridWidgetTest, TheGridsLiveWhereTheAdministratorLooksForThem)
{
    openActive(RepositoryContent::Tutorial);
    EXPECT_TRUE(c().SSMainTab->widget(frmMainForm::OptionsPage)->isAncestorOf(c().TDBGridRoles));
    EXPECT_TRUE(c().SSMainTab->widget(frmMainForm::OptionsPage)->isAncestorOf(c().TDBGridProjects));
    EXPECT_TRUE(c().SSAppTab->widget(2)->isAncestorOf(c().TDBGridKeywords));
    EXPECT_EQ(c().SSAppTab->tabText(2), QStringLiteral("&Keywords"));
    // The rows as loaded, in name order, and the adding row below them.
    EXPECT_EQ(names(c().TDBGridRoles),
              (QStringList{QStringLiteral("Developer"), QStringLiteral("Test Lead"), QStringLiteral("Tester"), QString()}));
    EXPECT_FALSE(c().cmdRoleSave->isEnabled());
    EXPECT_FALSE(window->RoleDirty());
}

TEST_P(GridWidgetTest, NamesClashOnlyInExactCase)
{
    openActive(RepositoryContent::Tutorial);
    showRoles();
    QTableView* view = c().TDBGridRoles;
    const int adding = view->model()->rowCount() - 1;

    typeInEditor(view, adding, 0, QStringLiteral("Tester"));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Tester already exists!")});
    EXPECT_EQ(view->model()->rowCount(), adding + 1);

    messages.shown.clear();
    typeInEditor(view, adding, 0, QStringLiteral("tester"));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    ASSERT_EQ(view->model()->rowCount(), adding + 2);
    EXPECT_EQ(cell(view, adding, 0), QStringLiteral("tester"));
    EXPECT_EQ(cell(view, adding, 1), QStringLiteral(" "));

    // Renaming a row to another row's name, and to nothing, is refused.
    EXPECT_FALSE(typeCell(view, 0, 0, QStringLiteral("Test Lead")));
    EXPECT_FALSE(typeCell(view, 0, 0, QString()));
    EXPECT_EQ(messages.shown,
              (QStringList{QStringLiteral("Test Lead already exists!"), QStringLiteral("Role name cannot be blank")}));
    EXPECT_EQ(cell(view, 0, 0), QStringLiteral("Developer"));
    // The same name in its own row is no clash.
    EXPECT_TRUE(typeCell(view, 0, 0, QStringLiteral("DEVELOPER")));
    EXPECT_TRUE(window->RoleDirty());
    EXPECT_TRUE(c().cmdRoleSave->isEnabled());
}

TEST_P(GridWidgetTest, SaveWritesTheEditsAndReloadsTheKeys)
{
    openActive(RepositoryContent::Tutorial);
    showRoles();
    QTableView* view = c().TDBGridRoles;
    ASSERT_TRUE(typeCell(view, view->model()->rowCount() - 1, 0, QStringLiteral("Auditor")));
    ASSERT_TRUE(typeCell(view, 2, 1, QStringLiteral("Runs the tests")));
    c().cmdRoleSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(window->SaveOk);
    EXPECT_FALSE(window->RoleDirty());
    EXPECT_FALSE(c().cmdRoleSave->isEnabled());
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRole WHERE sRoleName='Auditor' AND sRoleDesc=' '")), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRole WHERE sRoleName='Tester' AND sRoleDesc='Runs the tests'")), 1);

    // Reloaded in name order, every row with its key.
    EXPECT_EQ(names(view), (QStringList{QStringLiteral("Auditor"), QStringLiteral("Developer"),
                                        QStringLiteral("Test Lead"), QStringLiteral("Tester"), QString()}));
    const clsNameDescPair& list = window->rolesGrid().List();
    Recordset auditor(QStringLiteral("SELECT * FROM tRole WHERE sRoleName='Auditor'"), repository());
    EXPECT_EQ(list.GetValue(0, clsNameDescPair::KeyField), QString::number(auditor.Int(QStringLiteral("iRoleKey"))));
    EXPECT_FALSE(list.IsNew(0));

    // A second edit of the added row updates it rather than adding again.
    ASSERT_TRUE(typeCell(view, 0, 1, QStringLiteral("Checks the records")));
    c().cmdRoleSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRole WHERE sRoleName='Auditor'")), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRole WHERE sRoleDesc='Checks the records'")), 1);
}

// Deleting a row deletes the row shown: a role whose name differs only in
// letter case, and another application's keyword of the same name, stay.
TEST_P(GridWidgetTest, DeletingARowDeletesThatRow)
{
    openActive(RepositoryContent::Tutorial);
    showRoles();
    QTableView* roles = c().TDBGridRoles;
    ASSERT_TRUE(typeCell(roles, roles->model()->rowCount() - 1, 0, QStringLiteral("tester")));
    c().cmdRoleSave->click();
    const int lower = names(roles).indexOf(QStringLiteral("tester"));
    ASSERT_GE(lower, 0);
    deleteRow(roles, lower);
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(Rows(repository(), QStringLiteral("SELECT sRoleName FROM tRole WHERE sRoleName='Tester'")),
              QStringList{QStringLiteral("Tester")});
    EXPECT_FALSE(names(roles).contains(QStringLiteral("tester")));
    EXPECT_TRUE(names(roles).contains(QStringLiteral("Tester")));

    // "Checkout" is Web Store's keyword; Order Entry gets one of its own.
    c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    c().lbAppList->setCurrentRow(FindItemByText(c().lbAppList, QStringLiteral("Order Entry")));
    QTableView* keywords = c().TDBGridKeywords;
    ASSERT_TRUE(typeCell(keywords, keywords->model()->rowCount() - 1, 0, QStringLiteral("Checkout")));
    c().cmdKeywordSave->click();
    deleteRow(keywords, names(keywords).indexOf(QStringLiteral("Checkout")));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword WHERE sKeywordName='Checkout'")), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword WHERE sKeywordName='Checkout' AND iKeywordAppKey=") +
                    QString::number(window->CurrentAppKey)),
              0);
}

INSTANTIATE_TEST_SUITE_P(Backends, GridWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
