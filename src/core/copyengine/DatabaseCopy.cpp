#include "core/copyengine/DatabaseCopy.h"

#include "core/repository/Connection.h"
#include "core/repository/DbError.h"
#include "core/repository/Dialect.h"
#include "core/repository/History.h"

#include <QSqlError>
#include <QSqlQuery>

namespace dorvane {

namespace {

bool isSqlite(Connection& db) { return db.backend() == BackendKind::Sqlite; }

} // namespace

QString DatabaseCopy::TableOn(const Connection& connection, Side side, const QString& table)
{
    if (connection.backend() == BackendKind::Sqlite)
        return (side == Side::File ? QStringLiteral("dv_file.") : QStringLiteral("main.")) + table;
    // PostgreSQL finds temporary tables first by the unqualified name.
    return side == Side::File ? QStringLiteral("dv_file_") + table : table;
}

QString DatabaseCopy::ExactlyEqual(const QString& a, const QString& b) const
{
    return isSqlite(m_db) ? QStringLiteral("%1 = %2 COLLATE BINARY").arg(a, b)
                          : QStringLiteral("%1::text = %2::text").arg(a, b);
}

qint64 DatabaseCopy::Scalar(const QString& sql)
{
    m_db.SendHeldWrites();
    QSqlQuery q(m_db.database());
    q.setForwardOnly(true);
    if (!q.exec(sql))
        throw m_db.StatementFailure(q.lastError()).WithStatement(sql);
    return q.next() ? q.value(0).toLongLong() : 0;
}

QStringList DatabaseCopy::Kept(const QStringList& columns)
{
    QStringList values;
    for (const QString& column : columns)
        values << QStringLiteral("s.") + column;
    return values;
}

QString DatabaseCopy::Lookup(const QString& map, const QString& column)
{
    return QStringLiteral("(SELECT m.new FROM %1 m WHERE m.old = %2)").arg(map, column);
}

QString DatabaseCopy::Batch(const QString& table) const
{
    // PostgreSQL finds temporary tables first by the unqualified name.
    return (isSqlite(m_db) ? QStringLiteral("temp.dv_batch_") : QStringLiteral("dv_batch_")) + table;
}

void DatabaseCopy::prepareBatch(const QString& table)
{
    // Made again after a rollback, which takes a temporary table made in
    // its transaction with it on PostgreSQL. Not through Execute: a
    // temporary table changes nothing the data layer knows of the
    // repository's tables, and the rows it holds back stay held.
    // On SQLite the position is the rowid, which blocks of positions
    // search. PostgreSQL copies a table in one block, and there an index
    // of the positions only costs (a batch of 48,000 objects took 100 ms
    // to write with it, 60 ms without).
    const QString batch = Batch(table);
    Run(QStringLiteral("CREATE TEMP TABLE IF NOT EXISTS dv_batch_%1 (pos integer %2, old integer NOT NULL, new integer NOT NULL, "
                       "parent integer)")
            .arg(table, isSqlite(m_db) ? QStringLiteral("PRIMARY KEY") : QStringLiteral("NOT NULL")));
    m_db.Execute(QStringLiteral("DELETE FROM ") + batch);
}

qint64 DatabaseCopy::counted(const QString& batch, qint64 rows)
{
    // PostgreSQL plans the joins of a batch by what it knows of it: without
    // its statistics a batch of a few rows may be read against a whole
    // table, block after block.
    if (!isSqlite(m_db))
        Run(QStringLiteral("ANALYZE ") + batch);
    return rows;
}

QString DatabaseCopy::nextKey(const QString& table, const QString& key)
{
    // The sequence is named: a call of pg_get_serial_sequence in the
    // statement would be made again for every row.
    QString sequence = m_db.KeySequence(table, key);
    if (sequence.isEmpty())
        throw DbError(QStringLiteral("The table %1 has no key sequence.").arg(table));
    return QStringLiteral("nextval('%1'::regclass)").arg(sequence.replace(QLatin1Char('\''), QStringLiteral("''")));
}

qint64 DatabaseCopy::Choose(const QString& table, const QString& key, const QString& from, const QString& order,
                            const QString& parent)
{
    prepareBatch(table);
    const QString batch = Batch(table);
    QString newKey;
    if (isSqlite(m_db) || m_destination == Side::File) {
        // The highest key ever handed out: AUTOINCREMENT goes on from there.
        const QString destination = Destination(table);
        QString highest = QStringLiteral("SELECT MAX(%1) AS k FROM %2").arg(key, destination);
        if (isSqlite(m_db))
            highest += QStringLiteral(" UNION ALL SELECT seq FROM %1sqlite_sequence WHERE name = '%2' COLLATE NOCASE")
                           .arg(destination.section(QLatin1Char('.'), 0, 0) + QLatin1Char('.'), table);
        newKey = QStringLiteral("COALESCE((SELECT MAX(k) FROM (%1) h), 0) + ROW_NUMBER() OVER (ORDER BY %2)").arg(highest, order);
    } else {
        // The sequence is read after the rows are sorted (a volatile
        // function of the select list is evaluated after ORDER BY), so that
        // keys ascend with the position.
        newKey = nextKey(table, key);
    }
    return counted(batch, m_db.Execute(QStringLiteral("INSERT INTO %1 (pos, old, new, parent) SELECT ROW_NUMBER() OVER (ORDER BY %3), "
                                                      "s.%2, %4, %5 FROM %6 ORDER BY %3")
                                           .arg(batch, key, order, newKey,
                                                parent.isEmpty() ? QStringLiteral("NULL") : parent, from)));
}

void DatabaseCopy::Insert(const QString& table, const QString& key, const QStringList& columns, const QStringList& values,
                     const QString& joins)
{
    // With nothing else joined, the batch is read in position order and
    // each source row fetched in that order through the key's index, so
    // that the rows need no sort afterwards: sorted whole, a version's
    // objects outgrew the session's sort memory at 10M rows and went
    // through temporary files.
    const bool throughIndex = readsThroughIndex(table, key);
    const QString batch = throughIndex && joins.isEmpty()
                              ? QStringLiteral("(SELECT * FROM %1 ORDER BY pos OFFSET 0)").arg(Batch(table))
                              : Batch(table);
    const QString from = joined(throughIndex, table, key, batch, QStringLiteral("b"));
    CountWrittenRows(m_db.Execute(QStringLiteral("INSERT INTO %1 (%2, %3) SELECT b.new, %4 FROM %5 %6 ORDER BY b.pos")
                                      .arg(Destination(table), key, columns.join(QStringLiteral(", ")),
                                           values.join(QStringLiteral(", ")), from, joins)));
}

qint64 DatabaseCopy::CopyRows(const QString& table, const QString& key, const QString& where, const QStringList& columns,
                              const QStringList& values, const std::function<void(qint64)>& chosen)
{
    const qint64 count = Choose(table, key, QStringLiteral("%1 s WHERE %2").arg(Source(table), where), QStringLiteral("s.") + key);
    if (count == 0)
        return 0;
    if (chosen)
        chosen(count);
    Insert(table, key, columns, values);
    return count;
}

bool DatabaseCopy::readsThroughIndex(const QString& table, const QString& column)
{
    // On PostgreSQL the rows are read batch row by batch row through the
    // index that `column` leads, so that the work follows the batch. Left
    // to itself the planner hashes the batch and reads the whole table, or
    // merges it with the column's index read from its start: at 10M rows
    // a version's 489,000 objects were chosen in 0.94 s that way against
    // 0.63 s, and written in 3.3 s against 2.2 s. Without that index (a
    // repository not yet upgraded) the planner's join stays.
    if (isSqlite(m_db))
        return false;
    return Scalar(QStringLiteral("SELECT COUNT(*) FROM pg_index i JOIN pg_attribute a ON a.attrelid = i.indrelid AND "
                                 "a.attnum = i.indkey[0] WHERE i.indrelid = to_regclass('%1') AND a.attname = lower('%2')")
                      .arg(Source(table), column)) > 0;
}

QString DatabaseCopy::joined(bool throughIndex, const QString& table, const QString& column, const QString& batch,
                             const QString& alias) const
{
    if (throughIndex)
        return QStringLiteral("%1 %2 JOIN LATERAL (SELECT * FROM %3 x WHERE x.%4 = %2.old OFFSET 0) s ON true")
            .arg(batch, alias, Source(table), column);
    return QStringLiteral("%1 s JOIN %2 %3 ON %3.old = s.%4").arg(Source(table), batch, alias, column);
}

QString DatabaseCopy::JoinedToBatch(const QString& table, const QString& column, const QString& batch, const QString& alias)
{
    return joined(readsThroughIndex(table, column), table, column, batch, alias);
}

void DatabaseCopy::CopyChildren(const Children& c)
{
    // On PostgreSQL, where the children are read through their parent
    // column's index (JoinedToBatch), the join to the map is planned apart,
    // as a hash join: planned with that read, it became an index search
    // of the map for every child.
    const bool throughIndex = readsThroughIndex(c.table, c.parentColumn);
    const QString parent = throughIndex ? QStringLiteral("s.dv_parent_") : QStringLiteral("h.");
    QString order = parent + QStringLiteral("pos");
    if (!c.order.isEmpty())
        order += QStringLiteral(", s.") + c.order;
    order += QStringLiteral(", s.") + c.key;
    // Nothing joins the children's own keys: they are written straight
    // from the source rows, without a batch, their keys given in the
    // order of the rows as a batch would give them. On SQLite the table's
    // AUTOINCREMENT hands them out in insertion order; on PostgreSQL a
    // sequence (or a file's highest key) is read after the rows are sorted.
    QStringList columns{c.parentColumn, c.mapped};
    QStringList values{parent + QStringLiteral("new"),
                       QStringLiteral("COALESCE(m.new, %1)")
                           .arg(c.zeroWhenUnmapped ? QStringLiteral("0") : QStringLiteral("s.") + c.mapped)};
    if (!isSqlite(m_db)) {
        columns.prepend(c.key);
        values.prepend(m_destination == Side::File
                           ? QStringLiteral("COALESCE((SELECT MAX(%1) FROM %2), 0) + ROW_NUMBER() OVER (ORDER BY %3)")
                                 .arg(c.key, Destination(c.table), order)
                           : nextKey(c.table, c.key));
    }
    QStringList kept = Kept(c.kept);
    for (const auto& [column, expression] : c.computed)
        kept[c.kept.indexOf(column)] = expression;
    const QString parentsWhere = c.parentsWhere.isEmpty() ? QString() : QStringLiteral("WHERE ") + c.parentsWhere;
    const QString joinedToParents = joined(throughIndex, c.table, c.parentColumn, c.parents, QStringLiteral("h"));
    const QString children = throughIndex ? QStringLiteral("(SELECT h.pos AS dv_parent_pos, h.new AS dv_parent_new, s.* FROM "
                                                           "%1 %2 OFFSET 0) s")
                                                .arg(joinedToParents, parentsWhere)
                                          : joinedToParents;
    // On PostgreSQL the map is read whole into a hash. Left to itself the
    // planner hashes it at 1M rows but at 10M looks each child's key up
    // through the map's index (memoized by the key): a version's 1.43M
    // steps were written in 7.7-8.1 s that way against 7.0-7.8 s hashed.
    const QString map = isSqlite(m_db) ? c.map : QStringLiteral("(SELECT old, new FROM %1 OFFSET 0)").arg(c.map);
    CountWrittenRows(m_db.Execute(QStringLiteral("INSERT INTO %1 (%2) SELECT %3 FROM %4 LEFT JOIN %5 m ON m.old = s.%6 %7 %8 "
                                                 "ORDER BY %9")
                                      .arg(Destination(c.table), (columns + c.kept).join(QStringLiteral(", ")),
                                           (values + kept).join(QStringLiteral(", ")), children, map, c.mapped, c.joins,
                                           throughIndex ? QString() : parentsWhere, order)));
}

QString DatabaseCopy::TemporaryTable(const QString& name, const QString& columns)
{
    // Made again after a rollback, which takes a temporary table made in
    // its transaction with it on PostgreSQL.
    Run(QStringLiteral("CREATE TEMP TABLE IF NOT EXISTS %1 (%2)").arg(name, columns));
    // PostgreSQL finds temporary tables first by the unqualified name.
    return (isSqlite(m_db) ? QStringLiteral("temp.") : QString()) + name;
}

QString DatabaseCopy::MapTable(const QString& name)
{
    return TemporaryTable(QStringLiteral("dv_map_") + name, QStringLiteral("old integer PRIMARY KEY, new integer NOT NULL"));
}

void DatabaseCopy::ClearMap(const QString& name) { m_db.Execute(QStringLiteral("DELETE FROM ") + MapTable(name)); }

void DatabaseCopy::Remember(const QString& map, const QString& table)
{
    // A batch holds each old key once: its order cannot change which pair
    // the map keeps.
    RememberPairs(map, QStringLiteral("SELECT old, new FROM %1").arg(Batch(table)));
}

void DatabaseCopy::RememberPairs(const QString& map, const QString& select)
{
    if (isSqlite(m_db)) {
        m_db.Execute(QStringLiteral("INSERT OR IGNORE INTO %1 (old, new) %2").arg(map, select));
        return;
    }
    // Each old key comes once, so into an empty map (the first batch of a
    // run's map) the pairs go as they are: ON CONFLICT tries every row's
    // insertion, twice the cost (90 against 40 ms for 49,000 pairs). Into
    // a map that holds keys already, each pair searches the map's index,
    // so that the cost follows the batch and not the map (a join that
    // skips the mapped keys hashes the whole map, batch after batch).
    const bool empty = Scalar(QStringLiteral("SELECT COUNT(*) FROM (SELECT 1 FROM %1 LIMIT 1) e").arg(map)) == 0;
    m_db.Execute(QStringLiteral("INSERT INTO %1 (old, new) %2%3")
                     .arg(map, select, empty ? QString() : QStringLiteral(" ON CONFLICT (old) DO NOTHING")));
    Run(QStringLiteral("ANALYZE ") + map);
}

QString DatabaseCopy::Map(const QString& name, const std::vector<std::pair<qint32, qint32>>& pairs)
{
    const QString table = MapTable(name);
    m_db.Execute(QStringLiteral("DELETE FROM ") + table);
    // The first pair of an old key wins, as in a lookup of the map.
    const QString ignore = isSqlite(m_db) ? QStringLiteral("INSERT OR IGNORE INTO ") : QStringLiteral("INSERT INTO ");
    const QString conflict = isSqlite(m_db) ? QString() : QStringLiteral(" ON CONFLICT (old) DO NOTHING");
    constexpr std::size_t kRowsPerStatement = 500;
    QStringList rows;
    const auto send = [&] {
        if (!rows.isEmpty())
            m_db.Execute(ignore + table + QStringLiteral(" (old, new) VALUES ") + rows.join(u',') + conflict);
        rows.clear();
    };
    for (const auto& [oldKey, newKey] : pairs) {
        if (newKey <= 0)
            continue;
        rows << QStringLiteral("(%1,%2)").arg(oldKey).arg(newKey);
        if (std::size_t(rows.size()) == kRowsPerStatement)
            send();
    }
    send();
    if (!isSqlite(m_db) && pairs.size() > 1000)
        Run(QStringLiteral("ANALYZE ") + table);
    return table;
}

void DatabaseCopy::Run(const QString& sql)
{
    m_db.SendHeldWrites();
    QSqlQuery q(m_db.database());
    if (!q.exec(sql))
        throw m_db.StatementFailure(q.lastError()).WithStatement(sql);
}

std::vector<std::pair<qint32, qint32>> DatabaseCopy::Pairs(const QString& table)
{
    return Rows(QStringLiteral("SELECT old, new FROM %1 ORDER BY pos").arg(Batch(table)));
}

std::vector<std::pair<qint32, qint32>> DatabaseCopy::Rows(const QString& sql)
{
    m_db.SendHeldWrites();
    QSqlQuery q(m_db.database());
    q.setForwardOnly(true);
    if (!q.exec(sql))
        throw m_db.StatementFailure(q.lastError()).WithStatement(sql);
    std::vector<std::pair<qint32, qint32>> pairs;
    while (q.next())
        pairs.emplace_back(q.value(0).toInt(), q.value(1).toInt());
    return pairs;
}

} // namespace dorvane
