#include "lists/KeywordFiles.h"

#include "repository/Connection.h"
#include "repository/FilePaths.h"
#include "repository/Interaction.h"
#include "repository/Recordset.h"

#include <QFile>

namespace dorvane {

namespace {

constexpr char kTab = '\t';
constexpr char kCr = '\r';
constexpr char kLf = '\n';

QString KeywordsSql(qint32 appKey)
{
    return QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=") + QString::number(appKey);
}

DbError FileError(const QString& action, const QFile& file)
{
    return DbError(QStringLiteral("Cannot %1 file '%2': %3").arg(action, file.fileName(), file.errorString()));
}

// How a read of the file ended.
enum class ReadEnd { EndOfFile, BadFormat, UnexpectedEnd };

// The next character of the file; false at its end. A failing read throws.
bool NextChar(QFile& file, char& ch)
{
    if (file.getChar(&ch))
        return true;
    if (file.error() != QFileDevice::NoError)
        throw FileError(QStringLiteral("read"), file);
    return false;
}

// Reads the file one character at a time and hands every complete line's
// name (up to the TAB) and description (up to the CR) to `add`.
template <typename Add>
ReadEnd ReadKeywordLines(QFile& file, Add add)
{
    char ch = 0;
    while (NextChar(file, ch)) {
        QByteArray name;
        while (ch != kTab) {
            name += ch;
            if (!NextChar(file, ch))
                return ReadEnd::UnexpectedEnd;
        }
        QByteArray description;
        for (;;) {
            if (!NextChar(file, ch))
                return ReadEnd::UnexpectedEnd;
            if (ch == kCr)
                break;
            description += ch;
        }
        if (!NextChar(file, ch))
            return ReadEnd::UnexpectedEnd;
        if (ch != kLf)
            return ReadEnd::BadFormat;
        add(QString::fromLatin1(name), QString::fromLatin1(description));
    }
    return ReadEnd::EndOfFile;
}

} // namespace

QByteArray KeywordFileBytes(const QString& text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (const char32_t codePoint : text.toUcs4())
        bytes += codePoint <= 0xFF ? static_cast<char>(codePoint) : '?';
    return bytes;
}

void WriteKeywordFile(const QString& fileName, Recordset& keywords)
{
    QFile file(NativePath(fileName));
    // Read-write opens without emptying an existing file.
    if (!file.open(QIODevice::ReadWrite))
        throw FileError(QStringLiteral("open"), file);
    for (; !keywords.Eof(); keywords.MoveNext()) {
        const QByteArray line = KeywordFileBytes(keywords.Text(QStringLiteral("sKeywordName")) + QChar(kTab) +
                                                 keywords.Text(QStringLiteral("sKeywordDesc")) + QChar(kCr) +
                                                 QChar(kLf));
        if (file.write(line) != line.size())
            throw FileError(QStringLiteral("write"), file);
    }
    if (!file.flush())
        throw FileError(QStringLiteral("write"), file);
}

bool ExportKeywords(Connection& connection, MessageSink& messages, qint32 appKey, const KeywordFileChooser& choose)
{
    try {
        Recordset keywords(KeywordsSql(appKey) + QStringLiteral(" ORDER BY sKeywordName"), connection);
        keywords.Eof(); // the rows are read before the file is chosen
        const std::optional<QString> fileName = choose();
        if (!fileName)
            return false;
        WriteKeywordFile(*fileName, keywords);
        return true;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while exporting Keywords: ") + e.description());
        return false;
    }
}

KeywordImportOutcome ImportKeywords(Connection& connection, MessageSink& messages, qint32 appKey,
                                    const KeywordFileChooser& choose)
{
    KeywordImportOutcome outcome;
    Recordset keywords;
    try {
        keywords.Open(KeywordsSql(appKey), connection);
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while initializing Keyword import: ") + e.description());
        outcome.result = KeywordImportResult::Failed;
        return outcome;
    }
    const std::optional<QString> fileName = choose();
    if (!fileName)
        return outcome;

    outcome.result = KeywordImportResult::Failed;
    try {
        QFile file(NativePath(*fileName));
        if (!file.open(QIODevice::ReadOnly))
            throw FileError(QStringLiteral("open"), file);
        const ReadEnd end = ReadKeywordLines(file, [&](const QString& name, const QString& description) {
            keywords.AddNew();
            keywords.SetValue(QStringLiteral("iKeywordAppKey"), appKey);
            keywords.SetValue(QStringLiteral("sKeywordName"), name);
            keywords.SetValue(QStringLiteral("sKeywordDesc"), description.isEmpty() ? QStringLiteral(" ") : description);
            keywords.Update();
            ++outcome.rowsAdded;
        });
        switch (end) {
        case ReadEnd::EndOfFile: outcome.result = KeywordImportResult::Imported; break;
        case ReadEnd::BadFormat: messages.Inform(kImportBadFormat); break;
        case ReadEnd::UnexpectedEnd: messages.Inform(kImportUnexpectedEnd); break;
        }
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while Importing Keywords: ") + e.description());
    }
    return outcome;
}

} // namespace dorvane
