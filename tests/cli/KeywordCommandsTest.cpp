// dorvanectl export-keywords and import-keywords, run as a program on the
// tutorial installation and on the PostgreSQL data source.

#include "cli/CtlTestSupport.h"
#include "repository/Connection.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <memory>

namespace dorvane {
namespace {

using test::Ctl;
using test::CtlResult;
using test::Quoted;
using test::WriteSettings;

const QString kExport = QStringLiteral("export-keywords");
const QString kImport = QStringLiteral("import-keywords");
const QString kExported =
    QStringLiteral("The Keywords have been exported to tab delimited text format in the file you selected\n");

// Parameterised by where the repository is: "tutorial" (the SQLite file of
// a tutorial installation) or "odbc" (the test data source with the
// tutorial's rows).
class KeywordCommandsTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        const QString exe = m_dir.path() + QStringLiteral("/exe");
        CtlResult run = Ctl({QStringLiteral("create-installation"), exe});
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        m_registry = m_dir.path() + QStringLiteral("/zentrix.reg");

        if (GetParam() == "tutorial") {
            m_connectionString = QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + exe +
                                 QStringLiteral("/Tutorial/Database/Tutorial.mdb;");
            WriteSettings(m_registry, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial")),
                                       Quoted(QStringLiteral("ExePath"), exe)});
            return;
        }

        m_odbc = std::make_unique<test::TestDatabase>("odbc");
        const QString dsn = test::TestDsn();
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
                                   Quoted(QStringLiteral("ExePath"), exe)});
    }

    CtlResult ctl(const QStringList& arguments) { return Ctl(arguments, m_registry); }

    // "name|description" per keyword of the application, in key order.
    QStringList keywords(const QString& app)
    {
        Connection conn;
        conn.Open(m_connectionString);
        QStringList rows;
        for (Recordset rs(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey IN (SELECT iAppKey FROM tApp "
                                         "WHERE sAppName='%1') ORDER BY iKeywordKey")
                              .arg(app),
                          conn);
             !rs.Eof(); rs.MoveNext())
            rows << rs.Text(QStringLiteral("sKeywordName")) + u'|' + rs.Text(QStringLiteral("sKeywordDesc"));
        return rows;
    }

    QString path(const QString& name) const { return m_dir.path() + u'/' + name; }

    QByteArray bytes(const QString& file)
    {
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::ReadOnly));
        return f.readAll();
    }

    void writeBytes(const QString& file, const QByteArray& content)
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(content);
    }

    QTemporaryDir m_dir;
    QString m_registry;
    QString m_connectionString;
    std::unique_ptr<test::TestDatabase> m_odbc;
};

TEST_P(KeywordCommandsTest, ExportWritesTheFileAndPrintsTheCompletionMessage)
{
    const QString file = path(QStringLiteral("oe.txt"));
    // An older, longer file keeps its tail.
    writeBytes(file, QByteArray(100, 'x'));
    const CtlResult run = ctl({kExport, QStringLiteral("Order Entry"), file});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, kExported);
    EXPECT_EQ(run.err, QString());
    const QByteArray lines("Orders\tTouches order data\r\nRegression\tPart of the full regression\r\n"
                           "Smoke\tQuick check after each build\r\n");
    EXPECT_EQ(bytes(file), lines + QByteArray(100 - lines.size(), 'x'));
}

TEST_P(KeywordCommandsTest, ExportThenImportCopiesKeywordsToAnotherApplication)
{
    const QString file = path(QStringLiteral("ci.txt"));
    ASSERT_EQ(ctl({kExport, QStringLiteral("Customer Inquiry"), file}).exitCode, 0);
    const CtlResult run = ctl({kImport, QStringLiteral("Web Store"), file});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(keywords(QStringLiteral("Web Store")),
              (QStringList{QStringLiteral("Checkout|Payment pages"), QStringLiteral("Host|Needs the host region")}));
}

TEST_P(KeywordCommandsTest, FailuresAreSaidOnStandardErrorWithStatusOne)
{
    CtlResult run = ctl({kImport, QStringLiteral("Web Store"), path(QStringLiteral("missing.txt"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Error while Importing Keywords: "))) << run.err.toStdString();

    run = ctl({kExport, QStringLiteral("Web Store"), path(QStringLiteral("no/folder/out.txt"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, QString());
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Error while exporting Keywords: "))) << run.err.toStdString();

    for (const QString& command : {kExport, kImport}) {
        run = ctl({command, QStringLiteral("Payroll"), path(QStringLiteral("p.txt"))});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err, QStringLiteral("There is no application named Payroll.\n"));
        run = ctl({command, QStringLiteral("Web Store")});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err, QStringLiteral("usage: dorvanectl ") + command + QStringLiteral(" APPLICATION FILE\n"));
    }
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("p.txt"))));
    EXPECT_EQ(keywords(QStringLiteral("Web Store")), QStringList{QStringLiteral("Checkout|Payment pages")});
}

INSTANTIATE_TEST_SUITE_P(Repositories, KeywordCommandsTest,
                         ::testing::ValuesIn([] {
                             std::vector<std::string> where{"tutorial"};
                             if (!test::TestDsn().isEmpty())
                                 where.push_back("odbc");
                             return where;
                         }()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane
