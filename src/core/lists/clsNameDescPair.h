#pragma once

#include <QString>

#include <vector>

namespace dorvane {

// The in-memory rows of one name/description grid (roles, projects or the
// keywords of an application), in grid order. Each entry carries its
// database key (0 while not stored) and two flags that tell the grid's
// Save which rows to insert (new) and which to update (dirty). The list
// knows nothing of the database or of the grid.
//
// Storage keeps one spare entry past the last one, so that the entry at
// index Count() can be read and written by IsDirty, IsNew and Initialize,
// which - unlike the other operations - do not check the index against the
// count. An index outside the storage throws std::out_of_range
// ("Subscript out of range").
class clsNameDescPair {
public:
    // Field numbers of GetValue and SetValue.
    enum Field { NameField = 0, DescriptionField = 1, KeyField = 2 };

    clsNameDescPair();

    qint32 Count() const { return m_count; }

    // Appends an entry, clean, with the given new flag.
    void Add(const QString& name, const QString& description, qint32 key, bool isNew);

    // Moves every later entry (and the spare slot) one place down. An index
    // outside 0..Count()-1 changes nothing. Only the list changes: the
    // caller deletes the database row first.
    void Remove(int index);

    // Field 0 name, 1 description, 2 the key as decimal text. A bad index or
    // a field of 3 or more gives "".
    QString GetValue(int index, int field) const;

    // Sets field 0, 1 or 2 (the text converted to a 32-bit integer; text
    // that is no number gives 0) and marks the entry dirty, even when the
    // value is the same as before. A bad index or field changes nothing.
    void SetValue(int index, int field, const QString& value);

    bool IsDirty(int index) const;
    // Clean and stored: called after the entry was written to the database.
    void Initialize(int index);
    bool IsNew(int index) const;

    // False when an entry other than the one at `index` has exactly this
    // name (case-sensitive).
    bool IsUnique(const QString& name, int index) const;

    void Clear();

private:
    struct Entry {
        QString name;
        QString description;
        qint32 key = 0;
        bool dirty = false;
        bool isNew = false;
    };

    const Entry& slot(int index) const;
    Entry& slot(int index);
    bool inList(int index) const { return index >= 0 && index < m_count; }

    std::vector<Entry> m_entries;  // m_count entries plus at least the spare one
    qint32 m_count = 0;
};

} // namespace dorvane
