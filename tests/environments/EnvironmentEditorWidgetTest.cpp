// The environment editor on the Environments page, driven as an
// administrator does: the definition, the configuration, the users with
// their rights, Save As with its new-version-ID prompts, and the save
// prompt.

#include "copyengine/frmVersionProgress.h"
#include "mainwindow/MainWindowFixture.h"
#include "mainwindow/ScriptedDialogs.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QCheckBox>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>

namespace dorvane::test {
namespace {

void retype(QLineEdit* box, const QString& text)
{
    box->selectAll();
    QTest::keyClicks(box, text);
}

// Chooses an entry of a drop-down as a click on it does.
void choose(QComboBox* combo, const QString& text)
{
    const int index = combo->findText(text);
    ASSERT_GE(index, 0) << text.toStdString() << " not in " << combo->objectName().toStdString();
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

void select(QListWidget* list, const QString& text)
{
    const int row = FindItemByText(list, text);
    ASSERT_GE(row, 0) << text.toStdString() << " not in " << list->objectName().toStdString();
    list->setCurrentRow(row);
}

QStringList texts(const QListWidget* list)
{
    QStringList result;
    for (int i = 0; i < list->count(); ++i)
        result << list->item(i)->text();
    return result;
}

const QString kEnvironPrompt = QStringLiteral("Save changes to this Environment?");

class EnvironmentEditorWidgetTest : public MainWindowFixture {
protected:
    void openActive(RepositoryContent content = RepositoryContent::Tutorial)
    {
        OpenWindow(content);
        window->SetDialogProvider(&dialogs);
        window->activateWindow();
        c().SSMainTab->setCurrentIndex(frmMainForm::EnvironmentsPage);
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, repository());
        return CountRecords(&rs);
    }

    qint32 keyOf(const QString& sql, const QString& column)
    {
        Recordset rs(sql, repository());
        return rs.Eof() ? 0 : rs.Int(column);
    }

    qint32 userKey(const QString& id)
    {
        return keyOf(QStringLiteral("SELECT * FROM tUser WHERE sUserID='") + id + u'\'', QStringLiteral("iUserKey"));
    }

    // The five rights of a registration, in the boxes' order.
    QString rights(qint32 environKey, qint32 user)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1 AND iUserKey=%2")
                         .arg(environKey)
                         .arg(user),
                     repository());
        if (rs.Eof())
            return QStringLiteral("none");
        QString flags;
        for (const char* column : {"bDorvane", "bOmrik", "bZulane", "bVantrel", "bKrestin"})
            flags += rs.Int(QString::fromLatin1(column)) == -1 ? u'1' : u'0';
        return flags;
    }

    QString boxes()
    {
        QString flags;
        for (QCheckBox* box : {c().ckDorvane, c().ckOmrik, c().ckZulane, c().ckVantrel, c().ckKrestin})
            flags += box->isChecked() ? u'1' : u'0';
        return flags;
    }

    // Every registration and detail row, to show that nothing was written.
    QStringList environmentRows()
    {
        return TableRows(repository(), {QStringLiteral("tEnvironment"), QStringLiteral("tEnvironmentDetail"),
                                        QStringLiteral("tEnvironmentUser"), QStringLiteral("tVersion")});
    }

    bool tabsEnabled() { return c().SSEnvironTab->isTabEnabled(1) && c().SSEnvironTab->isTabEnabled(2); }

    ScriptedDialogs dialogs;
};

