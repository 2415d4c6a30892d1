#include "core/copyengine/FileStaging.h"

#include "core/copyengine/DatabaseCopy.h"
#include "core/copyengine/StepArguments.h"
#include "core/repository/Connection.h"
#include "core/repository/Interruption.h"
#include "core/repository/Schema.h"
#include "core/repository/SchemaDdl.h"
#include "core/repository/sqlite/SqliteStatements.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>

namespace dorvane {

namespace {

// Rows a block carries between the server and the file, either
// way: a few megabytes of text at the most, whatever the file's size.
constexpr int kRowsPerBlock = 5000;

void run(Connection& connection, const QString& sql)
{
    CheckInterruption();
    QSqlQuery query(connection.database());
    if (!query.exec(sql))
        throw connection.StatementFailure(query.lastError()).WithStatement(sql.left(300));
}

// One block of a table's rows on its way: its texts (the rows' JSON, or an
// array of each column's values), the highest key it holds and how many
// rows.
struct Block {
    QStringList rows;
    qint64 last = 0;
    qint64 count = 0;
};

// The hand-over of blocks from the thread that reads them to the thread
// that writes them, a block ahead at the most: the client never holds more
// than three.
class BlockQueue {
public:
    // False once the writer has stopped: there is no point in reading on.
    bool Push(Block block)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_stopped || !m_waiting.has_value(); });
        if (m_stopped)
            return false;
        m_waiting = std::move(block);
        m_changed.notify_all();
        return true;
    }
    // The next block; none once the reader has ended (or either stopped).
    std::optional<Block> Pop()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_stopped || m_ended || m_waiting.has_value(); });
        if (m_stopped || !m_waiting)
            return std::nullopt;
        std::optional<Block> block = std::exchange(m_waiting, std::nullopt);
        m_changed.notify_all();
        return block;
    }
    // The reader has read every block.
    void End()
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        m_changed.notify_all();
    }
    // A side failed: the other leaves off at its next block.
    void Stop()
    {
        const std::lock_guard lock(m_mutex);
        m_stopped = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<Block> m_waiting;
    bool m_ended = false;
    bool m_stopped = false;
};

// Carries a table's rows in key order, a block at a time: `read` gives the
// block after a key, `write` takes it. The next block is read while the
// last is written, on two threads: the side of the file runs on a thread of
// its own, through SQLite's own interface (the repository's connection
// stays on the thread that opened it), so that the client's work and the
// server's overlap. A failure on either side stops both and is thrown
// here.
void crossInBlocks(const std::function<Block(qint64)>& read, const std::function<void(const Block&)>& write,
                   bool readOnWorker)
{
    BlockQueue queue;
    const auto produce = [&] {
        for (qint64 last = std::numeric_limits<qint64>::min();;) {
            Block block = read(last);
            const qint64 count = block.count;
            last = block.last;
            if (count == 0 || !queue.Push(std::move(block)) || count < kRowsPerBlock)
                break;
        }
        queue.End();
    };
    const auto consume = [&] {
        while (std::optional<Block> block = queue.Pop())
            write(*block);
    };
    std::exception_ptr workerFailure;
    std::thread worker([&] {
        try {
            readOnWorker ? produce() : consume();
        } catch (...) {
            workerFailure = std::current_exception();
            queue.Stop();
        }
    });
    try {
        readOnWorker ? consume() : produce();
    } catch (...) {
        queue.Stop();
        worker.join();
        throw;
    }
    worker.join();
    if (workerFailure) {
        // SQLite stops a statement when an interruption is asked for: the
        // interruption, not the stopped statement, is what happened.
        CheckInterruption();
        std::rethrow_exception(workerFailure);
    }
}

// A block of a table of the repository's, read by the statement `sql`
// (the rows' JSON, the highest key, the count).
Block serverBlock(Connection& repository, const QString& sql)
{
    CheckInterruption();
    QSqlQuery query(repository.database());
    query.setForwardOnly(true);
    if (!query.exec(sql) || !query.next())
        throw repository.StatementFailure(query.lastError()).WithStatement(sql);
    return {{query.value(0).toString()}, query.value(1).toLongLong(), query.value(2).toLongLong()};
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
    createTables();
    createIndexes();
}

void FileStaging::createTables()
{
    m_repository.SendHeldWrites();
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        QStringList columns;
        for (const QString& column : table.columns) {
            columns << column + u' ' +
                           (column.compare(table.key, Qt::CaseInsensitive) == 0 ? QStringLiteral("integer")
                                                                                 : ColumnTypeSql(m_repository.backend(), column));
        }
        run(m_repository, QStringLiteral("DROP TABLE IF EXISTS ") + staged);
        run(m_repository, QStringLiteral("CREATE TEMP TABLE %1 (%2)").arg(staged, columns.join(QStringLiteral(", "))));
    }
}

