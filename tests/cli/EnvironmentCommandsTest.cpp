// dorvanectl's environment commands, run as a program on the tutorial
// installation and on the PostgreSQL data source: copy-environment and
// delete-environment.

#include "cli/CtlTestSupport.h"
#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "repository/Schema.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <memory>
#include <utility>
#include <vector>

namespace dorvane {
namespace {

using test::Ctl;
using test::CtlResult;
using test::Quoted;
using test::WriteSettings;

using Values = std::vector<std::pair<QString, QVariant>>;

const QString kCopy = QStringLiteral("copy-environment");
const QString kDelete = QStringLiteral("delete-environment");
const QString kVersionId = QStringLiteral("--version-id");
const QString kOrderEntryId = QStringLiteral("Order Entry - 1.1=2.0");
const QString kInquiryId = QStringLiteral("Customer Inquiry - R5=R6");

// Parameterised by where the repository is: "tutorial" (the SQLite file of
// a tutorial installation) or "odbc" (the test data source, created by
// dorvanectl and filled with the tutorial's rows).
class EnvironmentCommandsTest : public ::testing::TestWithParam<std::string> {
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

        m_odbc = std::make_unique<test::TestDatabase>("odbc"); // empties the data source
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

    // A connection of its own for every look: the tool writes in between.
    std::unique_ptr<Connection> open()
    {
        auto conn = std::make_unique<Connection>();
        conn->Open(m_connectionString);
        return conn;
    }

    qint32 count(const QString& sql)
    {
        const auto conn = open();
        Recordset rs(sql, *conn);
        return CountRecords(&rs);
    }

    std::vector<qint32> ints(const QString& sql, const QString& column)
    {
        const auto conn = open();
        std::vector<qint32> result;
        for (Recordset rs(sql, *conn); !rs.Eof(); rs.MoveNext())
            result.push_back(rs.Int(column));
        return result;
    }

    QString text(const QString& sql, const QString& column)
    {
        const auto conn = open();
        Recordset rs(sql, *conn);
        return rs.Eof() ? QStringLiteral("<none>") : rs.Text(column);
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

    qint32 environment(const QString& name)
    {
        const std::vector<qint32> keys = ints(
            QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='%1'").arg(name), QStringLiteral("iEnvironmentKey"));
        return keys.empty() ? 0 : keys.front();
    }

    // Row counts of the tables a copy adds to.
    std::vector<qint32> sizes()
    {
        std::vector<qint32> result;
        for (const char* table : {"tEnvironment", "tEnvironmentUser", "tEnvironmentDetail", "tVersion", "tWindow", "tObject",
                                  "tProcess", "tStepWindow", "tStep", "tCycle", "tCycleProcess", "tSchedule",
                                  "tScheduleCycles", "tRecord", "tField", "tFileInstance", "tKeywordRel", "tUserVar"})
            result.push_back(count(QStringLiteral("SELECT * FROM ") + QString::fromLatin1(table)));
        return result;
    }

    QTemporaryDir m_dir;
    QString m_registry;
    QString m_connectionString;
    std::unique_ptr<test::TestDatabase> m_odbc;
};

TEST_P(EnvironmentCommandsTest, CopyEnvironmentBranchesTheWholeEnvironment)
{
    const CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2.0"), QStringLiteral("--description"),
                               QStringLiteral("Branch"), kVersionId, kInquiryId, kVersionId, kOrderEntryId});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());

