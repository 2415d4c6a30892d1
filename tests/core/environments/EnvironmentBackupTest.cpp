// Environment backup and restore: a populated environment taken through a
// backup file and back, compared row by row; deleted versions and
// applications recreated; one file per day that a failed backup never
// spoils; the tutorial's backup folder; failures that roll back.

#include "core/environments/EnvironmentBackup.h"
#include "cli/CtlTestSupport.h"
#include "core/environments/EnvironmentFixture.h"
#include "core/repository/FilePaths.h"
#include "core/repository/Interruption.h"
#include "core/repository/Transaction.h"

#include <QDirIterator>
#include <QHash>
#include <QProcess>
#include <QScopeGuard>
#include <QSysInfo>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

using namespace dorvane;
using namespace dorvane::test;
namespace {

const QString kRelease = u"Release 1"_s;

// Answers the chooser with the first file it is shown, or cancels.
class ScriptedChooser : public RestoreChooser {
public:
    std::optional<QString> ChooseBackup(const QString& folder) override
    {
        folders << folder;
        return cancel ? std::nullopt : std::optional(ListBackupFiles(folder).front().path);
    }
    bool cancel = false;
    QStringList folders;
};

const QStringList kRewritten = u"tWindow tObject tProcess tStepWindow tStep tCycle tCycleProcess tSchedule tScheduleCycles "
                               u"tKeywordRel tUserVar tRequirement tEnvironmentDetail tEnvironmentUser"_s.split(u' ');

} // namespace

class EnvironmentBackupTest : public EnvironmentTest {
protected:
    void SetUp() override
    {
        EnvironmentTest::SetUp();
        exe = db->tempPath() + u"/exe"_s;
        shared = db->tempPath() + u"/shared"_s;
        ASSERT_TRUE(QDir().mkpath(exe) && QDir().mkpath(shared + u"/Environments/Backups"_s));
        DB_ASSERT(MakeDatabaseFile(exe + u"/ZentrixBackup.mdb"_s, SchemaVariant::BackupTemplate));
        backups = std::make_unique<EnvironmentBackup>(*backup, shared, exe);
    }

    QString folder() const { return shared + u"/Environments/Backups/"_s + kRelease; }
    QStringList filesInFolder() const { return QDir(folder()).entryList(QDir::Files, QDir::Name); }
    QString lastFile() const { return NativePath(backups->LastBackupFile()); }
    QString today() const { return EnvironmentBackup::BackupFileName(QDate::currentDate()); }
    void populate() { r = EnvironmentTest::populate(false); }

    // Every row of the repository, sorted, with the keys of the rows a
    // restore writes anew replaced by their rank within their table (the
    // n-th window is the n-th window again). Keys of applications,
    // versions and environments stay as they are. A row that refers to a
    // row no longer there goes to `dangling`.
    QStringList canonical(QStringList* dangling = nullptr)
    {
        QHash<QString, std::vector<qint32>> keys;
        for (const QString& table : kRewritten + QStringList{u"tKeyword"_s})
            keys[table] = ints(u"SELECT * FROM %1 ORDER BY %2"_s.arg(table, keyOf(table)), keyOf(table));
        QStringList rows;
        for (const TableDef& table : RepositoryTables()) {
            for (Recordset rs(u"SELECT * FROM %1"_s.arg(table.name), conn); !rs.Eof(); rs.MoveNext()) {
                QStringList cells;
                bool broken = false;
                for (const QString& column : table.columns) {
                    if (column == table.key && kRewritten.contains(table.name))
                        continue;
                    QString cell = rs.IsNull(column) ? u"<null>"_s : rs.Text(column);
                    const TableDef* target = ReferencedTable(table, column);
                    if (target && keys.contains(target->name) && rs.Int(column) != 0) {
                        const std::vector<qint32>& in = keys[target->name];
                        const auto at = std::find(in.begin(), in.end(), rs.Int(column));
                        broken = broken || at == in.end();
                        cell = at == in.end() ? u"-"_s : u"#%1"_s.arg(at - in.begin());
                    }
                    cells << cell;
                }
                (broken && dangling ? *dangling : rows) << table.name + u':' + cells.join(u'|');
            }
        }
        rows.sort();
        return rows;
    }

