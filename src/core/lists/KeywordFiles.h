#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

namespace dorvane {

class Connection;
class MessageSink;
class Recordset;

// Keyword text files: one keyword per line, no header, each line the
// keyword's name, one TAB, its description, then CR LF (the last line
// too). Lines ending in LF alone are read as lines too.
//
// The files are single-byte text in Windows-1252, as the administrators'
// Windows editors write them: each character is one byte, the same in both
// directions ("\u2013" is 0x96, "\u20ac" 0x80). A character the code page
// does not have is written as "?".

inline const QString kExportKeywordsCaption = QStringLiteral("Export Keywords to Tab-Delimited Text File");
inline const QString kImportKeywordsCaption = QStringLiteral("Import Keywords From Tab-Delimited Text File");
inline const QString kKeywordsExported =
    QStringLiteral("The Keywords have been exported to tab delimited text format in the file you selected");
// Said after an import, before its counts (KeywordImportCounts).
inline const QString kKeywordsImported = QStringLiteral("The Keywords have been imported - ");
inline const QString kImportBadFormat = QStringLiteral("Bad format on import file - expected end of line");
inline const QString kImportUnexpectedEnd =
    QStringLiteral("Unexpected end of file encountered while reading import file!");

// A line in the middle of a file without the TAB after its name, and an
// empty line followed by more lines; %1 is the line's number, from 1.
inline const QString kImportNoTab = QStringLiteral("Bad format on import file - line %1 has no TAB");
inline const QString kImportEmptyLine = QStringLiteral("Bad format on import file - line %1 is empty");
// Follows every message of an import that stopped: an import is one
// transaction, and a failed one adds nothing.
inline const QString kImportNothingAdded = QStringLiteral("\nNo keywords were added.");

// A text as the file holds it, and back.
QByteArray KeywordFileBytes(const QString& text);
QString KeywordFileText(const QByteArray& bytes);

// The chosen file's name; empty when the user cancelled.
using KeywordFileChooser = std::function<std::optional<QString>()>;

// The writer: every row of `keywords` in its order, as name TAB description
// CR LF, into a new file that replaces `fileName` once it is complete, so
// that the file holds exactly these lines (none for no rows) and a failure
// leaves an existing file as it was. Throws DbError (a file that cannot be
// written or put in place, or a failing read of the record set).
void WriteKeywordFile(const QString& fileName, Recordset& keywords);

// Export: opens the application's keywords in name order, asks for the
// file and writes it. True when the file was written; the caller then
// shows kKeywordsExported. False when the user cancelled or on a failure,
// which is shown after "Error while exporting Keywords: ".
bool ExportKeywords(Connection& connection, MessageSink& messages, qint32 appKey, const KeywordFileChooser& choose);

enum class KeywordImportResult {
    Imported,  // the whole file was read
    Cancelled, // nothing chosen, nothing read
    Failed,    // a message was shown; nothing was added
};

struct KeywordImportOutcome {
    KeywordImportResult result = KeywordImportResult::Cancelled;
    int rowsAdded = 0;
    int rowsSkipped = 0; // lines naming a keyword the application has already
    // The keyword grid is reloaded after an import that completed or
    // added rows, so that it shows what the repository holds.
    bool ReloadGrid() const { return result == KeywordImportResult::Imported || rowsAdded > 0; }
};

// Import: asks for the file, then reads it one character at a time and,
// in one transaction, adds a tKeyword row for the application per complete
// line, ended by CR LF or LF (an empty description is stored as " "). A
// line whose name the application has already (compared exactly, as the
// keyword grid compares names), also from an earlier line of the file, is
// skipped. A line without its TAB
// ends the import with kImportNoTab, an empty line with kImportEmptyLine
// (empty lines at the end of the file are no lines), a CR not followed by
// LF with kImportBadFormat, a file that ends inside a line with
// kImportUnexpectedEnd; other failures show "Error while Importing
// Keywords: " (or, when the keywords cannot be opened before the file is
// chosen, "Error while initializing Keyword import: ") and the description.
// After a failure nothing is added, and kImportNothingAdded says so.
KeywordImportOutcome ImportKeywords(Connection& connection, MessageSink& messages, qint32 appKey,
                                    const KeywordFileChooser& choose);

// How many keywords an import added and skipped: "added: N  skipped: M".
QString KeywordImportCounts(const KeywordImportOutcome& outcome);

} // namespace dorvane
