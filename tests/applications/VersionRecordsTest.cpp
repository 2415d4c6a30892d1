#include "applications/VersionRecords.h"

#include "applications/AppTestFixture.h"

using namespace dorvane;
using namespace dorvane::test;

namespace {

constexpr qint32 kWindowsMapType = 1;

VersionInput versionInput(const QString& id)
{
    VersionInput input;
    input.id = id;
    input.description = QStringLiteral("First release");
    input.mapTypeKey = kWindowsMapType;
    return input;
}

VersionState newVersion() { return {}; }

VersionState shownVersion(qint32 key, const QString& folder)
{
    VersionState state;
    state.CurrentVersionKey = key;
    state.VersionIsNew = false;
    state.VersionFolderName = folder;
    return state;
}

} // namespace

class VersionRecordsTest : public AppRepositoryTest {
protected:
    void SetUp() override
    {
        AppRepositoryTest::SetUp();
        ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps")));
        DB_ASSERT(app.CurrentAppKey = addApp(QStringLiteral("Orders"), QStringLiteral("ORD"), kPlatformWindows));
        app.AppFolderName = QStringLiteral("ORD");
        app.CurrentPlatformKey = kPlatformWindows;
    }

    VersionSaveOutcome save(const VersionInput& input, const VersionState& state)
    {
        VersionRecords records(conn, messages, sharedPath());
        return records.Save(input, app, state);
    }

    VersionSaveOutcome saveAs(const VersionInput& input, const VersionState& state)
    {
        VersionRecords records(conn, messages, sharedPath());
        return records.SaveAs(input, app, state);
    }

    qint32 saveNew(const QString& id)
    {
        const VersionSaveOutcome out = save(versionInput(id), newVersion());
        EXPECT_TRUE(out.SaveOk) << messages.shown.join(u'\n').toStdString();
        return out.state.CurrentVersionKey;
    }

    qint32 addRow(const QString& table, const QList<QPair<QString, QVariant>>& values)
    {
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE 1=0").arg(table), conn);
        rs.AddNew();
        for (const auto& [field, value] : values)
            rs.SetValue(field, value);
        rs.Update();
        return rs.Int(rs.KeyField());
    }

    qint32 addProcess(qint32 version, const QString& name, qint32 type = 1)
    {
        return addRow(QStringLiteral("tProcess"),
            {{QStringLiteral("iProcessVerKey"), version}, {QStringLiteral("sProcessName"), name},
                {QStringLiteral("iProcessType"), type}});
    }

    qint32 addWindow(qint32 version, const QString& name)
    {
        return addRow(QStringLiteral("tWindow"),
            {{QStringLiteral("iWindowVerKey"), version}, {QStringLiteral("sWindowLogicalName"), name},
                {QStringLiteral("sWindowPhysicalName"), name}});
    }

    VersionApplication app;
};

TEST_P(VersionRecordsTest, EachCheckRefusesAloneWithItsMessageAndField)
{
    const qint32 existing = saveNew(QStringLiteral("1.0"));
    const struct {
        const char* label;
        void (*change)(VersionInput&);
        const char* message;
        const char* focus;
    } cases[] = {
        {"blank ID", [](VersionInput& in) { in.id.clear(); }, "Version ID cannot be blank", "txtVersionID"},
        {"no map type", [](VersionInput& in) { in.mapTypeKey.reset(); },
            "You must select a valid map type for this Version.", "cbVersionMapType"},
        {"same ID", [](VersionInput& in) { in.id = QStringLiteral("1.0"); },
            "1.0 already exists - please choose another ID", "txtVersionID"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        messages.shown.clear();
        VersionInput input = versionInput(QStringLiteral("2.0"));
        c.change(input);
        const VersionSaveOutcome out = save(input, newVersion());
        EXPECT_FALSE(out.SaveOk);
        EXPECT_EQ(messages.shown, QStringList{QString::fromUtf8(c.message)});
        EXPECT_EQ(out.focusField, QString::fromLatin1(c.focus));
        EXPECT_EQ(out.mainTab, 2);
        EXPECT_EQ(out.appTab, 1);
        EXPECT_FALSE(out.dirtyCleared);
        EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion")), 1);
        EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow")), 1);
    }
    EXPECT_EQ(foldersIn(QStringLiteral("Apps/ORD")), QStringList{QStringLiteral("1.0")});
    EXPECT_NE(existing, 0);
}

TEST_P(VersionRecordsTest, NewVersionIsWrittenSeededAndGetsItsFolders)
{
    const VersionSaveOutcome out = save(versionInput(QStringLiteral("Release 1")), newVersion());
    ASSERT_TRUE(out.SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_TRUE(out.dirtyCleared);
    EXPECT_EQ(out.state.VersionFolderName, QStringLiteral("Release_1"));

    Recordset rs(QStringLiteral("SELECT * FROM tVersion"), conn);
    ASSERT_EQ(CountRecords(&rs), 1);
    EXPECT_EQ(out.state.CurrentVersionKey, rs.Int(QStringLiteral("iVersionKey")));
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionAppKey")), app.CurrentAppKey);
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionID")), QStringLiteral("Release_1"));
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionDesc")), QStringLiteral("First release"));
    EXPECT_EQ(rs.Int(QStringLiteral("iMapType")), kWindowsMapType);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionSourceVersion")), 0);
    EXPECT_EQ(rs.Int(QStringLiteral("bVersionActive")), -1);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionLoadProcess")), 0);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionMainWindow")), 0);

    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=")
                  + QString::number(out.state.CurrentVersionKey)),
        1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tObject WHERE iObjectVersionKey=")
                  + QString::number(out.state.CurrentVersionKey)),
        1);

    // The application folder is made when missing, then the version's.
    EXPECT_EQ(foldersIn(QStringLiteral("Apps/ORD/Release_1")),
        (QStringList{QStringLiteral("Primary Map Source"), QStringLiteral("Secondary Map Source")}));
}

TEST_P(VersionRecordsTest, VersionIdsAreNormalisedAndUniquePerApplication)
{
    EXPECT_EQ(NormaliseVersionId(QStringLiteral("v 1/2!3?4[5]6'7*8\"9")), QStringLiteral("v_1_2_3_4_5_6_7_8_9"));
    EXPECT_EQ(NormaliseVersionId(QStringLiteral("1.0-beta:2")), QStringLiteral("1.0-beta:2"));

    saveNew(QStringLiteral("1.0"));
    saveNew(QStringLiteral("1-0"));
    saveNew(QStringLiteral("1 0"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion")), 3);

    const VersionSaveOutcome clash = save(versionInput(QStringLiteral("1_0")), newVersion());
    EXPECT_FALSE(clash.SaveOk);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("1_0 already exists - please choose another ID")});
    // A refused ID leaves the folder name as it was.
    EXPECT_EQ(clash.state.VersionFolderName, QString());

    messages.shown.clear();
    const qint32 quoted = saveNew(QStringLiteral("O'Neil"));
    Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(quoted), conn);
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionID")), QStringLiteral("O_Neil"));

    // Another application may use the same ID.
    app.CurrentAppKey = addApp(QStringLiteral("Billing"), QStringLiteral("BILL"), kPlatformWindows);
    app.AppFolderName = QStringLiteral("BILL");
    saveNew(QStringLiteral("1.0"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='1.0'")), 2);
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/BILL/1.0/Primary Map Source")));
}

TEST_P(VersionRecordsTest, SavingAnExistingVersionWritesPointersEmptiesAttributesAndRenamesTheFolder)
{
    const qint32 key = saveNew(QStringLiteral("1.0"));
    const qint32 login = addProcess(key, QStringLiteral("Login"));
    const qint32 main = addWindow(key, QStringLiteral("Main"));
    DB_ASSERT(
        conn.Execute(QStringLiteral("UPDATE tVersion SET sVersionAttributes='MoreLine=1', iVersionLoadProcess=77")));
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps/ORD/1.0/Primary Map Source/maps")));

    VersionInput input = versionInput(QStringLiteral("1.1"));
    input.links.loginProcess = login;
    input.links.mainWindow = main;
    const VersionSaveOutcome out = save(input, shownVersion(key, QStringLiteral("1.0")));
    ASSERT_TRUE(out.SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(out.state.CurrentVersionKey, key);

    Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(key), conn);
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionID")), QStringLiteral("1.1"));
    EXPECT_FALSE(rs.IsNull(QStringLiteral("sVersionAttributes")));
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionAttributes")), QString());
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionLoadProcess")), 0); // no selection
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionLoginProcess")), login);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionMainWindow")), main);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionInitialWindow")), 0);

    // Renamed with its content; the Windows platform repeats the seeding.
    EXPECT_EQ(foldersIn(QStringLiteral("Apps/ORD")), QStringList{QStringLiteral("1.1")});
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/ORD/1.1/Primary Map Source/maps")));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tObject WHERE iObjectVersionKey=") + QString::number(key)), 2);

    // Without an old folder to rename, the folders are created.
    ASSERT_TRUE(QDir(sharedPath() + QStringLiteral("/Apps/ORD/1.1")).removeRecursively());
    ASSERT_TRUE(save(versionInput(QStringLiteral("1.2")), shownVersion(key, QStringLiteral("1.1"))).SaveOk);
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/ORD/1.2/Secondary Map Source")));
}

