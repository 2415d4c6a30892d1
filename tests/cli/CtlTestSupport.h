#pragma once

// Running the built dorvanectl from a test. DORVANECTL_PATH is set by the
// build for each test program that includes this.

#include "repository/Connection.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "repository/Schema.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace dorvane::test {

struct CtlResult {
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs dorvanectl with `registry` as its settings file. Its standard input
// is a closed pipe: there is no terminal to answer on.
inline CtlResult Ctl(const QStringList& arguments, const QString& registry = QStringLiteral("/nonexistent/zentrix.reg"))
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ZENTRIX_REGISTRY"), registry);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(DORVANECTL_PATH), arguments);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(120000)) << "dorvanectl did not finish";
    CtlResult run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.err = QString::fromLocal8Bit(process.readAllStandardError());
    return run;
}

// A settings file holding the given value lines (backslashes escaped).
inline void WriteSettings(const QString& path, const QStringList& values)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QString text = QStringLiteral("Windows Registry Editor Version 5.00\r\n\r\n"
                                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n");
    for (QString value : values)
        text += value.replace(u'\\', QStringLiteral("\\\\")) + QStringLiteral("\r\n");
    file.write(text.toUtf8());
}

inline QString Quoted(const QString& name, const QString& value)
{
    return QStringLiteral("\"%1\"=\"%2\"").arg(name, value);
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

// An installation with its settings file, its repository one of
// CtlRepositories(), and helpers that look at the repository between runs.
class CtlRepositoryTest : public ::testing::TestWithParam<std::string> {
protected:
    using Values = std::vector<std::pair<QString, QVariant>>;

    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_exe = m_dir.path() + QStringLiteral("/exe");
        CtlResult run = Ctl({QStringLiteral("create-installation"), m_exe});
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        m_registry = m_dir.path() + QStringLiteral("/zentrix.reg");

        if (GetParam() == "tutorial") {
            m_connectionString = QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + m_exe +
                                 QStringLiteral("/Tutorial/Database/Tutorial.mdb;");
            WriteSettings(m_registry, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial")),
                                       Quoted(QStringLiteral("ExePath"), m_exe)});
            return;
        }

        m_odbc = std::make_unique<TestDatabase>("odbc"); // empties the data source
        const QString dsn = TestDsn();
        run = Ctl({QStringLiteral("create-repository"), QStringLiteral("--dsn"), dsn});
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        const QString shared = m_dir.path() + QStringLiteral("/shared");
        run = Ctl({QStringLiteral("create-shared-folder"), shared});
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        m_connectionString = m_odbc->connectionString();
        {
            Connection conn;
            DB_ASSERT(conn.Open(m_connectionString));
            DB_ASSERT(conn.BeginTrans(); InsertTutorialData(conn); conn.CommitTrans());
        }
        WriteSettings(m_registry, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Server")),
                                   QStringLiteral("\"IsLocalDatabase\"=dword:00000000"),
                                   Quoted(QStringLiteral("ActiveDSN"), dsn),
                                   Quoted(QStringLiteral("SharedResourcePath"), shared),
                                   Quoted(QStringLiteral("ExePath"), m_exe)});
    }

    CtlResult ctl(const QStringList& arguments) { return Ctl(arguments, m_registry); }

    // A connection of its own for every look: the tool writes in between.
    std::unique_ptr<Connection> open()
    {
        auto conn = std::make_unique<Connection>();
        conn->Open(m_connectionString);
        return conn;
    }

    QStringList rows(const QString& tableOrQuery, const QStringList& without = {})
    {
        return Rows(*open(), tableOrQuery, without);
    }

    // Every row of every repository table.
    QStringList dump() { return TableRows(*open()); }

    qint32 count(const QString& sql) { return static_cast<qint32>(rows(sql).size()); }

    // The first value of a query's column, 0 when it selects no row.
    qint32 key(const QString& sql, const QString& column)
    {
        const auto conn = open();
        Recordset rs(sql, *conn);
        return rs.Eof() ? 0 : rs.Int(column);
    }

    qint32 add(const QString& table, const Values& values)
    {
        const auto conn = open();
        const TableDef* def = FindTable(table);
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE %2=0").arg(table, def->key), *conn);
        rs.AddNew();
        for (const auto& [column, value] : values)
            rs.SetValue(column, value);
        rs.Update();
        return rs.Int(def->key);
    }

    QTemporaryDir m_dir;
    QString m_exe;
    QString m_registry;
    QString m_connectionString;
    std::unique_ptr<TestDatabase> m_odbc;
};

#define INSTANTIATE_CTL_REPOSITORIES(fixture)                                                                    \
    INSTANTIATE_TEST_SUITE_P(Repositories, fixture, ::testing::ValuesIn(::dorvane::test::CtlRepositories()),      \
                             [](const ::testing::TestParamInfo<std::string>& info) { return info.param; })

} // namespace dorvane::test
