// The Environments page walked as an administrator does, the repository
// checked after: the definition, the configuration, the users with their
// rights and the save prompt; then Copy, Save As, Backup and Restore, and
// the History window with what the page's operations recorded.

#include "desktop/copyengine/frmVersionProgress.h"
#include "desktop/environments/frmHistory.h"
#include "desktop/mainwindow/MainWindowFixture.h"
#include "core/repository/Globals.h"

#include <QCheckBox>
#include <QDate>
#include <QStatusBar>
#include <QItemSelectionModel>
#include <QPushButton>
#include <QTest>

using namespace Qt::StringLiterals;

namespace dorvane::test {
namespace {

class EnvironmentEditorWidgetTest : public MainWindowFixture {
protected:
    void SetUp() override { MainWindowFixture::SetUp(); OpenTutorial(frmMainForm::EnvironmentsPage); }
    qint32 keyOf(const QString& sql) { return Rows(repository(), sql).value(0).toInt(); }
    qint32 userKey(const QString& id) { return keyOf(u"SELECT iUserKey FROM tUser WHERE sUserID='%1'"_s.arg(id)); }

    // The five rights of a registration in the boxes' order, "none" when not registered.
    QString rights(qint32 environ, const QString& id)
    {
        const QStringList row = Rows(repository(), u"SELECT bDorvane, bOmrik, bZulane, bVantrel, bKrestin FROM tEnvironmentUser "
                                                    u"WHERE iEnvironKey=%1 AND iUserKey=%2"_s.arg(environ).arg(userKey(id)));
        return row.isEmpty() ? u"none"_s : QString(row[0]).replace(u"-1"_s, u"1"_s).remove(u'|');
    }
    QString boxes()
    {
        QString flags;
        for (QCheckBox* box : {environments().ckDorvane, environments().ckOmrik, environments().ckZulane, environments().ckVantrel, environments().ckKrestin})
            flags += box->isChecked() ? u'1' : u'0';
        return flags;
    }
    // Chooses Web Store 3.0 with its test tool on the configuration page.
    void chooseWebStore()
    {
        Choose(environments().cbEnvironApp, u"Web Store"_s);
        Choose(environments().cbEnvironVer, u"3.0"_s);
        Choose(environments().cbEnvironTestTool, u"Web Driver"_s);
    }

