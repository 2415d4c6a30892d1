// The application and version editors on the Applications page, driven as
// an administrator does.

#include "mainwindow/MainWindowFixture.h"
#include "lists/NameDescGrids.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QComboBox>
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

INSTANTIATE_TEST_SUITE_P(Backends, ApplicationEditorWidgetTest, ::testing::ValuesIn(TestBackends()),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
