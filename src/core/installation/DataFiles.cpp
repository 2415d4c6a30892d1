#include "core/installation/DataFiles.h"

#include "core/applications/ApplicationRecords.h"
#include "core/applications/SystemScreen.h"
#include "core/repository/Connection.h"
#include "core/repository/Recordset.h"
#include "core/repository/Schema.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <limits>
#include <set>

// Outside any namespace, as Q_INIT_RESOURCE must be: a program links the
// resources of the static dorvane_core only when something refers to them.
static void InitDataResources() { Q_INIT_RESOURCE(dorvane_data); }

namespace dorvane {

namespace {

const QString kTimeFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");
const QStringList kSystemScreenColumns = {QStringLiteral("iVersionKey"), QStringLiteral("iWindowKey"),
                                          QStringLiteral("iObjectKey")};

class DataFile {
public:
    DataFile(Connection& connection, const QString& path) : m_connection(connection), m_where(path) {}

    void Load()
    {
        QFile file(m_where);
        if (!file.open(QIODevice::ReadOnly))
            fail(QStringLiteral("not readable: ") + file.errorString());
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
        if (error.error != QJsonParseError::NoError)
            fail(QStringLiteral("not JSON (%1 at offset %2)").arg(error.errorString()).arg(error.offset));
        const QJsonObject top = document.object();
        if (!top.value(QStringLiteral("sections")).isArray())
            fail(QStringLiteral("not an object with a list of sections"));
        expectKeys(top, {QStringLiteral("about"), QStringLiteral("sections")});
        const QJsonArray sections = top.value(QStringLiteral("sections")).toArray();
        for (qsizetype i = 0; i < sections.size(); ++i) {
            const QJsonObject section = sections.at(i).toObject();
            const QString table = section.value(QStringLiteral("table")).toString();
            const QString program = section.value(QStringLiteral("program")).toString();
            const QString file = m_where;
            m_where += QStringLiteral(", section %1 (%2)").arg(i + 1).arg(table + program);
            expectKeys(section, {QStringLiteral("note"), QStringLiteral("columns"), QStringLiteral("rows"),
                                 table.isEmpty() ? QStringLiteral("program") : QStringLiteral("table")});
            if (!section.value(QStringLiteral("columns")).isArray() || !section.value(QStringLiteral("rows")).isArray())
                fail(QStringLiteral("a section needs its columns and its rows"));
            const QStringList columns = section.value(QStringLiteral("columns")).toVariant().toStringList();
            const QJsonArray rows = section.value(QStringLiteral("rows")).toArray();
            if (program == QLatin1String("CreateSystemScreen") && columns == kSystemScreenColumns)
                systemScreens(rows);
            else if (const TableDef* def = FindTable(table); def && def->name == table)
                tableRows(*def, columns, rows);
            else
                fail(QStringLiteral("neither a table of the schema nor CreateSystemScreen with the columns ") +
                     kSystemScreenColumns.join(QStringLiteral(", ")));
            m_where = file;
        }
        movePastKeys();
    }

private:
    [[noreturn]] void fail(const QString& problem) const
    {
        throw DbError(QStringLiteral("The data file %1: %2.").arg(m_where, problem));
    }

    void expectKeys(const QJsonObject& object, const QStringList& known) const
    {
        for (const QString& key : object.keys()) {
            if (!known.contains(key))
                fail(QStringLiteral("\"%1\" is none of %2").arg(key, known.join(QStringLiteral(", "))));
        }
    }

    QJsonArray row(const QJsonArray& rows, qsizetype i, qsizetype columns) const
    {
        const QJsonArray values = rows.at(i).toArray();
        if (values.size() != columns)
            fail(QStringLiteral("row %1 has %2 values for %3 columns").arg(i + 1).arg(values.size()).arg(columns));
        return values;
    }

    // A value of the file as its column stores it, as the program assigns it.
    QVariant value(const QJsonValue& v, const QString& column, qsizetype rowIndex) const
    {
        if (v.isNull())
            return QVariant();
        const QVariant given = v.toVariant();
        QString expected;
        switch (ColumnTypeOf(column)) {
        case ColumnType::Integer:
            if (given.typeId() == QMetaType::LongLong && given.toLongLong() >= std::numeric_limits<qint32>::min() &&
                given.toLongLong() <= std::numeric_limits<qint32>::max())
                return QVariant(qint32(given.toLongLong()));
            expected = QStringLiteral("a whole number");
            break;
        case ColumnType::Boolean:
            if (v.isBool())
                return QVariant(qint32(v.toBool() ? -1 : 0));
            expected = QStringLiteral("true or false");
            break;
        case ColumnType::Text:
        case ColumnType::Memo:
            if (v.isString())
                return v.toString();
            expected = QStringLiteral("a text");
            break;
        case ColumnType::DateTime:
            if (const QDateTime time = QDateTime::fromString(v.toString(), kTimeFormat);
                time.isValid() && time.toString(kTimeFormat) == v.toString())
                return time;
            expected = QStringLiteral("a time written ") + kTimeFormat;
            break;
        }
        const QByteArray json = QJsonDocument(QJsonArray{v}).toJson(QJsonDocument::Compact);
        fail(QStringLiteral("row %1, column %2: %3 is not %4 or null")
                 .arg(rowIndex + 1)
                 .arg(column, QString::fromUtf8(json.mid(1, json.size() - 2)), expected));
    }

