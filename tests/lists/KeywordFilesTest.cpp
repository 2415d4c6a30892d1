// Keyword export and import: the file's bytes, the reader's messages and
// what stays in the repository when a read fails.

#include "applications/AppTestFixture.h"
#include "lists/KeywordFiles.h"

#include <QFile>

namespace dorvane::test {
namespace {

class KeywordFilesTest : public AppRepositoryTest {
protected:
    void SetUp() override
    {
        AppRepositoryTest::SetUp();
        app = addApp(QStringLiteral("Orders"), QStringLiteral("OR"), 1);
        other = addApp(QStringLiteral("Billing"), QStringLiteral("BI"), 1);
    }

    void addKeyword(qint32 appKey, const QString& name, const QVariant& description)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("iKeywordAppKey"), appKey);
        rs.SetValue(QStringLiteral("sKeywordName"), name);
        rs.SetValue(QStringLiteral("sKeywordDesc"), description);
        rs.Update();
    }

    // "name|description" per keyword of the application, in key order.
    QStringList keywords(qint32 appKey)
    {
        QStringList rows;
        for (Recordset rs(QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=%1 ORDER BY iKeywordKey").arg(appKey),
                          conn);
             !rs.Eof(); rs.MoveNext())
            rows << rs.Text(QStringLiteral("sKeywordName")) + u'|' + rs.Text(QStringLiteral("sKeywordDesc"));
        return rows;
    }

    QString path(const QString& name) const { return db->tempPath() + u'/' + name; }

    QByteArray bytes(const QString& file)
    {
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::ReadOnly)) << file.toStdString();
        return f.readAll();
    }

    void writeBytes(const QString& file, const QByteArray& content)
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(content);
    }

    static KeywordFileChooser chosen(const QString& file)
    {
        return [file] { return std::optional<QString>(file); };
    }

    bool exportTo(qint32 appKey, const QString& file) { return ExportKeywords(conn, messages, appKey, chosen(file)); }
    KeywordImportOutcome importFrom(qint32 appKey, const QString& file)
    {
        return ImportKeywords(conn, messages, appKey, chosen(file));
    }

    qint32 app = 0;
    qint32 other = 0;
};

TEST_P(KeywordFilesTest, ExportWritesNameTabDescriptionCrLfInNameOrder)
{
    addKeyword(app, QStringLiteral("Smoke"), QStringLiteral("Quick check"));
    addKeyword(app, QStringLiteral("Orders"), QStringLiteral("Touches\torder data"));
    addKeyword(app, QStringLiteral("billing"), QVariant());
    addKeyword(other, QStringLiteral("Elsewhere"), QStringLiteral("Not this application"));
    const QString file = path(QStringLiteral("out.txt"));

    EXPECT_TRUE(exportTo(app, file));
    EXPECT_TRUE(messages.shown.isEmpty());
    // Name order ignores case; a TAB in a description is written as it
    // stands; a Null description is empty.
    EXPECT_EQ(bytes(file), QByteArray("billing\t\r\nOrders\tTouches\torder data\r\nSmoke\tQuick check\r\n"));
}

TEST_P(KeywordFilesTest, ExportOverALongerFileLeavesItsTail)
{
    addKeyword(app, QStringLiteral("A"), QStringLiteral("B"));
    const QString file = path(QStringLiteral("old.txt"));
    writeBytes(file, "Regression\tThe full run\r\nNightly\tEvery night\r\n");
    EXPECT_TRUE(exportTo(app, file));
    EXPECT_EQ(bytes(file), QByteArray("A\tB\r\nssion\tThe full run\r\nNightly\tEvery night\r\n"));
}

TEST_P(KeywordFilesTest, AnApplicationWithoutKeywordsExportsNothing)
{
    const QString fresh = path(QStringLiteral("empty.txt"));
    EXPECT_TRUE(exportTo(app, fresh));
    EXPECT_TRUE(QFile::exists(fresh));
    EXPECT_EQ(bytes(fresh), QByteArray());

    const QString existing = path(QStringLiteral("kept.txt"));
    writeBytes(existing, "Kept\tAs it was\r\n");
    EXPECT_TRUE(exportTo(app, existing));
    EXPECT_EQ(bytes(existing), QByteArray("Kept\tAs it was\r\n"));
    EXPECT_TRUE(messages.shown.isEmpty());
}

