#include "repository/Installation.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

namespace dorvane {
namespace {

struct CtlResult {
    int exitCode = -1;
    QString out;
    QString err;

    QStringList outLines() const { return out.split(u'\n', Qt::SkipEmptyParts); }
};

// Runs the built dorvanectl; `registry` becomes $ZENTRIX_REGISTRY (a file
// that does not exist when empty, so /etc is never read).
CtlResult Ctl(const QStringList& arguments, const QString& registry = QString())
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ZENTRIX_REGISTRY"),
               registry.isEmpty() ? QStringLiteral("/nonexistent/zentrix.reg") : registry);
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

// A settings file in regedit's export format.
class Settings {
public:
    explicit Settings(const QString& dir) : m_path(dir + QStringLiteral("/zentrix.reg")) {}

    Settings& Text(const QString& name, const QString& value)
    {
        QString escaped = value;
        escaped.replace(u'\\', QStringLiteral("\\\\"));
        m_lines << QStringLiteral("\"%1\"=\"%2\"").arg(name, escaped);
        return *this;
    }
    Settings& Dword(const QString& name, quint32 value)
    {
        m_lines << QStringLiteral("\"%1\"=dword:%2").arg(name).arg(value, 8, 16, QLatin1Char('0'));
        return *this;
    }
    QString Write() const
    {
        QFile file(m_path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        const QString text = QStringLiteral("Windows Registry Editor Version 5.00\r\n\r\n"
                                            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n") +
                             m_lines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
        file.write(text.toUtf8());
        return m_path;
    }

private:
    QString m_path;
    QStringList m_lines;
};

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

QStringList TutorialLines(const QString& exe)
{
    return InfoLines(QStringLiteral("Tutorial"),
                     QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + exe +
                         QStringLiteral("\\Tutorial\\Database\\Tutorial.mdb;"),
                     exe + QStringLiteral("\\Tutorial"), exe + QStringLiteral("\\Tutorial\\TestData.mdb"),
                     exe + QStringLiteral("\\Tutorial\\database\\UserData.mdb"), exe);
}

class CliInfoTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_exe = m_dir.path() + QStringLiteral("/install");
        m_shared = m_dir.path() + QStringLiteral("/shared");
        const SetupResult installed = CreateInstallation(m_exe);
        ASSERT_TRUE(installed.ok) << installed.message.toStdString();
    }

    QTemporaryDir m_dir;
    QString m_exe;
    QString m_shared;
};

TEST_F(CliInfoTest, TutorialModeOpensTheTutorial)
{
    const QString reg = Settings(m_dir.path()).Text(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial"))
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Dword(QStringLiteral("IsLocalDatabase"), 0)
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.outLines(), TutorialLines(m_exe) << QStringLiteral("environments: 1"));
    EXPECT_EQ(run.err, QString());
}

TEST_F(CliInfoTest, TutorialWinsOverTheLocalDatabaseSetting)
{
    const QString reg = Settings(m_dir.path()).Text(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial"))
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Dword(QStringLiteral("IsLocalDatabase"), 1)
                            .Text(QStringLiteral("LocalDatabasePath"), m_dir.path())
                            .Text(QStringLiteral("LocalDatabaseName"), QStringLiteral("absent.mdb"))
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.outLines(), TutorialLines(m_exe) << QStringLiteral("environments: 1"));
}

TEST_F(CliInfoTest, LowerCaseTutorialIsNotTheTutorial)
{
    const QString reg = Settings(m_dir.path()).Text(QStringLiteral("ActiveDB"), QStringLiteral("tutorial"))
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Text(QStringLiteral("SharedResourcePath"), m_shared)
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.outLines().value(0), QStringLiteral("mode: Server"));
    EXPECT_EQ(run.outLines().value(1), QStringLiteral("connection: PROVIDER=MSDASQL;DSN="));
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Could not open database: "))) << run.err.toStdString();
}

TEST_F(CliInfoTest, LocalModeOpensTheFileAndTheSharedTestData)
{
    ASSERT_EQ(Ctl({QStringLiteral("create-repository"), m_dir.path() + QStringLiteral("/Zentrix.mdb")}).exitCode, 0);
    ASSERT_EQ(Ctl({QStringLiteral("create-shared-folder"), m_shared}).exitCode, 0);
    const QString reg = Settings(m_dir.path()).Text(QStringLiteral("ActiveDB"), QStringLiteral("Zentrix"))
                            .Dword(QStringLiteral("IsLocalDatabase"), 1)
                            .Text(QStringLiteral("LocalDatabasePath"), m_dir.path())
                            .Text(QStringLiteral("LocalDatabaseName"), QStringLiteral("Zentrix.mdb"))
                            .Text(QStringLiteral("SharedResourcePath"), m_shared)
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.outLines(),
              InfoLines(QStringLiteral("Local"),
                        QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + m_dir.path() +
                            QStringLiteral("\\Zentrix.mdb;"),
                        m_shared, m_shared + QStringLiteral("\\testdata.mdb"), m_exe + QStringLiteral("\\UserData.mdb"), m_exe)
                  << QStringLiteral("environments: 0"));
}

TEST_F(CliInfoTest, AMissingTestDataDatabaseStopsEvenWhenTheRepositoryOpened)
{
    ASSERT_EQ(Ctl({QStringLiteral("create-repository"), m_dir.path() + QStringLiteral("/Zentrix.mdb")}).exitCode, 0);
    ASSERT_TRUE(QDir().mkpath(m_shared));
    const QString reg = Settings(m_dir.path()).Dword(QStringLiteral("IsLocalDatabase"), 1)
                            .Text(QStringLiteral("LocalDatabasePath"), m_dir.path())
                            .Text(QStringLiteral("LocalDatabaseName"), QStringLiteral("Zentrix.mdb"))
                            .Text(QStringLiteral("SharedResourcePath"), m_shared)
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.outLines().size(), 6);
    EXPECT_FALSE(run.out.contains(QStringLiteral("environments:")));
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Could not open database: "))) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("testdata.mdb"))) << run.err.toStdString();
}

TEST_F(CliInfoTest, TheTutorialOpensUserDataBeforeTestData)
{
    QFile::remove(m_exe + QStringLiteral("/Tutorial/TestData.mdb"));
    QFile::remove(m_exe + QStringLiteral("/Tutorial/Database/UserData.mdb"));
    const QString reg = Settings(m_dir.path()).Text(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial"))
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Could not open database: "))) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("UserData.mdb"))) << run.err.toStdString();
    EXPECT_FALSE(run.err.contains(QStringLiteral("TestData.mdb"))) << run.err.toStdString();
}

TEST_F(CliInfoTest, ServerModeWithoutDataSourceNameFails)
{
    const QString reg = Settings(m_dir.path()).Text(QStringLiteral("SharedResourcePath"), m_shared)
                            .Text(QStringLiteral("ExePath"), m_exe)
                            .Write();
    const CtlResult run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.outLines(), InfoLines(QStringLiteral("Server"), QStringLiteral("PROVIDER=MSDASQL;DSN="), m_shared,
                                        m_shared + QStringLiteral("\\testdata.mdb"),
                                        m_exe + QStringLiteral("\\UserData.mdb"), m_exe));
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Could not open database: "))) << run.err.toStdString();
    EXPECT_GT(run.err.trimmed().size(), QStringLiteral("Could not open database: ").size());
}

TEST_F(CliInfoTest, RegistryOptionWinsOverTheEnvironment)
{
    const QString tutorial = Settings(m_dir.path()).Text(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial"))
                                 .Text(QStringLiteral("ExePath"), m_exe)
                                 .Write();
    QTemporaryDir other;
    const QString server = Settings(other.path()).Text(QStringLiteral("ExePath"), m_exe).Write();

    CtlResult run = Ctl({QStringLiteral("--registry"), tutorial, QStringLiteral("info")}, server);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.outLines().value(0), QStringLiteral("mode: Tutorial"));

    run = Ctl({QStringLiteral("--registry=") + tutorial, QStringLiteral("info")}, server);
    EXPECT_EQ(run.outLines().value(0), QStringLiteral("mode: Tutorial"));

    // Options belong before the command.
    run = Ctl({QStringLiteral("info"), QStringLiteral("--registry"), tutorial}, server);
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
    CtlResult run = Ctl({QStringLiteral("create-repository"), repo});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QByteArray before = [&] {
        QFile f(repo);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }();

    run = Ctl({QStringLiteral("create-repository"), repo});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("already exists"))) << run.err.toStdString();
    QFile after(repo);
    ASSERT_TRUE(after.open(QIODevice::ReadOnly));
    EXPECT_EQ(after.readAll(), before);

    const QString exe = dir.path() + QStringLiteral("/exe");
    run = Ctl({QStringLiteral("create-installation"), exe});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(QFileInfo::exists(exe + QStringLiteral("/Tutorial/Database/Tutorial.mdb")));
    run = Ctl({QStringLiteral("create-installation"), exe});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("already exists"))) << run.err.toStdString();

    run = Ctl({QStringLiteral("create-shared-folder"), exe + QStringLiteral("/shared")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    run = Ctl({QStringLiteral("create-shared-folder"), exe + QStringLiteral("/shared")});
    EXPECT_EQ(run.exitCode, 1);
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
    ASSERT_EQ(Ctl({QStringLiteral("create-installation"), exe}).exitCode, 0);
    ASSERT_EQ(Ctl({QStringLiteral("create-shared-folder"), dir.path() + QStringLiteral("/shared")}).exitCode, 0);
    const QString reg = Settings(dir.path()).Text(QStringLiteral("ActiveDSN"), dsn)
                            .Text(QStringLiteral("SharedResourcePath"), dir.path() + QStringLiteral("/shared"))
                            .Text(QStringLiteral("ExePath"), exe)
                            .Write();
    run = Ctl({QStringLiteral("info")}, reg);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.outLines().value(1), QStringLiteral("connection: PROVIDER=MSDASQL;DSN=") + dsn);
    EXPECT_EQ(run.outLines().value(6), QStringLiteral("environments: 0"));
}

} // namespace
} // namespace dorvane
