#pragma once

#include "core/copyengine/KeyMap.h"

#include <QString>
#include <QStringList>

#include <array>
#include <functional>
#include <utility>
#include <vector>

namespace dorvane {

class Connection;
class Recordset;

// The destination keys a copied row takes as its parents (a version,
// window, process or environment key), by position.
using ParentKeys = std::array<qint32, 3>;

// Assigns each of `columns` of the current row of `from` to the row being
// written in `to`.
void CopyColumns(Recordset& from, Recordset& to, const QStringList& columns);

// What one column of a copied row receives.
enum class ColumnFill {
    Kept,              // the source value as it stands (text, number, date, flag or null)
    Parent,            // one of the destination parent keys
    MappedOrKept,      // the map's new key; the source value where the map has none
    Mapped,            // the map's new key as the lookup gives it: 0 where the map has none
    MappedUnlessZero,  // a source value of 0 or null stays; any other key as Mapped
};

struct CopyColumn {
    QString name;
    ColumnFill fill = ColumnFill::Kept;
    const KeyMap* map = nullptr;  // the mapped fills
    int parent = 0;               // Parent: the position in ParentKeys
};

// The columns of a table that a copy writes, in order, and the table's own
// key column (never written: the database assigns it). Lookups search a
// map over its whole length.
class RowCopy {
public:
    explicit RowCopy(QString keyColumn = QString()) : m_key(std::move(keyColumn)) {}

    RowCopy& Keep(const QStringList& columns);
    RowCopy& Parent(const QString& column, int position = 0);
    RowCopy& MappedOrKept(const QString& column, const KeyMap& map);
    RowCopy& Mapped(const QString& column, const KeyMap& map);
    RowCopy& MappedUnlessZero(const QString& column, const KeyMap& map);

    const QString& KeyColumn() const { return m_key; }
    const std::vector<CopyColumn>& Columns() const { return m_columns; }

    // Adds to `to` a copy of the current row of `from` and saves it. Returns
    // the new row's own key, or 0 when there is no key column to read.
    qint32 Write(Recordset& from, Recordset& to, const ParentKeys& parents) const;

private:
    QString m_key;
    std::vector<CopyColumn> m_columns;
};

// How a copy prepares the key map of its own key before its batch.
enum class MapGrowth {
    None,             // the map is not touched
    Grow,             // cumulative, also for an empty batch (which records the count only)
    GrowUnlessEmpty,  // cumulative, and not touched at all by an empty batch
    Replace,          // the map holds this batch only (an empty batch leaves it alone)
};

// One table's copy: every row of an open source record set, in the order
// read, written through `row` into `into`. With `reopen` set, `into` is
// opened with that statement on `reopenOn` for each row and closed after
// it; otherwise the caller has opened it.
//
// When the copy keeps a map, or has a `started` step, the source rows are
// counted first and an empty source ends the copy at once. Per row:
// `beforeRow`, the write, the old and new own key stored at the map's
// running index, `afterRow` (which sees the source row still current),
// then the move to the next row.
struct TableCopy {
    TableCopy(const RowCopy& rowCopy, Recordset& destination) : row(rowCopy), into(destination) {}

    const RowCopy& row;
    Recordset& into;
    QString reopen;
    Connection* reopenOn = nullptr;
    KeyMap* map = nullptr;
    MapGrowth growth = MapGrowth::None;
    std::function<void(qint32 count)> started;
    std::function<void()> beforeRow;
    std::function<void(Recordset& source, qint32 oldKey, qint32 newKey)> afterRow;

    // Returns the number of rows copied. Failures throw DbError.
    qint32 Run(Recordset& source, const ParentKeys& parents) const;
};

} // namespace dorvane
