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
#include <functional>
#include <limits>

namespace dorvane {

namespace {

// Rows a block of JSON carries between the server and the file, either
// way: a few megabytes of text at the most, whatever the file's size.
constexpr int kRowsPerBlock = 5000;

void run(Connection& connection, const QString& sql)
{
    CheckInterruption();
    QSqlQuery query(connection.database());
    if (!query.exec(sql))
        throw connection.StatementFailure(query.lastError()).WithStatement(sql.left(300));
}

// Reads a table's rows in blocks of `rows` in key order, each block one
// JSON text that the statement `blockSql` gives for the last key read
// selects with its highest key and its count, and hands each to `write`.
void inJsonBlocks(Connection& source, qint64 rows, const std::function<QString(qint64)>& blockSql,
                  const std::function<void(const QString&)>& write)
{
    for (qint64 last = std::numeric_limits<qint64>::min();;) {
        CheckInterruption();
        const QString select = blockSql(last);
        QSqlQuery block(source.database());
        block.setForwardOnly(true);
        if (!block.exec(select) || !block.next())
            throw source.StatementFailure(block.lastError()).WithStatement(select);
        const qint64 read = block.value(2).toLongLong();
        if (read == 0)
            return;
        write(block.value(0).toString());
        last = block.value(1).toLongLong();
        if (read < rows)
            return;
    }
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
        // A block of rows crosses as one text, the JSON array of the rows'
        // arrays: SQLite writes it, the server takes it apart, each value
        // read as its column's type (a number, a text, a date's text).
        QStringList extracted, numbers;
        for (int i = 0; i < int(table.columns.size()); ++i) {
            const QString& column = table.columns[i];
            const ColumnType type = ColumnTypeOf(column);
            const QString value = QStringLiteral("(e.value ->> %1)").arg(i);
            extracted << (type == ColumnType::Integer || type == ColumnType::Boolean ? value + QStringLiteral("::integer")
                          : type == ColumnType::DateTime                              ? value + QStringLiteral("::timestamp")
                                                                                      : value);
            if (type == ColumnType::Integer)
                numbers << column;
        }
        const QString columns = table.columns.join(QStringLiteral(", "));
        const QString head = QStringLiteral("INSERT INTO %1 (%2) SELECT %3 FROM jsonb_array_elements(")
                                 .arg(staged, columns, extracted.join(QStringLiteral(", ")));
        // Names are the schema's own, never user text.
        inJsonBlocks(m_file, kRowsPerBlock,
                     [&](qint64 last) {
                         return QStringLiteral("SELECT json_group_array(json_array(%1)), MAX(%2), COUNT(*) FROM (SELECT %1 "
                                               "FROM %3 WHERE %2 > %4 ORDER BY %2 LIMIT %5)")
                             .arg(columns, table.key, table.name, QString::number(last))
                             .arg(kRowsPerBlock);
                     },
                     [&](QString rows) {
                         // The server's strings conform to the standard:
                         // doubled quotes are all a literal needs.
                         rows.replace(QLatin1Char('\''), QStringLiteral("''"));
                         run(m_repository, head + QLatin1Char('\'') + rows + QStringLiteral("'::jsonb) e"));
                     });
        // The copies join the staged rows by their keys: statistics of the
        // numbers are all the planner needs, and of the texts the costliest.
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
        const QString insertSql = QStringLiteral("INSERT INTO %1 (%2) SELECT %3 FROM json_each(?) j")
                                      .arg(table.name, columns, extracted.join(QStringLiteral(", ")));
        if (!insert.prepare(insertSql))
            throw m_file.StatementFailure(insert.lastError()).WithStatement(insertSql);
        inJsonBlocks(m_repository, kRowsPerBlock,
                     [&](qint64 last) {
                         return QStringLiteral("SELECT json_agg(json_build_array(%1) ORDER BY %2)::text, MAX(%2), COUNT(*) FROM "
                                               "(SELECT * FROM %3 WHERE %2 > %4 ORDER BY %2 LIMIT %5) b")
                             .arg(values.join(QStringLiteral(", ")), table.key, staged, QString::number(last))
                             .arg(kRowsPerBlock);
                     },
                     [&](const QString& rows) {
                         insert.bindValue(0, rows);
                         if (!insert.exec())
                             throw m_file.StatementFailure(insert.lastError()).WithStatement(insertSql).WithTable(table.name);
                     });
    }
}

} // namespace dorvane
