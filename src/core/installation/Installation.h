#pragma once

#include "core/repository/Connection.h"
#include "core/repository/SchemaDdl.h"

#include <QString>

namespace dorvane {

// What a newly created database holds besides its tables. The backup
// template holds nothing: a backup copies every row it needs, reference
// rows included, so an empty template is all Environment backup expects.
enum class RepositoryContent {
    Empty,
    // Platforms, test tools, 3270 emulators, map types and classes: the
    // rows the suite's other modules maintain. No environments.
    ReferenceData,
    // The reference data plus the tutorial's applications, users and
    // environment.
    Tutorial,
};

// Reference data, as the reference data file gives it (DataFiles.h).
inline constexpr qint32 kPlatformWindows = 1;
inline constexpr qint32 kPlatformWeb = 2;
inline constexpr qint32 kPlatform3270 = 3; // the one host platform
inline constexpr qint32 kPlatformJava = 4;

// The rows of the data files (DataFiles.h), inside the caller's
// transaction. Throw DbError.
void InsertReferenceData(Connection& connection);
// Expects the reference data to be there.
void InsertTutorialData(Connection& connection);

// Creates the schema and fills it, all in one transaction: on failure the
// database is as it was. Refuses a database that holds repository tables.
// Throws DbError.
void BuildDatabase(Connection& connection, SchemaVariant variant, RepositoryContent content);

// The outcome of a set-up operation; on failure `message` says what went
// wrong, ready to be shown as it stands.
struct SetupResult {
    bool ok = true;
    QString message;

    static SetupResult Success() { return {}; }
    static SetupResult Failure(QString text) { return {false, std::move(text)}; }
};

// The files of an installation whose ExePath setting is `exePath`, built
// the way start-up builds them (Windows texts; NativePath resolves them).
struct InstallationFiles {
    explicit InstallationFiles(const QString& exePath);

    QString backupTemplate;      // ExePath\ZentrixBackup.mdb
    QString userData;            // ExePath\UserData.mdb
    QString tutorialRepository;  // ExePath\Tutorial\Database\Tutorial.mdb
    QString tutorialTestData;    // ExePath\Tutorial\TestData.mdb
    QString tutorialUserData;    // ExePath\Tutorial\database\UserData.mdb (same folder)
    QString tutorialBackups;     // ExePath\Tutorial\Environments\Backups
};

// A new SQLite repository file. Refuses an existing file; a failure leaves
// no file behind.
SetupResult CreateRepositoryFile(const QString& path, RepositoryContent content = RepositoryContent::ReferenceData);

// The schema and the reference data on an ODBC data source, in one
// transaction. Refuses a database that holds repository tables.
SetupResult CreateRepositoryOnDataSource(const QString& dsn);

// The installation tree below `exePath`: the backup template, the user
// data database and the tutorial (repository, test data, user data, the
// backup folder). Refuses to overwrite any file of an existing
// installation; a failure removes the files it had created.
SetupResult CreateInstallation(const QString& exePath);

// A shared resource folder: testdata.mdb, Apps\ and Environments\Backups\.
// Refuses an existing testdata.mdb.
SetupResult CreateSharedFolder(const QString& path);

} // namespace dorvane
