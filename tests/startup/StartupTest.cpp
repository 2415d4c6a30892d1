// Mode choice and the order in which start-up opens its databases.

#include "repository/Connection.h"
#include "startup/Registry.h"
#include "startup/Startup.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace dorvane {
namespace {

using namespace Qt::StringLiterals;

class StartupTest : public ::testing::Test {
protected:
    void TearDown() override { SetSettingsFileOverride(QString()); }

    QString path(const QString& name) const { return m_dir.filePath(name); }

    // Makes a settings file of the value lines (<D> the temporary folder) current.
    void settings(const QStringList& values)
    {
        QFile file(path(u"zentrix.reg"_s));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write((u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"_s +
                    values.join(u"\r\n"_s).replace(u"<D>"_s, m_dir.path()) + u"\r\n"_s).toUtf8());
        SetSettingsFileOverride(file.fileName());
    }

    void makeDatabase(const QString& relative)
    {
        QDir().mkpath(QFileInfo(path(relative)).path());
        Connection::CreateDatabaseFile(path(relative));
    }

    // Opening fails naming `database`, or succeeds when it is empty.
    void expectOpen(Session& session, const QString& database)
    {
        try {
            session.Open(PlanStartup());
            EXPECT_EQ(database, QString()) << "opened without it";
        } catch (const DbError& e) {
            EXPECT_TRUE(!database.isEmpty() && e.description().contains(database)) << e.description().toStdString();
        }
    }

    QTemporaryDir m_dir;
};

// The plan for the settings: mode, connection, shared resources, test and
// user data, installation, and the repository as the window names it.
TEST_F(StartupTest, TheSettingsChooseTheMode)
{
    makeDatabase(u"Tutorial/Database/Tutorial.mdb"_s);
    struct Case {
        const char* name;
        QStringList values;
        QStringList plan;
    };
    const std::vector<Case> cases = {
        {"tutorial, before a local database",
         {uR"("ActiveDB"="Tutorial")"_s, uR"("ExePath"="<D>")"_s, u"\"IsLocalDatabase\"=dword:00000001"_s, uR"("SharedResourcePath"="/x")"_s},
         {u"Tutorial"_s, uR"(PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=<D>\Tutorial\Database\Tutorial.mdb;)"_s, uR"(<D>\Tutorial)"_s,
          uR"(<D>\Tutorial\TestData.mdb)"_s, uR"(<D>\Tutorial\database\UserData.mdb)"_s, u"<D>"_s, u"<D>/Tutorial/Database/Tutorial.mdb"_s,
          u"Tutorial.mdb"_s}},
        {"tutorial in another case is local",
         {uR"("ActiveDB"="tutorial")"_s, uR"("ExePath"="/opt/z")"_s, u"\"IsLocalDatabase\"=dword:00000001"_s,
          uR"("LocalDatabasePath"="/srv/db")"_s, uR"("LocalDatabaseName"="Zentrix.mdb")"_s, uR"("SharedResourcePath"="/shared")"_s},
         {u"Local"_s, uR"(PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/srv/db\Zentrix.mdb;)"_s, u"/shared"_s,
          uR"(/shared\testdata.mdb)"_s, uR"(/opt/z\UserData.mdb)"_s, u"/opt/z"_s, u"/srv/db/Zentrix.mdb"_s, u"Zentrix.mdb"_s}},
        // A data source with settings of its own is passed on as it stands,
        // and named without them.
        {"IsLocalDatabase as text means a server",
         {uR"("IsLocalDatabase"="1")"_s, uR"("ActiveDSN"="zentrix;UID=admin;PWD=secret")"_s},
         {u"Server"_s, u"PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=secret"_s, QString(), uR"(\testdata.mdb)"_s,
          uR"(\UserData.mdb)"_s, QString(), u"zentrix"_s, u"zentrix"_s}},
        {"no settings at all", {},
         {u"Server"_s, u"PROVIDER=MSDASQL;DSN="_s, QString(), uR"(\testdata.mdb)"_s, uR"(\UserData.mdb)"_s, QString(), QString(), QString()}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        settings(c.values);
        const StartupPlan plan = PlanStartup();
        QStringList want;
        for (const QString& value : c.plan)
            want << QString(value).replace(u"<D>"_s, m_dir.path());
        EXPECT_EQ((QStringList{ModeName(plan.mode), plan.connectionString, plan.sharedResourcePath, plan.testDataPath,
                               plan.userDataPath, plan.installationPath, RepositoryLocation(plan), RepositoryTitle(plan)}),
                  want);
    }
}

// Tutorial opens user data before test data, the other modes test data
// first; file and folder names match in any case, and a missing database is
// never created.
TEST_F(StartupTest, DatabasesOpenInTheModesOrder)
{
    settings({uR"("ActiveDB"="Tutorial")"_s, uR"("ExePath"="<D>")"_s});
    makeDatabase(u"Tutorial/Database/Tutorial.mdb"_s);
    Session session;
    expectOpen(session, u"UserData.mdb"_s);
    session.Close();
    makeDatabase(u"Tutorial/Database/UserData.mdb"_s);
    expectOpen(session, u"TestData.mdb"_s);
    session.Close();
    makeDatabase(u"Tutorial/TestData.mdb"_s);
    expectOpen(session, QString());
    EXPECT_TRUE(session.repository.IsOpen() && session.testData.IsOpen() && session.userData.IsOpen());
    session.Close();
    EXPECT_FALSE(session.repository.IsOpen() || session.testData.IsOpen() || session.userData.IsOpen());

    settings({u"\"IsLocalDatabase\"=dword:00000001"_s, uR"("LocalDatabasePath"="<D>")"_s, uR"("LocalDatabaseName"="repo.mdb")"_s,
              uR"("SharedResourcePath"="<D>/shared")"_s, uR"("ExePath"="<D>/exe")"_s});
    makeDatabase(u"repo.mdb"_s);
    expectOpen(session, u"testdata.mdb"_s);
    session.Close();
    makeDatabase(u"shared/TESTDATA.MDB"_s);
    expectOpen(session, u"UserData.mdb"_s);
    session.Close();
    EXPECT_FALSE(QFile::exists(path(u"exe/UserData.mdb"_s)));
}

// A settings file that cannot be used stops start-up with its own message,
// before any database is opened: not "Data source name not found".
TEST_F(StartupTest, AnUnusableSettingsFileStopsStartUpNamingIt)
{
    for (const QByteArray& content : {QByteArray(), QByteArray("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n")}) {
        QFile out(path(u"broken.reg"_s));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(content);
        out.close();
        for (const QString& named : {out.fileName(), path(u"absent.reg"_s)}) {
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
    settings({uR"("ActiveDSN"="zentrix")"_s});
    EXPECT_EQ(PlanStartup().settingsProblem, QString());
}

} // namespace
} // namespace dorvane
