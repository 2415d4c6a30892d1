#include "repository/Globals.h"

#include "repository/Connection.h"
#include "repository/DbError.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace dorvane {
namespace {

TEST(QuoteSqlTest, DoublesEverySingleQuote)
{
    EXPECT_EQ(QuoteSql(QStringLiteral("O'Neil")), QStringLiteral("O''Neil"));
    EXPECT_EQ(QuoteSql(QStringLiteral("''")), QStringLiteral("''''"));
    EXPECT_EQ(QuoteSql(QString()), QString());
    EXPECT_EQ(QuoteSql(QStringLiteral("'a\"b'")), QStringLiteral("''a\"b''"));
}

TEST(QuoteSqlTest, TextsOver32767CharactersOverflow)
{
    const QString longest(32767, u'\'');
    EXPECT_EQ(QuoteSql(longest).size(), 65534);
    try {
        QuoteSql(QString(32768, u'a'));
        FAIL() << "no error for 32768 characters";
    } catch (const DbError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("Overflow"));
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

void PrintTo(const ReplaceCase& c, std::ostream* os) { *os << c.name; }

class ReplaceCharsTest : public ::testing::TestWithParam<ReplaceCase> {};

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
    const QStringList entries = {QStringLiteral("Alpha"), QStringLiteral("alpha"), QStringLiteral("Beta"),
                                 QStringLiteral("Alpha")};
    EXPECT_EQ(FindListText({}, QStringLiteral("Alpha")), -1);
    EXPECT_EQ(FindListText({}, QString()), -1);
    EXPECT_EQ(FindListText(entries, QStringLiteral("Alpha")), 0);
    EXPECT_EQ(FindListText(entries, QStringLiteral("alpha")), 1);
    EXPECT_EQ(FindListText(entries, QStringLiteral("beta")), -1);
    EXPECT_EQ(FindListText(entries, QStringLiteral("Beta ")), -1);
    EXPECT_EQ(FindListText(entries, QString()), -1);
}

class CountRecordsTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        m_db = std::make_unique<test::TestDatabase>(GetParam());
        DB_ASSERT(m_connection.Open(m_db->connectionString()));
        DB_ASSERT(m_connection.Execute(
            QStringLiteral("CREATE TABLE tCountTest (iKey INTEGER PRIMARY KEY, sName VARCHAR(50))")));
    }

    void AddRows()
    {
        DB_ASSERT(m_connection.Execute(QStringLiteral("INSERT INTO tCountTest (iKey, sName) VALUES (3, 'Third')")));
        DB_ASSERT(m_connection.Execute(QStringLiteral("INSERT INTO tCountTest (iKey, sName) VALUES (1, 'First')")));
        DB_ASSERT(m_connection.Execute(QStringLiteral("INSERT INTO tCountTest (iKey, sName) VALUES (2, 'Second')")));
    }

    const QString m_select = QStringLiteral("SELECT * FROM tCountTest ORDER BY iKey");
    std::unique_ptr<test::TestDatabase> m_db;
    Connection m_connection;
};

TEST_P(CountRecordsTest, EmptySetOrNoSetCountsZero)
{
    EXPECT_EQ(CountRecords(nullptr), 0);
    Recordset rs;
    EXPECT_EQ(CountRecords(&rs), 0);
    DB_ASSERT(rs.Open(m_select, m_connection));
    EXPECT_EQ(CountRecords(&rs), 0);
}

TEST_P(CountRecordsTest, CountsRowsAndReturnsToTheFirst)
{
    AddRows();
    Recordset rs;
    DB_ASSERT(rs.Open(m_select, m_connection));
    DB_ASSERT(rs.MoveNext());
    EXPECT_EQ(CountRecords(&rs), 3);
    ASSERT_FALSE(rs.Eof());
    EXPECT_EQ(rs.Text(QStringLiteral("sName")), QStringLiteral("First"));
    // Counting again gives the same number.
    EXPECT_EQ(CountRecords(&rs), 3);
}

INSTANTIATE_TEST_SUITE_P(Backends, CountRecordsTest, ::testing::ValuesIn(test::TestBackends()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane
