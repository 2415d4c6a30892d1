#include "core/copyengine/FileStaging.h"

#include "core/copyengine/DatabaseCopy.h"
#include "core/repository/Connection.h"
#include "core/repository/Interruption.h"
#include "core/repository/Schema.h"
#include "core/repository/SchemaDdl.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <algorithm>
#include <limits>

namespace dorvane {

namespace {

// Rows per statement that fills a staging table, and per block read back.
constexpr int kRowsPerInsert = 1000;
constexpr int kRowsPerBlock = 10000;

// A value of the file as SQL text. Texts (dates among them) are quoted by
// doubling their quotes; the server's strings conform to the standard, so
// nothing else in them is special.
QString literal(const QVariant& value, ColumnType type)
{
    if (value.isNull())
        return QStringLiteral("NULL");
    if (type == ColumnType::Integer || type == ColumnType::Boolean)
        return QString::number(value.toLongLong());
    QString text = value.toString();
    text.replace(QLatin1Char('\''), QStringLiteral("''"));
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

void run(Connection& connection, const QString& sql)
{
    CheckInterruption();
    QSqlQuery query(connection.database());
    if (!query.exec(sql))
        throw connection.StatementFailure(query.lastError()).WithStatement(sql.left(300));
}

} // namespace

FileStaging::FileStaging(Connection& repository, Connection& file) : m_repository(repository), m_file(file)
{
    for (const TableDef& table : RepositoryTables()) {
        const QStringList columns = m_file.TableColumns(table.name);
        if (!columns.isEmpty())
            m_tables.push_back({table.name, table.key, columns});
    }
}

void FileStaging::Create()
{
    m_repository.SendHeldWrites();
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        QStringList columns;
        for (const QString& column : table.columns) {
            columns << column + u' ' +
                           (column.compare(table.key, Qt::CaseInsensitive) == 0
                                ? QStringLiteral("integer PRIMARY KEY")
                                : ColumnTypeSql(m_repository.backend(), column));
        }
        run(m_repository, QStringLiteral("DROP TABLE IF EXISTS ") + staged);
        run(m_repository, QStringLiteral("CREATE TEMP TABLE %1 (%2)").arg(staged, columns.join(QStringLiteral(", "))));
        for (const RepositoryIndex& index : RepositoryIndexes()) {
            if (index.table.compare(table.name, Qt::CaseInsensitive) != 0)
                continue;
            bool present = true;
            for (const QString& column : index.columns)
                present = present && table.columns.contains(column, Qt::CaseInsensitive);
            if (present)
                run(m_repository, QStringLiteral("CREATE INDEX dv_file_%1 ON %2 (%3)")
                                      .arg(index.name, staged, index.columns.join(QStringLiteral(", "))));
        }
    }
}

void FileStaging::Load()
{
    Create();
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        std::vector<ColumnType> types;
        for (const QString& column : table.columns)
            types.push_back(ColumnTypeOf(column));
        const QString head =
            QStringLiteral("INSERT INTO %1 (%2) VALUES ").arg(staged, table.columns.join(QStringLiteral(", ")));

        QSqlQuery rows(m_file.database());
        rows.setForwardOnly(true);
        // Names are the schema's own, never user text.
        const QString select =
            QStringLiteral("SELECT %1 FROM %2 ORDER BY %3").arg(table.columns.join(QStringLiteral(", ")), table.name, table.key);
        if (!rows.exec(select))
            throw m_file.StatementFailure(rows.lastError()).WithStatement(select);
        QString values;
        int held = 0;
        const auto send = [&] {
            if (held > 0)
                run(m_repository, head + values);
            values.clear();
            held = 0;
        };
        while (rows.next()) {
            values += held == 0 ? QStringLiteral("(") : QStringLiteral(",(");
            for (int i = 0; i < int(types.size()); ++i) {
                if (i > 0)
                    values += u',';
                values += literal(rows.value(i), types[size_t(i)]);
            }
            values += u')';
            if (++held == kRowsPerInsert)
                send();
        }
        send();
        // The copies join the staged rows by their keys: statistics of the
        // numbers are all the planner needs, and of the texts the costliest.
        QStringList numbers;
        for (int i = 0; i < int(types.size()); ++i) {
            if (types[size_t(i)] == ColumnType::Integer)
                numbers << table.columns[i];
        }
        run(m_repository, QStringLiteral("ANALYZE %1 (%2)").arg(staged, numbers.join(QStringLiteral(", "))));
    }
}

void FileStaging::Save()
{
    m_repository.SendHeldWrites();
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        // A block of rows crosses as one text, the JSON array of the rows'
        // arrays: the server writes it, SQLite takes it apart. Each value
        // keeps its type (numbers, texts, NULL); a date is written as the
        // text a row-by-row copy would have written, to the millisecond.
        QStringList values, extracted;
        for (int i = 0; i < int(table.columns.size()); ++i) {
            const QString& column = table.columns[i];
            values << (ColumnTypeOf(column) == ColumnType::DateTime
                           ? QStringLiteral("to_char(%1, 'YYYY-MM-DD\"T\"HH24:MI:SS.MS')").arg(column)
                           : column);
            extracted << QStringLiteral("json_extract(j.value, '$[%1]')").arg(i);
        }
        const QString columns = table.columns.join(QStringLiteral(", "));
        QSqlQuery insert(m_file.database());
        const QString insertSql = QStringLiteral("INSERT INTO %1 (%2) SELECT %3 FROM json_each(?) j ORDER BY j.key")
                                      .arg(table.name, columns, extracted.join(QStringLiteral(", ")));
        if (!insert.prepare(insertSql))
            throw m_file.StatementFailure(insert.lastError()).WithStatement(insertSql);
        qint64 last = std::numeric_limits<qint64>::min();
        for (;;) {
            CheckInterruption();
            const QString select =
                QStringLiteral("SELECT json_agg(json_build_array(%1) ORDER BY %2)::text, MAX(%2), COUNT(*) FROM (SELECT * "
                               "FROM %3 WHERE %2 > %4 ORDER BY %2 LIMIT %5) b")
                    .arg(values.join(QStringLiteral(", ")), table.key, staged, QString::number(last))
                    .arg(kRowsPerBlock);
            QSqlQuery block(m_repository.database());
            block.setForwardOnly(true);
            if (!block.exec(select) || !block.next())
                throw m_repository.StatementFailure(block.lastError()).WithStatement(select);
            const qint64 read = block.value(2).toLongLong();
            if (read == 0)
                break;
            insert.bindValue(0, block.value(0).toString());
            if (!insert.exec())
                throw m_file.StatementFailure(insert.lastError()).WithStatement(insertSql).WithTable(table.name);
            last = block.value(1).toLongLong();
            if (read < kRowsPerBlock)
                break;
        }
    }
}

} // namespace dorvane
