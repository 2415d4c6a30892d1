// Mode choice and the order in which start-up opens its databases.

#include "repository/Connection.h"
#include "startup/Registry.h"
#include "startup/Startup.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <vector>

namespace dorvane {
namespace {

class StartupTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }
    void TearDown() override { SetSettingsFileOverride(QString()); }

    // Writes a settings file with the given value lines and makes it current.
    void settings(const QString& values)
    {
        const QString path = m_dir.filePath(QStringLiteral("zentrix.reg"));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("Windows Registry Editor Version 5.00\r\n\r\n"
                   "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n");
        file.write(values.toUtf8());
        file.close();
        SetSettingsFileOverride(path);
    }

    QString path(const QString& name) const { return m_dir.filePath(name); }

    void makeDatabase(const QString& relative)
    {
        const QString file = path(relative);
        QDir().mkpath(QFileInfo(file).path());
        Connection::CreateDatabaseFile(file);
    }

    QTemporaryDir m_dir;
};

TEST_F(StartupTest, TutorialModeBuildsItsPathsBelowTheInstallation)
{
    settings(QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n\"ExePath\"=\"/opt/z\"\r\n"
                            "\"IsLocalDatabase\"=dword:00000001\r\n\"SharedResourcePath\"=\"/elsewhere\"\r\n"));
    const StartupPlan plan = PlanStartup();
    EXPECT_EQ(plan.mode, RepositoryMode::Tutorial);
    EXPECT_EQ(plan.connectionString,
              QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/opt/z\\Tutorial\\Database\\Tutorial.mdb;"));
    EXPECT_EQ(plan.sharedResourcePath, QStringLiteral("/opt/z\\Tutorial"));
    EXPECT_EQ(plan.testDataPath, QStringLiteral("/opt/z\\Tutorial\\TestData.mdb"));
    EXPECT_EQ(plan.userDataPath, QStringLiteral("/opt/z\\Tutorial\\database\\UserData.mdb"));
    EXPECT_EQ(plan.installationPath, QStringLiteral("/opt/z"));
}

TEST_F(StartupTest, TutorialIsMatchedWithItsExactCase)
{
    settings(QStringLiteral("\"ActiveDB\"=\"tutorial\"\r\n\"ExePath\"=\"/opt/z\"\r\n"
                            "\"IsLocalDatabase\"=dword:00000001\r\n\"LocalDatabasePath\"=\"/db\"\r\n"
                            "\"LocalDatabaseName\"=\"Repo.mdb\"\r\n\"SharedResourcePath\"=\"/shared\"\r\n"));
    const StartupPlan plan = PlanStartup();
    EXPECT_EQ(plan.mode, RepositoryMode::Local);
    EXPECT_EQ(plan.connectionString, QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\\Repo.mdb;"));
    EXPECT_EQ(plan.sharedResourcePath, QStringLiteral("/shared"));
    EXPECT_EQ(plan.testDataPath, QStringLiteral("/shared\\testdata.mdb"));
    EXPECT_EQ(plan.userDataPath, QStringLiteral("/opt/z\\UserData.mdb"));
}

TEST_F(StartupTest, IsLocalDatabaseStoredAsTextMeansServer)
{
    settings(QStringLiteral("\"IsLocalDatabase\"=\"1\"\r\n\"ActiveDSN\"=\"zentrix;\"\r\n"));
    const StartupPlan plan = PlanStartup();
    EXPECT_EQ(plan.mode, RepositoryMode::Server);
    // A data source name with a semicolon of its own is passed on as it stands.
    EXPECT_EQ(plan.connectionString, QStringLiteral("PROVIDER=MSDASQL;DSN=zentrix;"));
}

TEST_F(StartupTest, NoSettingsAtAllGiveAnEmptyDataSource)
{
    SetSettingsFileOverride(path(QStringLiteral("absent.reg")));
    const StartupPlan plan = PlanStartup();
    EXPECT_EQ(plan.mode, RepositoryMode::Server);
    EXPECT_EQ(plan.connectionString, QStringLiteral("PROVIDER=MSDASQL;DSN="));
    EXPECT_EQ(plan.testDataPath, QStringLiteral("\\testdata.mdb"));
    EXPECT_EQ(plan.userDataPath, QStringLiteral("\\UserData.mdb"));

    Session session;
    EXPECT_THROW(session.Open(plan), DbError);
}

TEST_F(StartupTest, TutorialOpensUserDataBeforeTestData)
{
    settings(QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n\"ExePath\"=\"") + m_dir.path() + QStringLiteral("\"\r\n"));
    makeDatabase(QStringLiteral("Tutorial/Database/Tutorial.mdb"));
    // Neither side database exists: the first one opened is the one named.
    Session session;
    try {
        session.Open(PlanStartup());
        FAIL() << "opened without side databases";
    } catch (const DbError& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("UserData.mdb"))) << e.description().toStdString();
    }
    session.Close();

    // The lower-case "database" folder of the user data path is the same
    // folder as "Database".
    makeDatabase(QStringLiteral("Tutorial/Database/UserData.mdb"));
    try {
        session.Open(PlanStartup());
        FAIL() << "opened without the test data database";
    } catch (const DbError& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("TestData.mdb"))) << e.description().toStdString();
    }
    session.Close();

    makeDatabase(QStringLiteral("Tutorial/TestData.mdb"));
    EXPECT_NO_THROW(session.Open(PlanStartup()));
    EXPECT_TRUE(session.repository.IsOpen());
    EXPECT_TRUE(session.testData.IsOpen());
    EXPECT_TRUE(session.userData.IsOpen());
    session.Close();
    EXPECT_FALSE(session.repository.IsOpen());
    EXPECT_FALSE(session.testData.IsOpen());
    EXPECT_FALSE(session.userData.IsOpen());
}

