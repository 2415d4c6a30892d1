// Saving and opening applications and versions, the system screen a
// version is seeded with, and a host version's list-handling attributes;
// deleting an application with its versions: the refusals for versions in
// an environment, the questions, the failures.

#include "core/applications/AppTestFixture.h"
#include "core/applications/ApplicationRecords.h"
#include "core/applications/Deletion.h"
#include "core/applications/SystemScreen.h"
#include "core/applications/VersionAttributes.h"
#include "core/applications/VersionRecords.h"
#include "core/copyengine/VersionBackup.h"

namespace dorvane::test {
namespace {

ApplicationInput appInput(const QString& name, const QString& id) { return {name, id, u"Order entry"_s, u"Needs a printer"_s, kPlatformWindows, {}, {}}; }

ApplicationState shownApp(qint32 key, const QString& folder) { return {.CurrentAppKey = key, .AppIsNew = false, .AppFolderName = folder}; }

// Saves `valid` changed by each case alone: refused with the case's one
// message, on the Applications page's sub-tab `appTab`, its field to focus.
template <typename Input, typename Save>
void ExpectEachRefused(ScriptedMessages& messages, const Input& valid, int appTab, const Save& save,
                       std::initializer_list<std::tuple<void (*)(Input&), const char*, const char*>> cases)
{
    for (const auto& [change, message, focus] : cases) {
        messages.shown.clear();
        Input in = valid;
        change(in);
        const auto out = save(in);
        EXPECT_EQ(messages.shown, QStringList{QString::fromUtf8(message)});
        EXPECT_EQ(std::tuple(out.SaveOk, out.dirtyCleared, out.mainTab, out.appTab, out.focusField),
                  std::tuple(false, false, 2, appTab, QString::fromLatin1(focus)));
    }
}

class ApplicationRecordsTest : public AppRepositoryTest {
protected:
    ApplicationSaveOutcome save(const ApplicationInput& in, const ApplicationState& state = {}) { return ApplicationRecords(conn, messages, sharedPath()).Save(in, state); }
};

TEST_P(ApplicationRecordsTest, EachCheckRefusesAloneAndNormalisedIdsAndQuotedNamesCollide)
{
    addApp(u"Billing"_s, u"BILL_1_0"_s, kPlatformWindows);
    ExpectEachRefused<ApplicationInput>(messages, appInput(u"Orders"_s, u"ORD"_s), 0, [&](const ApplicationInput& in) { return save(in); }, {
        {[](ApplicationInput& in) { in.name.clear(); }, "Application Name cannot be blank", "txtAppName"},
        {[](ApplicationInput& in) { in.id.clear(); }, "You must specify an ID for this application.", "txtAppID"},
        {[](ApplicationInput& in) { in.platformKey.reset(); }, "You must select a valid platform type for this application.", "cbPlatform"},
        {[](ApplicationInput& in) { in.name = u"billing"_s; }, "billing already exists - please choose another Name", "txtAppName"},
        {[](ApplicationInput& in) { in.id = u"BILL 1-0"_s; }, "BILL 1-0 already exists - please choose another ID", "txtAppID"},
        {[](ApplicationInput& in) { in.platformKey = kPlatform3270; }, "You must select a supported emulator for a host-based platform", "cbEmulator"},
    });
    EXPECT_TRUE(count(u"SELECT * FROM tApp"_s) == 1 && !folderExists(u"Apps"_s));

    // Application IDs turn "." and "-" into "_" alike (unlike version IDs).
    EXPECT_EQ(NormaliseAppId(u"a!b?c[d]e:f*g\"h-i.j k/l"_s), u"a_b_c_d_e_f_g_h_i_j_k_l"_s);
    const struct { const char* stored; const char* typed; bool collides; } cases[] = {
        {"1 0", "1_0", true}, {"1.0", "1-0", true}, {"A B", "A_B", true}, {"1.0", "10", false}, {"O'Neil", "O'Neil", true}, {"O'Neil", "O Neil", false}};
    int n = 0;
    for (const auto& c : cases) {
        messages.shown.clear();
        const QString suffix = QString::number(++n), typed = QString::fromUtf8(c.typed) + suffix;
        ASSERT_TRUE(save(appInput(u"First "_s + suffix, QString::fromUtf8(c.stored) + suffix)).SaveOk);
        EXPECT_EQ(save(appInput(u"Second "_s + suffix, typed)).SaveOk, !c.collides);
        EXPECT_EQ(messages.shown, c.collides ? QStringList{typed + u" already exists - please choose another ID"_s} : QStringList{});
    }
    const ApplicationSaveOutcome first = save(appInput(u"O'Neil's app"_s, u"ONEIL"_s));
    EXPECT_TRUE(!save(appInput(u"O'Neil's app"_s, u"OTHER"_s)).SaveOk && messages.shown.last() == u"O'Neil's app already exists - please choose another Name"_s);
    // Its own row does not count against it.
    const ApplicationSaveOutcome again = save(appInput(u"O'Neil's app"_s, u"ONEIL"_s), shownApp(first.state.CurrentAppKey, u"ONEIL"_s));
    EXPECT_EQ(std::pair(again.SaveOk, again.state.CurrentAppKey), std::pair(true, first.state.CurrentAppKey));
}

TEST_P(ApplicationRecordsTest, NewApplicationsAreStoredNormalisedAndOpenAsStored)
{
    // Blank texts, and a leftover emulator selection of a non-host application.
    const ApplicationSaveOutcome out = save({u"Quality"_s, u"Q/A 1.0"_s, {}, {}, kPlatformWindows, 2, {}});
    ASSERT_TRUE(out.SaveOk) << Shown(messages);
    EXPECT_EQ(Rows(conn, u"SELECT iAppKey, sAppID, sAppDesc, mAppEnviron, iAppPlatform, iApp3270Key FROM tApp"_s),
              QStringList{u"%1|Q_A_1_0| | |1|0"_s.arg(out.state.CurrentAppKey)});
    EXPECT_EQ(std::tuple(out.state.AppFolderName, out.state.AppIsHost, out.appTab, out.focusField, foldersIn(u"Apps"_s)),
              std::tuple(u"Q_A_1_0"_s, false, 1, u"txtVersionID"_s, QStringList{u"Q_A_1_0"_s}));

    const ApplicationSaveOutcome hostOut = save({u"Ledger"_s, u"LEDGER"_s, u"Order entry"_s, u"Needs a printer"_s, kPlatform3270, 2, u"Attachmate EXTRA!"_s});
    ApplicationRecords records(conn, messages, sharedPath());
    const ApplicationRecord opened = records.Open(hostOut.state.CurrentAppKey).value();
    EXPECT_EQ(std::tuple(opened.name, opened.id, opened.AppFolderName, opened.description, opened.environ, opened.AppIsHost, opened.emulatorKey,
                         opened.platformKey),
              std::tuple(u"Ledger"_s, u"LEDGER"_s, u"LEDGER"_s, u"Order entry"_s, u"Needs a printer"_s, true, 2, std::optional(kPlatform3270)));
    // A stored emulator of a non-host application is not shown; a Null
    // platform is no error.
    EXPECT_EQ(records.Open(addApp(u"Stray"_s, u"STRAY"_s, kPlatformWeb, 3))->emulatorKey, 0);
    DB_ASSERT(conn.Execute(u"INSERT INTO tApp (sAppName, sAppID, iAppPlatform) VALUES ('Legacy', 'LEG', NULL)"_s));
    EXPECT_FALSE(records.Open(Rows(conn, u"SELECT iAppKey FROM tApp WHERE sAppID='LEG'"_s)[0].toInt()).value().platformKey);
    EXPECT_TRUE(messages.shown.isEmpty() && !records.Open(999) && messages.shown.value(0).startsWith(u"Error while opening application:Either BOF"_s)) << Shown(messages);
}

TEST_P(ApplicationRecordsTest, AChangedIdRenamesTheFolderAndFailuresAreReported)
{
    const qint32 key = save(appInput(u"Orders"_s, u"ord"_s)).state.CurrentAppKey;
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps/ord/1.0"_s));
    ASSERT_TRUE(save(appInput(u"Order entry"_s, u"ord"_s), shownApp(key, u"ord"_s)).SaveOk);
    EXPECT_EQ(foldersIn(u"Apps"_s), QStringList{u"ord"_s});
    // A change of letter case alone is a change of ID.
    ASSERT_TRUE(save(appInput(u"Order entry"_s, u"ORD"_s), shownApp(key, u"ord"_s)).SaveOk);
    EXPECT_EQ(foldersIn(u"Apps"_s), QStringList{u"ORD"_s});
    const ApplicationSaveOutcome renamed = save(appInput(u"Order entry"_s, u"ORD 2"_s), shownApp(key, u"ORD"_s));
    EXPECT_EQ(std::tuple(renamed.SaveOk, renamed.state.AppFolderName, renamed.state.CurrentAppKey, foldersIn(u"Apps"_s), folderExists(u"Apps/ORD_2/1.0"_s)),
              std::tuple(true, u"ORD_2"_s, key, QStringList{u"ORD_2"_s}, true));

    // A folder that cannot be renamed is reported after the row is saved;
    // the Apps folder is made.
    ASSERT_TRUE(QDir(sharedPath() + u"/Apps"_s).removeRecursively());
    const ApplicationSaveOutcome lost = save(appInput(u"Order entry"_s, u"NEW"_s), shownApp(key, u"ORD_2"_s));
    EXPECT_EQ(std::pair(lost.SaveOk, lost.dirtyCleared), std::pair(false, true));
    EXPECT_TRUE(messages.shown.value(0).startsWith(u"Error during app save: File not found: "_s) && count(u"SELECT * FROM tApp WHERE sAppID='NEW'"_s) == 1
                && folderExists(u"Apps"_s)) << Shown(messages);

    // A database error, with the prefix; nothing written.
    messages.shown.clear();
    const ApplicationSaveOutcome overflow = save(appInput(QString(40000, u'x'), u"LONG"_s));
    EXPECT_EQ(messages.shown, QStringList{u"Error during app save: Overflow"_s});
    EXPECT_EQ(std::tuple(overflow.SaveOk, overflow.focusField, count(u"SELECT * FROM tApp"_s)), std::tuple(false, QString(), 1));
}

INSTANTIATE_TEST_SUITE_P(Backends, ApplicationRecordsTest, ::testing::ValuesIn(TestBackends()));

// ---- versions ----

VersionInput versionInput(const QString& id) { return {id, u"First release"_s, 1, {}}; }

VersionState shownVersion(qint32 key, const QString& folder) { return {key, false, folder}; }

QString Joined(const ListAttributes& a) { return QStringList{a.NextPageLine, a.NextPageIndicator, a.NextPageKey}.join(u'|'); }

class VersionRecordsTest : public AppRepositoryTest {
protected:
    void SetUp() override
    {
        AppRepositoryTest::SetUp();
        ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps"_s));
        DB_ASSERT(app = VersionApplication({addApp(u"Orders"_s, u"ORD"_s, kPlatformWindows), u"ORD"_s, false, kPlatformWindows}));
    }
    VersionSaveOutcome save(const VersionInput& in, const VersionState& state = {}, bool as = false)
    {
        return as ? VersionRecords(conn, messages, sharedPath()).SaveAs(in, app, state) : VersionRecords(conn, messages, sharedPath()).Save(in, app, state);
    }
    qint32 saveNew(const QString& id)
    {
        const VersionSaveOutcome out = save(versionInput(id));
        EXPECT_TRUE(out.SaveOk) << Shown(messages);
        return out.state.CurrentVersionKey;
    }
    QStringList version(qint32 key, const QString& columns) { return Rows(conn, u"SELECT %1 FROM tVersion WHERE iVersionKey=%2"_s.arg(columns).arg(key)); }
    qint32 seeded(qint32 key) { return count(u"SELECT * FROM tObject WHERE iObjectVersionKey=%1"_s.arg(key)); }

