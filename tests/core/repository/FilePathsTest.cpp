#include "core/repository/FilePaths.h"

#include "support/TestSupport.h"

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
