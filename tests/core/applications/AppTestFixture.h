#pragma once

#include "core/repository/Globals.h"
#include "support/RepositoryTest.h"

#include <QDir>
#include <QFileInfo>

namespace dorvane::test {

using namespace Qt::StringLiterals;

// A repository (reference data, or the tutorial), a scripted message sink
// and an empty shared resource folder, fresh for every test.
class AppRepositoryTest : public RepositoryTest {
protected:
    void SetUp() override
    {
        RepositoryTest::SetUp();
        ASSERT_TRUE(QDir().mkpath(sharedPath()));
    }

    QString sharedPath() const { return db->tempPath() + u"/Shared"_s; }
    bool folderExists(const QString& relative) const { return QFileInfo(sharedPath() + u'/' + relative).isDir(); }
    QStringList foldersIn(const QString& relative) const { return QDir(sharedPath() + u'/' + relative).entryList(QDir::Dirs | QDir::NoDotAndDotDot); }
};

} // namespace dorvane::test
