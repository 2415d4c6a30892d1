#include "cli/CtlTestSupport.h"
#include "repository/Installation.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

namespace dorvane {
namespace {

using test::Ctl;
using test::CtlResult;
using test::Quoted;
using test::WriteSettings;

QStringList OutLines(const CtlResult& run) { return run.out.split(u'\n', Qt::SkipEmptyParts); }

QString Dword(const QString& name, quint32 value)
{
    return QStringLiteral("\"%1\"=dword:%2").arg(name).arg(value, 8, 16, QLatin1Char('0'));
}

QStringList InfoLines(const QString& mode, const QString& connection, const QString& shared, const QString& testData,
                      const QString& userData, const QString& installation)
{
    return {QStringLiteral("mode: ") + mode,
            QStringLiteral("connection: ") + connection,
            QStringLiteral("shared-resource-path: ") + shared,
            QStringLiteral("test-data: ") + testData,
            QStringLiteral("user-data: ") + userData,
            QStringLiteral("installation-path: ") + installation};
}

class CliInfoTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_exe = m_dir.path() + QStringLiteral("/install");
        m_shared = m_dir.path() + QStringLiteral("/shared");
        m_reg = m_dir.path() + QStringLiteral("/zentrix.reg");
        const SetupResult installed = CreateInstallation(m_exe);
        ASSERT_TRUE(installed.ok) << installed.message.toStdString();
    }

    QTemporaryDir m_dir;
    QString m_exe;
    QString m_shared;
    QString m_reg;
};

TEST_F(CliInfoTest, TutorialModeOpensTheTutorial)
{
    WriteSettings(m_reg, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial")),
                          Quoted(QStringLiteral("ExePath"), m_exe), Dword(QStringLiteral("IsLocalDatabase"), 1)});
    const CtlResult run = Ctl({QStringLiteral("info")}, m_reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(OutLines(run), InfoLines(QStringLiteral("Tutorial"),
                                       QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + m_exe +
                                           QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb;"),
                                       m_exe + QStringLiteral("\\Tutorial"), m_exe + QStringLiteral("\\Tutorial\\TestData.mdb"),
                                       m_exe + QStringLiteral("\\Tutorial\\database\\UserData.mdb"), m_exe)
                                 << QStringLiteral("environments: 1"));
    EXPECT_EQ(run.err, QString());
}

TEST_F(CliInfoTest, LocalModeOpensTheFileAndTheSharedTestData)
{
    ASSERT_EQ(Ctl({QStringLiteral("create-repository"), m_dir.path() + QStringLiteral("/Zentrix.mdb")}).exitCode, 0);
    ASSERT_EQ(Ctl({QStringLiteral("create-shared-folder"), m_shared}).exitCode, 0);
    WriteSettings(m_reg, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Zentrix")),
                          Dword(QStringLiteral("IsLocalDatabase"), 1),
                          Quoted(QStringLiteral("LocalDatabasePath"), m_dir.path()),
                          Quoted(QStringLiteral("LocalDatabaseName"), QStringLiteral("Zentrix.mdb")),
                          Quoted(QStringLiteral("SharedResourcePath"), m_shared), Quoted(QStringLiteral("ExePath"), m_exe)});
    const CtlResult run = Ctl({QStringLiteral("info")}, m_reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(OutLines(run),
              InfoLines(QStringLiteral("Local"),
                        QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + m_dir.path() +
                            QStringLiteral("\\Zentrix.mdb;"),
                        m_shared, m_shared + QStringLiteral("\\testdata.mdb"), m_exe + QStringLiteral("\\UserData.mdb"), m_exe)
                  << QStringLiteral("environments: 0"));
}

TEST_F(CliInfoTest, AFailedOpenPrintsThePlanAndTheMessageAndFails)
{
    WriteSettings(m_reg, {Quoted(QStringLiteral("SharedResourcePath"), m_shared), Quoted(QStringLiteral("ExePath"), m_exe)});
    const CtlResult run = Ctl({QStringLiteral("info")}, m_reg);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(OutLines(run), InfoLines(QStringLiteral("Server"), QStringLiteral("PROVIDER=MSDASQL;DSN="), m_shared,
                                       m_shared + QStringLiteral("\\testdata.mdb"),
                                       m_exe + QStringLiteral("\\UserData.mdb"), m_exe));
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Could not open database: "))) << run.err.toStdString();
    EXPECT_GT(run.err.trimmed().size(), QStringLiteral("Could not open database: ").size());
}

TEST_F(CliInfoTest, RegistryOptionWinsOverTheEnvironment)
{
    WriteSettings(m_reg, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial")), Quoted(QStringLiteral("ExePath"), m_exe)});
    const QString server = m_dir.path() + QStringLiteral("/server.reg");
    WriteSettings(server, {Quoted(QStringLiteral("ExePath"), m_exe)});

    CtlResult run = Ctl({QStringLiteral("--registry"), m_reg, QStringLiteral("info")}, server);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(OutLines(run).value(0), QStringLiteral("mode: Tutorial"));
    run = Ctl({QStringLiteral("--registry=") + m_reg, QStringLiteral("info")}, server);
    EXPECT_EQ(OutLines(run).value(0), QStringLiteral("mode: Tutorial"));

    // Options belong before the command.
    run = Ctl({QStringLiteral("info"), QStringLiteral("--registry"), m_reg}, server);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, QString());
    EXPECT_TRUE(run.err.contains(QStringLiteral("usage: dorvanectl info"))) << run.err.toStdString();
}