TEST_P(EnvironmentEditorWidgetTest, AnEnvironmentIsBuiltFromNothingAndDeleted)
{
    openActive();
    // Nothing is shown yet: only New leads anywhere.
    for (QPushButton* b : {c().cmdEnvironSave, c().cmdEnvironSaveAs, c().cmdEnvironDelete, c().cmdEnvironBackup,
                           c().cmdEnvironRestore})
        EXPECT_FALSE(b->isEnabled()) << b->objectName().toStdString();
    EXPECT_FALSE(c().SSEnvironTab->isTabEnabled(1));

    c().cmdEnvironNew->click();
    retype(c().txtEnvironName, QStringLiteral("Web/Test?"));
    retype(c().txtEnvironDesc, QStringLiteral("Shop front"));
    EXPECT_TRUE(window->EnvironDirty);
    EXPECT_TRUE(c().cmdEnvironSave->isEnabled());
    EXPECT_FALSE(c().cmdEnvironSaveAs->isEnabled());

    c().cmdEnvironSave->click();
    ASSERT_TRUE(window->SaveOk) << messages.shown.join(u'\n').toStdString();
    const qint32 key = keyOf(QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='Web_Test_' AND "
                                            "sEnvironmentDesc='Shop front'"),
                             QStringLiteral("iEnvironmentKey"));
    ASSERT_NE(key, 0);
    EXPECT_EQ(window->CurrentEnvironKey(), key);
    EXPECT_EQ(ItemKey(c().lbEnvironList, c().lbEnvironList->currentRow()), key);
    EXPECT_EQ(c().SSEnvironTab->currentIndex(), 1);
    EXPECT_TRUE(tabsEnabled());
    EXPECT_FALSE(c().cmdEnvironSave->isEnabled());
    // Delete stays as it was before the save until the environment is opened.
    EXPECT_FALSE(c().cmdEnvironDelete->isEnabled());
    EXPECT_FALSE(window->EnvironDirty);

    // A version, with its test tool.
    choose(c().cbEnvironApp, QStringLiteral("Web Store"));
    choose(c().cbEnvironVer, QStringLiteral("3.0"));
    choose(c().cbEnvironTestTool, QStringLiteral("Web Driver"));
    EXPECT_TRUE(window->ConfigDirty);
    EXPECT_FALSE(c().cbEnvironEmulator->isEnabled());
    c().cmdAddAppVer->click();
    EXPECT_EQ(texts(c().lbEnvironAppVerList), QStringList{QStringLiteral("Web Store - 3.0")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 AND "
                                   "iEnvironTestToolKey=3 AND iEnviron3270Key=0")
                        .arg(key)),
              1);
    EXPECT_FALSE(window->ConfigDirty);

    // A user: registered without rights, then one box ticked writes one
    // right of that one registration.
    c().SSEnvironTab->setCurrentIndex(2);
    EXPECT_EQ(c().lbEnvironUserList->count(), 3);
    EXPECT_EQ(c().lbEnvironUsers->count(), 0);
    select(c().lbEnvironUserList, QStringLiteral("Li Chen"));
    c().cmdAddEnvironUser->click();
    EXPECT_EQ(texts(c().lbEnvironUsers), QStringList{QStringLiteral("Li Chen")});
    EXPECT_EQ(FindItemByText(c().lbEnvironUserList, QStringLiteral("Li Chen")), -1);
    const qint32 lchen = userKey(QStringLiteral("lchen"));
    EXPECT_EQ(rights(key, lchen), QStringLiteral("00000"));
    c().ckZulane->click();
    EXPECT_EQ(rights(key, lchen), QStringLiteral("00100"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(key)), 1);
    c().ckZulane->click();
    EXPECT_EQ(rights(key, lchen), QStringLiteral("00000"));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();

    // Opened again, Delete takes it with its version and user rows.
    c().SSEnvironTab->setCurrentIndex(0);
    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    select(c().lbEnvironList, QStringLiteral("Web_Test_"));
    ASSERT_TRUE(c().cmdEnvironDelete->isEnabled());
    c().cmdEnvironDelete->click();
    for (const QString& sql : {QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1"),
                               QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"),
                               QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1")})
        EXPECT_EQ(count(sql.arg(key)), 0) << sql.toStdString();
    EXPECT_EQ(FindListItem(key, c().lbEnvironList), -1);
    EXPECT_TRUE(c().txtEnvironName->text().isEmpty());
    EXPECT_EQ(c().lbEnvironAppVerList->count(), 0);
    EXPECT_FALSE(c().cmdEnvironDelete->isEnabled());
    EXPECT_FALSE(c().SSEnvironTab->isTabEnabled(1));
}

TEST_P(EnvironmentEditorWidgetTest, ShowingRightsWritesNothingAndOnlyAClickDoes)
{
    openActive();
    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    // Filling the fields is no edit.
    EXPECT_EQ(c().txtEnvironName->text(), QStringLiteral("TUTORIAL"));
    EXPECT_FALSE(window->EnvironDirty);
    EXPECT_FALSE(c().cmdEnvironSave->isEnabled());
    EXPECT_TRUE(tabsEnabled());

    c().SSEnvironTab->setCurrentIndex(2);
    const QStringList before = environmentRows();
    const qint32 key = window->CurrentEnvironKey();
    select(c().lbEnvironUsers, QStringLiteral("Jane Smith"));
    EXPECT_EQ(boxes(), QStringLiteral("11111"));
    select(c().lbEnvironUsers, QStringLiteral("Mark Brown"));
    EXPECT_EQ(boxes(), QStringLiteral("01010"));
    EXPECT_EQ(window->CurrentUserKey(), userKey(QStringLiteral("mbrown")));
    select(c().lbEnvironUsers, QStringLiteral("Li Chen"));
    EXPECT_EQ(boxes(), QStringLiteral("01001"));
    EXPECT_EQ(environmentRows(), before);

    // Removing clears the boxes without writing them to anyone, and leaves
    // nobody highlighted: a box ticked then writes nothing.
    c().cmdRemoveEnvironUser->click();
    EXPECT_EQ(rights(key, userKey(QStringLiteral("lchen"))), QStringLiteral("none"));
    EXPECT_EQ(boxes(), QStringLiteral("00000"));
    EXPECT_EQ(rights(key, userKey(QStringLiteral("jsmith"))), QStringLiteral("11111"));
    EXPECT_EQ(rights(key, userKey(QStringLiteral("mbrown"))), QStringLiteral("01010"));
    const QStringList afterRemove = environmentRows();
    c().ckKrestin->click();
    EXPECT_EQ(environmentRows(), afterRemove);
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();

    // Step windows run in it: it cannot be deleted.
    c().SSEnvironTab->setCurrentIndex(0);
    c().cmdEnvironDelete->click();
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("This environment is referenced in existing steps and cannot be deleted")});
    EXPECT_EQ(environmentRows(), afterRemove);
}