    // Every environment, registration, detail and version row.
    QStringList environmentRows() { return TableRows(repository(), {u"tEnvironment"_s, u"tEnvironmentDetail"_s, u"tEnvironmentUser"_s, u"tVersion"_s}); }
    QString progressTitle() { return window->findChild<frmVersionProgress*>()->windowTitle(); }
};

TEST_P(EnvironmentEditorWidgetTest, AnEnvironmentIsBuiltEditedAndDeleted)
{
    environments().cmdEnvironNew->click();
    Retype(environments().txtEnvironName, u"Web/Test?"_s);
    Retype(environments().txtEnvironDesc, u"Shop front"_s);
    environments().cmdEnvironSave->click();
    ASSERT_TRUE(environments().SaveOk()) << shown();
    const qint32 key = keyOf(u"SELECT iEnvironmentKey FROM tEnvironment WHERE sEnvironmentName='Web_Test_' AND sEnvironmentDesc='Shop front'"_s);
    ASSERT_NE(key, 0);

    // A version with its test tool; then a user, registered without rights:
    // one box ticked writes one right of that one registration.
    chooseWebStore();
    environments().cmdAddAppVer->click();
    EXPECT_EQ(count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 AND iEnvironTestToolKey=3 AND iEnviron3270Key=0"_s.arg(key)), 1);
    // Removed, it stays removed: the drop-downs no longer show it, and a
    // Save cannot add it back.
    Select(environments().lbEnvironAppVerList, u"Web Store - 3.0"_s);
    environments().cmdRemoveAppVer->click();
    EXPECT_EQ(std::pair(environments().cbEnvironApp->currentIndex(), environments().cbEnvironVer->currentIndex()), std::pair(-1, -1));
    messages.shown.clear();
    environments().cmdEnvironConfigSave->click();
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(key)), std::exchange(messages.shown, {})),
              std::pair(qsizetype(0), QStringList{u"You must select an application and version to add"_s}));
    chooseWebStore();
    environments().cmdAddAppVer->click();
    environments().SSEnvironTab->setCurrentIndex(2);
    Select(environments().lbEnvironUserList, u"Li Chen"_s);
    environments().cmdAddEnvironUser->click();
    EXPECT_EQ(rights(key, u"lchen"_s), u"00000"_s);
    environments().ckZulane->click();
    EXPECT_EQ(std::pair(rights(key, u"lchen"_s), count(u"SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(key))), std::pair(u"00100"_s, qsizetype(1)));
    environments().ckZulane->click();
    EXPECT_EQ(rights(key, u"lchen"_s), u"00000"_s);

    // Opened again, Delete takes it (its version and user rows with it:
    // EnvironmentRecordsTest).
    environments().SSEnvironTab->setCurrentIndex(0);
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    Select(environments().lbEnvironList, u"Web_Test_"_s);
    environments().cmdEnvironDelete->click();
    EXPECT_EQ(count(u"SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1"_s.arg(key)), 0);

    // TUTORIAL: filling the fields is no edit, and showing rights writes nothing.
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    const qint32 tutorial = environments().CurrentEnvironKey();
    environments().SSEnvironTab->setCurrentIndex(2);
    const QStringList before = environmentRows();
    // Li Chen last: the one removed below.
    for (const auto& [user, flags] : {std::pair{u"Jane Smith"_s, u"11111"_s}, std::pair{u"Mark Brown"_s, u"01010"_s}, std::pair{u"Li Chen"_s, u"01001"_s}}) {
        Select(environments().lbEnvironUsers, user);
        EXPECT_EQ(boxes(), flags);
    }
    EXPECT_EQ(environmentRows(), before);
    // Removing clears the boxes without writing them to anyone, and leaves
    // nobody highlighted: a box ticked then writes nothing.
    environments().cmdRemoveEnvironUser->click();
    EXPECT_EQ(rights(tutorial, u"lchen"_s) + rights(tutorial, u"jsmith"_s) + rights(tutorial, u"mbrown"_s) + boxes(), u"none111110101000000"_s);
    const QStringList afterRemove = environmentRows();
    environments().ckKrestin->click();
    EXPECT_EQ(environmentRows(), afterRemove);
    // The list made current again as by the focus, without a highlight: the
    // boxes stay unusable and write nothing.
    environments().lbEnvironUsers->setCurrentRow(0, QItemSelectionModel::NoUpdate);
    environments().ckKrestin->click();
    EXPECT_EQ(std::pair(environments().ckKrestin->isEnabled(), environmentRows()), std::pair(false, afterRemove));
    EXPECT_TRUE(messages.shown.isEmpty()) << shown();

    // Edits of both parts meet one save prompt on leaving: Cancel stays with
    // the edits, Yes saves both and the other environment opens.
    environments().cmdEnvironNew->click();
    Retype(environments().txtEnvironName, u"Staging"_s);
    environments().cmdEnvironSave->click();
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    environments().SSEnvironTab->setCurrentIndex(0);
    Retype(environments().txtEnvironDesc, u"Nightly runs"_s);
    environments().SSEnvironTab->setCurrentIndex(1);
    chooseWebStore();
    const QStringList edited = environmentRows();
    answerNext({Answer::Cancel});
    {
        // Clicked as a person does, with the mouse.
        QListWidget* list = environments().lbEnvironList;
        const QRect staging = list->visualItemRect(list->item(FindItemByText(list, u"Staging"_s)));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, staging.center());
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(environmentRows(), edited);
    // The list shows again the environment the form and its buttons act on.
    EXPECT_EQ(std::tuple(environments().lbEnvironList->currentItem()->text(), environments().CurrentEnvironKey(), environments().lbEnvironList->selectedItems().value(0)->text()),
              std::tuple(u"TUTORIAL"_s, tutorial, u"TUTORIAL"_s));
    messages.Queue(Answer::Yes);
    Select(environments().lbEnvironList, u"Staging"_s);
    EXPECT_EQ(messages.shown, QStringList({"Save changes to this Environment?", "Save changes to this Environment?"}));
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1 AND sEnvironmentDesc='Nightly runs'"_s.arg(tutorial)),
                        count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(tutorial))), std::pair(qsizetype(1), qsizetype(3)));
}

