// dorvanectl's --dry-run on the commands that destroy or copy: it changes
// nothing, refuses what the command refuses, and its counts are what the
// command then writes and deletes.

#include "cli/CtlTestSupport.h"

#include <QMap>

namespace dorvane::test {
namespace {

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
    const QString version = u"SELECT iVersionKey FROM tVersion WHERE sVersionID='%1'"_s;
    exec(u"INSERT INTO tWindow (iWindowVerKey, sWindowPhysicalName) SELECT iVersionKey, 'Extra' FROM tVersion WHERE sVersionID='1.1'"_s);
    exec(u"DELETE FROM tEnvironmentDetail WHERE iEnvironVerKey IN (%1)"_s.arg(version.arg(u"R5"_s)));
    ASSERT_EQ(ctl({u"delete-version"_s, u"Customer Inquiry"_s, u"R5"_s, u"--yes"_s}).exitCode, 0);
    exec(u"INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType) SELECT iAppKey, '1.2', 1 FROM tApp WHERE sAppName='Order Entry'"_s);
    exec(u"INSERT INTO tWindow (iWindowVerKey, sWindowPhysicalName) SELECT iVersionKey, 'New' FROM tVersion WHERE sVersionID='1.2'"_s);
    exec(u"INSERT INTO tEnvironmentDetail (iEnvironKey, iEnvironVerKey) SELECT iEnvironmentKey, (%1) FROM tEnvironment"_s.arg(version.arg(u"1.2"_s)));
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
    EXPECT_EQ(rows(u"SELECT iWindowKey FROM tWindow WHERE iWindowVerKey IN (%1)"_s.arg(version.arg(u"1.2"_s))), QStringList());
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

} // namespace
} // namespace dorvane::test
