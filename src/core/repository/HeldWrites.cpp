#include "core/repository/HeldWrites.h"

#include "core/repository/Connection.h"
#include "core/repository/Dialect.h"

#include <QSqlQuery>

#include <algorithm>
#include <limits>

namespace dorvane {

namespace {

// Rows per statement: past a few hundred the round trip no longer counts.
constexpr int kRowsPerStatement = 1000;
// What one statement may carry: the server takes 65,535 parameters, but
// psqlODBC loses its place in the server's description of a statement of
// about 16,000 ("lost synchronization with server").
constexpr int kMaxParameters = 2000;
// Keys reserved at a time, growing from the first to the last as a table
// keeps taking them.
constexpr int kFirstKeyBlock = 16;
constexpr int kLastKeyBlock = 1024;

// A condition "column = integer" of a selection's WHERE clause.
struct Equality {
    QString column;
    qint64 value;
};

struct Token {
    enum Kind { Word, Number, Literal, Symbol } kind;
    QString text;
};

bool isWordStart(QChar c) { return c.isLetter() || c == QLatin1Char('_'); }
bool isWordChar(QChar c) { return c.isLetterOrNumber() || c == QLatin1Char('_') || c == QLatin1Char('$'); }

std::vector<Token> tokens(const QString& sql)
{
    std::vector<Token> out;
    const qsizetype n = sql.size();
    qsizetype i = 0;
    while (i < n) {
        const QChar c = sql.at(i);
        if (c.isSpace()) {
            ++i;
        } else if (c == QLatin1Char('\'') || c == QLatin1Char('"')) {
            // A literal or quoted name ends at its closing quote; doubled
            // quotes stand for one.
            QString text;
            qsizetype j = i + 1;
            while (j < n) {
                if (sql.at(j) == c) {
                    if (j + 1 < n && sql.at(j + 1) == c) {
                        text += c;
                        j += 2;
                        continue;
                    }
                    break;
                }
                text += sql.at(j++);
            }
            out.push_back({c == QLatin1Char('"') ? Token::Word : Token::Literal, text});
            i = j + 1;
        } else if (isWordStart(c)) {
            qsizetype j = i;
            while (j < n && isWordChar(sql.at(j)))
                ++j;
            out.push_back({Token::Word, sql.mid(i, j - i)});
            i = j;
        } else if (c.isDigit()) {
            qsizetype j = i;
            while (j < n && (sql.at(j).isDigit() || sql.at(j) == QLatin1Char('.')))
                ++j;
            out.push_back({Token::Number, sql.mid(i, j - i)});
            i = j;
        } else {
            out.push_back({Token::Symbol, QString(c)});
            ++i;
        }
    }
    return out;
}

bool is(const Token& t, const char* word)
{
    return t.kind == Token::Word && t.text.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}

// A condition of the form column = integer (or integer = column).
bool equality(const std::vector<Token>& t, size_t from, size_t to, Equality* out)
{
    std::vector<Token> c(t.begin() + qsizetype(from), t.begin() + qsizetype(to));
    // A column named with its table: keep the column.
    if (c.size() >= 3 && c[0].kind == Token::Word && c[1].kind == Token::Symbol && c[1].text == QLatin1String("."))
        c.erase(c.begin(), c.begin() + 2);
    auto number = [](const std::vector<Token>& v, size_t at, qint64* value) {
        bool negative = false;
        if (at < v.size() && v[at].kind == Token::Symbol && v[at].text == QLatin1String("-")) {
            negative = true;
            ++at;
        }
        if (at + 1 != v.size() || v[at].kind != Token::Number)
            return false;
        bool ok = false;
        const qint64 n = v[at].text.toLongLong(&ok);
        *value = negative ? -n : n;
        return ok;
    };
    if (c.size() >= 3 && c[0].kind == Token::Word && c[1].kind == Token::Symbol && c[1].text == QLatin1String("=") &&
        number(c, 2, &out->value)) {
        out->column = c[0].text;
        return true;
    }
    return false;
}

// A single-table selection "SELECT ... FROM table [WHERE a AND b ...]
// [ORDER BY ...]": its table and the conditions that compare a column with
// an integer. False for anything else (subqueries, joins, OR).
bool selection(const QString& sql, QString* table, std::vector<Equality>* equalities)
{
    const std::vector<Token> t = tokens(sql);
    if (t.empty() || !is(t[0], "SELECT"))
        return false;
    size_t from = 0;
    for (size_t i = 0; i < t.size(); ++i) {
        if (t[i].kind == Token::Symbol && (t[i].text == QLatin1String("(") || t[i].text == QLatin1String(";")))
            return false;
        if (i > 0 && (is(t[i], "SELECT") || is(t[i], "JOIN") || is(t[i], "OR") || is(t[i], "UNION")))
            return false;
        if (from == 0 && is(t[i], "FROM"))
            from = i;
    }
    if (from == 0 || from + 1 >= t.size() || t[from + 1].kind != Token::Word)
        return false;
    *table = t[from + 1].text;
    size_t i = from + 2;
    if (i == t.size() || is(t[i], "ORDER"))
        return true;
    if (!is(t[i], "WHERE"))
        return false;
    size_t start = ++i;
    for (;; ++i) {
        const bool end = i == t.size() || is(t[i], "ORDER");
        if (end || is(t[i], "AND")) {
            Equality e;
            if (equality(t, start, i, &e))
                equalities->push_back(e);
            start = i + 1;
        }
        if (end)
            return true;
    }
}

qint64 integer(const QVariant& v, bool* ok)
{
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UInt:
        *ok = true;
        return v.toLongLong();
    default:
        *ok = false;
        return 0;
    }
}

} // namespace

// Held rows of one table that one statement can carry: the same kind of
// write of the same columns.
struct HeldWrites::Run {
    std::shared_ptr<const TableInfo> table;
    Kind kind = Kind::Insert;
    QBitArray columns;
    std::vector<int> list;
    std::vector<QVariantList> rows;
    // Per column: the smallest and largest integer held, and whether some
    // value of another kind is held (Null never equals a number).
    struct Range {
        qint64 low = std::numeric_limits<qint64>::max();
        qint64 high = std::numeric_limits<qint64>::min();
        bool other = false;
    };
    std::vector<Range> ranges;

    int rowsPerStatement() const
    {
        const int parameters = kind == Kind::Insert || kind == Kind::DeleteWhere ? int(list.size()) : int(list.size()) + 1;
        return std::max(1, std::min(kRowsPerStatement, kMaxParameters / std::max(1, parameters)));
    }

    bool known(int column) const
    {
        return kind == Kind::Update || kind == Kind::Delete || columns.testBit(column);
    }

    bool holdsKey(qint64 key) const { return mayHold(table->keyIndex, key); }

    // Whether some row holds `value` in `column` (a column the run knows).
    bool mayHold(int column, qint64 value) const
    {
        const Range& r = ranges[size_t(column)];
        if (!r.other && (value < r.low || value > r.high))
            return false;
        for (const QVariantList& row : rows) {
            bool ok = false;
            const qint64 v = integer(row[column], &ok);
            if ((ok && v == value) || (!ok && row[column].isValid() && row[column].toLongLong(&ok) == value && ok))
                return true;
        }
        return false;
    }

    void add(const QVariantList& values)
    {
        for (int c = 0; c < int(values.size()); ++c) {
            if (!known(c) || !values[c].isValid() || values[c].isNull())
                continue;
            bool ok = false;
            const qint64 v = integer(values[c], &ok);
            Range& r = ranges[size_t(c)];
            if (!ok) {
                r.other = true;
                continue;
            }
            r.low = std::min(r.low, v);
            r.high = std::max(r.high, v);
        }
        rows.push_back(values);
    }
};

