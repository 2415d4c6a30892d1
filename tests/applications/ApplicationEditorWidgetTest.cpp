// The application and version editors on the Applications page, driven as
// an administrator does.

#include "mainwindow/MainWindowFixture.h"
#include "lists/NameDescGrids.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTableView>
#include <QTest>

namespace dorvane::test {
namespace {

void retype(QLineEdit* box, const QString& text)
{
    box->selectAll();
    if (text.isEmpty())
        QTest::keyClick(box, Qt::Key_Backspace);
    else
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

const QString kWindows = QStringLiteral("Windows");

class ApplicationEditorWidgetTest : public MainWindowFixture {
protected:
    void openActive(RepositoryContent content)
    {
        OpenWindow(content);
        window->activateWindow();
        c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, repository());
        return CountRecords(&rs);
    }

    QWidget* focused() { return window->focusWidget(); }
    bool folderExists(const QString& relative) const { return QFileInfo(sharedPath() + u'/' + relative).isDir(); }

    void selectApp(const QString& name)
    {
        const int row = FindItemByText(c().lbAppList, name);
        ASSERT_GE(row, 0) << name.toStdString();
        c().lbAppList->setCurrentRow(row);
    }

    // New on the versions page, the ID typed, the first map type chosen.
    void typeNewVersion(const QString& id)
    {
        c().SSAppTab->setCurrentIndex(1);
        c().cmdVersionNew->click();
        retype(c().txtVersionID, id);
        c().cbVersionMapType->setCurrentIndex(0);
        emit c().cbVersionMapType->activated(0);
    }

    // New, the fields typed, the platform chosen, Save.
    void saveNewApp(const QString& name, const QString& id, const QString& platform)
    {
        c().SSAppTab->setCurrentIndex(0);
        c().cmdAppNew->click();
        retype(c().txtAppName, name);
        retype(c().txtAppID, id);
        choose(c().cbPlatform, platform);
        c().cmdAppSave->click();
    }
};

TEST_P(ApplicationEditorWidgetTest, OpeningFillsTheFieldsAndNewEmptiesThem)
{
    openActive(RepositoryContent::Tutorial);
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(1));
    selectApp(QStringLiteral("Customer Inquiry"));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Customer Inquiry"));
    EXPECT_EQ(c().txtAppID->text(), QStringLiteral("CI"));
    EXPECT_EQ(ComboKey(c().cbPlatform, c().cbPlatform->currentIndex()), kPlatform3270);
    EXPECT_TRUE(c().cbEmulator->isEnabled());
    EXPECT_EQ(ComboKey(c().cbEmulator, c().cbEmulator->currentIndex()), 1);
    // Its versions, map types and keywords are loaded; the sub-tabs open.
    EXPECT_TRUE(c().SSAppTab->isTabEnabled(1));
    EXPECT_TRUE(c().SSAppTab->isTabEnabled(2));
    ASSERT_EQ(c().lbVersionList->count(), 1);
    EXPECT_EQ(c().lbVersionList->item(0)->text(), QStringLiteral("R5"));
    ASSERT_EQ(c().cbVersionMapType->count(), 1);
    EXPECT_EQ(c().cbVersionMapType->itemText(0), QStringLiteral("3270 screen map"));
    EXPECT_EQ(window->keywordsGrid().List().GetValue(0, 0), QStringLiteral("Host"));
    EXPECT_TRUE(c().cmdAppDelete->isEnabled());
    EXPECT_FALSE(c().cmdAppSave->isEnabled());
    EXPECT_FALSE(window->AppDirty);
    EXPECT_FALSE(window->AppIsNew);
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtAppName));

    // A non-host application: no emulator.
    selectApp(QStringLiteral("Order Entry"));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_FALSE(c().cbEmulator->isEnabled());
    EXPECT_EQ(c().cbEmulator->currentIndex(), -1);
    EXPECT_FALSE(window->AppIsHost);
    EXPECT_EQ(c().lbVersionList->count(), 2);

    // New: empty fields, no versions or keywords until the first save.
    c().SSAppTab->setCurrentIndex(2);
    c().cmdAppNew->click();
    EXPECT_EQ(c().SSAppTab->currentIndex(), 0);
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(1));
    EXPECT_FALSE(c().SSAppTab->isTabEnabled(2));
    EXPECT_TRUE(c().txtAppName->text().isEmpty());
    EXPECT_EQ(c().cbPlatform->currentIndex(), -1);
    EXPECT_EQ(c().lbAppList->currentRow(), -1);
    EXPECT_FALSE(c().cmdAppDelete->isEnabled());
    EXPECT_FALSE(c().cmdAppSave->isEnabled());
    EXPECT_EQ(window->CurrentAppKey, 0);
    EXPECT_TRUE(window->AppIsNew);
    EXPECT_FALSE(window->AppDirty);
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
}

