#pragma once

#include <QString>
#include <QStringList>

namespace dorvane {

class Recordset;

// Doubles every single quote, for text put between quotes in SQL.
QString QuoteSql(const QString& text);

// Counts the rows of a record set by walking it, and leaves it on its first
// row. A record set that is not open, or is at its end, counts 0.
qint32 CountRecords(Recordset* rs);

// Overwrites every occurrence of each non-empty search string with the
// replacement (same length, in place), after changing case when the case
// option starts with "U" or "L". Up to ten search strings.
QString ReplaceChars(const QString& replacement, const QString& text, const QStringList& search,
                     const QString& caseOption);

// Index of the first entry equal to text (case-sensitive), or -1.
int FindListText(const QStringList& entries, const QString& text);

} // namespace dorvane