    VersionApplication app;
};

TEST_P(VersionRecordsTest, EachCheckRefusesAloneAndIdsAreNormalisedPerApplication)
{
    saveNew(u"1.0"_s);
    ExpectEachRefused<VersionInput>(messages, versionInput(u"2.0"_s), 1, [&](const VersionInput& in) { return save(in); }, {
        {[](VersionInput& in) { in.id.clear(); }, "Version ID cannot be blank", "txtVersionID"},
        {[](VersionInput& in) { in.mapTypeKey.reset(); }, "You must select a valid map type for this Version.", "cbVersionMapType"},
        {[](VersionInput& in) { in.id = u"1.0"_s; }, "1.0 already exists - please choose another ID", "txtVersionID"},
    });
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tVersion"_s) + count(u"SELECT * FROM tWindow"_s), foldersIn(u"Apps/ORD"_s)), std::pair(2, QStringList{u"1.0"_s}));

    EXPECT_EQ(std::pair(NormaliseVersionId(u"v 1/2!3?4[5]6'7*8\"9"_s), NormaliseVersionId(u"1.0-beta:2"_s)),
              std::pair(u"v_1_2_3_4_5_6_7_8_9"_s, u"1.0-beta:2"_s));
    saveNew(u"1-0"_s);
    saveNew(u"1 0"_s);
    messages.shown.clear();
    const VersionSaveOutcome clash = save(versionInput(u"1_0"_s));
    // A refused ID leaves the folder name.
    EXPECT_EQ(std::pair(messages.shown, clash.state.VersionFolderName), std::pair(QStringList{u"1_0 already exists - please choose another ID"_s}, QString()));
    EXPECT_EQ(version(saveNew(u"O'Neil"_s), u"sVersionID"_s), QStringList{u"O_Neil"_s});
    // Another application may use the same ID.
    app = {addApp(u"Billing"_s, u"BILL"_s, kPlatformWindows), u"BILL"_s, false, kPlatformWindows};
    saveNew(u"1.0"_s);
    EXPECT_TRUE(count(u"SELECT * FROM tVersion WHERE sVersionID='1.0'"_s) == 2 && folderExists(u"Apps/BILL/1.0/Primary Map Source"_s));

    // An ID names a folder inside its application's folder: what no folder
    // name holds is replaced, ".." is refused, and a stored ID that names a
    // folder elsewhere (another program wrote it) leaves that folder alone
    // when the version gets a new ID.
    saveNew(u"..\\..\\T"_s);
    EXPECT_TRUE(folderExists(u"Apps/BILL/.._.._T/Primary Map Source"_s) && !QFileInfo::exists(sharedPath() + u"/T"_s) && !QFileInfo::exists(db->tempPath() + u"/T"_s));
    messages.shown.clear();
    EXPECT_FALSE(save(versionInput(u".."_s)).SaveOk || count(u"SELECT * FROM tVersion WHERE sVersionID='..'"_s));
    EXPECT_EQ(messages.shown, QStringList{u"The version ID \"..\" cannot name a folder inside its parent folder."_s});
    const qint32 stray = saveNew(u"3.0"_s);
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/victim"_s));
    DB_ASSERT(conn.Execute(u"UPDATE tVersion SET sVersionID='../../victim' WHERE iVersionKey=%1"_s.arg(stray)));
    EXPECT_TRUE(save(versionInput(u"3.5"_s), shownVersion(stray, u"../../victim"_s)).SaveOk && folderExists(u"victim"_s) && folderExists(u"Apps/BILL/3.5/Primary Map Source"_s));
}

TEST_P(VersionRecordsTest, SavesWriteTheRowPointersSeedingAndFolders)
{
    const VersionSaveOutcome out = save(versionInput(u"Release 1"_s));
    ASSERT_TRUE(out.SaveOk && out.dirtyCleared && messages.shown.isEmpty()) << Shown(messages);
    const qint32 key = out.state.CurrentVersionKey;
    EXPECT_EQ(version(key, u"iVersionAppKey, sVersionID, sVersionDesc, iMapType, iVersionSourceVersion, bVersionActive, "
                           "iVersionLoadProcess, iVersionMainWindow"_s), QStringList{u"%1|Release_1|First release|1|0|-1|0|0"_s.arg(app.CurrentAppKey)});
    EXPECT_EQ(std::tuple(out.state.VersionFolderName, count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(key)), seeded(key),
                         foldersIn(u"Apps/ORD/Release_1"_s)),
              std::tuple(u"Release_1"_s, 1, 1, QStringList{u"Primary Map Source"_s, u"Secondary Map Source"_s}));