TEST_P(ApplicationEditorWidgetTest, ANewApplicationIsStoredUnderItsNormalisedIdAndShowsItsVersions)
{
    openActive(RepositoryContent::ReferenceData);
    saveNewApp(QStringLiteral("Quality Audit"), QStringLiteral("Q/A 1.0"), kWindows);
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(window->SaveOk);

    Recordset row(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Quality Audit'"), repository());
    ASSERT_FALSE(row.Eof());
    EXPECT_EQ(row.Text(QStringLiteral("sAppID")), QStringLiteral("Q_A_1_0"));
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/Q_A_1_0")));

    // The editor stays on the stored application and goes on to its
    // versions.
    EXPECT_EQ(window->CurrentAppKey, row.Int(QStringLiteral("iAppKey")));
    EXPECT_FALSE(window->AppIsNew);
    EXPECT_FALSE(window->AppDirty);
    EXPECT_EQ(c().lbAppList->currentItem()->text(), QStringLiteral("Quality Audit"));
    EXPECT_FALSE(c().cmdAppSave->isEnabled());
    EXPECT_TRUE(c().SSAppTab->isTabEnabled(1));
    EXPECT_TRUE(c().SSAppTab->isTabEnabled(2));
    EXPECT_EQ(c().SSAppTab->currentIndex(), 1);
    EXPECT_EQ(focused(), static_cast<QWidget*>(c().txtVersionID));
    EXPECT_EQ(c().cbVersionMapType->count(), 1);
    EXPECT_EQ(c().lbVersionList->count(), 0);
}

TEST_P(ApplicationEditorWidgetTest, SelectingAnotherApplicationAsksAboutTheChanges)
{
    openActive(RepositoryContent::Tutorial);
    selectApp(QStringLiteral("Order Entry"));
    const int orderEntry = c().lbAppList->currentRow();
    const qint32 orderEntryKey = window->CurrentAppKey;
    retype(c().txtAppDesc, QStringLiteral("Order entry, reworked"));
    EXPECT_TRUE(window->AppDirty);
    EXPECT_TRUE(c().cmdAppSave->isEnabled());

    messages.Queue(Answer::Cancel);
    selectApp(QStringLiteral("Web Store"));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to this Application?")});
    EXPECT_EQ(c().lbAppList->currentRow(), orderEntry);
    EXPECT_EQ(window->CurrentAppKey, orderEntryKey);
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Order Entry"));
    EXPECT_EQ(c().txtAppDesc->text(), QStringLiteral("Order entry, reworked"));
    EXPECT_TRUE(window->AppDirty);
    EXPECT_FALSE(window->EditLoading);

    // No: the other application is opened, nothing was written.
    messages.shown.clear();
    messages.Queue(Answer::No);
    selectApp(QStringLiteral("Web Store"));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to this Application?")});
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Web Store"));
    EXPECT_FALSE(window->AppDirty);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE sAppDesc='Order entry, reworked'")), 0);

    // Yes: saved, then the application clicked is shown.
    retype(c().txtAppDesc, QStringLiteral("Shop front, reworked"));
    messages.shown.clear();
    messages.Queue(Answer::Yes);
    selectApp(QStringLiteral("Customer Inquiry"));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to this Application?")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Web Store' AND "
                                   "sAppDesc='Shop front, reworked'")),
              1);
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Customer Inquiry"));
    EXPECT_EQ(c().lbAppList->currentItem()->text(), QStringLiteral("Customer Inquiry"));
    EXPECT_FALSE(window->AppDirty);
    EXPECT_FALSE(window->EditLoading);
}

TEST_P(ApplicationEditorWidgetTest, SavingTheApplicationKeepsUnsavedKeywordRows)
{
    openActive(RepositoryContent::Tutorial);
    selectApp(QStringLiteral("Web Store"));
    c().SSAppTab->setCurrentIndex(2);
    QAbstractItemModel* keywords = c().TDBGridKeywords->model();
    ASSERT_TRUE(keywords->setData(keywords->index(keywords->rowCount() - 1, 0), QStringLiteral("Coupons")));

    c().SSAppTab->setCurrentIndex(0);
    retype(c().txtAppDesc, QStringLiteral("Shop front, reworked"));
    c().cmdAppSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    // The keyword typed before is still there to be saved.
    EXPECT_EQ(window->keywordsGrid().List().Count(), 2);
    EXPECT_TRUE(window->KeywordDirty());
    c().cmdKeywordSave->click();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword WHERE sKeywordName='Coupons' AND iKeywordAppKey=") +
                    QString::number(window->CurrentAppKey)),
              1);
}

TEST_P(ApplicationEditorWidgetTest, SelectingAnotherVersionAsksAboutTheChanges)
{
    openActive(RepositoryContent::Tutorial);
    selectApp(QStringLiteral("Order Entry"));
    c().SSAppTab->setCurrentIndex(1);
    c().lbVersionList->setCurrentRow(0);
    ASSERT_EQ(c().txtVersionID->text(), QStringLiteral("1.0"));
    retype(c().txtVersionDesc, QStringLiteral("First release, revised"));
    EXPECT_TRUE(window->VersionDirty);

    messages.Queue(Answer::Cancel);
    c().lbVersionList->setCurrentRow(1);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to this Version?")});
    EXPECT_EQ(c().lbVersionList->currentRow(), 0);
    EXPECT_EQ(c().txtVersionID->text(), QStringLiteral("1.0"));
    EXPECT_EQ(c().txtVersionDesc->text(), QStringLiteral("First release, revised"));
    EXPECT_TRUE(window->VersionDirty);
    EXPECT_FALSE(window->EditLoading);

    messages.shown.clear();
    messages.Queue(Answer::Yes);
    c().lbVersionList->setCurrentRow(1);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to this Version?")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='1.0' AND "
                                   "sVersionDesc='First release, revised'")),
              1);
    EXPECT_EQ(c().txtVersionID->text(), QStringLiteral("1.1"));
    EXPECT_FALSE(window->VersionDirty);
    EXPECT_FALSE(window->EditLoading);
}

