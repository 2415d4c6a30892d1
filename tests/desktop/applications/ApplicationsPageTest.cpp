// The Applications page, walked as an administrator does: the application
// and version editors, their Delete buttons and the Attributes dialog.

#include "desktop/applications/frmAttributes.h"
#include "core/lists/NameDescGrids.h"
#include "desktop/mainwindow/MainWindowFixture.h"

#include <QFileInfo>
#include <QPlainTextEdit>
#include <QPushButton>

namespace dorvane::test {
namespace {

const QString kAppPrompt = u"Save changes to this Application?"_s;

class ApplicationsPageTest : public MainWindowFixture {
protected:
    void SetUp() override { MainWindowFixture::SetUp(); OpenTutorial(frmMainForm::ApplicationsPage); }
    bool folderExists(const QString& relative) const { return QFileInfo(sharedPath() + u'/' + relative).isDir(); }
    void selectVersion(const QString& app, const QString& id)
    {
        Select(applications().lbAppList, app);
        applications().SSAppTab->setCurrentIndex(1);
        Select(applications().lbVersionList, id);
        ASSERT_EQ(applications().txtVersionID->text(), id);
    }
    void saveNewApp(const QString& name, const QString& id)
    {
        applications().SSAppTab->setCurrentIndex(0);
        applications().cmdAppNew->click();
        Retype(applications().txtAppName, name);
        Retype(applications().txtAppID, id);
        Choose(applications().cbPlatform, u"Windows"_s);
        applications().cmdAppSave->click();
    }
    // The one message shown since the last call starts with `prefix`.
    bool shownError(const QString& prefix) { return messages.shown.size() == 1 && messages.shown.takeFirst().startsWith(prefix); }
};

TEST_P(ApplicationsPageTest, OpeningSwitchingSavingAndDeletingApplications)
{
    Select(applications().lbAppList, u"Customer Inquiry"_s);
    EXPECT_EQ(std::tuple(applications().txtAppName->text(), applications().txtAppID->text(), ComboKey(applications().cbPlatform, applications().cbPlatform->currentIndex()),
                         ComboKey(applications().cbEmulator, applications().cbEmulator->currentIndex())), std::tuple(u"Customer Inquiry"_s, u"CI"_s, kPlatform3270, 1));
    // Its versions, map types and keywords are loaded.
    EXPECT_EQ(Items(applications().lbVersionList) + Items(applications().cbVersionMapType) + QStringList{applications().keywordsGrid().List().GetValue(0, 0)},
              (QStringList{u"R5"_s, u"3270 screen map"_s, u"Host"_s}));

    // An edit asks before another application is shown: Cancel stays, No
    // drops the edit.
    Select(applications().lbAppList, u"Order Entry"_s);
    Retype(applications().txtAppDesc, u"Order entry, reworked"_s);
    messages.Queue(Answer::Cancel);
    Select(applications().lbAppList, u"Web Store"_s);
    EXPECT_EQ(std::pair(applications().lbAppList->currentItem()->text(), applications().txtAppDesc->text()), std::pair(u"Order Entry"_s, u"Order entry, reworked"_s));
    messages.Queue(Answer::No);
    Select(applications().lbAppList, u"Web Store"_s);
    EXPECT_EQ(std::pair(applications().txtAppName->text(), count(u"SELECT * FROM tApp WHERE sAppDesc='Order entry, reworked'"_s)), std::pair(u"Web Store"_s, qsizetype(0)));

    // Saving the application keeps a keyword typed but not yet saved.
    ASSERT_TRUE(TypeCell(applications().TDBGridKeywords, applications().TDBGridKeywords->model()->rowCount() - 1, 0, u"Coupons"_s));
    Retype(applications().txtAppDesc, u"Shop front"_s);
    applications().cmdAppSave->click();
    EXPECT_TRUE(applications().KeywordDirty());
    applications().cmdKeywordSave->click();
    EXPECT_EQ(count(u"SELECT * FROM tKeyword WHERE sKeywordName='Coupons' AND iKeywordAppKey=%1"_s.arg(applications().CurrentAppKey())), 1);
    // Yes saves, then shows the application clicked.
    Retype(applications().txtAppDesc, u"Shop front, reworked"_s);
    messages.Queue(Answer::Yes);
    Select(applications().lbAppList, u"Customer Inquiry"_s);
    EXPECT_EQ(std::tuple(messages.shown, count(u"SELECT * FROM tApp WHERE sAppName='Web Store' AND sAppDesc='Shop front, reworked'"_s), applications().txtAppName->text()),
              std::tuple(QStringList(3, kAppPrompt), qsizetype(1), u"Customer Inquiry"_s));

    // A new application, once saved, is listed and shown.
    messages.shown.clear();
    saveNewApp(u"Quality Audit"_s, u"Q/A 1.0"_s);
    EXPECT_TRUE(messages.shown.isEmpty() && applications().SaveOk() && applications().lbAppList->currentItem()->text() == u"Quality Audit"_s) << shown();

    // A record whose folder cannot be made after its row was written is a
    // stored one: Save again updates it (and makes the folder) instead of
    // adding a second row, or a second system screen. A refused ID leaves
    // the folder name as stored; the Environments page follows the version
    // saves.
    const auto block = [this](const QString& relative) { ASSERT_TRUE(QFile(sharedPath() + u'/' + relative).open(QIODevice::WriteOnly)); };
    block(u"Apps/AUDIT"_s);
    saveNewApp(u"Audit"_s, u"AUDIT"_s);
    EXPECT_TRUE(shownError(u"Error during app save: "_s)) << shown();
    ASSERT_TRUE(QFile::remove(sharedPath() + u"/Apps/AUDIT"_s));
    applications().cmdAppSave->click();
    EXPECT_TRUE(messages.shown.isEmpty() && applications().SaveOk() && count(u"SELECT * FROM tApp WHERE sAppName='Audit'"_s) == 1 && folderExists(u"Apps/AUDIT"_s))
        << shown();

    Choose(environments().cbEnvironApp, u"Web Store"_s);
    ASSERT_EQ(Items(environments().cbEnvironVer), QStringList{u"3.0"_s});
    Select(applications().lbAppList, u"Web Store"_s);
    Retype(applications().txtAppID, u"OE"_s);
    applications().cmdAppSave->click();
    EXPECT_TRUE(shownError(u"OE already exists - please choose another ID"_s) && applications().AppFolderName() == u"WS"_s) << shown();
    applications().SSAppTab->setCurrentIndex(1);
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps/WS"_s));
    block(u"Apps/WS/4.0"_s);
    applications().cmdVersionNew->click();
    Retype(applications().txtVersionID, u"4.0"_s);
    Choose(applications().cbVersionMapType, applications().cbVersionMapType->itemText(0));
    applications().cmdVersionSave->click();
    EXPECT_TRUE(shownError(u"Error during Version save: "_s) && !applications().VersionIsNew()) << shown();
    ASSERT_TRUE(QFile::remove(sharedPath() + u"/Apps/WS/4.0"_s));
    applications().cmdVersionSave->click();
    EXPECT_TRUE(count(u"SELECT * FROM tVersion v, tWindow w WHERE v.sVersionID='4.0' AND w.iWindowVerKey=v.iVersionKey AND w.sWindowPhysicalName='[System Screen]'"_s) == 1
                && folderExists(u"Apps/WS/4.0/Primary Map Source"_s) && !folderExists(u"Apps/OE/4.0"_s));
    Select(applications().lbVersionList, u"4.0"_s);
    Retype(applications().txtVersionID, u"4.1"_s);
    applications().cmdVersionSave->click();
    EXPECT_EQ(Items(environments().cbEnvironVer), (QStringList{u"3.0"_s, u"4.1"_s}));

    // A version in an environment is refused with one fixed message however
    // many environments hold it; a free one goes after the question (No is
    // on the command test), and so does an application. Their folders stay. A host application's version
    // shows its list-handling attributes as stored and writes them at once.
    // (Leaving Web Store drops its refused ID.)
    messages.Queue(Answer::No);
    DB_ASSERT(repository().Execute(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('SECOND')"_s));
    DB_ASSERT(repository().Execute(u"INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey, iEnvironTestToolKey, iEnviron3270Key) "
                                   "SELECT e.iEnvironmentKey, d.iEnvironVerKey, 2, 0 FROM tEnvironment e, tEnvironmentDetail d WHERE e.sEnvironmentName='SECOND'"_s));
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps/OE/1.0"_s));
    selectVersion(u"Order Entry"_s, u"1.1"_s);
    EXPECT_EQ(messages.shown.takeFirst(), kAppPrompt);
    applications().cmdVersionDelete->click();
    selectVersion(u"Order Entry"_s, u"1.0"_s);
    const qint32 key = applications().CurrentVersionKey();
    messages.Queue(Answer::Yes);
    applications().cmdVersionDelete->click();
    EXPECT_EQ(messages.shown, (QStringList{u"This version is part of an existing environment and cannot be deleted!"_s,
                                           u"Order Entry 1.0: 8 rows\nIn all: 8 rows (tObject 4, tWindow 3, tVersion 1)\n\n"
                                           u"Are you sure you want to delete ALL elements of 1.0?"_s}));
    EXPECT_EQ(std::pair(Items(applications().lbVersionList), count(u"SELECT * FROM tVersion WHERE iVersionKey=%1"_s.arg(key))), std::pair(QStringList{u"1.1"_s}, qsizetype(0)));
    applications().cmdVersionDelete->click(); // nothing shown: nothing happens
    EXPECT_EQ(messages.shown.size(), 2);

    Select(applications().lbAppList, u"Web Store"_s);
    messages.Queue(Answer::Yes);
    applications().cmdAppDelete->click();
    EXPECT_EQ(std::pair(messages.shown.last(), Items(applications().lbAppList)),
              std::pair(u"Web Store 3.0: 8 rows\nWeb Store 4.1: 3 rows\nIn all: 12 rows (tObject 4, tWindow 5, tVersion 2, tApp 1)\n\n"
                        u"Are you sure you want to delete Web Store and all its versions?"_s,
                        QStringList{u"Audit"_s, u"Customer Inquiry"_s, u"Order Entry"_s, u"Quality Audit"_s}));
    EXPECT_TRUE(folderExists(u"Apps/OE/1.0"_s) && environments().cbEnvironApp->findText(u"Web Store"_s) == -1);

    messages.shown.clear();
    DB_ASSERT(repository().Execute(u"UPDATE tVersion SET sVersionAttributes='MoreLine=\t22\tMoreKey=Enter\tMoreText=Next page\t' WHERE sVersionID='R5'"_s));
    selectVersion(u"Customer Inquiry"_s, u"R5"_s);
    dialogs.attributeAnswers.push_back(ListAttributes{u"24"_s, u"More..."_s, u"PF8/F8"_s});
    applications().cmdAttributes->click();
    const ListAttributes was = dialogs.attributesShown.empty() ? ListAttributes{} : dialogs.attributesShown[0];
    EXPECT_EQ(std::tuple(dialogs.attributesShown.size(), was.NextPageLine, was.NextPageIndicator, was.NextPageKey), std::tuple(size_t(1), u"22"_s, u"Next page"_s, u"Enter"_s));
    EXPECT_EQ(Rows(repository(), u"SELECT sVersionAttributes FROM tVersion WHERE sVersionID='R5'"_s),
              QStringList{u"MoreLine=\t24\tMoreKey=PF8/F8\tMoreText=More...\t"_s});
}

// A Save that changed only the description changes only the description:
// stored pointers (also ones into another version), the source version and
// the list-handling attributes stay, and no second system screen appears,
// on every platform of the tutorial.
TEST_P(ApplicationsPageTest, ADescriptionOnlySaveChangesOnlyTheDescription)
{
    // Every column of the row but the description, and the system screens.
    const QString kept = u"SELECT iVersionAppKey, sVersionID, iMapType, iVersionSourceVersion, bVersionActive, iVersionLoadProcess, "
                         "iVersionLoginProcess, iVersionLogoutProcess, iVersionTerminateProcess, iVersionRecoverProcess, "
                         "iVersionInitialWindow, iVersionMainWindow, iVersionUpdateStatusKey, sVersionAttributes, "
                         "(SELECT COUNT(*) FROM tWindow WHERE sWindowPhysicalName='[System Screen]' AND iWindowVerKey=%1) "
                         "FROM tVersion WHERE iVersionKey=%1"_s;
    DB_ASSERT(repository().Execute(u"UPDATE tVersion SET sVersionAttributes='MoreLine=24' WHERE sVersionID='R5'"_s));
    for (const auto& [app, id] : {std::pair(u"Order Entry"_s, u"1.1"_s), std::pair(u"Customer Inquiry"_s, u"R5"_s), std::pair(u"Web Store"_s, u"3.0"_s)}) {
        SCOPED_TRACE(id.toStdString());
        selectVersion(app, id);
        const qint32 key = applications().CurrentVersionKey();
        const QStringList before = Rows(repository(), kept.arg(key));
        Retype(applications().txtVersionDesc, u"Only this changed"_s);
        applications().cmdVersionSave->click();
        EXPECT_TRUE(messages.shown.isEmpty()) << shown();
        EXPECT_EQ(std::pair(Rows(repository(), kept.arg(key)), Rows(repository(), u"SELECT sVersionDesc FROM tVersion WHERE iVersionKey=%1"_s.arg(key))),
                  std::pair(before, QStringList{u"Only this changed"_s}));
    }
}

// Values stored longer than the boxes let a user type, and Null optional
// texts (the suite's other modules write such rows) are shown whole or
// empty and saved as stored when another field was edited.
TEST_P(ApplicationsPageTest, StoredValuesAreShownAsTheyAreAndKept)
{
    const QString name = u"Order Entry for the regional sales offices"_s, id = u"ORD-ENTRY-2026"_s;
    const QString version = u"1.0-build-20260114"_s, environ = u"Needs the order database\r\non the test server."_s;
    DB_ASSERT(repository().Execute(u"UPDATE tApp SET sAppName='%1', sAppID='%2', mAppEnviron='%3', sAppDesc=NULL "
                                   "WHERE sAppID='OE'"_s.arg(name, id, environ)));
    DB_ASSERT(repository().Execute(u"UPDATE tVersion SET sVersionID='%1', sVersionDesc=NULL WHERE sVersionID='1.0'"_s.arg(version)));
    DB_ASSERT(repository().Execute(u"UPDATE tApp SET mAppEnviron=NULL WHERE sAppID='WS'"_s));
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps/"_s + id + u'/' + version));
    applications().RefreshAppList();
    Select(applications().lbAppList, u"Web Store"_s);
    EXPECT_TRUE(applications().txtAppEnviron->toPlainText().isEmpty());
    selectVersion(name, version);
    EXPECT_EQ(std::tuple(applications().txtAppName->text(), applications().txtAppID->text(), applications().txtAppDesc->text(), applications().txtVersionDesc->text()),
              std::tuple(name, id, QString(), QString()));
    // Another version with changes asks first: Cancel stays, Yes saves.
    Retype(applications().txtVersionDesc, u"First release, revised"_s);
    messages.Queue(Answer::Cancel);
    Select(applications().lbVersionList, u"1.1"_s);
    EXPECT_EQ(std::pair(applications().txtVersionID->text(), applications().txtVersionDesc->text()), std::pair(version, u"First release, revised"_s));
    messages.Queue(Answer::Yes);
    Select(applications().lbVersionList, u"1.1"_s);
    EXPECT_EQ(std::tuple(messages.shown, applications().txtVersionID->text(), count(u"SELECT * FROM tVersion WHERE sVersionID='%1' AND sVersionDesc='First release, revised'"_s.arg(version))),
              std::tuple(QStringList(2, u"Save changes to this Version?"_s), u"1.1"_s, qsizetype(1)));
    applications().SSAppTab->setCurrentIndex(0);
    Retype(applications().txtAppDesc, u"Reworked"_s);
    applications().cmdAppSave->click();
    EXPECT_TRUE(messages.shown.size() == 2 && folderExists(u"Apps/"_s + id + u'/' + version)) << shown();
    EXPECT_EQ(Rows(repository(), u"SELECT sAppName, sAppID, mAppEnviron FROM tApp WHERE sAppDesc='Reworked'"_s),
              QStringList{name + u'|' + id + u'|' + environ});
    // Typing cannot lengthen the stored ID, deleting shortens it, and once
    // it is short the limit of 12 is back.
    applications().txtAppID->setFocus();
    QTest::keyClick(applications().txtAppID, Qt::Key_End);
    QTest::keyClicks(applications().txtAppID, u"X"_s);
    const QString typedOn = applications().txtAppID->text();
    QTest::keyClick(applications().txtAppID, Qt::Key_Backspace);
    QTest::keyClicks(applications().txtAppID, u"X"_s);
    const QString shortened = applications().txtAppID->text();
    Retype(applications().txtAppID, u"ABCDEFGHIJKLMNOP"_s);
    EXPECT_EQ(std::tuple(typedOn, shortened, applications().txtAppID->text()), std::tuple(id, id.chopped(1), u"ABCDEFGHIJKL"_s));
}

INSTANTIATE_TEST_SUITE_P(Backends, ApplicationsPageTest, ::testing::ValuesIn(TestBackends()));

TEST(frmAttributesTest, OkChecksInOrderAndFocusesTheField)
{
    ScriptedMessages messages;
    frmAttributes dialog(ListAttributes{}, messages);
    dialog.show();
    dialog.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));
    // Each refused OK focuses the field and leaves the dialog open.
    const std::pair<QWidget*, QString> steps[] = {
        {dialog.txtNextPageIndicator, u"More..."_s}, {dialog.txtNextPageLine, u"24"_s}, {dialog.cbNextPageKey, u"PF8/F8"_s}};
    for (const auto& [field, value] : steps) {
        dialog.cmdOK->click();
        EXPECT_TRUE(field->hasFocus() && dialog.isVisible() && dialog.Cancelled()) << field->objectName().toStdString();
        field == dialog.cbNextPageKey ? Choose(dialog.cbNextPageKey, value) : QTest::keyClicks(field, value);
    }
    dialog.cmdOK->click();
    EXPECT_EQ(messages.shown, (QStringList{u"Next Page Indicator cannot be blank"_s, u"Next Page Line cannot be blank"_s,
                                           u"You must select a Next Page key"_s}));
    EXPECT_FALSE(dialog.isVisible() || dialog.Cancelled());
    const ListAttributes& v = dialog.Values();
    EXPECT_EQ(std::tuple(v.NextPageLine, v.NextPageIndicator, v.NextPageKey), std::tuple(u"24"_s, u"More..."_s, u"PF8/F8"_s));
}

} // namespace
} // namespace dorvane::test