void FileStaging::createIndexes()
{
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        run(m_repository, QStringLiteral("ALTER TABLE %1 ADD PRIMARY KEY (%2)").arg(staged, table.key));
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
    // The keys and indexes are built once the rows are in: a build sorts
    // the rows once, where each block of rows added to an index searches
    // it row by row (at a million rows the server took 1.9 s to load the
    // steps into their indexes, 1.1 s without them and 0.4 s to build them).
    createTables();
    QStringList analyses;
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        // A block of rows crosses as one array per column, in the server's
        // text form ({1,NULL,3}, {"a\\"b",NULL}), each bound to a parameter
        // of one INSERT that unnests them side by side, each read as its
        // column's type (a number, a text, a date's text). The server reads
        // arrays faster than JSON, and the driver passes parameters on
        // without reading them.
        QStringList arrays, unnested, analysed;
        for (const QString& column : table.columns) {
            const ColumnType type = ColumnTypeOf(column);
            const bool integral = type == ColumnType::Integer || type == ColumnType::Boolean;
            arrays << QStringLiteral("'{' || group_concat(%1, ',') || '}'")
                          .arg(integral ? QStringLiteral("COALESCE(%1, 'NULL')").arg(column)
                                        : QStringLiteral("CASE WHEN %1 IS NULL THEN 'NULL' ELSE '\"' || "
                                                         "replace(replace(%1, '\\', '\\\\'), '\"', '\\\"') || '\"' END")
                                              .arg(column));
            unnested << (integral                        ? QStringLiteral("?::integer[]")
                         : type == ColumnType::DateTime ? QStringLiteral("?::timestamp[]")
                                                        : QStringLiteral("?::text[]"));
            if (type == ColumnType::Integer || column.compare(QLatin1String(kStepArgumentsColumn), Qt::CaseInsensitive) == 0)
                analysed << column;
        }
        const QString columns = table.columns.join(QStringLiteral(", "));
        const QString insertSql = QStringLiteral("INSERT INTO %1 (%2) SELECT * FROM unnest(%3)")
                                      .arg(staged, columns, unnested.join(QStringLiteral(", ")));
        // Names are the schema's own, never user text.
        const QString blockSql = QStringLiteral("SELECT MAX(%2), COUNT(*), %5 FROM (SELECT %1 FROM %3 WHERE %2 > ? "
                                                "ORDER BY %2 LIMIT %4)")
                                     .arg(columns, table.key, table.name)
                                     .arg(kRowsPerBlock)
                                     .arg(arrays.join(QStringLiteral(", ")));
        QSqlQuery insert(m_repository.database());
        if (!insert.prepare(insertSql))
            throw m_repository.StatementFailure(insert.lastError()).WithStatement(insertSql);
        SqliteStatements& file = *m_file.sqliteStatements();
        sqlite3_stmt* const select = file.Statement(blockSql);
        crossInBlocks(
            [&](qint64 last) {
                SqliteRun block(file, select);
                block.Bind(1, last);
                if (!block.Step())
                    return Block{};
                QStringList rows;
                for (int i = 0; i < int(table.columns.size()); ++i)
                    rows << block.Column(i + 2).toString();
                return Block{rows, block.Column(0).toLongLong(), block.Column(1).toLongLong()};
            },
            [&](const Block& block) {
                CheckInterruption();
                for (int i = 0; i < int(block.rows.size()); ++i)
                    insert.bindValue(i, block.rows[i]);
                if (!insert.exec())
                    throw m_repository.StatementFailure(insert.lastError()).WithStatement(insertSql);
            },
            true);
        // The copies join the staged rows by their keys: statistics of the
        // numbers are what the planner needs (those of the texts cost the
        // most). The steps' arguments are the exception: their rewrite is
        // memoized by the text only where the planner knows how often texts
        // repeat.
        analyses << QStringLiteral("ANALYZE %1 (%2)").arg(staged, analysed.join(QStringLiteral(", ")));
    }
    createIndexes();
    for (const QString& analysis : analyses)
        run(m_repository, analysis);
}

void FileStaging::Save()
{
    m_repository.SendHeldWrites();
    for (const Table& table : m_tables) {
        const QString staged = DatabaseCopy::TableOn(m_repository, DatabaseCopy::Side::File, table.name);
        // A block of rows crosses as one text, the JSON array of the rows'
        // arrays: the server writes it, the file inserts its rows. Each value
        // keeps its type (numbers, texts, NULL); a date is written as the
        // text a row-by-row copy would have written, to the millisecond.
        QStringList values;
        for (const QString& column : table.columns) {
            const ColumnType type = ColumnTypeOf(column);
            values << QStringLiteral("COALESCE(%1, 'null')")
                          .arg(type == ColumnType::DateTime
                                   ? QStringLiteral("to_json(to_char(%1, 'YYYY-MM-DD\"T\"HH24:MI:SS.MS'))::text").arg(column)
                               : type == ColumnType::Integer || type == ColumnType::Boolean
                                   ? column + QStringLiteral("::text")
                                   : QStringLiteral("to_json(%1::text)::text").arg(column));
        }
        const QString columns = table.columns.join(QStringLiteral(", "));
        const QString insertHead = QStringLiteral("INSERT INTO %1 (%2) VALUES ").arg(table.name, columns);
        SqliteStatements& file = *m_file.sqliteStatements();
        crossInBlocks(
            [&](qint64 last) {
                return serverBlock(m_repository,
                                   QStringLiteral("SELECT '[' || string_agg('[' || %1 || ']', ',' ORDER BY %2) || ']', MAX(%2), "
                                                  "COUNT(*) FROM (SELECT * FROM %3 WHERE %2 > %4 ORDER BY %2 LIMIT %5) b")
                                       .arg(values.join(QStringLiteral(" || ',' || ")), table.key, staged, QString::number(last))
                                       .arg(kRowsPerBlock));
            },
            [&](const Block& block) {
                try {
                    InsertJsonRows(file, insertHead, int(table.columns.size()), block.rows.first(), block.count);
                } catch (DbError& e) {
                    throw std::move(e.WithStatement(insertHead).WithTable(table.name));
                }
            },
            false);
    }
}

} // namespace dorvane