TEST_P(VersionRecordsTest, FailureInsideTheTransactionRollsEverythingBack)
{
    const qint32 key = saveNew(QStringLiteral("1.0"));
    const qint32 windowsBefore = count(QStringLiteral("SELECT * FROM tWindow"));
    DB_ASSERT(
        conn.Execute(QStringLiteral("DELETE FROM tClass WHERE iClassPlatformKey=1 AND sClassPhysicalName='[System]'")));
    const QString expected = QStringLiteral("Error during Version save: Platform 1 has no \"[System]\" class.");

    const VersionSaveOutcome added = save(versionInput(QStringLiteral("2.0")), newVersion());
    EXPECT_FALSE(added.SaveOk);
    EXPECT_EQ(messages.shown, QStringList{expected});
    EXPECT_EQ(added.state.CurrentVersionKey, 0);
    EXPECT_FALSE(added.dirtyCleared);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion")), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow")), windowsBefore);
    EXPECT_FALSE(folderExists(QStringLiteral("Apps/ORD/2.0")));

    messages.shown.clear();
    VersionInput changed = versionInput(QStringLiteral("1.5"));
    changed.description = QStringLiteral("Changed");
    const VersionSaveOutcome edited = save(changed, shownVersion(key, QStringLiteral("1.0")));
    EXPECT_FALSE(edited.SaveOk);
    EXPECT_EQ(messages.shown, QStringList{expected});
    EXPECT_EQ(edited.state.CurrentVersionKey, key);
    Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(key), conn);
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionID")), QStringLiteral("1.0"));
    EXPECT_EQ(rs.Text(QStringLiteral("sVersionDesc")), QStringLiteral("First release"));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow")), windowsBefore);
    EXPECT_EQ(foldersIn(QStringLiteral("Apps/ORD")), QStringList{QStringLiteral("1.0")});

    // The connection is usable again afterwards.
    messages.shown.clear();
    app.AppIsHost = true;
    app.CurrentPlatformKey = kPlatform3270;
    EXPECT_TRUE(save(versionInput(QStringLiteral("3.0")), newVersion()).SaveOk)
        << messages.shown.join(u'\n').toStdString();
}