// Values stored longer than the boxes let a user type (the suite's other
// modules write such rows) are shown whole and saved as stored when only
// another field was edited: the application keeps its ID and folder, the
// version its ID. The limits still hold for typing.
TEST_P(ApplicationEditorWidgetTest, StoredValuesAreShownWholeAndSavedAsStored)
{
    openActive(RepositoryContent::Tutorial);
    const QString name = QStringLiteral("Order Entry for the regional sales offices");
    const QString id = QStringLiteral("ORD-ENTRY-2026");
    const QString version = QStringLiteral("1.0-build-20260114");
    // The environment notes as a Windows text box writes them.
    const QString environ = QStringLiteral("Needs the order database\r\non the test server.");
    DB_ASSERT(repository().Execute(QStringLiteral("UPDATE tApp SET sAppName='%1', sAppID='%2', mAppEnviron='%3' "
                                                  "WHERE sAppID='OE'")
                                       .arg(name, id, environ)));
    DB_ASSERT(repository().Execute(QStringLiteral("UPDATE tVersion SET sVersionID='%1' WHERE sVersionID='1.0'").arg(version)));
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps/") + id + u'/' + version));
    window->RefreshAppList();

    selectApp(name);
    EXPECT_EQ(c().txtAppName->text(), name);
    EXPECT_EQ(c().txtAppID->text(), id);
    retype(c().txtAppDesc, QStringLiteral("Reworked"));
    c().cmdAppSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(Rows(repository(), QStringLiteral("SELECT sAppName, sAppID, sAppDesc, mAppEnviron FROM tApp WHERE "
                                                "sAppDesc='Reworked'")),
              QStringList{name + u'|' + id + QStringLiteral("|Reworked|") + environ});
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/") + id + u'/' + version));
    EXPECT_FALSE(folderExists(QStringLiteral("Apps/ORD_ENTRY_2026")));

    c().lbVersionList->setCurrentRow(FindItemByText(c().lbVersionList, version));
    EXPECT_EQ(c().txtVersionID->text(), version);
    retype(c().txtVersionDesc, QStringLiteral("First release, revised"));
    c().cmdVersionSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='%1' AND sVersionDesc='First release, revised'")
                        .arg(version)),
              1);

    // Typing cannot lengthen the stored ID, deleting shortens it, and once
    // it is short the limit of 12 is back.
    c().SSAppTab->setCurrentIndex(0);
    c().txtAppID->setFocus();
    QTest::keyClick(c().txtAppID, Qt::Key_End);
    QTest::keyClicks(c().txtAppID, QStringLiteral("X"));
    EXPECT_EQ(c().txtAppID->text(), id);
    QTest::keyClick(c().txtAppID, Qt::Key_Backspace);
    QTest::keyClicks(c().txtAppID, QStringLiteral("X"));
    EXPECT_EQ(c().txtAppID->text(), id.chopped(1));
    retype(c().txtAppID, QStringLiteral("ABCDEFGHIJKLMNOP"));
    EXPECT_EQ(c().txtAppID->text(), QStringLiteral("ABCDEFGHIJKL"));
}

// When a new record's folder cannot be made after its row was written,
// the record is a stored one: Save again updates it (and makes the folder)
// instead of adding a second application, or a second version with a
// second system screen.
TEST_P(ApplicationEditorWidgetTest, ASaveRetriedAfterAFolderFailureAddsNoSecondRow)
{
    openActive(RepositoryContent::Tutorial);
    const auto block = [this](const QString& relative) {
        QFile file(sharedPath() + u'/' + relative);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    };
    block(QStringLiteral("Apps/AUDIT"));
    saveNewApp(QStringLiteral("Audit"), QStringLiteral("AUDIT"), kWindows);
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error during app save: "))) << messages.shown[0].toStdString();
    EXPECT_FALSE(window->SaveOk);
    EXPECT_FALSE(window->AppIsNew);
    EXPECT_EQ(c().lbAppList->currentItem()->text(), QStringLiteral("Audit"));

    ASSERT_TRUE(QFile::remove(sharedPath() + QStringLiteral("/Apps/AUDIT")));
    messages.shown.clear();
    c().cmdAppSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(window->SaveOk);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Audit'")), 1);
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/AUDIT")));

    // A version of the web application (seeded once per version).
    selectApp(QStringLiteral("Web Store"));
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps/WS")));
    block(QStringLiteral("Apps/WS/4.0"));
    typeNewVersion(QStringLiteral("4.0"));
    messages.shown.clear();
    c().cmdVersionSave->click();
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error during Version save: ")))
        << messages.shown[0].toStdString();
    EXPECT_FALSE(window->VersionIsNew);

    ASSERT_TRUE(QFile::remove(sharedPath() + QStringLiteral("/Apps/WS/4.0")));
    messages.shown.clear();
    c().cmdVersionSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(window->SaveOk);
    Recordset saved(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='4.0'"), repository());
    EXPECT_EQ(CountRecords(&saved), 1);
    saved.MoveFirst();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE sWindowPhysicalName='[System Screen]' AND iWindowVerKey=") +
                    QString::number(saved.Int(QStringLiteral("iVersionKey")))),
              1);
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/WS/4.0/Primary Map Source")));
}