HeldWrites::HeldWrites(Connection& connection) : m_connection(connection) {}

HeldWrites::~HeldWrites() = default;

QVariant HeldWrites::ReserveKey(const std::shared_ptr<const TableInfo>& table)
{
    if (!table->HasKey())
        return QVariant();
    auto found = m_sequences.find(table.get());
    if (found == m_sequences.end()) {
        Sequence sequence;
        sequence.name = m_connection.KeySequence(m_connection.dialect().Translate(table->tableRef), table->Key());
        found = m_sequences.insert(table.get(), sequence);
    }
    Sequence& sequence = *found;
    if (sequence.name.isEmpty())
        return QVariant();
    if (sequence.next == sequence.keys.size()) {
        sequence.block = sequence.block == 0 ? kFirstKeyBlock : std::min(kLastKeyBlock, sequence.block * 2);
        QSqlQuery q(m_connection.database());
        q.setForwardOnly(true);
        q.prepare(QStringLiteral("SELECT nextval(CAST(? AS regclass)) FROM generate_series(1, ?)"));
        q.addBindValue(sequence.name);
        q.addBindValue(sequence.block);
        if (!q.exec())
            throw m_connection.StatementFailure(q.lastError());
        sequence.keys.clear();
        sequence.next = 0;
        while (q.next())
            sequence.keys.push_back(NormaliseRead(q.value(0)));
        // One statement's rows come back in the order the sequence gave them.
        std::sort(sequence.keys.begin(), sequence.keys.end(),
                  [](const QVariant& a, const QVariant& b) { return a.toLongLong() < b.toLongLong(); });
        if (sequence.keys.empty())
            throw DbError(QStringLiteral("The sequence %1 gave no keys.").arg(sequence.name));
    }
    return sequence.keys[sequence.next++];
}

void HeldWrites::HoldInsert(const std::shared_ptr<const TableInfo>& table, const QBitArray& columns,
                            const QVariantList& values)
{
    hold(table, Kind::Insert, columns, values);
}

void HeldWrites::HoldUpdate(const std::shared_ptr<const TableInfo>& table, const QBitArray& changed,
                            const QVariantList& row)
{
    hold(table, Kind::Update, changed, row);
}

void HeldWrites::HoldDelete(const std::shared_ptr<const TableInfo>& table, const QVariantList& row)
{
    hold(table, Kind::Delete, QBitArray(int(table->columns.size())), row);
}

bool HeldWrites::HoldDeletion(const QString& sql)
{
    const std::vector<Token> t = tokens(sql);
    Equality condition;
    if (t.size() != 7 || !is(t[0], "DELETE") || !is(t[1], "FROM") || t[2].kind != Token::Word || !is(t[3], "WHERE") ||
        !equality(t, 4, t.size(), &condition))
        return false;
    const std::shared_ptr<const TableInfo> table = m_connection.tableInfo(t[2].text);
    const int column = table->IndexOf(condition.column);
    if (column < 0)
        return false;
    QBitArray columns(int(table->columns.size()));
    columns.setBit(column);
    QVariantList values(table->columns.size());
    values[column] = QVariant(qlonglong(condition.value));
    hold(table, Kind::DeleteWhere, columns, values);
    return true;
}

void HeldWrites::hold(const std::shared_ptr<const TableInfo>& table, Kind kind, const QBitArray& columns,
                      const QVariantList& values)
{
    Run* run = nullptr;
    for (auto it = m_runs.rbegin(); it != m_runs.rend(); ++it) {
        if ((*it)->table == table) {
            run = it->get();
            break;
        }
    }
    const bool keyHeld = (kind == Kind::Update || kind == Kind::Delete) && run && run->kind == kind &&
                         run->holdsKey(values[table->keyIndex].toLongLong());
    if (keyHeld) {
        // A row changed twice: the first change goes first.
        sendTable(table.get());
        run = nullptr;
    }
    if (!run || run->kind != kind || run->columns != columns) {
        auto fresh = std::make_unique<Run>();
        fresh->table = table;
        fresh->kind = kind;
        fresh->columns = columns;
        for (int c = 0; c < columns.size(); ++c) {
            if (columns.testBit(c))
                fresh->list.push_back(c);
        }
        fresh->ranges.resize(size_t(table->columns.size()));
        run = fresh.get();
        m_runs.push_back(std::move(fresh));
    }
    run->add(values);
    if (int(run->rows.size()) >= run->rowsPerStatement())
        sendTable(table.get());
}

