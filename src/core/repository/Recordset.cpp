#include "core/repository/Recordset.h"

#include "core/repository/Connection.h"
#include "core/repository/Dialect.h"
#include "core/repository/HeldWrites.h"
#include "core/repository/Interruption.h"
#include "core/repository/Schema.h"
#include "core/repository/sqlite/SqliteStatements.h"

#include <QBitArray>
#include <QHash>
#include <QSqlError>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QSqlRecord>

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace dorvane {

namespace {

const char* const kClosedText = "Operation is not allowed when the object is closed.";
const char* const kNoCurrentText = "Either BOF or EOF is True, or the current record has been deleted. "
                                   "Requested operation requires a current record.";
const char* const kDeletedText = "Row handle referred to a deleted row or a row marked for deletion.";
const char* const kUnknownFieldText =
    "Item cannot be found in the collection corresponding to the requested name or ordinal.";

// The values of the rows a record set has read, packed one row after the
// other: per column a tag byte, then the value - integers as zig-zag
// varints, doubles as 8 bytes, text as its UTF-8 length and bytes, blobs
// alike. A value of any other type is kept aside as it came. Rows are
// stored in blocks that never move, so that a large record set grows
// without copying what it holds already.
class PackedRows {
public:
    // Unknown marks a value an added row did not write itself (a default
    // or a trigger's): it is read back from the table when first asked for.
    enum Tag : char { Null, Int, LongLong, Double, Text, Blob, Other, Unknown };

    // A row is built value by value, then stored; EndRow returns where it
    // is kept.
    void BeginRow() { m_bytes.clear(); }
    qint64 EndRow()
    {
        const size_t size = m_bytes.size();
        if (m_blocks.empty() || m_used + size > m_blocks.back().size) {
            const size_t blockSize = std::max(kBlockSize, size);
            m_blocks.push_back({std::make_unique_for_overwrite<char[]>(blockSize), blockSize});
            m_used = 0;
        }
        std::memcpy(m_blocks.back().data.get() + m_used, m_bytes.data(), size);
        const qint64 row = (qint64(m_blocks.size() - 1) << 32) | qint64(m_used);
        m_used += size;
        return row;
    }

    void AddNull() { m_bytes.push_back(Null); }
    void AddUnknown() { m_bytes.push_back(Unknown); }
    void AddInteger(qint64 v)
    {
        const bool fits = v >= std::numeric_limits<qint32>::min() && v <= std::numeric_limits<qint32>::max();
        m_bytes.push_back(fits ? Int : LongLong);
        addVarint((quint64(v) << 1) ^ quint64(v >> 63));
    }
    void AddDouble(double v)
    {
        m_bytes.push_back(Double);
        const char* p = reinterpret_cast<const char*>(&v);
        m_bytes.insert(m_bytes.end(), p, p + sizeof v);
    }
    void AddText(const char* utf8, qsizetype size) { addBytes(Text, utf8, size); }
    void AddBlob(const char* data, qsizetype size) { addBytes(Blob, data, size); }

    // A value as Qt read it (already normalised).
    void AddVariant(const QVariant& v)
    {
        if (!v.isValid()) {
            AddNull();
            return;
        }
        switch (v.typeId()) {
        case QMetaType::Int:
        case QMetaType::LongLong:
            AddInteger(v.toLongLong());
            // Normalised values keep their type: an int64 within int range
            // is int already.
            return;
        case QMetaType::Double:
            AddDouble(v.toDouble());
            return;
        case QMetaType::QString: {
            const QByteArray utf8 = v.toString().toUtf8();
            AddText(utf8.constData(), utf8.size());
            return;
        }
        case QMetaType::QByteArray: {
            const QByteArray* bytes = static_cast<const QByteArray*>(v.constData());
            AddBlob(bytes->constData(), bytes->size());
            return;
        }
        default:
            m_bytes.push_back(Other);
            addVarint(quint64(m_others.size()));
            m_others.append(v);
            return;
        }
    }

    // Column `column` of the row EndRow placed at `row`; an Unknown value
    // reads as Null (see Known).
    QVariant Value(qint64 row, int column) const
    {
        const char* p = columnStart(row, column);
        const Tag tag = Tag(*p++);
        switch (tag) {
        case Null:
        case Unknown:
            return QVariant();
        case Int:
        case LongLong: {
            const quint64 z = readVarint(p);
            const qint64 v = qint64(z >> 1) ^ -qint64(z & 1);
            return tag == Int ? QVariant(int(v)) : QVariant(qlonglong(v));
        }
        case Double: {
            double v;
            std::memcpy(&v, p, sizeof v);
            return QVariant(v);
        }
        case Text: {
            const qsizetype size = qsizetype(readVarint(p));
            return QVariant(QString::fromUtf8(p, size));
        }
        case Blob: {
            const qsizetype size = qsizetype(readVarint(p));
            return QVariant(QByteArray(p, size));
        }
        case Other:
            return m_others.at(qsizetype(readVarint(p)));
        }
        return QVariant();
    }

    bool Known(qint64 row, int column) const { return Tag(*columnStart(row, column)) != Unknown; }

    void Clear()
    {
        // One block is kept for the next statement.
        if (m_blocks.size() > 1 || (!m_blocks.empty() && m_blocks.front().size > kBlockSize))
            m_blocks.clear();
        m_used = 0;
        if (m_bytes.capacity() > kBlockSize)
            std::vector<char>().swap(m_bytes);
        m_others.clear();
        m_offsetsRow = -1;
        m_offsets.clear();
    }

private:
    const char* columnStart(qint64 row, int column) const
    {
        const char* const start = m_blocks[size_t(row >> 32)].data.get() + (row & 0xffffffff);
        // Where the columns of the row last looked at begin: its values are
        // mostly read one after the other.
        if (row != m_offsetsRow) {
            m_offsetsRow = row;
            m_offsets.assign(1, 0);
        }
        while (m_offsets.size() <= size_t(column))
            m_offsets.push_back(skip(start + m_offsets.back()) - start);
        return start + m_offsets[size_t(column)];
    }

    void addVarint(quint64 v)
    {
        while (v >= 0x80) {
            m_bytes.push_back(char(v | 0x80));
            v >>= 7;
        }
        m_bytes.push_back(char(v));
    }
    void addBytes(Tag tag, const char* data, qsizetype size)
    {
        m_bytes.push_back(tag);
        addVarint(quint64(size));
        if (size > 0)
            m_bytes.insert(m_bytes.end(), data, data + size);
    }
    static quint64 readVarint(const char*& p)
    {
        quint64 v = 0;
        int shift = 0;
        for (;;) {
            const quint8 b = quint8(*p++);
            v |= quint64(b & 0x7f) << shift;
            if (b < 0x80)
                return v;
            shift += 7;
        }
    }
    static const char* skip(const char* p)
    {
        switch (Tag(*p++)) {
        case Null:
        case Unknown:
            return p;
        case Double:
            return p + sizeof(double);
        case Text:
        case Blob: {
            const quint64 size = readVarint(p);
            return p + size;
        }
        case Int:
        case LongLong:
        case Other:
            readVarint(p);
            return p;
        }
        return p;
    }

    static constexpr size_t kBlockSize = 256 * 1024;
    struct Block {
        std::unique_ptr<char[]> data;
        size_t size;
    };

    std::vector<Block> m_blocks;
    size_t m_used = 0;       // bytes used in the last block
    std::vector<char> m_bytes;  // the row being built
    QVariantList m_others;
    mutable qint64 m_offsetsRow = -1;
    mutable std::vector<qsizetype> m_offsets;  // from the row's start
};

// The values a row holds itself: an added row the values it wrote plus its
// key (`known` marks those until the rest is needed), a changed row all.
struct RowValues {
    QVariantList values;
    QBitArray known;  // empty: every value is known
};

// One row of the cursor. A row is kept packed (`packed` says where): as
// read, and as added once another row has become current. While it is
// current after being added or changed, it holds its values itself. Kept
// small: a record set may hold very many rows, read or added.
struct Row {
    std::unique_ptr<RowValues> own;
    qint64 packed = -1;
    bool deleted = false;
    bool unknownPacked = false;  // packed with Unknown values

    // Some of the values of an added row are not known yet.
    bool partial() const { return own ? !own->known.isEmpty() : unknownPacked; }
};

QString keyText(const QVariant& key) { return key.toString(); }

// Added rows a record set that has not been read keeps whole.
constexpr size_t kKeptAddedRows = 1000;

void execOrThrow(QSqlQuery& q, Connection& connection)
{
    if (!q.exec()) {
        const QSqlError error = q.lastError();
        q.finish();
        throw connection.StatementFailure(error);
    }
}

} // namespace

struct Recordset::Private {
    enum class Edit { None, Editing, Adding };

    Connection* connection = nullptr;
    QString sql;
    QString tableRef;
    std::shared_ptr<const TableInfo> table;    // the catalogue's view of the table
    std::shared_ptr<const TableInfo> columns;  // the record set's columns (normally the table's)

    bool loaded = false;
    std::vector<Row> rows;
    PackedRows packed;
    size_t pos = 0;  // the current row; rows.size() is the end
    // A record set that is only added to (the copy engine's) keeps the
    // first rows it added, and of the later ones only their keys, as
    // ranges: its memory stays bounded however many rows it adds. If it is
    // read after all, those rows are read back by key; they follow the
    // first `spilledAt` rows.
    std::vector<std::pair<qint64, qint64>> spilled;
    size_t spilledAt = 0;

    Edit edit = Edit::None;
    QVariantList pending;
    QBitArray pendingSet;

    void requireOpen() const
    {
        if (!connection)
            throw DbError(QString::fromLatin1(kClosedText));
    }

    const TableInfo& tableInfo()
    {
        if (!table) {
            if (tableRef.isEmpty())
                throw DbError(QStringLiteral("The statement names no table to write to: %1").arg(sql));
            table = connection->tableInfo(tableRef);
        }
        return *table;
    }

    const TableInfo& columnInfo()
    {
        if (!columns) {
            if (tableRef.isEmpty())
                load();
            else
                columns = connection->tableInfo(tableRef);
        }
        return *columns;
    }

    // Writing needs the record set's columns to be the table's own.
    const TableInfo& writableTable()
    {
        const TableInfo& t = tableInfo();
        if (columns && columns != table)
            throw DbError(QStringLiteral("The record set cannot be updated: its columns are not those of table '%1'.")
                              .arg(UnquoteName(tableRef)));
        columns = table;
        return t;
    }

    const TableInfo& keyedTable()
    {
        const TableInfo& t = writableTable();
        if (!t.HasKey())
            throw DbError(
                QStringLiteral("The table '%1' has no key to address its rows by.").arg(UnquoteName(tableRef)));
        return t;
    }

    int fieldIndex(const QString& field)
    {
        const int i = columnInfo().IndexOf(field);
        if (i < 0)
            throw DbError(QString::fromLatin1(kUnknownFieldText));
        return i;
    }

    size_t liveCount() const
    {
        size_t n = 0;
        for (const Row& r : rows)
            n += r.deleted ? 0 : 1;
        return n;
    }

    size_t firstLiveFrom(size_t i) const
    {
        while (i < rows.size() && rows[i].deleted)
            ++i;
        return i;
    }

    QVariant cell(const Row& row, int column) const
    {
        return row.packed >= 0 ? packed.Value(row.packed, column) : row.own->values[column];
    }

    bool known(const Row& row, int column) const
    {
        if (row.own)
            return row.own->known.isEmpty() || row.own->known.testBit(column);
        return !row.unknownPacked || packed.Known(row.packed, column);
    }

    // The row's values, unpacked to be changed or completed.
    QVariantList& values(Row& row)
    {
        if (row.packed >= 0) {
            const int n = int(columns->columns.size());
            auto own = std::make_unique<RowValues>();
            own->values.reserve(n);
            if (row.unknownPacked)
                own->known = QBitArray(n);
            for (int i = 0; i < n; ++i) {
                own->values.append(packed.Value(row.packed, i));
                if (row.unknownPacked && packed.Known(row.packed, i))
                    own->known.setBit(i);
            }
            row.own = std::move(own);
            row.packed = -1;
            row.unknownPacked = false;
        }
        return row.own->values;
    }

    // Stores a row's own values packed: the added row that was current is
    // kept at a small fraction of the memory its variants take.
    void pack(Row& row)
    {
        if (!row.own)
            return;
        const QVariantList& v = row.own->values;
        const QBitArray& k = row.own->known;
        packed.BeginRow();
        for (int i = 0; i < int(v.size()); ++i) {
            if (k.isEmpty() || k.testBit(i))
                packed.AddVariant(v[i]);
            else
                packed.AddUnknown();
        }
        row.packed = packed.EndRow();
        row.unknownPacked = !k.isEmpty();
        row.own.reset();
    }

    SqliteStatements* direct() const { return connection->sqliteStatements(); }

    // Before the first read the record set knows only the rows it added;
    // the last of them is current.
    bool hasAddedCurrent() const { return !loaded && !rows.empty(); }

    // A field is looked at: unless a row added here is current, the
    // statement runs first, so that its own errors come before any other.
    void loadForField()
    {
        if (!loaded && rows.empty() && edit != Edit::Adding)
            load();
    }

    void ensureLoaded()
    {
        if (!loaded)
            load();
    }

    // Runs the statement: the rows it selects become the cursor's, followed
    // by the rows this record set added that the statement does not select.
    void load()
    {
        const QString text = connection->dialect().Translate(sql);
        // Rows added before are not packed: the read rows go to `packed`.
        std::vector<Row> read;
        select(text, read);

        std::vector<Row> added = std::move(rows);
        size_t current = pos;
        if (!spilled.empty()) {
            const size_t at = spilledAt;
            std::vector<Row> readBack = readSpilled();
            if (current >= at)
                current += readBack.size();
            added.insert(added.begin() + qsizetype(at), std::make_move_iterator(readBack.begin()),
                         std::make_move_iterator(readBack.end()));
        }
        const bool hadCurrent = !added.empty();
        rows = std::move(read);
        size_t newPos = 0;
        if (!added.empty()) {
            QHash<QString, size_t> byKey;
            const int key = columns->keyIndex;
            if (key >= 0) {
                for (size_t i = 0; i < rows.size(); ++i)
                    byKey.insert(keyText(cell(rows[i], key)), i);
            }
            for (size_t k = 0; k < added.size(); ++k) {
                const auto found = key >= 0 ? byKey.constFind(keyText(cell(added[k], key))) : byKey.constEnd();
                if (found != byKey.constEnd()) {
                    if (k == current)
                        newPos = *found;
                } else if (!added[k].deleted || k == current) {
                    rows.push_back(std::move(added[k]));
                    if (k == current)
                        newPos = rows.size() - 1;
                }
            }
        }
        pos = hadCurrent ? newPos : 0;
        loaded = true;
    }

    // Runs a (translated) selection: its rows are appended to `read`, their
    // values to `packed`.
    void select(const QString& text, std::vector<Row>& read)
    {
        if (SqliteStatements* statements = direct(); statements && readSqlite(*statements, text, read, packed))
            return;
        if (HeldWrites* held = connection->heldWrites())
            held->BeforeRead(text);
        readQt(text, read, packed);
    }

    // The rows this record set added but did not keep, read back by key.
    std::vector<Row> readSpilled()
    {
        const TableInfo& t = *table;
        const QString head = QLatin1String("SELECT * FROM ") + connection->dialect().Translate(tableRef) +
                             QLatin1String(" WHERE ") + Dialect::QuoteColumn(t.Key());
        std::vector<Row> back;
        for (const auto& [first, last] : spilled) {
            const QString text = head + QStringLiteral(" BETWEEN %1 AND %2 ORDER BY ").arg(first).arg(last) +
                                 Dialect::QuoteColumn(t.Key());
            select(text, back);
        }
        spilled.clear();
        spilledAt = 0;
        return back;
    }

    // Whether the current row, an added one that is about to stop being
    // current, is kept by its key alone.
    bool spill(Row& row)
    {
        if (loaded || pos + 1 != rows.size() || !table || columns != table || !table->HasKey() ||
            (spilled.empty() && rows.size() <= kKeptAddedRows))
            return false;
        if (!row.deleted) {
            const qint64 key = cell(row, table->keyIndex).toLongLong();
            if (!spilled.empty() && spilled.back().second + 1 == key)
                spilled.back().second = key;
            else
                spilled.emplace_back(key, key);
        }
        if (spilled.size() == 1 && spilled.front().first == spilled.front().second)
            spilledAt = rows.size() - 1;
        rows.pop_back();
        return true;
    }

    // The record set's columns, from the names the statement reports.
    void setColumns(const QStringList& names)
    {
        const int count = int(names.size());
        std::shared_ptr<const TableInfo> base = table;
        if (!base && !tableRef.isEmpty())
            base = connection->tableInfo(tableRef);

        bool sameColumns = base && base->columns.size() == count;
        for (int i = 0; sameColumns && i < count; ++i)
            sameColumns = base->IndexOf(names.at(i)) == i;
        if (sameColumns) {
            columns = base;
            return;
        }
        auto own = std::make_shared<TableInfo>();
        if (base)
            own->tableRef = base->tableRef;
        for (int i = 0; i < count; ++i) {
            const QString& name = names.at(i);
            const int inBase = base ? base->IndexOf(name) : -1;
            own->columns << name;
            own->kinds.push_back(inBase >= 0 ? base->kinds[size_t(inBase)] : ColumnKind::Other);
            own->index.insert(name.toLower(), i);
            if (base && base->HasKey() && inBase == base->keyIndex)
                own->keyIndex = i;
        }
        // Rows added before the first read were written with the
        // table's columns; only then can these differ.
        if (!rows.empty())
            throw DbError(QStringLiteral("The record set cannot be read back: its columns are not those of table '%1'.")
                              .arg(UnquoteName(tableRef)));
        columns = own;
    }

    // Reads through the SQLite handle itself. False, having read nothing,
    // for text that is not one single statement: Qt decides about that.
    bool readSqlite(SqliteStatements& statements, const QString& text, std::vector<Row>& read, PackedRows& values)
    {
        sqlite3* handle = statements.handle();
        // A selection by key (the children of one parent row, again and
        // again) runs through one kept statement of its shape; anything
        // else is compiled for this read alone.
        QString shape;
        std::vector<qint64> keys;
        const bool kept = ParameterizeKeyLiterals(text, &shape, &keys);
        sqlite3_stmt* statement = kept ? statements.Statement(shape) : PrepareOnce(handle, text);
        if (!statement)
            return false;
        struct Release {
            sqlite3_stmt* statement;
            bool kept;
            ~Release()
            {
                if (kept) {
                    sqlite3_reset(statement);
                    sqlite3_clear_bindings(statement);
                } else {
                    sqlite3_finalize(statement);
                }
            }
        } release{statement, kept};
        for (size_t i = 0; i < keys.size(); ++i)
            sqlite3_bind_int64(statement, int(i) + 1, keys[i]);

        const int count = sqlite3_column_count(statement);
        QStringList names;
        names.reserve(count);
        for (int i = 0; i < count; ++i) {
            // Named as Qt's driver names them: no quotes, no table prefix.
            QString name = QString::fromUtf8(sqlite3_column_name(statement, i)).remove(QLatin1Char('"'));
            const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
            names << (dot < 0 ? name : name.mid(dot + 1));
        }
        setColumns(names);

        int rc;
        while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
            Row r;
            values.BeginRow();
            for (int i = 0; i < count; ++i) {
                switch (sqlite3_column_type(statement, i)) {
                case SQLITE_NULL:
                    values.AddNull();
                    break;
                case SQLITE_INTEGER:
                    values.AddInteger(sqlite3_column_int64(statement, i));
                    break;
                case SQLITE_FLOAT:
                    values.AddDouble(sqlite3_column_double(statement, i));
                    break;
                case SQLITE_BLOB: {
                    const char* data = static_cast<const char*>(sqlite3_column_blob(statement, i));
                    values.AddBlob(data, sqlite3_column_bytes(statement, i));
                    break;
                }
                default: {
                    const char* data = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
                    values.AddText(data, sqlite3_column_bytes(statement, i));
                    break;
                }
                }
            }
            r.packed = values.EndRow();
            read.push_back(std::move(r));
        }
        if (rc != SQLITE_DONE)
            throw DbError(SqliteErrorText(handle));
        return true;
    }

    void readQt(const QString& text, std::vector<Row>& read, PackedRows& values)
    {
        QSqlQuery q(connection->database());
        q.setForwardOnly(true);
        if (!q.exec(text))
            throw connection->StatementFailure(q.lastError());

        const QSqlRecord record = q.record();
        const int count = record.count();
        QStringList names;
        for (int i = 0; i < count; ++i)
            names << record.fieldName(i);
        setColumns(names);

        while (q.next()) {
            Row r;
            values.BeginRow();
            for (int i = 0; i < count; ++i)
                values.AddVariant(q.isNull(i) ? QVariant() : NormaliseRead(q.value(i)));
            r.packed = values.EndRow();
            read.push_back(std::move(r));
        }
        if (q.lastError().isValid())
            throw connection->StatementFailure(q.lastError());
        q.finish();
    }

    size_t currentIndex()
    {
        if (!loaded && rows.empty())
            load();
        if (pos >= rows.size())
            throw DbError(QString::fromLatin1(kNoCurrentText));
        if (rows[pos].deleted)
            throw DbError(QString::fromLatin1(kDeletedText));
        return pos;
    }

    // Fills in the values of an added row that it did not write itself
    // (defaults, triggers): read back by its key when first asked for.
    void complete(Row& row)
    {
        values(row);
        const TableInfo& t = *columns;
        bool found = false;
        if (t.HasKey() && row.own->known.testBit(t.keyIndex) && direct()) {
            SqliteStatements& statements = *direct();
            SqliteRun run(statements, statements.Statement(connection->dialect().SelectByKeySql(t)));
            run.Bind(1, row.own->values[t.keyIndex]);
            if (run.Step() && run.ColumnCount() == int(t.columns.size())) {
                found = true;
                for (int i = 0; i < int(t.columns.size()); ++i) {
                    if (!row.own->known.testBit(i))
                        row.own->values[i] = run.Column(i);
                }
            }
        } else if (t.HasKey() && row.own->known.testBit(t.keyIndex)) {
            connection->SendHeldWrites();
            QSqlQuery& q = connection->preparedStatement(connection->dialect().SelectByKeySql(t));
            q.bindValue(0, row.own->values[t.keyIndex]);
            execOrThrow(q, *connection);
            if (q.next() && q.record().count() == int(t.columns.size())) {
                found = true;
                for (int i = 0; i < int(t.columns.size()); ++i) {
                    if (!row.own->known.testBit(i))
                        row.own->values[i] = q.isNull(i) ? QVariant() : NormaliseRead(q.value(i));
                }
            }
            q.finish();
        }
        if (!found) {
            // The row is gone: what a new row holds by the schema's rules.
            for (int i = 0; i < int(t.columns.size()); ++i) {
                if (row.own->known.testBit(i))
                    continue;
                const ColumnType type = ColumnTypeOf(t.columns[i]);
                row.own->values[i] = (type == ColumnType::Integer || type == ColumnType::Boolean) ? QVariant(0) : QVariant();
            }
        }
        row.own->known = QBitArray();
    }

    void startEdit(Edit kind)
    {
        const qsizetype n = columnInfo().columns.size();
        edit = kind;
        pending = QVariantList(n);
        pendingSet = QBitArray(n);
    }

    void cancelEdit()
    {
        edit = Edit::None;
        pending.clear();
        pendingSet.clear();
    }

    std::vector<int> assignedColumns() const
    {
        std::vector<int> assigned;
        for (int i = 0; i < pendingSet.size(); ++i) {
            if (pendingSet.testBit(i))
                assigned.push_back(i);
        }
        return assigned;
    }

    QVariant bindable(const TableInfo& t, int column, const QVariant& value) const
    {
        if (!value.isValid())
            return TypedNull(t.kinds[size_t(column)]);
        // Qt binds a null QString as NULL; here only an invalid QVariant is
        // Null, and a text box's empty text is the empty string.
        if (value.typeId() == QMetaType::QString && value.toString().isNull())
            return QVariant(QStringLiteral(""));
        return value;
    }

    // Binds an assigned value as `bindable` makes it, without the copy.
    static void bindDirect(SqliteRun& run, int parameter, const QVariant& value)
    {
        if (value.isValid() && value.typeId() == QMetaType::QString &&
            static_cast<const QString*>(value.constData())->isNull())
            run.Bind(parameter, QVariant(QStringLiteral("")));
        else
            run.Bind(parameter, value);  // an invalid value binds as NULL
    }

    // Holds a new row for sending with others (see HeldWrites), its key
    // reserved now. False when the connection does not hold rows or the
    // table has no sequence to take a key from.
    bool holdInsert(const TableInfo& t, Row& row)
    {
        HeldWrites* held = connection->heldWrites();
        if (!held || !t.HasKey())
            return false;
        if (!pendingSet.testBit(t.keyIndex)) {
            const QVariant key = held->ReserveKey(table);
            if (!key.isValid()) {
                held->BeforeRowStatement(t);
                return false;
            }
            pending[t.keyIndex] = key;
            pendingSet.setBit(t.keyIndex);
        }
        QVariantList bound(pending.size());
        for (int c = 0; c < int(pending.size()); ++c) {
            if (pendingSet.testBit(c))
                bound[c] = bindable(t, c, pending[c]);
        }
        held->HoldInsert(table, pendingSet, bound);
        row.own->values = std::move(pending);
        row.own->known = std::move(pendingSet);
        return true;
    }

    void insertPending()
    {
        const TableInfo& t = writableTable();
        const Dialect& dialect = connection->dialect();
        Row row;
        row.own = std::make_unique<RowValues>();
        if (holdInsert(t, row)) {
            storeAdded(std::move(row));
            return;
        }
        const std::vector<int> assigned = assignedColumns();
        auto sql = t.insertSql.constFind(pendingSet);
        if (sql == t.insertSql.constEnd())
            sql = t.insertSql.insert(pendingSet, dialect.InsertSql(t, assigned));
        if (SqliteStatements* statements = direct()) {
            sqlite3* handle = statements->handle();
            {
                SqliteRun run(*statements, statements->Statement(*sql));
                for (size_t i = 0; i < assigned.size(); ++i)
                    bindDirect(run, int(i) + 1, pending[assigned[i]]);
                run.Step();
            }
            // The new row keeps the values as assigned.
            const bool keyAssigned = t.HasKey() && pendingSet.testBit(t.keyIndex);
            row.own->values = std::move(pending);
            row.own->known = std::move(pendingSet);
            if (t.HasKey() && !keyAssigned) {
                // As Qt reads it: no rowid yet is no key.
                const qint64 id = sqlite3_last_insert_rowid(handle);
                row.own->values[t.keyIndex] = id != 0 ? NormaliseRead(QVariant(qlonglong(id))) : QVariant();
            }
            if (t.HasKey())
                row.own->known.setBit(t.keyIndex);
        } else {
            row.own->values = pending;
            row.own->known = pendingSet;
            QSqlQuery& q = connection->preparedStatement(*sql);
            for (size_t i = 0; i < assigned.size(); ++i)
                q.bindValue(int(i), bindable(t, assigned[i], pending[assigned[i]]));
            execOrThrow(q, *connection);
            if (t.HasKey()) {
                QVariant key;
                if (dialect.keyReadBack == Dialect::KeyReadBack::Returning) {
                    if (q.next())
                        key = NormaliseRead(q.value(0));
                } else if (!pendingSet.testBit(t.keyIndex)) {
                    key = NormaliseRead(q.lastInsertId());
                } else {
                    key = pending[t.keyIndex];
                }
                row.own->values[t.keyIndex] = key;
                row.own->known.setBit(t.keyIndex);
            }
            q.finish();
        }
        storeAdded(std::move(row));
    }

    // The added row becomes the current one.
    void storeAdded(Row row)
    {
        if (row.own->known.count(true) == row.own->known.size())
            row.own->known = QBitArray();
        if (pos < rows.size() && !spill(rows[pos]))
            pack(rows[pos]);
        rows.push_back(std::move(row));
        pos = rows.size() - 1;
        cancelEdit();
    }

    void updatePending()
    {
        const std::vector<int> changed = assignedColumns();
        if (changed.empty()) {
            cancelEdit();
            return;
        }
        const TableInfo& t = keyedTable();
        const size_t current = currentIndex();
        Row& row = rows[current];
        if (!known(row, t.keyIndex))
            complete(row);

        auto cached = t.updateSql.constFind(pendingSet);
        if (cached == t.updateSql.constEnd())
            cached = t.updateSql.insert(pendingSet, connection->dialect().UpdateSql(t, changed));
        const QString& sql = *cached;
        int affected = 0;
        if (SqliteStatements* statements = direct()) {
            SqliteRun run(*statements, statements->Statement(sql));
            int p = 1;
            for (int c : changed)
                bindDirect(run, p++, pending[c]);
            run.Bind(p, cell(row, t.keyIndex));
            run.Step();
            affected = sqlite3_changes(statements->handle());
        } else if (HeldWrites* held = connection->heldWrites()) {
            // Held with the whole row as it will be: a later read can tell
            // whether it could select it.
            if (row.partial())
                complete(row);
            QVariantList after(t.columns.size());
            for (int c = 0; c < int(t.columns.size()); ++c)
                after[c] = bindable(t, c, pendingSet.testBit(c) ? pending[c] : cell(row, c));
            held->HoldUpdate(table, pendingSet, after);
            affected = 1;
        } else {
            QSqlQuery& q = connection->preparedStatement(sql);
            int p = 0;
            for (int c : changed)
                q.bindValue(p++, bindable(t, c, pending[c]));
            q.bindValue(p, cell(row, t.keyIndex));
            execOrThrow(q, *connection);
            affected = q.numRowsAffected();
            q.finish();
        }
        if (affected == 0)
            throw DbError(kRowGoneText);
        QVariantList& rowValues = values(row);
        for (int c : changed) {
            rowValues[c] = pending[c];
            if (row.partial())
                row.own->known.setBit(c);
        }
        cancelEdit();
    }

    void flush()
    {
        if (edit == Edit::Adding)
            insertPending();
        else if (edit == Edit::Editing)
            updatePending();
    }

    void reset()
    {
        connection = nullptr;
        sql.clear();
        tableRef.clear();
        table.reset();
        columns.reset();
        loaded = false;
        rows.clear();
        packed.Clear();
        pos = 0;
        cancelEdit();
    }
};