    QString exe, shared;
    std::unique_ptr<EnvironmentBackup> backups;
    ScriptedChooser chooser;
    Release r{};
};

// A restore brings back the environment as the backup holds it, row by
// row: content that reached a version since is replaced, never doubled (also
// in a version no longer listed, and when restored twice); keywords named
// with an apostrophe are matched, and keywords whose names differ only in
// letter case keep their own links; list-handling attributes come back. A day
// has one backup file, the last backup's, which a failed backup leaves alone.
// Versions and applications deleted since are recreated, once each.
TEST_P(EnvironmentBackupTest, RestoreBringsBackTheBackedUpEnvironmentRowByRow)
{
    populate();
    conn.Execute(u"UPDATE tKeyword SET sKeywordName='Don''t save' WHERE iKeywordAppKey=%1"_s.arg(r.billing));
    const qint32 upper = add(u"tKeyword"_s, {{u"iKeywordAppKey"_s, r.billing}, {u"sKeywordName"_s, u"DON'T SAVE"_s}});
    add(u"tKeywordRel"_s, {{u"iKeywordRelKeywordKey"_s, upper}, {u"iKeywordRelProcessKey"_s, r.login}});
    conn.Execute(u"UPDATE tVersion SET sVersionAttributes='MoreLine=1' WHERE iVersionKey=%1"_s.arg(r.billing20));
    const QString description = u"UPDATE tEnvironment SET sEnvironmentDesc='%1' WHERE iEnvironmentKey=%2"_s;
    conn.Execute(description.arg(u"Earlier"_s).arg(r.env));
    ASSERT_TRUE(backups->BackupEnvironment(r.env)) << shown();
    conn.Execute(description.arg(u"First release"_s).arg(r.env));
    // Written out by a server's JSON as escapes: \" \\ \t \n and \u0001.
    const QString hostile = u"007 \"a\\b\"\t\x01/\u00e9\U0001F600\nDon''t"_s;
    conn.Execute(u"UPDATE tWindow SET dWindowLastUpdate='2024-03-01T12:30:05.250', sWindowExecutable='%1' WHERE iWindowKey=%2"_s
                     .arg(hostile)
                     .arg(r.invoice));
    const QStringList before = canonical();
    ASSERT_TRUE(backups->BackupEnvironment(r.env)) << shown();
    {
        // The file holds each value with its type, a date as the text a
        // row-by-row copy writes, on either backend.
        Connection written;
        written.OpenFileReadOnly(backups->LastBackupFile());
        EXPECT_EQ(Rows(written, u"SELECT typeof(iWindowVerKey), dWindowLastUpdate, typeof(sWindowExecutable), "
                                u"sWindowExecutable FROM tWindow WHERE dWindowLastUpdate IS NOT NULL"_s),
                  QStringList{u"integer|2024-03-01T12:30:05.250|text|"_s + QString(hostile).replace(u"''"_s, u"'"_s)});
    }
    EXPECT_EQ(std::pair(filesInFolder(), CountBackupFile(backups->LastBackupFile()).versions), std::pair(QStringList{today()}, 3));
    const QString file = backups->LastBackupFile();
    // A failure half-way through a third backup of the day.
    DB_ASSERT(Connection templ; templ.OpenFile(exe + u"/ZentrixBackup.mdb"_s); AbortOn(templ, u"tWindow"_s, u"INSERT"_s));
    EXPECT_FALSE(backups->BackupEnvironment(r.env));
    expectFailure(u"Error while copying Windows:"_s);
    EXPECT_TRUE(filesInFolder() == QStringList{today()} && backups->LastBackupFile().isEmpty() && busy.begun == busy.ended);
    // Added after the backup, and deleted after it; an update took Billing
    // 1.0 out of the environment and filled it again elsewhere.
    addWindow(r.billing10, u"frmLate"_s);
    for (const QString& sql : {u"DELETE FROM tStepWindow WHERE iStepWindowProcessKey=%1"_s.arg(r.post),
                               u"DELETE FROM tProcess WHERE iProcessKey=%1"_s.arg(r.post),
                               u"DELETE FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(r.env),
                               u"DELETE FROM tEnvironmentDetail WHERE iEnvironVerKey=%1"_s.arg(r.billing10),
                               description.arg(u"Changed"_s).arg(r.env),
                               u"UPDATE tVersion SET sVersionAttributes='' WHERE iVersionKey=%1"_s.arg(r.billing20)})
        conn.Execute(sql);
    progress.events.clear();
    ASSERT_TRUE(backups->ChooseAndRestore(r.env, kRelease, chooser)) << shown();
    EXPECT_TRUE(progress.events.contains(u"action:Preparing database for restore..."_s) && progress.events.contains(u"title:Environment restore progress..."_s));
    for (int twice = 0; twice < 2; ++twice) {
        QStringList dangling;
        EXPECT_EQ(canonical(&dangling), before);
        EXPECT_TRUE(dangling.isEmpty()) << "the old schedule's cycle links went with it: " << dangling.join(u'\n').toStdString();
        ASSERT_TRUE(backups->RestoreEnvironment(r.env, file));
    }

    // Billing goes, though its version 1.0 stays; 2.0 and Ledger 4.2 go.
    conn.Execute(u"DELETE FROM tVersion WHERE iVersionKey IN (%1, %2)"_s.arg(r.billing20).arg(r.ledger42));
    conn.Execute(u"DELETE FROM tApp WHERE iAppKey=%1"_s.arg(r.billing));
    ASSERT_TRUE(backups->RestoreEnvironment(r.env, file));
    const std::vector<qint32> versions = listed(r.env);
    const std::vector<qint32> billings = ints(u"SELECT * FROM tApp WHERE sAppName='Billing'"_s, u"iAppKey"_s);
    ASSERT_EQ(versions.size(), 3u);
    ASSERT_EQ(billings.size(), 1u) << "recreated once for both its versions";
    EXPECT_EQ(rows(u"SELECT sAppMapPath FROM tApp WHERE iAppKey=%1"_s.arg(billings[0])), QStringList{u"sAppMapPath value"_s});
    EXPECT_TRUE(billings[0] > r.ledger && versions[0] == r.billing10 && versions[1] > r.ledger42 && versions[2] > versions[1]);
    EXPECT_EQ(rows(u"SELECT iVersionAppKey, sVersionID FROM tVersion WHERE iVersionKey IN (%1, %2, %3) ORDER BY iVersionKey"_s
                       .arg(versions[0]).arg(versions[1]).arg(versions[2])),
              QStringList({u"%1|1.0"_s.arg(billings[0]), u"%1|2.0"_s.arg(billings[0]), u"%1|4.2"_s.arg(r.ledger)}));
    EXPECT_EQ(std::pair(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(versions[2])), count(u"SELECT * FROM tKeyword WHERE iKeywordAppKey=%1"_s.arg(billings[0]))),
              std::pair(1, 2));
}

