#include "repository/Globals.h"

#include "repository/Connection.h"
#include "repository/DbError.h"
#include "repository/Recordset.h"
#include "repository/RepositoryFixture.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace dorvane {
namespace {

TEST(QuoteSqlTest, DoublesEverySingleQuote)
{
    EXPECT_EQ(QuoteSql(u"O'Neil"_s), u"O''Neil"_s);
    EXPECT_EQ(QuoteSql(u"''"_s), u"''''"_s);
    EXPECT_EQ(QuoteSql(QString()), QString());
    EXPECT_EQ(QuoteSql(u"'a\"b'"_s), u"''a\"b''"_s);
}

TEST(QuoteSqlTest, TextsOver32767CharactersOverflow)
{
    const QString longest(32767, u'\'');
    EXPECT_EQ(QuoteSql(longest).size(), 65534);
    try {
        QuoteSql(QString(32768, u'a'));
        FAIL() << "no error for 32768 characters";
    } catch (const DbError& e) {
        EXPECT_EQ(e.description(), u"Overflow"_s);
    }
}

struct ReplaceCase {
    const char* name;
    QString replacement;
    QString text;
    QStringList search;
    QString caseOption;
    QString expected;
};

void PrintTo(const ReplaceCase& c, std::ostream* os)
{
    *os << c.name;
}

class ReplaceCharsTest : public ::testing::TestWithParam<ReplaceCase> { };

TEST_P(ReplaceCharsTest, Cleans)
{
    const ReplaceCase& c = GetParam();
    EXPECT_EQ(ReplaceChars(c.replacement, c.text, c.search, c.caseOption), c.expected);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, ReplaceCharsTest, ::testing::Values(
    ReplaceCase{"BlankToUpper", "_", "A B", {" "}, "U", "A_B"},
    ReplaceCase{"DashToLower", "_", "Ab-C", {"-"}, "L", "ab_c"},
    ReplaceCase{"EveryOccurrence", "_", "a b.c d", {" ", "."}, "", "a_b_c_d"},
    // With no search string the case option is not applied either.
    ReplaceCase{"NoSearchStrings", "_", "Ab C", {}, "U", "Ab C"},
    ReplaceCase{"OnlyEmptySearchStrings", "_", "Ab C", {"", "", ""}, "L", "Ab C"},
    ReplaceCase{"EmptyOnesSkipped", "_", "a-b c", {"", "-", "", " "}, "", "a_b_c"},
    ReplaceCase{"CaseOptionByFirstLetter", "_", "Ab c", {" "}, "Upper", "AB_C"},
    ReplaceCase{"CaseOptionLetterIsExact", "_", "Ab c", {" "}, "u", "Ab_c"},
    ReplaceCase{"OtherCaseOptionKeepsCase", "_", "Ab c", {" "}, "N", "Ab_c"},
    // Searching is case-sensitive unless the case option made both sides alike.
    ReplaceCase{"SearchIsCaseSensitive", "_", "aXbxc", {"x"}, "", "aXb_c"},
    ReplaceCase{"CaseOptionAppliesToSearch", "_", "aXbxc", {"x"}, "L", "a_b_c"},
    ReplaceCase{"CaseOptionAppliesToReplacement", "y", "a b", {" "}, "U", "AYB"},
    // Same-length overwrite: a longer replacement is cut to the match...
    ReplaceCase{"LongerReplacementIsCut", "123", "ab--cd", {"--"}, "", "ab12cd"},
    // ...a shorter one overwrites only its own length, the rest of the
    // match stays and can be found again.
    ReplaceCase{"ShorterReplacementKeepsLength", "_", "a--b", {"--"}, "", "a_-b"},
    ReplaceCase{"ShorterReplacementRestarts", "_", "a---b", {"--"}, "", "a__-b"},
    // Each search string runs to the end before the next starts, and later
    // ones see what earlier ones wrote.
    ReplaceCase{"SearchStringsInOrder", "z", "ab", {"b", "ab"}, "", "az"},
    ReplaceCase{"SearchStringsInOtherOrder", "z", "ab", {"ab", "b"}, "", "zz"},
    ReplaceCase{"EarlierWritesFeedLater", "-", "a_ b", {" ", "_-"}, "", "a--b"},
    // An overwrite that changes nothing ends that search string's run.
    ReplaceCase{"EmptyReplacementChangesNothing", "", "a b", {" "}, "", "a b"},
    ReplaceCase{"ReplacementStartingWithMatch", "--", "a-b", {"-"}, "", "a-b"},
    ReplaceCase{"EmptyText", "_", "", {" "}, "U", ""}
), [](const ::testing::TestParamInfo<ReplaceCase>& info) { return std::string(info.param.name); });
// clang-format on

TEST(FindListTextTest, FirstExactMatch)
{
    const QStringList entries = {u"Alpha"_s, u"alpha"_s, u"Beta"_s, u"Alpha"_s};
    EXPECT_EQ(FindListText({}, u"Alpha"_s), -1);
    EXPECT_EQ(FindListText({}, QString()), -1);
    EXPECT_EQ(FindListText(entries, u"Alpha"_s), 0);
    EXPECT_EQ(FindListText(entries, u"alpha"_s), 1);
    EXPECT_EQ(FindListText(entries, u"beta"_s), -1);
    EXPECT_EQ(FindListText(entries, u"Beta "_s), -1);
    EXPECT_EQ(FindListText(entries, QString()), -1);
}

using CountRecordsTest = test::BackendTest;

// Counting leaves the record set on its first row; no set counts 0.
TEST_P(CountRecordsTest, CountRecordsCountsAndReturnsToTheFirstRow)
{
    EXPECT_EQ(CountRecords(nullptr), 0);
    Recordset rs;
    EXPECT_EQ(CountRecords(&rs), 0);
    DB_ASSERT(conn.Execute(u"CREATE TABLE tCountTest (iKey INTEGER PRIMARY KEY, sName VARCHAR(50))"_s));
    const QString select = u"SELECT * FROM tCountTest ORDER BY iKey"_s;
    DB_ASSERT(rs.Open(select, conn));
    EXPECT_EQ(CountRecords(&rs), 0);
    DB_ASSERT(conn.Execute(u"INSERT INTO tCountTest (iKey, sName) VALUES (3, 'Third'), (1, 'First'), (2, 'Second')"_s));
    Recordset three;
    DB_ASSERT(three.Open(select, conn));
    DB_ASSERT(three.MoveNext());
    EXPECT_EQ(CountRecords(&three), 3);
    ASSERT_FALSE(three.Eof());
    EXPECT_EQ(three.Text(u"sName"_s), u"First"_s);
    EXPECT_EQ(CountRecords(&three), 3);  // again the same
}

INSTANTIATE_TEST_SUITE_P(Backends, CountRecordsTest, ::testing::ValuesIn(test::TestBackends()), test::backendName);

} // namespace
} // namespace dorvane