    // An existing version: pointers written, the attributes kept, the
    // folder renamed with its content, its system screen kept as the one.
    const Built k = build(addApp(u"Other"_s, u"OTH"_s), {{u"9"_s, {u"Main"_s}, {{u"Login"_s, {u"Main"_s}}}}});
    DB_ASSERT(conn.Execute(u"UPDATE tVersion SET sVersionAttributes='MoreLine=1', iVersionLoadProcess=77"_s));
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps/ORD/Release_1/Primary Map Source/maps"_s));
    VersionInput in = versionInput(u"1.1"_s);
    in.links.loginProcess = k[u"Login"_s];
    in.links.mainWindow = k[u"Main"_s];
    ASSERT_TRUE(save(in, shownVersion(key, u"Release_1"_s)).SaveOk) << Shown(messages);
    EXPECT_EQ(version(key, u"sVersionID, sVersionAttributes, iVersionLoadProcess, iVersionLoginProcess, "
                           "iVersionMainWindow, iVersionInitialWindow"_s), QStringList{u"1.1|MoreLine=1|0|%1|%2|0"_s.arg(k[u"Login"_s]).arg(k[u"Main"_s])});
    EXPECT_EQ(std::tuple(foldersIn(u"Apps/ORD"_s), folderExists(u"Apps/ORD/1.1/Primary Map Source/maps"_s), seeded(key)),
              std::tuple(QStringList{u"1.1"_s}, true, 1));
    // Without an old folder to rename, the folders are created.
    ASSERT_TRUE(QDir(sharedPath() + u"/Apps/ORD/1.1"_s).removeRecursively());
    EXPECT_TRUE(save(versionInput(u"1.2"_s), shownVersion(key, u"1.1"_s)).SaveOk && folderExists(u"Apps/ORD/1.2/Secondary Map Source"_s));
}

TEST_P(VersionRecordsTest, AFailedSaveRollsEverythingBackAndSaveAsKeepsItsRow)
{
    const qint32 key = saveNew(u"1.0"_s);
    // Without its system screen the version is seeded again, and the
    // seeding fails.
    DB_ASSERT(conn.Execute(u"DELETE FROM tWindow WHERE iWindowVerKey=%1"_s.arg(key)));
    DB_ASSERT(conn.Execute(u"DELETE FROM tClass WHERE iClassPlatformKey=1 AND sClassPhysicalName='[System]'"_s));
    const QStringList before = TableRows(conn, {u"tVersion"_s, u"tWindow"_s});
    const QString reason = u"Platform 1 has no \"[System]\" class."_s;
    const VersionSaveOutcome added = save(versionInput(u"2.0"_s)), edited = save({u"1.5"_s, u"Changed"_s, 1, {}}, shownVersion(key, u"1.0"_s));
    EXPECT_EQ(std::tuple(added.SaveOk, added.dirtyCleared, added.state.CurrentVersionKey, edited.SaveOk, edited.state.CurrentVersionKey),
              std::tuple(false, false, 0, false, key));
    EXPECT_EQ(messages.shown, QStringList(2, u"Error during Version save: "_s + reason));
    EXPECT_EQ(std::pair(TableRows(conn, {u"tVersion"_s, u"tWindow"_s}), foldersIn(u"Apps/ORD"_s)), std::pair(before, QStringList{u"1.0"_s}));

    // Save As writes its row before the seeding, and keeps it.
    messages.shown.clear();
    EXPECT_FALSE(save(versionInput(u"3.0"_s), shownVersion(key, u"1.0"_s), true).SaveOk);
    EXPECT_EQ(messages.shown, QStringList{u"Error while saving version as : "_s + reason});
    EXPECT_TRUE(count(u"SELECT * FROM tVersion WHERE sVersionID='3.0'"_s) == 1 && !folderExists(u"Apps/ORD/3.0"_s));

    // The connection is usable again afterwards.
    messages.shown.clear();
    app = {app.CurrentAppKey, app.AppFolderName, true, kPlatform3270};
    EXPECT_TRUE(save(versionInput(u"4.0"_s)).SaveOk) << Shown(messages);
}

TEST_P(VersionRecordsTest, SaveAsCopiesAndOpenOffersTheSourcesStateProcessesAndWindows)
{
    const Built k = build(addApp(u"Shop"_s, u"SHOP"_s), {{u"1.0"_s, {u"First"_s}, {{u"Load"_s, {u"First"_s}}}}, {u"2.0"_s, {}, {u"Elsewhere"_s}}});
    app = {k[u"app"_s], u"SHOP"_s, false, kPlatformWindows};
    ASSERT_TRUE(QDir().mkpath(sharedPath() + u"/Apps/SHOP"_s));
    const qint32 source = k[u"1.0"_s], load = k[u"Load"_s], first = k[u"First"_s];
    for (const int type : {0, 2}) // not offered
        add(u"tProcess"_s, {{u"iProcessVerKey"_s, source}, {u"sProcessName"_s, u"Case"_s}, {u"iProcessType"_s, type}});
    VersionInput in = versionInput(u"1.0"_s);
    in.links.loadProcess = load;
    in.links.initialWindow = first;
    // No key is excluded: the shown version's own ID is refused.
    EXPECT_EQ(save(in, shownVersion(source, u"1.0"_s), true).focusField, u"txtVersionID"_s);
    EXPECT_EQ(std::exchange(messages.shown, {}), QStringList{u"1.0 already exists - please choose another ID"_s});
    in.id = u"1.0 copy"_s;
    const VersionSaveOutcome out = save(in, shownVersion(source, u"1.0"_s), true);
    ASSERT_TRUE(out.SaveOk) << Shown(messages);
    const qint32 copy = out.state.CurrentVersionKey;
    EXPECT_EQ(std::tuple(out.state.VersionFolderName, seeded(copy), folderExists(u"Apps/SHOP/1.0_copy/Secondary Map Source"_s)),
              std::tuple(u"1.0_copy"_s, 1, true));
    EXPECT_EQ(version(copy, u"iVersionSourceVersion, iVersionLoadProcess, iVersionInitialWindow, bVersionActive"_s),
              QStringList{u"%1|%2|%3|-1"_s.arg(source).arg(load).arg(first)});

    VersionRecords records(conn, messages, sharedPath());
    const VersionRecord opened = records.Open(copy).value();
    EXPECT_EQ(std::tuple(opened.id, opened.description, opened.mapTypeKey, opened.processes, opened.windows),
              std::tuple(u"1.0_copy"_s, u"First release"_s, 1, ListEntries{{u"None"_s, 0}, {u"Load"_s, load}}, ListEntries{{u"None"_s, 0}, {u"First"_s, first}}));
    EXPECT_EQ(std::tuple(opened.links.loadProcess, opened.links.initialWindow, opened.links.mainWindow),
              std::tuple(std::optional(load), std::optional(first), std::optional<qint32>()));
    EXPECT_EQ(records.Open(source)->processes, opened.processes);
    DB_ASSERT(conn.Execute(u"UPDATE tVersion SET iVersionLogoutProcess=%1 WHERE iVersionKey=%2"_s.arg(load).arg(copy)));
    EXPECT_TRUE(records.Open(copy)->links.logoutProcess == load && !records.Open(9999));
    EXPECT_TRUE(messages.shown.value(0).startsWith(u"Error while opening Version:Either BOF or EOF"_s)) << Shown(messages);
}

// ---- the system screen: the existence test looks for class 1 (host) or
// 100, while the window is written with class 1, 100, 242 or none ----

TEST_P(VersionRecordsTest, EachPlatformsSystemScreenHasItsClassAndIsSeededOnceAndNullAttributesShowEmpty)
{
    // The window's class and name location; one pair after two saves, on
    // every platform (a version holding two already keeps two).
    const struct { qint32 platform; bool host; const char* windowClass; const char* nameLocation; int before; } cases[] = {
        {kPlatform3270, true, "1", "Row=\tCol=\tLen=\t", 0}, {kPlatformWeb, false, "100", "", 0}, {kPlatformJava, false, "242", "", 0},
        {kPlatformWindows, false, "0", "<null>", 0}, {kPlatformJava, true, "1", "Row=\tCol=\tLen=\t", 0}, // the host flag wins
        {kPlatformWindows, false, "0", "<null>", 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.platform * 10 + c.host);
        const qint32 v = addVersion(addApp(u"App"_s, u"APP"_s, c.platform), u"1.0"_s);
        for (int i = 0; i < c.before; ++i)
            DB_ASSERT(CreateSystemScreen(conn, v, c.host, c.platform); conn.Execute(u"UPDATE tWindow SET sWindowPhysicalName='x'"_s));
        if (c.before)
            DB_ASSERT(conn.Execute(u"UPDATE tWindow SET sWindowPhysicalName='[System Screen]'"_s));
        DB_ASSERT(CreateSystemScreen(conn, v, c.host, c.platform); CreateSystemScreen(conn, v, c.host, c.platform));
        const QString window = u"%1|[System Screen]|[System Screen]|[System Screen]|%2|-1|-1"_s.arg(
            QString::fromLatin1(c.windowClass), QString::fromUtf8(c.nameLocation));
        const int pairs = std::max(1, c.before);
        EXPECT_EQ(Rows(conn, u"SELECT COALESCE(iWindowClassKey, 0), sWindowPhysicalName, sWindowLogicalName, sWindowOverrideName, "
                             "sWindowNameLocation, bWindowVisible, bWindowUserCreated FROM tWindow WHERE iWindowVerKey=%1"_s.arg(v)),
                  QStringList(pairs, window));
        EXPECT_EQ(Rows(conn, u"SELECT o.sObjectPhysicalName, o.sObjectLogicalName, o.iObjectDataTypeKey, o.sObjectAttributes, "
                             "o.bObjectVisible, c.iClassPlatformKey, c.sClassPhysicalName FROM tObject o, tClass c, tWindow w "
                             "WHERE o.iObjectClassKey=c.iClassKey AND o.iObjectWindowKey=w.iWindowKey AND w.iWindowVerKey=%1 AND o.iObjectVersionKey=%1"_s.arg(v)),
                  QStringList(pairs, u"[System]|[System]|1||-1|%1|[System]"_s.arg(c.platform)));
        DB_ASSERT(conn.Execute(u"DELETE FROM tWindow"_s); conn.Execute(u"DELETE FROM tObject"_s));
    }
    const qint32 v = addVersion(addApp(u"Web"_s, u"WEB"_s, kPlatformWeb), u"1.0"_s);
    DB_ASSERT(conn.Execute(u"DELETE FROM tClass WHERE iClassPlatformKey=2 AND sClassPhysicalName='[System]'"_s));
    EXPECT_EQ(descriptionOf([&] { CreateSystemScreen(conn, v, false, kPlatformWeb); }), u"Platform 2 has no \"[System]\" class."_s);
    EXPECT_EQ(count(u"SELECT * FROM tObject WHERE iObjectVersionKey=%1"_s.arg(v)), 0);

    // Null list attributes show empty; a cancelled dialog writes nothing.
    QStringList shown;
    const auto set = [&](qint32 version, std::optional<ListAttributes> answer) {
        return SetVersionAttributes(conn, messages, version, [&](const ListAttributes& values) { shown << Joined(values); return answer; });
    };
    const qint32 host = addVersion(addApp(u"Host"_s, u"HO"_s, kPlatform3270, 1), u"1.0"_s);
    EXPECT_TRUE(!set(host, std::nullopt) && messages.shown.isEmpty() && version(host, u"sVersionAttributes"_s) == QStringList{u"<null>"_s});
    // A version that is gone is an error, and the dialog is not shown.
    EXPECT_TRUE(!set(4711, ListAttributes{u"1"_s, u"x"_s, u"Enter"_s}) && shown == QStringList{u"||"_s});
    const QString prefix = u"Error while setting attributes:"_s;
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown[0].startsWith(prefix) && messages.shown[0].size() > prefix.size()) << Shown(messages);
}

