#include "cli/CtlTestSupport.h"
#include "repository/Installation.h"
#include "support/TestSupport.h"
#include "Version.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

namespace dorvane {
namespace {

using namespace Qt::StringLiterals;

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
}

TEST(CliUsage, HelpListsEveryCommandWithinEightyColumns)
{
    for (const QStringList& args : {QStringList{u"--help"_s}, QStringList{u"help"_s}}) {
        const CtlResult run = Ctl(args);
        EXPECT_EQ(run.exitCode, 0);
        for (const char* line : {"\n  info\n", "\n  create-repository FILE | --dsn NAME\n", "\n  create-installation DIR\n",
                                 "\n  create-shared-folder DIR\n", "--registry FILE", "--version"})
            EXPECT_TRUE(run.out.contains(QString::fromLatin1(line))) << line << '\n' << run.out.toStdString();
        EXPECT_EQ(run.err, QString());
        for (const QString& line : run.out.split(u'\n'))
            EXPECT_LE(line.size(), 80) << line.toStdString();
    }

    // Each command's usage, then its summary indented beneath, wrapped.
    const CtlResult one = Ctl({u"help"_s, u"create-installation"_s});
    EXPECT_EQ(one.exitCode, 0);
    EXPECT_TRUE(one.out.startsWith(u"usage: dorvanectl create-installation DIR\n  Create the installation files"_s))
        << one.out.toStdString();
    const QStringList lines = Ctl({u"--help"_s}).out.split(u'\n');
    const qsizetype first = lines.indexOf(u"Commands:"_s) + 1;
    ASSERT_GT(first, 0);
    for (qsizetype i = first; i < lines.size() && !lines.at(i).isEmpty(); ++i) {
        if (lines.at(i).startsWith(u"  "_s) && lines.at(i).at(2) != u' ') {
            const QString name = lines.at(i).mid(2).section(u' ', 0, 0);
            SCOPED_TRACE(name.toStdString());
            const CtlResult help = Ctl({u"help"_s, name});
            EXPECT_EQ(help.exitCode, 0);
            EXPECT_TRUE(help.out.startsWith(u"usage: dorvanectl "_s + name)) << help.out.toStdString();
            for (const QString& line : help.out.split(u'\n'))
                EXPECT_LE(line.size(), 80) << line.toStdString();
            EXPECT_EQ(Ctl({name, u"--help"_s}).out, help.out);
        }
    }
}

TEST(CliUsage, VersionComesFromTheProject)
{
    const CtlResult run = Ctl({u"--version"_s});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, u"dorvanectl "_s + QLatin1String(kVersion) + u'\n');
}

// A command line the tool cannot use ends with status 2 before anything
// is read or written: an empty --registry (an unset shell variable) must
// not fall back to the machine's settings.
TEST(CliUsage, MistakesGiveTheUsageAndStatusTwo)
{
    struct Case {
        const char* name;
        QStringList args;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {"no command", {}, "usage: dorvanectl"},
        {"unknown command", {u"frobnicate"_s}, "Unknown command: frobnicate"},
        {"help on an unknown command", {u"help"_s, u"frobnicate"_s}, "Unknown command: frobnicate"},
        {"unknown option", {u"--verbose"_s, u"info"_s}, "Unknown option: --verbose"},
        {"registry without file", {u"--registry"_s}, "--registry needs a file name"},
        {"empty registry", {u"--registry"_s, QString(), u"delete-environment"_s, u"X"_s}, "--registry needs a file name"},
        {"empty registry after =", {u"--registry="_s, u"info"_s}, "--registry needs a file name"},
        {"option after the command", {u"info"_s, u"--registry"_s, u"x.reg"_s}, "usage: dorvanectl info"},
        {"missing path", {u"create-repository"_s}, "usage: dorvanectl create-repository"},
        {"two paths", {u"create-installation"_s, u"a"_s, u"b"_s}, "usage: dorvanectl create-installation"},
        {"dsn without name", {u"create-repository"_s, u"--dsn"_s}, "usage: dorvanectl create-repository"},
        {"empty name", {u"delete-environment"_s, QString()}, "Argument 1 of delete-environment is empty."},
        {"empty version", {u"copy-version"_s, u"Env"_s, u"A - 1"_s, u"A"_s, QString()},
         "Argument 4 of copy-version is empty."},
        {"arguments to info", {u"info"_s, u"extra"_s}, "usage: dorvanectl info"},
    };
    QTemporaryDir dir;
    const QString settings = dir.filePath(u"zentrix.reg"_s);
    WriteSettings(settings, {Quoted(u"ActiveDB"_s, u"Tutorial"_s), Quoted(u"ExePath"_s, dir.path())});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CtlResult run = Ctl(c.args, settings);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.out, QString());
        EXPECT_TRUE(run.err.contains(QString::fromLatin1(c.expected))) << run.err.toStdString();
    }
}

// A settings file that is missing or no registry export is reported by
// name, by info before it prints anything and by the commands that open
// the repository; the status is that of a failure.
TEST(CliSettings, AnUnusableSettingsFileIsNamed)
{
    QTemporaryDir dir;
    const QString missing = dir.filePath(u"missing.reg"_s);
    const QString ini = dir.filePath(u"zentrix.ini"_s);
    QFile file(ini);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[Zentrix]\nActiveDB=Tutorial\n");
    file.close();
    struct Case {
        const char* name;
        QStringList args;
        QString environment;
        QString says;
    };
    const std::vector<Case> cases = {
        {"missing, by option", {u"--registry"_s, missing, u"info"_s}, ini,
         u"Could not open database: The settings file "_s + missing + u" does not exist.\n"_s},
        {"missing, by the environment", {u"info"_s}, missing,
         u"Could not open database: The settings file "_s + missing + u" does not exist.\n"_s},
        {"not an export", {u"info"_s}, ini, u"Could not open database: The settings file "_s + ini + u" is not a registry export"_s},
        {"a command that opens the repository", {u"delete-environment"_s, u"X"_s}, missing,
         u"Could not open database: The settings file "_s + missing + u" does not exist.\n"_s},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CtlResult run = Ctl(c.args, c.environment);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.out, QString());
        EXPECT_TRUE(run.err.startsWith(c.says)) << run.err.toStdString();
    }
}

TEST(CliSettings, InfoMasksThePassword)
{
    QTemporaryDir dir;
    const QString settings = dir.filePath(u"zentrix.reg"_s);
    WriteSettings(settings, {Quoted(u"ActiveDSN"_s, u"nosuchsource;UID=admin;PWD=s3cret"_s),
                             Quoted(u"ExePath"_s, u"/opt/zentrix"_s)});
    const CtlResult run = Ctl({u"info"_s}, settings);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(OutLines(run).value(1), u"connection: PROVIDER=MSDASQL;DSN=nosuchsource;UID=admin;PWD=********"_s);
    EXPECT_FALSE(run.out.contains(u"s3cret"_s) || run.err.contains(u"s3cret"_s)) << run.err.toStdString();
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
