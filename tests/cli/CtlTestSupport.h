#pragma once

// Running the built dorvanectl from a test. DORVANECTL_PATH is set by the
// build for each test program that includes this.

#include "core/installation/Installation.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <functional>
#include <memory>
#include <vector>

#include <signal.h>

namespace dorvane::test {

using namespace Qt::StringLiterals;

struct CtlResult { int exitCode = -1; QString out, err; };

// Starts dorvanectl with `registry` as its settings file. Its standard
// input is a closed pipe: there is no terminal to answer on.
inline void StartCtl(QProcess& process, const QStringList& arguments, const QString& registry)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"ZENTRIX_REGISTRY"_s, registry);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(DORVANECTL_PATH), arguments);
    process.closeWriteChannel();
}

// Waits for a started dorvanectl and takes what it said.
inline CtlResult FinishCtl(QProcess& process)
{
    EXPECT_TRUE(process.waitForFinished(120000)) << "dorvanectl did not finish";
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAllStandardOutput()), QString::fromLocal8Bit(process.readAllStandardError())};
}

// Runs dorvanectl, and `meanwhile` while it runs.
inline CtlResult Ctl(const QStringList& arguments, const QString& registry = u"/nonexistent/zentrix.reg"_s,
                     const std::function<void(QProcess&)>& meanwhile = {})
{
    QProcess process;
    StartCtl(process, arguments, registry);
    if (meanwhile && process.waitForStarted())
        meanwhile(process);
    return FinishCtl(process);
}

// Whether `text` is `pattern`, where each '…' stands for any text.
inline bool Like(const QString& text, const QString& pattern)
{
    QStringList parts = pattern.split(u'…');
    for (QString& part : parts)
        part = QRegularExpression::escape(part);
    return QRegularExpression(u"\\A(?s)"_s + parts.join(u".*"_s) + u"\\z"_s).match(text).hasMatch();
}

// One run and what it must give: the arguments ('|' between), the exit
// status, standard error and standard output as Like() patterns.
struct Want {
    QString command;
    int status;
    QString err, out = {};
    QStringList args() const { return command.isEmpty() ? QStringList() : command.split(u'|'); }
};

inline void Check(const Want& want, const CtlResult& run)
{
    EXPECT_EQ(run.exitCode, want.status) << want.command.toStdString();
    EXPECT_TRUE(Like(run.err, want.err) && Like(run.out, want.out)) << want.command.toStdString() << "\nstderr: " << run.err.toStdString()
                                                                    << "\nwanted: " << want.err.toStdString() << "\nstdout: " << run.out.toStdString();
}

// Runs each with `registry` as its settings file.
inline void CheckRuns(const std::vector<Want>& runs, const QString& registry)
{
    for (const Want& want : runs)
        Check(want, Ctl(want.args(), registry));
}

// The repositories a command test runs on: the tutorial installation, and
// the test data source when there is one.
inline std::vector<std::string> CtlRepositories() { return TestDsn().isEmpty() ? std::vector<std::string>{"tutorial"} : std::vector<std::string>{"tutorial", "odbc"}; }

// An installation with its settings file and its repository: "tutorial"
// (the SQLite file of a tutorial installation) or "odbc" (the test data
// source, created by dorvanectl and filled with the tutorial's rows).
class CtlRepositoryTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_exe = m_dir.filePath(u"exe"_s), m_registry = m_dir.filePath(u"zentrix.reg"_s);
        ASSERT_EQ(Ctl({u"create-installation"_s, m_exe}).exitCode, 0);
        if (GetParam() == "tutorial") {
            m_connectionString = u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1/Tutorial/Database/Tutorial.mdb;"_s.arg(m_exe);
            WriteSettings(m_registry, uR"("ActiveDB"="Tutorial"|"ExePath"="%1")"_s.arg(m_exe));
            return;
        }
        m_odbc = std::make_unique<TestDatabase>("odbc"); // empties the data source
        const QString dsn = TestDsn(), shared = m_dir.filePath(u"shared"_s);
        ASSERT_EQ(Ctl({u"create-repository"_s, u"--dsn"_s, dsn}).exitCode, 0);
        ASSERT_EQ(Ctl({u"create-shared-folder"_s, shared}).exitCode, 0);
        m_connectionString = m_odbc->connectionString();
        DB_ASSERT(db().BeginTrans(); InsertTutorialData(*m_conn); m_conn->CommitTrans(); m_conn.reset());
        WriteSettings(m_registry, uR"("ActiveDB"="Server"|"IsLocalDatabase"=dword:00000000|"ActiveDSN"="%1"|"SharedResourcePath"="%2"|"ExePath"="%3")"_s
                                      .arg(dsn, shared, m_exe));
    }

    CtlResult ctl(const QStringList& arguments) { return Ctl(arguments, m_registry); }
    // Backs `environment` up and returns the file's path.
    QString backUp(const QString& environment)
    {
        const CtlResult run = ctl({u"backup"_s, environment, u"--yes"_s});
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        return run.out.trimmed();
    }

    // Runs dorvanectl once for each argument list, all started at the
    // same moment, as two administrators do.
    std::vector<CtlResult> ctlTogether(const std::vector<QStringList>& runs)
    {
        std::vector<std::unique_ptr<QProcess>> processes;
        for (const QStringList& arguments : runs)
            StartCtl(*processes.emplace_back(std::make_unique<QProcess>()), arguments, m_registry);
        std::vector<CtlResult> results;
        for (const auto& process : processes)
            results.push_back(FinishCtl(*process));
        return results;
    }

    // Runs dorvanectl and sends it `signal` once `ready` (which waits for
    // the moment) says so.
    CtlResult ctlInterrupted(const QStringList& arguments, int signal, const std::function<bool()>& ready)
    {
        return Ctl(arguments, m_registry, [&](QProcess& process) {
            EXPECT_TRUE(ready()) << "the moment to interrupt never came";
            ::kill(pid_t(process.processId()), signal);
        });
    }

    // A copy of `from` at `to`, changed by `sql` (statements on the file).
    static void craft(const QString& from, const QString& to, const QStringList& sql = {})
    {
        QFile::remove(to);
        ASSERT_TRUE(QFile::copy(from, to));
        Connection file;
        DB_ASSERT(file.OpenFile(to); for (const QString& s : sql) file.Execute(s));
    }

    // A connection of its own for every look: the tool writes in between.
    Connection& db() { return m_conn = std::make_unique<Connection>(), m_conn->Open(m_connectionString), *m_conn; }
    void exec(const QString& sql) { db().Execute(sql); }
    QStringList rows(const QString& query) { return Rows(db(), query); }
    QStringList dump() { return TableRows(db()); } // every row of every repository table

    // Runs each in turn; one that fails leaves the repository as it was.
    void expectRuns(const std::vector<Want>& runs)
    {
        for (const Want& want : runs) {
            const QStringList before = want.status ? dump() : QStringList();
            Check(want, ctl(want.args()));
            EXPECT_EQ(want.status ? dump() : QStringList(), before) << want.command.toStdString();
        }
    }

    QTemporaryDir m_dir;
    QString m_exe, m_registry, m_connectionString;
    std::unique_ptr<TestDatabase> m_odbc;
    std::unique_ptr<Connection> m_conn;
};

} // namespace dorvane::test
