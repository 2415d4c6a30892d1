#include "core/repository/sqlite/SqliteStatements.h"

#include "core/repository/DbError.h"
#include "core/repository/Dialect.h"

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QStringEncoder>
#include <QTime>
#include <QUuid>

#include <sqlite3.h>

#include <limits>

namespace dorvane {

namespace {

// As many statements as the copy engine's tables and column sets need; a
// connection that prepares more starts over.
constexpr qsizetype kStatementLimit = 256;

// Qt's own test for a value it binds as NULL.
bool isNullValue(const QVariant& value)
{
    if (!value.isValid() || value.isNull())
        return true;
    switch (value.typeId()) {
    case QMetaType::QString:
        return static_cast<const QString*>(value.constData())->isNull();
    case QMetaType::QByteArray:
        return static_cast<const QByteArray*>(value.constData())->isNull();
    case QMetaType::QDateTime:
        return !static_cast<const QDateTime*>(value.constData())->isValid();
    case QMetaType::QDate:
        return !static_cast<const QDate*>(value.constData())->isValid();
    case QMetaType::QTime:
        return !static_cast<const QTime*>(value.constData())->isValid();
    case QMetaType::QUuid:
        return static_cast<const QUuid*>(value.constData())->isNull();
    default:
        return false;
    }
}

} // namespace

QString SqliteErrorText(sqlite3* handle)
{
    return NamingReadonlyFile(handle, LockWaitDescription(QString::fromUtf8(sqlite3_errmsg(handle)).trimmed()));
}

QString NamingReadonlyFile(sqlite3* handle, const QString& text)
{
    if (!handle || !text.contains(QLatin1String("readonly database"), Qt::CaseInsensitive))
        return text;
    const char* file = sqlite3_db_filename(handle, "main");
    if (!file || !*file)
        return text;
    // A database in write-ahead-log mode also needs its folder, for the
    // -wal and -shm files beside it.
    return QStringLiteral("%1: the file '%2' (or its folder, which holds the file's -wal and -shm files) cannot "
                          "be written")
        .arg(text, QString::fromUtf8(file));
}

// Binds text as UTF-8, SQLite's storage encoding, from the parameter's
// own kept buffer: no copy inside SQLite, no allocation.
int BindUtf8(SqliteStatements& statements, sqlite3_stmt* statement, int parameter, QStringView text)
{
    QStringEncoder encoder(QStringEncoder::Utf8, QStringConverter::Flag::Stateless);
    char* const begin = statements.TextBuffer(parameter, encoder.requiredSpace(text.size()));
    const char* const end = encoder.appendToBuffer(begin, text);
    const qsizetype bytes = end - begin;
    if (bytes > std::numeric_limits<int>::max())
        return SQLITE_TOOBIG;
    return sqlite3_bind_text(statement, parameter, begin, int(bytes), SQLITE_STATIC);
}

SqliteStatements::SqliteStatements(sqlite3* handle) : m_handle(handle) {}

SqliteStatements::~SqliteStatements() { Clear(); }

sqlite3_stmt* SqliteStatements::Statement(const QString& sql)
{
    if (auto found = m_statements.constFind(sql); found != m_statements.constEnd())
        return *found;
    if (m_statements.size() >= kStatementLimit)
        Clear();
    const QByteArray text = sql.toUtf8();
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(m_handle, text.constData(), int(text.size()) + 1, SQLITE_PREPARE_PERSISTENT, &statement,
                           nullptr) != SQLITE_OK) {
        const QString error = ErrorText();
        sqlite3_finalize(statement);
        throw DbError(error);
    }
    if (!statement)
        throw DbError(QStringLiteral("The statement is empty: %1").arg(sql));
    m_statements.insert(sql, statement);
    return statement;
}

void SqliteStatements::Clear()
{
    for (sqlite3_stmt* statement : std::as_const(m_statements))
        sqlite3_finalize(statement);
    m_statements.clear();
}

QString SqliteStatements::ErrorText() const { return SqliteErrorText(m_handle); }

char* SqliteStatements::TextBuffer(int parameter, qsizetype size)
{
    if (size_t(parameter) >= m_texts.size())
        m_texts.resize(size_t(parameter) + 1);
    QByteArray& buffer = m_texts[size_t(parameter)];
    if (buffer.size() < size)
        buffer.resize(qMax(size, qsizetype(64)));
    return buffer.data();
}

SqliteRun::SqliteRun(SqliteStatements& statements, sqlite3_stmt* statement)
    : m_statements(statements), m_statement(statement)
{
}

