#pragma once

// A fresh repository per test, and the builders of its rows.

#include "core/repository/Connection.h"
#include "core/installation/Installation.h"
#include "core/repository/Recordset.h"
#include "support/TestSupport.h"

#include <QHash>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace dorvane::test {

using Values = std::vector<std::pair<QString, QVariant>>;

// Adds one row through a record set, the values assigned in order, as the
// program adds rows; the new row's key.
qint32 addTo(Recordset& rs, const Values& values);
// The same through a fresh record set: the one a SELECT opens, or one on
// the table named.
qint32 addRow(Connection& conn, const QString& tableOrSelect, const Values& values);

// A name and the names below it, for RepositoryTest::build: a window and
// its objects, or a process and the windows it visits (one step window a
// visit, in sequence, each holding one step on the window's first object,
// 0 without one).
struct Named {
    Named(QString name, QStringList names = {}) : name(std::move(name)), names(std::move(names)) {}
    QString name;
    QStringList names;
};
// A version for RepositoryTest::build: its ID, windows and processes.
struct VersionSpec {
    VersionSpec(QString id, std::vector<Named> windows = {}, std::vector<Named> processes = {})
        : id(std::move(id)), windows(std::move(windows)), processes(std::move(processes)) {}
    QString id;
    std::vector<Named> windows, processes;
};

// What RepositoryTest::build added: the keys by name ("app", each
// version's ID, each window, object and process; a step window
// "process/window", its step "process/window/1"), and the last version's.
struct Built {
    qint32 operator[](const QString& name) const { return keys.value(name); }
    QHash<QString, qint32> keys;
    qint32 version = 0;
};

// A fresh database per test on the backend the parameter names, `conn`
// open on it. Its repository tables hold content(); none: no tables.
class RepositoryTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override;
    virtual std::optional<RepositoryContent> content() const { return RepositoryContent::ReferenceData; }

    // Adds a row to a table and returns its key.
    qint32 add(const QString& table, const Values& values) { return addRow(conn, table, values); }
    // The rows a statement selects, on `conn` or `on`.
    qint32 count(const QString& sql, Connection* on = nullptr) { return Recordset(sql, on ? *on : conn).RecordCount(); }
    // AbortOn() and DropAbort() on `conn`.
    void abortOn(const QString& table, const QString& event, const QString& when = {}) { AbortOn(conn, table, event, when); }
    void dropAbort(const QString& table, const QString& event) { DropAbort(conn, table, event); }
    // The messages shown, for a failure's description.
    std::string shown() const { return Shown(messages); }

    // An application: its name, ID (none when empty), platform and 3270
    // emulator.
    qint32 addApp(const QString& name, const QString& id = {}, qint32 platform = kPlatformWindows, qint32 emulator = 0);
    // Versions of `app` with their windows and processes (names as
    // physical and logical names, processes of type 1, map type 1).
    Built build(qint32 app, const std::vector<VersionSpec>& versions);
    qint32 addVersion(qint32 app, const VersionSpec& version) { return build(app, {version}).version; }
    qint32 addWindow(qint32 version, const QString& name);
    // A keyword of an application.
    qint32 addKeyword(qint32 app, const QString& name, const QVariant& description = u"d"_s) { return add(u"tKeyword"_s, {{u"iKeywordAppKey"_s, app}, {u"sKeywordName"_s, name}, {u"sKeywordDesc"_s, description}}); }
    // A version in an environment, run with a test tool and emulator.
    qint32 addDetail(qint32 environment, qint32 version, qint32 tool = 1, qint32 emulator = 0)
    {
        return add(u"tEnvironmentDetail"_s, {{u"iEnvironKey"_s, environment}, {u"iEnvironVerKey"_s, version},
                                             {u"iEnvironTestToolKey"_s, tool}, {u"iEnviron3270Key"_s, emulator}});
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    // Another program's connection to the database, for the tests that open it.
    Connection other;
    ScriptedMessages messages;
};

} // namespace dorvane::test