// Windows-1252 both ways: the characters of 0x80 to 0x9F are written as
// those bytes and read back, the undefined bytes stand for themselves, and
// only a character the code page lacks becomes "?".
TEST_P(KeywordFilesTest, TextIsWindows1252BothWays)
{
    addKeyword(app, QStringLiteral("Caf\u00e9 \u2013 \u20ac"),
               QStringLiteral("\u201cQuoted\u201d \u2018it\u2019s\u2019 \u2026 \u0160\u0178 \U0001F600 \u0100"));
    const QString file = path(QStringLiteral("cp1252.txt"));
    EXPECT_TRUE(exportTo(app, file));
    EXPECT_EQ(bytes(file), QByteArray("Caf\xe9 \x96 \x80\t\x93Quoted\x94 \x91it\x92s\x92 \x85 \x8a\x9f ? ?\r\n"));

    EXPECT_EQ(importFrom(other, file).result, KeywordImportResult::Imported);
    EXPECT_EQ(keywords(other), QStringList{QStringLiteral("Caf\u00e9 \u2013 \u20ac|\u201cQuoted\u201d \u2018it\u2019s\u2019 "
                                                          "\u2026 \u0160\u0178 ? ?")});

    QByteArray high;
    for (int b = 0x80; b < 0xA0; ++b)
        high += static_cast<char>(b);
    EXPECT_EQ(KeywordFileText(high),
              QStringLiteral("\u20ac\u0081\u201a\u0192\u201e\u2026\u2020\u2021\u02c6\u2030\u0160\u2039\u0152\u008d"
                             "\u017d\u008f\u0090\u2018\u2019\u201c\u201d\u2022\u2013\u2014\u02dc\u2122\u0161\u203a"
                             "\u0153\u009d\u017e\u0178"));
    EXPECT_EQ(KeywordFileBytes(KeywordFileText(high)), high);
    EXPECT_EQ(KeywordFileBytes(QStringLiteral("\u0080\u009f")), QByteArray("??"));
}

// A name the application has already, compared exactly as the grid
// compares names, is skipped, also when an earlier line of the same file
// added it; a second import of a file adds nothing.
TEST_P(KeywordFilesTest, NamesTheApplicationHasAreSkippedAndCounted)
{
    addKeyword(app, QStringLiteral("Smoke"), QStringLiteral("Stored"));
    addKeyword(other, QStringLiteral("Nightly"), QStringLiteral("Other application"));
    const QString file = path(QStringLiteral("again.txt"));
    writeBytes(file, "Smoke\tFrom the file\r\nsmoke\tOther case\r\nNightly\tNew here\r\nNightly\tTwice in the file\r\n");

    KeywordImportOutcome outcome = importFrom(app, file);
    EXPECT_EQ(outcome.result, KeywordImportResult::Imported);
    EXPECT_EQ(outcome.rowsAdded, 2);
    EXPECT_EQ(outcome.rowsSkipped, 2);
    EXPECT_EQ(KeywordImportCounts(outcome), QStringLiteral("added: 2  skipped: 2"));
    EXPECT_EQ(keywords(app), (QStringList{QStringLiteral("Smoke|Stored"), QStringLiteral("smoke|Other case"),
                                          QStringLiteral("Nightly|New here")}));

    outcome = importFrom(app, file);
    EXPECT_EQ(outcome.result, KeywordImportResult::Imported);
    EXPECT_EQ(KeywordImportCounts(outcome), QStringLiteral("added: 0  skipped: 4"));
    EXPECT_EQ(keywords(app).size(), 3);
    EXPECT_EQ(keywords(other), QStringList{QStringLiteral("Nightly|Other application")});
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(KeywordFilesTest, ImportSplitsAtTheFirstTabAndStoresAnEmptyDescriptionAsABlank)
{
    const QString file = path(QStringLiteral("in.txt"));
    writeBytes(file, "Orders\tTouches\torder data\r\nSmoke\t\r\n\tNo name\r\n");
    const KeywordImportOutcome outcome = importFrom(app, file);
    EXPECT_EQ(outcome.result, KeywordImportResult::Imported);
    EXPECT_EQ(keywords(app),
              (QStringList{QStringLiteral("Orders|Touches\torder data"), QStringLiteral("Smoke| "), QStringLiteral("|No name")}));
    EXPECT_TRUE(messages.shown.isEmpty());
}

// Where a read stops: a file that ends inside a line, a line without its
// TAB, or an empty line (reported with its number; nothing is joined into
// a name). The lines before stay added; empty lines at the end of the file
// are no lines.
TEST_P(KeywordFilesTest, AReadStopsAtTheFirstBadLineAndKeepsTheLinesBefore)
{
    struct Case {
        const char* name;
        QByteArray content;
        QString message;
        QStringList added;
    };
    const Case cases[] = {
        {"no CR LF on the last line", "One\tFirst\r\nTwo\tSecond", kImportUnexpectedEnd, {"One|First"}},
        {"CR without its LF at the end", "One\tFirst\r\nTwo\tSecond\r", kImportUnexpectedEnd, {"One|First"}},
        {"no TAB on the last line", "One\tFirst\r\nTwo", kImportUnexpectedEnd, {"One|First"}},
        {"no TAB", "One\tFirst\r\nNoTab\r\nNext\tThird\r\n", kImportNoTab.arg(2), {"One|First"}},
        {"a bare LF before the TAB", "One\tFirst\r\nNo\nTab\tSecond\r\n", kImportNoTab.arg(2), {"One|First"}},
        {"empty line", "One\tFirst\r\nTwo\tSecond\r\n\r\nThree\tThird\r\n", kImportEmptyLine.arg(3),
         {"One|First", "Two|Second"}},
        {"empty first line", "\r\nOne\tFirst\r\n", kImportEmptyLine.arg(1), {}},
        {"empty lines at the end", "One\tFirst\r\n\r\n\r\n", QString(), {"One|First"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const qint32 target = addApp(QString::fromLatin1(c.name), QStringLiteral("X"), 1);
        const QString file = path(QStringLiteral("lines.txt"));
        writeBytes(file, c.content);
        messages.shown.clear();
        const KeywordImportOutcome outcome = importFrom(target, file);
        EXPECT_EQ(outcome.result, c.message.isEmpty() ? KeywordImportResult::Imported : KeywordImportResult::Failed);
        EXPECT_EQ(outcome.rowsAdded, c.added.size());
        EXPECT_EQ(outcome.ReloadGrid(), !c.added.isEmpty());
        EXPECT_EQ(messages.shown, c.message.isEmpty() ? QStringList() : QStringList{c.message});
        EXPECT_EQ(keywords(target), c.added);
    }
}

TEST_P(KeywordFilesTest, ACrWithoutLfIsABadFormat)
{
    const QString file = path(QStringLiteral("bad.txt"));
    writeBytes(file, "One\tFirst\r\nTwo\tSecond\rThree\tThird\r\n");
    const KeywordImportOutcome outcome = importFrom(app, file);
    EXPECT_EQ(outcome.result, KeywordImportResult::Failed);
    EXPECT_EQ(messages.shown, QStringList{kImportBadFormat});
    EXPECT_EQ(keywords(app), QStringList{QStringLiteral("One|First")});

    // A bare LF ends no line: it becomes part of the description.
    messages.shown.clear();
    writeBytes(file, "One\tFirst\nTwo\tSecond\r\n");
    EXPECT_EQ(importFrom(other, file).result, KeywordImportResult::Imported);
    EXPECT_EQ(keywords(other), QStringList{QStringLiteral("One|First\nTwo\tSecond")});
    EXPECT_TRUE(messages.shown.isEmpty());
}

TEST_P(KeywordFilesTest, AFileThatCannotBeOpenedIsReported)
{
    addKeyword(app, QStringLiteral("Smoke"), QStringLiteral("Quick check"));
    const QString missingFolder = path(QStringLiteral("no/such/folder/out.txt"));
    EXPECT_FALSE(exportTo(app, missingFolder));
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.front().startsWith(QStringLiteral("Error while exporting Keywords: ")));
    EXPECT_TRUE(messages.shown.front().contains(QStringLiteral("out.txt"))) << messages.shown.front().toStdString();

    messages.shown.clear();
    const KeywordImportOutcome outcome = importFrom(other, path(QStringLiteral("missing.txt")));
    EXPECT_EQ(outcome.result, KeywordImportResult::Failed);
    EXPECT_FALSE(outcome.ReloadGrid());
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.front().startsWith(QStringLiteral("Error while Importing Keywords: ")));
    EXPECT_TRUE(messages.shown.front().contains(QStringLiteral("missing.txt"))) << messages.shown.front().toStdString();

    // A folder is no keyword file either.
    messages.shown.clear();
    EXPECT_EQ(importFrom(other, db->tempPath()).result, KeywordImportResult::Failed);
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.front().startsWith(QStringLiteral("Error while Importing Keywords: ")));
    EXPECT_TRUE(keywords(other).isEmpty());
}

TEST_P(KeywordFilesTest, ARowTheRepositoryRefusesStopsTheImportAndKeepsTheRowsBefore)
{
    const QString file = path(QStringLiteral("refused.txt"));
    writeBytes(file, "One\tFirst\r\nRefused\tSecond\r\nThree\tThird\r\n");
    if (db->isOdbc()) {
        conn.Execute(QStringLiteral("CREATE OR REPLACE FUNCTION dorvane_refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
                                    "IF NEW.sKeywordName = 'Refused' THEN RAISE EXCEPTION 'refused'; END IF; "
                                    "RETURN NEW; END $$"));
        conn.Execute(QStringLiteral("CREATE TRIGGER refuse_keyword BEFORE INSERT ON tKeyword FOR EACH ROW EXECUTE "
                                    "FUNCTION dorvane_refuse()"));
    } else {
        conn.Execute(QStringLiteral("CREATE TRIGGER refuse_keyword BEFORE INSERT ON tKeyword WHEN "
                                    "NEW.sKeywordName = 'Refused' BEGIN SELECT RAISE(ABORT, 'refused'); END"));
    }
    const KeywordImportOutcome outcome = importFrom(app, file);
    EXPECT_EQ(outcome.result, KeywordImportResult::Failed);
    EXPECT_EQ(outcome.rowsAdded, 1);
    ASSERT_EQ(messages.shown.size(), 1);
    EXPECT_TRUE(messages.shown.front().startsWith(QStringLiteral("Error while Importing Keywords: ")));
    EXPECT_TRUE(messages.shown.front().contains(QStringLiteral("refused"))) << messages.shown.front().toStdString();
    EXPECT_EQ(keywords(app), QStringList{QStringLiteral("One|First")});
}

INSTANTIATE_TEST_SUITE_P(Backends, KeywordFilesTest, ::testing::ValuesIn(TestBackends()));

} // namespace
} // namespace dorvane::test
