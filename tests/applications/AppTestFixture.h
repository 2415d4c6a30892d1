#pragma once

#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>

#include <memory>

namespace dorvane::test {

// A repository with the reference data, a scripted message sink and an
// empty shared resource folder, fresh for every test.
class AppRepositoryTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, RepositoryContent::ReferenceData));
        ASSERT_TRUE(QDir().mkpath(sharedPath()));
    }

    // The shared resource path as the settings give it.
    QString sharedPath() const { return db->tempPath() + QStringLiteral("/Shared"); }
    bool folderExists(const QString& relative) const { return QFileInfo(sharedPath() + u'/' + relative).isDir(); }
    QStringList foldersIn(const QString& relative) const
    {
        return QDir(sharedPath() + u'/' + relative).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, conn);
        return CountRecords(&rs);
    }

    // An application row written directly, as another module would.
    qint32 addApp(const QString& name, const QString& id, qint32 platform, qint32 emulator = 0)
    {
        Recordset rs(QStringLiteral("SELECT * FROM tApp WHERE iAppKey=0"), conn);
        rs.AddNew();
        rs.SetValue(QStringLiteral("sAppName"), name);
        rs.SetValue(QStringLiteral("sAppID"), id);
        rs.SetValue(QStringLiteral("iAppPlatform"), platform);
        rs.SetValue(QStringLiteral("iApp3270Key"), emulator);
        rs.Update();
        return rs.Int(QStringLiteral("iAppKey"));
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    ScriptedMessages messages;
};

} // namespace dorvane::test
