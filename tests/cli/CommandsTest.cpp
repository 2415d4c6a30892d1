// dorvanectl's repository commands, run as a program on the tutorial
// installation and on the PostgreSQL data source: their output, messages,
// exit statuses and what they leave in the repository.

#include "cli/CtlTestSupport.h"

#include <QDate>
#include <QDir>
#include <QFileInfo>

namespace dorvane::test {
namespace {

const QString kEnvVersions = u"SELECT iEnvironVerKey FROM tEnvironmentDetail WHERE iEnvironKey IN (SELECT iEnvironmentKey "
                             u"FROM tEnvironment WHERE sEnvironmentName='%1') ORDER BY iEnvironVerKey"_s;
const QString kVersionKey = u"SELECT iVersionKey FROM tVersion WHERE sVersionID='%2' AND iVersionAppKey IN "
                            u"(SELECT iAppKey FROM tApp WHERE sAppName='%1')"_s;
const QString kProcesses = u"SELECT iProcessKey FROM tProcess WHERE iProcessVerKey=%1"_s;
const QString kKeywords = u"SELECT sKeywordName, sKeywordDesc FROM tKeyword WHERE iKeywordAppKey IN (SELECT iAppKey "
                          u"FROM tApp WHERE sAppName='%1') ORDER BY iKeywordKey"_s;
const QString kOE = u"Order Entry"_s, kOE11 = u"Order Entry - 1.1"_s, kTutorial = u"TUTORIAL"_s, kId = u"--version-id"_s;

using CommandsTest = CtlRepositoryTest;

TEST_P(CommandsTest, UpdateAndCopyVersion)
{
    exec(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType) SELECT iAppKey, '1.2', 1 FROM tApp WHERE sAppName='Order Entry'"_s);
    const QString oe11 = rows(kVersionKey.arg(kOE, u"1.1"_s)).value(0), oe12 = rows(kVersionKey.arg(kOE, u"1.2"_s)).value(0);
    const QString r5 = rows(kVersionKey.arg(u"Customer Inquiry"_s, u"R5"_s)).value(0);
    // Its seeded system screen alone still leaves a version new.
    exec(u"INSERT INTO tWindow (iWindowVerKey, sWindowPhysicalName) VALUES (%1, '[System Screen]')"_s.arg(oe12));
    const qsizetype processes = rows(kProcesses.arg(oe11)).size();
    ASSERT_GT(processes, 0);
    ASSERT_EQ(rows(kEnvVersions.arg(kTutorial)), (QStringList{oe11, r5}));
    expectRuns({
        {{u"update-version"_s, kTutorial, kOE11, kOE, u"1.0"_s}, 1,
         u"You can only update an existing application version from a new (empty) one\n"_s},
        {{u"delete-version"_s, kOE, u"1.1"_s, u"--yes"_s}, 1, u"This version is part of an existing environment and cannot be deleted!\n"_s},
        {{u"update-version"_s, u"NOWHERE"_s, kOE11, kOE, u"1.2"_s}, 1, u"…NOWHERE…"_s},
        {{u"copy-version"_s, kTutorial, kOE11, u"Payroll"_s, u"1.2"_s}, 1, u"…Payroll…"_s},
        {{u"update-version"_s, kTutorial, kOE11, kOE, u"7.7"_s}, 1, u"…7.7…"_s},
        {{u"delete-application"_s, u"Payroll"_s, u"--yes"_s}, 1, u"There is no application named Payroll.\n"_s},
        // A version of another application is not this application's.
        {{u"delete-version"_s, kOE, u"3.0"_s, u"--yes"_s}, 1, u"Order Entry has no version 3.0.\n"_s},
        // copy-version fills the new version and leaves the environment.
        {{u"copy-version"_s, kTutorial, kOE11, kOE, u"1.2"_s}, 0, QString()},
    });
    EXPECT_EQ(rows(kProcesses.arg(oe12)).size(), processes);
    EXPECT_EQ(rows(kEnvVersions.arg(kTutorial)), (QStringList{oe11, r5}));

    // update-version also moves the environment to the new version.
    exec(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType) SELECT iAppKey, '1.3', 1 FROM tApp WHERE sAppName='Order Entry'"_s);
    const QString oe13 = rows(kVersionKey.arg(kOE, u"1.3"_s)).value(0);
    expectRuns({{{u"update-version"_s, kTutorial, kOE11, kOE, u"1.3"_s}, 0, QString()}});
    EXPECT_EQ(rows(kProcesses.arg(oe13)).size(), processes);
    EXPECT_EQ(rows(kEnvVersions.arg(kTutorial)), (QStringList{r5, oe13}));
}

// Without a terminal the question is printed and only --yes answers it.
TEST_P(CommandsTest, DeletingNeedsAYesAndAFailureRollsBack)
{
    const QString ws30 = rows(kVersionKey.arg(u"Web Store"_s, u"3.0"_s)).value(0);
    const QString deleteVersion = u"Are you sure you want to delete ALL elements of 3.0?…"_s;
    const QString deleteApp = u"Are you sure you want to delete Web Store and all its versions?…"_s;
    expectRuns({{{u"delete-version"_s, u"Web Store"_s, u"3.0"_s}, 1, deleteVersion},
                {{u"delete-version"_s, u"Web Store"_s, u"3.0"_s, u"--yes"_s}, 0, deleteVersion}});
    EXPECT_EQ(rows(u"SELECT iWindowKey FROM tWindow WHERE iWindowVerKey="_s + ws30), QStringList());
    expectRuns({{{u"delete-application"_s, u"Web Store"_s}, 1, deleteApp},
                {{u"delete-application"_s, u"Web Store"_s, u"--yes"_s}, 0, deleteApp}});
    EXPECT_EQ(rows(u"SELECT sAppName FROM tApp ORDER BY sAppName"_s), (QStringList{u"Customer Inquiry"_s, kOE}));

    // Every deletion of a window fails: the deletion ends with status 1 and
    // leaves the repository as it was.
    if (m_odbc) {
        exec(u"CREATE FUNCTION dorvane_abort() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE EXCEPTION 'boom'; END $$"_s);
        exec(u"CREATE TRIGGER abort_windows BEFORE DELETE ON tWindow FOR EACH ROW EXECUTE FUNCTION dorvane_abort()"_s);
    } else {
        exec(u"CREATE TRIGGER abort_windows BEFORE DELETE ON tWindow BEGIN SELECT RAISE(ABORT, 'boom'); END"_s);
    }
    expectRuns({{{u"delete-version"_s, kOE, u"1.0"_s, u"--yes"_s}, 1,
                 u"…\nError while deleting Windows:…! New version not fully deleted.\n"_s}});
}

TEST_P(CommandsTest, CopyAndDeleteEnvironment)
{
    exec(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, sVersionDesc) SELECT iAppKey, '2.0', 'Prepared' FROM tApp WHERE sAppName='Order Entry'"_s);
    const QString inquiry = u"Customer Inquiry - R5=R6"_s, orderEntry = u"Order Entry - 1.1=2.0"_s;
    expectRuns({
        {{u"copy-environment"_s, kTutorial, u"Release 2"_s, kId, orderEntry}, 1, u"Enter the new Version ID for Customer Inquiry - R5:\n"_s},
        {{u"copy-environment"_s, kTutorial, u"Release 2"_s, kId, u"Order Entry - 1.1=1.1"_s, kId, inquiry}, 1,
         u"1.1 already exists - please choose another ID\nEnter the new Version ID for Order Entry - 1.1:\n"_s},
        {{u"copy-environment"_s, kTutorial, u"Release 2"_s, kId, u"Order Entry - 1.1="_s}, 1, u"Version ID cannot be blank\n…"_s},
        {{u"copy-environment"_s, kTutorial, u"Release 2"_s, kId, u"Order Entry - 9=2.0"_s}, 1,
         u"Environment TUTORIAL has no version to match --version-id Order Entry - 9=2.0.\n"_s},
        {{u"copy-environment"_s, kTutorial, u"tutorial"_s, kId, orderEntry, kId, inquiry}, 1,
         u"tutorial already exists - please choose another ID\n"_s},
        {{u"copy-environment"_s, u"Nowhere"_s, u"Release 2"_s}, 1, u"There is no environment named Nowhere.\n"_s},
        // The Save As name has its full stop replaced; the empty 2.0 receives the copy.
        {{u"copy-environment"_s, kTutorial, u"Release 2.0"_s, u"--description"_s, u"Branch"_s, kId, inquiry, kId, orderEntry}, 0, QString()},
        // The copy's step windows refer to it.
        {{u"delete-environment"_s, u"Release 2_0"_s}, 1, u"This environment is referenced in existing steps and cannot be deleted\n"_s},
    });
    EXPECT_EQ(rows(u"SELECT sEnvironmentDesc FROM tEnvironment WHERE sEnvironmentName='Release 2_0'"_s), QStringList{u"Branch"_s});
    EXPECT_EQ(rows(u"SELECT v.sVersionID FROM tVersion v, tEnvironmentDetail d, tEnvironment e WHERE "
                   u"v.iVersionKey=d.iEnvironVerKey AND d.iEnvironKey=e.iEnvironmentKey AND e.sEnvironmentName='Release 2_0' "
                   u"ORDER BY v.iVersionKey"_s),
              (QStringList{u"2.0"_s, u"R6"_s}));
    // One 2.0, the prepared one, now listed by the copy and filled.
    EXPECT_EQ(rows(u"SELECT sVersionDesc FROM tVersion WHERE sVersionID='2.0'"_s), QStringList{u"Prepared"_s});
    EXPECT_GT(rows(u"SELECT iWindowKey FROM tWindow WHERE iWindowVerKey="_s + rows(kVersionKey.arg(kOE, u"2.0"_s)).value(0)).size(), 1);

    // An unreferenced environment goes with its versions' and users' rows.
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('Spare')"_s);
    const QString spare = rows(u"SELECT iEnvironmentKey FROM tEnvironment WHERE sEnvironmentName='Spare'"_s).value(0);
    exec(u"INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey) SELECT %1, MIN(iVersionKey) FROM tVersion"_s.arg(spare));
    exec(u"INSERT INTO tEnvironmentUser (iEnvironKey, iUserKey) SELECT %1, MIN(iUserKey) FROM tUser"_s.arg(spare));
    expectRuns({{{u"delete-environment"_s, u"Spare"_s}, 0, QString()},
                {{u"delete-environment"_s, u"Spare"_s}, 1, u"There is no environment named Spare.\n"_s}});
    for (const QString& table : {u"tEnvironmentDetail"_s, u"tEnvironmentUser"_s})
        EXPECT_EQ(rows(u"SELECT * FROM %1 WHERE iEnvironKey=%2"_s.arg(table, spare)), QStringList());
    EXPECT_EQ(rows(u"SELECT sEnvironmentName FROM tEnvironment ORDER BY sEnvironmentName"_s), (QStringList{u"Release 2_0"_s, kTutorial}));
}

// Keyword files are Windows-1252 text with CRLF line ends.
TEST_P(CommandsTest, ExportAndImportKeywords)
{
    const QString oe = m_dir.filePath(u"oe.txt"_s), ci = m_dir.filePath(u"ci.txt"_s);
    const auto write = [](const QString& path, const QByteArray& bytes) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    };
    const auto read = [](const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    // An older, longer file keeps its tail.
    write(oe, QByteArray(100, 'x'));
    exec(u"UPDATE tKeyword SET sKeywordDesc='Needs the host region \u2013 \u20ac' WHERE sKeywordName='Host'"_s);
    const QString exported = u"The Keywords have been exported to tab delimited text format in the file you selected\n"_s;
    expectRuns({
        {{u"export-keywords"_s, kOE, oe}, 0, QString(), exported},
        {{u"export-keywords"_s, u"Customer Inquiry"_s, ci}, 0, QString(), exported},
        {{u"import-keywords"_s, u"Web Store"_s, ci}, 0, QString(), u"added: 1  skipped: 0\n"_s},
        {{u"import-keywords"_s, u"Web Store"_s, ci}, 0, QString(), u"added: 0  skipped: 1\n"_s},
        {{u"import-keywords"_s, u"Web Store"_s, m_dir.filePath(u"missing.txt"_s)}, 1, u"Error while Importing Keywords: …"_s},
        {{u"export-keywords"_s, u"Web Store"_s, m_dir.filePath(u"no/folder/out.txt"_s)}, 1, u"Error while exporting Keywords: …"_s},
        {{u"export-keywords"_s, u"Payroll"_s, m_dir.filePath(u"p.txt"_s)}, 1, u"There is no application named Payroll.\n"_s},
        {{u"import-keywords"_s, u"Payroll"_s, m_dir.filePath(u"p.txt"_s)}, 1, u"There is no application named Payroll.\n"_s},
    });
    const QByteArray lines("Orders\tTouches order data\r\nRegression\tPart of the full regression\r\nSmoke\tQuick check after each build\r\n");
    EXPECT_EQ(read(oe), lines + QByteArray(100 - lines.size(), 'x'));
    EXPECT_EQ(read(ci), QByteArray("Host\tNeeds the host region \x96 \x80\r\n"));
    EXPECT_FALSE(QFile::exists(m_dir.filePath(u"p.txt"_s)));
    EXPECT_EQ(rows(kKeywords.arg(u"Web Store"_s)),
              (QStringList{u"Checkout|Payment pages"_s, u"Host|Needs the host region \u2013 \u20ac"_s}));

    // A line without its TAB stops the import with its number, after the lines before it.
    write(ci, "Search\tFinding products\r\nNoTab\r\nNext\tThird\r\n");
    Check({{}, 1, u"Bad format on import file - line 2 has no TAB\n"_s}, ctl({u"import-keywords"_s, u"Web Store"_s, ci}));
    EXPECT_EQ(rows(kKeywords.arg(u"Web Store"_s)).size(), 3);
}

// On the tutorial installation only: the backup folders are its own.
TEST_P(CommandsTest, BackupBackupsAndRestore)
{
    if (m_odbc)
        GTEST_SKIP() << "backups are tested on the tutorial installation";
    const QString day = QDate::currentDate().toString(u"MM-dd-yyyy"_s) + u".MDB"_s;
    const QString folder = m_exe + u"/Tutorial/Environments/Backups/TUTORIAL"_s;
    const QString question = u"Back up all application/versions of TUTORIAL to "_s + day + u"? "_s;
    expectRuns({
        {{u"backups"_s, kTutorial}, 0, QString()},
        {{u"restore"_s, kTutorial, day}, 1, u"This Environment has no backups to restore.\n"_s},
        {{u"backups"_s, u"Nowhere"_s}, 1, u"There is no environment named Nowhere.\n"_s},
        // No terminal to answer on: the question is answered No.
        {{u"backup"_s, kTutorial}, 1, question + u"[y/n] n\n"_s},
    });
    EXPECT_FALSE(QDir(folder).exists());
    // The question names the environment as stored.
    expectRuns({{{u"backup"_s, u"tutorial"_s, u"--yes"_s}, 0, question + u"yes\n"_s, folder + u'/' + day + u'\n'}});
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{day});
    const CtlResult listed = ctl({u"backups"_s, kTutorial});
    EXPECT_EQ(listed.exitCode, 0);
    EXPECT_TRUE(QRegularExpression(u"^"_s + QRegularExpression::escape(day) + u"  versions: 2  rows: [1-9][0-9]*\n$"_s).match(listed.out).hasMatch())
        << listed.out.toStdString();

