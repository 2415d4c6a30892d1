#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <utility>
#include <vector>

namespace dorvane {

class Connection;

// Copies of a table's rows made by the database itself, within one
// database: the rows to copy are chosen into a batch, a temporary table of
// (position, old key, new key), and one INSERT ... SELECT writes their copies
// with the new keys. Each table has a batch of its own, which holds the rows
// of its last copy until the next: a child table's copy joins its parent's
// batch to find the new parent key.
//
// New keys ascend with the position, and positions follow the order the
// caller gives (the order in which a copy row by row would have read and
// added the rows), so that the copies take their keys as such a copy would
// have given them. On SQLite the new keys follow the table's highest key
// (the connection holds the write lock); on PostgreSQL they come from the
// key column's identity sequence, as another program's would.
//
// The rows may also cross between the repository and a backup file opened
// on the same connection (Side::File): on SQLite the file is attached as
// the schema dv_file; on PostgreSQL its tables are staged in temporary
// tables dv_file_<table>. A file's new keys follow its table's highest key.
class DatabaseCopy {
public:
    enum class Side { Repository, File };

    explicit DatabaseCopy(Connection& connection, Side source = Side::Repository, Side destination = Side::Repository)
        : m_db(connection), m_source(source), m_destination(destination)
    {
    }

    // The name of `table` on a side of `connection`, for SQL text.
    static QString TableOn(const Connection& connection, Side side, const QString& table);
    QString Source(const QString& table) const { return TableOn(m_db, m_source, table); }
    QString Destination(const QString& table) const { return TableOn(m_db, m_destination, table); }

    // "a = b" comparing two texts exactly, letter case included (the
    // repository's own comparison of texts ignores it).
    QString ExactlyEqual(const QString& a, const QString& b) const;

    // "s.a, s.b": the source row's own values of `columns`, for Insert.
    static QStringList Kept(const QStringList& columns);
    // The new key of `column`'s value in the map table `map`, null where
    // the map has none: "(SELECT m.new FROM map m WHERE m.old = column)".
    static QString Lookup(const QString& map, const QString& column);

    // The batch table of `table`, for joins ("temp.dv_batch_tWindow").
    QString Batch(const QString& table) const;
    // A FROM clause's body: the source rows of `table` (as s) whose
    // `column` holds an old key of `batch` (as `alias`).
    QString JoinedToBatch(const QString& table, const QString& column, const QString& batch, const QString& alias);

    // Chooses the rows of `table` that `from` names (a FROM clause's body
    // naming the source table as s, with any joins and a WHERE condition)
    // into the table's batch, in `order`, each with a new key in the
    // destination and, where given, the value of `parent` (an expression
    // over `from`: the new key of the row's parent) as b.parent. Returns
    // how many.
    qint64 Choose(const QString& table, const QString& key, const QString& from, const QString& order,
                  const QString& parent = QString());

    // Writes a copy of every row of the table's batch, in position order:
    // its own key the new key, each of `columns` the matching expression of
    // `values` over the source row s and the batch row b (and whatever
    // `joins` adds). Columns not named take their defaults.
    void Insert(const QString& table, const QString& key, const QStringList& columns, const QStringList& values,
                const QString& joins = QString());

    // Choose and Insert for the rows of `table` that `where` (a condition
    // on the source row s) picks, in the order of their keys; `chosen`
    // learns how many before they are written. Returns how many; none
    // chosen, nothing is written.
    qint64 CopyRows(const QString& table, const QString& key, const QString& where, const QStringList& columns,
                    const QStringList& values, const std::function<void(qint64)>& chosen = {});

    // The rows of `table` whose `parentColumn` holds an old key of the
    // batch `parents`, copied in their parents' order and then by `order`
    // (and their own key): the parent column takes the parent's new key,
    // the column `mapped` goes through the map table `map` and keeps its
    // value where the map has none (0 with `zeroWhenUnmapped`), and `kept`
    // are copied as they are. The children get no batch: nothing may join
    // theirs.
    struct Children {
        QString table, key, parentColumn, parents, order;
        QString mapped, map;
        QStringList kept;
        bool zeroWhenUnmapped = false;
        // Only the parents this condition on h (the parents' batch) keeps.
        QString parentsWhere = QString();
        // Kept columns written as an expression over s instead (column, expression).
        std::vector<std::pair<QString, QString>> computed = {};
        // Further joins the computed columns need.
        QString joins = QString();
    };
    void CopyChildren(const Children& children);

    // A temporary table `name` of the connection with `columns` (an SQL
    // column list), made where missing; returns its name for SQL text.
    QString TemporaryTable(const QString& name, const QString& columns);

    // The key map `name`: a temporary table (old key, new key) of the
    // connection ("temp.dv_map_window"), made where missing. A lookup joins
    // it on old.
    QString MapTable(const QString& name);
    void ClearMap(const QString& name);
    // Adds the pairs of `table`'s last batch to the map table `map`, or the
    // (old, new) rows a statement selects, each old key once; an old key
    // the map holds already keeps its first new key.
    void Remember(const QString& map, const QString& table);
    void RememberPairs(const QString& map, const QString& select);
    // Replaces the map's contents with `pairs` (old key, new key, in map
    // order; the first pair of an old key wins), and returns its table.
    // Pairs with no new key yet are left out.
    QString Map(const QString& name, const std::vector<std::pair<qint32, qint32>>& pairs);

    // Runs a statement of the copy's own (a function's definition) as it
    // stands, without the data layer's translation.
    void Run(const QString& sql);

    // The batch's old and new keys in position order.
    std::vector<std::pair<qint32, qint32>> Pairs(const QString& table);
    // The two numbers of each row the statement returns.
    std::vector<std::pair<qint32, qint32>> Rows(const QString& sql);
    // The first number the statement returns (0 when it returns no row).
    qint64 Scalar(const QString& sql);

private:
    void prepareBatch(const QString& table);
    // "nextval(...)": the next key of the key column's sequence (PostgreSQL).
    QString nextKey(const QString& table, const QString& key);
    // The batch's `rows`, once its statistics are brought up to date.
    qint64 counted(const QString& batch, qint64 rows);
    // Whether the rows of `table` are read through the index that `column`
    // leads (PostgreSQL, where the source table has one), and the join
    // that reads them so or as the planner likes (JoinedToBatch).
    bool readsThroughIndex(const QString& table, const QString& column);
    QString joined(bool throughIndex, const QString& table, const QString& column, const QString& batch,
                   const QString& alias) const;

    Connection& m_db;
    Side m_source;
    Side m_destination;
};

} // namespace dorvane
