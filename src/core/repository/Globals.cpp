#include "core/repository/Globals.h"

#include "core/repository/DbError.h"
#include "core/repository/Recordset.h"

#include <algorithm>
#include <limits>

namespace dorvane {

QString QuoteSql(const QString& text)
{
    // The length has always been counted in a 16-bit signed integer, so a
    // longer text is an overflow rather than a very long literal.
    if (text.size() > std::numeric_limits<qint16>::max())
        throw DbError(QStringLiteral("Overflow"));
    QString result;
    result.reserve(text.size() + 8);
    for (const QChar c : text) {
        if (c == u'\'')
            result += QStringLiteral("''");
        else
            result += c;
    }
    return result;
}

qint32 CountRecords(Recordset* rs)
{
    if (rs == nullptr || !rs->IsOpen())
        return 0;
    if (rs->Eof())
        return 0;
    if (rs->RecordCount() == 0)
        return 0;
    // Walk the rows rather than trust RecordCount: a provider may report
    // -1 ("unknown").
    qint32 count = 0;
    rs->MoveFirst();
    while (!rs->Eof()) {
        ++count;
        rs->MoveNext();
    }
    rs->MoveFirst();
    return count;
}

QString ReplaceChars(const QString& replacement, const QString& text, const QStringList& search,
                     const QString& caseOption)
{
    QStringList strings;
    for (const QString& s : search) {
        if (!s.isEmpty())
            strings.append(s);
    }
    if (strings.isEmpty())
        return text;

    // The option's first letter is compared exactly: "U" and "L" change
    // case, "u", "l" and anything else leave it alone.
    QString working = text;
    QString with = replacement;
    const QChar option = caseOption.isEmpty() ? QChar() : caseOption.at(0);
    if (option == u'U' || option == u'L') {
        const bool upper = option == u'U';
        working = upper ? working.toUpper() : working.toLower();
        with = upper ? with.toUpper() : with.toLower();
        for (QString& s : strings)
            s = upper ? s.toUpper() : s.toLower();
    }

    for (const QString& s : strings) {
        qsizetype pos = working.indexOf(s);
        while (pos >= 0) {
            // A same-length overwrite in place: as many characters as both
            // the search string and the replacement have, so a longer
            // replacement is cut and a shorter one leaves the rest of the
            // match standing; the text never changes length.
            const qsizetype count = std::min(s.size(), with.size());
            const QString before = working;
            working.replace(pos, count, with.left(count));
            // An overwrite that changes nothing (an empty replacement, or
            // one that begins with the match itself) would find the same
            // place forever.
            if (working == before)
                break;
            pos = working.indexOf(s);
        }
    }
    return working;
}

int FindListText(const QStringList& entries, const QString& text)
{
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (entries.at(i) == text)
            return static_cast<int>(i);
    }
    return -1;
}

} // namespace dorvane