    // By the listed name or by its path.
    const QString description = u"SELECT sEnvironmentDesc FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'"_s;
    const QStringList saved = rows(description);
    for (const QString& file : {day, folder + u'/' + day}) {
        exec(u"UPDATE tEnvironment SET sEnvironmentDesc='Changed'"_s);
        expectRuns({{{u"restore"_s, kTutorial, file}, 0, QString()}});
        EXPECT_EQ(rows(description), saved);
    }

    // Another environment's backup, and names that cannot name a folder.
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('OTHER')"_s);
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('../../../../x')"_s);
    const QString unsafe = u"…The environment name \"../../../../x\" cannot name its backup folder…"_s;
    expectRuns({
        {{u"restore"_s, kTutorial, u"01-01-1999.MDB"_s}, 1, u"Error while restoring environment: Could not find file '…"_s},
        {{u"backup"_s, u"OTHER"_s, u"--yes"_s}, 0, u"…yes\n"_s, u"…\n"_s},
        {{u"restore"_s, u"OTHER"_s, folder + u'/' + day, u"--yes"_s}, 1,
         u"The backup %1 belongs to environment \"TUTORIAL\" and cannot be restored into environment \"OTHER\". "
         u"Nothing was changed.\n"_s.arg(day)},
        {{u"backup"_s, u"--yes"_s, u"../../../../x"_s}, 1, unsafe},
        {{u"backups"_s, u"../../../../x"_s}, 1, unsafe},
    });
    EXPECT_FALSE(QFileInfo::exists(m_exe + u"/x"_s));
}

INSTANTIATE_TEST_SUITE_P(Repositories, CommandsTest, ::testing::ValuesIn(CtlRepositories()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane::test
