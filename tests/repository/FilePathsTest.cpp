#include "repository/FilePaths.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace dorvane {
namespace {

class FilePathsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_root = m_dir.path();
        MakeFile(u"Tutorial/Database/UserData.mdb"_s);
        MakeFile(u"Tutorial/Database/Tutorial.mdb"_s);
        MakeFile(u"Tutorial/TestData.mdb"_s);
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

    // With "database" and "DATABASE" both there the exact case wins; with
    // neither spelling there, the first in code-point order ("DATABASE").
    MakeFile(u"Tutorial/database/Other.mdb"_s);
    MakeFile(u"Tutorial/DATABASE/Other.mdb"_s);
    EXPECT_EQ(NativePath(Win(u"Tutorial\\database\\Other.mdb"_s)), m_root + u"/Tutorial/database/Other.mdb"_s);
    EXPECT_EQ(NativePath(Win(u"Tutorial\\Database\\UserData.mdb"_s)), m_root + u"/Tutorial/Database/UserData.mdb"_s);
    EXPECT_EQ(NativePath(Win(u"Tutorial\\dataBASE\\Other.mdb"_s)), m_root + u"/Tutorial/DATABASE/Other.mdb"_s);
}

TEST_F(FilePathsTest, RelativePathsResolveAgainstTheCurrentFolderAndStayRelative)
{
    const QString saved = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(m_root));
    const QString found = NativePath(u"tutorial\\database\\userdata.mdb"_s);
    const QString dotted = NativePath(u".\\TUTORIAL\\TestData.mdb"_s);
    const QString missing = NativePath(u"Nowhere\\database\\x.mdb"_s);
    ASSERT_TRUE(QDir::setCurrent(saved));
    EXPECT_EQ(found, u"Tutorial/Database/UserData.mdb"_s);
    EXPECT_EQ(dotted, u"./Tutorial/TestData.mdb"_s);
    EXPECT_EQ(missing, u"Nowhere/database/x.mdb"_s);
}

} // namespace
} // namespace dorvane
