#include "core/repository/FilePaths.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStringList>

namespace dorvane {

namespace {

// The entry of `dir` whose name equals `name` ignoring case. When several
// do (a case-sensitive file system may hold "Data" and "data"), the first
// in code-point order wins, so that the choice does not depend on the
// order the directory lists them in. Empty when none matches.
QString MatchIgnoringCase(const QString& dir, const QString& name)
{
    QString best;
    QDirIterator it(dir, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QString entry = it.fileName();
        if (SameFolderName(entry, name) && (best.isEmpty() || entry < best))
            best = entry;
    }
    return best;
}

} // namespace

QString NativePath(const QString& windowsPath)
{
    QString path = windowsPath;
    path.replace(u'\\', u'/');
    const bool absolute = path.startsWith(u'/');
    const bool trailingSlash = path.size() > 1 && path.endsWith(u'/');
    const QStringList parts = path.split(u'/', Qt::SkipEmptyParts);

    QString joined = parts.join(u'/');
    if (absolute)
        joined.prepend(u'/');
    if (trailingSlash && !parts.isEmpty())
        joined.append(u'/');
    if (parts.isEmpty() || QFileInfo::exists(joined))
        return joined;

    // Walk the components; `dir` is where the next one is looked up (the
    // current directory for a relative path), `result` what is returned.
    QString result = absolute ? QStringLiteral("/") : QString();
    for (qsizetype i = 0; i < parts.size(); ++i) {
        const QString dir = result.isEmpty() ? QStringLiteral(".") : result;
        QString part = parts.at(i);
        if (!QFileInfo::exists(result + part)) {
            const QString match = MatchIgnoringCase(dir, part);
            if (match.isEmpty()) {
                // Nothing further can exist: keep the rest as given.
                result += parts.mid(i).join(u'/');
                break;
            }
            part = match;
        }
        result += part;
        if (i + 1 < parts.size())
            result += u'/';
    }
    if (trailingSlash)
        result.append(u'/');
    return result;
}

bool SameFolderName(const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

} // namespace dorvane
