// dorvanectl's repository commands, run as a program on the tutorial
// installation and on the PostgreSQL data source: their output, messages,
// exit statuses and what they leave in the repository; their --dry-run,
// which changes nothing, refuses what the command refuses and counts what
// the command then writes and deletes; and the history of operations: the
// entry each outcome leaves, the filters of `history`, a repository without
// the table and one whose table refuses the entry.

#include "cli/CtlTestSupport.h"
#include "core/repository/SchemaDdl.h"

#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QSysInfo>
#include <QThread>

#include <algorithm>
#include <csignal>

#include <pwd.h>
#include <unistd.h>

namespace dorvane::test {
namespace {

const QString kEnvVersions = u"SELECT iEnvironVerKey FROM tEnvironmentDetail WHERE iEnvironKey IN (SELECT iEnvironmentKey "
                             u"FROM tEnvironment WHERE sEnvironmentName='TUTORIAL') ORDER BY iEnvironVerKey"_s;
const QString kVersionKey = u"SELECT iVersionKey FROM tVersion WHERE sVersionID='%2' AND iVersionAppKey IN "
                            u"(SELECT iAppKey FROM tApp WHERE sAppName='%1')"_s;
const QString kNewVersion = u"INSERT INTO tVersion (iVersionAppKey, sVersionID, sVersionDesc, iMapType) SELECT iAppKey, '%1', "
                            u"'Prepared', 1 FROM tApp WHERE sAppName='Order Entry'"_s;
const QString kWebStoreKeywords = u"SELECT sKeywordName, sKeywordDesc FROM tKeyword WHERE iKeywordAppKey IN (SELECT iAppKey "
                                  u"FROM tApp WHERE sAppName='Web Store') ORDER BY iKeywordKey"_s;

using CommandsTest = CtlRepositoryTest;

// On the data source, info opens the repository that create-repository
// refuses to overwrite.
TEST_P(CommandsTest, InfoUpdateCopyVersionAndKeywordFiles)
{
    if (m_odbc)
        expectRuns({{u"create-repository|--dsn|"_s + TestDsn(), 1, u"…already holds…"_s},
                    {u"info"_s, 0, QString(), u"mode: Server\nconnection: PROVIDER=MSDASQL;DSN="_s + TestDsn() + u"\n…\nenvironments: 1\n"_s}});
    const auto version = [&](const QString& app, const QString& id) { return rows(kVersionKey.arg(app, id)).value(0); };
    exec(kNewVersion.arg(u"1.2"_s));
    const QString oe11 = version(u"Order Entry"_s, u"1.1"_s), oe12 = version(u"Order Entry"_s, u"1.2"_s);
    const QString r5 = version(u"Customer Inquiry"_s, u"R5"_s), processes = u"SELECT iProcessKey FROM tProcess WHERE iProcessVerKey="_s;
    ASSERT_EQ(std::pair(rows(processes + oe11).isEmpty(), rows(kEnvVersions)), std::pair(false, QStringList{oe11, r5}));
    expectRuns({
        {u"update-version|TUTORIAL|Order Entry - 1.1|Order Entry|1.0"_s, 1, u"You can only update an existing application version from a new (empty) one\n"_s},
        {u"update-version|NOWHERE|Order Entry - 1.1|Order Entry|1.2"_s, 1, u"…NOWHERE…"_s},
        {u"copy-version|TUTORIAL|Order Entry - 1.1|Payroll|1.2"_s, 1, u"…Payroll…"_s},
        {u"update-version|TUTORIAL|Order Entry - 1.1|Order Entry|7.7"_s, 1, u"…7.7…"_s},
        {u"delete-application|Payroll|--yes"_s, 1, u"There is no application named Payroll.\n"_s},
        // A version of another application is not this application's.
        {u"delete-version|Order Entry|3.0|--yes"_s, 1, u"Order Entry has no version 3.0.\n"_s},
        // copy-version fills the new version and leaves the environment.
        {u"copy-version|TUTORIAL|Order Entry - 1.1|Order Entry|1.2"_s, 0, QString()},
    });
    EXPECT_EQ(std::pair(rows(processes + oe12).size(), rows(kEnvVersions)), std::pair(rows(processes + oe11).size(), QStringList{oe11, r5}));

    // update-version also moves the environment to the new version.
    exec(kNewVersion.arg(u"1.3"_s));
    const QString oe13 = version(u"Order Entry"_s, u"1.3"_s);
    expectRuns({{u"update-version|TUTORIAL|Order Entry - 1.1|Order Entry|1.3"_s, 0, QString()}});
    EXPECT_EQ(std::pair(rows(processes + oe13).size(), rows(kEnvVersions)), std::pair(rows(processes + oe11).size(), QStringList{r5, oe13}));

    // Keyword files through the tool (their format, code page and
    // replacement: KeywordFilesTest; the tutorial's export: ListsWidgetTest);
    // a line without its TAB stops the import with its number, and nothing
    // of it is added.
    const QString oe = m_dir.filePath(u"oe.txt"_s), ci = m_dir.filePath(u"ci.txt"_s), p = m_dir.filePath(u"p.txt"_s), bad = m_dir.filePath(u"bad.txt"_s);
    ASSERT_TRUE(WriteFile(bad, "Search\tFinding products\r\nNoTab\r\nNext\tThird\r\n"));
    const QString exported = u"The Keywords have been exported to tab delimited text format in the file you selected\n"_s;
    expectRuns({
        {u"export-keywords|Order Entry|"_s + oe, 0, QString(), exported},
        {u"export-keywords|Customer Inquiry|"_s + ci, 0, QString(), exported},
        {u"import-keywords|Web Store|"_s + ci, 0, QString(), u"added: 1  skipped: 0\n"_s},
        {u"import-keywords|Web Store|"_s + ci, 0, QString(), u"added: 0  skipped: 1\n"_s},
        {u"import-keywords|Web Store|"_s + m_dir.filePath(u"missing.txt"_s), 1, u"Error while Importing Keywords: …missing.txt…"_s},
        {u"export-keywords|Web Store|"_s + m_dir.filePath(u"no/folder/out.txt"_s), 1, u"Error while exporting Keywords: …out.txt…"_s},
        {u"export-keywords|Payroll|"_s + p, 1, u"There is no application named Payroll.\n"_s},
        {u"import-keywords|Payroll|"_s + p, 1, u"There is no application named Payroll.\n"_s},
    });
    Check({QString(), 1, u"Bad format on import file - line 2 has no TAB\nNo keywords were added.\n"_s}, ctl({u"import-keywords"_s, u"Web Store"_s, bad}));
    EXPECT_EQ(std::pair(QFile::exists(p), rows(kWebStoreKeywords)), std::pair(false, QStringList{u"Checkout|Payment pages"_s, u"Host|Needs the host region"_s}));
}

TEST_P(CommandsTest, CopyAndDeleteEnvironmentsVersionsAndApplications)
{
    exec(kNewVersion.arg(u"2.0"_s));
    expectRuns({
        {u"copy-environment|TUTORIAL|Release 2|--version-id|Order Entry - 1.1=2.0"_s, 1, u"Enter the new Version ID for Customer Inquiry - R5:\n"_s},
        {u"copy-environment|TUTORIAL|Release 2|--version-id|Order Entry - 1.1=1.1|--version-id|Customer Inquiry - R5=R6"_s, 1,
         u"1.1 already exists - please choose another ID\nEnter the new Version ID for Order Entry - 1.1:\n"_s},
        {u"copy-environment|TUTORIAL|Release 2|--version-id|Order Entry - 1.1="_s, 1, u"Version ID cannot be blank\n…"_s},
        {u"copy-environment|TUTORIAL|Release 2|--version-id|Order Entry - 9=2.0"_s, 1,
         u"Environment TUTORIAL has no version to match --version-id Order Entry - 9=2.0.\n"_s},
        {u"copy-environment|TUTORIAL|tutorial|--version-id|Order Entry - 1.1=2.0|--version-id|Customer Inquiry - R5=R6"_s, 1,
         u"tutorial already exists - please choose another ID\n"_s},
        {u"copy-environment|Nowhere|Release 2"_s, 1, u"There is no environment named Nowhere.\n"_s},
        {u"delete-environment|Nowhere"_s, 1, u"There is no environment named Nowhere.\n"_s},
        // The Save As name has its full stop replaced; the empty 2.0 receives the copy.
        {u"copy-environment|TUTORIAL|Release 2.0|--description|Branch|--version-id|Customer Inquiry - R5=R6|--version-id|Order Entry - 1.1=2.0"_s, 0, QString()},
    });
    EXPECT_EQ(rows(u"SELECT e.sEnvironmentDesc, v.sVersionID FROM tVersion v, tEnvironmentDetail d, tEnvironment e WHERE "
                   u"v.iVersionKey=d.iEnvironVerKey AND d.iEnvironKey=e.iEnvironmentKey AND e.sEnvironmentName='Release 2_0' "
                   u"ORDER BY v.iVersionKey"_s), (QStringList{u"Branch|2.0"_s, u"Branch|R6"_s}));
    EXPECT_EQ(rows(kVersionKey.arg(u"Order Entry"_s, u"2.0"_s).replace(u"iVersionKey"_s, u"sVersionDesc"_s)), QStringList{u"Prepared"_s});

    // Without a terminal the question is printed and only --yes answers it.
    const QString deleteVersion = u"Are you sure you want to delete ALL elements of 3.0?…"_s;
    const QString deleteApp = u"Are you sure you want to delete Web Store and all its versions?…"_s;
    expectRuns({{u"delete-version|Web Store|3.0"_s, 1, deleteVersion}, {u"delete-version|Web Store|3.0|--yes"_s, 0, deleteVersion}});
    expectRuns({{u"delete-application|Web Store"_s, 1, deleteApp}, {u"delete-application|Web Store|--yes"_s, 0, deleteApp}});

    // Every deletion of a window fails: the deletion ends with status 1 and
    // leaves the repository as it was.
    AbortOn(db(), u"tWindow"_s, u"DELETE"_s);
    expectRuns({{u"delete-version|Order Entry|1.0|--yes"_s, 1, u"…\nError while deleting Windows:…! New version not fully deleted.\n"_s}});
}

// On the tutorial installation only: the backup folders are its own.
TEST_P(CommandsTest, BackupBackupsAndRestore)
{
    if (m_odbc)
        GTEST_SKIP() << "backups are tested on the tutorial installation";
    const QString day = QDate::currentDate().toString(u"MM-dd-yyyy"_s) + u".MDB"_s, folder = m_exe + u"/Tutorial/Environments/Backups/TUTORIAL"_s;
    const QString question = u"Back up all application/versions of TUTORIAL to "_s + day + u"? "_s;
    expectRuns({
        {u"backups|TUTORIAL"_s, 0, QString()},
        {u"restore|TUTORIAL|"_s + day, 1, u"This Environment has no backups to restore.\n"_s},
        {u"backups|Nowhere"_s, 1, u"There is no environment named Nowhere.\n"_s},
        {u"backup|TUTORIAL"_s, 1, question + u"[y/n] n\n"_s}, // no terminal to answer on: No
    });
    EXPECT_FALSE(QDir(folder).exists());
    // The question names the environment as stored.
    expectRuns({{u"backup|tutorial|--yes"_s, 0, question + u"yes\n"_s, folder + u'/' + day + u'\n'}});
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{day});
    const QString listed = ctl({u"backups"_s, u"TUTORIAL"_s}).out;
    EXPECT_TRUE(QRegularExpression(u"\\A"_s + QRegularExpression::escape(day) + u"  versions: 2  rows: [1-9][0-9]*\n\\z"_s).match(listed).hasMatch()) << listed.toStdString();

    // By the listed name or by its path.
    const QString description = u"SELECT sEnvironmentDesc FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'"_s;
    const QStringList saved = rows(description);
    for (const QString& file : {day, folder + u'/' + day}) {
        exec(u"UPDATE tEnvironment SET sEnvironmentDesc='Changed'"_s);
        expectRuns({{u"restore|TUTORIAL|"_s + file, 0, QString()}});
        EXPECT_EQ(rows(description), saved);
    }

    // A day without a backup, and names that cannot name a folder.
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('../../../../x')"_s);
    const QString unsafe = u"…The environment name \"../../../../x\" cannot name its backup folder…"_s;
    expectRuns({
        {u"restore|TUTORIAL|01-01-1999.MDB"_s, 1, u"Error while restoring environment: Could not find file '…"_s},
        {u"backup|--yes|../../../../x"_s, 1, unsafe},
        {u"backups|../../../../x"_s, 1, unsafe},
    });
    EXPECT_FALSE(QFileInfo::exists(m_exe + u"/x"_s));
}

// Backups follow their environment through a rename, a day's file of
// another environment is never replaced, and a path is restored as given.
TEST_P(CommandsTest, BackupsFollowTheirEnvironmentAndAPathIsRestoredAsGiven)
{
    const QFileInfo file(backUp(u"TUTORIAL"_s));
    const QDir backups = QFileInfo(file.absolutePath()).dir();
    const QString day = file.fileName(), question = u"Back up all application/versions of TUTORIAL to "_s + day + u"? "_s;
    ASSERT_TRUE(backups.mkpath(u"Spare"_s));
    expectRuns({
        {u"backup|TUTORIAL"_s, 1, question + u"It replaces the backup made earlier today. [y/n] n\n"_s},
        {u"rename-environment|TUTORIAL|Spare"_s, 1, u"Error while saving environment definition : The backup folder '…Spare' exists already…"_s},
        {u"rename-environment|TUTORIAL|Tutorial?2"_s, 0, QString(), u"Tutorial_2\n"_s},
        {u"backups|TUTORIAL"_s, 1, u"There is no environment named TUTORIAL.\n"_s},
    });
    EXPECT_EQ(std::pair(backups.entryList({u"Tutorial_2"_s, u"TUTORIAL"_s}, QDir::Dirs), QDir(backups.filePath(u"Tutorial_2"_s)).entryList(QDir::Files)),
              std::pair(QStringList{u"Tutorial_2"_s}, QStringList{day}));

    // A new environment under the old name starts without backups; a day's
    // file of the renamed one, put in its folder, is not replaced.
    exec(u"INSERT INTO tEnvironment (sEnvironmentName, sEnvironmentDesc) VALUES ('TUTORIAL', 'New')"_s);
    EXPECT_EQ(ctl({u"backups"_s, u"TUTORIAL"_s}).out, QString());
    ASSERT_TRUE(backups.mkpath(u"TUTORIAL"_s) && QFile::copy(backups.filePath(u"Tutorial_2/"_s + day), backups.filePath(u"TUTORIAL/"_s + day)));
    expectRuns({{u"backup|TUTORIAL|--yes"_s, 1, u"…holds a backup of another environment (TUTORIAL); it was not replaced…"_s}});
    EXPECT_EQ(QDir(backups.filePath(u"TUTORIAL"_s)).entryList(QDir::Files), QStringList{day});

    // A backup copied from elsewhere, with nothing in the environment's folder.
    const QString copied = m_dir.filePath(u"copied.MDB"_s);
    ASSERT_TRUE(QFile::rename(backups.filePath(u"Tutorial_2/"_s + day), copied));
    exec(u"UPDATE tEnvironment SET sEnvironmentDesc='Changed' WHERE sEnvironmentName='Tutorial_2'"_s);
    expectRuns({{u"restore|Tutorial_2|"_s + copied, 0, QString()}});
    // The file's name for it (TUTORIAL) is another environment's now: the
    // restored one keeps its current name.
    EXPECT_EQ(rows(u"SELECT sEnvironmentName FROM tEnvironment ORDER BY sEnvironmentName"_s), QStringList({u"TUTORIAL"_s, u"Tutorial_2"_s}));
    EXPECT_EQ(rows(u"SELECT sEnvironmentName FROM tEnvironment WHERE sEnvironmentDesc='Changed'"_s), QStringList());
    // Once the name is free again the restore brings it back, and the
    // backup folder goes with it.
    expectRuns({{u"rename-environment|TUTORIAL|Other"_s, 0, QString(), u"Other\n"_s}, {u"restore|Tutorial_2|"_s + copied, 0, QString()}});
    EXPECT_EQ(std::pair(rows(u"SELECT sEnvironmentName FROM tEnvironment ORDER BY sEnvironmentName"_s), backups.entryList(QDir::Dirs | QDir::NoDotAndDotDot)),
              std::pair(QStringList({u"Other"_s, u"TUTORIAL"_s}), QStringList({u"Other"_s, u"Spare"_s, u"TUTORIAL"_s})));
}

// A backup file is checked like typed input before anything of it is
// written: each crafted file is refused with the table, row and column.
TEST_P(CommandsTest, ACraftedBackupFileIsRefusedNamingTheField)
{
    const QString backup = backUp(u"TUTORIAL"_s);
    const QString refused = u"Error while restoring environment: The backup file cannot be restored: "_s;
    const struct { const char* change; QString message; } cases[] = {
        {"UPDATE tEnvironment SET sEnvironmentName='a/../b'", u"tEnvironment row iEnvironmentKey 1, sEnvironmentName: Environment name cannot contain any of…"_s},
        {"UPDATE tApp SET sAppName='A' || char(0) || 'B'", u"tApp row iAppKey 1, sAppName: not text, or a text with a NUL character…"_s},
        {"UPDATE tVersion SET sVersionID='../../victim'", u"tVersion row iVersionKey 1, sVersionID: The version ID \"../../victim\" cannot name a folder inside its parent folder. Nothing…"_s},
        {"UPDATE tVersion SET sVersionDesc=hex(zeroblob(500000))", u"tVersion row iVersionKey 1, sVersionDesc: longer than 65535 characters…"_s},
        {"UPDATE tWindow SET iWindowClassKey='abc'", u"tWindow row iWindowKey 1, iWindowClassKey: not a number…"_s},
        {"PRAGMA user_version = 1", u"it was written by a newer version of Dorvane (schema 1; this one reads up to 0)…"_s},
        {"ALTER TABLE tWindow ADD COLUMN sFuture TEXT", u"its table tWindow has a column sFuture that this version of Dorvane does not know…"_s},
    };
    for (const auto& [change, message] : cases) {
        const QString crafted = m_dir.filePath(u"crafted.MDB"_s);
        craft(backup, crafted, {QString::fromLatin1(change)});
        expectRuns({{u"restore|TUTORIAL|"_s + crafted, 1, refused + message}});
    }
}

// Another program holds the repository (on SQLite its write lock, on
// PostgreSQL the rows these commands write last): update-version and
// delete-application wait, give up saying so, and leave everything as it
// was; a backup meanwhile holds what is committed. SIGTERM or SIGINT to a
// command that waits rolls it back and ends it with 143 or 130, and so
// does SIGINT half-way through a backup (that the day's file and the
// repository stay as they were, and no work file is left, is on
// EnvironmentBackupTest).
TEST_P(CommandsTest, ASecondProgramsLockFailsACommandWholeAndASignalRollsItBack)
{
    exec(kNewVersion.arg(u"1.2"_s));
    const QString description = u"SELECT sEnvironmentDesc FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'"_s;
    const QStringList committed = rows(description);
    Connection other;
    DB_ASSERT(other.Open(m_connectionString); other.BeginTrans());
    for (const QString& sql : {u"UPDATE tEnvironment SET sEnvironmentDesc='Uncommitted'"_s,
                               u"UPDATE tEnvironmentDetail SET iEnviron3270Key=iEnviron3270Key WHERE iEnvironVerKey IN (%1)"_s
                                   .arg(rows(kVersionKey.arg(u"Order Entry"_s, u"1.1"_s)).value(0)),
                               u"UPDATE tApp SET sAppDesc=sAppDesc WHERE sAppName='Web Store'"_s})
        DB_ASSERT(other.Execute(sql));
    const QString busy = u"…The repository is busy with another program: this one waited 5.… s for it and gave up (…"_s;
    expectRuns({
        {u"update-version|TUTORIAL|Order Entry - 1.1|Order Entry|1.2"_s, 1, u"Error while creating new version:"_s + busy},
        {u"delete-application|Web Store|--yes"_s, 1, busy},
    });
    const QString backup = backUp(u"TUTORIAL"_s);
    Connection file;
    DB_ASSERT(file.OpenFile(backup));
    EXPECT_EQ(Rows(file, description), committed);

    // Signals while a command waits for the other program.
    const QString keywords = m_dir.filePath(u"keywords.txt"_s);
    ASSERT_TRUE(WriteFile(keywords, "Alpha\tFirst\r\nBeta\tSecond\r\n"));
    const QStringList before = dump();
    struct Interrupted { QStringList command; int signal; } interrupted[] = {
        {{u"update-version"_s, u"TUTORIAL"_s, u"Order Entry - 1.1"_s, u"Order Entry"_s, u"1.2"_s}, SIGTERM},
        {{u"import-keywords"_s, u"Order Entry"_s, keywords}, SIGINT},
    };
    for (const auto& [command, signal] : interrupted) {
        if (m_odbc && command.first() == u"import-keywords"_s)
            continue;  // new keywords wait for no row on the server
        const CtlResult run = ctlInterrupted(command, signal, [] { return QThread::msleep(1000), true; });
        EXPECT_EQ(std::pair(run.exitCode, run.err), std::pair(128 + signal, u"Interrupted: nothing was changed\n"_s)) << command.join(u' ').toStdString();
    }
    other.RollbackTrans();
    EXPECT_EQ(dump(), before);
    expectRuns({{u"update-version|TUTORIAL|Order Entry - 1.1|Order Entry|1.2"_s, 0, QString()}});

    if (m_odbc)
        return;
    // Half-way through a backup of some 300,000 steps.
    exec(u"INSERT INTO tStep (iStepWindowKey, iStepSequenceNum, sStepArguments) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
         u"SELECT i + 1 FROM n WHERE i < 300000) SELECT (SELECT MIN(iStepWindowKey) FROM tStepWindow), i, 'x' FROM n"_s);
    const QFileInfo day(backup);
    const CtlResult run = ctlInterrupted({u"backup"_s, u"TUTORIAL"_s, u"--yes"_s}, SIGINT, [&day] {
        for (int i = 0; i < 20000; ++i, QThread::usleep(500))
            if (!day.dir().entryList({u"*.tmp"_s}, QDir::Files).isEmpty())
                return true;
        return false;
    });
    EXPECT_EQ(std::pair(run.exitCode, run.err.endsWith(u"Interrupted: nothing was changed\n"_s)), std::pair(130, true)) << run.err.toStdString();
}

// Two administrators at once: each pair of runs started at the same
// moment succeeds one after the other, or the second is refused with its
// message, and the repository holds each thing once.
TEST_P(CommandsTest, TwoRunsAtOnceTakeTurns)
{
    const QString oe11 = rows(kVersionKey.arg(u"Order Entry"_s, u"1.1"_s)).value(0);
    // An update copies every window but the source's system screen.
    const auto windowsOf = [this](const QString& version) {
        return rows(u"SELECT iWindowKey FROM tWindow WHERE sWindowPhysicalName<>'[System Screen]' AND iWindowVerKey="_s + version).size();
    };
    const qsizetype sourceWindows = windowsOf(oe11);
    // The two runs' statuses, the lower first, and the second's message when one failed.
    const auto statuses = [](const std::vector<CtlResult>& runs) -> std::pair<int, int> { return std::minmax(runs[0].exitCode, runs[1].exitCode); };
    const auto refusal = [](const std::vector<CtlResult>& runs) { return runs[0].exitCode ? runs[0].err : runs[1].err; };

    // Two Save As into one new name: one environment, its versions and users once.
    const QStringList saveAs = {u"copy-environment"_s, u"TUTORIAL"_s, u"Z"_s, u"--version-id"_s, u"Order Entry - 1.1=5.0"_s,
                                u"--version-id"_s, u"Customer Inquiry - R5=R9"_s};
    std::vector<CtlResult> runs = ctlTogether({saveAs, saveAs});
    EXPECT_EQ(statuses(runs), std::pair(0, 1)) << refusal(runs).toStdString();
    EXPECT_TRUE(Like(refusal(runs), u"Z already exists - please choose another ID\n"_s)) << refusal(runs).toStdString();
    const QString users = u"SELECT iUserKey FROM tEnvironmentUser WHERE iEnvironKey IN (SELECT iEnvironmentKey FROM tEnvironment "
                          u"WHERE sEnvironmentName='%1') ORDER BY iUserKey"_s;
    EXPECT_EQ(std::tuple(rows(u"SELECT sEnvironmentName FROM tEnvironment WHERE sEnvironmentName='Z'"_s).size(),
                         rows(u"SELECT sVersionID FROM tVersion WHERE sVersionID IN ('5.0', 'R9') ORDER BY sVersionID"_s),
                         rows(users.arg(u"Z"_s))),
              std::tuple(qsizetype(1), QStringList({u"5.0"_s, u"R9"_s}), rows(users.arg(u"TUTORIAL"_s))));
    EXPECT_EQ(rows(u"SELECT d.iEnvironVerKey FROM tEnvironmentDetail d, tEnvironment e WHERE d.iEnvironKey=e.iEnvironmentKey "
                   u"AND e.sEnvironmentName='Z'"_s).size(), 2);

    // Two updates of one version: filled once, listed once.
    exec(kNewVersion.arg(u"1.2"_s));
    const QString v12 = rows(kVersionKey.arg(u"Order Entry"_s, u"1.2"_s)).value(0);
    const QStringList update = {u"update-version"_s, u"TUTORIAL"_s, u"Order Entry - 1.1"_s, u"Order Entry"_s, u"1.2"_s};
    runs = ctlTogether({update, update});
    EXPECT_EQ(statuses(runs), std::pair(0, 1)) << refusal(runs).toStdString();
    // The second finds the version filled, or the source no longer listed
    // (found so while it checked, or when it started after the first).
    EXPECT_TRUE(QStringList({u"You can only update an existing application version from a new (empty) one\n"_s,
                             u"The environment no longer lists this version: another operation has changed it. Refresh the list and try again.\n"_s,
                             u"Please select target application version from the list on the right\n"_s})
                    .contains(refusal(runs))) << refusal(runs).toStdString();
    EXPECT_EQ(std::pair(windowsOf(v12), rows(kEnvVersions).contains(v12) && !rows(kEnvVersions).contains(oe11)), std::pair(sourceWindows, true));

    // An update beside a Save As into the same empty version.
    exec(kNewVersion.arg(u"1.3"_s));
    const QString v13 = rows(kVersionKey.arg(u"Order Entry"_s, u"1.3"_s)).value(0);
    runs = ctlTogether({{u"copy-version"_s, u"TUTORIAL"_s, u"Order Entry - 1.2"_s, u"Order Entry"_s, u"1.3"_s},
                        {u"copy-environment"_s, u"TUTORIAL"_s, u"Y"_s, u"--version-id"_s, u"Order Entry - 1.2=1.3"_s,
                         u"--version-id"_s, u"Customer Inquiry - R5=R10"_s}});
    EXPECT_EQ(statuses(runs), std::pair(0, 1)) << refusal(runs).toStdString();
    EXPECT_EQ(std::pair(windowsOf(v13), rows(u"SELECT iEnvironKey FROM tEnvironmentDetail WHERE iEnvironVerKey="_s + v13).size() <= 1),
              std::pair(sourceWindows, true));

    // An update beside a restore of the same environment: both run, one
    // after the other, and the copy's steps point at its own windows and
    // objects, never at the source's.
    const QString backup = backUp(u"TUTORIAL"_s);
    exec(kNewVersion.arg(u"1.4"_s));
    const QString v14 = rows(kVersionKey.arg(u"Order Entry"_s, u"1.4"_s)).value(0);
    runs = ctlTogether({{u"restore"_s, u"TUTORIAL"_s, backup, u"--yes"_s},
                        {u"update-version"_s, u"TUTORIAL"_s, u"Order Entry - 1.2"_s, u"Order Entry"_s, u"1.4"_s}});
    EXPECT_EQ(statuses(runs), std::pair(0, 0)) << runs[0].err.toStdString() << runs[1].err.toStdString();
    const QString intoSource = u"SELECT sw.iStepWindowKey FROM tStepWindow sw, tProcess p, tWindow w WHERE sw.iStepWindowProcessKey="
                               u"p.iProcessKey AND p.iProcessVerKey=%1 AND sw.iStepWindowWindowKey=w.iWindowKey AND w.iWindowVerKey=%2"_s;
    // A restore that comes second empties the version the environment
    // lists by then (1.4) and lists 1.2 again.
    EXPECT_TRUE(windowsOf(v14) == sourceWindows || (windowsOf(v14) == 0 && rows(kEnvVersions).contains(v12))) << windowsOf(v14);
    EXPECT_EQ(rows(intoSource.arg(v14, v12)).size(), 0);
}

// A repository without Dorvane's indexes (one the suite made): every
// command says once that it can be upgraded and works; upgrade-repository
// adds just the indexes, and a second run adds nothing.
TEST_P(CommandsTest, UpgradeRepositoryAddsTheMissingIndexesAndNothingElse)
{
    const std::vector<RepositoryIndex>& all = RepositoryIndexes();
    for (const RepositoryIndex& index : {all.front(), all.back()})
        exec(u"DROP INDEX "_s + index.name);
    const QStringList before = dump();
    const QString note = u"This repository lacks 2 of the indexes that make long operations fast; "
                         u"\"dorvanectl upgrade-repository\" adds them.\n"_s;
    expectRuns({
        {u"backups|TUTORIAL"_s, 0, note, u"…"_s},
        {u"upgrade-repository|extra"_s, 2, u"…"_s},
        {u"upgrade-repository"_s, 0, QString(),
         u"added index %1 on %2 (%3)\nadded index %4 on %5 (%6)\nup to date: 2 indexes added\n"_s
             .arg(all.front().name, all.front().table, all.front().columns.join(u", "_s), all.back().name, all.back().table,
                  all.back().columns.join(u", "_s))},
        {u"upgrade-repository"_s, 0, QString(), u"up to date: 0 indexes added\n"_s},
        {u"backups|TUTORIAL"_s, 0, QString(), u"…"_s},
    });
    EXPECT_EQ(dump(), before);
    EXPECT_TRUE(MissingIndexes(db()).empty());
}

INSTANTIATE_TEST_SUITE_P(Repositories, CommandsTest, ::testing::ValuesIn(CtlRepositories()), [](const auto& info) { return info.param; });

// ---- dry runs ----

using DryRunTest = CtlRepositoryTest;

// Rows by table (lower case) of a dump.
QMap<QString, qint64> perTable(const QStringList& dump)
{
    QMap<QString, qint64> counts;
    for (const QString& row : dump)
        ++counts[row.section(u':', 0, 0).toLower()];
    return counts;
}

// The fields of the preview's lines that start with `kind`.
QList<QStringList> linesOf(const QString& out, const QString& kind)
{
    QList<QStringList> lines;
    for (const QString& line : out.split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(kind + u'\t'))
            lines << line.split(u'\t').mid(1);
    }
    return lines;
}

