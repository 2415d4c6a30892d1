// dorvanectl's backup, backups and restore, run as a program on a tutorial
// installation: their output lines, messages and exit statuses.

#include "cli/CtlTestSupport.h"

#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace dorvane {
namespace {

using test::CtlResult;

const QString kEnvironment = QStringLiteral("TUTORIAL");
const QString kDescription = QStringLiteral("SELECT sEnvironmentDesc FROM tEnvironment WHERE sEnvironmentName='TUTORIAL'");

// On the tutorial installation only: the backup folders are its own.
class BackupCommandsTest : public test::CtlRepositoryTest {
protected:
    QString folder() const { return m_exe + QStringLiteral("/Tutorial/Environments/Backups/") + kEnvironment; }

    const QString m_file = QDate::currentDate().toString(QStringLiteral("MM-dd-yyyy")) + QStringLiteral(".MDB");
};

TEST_P(BackupCommandsTest, WithoutBackupsThereIsNothingToListOrRestore)
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
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, QStringLiteral("usage: dorvanectl restore ENVIRONMENT FILE [--yes]\n"));
}

TEST_P(BackupCommandsTest, BackupAsksFirstAndPrintsTheFileItWrote)
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

TEST_P(BackupCommandsTest, RestoreTakesAListedNameOrAPath)
{
    ASSERT_EQ(ctl({QStringLiteral("backup"), kEnvironment, QStringLiteral("--yes")}).exitCode, 0);
    const QStringList saved = rows(kDescription);

    open()->Execute(QStringLiteral("UPDATE tEnvironment SET sEnvironmentDesc='Changed'"));
    CtlResult run = ctl({QStringLiteral("restore"), kEnvironment, m_file});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());
    EXPECT_EQ(rows(kDescription), saved);

    open()->Execute(QStringLiteral("UPDATE tEnvironment SET sEnvironmentDesc='Changed'"));
    run = ctl({QStringLiteral("restore"), kEnvironment, folder() + QLatin1Char('/') + m_file});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(rows(kDescription), saved);

    run = ctl({QStringLiteral("restore"), kEnvironment, QStringLiteral("01-01-1999.MDB")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Error while restoring environment: Could not find file '")))
        << run.err.toStdString();
}

TEST_P(BackupCommandsTest, AnotherEnvironmentsBackupAndUnsafeNamesAreRefused)
{
    ASSERT_EQ(ctl({QStringLiteral("backup"), kEnvironment, QStringLiteral("--yes")}).exitCode, 0);
    open()->Execute(QStringLiteral("INSERT INTO tEnvironment (sEnvironmentName) VALUES ('OTHER')"));
    open()->Execute(QStringLiteral("INSERT INTO tEnvironment (sEnvironmentName) VALUES ('../../../../x')"));
    ASSERT_EQ(ctl({QStringLiteral("backup"), QStringLiteral("OTHER"), QStringLiteral("--yes")}).exitCode, 0);
    const QStringList before = dump();

    CtlResult run = ctl({QStringLiteral("restore"), QStringLiteral("OTHER"), folder() + QLatin1Char('/') + m_file, QStringLiteral("--yes")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("The backup %1 belongs to environment \"TUTORIAL\" and cannot be restored into "
                                      "environment \"OTHER\". Nothing was changed.\n")
                           .arg(m_file));

    for (const QStringList& command : {QStringList{QStringLiteral("backup"), QStringLiteral("--yes")}, QStringList{QStringLiteral("backups")}}) {
        run = ctl(command + QStringList{QStringLiteral("../../../../x")});
        EXPECT_EQ(run.exitCode, 1) << command.join(u' ').toStdString();
        EXPECT_TRUE(run.err.contains(QStringLiteral("The environment name \"../../../../x\" cannot name its backup folder")))
            << run.err.toStdString();
    }
    EXPECT_EQ(dump(), before);
    EXPECT_FALSE(QFileInfo::exists(m_exe + QStringLiteral("/x")));
}

INSTANTIATE_TEST_SUITE_P(Tutorial, BackupCommandsTest, ::testing::Values("tutorial"),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

} // namespace
} // namespace dorvane
