#include "repository/Recordset.h"

#include "repository/Connection.h"
#include "repository/Dialect.h"
#include "repository/Schema.h"

#include <QBitArray>
#include <QHash>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

#include <vector>

namespace dorvane {

namespace {

const char* const kClosedText = "Operation is not allowed when the object is closed.";
const char* const kNoCurrentText = "Either BOF or EOF is True, or the current record has been deleted. "
                                   "Requested operation requires a current record.";
const char* const kDeletedText = "Row handle referred to a deleted row or a row marked for deletion.";
const char* const kUnknownFieldText =
    "Item cannot be found in the collection corresponding to the requested name or ordinal.";
const char* const kRowGoneText =
    "Row cannot be located for updating. Some values may have been changed since it was last read.";

// One row of the cursor. Rows read from the database hold every value;
// a row this record set added holds the values it wrote plus its key, and
// `known` marks those until the rest is needed.
struct Row {
    QVariantList values;
    QBitArray known;  // empty: every value is known
    bool deleted = false;
};

QString keyText(const QVariant& key) { return key.toString(); }

void execOrThrow(QSqlQuery& q)
{
    if (!q.exec()) {
        const QString text = ErrorDescription(q.lastError());
        q.finish();
        throw DbError(text);
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
    size_t pos = 0;  // the current row; rows.size() is the end

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
        QSqlQuery q(connection->database());
        q.setForwardOnly(true);
        if (!q.exec(connection->dialect().Translate(sql)))
            throw DbError(ErrorDescription(q.lastError()));

        const QSqlRecord record = q.record();
        const int count = record.count();
        std::shared_ptr<const TableInfo> base = table;
        if (!base && !tableRef.isEmpty())
            base = connection->tableInfo(tableRef);

        bool sameColumns = base && base->columns.size() == count;
        for (int i = 0; sameColumns && i < count; ++i)
            sameColumns = base->IndexOf(record.fieldName(i)) == i;
        if (sameColumns) {
            columns = base;
        } else {
            auto own = std::make_shared<TableInfo>();
            if (base)
                own->tableRef = base->tableRef;
            for (int i = 0; i < count; ++i) {
                const QString name = record.fieldName(i);
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

        std::vector<Row> read;
        while (q.next()) {
            Row r;
            r.values.reserve(count);
            for (int i = 0; i < count; ++i)
                r.values.append(q.isNull(i) ? QVariant() : NormaliseRead(q.value(i)));
            read.push_back(std::move(r));
        }
        if (q.lastError().isValid()) {
            const QString text = ErrorDescription(q.lastError());
            throw DbError(text);
        }
        q.finish();

        std::vector<Row> added = std::move(rows);
        const bool hadCurrent = !added.empty();
        const size_t current = pos;
        rows = std::move(read);
        size_t newPos = 0;
        if (!added.empty()) {
            QHash<QString, size_t> byKey;
            const int key = columns->keyIndex;
            if (key >= 0) {
                for (size_t i = 0; i < rows.size(); ++i)
                    byKey.insert(keyText(rows[i].values[key]), i);
            }
            for (size_t k = 0; k < added.size(); ++k) {
                const auto found = key >= 0 ? byKey.constFind(keyText(added[k].values[key])) : byKey.constEnd();
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
        const TableInfo& t = *columns;
        bool found = false;
        if (t.HasKey() && row.known.testBit(t.keyIndex)) {
            QSqlQuery& q = connection->preparedStatement(connection->dialect().SelectByKeySql(t));
            q.bindValue(0, row.values[t.keyIndex]);
            execOrThrow(q);
            if (q.next() && q.record().count() == int(t.columns.size())) {
                found = true;
                for (int i = 0; i < int(t.columns.size()); ++i) {
                    if (!row.known.testBit(i))
                        row.values[i] = q.isNull(i) ? QVariant() : NormaliseRead(q.value(i));
                }
            }
            q.finish();
        }
        if (!found) {
            // The row is gone: what a new row holds by the schema's rules.
            for (int i = 0; i < int(t.columns.size()); ++i) {
                if (row.known.testBit(i))
                    continue;
                const ColumnType type = ColumnTypeOf(t.columns[i]);
                row.values[i] = (type == ColumnType::Integer || type == ColumnType::Boolean) ? QVariant(0) : QVariant();
            }
        }
        row.known = QBitArray();
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

    void insertPending()
    {
        const TableInfo& t = writableTable();
        const Dialect& dialect = connection->dialect();
        const std::vector<int> assigned = assignedColumns();
        auto sql = t.insertSql.constFind(pendingSet);
        if (sql == t.insertSql.constEnd())
            sql = t.insertSql.insert(pendingSet, dialect.InsertSql(t, assigned));
        QSqlQuery& q = connection->preparedStatement(*sql);
        for (size_t i = 0; i < assigned.size(); ++i)
            q.bindValue(int(i), bindable(t, assigned[i], pending[assigned[i]]));
        execOrThrow(q);

        Row row;
        row.values = pending;
        row.known = pendingSet;
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
            row.values[t.keyIndex] = key;
            row.known.setBit(t.keyIndex);
        }
        q.finish();
        if (row.known.count(true) == row.known.size())
            row.known = QBitArray();
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
        if (!row.known.isEmpty() && !row.known.testBit(t.keyIndex))
            complete(row);

        QSqlQuery& q = connection->preparedStatement(connection->dialect().UpdateSql(t, changed));
        int p = 0;
        for (int c : changed)
            q.bindValue(p++, bindable(t, c, pending[c]));
        q.bindValue(p, row.values[t.keyIndex]);
        execOrThrow(q);
        const int affected = q.numRowsAffected();
        q.finish();
        if (affected == 0)
            throw DbError(QString::fromLatin1(kRowGoneText));
        for (int c : changed) {
            row.values[c] = pending[c];
            if (!row.known.isEmpty())
                row.known.setBit(c);
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
    d->pos = d->firstLiveFrom(0);
}

void Recordset::MoveNext()
{
    d->requireOpen();
    d->flush();
    d->ensureLoaded();
    if (d->pos >= d->rows.size())
        throw DbError(QString::fromLatin1(kNoCurrentText));
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
    d->flush();
}

void Recordset::Delete()
{
    d->requireOpen();
    if (d->edit == Private::Edit::Adding) {
        d->cancelEdit();
        return;
    }
    d->cancelEdit();
    const TableInfo& t = d->keyedTable();
    const size_t current = d->currentIndex();
    Row& row = d->rows[current];
    QSqlQuery& q = d->connection->preparedStatement(d->connection->dialect().DeleteSql(t));
    q.bindValue(0, row.values[t.keyIndex]);
    execOrThrow(q);
    const int affected = q.numRowsAffected();
    q.finish();
    if (affected == 0)
        throw DbError(QString::fromLatin1(kRowGoneText));
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
    if (!row.known.isEmpty() && !row.known.testBit(i))
        d->complete(row);
    return row.values[i];
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