TEST_P(VersionRecordsTest, SaveAsMakesACopyThatOffersItsSourcesProcessesAndWindows)
{
    const qint32 source = saveNew(QStringLiteral("1.0"));
    const qint32 load = addProcess(source, QStringLiteral("Load"));
    addProcess(source, QStringLiteral("Report"), 2);
    const qint32 first = addWindow(source, QStringLiteral("First"));

    VersionInput input = versionInput(QStringLiteral("1.0"));
    input.links.loadProcess = load;
    input.links.initialWindow = first;

    // No key is excluded: the shown version's own ID is refused.
    const VersionSaveOutcome refused = saveAs(input, shownVersion(source, QStringLiteral("1.0")));
    EXPECT_FALSE(refused.SaveOk);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("1.0 already exists - please choose another ID")});
    EXPECT_EQ(refused.focusField, QStringLiteral("txtVersionID"));

    messages.shown.clear();
    input.id = QStringLiteral("1.0 copy");
    const VersionSaveOutcome out = saveAs(input, shownVersion(source, QStringLiteral("1.0")));
    ASSERT_TRUE(out.SaveOk) << messages.shown.join(u'\n').toStdString();
    const qint32 copy = out.state.CurrentVersionKey;
    EXPECT_NE(copy, source);
    EXPECT_EQ(out.state.VersionFolderName, QStringLiteral("1.0_copy"));
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/ORD/1.0_copy/Secondary Map Source")));
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tObject WHERE iObjectVersionKey=") + QString::number(copy)), 1);

    Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(copy), conn);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionSourceVersion")), source);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionLoadProcess")), load);
    EXPECT_EQ(rs.Int(QStringLiteral("iVersionInitialWindow")), first);
    EXPECT_EQ(rs.Int(QStringLiteral("bVersionActive")), -1);

    VersionRecords records(conn, messages, sharedPath());
    const auto opened = records.Open(copy);
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->processes, (ListEntries{{QStringLiteral("None"), 0}, {QStringLiteral("Load"), load}}));
    ASSERT_EQ(opened->windows.size(), 3); // None, the seeded system screen, First
    EXPECT_EQ(opened->windows[0], (ListEntry{QStringLiteral("None"), 0}));
    EXPECT_TRUE(opened->windows.contains(ListEntry{QStringLiteral("First"), first}));
    EXPECT_EQ(opened->links.loadProcess, load);
    EXPECT_EQ(opened->links.initialWindow, first);
    EXPECT_FALSE(opened->links.mainWindow);
}

TEST_P(VersionRecordsTest, SaveAsFailureKeepsTheRowWrittenBeforeIt)
{
    const qint32 source = saveNew(QStringLiteral("1.0"));
    DB_ASSERT(
        conn.Execute(QStringLiteral("DELETE FROM tClass WHERE iClassPlatformKey=1 AND sClassPhysicalName='[System]'")));
    const VersionSaveOutcome out
        = saveAs(versionInput(QStringLiteral("2.0")), shownVersion(source, QStringLiteral("1.0")));
    EXPECT_FALSE(out.SaveOk);
    EXPECT_EQ(messages.shown,
        QStringList{QStringLiteral("Error while saving version as : Platform 1 has no \"[System]\" class.")});
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='2.0'")), 1);
    EXPECT_FALSE(folderExists(QStringLiteral("Apps/ORD/2.0")));
}

TEST_P(VersionRecordsTest, OpenShowsFieldsAndOwnLists)
{
    const qint32 key = saveNew(QStringLiteral("1.0"));
    const qint32 state = addProcess(key, QStringLiteral("Start"));
    addProcess(key, QStringLiteral("Test case"), 0);
    addProcess(saveNew(QStringLiteral("2.0")), QStringLiteral("Elsewhere"));
    DB_ASSERT(conn.Execute(
        QStringLiteral("UPDATE tVersion SET iVersionLogoutProcess=%1 WHERE iVersionKey=%2").arg(state).arg(key)));

    VersionRecords records(conn, messages, sharedPath());
    const auto opened = records.Open(key);
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->id, QStringLiteral("1.0"));
    EXPECT_EQ(opened->description, QStringLiteral("First release"));
    EXPECT_EQ(opened->mapTypeKey, kWindowsMapType);
    EXPECT_EQ(opened->processes, (ListEntries{{QStringLiteral("None"), 0}, {QStringLiteral("Start"), state}}));
    EXPECT_EQ(opened->windows.size(), 2); // None and the system screen
    EXPECT_EQ(opened->links.logoutProcess, state);
    EXPECT_FALSE(opened->links.loadProcess);

    EXPECT_FALSE(records.Open(9999));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error while opening Version:Either BOF or EOF")))
        << messages.shown[0].toStdString();
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionRecordsTest, ::testing::ValuesIn(TestBackends()));
