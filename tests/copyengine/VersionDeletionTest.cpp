// Deleting a version with everything below it, in one transaction.

#include "copyengine/CopyEngineFixture.h"

using namespace Qt::StringLiterals;

using namespace dorvane;
using namespace dorvane::test;

class VersionDeletionTest : public CopyEngineTest {
protected:
    RepositoryContent content() const override { return RepositoryContent::Tutorial; }

    qint32 version(const QString& id)
    {
        Recordset rs(u"SELECT * FROM tVersion WHERE sVersionID='%1'"_s.arg(id), conn);
        return rs.Int(u"iVersionKey"_s);
    }

    // How many rows of each table belong to a version, directly or below
    // its processes, cycles and windows.
    QList<qint32> contentOf(qint32 v)
    {
        const QString processes = u"(SELECT iProcessKey FROM tProcess WHERE iProcessVerKey=%1)"_s.arg(v);
        const QString cycles = u"(SELECT iCycleKey FROM tCycle WHERE iCycleVerKey=%1)"_s.arg(v);
        return {
            count(u"SELECT * FROM tVersion WHERE iVersionKey=%1"_s.arg(v)),
            count(u"SELECT * FROM tUserVar WHERE iVarAppVerKey=%1"_s.arg(v)),
            count(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1"_s.arg(v)),
            count(
                u"SELECT * FROM tObject WHERE iObjectWindowKey IN (SELECT iWindowKey FROM tWindow WHERE iWindowVerKey=%1)"_s.arg(
                    v)),
            count(u"SELECT * FROM tProcess WHERE iProcessVerKey=%1"_s.arg(v)),
            count(u"SELECT * FROM tStepWindow WHERE iStepWindowProcessKey IN "_s + processes),
            count(u"SELECT * FROM tStep WHERE iStepWindowKey IN (SELECT iStepWindowKey FROM tStepWindow WHERE "
                  "iStepWindowProcessKey IN "_s
                  + processes + QLatin1Char(')')),
            count(u"SELECT * FROM tKeywordRel WHERE iKeywordRelProcessKey IN "_s + processes),
            count(u"SELECT * FROM tCycle WHERE iCycleVerKey=%1"_s.arg(v)),
            count(u"SELECT * FROM tCycleProcess WHERE iCycleKey IN "_s + cycles),
            count(u"SELECT * FROM tKeywordRel WHERE iKeywordRelCycleKey IN "_s + cycles),
        };
    }
};

TEST_P(VersionDeletionTest, EverythingBelowTheVersionGoesButItsRequirements)
{
    const qint32 oe11 = version(u"1.1"_s);
    const qint32 r5 = version(u"R5"_s);
    const QList<qint32> before = contentOf(oe11);
    // Every kind of row is there to be deleted.
    EXPECT_FALSE(before.contains(0)) << ::testing::PrintToString(std::vector<qint32>(before.begin(), before.end()));
    const QList<qint32> other = contentOf(r5);

    ASSERT_TRUE(DeleteVersionContents(oe11, conn, messages)) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_EQ(contentOf(oe11), QList<qint32>(before.size(), 0));
    EXPECT_EQ(contentOf(r5), other);
    EXPECT_EQ(count(u"SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1"_s.arg(oe11)), 2);
    EXPECT_FALSE(conn.InTransaction());
}

TEST_P(VersionDeletionTest, AnEmptyVersionLosesOnlyItsRow)
{
    const qint32 app = intValue(u"tVersion"_s, version(u"1.1"_s), u"iVersionAppKey"_s);
    const qint32 empty = add(u"tVersion"_s, {{u"iVersionAppKey"_s, app}, {u"sVersionID"_s, u"9.9"_s}});
    QStringList before = dump();
    ASSERT_TRUE(DeleteVersionContents(empty, conn, messages));
    before.removeIf([](const QString& row) { return row.startsWith(u"tVersion:"_s) && row.contains(u"|9.9|"_s); });
    EXPECT_EQ(dump(), before);
}

TEST_P(VersionDeletionTest, AFailedStepDeletionRestoresEveryTable)
{
    abortOn(u"tStep"_s, u"DELETE"_s);
    const QStringList before = dump();
    EXPECT_FALSE(DeleteVersionContents(version(u"1.1"_s), conn, messages));
    ASSERT_EQ(messages.shown.size(), 1);
    const QString text = messages.shown.first();
    EXPECT_TRUE(text.startsWith(u"Error while deleting Steps:"_s)) << text.toStdString();
    EXPECT_NE(text.at(27), QLatin1Char(' '));
    EXPECT_TRUE(text.contains(u"boom"_s));
    EXPECT_TRUE(text.endsWith(u"! New version not fully deleted."_s)) << text.toStdString();
    EXPECT_EQ(dump(), before);
    EXPECT_FALSE(conn.InTransaction());
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionDeletionTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