Recordset::Recordset() : d(std::make_unique<Private>()) {}

Recordset::Recordset(const QString& sql, Connection& connection) : Recordset() { Open(sql, connection); }

Recordset::~Recordset() = default;
Recordset::Recordset(Recordset&&) noexcept = default;
Recordset& Recordset::operator=(Recordset&&) noexcept = default;

void Recordset::Open(const QString& sql, Connection& connection)
{
    if (!d)
        d = std::make_unique<Private>();
    d->reset();
    if (!connection.IsOpen())
        throw DbError(QString::fromLatin1(kClosedText));
    CheckInterruption();
    d->connection = &connection;
    d->sql = sql;
    d->tableRef = TableRefOf(sql);
}

void Recordset::Close()
{
    if (d)
        d->reset();
}

bool Recordset::IsOpen() const { return d && d->connection; }

bool Recordset::Eof()
{
    d->requireOpen();
    if (d->edit == Private::Edit::Adding || d->hasAddedCurrent())
        return false;
    d->ensureLoaded();
    return d->pos >= d->rows.size();
}

bool Recordset::Bof()
{
    d->requireOpen();
    if (d->edit == Private::Edit::Adding || d->hasAddedCurrent())
        return false;
    d->ensureLoaded();
    return d->pos >= d->rows.size() && d->liveCount() == 0;
}

void Recordset::MoveFirst()
{
    d->requireOpen();
    d->flush();
    d->ensureLoaded();
    if (d->pos < d->rows.size())
        d->pack(d->rows[d->pos]);
    d->pos = d->firstLiveFrom(0);
}

void Recordset::MoveNext()
{
    d->requireOpen();
    d->flush();
    d->ensureLoaded();
    if (d->pos >= d->rows.size())
        throw DbError(QString::fromLatin1(kNoCurrentText));
    d->pack(d->rows[d->pos]);
    d->pos = d->firstLiveFrom(d->pos + 1);
}

qint32 Recordset::RecordCount()
{
    d->requireOpen();
    d->ensureLoaded();
    return qint32(d->liveCount());
}

void Recordset::AddNew()
{
    d->requireOpen();
    d->flush();
    d->writableTable();
    d->startEdit(Private::Edit::Adding);
}

void Recordset::Update()
{
    d->requireOpen();
    CheckInterruption();
    d->flush();
}

void Recordset::Delete()
{
    d->requireOpen();
    CheckInterruption();
    if (d->edit == Private::Edit::Adding) {
        d->cancelEdit();
        return;
    }
    d->cancelEdit();
    const TableInfo& t = d->keyedTable();
    const size_t current = d->currentIndex();
    Row& row = d->rows[current];
    if (t.deleteSql.isEmpty())
        t.deleteSql = d->connection->dialect().DeleteSql(t);
    const QString& sql = t.deleteSql;
    int affected = 0;
    if (SqliteStatements* statements = d->direct()) {
        SqliteRun run(*statements, statements->Statement(sql));
        run.Bind(1, d->cell(row, t.keyIndex));
        run.Step();
        affected = sqlite3_changes(statements->handle());
    } else if (HeldWrites* held = d->connection->heldWrites()) {
        // Held with its values: a later read can tell whether it could
        // have selected it.
        if (row.partial())
            d->complete(row);
        QVariantList values(t.columns.size());
        for (int c = 0; c < int(t.columns.size()); ++c)
            values[c] = d->bindable(t, c, d->cell(row, c));
        held->HoldDelete(d->table, values);
        affected = 1;
    } else {
        QSqlQuery& q = d->connection->preparedStatement(sql);
        q.bindValue(0, d->cell(row, t.keyIndex));
        execOrThrow(q, *d->connection);
        affected = q.numRowsAffected();
        q.finish();
    }
    if (affected == 0)
        throw DbError(kRowGoneText);
    row.deleted = true;
}