TEST_F(StartupTest, LocalOpensTestDataBeforeUserData)
{
    settings(QStringLiteral("\"IsLocalDatabase\"=dword:00000001\r\n\"LocalDatabasePath\"=\"") + m_dir.path() +
             QStringLiteral("\"\r\n\"LocalDatabaseName\"=\"repo.mdb\"\r\n\"SharedResourcePath\"=\"") + m_dir.path() +
             QStringLiteral("/shared\"\r\n\"ExePath\"=\"") + m_dir.path() + QStringLiteral("/exe\"\r\n"));
    makeDatabase(QStringLiteral("repo.mdb"));
    Session session;
    try {
        session.Open(PlanStartup());
        FAIL() << "opened without side databases";
    } catch (const DbError& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("testdata.mdb"))) << e.description().toStdString();
    }
    session.Close();

    // File names match case-insensitively, as on the suite's home platform.
    makeDatabase(QStringLiteral("shared/TESTDATA.MDB"));
    try {
        session.Open(PlanStartup());
        FAIL() << "opened without the user data database";
    } catch (const DbError& e) {
        EXPECT_TRUE(e.description().contains(QStringLiteral("UserData.mdb"))) << e.description().toStdString();
    }
    session.Close();
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("exe/UserData.mdb")))) << "a missing database was created";
}

// A settings file that cannot be used stops start-up with its own message,
// before any database is opened: not "Data source name not found".
TEST_F(StartupTest, AnUnusableSettingsFileStopsStartUpNamingIt)
{
    for (const QByteArray& content : {QByteArray(), QByteArray("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n")}) {
        const QString file = path(QStringLiteral("broken.reg"));
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(content);
        out.close();
        for (const QString& named : {file, path(QStringLiteral("absent.reg"))}) {
            SetSettingsFileOverride(named);
            const StartupPlan plan = PlanStartup();
            EXPECT_TRUE(plan.settingsProblem.contains(named)) << plan.settingsProblem.toStdString();
            Session session;
            try {
                session.Open(plan);
                ADD_FAILURE() << "opened without settings";
            } catch (const DbError& e) {
                EXPECT_EQ(e.description(), plan.settingsProblem);
            }
            EXPECT_FALSE(session.repository.IsOpen());
        }
    }
    settings(QStringLiteral("\"ActiveDSN\"=\"zentrix\"\r\n"));
    EXPECT_EQ(PlanStartup().settingsProblem, QString());
}

// What the window's title and status bar show of the chosen repository:
// never the connection string's other settings.
TEST_F(StartupTest, TheRepositoryIsNamedAsAPersonKnowsIt)
{
    makeDatabase(QStringLiteral("Tutorial/Database/Tutorial.mdb"));
    struct Case {
        const char* name;
        QString values;
        QString location;
        QString title;
    };
    const std::vector<Case> cases = {
        {"tutorial file, as a native path",
         QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n\"ExePath\"=\"%1\"\r\n").arg(m_dir.path()),
         path(QStringLiteral("Tutorial/Database/Tutorial.mdb")), QStringLiteral("Tutorial.mdb")},
        {"local file", QStringLiteral("\"IsLocalDatabase\"=dword:00000001\r\n\"LocalDatabasePath\"=\"/srv/db\"\r\n"
                                      "\"LocalDatabaseName\"=\"Zentrix.mdb\"\r\n"),
         QStringLiteral("/srv/db/Zentrix.mdb"), QStringLiteral("Zentrix.mdb")},
        {"data source with a password", QStringLiteral("\"ActiveDSN\"=\"zentrix;UID=admin;PWD=secret\"\r\n"),
         QStringLiteral("zentrix"), QStringLiteral("zentrix")},
        {"no data source", QString(), QString(), QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        settings(c.values);
        const StartupPlan plan = PlanStartup();
        EXPECT_EQ(RepositoryLocation(plan), c.location);
        EXPECT_EQ(RepositoryTitle(plan), c.title);
    }
}

} // namespace
} // namespace dorvane
