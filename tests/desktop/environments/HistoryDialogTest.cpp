// The History window of the Environments page: what the page's own
// operations recorded, newest first and read-only; a repository without
// the history table is told so.

#include "desktop/environments/frmHistory.h"
#include "desktop/mainwindow/MainWindowFixture.h"
#include "desktop/mainwindow/ScriptedDialogs.h"

#include <QDir>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace dorvane::test {
namespace {

using HistoryDialogTest = MainWindowFixture;

TEST_P(HistoryDialogTest, ShowsThePagesOperationsNewestFirstAndChangesNothing)
{
    SetHistoryProgram(u"dorvane"_s);
    ScriptedDialogs dialogs;
    MakeBackupTemplate();
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Environments/Backups"_s));
    OpenTutorial(dialogs, frmMainForm::EnvironmentsPage);
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    messages.Queue(Answer::Yes);
    environments().cmdEnvironBackup->click();
    environments().cmdEnvironDelete->click();  // its steps refer to it

    environments().cmdEnvironHistory->click();
    auto* history = environments().findChild<frmHistory*>();
    ASSERT_TRUE(history && history->isVisible()) << shown();
    QTableWidget* grid = history->grdHistory;
    QStringList rows;
    for (int row = 0; row < grid->rowCount(); ++row) {
        QStringList fields;
        for (const int column : {3, 4, 5, 7, 8})
            fields << grid->item(row, column)->text();
        EXPECT_FALSE(grid->item(row, 8)->flags() & Qt::ItemIsEditable);
        rows << fields.join(u'|');
    }
    EXPECT_EQ(rows, (QStringList{u"dorvane|delete-environment|TUTORIAL|refused|This environment is referenced in existing steps and cannot be deleted"_s,
                                 u"dorvane|backup|TUTORIAL|done|"_s}));
    delete history;

    repository().Execute(u"DROP TABLE dvHistory"_s);
    messages.shown.clear();
    environments().cmdEnvironHistory->click();
    EXPECT_EQ(std::pair(messages.shown, environments().findChild<frmHistory*>() == nullptr), std::pair(QStringList{kNoHistoryTable}, true));
}

INSTANTIATE_TEST_SUITE_P(Backends, HistoryDialogTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
