// The history of operations through dorvanectl, on the tutorial
// installation and on the PostgreSQL data source: the entry each outcome
// leaves, the filters of `history`, a repository without the table and one
// whose table refuses the entry.

#include "cli/CtlTestSupport.h"

#include <QDate>
#include <QSysInfo>
#include <QThread>

#include <csignal>

#include <pwd.h>
#include <unistd.h>

namespace dorvane::test {
namespace {

using HistoryCommandsTest = CtlRepositoryTest;

const QString kFreeVersion = u"SELECT iVersionKey FROM tVersion WHERE sVersionID='1.0'"_s;

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
    ASSERT_TRUE(rows(kFreeVersion).isEmpty());
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
    EXPECT_TRUE(rows(kFreeVersion).isEmpty());

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
