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

    // How many rows of each kind hang off a version.
    std::vector<qint32> contentOf(qint32 v)
    {
        const QString processes = QStringLiteral("(SELECT iProcessKey FROM tProcess WHERE iProcessVerKey=%1)").arg(v);
        return {
            count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey IN (SELECT iWindowKey FROM tWindow WHERE "
                                 "iWindowVerKey=%1)").arg(v)),
            count(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey IN ") + processes),
            count(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey IN (SELECT iStepWindowKey FROM tStepWindow WHERE "
                                 "iStepWindowProcessKey IN ") + processes + QLatin1Char(')')),
            count(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1").arg(v)),
        };
    }

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

TEST_P(VersionCommandsTest, UpdateRefusesInTheOrderOfItsChecks)
{
    addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    const QString noListed = QStringLiteral("Please select target application version from the list on the right");
    const QString noVersion = QStringLiteral("You must select a source version and a destination version to update");
    const QString otherApp = QStringLiteral("The source and destination versions must belong to the same application");
    const QString notNew = QStringLiteral("You can only update an existing application version from a new (empty) one");

    // Each check wins over every later one.
    expectRefusal({kUpdate, kEnvironment, QStringLiteral("Order Entry - 9.9"), QStringLiteral("Customer Inquiry"), QString()},
                  noListed);
    // A version of the application that is not in this environment is not
    // in its list either.
    expectRefusal({kUpdate, kEnvironment, QStringLiteral("Order Entry - 1.0"), kOrderEntry, QStringLiteral("1.2")}, noListed);
    expectRefusal({kUpdate, kEnvironment, kListed, QStringLiteral("Customer Inquiry"), QString()}, noVersion);
    expectRefusal({kUpdate, kEnvironment, kListed, QString(), QString()}, noVersion);
    expectRefusal({kUpdate, kEnvironment, QStringLiteral("Customer Inquiry - R5"), kOrderEntry, QStringLiteral("1.0")}, otherApp);
    expectRefusal({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.0")}, notNew);
    // The listed version itself is not new either.
    expectRefusal({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.1")}, notNew);
    addVersion(kOrderEntry, QStringLiteral("1.3"), 2);
    expectRefusal({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.3")}, notNew);
}

TEST_P(VersionCommandsTest, CopyRefusesWithItsOwnTexts)
{
    addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    expectRefusal({kCopy, kEnvironment, QStringLiteral("Order Entry - 9.9"), kOrderEntry, QStringLiteral("1.2")},
                  QStringLiteral("Please select target application version from the list on the right"));
    expectRefusal({kCopy, kEnvironment, kListed, kOrderEntry, QString()},
                  QStringLiteral("You must select a source version and a destination version to Copy"));
    expectRefusal({kCopy, kEnvironment, QStringLiteral("Customer Inquiry - R5"), kOrderEntry, QStringLiteral("1.2")},
                  QStringLiteral("The source and destination versions must belong to the same application"));
    expectRefusal({kCopy, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.0")},
                  QStringLiteral("You can only Copy an existing application version to a new (empty) one"));
}

TEST_P(VersionCommandsTest, UpdateFillsTheNewVersionAndMovesTheEnvironmentToIt)
{
    const qint32 oe11 = versionKey(kOrderEntry, QStringLiteral("1.1"));
    const qint32 r5 = versionKey(QStringLiteral("Customer Inquiry"), QStringLiteral("R5"));
    // One window, its system screen, still counts as new.
    const qint32 oe12 = addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    const std::vector<qint32> source = contentOf(oe11);
    ASSERT_EQ(environmentVersions(), (std::vector<qint32>{oe11, r5}));

    const CtlResult run = ctl({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.2")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(environmentVersions(), (std::vector<qint32>{r5, oe12}));
    // The copy keeps its own system screen (here without objects) in place
    // of the source's one with its "[System]" object.
    std::vector<qint32> expected = source;
    expected[1] -= 1;
    EXPECT_EQ(contentOf(oe12), expected);
    EXPECT_EQ(contentOf(oe11), source);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1 AND iVersionSourceVersion=%2").arg(oe12).arg(oe11)), 1);
}

TEST_P(VersionCommandsTest, CopyFillsTheNewVersionAndLeavesTheEnvironment)
{
    const qint32 oe11 = versionKey(kOrderEntry, QStringLiteral("1.1"));
    const qint32 oe12 = addVersion(kOrderEntry, QStringLiteral("1.2"), 0);
    const std::vector<qint32> source = contentOf(oe11);
    const QStringList details = [this] {
        QStringList rows = dump();
        rows.removeIf([](const QString& row) { return !row.startsWith(QStringLiteral("tEnvironmentDetail:")); });
        return rows;
    }();
    ASSERT_EQ(details.size(), 2);

    const CtlResult run = ctl({kCopy, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.2")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    QStringList after = dump();
    after.removeIf([](const QString& row) { return !row.startsWith(QStringLiteral("tEnvironmentDetail:")); });
    EXPECT_EQ(after, details);
    // The source's system screen and its object are not copied.
    std::vector<qint32> expected = source;
    expected[0] -= 1;
    expected[1] -= 1;
    EXPECT_EQ(contentOf(oe12), expected);
}

TEST_P(VersionCommandsTest, UnknownNamesAreSaidAndChangeNothing)
{
    addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    for (const QString& command : {kUpdate, kCopy}) {
        for (const QStringList& arguments :
             {QStringList{QStringLiteral("NOWHERE"), kListed, kOrderEntry, QStringLiteral("1.2")},
              QStringList{kEnvironment, kListed, QStringLiteral("Payroll"), QStringLiteral("1.2")},
              QStringList{kEnvironment, kListed, kOrderEntry, QStringLiteral("7.7")}}) {
            SCOPED_TRACE((command + u' ' + arguments.join(u'|')).toStdString());
            const QStringList before = dump();
            const CtlResult run = ctl(QStringList{command} + arguments);
            EXPECT_EQ(run.exitCode, 1);
            EXPECT_FALSE(run.err.isEmpty());
            EXPECT_TRUE(run.err.contains(arguments[0] == QLatin1String("NOWHERE")     ? QStringLiteral("NOWHERE")
                                         : arguments[2] == QLatin1String("Payroll") ? QStringLiteral("Payroll")
                                                                                    : QStringLiteral("7.7")))
                << run.err.toStdString();
            EXPECT_EQ(dump(), before);
        }
    }
}

// ---- delete-version and delete-application ----

TEST_P(VersionCommandsTest, DeletingAVersionNeedsAYes)
{
    const qint32 ws30 = versionKey(QStringLiteral("Web Store"), QStringLiteral("3.0"));
    ASSERT_NE(ws30, 0);
    const QStringList before = dump();
    CtlResult run = ctl({QStringLiteral("delete-version"), QStringLiteral("Web Store"), QStringLiteral("3.0")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Are you sure you want to delete ALL elements of 3.0?"))) << run.err.toStdString();
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(dump(), before);

    run = ctl({QStringLiteral("delete-version"), QStringLiteral("Web Store"), QStringLiteral("3.0"), QStringLiteral("--yes")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Are you sure you want to delete ALL elements of 3.0?"))) << run.err.toStdString();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(ws30)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(ws30)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE sAppName='Web Store'")), 1);
}

TEST_P(VersionCommandsTest, AVersionInAnEnvironmentIsNotDeleted)
{
    for (const QStringList& arguments :
         {QStringList{QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("1.1")},
          QStringList{QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("1.1"), QStringLiteral("--yes")}})
        expectRefusal(arguments, QStringLiteral("This version is part of an existing environment and cannot be deleted!"));
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

TEST_P(VersionCommandsTest, DeletingAnApplicationNeedsAYes)
{
    const qint32 app = appKey(QStringLiteral("Web Store"));
    const QStringList before = dump();
    CtlResult run = ctl({QStringLiteral("delete-application"), QStringLiteral("Web Store")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Are you sure you want to delete Web Store and all its versions?")))
        << run.err.toStdString();
    EXPECT_EQ(dump(), before);

    run = ctl({QStringLiteral("delete-application"), QStringLiteral("Web Store"), QStringLiteral("--yes")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Are you sure you want to delete Web Store and all its versions?")))
        << run.err.toStdString();
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=%1").arg(app)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1").arg(app)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp")), 2);
}

TEST_P(VersionCommandsTest, AnApplicationWhoseVersionStayedEndsWithStatusOneButIsGone)
{
    const qint32 app = appKey(QStringLiteral("Web Store"));
    const qint32 ws30 = versionKey(QStringLiteral("Web Store"), QStringLiteral("3.0"));
    abortWindowDeletes();
    const CtlResult run = ctl({QStringLiteral("delete-application"), QStringLiteral("Web Store"), QStringLiteral("--yes")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(QStringLiteral("\nError while deleting Windows:"))) << run.err.toStdString();
    // The application row goes all the same; the version is rolled back whole.
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=%1").arg(app)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(ws30)), 1);
    EXPECT_GT(count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(ws30)), 0);
}

TEST_P(VersionCommandsTest, AnApplicationInAnEnvironmentIsNotDeleted)
{
    expectRefusal({QStringLiteral("delete-application"), kOrderEntry, QStringLiteral("--yes")},
                  QStringLiteral("This application is used in at least one environment (TUTORIAL) and cannot be deleted"));
}

TEST_P(VersionCommandsTest, UnknownApplicationsAndVersionsAreSaid)
{
    struct Case {
        QStringList arguments;
        QString named;
    };
    const std::vector<Case> cases = {
        {{QStringLiteral("delete-application"), QStringLiteral("Payroll"), QStringLiteral("--yes")}, QStringLiteral("Payroll")},
        {{QStringLiteral("delete-version"), QStringLiteral("Payroll"), QStringLiteral("1.0"), QStringLiteral("--yes")},
         QStringLiteral("Payroll")},
        {{QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("7.7"), QStringLiteral("--yes")}, QStringLiteral("7.7")},
        // A version of another application is not this application's.
        {{QStringLiteral("delete-version"), kOrderEntry, QStringLiteral("3.0"), QStringLiteral("--yes")}, QStringLiteral("3.0")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const QStringList before = dump();
        const CtlResult run = ctl(c.arguments);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.contains(c.named)) << run.err.toStdString();
        EXPECT_FALSE(run.err.contains(QStringLiteral("Are you sure"))) << run.err.toStdString();
        EXPECT_EQ(dump(), before);
    }
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
        {{kUpdate, QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}, "usage: dorvanectl update-version"},
        {{kUpdate, QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("d"), QStringLiteral("e")},
         "usage: dorvanectl update-version"},
        {{kCopy, QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")},
         "usage: dorvanectl copy-version ENVIRONMENT LISTED APPLICATION VERSION"},
        {{QStringLiteral("delete-version"), QStringLiteral("a")}, "usage: dorvanectl delete-version APPLICATION VERSION [--yes]"},
        {{QStringLiteral("delete-version"), QStringLiteral("a"), QStringLiteral("--yes")}, "usage: dorvanectl delete-version"},
        {{QStringLiteral("delete-version"), QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")},
         "usage: dorvanectl delete-version"},
        {{QStringLiteral("delete-application")}, "usage: dorvanectl delete-application APPLICATION [--yes]"},
        {{QStringLiteral("delete-application"), QStringLiteral("--yes")}, "usage: dorvanectl delete-application"},
        {{QStringLiteral("delete-application"), QStringLiteral("a"), QStringLiteral("b")}, "usage: dorvanectl delete-application"},
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
