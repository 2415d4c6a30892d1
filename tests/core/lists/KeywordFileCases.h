#pragma once

// Keyword files as administrators' editors save them, and what importing
// each must give: each file is imported into an application without
// keywords, and the application's keywords are then exported over it.
// (dorvanectl's import-keywords and export-keywords call the same import
// and export; CommandsTest pins what they print and their exit statuses.)

#include "core/lists/KeywordFiles.h"

#include <QStringList>

#include <algorithm>
#include <vector>

namespace dorvane::test {

using namespace Qt::StringLiterals;

struct KeywordFileCase {
    const char* name;
    QByteArray file;
    QStringList rows; // "name|description" in the order they were added
    // The counts of an import that completed; else why it stopped, which
    // kImportNothingAdded follows.
    QString message;
};

inline QString ImportCounts(int added, int skipped = 0)
{
    return u"added: %1  skipped: %2"_s.arg(added).arg(skipped);
}

inline const std::vector<KeywordFileCase>& KeywordFileCases()
{
    static const std::vector<KeywordFileCase> cases = {
        {"CR LF", "One\tFirst\r\nTwo\tSecond\r\n", {"One|First", "Two|Second"}, ImportCounts(2)},
        // LF alone ends a line as CR LF does, also between CR LF lines:
        // nothing is glued into the description before it.
        {"LF", "One\tFirst\nTwo\tSecond\n", {"One|First", "Two|Second"}, ImportCounts(2)},
        {"LF between CR LF lines", "alpha\tfirst\nbeta\tsecond\r\ngamma\tthird\r\n", {"alpha|first", "beta|second", "gamma|third"},
         ImportCounts(3)},
        {"CR LF after LF lines", "alpha\tfirst\nbeta\tsecond\r\n", {"alpha|first", "beta|second"}, ImportCounts(2)},
        // A line splits at its first TAB; an empty description is stored as
        // a blank, a missing name as it stands.
        {"TAB in a description", "Orders\tTouches\torder data\nBlank\t\r\n\tNo name\n", {"Orders|Touches\torder data", "Blank| ", "|No name"},
         ImportCounts(3)},
        // Names compare exactly: smoke is not Smoke, a second Smoke is skipped.
        {"names in two cases", "Smoke\tA\nsmoke\tB\r\nSmoke\tC\n", {"Smoke|A", "smoke|B"}, ImportCounts(2, 1)},
        // Windows-1252 both ways.
        {"Windows-1252", "Caf\xe9 \x96\t\x80 \x93quoted\x94\r\n", {u"Caf\u00e9 \u2013|\u20ac \u201cquoted\u201d"_s}, ImportCounts(1)},
        // Empty lines at the end are no lines, with either line end.
        {"empty lines at the end", "One\tFirst\r\n\r\n\n\r\n", {"One|First"}, ImportCounts(1)},
        {"empty file", "", {}, ImportCounts(0)},
        // Where a read stops. Nothing of such a file is added.
        {"no line end on the last line", "One\tFirst\r\nTwo\tSecond", {}, kImportUnexpectedEnd},
        {"no line end on the last LF line", "One\tFirst\nTwo\tSecond", {}, kImportUnexpectedEnd},
        {"CR without its LF at the end", "One\tFirst\r\nTwo\tSecond\r", {}, kImportUnexpectedEnd},
        {"no TAB on the last line", "One\tFirst\r\nTwo", {}, kImportUnexpectedEnd},
        {"no TAB", "One\tFirst\r\nNoTab\r\nNext\tThird\r\n", {}, kImportNoTab.arg(2)},
        {"no TAB on an LF line", "One\tFirst\nTwo\tSecond\nNoTab\nNext\tFourth\n", {}, kImportNoTab.arg(3)},
        {"LF before the TAB", "One\tFirst\r\nNo\nTab\tSecond\r\n", {}, kImportNoTab.arg(2)},
        {"empty line", "One\tFirst\r\nTwo\tSecond\r\n\r\nThree\tThird\r\n", {}, kImportEmptyLine.arg(3)},
        {"empty LF line", "One\tFirst\n\nTwo\tSecond\n", {}, kImportEmptyLine.arg(2)},
        {"empty first line", "\r\nOne\tFirst\r\n", {}, kImportEmptyLine.arg(1)},
        {"CR without LF", "One\tFirst\r\nTwo\tSecond\rThree\tThird\r\n", {}, kImportBadFormat},
        {"CR CR LF", "One\tFirst\r\r\n", {}, kImportBadFormat},
    };
    return cases;
}

// The lines of an export, sorted, each as name TAB description: `rows` as
// exported, or an exported file split at its CR LFs. The lines' order
// among names that differ only in letter case is the database's, so the
// order is the export test's concern, not this one's. A file that holds
// anything after its last CR LF keeps it as a last line of its own.
inline QStringList ExportedLines(const QStringList& rows)
{
    QStringList lines;
    for (const QString& row : rows)
        lines << QString(row).replace(row.indexOf(u'|'), 1, u'\t');
    lines << QString(); // after the last CR LF
    lines.sort();
    return lines;
}

inline QStringList ExportedLines(const QByteArray& file)
{
    QStringList lines = KeywordFileText(file).split(u"\r\n"_s);
    lines.sort();
    return lines;
}

} // namespace dorvane::test
