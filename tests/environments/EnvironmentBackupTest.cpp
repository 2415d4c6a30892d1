// Environment backup and restore: a populated environment taken through a
// backup file and back, compared row by row; deleted versions and
// applications recreated; one file per day that a failed backup never
// spoils; the tutorial's backup folder; failures that roll back.

#include "environments/EnvironmentBackup.h"
#include "environments/EnvironmentFixture.h"
#include "repository/FilePaths.h"

#include <QDirIterator>
#include <QHash>
#include <QProcess>
#include <QSysInfo>

#include <cstdlib>
#include <unistd.h>

#include <algorithm>

using namespace dorvane;
using namespace dorvane::test;
using namespace Qt::StringLiterals;

namespace {

const QString kRelease = QStringLiteral("Release 1");

// Answers the chooser with the first file it is shown, or cancels.
class ScriptedChooser : public RestoreChooser {
public:
    std::optional<QString> ChooseBackup(const QString& folder) override
    {
        folders << folder;
        if (cancel)
            return std::nullopt;
        return ListBackupFiles(folder).front().path;
    }
    bool cancel = false;
    QStringList folders;
};

// Foreign keys into the tables whose rows a restore writes anew, by column.
const QHash<QString, QString> kReferences = {
    {QStringLiteral("iObjectWindowKey"), QStringLiteral("tWindow")},
    {QStringLiteral("iStepWindowWindowKey"), QStringLiteral("tWindow")},
    {QStringLiteral("iVersionInitialWindow"), QStringLiteral("tWindow")},
    {QStringLiteral("iVersionMainWindow"), QStringLiteral("tWindow")},
    {QStringLiteral("iStepObjectKey"), QStringLiteral("tObject")},
    {QStringLiteral("iStepWindowProcessKey"), QStringLiteral("tProcess")},
    {QStringLiteral("iProcessKey"), QStringLiteral("tProcess")},
    {QStringLiteral("iKeywordRelProcessKey"), QStringLiteral("tProcess")},
    {QStringLiteral("iVersionLoadProcess"), QStringLiteral("tProcess")},
    {QStringLiteral("iVersionLoginProcess"), QStringLiteral("tProcess")},
    {QStringLiteral("iVersionLogoutProcess"), QStringLiteral("tProcess")},
    {QStringLiteral("iVersionTerminateProcess"), QStringLiteral("tProcess")},
    {QStringLiteral("iVersionRecoverProcess"), QStringLiteral("tProcess")},
    {QStringLiteral("iStepWindowKey"), QStringLiteral("tStepWindow")},
    {QStringLiteral("iCycleKey"), QStringLiteral("tCycle")},
    {QStringLiteral("iKeywordRelCycleKey"), QStringLiteral("tCycle")},
    {QStringLiteral("iScheduleKey"), QStringLiteral("tSchedule")},
    {QStringLiteral("iKeywordRelScheduleKey"), QStringLiteral("tSchedule")},
    {QStringLiteral("iKeywordRelKeywordKey"), QStringLiteral("tKeyword")},
};
const QStringList kRewritten = {
    QStringLiteral("tWindow"),      QStringLiteral("tObject"),          QStringLiteral("tProcess"),
    QStringLiteral("tStepWindow"),  QStringLiteral("tStep"),            QStringLiteral("tCycle"),
    QStringLiteral("tCycleProcess"), QStringLiteral("tSchedule"),       QStringLiteral("tScheduleCycles"),
    QStringLiteral("tKeywordRel"),  QStringLiteral("tUserVar"),         QStringLiteral("tRequirement"),
    QStringLiteral("tEnvironmentDetail"), QStringLiteral("tEnvironmentUser"),
};

} // namespace

