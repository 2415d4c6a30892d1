#include "core/copyengine/StepArguments.h"

#include "core/repository/DbError.h"

#include <limits>

namespace dorvane {

namespace {

constexpr QByteArrayView kProcessKey("ProcessKey=");
constexpr QByteArrayView kVariableStart("=@");

} // namespace

qint32 ReadArgumentNumber(QByteArrayView text)
{
    qsizetype i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
        negative = text[i] == '-';
        ++i;
    }
    qint64 value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > qint64(std::numeric_limits<qint32>::max()) + 1)
            throw DbError(QStringLiteral("Overflow"));
    }
    if (negative)
        value = -value;
    if (value > std::numeric_limits<qint32>::max() || value < std::numeric_limits<qint32>::min())
        throw DbError(QStringLiteral("Overflow"));
    return qint32(value);
}

QByteArray FormatArgumentNumber(qint32 number)
{
    return number >= 0 ? ' ' + QByteArray::number(number) : QByteArray::number(number);
}

std::optional<QByteArray> FixUpStepArguments(QByteArrayView text, qint32 destinationVersionKey, const KeyLookup& processMap,
                                             const KeyLookup& variableMap)
{
    const qsizetype call = text.indexOf(kProcessKey);
    if (call >= 0) {
        qint32 processKey = ReadArgumentNumber(text.sliced(call + kProcessKey.size()));
        const qint32 mapped = processMap(processKey);
        if (mapped > 0)
            processKey = mapped;
        return kProcessKey.toByteArray() + FormatArgumentNumber(processKey);
    }

    // Null until a token is rewritten; each scan goes on from the last
    // token's "[" in the text as rewritten so far.
    QByteArray result;
    qsizetype scan = 0;
    for (;;) {
        const QByteArrayView rest = result.isNull() ? text : QByteArrayView(result);
        const qsizetype start = rest.indexOf(kVariableStart, scan);
        if (start < 0)
            break;
        const qsizetype open = rest.indexOf('[', start);
        if (open < 0)
            break;
        const qsizetype bar = rest.indexOf('|', open + 1);
        if (bar < 0)
            break;
        const qsizetype close = rest.indexOf(']', bar + 1);
        if (close < 0)
            break;
        qint32 variableKey = ReadArgumentNumber(rest.sliced(bar + 1, close - bar - 1));
        const qint32 mapped = variableMap(variableKey);
        if (mapped != 0)
            variableKey = mapped;
        // The version key that stood between "[" and "|" is replaced by the
        // destination version's, found or not.
        result = rest.first(open + 1).toByteArray() + FormatArgumentNumber(destinationVersionKey) + '|' +
                 FormatArgumentNumber(variableKey) + rest.sliced(close).toByteArray();
        scan = open;
    }
    if (result.isNull())
        return std::nullopt;
    return result;
}

} // namespace dorvane
