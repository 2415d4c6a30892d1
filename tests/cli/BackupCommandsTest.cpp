// dorvanectl's backup, backups and restore, run as a program on a tutorial
// installation: their output lines, messages and exit statuses.

#include "cli/CtlTestSupport.h"
#include "repository/Connection.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <QDate>
#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace dorvane {
namespace {

using test::Ctl;
using test::CtlResult;
using test::Quoted;

const QString kEnvironment = QStringLiteral("TUTORIAL");

class BackupCommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_exe = m_dir.path() + QStringLiteral("/exe");
        const CtlResult run = Ctl({QStringLiteral("create-installation"), m_exe});
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        m_registry = m_dir.path() + QStringLiteral("/zentrix.reg");
        test::WriteSettings(m_registry, {Quoted(QStringLiteral("ActiveDB"), QStringLiteral("Tutorial")),
                                         Quoted(QStringLiteral("ExePath"), m_exe)});
        m_file = QDate::currentDate().toString(QStringLiteral("MM-dd-yyyy")) + QStringLiteral(".MDB");
    }

    CtlResult ctl(const QStringList& arguments) { return Ctl(arguments, m_registry); }

    QString folder() const { return m_exe + QStringLiteral("/Tutorial/Environments/Backups/") + kEnvironment; }

    // Runs a statement on the tutorial repository; returns the one text a
    // query selects when `column` is given.
    QString repository(const QString& sql, const QString& column = QString())
    {
        Connection conn;
        conn.Open(QStringLiteral("PROVIDER=Microsoft.Jet.OLEDB.3.51;Data Source=") + m_exe +
                  QStringLiteral("/Tutorial/Database/Tutorial.mdb;"));
        if (column.isEmpty()) {
            conn.Execute(sql);
            return QString();
        }
        Recordset rs(sql, conn);
        return rs.Text(column);
    }

    QTemporaryDir m_dir;
    QString m_exe;
    QString m_registry;
    QString m_file;
};

TEST_F(BackupCommandsTest, WithoutBackupsThereIsNothingToListOrRestore)
{
    CtlResult run = ctl({QStringLiteral("backups"), kEnvironment});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QString());

    run = ctl({QStringLiteral("restore"), kEnvironment, m_file});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("This Environment has no backups to restore.\n"));

    run = ctl({QStringLiteral("backups"), QStringLiteral("Nowhere")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("There is no environment named Nowhere.\n"));

    run = ctl({QStringLiteral("restore"), kEnvironment});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("usage: dorvanectl restore ENVIRONMENT FILE\n"));
}

TEST_F(BackupCommandsTest, BackupAsksFirstAndPrintsTheFileItWrote)
{
    // No terminal to answer on: the question is answered No.
    CtlResult run = ctl({QStringLiteral("backup"), kEnvironment});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("Back up all application/versions of TUTORIAL to ") + m_file +
                           QStringLiteral("? [y/n] n\n"));
    EXPECT_EQ(run.out, QString());
    EXPECT_FALSE(QDir(folder()).exists());

    run = ctl({QStringLiteral("backup"), QStringLiteral("tutorial"), QStringLiteral("--yes")});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    // The question names the environment as stored.
    EXPECT_EQ(run.err, QStringLiteral("Back up all application/versions of TUTORIAL to ") + m_file +
                           QStringLiteral("? yes\n"));
    EXPECT_EQ(run.out, folder() + QLatin1Char('/') + m_file + QLatin1Char('\n'));
    EXPECT_EQ(QDir(folder()).entryList(QDir::Files), QStringList{m_file});

    run = ctl({QStringLiteral("backups"), kEnvironment});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^") + QRegularExpression::escape(m_file) +
                                   QStringLiteral("  versions: 2  rows: [1-9][0-9]*\n$"))
                    .match(run.out)
                    .hasMatch())
        << run.out.toStdString();
}

TEST_F(BackupCommandsTest, RestoreTakesAListedNameOrAPath)
{
    ASSERT_EQ(ctl({QStringLiteral("backup"), kEnvironment, QStringLiteral("--yes")}).exitCode, 0);
    const QString description = QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'");
    const QString saved = repository(description, QStringLiteral("sEnvironmentDesc"));

    repository(QStringLiteral("UPDATE tEnvironment SET sEnvironmentDesc='Changed'"));
    CtlResult run = ctl({QStringLiteral("restore"), kEnvironment, m_file});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(repository(description, QStringLiteral("sEnvironmentDesc")), saved);

    repository(QStringLiteral("UPDATE tEnvironment SET sEnvironmentDesc='Changed'"));
    run = ctl({QStringLiteral("restore"), kEnvironment, folder() + QLatin1Char('/') + m_file});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(repository(description, QStringLiteral("sEnvironmentDesc")), saved);

    run = ctl({QStringLiteral("restore"), kEnvironment, QStringLiteral("01-01-1999.MDB")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Error while restoring environment: Could not find file '")))
        << run.err.toStdString();
}

} // namespace
} // namespace dorvane
