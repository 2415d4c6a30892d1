// Keyword export and import: the file's bytes, the reader's messages and
// what stays in the repository when a read fails.

#include "core/applications/AppTestFixture.h"
#include "core/lists/KeywordFiles.h"

#include <QDir>
#include <QRegularExpression>

namespace dorvane::test {
namespace {

class KeywordFilesTest : public AppRepositoryTest {
protected:
    void SetUp() override { AppRepositoryTest::SetUp(); app = addApp(u"Orders"_s, u"ORD"_s, kPlatformWindows); other = addApp(u"Billing"_s, u"BILL"_s, kPlatformWindows); }
    void addKeyword(qint32 appKey, const QString& name, const QVariant& desc) { add(u"tKeyword"_s, {{u"iKeywordAppKey"_s, appKey}, {u"sKeywordName"_s, name}, {u"sKeywordDesc"_s, desc}}); }
    // "name|description" per keyword of the application, in key order.
    QStringList keywords(qint32 appKey)
    {
        return Rows(conn, u"SELECT sKeywordName, sKeywordDesc FROM tKeyword WHERE iKeywordAppKey=%1 ORDER BY iKeywordKey"_s.arg(appKey));
    }
    QString path(const QString& name) const { return db->tempPath() + u'/' + name; }
    static QByteArray bytes(const QString& file) { EXPECT_TRUE(QFileInfo(file).isReadable()) << file.toStdString(); return ReadFile(file); }
    QString write(const QByteArray& content, const QString& name = u"in.txt"_s) { EXPECT_TRUE(WriteFile(path(name), content)); return path(name); }
    bool exportTo(qint32 appKey, const QString& file) { return ExportKeywords(conn, messages, appKey, [file] { return std::optional(file); }); }
    KeywordImportOutcome importFrom(qint32 appKey, const QString& file) { return ImportKeywords(conn, messages, appKey, [file] { return std::optional(file); }); }

    qint32 app = 0, other = 0;
};

// Name TAB description CR LF in name order (letter case ignored), a TAB in
// a description as it stands, a Null description empty; an application
// without keywords exports an empty file, also over an existing one.
// Windows-1252 both ways: the characters of 0x80 to 0x9F are written as
// those bytes and read back, the undefined bytes stand for themselves, and
// only a character the code page lacks becomes "?".
TEST_P(KeywordFilesTest, ExportWritesNameTabDescriptionCrLfInWindows1252)
{
    const QString fresh = path(u"empty.txt"_s), earlier = write("Kept\tAs it was\r\n", u"earlier.txt"_s);
    EXPECT_TRUE(exportTo(app, fresh) && exportTo(app, earlier));
    EXPECT_EQ(std::pair(bytes(fresh), bytes(earlier)), std::pair(QByteArray(), QByteArray()));

    addKeyword(app, u"Smoke"_s, u"Quick check"_s);
    addKeyword(app, u"Orders"_s, u"Touches\torder data"_s);
    addKeyword(app, u"billing"_s, QVariant());
    addKeyword(other, u"Elsewhere"_s, u"Not this application"_s);
    ASSERT_TRUE(exportTo(app, fresh) && messages.shown.isEmpty()) << Shown(messages);
    EXPECT_EQ(bytes(fresh), QByteArray("billing\t\r\nOrders\tTouches\torder data\r\nSmoke\tQuick check\r\n"));

    addKeyword(other, u"Caf\u00e9 \u2013 \u20ac"_s, u"\u201cQuoted\u201d \u2018it\u2019s\u2019 \u2026 \u0160\u0178 \U0001F600 \u0100"_s);
    const QString file = path(u"cp1252.txt"_s);
    EXPECT_TRUE(exportTo(other, file));
    EXPECT_EQ(bytes(file), QByteArray("Caf\xe9 \x96 \x80\t\x93Quoted\x94 \x91it\x92s\x92 \x85 \x8a\x9f ? ?\r\nElsewhere\tNot this application\r\n"));
    const qint32 third = addApp(u"Third"_s, u"THIRD"_s, kPlatformWindows);
    EXPECT_EQ(importFrom(third, file).result, KeywordImportResult::Imported);
    EXPECT_EQ(keywords(third), QStringList({u"Caf\u00e9 \u2013 \u20ac|\u201cQuoted\u201d \u2018it\u2019s\u2019 \u2026 \u0160\u0178 ? ?"_s, u"Elsewhere|Not this application"_s}));

    QByteArray high;
    for (int b = 0x80; b < 0xA0; ++b)
        high += static_cast<char>(b);
    EXPECT_EQ(KeywordFileText(high), u"\u20ac\u0081\u201a\u0192\u201e\u2026\u2020\u2021\u02c6\u2030\u0160\u2039\u0152\u008d"
                                     u"\u017d\u008f\u0090\u2018\u2019\u201c\u201d\u2022\u2013\u2014\u02dc\u2122\u0161\u203a"
                                     u"\u0153\u009d\u017e\u0178"_s);
    EXPECT_EQ(std::pair(KeywordFileBytes(KeywordFileText(high)), KeywordFileBytes(u"\u0080\u009f"_s)), std::pair(high, QByteArray("??")));
}

// A name the application has already, compared exactly as the grid
// compares names, is skipped, also when an earlier line of the same file
// added it; a second import adds nothing. A line splits at its first TAB;
// an empty description is stored as a blank. A failure adds nothing (the
// files that stop a read are in the table of keyword files below).
TEST_P(KeywordFilesTest, ImportSkipsNamesTheApplicationHasAndAFailureOrABadLineAddsNothing)
{
    addKeyword(app, u"Smoke"_s, u"Stored"_s);
    addKeyword(other, u"Nightly"_s, u"Other application"_s);
    const QString file = write("Smoke\tFrom the file\r\nsmoke\tOther case\r\nNightly\tNew\there\r\nNightly\tTwice\r\nBlank\t\r\n");
    KeywordImportOutcome outcome = importFrom(app, file);
    EXPECT_EQ(std::tuple(outcome.result, outcome.rowsAdded, outcome.rowsSkipped, KeywordImportCounts(outcome)),
              std::tuple(KeywordImportResult::Imported, 3, 2, u"added: 3  skipped: 2"_s));
    EXPECT_EQ(keywords(app), QStringList({"Smoke|Stored", "smoke|Other case", "Nightly|New\there", "Blank| "}));

    outcome = importFrom(app, file);
    EXPECT_EQ(std::pair(outcome.result, KeywordImportCounts(outcome)), std::pair(KeywordImportResult::Imported, u"added: 0  skipped: 5"_s));
    EXPECT_EQ(std::pair(keywords(app).size(), messages.shown), std::pair(qsizetype(4), QStringList()));

    // A file that cannot be opened fails (a missing one, and an export into
    // a missing folder, named in the message, are on the command test); a
    // row the repository refuses stops the import with the database's
    // reason, and the rows before it are not kept.
    const QString importPrefix = u"Error while Importing Keywords: "_s;
    const KeywordImportOutcome folder = importFrom(other, db->tempPath());
    EXPECT_EQ(std::pair(folder.result, folder.ReloadGrid()), std::pair(KeywordImportResult::Failed, false));
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown[0].startsWith(importPrefix)) << Shown(messages);
    DB_ASSERT(conn.Execute(u"CREATE UNIQUE INDEX one_description ON tKeyword (iKeywordAppKey, sKeywordDesc)"_s));
    messages.shown.clear();
    outcome = importFrom(other, write("One\tFirst\r\nTwo\tOther application\r\nThree\tThird\r\n"));
    EXPECT_EQ(std::pair(outcome.result, outcome.rowsAdded), std::pair(KeywordImportResult::Failed, 0));
    EXPECT_TRUE(messages.shown.size() == 1 && messages.shown.front().startsWith(importPrefix) && messages.shown.front().size() > 32
                && messages.shown.front().endsWith(kImportNothingAdded))
        << "and the database's reason: " << Shown(messages);
    EXPECT_EQ(keywords(other), QStringList({"Nightly|Other application"}));
}

// An export replaces the chosen file whole: a longer file keeps no tail,
// its permissions stay, and a link leads to the file it names. An export
// that fails half-way, or cannot put its file in place, leaves the earlier
// file as it was and no file of its own behind.
TEST_P(KeywordFilesTest, ExportReplacesTheFileWholeAndAFailureLeavesItAsItWas)
{
    addKeyword(app, u"Smoke"_s, u"Quick check"_s);
    QByteArray longer;
    for (int i = 0; i < 100000; ++i)
        longer += "Keyword " + QByteArray::number(i) + "\tOlder export\r\n";
    const QString file = write(longer, u"keywords.txt"_s);
    ASSERT_TRUE(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    ASSERT_TRUE(QFile::link(file, path(u"link.txt"_s)));
    const QStringList folder = QDir(db->tempPath()).entryList(QDir::Files | QDir::System | QDir::Hidden);

    const QByteArray one("Smoke\tQuick check\r\n");
    ASSERT_TRUE(exportTo(app, path(u"link.txt"_s))) << Shown(messages);
    EXPECT_EQ(std::tuple(bytes(file), QFileInfo(path(u"link.txt"_s)).isSymLink(), int(QFile::permissions(file))),
              std::tuple(one, true, int(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser | QFile::ReadGroup)));

    // A record set without descriptions fails at its first line.
    ASSERT_TRUE(write(longer, u"keywords.txt"_s) == file);
    Recordset names(u"SELECT iKeywordKey, sKeywordName FROM tKeyword WHERE iKeywordAppKey=%1"_s.arg(app), conn);
    EXPECT_THROW(WriteKeywordFile(file, names), DbError);
    // A folder in the file's place; a file in a folder that is not there.
    messages.shown.clear();
    EXPECT_FALSE(exportTo(app, db->tempPath()) || exportTo(app, path(u"missing/keywords.txt"_s)));
    EXPECT_TRUE(messages.shown.size() == 2 && messages.shown[0].startsWith(u"Error while exporting Keywords: "_s)
                && messages.shown[1].contains(u"missing/keywords.txt"_s)) << Shown(messages);
    EXPECT_EQ(std::pair(bytes(file) == longer, QDir(db->tempPath()).entryList(QDir::Files | QDir::System | QDir::Hidden)),
              std::pair(true, folder));
}

// Keyword files as administrators' editors save them, and what importing
// each must give: each file is imported into an application without
// keywords, and the application's keywords are then exported over it.
// (Names in two letter cases and Windows-1252 are on the tests above.)
// A case's rows are "name|description" in the order they were added; its
// message the counts of an import that completed, else why it stopped,
// which kImportNothingAdded follows.
TEST_P(KeywordFilesTest, KeywordFileCasesImportAndExportAsTheTableSays)
{
    const struct { const char* name; QByteArray file; QStringList rows; QString message; } cases[] = {
        {"CR LF", "One\tFirst\r\nTwo\tSecond\r\n", {"One|First", "Two|Second"}, u"added: 2  skipped: 0"_s},
        // LF alone ends a line as CR LF does, also between CR LF lines:
        // nothing is glued into the description before it.
        {"LF", "One\tFirst\nTwo\tSecond\n", {"One|First", "Two|Second"}, u"added: 2  skipped: 0"_s},
        {"LF between CR LF lines", "alpha\tfirst\nbeta\tsecond\r\ngamma\tthird\r\n", {"alpha|first", "beta|second", "gamma|third"},
         u"added: 3  skipped: 0"_s},
        {"CR LF after LF lines", "alpha\tfirst\nbeta\tsecond\r\n", {"alpha|first", "beta|second"}, u"added: 2  skipped: 0"_s},
        // A line splits at its first TAB; an empty description is stored as
        // a blank, a missing name as it stands.
        {"TAB in a description", "Orders\tTouches\torder data\nBlank\t\r\n\tNo name\n", {"Orders|Touches\torder data", "Blank| ", "|No name"},
         u"added: 3  skipped: 0"_s},
        // Empty lines at the end are no lines, with either line end.
        {"empty lines at the end", "One\tFirst\r\n\r\n\n\r\n", {"One|First"}, u"added: 1  skipped: 0"_s},
        {"empty file", "", {}, u"added: 0  skipped: 0"_s},
        // Where a read stops. Nothing of such a file is added.
        {"no line end on the last line", "One\tFirst\r\nTwo\tSecond", {}, kImportUnexpectedEnd},
        {"no line end on the last LF line", "One\tFirst\nTwo\tSecond", {}, kImportUnexpectedEnd},
        {"CR without its LF at the end", "One\tFirst\r\nTwo\tSecond\r", {}, kImportUnexpectedEnd},
        {"no TAB on the last line", "One\tFirst\r\nTwo", {}, kImportUnexpectedEnd},
        {"no TAB", "One\tFirst\r\nNoTab\r\nNext\tThird\r\n", {}, kImportNoTab.arg(2)},
        {"no TAB on an LF line", "One\tFirst\nTwo\tSecond\nNoTab\nNext\tFourth\n", {}, kImportNoTab.arg(3)},
        {"LF before the TAB", "One\tFirst\r\nNo\nTab\tSecond\r\n", {}, kImportNoTab.arg(2)},
        {"empty line", "One\tFirst\r\nTwo\tSecond\r\n\r\nThree\tThird\r\n", {}, kImportEmptyLine.arg(3)},
        {"empty LF line", "One\tFirst\n\nTwo\tSecond\n", {}, kImportEmptyLine.arg(2)},
        {"empty first line", "\r\nOne\tFirst\r\n", {}, kImportEmptyLine.arg(1)},
        {"CR without LF", "One\tFirst\r\nTwo\tSecond\rThree\tThird\r\n", {}, kImportBadFormat},
        {"CR CR LF", "One\tFirst\r\r\n", {}, kImportBadFormat},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ++n;
        const qint32 target = addApp(u"Case %1"_s.arg(n), u"CASE%1"_s.arg(n), kPlatformWindows);
        messages.shown.clear();
        const QString file = write(c.file);
        const KeywordImportOutcome outcome = importFrom(target, file);
        const bool imported = c.message.startsWith(u"added: "_s);
        EXPECT_EQ(std::tuple(outcome.result, outcome.rowsAdded, outcome.ReloadGrid()),
                  std::tuple(imported ? KeywordImportResult::Imported : KeywordImportResult::Failed, c.rows.size(), imported));
        EXPECT_EQ(imported ? QStringList{KeywordImportCounts(outcome)} : messages.shown, QStringList{imported ? c.message : c.message + kImportNothingAdded});
        EXPECT_EQ(keywords(target), c.rows);
        // The export over it, line by line, sorted: the order among names that
        // differ only in letter case is the database's, and the export test's
        // concern. What follows the last CR LF is a last, empty line.
        EXPECT_TRUE(exportTo(target, file)) << Shown(messages);
        QStringList exported = KeywordFileText(bytes(file)).split(u"\r\n"_s), wanted = c.rows;
        wanted.replaceInStrings(QRegularExpression(u"^([^|]*)\\|"_s), u"\\1\t"_s) << QString();
        exported.sort(), wanted.sort();
        EXPECT_EQ(exported, wanted);
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, KeywordFilesTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