class EnvironmentBackupTest : public EnvironmentTest {
protected:
    void SetUp() override
    {
        EnvironmentTest::SetUp();
        exe = db->tempPath() + QStringLiteral("/exe");
        shared = db->tempPath() + QStringLiteral("/shared");
        ASSERT_TRUE(QDir().mkpath(exe) && QDir().mkpath(shared + QStringLiteral("/Environments/Backups")));
        Connection templ;
        DB_ASSERT(Connection::CreateDatabaseFile(exe + QStringLiteral("/ZentrixBackup.mdb")));
        DB_ASSERT(templ.OpenFile(exe + QStringLiteral("/ZentrixBackup.mdb"));
                  BuildDatabase(templ, SchemaVariant::BackupTemplate, RepositoryContent::Empty));
        const QString repository =
            db->isOdbc() ? QStringLiteral("\"ActiveDB\"=\"Server\"\r\n\"IsLocalDatabase\"=dword:00000000\r\n"
                                          "\"ActiveDSN\"=\"%1\"\r\n")
                               .arg(TestDsn())
                         : QStringLiteral("\"ActiveDB\"=\"Local\"\r\n\"IsLocalDatabase\"=dword:00000001\r\n"
                                          "\"LocalDatabasePath\"=\"%1\"\r\n\"LocalDatabaseName\"=\"Test.mdb\"\r\n")
                               .arg(db->tempPath());
        writeSettings(repository + QStringLiteral("\"ExePath\"=\"%1\"\r\n").arg(exe));
        backups = std::make_unique<EnvironmentBackup>(*backup, shared);
    }

    QString folder() const { return shared + QStringLiteral("/Environments/Backups/") + kRelease; }
    QStringList filesInFolder() const { return QDir(folder()).entryList(QDir::Files, QDir::Name); }