// ---- the list-handling attributes of a host version; the checks in their
// order, and showing and writing them, are on the Applications page test ----

TEST(VersionAttributesString, ParsesAsTheSuiteWritesItAndOnlyEmptinessIsChecked)
{
    // A tab is written after "MoreLine=" and skipped when read.
    const ListAttributes values{u"24"_s, u"More..."_s, u"PF8/F8"_s};
    EXPECT_EQ(BuildVersionAttributes(values), u"MoreLine=\t24\tMoreKey=PF8/F8\tMoreText=More...\t"_s);
    EXPECT_EQ(Joined(ParseVersionAttributes(BuildVersionAttributes(values))), u"24|More...|PF8/F8"_s);
    const std::pair<const char*, const char*> cases[] = {
        // Without the extra tab the line loses its first character, a
        // one-character line altogether.
        {"MoreLine=24\tMoreKey=PF8/F8\tMoreText=More...\t", "4|More...|PF8/F8"}, {"MoreLine=9\t", "||"}, {"", "||"},
        // Any order; each value ends at the next tab, an unclosed one reads empty.
        {"MoreText=Next\tMoreKey=Enter\t", "|Next|Enter"}, {"MoreLine=\t23\tMoreKey=PA1\tMoreText=More", "23||PA1"},
        {"MoreLine=", "||"}, {"MoreLine=\t", "||"},
        // Tags are matched with their case; the first occurrence counts.
        {"morekey=PA2\tMoreKey=PA3\tMoreKey=PA4\t", "||PA3"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(Joined(ParseVersionAttributes(QString::fromUtf8(text))), QString::fromUtf8(expected)) << text;
    // A blank or a key outside the list passes.
    ScriptedMessages messages;
    EXPECT_TRUE(CheckListAttributes({u" "_s, u"More..."_s, u"Ctrl+N"_s}, messages).isEmpty() && messages.shown.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionRecordsTest, ::testing::ValuesIn(TestBackends()));

// ---- deletion ----

class DeletionTest : public AppRepositoryTest {
protected:
    std::optional<RepositoryContent> content() const override { return RepositoryContent::Tutorial; }

    qint32 appKey(const QString& name) { return Rows(conn, u"SELECT iAppKey FROM tApp WHERE sAppName='%1'"_s.arg(name)).value(0).toInt(); }
    // The version contents deletion, every call recorded; one that must not be reached.
    DeleteContents recording() { return [this](qint32 v, MessageSink& shown) { calls.push_back(v); return DeleteVersionContents(v, conn, shown); }; }
    static bool unreachable(qint32 v, MessageSink&) { ADD_FAILURE() << "version " << v << " was deleted"; return false; }
    std::vector<qint32> calls;
};

TEST_P(DeletionTest, ApplicationsInAnEnvironmentAreRefusedNoWritesNothingAFreeOneGoesWholeAndAFailedVersionStopsTheLoop)
{
    // Only the environment of the first version found is named: ALPHA
    // has the lower key and sorts first, ZETA holds the earlier version.
    const Built k = build(addApp(u"Ledger"_s, u"LEDGER"_s), {u"1"_s, u"2"_s, u"3"_s});
    const qint32 alpha = add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"ALPHA"_s}});
    addDetail(alpha, k[u"3"_s], 2);
    addDetail(add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"ZETA"_s}}), k[u"2"_s], 2);
    addDetail(alpha, k[u"2"_s], 2);
    QStringList before = TableRows(conn);
    // Order Entry 1.0 is free, 1.1 is in the tutorial environment. No
    // answer is queued: the question must not be asked.
    EXPECT_FALSE(DeleteApplication(conn, messages, appKey(u"Order Entry"_s), u"Order Entry"_s, unreachable));
    EXPECT_FALSE(DeleteApplication(conn, messages, k[u"app"_s], u"Ledger"_s, unreachable));
    // No or Cancel to the question writes nothing either.
    for (const Answer answer : {Answer::No, Answer::Cancel}) {
        messages.Queue(answer);
        EXPECT_FALSE(DeleteApplication(conn, messages, appKey(u"Web Store"_s), u"Web Store"_s, unreachable));
    }
    const QString question = u"Are you sure you want to delete Web Store and all its versions?"_s;
    EXPECT_EQ(messages.shown, (QStringList{u"This application is used in at least one environment (TUTORIAL) and cannot be deleted"_s,
                                           u"This application is used in at least one environment (ZETA) and cannot be deleted"_s, question, question}));
    EXPECT_EQ(TableRows(conn), before);

    // A free application goes with every version and its contents.
    const qint32 app = appKey(u"Web Store"_s), ws30 = Rows(conn, u"SELECT iVersionKey FROM tVersion WHERE sVersionID='3.0'"_s).value(0).toInt();
    const qint32 ws31 = add(u"tVersion"_s, {{u"iVersionAppKey"_s, app}, {u"sVersionID"_s, u"3.1"_s}});
    const qint32 payroll = addApp(u"Payroll"_s, u"PAYROLLAPP"_s, kPlatformWindows);
    ASSERT_GT(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(ws30)), 0);
    before = TableRows(conn);
    messages.Queue(Answer::Yes);
    // An application without versions loses only its row.
    EXPECT_TRUE(DeleteApplication(conn, messages, payroll, u"Payroll"_s, unreachable));
    before.removeIf([](const QString& row) { return row.startsWith(u"tApp:"_s) && row.contains(u"|PAYROLLAPP|"_s); });
    EXPECT_EQ(TableRows(conn), before);

    // The name in the question is the text of the name box, as typed.
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(DeleteApplication(conn, messages, app, u"web store"_s, recording()));
    EXPECT_EQ(messages.shown.mid(4), (QStringList{u"Are you sure you want to delete Payroll and all its versions?"_s,
                                                  u"Are you sure you want to delete web store and all its versions?"_s}));
    const QString left = u"SELECT iVersionKey FROM tVersion WHERE iVersionAppKey=%1 UNION ALL SELECT iWindowKey FROM tWindow WHERE iWindowVerKey=%2"_s;
    EXPECT_EQ(std::tuple(calls, count(left.arg(app).arg(ws30)), Rows(conn, u"SELECT sAppName FROM tApp ORDER BY sAppName"_s)),
              std::tuple(std::vector<qint32>{ws30, ws31}, 0, QStringList{u"Customer Inquiry"_s, u"Ledger"_s, u"Order Entry"_s}));

    // A failed version stops the loop and rolls the whole deletion back:
    // no version is left without its application.
    messages.shown.clear();
    calls.clear();
    const Built b = build(addApp(u"Broken"_s, u"BROKEN"_s),
                          {u"1"_s, {u"2"_s, {u"w2"_s}, {{u"p2"_s, {u"w2"_s}}}}, {u"3"_s, {u"w3"_s}, {{u"p3"_s, {u"w3"_s}}}}});
    abortOn(u"tStep"_s, u"DELETE"_s);
    before = TableRows(conn);
    messages.Queue(Answer::Yes);
    EXPECT_FALSE(DeleteApplication(conn, messages, b[u"app"_s], u"Broken"_s, recording()));
    EXPECT_EQ(std::tuple(calls, messages.shown.value(2), TableRows(conn), conn.InTransaction()), // the third is not attempted
              std::tuple(std::vector<qint32>{b[u"1"_s], b[u"2"_s]}, u"Broken and all its versions stay as they were: nothing was deleted."_s, before, false));
    EXPECT_TRUE(messages.shown.size() == 3 && messages.shown[1].startsWith(u"Error while deleting Steps:"_s)
                && messages.shown[1].endsWith(u"! New version not fully deleted."_s)) << Shown(messages);
}

INSTANTIATE_TEST_SUITE_P(Backends, DeletionTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
