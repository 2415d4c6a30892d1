#include "repository/FilePaths.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace dorvane {
namespace {

class FilePathsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_root = m_dir.path();
        MakeFile(QStringLiteral("Tutorial/Database/UserData.mdb"));
        MakeFile(QStringLiteral("Tutorial/Database/Tutorial.mdb"));
        MakeFile(QStringLiteral("Tutorial/TestData.mdb"));
    }

    void MakeFile(const QString& relative)
    {
        const QString full = m_root + u'/' + relative;
        ASSERT_TRUE(QDir().mkpath(QFileInfo(full).path()));
        QFile file(full);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }

    // The temporary folder written the Windows way.
    QString Win(const QString& relative) const { return QString(m_root).replace(u'/', u'\\') + u'\\' + relative; }

    QTemporaryDir m_dir;
    QString m_root;
};

TEST_F(FilePathsTest, ComponentsResolveToTheEntryOfAnotherCase)
{
    EXPECT_EQ(NativePath(Win(QStringLiteral("Tutorial\\database\\UserData.mdb"))),
              m_root + QStringLiteral("/Tutorial/Database/UserData.mdb"));
    // Files as well as folders.
    EXPECT_EQ(NativePath(Win(QStringLiteral("TUTORIAL\\DATABASE\\userdata.MDB"))),
              m_root + QStringLiteral("/Tutorial/Database/UserData.mdb"));
    EXPECT_EQ(NativePath(Win(QStringLiteral("tutorial\\testdata.mdb"))), m_root + QStringLiteral("/Tutorial/TestData.mdb"));
}

TEST_F(FilePathsTest, ExactCaseWinsAndAmbiguityResolvesAlwaysTheSameWay)
{
    MakeFile(QStringLiteral("Tutorial/database/Other.mdb"));
    MakeFile(QStringLiteral("Tutorial/DATABASE/Other.mdb"));
    EXPECT_EQ(NativePath(Win(QStringLiteral("Tutorial\\database\\Other.mdb"))),
              m_root + QStringLiteral("/Tutorial/database/Other.mdb"));
    EXPECT_EQ(NativePath(Win(QStringLiteral("Tutorial\\Database\\UserData.mdb"))),
              m_root + QStringLiteral("/Tutorial/Database/UserData.mdb"));
    // Neither spelling exists: the first in code-point order ("DATABASE").
    EXPECT_EQ(NativePath(Win(QStringLiteral("Tutorial\\dataBASE\\Other.mdb"))),
              m_root + QStringLiteral("/Tutorial/DATABASE/Other.mdb"));
}

TEST_F(FilePathsTest, MissingTailIsKeptAsGiven)
{
    // A file still to be created keeps its name; its folder is resolved.
    EXPECT_EQ(NativePath(Win(QStringLiteral("tutorial\\database\\NewRepo.mdb"))),
              m_root + QStringLiteral("/Tutorial/Database/NewRepo.mdb"));
    EXPECT_EQ(NativePath(Win(QStringLiteral("tutorial\\Backups\\database\\x.mdb"))),
              m_root + QStringLiteral("/Tutorial/Backups/database/x.mdb"));
    // A file cannot hold further components.
    EXPECT_EQ(NativePath(Win(QStringLiteral("tutorial\\testdata.mdb\\database"))),
              m_root + QStringLiteral("/Tutorial/TestData.mdb/database"));
}

TEST_F(FilePathsTest, RelativePathsResolveAgainstTheCurrentFolderAndStayRelative)
{
    const QString saved = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(m_root));
    const QString found = NativePath(QStringLiteral("tutorial\\database\\userdata.mdb"));
    const QString dotted = NativePath(QStringLiteral(".\\TUTORIAL\\TestData.mdb"));
    const QString missing = NativePath(QStringLiteral("Nowhere\\database\\x.mdb"));
    ASSERT_TRUE(QDir::setCurrent(saved));
    EXPECT_EQ(found, QStringLiteral("Tutorial/Database/UserData.mdb"));
    EXPECT_EQ(dotted, QStringLiteral("./Tutorial/TestData.mdb"));
    EXPECT_EQ(missing, QStringLiteral("Nowhere/database/x.mdb"));
}

} // namespace
} // namespace dorvane