    void tableRows(const TableDef& table, const QStringList& columns, const QJsonArray& rows)
    {
        if (!columns.contains(table.key))
            fail(QStringLiteral("no column %1: every row needs its key").arg(table.key));
        for (const QString& column : columns) {
            if (!table.columns.contains(column) || columns.count(column) > 1)
                fail(QStringLiteral("the table has no column %1, or the section names it twice").arg(column));
        }
        // Only added to, so the selection is never read.
        Recordset rs(QStringLiteral("SELECT * FROM %1 WHERE 1=0").arg(table.name), m_connection);
        for (qsizetype i = 0; i < rows.size(); ++i) {
            const QJsonArray values = row(rows, i, columns.size());
            rs.AddNew();
            for (qsizetype c = 0; c < columns.size(); ++c) {
                const QVariant v = value(values.at(c), columns.at(c), i);
                if (!v.isValid() && columns.at(c) == table.key)
                    fail(QStringLiteral("row %1 has no key").arg(i + 1));
                rs.SetValue(columns.at(c), v);
            }
            rs.Update();
        }
        m_written.insert(table.name);
    }

    // Each version's "[System Screen]" window and "[System]" object, made
    // as the version editor makes them, receiving the keys the file names.
    void systemScreens(const QJsonArray& rows)
    {
        for (qsizetype i = 0; i < rows.size(); ++i) {
            const QJsonArray values = row(rows, i, kSystemScreenColumns.size());
            qint32 keys[3];
            for (int c = 0; c < 3; ++c) {
                keys[c] = value(values.at(c), kSystemScreenColumns.at(c), i).toInt();
                if (keys[c] <= 0)
                    fail(QStringLiteral("row %1 has no %2").arg(i + 1).arg(kSystemScreenColumns.at(c)));
            }
            const auto [version, window, object] = keys;
            Recordset app(QStringLiteral("SELECT a.iAppPlatform FROM tApp a, tVersion v WHERE a.iAppKey = v.iVersionAppKey "
                                         "AND v.iVersionKey = %1")
                              .arg(version),
                          m_connection);
            if (app.Eof())
                fail(QStringLiteral("row %1: version %2 has no application").arg(i + 1).arg(version));
            const qint32 platform = app.Int(QStringLiteral("iAppPlatform"));
            setNextKey(*FindTable(QStringLiteral("tWindow")), window);
            setNextKey(*FindTable(QStringLiteral("tObject")), object);
            CreateSystemScreen(m_connection, version, PlatformIsHost(m_connection, platform), platform);
            Recordset made(QStringLiteral("SELECT w.iWindowKey, o.iObjectKey FROM tWindow w, tObject o WHERE o.iObjectWindowKey = "
                                          "w.iWindowKey AND w.iWindowVerKey = %1 AND w.sWindowPhysicalName = '[System Screen]'")
                               .arg(version),
                           m_connection);
            if (made.Eof() || made.Int(QStringLiteral("iWindowKey")) != window || made.Int(QStringLiteral("iObjectKey")) != object)
                fail(QStringLiteral("row %1: the system screen of version %2 did not receive window %3 and object %4")
                         .arg(i + 1)
                         .arg(version)
                         .arg(window)
                         .arg(object));
        }
        m_written.insert(QStringLiteral("tWindow"));
        m_written.insert(QStringLiteral("tObject"));
    }

    // The next key the table hands out by itself becomes `key`; it must be
    // above the highest key in the table (SQLite takes the higher of the two).
    void setNextKey(const TableDef& table, qint32 key)
    {
        if (m_connection.backend() == BackendKind::Sqlite) {
            if (m_connection.Execute(QStringLiteral("UPDATE sqlite_sequence SET seq = %1 WHERE name = '%2'").arg(key - 1).arg(table.name)) == 0)
                m_connection.Execute(QStringLiteral("INSERT INTO sqlite_sequence (name, seq) VALUES ('%1', %2)").arg(table.name).arg(key - 1));
        } else {
            m_connection.Execute(QStringLiteral("SELECT setval(pg_get_serial_sequence('%1', '%2'), %3, false)")
                                     .arg(table.name, table.key.toLower())
                                     .arg(key));
        }
    }

    // On PostgreSQL explicit keys leave a table's identity sequence where
    // it was: it moves to the highest key, unless it is past it already.
    // SQLite's AUTOINCREMENT follows explicit keys by itself.
    void movePastKeys()
    {
        if (m_connection.backend() == BackendKind::Sqlite)
            return;
        for (const QString& name : m_written) {
            const TableDef& table = *FindTable(name);
            m_connection.Execute(QStringLiteral("SELECT setval(s, GREATEST(m, COALESCE(pg_sequence_last_value(s), 0))) FROM "
                                                "(SELECT CAST(pg_get_serial_sequence('%1', '%2') AS regclass) AS s, MAX(%3) AS m "
                                                "FROM %1) top WHERE m > 0")
                                     .arg(table.name, table.key.toLower(), table.key));
        }
    }

    Connection& m_connection;
    QString m_where;
    std::set<QString> m_written;
};

} // namespace

void LoadDataFile(Connection& connection, const QString& path)
{
    InitDataResources();
    DataFile(connection, path).Load();
}

} // namespace dorvane
