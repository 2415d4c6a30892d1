#pragma once

#include <QHash>
#include <QtGlobal>

#include <utility>
#include <vector>

namespace dorvane {

// Which new key each old key received in a copy run: a two-row table of
// 32-bit keys indexed by position 1 .. size (row 1 the key as it was in the
// source, row 2 the key of the copy in the destination), with three counters:
//   BatchCount() the source row count of the last call that filled the map,
//   Index()      the position of the row copied last (the running index),
//   Length()     the map's length, which callers pass to LookupNewKey.
//
// The two rows are kept as they are, and beside them a hash from each old
// key to the FIRST position that holds it. A lookup over a length is then
// the first position's new key when that position lies within the length,
// else 0: exactly what a linear scan from position 1 to the length returns
// (first match wins, 0 when none), in constant time. Every operation that
// changes a position keeps the hash pointing at the first holder.
class KeyMap {
public:
    // Cumulative growth before a batch of n source rows: the length grows
    // by n and the storage is resized to the new length, keeping the
    // positions before the batch. The batch's positions (length - n + 1 to
    // length) hold 0 until they are filled. A batch of 0 rows only records
    // the count.
    void Grow(qint32 n);
    // Per-call replacement: the storage is resized to exactly n zeroed
    // positions, dropping the earlier contents. A batch of 0 rows only
    // records the count: the earlier contents stay.
    void Replace(qint32 n);
    // The start of a copy run sets the length to 0. The storage and the
    // other counters are left alone; the next growth overwrites them.
    void ResetLength() { m_length = 0; }

    // Stores a pair at the next position of the running batch.
    void StoreNext(qint32 oldKey, qint32 newKey);
    // Stores a pair at a position from 1 to the storage size.
    void Store(qint32 position, qint32 oldKey, qint32 newKey);

    qint32 BatchCount() const { return m_batchCount; }
    qint32 Index() const { return m_index; }
    qint32 Length() const { return m_length; }
    qint32 Size() const { return qint32(m_old.size()); }
    // Row 1 and row 2 at a position (0 outside the storage).
    qint32 OldKey(qint32 position) const;
    qint32 NewKey(qint32 position) const;

    // The pairs of positions 1 to Length(), in order.
    std::vector<std::pair<qint32, qint32>> Pairs() const;

    // The new key of the first position from 1 to `length` that holds
    // `oldKey`; 0 when there is none or the length is below 1.
    qint32 Lookup(qint32 oldKey, qint32 length) const;

private:
    void resize(qint32 size, qint32 zeroFrom);
    // Points the hash at the first holder of `key` after position `from`.
    void moveFirstHolder(qint32 key, qint32 from);

    std::vector<qint32> m_old;  // position p at index p - 1
    std::vector<qint32> m_new;
    QHash<qint32, qint32> m_first;  // old key -> first position holding it
    qint32 m_batchCount = 0;
    qint32 m_index = 0;
    qint32 m_length = 0;
};

// The copy engine's lookup: the map's new key for `oldKey`, searching the
// positions 1 to `length` (one of the map's own counters); 0 when the old
// key is not there, which tells the caller that the row was not copied.
inline qint32 LookupNewKey(const KeyMap& map, qint32 oldKey, qint32 length) { return map.Lookup(oldKey, length); }

} // namespace dorvane
