// dorvanectl export-keywords and import-keywords, run as a program on the
// tutorial installation and on the PostgreSQL data source.

#include "cli/CtlTestSupport.h"

namespace dorvane {
namespace {

using test::CtlResult;

const QString kExport = QStringLiteral("export-keywords");
const QString kImport = QStringLiteral("import-keywords");
const QString kExported =
    QStringLiteral("The Keywords have been exported to tab delimited text format in the file you selected\n");

class KeywordCommandsTest : public test::CtlRepositoryTest {
protected:
    // "name|description" per keyword of the application, in key order.
    QStringList keywords(const QString& app)
    {
        return rows(QStringLiteral("SELECT sKeywordName, sKeywordDesc FROM tKeyword WHERE iKeywordAppKey IN (SELECT iAppKey "
                                   "FROM tApp WHERE sAppName='%1') ORDER BY iKeywordKey")
                        .arg(app));
    }

    QString path(const QString& name) const { return m_dir.path() + u'/' + name; }

    QByteArray bytes(const QString& file)
    {
        QFile f(file);
        EXPECT_TRUE(f.open(QIODevice::ReadOnly));
        return f.readAll();
    }

    void writeBytes(const QString& file, const QByteArray& content)
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(content);
    }

};

TEST_P(KeywordCommandsTest, ExportWritesTheFileAndPrintsTheCompletionMessage)
{
    const QString file = path(QStringLiteral("oe.txt"));
    // An older, longer file keeps its tail.
    writeBytes(file, QByteArray(100, 'x'));
    const CtlResult run = ctl({kExport, QStringLiteral("Order Entry"), file});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, kExported);
    EXPECT_EQ(run.err, QString());
    const QByteArray lines("Orders\tTouches order data\r\nRegression\tPart of the full regression\r\n"
                           "Smoke\tQuick check after each build\r\n");
    EXPECT_EQ(bytes(file), lines + QByteArray(100 - lines.size(), 'x'));
}

// The file is Windows-1252 text; the import prints its counts as a line of
// its own, and a second import of the same file adds nothing.
TEST_P(KeywordCommandsTest, ExportThenImportCopiesKeywordsToAnotherApplication)
{
    open()->Execute(QStringLiteral("UPDATE tKeyword SET sKeywordDesc='Needs the host region \u2013 \u20ac' WHERE sKeywordName='Host'"));
    const QString file = path(QStringLiteral("ci.txt"));
    ASSERT_EQ(ctl({kExport, QStringLiteral("Customer Inquiry"), file}).exitCode, 0);
    EXPECT_EQ(bytes(file), QByteArray("Host\tNeeds the host region \x96 \x80\r\n"));
    CtlResult run = ctl({kImport, QStringLiteral("Web Store"), file});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QStringLiteral("added: 1  skipped: 0\n"));
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(keywords(QStringLiteral("Web Store")),
              (QStringList{QStringLiteral("Checkout|Payment pages"),
                           QStringLiteral("Host|Needs the host region \u2013 \u20ac")}));

    run = ctl({kImport, QStringLiteral("Web Store"), file});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QStringLiteral("added: 0  skipped: 1\n"));
    EXPECT_EQ(keywords(QStringLiteral("Web Store")).size(), 2);

    // A line without its TAB stops the import with its number.
    writeBytes(file, "Search\tFinding products\r\nNoTab\r\nNext\tThird\r\n");
    run = ctl({kImport, QStringLiteral("Web Store"), file});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(run.err, QStringLiteral("Bad format on import file - line 2 has no TAB\n"));
    EXPECT_EQ(keywords(QStringLiteral("Web Store")).size(), 3);
}

TEST_P(KeywordCommandsTest, FailuresAreSaidOnStandardErrorWithStatusOne)
{
    CtlResult run = ctl({kImport, QStringLiteral("Web Store"), path(QStringLiteral("missing.txt"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Error while Importing Keywords: "))) << run.err.toStdString();

    run = ctl({kExport, QStringLiteral("Web Store"), path(QStringLiteral("no/folder/out.txt"))});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, QString());
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Error while exporting Keywords: "))) << run.err.toStdString();

    for (const QString& command : {kExport, kImport}) {
        run = ctl({command, QStringLiteral("Payroll"), path(QStringLiteral("p.txt"))});
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.err, QStringLiteral("There is no application named Payroll.\n"));
        run = ctl({command, QStringLiteral("Web Store")});
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err, QStringLiteral("usage: dorvanectl ") + command + QStringLiteral(" APPLICATION FILE\n"));
    }
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("p.txt"))));
    EXPECT_EQ(keywords(QStringLiteral("Web Store")), QStringList{QStringLiteral("Checkout|Payment pages")});
}

INSTANTIATE_CTL_REPOSITORIES(KeywordCommandsTest);

} // namespace
} // namespace dorvane
