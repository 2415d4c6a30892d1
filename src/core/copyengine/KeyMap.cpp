#include "core/copyengine/KeyMap.h"

namespace dorvane {

void KeyMap::resize(qint32 size, qint32 zeroFrom)
{
    // Positions zeroFrom .. old size are dropped or zeroed; a key whose
    // first holder lies among them has no holder left (every later
    // position is among them too).
    const qint32 oldSize = Size();
    for (qint32 p = zeroFrom; p <= oldSize; ++p) {
        const auto it = m_first.find(m_old[size_t(p - 1)]);
        if (it != m_first.end() && *it >= zeroFrom)
            m_first.erase(it);
    }
    m_old.resize(size_t(size), 0);
    m_new.resize(size_t(size), 0);
    for (qint32 p = zeroFrom; p <= size; ++p) {
        m_old[size_t(p - 1)] = 0;
        m_new[size_t(p - 1)] = 0;
    }
    if (zeroFrom <= size) {
        const auto it = m_first.find(0);
        if (it == m_first.end() || *it > zeroFrom)
            m_first.insert(0, zeroFrom);
    }
}

void KeyMap::Grow(qint32 n)
{
    m_batchCount = n;
    if (n <= 0)
        return;
    const qint32 first = m_length + 1;
    m_length += n;
    resize(m_length, first);
    m_index = first - 1;
}

void KeyMap::Replace(qint32 n)
{
    m_batchCount = n;
    if (n <= 0)
        return;
    m_old.clear();
    m_new.clear();
    m_first.clear();
    resize(n, 1);
    m_length = n;
    m_index = 0;
}

std::vector<std::pair<qint32, qint32>> KeyMap::Pairs() const
{
    std::vector<std::pair<qint32, qint32>> pairs;
    pairs.reserve(std::size_t(m_length));
    for (qint32 position = 1; position <= m_length; ++position)
        pairs.emplace_back(OldKey(position), NewKey(position));
    return pairs;
}

void KeyMap::StoreNext(qint32 oldKey, qint32 newKey)
{
    ++m_index;
    Store(m_index, oldKey, newKey);
}

void KeyMap::moveFirstHolder(qint32 key, qint32 from)
{
    const qint32 size = Size();
    for (qint32 p = from + 1; p <= size; ++p) {
        if (m_old[size_t(p - 1)] == key) {
            m_first.insert(key, p);
            return;
        }
    }
    m_first.remove(key);
}

void KeyMap::Store(qint32 position, qint32 oldKey, qint32 newKey)
{
    if (position < 1 || position > Size())
        return;
    const size_t i = size_t(position - 1);
    const qint32 previous = m_old[i];
    if (previous != oldKey && m_first.value(previous, 0) == position) {
        // Filling a batch in order, the next zeroed position follows at
        // once, so this scan stops after one step.
        moveFirstHolder(previous, position);
    }
    m_old[i] = oldKey;
    m_new[i] = newKey;
    const auto it = m_first.find(oldKey);
    if (it == m_first.end() || *it > position)
        m_first.insert(oldKey, position);
}

qint32 KeyMap::OldKey(qint32 position) const
{
    return position >= 1 && position <= Size() ? m_old[size_t(position - 1)] : 0;
}

qint32 KeyMap::NewKey(qint32 position) const
{
    return position >= 1 && position <= Size() ? m_new[size_t(position - 1)] : 0;
}

qint32 KeyMap::Lookup(qint32 oldKey, qint32 length) const
{
    if (length < 1)
        return 0;
    const auto it = m_first.constFind(oldKey);
    if (it == m_first.constEnd() || *it > length)
        return 0;
    return m_new[size_t(*it - 1)];
}

} // namespace dorvane
