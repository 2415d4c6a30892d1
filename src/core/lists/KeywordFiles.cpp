#include "core/lists/KeywordFiles.h"

#include "core/repository/Connection.h"
#include "core/repository/FilePaths.h"
#include "core/repository/History.h"
#include "core/repository/Interaction.h"
#include "core/repository/Recordset.h"
#include "core/repository/Transaction.h"

#include <QFile>
#include <QSaveFile>
#include <QSet>

namespace dorvane {

namespace {

constexpr char kTab = '\t';
constexpr char kCr = '\r';
constexpr char kLf = '\n';

QString KeywordsSql(qint32 appKey)
{
    return QStringLiteral("SELECT * FROM tKeyword WHERE iKeywordAppKey=") + QString::number(appKey);
}

DbError FileError(const QString& action, const QFileDevice& file)
{
    return DbError(QStringLiteral("Cannot %1 file '%2': %3").arg(action, file.fileName(), file.errorString()));
}

// Windows-1252 from 0x80 to 0x9F; the five bytes the code page leaves
// undefined stand for the control characters of the same number, as on
// Windows. Every other byte is the Unicode character of its number.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

char Cp1252Byte(char32_t codePoint)
{
    if (codePoint < 0x80 || (codePoint >= 0xA0 && codePoint <= 0xFF))
        return static_cast<char>(codePoint);
    for (int i = 0; i < 32; ++i) {
        if (kCp1252High[i] == codePoint)
            return static_cast<char>(0x80 + i);
    }
    return '?';
}

// How a read of the file ended; `line` is the number of the line it ended
// in.
enum class ReadEnd { EndOfFile, BadFormat, UnexpectedEnd, NoTab, EmptyLine };

// The next character of the file; false at its end. A failing read throws.
bool NextChar(QFile& file, char& ch)
{
    if (file.getChar(&ch))
        return true;
    if (file.error() != QFileDevice::NoError)
        throw FileError(QStringLiteral("read"), file);
    return false;
}

// Whether nothing but line ends is left in the file.
bool OnlyLineEndsLeft(QFile& file)
{
    char ch = 0;
    while (NextChar(file, ch)) {
        if (ch != kCr && ch != kLf)
            return false;
    }
    return true;
}

// Reads the file one character at a time and hands every complete line's
// name (up to the TAB) and description (up to the line end) to `add`. A
// line ends in CR LF or in LF alone (files edited on other systems mix
// the two); a CR must be followed by its LF. A line end before the TAB
// ends the read there: it never joins two lines into one name, nor a line
// into the description before it.
template <typename Add>
ReadEnd ReadKeywordLines(QFile& file, int& line, Add add)
{
    char ch = 0;
    for (line = 1; NextChar(file, ch); ++line) {
        if (ch == kCr || ch == kLf)
            return OnlyLineEndsLeft(file) ? ReadEnd::EndOfFile : ReadEnd::EmptyLine;
        QByteArray name;
        while (ch != kTab) {
            name += ch;
            if (!NextChar(file, ch))
                return ReadEnd::UnexpectedEnd;
            if (ch == kCr || ch == kLf)
                return ReadEnd::NoTab;
        }
        QByteArray description;
        for (;;) {
            if (!NextChar(file, ch))
                return ReadEnd::UnexpectedEnd;
            if (ch == kCr || ch == kLf)
                break;
            description += ch;
        }
        if (ch == kCr) {
            if (!NextChar(file, ch))
                return ReadEnd::UnexpectedEnd;
            if (ch != kLf)
                return ReadEnd::BadFormat;
        }
        add(KeywordFileText(name), KeywordFileText(description));
    }
    return ReadEnd::EndOfFile;
}

} // namespace

QByteArray KeywordFileBytes(const QString& text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (const char32_t codePoint : text.toUcs4())
        bytes += Cp1252Byte(codePoint);
    return bytes;
}

QString KeywordFileText(const QByteArray& bytes)
{
    QString text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto b = static_cast<unsigned char>(byte);
        text += QChar(b >= 0x80 && b < 0xA0 ? kCp1252High[b - 0x80] : char16_t(b));
    }
    return text;
}

