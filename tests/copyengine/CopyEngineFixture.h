#pragma once

#include "copyengine/VersionBackup.h"
#include "repository/Connection.h"
#include "repository/Globals.h"
#include "repository/Installation.h"
#include "repository/Recordset.h"
#include "repository/Schema.h"
#include "startup/Registry.h"
#include "support/TestProgress.h"
#include "support/TestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace dorvane::test {

using Values = std::vector<std::pair<QString, QVariant>>;

// A fresh repository per test, the copy engine on it, and helpers that
// write rows, read them back and compare whole databases.
class CopyEngineTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        db = std::make_unique<TestDatabase>(GetParam());
        DB_ASSERT(conn.Open(db->connectionString()));
        DB_ASSERT(BuildDatabase(conn, SchemaVariant::Repository, content()));
        backup = std::make_unique<VersionBackup>(messages, progress, &busy);
    }

    void TearDown() override
    {
        backup.reset();
        conn.Close();
        SetSettingsFileOverride(QString());
    }

    virtual RepositoryContent content() const { return RepositoryContent::ReferenceData; }

    static QString keyOf(const QString& table) { return FindTable(table)->key; }

    // Adds a row and returns its key.
    qint32 add(const QString& table, const Values& values)
    {
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE %2=0").arg(table, keyOf(table)), conn);
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
            if (column == def->key)
                continue;
            bool given = false;
            for (const auto& v : values)
                given = given || v.first.compare(column, Qt::CaseInsensitive) == 0;
            if (given)
                continue;
            switch (ColumnTypeOf(column)) {
            case ColumnType::Integer: all.emplace_back(column, 1000 + n); break;
            case ColumnType::Boolean: all.emplace_back(column, -1); break;
            case ColumnType::DateTime:
                all.emplace_back(column, QDateTime(QDate(2023, 3, n % 28 + 1), QTime(10, n % 60, 5)));
                break;
            default: all.emplace_back(column, column + QStringLiteral(" value"));
            }
        }
        return add(table, all);
    }

    QVariant value(const QString& table, qint32 key, const QString& column)
    {
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE %2=%3").arg(table, keyOf(table)).arg(key), conn);
        if (rs.Eof()) {
            ADD_FAILURE() << "no row " << key << " in " << table.toStdString();
            return QVariant();
        }
        return rs.Value(column);
    }

    qint32 intValue(const QString& table, qint32 key, const QString& column)
    {
        return value(table, key, column).toInt();
    }

    // The values of one column over the rows a statement selects, in order.
    std::vector<qint32> ints(const QString& sql, const QString& column)
    {
        std::vector<qint32> result;
        Recordset rs(sql, conn);
        while (!rs.Eof()) {
            result.push_back(rs.Int(column));
            rs.MoveNext();
        }
        return result;
    }

    QStringList texts(const QString& sql, const QString& column)
    {
        QStringList result;
        Recordset rs(sql, conn);
        while (!rs.Eof()) {
            result << (rs.IsNull(column) ? QStringLiteral("<null>") : rs.Text(column));
            rs.MoveNext();
        }
        return result;
    }

    qint32 count(const QString& sql)
    {
        Recordset rs(sql, conn);
        return CountRecords(&rs);
    }

    // Checks a copied row column by column: `expected` names the columns
    // that take other values, `defaults` those left at their defaults;
    // every other column but the key holds the source row's value.
    void expectCopy(const QString& table, qint32 source, qint32 copy, const std::map<QString, QVariant>& expected,
                    const QStringList& defaults = {})
    {
        const TableDef* def = FindTable(table);
        for (const QString& column : def->columns) {
            if (column == def->key)
                continue;
            const QVariant got = value(table, copy, column);
            if (const auto it = expected.find(column); it != expected.end()) {
                EXPECT_EQ(got.toString(), it->second.toString()) << table.toStdString() << "." << column.toStdString();
            } else if (defaults.contains(column)) {
                EXPECT_EQ(got.toInt(), 0) << table.toStdString() << "." << column.toStdString() << " is not copied";
            } else {
                const QVariant was = value(table, source, column);
                EXPECT_EQ(got.isValid(), was.isValid()) << table.toStdString() << "." << column.toStdString();
                EXPECT_EQ(got.toString(), was.toString()) << table.toStdString() << "." << column.toStdString();
            }
        }
    }

    // Every row of every table, for before-and-after comparisons.
    QStringList dump()
    {
        QStringList rows;
        for (const TableDef& table : RepositoryTables()) {
            Recordset rs(QStringLiteral("SELECT * FROM %1 ORDER BY %2").arg(table.name, table.key), conn);
            const QStringList fields = rs.FieldNames();
            while (!rs.Eof()) {
                QStringList cells;
                for (const QString& field : fields)
                    cells << (rs.IsNull(field) ? QStringLiteral("<null>") : rs.Text(field));
                rows << table.name + QLatin1Char(':') + cells.join(QLatin1Char('|'));
                rs.MoveNext();
            }
        }
        return rows;
    }

    // Makes every INSERT, UPDATE or DELETE (`event`) on a table fail.
    void abortOn(const QString& table, const QString& event)
    {
        const QString name = QStringLiteral("abort_%1_%2").arg(table, event).toLower();
        if (db->isOdbc()) {
            conn.Execute(QStringLiteral("CREATE OR REPLACE FUNCTION dorvane_abort() RETURNS trigger LANGUAGE plpgsql AS "
                                        "$$ BEGIN RAISE EXCEPTION 'boom'; END $$"));
            conn.Execute(QStringLiteral("CREATE TRIGGER %1 BEFORE %2 ON %3 FOR EACH ROW EXECUTE FUNCTION dorvane_abort()")
                             .arg(name, event, table));
        } else {
            conn.Execute(QStringLiteral("CREATE TRIGGER %1 BEFORE %2 ON %3 BEGIN SELECT RAISE(ABORT, 'boom'); END")
                             .arg(name, event, table));
        }
    }

    void dropAbort(const QString& table, const QString& event)
    {
        const QString name = QStringLiteral("abort_%1_%2").arg(table, event).toLower();
        conn.Execute(db->isOdbc() ? QStringLiteral("DROP TRIGGER %1 ON %2").arg(name, table)
                                  : QStringLiteral("DROP TRIGGER %1").arg(name));
    }

    // The one message shown, which must start with `prefix` followed
    // directly by the database's description of the aborted write.
    void expectFailure(const QString& prefix)
    {
        ASSERT_EQ(messages.shown.size(), 1) << messages.shown.join(u'\n').toStdString();
        const QString text = messages.shown.first();
        EXPECT_TRUE(text.startsWith(prefix)) << text.toStdString();
        EXPECT_TRUE(text.contains(QStringLiteral("boom"))) << text.toStdString();
        if (!prefix.endsWith(QLatin1Char(' '))) {
            EXPECT_NE(text.at(prefix.size()), QLatin1Char(' ')) << text.toStdString();
        }
        messages.shown.clear();
    }

    // Points the settings at the test database, as OpenDestinationDatabase
    // reads them.
    void settingsForTestDatabase()
    {
        QString values;
        if (db->isOdbc()) {
            values = QStringLiteral("\"ActiveDB\"=\"Server\"\r\n\"IsLocalDatabase\"=dword:00000000\r\n"
                                    "\"ActiveDSN\"=\"%1\"\r\n")
                         .arg(TestDsn());
        } else {
            values = QStringLiteral("\"ActiveDB\"=\"Local\"\r\n\"IsLocalDatabase\"=dword:00000001\r\n"
                                    "\"LocalDatabasePath\"=\"%1\"\r\n\"LocalDatabaseName\"=\"Test.mdb\"\r\n")
                         .arg(db->tempPath());
        }
        writeSettings(values);
    }

    void writeSettings(const QString& values)
    {
        const QString path = QDir(db->tempPath()).filePath(QStringLiteral("zentrix.reg"));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("Windows Registry Editor Version 5.00\r\n\r\n"
                   "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bramlund\\Zentrix]\r\n");
        file.write(values.toUtf8());
        file.close();
        SetSettingsFileOverride(path);
    }

    std::unique_ptr<TestDatabase> db;
    Connection conn;
    ScriptedMessages messages;
    RecordingProgress progress;
    RecordingBusy busy;
    std::unique_ptr<VersionBackup> backup;
};

} // namespace dorvane::test