// With the environments page showing an application, a saved new or
// renamed version of it appears in that page's version drop-down.
TEST_P(ApplicationEditorWidgetTest, TheEnvironmentsPageFollowsAVersionSave)
{
    openActive(RepositoryContent::Tutorial);
    choose(c().cbEnvironApp, QStringLiteral("Web Store"));
    const auto versions = [this] {
        QStringList texts;
        for (int i = 0; i < c().cbEnvironVer->count(); ++i)
            texts << c().cbEnvironVer->itemText(i);
        return texts;
    };
    ASSERT_EQ(versions(), QStringList{QStringLiteral("3.0")});

    selectApp(QStringLiteral("Web Store"));
    typeNewVersion(QStringLiteral("3.1"));
    c().cmdVersionSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(versions(), (QStringList{QStringLiteral("3.0"), QStringLiteral("3.1")}));

    c().lbVersionList->setCurrentRow(FindItemByText(c().lbVersionList, QStringLiteral("3.1")));
    retype(c().txtVersionID, QStringLiteral("3.2"));
    c().cmdVersionSave->click();
    EXPECT_EQ(versions(), (QStringList{QStringLiteral("3.0"), QStringLiteral("3.2")}));
}

// A refused Save with a changed ID leaves the folder name at the stored
// ID: the next version's folders go under it, not under the refused ID.
TEST_P(ApplicationEditorWidgetTest, ARefusedSaveKeepsTheFolderName)
{
    openActive(RepositoryContent::Tutorial);
    selectApp(QStringLiteral("Order Entry"));
    retype(c().txtAppID, QStringLiteral("WS"));
    c().cmdAppSave->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("WS already exists - please choose another ID")});
    EXPECT_EQ(window->AppFolderName, QStringLiteral("OE"));

    typeNewVersion(QStringLiteral("2.0"));
    messages.shown.clear();
    c().cmdVersionSave->click();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/OE/2.0/Primary Map Source")));
    EXPECT_FALSE(folderExists(QStringLiteral("Apps/WS")));
}

// Null optional texts, as the suite's other modules write them, open as
// empty boxes.
TEST_P(ApplicationEditorWidgetTest, NullOptionalTextsOpenAsEmpty)
{
    openActive(RepositoryContent::Tutorial);
    DB_ASSERT(repository().Execute(QStringLiteral("UPDATE tApp SET sAppDesc=NULL, mAppEnviron=NULL WHERE sAppID='OE'")));
    DB_ASSERT(repository().Execute(QStringLiteral("UPDATE tVersion SET sVersionDesc=NULL WHERE sVersionID='1.0'")));
    selectApp(QStringLiteral("Order Entry"));
    c().lbVersionList->setCurrentRow(FindItemByText(c().lbVersionList, QStringLiteral("1.0")));
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(c().txtAppName->text(), QStringLiteral("Order Entry"));
    EXPECT_EQ(c().txtAppDesc->text(), QString());
    EXPECT_EQ(c().txtAppEnviron->toPlainText(), QString());
    EXPECT_EQ(c().txtVersionID->text(), QStringLiteral("1.0"));
    EXPECT_EQ(c().txtVersionDesc->text(), QString());
}

INSTANTIATE_TEST_SUITE_P(Backends, ApplicationEditorWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