    // "Release 1": Billing 1.0 and 2.0 (one application) and Ledger 4.2,
    // two users, and a schedule. Rows are added in the order a restore
    // writes them, so that the n-th row of a table is the n-th again.
    void populate()
    {
        environment = addEnvironment(kRelease, QStringLiteral("First release"));
        billing = addFull(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Billing")}});
        ledger = addApp(QStringLiteral("Ledger"));
        billing10 = addFull(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), billing},
                                                         {QStringLiteral("sVersionID"), QStringLiteral("1.0")}});
        billing20 = addVersion(billing, QStringLiteral("2.0"));
        ledger42 = addVersion(ledger, QStringLiteral("4.2"));
        for (qint32 version : {billing10, billing20, ledger42})
            addDetail(environment, version, 1, 0);
        for (const auto& [id, rights] : {std::pair{QStringLiteral("jo"), -1}, std::pair{QStringLiteral("al"), 0}}) {
            const qint32 user = addUser(id, id, id);
            add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), environment}, {QStringLiteral("iUserKey"), user},
                                                     {QStringLiteral("bDorvane"), rights}, {QStringLiteral("bOmrik"), -1 - rights},
                                                     {QStringLiteral("bZulane"), rights}, {QStringLiteral("bVantrel"), 0},
                                                     {QStringLiteral("bKrestin"), -1}});
        }
        const qint32 keyword = add(QStringLiteral("tKeyword"), {{QStringLiteral("iKeywordAppKey"), billing},
                                                                {QStringLiteral("sKeywordName"), QStringLiteral("smoke")}});

        const qint32 screen = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10},
                                                              {QStringLiteral("sWindowPhysicalName"), QStringLiteral("[System Screen]")}});
        const qint32 main = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10},
                                                            {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmMain")}});
        const qint32 ok = add(QStringLiteral("tObject"), {{QStringLiteral("iObjectWindowKey"), main}, {QStringLiteral("iObjectVersionKey"), billing10},
                                                          {QStringLiteral("sObjectPhysicalName"), QStringLiteral("cmdOK")}});
        login = addProcessOn(billing10, main, environment, QStringLiteral("Login"));
        add(QStringLiteral("tStep"), {{QStringLiteral("iStepWindowKey"), ints(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey=%1").arg(login), QStringLiteral("iStepWindowKey")).front()},
                                      {QStringLiteral("iStepObjectKey"), ok}, {QStringLiteral("sStepArguments"), QStringLiteral("Click")},
                                      {QStringLiteral("iStepSequenceNum"), 1}});
        add(QStringLiteral("tKeywordRel"), {{QStringLiteral("iKeywordRelKeywordKey"), keyword}, {QStringLiteral("iKeywordRelProcessKey"), login}});
        const qint32 cycle = add(QStringLiteral("tCycle"), {{QStringLiteral("iCycleVerKey"), billing10},
                                                            {QStringLiteral("sCycleName"), QStringLiteral("Smoke")}});
        add(QStringLiteral("tCycleProcess"), {{QStringLiteral("iCycleKey"), cycle}, {QStringLiteral("iProcessKey"), login},
                                              {QStringLiteral("iProcessSequenceNum"), 1}});
        add(QStringLiteral("tKeywordRel"), {{QStringLiteral("iKeywordRelKeywordKey"), keyword}, {QStringLiteral("iKeywordRelCycleKey"), cycle}});
        add(QStringLiteral("tUserVar"), {{QStringLiteral("iVarAppVerKey"), billing10}, {QStringLiteral("sVarName"), QStringLiteral("Customer")}});
        add(QStringLiteral("tRequirement"), {{QStringLiteral("iRequirementAppVerKey"), billing10},
                                             {QStringLiteral("sRequirementName"), QStringLiteral("R1")}});
        setPointers(billing10, login, screen);

        add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing20},
                                        {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmMain")}});
        const qint32 ledgerMain = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), ledger42},
                                                                  {QStringLiteral("sWindowPhysicalName"), QStringLiteral("LEDG01")}});
        post = addProcessOn(ledger42, ledgerMain, environment, QStringLiteral("Post"));
        // Ledger's main window is Billing's: a pointer across versions.
        setPointers(ledger42, post, main);

        const qint32 schedule = add(QStringLiteral("tSchedule"), {{QStringLiteral("iScheduleEnvironKey"), environment},
                                                                  {QStringLiteral("sScheduleName"), QStringLiteral("Nightly")}});
        add(QStringLiteral("tScheduleCycles"), {{QStringLiteral("iScheduleKey"), schedule}, {QStringLiteral("iCycleKey"), cycle},
                                                {QStringLiteral("iCycleSequenceNum"), 1}});
    }

    // Every row of the repository, sorted, with the keys of the rows a
    // restore writes anew replaced by their rank within their table (the
    // n-th window is the n-th window again). Keys of applications,
    // versions and environments stay as they are. A row that refers to a
    // row no longer there goes to `dangling`.
    QStringList canonical(QStringList* dangling = nullptr)
    {
        QHash<QString, std::vector<qint32>> keys;
        for (const QString& table : kRewritten + QStringList{QStringLiteral("tKeyword")})
            keys[table] = ints(QStringLiteral("SELECT * FROM %1 ORDER BY %2").arg(table, keyOf(table)), keyOf(table));
        QStringList rows;
        for (const TableDef& table : RepositoryTables()) {
            for (Recordset rs(QStringLiteral("SELECT * FROM %1").arg(table.name), conn); !rs.Eof(); rs.MoveNext()) {
                QStringList cells;
                bool broken = false;
                for (const QString& column : table.columns) {
                    if (column == table.key && kRewritten.contains(table.name))
                        continue;
                    QString cell = rs.IsNull(column) ? QStringLiteral("<null>") : rs.Text(column);
                    const auto target = kReferences.constFind(column);
                    if (column != table.key && target != kReferences.constEnd() && rs.Int(column) != 0) {
                        const std::vector<qint32>& in = keys[*target];
                        const auto at = std::find(in.begin(), in.end(), rs.Int(column));
                        broken = broken || at == in.end();
                        cell = at == in.end() ? QStringLiteral("-") : QStringLiteral("#%1").arg(at - in.begin());
                    }
                    cells << cell;
                }
                const QString row = table.name + QLatin1Char(':') + cells.join(QLatin1Char('|'));
                if (broken && dangling)
                    *dangling << row;
                else
                    rows << row;
            }
        }
        rows.sort();
        return rows;
    }

    QString lastFile() const { return NativePath(backups->LastBackupFile()); }

    QString exe, shared;
    std::unique_ptr<EnvironmentBackup> backups;
    ScriptedChooser chooser;
    qint32 environment = 0, billing = 0, ledger = 0, billing10 = 0, billing20 = 0, ledger42 = 0, login = 0, post = 0;
};

