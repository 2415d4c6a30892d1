#pragma once

// Running the built dorvanectl from a test. DORVANECTL_PATH is set by the
// build for each test program that includes this.

#include "repository/Connection.h"
#include "repository/Installation.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <memory>

namespace dorvane::test {

using namespace Qt::StringLiterals;

struct CtlResult {
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs dorvanectl with `registry` as its settings file. Its standard input
// is a closed pipe: there is no terminal to answer on.
inline CtlResult Ctl(const QStringList& arguments, const QString& registry = u"/nonexistent/zentrix.reg"_s)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"ZENTRIX_REGISTRY"_s, registry);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(DORVANECTL_PATH), arguments);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(120000)) << "dorvanectl did not finish";
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAllStandardOutput()), QString::fromLocal8Bit(process.readAllStandardError())};
}

// A settings file holding the given value lines, written as regedit does.
inline void WriteSettings(const QString& path, const QStringList& values)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write((u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n"_s +
                values.join(u"\r\n"_s) + u"\r\n"_s).toUtf8());
}

// Whether `text` is `pattern`, where each '…' stands for any text.
inline bool Like(const QString& text, const QString& pattern)
{
    QStringList parts = pattern.split(u'…');
    for (QString& part : parts)
        part = QRegularExpression::escape(part);
    return QRegularExpression(u"\\A"_s + parts.join(u".*"_s) + u"\\z"_s, QRegularExpression::DotMatchesEverythingOption)
        .match(text)
        .hasMatch();
}

// One run and what it must give: the exit status, standard error and
// standard output as Like() patterns.
struct Want {
    QStringList args;
    int status;
    QString err;
    QString out = {};
};

inline void Check(const Want& want, const CtlResult& run)
{
    EXPECT_EQ(run.exitCode, want.status);
    EXPECT_TRUE(Like(run.err, want.err)) << "stderr: " << run.err.toStdString() << "\nwanted: " << want.err.toStdString();
    EXPECT_TRUE(Like(run.out, want.out)) << "stdout: " << run.out.toStdString() << "\nwanted: " << want.out.toStdString();
}

// The repositories the tool is run on: "tutorial" (the SQLite file of a
// tutorial installation) and, when a data source is given, "odbc" (the test
// data source, created by dorvanectl and filled with the tutorial's rows).
inline std::vector<std::string> CtlRepositories()
{
    std::vector<std::string> where{"tutorial"};
    if (!TestDsn().isEmpty())
        where.push_back("odbc");
    return where;
}

// An installation with its settings file and its repository one of
// CtlRepositories().
class CtlRepositoryTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_exe = m_dir.filePath(u"exe"_s);
        m_registry = m_dir.filePath(u"zentrix.reg"_s);
        ASSERT_EQ(Ctl({u"create-installation"_s, m_exe}).exitCode, 0);
        if (GetParam() == "tutorial") {
            m_connectionString = u"PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=%1/Tutorial/Database/Tutorial.mdb;"_s.arg(m_exe);
            WriteSettings(m_registry, {u"\"ActiveDB\"=\"Tutorial\""_s, u"\"ExePath\"=\"%1\""_s.arg(m_exe)});
            return;
        }
        m_odbc = std::make_unique<TestDatabase>("odbc"); // empties the data source
        const QString dsn = TestDsn();
        const QString shared = m_dir.filePath(u"shared"_s);
        ASSERT_EQ(Ctl({u"create-repository"_s, u"--dsn"_s, dsn}).exitCode, 0);
        ASSERT_EQ(Ctl({u"create-shared-folder"_s, shared}).exitCode, 0);
        m_connectionString = m_odbc->connectionString();
        {
            Connection conn;
            DB_ASSERT(conn.Open(m_connectionString));
            DB_ASSERT(conn.BeginTrans(); InsertTutorialData(conn); conn.CommitTrans());
        }
        WriteSettings(m_registry, {u"\"ActiveDB\"=\"Server\""_s, u"\"IsLocalDatabase\"=dword:00000000"_s,
                                   u"\"ActiveDSN\"=\"%1\""_s.arg(dsn), u"\"SharedResourcePath\"=\"%1\""_s.arg(shared),
                                   u"\"ExePath\"=\"%1\""_s.arg(m_exe)});
    }

    CtlResult ctl(const QStringList& arguments) { return Ctl(arguments, m_registry); }

    // A connection of its own for every look: the tool writes in between.
    void exec(const QString& sql)
    {
        Connection conn;
        conn.Open(m_connectionString);
        conn.Execute(sql);
    }

    QStringList rows(const QString& query)
    {
        Connection conn;
        conn.Open(m_connectionString);
        return Rows(conn, query);
    }

    // Every row of every repository table.
    QStringList dump()
    {
        Connection conn;
        conn.Open(m_connectionString);
        return TableRows(conn);
    }

    // Runs each in turn; one that fails leaves the repository as it was.
    void expectRuns(const std::vector<Want>& runs)
    {
        for (const Want& want : runs) {
            SCOPED_TRACE(want.args.join(u' ').toStdString());
            const QStringList before = want.status ? dump() : QStringList();
            Check(want, ctl(want.args));
            if (want.status) {
                EXPECT_EQ(dump(), before);
            }
        }
    }

    QTemporaryDir m_dir;
    QString m_exe;
    QString m_registry;
    QString m_connectionString;
    std::unique_ptr<TestDatabase> m_odbc;
};

} // namespace dorvane::test
