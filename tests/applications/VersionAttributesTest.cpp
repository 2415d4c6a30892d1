// The list-handling attribute string of a host version: reading the three
// values, writing them back, the dialog's checks and the write to tVersion.

#include "applications/AppTestFixture.h"
#include "applications/VersionAttributes.h"

namespace dorvane::test {
namespace {

const QString kTab = QStringLiteral("\t");

ListAttributes Values(const QString& line, const QString& indicator, const QString& key)
{
    return ListAttributes{line, indicator, key};
}

void ExpectValues(const ListAttributes& actual, const ListAttributes& expected)
{
    EXPECT_EQ(actual.NextPageLine, expected.NextPageLine);
    EXPECT_EQ(actual.NextPageIndicator, expected.NextPageIndicator);
    EXPECT_EQ(actual.NextPageKey, expected.NextPageKey);
}

TEST(VersionAttributesString, IsWrittenWithTheExtraTabAfterMoreLineAndReadsBack)
{
    const ListAttributes values = Values(QStringLiteral("24"), QStringLiteral("More..."), QStringLiteral("PF8/F8"));
    const QString text = BuildVersionAttributes(values);
    EXPECT_EQ(text, QStringLiteral("MoreLine=") + kTab + QStringLiteral("24") + kTab + QStringLiteral("MoreKey=PF8/F8") +
                        kTab + QStringLiteral("MoreText=More...") + kTab);
    ExpectValues(ParseVersionAttributes(text), values);
}

TEST(VersionAttributesString, WithoutTheExtraTabTheLineLosesItsFirstCharacter)
{
    const QString text = QStringLiteral("MoreLine=24\tMoreKey=PF8/F8\tMoreText=More...\t");
    ExpectValues(ParseVersionAttributes(text), Values(QStringLiteral("4"), QStringLiteral("More..."), QStringLiteral("PF8/F8")));
    // A one-character line is lost altogether.
    EXPECT_EQ(ParseVersionAttributes(QStringLiteral("MoreLine=9\t")).NextPageLine, QString());
}

TEST(VersionAttributesString, MissingTagsAndUnclosedValuesReadEmpty)
{
    ExpectValues(ParseVersionAttributes(QString()), Values(QString(), QString(), QString()));
    // The tags may come in any order; each value ends at the next tab.
    ExpectValues(ParseVersionAttributes(QStringLiteral("MoreText=Next\tMoreKey=Enter\t")),
                 Values(QString(), QStringLiteral("Next"), QStringLiteral("Enter")));
    // The last value has no closing tab.
    ExpectValues(ParseVersionAttributes(QStringLiteral("MoreLine=\t23\tMoreKey=PA1\tMoreText=More")),
                 Values(QStringLiteral("23"), QString(), QStringLiteral("PA1")));
    // "MoreLine=" at the very end: nothing after the skipped tab.
    EXPECT_EQ(ParseVersionAttributes(QStringLiteral("MoreLine=")).NextPageLine, QString());
    EXPECT_EQ(ParseVersionAttributes(QStringLiteral("MoreLine=\t")).NextPageLine, QString());
    // Tags are matched with their case; the first occurrence counts.
    EXPECT_EQ(ParseVersionAttributes(QStringLiteral("morekey=PA2\tMoreKey=PA3\tMoreKey=PA4\t")).NextPageKey,
              QStringLiteral("PA3"));
}

TEST(NextPageKeys, SeventyHostKeysInTheirOrder)
{
    const QStringList& names = NextPageKeyNames();
    ASSERT_EQ(names.size(), 70);
    EXPECT_EQ(names.front(), QStringLiteral("Alt"));
    EXPECT_EQ(names.at(46), QStringLiteral("PF1/F1"));
    EXPECT_EQ(names.back(), QStringLiteral("PF24"));
    QStringList unique = names;
    EXPECT_EQ(unique.removeDuplicates(), 0);
}

TEST(ListAttributesChecks, RunInOrderAndNameTheFieldToFocus)
{
    struct Case {
        ListAttributes values;
        QString message;
        QString field;
    };
    const QString line = QStringLiteral("24"), indicator = QStringLiteral("More..."), key = QStringLiteral("PF8/F8");
    const Case cases[] = {
        {Values(QString(), QString(), QString()), QStringLiteral("Next Page Indicator cannot be blank"),
         QStringLiteral("txtNextPageIndicator")},
        {Values(QString(), indicator, QString()), QStringLiteral("Next Page Line cannot be blank"),
         QStringLiteral("txtNextPageLine")},
        {Values(line, indicator, QString()), QStringLiteral("You must select a Next Page key"), QStringLiteral("cbNextPageKey")},
    };
    for (const Case& c : cases) {
        ScriptedMessages messages;
        EXPECT_EQ(CheckListAttributes(c.values, messages), c.field);
        EXPECT_EQ(messages.shown, QStringList{c.message});
    }
    ScriptedMessages messages;
    // Only emptiness is checked: a blank or a key outside the list passes.
    EXPECT_EQ(CheckListAttributes(Values(QStringLiteral(" "), indicator, QStringLiteral("Ctrl+N")), messages), QString());
    EXPECT_TRUE(messages.shown.isEmpty());
}

// ---- the write to tVersion ----

class SetVersionAttributesTest : public AppRepositoryTest {
protected:
    qint32 addVersion(const QVariant& attributes)
    {
        const qint32 app = addApp(QStringLiteral("Host Orders"), QStringLiteral("HO"), 3, 1);
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("iVersionAppKey"), app);
        rs.SetValue(QStringLiteral("sVersionID"), QStringLiteral("1.0"));
        rs.SetValue(QStringLiteral("sVersionAttributes"), attributes);
        rs.Update();
        return rs.Int(QStringLiteral("iVersionKey"));
    }

