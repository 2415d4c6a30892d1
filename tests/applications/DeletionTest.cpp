// Deleting an application with its versions, and one version: the
// refusals for versions that take part in an environment, the
// confirmations, and the order in which the rows go.

#include "applications/Deletion.h"
#include "copyengine/CopyEngineFixture.h"

#include <vector>

using namespace dorvane;
using namespace dorvane::test;

namespace {

const QString kInEnvironment = QStringLiteral("This version is part of an existing environment and cannot be deleted!");

class DeletionTest : public CopyEngineTest {
protected:
    RepositoryContent content() const override { return RepositoryContent::Tutorial; }

    qint32 appKey(const QString& name)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tApp WHERE sAppName='%1'").arg(name), conn);
        return rs.Eof() ? 0 : rs.Int(QStringLiteral("iAppKey"));
    }

    qint32 versionKey(const QString& app, const QString& id)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionAppKey=%1 AND sVersionID='%2'").arg(appKey(app)).arg(id),
                     conn);
        return rs.Eof() ? 0 : rs.Int(QStringLiteral("iVersionKey"));
    }

    qint32 addEnvironment(const QString& name)
    {
        return add(QStringLiteral("tEnvironment"), {{QStringLiteral("sEnvironmentName"), name}});
    }

    void addToEnvironment(qint32 environment, qint32 version)
    {
        add(QStringLiteral("tEnvironmentDetail"), {{QStringLiteral("iEnvironKey"), environment},
                                                   {QStringLiteral("iEnvironVerKey"), version},
                                                   {QStringLiteral("iEnvironTestToolKey"), 2},
                                                   {QStringLiteral("iEnviron3270Key"), 0}});
    }

    // A version with one window, one process, one step window and one step.
    qint32 addVersionWithAStep(qint32 app, const QString& id)
    {
        const qint32 v = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), id}});
        const qint32 window = add(QStringLiteral("tWindow"), {{QStringLiteral("iWindowVerKey"), v},
                                                              {QStringLiteral("sWindowPhysicalName"), QStringLiteral("frmMain")}});
        const qint32 process = add(QStringLiteral("tProcess"), {{QStringLiteral("iProcessVerKey"), v},
                                                                {QStringLiteral("sProcessName"), QStringLiteral("Run")}});
        const qint32 stepWindow = add(QStringLiteral("tStepWindow"), {{QStringLiteral("iStepWindowProcessKey"), process},
                                                                      {QStringLiteral("iStepWindowVerKey"), v},
                                                                      {QStringLiteral("iStepWindowWindowKey"), window},
                                                                      {QStringLiteral("iStepWindowSequenceNum"), 1}});
        add(QStringLiteral("tStep"), {{QStringLiteral("iStepWindowKey"), stepWindow}, {QStringLiteral("iStepSequenceNum"), 1}});
        return v;
    }

    qint32 rows(const QString& table, const QString& condition)
    {
        return count(QStringLiteral("SELECT * FROM %1 WHERE %2").arg(table, condition));
    }

    // The version contents deletion, with every call recorded.
    DeleteContents recordingDeletion()
    {
        return [this](qint32 key) {
            calls.push_back(key);
            return DeleteVersionContents(key, conn, messages);
        };
    }

    // A deletion that must not be reached.
    DeleteContents unreachable()
    {
        return [](qint32 key) {
            ADD_FAILURE() << "version " << key << " was deleted";
            return false;
        };
    }

    // `before` without the rows of one table whose text contains `marker`.
    static QStringList without(QStringList before, const QString& table, const QString& marker)
    {
        before.removeIf([&](const QString& row) { return row.startsWith(table + u':') && row.contains(marker); });
        return before;
    }

    std::vector<qint32> calls;
};

// ---- Delete application ----

TEST_P(DeletionTest, AnApplicationWithoutVersionsLosesOnlyItsAppRow)
{
    add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Payroll")},
                                 {QStringLiteral("sAppID"), QStringLiteral("PAYROLLAPP")},
                                 {QStringLiteral("iAppPlatform"), kPlatformWindows}});
    const QStringList before = dump();
    messages.Queue(Answer::Yes);

    EXPECT_TRUE(DeleteApplication(conn, messages, appKey(QStringLiteral("Payroll")), QStringLiteral("Payroll"), unreachable()));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete Payroll and all its versions?")});
    EXPECT_EQ(dump(), without(before, QStringLiteral("tApp"), QStringLiteral("|PAYROLLAPP|")));
    EXPECT_EQ(dump().size(), before.size() - 1);
}

TEST_P(DeletionTest, AFreeApplicationGoesWithEveryVersionAndItsContents)
{
    const qint32 app = appKey(QStringLiteral("Web Store"));
    const qint32 ws30 = versionKey(QStringLiteral("Web Store"), QStringLiteral("3.0"));
    const qint32 ws31 = addVersionWithAStep(app, QStringLiteral("3.1"));
    ASSERT_GT(rows(QStringLiteral("tWindow"), QStringLiteral("iWindowVerKey=%1").arg(ws30)), 0);
    messages.Queue(Answer::Yes);

    // The name in the question is the text of the name box, as typed.
    EXPECT_TRUE(DeleteApplication(conn, messages, app, QStringLiteral("web store"), recordingDeletion()));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete web store and all its versions?")});
    EXPECT_EQ(calls, (std::vector<qint32>{ws30, ws31}));
    EXPECT_EQ(rows(QStringLiteral("tApp"), QStringLiteral("iAppKey=%1").arg(app)), 0);
    EXPECT_EQ(rows(QStringLiteral("tVersion"), QStringLiteral("iVersionAppKey=%1").arg(app)), 0);
    EXPECT_EQ(rows(QStringLiteral("tWindow"), QStringLiteral("iWindowVerKey IN (%1,%2)").arg(ws30).arg(ws31)), 0);
    EXPECT_EQ(rows(QStringLiteral("tProcess"), QStringLiteral("iProcessVerKey IN (%1,%2)").arg(ws30).arg(ws31)), 0);
    // The other applications keep theirs.
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tApp")), 2);
}

TEST_P(DeletionTest, AnApplicationWhoseSecondVersionIsInAnEnvironmentIsRefused)
{
    // Order Entry 1.0 is free, 1.1 is in the tutorial environment.
    ASSERT_EQ(rows(QStringLiteral("tEnvironmentDetail"),
                   QStringLiteral("iEnvironVerKey=%1").arg(versionKey(QStringLiteral("Order Entry"), QStringLiteral("1.0")))),
              0);
    const QStringList before = dump();

    // No answer is queued: the question must not be asked.
    EXPECT_FALSE(DeleteApplication(conn, messages, appKey(QStringLiteral("Order Entry")), QStringLiteral("Order Entry"),
                                   unreachable()));
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("This application is used in at least one environment (TUTORIAL) and cannot be deleted")});
    EXPECT_EQ(dump(), before);
}

TEST_P(DeletionTest, OnlyTheEnvironmentOfTheFirstVersionFoundIsNamed)
{
    // ALPHA has the lower key and sorts first; ZETA holds the earlier version.
    const qint32 alpha = addEnvironment(QStringLiteral("ALPHA"));
    const qint32 zeta = addEnvironment(QStringLiteral("ZETA"));
    const qint32 app = add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Ledger")},
                                                    {QStringLiteral("iAppPlatform"), kPlatformWindows}});
    add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), QStringLiteral("1")}});
    const qint32 v2 = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), QStringLiteral("2")}});
    const qint32 v3 = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), QStringLiteral("3")}});
    addToEnvironment(alpha, v3);
    addToEnvironment(zeta, v2);
    addToEnvironment(alpha, v2);
    const QStringList before = dump();

    EXPECT_FALSE(DeleteApplication(conn, messages, app, QStringLiteral("Ledger"), unreachable()));
    EXPECT_EQ(messages.shown,
              QStringList{QStringLiteral("This application is used in at least one environment (ZETA) and cannot be deleted")});
    EXPECT_EQ(dump(), before);
}

TEST_P(DeletionTest, NoToTheApplicationQuestionWritesNothing)
{
    const QStringList before = dump();
    for (const Answer answer : {Answer::No, Answer::Cancel}) {
        messages.shown.clear();
        messages.Queue(answer);
        EXPECT_FALSE(DeleteApplication(conn, messages, appKey(QStringLiteral("Web Store")), QStringLiteral("Web Store"),
                                       unreachable()));
        EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete Web Store and all its versions?")});
        EXPECT_EQ(dump(), before);
    }
}

