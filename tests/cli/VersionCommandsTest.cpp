// dorvanectl's version commands, run as a program on the tutorial
// installation and on the PostgreSQL data source: update-version,
// copy-version, delete-version and delete-application.

#include "cli/CtlTestSupport.h"

namespace dorvane {
namespace {

using test::Ctl;
using test::CtlResult;

const QString kUpdate = QStringLiteral("update-version");
const QString kCopy = QStringLiteral("copy-version");
const QString kEnvironment = QStringLiteral("TUTORIAL");
const QString kListed = QStringLiteral("Order Entry - 1.1");
const QString kOrderEntry = QStringLiteral("Order Entry");

class VersionCommandsTest : public test::CtlRepositoryTest {
protected:
    qint32 appKey(const QString& name)
    {
        return key(QStringLiteral("SELECT * FROM tApp WHERE sAppName='%1'").arg(name), QStringLiteral("iAppKey"));
    }

    qint32 versionKey(const QString& app, const QString& id)
    {
        return key(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='%2'").arg(appKey(app)).arg(id),
                   QStringLiteral("iVersionKey"));
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
    QStringList environmentVersions()
    {
        return rows(QStringLiteral("SELECT iEnvironVerKey FROM tEnvironmentDetail WHERE iEnvironKey IN (SELECT iEnvironmentKey "
                                   "FROM tEnvironment WHERE sEnvironmentName='TUTORIAL') ORDER BY iEnvironVerKey"));
    }

    qint32 processesOf(qint32 v) { return count(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(v)); }

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

};

// ---- update-version and copy-version ----

// The order of the checks is the core's; here: the message alone on
// standard error, status 1, nothing written, on both commands.
TEST_P(VersionCommandsTest, RefusalsSayTheMessageAndChangeNothing)
{
    addVersion(kOrderEntry, QStringLiteral("1.2"), 1);
    expectRefusal({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.0")},
                  QStringLiteral("You can only update an existing application version from a new (empty) one"));
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
    ASSERT_EQ(environmentVersions(), (QStringList{QString::number(oe11), QString::number(r5)}));

    const CtlResult run = ctl({kUpdate, kEnvironment, kListed, kOrderEntry, QStringLiteral("1.2")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(environmentVersions(), (QStringList{QString::number(r5), QString::number(oe12)}));
    EXPECT_GT(processesOf(oe12), 0);
    EXPECT_EQ(processesOf(oe12), processesOf(oe11));
}

TEST_P(VersionCommandsTest, CopyFillsTheNewVersionAndLeavesTheEnvironment)
{
    const qint32 oe11 = versionKey(kOrderEntry, QStringLiteral("1.1"));
    const qint32 oe12 = addVersion(kOrderEntry, QStringLiteral("1.2"), 0);
    const QStringList listed = environmentVersions();

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

INSTANTIATE_CTL_REPOSITORIES(VersionCommandsTest);

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
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.out, QString());
        EXPECT_TRUE(run.err.startsWith(QString::fromLatin1(c.usage))) << run.err.toStdString();
    }
}

} // namespace
} // namespace dorvane