TEST_P(EnvironmentBackupTest, RestoreBringsBackTheBackedUpEnvironmentRowByRow)
{
    DB_ASSERT(populate());
    const QStringList before = canonical();
    ASSERT_TRUE(backups->BackupEnvironment(environment)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(filesInFolder(), QStringList{EnvironmentBackup::BackupFileName(QDate::currentDate())});
    EXPECT_TRUE(progress.events.contains(QStringLiteral("title:Environment backup progress...")));
    EXPECT_FALSE(progress.visible);
    const BackupFileContents contents = CountBackupFile(backups->LastBackupFile());
    EXPECT_EQ(contents.versions, 3); // with an application row each

    // Added after the backup, and deleted after it.
    add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10}, {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmLate")}});
    conn.Execute(QStringLiteral("DELETE FROM tStepWindow WHERE iStepWindowProcessKey=%1").arg(post));
    conn.Execute(QStringLiteral("DELETE FROM tProcess WHERE iProcessKey=%1").arg(post));
    conn.Execute(QStringLiteral("DELETE FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(environment));
    conn.Execute(QStringLiteral("UPDATE tEnvironment SET sEnvironmentDesc='Changed' WHERE iEnvironmentKey=%1").arg(environment));
    ASSERT_NE(canonical(), before);

    progress.events.clear();
    ASSERT_TRUE(backups->ChooseAndRestore(environment, kRelease, chooser)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(chooser.folders, QStringList{shared + QStringLiteral("\\Environments\\Backups\\") + kRelease});
    QStringList dangling;
    EXPECT_EQ(canonical(&dangling), before);
    // The old schedule's cycle links went with it.
    EXPECT_TRUE(dangling.isEmpty()) << dangling.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty()) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(progress.events.contains(QStringLiteral("action:Preparing database for restore...")));
    EXPECT_TRUE(progress.events.contains(QStringLiteral("title:Environment restore progress...")));
}

TEST_P(EnvironmentBackupTest, VersionsAndApplicationsDeletedSinceTheBackupAreRecreatedOnce)
{
    DB_ASSERT(populate());
    ASSERT_TRUE(backups->BackupEnvironment(environment));
    // Billing goes, though its version 1.0 stays; 2.0 and Ledger 4.2 go.
    conn.Execute(QStringLiteral("DELETE FROM tVersion WHERE iVersionKey IN (%1, %2)").arg(billing20).arg(ledger42));
    conn.Execute(QStringLiteral("DELETE FROM tApp WHERE iAppKey=%1").arg(billing));

    ASSERT_TRUE(backups->RestoreEnvironment(environment, backups->LastBackupFile()));
    const std::vector<qint32> versions =
        ints(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(environment),
             QStringLiteral("iEnvironVerKey"));
    const std::vector<qint32> billings = ints(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Billing'"), QStringLiteral("iAppKey"));
    ASSERT_EQ(versions.size(), 3u);
    ASSERT_EQ(billings.size(), 1u); // recreated once for both its versions
    EXPECT_GT(billings[0], ledger);
    EXPECT_EQ(texts(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=%1").arg(billings[0]), QStringLiteral("sAppMapPath")),
              QStringList{QStringLiteral("sAppMapPath value")});
    EXPECT_EQ(versions[0], billing10);
    EXPECT_GT(versions[1], ledger42);
    EXPECT_GT(versions[2], versions[1]);
    const qint32 appOf[] = {billings[0], billings[0], ledger};
    const char* ids[] = {"1.0", "2.0", "4.2"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(intValue(QStringLiteral("tVersion"), versions[i], QStringLiteral("iVersionAppKey")), appOf[i]);
        EXPECT_EQ(value(QStringLiteral("tVersion"), versions[i], QStringLiteral("sVersionID")).toString(), QLatin1String(ids[i]));
    }
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(versions[2])), 1);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=%1").arg(billings[0])), 1);
}

TEST_P(EnvironmentBackupTest, OneFilePerDayThatAFailedBackupLeavesAlone)
{
    DB_ASSERT(populate());
    ASSERT_TRUE(backups->BackupEnvironment(environment));
    conn.Execute(QStringLiteral("UPDATE tEnvironment SET sEnvironmentDesc='Later' WHERE iEnvironmentKey=%1").arg(environment));
    ASSERT_TRUE(backups->BackupEnvironment(environment));
    const QStringList once = filesInFolder();
    ASSERT_EQ(once.size(), 1);
    auto descriptionInFile = [&] {
        Connection file;
        file.OpenFile(lastFile());
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironment"), file);
        return rs.Text(QStringLiteral("sEnvironmentDesc"));
    };
    EXPECT_EQ(descriptionInFile(), QStringLiteral("Later"));

    // A failure half-way through a third backup of the day.
    {
        Connection templ;
        templ.OpenFile(exe + QStringLiteral("/ZentrixBackup.mdb"));
        templ.Execute(QStringLiteral("CREATE TRIGGER boom BEFORE INSERT ON tWindow BEGIN SELECT RAISE(ABORT, 'boom'); END"));
    }
    const QString written = lastFile();
    EXPECT_FALSE(backups->BackupEnvironment(environment));
    expectFailure(QStringLiteral("Error while copying Windows:"));
    EXPECT_EQ(filesInFolder(), once);
    EXPECT_TRUE(backups->LastBackupFile().isEmpty());
    Connection file;
    file.OpenFile(written);
    EXPECT_EQ(Recordset(QStringLiteral("SELECT * FROM tEnvironment"), file).Text(QStringLiteral("sEnvironmentDesc")),
              QStringLiteral("Later"));
    EXPECT_FALSE(progress.visible);
    EXPECT_EQ(busy.begun, busy.ended);
}

TEST_P(EnvironmentBackupTest, BackupsAreListedNewestFirstByTheDateTheirNameGives)
{
    const qint32 empty = addEnvironment(kRelease);
    add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), empty}, {QStringLiteral("iUserKey"), addUser(QStringLiteral("jo"), QStringLiteral("Jo"), QStringLiteral("Doe"))}});

    // Nothing to restore yet: the chooser is not shown.
    EXPECT_FALSE(backups->ChooseAndRestore(empty, kRelease, chooser));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("This Environment has no backups to restore.")});
    EXPECT_TRUE(chooser.folders.isEmpty());
    messages.shown.clear();

    for (const QDate day : {QDate(2000, 12, 31), QDate(2001, 3, 7), QDate(2000, 1, 2)}) {
        backups->Today = [day] { return day; };
        ASSERT_TRUE(backups->BackupEnvironment(empty));
    }
    ASSERT_TRUE(QFile(folder() + QStringLiteral("/notes.txt")).open(QIODevice::WriteOnly));
    QStringList names;
    for (const BackupFileEntry& file : ListBackupFiles(backups->RestoreFolder(kRelease)))
        names << file.name;
    EXPECT_EQ(names, (QStringList{QStringLiteral("03-07-2001.MDB"), QStringLiteral("12-31-2000.MDB"),
                                  QStringLiteral("01-02-2000.MDB")}));
    // No versions: the environment and its user only.
    const BackupFileContents contents = CountBackupFile(backups->RestoreFolder(kRelease) + QStringLiteral("\\01-02-2000.MDB"));
    EXPECT_EQ(contents.versions, 0);
    EXPECT_EQ(contents.rows, 2);
    EXPECT_EQ(backups->BackupQuestion(kRelease), QStringLiteral("Back up all application/versions of Release 1 to 01-02-2000.MDB?"));

    // A cancelled chooser changes nothing.
    const QStringList before = dump();
    chooser.cancel = true;
    EXPECT_FALSE(backups->ChooseAndRestore(empty, kRelease, chooser));
    EXPECT_EQ(dump(), before);
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(EnvironmentBackupTest, ARestoreFailingHalfWayLeavesTheRepositoryAsItWas)
{
    DB_ASSERT(populate());
    ASSERT_TRUE(backups->BackupEnvironment(environment));
    add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), billing10}, {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmLate")}});
    const QStringList before = dump();
    abortOn(QStringLiteral("tStep"), QStringLiteral("INSERT"));

    EXPECT_FALSE(backups->RestoreEnvironment(environment, backups->LastBackupFile()));
    expectFailure(QStringLiteral("Error while copying Steps:"));
    dropAbort(QStringLiteral("tStep"), QStringLiteral("INSERT"));
    EXPECT_EQ(dump(), before);

    EXPECT_FALSE(backups->RestoreEnvironment(environment, backups->LastBackupFile() + QStringLiteral(".missing")));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.first().startsWith(QStringLiteral("Error while restoring environment: Could not find file")))
        << messages.shown.first().toStdString();
    EXPECT_EQ(dump(), before);
}

