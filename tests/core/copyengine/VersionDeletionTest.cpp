// Deleting a version with everything below it, in one transaction.

#include "core/copyengine/CopyEngineFixture.h"

using namespace dorvane;
using namespace dorvane::test;

class VersionDeletionTest : public CopyEngineTest {
protected:
    std::optional<RepositoryContent> content() const override { return RepositoryContent::Tutorial; }

    qint32 version(const QString& id) { return Recordset(u"SELECT * FROM tVersion WHERE sVersionID='%1'"_s.arg(id), conn).Int(u"iVersionKey"_s); }

    // How many rows of each table belong to a version, directly or below
    // its processes, cycles and windows.
    std::vector<qint32> contentOf(qint32 v)
    {
        const QString processes = u"(SELECT iProcessKey FROM tProcess WHERE iProcessVerKey=%1)"_s.arg(v);
        const QString cycles = u"(SELECT iCycleKey FROM tCycle WHERE iCycleVerKey=%1)"_s.arg(v);
        std::vector<qint32> counts;
        for (const QString& where : {u"tVersion WHERE iVersionKey=%1"_s.arg(v), u"tUserVar WHERE iVarAppVerKey=%1"_s.arg(v),
                                     u"tWindow WHERE iWindowVerKey=%1"_s.arg(v),
                                     u"tObject WHERE iObjectWindowKey IN (SELECT iWindowKey FROM tWindow WHERE iWindowVerKey=%1)"_s.arg(v),
                                     u"tProcess WHERE iProcessVerKey=%1"_s.arg(v), u"tStepWindow WHERE iStepWindowProcessKey IN "_s + processes,
                                     u"tStep WHERE iStepWindowKey IN (SELECT iStepWindowKey FROM tStepWindow WHERE iStepWindowProcessKey IN %1)"_s.arg(processes),
                                     u"tKeywordRel WHERE iKeywordRelProcessKey IN "_s + processes, u"tCycle WHERE iCycleVerKey=%1"_s.arg(v),
                                     u"tCycleProcess WHERE iCycleKey IN "_s + cycles, u"tKeywordRel WHERE iKeywordRelCycleKey IN "_s + cycles})
            counts.push_back(count(u"SELECT * FROM "_s + where));
        return counts;
    }
};

// An empty version loses only its row; a failed step deletion restores
// every table; then everything below the version goes but its requirements.
TEST_P(VersionDeletionTest, EverythingBelowTheVersionGoesButItsRequirementsInOneTransaction)
{
    const qint32 oe11 = version(u"1.1"_s), r5 = version(u"R5"_s);
    const qint32 empty = add(u"tVersion"_s, {{u"iVersionAppKey"_s, intValue(u"tVersion"_s, oe11, u"iVersionAppKey"_s)}, {u"sVersionID"_s, u"9.9"_s}});
    QStringList before = dump();
    ASSERT_TRUE(DeleteVersionContents(empty, conn, messages));
    before.removeIf([](const QString& row) { return row.startsWith(u"tVersion:"_s) && row.contains(u"|9.9|"_s); });
    EXPECT_EQ(dump(), before);

    abortOn(u"tStep"_s, u"DELETE"_s);
    EXPECT_FALSE(DeleteVersionContents(oe11, conn, messages));
    EXPECT_TRUE(messages.shown.value(0).endsWith(u"! New version not fully deleted."_s)) << shown();
    expectFailure(u"Error while deleting Steps:"_s);
    EXPECT_TRUE(dump() == before && !conn.InTransaction());
    dropAbort(u"tStep"_s, u"DELETE"_s);

    const std::vector<qint32> content = contentOf(oe11), other = contentOf(r5);
    // Every kind of row is there to be deleted.
    EXPECT_EQ(std::count(content.begin(), content.end(), 0), 0) << ::testing::PrintToString(content);
    ASSERT_TRUE(DeleteVersionContents(oe11, conn, messages)) << shown();
    EXPECT_EQ(std::pair(contentOf(oe11), contentOf(r5)), std::pair(std::vector<qint32>(content.size(), 0), other));
    EXPECT_TRUE(count(u"SELECT * FROM tRequirement WHERE iRequirementAppVerKey=%1"_s.arg(oe11)) == 2 && !conn.InTransaction());
}

INSTANTIATE_TEST_SUITE_P(Backends, VersionDeletionTest, ::testing::ValuesIn(TestBackends()), [](const auto& info) { return info.param; });