TEST_P(EnvironmentEditorWidgetTest, SaveAsAsksForEachVersionAndCancelRollsEverythingBack)
{
    PointSettingsAtRepository();
    openActive();
    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    retype(c().txtEnvironName, QStringLiteral("Release 2.0"));
    ASSERT_TRUE(c().cmdEnvironSaveAs->isEnabled());
    const QStringList before = environmentRows();

    dialogs.versionIdAnswers = {QStringLiteral("1.2"), std::nullopt};
    c().cmdEnvironSaveAs->click();
    EXPECT_EQ(dialogs.versionIdPrompts,
              (QStringList{QStringLiteral("Enter the new Version ID for Order Entry - 1.1:"),
                           QStringLiteral("Enter the new Version ID for Customer Inquiry - R5:")}));
    EXPECT_FALSE(window->SaveOk);
    EXPECT_EQ(environmentRows(), before);
    EXPECT_EQ(c().txtEnvironName->text(), QStringLiteral("Release 2.0"));
    EXPECT_TRUE(c().cmdEnvironSaveAs->isEnabled());

    // Again: an ID that a full version of the application has is refused
    // and the prompt stays; then the copy goes through.
    dialogs.versionIdPrompts.clear();
    dialogs.versionIdAnswers = {QStringLiteral("1.0"), QStringLiteral("1.2"), QStringLiteral("R6")};
    c().cmdEnvironSaveAs->click();
    ASSERT_TRUE(window->SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("1.0 already exists - please choose another ID")});
    EXPECT_EQ(dialogs.versionIdPrompts.size(), 2);
    const qint32 copy = keyOf(QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='Release 2_0'"),
                              QStringLiteral("iEnvironmentKey"));
    ASSERT_NE(copy, 0);
    // Each user is registered once.
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(copy)), 3);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(copy)), 2);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='R6'")), 1);
    EXPECT_EQ(window->findChild<frmVersionProgress*>()->windowTitle(), QStringLiteral("Environment Copy progress..."));
    // The editor stands on a new environment; the list shows the copy.
    EXPECT_TRUE(c().txtEnvironName->text().isEmpty());
    EXPECT_NE(FindListItem(copy, c().lbEnvironList), -1);
    EXPECT_FALSE(tabsEnabled());
}

TEST_P(EnvironmentEditorWidgetTest, YesOnTheSavePromptSavesDefinitionAndConfiguration)
{
    openActive();
    Recordset staging(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=0"), repository());
    staging.AddNew();
    staging.SetValue(QStringLiteral("sEnvironmentName"), QStringLiteral("Staging"));
    staging.SetValue(QStringLiteral("sEnvironmentDesc"), QStringLiteral(" "));
    staging.Update();
    window->RefreshEnvironList();

    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    const qint32 tutorial = window->CurrentEnvironKey();
    retype(c().txtEnvironDesc, QStringLiteral("Nightly runs"));
    c().SSEnvironTab->setCurrentIndex(1);
    choose(c().cbEnvironApp, QStringLiteral("Web Store"));
    choose(c().cbEnvironVer, QStringLiteral("3.0"));
    choose(c().cbEnvironTestTool, QStringLiteral("Web Driver"));
    ASSERT_TRUE(window->EnvironDirty && window->ConfigDirty);
    const QStringList before = environmentRows();

    // Cancel stays on the environment, with the edits.
    messages.Queue(Answer::Cancel);
    select(c().lbEnvironList, QStringLiteral("Staging"));
    EXPECT_EQ(messages.shown, QStringList{kEnvironPrompt});
    EXPECT_EQ(ItemKey(c().lbEnvironList, c().lbEnvironList->currentRow()), tutorial);
    EXPECT_EQ(c().txtEnvironDesc->text(), QStringLiteral("Nightly runs"));
    EXPECT_EQ(environmentRows(), before);

    // Yes: one question, both parts saved, then the other environment opens.
    messages.shown.clear();
    messages.Queue(Answer::Yes);
    select(c().lbEnvironList, QStringLiteral("Staging"));
    EXPECT_EQ(messages.shown, QStringList{kEnvironPrompt});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1 AND "
                                   "sEnvironmentDesc='Nightly runs'")
                        .arg(tutorial)),
              1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(tutorial)), 3);
    EXPECT_EQ(c().txtEnvironName->text(), QStringLiteral("Staging"));
    EXPECT_NE(window->CurrentEnvironKey(), tutorial);
    EXPECT_FALSE(window->EnvironDirty);
    EXPECT_FALSE(window->ConfigDirty);
}

TEST_P(EnvironmentEditorWidgetTest, CopyFillsTheChosenEmptyVersionFromTheListedOne)
{
    PointSettingsAtRepository();
    openActive();
    const qint32 oe = keyOf(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Order Entry'"), QStringLiteral("iAppKey"));
    Recordset version(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=0"), repository());
    version.AddNew();
    version.SetValue(QStringLiteral("iVersionAppKey"), oe);
    version.SetValue(QStringLiteral("sVersionID"), QStringLiteral("1.2"));
    version.SetValue(QStringLiteral("iMapType"), 1);
    version.Update();
    const qint32 empty = version.Int(QStringLiteral("iVersionKey"));

    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    c().SSEnvironTab->setCurrentIndex(1);
    select(c().lbEnvironAppVerList, QStringLiteral("Order Entry - 1.1"));
    EXPECT_EQ(c().cbEnvironApp->currentText(), QStringLiteral("Order Entry"));
    EXPECT_EQ(c().cbEnvironTestTool->currentText(), QStringLiteral("Desktop Recorder"));
    const QStringList details = texts(c().lbEnvironAppVerList);
    choose(c().cbEnvironVer, QStringLiteral("1.2"));

    c().cmdCopyAppVer->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_GT(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(empty)), 1);
    // Copy leaves the environment's versions as they were.
    EXPECT_EQ(texts(c().lbEnvironAppVerList), details);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironVerKey=%1").arg(empty)), 0);
    EXPECT_EQ(window->findChild<frmVersionProgress*>()->windowTitle(), QStringLiteral("Version update progress..."));
}

TEST_P(EnvironmentEditorWidgetTest, BackupAndRestoreRunFromThePage)
{
    PointSettingsAtRepository();
    openActive();
    // As the shared folder is installed; the environment's own folder is
    // made by the first backup.
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Environments/Backups")));
    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    const qint32 key = window->CurrentEnvironKey();
    const QString folder = sharedPath() + QStringLiteral("\\Environments\\Backups\\TUTORIAL");

    // No backup yet: the chooser is not shown.
    c().cmdEnvironRestore->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("This Environment has no backups to restore.")});
    EXPECT_TRUE(dialogs.restoreFolders.isEmpty());

    messages.shown.clear();
    messages.Queue(Answer::Yes);
    c().cmdEnvironBackup->click();
    const QString file = QDate::currentDate().toString(QStringLiteral("MM-dd-yyyy")) + QStringLiteral(".MDB");
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("Back up all application/versions of TUTORIAL to ") + file + u'?'});
    EXPECT_TRUE(QFile::exists(sharedPath() + QStringLiteral("/Environments/Backups/TUTORIAL/") + file));
    EXPECT_EQ(window->findChild<frmVersionProgress*>()->windowTitle(),
              QStringLiteral("Environment backup progress..."));

    // A user removed after the backup; a cancelled chooser brings nothing back.
    c().SSEnvironTab->setCurrentIndex(2);
    select(c().lbEnvironUsers, QStringLiteral("Li Chen"));
    c().cmdRemoveEnvironUser->click();
    const QString registrations = QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(key);
    ASSERT_EQ(count(registrations), 2);
    dialogs.restoreAnswers = {std::nullopt};
    c().cmdEnvironRestore->click();
    EXPECT_EQ(dialogs.restoreFolders, QStringList{folder});
    EXPECT_EQ(count(registrations), 2);

    dialogs.restoreAnswers = {folder + u'\\' + file};
    c().cmdEnvironRestore->click();
    EXPECT_EQ(count(registrations), 3);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(key)), 2);
    // The page starts over on a new environment, the list still holding it.
    EXPECT_TRUE(c().txtEnvironName->text().isEmpty());
    EXPECT_NE(FindListItem(key, c().lbEnvironList), -1);
    EXPECT_EQ(messages.shown.size(), 1) << messages.shown.join(u'\n').toStdString();
}

// Open TUTORIAL, type another environment's name, Save (refused), then
// Restore: the chooser shows TUTORIAL's own backups, and the other
// environment's file is refused with nothing changed.
TEST_P(EnvironmentEditorWidgetTest, ARefusedSaveLeavesBackupAndRestoreOnTheStoredEnvironment)
{
    PointSettingsAtRepository();
    openActive();
    c().cmdEnvironNew->click();
    c().txtEnvironName->setText(QStringLiteral("OTHER"));
    c().cmdEnvironSave->click();
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Environments/Backups")));
    const QString file = QDate::currentDate().toString(QStringLiteral("MM-dd-yyyy")) + QStringLiteral(".MDB");
    // A new environment's Backup is enabled once it is opened from the list.
    select(c().lbEnvironList, QStringLiteral("TUTORIAL"));
    for (const QString& name : {QStringLiteral("OTHER"), QStringLiteral("TUTORIAL")}) {
        select(c().lbEnvironList, name);
        messages.Queue(Answer::Yes);
        c().cmdEnvironBackup->click();
    }
    messages.shown.clear();

    c().txtEnvironName->setText(QStringLiteral("OTHER"));
    c().cmdEnvironSave->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("OTHER already exists - please choose another ID")});
    messages.shown.clear();

    const QStringList before = environmentRows();
    const QString backups = sharedPath() + QStringLiteral("\\Environments\\Backups\\");
    dialogs.restoreAnswers = {backups + QStringLiteral("OTHER\\") + file};
    c().cmdEnvironRestore->click();
    EXPECT_EQ(dialogs.restoreFolders, QStringList{backups + QStringLiteral("TUTORIAL")});
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.first().startsWith(QStringLiteral("The backup ") + file +
                                                  QStringLiteral(" belongs to environment \"OTHER\"")))
        << messages.shown.first().toStdString();
    EXPECT_EQ(environmentRows(), before);
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentEditorWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
