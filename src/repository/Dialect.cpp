#include "repository/Dialect.h"

#include "repository/Schema.h"

#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

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

} // namespace

QString Dialect::Translate(const QString& jetSql) const { return translate(jetSql, brackets); }

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
                                 "ROLLBACK"};
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
                                 nullptr};
    return dialect;
}

QString ErrorDescription(const QSqlError& error)
{
    const QString text = error.databaseText().trimmed();
    return text.isEmpty() ? error.text().trimmed() : text;
}

QString TableRefOf(const QString& selectSql)
{
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
