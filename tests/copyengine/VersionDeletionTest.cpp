// Deleting a version with everything below it, in one transaction.

#include "copyengine/CopyEngineFixture.h"

using namespace dorvane;
using namespace dorvane::test;

class VersionDeletionTest : public CopyEngineTest {
protected:
    RepositoryContent content() const override { return RepositoryContent::Tutorial; }

    qint32 version(const QString& id)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE sVersionID='%1'").arg(id), conn);
        return rs.Int(QStringLiteral("iVersionKey"));
    }

    // How many rows of each table belong to a version, directly or below
    // its processes, cycles and windows.
    QList<qint32> contentOf(qint32 v)
    {
        const QString processes = QStringLiteral("(SELECT iProcessKey FROM tProcess WHERE iProcessVerKey=%1)").arg(v);
        const QString cycles = QStringLiteral("(SELECT iCycleKey FROM tCycle WHERE iCycleVerKey=%1)").arg(v);
        return {
            count(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tUserVar WHERE iVarAppVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tWindow WHERE iWindowVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tObject WHERE iObjectWindowKey IN (SELECT iWindowKey FROM tWindow WHERE iWindowVerKey=%1)").arg(v)),
            count(QStringLiteral("SELECT * FROM tProcess WHERE iProcessVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tStepWindow WHERE iStepWindowProcessKey IN ") + processes),
            count(QStringLiteral("SELECT * FROM tStep WHERE iStepWindowKey IN (SELECT iStepWindowKey FROM tStepWindow WHERE "
                                 "iStepWindowProcessKey IN ") + processes + QLatin1Char(')')),
            count(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelProcessKey IN ") + processes),
            count(QStringLiteral("SELECT * FROM tCycle WHERE iCycleVerKey=%1").arg(v)),
            count(QStringLiteral("SELECT * FROM tCycleProcess WHERE iCycleKey IN ") + cycles),
            count(QStringLiteral("SELECT * FROM tKeywordRel WHERE iKeywordRelCycleKey IN ") + cycles),
        };
    }
};

TEST_P(VersionDeletionTest, EverythingBelowTheVersionGoesButItsRequirements)
{
    const qint32 oe11 = version(QStringLiteral("1.1"));
    const qint32 r5 = version(QStringLiteral("R5"));
    const QList<qint32> before = contentOf(oe11);
    // Every kind of row is there to be deleted.
    EXPECT_FALSE(before.contains(0)) << ::testing::PrintToString(std::vector<qint32>(before.begin(), before.end()));
    const QList<qint32> other = contentOf(r5);

    ASSERT_TRUE(DeleteVersionContents(oe11, conn, messages)) << messages.shown.join(u'\n').toStdString();
    EXPECT_TRUE(messages.shown.isEmpty());
    EXPECT_EQ(contentOf(oe11), QList<qint32>(before.size(), 0));
    EXPECT_EQ(contentOf(r5), other);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1").arg(oe11)), 2);
    EXPECT_FALSE(conn.InTransaction());
}

TEST_P(VersionDeletionTest, AnEmptyVersionLosesOnlyItsRow)
{
    const qint32 app = intValue(QStringLiteral("tVersion"), version(QStringLiteral("1.1")), QStringLiteral("iVersionAppKey"));
    const qint32 empty = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app},
                                                          {QStringLiteral("sVersionID"), QStringLiteral("9.9")}});
    QStringList before = dump();
    ASSERT_TRUE(DeleteVersionContents(empty, conn, messages));
    before.removeIf([](const QString& row) { return row.startsWith(QStringLiteral("tVersion:")) && row.contains(QStringLiteral("|9.9|")); });
    EXPECT_EQ(dump(), before);
}

TEST_P(VersionDeletionTest, AFailedStepDeletionRestoresEveryTable)
{
    abortOn(QStringLiteral("tStep"), QStringLiteral("DELETE"));
    const QStringList before = dump();
    EXPECT_FALSE(DeleteVersionContents(version(QStringLiteral("1.1")), conn, messages));
    ASSERT_EQ(messages.shown.size(), 1);
    const QString text = messages.shown.first();
    EXPECT_TRUE(text.startsWith(QStringLiteral("Error while deleting Steps:"))) << text.toStdString();
    EXPECT_NE(text.at(27), QLatin1Char(' '));
    EXPECT_TRUE(text.contains(QStringLiteral("boom")));
    EXPECT_TRUE(text.endsWith(QStringLiteral("! New version not fully deleted."))) << text.toStdString();
    EXPECT_EQ(dump(), before);
    EXPECT_FALSE(conn.InTransaction());
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionDeletionTest, ::testing::ValuesIn(TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });
