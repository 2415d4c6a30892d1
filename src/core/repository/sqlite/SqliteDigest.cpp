#include "core/repository/sqlite/SqliteDigest.h"

#include "core/repository/DbError.h"
#include "core/repository/Interruption.h"


#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <vector>
#include <memory>

namespace dorvane::sqlite {

namespace {

constexpr qsizetype kBlockBytes = 64 * 1024;
// The interruption is looked at once per this many rows.
constexpr qint64 kRowsPerCheck = 16384;

// XXH64 (Yann Collet's public algorithm) of one block, chained through its
// seed. A fast hash that finds any change of a byte is what the manifest
// needs: it is kept in the file it describes, so a stronger one would not
// stop a deliberate change either.
constexpr quint64 kPrime1 = 0x9E3779B185EBCA87ULL, kPrime2 = 0xC2B2AE3D27D4EB4FULL, kPrime3 = 0x165667B19E3779F9ULL,
                  kPrime4 = 0x85EBCA77C2B2AE63ULL, kPrime5 = 0x27D4EB2F165667C5ULL;

quint64 rotl(quint64 x, int r) { return (x << r) | (x >> (64 - r)); }
quint64 read64(const unsigned char* p)
{
    quint64 v = 0;
    for (int i = 7; i >= 0; --i)
        v = (v << 8) | p[i];
    return v;
}
quint64 read32(const unsigned char* p) { return quint64(p[0]) | quint64(p[1]) << 8 | quint64(p[2]) << 16 | quint64(p[3]) << 24; }
quint64 round64(quint64 acc, quint64 input) { return rotl(acc + input * kPrime2, 31) * kPrime1; }
quint64 merge64(quint64 acc, quint64 value) { return (acc ^ round64(0, value)) * kPrime1 + kPrime4; }

quint64 xxh64(const unsigned char* p, size_t length, quint64 seed)
{
    const unsigned char* const end = p + length;
    quint64 h;
    if (length >= 32) {
        quint64 v1 = seed + kPrime1 + kPrime2, v2 = seed + kPrime2, v3 = seed, v4 = seed - kPrime1;
        for (; p + 32 <= end; p += 32) {
            v1 = round64(v1, read64(p)), v2 = round64(v2, read64(p + 8));
            v3 = round64(v3, read64(p + 16)), v4 = round64(v4, read64(p + 24));
        }
        h = rotl(v1, 1) + rotl(v2, 7) + rotl(v3, 12) + rotl(v4, 18);
        h = merge64(merge64(merge64(merge64(h, v1), v2), v3), v4);
    } else {
        h = seed + kPrime5;
    }
    h += length;
    for (; p + 8 <= end; p += 8)
        h = rotl(h ^ round64(0, read64(p)), 27) * kPrime1 + kPrime4;
    if (p + 4 <= end)
        h = rotl(h ^ (read32(p) * kPrime1), 23) * kPrime2 + kPrime3, p += 4;
    for (; p < end; ++p)
        h = rotl(h ^ (*p * kPrime5), 11) * kPrime1;
    h ^= h >> 33, h *= kPrime2, h ^= h >> 29, h *= kPrime3, h ^= h >> 32;
    return h;
}

// The values of many rows, hashed a block at a time: one call of the hash
// per value would cost more than the hashing itself. Blocks end where they
// are full, so where they end depends on the content alone.
class Blocks {
public:
    Blocks() : m_block(kBlockBytes) {}

    void tag(char tag) { reserve(1), m_block[m_used++] = tag; }
    void number(char tag, quint64 value)
    {
        reserve(9);
        m_block[m_used++] = tag;
        for (int i = 0; i < 8; ++i, value >>= 8)
            m_block[m_used++] = char(value & 0xff);
    }
    void bytes(char tag, const void* data, int size)
    {
        number(tag, quint64(size));
        const char* from = static_cast<const char*>(data);
        while (size > 0) {
            reserve(1);
            const int part = std::min(size, int(m_block.size() - m_used));
            std::memcpy(m_block.data() + m_used, from, size_t(part));
            m_used += part, from += part, size -= part;
        }
    }
    void flush()
    {
        m_hash = xxh64(reinterpret_cast<const unsigned char*>(m_block.data()), size_t(m_used), m_hash);
        m_used = 0;
    }
    quint64 hash() const { return m_hash; }

private:
    void reserve(qsizetype size)
    {
        if (m_used + size > qsizetype(m_block.size()))
            flush();
    }

    quint64 m_hash = 0;
    std::vector<char> m_block;
    qsizetype m_used = 0;
};

struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

} // namespace

namespace {

// What `rule` finds wrong with column `i` of the current row.
std::optional<ValueProblem::Kind> valueProblem(sqlite3_stmt* statement, int i, ValueRule rule, int textLimit)
{
    const int type = sqlite3_column_type(statement, i);
    switch (rule) {
    case ValueRule::Any:
        return std::nullopt;
    case ValueRule::Number:
        if (type == SQLITE_INTEGER || type == SQLITE_NULL)
            return std::nullopt;
        return ValueProblem::Kind::NotANumber;
    case ValueRule::ShortText:
    case ValueRule::Text:
        break;
    }
    if (type == SQLITE_BLOB)
        return ValueProblem::Kind::NotText;
    if (type != SQLITE_TEXT)
        return std::nullopt;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
    const int bytes = sqlite3_column_bytes(statement, i);
    const auto* nul = static_cast<const char*>(std::memchr(text, 0, size_t(bytes)));
    if (rule == ValueRule::ShortText) {
        // Characters before the first NUL, as length() counts them.
        int characters = 0;
        for (const char* c = text; c != (nul ? nul : text + bytes); ++c)
            characters += (static_cast<unsigned char>(*c) & 0xC0) != 0x80;
        if (characters > textLimit)
            return ValueProblem::Kind::TooLong;
    }
    if (nul)
        return ValueProblem::Kind::NotText;
    return std::nullopt;
}

} // namespace

TableDigest DigestTable(sqlite3* handle, const QString& schema, const QString& table, const QString& orderBy,
                        const ValueRules& rules)
{
    const QByteArray sql = QStringLiteral("SELECT * FROM %1.%2 ORDER BY %3").arg(schema, table, orderBy).toUtf8();
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(handle, sql.constData(), int(sql.size()), &prepared, nullptr) != SQLITE_OK)
        throw DbError(QString::fromUtf8(sqlite3_errmsg(handle))).WithStatement(QString::fromUtf8(sql));
    const std::unique_ptr<sqlite3_stmt, Finalize> statement(prepared);
    const int columns = sqlite3_column_count(prepared);

    Blocks block;
    for (int i = 0; i < columns; ++i) {
        const char* name = sqlite3_column_name(prepared, i);
        block.bytes('c', name, int(std::strlen(name)));
    }
    TableDigest result;
    int status;
    const int checked = std::min(columns, int(rules.columns.size()));
    while ((status = sqlite3_step(prepared)) == SQLITE_ROW) {
        for (int i = 0; i < checked; ++i) {
            if (const auto kind = valueProblem(prepared, i, rules.columns[size_t(i)], rules.textLimit)) {
                result.problem = ValueProblem{sqlite3_column_int64(prepared, rules.keyColumn), i, *kind};
                return result;
            }
        }
        for (int i = 0; i < columns; ++i) {
            switch (sqlite3_column_type(prepared, i)) {
            case SQLITE_NULL:
                block.tag('n');
                break;
            case SQLITE_INTEGER:
                block.number('i', quint64(sqlite3_column_int64(prepared, i)));
                break;
            case SQLITE_FLOAT: {
                const double value = sqlite3_column_double(prepared, i);
                quint64 bits;
                std::memcpy(&bits, &value, sizeof bits);
                block.number('f', bits);
                break;
            }
            case SQLITE_TEXT: {
                const unsigned char* text = sqlite3_column_text(prepared, i);
                block.bytes('t', text, sqlite3_column_bytes(prepared, i));
                break;
            }
            default: {
                const void* blob = sqlite3_column_blob(prepared, i);
                block.bytes('b', blob, sqlite3_column_bytes(prepared, i));
                break;
            }
            }
        }
        if (++result.rows % kRowsPerCheck == 0)
            CheckInterruption();
    }
    if (status != SQLITE_DONE) {
        CheckInterruption();  // the progress handler stopped the statement
        throw DbError(QString::fromUtf8(sqlite3_errmsg(handle))).WithStatement(QString::fromUtf8(sql));
    }
    block.flush();
    result.digest = QByteArray::number(block.hash(), 16).rightJustified(16, '0');
    return result;
}

} // namespace dorvane::sqlite
