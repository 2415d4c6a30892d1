#include "core/copyengine/CopyStep.h"

#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"

namespace dorvane {

void CopyColumns(Recordset& from, Recordset& to, const QStringList& columns)
{
    for (const QString& column : columns)
        to.SetValue(column, from.Value(column));
}

namespace {

qint32 keyOf(const QVariant& value) { return value.isValid() ? value.toInt() : 0; }

} // namespace

RowCopy& RowCopy::Keep(const QStringList& columns)
{
    for (const QString& column : columns)
        m_columns.push_back({column, ColumnFill::Kept, nullptr, 0});
    return *this;
}

RowCopy& RowCopy::Parent(const QString& column, int position)
{
    m_columns.push_back({column, ColumnFill::Parent, nullptr, position});
    return *this;
}

RowCopy& RowCopy::MappedOrKept(const QString& column, const KeyMap& map)
{
    m_columns.push_back({column, ColumnFill::MappedOrKept, &map, 0});
    return *this;
}

RowCopy& RowCopy::Mapped(const QString& column, const KeyMap& map)
{
    m_columns.push_back({column, ColumnFill::Mapped, &map, 0});
    return *this;
}

RowCopy& RowCopy::MappedUnlessZero(const QString& column, const KeyMap& map)
{
    m_columns.push_back({column, ColumnFill::MappedUnlessZero, &map, 0});
    return *this;
}

qint32 RowCopy::Write(Recordset& from, Recordset& to, const ParentKeys& parents) const
{
    to.AddNew();
    for (const CopyColumn& column : m_columns) {
        switch (column.fill) {
        case ColumnFill::Kept: to.SetValue(column.name, from.Value(column.name)); break;
        case ColumnFill::Parent: to.SetValue(column.name, parents[size_t(column.parent)]); break;
        case ColumnFill::MappedOrKept: {
            // A key outside the copy keeps pointing where it pointed.
            const QVariant value = from.Value(column.name);
            const qint32 mapped = LookupNewKey(*column.map, keyOf(value), column.map->Length());
            to.SetValue(column.name, mapped >= 1 ? QVariant(mapped) : value);
            break;
        }
        case ColumnFill::Mapped:
            to.SetValue(column.name, LookupNewKey(*column.map, keyOf(from.Value(column.name)), column.map->Length()));
            break;
        case ColumnFill::MappedUnlessZero: {
            const QVariant value = from.Value(column.name);
            const qint32 key = keyOf(value);
            to.SetValue(column.name,
                        key == 0 ? value : QVariant(LookupNewKey(*column.map, key, column.map->Length())));
            break;
        }
        }
    }
    to.Update();
    return m_key.isEmpty() ? 0 : to.Int(m_key);
}

qint32 TableCopy::Run(Recordset& source, const ParentKeys& parents) const
{
    if (map || started) {
        const qint32 count = CountRecords(&source);
        switch (growth) {
        case MapGrowth::None: break;
        case MapGrowth::Grow: map->Grow(count); break;
        case MapGrowth::GrowUnlessEmpty:
            if (count > 0)
                map->Grow(count);
            break;
        case MapGrowth::Replace: map->Replace(count); break;
        }
        if (count == 0)
            return 0;
        if (started)
            started(count);
    }

    const QString& key = row.KeyColumn();
    qint32 copied = 0;
    while (!source.Eof()) {
        if (beforeRow)
            beforeRow();
        const qint32 oldKey = key.isEmpty() ? 0 : source.Int(key);
        if (!reopen.isEmpty())
            into.Open(reopen, *reopenOn);
        const qint32 newKey = row.Write(source, into, parents);
        if (!reopen.isEmpty())
            into.Close();
        if (map)
            map->StoreNext(oldKey, newKey);
        ++copied;
        if (afterRow)
            afterRow(source, oldKey, newKey);
        source.MoveNext();
    }
    return copied;
}

} // namespace dorvane