void WriteKeywordFile(const QString& fileName, Recordset& keywords)
{
    // The lines go to a new file beside the chosen one, which takes the
    // chosen file's place (and permissions; a link is followed) only once
    // every line is written. Until then the folder shows the earlier file
    // whole; a failure discards the new one.
    QSaveFile file(NativePath(fileName));
    if (!file.open(QIODevice::WriteOnly))
        throw FileError(QStringLiteral("open"), file);
    for (; !keywords.Eof(); keywords.MoveNext()) {
        const QByteArray line = KeywordFileBytes(keywords.Text(QStringLiteral("sKeywordName")) + QChar(kTab) +
                                                 keywords.Text(QStringLiteral("sKeywordDesc")) + QChar(kCr) +
                                                 QChar(kLf));
        if (file.write(line) != line.size())
            throw FileError(QStringLiteral("write"), file);
    }
    if (!file.commit())
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

KeywordImportOutcome ImportKeywords(Connection& connection, MessageSink& shown, qint32 appKey,
                                    const KeywordFileChooser& choose)
{
    HistoryRecord record(shown, connection.connectionString(), HistoryOperation::ImportKeywords);
    MessageSink& messages = record;
    KeywordImportOutcome outcome;
    Recordset keywords;
    // The names the application has, compared exactly, as the keyword grid
    // compares them.
    QSet<QString> names;
    try {
        keywords.Open(KeywordsSql(appKey), connection);
        for (; !keywords.Eof(); keywords.MoveNext())
            names.insert(keywords.Text(QStringLiteral("sKeywordName")));
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while initializing Keyword import: ") + e.description());
        outcome.result = KeywordImportResult::Failed;
        return outcome;
    }
    const std::optional<QString> fileName = choose();
    if (!fileName)
        return outcome;
    record.Name(QString(), *fileName);

    outcome.result = KeywordImportResult::Failed;
    // All or nothing: a file that stops in the middle, a failing row or an
    // interruption adds no keyword.
    const auto nothingAdded = [&outcome, &messages](const QString& text) {
        outcome.rowsAdded = 0;
        outcome.rowsSkipped = 0;
        messages.Inform(text + kImportNothingAdded);
    };
    try {
        QFile file(NativePath(*fileName));
        if (!file.open(QIODevice::ReadOnly))
            throw FileError(QStringLiteral("open"), file);
        Transaction transaction(connection);
        int line = 0;
        const ReadEnd end = ReadKeywordLines(file, line, [&](const QString& name, const QString& description) {
            if (names.contains(name)) {
                ++outcome.rowsSkipped;
                return;
            }
            keywords.AddNew();
            keywords.SetValue(QStringLiteral("iKeywordAppKey"), appKey);
            keywords.SetValue(QStringLiteral("sKeywordName"), name);
            keywords.SetValue(QStringLiteral("sKeywordDesc"), description.isEmpty() ? QStringLiteral(" ") : description);
            keywords.Update();
            names.insert(name);
            ++outcome.rowsAdded;
        });
        switch (end) {
        case ReadEnd::EndOfFile:
            transaction.Commit();
            outcome.result = KeywordImportResult::Imported;
            record.Done(outcome.rowsAdded);
            break;
        case ReadEnd::BadFormat: transaction.Rollback(); nothingAdded(kImportBadFormat); break;
        case ReadEnd::UnexpectedEnd: transaction.Rollback(); nothingAdded(kImportUnexpectedEnd); break;
        case ReadEnd::NoTab: transaction.Rollback(); nothingAdded(kImportNoTab.arg(line)); break;
        case ReadEnd::EmptyLine: transaction.Rollback(); nothingAdded(kImportEmptyLine.arg(line)); break;
        }
    } catch (const DbError& e) {
        nothingAdded(QStringLiteral("Error while Importing Keywords: ") + e.description());
    }
    return outcome;
}

QString KeywordImportCounts(const KeywordImportOutcome& outcome)
{
    return QStringLiteral("added: %1  skipped: %2").arg(outcome.rowsAdded).arg(outcome.rowsSkipped);
}

} // namespace dorvane
