#pragma once

#include "core/copyengine/VersionBackup.h"
#include "core/repository/Globals.h"
#include "core/repository/Schema.h"
#include "support/RepositoryTest.h"
#include "support/TestProgress.h"

#include <QDateTime>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace dorvane::test {

// A fresh repository per test, the copy engine on it, and helpers that
// write rows, read them back and compare whole databases.
class CopyEngineTest : public RepositoryTest {
protected:
    void SetUp() override
    {
        RepositoryTest::SetUp();
        backup = std::make_unique<VersionBackup>(messages, progress, db->connectionString(), &busy);
    }

    void TearDown() override
    {
        backup.reset();
        conn.Close();
    }

    static QString keyOf(const QString& table) { return FindTable(table)->key; }

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

    // A process's visit of a window of a version, run in an environment (0: none).
    qint32 addStepWindow(qint32 process, qint32 version, qint32 window, qint32 environment, int sequence = 1)
    {
        return add(u"tStepWindow"_s, {{u"iStepWindowProcessKey"_s, process}, {u"iStepWindowVerKey"_s, version}, {u"iStepWindowWindowKey"_s, window},
                                      {u"iStepWindowEnvironmentKey"_s, environment}, {u"iStepWindowSequenceNum"_s, sequence}});
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

    // What an environment's list holds, in the list's order: its versions,
    // or another column of its rows.
    std::vector<qint32> listed(qint32 environment, const QString& column = u"iEnvironVerKey"_s)
    {
        return ints(u"SELECT * FROM tEnvironmentDetail WHERE iEnvironKey=%1 ORDER BY iEnvironmentDetailKey"_s.arg(environment), column);
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
    // The messages shown so far, which are checked and gone.
    QStringList taken() { return std::exchange(messages.shown, QStringList()); }

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
        const QString text = messages.shown.value(0);
        EXPECT_TRUE(text.contains(u"boom"_s) && (prefix.endsWith(u' ') || text.mid(prefix.size(), 1) != u" "_s)) << text.toStdString();
        expectMessage(prefix);
    }

    RecordingProgress progress;
    RecordingBusy busy;
    std::unique_ptr<VersionBackup> backup;
};

} // namespace dorvane::test
