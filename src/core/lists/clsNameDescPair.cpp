#include "core/lists/clsNameDescPair.h"

#include <stdexcept>
#include <utility>

namespace dorvane {

clsNameDescPair::clsNameDescPair() : m_entries(1) {}

const clsNameDescPair::Entry& clsNameDescPair::slot(int index) const
{
    if (index < 0 || static_cast<size_t>(index) >= m_entries.size())
        throw std::out_of_range("Subscript out of range");
    return m_entries[static_cast<size_t>(index)];
}

clsNameDescPair::Entry& clsNameDescPair::slot(int index)
{
    return const_cast<Entry&>(std::as_const(*this).slot(index));
}

void clsNameDescPair::Add(const QString& name, const QString& description, qint32 key, bool isNew)
{
    const auto at = static_cast<size_t>(m_count);
    if (m_entries.size() <= at)
        m_entries.resize(at + 1);
    m_entries[at] = Entry{name, description, key, false, isNew};
    ++m_count;
    // The storage's upper bound follows the count: one spare slot again,
    // also when earlier removals had left more.
    m_entries.resize(static_cast<size_t>(m_count) + 1);
}

void clsNameDescPair::Remove(int index)
{
    if (!inList(index))
        return;
    for (size_t i = static_cast<size_t>(index); i < static_cast<size_t>(m_count); ++i)
        m_entries[i] = m_entries[i + 1];
    --m_count;
}

QString clsNameDescPair::GetValue(int index, int field) const
{
    if (!inList(index))
        return QString();
    const Entry& e = m_entries[static_cast<size_t>(index)];
    switch (field) {
    case NameField:
        return e.name;
    case DescriptionField:
        return e.description;
    case KeyField:
        return QString::number(e.key);
    default:
        return QString();
    }
}

void clsNameDescPair::SetValue(int index, int field, const QString& value)
{
    if (!inList(index) || field < NameField || field > KeyField)
        return;
    Entry& e = m_entries[static_cast<size_t>(index)];
    switch (field) {
    case NameField:
        e.name = value;
        break;
    case DescriptionField:
        e.description = value;
        break;
    default:
        e.key = value.trimmed().toInt();
        break;
    }
    e.dirty = true;
}

bool clsNameDescPair::IsDirty(int index) const { return slot(index).dirty; }

void clsNameDescPair::Initialize(int index)
{
    Entry& e = slot(index);
    e.dirty = false;
    e.isNew = false;
}

bool clsNameDescPair::IsNew(int index) const { return slot(index).isNew; }

bool clsNameDescPair::IsUnique(const QString& name, int index) const
{
    for (qint32 i = 0; i < m_count; ++i) {
        if (i != index && m_entries[static_cast<size_t>(i)].name == name)
            return false;
    }
    return true;
}

void clsNameDescPair::Clear()
{
    m_count = 0;
    m_entries.assign(1, Entry{});
}

} // namespace dorvane