TEST(CliUsage, HelpListsEveryCommand)
{
    for (const QStringList& args : {QStringList{QStringLiteral("--help")}, QStringList{QStringLiteral("help")}}) {
        const CtlResult run = Ctl(args);
        EXPECT_EQ(run.exitCode, 0);
        for (const char* line : {"info", "create-repository FILE | --dsn NAME", "create-installation DIR",
                                 "create-shared-folder DIR", "--registry FILE"})
            EXPECT_TRUE(run.out.contains(QString::fromLatin1(line))) << line << '\n' << run.out.toStdString();
        EXPECT_EQ(run.err, QString());
    }
    const CtlResult one = Ctl({QStringLiteral("help"), QStringLiteral("create-installation")});
    EXPECT_EQ(one.exitCode, 0);
    EXPECT_TRUE(one.out.startsWith(QStringLiteral("usage: dorvanectl create-installation DIR")));
}

TEST(CliUsage, MistakesGiveTheUsageAndStatusOne)
{
    struct Case {
        const char* name;
        QStringList args;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {"no command", {}, "usage: dorvanectl"},
        {"unknown command", {QStringLiteral("frobnicate")}, "Unknown command: frobnicate"},
        {"unknown option", {QStringLiteral("--verbose"), QStringLiteral("info")}, "Unknown option: --verbose"},
        {"registry without file", {QStringLiteral("--registry")}, "--registry needs a file name"},
        {"missing path", {QStringLiteral("create-repository")}, "usage: dorvanectl create-repository"},
        {"two paths", {QStringLiteral("create-installation"), QStringLiteral("a"), QStringLiteral("b")},
         "usage: dorvanectl create-installation"},
        {"dsn without name", {QStringLiteral("create-repository"), QStringLiteral("--dsn")},
         "usage: dorvanectl create-repository"},
        {"arguments to info", {QStringLiteral("info"), QStringLiteral("extra")}, "usage: dorvanectl info"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CtlResult run = Ctl(c.args);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.out, QString());
        EXPECT_TRUE(run.err.contains(QString::fromLatin1(c.expected))) << run.err.toStdString();
    }
}

TEST(CliCreate, RefusesToOverwriteARepositoryOrAnInstallation)
{
    QTemporaryDir dir;
    const QString repo = dir.path() + QStringLiteral("/Zentrix.mdb");
    const QString exe = dir.path() + QStringLiteral("/exe");
    const std::vector<QStringList> commands = {{QStringLiteral("create-repository"), repo},
                                               {QStringLiteral("create-installation"), exe},
                                               {QStringLiteral("create-shared-folder"), exe + QStringLiteral("/shared")}};
    for (const QStringList& command : commands) {
        SCOPED_TRACE(command.join(u' ').toStdString());
        CtlResult run = Ctl(command);
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        run = Ctl(command);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.contains(QStringLiteral("already exists")) || run.err.contains(QStringLiteral("testdata.mdb")))
            << run.err.toStdString();
    }
    EXPECT_TRUE(QFileInfo::exists(exe + QStringLiteral("/Tutorial/Database/Tutorial.mdb")));
}

// On the PostgreSQL data source when the test environment names one.
TEST(CliDataSource, CreatesTheRepositoryOnceAndInfoOpensIt)
{
    if (test::TestDsn().isEmpty())
        GTEST_SKIP() << "no ODBC data source (DORVANE_TEST_DSN)";
    test::TestDatabase db("odbc");
    const QString dsn = test::TestDsn();

    CtlResult run = Ctl({QStringLiteral("create-repository"), QStringLiteral("--dsn"), dsn});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    run = Ctl({QStringLiteral("create-repository"), QStringLiteral("--dsn"), dsn});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("already holds"))) << run.err.toStdString();

    QTemporaryDir dir;
    const QString exe = dir.path() + QStringLiteral("/exe");
    const QString reg = dir.path() + QStringLiteral("/zentrix.reg");
    ASSERT_EQ(Ctl({QStringLiteral("create-installation"), exe}).exitCode, 0);
    ASSERT_EQ(Ctl({QStringLiteral("create-shared-folder"), dir.path() + QStringLiteral("/shared")}).exitCode, 0);
    WriteSettings(reg, {Quoted(QStringLiteral("ActiveDSN"), dsn),
                        Quoted(QStringLiteral("SharedResourcePath"), dir.path() + QStringLiteral("/shared")),
                        Quoted(QStringLiteral("ExePath"), exe)});
    run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(OutLines(run).value(1), QStringLiteral("connection: PROVIDER=MSDASQL;DSN=") + dsn);
    EXPECT_EQ(OutLines(run).value(6), QStringLiteral("environments: 0"));
}

} // namespace
} // namespace dorvane
