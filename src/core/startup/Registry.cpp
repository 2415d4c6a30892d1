#include "core/startup/Registry.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringDecoder>
#include <QStringList>

#include <cstring>

namespace dorvane {

// The values of one key, by case-folded value name ("" is the default
// value). Each holds its type and the bytes an ANSI query hands back: the
// string types as 8-bit text (UTF-8 is this platform's ANSI code page), the
// other types as stored.
struct RegKeyData {
    struct Value {
        quint32 type = REG_NONE;
        QByteArray data;
    };
    QHash<QString, Value> values;
};

namespace {

QString g_override;

constexpr long ERROR_SUCCESS = 0;
constexpr long ERROR_FILE_NOT_FOUND = 2;
constexpr long ERROR_INVALID_HANDLE = 6;
constexpr long ERROR_MORE_DATA = 234;

// A settings file is a few kilobytes; anything far larger is not one.
constexpr qint64 kMaxFileSize = 16 * 1024 * 1024;

const QString kDefaultFile = QStringLiteral("/etc/zentrix/zentrix.reg");
const QString kHeaderV5 = QStringLiteral("Windows Registry Editor Version 5.00");
const QString kHeaderV4 = QStringLiteral("REGEDIT4");

QString Fold(const QString& s) { return s.toCaseFolded(); }

// regedit writes UTF-16LE with a byte-order mark; hand-made files are
// mostly UTF-8. Bytes that are not valid UTF-8 are read as Latin-1, as an
// old single-byte REGEDIT4 export would be.
QString DecodeFile(const QByteArray& bytes)
{
    if (bytes.startsWith("\xFF\xFE")) {
        QStringDecoder decoder(QStringDecoder::Utf16LE);
        return decoder.decode(bytes.mid(2));
    }
    if (bytes.startsWith("\xFE\xFF")) {
        QStringDecoder decoder(QStringDecoder::Utf16BE);
        return decoder.decode(bytes.mid(2));
    }
    const QByteArray body = bytes.startsWith("\xEF\xBB\xBF") ? bytes.mid(3) : bytes;
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder.decode(body);
    if (decoder.hasError())
        return QString::fromLatin1(body);
    return text;
}

bool ParseRoot(const QString& name, RegRoot* root)
{
    static const QHash<QString, RegRoot> roots = {
        {QStringLiteral("hkey_local_machine"), HKEY_LOCAL_MACHINE},
        {QStringLiteral("hklm"), HKEY_LOCAL_MACHINE},
        {QStringLiteral("hkey_current_user"), HKEY_CURRENT_USER},
        {QStringLiteral("hkcu"), HKEY_CURRENT_USER},
        {QStringLiteral("hkey_classes_root"), HKEY_CLASSES_ROOT},
        {QStringLiteral("hkcr"), HKEY_CLASSES_ROOT},
        {QStringLiteral("hkey_users"), HKEY_USERS},
        {QStringLiteral("hku"), HKEY_USERS},
    };
    const auto it = roots.constFind(Fold(name));
    if (it == roots.constEnd())
        return false;
    *root = it.value();
    return true;
}

// Reads a quoted string starting at text[*pos] == '"'. Only \\ and \" are
// escapes; a backslash before anything else stays a backslash, so that a
// hand-written "C:\Zentrix" keeps its meaning. Leaves *pos after the
// closing quote.
bool ParseQuoted(const QString& text, qsizetype* pos, QString* out)
{
    if (*pos >= text.size() || text.at(*pos) != u'"')
        return false;
    QString result;
    for (qsizetype i = *pos + 1; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'"') {
            *pos = i + 1;
            *out = result;
            return true;
        }
        if (c == u'\\' && i + 1 < text.size() && (text.at(i + 1) == u'\\' || text.at(i + 1) == u'"')) {
            result.append(text.at(++i));
            continue;
        }
        result.append(c);
    }
    return false;
}

bool ParseHexBytes(const QString& list, QByteArray* out)
{
    QByteArray bytes;
    const QString trimmed = list.trimmed();
    if (trimmed.isEmpty()) {
        *out = bytes;
        return true;
    }
    for (const QString& item : trimmed.split(u',')) {
        const QString digits = item.trimmed();
        if (digits.isEmpty() || digits.size() > 2)
            return false;
        bool ok = false;
        const uint byte = digits.toUInt(&ok, 16);
        if (!ok)
            return false;
        bytes.append(static_cast<char>(byte));
    }
    *out = bytes;
    return true;
}

QString DecodeUtf16Le(const QByteArray& bytes)
{
    QString text;
    text.reserve(bytes.size() / 2);
    for (qsizetype i = 0; i + 1 < bytes.size(); i += 2) {
        const auto lo = static_cast<uchar>(bytes.at(i));
        const auto hi = static_cast<uchar>(bytes.at(i + 1));
        text.append(QChar(static_cast<char16_t>(lo | (hi << 8))));
    }
    return text;
}

bool IsStringType(quint32 type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

bool IsBlank(QChar c) { return c == u' ' || c == u'\t'; }

bool IsHexDigit(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

// Whether `text` holds nothing from `pos` on but blanks, perhaps followed
// by a ';' comment: all that regedit lets follow a value's data. Another
// character (a '#', a second number) makes it refuse the line.
bool OnlyCommentFrom(const QString& text, qsizetype pos)
{
    while (pos < text.size() && IsBlank(text.at(pos)))
        ++pos;
    return pos == text.size() || text.at(pos) == u';';
}

// A line of hex data without its ';' comment.
QString WithoutComment(const QString& line)
{
    const qsizetype semicolon = line.indexOf(u';');
    return (semicolon < 0 ? line : line.left(semicolon)).trimmed();
}

// Parses the data part of a value line (after "="), continuation lines
// included. False for malformed data, which sets no value.
bool ParseData(const QString& data, bool unicodeFile, RegKeyData::Value* value)
{
    const QString d = data.trimmed();
    if (d.startsWith(u'"')) {
        qsizetype pos = 0;
        QString text;
        if (!ParseQuoted(d, &pos, &text) || !OnlyCommentFrom(d, pos))
            return false;
        value->type = REG_SZ;
        value->data = text.toUtf8();
        value->data.append('\0');
        return true;
    }
    if (d.startsWith(u"dword:", Qt::CaseInsensitive)) {
        // One to eight hex digits and nothing else: regedit refuses "0x1",
        // "+1", "1 2" and nine digits, even nine that make a small number.
        qsizetype pos = 6;
        while (pos < d.size() && IsBlank(d.at(pos)))
            ++pos;
        const qsizetype start = pos;
        while (pos < d.size() && IsHexDigit(d.at(pos)))
            ++pos;
        if (pos == start || pos - start > 8 || !OnlyCommentFrom(d, pos))
            return false;
        bool ok = false;
        const quint32 number = d.mid(start, pos - start).toUInt(&ok, 16);
        if (!ok)
            return false;
        value->type = REG_DWORD;
        value->data.resize(4);
        for (int i = 0; i < 4; ++i)
            value->data[i] = static_cast<char>((number >> (8 * i)) & 0xFF);
        return true;
    }
    if (!d.startsWith(u"hex", Qt::CaseInsensitive))
        return false;
    qsizetype colon = d.indexOf(u':');
    if (colon < 0)
        return false;
    const QString kind = d.left(colon);
    quint32 type = REG_BINARY;
    if (kind.size() > 3) {
        if (kind.at(3) != u'(' || !kind.endsWith(u')'))
            return false;
        bool ok = false;
        type = kind.mid(4, kind.size() - 5).toUInt(&ok, 16);
        if (!ok)
            return false;
    }
    QByteArray bytes;
    if (!ParseHexBytes(d.mid(colon + 1), &bytes))
        return false;
    value->type = type;
    if (IsStringType(type)) {
        // Version 5 files hold the registry's own UTF-16LE; REGEDIT4 files
        // hold single-byte text.
        const QString text = unicodeFile ? DecodeUtf16Le(bytes) : QString::fromLatin1(bytes);
        value->data = text.toUtf8();
    } else {
        value->data = bytes;
    }
    return true;
}

// The lines of a settings file and whether it is a version 5 export, or
// what is wrong with the file.
struct SettingsText {
    QStringList lines;
    bool unicode = false;
    QString problem; // empty when the file is a registry export
};

SettingsText ReadSettingsText(const QString& fileName)
{
    SettingsText text;
    const QFileInfo info(fileName);
    if (!info.exists()) {
        text.problem = QStringLiteral("The settings file %1 does not exist.").arg(fileName);
        return text;
    }
    QFile file(fileName);
    if (info.isDir() || !file.open(QIODevice::ReadOnly)) {
        text.problem = QStringLiteral("The settings file %1 cannot be read: %2.")
                           .arg(fileName, info.isDir() ? QStringLiteral("it is a folder") : file.errorString());
        return text;
    }
    const QString tooLarge = QStringLiteral("The settings file %1 is too large for a settings file: it holds more "
                                            "than %2 MB.")
                                 .arg(fileName)
                                 .arg(kMaxFileSize / (1024 * 1024));
    if (info.size() > kMaxFileSize) {
        text.problem = tooLarge;
        return text;
    }
    // Read in pieces up to the limit: the path may name a device or pipe
    // that never ends. Such a file is at its end for atEnd() before
    // anything was read, so only an empty read ends it.
    QByteArray bytes;
    for (;;) {
        const QByteArray piece = file.read(64 * 1024);
        if (piece.isEmpty())
            break;
        bytes += piece;
        if (bytes.size() > kMaxFileSize)
            break;
    }

    if (bytes.size() > kMaxFileSize) {
        text.problem = tooLarge;
        return text;
    }
    text.lines = DecodeFile(bytes).split(u'\n');
    for (QString& line : text.lines) {
        if (line.endsWith(u'\r'))
            line.chop(1);
    }
    const QString header = text.lines.first().trimmed();
    text.unicode = header == kHeaderV5;
    if (!text.unicode && header != kHeaderV4) {
        text.problem = QStringLiteral("The settings file %1 is not a registry export: it does not begin with "
                                      "\"%2\" or \"%3\".")
                           .arg(fileName, kHeaderV5, kHeaderV4);
    }
    return text;
}

// A key path as compared: case-folded, without trailing backslashes.
QString KeyPath(const QString& path)
{
    QString folded = Fold(path.trimmed());
    while (folded.endsWith(u'\\'))
        folded.chop(1);
    return folded;
}

// "[ROOT\\path]" with an optional comment after it, as regedit writes and
// reads it; nothing for a header without its closing bracket, or one with
// something other than a comment after it.
struct SectionHeader {
    bool deletion = false;
    RegRoot root = 0;
    QString path; // as KeyPath gives it
};

std::optional<SectionHeader> ParseSectionHeader(const QString& line)
{
    const qsizetype close = line.lastIndexOf(u']');
    if (close < 0)
        return std::nullopt;
    const QString rest = line.mid(close + 1).trimmed();
    if (!rest.isEmpty() && !rest.startsWith(u';'))
        return std::nullopt;
    SectionHeader header;
    QString name = line.mid(1, close - 1).trimmed();
    if (name.startsWith(u'-')) {
        header.deletion = true;
        name = name.mid(1).trimmed();
    }
    const qsizetype slash = name.indexOf(u'\\');
    if (!ParseRoot(slash < 0 ? name : name.left(slash), &header.root))
        return std::nullopt;
    header.path = slash < 0 ? QString() : KeyPath(name.mid(slash + 1));
    return header;
}

// Whether `path` is `key` itself or lies below it.
bool IsAtOrBelow(const QString& path, const QString& key)
{
    return key.isEmpty() || path == key || path.startsWith(key + u'\\');
}

// The values of root\path in the file, or nothing when the file cannot be
// read, is not a registry file, or has no such key. The file is applied
// line by line, as an import would: a section creates its key and the keys
// above it, "[-KEY]" deletes a key with everything below it, "Name"=-
// deletes a value.
std::shared_ptr<const RegKeyData> LoadKey(const QString& fileName, RegRoot root, const QString& path)
{
    const SettingsText text = ReadSettingsText(fileName);
    if (!text.problem.isEmpty())
        return nullptr;
    const QStringList& lines = text.lines;
    const QString wanted = KeyPath(path);

    auto key = std::make_shared<RegKeyData>();
    bool found = wanted.isEmpty();
    bool inKey = false;

    for (qsizetype n = 1; n < lines.size(); ++n) {
        const QString line = lines.at(n).trimmed();
        if (line.isEmpty() || line.startsWith(u';'))
            continue;

        // Every line that opens with a bracket ends the section before it,
        // whether or not it names a key of its own.
        if (line.startsWith(u'[')) {
            inKey = false;
            const std::optional<SectionHeader> header = ParseSectionHeader(line);
            if (!header || header->root != root)
                continue;
            if (header->deletion) {
                if (IsAtOrBelow(wanted, header->path)) {
                    key->values.clear();
                    found = wanted.isEmpty();
                }
                continue;
            }
            inKey = header->path == wanted;
            if (IsAtOrBelow(header->path, wanted))
                found = true;
            continue;
        }

        // A value line: "Name"=data or @=data. Hex data may go on over
        // the following lines, each but the last ending in a backslash
        // (regedit wraps long values so).
        QString name;
        qsizetype pos = 0;
        if (line.startsWith(u'@')) {
            pos = 1;
        } else if (!ParseQuoted(line, &pos, &name)) {
            continue;
        }
        while (pos < line.size() && line.at(pos).isSpace())
            ++pos;
        if (pos >= line.size() || line.at(pos) != u'=')
            continue;
        QString data = line.mid(pos + 1).trimmed();
        if (data.startsWith(u"hex", Qt::CaseInsensitive)) {
            // Each line may end in a comment, after the backslash that
            // continues the data too.
            data = WithoutComment(data);
            while (data.endsWith(u'\\') && n + 1 < lines.size()) {
                data.chop(1);
                data += WithoutComment(lines.at(++n));
            }
        }
        if (!inKey)
            continue;
        if (data.startsWith(u'-') && OnlyCommentFrom(data, 1)) {
            key->values.remove(Fold(name));
            continue;
        }
        RegKeyData::Value value;
        if (!ParseData(data, text.unicode, &value))
            continue;
        key->values.insert(Fold(name), value);
    }

    if (!found)
        return nullptr;
    return key;
}

// RegQueryValueExA: with no data buffer it reports type and size; with
// one it copies the data when *size is large enough, else reports
// ERROR_MORE_DATA with the size needed.
long QueryValueEx(const RegKey& key, const QString& name, quint32* type, char* data, quint32* size)
{
    if (key.isNull())
        return ERROR_INVALID_HANDLE;
    const auto it = key.data()->values.constFind(Fold(name));
    if (it == key.data()->values.constEnd())
        return ERROR_FILE_NOT_FOUND;
    const auto needed = static_cast<quint32>(it->data.size());
    if (type)
        *type = it->type;
    if (data) {
        if (*size < needed) {
            *size = needed;
            return ERROR_MORE_DATA;
        }
        if (needed > 0)
            std::memcpy(data, it->data.constData(), needed);
    }
    *size = needed;
    return ERROR_SUCCESS;
}

} // namespace

QString SettingsFilePath()
{
    if (!g_override.isEmpty())
        return g_override;
    const QString env = qEnvironmentVariable("ZENTRIX_REGISTRY");
    if (!env.isEmpty())
        return env;
    return kDefaultFile;
}

void SetSettingsFileOverride(const QString& path) { g_override = path; }

std::optional<QString> SettingsFileProblem()
{
    QString problem = ReadSettingsText(SettingsFilePath()).problem;
    if (problem.isEmpty())
        return std::nullopt;
    return problem;
}

RegKey RegOpenKey(RegRoot root, const QString& path)
{
    const QString file = SettingsFilePath();
    RegKey key;
    key.m_data = LoadKey(file, root, path);
    // A 32-bit program on 64-bit Windows reads HKLM\SOFTWARE through the
    // WOW6432Node view, so exports from such machines hold the suite's
    // key there.
    static const QString software = QStringLiteral("software\\");
    const QString wanted = KeyPath(path);
    if (!key.m_data && root == HKEY_LOCAL_MACHINE && wanted.startsWith(software)
        && !wanted.startsWith(software + QStringLiteral("wow6432node\\")))
        key.m_data = LoadKey(file, root, software + QStringLiteral("wow6432node\\") + wanted.mid(software.size()));
    return key;
}

std::optional<QString> QueryValueString(const RegKey& key, const QString& name)
{
    quint32 type = REG_NONE;
    quint32 size = 0;
    if (QueryValueEx(key, name, &type, nullptr, &size) != ERROR_SUCCESS || type != REG_SZ)
        return std::nullopt;
    QByteArray buffer(static_cast<qsizetype>(size), ' ');
    if (QueryValueEx(key, name, nullptr, buffer.data(), &size) != ERROR_SUCCESS)
        return std::nullopt;
    return TrimAtNull(QString::fromUtf8(buffer));
}

std::optional<qint32> QueryValueDword(const RegKey& key, const QString& name)
{
    quint32 type = REG_NONE;
    quint32 size = 0;
    if (QueryValueEx(key, name, &type, nullptr, &size) != ERROR_SUCCESS
        || (type != REG_DWORD && type != REG_BINARY))
        return std::nullopt;
    // The value goes into a four-byte integer with the size the first query
    // reported: more than four bytes do not fit, fewer fill its low bytes.
    unsigned char number[4] = {0, 0, 0, 0};
    if (size > sizeof number
        || QueryValueEx(key, name, nullptr, reinterpret_cast<char*>(number), &size) != ERROR_SUCCESS)
        return 0;
    return static_cast<qint32>(static_cast<quint32>(number[0]) | (static_cast<quint32>(number[1]) << 8)
                               | (static_cast<quint32>(number[2]) << 16)
                               | (static_cast<quint32>(number[3]) << 24));
}

QString TrimAtNull(const QString& text)
{
    const qsizetype nul = text.indexOf(QChar(u'\0'));
    return nul < 0 ? text : text.left(nul);
}

std::optional<QString> GetSettingString(RegRoot root, const QString& path, const QString& name)
{
    const RegKey key = RegOpenKey(root, path);
    return QueryValueString(key, name);
}

std::optional<qint32> GetSettingDword(RegRoot root, const QString& path, const QString& name)
{
    const RegKey key = RegOpenKey(root, path);
    return QueryValueDword(key, name);
}

QString SettingString(const QString& name)
{
    return GetSettingString(HKEY_LOCAL_MACHINE, kZentrixKey, name).value_or(QString());
}

qint32 SettingDword(const QString& name) { return GetSettingDword(HKEY_LOCAL_MACHINE, kZentrixKey, name).value_or(0); }

} // namespace dorvane