TEST_P(EnvironmentEditorWidgetTest, CopySaveAsBackupAndRestoreRunFromThePage)
{
    // Copy fills the chosen empty version from the listed one and leaves the
    // environment's versions as they were.
    const qint32 oe = keyOf(u"SELECT iAppKey FROM tApp WHERE sAppName='Order Entry'"_s);
    repository().Execute(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType) VALUES (%1, '1.3', 1)"_s.arg(oe));
    const qint32 empty = keyOf(u"SELECT iVersionKey FROM tVersion WHERE sVersionID='1.3'"_s);
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    const qint32 key = environments().CurrentEnvironKey();
    environments().SSEnvironTab->setCurrentIndex(1);
    Select(environments().lbEnvironAppVerList, u"Order Entry - 1.1"_s);
    Choose(environments().cbEnvironVer, u"1.3"_s);
    environments().cmdCopyAppVer->click();
    EXPECT_GT(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(empty)), 1);
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey=%1"_s.arg(empty)), progressTitle()), std::pair(qsizetype(0), u"Version update progress..."_s));

    // Save As asks for each version; Cancel rolls everything back. Then an ID
    // a full version has is refused and the prompt stays, and the copy goes through.
    environments().SSEnvironTab->setCurrentIndex(0);
    Retype(environments().txtEnvironName, u"Release 2.0"_s);
    QStringList before = environmentRows();
    dialogs.versionIdAnswers = {u"1.2"_s, std::nullopt};
    environments().cmdEnvironSaveAs->click();
    EXPECT_EQ(dialogs.versionIdPrompts, QStringList({"Enter the new Version ID for Order Entry - 1.1:",
                                                     "Enter the new Version ID for Customer Inquiry - R5:"}));
    EXPECT_TRUE(!environments().SaveOk() && environmentRows() == before);
    dialogs.versionIdAnswers = {u"1.0"_s, u"1.2"_s, u"R6"_s};
    environments().cmdEnvironSaveAs->click();
    ASSERT_TRUE(environments().SaveOk()) << shown();
    const qint32 copy = keyOf(u"SELECT iEnvironmentKey FROM tEnvironment WHERE sEnvironmentName='Release 2_0'"_s);
    // Each user registered once.
    EXPECT_EQ(std::tuple(messages.shown, count(u"SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(copy)), progressTitle(), window->statusBar()->currentMessage()),
              std::tuple(QStringList{u"1.0 already exists - please choose another ID"_s}, qsizetype(3), u"Environment Copy progress..."_s,
                         u"Saved as Release 2_0, with a copy of every version."_s));

    // The environment's own folder is made by the first backup.
    const QString backups = sharedPath() + u"\\Environments\\Backups\\"_s;
    const QString file = QDate::currentDate().toString(u"MM-dd-yyyy"_s) + u".MDB"_s;
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    messages.Queue(Answer::Yes);
    environments().cmdEnvironBackup->click();
    EXPECT_TRUE(QFile::exists(sharedPath() + u"/Environments/Backups/TUTORIAL/"_s + file));
    EXPECT_EQ(std::tuple(messages.shown.last(), progressTitle(), window->statusBar()->currentMessage()),
              std::tuple(u"Back up all application/versions of TUTORIAL to %1?"_s.arg(file), u"Environment backup progress..."_s,
                         u"Backed up TUTORIAL to %1."_s.arg(QDir::cleanPath(sharedPath() + u"/Environments/Backups/TUTORIAL/"_s + file))));
    // A user removed after the backup; a cancelled chooser brings nothing back, the file does.
    environments().SSEnvironTab->setCurrentIndex(2);
    Select(environments().lbEnvironUsers, u"Li Chen"_s);
    environments().cmdRemoveEnvironUser->click();
    const QString registrations = u"SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(key);
    dialogs.restoreAnswers = {std::nullopt, backups + u"TUTORIAL\\"_s + file, backups + u"TUTORIAL\\"_s + file};
    environments().cmdEnvironRestore->click();
    EXPECT_EQ(std::pair(dialogs.restoreFolders, count(registrations)), std::pair(QStringList{backups + u"TUTORIAL"_s}, qsizetype(2)));
    // Before it starts, the restore says what it replaces and asks: No
    // leaves everything as it is.
    messages.Queue(Answer::No);
    environments().cmdEnvironRestore->click();
    EXPECT_EQ(std::pair(messages.shown.last(), count(registrations)),
              std::pair(u"Environment: TUTORIAL\nOrder Entry 1.1: emptied and refilled (46 rows now, 46 rows from the file)\n"
                        u"Customer Inquiry R5: emptied and refilled (28 rows now, 28 rows from the file)\n"
                        u"Schedules: 4 rows now, 4 rows from the file\nUsers before: jsmith, mbrown\nUsers after: jsmith, mbrown, lchen\n\n"
                        u"Restore environment TUTORIAL from %1?"_s.arg(file),
                        qsizetype(2)));
    messages.Queue(Answer::Yes);
    environments().cmdEnvironRestore->click();
    EXPECT_EQ(std::pair(count(registrations), count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(key))), std::pair(qsizetype(3), qsizetype(2)));
    EXPECT_EQ(std::pair(messages.shown.size(), window->statusBar()->currentMessage()), std::pair(qsizetype(4), u"Restored TUTORIAL from its backup."_s)) << shown();

    // A refused Save (another environment's name typed) leaves Backup and
    // Restore on the stored environment: the chooser shows TUTORIAL's own
    // backups, and OTHER's file is refused with nothing changed.
    environments().cmdEnvironNew->click();
    environments().txtEnvironName->setText(u"OTHER"_s);
    environments().cmdEnvironSave->click();
    Select(environments().lbEnvironList, u"TUTORIAL"_s); // a new environment's Backup is enabled once opened from the list
    Select(environments().lbEnvironList, u"OTHER"_s);
    messages.Queue(Answer::Yes);
    environments().cmdEnvironBackup->click();
    Select(environments().lbEnvironList, u"TUTORIAL"_s);
    messages.shown.clear();
    environments().txtEnvironName->setText(u"OTHER"_s);
    environments().cmdEnvironSave->click();
    EXPECT_EQ(std::exchange(messages.shown, {}), QStringList{u"OTHER already exists - please choose another ID"_s});
    before = environmentRows();
    dialogs.restoreFolders.clear();
    dialogs.restoreAnswers = {backups + u"OTHER\\"_s + file};
    environments().cmdEnvironRestore->click();
    EXPECT_EQ(std::pair(dialogs.restoreFolders, environmentRows()), std::pair(QStringList{backups + u"TUTORIAL"_s}, before));
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown.first().startsWith(u"The backup %1 belongs to environment \"OTHER\""_s.arg(file))) << shown();

    // A rename takes the environment's backups along.
    messages.shown.clear();
    environments().txtEnvironName->setText(u"Renamed"_s);
    environments().cmdEnvironSave->click();
    EXPECT_TRUE(messages.shown.isEmpty() && QFile::exists(sharedPath() + u"/Environments/Backups/Renamed/"_s + file)
                && !QDir(sharedPath() + u"/Environments/Backups/TUTORIAL"_s).exists()) << shown();
}

// The History window: what the page's own operations recorded, newest
// first and read-only; a repository without the history table is told so.
TEST_P(EnvironmentEditorWidgetTest, TheHistoryWindowShowsThePagesOperationsNewestFirstAndChangesNothing)
{
    SetHistoryProgram(u"dorvane"_s);
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

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentEditorWidgetTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
