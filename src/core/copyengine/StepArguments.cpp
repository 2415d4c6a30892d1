#include "core/copyengine/StepArguments.h"

#include "core/repository/DbError.h"

#include <limits>

namespace dorvane {

namespace {

const QString kProcessKey = QStringLiteral("ProcessKey=");
const QString kVariableStart = QStringLiteral("=@");

} // namespace

qint32 ReadArgumentNumber(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && (text[i] == u' ' || text[i] == u'\t'))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) {
        negative = text[i] == u'-';
        ++i;
    }
    qint64 value = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        value = value * 10 + (text[i].unicode() - u'0');
        if (value > qint64(std::numeric_limits<qint32>::max()) + 1)
            throw DbError(QStringLiteral("Overflow"));
    }
    if (negative)
        value = -value;
    if (value > std::numeric_limits<qint32>::max() || value < std::numeric_limits<qint32>::min())
        throw DbError(QStringLiteral("Overflow"));
    return qint32(value);
}

QString FormatArgumentNumber(qint32 number)
{
    return number >= 0 ? QLatin1Char(' ') + QString::number(number) : QString::number(number);
}

std::optional<QString> FixUpStepArguments(const QString& text, qint32 destinationVersionKey, const KeyLookup& processMap,
                                          const KeyLookup& variableMap)
{
    const qsizetype call = text.indexOf(kProcessKey);
    if (call >= 0) {
        qint32 processKey = ReadArgumentNumber(QStringView(text).mid(call + kProcessKey.size()));
        const qint32 mapped = processMap(processKey);
        if (mapped > 0)
            processKey = mapped;
        return kProcessKey + FormatArgumentNumber(processKey);
    }

    QString result = text;
    bool changed = false;
    qsizetype scan = 0;
    for (;;) {
        const qsizetype start = result.indexOf(kVariableStart, scan);
        if (start < 0)
            break;
        const qsizetype open = result.indexOf(QLatin1Char('['), start);
        if (open < 0)
            break;
        const qsizetype bar = result.indexOf(QLatin1Char('|'), open + 1);
        if (bar < 0)
            break;
        const qsizetype close = result.indexOf(QLatin1Char(']'), bar + 1);
        if (close < 0)
            break;
        qint32 variableKey = ReadArgumentNumber(QStringView(result).mid(bar + 1, close - bar - 1));
        const qint32 mapped = variableMap(variableKey);
        if (mapped != 0)
            variableKey = mapped;
        // The version key that stood between "[" and "|" is replaced by the
        // destination version's, found or not.
        result = result.left(open + 1) + FormatArgumentNumber(destinationVersionKey) + QLatin1Char('|') +
                 FormatArgumentNumber(variableKey) + result.mid(close);
        changed = true;
        scan = open;
    }
    if (!changed)
        return std::nullopt;
    return result;
}

} // namespace dorvane