TEST_P(DeletionTest, AFailedVersionStopsTheLoopButTheApplicationRowStillGoes)
{
    const qint32 app = add(QStringLiteral("tApp"), {{QStringLiteral("sAppName"), QStringLiteral("Broken")},
                                                    {QStringLiteral("iAppPlatform"), kPlatformWindows}});
    const qint32 first = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), QStringLiteral("1")}});
    const qint32 second = addVersionWithAStep(app, QStringLiteral("2"));
    const qint32 third = addVersionWithAStep(app, QStringLiteral("3"));
    abortOn(QStringLiteral("tStep"), QStringLiteral("DELETE"));
    messages.Queue(Answer::Yes);

    EXPECT_TRUE(DeleteApplication(conn, messages, app, QStringLiteral("Broken"), recordingDeletion()));
    // The third version is not attempted.
    EXPECT_EQ(calls, (std::vector<qint32>{first, second}));
    ASSERT_EQ(messages.shown.size(), 2) << messages.shown.join(u'\n').toStdString();
    EXPECT_EQ(messages.shown[0], QStringLiteral("Are you sure you want to delete Broken and all its versions?"));
    EXPECT_TRUE(messages.shown[1].startsWith(QStringLiteral("Error while deleting Steps:"))) << messages.shown[1].toStdString();
    EXPECT_TRUE(messages.shown[1].endsWith(QStringLiteral("! New version not fully deleted.")));

    EXPECT_EQ(rows(QStringLiteral("tApp"), QStringLiteral("iAppKey=%1").arg(app)), 0);
    EXPECT_EQ(rows(QStringLiteral("tVersion"), QStringLiteral("iVersionKey=%1").arg(first)), 0);
    // The failed version is rolled back whole; the untried one is untouched.
    for (const qint32 v : {second, third}) {
        EXPECT_EQ(rows(QStringLiteral("tVersion"), QStringLiteral("iVersionKey=%1").arg(v)), 1);
        EXPECT_EQ(rows(QStringLiteral("tWindow"), QStringLiteral("iWindowVerKey=%1").arg(v)), 1);
        EXPECT_EQ(rows(QStringLiteral("tStepWindow"), QStringLiteral("iStepWindowVerKey=%1").arg(v)), 1);
    }
    EXPECT_EQ(rows(QStringLiteral("tStep"), QStringLiteral("iStepWindowKey IN (SELECT iStepWindowKey FROM tStepWindow WHERE "
                                                           "iStepWindowVerKey IN (%1,%2))")
                                                .arg(second)
                                                .arg(third)),
              2);
    EXPECT_FALSE(conn.InTransaction());
}

// ---- Delete version ----

TEST_P(DeletionTest, AVersionInTwoEnvironmentsGetsOneFixedMessage)
{
    const qint32 oe11 = versionKey(QStringLiteral("Order Entry"), QStringLiteral("1.1"));
    addToEnvironment(addEnvironment(QStringLiteral("SECOND")), oe11);
    const QStringList before = dump();

    EXPECT_FALSE(DeleteVersion(conn, messages, oe11, QStringLiteral("1.1"), unreachable()));
    EXPECT_EQ(messages.shown, QStringList{kInEnvironment});
    EXPECT_EQ(dump(), before);
}

TEST_P(DeletionTest, AFreeVersionIsDeletedAfterTheQuestion)
{
    const qint32 oe10 = versionKey(QStringLiteral("Order Entry"), QStringLiteral("1.0"));
    const QStringList before = dump();
    messages.Queue(Answer::No);
    EXPECT_FALSE(DeleteVersion(conn, messages, oe10, QStringLiteral("1.0"), unreachable()));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete ALL elements of 1.0?")});
    EXPECT_EQ(dump(), before);

    messages.shown.clear();
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(DeleteVersion(conn, messages, oe10, QStringLiteral("1.0"), recordingDeletion()));
    EXPECT_EQ(messages.shown, QStringList{QStringLiteral("Are you sure you want to delete ALL elements of 1.0?")});
    EXPECT_EQ(calls, std::vector<qint32>{oe10});
    EXPECT_EQ(rows(QStringLiteral("tVersion"), QStringLiteral("iVersionKey=%1").arg(oe10)), 0);
    EXPECT_EQ(rows(QStringLiteral("tWindow"), QStringLiteral("iWindowVerKey=%1").arg(oe10)), 0);
    // The application and its other version stay.
    EXPECT_EQ(rows(QStringLiteral("tApp"), QStringLiteral("sAppName='Order Entry'")), 1);
    EXPECT_NE(versionKey(QStringLiteral("Order Entry"), QStringLiteral("1.1")), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, DeletionTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
