// Mode choice and the order in which start-up opens its databases.

#include "core/startup/Registry.h"
#include "core/startup/Startup.h"
#include "support/TestSupport.h"

#include <QFile>

namespace dorvane {
namespace {

using namespace Qt::StringLiterals;

class StartupTest : public ::testing::Test {
protected:
    void TearDown() override { SetSettingsFileOverride(QString()); }

    QString path(const QString& name) const { return m_dir.filePath(name); }

    // Makes a settings file of the value lines ('|' between, <D> the
    // temporary folder) current.
    void settings(const QString& values) { test::WriteSettings(path(u"zentrix.reg"_s), fill(values)); SetSettingsFileOverride(path(u"zentrix.reg"_s)); }

    QString fill(QString text) const { return text.replace(u"<D>"_s, m_dir.path()); }

    void makeDatabase(const QString& name) { test::MakeDatabaseFile(path(name)); }

    QTemporaryDir m_dir;
};

// The plan for the settings: mode, connection, shared resources, test and
// user data, installation, and the repository as the window names it.
TEST_F(StartupTest, TheSettingsChooseTheMode)
{
    makeDatabase(u"Tutorial/Database/Tutorial.mdb"_s);
    const std::vector<std::pair<QString, QString>> cases = {
        // Tutorial before a local database.
        {uR"("ActiveDB"="Tutorial"|"ExePath"="<D>"|"IsLocalDatabase"=dword:00000001|"SharedResourcePath"="/x")"_s,
         uR"(Tutorial|PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=<D>\Tutorial\Database\Tutorial.mdb;|<D>\Tutorial|<D>\Tutorial\TestData.mdb|<D>\Tutorial\database\UserData.mdb|<D>|<D>/Tutorial/Database/Tutorial.mdb|Tutorial.mdb)"_s},
        // Tutorial in another case is a local repository.
        {uR"("ActiveDB"="tutorial"|"ExePath"="/z"|"IsLocalDatabase"=dword:00000001|"LocalDatabasePath"="/db"|"LocalDatabaseName"="Z.mdb"|"SharedResourcePath"="/s")"_s,
         uR"(Local|PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=/db\Z.mdb;|/s|/s\testdata.mdb|/z\UserData.mdb|/z|/db/Z.mdb|Z.mdb)"_s},
        // IsLocalDatabase as text means a server; a data source with settings
        // of its own is passed on as it stands, and named without them.
        {uR"("IsLocalDatabase"="1"|"ActiveDSN"="zentrix;UID=admin;PWD=secret")"_s,
         uR"(Server|PROVIDER=MSDASQL;DSN=zentrix;UID=admin;PWD=secret||\testdata.mdb|\UserData.mdb||zentrix|zentrix)"_s},
        {QString(), uR"(Server|PROVIDER=MSDASQL;DSN=||\testdata.mdb|\UserData.mdb|||)"_s},
    };
    for (const auto& [values, want] : cases) {
        settings(values);
        const StartupPlan p = PlanStartup();
        EXPECT_EQ((QStringList{ModeName(p.mode), p.connectionString, p.sharedResourcePath, p.testDataPath, p.userDataPath,
                               p.installationPath, RepositoryLocation(p), RepositoryTitle(p)}).join(u'|'), fill(want));
    }
}

// Tutorial opens user data before test data, the other modes test data
// first; file and folder names match in any case, and a missing database is
// never created.
TEST_F(StartupTest, DatabasesOpenInTheModesOrder)
{
    Session session;
    // Makes the database, then opens what the settings name.
    const auto step = [&](const QString& database, const QString& says) {
        session.Close();
        makeDatabase(database);
        EXPECT_TRUE(test::descriptionOf([&] { session.Open(PlanStartup()); }).contains(says)) << says.toStdString();
    };
    // A database without the repository's tables is no repository.
    const auto addTables = [&](const QString& database) {
        Connection repository;
        repository.OpenFile(path(database));
        BuildDatabase(repository, SchemaVariant::Repository, RepositoryContent::Empty);
    };
    settings(uR"("ActiveDB"="Tutorial"|"ExePath"="<D>")"_s);
    step(u"Tutorial/Database/Tutorial.mdb"_s, u"Tutorial.mdb holds no repository tables: it is not a Zentrix repository"_s);
    addTables(u"Tutorial/Database/Tutorial.mdb"_s);
    session.Close();
    EXPECT_TRUE(test::descriptionOf([&] { session.Open(PlanStartup()); }).contains(u"UserData.mdb"_s));
    step(u"Tutorial/Database/UserData.mdb"_s, u"TestData.mdb"_s); // the same folder as "database"
    step(u"Tutorial/TestData.mdb"_s, u"<no error>"_s);

    settings(uR"("IsLocalDatabase"=dword:00000001|"LocalDatabasePath"="<D>"|"LocalDatabaseName"="repo.mdb"|"SharedResourcePath"="<D>/shared"|"ExePath"="<D>/exe")"_s);
    makeDatabase(u"repo.mdb"_s);
    addTables(u"repo.mdb"_s);
    step(u"shared/unused.mdb"_s, u"testdata.mdb"_s);
    step(u"shared/TESTDATA.MDB"_s, u"UserData.mdb"_s);
    EXPECT_FALSE(QFile::exists(path(u"exe/UserData.mdb"_s)));
}

} // namespace
} // namespace dorvane
