// The Export and Import buttons of the Keywords tab and the frmFileList
// chooser.

#include "lists/KeywordFiles.h"
#include "lists/frmFileList.h"
#include "mainwindow/MainWindowFixture.h"
#include "mainwindow/ScriptedDialogs.h"
#include "repository/Globals.h"
#include "repository/Recordset.h"

#include <QDir>
#include <QFile>
#include <QFileSystemModel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTableView>
#include <QTest>
#include <QTreeView>

namespace dorvane::test {
namespace {

class KeywordFilesWidgetTest : public MainWindowFixture {
protected:
    void SetUp() override
    {
        MainWindowFixture::SetUp();
        OpenWindow(RepositoryContent::Tutorial);
        window->SetDialogProvider(&dialogs);
        window->activateWindow();
        c().SSMainTab->setCurrentIndex(frmMainForm::ApplicationsPage);
    }

    void openKeywords(const QString& app)
    {
        const int row = FindItemByText(c().lbAppList, app);
        ASSERT_GE(row, 0);
        c().lbAppList->setCurrentRow(row);
        ASSERT_EQ(c().txtAppName->text(), app);
        c().SSAppTab->setCurrentIndex(2);
    }

    QStringList gridRows()
    {
        QStringList rows;
        QAbstractItemModel* model = c().TDBGridKeywords->model();
        for (int row = 0; row < model->rowCount(); ++row) {
            const QString name = model->index(row, 0).data().toString();
            if (!name.isEmpty())
                rows << name + u'|' + model->index(row, 1).data().toString();
        }
        return rows;
    }

    QString path(const QString& name) const { return m_db->tempPath() + u'/' + name; }

    QByteArray bytes(const QString& file)
    {
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::ReadOnly));
        return f.readAll();
    }

    void writeBytes(const QString& file, const QByteArray& content)
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(content);
    }

    ScriptedDialogs dialogs;
};

TEST_P(KeywordFilesWidgetTest, ExportWritesTheApplicationsKeywordsAndSaysSo)
{
    openKeywords(QStringLiteral("Order Entry"));
    const QString file = path(QStringLiteral("oe.txt"));
    dialogs.fileAnswers.push_back(file);

    c().cmdExportKeywords->click();
    EXPECT_EQ(dialogs.fileListCaptions, QStringList{QStringLiteral("Export Keywords to Tab-Delimited Text File")});
    ASSERT_EQ(dialogs.fileListPresets.size(), 1u);
    EXPECT_EQ(dialogs.fileListPresets[0], FileNamePreset::TextFileInCurrentFolder);
    EXPECT_EQ(bytes(file), QByteArray("Orders\tTouches order data\r\nRegression\tPart of the full regression\r\n"
                                      "Smoke\tQuick check after each build\r\n"));
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("The Keywords have been exported to tab delimited text format in the file you selected")});
}

TEST_P(KeywordFilesWidgetTest, CancelledChoosersDoNothing)
{
    openKeywords(QStringLiteral("Order Entry"));
    const QStringList before = gridRows();
    dialogs.fileAnswers.push_back(std::nullopt);
    dialogs.fileAnswers.push_back(std::nullopt);
    c().cmdExportKeywords->click();
    c().cmdImportKeywords->click();
    EXPECT_EQ(dialogs.fileListCaptions.size(), 2);
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_EQ(gridRows(), before);
}

TEST_P(KeywordFilesWidgetTest, ImportAddsTheRowsAndReloadsTheGrid)
{
    openKeywords(QStringLiteral("Web Store"));
    ASSERT_EQ(gridRows(), QStringList{QStringLiteral("Checkout|Payment pages")});
    const QString file = path(QStringLiteral("in.txt"));
    writeBytes(file, "Search\tFinding products\r\nAccount\t\r\n");
    dialogs.fileAnswers.push_back(file);

    c().cmdImportKeywords->click();
    EXPECT_EQ(dialogs.fileListCaptions, QStringList{QStringLiteral("Import Keywords From Tab-Delimited Text File")});
    EXPECT_EQ(dialogs.fileListPresets[0], FileNamePreset::None);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("The Keywords have been imported - added: 2  skipped: 0")});
    // Reloaded in name order, with their keys.
    EXPECT_EQ(gridRows(), (QStringList{QStringLiteral("Account| "), QStringLiteral("Checkout|Payment pages"),
                                       QStringLiteral("Search|Finding products")}));
    EXPECT_FALSE(window->KeywordDirty());
    EXPECT_FALSE(c().cmdKeywordSave->isEnabled());
    Recordset rs(QStringLiteral("SELECT * FROM tKeyword WHERE sKeywordName='Search' AND iKeywordAppKey=%1").arg(window->CurrentAppKey),
                 repository());
    EXPECT_EQ(CountRecords(&rs), 1);
}