QVariant Recordset::Value(const QString& field)
{
    d->requireOpen();
    d->loadForField();
    const int i = d->fieldIndex(field);
    if (d->edit == Private::Edit::Adding)
        return d->pending[i];
    const size_t current = d->currentIndex();
    Row& row = d->rows[current];
    if (d->edit == Private::Edit::Editing && d->pendingSet.testBit(i))
        return d->pending[i];
    if (!d->known(row, i))
        d->complete(row);
    return d->cell(row, i);
}

bool Recordset::IsNull(const QString& field) { return !Value(field).isValid(); }

qint32 Recordset::Int(const QString& field)
{
    const QVariant v = Value(field);
    return v.isValid() ? v.toInt() : 0;
}

QString Recordset::Text(const QString& field)
{
    const QVariant v = Value(field);
    return v.isValid() ? v.toString() : QString();
}

void Recordset::SetValue(const QString& field, const QVariant& value)
{
    d->requireOpen();
    d->loadForField();
    const int i = d->fieldIndex(field);
    if (d->edit == Private::Edit::None) {
        d->currentIndex();
        d->startEdit(Private::Edit::Editing);
    }
    d->pending[i] = NormaliseAssigned(value, d->columnInfo().kinds[size_t(i)]);
    d->pendingSet.setBit(i);
}

QStringList Recordset::FieldNames()
{
    d->requireOpen();
    // "SELECT * FROM t" has the table's columns, known without reading it;
    // any other column list is the statement's to tell.
    static const QRegularExpression everyColumn(QStringLiteral("^\\s*SELECT\\s+\\*\\s+FROM\\s"),
                                                QRegularExpression::CaseInsensitiveOption);
    if (!d->columns && !everyColumn.match(d->sql).hasMatch())
        d->loadForField();
    return d->columnInfo().columns;
}

QString Recordset::KeyField() const
{
    d->requireOpen();
    const TableInfo& t = d->tableInfo();
    if (!t.HasKey())
        return QString();
    if (const TableDef* def = FindTable(TableName()))
        return def->key;
    return t.Key();
}

QString Recordset::TableName() const { return d ? UnquoteName(d->tableRef) : QString(); }

} // namespace dorvane
