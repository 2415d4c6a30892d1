// The shared data helpers (quoting, character replacement, list lookups,
// record counts) and the resolution of Windows paths on a case-sensitive
// file system.

#include "core/repository/FilePaths.h"
#include "core/repository/Globals.h"

#include "core/repository/RepositoryFixture.h"

#include <QDir>
#include <QTemporaryDir>

namespace dorvane {
namespace {

TEST(QuoteSqlTest, DoublesEverySingleQuoteUpTo32767Characters)
{
    EXPECT_EQ(QuoteSql(u"O'Neil"_s), u"O''Neil"_s);
    EXPECT_EQ(QuoteSql(u"'a\"b'"_s), u"''a\"b''"_s);
    EXPECT_EQ(QuoteSql(QString()), QString());
    EXPECT_EQ(QuoteSql(QString(32767, u'\'')), QString(65534, u'\''));
    EXPECT_EQ(test::descriptionOf([] { QuoteSql(QString(32768, u'a')); }), u"Overflow"_s);
}

TEST(ReplaceCharsTest, Cleans)
{
    const struct { const char* name; QString replacement; QString text; QStringList search; QString caseOption; QString expected; } cases[] = {
        {"BlankToUpper", "_", "A B", {" "}, "U", "A_B"},
        {"DashToLower", "_", "Ab-C", {"-"}, "L", "ab_c"},
        {"EveryOccurrence", "_", "a b.c d", {" ", "."}, "", "a_b_c_d"},
        // With no search string the case option is not applied either.
        {"NoSearchStrings", "_", "Ab C", {}, "U", "Ab C"},
        {"OnlyEmptySearchStrings", "_", "Ab C", {"", "", ""}, "L", "Ab C"},
        {"EmptyOnesSkipped", "_", "a-b c", {"", "-", "", " "}, "", "a_b_c"},
        {"CaseOptionByFirstLetter", "_", "Ab c", {" "}, "Upper", "AB_C"},
        {"CaseOptionLetterIsExact", "_", "Ab c", {" "}, "u", "Ab_c"},
        {"OtherCaseOptionKeepsCase", "_", "Ab c", {" "}, "N", "Ab_c"},
        // Searching is case-sensitive unless the case option made both sides alike.
        {"SearchIsCaseSensitive", "_", "aXbxc", {"x"}, "", "aXb_c"},
        {"CaseOptionAppliesToSearch", "_", "aXbxc", {"x"}, "L", "a_b_c"},
        {"CaseOptionAppliesToReplacement", "y", "a b", {" "}, "U", "AYB"},
        // Same-length overwrite: a longer replacement is cut to the match...
        {"LongerReplacementIsCut", "123", "ab--cd", {"--"}, "", "ab12cd"},
        // ...a shorter one overwrites only its own length, the rest of the
        // match stays and can be found again.
        {"ShorterReplacementKeepsLength", "_", "a--b", {"--"}, "", "a_-b"},
        {"ShorterReplacementRestarts", "_", "a---b", {"--"}, "", "a__-b"},
        // Each search string runs to the end before the next starts, and later
        // ones see what earlier ones wrote.
        {"SearchStringsInOrder", "z", "ab", {"b", "ab"}, "", "az"},
        {"SearchStringsInOtherOrder", "z", "ab", {"ab", "b"}, "", "zz"},
        {"EarlierWritesFeedLater", "-", "a_ b", {" ", "_-"}, "", "a--b"},
        // An overwrite that changes nothing ends that search string's run.
        {"EmptyReplacementChangesNothing", "", "a b", {" "}, "", "a b"},
        {"ReplacementStartingWithMatch", "--", "a-b", {"-"}, "", "a-b"},
        {"EmptyText", "_", "", {" "}, "U", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ReplaceChars(c.replacement, c.text, c.search, c.caseOption), c.expected) << c.name;
}

TEST(FindListTextTest, FirstExactMatch)
{
    const QStringList entries = {u"Alpha"_s, u"alpha"_s, u"Beta"_s, u"Alpha"_s};
    for (const auto& [list, text, index] : std::vector<std::tuple<QStringList, QString, int>>{
             {{}, u"Alpha"_s, -1}, {{}, QString(), -1}, {entries, u"Alpha"_s, 0}, {entries, u"alpha"_s, 1},
             {entries, u"beta"_s, -1}, {entries, u"Beta "_s, -1}, {entries, QString(), -1}})
        EXPECT_EQ(FindListText(list, text), index) << text.toStdString();
}

using CountRecordsTest = test::BackendTest;

// Counting leaves the record set on its first row; no set counts 0.
TEST_P(CountRecordsTest, CountRecordsCountsAndReturnsToTheFirstRow)
{
    Recordset rs;
    EXPECT_EQ(std::pair(CountRecords(nullptr), CountRecords(&rs)), std::pair(0, 0));
    DB_ASSERT(conn.Execute(u"CREATE TABLE tCountTest (iKey INTEGER PRIMARY KEY, sName VARCHAR(50))"_s));
    const QString select = u"SELECT * FROM tCountTest ORDER BY iKey"_s;
    DB_ASSERT(rs.Open(select, conn));
    EXPECT_EQ(CountRecords(&rs), 0);
    DB_ASSERT(conn.Execute(u"INSERT INTO tCountTest (iKey, sName) VALUES (3, 'Third'), (1, 'First'), (2, 'Second')"_s));
    Recordset three(select, conn);
    DB_ASSERT(three.MoveNext());
    EXPECT_EQ(CountRecords(&three), 3);
    EXPECT_EQ(std::pair(three.Text(u"sName"_s), CountRecords(&three)), std::pair(u"First"_s, 3)); // again the same
}

INSTANTIATE_TEST_SUITE_P(Backends, CountRecordsTest, ::testing::ValuesIn(test::TestBackends()), test::backendName);


class FilePathsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        for (const QString& file : {u"Tutorial/Database/UserData.mdb"_s, u"Tutorial/Database/Tutorial.mdb"_s, u"Tutorial/TestData.mdb"_s})
            MakeFile(file);
    }

    void MakeFile(const QString& relative) { ASSERT_TRUE(QDir().mkpath(QFileInfo(m_root + u'/' + relative).path()) && test::WriteFile(m_root + u'/' + relative, {})); }

    // The temporary folder written the Windows way.
    QString Win(const QString& relative) const { return QString(m_root).replace(u'/', u'\\') + u'\\' + relative; }

    QTemporaryDir m_dir;
    QString m_root = m_dir.path();
};

TEST_F(FilePathsTest, ComponentsResolveToTheEntryOfAnotherCaseAlsoInRelativePaths)
{
    const std::vector<std::pair<QString, QString>> cases = {
        // Folders and files of another case.
        {u"Tutorial\\database\\UserData.mdb"_s, u"Tutorial/Database/UserData.mdb"_s},
        {u"TUTORIAL\\DATABASE\\userdata.MDB"_s, u"Tutorial/Database/UserData.mdb"_s},
        {u"tutorial\\testdata.mdb"_s, u"Tutorial/TestData.mdb"_s},
        // A missing tail is kept as given; its folder is resolved.
        {u"tutorial\\database\\NewRepo.mdb"_s, u"Tutorial/Database/NewRepo.mdb"_s},
        {u"tutorial\\Backups\\database\\x.mdb"_s, u"Tutorial/Backups/database/x.mdb"_s},
        // A file cannot hold further components.
        {u"tutorial\\testdata.mdb\\database"_s, u"Tutorial/TestData.mdb/database"_s},
    };
    for (const auto& [given, expected] : cases)
        EXPECT_EQ(NativePath(Win(given)), m_root + u'/' + expected) << given.toStdString();

    // Relative paths resolve against the current folder and stay relative.
    const QString saved = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(m_root));
    const QStringList relative = {NativePath(u"tutorial\\database\\userdata.mdb"_s), NativePath(u".\\TUTORIAL\\TestData.mdb"_s),
                                  NativePath(u"Nowhere\\database\\x.mdb"_s)};
    ASSERT_TRUE(QDir::setCurrent(saved));
    EXPECT_EQ(relative, (QStringList{u"Tutorial/Database/UserData.mdb"_s, u"./Tutorial/TestData.mdb"_s, u"Nowhere/database/x.mdb"_s}));

    // With "database" and "DATABASE" both there the exact case wins; with
    // neither spelling there, the first in code-point order ("DATABASE").
    MakeFile(u"Tutorial/database/Other.mdb"_s);
    MakeFile(u"Tutorial/DATABASE/Other.mdb"_s);
    for (const auto& [given, expected] : {std::pair(u"database\\Other"_s, u"database/Other"_s), std::pair(u"Database\\UserData"_s, u"Database/UserData"_s),
                                          std::pair(u"dataBASE\\Other"_s, u"DATABASE/Other"_s)})
        EXPECT_EQ(NativePath(Win(u"Tutorial\\"_s + given + u".mdb"_s)), m_root + u"/Tutorial/"_s + expected + u".mdb"_s);
}

} // namespace
} // namespace dorvane