    // The Save As name: the full stop replaced.
    const qint32 copy = environment(QStringLiteral("Release 2_0"));
    ASSERT_NE(copy, 0);
    EXPECT_EQ(text(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=%1").arg(copy), QStringLiteral("sEnvironmentDesc")),
              QStringLiteral("Branch"));
    const std::vector<qint32> versions = ints(
        QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey").arg(copy),
        QStringLiteral("iEnvironVerKey"));
    ASSERT_EQ(versions.size(), 2u);
    EXPECT_EQ(text(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(versions[0]), QStringLiteral("sVersionID")),
              QStringLiteral("2.0"));
    EXPECT_EQ(text(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(versions[1]), QStringLiteral("sVersionID")),
              QStringLiteral("R6"));

    // The copy's step windows refer to it: it cannot be deleted.
    const CtlResult refused = ctl({kDelete, QStringLiteral("Release 2_0")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, QStringLiteral("This environment is referenced in existing steps and cannot be deleted\n"));
}

TEST_P(EnvironmentCommandsTest, AMissingVersionIdWithoutATerminalCancelsTheCopy)
{
    const std::vector<qint32> before = sizes();
    const CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, kOrderEntryId});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("Enter the new Version ID for Customer Inquiry - R5:\n"));
    EXPECT_EQ(sizes(), before);
    EXPECT_EQ(environment(QStringLiteral("Release 2")), 0);
}

TEST_P(EnvironmentCommandsTest, GivenVersionIdsPassThePromptsChecks)
{
    const std::vector<qint32> before = sizes();
    CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId,
                         QStringLiteral("Order Entry - 1.1=1.1"), kVersionId, kInquiryId});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("1.1 already exists - please choose another ID\n"
                                      "Enter the new Version ID for Order Entry - 1.1:\n"));
    run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, QStringLiteral("Order Entry - 1.1=")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Version ID cannot be blank\n"))) << run.err.toStdString();
    EXPECT_EQ(sizes(), before);

    // An entry the source does not list.
    run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, QStringLiteral("Order Entry - 9=2.0")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("Environment TUTORIAL has no version to match --version-id Order Entry - 9=2.0.\n"));
    EXPECT_EQ(sizes(), before);
}

TEST_P(EnvironmentCommandsTest, CopyEnvironmentRefusesATakenNameAndUnknownSources)
{
    CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("tutorial"), kVersionId, kOrderEntryId, kVersionId, kInquiryId});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("tutorial already exists - please choose another ID\n"));
    run = ctl({kCopy, QStringLiteral("Nowhere"), QStringLiteral("Release 2")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("There is no environment named Nowhere.\n"));
    run = ctl({kCopy, QStringLiteral("TUTORIAL")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("usage: dorvanectl copy-environment SOURCE NEWNAME"))) << run.err.toStdString();
}

TEST_P(EnvironmentCommandsTest, DeleteEnvironmentRemovesAnUnreferencedOneWithItsRows)
{
    const qint32 spare = add(QStringLiteral("tEnvironment"), {{QStringLiteral("sEnvironmentName"), QStringLiteral("Spare")}});
    const qint32 app = ints(QStringLiteral("SELECT * FROM tApp"), QStringLiteral("iAppKey")).front();
    const qint32 version = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), QStringLiteral("9")}});
    add(QStringLiteral("tEnvironmentDetail"), {{QStringLiteral("iEnvironKey"), spare}, {QStringLiteral("iEnvironVerKey"), version}});
    const qint32 user = ints(QStringLiteral("SELECT * FROM tUser"), QStringLiteral("iUserKey")).front();
    add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), spare}, {QStringLiteral("iUserKey"), user}});

    CtlResult run = ctl({kDelete, QStringLiteral("Spare")});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(environment(QStringLiteral("Spare")), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(spare)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(spare)), 0);
    EXPECT_NE(environment(QStringLiteral("TUTORIAL")), 0);

    run = ctl({kDelete, QStringLiteral("Spare")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("There is no environment named Spare.\n"));
}

std::vector<std::string> Repositories()
{
    std::vector<std::string> result{"tutorial"};
    for (const std::string& backend : test::TestBackends()) {
        if (backend == "odbc")
            result.push_back(backend);
    }
    return result;
}

INSTANTIATE_TEST_SUITE_P(Repositories, EnvironmentCommandsTest, ::testing::ValuesIn(Repositories()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane
