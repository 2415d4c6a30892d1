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

TEST_P(KeywordFilesTest, TextIsLatin1AndOtherCharactersBecomeQuestionMarks)
{
    addKeyword(app, QStringLiteral("Caf\u00e9"), QStringLiteral("\u00c4nderung \u2013 \U0001F600"));
    const QString file = path(QStringLiteral("latin1.txt"));
    EXPECT_TRUE(exportTo(app, file));
    EXPECT_EQ(bytes(file), QByteArray("Caf\xe9\t\xc4nderung ? ?\r\n"));

    const KeywordImportOutcome outcome = importFrom(other, file);
    EXPECT_EQ(outcome.result, KeywordImportResult::Imported);
    EXPECT_EQ(keywords(other), QStringList{QStringLiteral("Caf\u00e9|\u00c4nderung ? ?")});
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

TEST_P(KeywordFilesTest, AFileEndingInsideALineKeepsTheLinesBeforeIt)
{
    struct Case {
        const char* name;
        QByteArray content;
    };
    const Case cases[] = {
        {"no CR LF on the last line", "One\tFirst\r\nTwo\tSecond"},
        {"CR without its LF at the end", "One\tFirst\r\nTwo\tSecond\r"},
        {"no TAB on the last line", "One\tFirst\r\nTwo"},
        {"no TAB at all in the rest", "One\tFirst\r\nTwo Second\r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const qint32 target = addApp(QString::fromLatin1(c.name), QStringLiteral("X"), 1);
        const QString file = path(QStringLiteral("cut.txt"));
        writeBytes(file, c.content);
        messages.shown.clear();
        const KeywordImportOutcome outcome = importFrom(target, file);
        EXPECT_EQ(outcome.result, KeywordImportResult::Failed);
        EXPECT_EQ(outcome.rowsAdded, 1);
        EXPECT_TRUE(outcome.ReloadGrid());
        EXPECT_EQ(messages.shown, QStringList{kImportUnexpectedEnd});
        EXPECT_EQ(keywords(target), QStringList{QStringLiteral("One|First")});
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