SqliteRun::~SqliteRun()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

int SqliteRun::bindText(int parameter, QStringView text) { return BindUtf8(m_statements, m_statement, parameter, text); }

void SqliteRun::Bind(int parameter, const QVariant& value)
{
    int rc = SQLITE_OK;
    if (isNullValue(value)) {
        rc = sqlite3_bind_null(m_statement, parameter);
    } else {
        switch (value.typeId()) {
        case QMetaType::Int:
        case QMetaType::Bool:
            rc = sqlite3_bind_int(m_statement, parameter, value.toInt());
            break;
        case QMetaType::Double:
            rc = sqlite3_bind_double(m_statement, parameter, value.toDouble());
            break;
        case QMetaType::UInt:
        case QMetaType::LongLong:
            rc = sqlite3_bind_int64(m_statement, parameter, value.toLongLong());
            break;
        case QMetaType::QString:
            rc = bindText(parameter, *static_cast<const QString*>(value.constData()));
            break;
        case QMetaType::QByteArray: {
            const QByteArray* bytes = static_cast<const QByteArray*>(value.constData());
            rc = sqlite3_bind_blob64(m_statement, parameter, bytes->constData(), sqlite3_uint64(bytes->size()),
                                     SQLITE_TRANSIENT);
            break;
        }
        case QMetaType::QDateTime:
            rc = bindText(parameter, value.toDateTime().toString(Qt::ISODateWithMs));
            break;
        case QMetaType::QTime:
            rc = bindText(parameter, value.toTime().toString(u"hh:mm:ss.zzz"));
            break;
        default:
            rc = bindText(parameter, value.toString());
            break;
        }
    }
    if (rc != SQLITE_OK)
        throw DbError(m_statements.ErrorText());
}

bool SqliteRun::Step()
{
    const int rc = sqlite3_step(m_statement);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    throw DbError(m_statements.ErrorText());
}

int SqliteRun::ColumnCount() const { return sqlite3_column_count(m_statement); }

QVariant SqliteRun::Column(int column) const
{
    switch (sqlite3_column_type(m_statement, column)) {
    case SQLITE_NULL:
        return QVariant();
    case SQLITE_INTEGER: {
        const qint64 v = sqlite3_column_int64(m_statement, column);
        if (v >= std::numeric_limits<qint32>::min() && v <= std::numeric_limits<qint32>::max())
            return QVariant(int(v));
        return QVariant(qlonglong(v));
    }
    case SQLITE_FLOAT:
        return QVariant(sqlite3_column_double(m_statement, column));
    case SQLITE_BLOB: {
        const char* data = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
        return QVariant(QByteArray(data, sqlite3_column_bytes(m_statement, column)));
    }
    default: {
        const char* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
        return QVariant(QString::fromUtf8(text, sqlite3_column_bytes(m_statement, column)));
    }
    }
}

sqlite3_stmt* PrepareOnce(sqlite3* handle, const QString& sql)
{
    const QByteArray text = sql.toUtf8();
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare_v2(handle, text.constData(), int(text.size()) + 1, &statement, &tail) != SQLITE_OK) {
        const QString error = SqliteErrorText(handle);
        sqlite3_finalize(statement);
        throw DbError(error);
    }
    const char* const end = text.constData() + text.size();
    while (tail && tail < end && (*tail == ' ' || *tail == '\t' || *tail == '\n' || *tail == '\r' || *tail == '\f' ||
                                  *tail == '\v'))
        ++tail;
    if (!statement || (tail && tail < end)) {
        sqlite3_finalize(statement);
        return nullptr;
    }
    return statement;
}

namespace {

bool isWordChar(QChar c) { return c.isLetterOrNumber() || c == u'_' || c == u'$'; }

} // namespace

bool ParameterizeKeyLiterals(const QString& sql, QString* shape, std::vector<qint64>* values)
{
    QString out;
    std::vector<qint64> found;
    const qsizetype n = sql.size();
    qsizetype copied = 0;   // sql[0, copied) is in `out`
    QChar lastSignificant;  // the last character outside blanks, quotes excluded
    qsizetype i = 0;
    while (i < n) {
        const QChar c = sql[i];
        if (c == u'\'' || c == u'"' || c == u'[' || c == u'`') {
            const QChar close = c == u'[' ? QChar(u']') : c;
            qsizetype j = i + 1;
            while (j < n && sql[j] != close)
                ++j;
            i = j + 1;
            lastSignificant = close;
            continue;
        }
        if (c == u'-' && i + 1 < n && sql[i + 1] == u'-')
            return false;  // a comment: leave the text to the general path
        if (c == u';') {
            for (qsizetype j = i + 1; j < n; ++j) {
                if (!sql[j].isSpace())
                    return false;
            }
            break;
        }
        if (isWordChar(c)) {
            qsizetype j = i;
            while (j < n && isWordChar(sql[j]))
                ++j;
            const bool comparedTo = lastSignificant == u'=' || lastSignificant == u'<' || lastSignificant == u'>';
            qsizetype start = i;
            bool negative = false;
            // A minus sign directly before the digits belongs to the literal.
            if (i > 0 && sql[i - 1] == u'-') {
                negative = true;
                start = i - 1;
            }
            bool digits = true;
            for (qsizetype k = i; k < j && digits; ++k)
                digits = sql[k] >= u'0' && sql[k] <= u'9';
            const bool fraction = j < n && sql[j] == u'.';
            if (comparedTo && digits && !fraction && j - i <= 18) {
                const qint64 value = QStringView(sql).mid(i, j - i).toLongLong();
                found.push_back(negative ? -value : value);
                out += QStringView(sql).mid(copied, start - copied);
                out += u'?';
                copied = j;
            }
            lastSignificant = sql[j - 1];
            i = j;
            continue;
        }
        if (!c.isSpace() && !(c == u'-' && i + 1 < n && isWordChar(sql[i + 1])))
            lastSignificant = c;
        ++i;
    }
    if (found.empty())
        return false;
    out += QStringView(sql).mid(copied);
    *shape = std::move(out);
    *values = std::move(found);
    return true;
}

std::optional<qint64> ExecuteKept(SqliteStatements& statements, const QString& sql)
{
    // Only the statements that change rows take parameters where they name
    // a number ("PRAGMA user_version = 1" takes none).
    const QString verb = sql.trimmed().left(6).toUpper();
    if (verb != QLatin1String("DELETE") && verb != QLatin1String("UPDATE") && verb != QLatin1String("INSERT"))
        return std::nullopt;
    QString shape;
    std::vector<qint64> values;
    if (!ParameterizeKeyLiterals(sql, &shape, &values))
        return std::nullopt;
    sqlite3_stmt* statement = statements.Statement(shape);
    if (sqlite3_column_count(statement) != 0)
        return std::nullopt;  // a statement that returns rows is not run here
    SqliteRun run(statements, statement);
    for (size_t i = 0; i < values.size(); ++i)
        run.Bind(int(i) + 1, QVariant(qlonglong(values[i])));
    while (run.Step()) {
    }
    return sqlite3_changes(statements.handle());
}

} // namespace dorvane

namespace dorvane {

namespace {

// Reads a JSON array of arrays of scalars a character at a time: the one
// shape the server writes for a block of rows, so a general parser (and
// the value objects it would build) is not needed.
class JsonRows {
public:
    JsonRows(SqliteStatements& statements, QStringView text) : m_statements(statements), m_text(text) {}

    // Skips white space and takes `c` if it is next.
    bool Take(QChar c)
    {
        skipSpace();
        if (m_at < m_text.size() && m_text[m_at] == c) {
            ++m_at;
            return true;
        }
        return false;
    }
    void Expect(QChar c)
    {
        if (!Take(c))
            fail();
    }
    bool AtEnd()
    {
        skipSpace();
        return m_at == m_text.size();
    }

    // Binds the next value to parameter `parameter` of `statement`.
    int BindValue(sqlite3_stmt* statement, int parameter)
    {
        skipSpace();
        if (m_at >= m_text.size())
            fail();
        const QChar first = m_text[m_at];
        if (first == u'"')
            return bindText(statement, parameter);
        if (m_text.sliced(m_at).startsWith(u"null")) {
            m_at += 4;
            return sqlite3_bind_null(statement, parameter);
        }
        if (m_text.sliced(m_at).startsWith(u"true")) {
            m_at += 4;
            return sqlite3_bind_int64(statement, parameter, 1);
        }
        if (m_text.sliced(m_at).startsWith(u"false")) {
            m_at += 5;
            return sqlite3_bind_int64(statement, parameter, 0);
        }
        const qsizetype begin = m_at;
        bool integral = true;
        while (m_at < m_text.size()) {
            const QChar c = m_text[m_at];
            if (c == u'.' || c == u'e' || c == u'E')
                integral = false;
            else if (!c.isDigit() && c != u'-' && c != u'+')
                break;
            ++m_at;
        }
        const QStringView number = m_text.sliced(begin, m_at - begin);
        bool ok = false;
        if (integral) {
            const qint64 value = number.toLongLong(&ok);
            if (ok)
                return sqlite3_bind_int64(statement, parameter, value);
        }
        const double value = number.toDouble(&ok);
        if (!ok)
            fail();
        return sqlite3_bind_double(statement, parameter, value);
    }

private:
    void skipSpace()
    {
        while (m_at < m_text.size() && m_text[m_at].isSpace())
            ++m_at;
    }
    [[noreturn]] void fail() const
    {
        throw DbError(QStringLiteral("A block of rows is not a JSON array of rows (at character %1).").arg(m_at));
    }

