// dorvanectl's environment commands, run as a program on the tutorial
// installation and on the PostgreSQL data source: copy-environment and
// delete-environment.

#include "cli/CtlTestSupport.h"

namespace dorvane {
namespace {

using test::CtlResult;

const QString kCopy = QStringLiteral("copy-environment");
const QString kDelete = QStringLiteral("delete-environment");
const QString kVersionId = QStringLiteral("--version-id");
const QString kOrderEntryId = QStringLiteral("Order Entry - 1.1=2.0");
const QString kInquiryId = QStringLiteral("Customer Inquiry - R5=R6");

class EnvironmentCommandsTest : public test::CtlRepositoryTest {
protected:
    qint32 environment(const QString& name)
    {
        return key(QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='%1'").arg(name),
                   QStringLiteral("iEnvironmentKey"));
    }
};

TEST_P(EnvironmentCommandsTest, CopyEnvironmentBranchesTheWholeEnvironment)
{
    const CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2.0"), QStringLiteral("--description"),
                               QStringLiteral("Branch"), kVersionId, kInquiryId, kVersionId, kOrderEntryId});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString());

    // The Save As name: the full stop replaced.
    const qint32 copy = environment(QStringLiteral("Release 2_0"));
    ASSERT_NE(copy, 0);
    EXPECT_EQ(rows(QStringLiteral("SELECT sEnvironmentDesc FROM tEnvironment WHERE iEnvironmentKey=%1").arg(copy)),
              QStringList{QStringLiteral("Branch")});
    EXPECT_EQ(rows(QStringLiteral("SELECT sVersionID FROM tVersion WHERE iVersionKey IN (SELECT iEnvironVerKey FROM "
                                  "tEnvironmentDetail WHERE iEnvironKey=%1) ORDER BY iVersionKey")
                       .arg(copy)),
              (QStringList{QStringLiteral("2.0"), QStringLiteral("R6")}));

    // The copy's step windows refer to it: it cannot be deleted.
    const CtlResult refused = ctl({kDelete, QStringLiteral("Release 2_0")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, QStringLiteral("This environment is referenced in existing steps and cannot be deleted\n"));
}

TEST_P(EnvironmentCommandsTest, AMissingVersionIdWithoutATerminalCancelsTheCopy)
{
    const QStringList before = dump();
    const CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, kOrderEntryId});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("Enter the new Version ID for Customer Inquiry - R5:\n"));
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(environment(QStringLiteral("Release 2")), 0);
}

TEST_P(EnvironmentCommandsTest, GivenVersionIdsPassThePromptsChecks)
{
    const QStringList before = dump();
    CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId,
                         QStringLiteral("Order Entry - 1.1=1.1"), kVersionId, kInquiryId});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("1.1 already exists - please choose another ID\n"
                                      "Enter the new Version ID for Order Entry - 1.1:\n"));
    run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, QStringLiteral("Order Entry - 1.1=")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("Version ID cannot be blank\n"))) << run.err.toStdString();
    EXPECT_EQ(dump(), before);

    // An entry the source does not list.
    run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, QStringLiteral("Order Entry - 9=2.0")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("Environment TUTORIAL has no version to match --version-id Order Entry - 9=2.0.\n"));
    EXPECT_EQ(dump(), before);
}

TEST_P(EnvironmentCommandsTest, AnEmptyVersionOfTheGivenIdReceivesTheCopy)
{
    open()->Execute(QStringLiteral("INSERT INTO tVersion (iVersionAppKey, sVersionID, sVersionDesc) SELECT iAppKey, '2.0', "
                                   "'Prepared' FROM tApp WHERE sAppName='Order Entry'"));
    const QString twins = QStringLiteral("SELECT sVersionDesc FROM tVersion WHERE sVersionID='2.0' AND iVersionAppKey IN "
                                         "(SELECT iAppKey FROM tApp WHERE sAppName='Order Entry')");
    const CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("Release 2"), kVersionId, kOrderEntryId,
                               kVersionId, kInquiryId});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    // One 2.0, the prepared one, now listed by the copy and filled.
    EXPECT_EQ(rows(twins), QStringList{QStringLiteral("Prepared")});
    EXPECT_GT(rows(QStringLiteral("SELECT iWindowKey FROM tWindow WHERE iWindowVerKey IN (SELECT iVersionKey FROM tVersion "
                                  "WHERE sVersionID='2.0')"))
                  .size(),
              1);
}

TEST_P(EnvironmentCommandsTest, CopyEnvironmentRefusesATakenNameAndUnknownSources)
{
    CtlResult run = ctl({kCopy, QStringLiteral("TUTORIAL"), QStringLiteral("tutorial"), kVersionId, kOrderEntryId, kVersionId, kInquiryId});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("tutorial already exists - please choose another ID\n"));
    run = ctl({kCopy, QStringLiteral("Nowhere"), QStringLiteral("Release 2")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("There is no environment named Nowhere.\n"));
    run = ctl({kCopy, QStringLiteral("TUTORIAL")});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.startsWith(QStringLiteral("usage: dorvanectl copy-environment SOURCE NEWNAME"))) << run.err.toStdString();
}

TEST_P(EnvironmentCommandsTest, DeleteEnvironmentRemovesAnUnreferencedOneWithItsRows)
{
    const qint32 spare = add(QStringLiteral("tEnvironment"), {{QStringLiteral("sEnvironmentName"), QStringLiteral("Spare")}});
    const qint32 app = key(QStringLiteral("SELECT * FROM tApp"), QStringLiteral("iAppKey"));
    const qint32 version = add(QStringLiteral("tVersion"), {{QStringLiteral("iVersionAppKey"), app}, {QStringLiteral("sVersionID"), QStringLiteral("9")}});
    add(QStringLiteral("tEnvironmentDetail"), {{QStringLiteral("iEnvironKey"), spare}, {QStringLiteral("iEnvironVerKey"), version}});
    const qint32 user = key(QStringLiteral("SELECT * FROM tUser"), QStringLiteral("iUserKey"));
    add(QStringLiteral("tEnvironmentUser"), {{QStringLiteral("iEnvironKey"), spare}, {QStringLiteral("iUserKey"), user}});

    CtlResult run = ctl({kDelete, QStringLiteral("Spare")});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(environment(QStringLiteral("Spare")), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1").arg(spare)), 0);
    EXPECT_EQ(count(QStringLiteral("SELECT * FROM tEnvironmentUser WHERE iEnvironKey=%1").arg(spare)), 0);
    EXPECT_NE(environment(QStringLiteral("TUTORIAL")), 0);

    run = ctl({kDelete, QStringLiteral("Spare")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, QStringLiteral("There is no environment named Spare.\n"));
}

INSTANTIATE_CTL_REPOSITORIES(EnvironmentCommandsTest);

} // namespace
} // namespace dorvane