void HeldWrites::BeforeRead(const QString& sql)
{
    if (m_runs.empty())
        return;
    QString table;
    std::vector<Equality> equalities;
    if (!selection(sql, &table, &equalities)) {
        Flush();
        return;
    }
    const QString name = UnquoteName(table);
    for (const auto& run : m_runs) {
        if (UnquoteName(m_connection.dialect().Translate(run->table->tableRef)).compare(name, Qt::CaseInsensitive) != 0)
            continue;
        bool excluded = false;
        for (const Equality& e : equalities) {
            const int column = run->table->IndexOf(e.column);
            if (column >= 0 && run->known(column) && !run->mayHold(column, e.value)) {
                excluded = true;
                break;
            }
        }
        if (!excluded) {
            sendTable(run->table.get());
            return;
        }
    }
}

void HeldWrites::BeforeRowStatement(const TableInfo& table) { sendTable(&table); }

void HeldWrites::Flush()
{
    while (!m_runs.empty()) {
        std::unique_ptr<Run> run = std::move(m_runs.front());
        m_runs.erase(m_runs.begin());
        send(*run);
    }
}

void HeldWrites::Discard()
{
    m_runs.clear();
    // Reserved keys stay reserved: a sequence never hands a key out twice,
    // rolled back or not.
}

void HeldWrites::sendTable(const TableInfo* table)
{
    for (size_t i = 0; i < m_runs.size();) {
        if (m_runs[i]->table.get() != table) {
            ++i;
            continue;
        }
        std::unique_ptr<Run> run = std::move(m_runs[i]);
        m_runs.erase(m_runs.begin() + qsizetype(i));
        send(*run);
    }
}

void HeldWrites::send(Run& run)
{
    const TableInfo& table = *run.table;
    const Dialect& dialect = m_connection.dialect();
    const int perStatement = run.rowsPerStatement();
    const QString tableName = UnquoteName(table.tableRef);
    for (size_t first = 0; first < run.rows.size(); first += size_t(perStatement)) {
        const int count = int(std::min(run.rows.size() - first, size_t(perStatement)));
        QString sql;
        switch (run.kind) {
        case Kind::Insert: sql = dialect.InsertRowsSql(table, run.list, count); break;
        case Kind::Update: sql = dialect.UpdateRowsSql(table, run.list, count); break;
        case Kind::Delete: sql = dialect.DeleteRowsSql(table, table.keyIndex, count); break;
        case Kind::DeleteWhere: sql = dialect.DeleteRowsSql(table, run.list.front(), count); break;
        }
        QSqlQuery& q = m_connection.preparedStatement(sql);
        int p = 0;
        for (int r = 0; r < count; ++r) {
            const QVariantList& row = run.rows[first + size_t(r)];
            if (run.kind == Kind::Update || run.kind == Kind::Delete)
                q.bindValue(p++, row[table.keyIndex]);
            for (int c : run.list)
                q.bindValue(p++, row[c]);
        }
        if (!q.exec()) {
            const QSqlError error = q.lastError();
            q.finish();
            throw m_connection.StatementFailure(error).WithTable(tableName);
        }
        const int affected = q.numRowsAffected();
        q.finish();
        // Rows changed or deleted by key must all have been there.
        if ((run.kind == Kind::Update || run.kind == Kind::Delete) && affected < count)
            throw DbError(kRowGoneText).WithTable(tableName);
    }
}


} // namespace dorvane
