#pragma once

#include "core/copyengine/VersionBackup.h"
#include "core/repository/Connection.h"
#include "core/repository/Globals.h"
#include "core/repository/Installation.h"
#include "core/repository/Recordset.h"
#include "core/repository/Schema.h"
#include "support/TestProgress.h"
#include "support/TestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace dorvane::test {

using Values = std::vector<std::pair<QString, QVariant>>;

// The rows of one version, built in one call by CopyEngineTest::build.
struct Built {
    qint32 version = 0;
    std::map<QString, qint32> windows, objects, processes, stepWindows, steps;
};

// A fresh repository per test, the copy engine on it, and helpers that
// write rows, read them back and compare whole databases.
class CopyEngineTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, content()));
        backup = std::make_unique<VersionBackup>(messages, progress, db->connectionString(), &busy);
    }

    void TearDown() override
    {
        backup.reset();
        conn.Close();
    }

    virtual RepositoryContent content() const { return RepositoryContent::ReferenceData; }

    static QString keyOf(const QString& table) { return FindTable(table)->key; }

    // Adds a row and returns its key.
    qint32 add(const QString& table, const Values& values)
    {
        Recordset rs(u"SELECT * FROM %1 WHERE %2=0"_s.arg(table, keyOf(table)), conn);
        rs.AddNew();
        for (const auto& [column, value] : values)
            rs.SetValue(column, value);
        rs.Update();
        return rs.Int(keyOf(table));
    }

    // Adds a row with a distinct value in every column that `values` does
    // not set: numbers from 1000 up, texts naming their column, flags
    // true, dates in 2023.
    qint32 addFull(const QString& table, const Values& values)
    {
        const TableDef* def = FindTable(table);
        Values all = values;
        int n = 0;
        for (const QString& column : def->columns) {
            ++n;
            if (column == def->key || std::any_of(values.begin(), values.end(), [&](const auto& v) { return v.first.compare(column, Qt::CaseInsensitive) == 0; }))
                continue;
            const ColumnType type = ColumnTypeOf(column);
            all.emplace_back(column, type == ColumnType::Integer    ? QVariant(1000 + n)
                                     : type == ColumnType::Boolean  ? QVariant(-1)
                                     : type == ColumnType::DateTime ? QVariant(QDateTime(QDate(2023, 3, n % 28 + 1), QTime(10, n % 60, 5)))
                                                                    : QVariant(column + u" value"_s));
        }
        return add(table, all);
    }

    // One version of `app` in one call. `windows` maps a window's name to
    // the names of its objects; `processes` maps a process's name to the
    // windows it visits, one step window each (in that sequence) holding
    // one step on the window's first object. Step windows and steps are
    // named "process/window".
    Built build(qint32 app, const QString& id, const std::vector<std::pair<QString, QStringList>>& windows,
                const std::vector<std::pair<QString, QStringList>>& processes = {})
    {
        Built b;
        b.version = add(u"tVersion"_s, {{u"iVersionAppKey"_s, app}, {u"sVersionID"_s, id}});
        std::map<QString, qint32> firstObject;
        for (const auto& [name, objects] : windows) {
            const qint32 w = b.windows[name] = add(u"tWindow"_s, {{u"iWindowVerKey"_s, b.version}, {u"sWindowPhysicalName"_s, name}});
            for (const QString& object : objects)
                b.objects[object] = add(u"tObject"_s, {{u"iObjectWindowKey"_s, w}, {u"sObjectPhysicalName"_s, object}});
            firstObject[name] = objects.isEmpty() ? 0 : b.objects[objects.first()];
        }
        for (const auto& [name, visits] : processes) {
            const qint32 p = b.processes[name] = add(u"tProcess"_s, {{u"iProcessVerKey"_s, b.version}, {u"sProcessName"_s, name}});
            int sequence = 0;
            for (const QString& window : visits) {
                const QString at = name + u'/' + window;
                const qint32 sw = b.stepWindows[at] = add(u"tStepWindow"_s, {{u"iStepWindowProcessKey"_s, p},
                    {u"iStepWindowVerKey"_s, b.version}, {u"iStepWindowWindowKey"_s, b.windows[window]},
                    {u"iStepWindowSequenceNum"_s, ++sequence}});
                b.steps[at] = add(u"tStep"_s, {{u"iStepWindowKey"_s, sw}, {u"iStepSequenceNum"_s, 1},
                                               {u"iStepObjectKey"_s, firstObject[window]}});
            }
        }
        return b;
    }

    QVariant value(const QString& table, qint32 key, const QString& column)
    {
        Recordset rs(u"SELECT * FROM %1 WHERE %2=%3"_s.arg(table, keyOf(table)).arg(key), conn);
        if (rs.Eof())
            ADD_FAILURE() << "no row " << key << " in " << table.toStdString();
        return rs.Eof() ? QVariant() : rs.Value(column);
    }
    qint32 intValue(const QString& table, qint32 key, const QString& column) { return value(table, key, column).toInt(); }

    // The values of one column over the rows a statement selects, in order.
    std::vector<qint32> ints(const QString& sql, const QString& column)
    {
        std::vector<qint32> result;
        for (Recordset rs(sql, conn); !rs.Eof(); rs.MoveNext())
            result.push_back(rs.Int(column));
        return result;
    }
    // The key of the first row a statement selects, 0 when none.
    qint32 firstKey(const QString& sql)
    {
        Recordset rs(sql, conn);
        return rs.Eof() ? 0 : rs.Int(FindTable(rs.TableName())->key);
    }
    // The window of version `v` named `name`, 0 when none.
    qint32 windowOf(qint32 v, const QString& name)
    {
        return firstKey(u"SELECT * FROM tWindow WHERE iWindowVerKey=%1 AND sWindowPhysicalName='%2'"_s.arg(v).arg(QuoteSql(name)));
    }
    qint32 count(const QString& sql)
    {
        Recordset rs(sql, conn);
        return CountRecords(&rs);
    }

    // Checks a copied row column by column: `expected` names the columns
    // that take other values, `defaults` those left at their defaults;
    // every other column but the key holds the source row's value (Null
    // where it is Null).
    void expectCopy(const QString& table, qint32 source, qint32 copy, const std::map<QString, QVariant>& expected,
                    const QStringList& defaults = {})
    {
        const auto text = [](const QVariant& v) { return v.isValid() ? v.toString() : u"<null>"_s; };
        for (const QString& column : FindTable(table)->columns) {
            const auto it = expected.find(column);
            const QVariant got = value(table, copy, column);
            if (defaults.contains(column)) {
                EXPECT_EQ(got.toInt(), 0) << (table + u'.' + column).toStdString() << " is not copied";
            } else if (column != keyOf(table)) {
                EXPECT_EQ(text(got), text(it != expected.end() ? it->second : value(table, source, column))) << (table + u'.' + column).toStdString();
            }
        }
    }

    // Every row of every table, for before-and-after comparisons.
    QStringList dump() { return TableRows(conn); }
    // The messages shown, for a failure's description.
    std::string shown() const { return Shown(messages); }
    // The messages shown so far, which are checked and gone.
    QStringList taken() { return std::exchange(messages.shown, QStringList()); }

    // Makes every INSERT, UPDATE or DELETE (`event`) on a table fail.
    void abortOn(const QString& table, const QString& event)
    {
        const QString name = u"abort_%1_%2"_s.arg(table, event).toLower();
        if (db->isOdbc()) {
            conn.Execute(u"CREATE OR REPLACE FUNCTION dorvane_abort() RETURNS trigger LANGUAGE plpgsql AS "
                         "$$ BEGIN RAISE EXCEPTION 'boom'; END $$"_s);
            conn.Execute(u"CREATE TRIGGER %1 BEFORE %2 ON %3 FOR EACH ROW EXECUTE FUNCTION dorvane_abort()"_s.arg(name, event, table));
        } else {
            conn.Execute(u"CREATE TRIGGER %1 BEFORE %2 ON %3 BEGIN SELECT RAISE(ABORT, 'boom'); END"_s.arg(name, event, table));
        }
    }

    void dropAbort(const QString& table, const QString& event)
    {
        const QString name = u"abort_%1_%2"_s.arg(table, event).toLower();
        conn.Execute(db->isOdbc() ? u"DROP TRIGGER %1 ON %2"_s.arg(name, table) : u"DROP TRIGGER %1"_s.arg(name));
    }

    // The one message shown, starting with `prefix`; checked and gone.
    void expectMessage(const QString& prefix)
    {
        ASSERT_EQ(messages.shown.size(), 1) << shown();
        EXPECT_TRUE(messages.shown.first().startsWith(prefix)) << shown();
        messages.shown.clear();
    }

    // The one message shown, which must start with `prefix` followed
    // directly by the database's description of the aborted write.
    void expectFailure(const QString& prefix)
    {
        ASSERT_EQ(messages.shown.size(), 1) << shown();
        const QString text = messages.shown.first();
        EXPECT_TRUE(text.startsWith(prefix)) << text.toStdString();
        EXPECT_TRUE(text.contains(u"boom"_s)) << text.toStdString();
        if (!prefix.endsWith(u' ')) {
            EXPECT_NE(text.at(prefix.size()), u' ') << text.toStdString();
        }
        messages.shown.clear();
    }

    QString localSettings(const QString& file) const
    {
        return u"\"ActiveDB\"=\"Local\"\r\n\"IsLocalDatabase\"=dword:00000001\r\n\"LocalDatabasePath\"=\"%1\"\r\n\"LocalDatabaseName\"=\"%2\"\r\n"_s.arg(db->tempPath(), file);
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    ScriptedMessages messages;
    RecordingProgress progress;
    RecordingBusy busy;
    std::unique_ptr<VersionBackup> backup;
};

} // namespace dorvane::test