// A backup goes back into its own environment only: another environment's
// file is refused before anything changes; a restore failing half-way (a
// refused row, a missing file, a lost server) leaves the repository as it
// was; the file of an environment deleted since is restored after a
// question.
TEST_P(EnvironmentBackupTest, ARestoreIsRefusedOrFailsWithoutChangingAnything)
{
    populate();
    const qint32 other = addEnvironment(u"Other"_s);
    ASSERT_TRUE(backups->BackupEnvironment(r.env));
    const QString file = backups->LastBackupFile();
    addWindow(r.billing10, u"frmLate"_s);
    const QStringList before = dump();
    EXPECT_FALSE(backups->RestoreEnvironment(other, file));
    EXPECT_EQ(taken(), QStringList{u"The backup %1 belongs to environment \"Release 1\" and cannot be restored "
                                          u"into environment \"Other\". Nothing was changed."_s.arg(today())});
    EXPECT_EQ(dump(), before);
    abortOn(u"tStep"_s, u"INSERT"_s);
    EXPECT_FALSE(backups->RestoreEnvironment(r.env, file));
    expectFailure(u"Error while copying Steps:"_s);
    dropAbort(u"tStep"_s, u"INSERT"_s);
    EXPECT_TRUE(dump() == before && !backups->RestoreEnvironment(r.env, file + u".missing"_s));
    expectMessage(u"Error while restoring environment: Could not find file"_s);
    EXPECT_EQ(dump(), before);
    if (db->isOdbc()) {
        // A server that goes away in the middle of a restore: the message says so.
        conn.Execute(u"CREATE OR REPLACE FUNCTION dorvane_hang_up() RETURNS trigger LANGUAGE plpgsql AS "
                     u"$$ BEGIN PERFORM pg_terminate_backend(pg_backend_pid()); RETURN NEW; END $$"_s);
        conn.Execute(u"CREATE TRIGGER hang_up BEFORE INSERT ON tStep FOR EACH ROW EXECUTE FUNCTION dorvane_hang_up()"_s);
        EXPECT_FALSE(backups->RestoreEnvironment(r.env, file));
        expectMessage(u"Error while copying Steps:"_s + kConnectionLostText);
        conn.Execute(u"DROP TRIGGER hang_up ON tStep"_s);
        EXPECT_EQ(dump(), before);
    }
    // Release 1 deleted and created again: a new key, the same name.
    for (const QString& sql : {u"DELETE FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s, u"DELETE FROM tEnvironmentUser WHERE iEnvironKey=%1"_s,
                               u"DELETE FROM tEnvironment WHERE iEnvironmentKey=%1"_s})
        conn.Execute(sql.arg(r.env));
    const qint32 again = addEnvironment(kRelease);
    const QStringList recreated = dump();
    const QString question = u"The backup %1 was made of environment \"Release 1\", which no longer exists. Restore it into environment \"Release 1\"?"_s.arg(today());
    messages.Queue(Answer::No);
    EXPECT_FALSE(backups->RestoreEnvironment(again, file));
    EXPECT_EQ(std::pair(taken(), dump()), std::pair(QStringList{question}, recreated));
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(backups->RestoreEnvironment(again, file)) << shown();
    EXPECT_EQ(std::tuple(taken(), count(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1"_s.arg(again)),
                         count(u"SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1"_s.arg(again))), std::tuple(QStringList{question}, 3, 2));
}

// Names from other writers of a shared repository never lead a backup out
// of the backups folder, nor share one folder; a ";" in a name works.
TEST_P(EnvironmentBackupTest, StoredNamesThatCannotNameAFolderAreRefused)
{
    for (const QString& name : {u"../../../../x"_s, u"a\\b"_s, u"trailing."_s}) {
        SCOPED_TRACE(name.toStdString());
        const qint32 key = addEnvironment(name);
        EXPECT_FALSE(backups->BackupEnvironment(key));
        expectMessage(u"Error while backing up environment: The environment name \""_s);
        EXPECT_FALSE(backups->AskAndBackUp(key, name));
        EXPECT_FALSE(backups->ChooseAndRestore(key, name, chooser));
        EXPECT_EQ(taken().size(), 2);
    }
    EXPECT_TRUE(chooser.folders.isEmpty());
    // Nothing was written anywhere below the test folder but the backups.
    QStringList files;
    for (QDirIterator it(db->tempPath(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        files << it.next();
    EXPECT_TRUE(files.filter(u".MDB"_s, Qt::CaseSensitive).isEmpty()) << files.join(u'\n').toStdString();
    const qint32 semi = addEnvironment(u"Semi;colon"_s);
    ASSERT_TRUE(backups->BackupEnvironment(semi)) << shown();
    EXPECT_TRUE(backups->RestoreEnvironment(semi, backups->LastBackupFile())) << shown();

    // Two stored names of one backup folder (another program wrote the
    // second): neither a backup nor a restore of the first goes on.
    const qint32 upper = addEnvironment(u"ΟΔΟΣ"_s);
    ASSERT_TRUE(backups->BackupEnvironment(upper)) << shown();
    const QString file = backups->LastBackupFile();
    addEnvironment(u"οδος"_s);
    const QString sharing = u"The environments \"ΟΔΟΣ\" and \"οδος\" would share one backup folder."_s;
    EXPECT_FALSE(backups->BackupEnvironment(upper));
    expectMessage(u"Error while backing up environment: "_s + sharing);
    EXPECT_FALSE(backups->RestoreEnvironment(upper, file));
    expectMessage(u"Error while restoring environment: "_s + sharing);
}

// With no backups the chooser is not shown. A killed backup's work files
// (its -wal and -shm too) are removed by the next backup and by the restore
// chooser; a live writer's are left, and no work file is ever offered.
// Backups are listed newest first by the date their name gives.
TEST_P(EnvironmentBackupTest, AKilledBackupLeavesNothingBehindAndBackupsAreListedNewestFirst)
{
    const qint32 key = addEnvironment(kRelease);
    registerUser(key, addUser(u"jo"_s));
    EXPECT_FALSE(backups->ChooseAndRestore(key, kRelease, chooser));
    EXPECT_EQ(std::pair(taken(), chooser.folders), std::pair(QStringList{u"This Environment has no backups to restore."_s}, QStringList()));

    const QString host = QSysInfo::machineHostName();
    // The process numbers of two killed backups: processes that ran and are gone.
    qint64 gone[2] = {};
    for (qint64& pid : gone) {
        QProcess process;
        process.start(u"true"_s);
        ASSERT_TRUE(process.waitForStarted());
        pid = process.processId();
        ASSERT_TRUE(process.waitForFinished());
    }
    const QStringList dead = {today() + u".%1.tmp"_s.arg(gone[0]), today() + u".%1.tmp-wal"_s.arg(gone[0]),
                              today() + u".%1.tmp-shm"_s.arg(gone[0]), today() + u".%1-%2.tmp"_s.arg(host).arg(gone[1])};
    const QString live = today() + u".%1-1.tmp"_s.arg(host); // process 1 always runs
    ASSERT_TRUE(QDir().mkpath(folder()));
    for (int round = 0; round < 2; ++round) {
        for (const QString& name : dead + QStringList{live})
            ASSERT_TRUE(QFile(folder() + u'/' + name).open(QIODevice::WriteOnly));
        if (round == 0) {
            EXPECT_TRUE(ListBackupFiles(backups->RestoreFolder(kRelease)).empty());
            ASSERT_TRUE(backups->BackupEnvironment(key)) << shown();
        } else {
            EXPECT_TRUE(backups->ChooseAndRestore(key, kRelease, chooser)) << shown();
        }
        EXPECT_EQ(filesInFolder(), QStringList({today(), live}));
    }

    for (const QDate day : {QDate(2000, 12, 31), QDate(2001, 3, 7), QDate(2000, 1, 2)}) {
        backups->Today = [day] { return day; };
        ASSERT_TRUE(backups->BackupEnvironment(key));
    }
    ASSERT_TRUE(QFile(folder() + u"/notes.txt"_s).open(QIODevice::WriteOnly));
    QStringList names;
    for (const BackupFileEntry& file : ListBackupFiles(backups->RestoreFolder(kRelease)))
        names << file.name;
    EXPECT_EQ(names, QStringList({today(), u"03-07-2001.MDB"_s, u"12-31-2000.MDB"_s, u"01-02-2000.MDB"_s}));
    // No versions: the environment and its user only.
    const BackupFileContents contents = CountBackupFile(backups->RestoreFolder(kRelease) + u"\\01-02-2000.MDB"_s);
    EXPECT_EQ(std::pair(contents.versions, contents.rows), std::pair(0, qint64(2)));
    EXPECT_EQ(backups->BackupQuestion(kRelease), u"Back up all application/versions of Release 1 to 01-02-2000.MDB? It replaces the backup made earlier today."_s);
    backups->Today = [] { return QDate(2000, 1, 3); };
    EXPECT_EQ(backups->BackupQuestion(kRelease), u"Back up all application/versions of Release 1 to 01-03-2000.MDB?"_s);
    // A cancelled chooser changes nothing.
    const QStringList before = dump();
    chooser.cancel = true;
    EXPECT_TRUE(!backups->ChooseAndRestore(key, kRelease, chooser) && dump() == before);
}

// Failures of the file system name their cause and leave no file behind.
TEST_P(EnvironmentBackupTest, AFullDiskOrAFolderThatCannotBeWrittenSaysSo)
{
    populate();
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting a small or read-only file system needs root";
    const QString mount = folder();
    ASSERT_TRUE(QDir().mkpath(mount));
    const auto run = [](const QString& command) { return std::system(command.toLocal8Bit().constData()) == 0; };
    if (!run(u"mount -t tmpfs -o size=64k tmpfs '%1' 2>/dev/null"_s.arg(mount)))
        GTEST_SKIP() << "tmpfs cannot be mounted here";
    for (const QString& cause : {u"disk is full"_s, u"Permission denied"_s}) {
        EXPECT_FALSE(backups->BackupEnvironment(r.env));
        ASSERT_EQ(messages.shown.size(), 1);
        EXPECT_TRUE(messages.shown.first().contains(cause)) << messages.shown.first().toStdString();
        EXPECT_TRUE(filesInFolder().isEmpty()) << filesInFolder().join(u' ').toStdString();
        messages.shown.clear();
        run(u"mount -o remount,ro '%1'"_s.arg(mount));
    }
    run(u"umount '%1'"_s.arg(mount));
}

// A second program commits while a backup reads: the file holds the
// environment as it was when the backup began, whole. An interruption
// half-way through a backup or a restore leaves the day's file and the
// repository as they were, and no work file.
TEST_P(EnvironmentBackupTest, ABackupReadsOneStateWhileAnotherProgramCommitsAndAnInterruptionLeavesNothing)
{
    populate();
    ASSERT_TRUE(backups->BackupEnvironment(r.env)) << shown();
    const QString aside = db->tempPath() + u"/aside.mdb"_s;
    ASSERT_TRUE(QFile::copy(lastFile(), aside));
    DB_ASSERT(other.Open(db->connectionString()));
    // Once Billing 1.0's windows are in the file, its steps and step windows go and a window comes.
    progress.At(u"action:Processes in"_s, [&] {
        Transaction change(other);
        for (const QString& sql : {u"DELETE FROM tStep"_s, u"DELETE FROM tStepWindow"_s,
                                   u"INSERT INTO tWindow (iWindowVerKey, sWindowPhysicalName) VALUES (%1, 'frmLate')"_s.arg(r.billing10)})
            other.Execute(sql);
        change.Commit();
    });
    ASSERT_TRUE(backups->BackupEnvironment(r.env)) << shown();
    ASSERT_EQ(count(u"SELECT * FROM tStepWindow"_s), 0) << "the other program committed half-way";
    Connection earlier, later;
    DB_ASSERT(earlier.OpenFile(aside); later.OpenFile(lastFile()));
    EXPECT_EQ(TableRows(later), TableRows(earlier));

    const auto clear = qScopeGuard([] { ClearInterruption(); });
    const QString dayPath = lastFile();
    const QByteArray dayFile = ReadFile(dayPath);
    // On a server also while the staged rows are being written into the file.
    for (const QString& action : {u"action:Processes in"_s, u"action:Writing the backup file..."_s}) {
        if (action.contains(u"Writing"_s) && !db->isOdbc())
            continue;
        progress.At(action, [] { RequestInterruption(); });
        EXPECT_THROW(backups->BackupEnvironment(r.env), OperationInterrupted) << action.toStdString();
        ClearInterruption();
        EXPECT_TRUE(filesInFolder() == QStringList{today()} && ReadFile(dayPath) == dayFile) << filesInFolder().join(u' ').toStdString();
    }
    const QStringList before = dump();
    progress.At(u"action:Processes in"_s, [] { RequestInterruption(); });
    EXPECT_THROW(backups->RestoreEnvironment(r.env, aside), OperationInterrupted);
    ClearInterruption();
    EXPECT_TRUE(dump() == before && busy.begun == busy.ended && !conn.InTransaction());
}

// On a server another operation may change a row the restore is about to
// change (Ledger 4.2's version row, while Billing's processes are being
// copied): the restore's transaction fails on it, is rolled back and runs
// again, without a message, and ends as if alone.
TEST_P(EnvironmentBackupTest, ARestoreThatMeetsAConcurrentChangeRunsAgain)
{
    if (!db->isOdbc())
        GTEST_SKIP() << "on SQLite a writer holds the whole file";
    populate();
    ASSERT_TRUE(backups->BackupEnvironment(r.env)) << shown();
    const QStringList before = canonical();
    DB_ASSERT(other.Open(db->connectionString()));
    progress.At(u"action:Processes in"_s, [&] {
        other.Execute(u"UPDATE tVersion SET sVersionDesc='Changed meanwhile' WHERE iVersionKey=%1"_s.arg(r.ledger42));
    });
    progress.events.clear();
    ASSERT_TRUE(backups->RestoreEnvironment(r.env, backups->LastBackupFile())) << shown();
    EXPECT_EQ(progress.matching(u"action:Preparing database for restore"_s).size(), 2) << "two attempts";
    EXPECT_EQ(canonical(), before);
}

// Save As, Backup and Restore open further connections to the window's
// repository file; the window's own keeps its lock on the file through
// them. A second program that opens and closes the file then never takes
// itself for its last user (removing the write-ahead log under the window),
// and the commits of both survive.
TEST_P(EnvironmentBackupTest, TheWindowKeepsItsLockSoThatItsCommitsAndASecondProgramsSurvive)
{
    if (db->isOdbc())
        GTEST_SKIP() << "locks on the repository file are SQLite's";
    populate();
    const QString repository = QDir(db->tempPath()).filePath(u"Test.mdb"_s);
    // This process's locks on the file, from the kernel's table.
    const auto locked = [&repository] {
        struct stat file = {};
        QFile table(u"/proc/locks"_s);
        if (::stat(QFile::encodeName(repository).constData(), &file) != 0 || !table.open(QIODevice::ReadOnly))
            return false;
        const QString inode = u":%1"_s.arg(file.st_ino), pid = QString::number(::getpid());
        for (const QString& line : QString::fromLatin1(table.readAll()).split(u'\n')) {
            const QStringList f = line.simplified().split(u' ');
            if (f.size() > 5 && f[4] == pid && f[5].endsWith(inode))
                return true;
        }
        return false;
    };
    ASSERT_TRUE(locked());
    DB_ASSERT(definition.Open(0, r.env, conn, messages));
    prompt.answers = {u"1.1"_s, u"2.1"_s, u"4.3"_s};
    EXPECT_TRUE(definition.SaveAs({u"Release 2"_s, QString(), {}}, copier(), messages).Ok) << shown();
    EXPECT_TRUE(locked()) << "after Save As";
    ASSERT_TRUE(backups->BackupEnvironment(r.env)) << shown();
    EXPECT_TRUE(locked()) << "after Backup";
    ASSERT_TRUE(backups->RestoreEnvironment(r.env, backups->LastBackupFile())) << shown();
    EXPECT_TRUE(locked()) << "after Restore";

    // The second program: dorvanectl on the same repository.
    DB_ASSERT(MakeDatabaseFile(exe + u"/UserData.mdb"_s));
    const QString settings = db->tempPath() + u"/ctl.reg"_s;
    WriteSettings(settings, db->localSettings(u"Test.mdb"_s) + uR"(|"SharedResourcePath"="%1"|"ExePath"="%2")"_s.arg(db->tempPath(), exe));
    const auto importKeyword = [&](const char* name) {
        const QString file = db->tempPath() + u"/"_s + QLatin1String(name) + u".txt"_s;
        return !WriteFile(file, QByteArray(name) + "\tFrom a second program\r\n") ? -1 : Ctl({u"import-keywords"_s, u"Billing"_s, file}, settings).exitCode;
    };
    EXPECT_EQ(importKeyword("K1"), 0);
    add(u"tKeyword"_s, {{u"iKeywordAppKey"_s, r.billing}, {u"sKeywordName"_s, u"K2"_s}});
    EXPECT_EQ(importKeyword("K3"), 0);
    conn.Close();
    DB_ASSERT(conn.Open(db->connectionString()));
    EXPECT_EQ(rows(u"SELECT sKeywordName FROM tKeyword WHERE sKeywordName LIKE 'K_' ORDER BY sKeywordName"_s), QStringList({"K1", "K2", "K3"}));
    EXPECT_EQ(rows(u"SELECT * FROM pragma_integrity_check()"_s), QStringList{u"ok"_s});
}

INSTANTIATE_TEST_SUITE_P(Backends, EnvironmentBackupTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
