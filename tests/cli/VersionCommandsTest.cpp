// dorvanectl's version commands, run as a program on the tutorial
// installation and on the PostgreSQL data source: update-version,
// copy-version, delete-version and delete-application.

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

const QString kUpdate = QStringLiteral("update-version");
const QString kCopy = QStringLiteral("copy-version");
const QString kEnvironment = QStringLiteral("TUTORIAL");
const QString kListed = QStringLiteral("Order Entry - 1.1");
const QString kOrderEntry = QStringLiteral("Order Entry");

// Parameterised by where the repository is: "tutorial" (the SQLite file of
// a tutorial installation) or "odbc" (the test data source, created by
// dorvanectl and filled with the tutorial's rows).
class VersionCommandsTest : public ::testing::TestWithParam<std::string> {
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

    qint32 appKey(const QString& name)
    {
        const std::vector<qint32> keys = ints(QStringLiteral("SELECT * FROM tApp WHERE sAppName='%1'").arg(name),
                                              QStringLiteral("iAppKey"));
        return keys.empty() ? 0 : keys.front();
    }

    qint32 versionKey(const QString& app, const QString& id)
    {
        const std::vector<qint32> keys =
            ints(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='%2'").arg(appKey(app)).arg(id),
                 QStringLiteral("iVersionKey"));
        return keys.empty() ? 0 : keys.front();
    }

    // A new version with `windows` windows (the first one standing for its
    // seeded system screen).
    qint32 addVersion(const QString& app, const QString& id, int windows)
    {
        const qint32 v = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), appKey(app)},
                                                          {QStringLiteral("sVersionID"), id},
                                                          {QStringLiteral("iMapType"), 1}});
        for (int i = 0; i < windows; ++i)
            add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), v},
                                            {QStringLiteral("sWindowPhysicalName"),
                                             i == 0 ? QStringLiteral("[System Screen]") : QStringLiteral("frmOther")}});
        return v;
    }

    // The environment's versions, by key.
    std::vector<qint32> environmentVersions()
    {
        return ints(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey IN (SELECT iEnvironmentKey FROM "
                                   "tEnvironment WHERE sEnvironmentName='TUTORIAL') ORDER BY iEnvironVerKey"),
                    QStringLiteral("iEnvironVerKey"));
    }

    qint32 processesOf(qint32 v) { return count(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(v)); }

    // Every row of every repository table.
    QStringList dump()
    {
        const auto conn = open();
        QStringList rows;
        for (const TableDef& table : RepositoryTables()) {
            Recordset rs(QStringLiteral("SELECT * FROM %1 ORDER BY %2").arg(table.name, table.key), *conn);
            const QStringList fields = rs.FieldNames();
            for (; !rs.Eof(); rs.MoveNext()) {
                QStringList cells;
                for (const QString& field : fields)
                    cells << (rs.IsNull(field) ? QStringLiteral("<null>") : rs.Text(field));
                rows << table.name + u':' + cells.join(u'|');
            }
        }
        return rows;
    }

    // Makes every deletion of a window fail.
    void abortWindowDeletes()
    {
        const auto conn = open();
        if (m_odbc) {
            conn->Execute(QStringLiteral("CREATE FUNCTION dorvane_abort() RETURNS trigger LANGUAGE plpgsql AS "
                                         "$$ BEGIN RAISE EXCEPTION 'boom'; END $$"));
            conn->Execute(QStringLiteral("CREATE TRIGGER abort_windows BEFORE DELETE ON tWindow FOR EACH ROW EXECUTE "
                                         "FUNCTION dorvane_abort()"));
        } else {
            conn->Execute(QStringLiteral("CREATE TRIGGER abort_windows BEFORE DELETE ON tWindow BEGIN SELECT "
                                         "RAISE(ABORT, 'boom'); END"));
        }
    }

    // A refusal: the message alone on standard error, status 1, and the
    // repository as it was.
    void expectRefusal(const QStringList& arguments, const QString& message)
    {
        SCOPED_TRACE(arguments.join(u' ').toStdString());
        const QStringList before = dump();
        const CtlResult run = ctl(arguments);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err, message + u'\n');
        EXPECT_EQ(run.out, QString());
        EXPECT_EQ(dump(), before);
    }

    QTemporaryDir m_dir;
    QString m_registry;
    QString m_connectionString;
    std::unique_ptr<test::TestDatabase> m_odbc;
};

