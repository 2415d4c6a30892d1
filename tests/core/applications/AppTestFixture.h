#pragma once

#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Installation.h"
#include "core/repository/Recordset.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <memory>
#include <utility>
#include <vector>

namespace dorvane::test {

using namespace Qt::StringLiterals;
using Cells = std::vector<std::pair<QString, QVariant>>;

// One version for the builder: its windows, and its processes, each with
// one step window on the version's first window holding one step.
struct VersionSpec { QString id; QStringList windows = {}; QStringList processes = {}; QVariant attributes = {}; };

// A repository (reference data, or the tutorial), a scripted message sink
// and an empty shared resource folder, fresh for every test.
class AppRepositoryTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, content()));
        ASSERT_TRUE(QDir().mkpath(sharedPath()));
    }
    virtual RepositoryContent content() const { return RepositoryContent::ReferenceData; }

    QString sharedPath() const { return db->tempPath() + u"/Shared"_s; }
    bool folderExists(const QString& relative) const { return QFileInfo(sharedPath() + u'/' + relative).isDir(); }
    QStringList foldersIn(const QString& relative) const { return QDir(sharedPath() + u'/' + relative).entryList(QDir::Dirs | QDir::NoDotAndDotDot); }
    qint32 count(const QString& sql) { return qint32(Rows(conn, sql).size()); }

    // Adds a row as another module would and returns its key.
    qint32 add(const QString& table, const Cells& cells)
    {
        Recordset rs(u"SELECT * FROM %1 WHERE 1=0"_s.arg(table), conn);
        rs.AddNew();
        for (const auto& [column, value] : cells)
            rs.SetValue(column, value);
        rs.Update();
        return rs.Int(rs.KeyField());
    }

    // An application with its versions in one call. The keys by name: "app",
    // each version ID, window and process.
    QHash<QString, qint32> makeApp(const QString& name, const QString& id, qint32 platform,
                                   const std::vector<VersionSpec>& versions = {}, qint32 emulator = 0)
    {
        QHash<QString, qint32> key;
        key[u"app"_s] = add(u"tApp"_s, {{u"sAppName"_s, name}, {u"sAppID"_s, id}, {u"iAppPlatform"_s, platform},
                                          {u"iApp3270Key"_s, emulator}});
        for (const VersionSpec& v : versions) {
            const qint32 version = key[v.id]
                = add(u"tVersion"_s, {{u"iVersionAppKey"_s, key[u"app"_s]}, {u"sVersionID"_s, v.id}, {u"sVersionAttributes"_s, v.attributes}});
            for (const QString& w : v.windows)
                key[w] = add(u"tWindow"_s, {{u"iWindowVerKey"_s, version}, {u"sWindowLogicalName"_s, w}, {u"sWindowPhysicalName"_s, w}});
            for (const QString& p : v.processes) {
                key[p] = add(u"tProcess"_s, {{u"iProcessVerKey"_s, version}, {u"sProcessName"_s, p}, {u"iProcessType"_s, 1}});
                const qint32 stepWindow = add(u"tStepWindow"_s, {{u"iStepWindowProcessKey"_s, key[p]}, {u"iStepWindowVerKey"_s, version},
                    {u"iStepWindowWindowKey"_s, key.value(v.windows.value(0))}, {u"iStepWindowSequenceNum"_s, 1}});
                add(u"tStep"_s, {{u"iStepWindowKey"_s, stepWindow}, {u"iStepSequenceNum"_s, 1}});
            }
        }
        return key;
    }

    qint32 addApp(const QString& name, const QString& id, qint32 platform, qint32 emulator = 0) { return makeApp(name, id, platform, {}, emulator)[u"app"_s]; }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    ScriptedMessages messages;
};


} // namespace dorvane::test
