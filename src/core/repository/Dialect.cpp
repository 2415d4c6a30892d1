#include "core/repository/Dialect.h"

#include "core/repository/Connection.h"
#include "core/repository/Schema.h"

#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <atomic>
#include <cstring>
#include <limits>

namespace dorvane {

namespace {

bool isIdentifierStart(QChar c) { return c.isLetter() || c == QLatin1Char('_'); }
bool isIdentifierChar(QChar c) { return c.isLetterOrNumber() || c == QLatin1Char('_'); }

bool isPlainIdentifier(const QString& name)
{
    if (name.isEmpty() || !isIdentifierStart(name.at(0)))
        return false;
    for (QChar c : name) {
        if (!isIdentifierChar(c))
            return false;
    }
    return true;
}

QString doubleQuoted(const QString& name)
{
    QString quoted = name;
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

// The name PostgreSQL resolves for a Jet [name]: a plain identifier is
// written unquoted (the server folds it as it folded the DDL's names);
// anything else keeps its spelling in double quotes.
QString foldedName(const QString& name)
{
    return isPlainIdentifier(name) ? name.toLower() : doubleQuoted(name);
}

QString translate(const QString& sql, Dialect::Brackets brackets)
{
    static const QRegularExpression deleteStar(
        QStringLiteral("^\\s*DELETE\\s*\\*\\s*FROM\\b"), QRegularExpression::CaseInsensitiveOption);

    QString text = sql;
    const QRegularExpressionMatch m = deleteStar.match(text);
    if (m.hasMatch())
        text.replace(0, m.capturedLength(), QStringLiteral("DELETE FROM"));

    if (brackets == Dialect::Brackets::Keep || !text.contains(QLatin1Char('[')))
        return text;

    QString out;
    out.reserve(text.size());
    const qsizetype n = text.size();
    qsizetype i = 0;
    while (i < n) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('\'') || c == QLatin1Char('"')) {
            // A literal or quoted name runs to its closing quote; a doubled
            // quote inside it is part of it and simply copied along.
            qsizetype j = i + 1;
            while (j < n && text.at(j) != c)
                ++j;
            out += QStringView(text).mid(i, qMin(j + 1, n) - i);
            i = j + 1;
        } else if (c == QLatin1Char('[')) {
            const qsizetype close = text.indexOf(QLatin1Char(']'), i + 1);
            if (close < 0) {
                out += QStringView(text).mid(i);
                break;
            }
            out += foldedName(text.mid(i + 1, close - i - 1));
            i = close + 1;
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}

ColumnKind sqliteKind(const QString& declaredType)
{
    // SQLite's own type affinity rules.
    const QString t = declaredType.toUpper();
    if (t.contains(QLatin1String("INT")))
        return ColumnKind::Integer;
    if (t.contains(QLatin1String("CHAR")) || t.contains(QLatin1String("CLOB")) || t.contains(QLatin1String("TEXT")))
        return ColumnKind::Text;
    return ColumnKind::Other;
}

ColumnKind postgresKind(const QString& typeName)
{
    static const QStringList integers{QStringLiteral("int2"), QStringLiteral("int4"), QStringLiteral("int8")};
    static const QStringList texts{QStringLiteral("text"), QStringLiteral("varchar"), QStringLiteral("bpchar"),
                                   QStringLiteral("citext"), QStringLiteral("name")};
    if (integers.contains(typeName))
        return ColumnKind::Integer;
    if (texts.contains(typeName))
        return ColumnKind::Text;
    return ColumnKind::Other;
}

const char* const kSqliteColumns = "SELECT name, type, pk FROM pragma_table_info(?)";
const char* const kPostgresColumns =
    "SELECT a.attname, t.typname,"
    " CASE WHEN EXISTS (SELECT 1 FROM pg_index i WHERE i.indrelid = a.attrelid AND i.indisprimary"
    " AND a.attnum = ANY (i.indkey)) THEN 1 ELSE 0 END"
    " FROM pg_attribute a JOIN pg_type t ON t.oid = a.atttypid"
    " WHERE a.attrelid = to_regclass(?) AND a.attnum > 0 AND NOT a.attisdropped"
    " ORDER BY a.attnum";

QString columnList(const TableInfo& table, const std::vector<int>& columns)
{
    QStringList names;
    names.reserve(qsizetype(columns.size()));
    for (int c : columns)
        names << Dialect::QuoteColumn(table.columns.at(c));
    return names.join(QLatin1String(", "));
}

// Folds an ASCII letter to lower case; anything else stays.
inline char16_t asciiLower(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c + (u'a' - u'A')) : c; }

// A cheap hash of a name's length and a few of its letters, folded: it
// only picks the candidates that are then compared in full.
inline uint quickHash(QStringView text)
{
    const qsizetype n = text.size();
    if (n == 0)
        return 0;
    const char16_t* c = reinterpret_cast<const char16_t*>(text.data());
    return uint(n) * 2654435761u ^ (uint(asciiLower(c[n - 1])) << 1) ^ (uint(asciiLower(c[n / 2])) << 9) ^
           (uint(asciiLower(c[(n - 1) / 3])) << 17) ^ (uint(asciiLower(c[n - 2 > 0 ? n - 2 : 0])) << 23);
}

bool isAscii(QStringView text)
{
    for (QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

enum class Match { Equal, Different, NotAscii };

// Compares a name with a lower-case column name, from the end (a table's
// columns share their beginnings). A name that is not plain ASCII is left
// to QString's own lower-casing.
Match compareFolded(QStringView name, QStringView lower)
{
    const char16_t* a = reinterpret_cast<const char16_t*>(name.data());
    const char16_t* b = reinterpret_cast<const char16_t*>(lower.data());
    for (qsizetype i = name.size() - 1; i >= 0; --i) {
        if (a[i] >= 0x80)
            return Match::NotAscii;
        if (asciiLower(a[i]) != b[i])
            return Match::Different;
    }
    return Match::Equal;
}

} // namespace

void TableInfo::buildLookup() const
{
    m_entries.clear();
    m_entries.reserve(size_t(index.size()));
    for (auto it = index.constBegin(); it != index.constEnd(); ++it) {
        const int position = it.value();
        const QString original = position >= 0 && position < columns.size() ? columns.at(position) : it.key();
        m_entries.push_back({it.key(), original, position, quickHash(it.key())});
    }
    size_t size = 8;
    while (size < m_entries.size() * 2)
        size *= 2;
    m_slots.assign(size, -1);
    for (size_t e = 0; e < m_entries.size(); ++e) {
        size_t slot = m_entries[e].hash & (size - 1);
        while (m_slots[slot] >= 0)
            slot = (slot + 1) & (size - 1);
        m_slots[slot] = int(e);
    }
}

int TableInfo::IndexOf(const QString& column) const
{
    if (m_entries.size() != size_t(index.size()) || m_slots.empty())
        buildLookup();
    const uint h = quickHash(column);
    const size_t mask = m_slots.size() - 1;
    for (size_t slot = h & mask; m_slots[slot] >= 0; slot = (slot + 1) & mask) {
        const Entry& e = m_entries[size_t(m_slots[slot])];
        if (e.hash != h || e.lower.size() != column.size())
            continue;
        // Spelt as the database spells it: lower-cased, both are the key.
        if (e.original.size() == column.size() &&
            std::memcmp(column.constData(), e.original.constData(), size_t(column.size()) * sizeof(QChar)) == 0)
            return e.position;
        // For an ASCII name, lower-casing changes A-Z only.
        switch (compareFolded(column, e.lower)) {
        case Match::Equal:
            return e.position;
        case Match::NotAscii:
            return index.value(column.toLower(), -1);
        case Match::Different:
            break;
        }
    }
    return isAscii(column) ? -1 : index.value(column.toLower(), -1);
}

namespace {

// Whether text starts with DELETE (any case) after white space: only then
// can it be Jet's "DELETE * FROM".
bool mayBeDeleteStar(const QString& text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    return QStringView(text).mid(i, 6).compare(QLatin1String("DELETE"), Qt::CaseInsensitive) == 0;
}

} // namespace

QString Dialect::Translate(const QString& jetSql) const
{
    if (!mayBeDeleteStar(jetSql) && (brackets == Brackets::Keep || !jetSql.contains(QLatin1Char('['))))
        return jetSql;
    return translate(jetSql, brackets);
}

QString Dialect::QuoteColumn(const QString& column) { return doubleQuoted(column); }

QString Dialect::InsertSql(const TableInfo& table, const std::vector<int>& columns) const
{
    QString sql = QLatin1String("INSERT INTO ") + Translate(table.tableRef);
    if (columns.empty()) {
        sql += QLatin1String(" DEFAULT VALUES");
    } else {
        QStringList marks;
        for (size_t i = 0; i < columns.size(); ++i)
            marks << QStringLiteral("?");
        sql += QLatin1String(" (") + columnList(table, columns) + QLatin1String(") VALUES (") +
               marks.join(QLatin1String(", ")) + QLatin1Char(')');
    }
    if (keyReadBack == KeyReadBack::Returning && table.HasKey())
        sql += QLatin1String(" RETURNING ") + QuoteColumn(table.Key());
    return sql;
}

QString Dialect::InsertRowsSql(const TableInfo& table, const std::vector<int>& columns, int rows) const
{
    QString row = QStringLiteral("(");
    for (size_t i = 0; i < columns.size(); ++i)
        row += i == 0 ? QLatin1String("?") : QLatin1String(", ?");
    row += QLatin1Char(')');
    QString sql = QLatin1String("INSERT INTO ") + Translate(table.tableRef) + QLatin1String(" (") +
                  columnList(table, columns) + QLatin1String(") VALUES ");
    sql.reserve(sql.size() + rows * (row.size() + 2));
    for (int r = 0; r < rows; ++r) {
        if (r > 0)
            sql += QLatin1String(", ");
        sql += row;
    }
    return sql;
}

QString Dialect::UpdateRowsSql(const TableInfo& table, const std::vector<int>& columns, int rows) const
{
    // The first row types the values; the others follow it.
    auto typed = [&](int column) {
        const QString type = column < table.types.size() ? table.types.at(column) : QString();
        return type.isEmpty() ? QStringLiteral("?") : QLatin1String("CAST(? AS ") + doubleQuoted(type) + QLatin1Char(')');
    };
    QString first = QLatin1Char('(') + typed(table.keyIndex);
    QString other = QStringLiteral("(?");
    QStringList names = {QStringLiteral("k")};
    QStringList sets;
    for (size_t i = 0; i < columns.size(); ++i) {
        first += QLatin1String(", ") + typed(columns[i]);
        other += QLatin1String(", ?");
        names << QStringLiteral("v%1").arg(i);
        sets << QuoteColumn(table.columns.at(columns[i])) + QLatin1String(" = held.v") + QString::number(i);
    }
    first += QLatin1Char(')');
    other += QLatin1Char(')');
    QString sql = QLatin1String("UPDATE ") + Translate(table.tableRef) + QLatin1String(" SET ") +
                  sets.join(QLatin1String(", ")) + QLatin1String(" FROM (VALUES ") + first;
    for (int r = 1; r < rows; ++r)
        sql += QLatin1String(", ") + other;
    sql += QLatin1String(") AS held(") + names.join(QLatin1String(", ")) + QLatin1String(") WHERE ") +
           Translate(table.tableRef) + QLatin1Char('.') + QuoteColumn(table.Key()) + QLatin1String(" = held.k");
    return sql;
}

QString Dialect::UpdateSql(const TableInfo& table, const std::vector<int>& columns) const
{
    QStringList sets;
    for (int c : columns)
        sets << QuoteColumn(table.columns.at(c)) + QLatin1String(" = ?");
    return QLatin1String("UPDATE ") + Translate(table.tableRef) + QLatin1String(" SET ") +
           sets.join(QLatin1String(", ")) + QLatin1String(" WHERE ") + QuoteColumn(table.Key()) +
           QLatin1String(" = ?");
}

QString Dialect::DeleteSql(const TableInfo& table) const
{
    return QLatin1String("DELETE FROM ") + Translate(table.tableRef) + QLatin1String(" WHERE ") +
           QuoteColumn(table.Key()) + QLatin1String(" = ?");
}

QString Dialect::DeleteRowsSql(const TableInfo& table, int column, int values) const
{
    QString marks = QStringLiteral("?");
    marks.reserve(values * 3);
    for (int r = 1; r < values; ++r)
        marks += QLatin1String(", ?");
    return QLatin1String("DELETE FROM ") + Translate(table.tableRef) + QLatin1String(" WHERE ") +
           QuoteColumn(table.columns.at(column)) + QLatin1String(" IN (") + marks + QLatin1Char(')');
}

QString Dialect::SelectByKeySql(const TableInfo& table) const
{
    return QLatin1String("SELECT * FROM ") + Translate(table.tableRef) + QLatin1String(" WHERE ") +
           QuoteColumn(table.Key()) + QLatin1String(" = ?");
}

TableInfo Dialect::ReadTableInfo(QSqlDatabase& db, const QString& tableRef) const
{
    TableInfo info;
    info.tableRef = tableRef;

    QSqlQuery q(db);
    q.setForwardOnly(true);
    const bool sqlite = backend == BackendKind::Sqlite;
    if (!q.prepare(QString::fromLatin1(sqlite ? kSqliteColumns : kPostgresColumns)))
        throw DbError(ErrorDescription(q.lastError()));
    // SQLite's catalogue takes the bare name; PostgreSQL's resolves the name
    // as the statement text would, folding included.
    q.addBindValue(sqlite ? UnquoteName(tableRef) : Translate(tableRef));
    if (!q.exec())
        throw DbError(ErrorDescription(q.lastError()));

    QStringList primary;
    while (q.next()) {
        const QString column = q.value(0).toString();
        const QString type = q.value(1).toString();
        info.index.insert(column.toLower(), int(info.columns.size()));
        info.columns << column;
        info.kinds.push_back(sqlite ? sqliteKind(type) : postgresKind(type));
        info.types << type;
        if (q.value(2).toInt() != 0)
            primary << column;
    }
    q.finish();

    // The repository's tables name their key; other tables have theirs
    // declared as the (single-column) primary key.
    if (const TableDef* def = FindTable(UnquoteName(tableRef)))
        info.keyIndex = info.IndexOf(def->key);
    if (info.keyIndex < 0 && primary.size() == 1)
        info.keyIndex = info.IndexOf(primary.first());
    return info;
}

const Dialect& SqliteDialect()
{
    static const Dialect dialect{BackendKind::Sqlite,
                                 "SQLite",
                                 Dialect::KeyReadBack::LastInsertId,
                                 Dialect::Brackets::Keep,
                                 // IMMEDIATE takes the write lock at once: a
                                 // deferred transaction that reads first cannot
                                 // wait for another writer.
                                 "BEGIN IMMEDIATE",
                                 "COMMIT",
                                 "ROLLBACK",
                                 false};
    return dialect;
}

const Dialect& PostgresDialect()
{
    static const Dialect dialect{BackendKind::Odbc,
                                 "PostgreSQL (ODBC)",
                                 Dialect::KeyReadBack::Returning,
                                 Dialect::Brackets::FoldToIdentifier,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 true};
    return dialect;
}

namespace {

std::atomic<qint64> lastLockWaitMs{0};
std::atomic<quint64> concurrentChanges{0};

} // namespace

void NoteLockWait(qint64 milliseconds) { lastLockWaitMs.store(milliseconds); }

quint64 ConcurrentChanges() { return concurrentChanges.load(); }

QString LockWaitDescription(const QString& databaseText)
{
    qint64 waited = 0;
    if (databaseText.contains(QLatin1String("database is locked"), Qt::CaseInsensitive) ||
        databaseText.contains(QLatin1String("database table is locked"), Qt::CaseInsensitive))
        waited = lastLockWaitMs.load();
    else if (databaseText.contains(QLatin1String("lock timeout"), Qt::CaseInsensitive))
        waited = LockWaitMs();
    else if (databaseText.contains(QLatin1String("could not serialize access"), Qt::CaseInsensitive))
        return ++concurrentChanges, QStringLiteral("The repository was changed by another operation meanwhile; try again (%1)").arg(databaseText);
    else if (!databaseText.contains(QLatin1String("deadlock detected"), Qt::CaseInsensitive))
        return databaseText;
    return QStringLiteral("The repository is busy with another program: this one waited %1 s for it and gave up (%2)")
        .arg(double(waited) / 1000.0, 0, 'f', 1)
        .arg(databaseText);
}

QString ErrorDescription(const QSqlError& error)
{
    const QString text = error.databaseText().trimmed();
    return LockWaitDescription(text.isEmpty() ? error.text().trimmed() : text);
}

namespace {

bool isAsciiWordChar(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_';
}

bool isAsciiSpace(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }

// The table of TableRefOf for ASCII text whose table is named bare or in
// [brackets] - the statements the data layer opens record sets on, again
// and again. False when the general rule must decide.
bool asciiTableRef(const QString& sql, QString* tableRef)
{
    const qsizetype n = sql.size();
    const char16_t* const s = reinterpret_cast<const char16_t*>(sql.constData());
    for (qsizetype i = 0; i < n; ++i) {
        if (s[i] >= 0x80)
            return false;
    }
    for (qsizetype i = 0; i + 4 < n; ++i) {
        if (asciiLower(s[i]) != u'f' || asciiLower(s[i + 1]) != u'r' || asciiLower(s[i + 2]) != u'o' ||
            asciiLower(s[i + 3]) != u'm')
            continue;
        if ((i > 0 && isAsciiWordChar(s[i - 1])) || !isAsciiSpace(s[i + 4]))
            continue;
        qsizetype start = i + 4;
        while (start < n && isAsciiSpace(s[start]))
            ++start;
        if (start == n)
            continue;
        if (s[start] == u'"')
            return false;
        qsizetype end = start;
        if (s[start] == u'[') {
            while (end < n && s[end] != u']')
                ++end;
            if (end == n)
                return false;
            ++end;
        } else {
            while (end < n && !isAsciiSpace(s[end]) && s[end] != u';' && s[end] != u',' && s[end] != u'(' &&
                   s[end] != u')')
                ++end;
            if (end == start)
                continue;
        }
        *tableRef = sql.mid(start, end - start);
        return true;
    }
    *tableRef = QString();
    return true;
}

} // namespace

QString TableRefOf(const QString& selectSql)
{
    QString fast;
    if (asciiTableRef(selectSql, &fast))
        return fast;

    static const QRegularExpression from(
        QStringLiteral("\\bFROM\\s+(\\[[^\\]]*\\]|\"(?:[^\"]|\"\")*\"|[^\\s;,()]+)"),
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch m = from.match(selectSql);
    return m.hasMatch() ? m.captured(1) : QString();
}

QString UnquoteName(const QString& tableRef)
{
    if (tableRef.size() >= 2 && tableRef.startsWith(QLatin1Char('[')) && tableRef.endsWith(QLatin1Char(']')))
        return tableRef.mid(1, tableRef.size() - 2);
    if (tableRef.size() >= 2 && tableRef.startsWith(QLatin1Char('"')) && tableRef.endsWith(QLatin1Char('"')))
        return tableRef.mid(1, tableRef.size() - 2).replace(QLatin1String("\"\""), QLatin1String("\""));
    return tableRef;
}

QVariant NormaliseRead(const QVariant& value)
{
    if (!value.isValid() || value.isNull())
        return QVariant();
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? -1 : 0;
    case QMetaType::Int:
        return value;
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong: {
        bool ok = false;
        const qlonglong v = value.toLongLong(&ok);
        if (ok && v >= std::numeric_limits<qint32>::min() && v <= std::numeric_limits<qint32>::max())
            return int(v);
        return value;
    }
    default:
        return value;
    }
}

QVariant NormaliseAssigned(const QVariant& value, ColumnKind kind)
{
    if (!value.isValid() || value.isNull())
        return QVariant();
    // What the copy engine assigns most: already as kept.
    if ((kind == ColumnKind::Integer && value.typeId() == QMetaType::Int) ||
        (kind == ColumnKind::Text && value.typeId() == QMetaType::QString))
        return value;
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? -1 : 0;
    switch (kind) {
    case ColumnKind::Integer:
        if (value.typeId() == QMetaType::QString) {
            bool ok = false;
            const qlonglong v = value.toString().trimmed().toLongLong(&ok);
            return ok ? NormaliseRead(QVariant(v)) : value;
        }
        if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float)
            return NormaliseRead(QVariant(qRound64(value.toDouble())));
        return NormaliseRead(value);
    case ColumnKind::Text:
        if (value.typeId() == QMetaType::QString)
            return value;
        if (value.canConvert<QString>())
            return value.toString();
        return value;
    case ColumnKind::Other:
        break;
    }
    return NormaliseRead(value);
}

QVariant TypedNull(ColumnKind kind)
{
    return QVariant(QMetaType(kind == ColumnKind::Integer ? QMetaType::Int : QMetaType::QString));
}

} // namespace dorvane
