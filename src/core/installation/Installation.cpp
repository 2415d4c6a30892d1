#include "core/installation/Installation.h"

#include "core/installation/DataFiles.h"
#include "core/repository/FilePaths.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <QDir>
#include <QFileInfo>

namespace dorvane {

namespace {

// Creates SQLite files and removes them again unless the whole set-up
// succeeded.
class CreatedFiles {
public:
    CreatedFiles() = default;
    CreatedFiles(const CreatedFiles&) = delete;
    CreatedFiles& operator=(const CreatedFiles&) = delete;
    ~CreatedFiles()
    {
        if (!m_kept) {
            for (const QString& path : m_paths)
                Connection::RemoveDatabaseFile(path);
        }
    }

    void CreateDatabase(const QString& nativePath, SchemaVariant variant, RepositoryContent content)
    {
        Connection::CreateDatabaseFile(nativePath);
        m_paths << nativePath;
        Connection connection;
        connection.OpenFile(nativePath);
        BuildDatabase(connection, variant, content);
        connection.Close();
    }

    void CreateEmptyFile(const QString& nativePath)
    {
        Connection::CreateDatabaseFile(nativePath);
        m_paths << nativePath;
    }

    void Keep() { m_kept = true; }

private:
    QStringList m_paths;
    bool m_kept = false;
};

bool MakeFolder(const QString& windowsPath, QString& error)
{
    const QString native = NativePath(windowsPath);
    if (QFileInfo(native).isDir() || QDir().mkpath(native))
        return true;
    error = QStringLiteral("Could not create the folder %1.").arg(native);
    return false;
}

// The absolute form of a folder named on the command line, so that the
// paths built from it do not depend on the current directory later.
QString AbsoluteFolder(const QString& path)
{
    return QDir::cleanPath(QDir(NativePath(path)).absolutePath());
}

} // namespace

void InsertReferenceData(Connection& connection) { LoadDataFile(connection, kReferenceDataFile); }

void InsertTutorialData(Connection& connection) { LoadDataFile(connection, kTutorialDataFile); }

void BuildDatabase(Connection& connection, SchemaVariant variant, RepositoryContent content)
{
    Transaction transaction(connection);
    CreateSchemaTables(connection, variant);
    if (content != RepositoryContent::Empty)
        InsertReferenceData(connection);
    if (content == RepositoryContent::Tutorial)
        InsertTutorialData(connection);
    transaction.Commit();
}

InstallationFiles::InstallationFiles(const QString& exePath)
    : backupTemplate(exePath + QStringLiteral("\\ZentrixBackup.mdb")),
      userData(exePath + QStringLiteral("\\UserData.mdb")),
      tutorialRepository(exePath + QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb")),
      tutorialTestData(exePath + QStringLiteral("\\Tutorial\\TestData.mdb")),
      tutorialUserData(exePath + QStringLiteral("\\Tutorial\\database\\UserData.mdb")),
      tutorialBackups(exePath + QStringLiteral("\\Tutorial\\Environments\\Backups"))
{
}

SetupResult CreateRepositoryFile(const QString& path, RepositoryContent content)
{
    const QString native = NativePath(path);
    if (QFileInfo::exists(native))
        return SetupResult::Failure(QStringLiteral("Cannot create the repository: %1 already exists.").arg(native));
    try {
        CreatedFiles files;
        files.CreateDatabase(native, SchemaVariant::Repository, content);
        files.Keep();
    } catch (const DbError& e) {
        return SetupResult::Failure(QStringLiteral("Could not create the repository %1: %2").arg(native, e.description()));
    }
    return SetupResult::Success();
}

SetupResult CreateRepositoryOnDataSource(const QString& dsn)
{
    // The name becomes part of a connection string; a separator in it
    // would add attributes of its own.
    if (dsn.isEmpty() || dsn.contains(u';') || dsn.contains(u'{') || dsn.contains(u'}'))
        return SetupResult::Failure(QStringLiteral("Not a data source name: '%1'").arg(dsn));
    try {
        Connection connection;
        connection.Open(QStringLiteral("PROVIDER=MSDASQL;DSN=") + dsn);
        BuildDatabase(connection, SchemaVariant::Repository, RepositoryContent::ReferenceData);
        connection.Close();
    } catch (const DbError& e) {
        return SetupResult::Failure(
            QStringLiteral("Could not create the repository on data source %1: %2").arg(dsn, e.description()));
    }
    return SetupResult::Success();
}

SetupResult CreateInstallation(const QString& exePathArgument)
{
    const QString exePath = AbsoluteFolder(exePathArgument);
    const InstallationFiles files(exePath);

    // Refuse before anything is created. The two user data paths differ
    // in folder; "database" and "Database" are one folder.
    for (const QString& path : {files.backupTemplate, files.userData, files.tutorialRepository, files.tutorialTestData,
                                files.tutorialUserData}) {
        const QString native = NativePath(path);
        if (QFileInfo::exists(native)) {
            return SetupResult::Failure(
                QStringLiteral("Cannot create the installation: %1 already exists.").arg(native));
        }
    }

    QString error;
    if (!MakeFolder(exePath + QStringLiteral("\\Tutorial\\Database"), error) || !MakeFolder(files.tutorialBackups, error))
        return SetupResult::Failure(error);

    const auto step = [](const QString& path) { return QStringLiteral("Could not create %1: ").arg(NativePath(path)); };
    CreatedFiles created;
    QString current;
    try {
        current = step(files.backupTemplate);
        created.CreateDatabase(NativePath(files.backupTemplate), SchemaVariant::BackupTemplate, RepositoryContent::Empty);
        current = step(files.userData);
        created.CreateEmptyFile(NativePath(files.userData));
        current = step(files.tutorialRepository);
        created.CreateDatabase(NativePath(files.tutorialRepository), SchemaVariant::Repository, RepositoryContent::Tutorial);
        current = step(files.tutorialTestData);
        created.CreateEmptyFile(NativePath(files.tutorialTestData));
        current = step(files.tutorialUserData);
        created.CreateEmptyFile(NativePath(files.tutorialUserData));

        // The tutorial's shared folder holds what its Saves look for: the
        // Apps folder and a folder per application and version.
        const QString apps = exePath + QStringLiteral("\\Tutorial\\Apps");
        current = step(apps);
        if (!MakeFolder(apps, error))
            throw DbError(error);
        Connection tutorial;
        tutorial.OpenFile(NativePath(files.tutorialRepository));
        for (Recordset version(QStringLiteral("SELECT a.sAppID, v.sVersionID FROM tApp a, tVersion v WHERE v.iVersionAppKey = a.iAppKey"),
                               tutorial);
             !version.Eof(); version.MoveNext()) {
            const QString folder = apps + u'\\' + version.Text(QStringLiteral("sAppID")) + u'\\' + version.Text(QStringLiteral("sVersionID"));
            if (!MakeFolder(folder + QStringLiteral("\\Primary Map Source"), error) ||
                !MakeFolder(folder + QStringLiteral("\\Secondary Map Source"), error))
                throw DbError(error);
        }
    } catch (const DbError& e) {
        return SetupResult::Failure(current + e.description());
    }
    created.Keep();
    return SetupResult::Success();
}

SetupResult CreateSharedFolder(const QString& pathArgument)
{
    const QString path = AbsoluteFolder(pathArgument);
    const QString testData = path + QStringLiteral("\\testdata.mdb");
    if (QFileInfo::exists(NativePath(testData)))
        return SetupResult::Failure(QStringLiteral("Cannot create the shared folder: %1 already exists.").arg(NativePath(testData)));

    QString error;
    if (!MakeFolder(path + QStringLiteral("\\Apps"), error) ||
        !MakeFolder(path + QStringLiteral("\\Environments\\Backups"), error))
        return SetupResult::Failure(error);
    try {
        Connection::CreateDatabaseFile(NativePath(testData));
    } catch (const DbError& e) {
        return SetupResult::Failure(QStringLiteral("Could not create %1: %2").arg(NativePath(testData), e.description()));
    }
    return SetupResult::Success();
}

} // namespace dorvane
