// Deleting an application with its versions, and one version: the
// refusals for versions in an environment, the questions, the failures.

#include "core/applications/AppTestFixture.h"
#include "core/applications/Deletion.h"
#include "core/copyengine/VersionBackup.h"

namespace dorvane::test {
namespace {

class DeletionTest : public AppRepositoryTest {
protected:
    std::optional<RepositoryContent> content() const override { return RepositoryContent::Tutorial; }

    qint32 appKey(const QString& name) { return Rows(conn, u"SELECT iAppKey FROM tApp WHERE sAppName='%1'"_s.arg(name)).value(0).toInt(); }
    // The version contents deletion, every call recorded; one that must not be reached.
    DeleteContents recording() { return [this](qint32 v, MessageSink& shown) { calls.push_back(v); return DeleteVersionContents(v, conn, shown); }; }
    static bool unreachable(qint32 v, MessageSink&) { ADD_FAILURE() << "version " << v << " was deleted"; return false; }
    std::vector<qint32> calls;
};

TEST_P(DeletionTest, ApplicationsInAnEnvironmentAreRefusedNoWritesNothingAFreeOneGoesWholeAndAFailedVersionStopsTheLoop)
{
    // Only the environment of the first version found is named: ALPHA
    // has the lower key and sorts first, ZETA holds the earlier version.
    const Built k = build(addApp(u"Ledger"_s, u"LEDGER"_s), {u"1"_s, u"2"_s, u"3"_s});
    const qint32 alpha = add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"ALPHA"_s}});
    addDetail(alpha, k[u"3"_s], 2);
    addDetail(add(u"tEnvironment"_s, {{u"sEnvironmentName"_s, u"ZETA"_s}}), k[u"2"_s], 2);
    addDetail(alpha, k[u"2"_s], 2);
    QStringList before = TableRows(conn);
    // Order Entry 1.0 is free, 1.1 is in the tutorial environment. No
    // answer is queued: the question must not be asked.
    EXPECT_FALSE(DeleteApplication(conn, messages, appKey(u"Order Entry"_s), u"Order Entry"_s, unreachable));
    EXPECT_FALSE(DeleteApplication(conn, messages, k[u"app"_s], u"Ledger"_s, unreachable));
    // No or Cancel to the question writes nothing either.
    for (const Answer answer : {Answer::No, Answer::Cancel}) {
        messages.Queue(answer);
        EXPECT_FALSE(DeleteApplication(conn, messages, appKey(u"Web Store"_s), u"Web Store"_s, unreachable));
    }
    const QString question = u"Are you sure you want to delete Web Store and all its versions?"_s;
    EXPECT_EQ(messages.shown, (QStringList{u"This application is used in at least one environment (TUTORIAL) and cannot be deleted"_s,
                                           u"This application is used in at least one environment (ZETA) and cannot be deleted"_s, question, question}));
    EXPECT_EQ(TableRows(conn), before);

    // A free application goes with every version and its contents.
    const qint32 app = appKey(u"Web Store"_s), ws30 = Rows(conn, u"SELECT iVersionKey FROM tVersion WHERE sVersionID='3.0'"_s).value(0).toInt();
    const qint32 ws31 = add(u"tVersion"_s, {{u"iVersionAppKey"_s, app}, {u"sVersionID"_s, u"3.1"_s}});
    const qint32 payroll = addApp(u"Payroll"_s, u"PAYROLLAPP"_s, kPlatformWindows);
    ASSERT_GT(count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(ws30)), 0);
    before = TableRows(conn);
    messages.Queue(Answer::Yes);
    // An application without versions loses only its row.
    EXPECT_TRUE(DeleteApplication(conn, messages, payroll, u"Payroll"_s, unreachable));
    before.removeIf([](const QString& row) { return row.startsWith(u"tApp:"_s) && row.contains(u"|PAYROLLAPP|"_s); });
    EXPECT_EQ(TableRows(conn), before);

    // The name in the question is the text of the name box, as typed.
    messages.Queue(Answer::Yes);
    EXPECT_TRUE(DeleteApplication(conn, messages, app, u"web store"_s, recording()));
    EXPECT_EQ(messages.shown.mid(4), (QStringList{u"Are you sure you want to delete Payroll and all its versions?"_s,
                                                  u"Are you sure you want to delete web store and all its versions?"_s}));
    const QString left = u"SELECT iVersionKey FROM tVersion WHERE iVersionAppKey=%1 UNION ALL SELECT iWindowKey FROM tWindow WHERE iWindowVerKey=%2"_s;
    EXPECT_EQ(std::tuple(calls, count(left.arg(app).arg(ws30)), Rows(conn, u"SELECT sAppName FROM tApp ORDER BY sAppName"_s)),
              std::tuple(std::vector<qint32>{ws30, ws31}, 0, QStringList{u"Customer Inquiry"_s, u"Ledger"_s, u"Order Entry"_s}));

    // A failed version stops the loop and rolls the whole deletion back:
    // no version is left without its application.
    messages.shown.clear();
    calls.clear();
    const Built b = build(addApp(u"Broken"_s, u"BROKEN"_s),
                          {u"1"_s, {u"2"_s, {u"w2"_s}, {{u"p2"_s, {u"w2"_s}}}}, {u"3"_s, {u"w3"_s}, {{u"p3"_s, {u"w3"_s}}}}});
    abortOn(u"tStep"_s, u"DELETE"_s);
    before = TableRows(conn);
    messages.Queue(Answer::Yes);
    EXPECT_FALSE(DeleteApplication(conn, messages, b[u"app"_s], u"Broken"_s, recording()));
    EXPECT_EQ(std::tuple(calls, messages.shown.value(2), TableRows(conn), conn.InTransaction()), // the third is not attempted
              std::tuple(std::vector<qint32>{b[u"1"_s], b[u"2"_s]}, u"Broken and all its versions stay as they were: nothing was deleted."_s, before, false));
    EXPECT_TRUE(messages.shown.size() == 3 && messages.shown[1].startsWith(u"Error while deleting Steps:"_s)
                && messages.shown[1].endsWith(u"! New version not fully deleted."_s)) << Shown(messages);
}

INSTANTIATE_TEST_SUITE_P(Backends, DeletionTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
