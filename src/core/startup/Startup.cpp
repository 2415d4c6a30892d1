#include "core/startup/Startup.h"

#include "core/repository/FilePaths.h"
#include "core/repository/SchemaDdl.h"
#include "core/startup/Registry.h"

#include <QFileInfo>

namespace dorvane {

QString ModeName(RepositoryMode mode)
{
    switch (mode) {
    case RepositoryMode::Tutorial: return QStringLiteral("Tutorial");
    case RepositoryMode::Local: return QStringLiteral("Local");
    case RepositoryMode::Server: break;
    }
    return QStringLiteral("Server");
}

StartupPlan PlanStartup()
{
    const qint32 isLocal = SettingDword(QStringLiteral("IsLocalDatabase"));
    const QString activeDb = SettingString(QStringLiteral("ActiveDB"));

    StartupPlan plan;
    if (activeDb == QLatin1String("Tutorial")) {
        // The tutorial keeps its side databases below the installation
        // folder; the letter case of the file names is the suite's own.
        plan.mode = RepositoryMode::Tutorial;
        const QString exePath = SettingString(QStringLiteral("ExePath"));
        plan.connectionString = FileConnectionString(exePath + QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb"));
        plan.sharedResourcePath = exePath + QStringLiteral("\\Tutorial");
        plan.userDataPath = plan.sharedResourcePath + QStringLiteral("\\database\\UserData.mdb");
        plan.testDataPath = plan.sharedResourcePath + QStringLiteral("\\TestData.mdb");
    } else {
        if (isLocal != 0) {
            plan.mode = RepositoryMode::Local;
            plan.connectionString = FileConnectionString(SettingString(QStringLiteral("LocalDatabasePath")) + QStringLiteral("\\") +
                                                         SettingString(QStringLiteral("LocalDatabaseName")));
        } else {
            plan.mode = RepositoryMode::Server;
            plan.connectionString = QStringLiteral("PROVIDER=MSDASQL;DSN=") + SettingString(QStringLiteral("ActiveDSN"));
        }
        plan.sharedResourcePath = SettingString(QStringLiteral("SharedResourcePath"));
        plan.testDataPath = plan.sharedResourcePath + QStringLiteral("\\testdata.mdb");
        plan.userDataPath = SettingString(QStringLiteral("ExePath")) + QStringLiteral("\\UserData.mdb");
    }
    plan.installationPath = SettingString(QStringLiteral("ExePath"));
    plan.settingsProblem = SettingsFileProblem().value_or(QString());
    return plan;
}

QString RepositoryLocation(const StartupPlan& plan)
{
    const DataSource source = ConnectionDataSource(plan.connectionString);
    return source.isFile && !source.name.isEmpty() ? NativePath(source.name) : source.name;
}

QString RepositoryTitle(const StartupPlan& plan)
{
    const DataSource source = ConnectionDataSource(plan.connectionString);
    return source.isFile ? QFileInfo(RepositoryLocation(plan)).fileName() : source.name;
}

void Session::Open(const StartupPlan& startupPlan)
{
    plan = startupPlan;
    if (!plan.settingsProblem.isEmpty())
        throw DbError(plan.settingsProblem);
    repository.Open(plan.connectionString);
    if (ExistingRepositoryTables(repository).isEmpty()) {
        const DataSource source = ConnectionDataSource(plan.connectionString);
        throw DbError(source.isFile
                          ? QStringLiteral("The file %1 holds no repository tables: it is not a Zentrix repository "
                                           "(\"dorvanectl create-repository FILE\" makes a new one).")
                                .arg(source.name)
                          : QStringLiteral("The data source %1 holds no repository tables: create them with "
                                           "\"dorvanectl create-repository --dsn %1\".")
                                .arg(source.name));
    }
    if (plan.mode == RepositoryMode::Tutorial) {
        userData.OpenFile(plan.userDataPath);
        testData.OpenFile(plan.testDataPath);
    } else {
        testData.OpenFile(plan.testDataPath);
        userData.OpenFile(plan.userDataPath);
    }
}

void Session::Close()
{
    testData.Close();
    repository.Close();
    userData.Close();
}

} // namespace dorvane