// The "rows TABLE N" lines of a preview, by table (lower case); the
// "total N" line must be their sum.
QMap<QString, qint64> previewRows(const QString& out)
{
    QMap<QString, qint64> rows;
    qint64 sum = 0;
    for (const QStringList& fields : linesOf(out, u"rows"_s))
        sum += rows[fields.value(0).toLower()] = fields.value(1).toLongLong();
    EXPECT_EQ(linesOf(out, u"total"_s), QList<QStringList>{{QString::number(sum)}}) << out.toStdString();
    return rows;
}

// Each dry run leaves the repository as it was; then the command itself
// writes or deletes, table by table, exactly the rows the dry run counted.
TEST_P(DryRunTest, EachDryRunChangesNothingAndCountsWhatTheCommandDoes)
{
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('Spare')"_s);
    const QString spare = rows(u"SELECT iEnvironmentKey FROM tEnvironment WHERE sEnvironmentName='Spare'"_s).value(0);
    exec(u"INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey) SELECT %1, MIN(iVersionKey) FROM tVersion"_s.arg(spare));
    exec(u"INSERT INTO tEnvironmentUser (iEnvironKey, iUserKey) SELECT %1, iUserKey FROM tUser"_s.arg(spare));
    // A lone step window without a window is a placeholder no copy takes.
    exec(u"INSERT INTO tProcess (iProcessVerKey, sProcessName) SELECT iVersionKey, 'Lone' FROM tVersion WHERE sVersionID='1.1'"_s);
    exec(u"INSERT INTO tStepWindow (iStepWindowProcessKey, iStepWindowWindowKey, iStepWindowSequenceNum) SELECT "
         u"iProcessKey, 0, 1 FROM tProcess WHERE sProcessName='Lone'"_s);

    struct Case {
        QString command;  // run with --dry-run, then as it is
        QString versions; // the preview's version lines, a Like() pattern
    };
    const Case cases[] = {
        {u"copy-environment|TUTORIAL|Release 2|--version-id|Order Entry - 1.1=2.0|--version-id|Customer Inquiry - R5=R6"_s,
         u"version\tOrder Entry\t1.1\t…\nversion\tCustomer Inquiry\tR5\t…\n"_s},
        {u"delete-environment|Spare"_s, u"version\tOrder Entry\t1.0\t…\n"_s},
        {u"delete-version|Order Entry|1.0|--yes"_s, u"version\tOrder Entry\t1.0\t…\n"_s},
        {u"delete-application|Web Store|--yes"_s, u"version\tWeb Store\t3.0\t…\n"_s},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command.toStdString());
        const QStringList before = dump();
        const CtlResult preview = ctl(c.command.split(u'|') << u"--dry-run"_s);
        Check({c.command + u"|--dry-run"_s, 0, QString(), c.versions + u"rows\t…\ntotal\t…\n"_s}, preview);
        EXPECT_EQ(dump(), before);

        const CtlResult run = ctl(c.command.split(u'|'));
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        QMap<QString, qint64> changed;
        const QMap<QString, qint64> was = perTable(before), now = perTable(dump());
        for (const QString& table : QSet<QString>(was.keyBegin(), was.keyEnd()) | QSet<QString>(now.keyBegin(), now.keyEnd())) {
            if (const qint64 difference = std::abs(now.value(table) - was.value(table)))
                changed[table] = difference;
        }
        EXPECT_EQ(previewRows(preview.out), changed);
    }

    // A dry run is refused where the command is, with its message.
    const QString inUse = u"This version is part of an existing environment and cannot be deleted!\n"_s;
    expectRuns({
        {u"delete-version|Order Entry|1.1|--dry-run"_s, 1, inUse},
        {u"delete-application|Order Entry|--dry-run"_s, 1, u"This application is used in at least one environment (TUTORIAL) and cannot be deleted\n"_s},
        {u"delete-environment|TUTORIAL|--dry-run"_s, 1, u"This environment is referenced in existing steps and cannot be deleted\n"_s},
        {u"copy-environment|Nowhere|X|--dry-run"_s, 1, u"There is no environment named Nowhere.\n"_s},
    });
}

// A restore's dry run names what the restore replaces: the environment's
// name before and after, each version refilled, recreated or emptied with
// its rows now and from the file, the users before and after. After the
// restore, a second dry run finds the rows the first said the file holds.
TEST_P(DryRunTest, ARestoresDryRunSaysWhatItReplaces)
{
    // A copy of a backup: the rename below takes the backup folder along.
    const QString file = m_dir.filePath(u"copied.MDB"_s);
    ASSERT_TRUE(QFile::copy(backUp(u"TUTORIAL"_s), file));

    // Since the backup: one more window in 1.1, R5 left the list and was
    // deleted, a new 1.2 with a window joined it, a user left and another
    // came, and the environment was renamed.
    exec(u"INSERT INTO tWindow (iWindowVerKey, sWindowPhysicalName) SELECT iVersionKey, 'Extra' FROM tVersion WHERE sVersionID='1.1'"_s);
    exec(u"DELETE FROM tEnvironmentDetail WHERE iEnvironVerKey IN (%1)"_s.arg(kVersionKey.arg(u"Customer Inquiry"_s, u"R5"_s)));
    ASSERT_EQ(ctl({u"delete-version"_s, u"Customer Inquiry"_s, u"R5"_s, u"--yes"_s}).exitCode, 0);
    exec(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType) SELECT iAppKey, '1.2', 1 FROM tApp WHERE sAppName='Order Entry'"_s);
    exec(u"INSERT INTO tWindow (iWindowVerKey, sWindowPhysicalName) SELECT iVersionKey, 'New' FROM tVersion WHERE sVersionID='1.2'"_s);
    exec(u"INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey) SELECT iEnvironmentKey, (%1) FROM tEnvironment"_s.arg(kVersionKey.arg(u"Order Entry"_s, u"1.2"_s)));
    exec(u"DELETE FROM tEnvironmentUser WHERE iUserKey IN (SELECT iUserKey FROM tUser WHERE sUserID='mbrown')"_s);
    exec(u"INSERT INTO tUser (sUserID) VALUES ('temp')"_s);
    exec(u"INSERT INTO tEnvironmentUser (iEnvironKey, iUserKey) SELECT iEnvironmentKey, (SELECT iUserKey FROM tUser WHERE sUserID='temp') FROM tEnvironment"_s);
    ASSERT_EQ(ctl({u"rename-environment"_s, u"TUTORIAL"_s, u"Renamed"_s}).exitCode, 0);

    const QStringList before = dump();
    const CtlResult first = ctl({u"restore"_s, u"Renamed"_s, file, u"--dry-run"_s});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(linesOf(first.out, u"environment"_s), (QList<QStringList>{{u"Renamed"_s, u"TUTORIAL"_s}}));
    EXPECT_EQ(linesOf(first.out, u"user"_s), (QList<QStringList>{{u"jsmith"_s, u"kept"_s}, {u"lchen"_s, u"kept"_s},
                                                                 {u"temp"_s, u"removed"_s}, {u"mbrown"_s, u"added"_s}}));
    const QList<QStringList> versions = linesOf(first.out, u"version"_s);
    ASSERT_EQ(versions.size(), 3) << first.out.toStdString();
    // APP, ID, what becomes of it, rows now, rows from the file.
    EXPECT_EQ(versions, (QList<QStringList>{{u"Order Entry"_s, u"1.1"_s, u"refilled"_s, QString::number(versions[0][4].toLongLong() + 1), versions[0][4]},
                                            {u"Customer Inquiry"_s, u"R5"_s, u"recreated"_s, u"0"_s, versions[1][4]},
                                            {u"Order Entry"_s, u"1.2"_s, u"emptied"_s, u"1"_s, u"0"_s}}));
    EXPECT_GT(versions[1][4].toLongLong(), 0);
    const QList<QStringList> schedules = linesOf(first.out, u"schedules"_s);
    EXPECT_TRUE(schedules.size() == 1 && schedules[0].size() == 2 && schedules[0][0] == schedules[0][1]) << first.out.toStdString();

    ASSERT_EQ(ctl({u"restore"_s, u"Renamed"_s, file}).exitCode, 0);
    const CtlResult second = ctl({u"restore"_s, u"TUTORIAL"_s, file, u"--dry-run"_s});
    ASSERT_EQ(second.exitCode, 0) << second.err.toStdString();
    EXPECT_EQ(linesOf(second.out, u"environment"_s), (QList<QStringList>{{u"TUTORIAL"_s, u"TUTORIAL"_s}}));
    // The file still remembers R5 by the key it had: a second restore makes
    // it anew again, and empties the one the first made.
    EXPECT_EQ(linesOf(second.out, u"version"_s),
              (QList<QStringList>{{u"Order Entry"_s, u"1.1"_s, u"refilled"_s, versions[0][4], versions[0][4]},
                                  {u"Customer Inquiry"_s, u"R5"_s, u"recreated"_s, u"0"_s, versions[1][4]},
                                  {u"Customer Inquiry"_s, u"R5"_s, u"emptied"_s, versions[1][4], u"0"_s}}));
    EXPECT_EQ(rows(u"SELECT iWindowKey FROM tWindow WHERE iWindowVerKey IN (%1)"_s.arg(kVersionKey.arg(u"Order Entry"_s, u"1.2"_s))), QStringList());
    EXPECT_EQ(linesOf(second.out, u"user"_s).size(), 3);

    // The file's checks come first: another environment's file is refused
    // as the restore refuses it, and a damaged one fails as it fails.
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('OTHER')"_s);
    const QString damaged = m_dir.filePath(u"damaged.MDB"_s);
    ASSERT_TRUE(WriteFile(damaged, "not a database"));
    const QString day = QFileInfo(file).fileName();
    expectRuns({
        {u"restore|OTHER|%1|--dry-run"_s.arg(file), 1,
         u"The backup %1 belongs to environment \"TUTORIAL\" and cannot be restored into environment \"OTHER\". Nothing was changed.\n"_s.arg(day)},
        {u"restore|TUTORIAL|%1|--dry-run"_s.arg(damaged), 1, u"Error while restoring environment: …"_s},
    });
}

INSTANTIATE_TEST_SUITE_P(Repositories, DryRunTest, ::testing::ValuesIn(CtlRepositories()), [](const auto& info) { return info.param; });

// ---- the history of operations ----

using HistoryCommandsTest = CtlRepositoryTest;

// `history` with `arguments`, each line cut to the fields from the program
// to the message, and the rows when `withRows`.
QStringList Entries(const CtlResult& run, bool withRows = false)
{
    QStringList entries;
    for (const QString& line : run.out.split(u'\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.split(u'\t');
        EXPECT_EQ(fields.size(), 11) << line.toStdString();
        entries << fields.mid(3, withRows ? 7 : 6).join(u'|');
    }
    return entries;
}

// Done, refused, failed and interrupted each leave one entry, newest
// first, with who did it, where and with what; a question answered No,
// or a dry run, leaves none. The rows are what the operation wrote.
TEST_P(HistoryCommandsTest, EachOutcomeLeavesOneEntryAndTheFiltersChooseThem)
{
    const QString keywords = m_dir.filePath(u"k.txt"_s), bad = m_dir.filePath(u"bad.txt"_s);
    ASSERT_TRUE(WriteFile(keywords, "Alpha\tFirst\r\nBeta\tSecond\r\n") && WriteFile(bad, "Alpha\tFirst\r\nNoTab\r\n"));
    // The free version goes with its content (its requirements stay).
    const qsizetype before = dump().size();
    expectRuns({{u"delete-version|Order Entry|1.0|--yes"_s, 0, u"…"_s}});
    const qsizetype deleted = before - dump().size();
    ASSERT_TRUE(rows(kVersionKey.arg(u"Order Entry"_s, u"1.0"_s)).isEmpty());
    expectRuns({
        {u"delete-version|Order Entry|1.1|--yes"_s, 1, u"…"_s},
        {u"delete-application|Web Store"_s, 1, u"…"_s},  // answered No: no entry
        {u"delete-version|Order Entry|1.1|--dry-run"_s, 1, u"…"_s},  // a dry run's refusal: no entry
        {u"import-keywords|Web Store|"_s + bad, 1, u"…"_s},
        {u"import-keywords|Web Store|"_s + keywords, 0, QString(), u"…"_s},
        {u"copy-environment|TUTORIAL|Z|--version-id|Order Entry - 1.1=5.0|--version-id|Customer Inquiry - R5=R9"_s, 0, u"…"_s, u"…"_s},
        {u"delete-environment|TUTORIAL"_s, 1, u"…"_s},
    });

    // Interrupted while it waits for another program's write.
    exec(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType) SELECT iAppKey, '1.2', 1 FROM tApp WHERE sAppName='Order Entry'"_s);
    Connection other;
    DB_ASSERT(other.Open(m_connectionString); other.BeginTrans());
    for (const QString& sql : {u"UPDATE tEnvironment SET sEnvironmentDesc='Uncommitted'"_s, u"UPDATE tEnvironmentDetail SET iEnviron3270Key=iEnviron3270Key"_s})
        DB_ASSERT(other.Execute(sql));
    const CtlResult stopped = Ctl({u"update-version"_s, u"TUTORIAL"_s, u"Order Entry - 1.1"_s, u"Order Entry"_s, u"1.2"_s}, m_registry,
                                  [&](QProcess& process) {
                                      QThread::msleep(1000);
                                      ::kill(pid_t(process.processId()), SIGTERM);
                                      // SQLite gives up at once and waits to record; a server
                                      // ends its wait when the lock times out.
                                      QThread::msleep(500);
                                      if (!m_odbc)
                                          other.RollbackTrans();
                                  });
    if (m_odbc)
        other.RollbackTrans();
    EXPECT_EQ(stopped.exitCode, 128 + SIGTERM) << stopped.err.toStdString();

    const CtlResult all = ctl({u"history"_s});
    ASSERT_EQ(all.exitCode, 0) << all.err.toStdString();
    EXPECT_EQ(Entries(all), (QStringList{
        u"dorvanectl|update-version|TUTORIAL|Order Entry - 1.1 -> 1.2|interrupted|"_s,
        u"dorvanectl|delete-environment|TUTORIAL||refused|This environment is referenced in existing steps and cannot be deleted"_s,
        u"dorvanectl|copy-environment|Z|from TUTORIAL|done|"_s,
        u"dorvanectl|import-keywords||%1|done|"_s.arg(keywords),
        u"dorvanectl|import-keywords||%1|failed|Bad format on import file - line 2 has no TAB No keywords were added."_s.arg(bad),
        u"dorvanectl|delete-version||1.1|refused|This version is part of an existing environment and cannot be deleted!"_s,
        u"dorvanectl|delete-version||1.0|done|"_s,
    })) << all.out.toStdString();
    const QStringList newest = all.out.split(u'\n').value(0).split(u'\t');
    const passwd* user = getpwuid(geteuid());
    EXPECT_EQ(newest.mid(1, 2), (QStringList{QString::fromLocal8Bit(user->pw_name), QSysInfo::machineHostName()}));
    EXPECT_LE(std::abs(QDateTime::fromString(newest.value(0), Qt::ISODate).secsTo(QDateTime::currentDateTimeUtc())), 120);
    const QStringList withRows = Entries(all, true);
    EXPECT_EQ(std::tuple(withRows.value(3).section(u'|', 6), withRows.value(6).section(u'|', 6), withRows.value(2).section(u'|', 6).isEmpty()),
              std::tuple(u"2"_s, QString::number(deleted), false));

    const QString yesterday = QDate::currentDate().addDays(-1).toString(Qt::ISODate);
    const struct { QString arguments; int status; qsizetype entries; QString first; } filters[] = {
        {u"history|--environment|tutorial"_s, 0, 2, u"dorvanectl|update-version|…"_s},
        {u"history|--environment|Z"_s, 0, 1, u"dorvanectl|copy-environment|…"_s},
        {u"history|--limit|2|--environment|TUTORIAL"_s, 0, 2, u"dorvanectl|update-version|…"_s},
        {u"history|--limit|1"_s, 0, 1, u"dorvanectl|update-version|…"_s},
        {u"history|--since|"_s + yesterday, 0, 7, u"dorvanectl|update-version|…"_s},
        {u"history|--since|2999-01-01"_s, 0, 0, QString()},
        {u"history|--environment|O'Brien"_s, 0, 0, QString()},
        {u"history|--since|yesterday"_s, 2, 0, QString()},
        {u"history|--limit|0"_s, 2, 0, QString()},
        {u"history|--limit"_s, 2, 0, QString()},
        {u"history|--what|1"_s, 2, 0, QString()},
    };
    for (const auto& filter : filters) {
        const CtlResult run = ctl(filter.arguments.split(u'|'));
        const QStringList entries = run.exitCode == 0 ? Entries(run) : QStringList();
        EXPECT_EQ(std::pair(run.exitCode, entries.size()), std::pair(filter.status, filter.entries)) << filter.arguments.toStdString();
        EXPECT_TRUE(filter.first.isEmpty() || Like(entries.value(0), filter.first)) << entries.value(0).toStdString();
    }
}

// Without the history table every command says so once, works and keeps
// no history; upgrade-repository adds it. A table that refuses the entry
// is reported, and the operation stands.
TEST_P(HistoryCommandsTest, AMissingTableIsNotedAndAFailedEntryLeavesTheOperationDone)
{
    exec(u"DROP TABLE dvHistory"_s);
    const QString note = u"This repository has no table for the history of operations, so none is recorded; "
                         u"\"dorvanectl upgrade-repository\" adds it.\n"_s;
    expectRuns({
        {u"delete-version|Order Entry|1.0|--yes"_s, 0, note + u"Are you sure you want to delete ALL elements of 1.0? yes\n"_s},
        {u"history"_s, 1, note},
        {u"upgrade-repository"_s, 0, QString(), u"added table dvHistory (the history of operations)\nup to date: 0 indexes added\n"_s},
        {u"upgrade-repository"_s, 0, QString(), u"up to date: 0 indexes added\n"_s},
        {u"history"_s, 0, QString(), QString()},
    });
    EXPECT_TRUE(rows(kVersionKey.arg(u"Order Entry"_s, u"1.0"_s)).isEmpty());

    exec(u"DROP TABLE dvHistory"_s);
    exec(u"CREATE TABLE dvHistory (iOther integer)"_s);
    expectRuns({{u"delete-application|Web Store|--yes"_s, 0,
                 u"Are you sure you want to delete Web Store and all its versions? yes\n"
                 u"The operation's entry in the history could not be written: …\n"_s}});
    EXPECT_TRUE(rows(u"SELECT iAppKey FROM tApp WHERE sAppName='Web Store'"_s).isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Repositories, HistoryCommandsTest, ::testing::ValuesIn(CtlRepositories()), [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