    // A text without escapes is bound as it stands in the block; one with
    // escapes is written out first.
    int bindText(sqlite3_stmt* statement, int parameter)
    {
        QString& buffer = m_unescaped;
        const qsizetype begin = ++m_at;
        while (m_at < m_text.size() && m_text[m_at] != u'"' && m_text[m_at] != u'\\')
            ++m_at;
        if (m_at >= m_text.size())
            fail();
        if (m_text[m_at] == u'"') {
            const QStringView text = m_text.sliced(begin, m_at++ - begin);
            return BindUtf8(m_statements, statement, parameter, text);
        }
        buffer = m_text.sliced(begin, m_at - begin).toString();
        while (m_at < m_text.size() && m_text[m_at] != u'"') {
            const QChar c = m_text[m_at++];
            if (c != u'\\') {
                buffer += c;
                continue;
            }
            if (m_at >= m_text.size())
                fail();
            const QChar escaped = m_text[m_at++];
            switch (escaped.unicode()) {
            case u'b': buffer += QChar(u'\b'); break;
            case u'f': buffer += QChar(u'\f'); break;
            case u'n': buffer += QChar(u'\n'); break;
            case u'r': buffer += QChar(u'\r'); break;
            case u't': buffer += QChar(u'\t'); break;
            case u'u': {
                // A surrogate pair arrives as two escapes, each one UTF-16
                // code unit: appended in turn they make the character.
                bool ok = false;
                const ushort unit = m_at + 4 <= m_text.size() ? m_text.sliced(m_at, 4).toUShort(&ok, 16) : 0;
                if (!ok)
                    fail();
                buffer += QChar(unit);
                m_at += 4;
                break;
            }
            default: buffer += escaped; break;  // " \\ /
            }
        }
        if (m_at >= m_text.size())
            fail();
        ++m_at;
        return BindUtf8(m_statements, statement, parameter, buffer);
    }

    SqliteStatements& m_statements;
    QStringView m_text;
    qsizetype m_at = 0;
    QString m_unescaped;
};

} // namespace

void InsertJsonRows(SqliteStatements& statements, const QString& insertHead, int columns, QStringView rows, qint64 count)
{
    // Many rows to a statement: a statement's own costs (its start, the
    // table's AUTOINCREMENT counter written back at its end) come once
    // per hundred rows instead of once per row.
    constexpr int kRowsPerStatement = 100;
    const auto insertOf = [&](int rowCount) {
        const QString row = u'(' + QStringLiteral("?,").repeated(columns - 1) + QStringLiteral("?)");
        return statements.Statement(insertHead + (row + u',').repeated(rowCount - 1) + row);
    };
    sqlite3_stmt* const full = insertOf(kRowsPerStatement);
    JsonRows json(statements, rows);
    // Binds the next `rowCount` rows to `insert` and runs it.
    const auto insertRows = [&](sqlite3_stmt* insert, int rowCount) {
        SqliteRun run(statements, insert);
        for (int row = 0; row < rowCount; ++row) {
            if (row > 0)
                json.Expect(u',');
            json.Expect(u'[');
            for (int column = 0; column < columns; ++column) {
                if (column > 0)
                    json.Expect(u',');
                const int parameter = row * columns + column + 1;
                if (json.BindValue(insert, parameter) != SQLITE_OK)
                    throw DbError(statements.ErrorText());
            }
            json.Expect(u']');
        }
        run.Step();
    };
    json.Expect(u'[');
    for (qint64 left = count; left > 0;) {
        const int rowCount = int(std::min<qint64>(left, kRowsPerStatement));
        if (left != count)
            json.Expect(u',');
        insertRows(rowCount == kRowsPerStatement ? full : insertOf(rowCount), rowCount);
        left -= rowCount;
    }
    json.Expect(u']');
    if (!json.AtEnd())
        throw DbError(QStringLiteral("A block of rows is not a JSON array of rows (text after its end)."));
}

} // namespace dorvane