// Unsaved grid edits meet the grid's save prompt before an import reloads
// the grid: Cancel stops the import, Yes saves them first; the import then
// says what it added and skipped, and a second import adds nothing.
TEST_P(KeywordFilesWidgetTest, TheSavePromptComesBeforeAnImportWhichCountsWhatItDid)
{
    openKeywords(QStringLiteral("Web Store"));
    const QString file = path(QStringLiteral("in.txt"));
    writeBytes(file, "Checkout\tFrom the file\r\nSearch\tFinding products\r\n");
    QAbstractItemModel* grid = c().TDBGridKeywords->model();
    ASSERT_TRUE(grid->setData(grid->index(grid->rowCount() - 1, 0), QStringLiteral("Coupons")));

    messages.Queue(Answer::Cancel);
    c().cmdImportKeywords->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Save changes to Keywords?")});
    EXPECT_TRUE(dialogs.fileListCaptions.isEmpty());
    EXPECT_TRUE(window->KeywordDirty());

    messages.shown.clear();
    messages.Queue(Answer::Yes);
    dialogs.fileAnswers.push_back(file);
    c().cmdImportKeywords->click();
    EXPECT_EQ(messages.shown, (QStringList{QStringLiteral("Save changes to Keywords?"),
                                           QStringLiteral("The Keywords have been imported - added: 1  skipped: 1")}));
    EXPECT_EQ(gridRows(), (QStringList{QStringLiteral("Checkout|Payment pages"), QStringLiteral("Coupons| "),
                                       QStringLiteral("Search|Finding products")}));

    messages.shown.clear();
    dialogs.fileAnswers.push_back(file);
    c().cmdImportKeywords->click();
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("The Keywords have been imported - added: 0  skipped: 2")});
    EXPECT_EQ(gridRows().size(), 3);
}

INSTANTIATE_TEST_SUITE_P(Backends, KeywordFilesWidgetTest, ::testing::ValuesIn(TestBackends()));

// ---- the chooser itself ----

class frmFileListTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        QFile file(dir.path() + QStringLiteral("/keywords.txt"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }

    QTemporaryDir dir;
    ScriptedMessages messages;
};

TEST_F(frmFileListTest, ThePresetIsTheCurrentFolderAndTheExtension)
{
    frmFileList dialog(messages);
    EXPECT_EQ(dialog.CurrentFolder(), QDir::currentPath());
    dialog.SetFolder(dir.path());
    dialog.PresetTextFileName();
    EXPECT_EQ(dialog.txtFileName->text(), dir.path() + QStringLiteral("/.txt"));
    // The user types the name in front of the extension.
    dialog.txtFileName->setCursorPosition(dialog.txtFileName->text().size() - 4);
    QTest::keyClicks(dialog.txtFileName, QStringLiteral("export"));
    dialog.cmdOK->click();
    EXPECT_FALSE(dialog.Cancelled());
    EXPECT_EQ(dialog.FileName(), dir.path() + QStringLiteral("/export.txt"));
}

TEST_F(frmFileListTest, ClickingAFileTakesItsName)
{
    frmFileList dialog(messages);
    dialog.SetFolder(dir.path());
    dialog.show();
    QAbstractItemModel* files = dialog.flbFileList->model();
    QTRY_COMPARE(files->rowCount(dialog.flbFileList->rootIndex()), 1);
    const QModelIndex first = files->index(0, 0, dialog.flbFileList->rootIndex());
    dialog.flbFileList_Click(first);
    EXPECT_EQ(dialog.txtFileName->text(), dir.path() + QStringLiteral("/keywords.txt"));
}

TEST_F(frmFileListTest, CancelHandsNothingBack)
{
    frmFileList dialog(messages);
    dialog.show();
    dialog.txtFileName->setText(QStringLiteral("/tmp/x.txt"));
    dialog.cmdCancel->click();
    EXPECT_TRUE(dialog.Cancelled());
    EXPECT_EQ(dialog.FileName(), QString());
    EXPECT_FALSE(dialog.isVisible());
}

} // namespace
} // namespace dorvane::test