// A backup goes back into its own environment only: another environment's
// file is refused before anything changes; the file of an environment
// deleted since is restored after a question.
TEST_P(EnvironmentBackupTest, ABackupIsRestoredOnlyIntoItsOwnEnvironment)
{
    DB_ASSERT(populate());
    const qint32 other = addEnvironment(QStringLiteral("Other"));
    ASSERT_TRUE(backups->BackupEnvironment(environment));
    const QString file = backups->LastBackupFile();
    const QStringList before = dump();

    EXPECT_FALSE(backups->RestoreEnvironment(other, file));
    EXPECT_EQ(messages.shown, QStringList{u"The backup %1 belongs to environment \"Release 1\" and cannot be restored "
                                          u"into environment \"Other\". Nothing was changed."_s.arg(
                                              EnvironmentBackup::BackupFileName(QDate::currentDate()))});
    EXPECT_EQ(dump(), before);
    messages.shown.clear();

    // Release 1 deleted and created again: a new key, the same name.
    conn.Execute(u"DELETE FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(environment));
    conn.Execute(u"DELETE FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(environment));
    conn.Execute(u"DELETE FROM tEnvironment WHERE iEnvironmentKey=%1"_s.arg(environment));
    const qint32 again = addEnvironment(kRelease);
    const QStringList recreated = dump();
    messages.Queue(Answer::No);
    EXPECT_FALSE(backups->RestoreEnvironment(again, file));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.first().contains(u"which no longer exists. Restore it into environment \"Release 1\"?"_s))
        << messages.shown.first().toStdString();
    EXPECT_EQ(dump(), recreated);
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(backups->RestoreEnvironment(again, file)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(again)), 3);
    EXPECT_EQ(count(u"SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(again)), 2);
}

// Content that reached a version after the backup is replaced by the
// backup's, never doubled; keywords named with an apostrophe are matched
// and the versions' list-handling attributes come back.
TEST_P(EnvironmentBackupTest, ARestoreReplacesWhatTheVersionsHoldNow)
{
    DB_ASSERT(populate());
    conn.Execute(u"UPDATE tKeyword SET sKeywordName='Don''t save' WHERE iKeywordAppKey=%1"_s.arg(billing));
    conn.Execute(u"UPDATE tVersion SET sVersionAttributes='MoreLine=1' WHERE iVersionKey=%1"_s.arg(billing20));
    const QStringList before = canonical();
    ASSERT_TRUE(backups->BackupEnvironment(environment));

    // An update took Billing 1.0 out of the environment and filled it
    // again elsewhere; its attributes changed.
    conn.Execute(u"DELETE FROM tEnvironmentDetail WHERE iEnvironVerKey=%1"_s.arg(billing10));
    add(u"tWindow"_s, {{u"iWindowVerKey"_s, billing10}, {u"sWindowPhysicalName"_s, u"frmLate"_s}});
    conn.Execute(u"UPDATE tVersion SET sVersionAttributes='' WHERE iVersionKey=%1"_s.arg(billing20));

    ASSERT_TRUE(backups->RestoreEnvironment(environment, backups->LastBackupFile())) << messages.shown.join(u'\n').toStdString();
    QStringList dangling;
    EXPECT_EQ(canonical(&dangling), before);
    EXPECT_TRUE(dangling.isEmpty()) << dangling.join(u'\n').toStdString();
    // Twice over: still nothing doubled.
    ASSERT_TRUE(backups->RestoreEnvironment(environment, backups->LastBackupFile())) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(canonical(), before);
}

// Names from other writers of a shared repository never lead a backup out
// of the backups folder; a ";" in a name works.
TEST_P(EnvironmentBackupTest, StoredNamesThatCannotNameAFolderAreRefused)
{
    for (const QString& name : {u"../../../../x"_s, u"a\\b"_s, u"trailing."_s}) {
        SCOPED_TRACE(name.toStdString());
        const qint32 key = addEnvironment(name);
        EXPECT_FALSE(backups->BackupEnvironment(key));
        ASSERT_EQ(messages.shown.size(), 1);
        EXPECT_TRUE(messages.shown.first().startsWith(u"Error while backing up environment: The environment name \""_s))
            << messages.shown.first().toStdString();
        messages.shown.clear();
        EXPECT_FALSE(backups->AskAndBackUp(key, name));
        EXPECT_FALSE(backups->ChooseAndRestore(key, name, chooser));
        EXPECT_EQ(messages.shown.size(), 2);
        messages.shown.clear();
    }
    EXPECT_TRUE(chooser.folders.isEmpty());
    // Nothing was written anywhere below the test folder but the backups.
    QStringList files;
    for (QDirIterator it(db->tempPath(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        files << it.next();
    EXPECT_TRUE(files.filter(u".MDB"_s, Qt::CaseSensitive).isEmpty()) << files.join(u'\n').toStdString();

    const qint32 semi = addEnvironment(u"Semi;colon"_s);
    ASSERT_TRUE(backups->BackupEnvironment(semi)) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(backups->RestoreEnvironment(semi, backups->LastBackupFile())) << messages.shown.join(u'\n').toStdString();
}

// A killed backup's work files (its -wal and -shm too) are removed by the
// next backup and by the restore chooser; a live writer's are left, and no
// work file is ever offered.
TEST_P(EnvironmentBackupTest, AKilledBackupLeavesNothingBehind)
{
    const qint32 key = addEnvironment(kRelease);
    const QString day = EnvironmentBackup::BackupFileName(QDate::currentDate());
    const QString host = QSysInfo::machineHostName();
    // The process numbers of two backups that were killed: processes that
    // ran and are gone.
    qint64 gone[2] = {};
    for (qint64& pid : gone) {
        QProcess process;
        process.start(u"true"_s);
        ASSERT_TRUE(process.waitForStarted());
        pid = process.processId();
        ASSERT_TRUE(process.waitForFinished());
    }
    const QStringList dead = {day + u".%1.tmp"_s.arg(gone[0]), day + u".%1.tmp-wal"_s.arg(gone[0]),
                              day + u".%1.tmp-shm"_s.arg(gone[0]), day + u".%1-%2.tmp"_s.arg(host).arg(gone[1])};
    const QString live = day + u".%1-1.tmp"_s.arg(host);  // process 1 always runs
    ASSERT_TRUE(QDir().mkpath(folder()));
    for (const QString& name : dead + QStringList{live})
        ASSERT_TRUE(QFile(folder() + u'/' + name).open(QIODevice::WriteOnly));
    EXPECT_TRUE(ListBackupFiles(backups->RestoreFolder(kRelease)).empty());

    ASSERT_TRUE(backups->BackupEnvironment(key)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(filesInFolder(), (QStringList{day, live}));

    // Killed again, this time with its journal: the chooser cleans up too.
    for (const QString& name : dead)
        ASSERT_TRUE(QFile(folder() + u'/' + name).open(QIODevice::WriteOnly));
    EXPECT_TRUE(backups->ChooseAndRestore(key, kRelease, chooser)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(filesInFolder(), (QStringList{day, live}));
}

// Failures of the file system name their cause and leave no file behind.
TEST_P(EnvironmentBackupTest, AFullDiskOrAFolderThatCannotBeWrittenSaysSo)
{
    DB_ASSERT(populate());
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting a small or read-only file system needs root";
    const QString mount = folder();
    ASSERT_TRUE(QDir().mkpath(mount));
    const auto run = [](const QString& command) { return std::system(command.toLocal8Bit().constData()) == 0; };
    if (!run(u"mount -t tmpfs -o size=64k tmpfs '%1' 2>/dev/null"_s.arg(mount)))
        GTEST_SKIP() << "tmpfs cannot be mounted here";
    EXPECT_FALSE(backups->BackupEnvironment(environment));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.first().contains(u"disk is full"_s)) << messages.shown.first().toStdString();
    EXPECT_TRUE(filesInFolder().isEmpty()) << filesInFolder().join(u' ').toStdString();
    messages.shown.clear();

    run(u"mount -o remount,ro '%1'"_s.arg(mount));
    EXPECT_FALSE(backups->BackupEnvironment(environment));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.first().contains(u"Permission denied"_s)) << messages.shown.first().toStdString();
    run(u"umount '%1'"_s.arg(mount));
}

// A server that goes away in the middle of a restore: the message says so.
TEST_P(EnvironmentBackupTest, ALostServerConnectionIsNamed)
{
    if (!db->isOdbc())
        GTEST_SKIP() << "a file has no server to lose";
    DB_ASSERT(populate());
    ASSERT_TRUE(backups->BackupEnvironment(environment));
    conn.Execute(u"CREATE OR REPLACE FUNCTION dorvane_hang_up() RETURNS trigger LANGUAGE plpgsql AS "
                 u"$$ BEGIN PERFORM pg_terminate_backend(pg_backend_pid()); RETURN NEW; END $$"_s);
    conn.Execute(u"CREATE TRIGGER hang_up BEFORE INSERT ON tStep FOR EACH ROW EXECUTE FUNCTION dorvane_hang_up()"_s);
    const QStringList before = dump();
    EXPECT_FALSE(backups->RestoreEnvironment(environment, backups->LastBackupFile()));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.first().startsWith(u"Error while copying Steps:"_s + kConnectionLostText))
        << messages.shown.first().toStdString();
    conn.Execute(u"DROP TRIGGER hang_up ON tStep"_s);
    EXPECT_EQ(dump(), before);
}

// The tutorial's backups go below the installation; a restore looks in the
// shared resource folder whatever the settings say.
TEST_P(EnvironmentBackupTest, TutorialBackupsAreWrittenBelowTheInstallationAndLookedForInTheSharedFolder)
{
    if (db->isOdbc())
        GTEST_SKIP() << "the tutorial repository is a file";
    const QString installation = db->tempPath() + QStringLiteral("/tutorial");
    ASSERT_TRUE(CreateInstallation(installation).ok);
    writeSettings(QStringLiteral("\"ActiveDB\"=\"Tutorial\"\r\n\"IsLocalDatabase\"=dword:00000001\r\n\"ExePath\"=\"%1\"\r\n").arg(installation));
    qint32 key = 0;
    QString name;
    {
        Connection tutorial;
        tutorial.OpenFile(installation + QStringLiteral("/Tutorial/Database/Tutorial.mdb"));
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironment"), tutorial);
        key = rs.Int(QStringLiteral("iEnvironmentKey"));
        name = rs.Text(QStringLiteral("sEnvironmentName"));
    }

    ASSERT_TRUE(backups->BackupEnvironment(key)) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(backups->LastBackupFile(), installation + QStringLiteral("\\Tutorial\\Environments\\Backups\\") + name +
                                             QStringLiteral("\\") + EnvironmentBackup::BackupFileName(QDate::currentDate()));
    EXPECT_TRUE(QFileInfo::exists(lastFile()));

    EXPECT_FALSE(backups->ChooseAndRestore(key, name, chooser));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("This Environment has no backups to restore.")});

    // Started on the tutorial, the shared resource path is its folder.
    EnvironmentBackup started(*backup, installation + QStringLiteral("\\Tutorial"));
    EXPECT_TRUE(started.ChooseAndRestore(key, name, chooser)) << messages.shown.join(u'\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentBackupTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