    QVariant stored(qint32 versionKey)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tVersion WHERE iVersionKey=") + QString::number(versionKey), conn);
        return rs.Value(QStringLiteral("sVersionAttributes"));
    }
};

TEST_P(SetVersionAttributesTest, ShowsTheStoredValuesAndWritesTheChosenOnesAtOnce)
{
    const qint32 v = addVersion(QStringLiteral("MoreLine=\t22\tMoreKey=Enter\tMoreText=Next page\t"));
    std::optional<ListAttributes> shown;
    const bool written = SetVersionAttributes(conn, messages, v, [&](const ListAttributes& values) {
        shown = values;
        return std::optional<ListAttributes>(Values(QStringLiteral("24"), QStringLiteral("More..."), QStringLiteral("PF8/F8")));
    });
    EXPECT_TRUE(written);
    ASSERT_TRUE(shown.has_value());
    ExpectValues(*shown, Values(QStringLiteral("22"), QStringLiteral("Next page"), QStringLiteral("Enter")));
    EXPECT_EQ(stored(v).toString(), QStringLiteral("MoreLine=\t24\tMoreKey=PF8/F8\tMoreText=More...\t"));
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(SetVersionAttributesTest, NullAttributesShowEmptyAndCancelWritesNothing)
{
    const qint32 v = addVersion(QVariant());
    std::optional<ListAttributes> shown;
    EXPECT_FALSE(SetVersionAttributes(conn, messages, v, [&](const ListAttributes& values) {
        shown = values;
        return std::optional<ListAttributes>();
    }));
    ASSERT_TRUE(shown.has_value());
    ExpectValues(*shown, Values(QString(), QString(), QString()));
    EXPECT_TRUE(stored(v).isNull());
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(SetVersionAttributesTest, AVersionThatIsGoneIsAnError)
{
    bool asked = false;
    EXPECT_FALSE(SetVersionAttributes(conn, messages, 4711, [&](const ListAttributes&) {
        asked = true;
        return std::optional<ListAttributes>(Values(QStringLiteral("1"), QStringLiteral("x"), QStringLiteral("Enter")));
    }));
    EXPECT_FALSE(asked);
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.front().startsWith(QStringLiteral("Error while setting attributes:")))
        << messages.shown.front().toStdString();
    EXPECT_GT(messages.shown.front().size(), QStringLiteral("Error while setting attributes:").size());
}

INSTANTIATE_TEST_SUITE_P(Backends, SetVersionAttributesTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
