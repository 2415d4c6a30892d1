// Unattended backups: backup --all, the retention options, verify, and the
// restore's refusal of a file that does not verify; on the tutorial
// installation and on the PostgreSQL data source.

#include "cli/CtlTestSupport.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace dorvane::test {
namespace {

QString dayFile(int daysAgo) { return QDate::currentDate().addDays(-daysAgo).toString(u"MM-dd-yyyy"_s) + u".MDB"_s; }

using Backups = CtlRepositoryTest;

// Every environment in turn: one whose folder cannot be made fails with the
// reason on its line, the others are written and verify; exit 1.
TEST_P(Backups, BackupAllCarriesOnAfterAFailure)
{
    const QString tutorial = backUp(u"TUTORIAL"_s);
    const QDir backups = QDir::cleanPath(QFileInfo(tutorial).dir().filePath(u".."_s));
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('Blocked'), ('OTHER')"_s);
    // A file where Blocked's folder belongs.
    ASSERT_TRUE(WriteFile(backups.filePath(u"Blocked"_s), {}));

    const QString day = dayFile(0), other = backups.filePath(u"OTHER/"_s + day);
    expectRuns({
        {u"backup|--all|--keep-days|2"_s, 1, u"…Error while backing up environment: …"_s,
         u"Blocked\tfailed: Error while backing up environment: …\nOTHER\t%1\nTUTORIAL\t%2\n"_s.arg(other, tutorial)},
        {u"verify|OTHER"_s, 0, QString(), other + u"\tok\n"_s},
        {u"verify|TUTORIAL"_s, 0, QString(), tutorial + u"\tok\n"_s},
    });
    // Usage mistakes come before anything is written.
    for (const QString& bad : {u"backup|--all|TUTORIAL"_s, u"backup|--all|--keep-days|0"_s, u"backup|--all|--keep-last|x"_s,
                               u"backup|TUTORIAL|--keep-last"_s, u"backup|TUTORIAL|--keep-last|2|--keep-last|3"_s,
                               u"backup|TUTORIAL|--keep-days|-1"_s, u"verify"_s, u"verify|TUTORIAL|a|b"_s}) {
        const QDateTime written = QFileInfo(tutorial).lastModified();
        expectRuns({{bad, 2, u"…usage: dorvanectl …"_s}});
        EXPECT_EQ(QFileInfo(tutorial).lastModified(), written) << bad.toStdString();
    }
}

// Retention against a folder of dated files with a foreign and a damaged
// one: only this environment's dated backups outside the policy go.
TEST_P(Backups, RetentionRemovesOnlyThisEnvironmentsOldBackups)
{
    const QString today = backUp(u"TUTORIAL"_s);
    QDir folder = QFileInfo(today).dir();
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('OTHER')"_s);
    const QString foreign = backUp(u"OTHER"_s);
    // The folder as it stands before each run: own backups 1, 5, 40 and 100
    // days old, one whose name is no day, another environment's backup and
    // a damaged file, both dated as old as the oldest.
    const auto lay = [&] {
        for (const QString& name : folder.entryList(QDir::Files))
            if (name != dayFile(0))
                folder.remove(name);
        for (int days : {1, 5, 40, 100})
            craft(today, folder.filePath(dayFile(days)));
        craft(today, folder.filePath(u"before-upgrade.mdb"_s));
        craft(foreign, folder.filePath(dayFile(120)));
        ASSERT_TRUE(WriteFile(folder.filePath(dayFile(121)), QByteArray(8192, 'x')));
    };
    const struct { QString options; std::vector<int> removed; } cases[] = {
        {u"--keep-days|30"_s, {40, 100}},
        {u"--keep-days|1"_s, {1, 5, 40, 100}},
        {u"--keep-last|2"_s, {5, 40, 100}},                    // today's and yesterday's stay
        {u"--keep-last|2|--keep-days|6"_s, {40, 100}},         // either keeps a file
        {u"--keep-days|6|--keep-last|4"_s, {100}},             // the undated one is not counted
        {u"--keep-last|1|--keep-days|1000"_s, {}},
    };
    for (const auto& [options, removed] : cases) {
        lay();
        QString out = today + u'\n';
        QStringList left = folder.entryList(QDir::Files, QDir::Name);
        for (int days : removed) {
            out += u"TUTORIAL\tremoved "_s + folder.filePath(dayFile(days)) + u'\n';
            left.removeAll(dayFile(days));
        }
        expectRuns({{u"backup|TUTORIAL|--yes|"_s + options, 0, u"…yes\n"_s, out}});
        EXPECT_EQ(folder.entryList(QDir::Files, QDir::Name), left) << options.toStdString();
    }

    // The same with --all: each environment's own folder.
    lay();
    expectRuns({{u"backup|--all|--keep-days|3"_s, 0, QString(),
                 u"OTHER\t%1\nTUTORIAL\t%2\nTUTORIAL\tremoved %3\nTUTORIAL\tremoved %4\n"_s.arg(
                     foreign, today, folder.filePath(dayFile(5)), folder.filePath(dayFile(40))) +
                     u"TUTORIAL\tremoved "_s + folder.filePath(dayFile(100)) + u'\n'}});
}

// verify on a good, a truncated, a foreign, an altered and a file without a
// manifest; a restore refuses each that fails, and asks about the last.
TEST_P(Backups, VerifyAndTheRestoreRefuseWhatDoesNotMatch)
{
    const QString good = backUp(u"TUTORIAL"_s);
    exec(u"INSERT INTO tEnvironment (sEnvironmentName) VALUES ('OTHER')"_s);
    const QString foreign = backUp(u"OTHER"_s);
    const QDir folder = QFileInfo(good).dir();
    const QString truncated = folder.filePath(dayFile(1)), altered = folder.filePath(dayFile(2)),
                  nulled = folder.filePath(dayFile(3)), older = folder.filePath(dayFile(4)), moved = folder.filePath(dayFile(5));
    craft(good, truncated);
    ASSERT_TRUE(QFile::resize(truncated, QFileInfo(good).size() / 2));
    craft(good, altered, {u"UPDATE tStep SET sStepNarrative = sStepNarrative || ' ' WHERE iStepKey IN (SELECT MAX(iStepKey) FROM tStep)"_s});
    // A NULL and an empty text are told apart.
    craft(good, nulled, {u"UPDATE tVersion SET sVersionDesc = CASE WHEN sVersionDesc IS NULL THEN '' ELSE NULL END WHERE iVersionKey IN (SELECT MIN(iVersionKey) FROM tVersion)"_s});
    craft(good, older, {u"DROP TABLE tDorvaneManifest"_s});
    // A row's key changed is another file, though every value is still there.
    craft(good, moved, {u"UPDATE tStep SET iStepKey = -iStepKey WHERE iStepKey IN (SELECT MAX(iStepKey) FROM tStep)"_s});
    const QString placed = folder.filePath(u"foreign.MDB"_s);
    craft(foreign, placed);

    const QString mismatch = u"The content of the table %1 does not match its manifest."_s;
    const struct { QString file, line; } cases[] = {
        {good, u"ok"_s},
        {truncated, u"…"_s},
        {placed, u"The file is a backup of another environment (\"OTHER\", key …)."_s},
        {altered, mismatch.arg(u"tStep"_s)},
        {nulled, mismatch.arg(u"tVersion"_s)},
        {moved, mismatch.arg(u"tStep"_s)},
        {older, u"The file has no manifest…"_s},
    };
    QStringList lines;
    for (const auto& [file, line] : cases) {
        const CtlResult run = ctl({u"verify"_s, u"TUTORIAL"_s, file});
        Check({u"verify|TUTORIAL|"_s + file, line == u"ok"_s ? 0 : 1, QString(), file + u'\t' + line + u'\n'}, run);
        EXPECT_NE(line != u"ok"_s, run.out.endsWith(u"\tok\n"_s)) << file.toStdString();
        lines << run.out.trimmed();
    }
    // Without FILE, every file of the folder with the same lines; exit 1.
    const CtlResult each = ctl({u"verify"_s, u"TUTORIAL"_s});
    QStringList listed = each.out.trimmed().split(u'\n');
    listed.sort(), lines.sort();
    EXPECT_EQ(std::pair(each.exitCode, listed), std::pair(1, lines));

    // The restore refuses what does not verify, and changes nothing.
    const QString description = u"SELECT sEnvironmentDesc FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'"_s;
    const QStringList saved = rows(description);
    exec(u"UPDATE tEnvironment SET sEnvironmentDesc='Changed' WHERE sEnvironmentName='TUTORIAL'"_s);
    const QString refused = u"Error while restoring environment: "_s;
    const QString question = u"The backup %1 has no manifest: it was written before Dorvane verified its backups, so whether "
                             u"its content is intact cannot be told. Restore it all the same? "_s.arg(dayFile(4));
    expectRuns({
        {u"restore|TUTORIAL|"_s + truncated, 1, refused + u"…\n"_s},
        {u"restore|TUTORIAL|"_s + altered, 1, refused + mismatch.arg(u"tStep"_s) + u" Nothing was changed.\n"_s},
        {u"restore|TUTORIAL|"_s + dayFile(3), 1, refused + mismatch.arg(u"tVersion"_s) + u" Nothing was changed.\n"_s},
        {u"restore|TUTORIAL|"_s + older, 1, question + u"[y/n] n\n"_s},
        {u"restore|TUTORIAL|"_s + older + u"|--dry-run"_s, 0, question + u"yes\n"_s, u"environment\tTUTORIAL\tTUTORIAL\n…"_s},
        {u"restore|TUTORIAL|"_s + dayFile(4) + u"|--yes"_s, 0, question + u"yes\n"_s},
    });
    EXPECT_EQ(rows(description), saved);
}

// A backup whose file does not verify once written is a failed backup: the
// earlier file of the day stays as it was.
TEST_P(Backups, ABackupThatDoesNotVerifyKeepsTheEarlierFile)
{
    const QString good = backUp(u"TUTORIAL"_s);
    const QByteArray before = ReadFile(good);
    // A template whose manifest spoils each entry as it is written: the
    // file is written and committed, and then does not verify.
    DB_ASSERT(Connection file; file.OpenFile(m_exe + u"/ZentrixBackup.mdb"_s);
              file.Execute(u"CREATE TABLE tDorvaneManifest (sTableName TEXT PRIMARY KEY, iRows INTEGER, sDigest TEXT)"_s);
              file.Execute(u"CREATE TRIGGER spoil AFTER INSERT ON tDorvaneManifest BEGIN UPDATE tDorvaneManifest "
                           u"SET iRows = iRows + 1 WHERE sTableName = NEW.sTableName; END"_s));
    expectRuns({{u"backup|TUTORIAL|--yes"_s, 1,
                 u"…Error while backing up environment: The file written does not verify, so it was not kept: The table "
                 u"… holds … rows; its manifest says ….\n"_s}});
    EXPECT_EQ(ReadFile(good), before);
    EXPECT_EQ(QFileInfo(good).dir().entryList(QDir::Files), QStringList{QFileInfo(good).fileName()});
}

INSTANTIATE_TEST_SUITE_P(Repositories, Backups, ::testing::ValuesIn(CtlRepositories()), [](const auto& info) { return info.param; });

} // namespace
} // namespace dorvane::test