// ---- update-version and copy-version ----

// The order of the checks is the core's; here: the message alone on
// standard error, status 1, nothing written, on both commands.
TEST_P(VersionCommandsTest, RefusalsSayTheMessageAndChangeNothing)
{
    addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    expectRefusal({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.0")},
                  QStringLiteral("You can only update an existing application version from a new (empty) one"));
    expectRefusal({kCopy, kEnvironment, kListed, kOrderEntry, QString()},
                  QStringLiteral("You must select a source version and a destination version to Copy"));
    expectRefusal({QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("1.1"), QStringLiteral("--yes")},
                  QStringLiteral("This version is part of an existing environment and cannot be deleted!"));
}

// The content copied is the copy engine's concern; here: status, silence
// and the one visible difference between the two commands.
TEST_P(VersionCommandsTest, UpdateFillsTheNewVersionAndMovesTheEnvironmentToIt)
{
    const qint32 oe11 = versionKey(kOrderEntry, QStringLiteral("1.1"));
    const qint32 r5 = versionKey(QStringLiteral("Customer Inquiry"), QStringLiteral("R5"));
    // One window, its system screen, still counts as new.
    const qint32 oe12 = addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    ASSERT_EQ(environmentVersions(), (std::vector<qint32>{oe11, r5}));

    const CtlResult run = ctl({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.2")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(environmentVersions(), (std::vector<qint32>{r5, oe12}));
    EXPECT_GT(processesOf(oe12), 0);
    EXPECT_EQ(processesOf(oe12), processesOf(oe11));
}

TEST_P(VersionCommandsTest, CopyFillsTheNewVersionAndLeavesTheEnvironment)
{
    const qint32 oe11 = versionKey(kOrderEntry, QStringLiteral("1.1"));
    const qint32 oe12 = addVersion(kOrderEntry, QStringLiteral("1.2"), 0);
    const std::vector<qint32> listed = environmentVersions();

    const CtlResult run = ctl({kCopy, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.2")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(environmentVersions(), listed);
    EXPECT_GT(processesOf(oe12), 0);
    EXPECT_EQ(processesOf(oe12), processesOf(oe11));
}

TEST_P(VersionCommandsTest, UnknownNamesAreSaidAndChangeNothing)
{
    struct Case {
        QStringList arguments;
        QString named;
    };
    const std::vector<Case> cases = {
        {{kUpdate, QStringLiteral("NOWHERE"), kListed, kOrderEntry, QStringLiteral("1.2")}, QStringLiteral("NOWHERE")},
        {{kCopy, kEnvironment, kListed, QStringLiteral("Payroll"), QStringLiteral("1.2")}, QStringLiteral("Payroll")},
        {{kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("7.7")}, QStringLiteral("7.7")},
        {{QStringLiteral("delete-application"), QStringLiteral("Payroll"), QStringLiteral("--yes")}, QStringLiteral("Payroll")},
        // A version of another application is not this application's.
        {{QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("3.0"), QStringLiteral("--yes")}, QStringLiteral("3.0")},
    };
    const QStringList before = dump();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const CtlResult run = ctl(c.arguments);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.contains(c.named)) << run.err.toStdString();
        EXPECT_FALSE(run.err.contains(QStringLiteral("Are you sure"))) << run.err.toStdString();
    }
    EXPECT_EQ(dump(), before);
}

// ---- delete-version and delete-application ----

// Without a terminal the question is printed and only --yes answers it.
TEST_P(VersionCommandsTest, DeletingNeedsAYes)
{
    const qint32 app = appKey(QStringLiteral("Web Store"));
    const qint32 ws30 = versionKey(QStringLiteral("Web Store"), QStringLiteral("3.0"));
    ASSERT_NE(ws30, 0);
    struct Case {
        QStringList arguments;
        QString question;
        QString gone;
    };
    const std::vector<Case> cases = {
        {{QStringLiteral("delete-version"), QStringLiteral("Web Store"), QStringLiteral("3.0")},
         QStringLiteral("Are you sure you want to delete ALL elements of 3.0?"),
         QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(ws30)},
        {{QStringLiteral("delete-application"), QStringLiteral("Web Store")},
         QStringLiteral("Are you sure you want to delete Web Store and all its versions?"),
         QStringLiteral("SELECT * FROM tApp WHERE iAppKey=%1").arg(app)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const QStringList before = dump();
        CtlResult run = ctl(c.arguments);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.startsWith(c.question)) << run.err.toStdString();
        EXPECT_EQ(run.out, QString());
        EXPECT_EQ(dump(), before);

        run = ctl(c.arguments + QStringList{QStringLiteral("--yes")});
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        EXPECT_TRUE(run.err.startsWith(c.question)) << run.err.toStdString();
        EXPECT_EQ(count(c.gone), 0);
    }
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp")), 2);
}

TEST_P(VersionCommandsTest, AFailedVersionDeletionEndsWithStatusOne)
{
    const qint32 oe10 = versionKey(kOrderEntry, QStringLiteral("1.0"));
    abortWindowDeletes();
    const QStringList before = dump();
    const CtlResult run =
        ctl({QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("1.0"), QStringLiteral("--yes")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("\nError while deleting Windows:"))) << run.err.toStdString();
    EXPECT_TRUE(run.err.endsWith(QStringLiteral("! New version not fully deleted.\n"))) << run.err.toStdString();
    EXPECT_EQ(dump(), before);
    EXPECT_NE(versionKey(kOrderEntry, QStringLiteral("1.0")), 0);
    EXPECT_EQ(oe10, versionKey(kOrderEntry, QStringLiteral("1.0")));
}

INSTANTIATE_TEST_SUITE_P(Repositories, VersionCommandsTest,
                         ::testing::ValuesIn([] {
                             std::vector<std::string> where{"tutorial"};
                             if (!test::TestDsn().isEmpty())
                                 where.push_back("odbc");
                             return where;
                         }()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

// ---- usage ----

TEST(VersionCommandsUsage, WrongArgumentCountsPrintTheUsage)
{
    struct Case {
        QStringList arguments;
        const char* usage;
    };
    const std::vector<Case> cases = {
        {{kUpdate}, "usage: dorvanectl update-version ENVIRONMENT LISTED APPLICATION VERSION"},
        {{kUpdate, QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("d"), QStringLiteral("e")},
         "usage: dorvanectl update-version"},
        {{kCopy, QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")},
         "usage: dorvanectl copy-version ENVIRONMENT LISTED APPLICATION VERSION"},
        {{QStringLiteral("delete-version"), QStringLiteral("a")}, "usage: dorvanectl delete-version APPLICATION VERSION [--yes]"},
        {{QStringLiteral("delete-version"), QStringLiteral("a"), QStringLiteral("--yes")}, "usage: dorvanectl delete-version"},
        {{QStringLiteral("delete-application")}, "usage: dorvanectl delete-application APPLICATION [--yes]"},
        {{QStringLiteral("delete-application"), QStringLiteral("--yes")}, "usage: dorvanectl delete-application"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const CtlResult run = Ctl(c.arguments);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.out, QString());
        EXPECT_TRUE(run.err.startsWith(QString::fromLatin1(c.usage))) << run.err.toStdString();
    }
}

} // namespace
} // namespace dorvane
