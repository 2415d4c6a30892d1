#include "applications/ApplicationRecords.h"

#include "applications/AppTestFixture.h"

using namespace dorvane;
using namespace dorvane::test;

namespace {

ApplicationInput windowsApp(const QString& name, const QString& id)
{
    ApplicationInput input;
    input.name = name;
    input.id = id;
    input.description = QStringLiteral("Order entry");
    input.environ = QStringLiteral("Needs a printer");
    input.platformKey = kPlatformWindows;
    return input;
}

ApplicationState newApp() { return {}; }

ApplicationState shown(qint32 key, const QString& folder)
{
    ApplicationState state;
    state.CurrentAppKey = key;
    state.AppIsNew = false;
    state.AppFolderName = folder;
    return state;
}

} // namespace

class ApplicationRecordsTest : public AppRepositoryTest {
protected:
    ApplicationSaveOutcome save(const ApplicationInput& input, const ApplicationState& state)
    {
        ApplicationRecords records(conn, messages, sharedPath());
        return records.Save(input, state);
    }

    // Saves a new application and expects it to succeed.
    ApplicationSaveOutcome saveNew(const ApplicationInput& input)
    {
        const ApplicationSaveOutcome out = save(input, newApp());
        EXPECT_TRUE(out.SaveOk) << messages.shown.join(u'\n').toStdString();
        return out;
    }
};

// Each check refused alone, in order: message, field to focus, the
// definition page, and nothing written.
struct RefusalCase {
    const char* label;
    void (*change)(ApplicationInput&);
    const char* message;
    const char* focus;
};

TEST_P(ApplicationRecordsTest, EachCheckRefusesAloneWithItsMessageAndField)
{
    DB_ASSERT(addApp(QStringLiteral("Billing"), QStringLiteral("BILL_1_0"), kPlatformWindows));
    const std::vector<RefusalCase> cases = {
        {"blank name", [](ApplicationInput& in) { in.name.clear(); }, "Application Name cannot be blank", "txtAppName"},
        {"blank ID", [](ApplicationInput& in) { in.id.clear(); }, "You must specify an ID for this application.",
            "txtAppID"},
        {"no platform", [](ApplicationInput& in) { in.platformKey.reset(); },
            "You must select a valid platform type for this application.", "cbPlatform"},
        {"same name", [](ApplicationInput& in) { in.name = QStringLiteral("billing"); },
            "billing already exists - please choose another Name", "txtAppName"},
        {"same normalised ID", [](ApplicationInput& in) { in.id = QStringLiteral("BILL 1-0"); },
            "BILL 1-0 already exists - please choose another ID", "txtAppID"},
        {"host without emulator", [](ApplicationInput& in) { in.platformKey = kPlatform3270; },
            "You must select a supported emulator for a host-based platform", "cbEmulator"},
    };
    for (const RefusalCase& c : cases) {
        SCOPED_TRACE(c.label);
        messages.shown.clear();
        ApplicationInput input = windowsApp(QStringLiteral("Orders"), QStringLiteral("ORD"));
        c.change(input);
        const ApplicationSaveOutcome out = save(input, newApp());
        EXPECT_FALSE(out.SaveOk);
        EXPECT_EQ(messages.shown, QStringList{QString::fromUtf8(c.message)});
        EXPECT_EQ(out.focusField, QString::fromLatin1(c.focus));
        EXPECT_EQ(out.mainTab, 2);
        EXPECT_EQ(out.appTab, 0);
        EXPECT_FALSE(out.dirtyCleared);
        EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp")), 1);
        EXPECT_FALSE(folderExists(QStringLiteral("Apps")));
    }
}

TEST_P(ApplicationRecordsTest, NewApplicationIsStoredNormalisedWithBlanksAndFolder)
{
    ApplicationInput input = windowsApp(QStringLiteral("Quality"), QStringLiteral("Q/A 1.0"));
    input.description.clear();
    input.environ.clear();
    input.emulatorKey = 2; // a leftover selection whose text was cleared
    const ApplicationSaveOutcome out = saveNew(input);

    EXPECT_EQ(Rows(conn, QStringLiteral("SELECT iAppKey, sAppID, sAppDesc, mAppEnviron, iAppPlatform, iApp3270Key FROM tApp "
                                        "WHERE sAppName='Quality'")),
              QStringList{QStringLiteral("%1|Q_A_1_0| | |%2|0").arg(out.state.CurrentAppKey).arg(kPlatformWindows)});
    EXPECT_EQ(out.state.AppFolderName, QStringLiteral("Q_A_1_0"));
    EXPECT_FALSE(out.state.AppIsHost);
    EXPECT_FALSE(out.state.AppIsNew);
    EXPECT_TRUE(out.dirtyCleared);
    EXPECT_EQ(out.appTab, 1);
    EXPECT_EQ(out.focusField, QStringLiteral("txtVersionID"));
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_EQ(foldersIn(QStringLiteral("Apps")), QStringList{QStringLiteral("Q_A_1_0")});
}

TEST_P(ApplicationRecordsTest, HostApplicationStoresItsEmulator)
{
    ApplicationInput input = windowsApp(QStringLiteral("Mainframe ledger"), QStringLiteral("LEDGER"));
    input.platformKey = kPlatform3270;
    input.emulatorKey = 2;
    input.emulatorText = QStringLiteral("Attachmate EXTRA!");
    const ApplicationSaveOutcome out = saveNew(input);
    EXPECT_TRUE(out.state.AppIsHost);
    EXPECT_EQ(out.state.CurrentPlatformKey, kPlatform3270);
    EXPECT_EQ(Rows(conn, QStringLiteral("SELECT iApp3270Key FROM tApp WHERE iAppKey=%1").arg(out.state.CurrentAppKey)),
              QStringList{QStringLiteral("2")});

    ApplicationRecords records(conn, messages, sharedPath());
    const auto opened = records.Open(out.state.CurrentAppKey);
    ASSERT_TRUE(opened);
    EXPECT_TRUE(opened->AppIsHost);
    EXPECT_EQ(opened->emulatorKey, 2);
}

// Application IDs turn "." and "-" into "_" alike (unlike version IDs), so
// 1.0 and 1-0 are the same application ID.
TEST_P(ApplicationRecordsTest, NormalisedIdsCollide)
{
    EXPECT_EQ(NormaliseAppId(QStringLiteral("Q/A 1.0")), QStringLiteral("Q_A_1_0"));
    EXPECT_EQ(NormaliseAppId(QStringLiteral("a!b?c[d]e:f*g\"h-i")), QStringLiteral("a_b_c_d_e_f_g_h_i"));
    EXPECT_EQ(NormaliseAppId(QStringLiteral("O'Neil")), QStringLiteral("O'Neil"));

    const struct {
        const char* stored;
        const char* typed;
        bool collides;
    } cases[] = {
        {"1 0", "1_0", true},
        {"1.0", "1-0", true},
        {"A B", "A_B", true},
        {"1.0", "10", false},
        {"O'Neil", "O'Neil", true},
        {"O'Neil", "O Neil", false},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed);
        messages.shown.clear();
        const QString suffix = QString::number(++n);
        const ApplicationSaveOutcome first
            = saveNew(windowsApp(QStringLiteral("First ") + suffix, QString::fromUtf8(c.stored) + suffix));
        const ApplicationSaveOutcome second
            = save(windowsApp(QStringLiteral("Second ") + suffix, QString::fromUtf8(c.typed) + suffix), newApp());
        EXPECT_EQ(second.SaveOk, !c.collides);
        if (c.collides) {
            EXPECT_EQ(messages.shown,
                QStringList{QString::fromUtf8(c.typed) + suffix
                    + QStringLiteral(" already exists - please choose another ID")});
        }
        ASSERT_TRUE(first.SaveOk);
    }
}

TEST_P(ApplicationRecordsTest, NameWithQuoteIsFoundByTheUniquenessCheck)
{
    const ApplicationSaveOutcome first = saveNew(windowsApp(QStringLiteral("O'Neil's app"), QStringLiteral("ONEIL")));
    const ApplicationSaveOutcome second
        = save(windowsApp(QStringLiteral("O'Neil's app"), QStringLiteral("OTHER")), newApp());
    EXPECT_FALSE(second.SaveOk);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("O'Neil's app already exists - please choose another Name")});

    // Its own row does not count against it.
    messages.shown.clear();
    const ApplicationSaveOutcome again = save(windowsApp(QStringLiteral("O'Neil's app"), QStringLiteral("ONEIL")),
        shown(first.state.CurrentAppKey, QStringLiteral("ONEIL")));
    EXPECT_TRUE(again.SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(again.state.CurrentAppKey, first.state.CurrentAppKey);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp")), 1);
}

TEST_P(ApplicationRecordsTest, ChangingTheIdRenamesTheFolderAndTheNameAloneDoesNot)
{
    const ApplicationSaveOutcome first = saveNew(windowsApp(QStringLiteral("Orders"), QStringLiteral("ord")));
    const qint32 key = first.state.CurrentAppKey;
    ASSERT_TRUE(QDir().mkpath(sharedPath() + QStringLiteral("/Apps/ord/1.0")));

    ASSERT_TRUE(
        save(windowsApp(QStringLiteral("Order entry"), QStringLiteral("ord")), shown(key, QStringLiteral("ord")))
            .SaveOk);
    EXPECT_EQ(foldersIn(QStringLiteral("Apps")), QStringList{QStringLiteral("ord")});

    // A change of letter case alone is a change of ID.
    const ApplicationSaveOutcome upper
        = save(windowsApp(QStringLiteral("Order entry"), QStringLiteral("ORD")), shown(key, QStringLiteral("ord")));
    ASSERT_TRUE(upper.SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(foldersIn(QStringLiteral("Apps")), QStringList{QStringLiteral("ORD")});

    const ApplicationSaveOutcome renamed
        = save(windowsApp(QStringLiteral("Order entry"), QStringLiteral("ORD 2")), shown(key, QStringLiteral("ORD")));
    ASSERT_TRUE(renamed.SaveOk) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(renamed.state.AppFolderName, QStringLiteral("ORD_2"));
    EXPECT_EQ(renamed.state.CurrentAppKey, key);
    EXPECT_EQ(foldersIn(QStringLiteral("Apps")), QStringList{QStringLiteral("ORD_2")});
    EXPECT_TRUE(folderExists(QStringLiteral("Apps/ORD_2/1.0")));
}

TEST_P(ApplicationRecordsTest, FailedFolderRenameIsReportedAfterTheRowIsSaved)
{
    const qint32 key = addApp(QStringLiteral("Orders"), QStringLiteral("ORD"), kPlatformWindows);
    const ApplicationSaveOutcome out
        = save(windowsApp(QStringLiteral("Orders"), QStringLiteral("NEW")), shown(key, QStringLiteral("ORD")));
    EXPECT_FALSE(out.SaveOk);
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error during app save: File not found: ")))
        << messages.shown[0].toStdString();
    EXPECT_TRUE(out.dirtyCleared);
    EXPECT_EQ(out.state.CurrentAppKey, key);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE sAppID='NEW'")), 1);
    EXPECT_TRUE(folderExists(QStringLiteral("Apps")));
}

TEST_P(ApplicationRecordsTest, DatabaseErrorIsShownWithThePrefix)
{
    // A name too long for a quoted literal fails inside the save.
    const ApplicationSaveOutcome out = save(windowsApp(QString(40000, u'x'), QStringLiteral("LONG")), newApp());
    EXPECT_FALSE(out.SaveOk);
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Error during app save: Overflow")});
    EXPECT_TRUE(out.focusField.isEmpty());
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp")), 0);
}

TEST_P(ApplicationRecordsTest, OpenShowsTheStoredFields)
{
    ApplicationRecords records(conn, messages, sharedPath());
    const ApplicationSaveOutcome saved = saveNew(windowsApp(QStringLiteral("Orders"), QStringLiteral("ORD 1")));
    const auto opened = records.Open(saved.state.CurrentAppKey);
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->name, QStringLiteral("Orders"));
    EXPECT_EQ(opened->id, QStringLiteral("ORD_1"));
    EXPECT_EQ(opened->AppFolderName, QStringLiteral("ORD_1"));
    EXPECT_EQ(opened->description, QStringLiteral("Order entry"));
    EXPECT_EQ(opened->environ, QStringLiteral("Needs a printer"));
    EXPECT_EQ(opened->platformKey, kPlatformWindows);
    EXPECT_FALSE(opened->AppIsHost);

    // A stored emulator of a non-host application is not shown.
    const auto stray = records.Open(addApp(QStringLiteral("Stray"), QStringLiteral("STRAY"), kPlatformWeb, 3));
    ASSERT_TRUE(stray);
    EXPECT_EQ(stray->emulatorKey, 0);

    // A Null platform is no error: there is simply no platform key.
    DB_ASSERT(conn.Execute(
        QStringLiteral("INSERT INTO tApp (sAppName, sAppID, iAppPlatform) VALUES ('Legacy', 'LEG', NULL)")));
    Recordset legacy(QStringLiteral("SELECT * FROM tApp WHERE sAppID='LEG'"), conn);
    const auto noPlatform = records.Open(legacy.Int(QStringLiteral("iAppKey")));
    ASSERT_TRUE(noPlatform);
    EXPECT_FALSE(noPlatform->platformKey);
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(ApplicationRecordsTest, OpeningAMissingApplicationShowsTheError)
{
    ApplicationRecords records(conn, messages, sharedPath());
    EXPECT_FALSE(records.Open(999));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown[0].startsWith(QStringLiteral("Error while opening application:Either BOF or EOF")))
        << messages.shown[0].toStdString();
}

INSTANTIATE_TEST_SUITE_P(Backends, ApplicationRecordsTest, ::testing::ValuesIn(TestBackends()));
