#include "core/applications/AppFolders.h"

#include "core/repository/DbError.h"
#include "core/repository/FilePaths.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace dorvane {

namespace {

// The native path of `path` with its last component kept exactly as given,
// so that a folder can be created or renamed in the case the user typed.
QString NativeTarget(const QString& path)
{
    const qsizetype cut = path.lastIndexOf(u'\\');
    if (cut < 0)
        return NativePath(path);
    return NativePath(path.left(cut)) + u'/' + path.mid(cut + 1);
}

QString ParentOf(const QString& nativePath) { return QFileInfo(nativePath).absolutePath(); }

bool isControl(QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7f; }

// The IDs of a path built as shared & "\Apps\" & app ID [& "\" & version
// ID [& "\Primary Map Source"]]: each must name one folder in its parent.
void requireInsideApps(const QString& path)
{
    const qsizetype apps = path.lastIndexOf(QLatin1String("\\Apps\\"), -1, Qt::CaseInsensitive);
    if (apps < 0)
        return;
    const QStringList ids = path.mid(apps + 6).split(u'\\');
    for (qsizetype i = 0; i < ids.size(); ++i) {
        const QString problem = FolderIdProblem(i == 0 ? QStringLiteral("application ID") : QStringLiteral("version ID"), ids[i]);
        if (!problem.isEmpty())
            throw DbError(problem);
    }
}

} // namespace

QString CleanFolderId(const QString& id)
{
    QString cleaned = id;
    for (QChar& c : cleaned) {
        if (c == u'\\' || c == u'/' || isControl(c))
            c = u'_';
    }
    return cleaned;
}

QString FolderIdProblem(const QString& what, const QString& id)
{
    const bool unsafe = id.isEmpty() || id == QLatin1String(".") || id == QLatin1String("..") ||
                        id.contains(u'\\') || id.contains(u'/') || std::any_of(id.begin(), id.end(), isControl);
    if (!unsafe)
        return QString();
    return QStringLiteral("The %1 \"%2\" cannot name a folder inside its parent folder.")
        .arg(what, QString(id).replace(QRegularExpression(QStringLiteral("[\\x00-\\x1f\\x7f]")), QStringLiteral("?")));
}

bool FolderExists(const QString& path)
{
    requireInsideApps(path);
    return QFileInfo(NativePath(path)).isDir();
}

void CreateFolder(const QString& path)
{
    requireInsideApps(path);
    const QString target = NativeTarget(path);
    if (!QFileInfo(ParentOf(target)).isDir())
        throw DbError(QStringLiteral("Path not found: %1").arg(ParentOf(target)));
    if (!QDir().mkdir(target))
        throw DbError(QStringLiteral("Path/File access error: %1").arg(target));
}

void CreateFolderIfMissing(const QString& path)
{
    if (!FolderExists(path))
        CreateFolder(path);
}

void RenameFolder(const QString& from, const QString& to)
{
    requireInsideApps(from);
    requireInsideApps(to);
    const QString source = NativePath(from);
    if (!QFileInfo(source).isDir())
        throw DbError(QStringLiteral("File not found: %1").arg(source));
    const QString target = NativeTarget(to);
    const QFileInfo existing(NativePath(to));
    if (existing.exists() && existing.canonicalFilePath() != QFileInfo(source).canonicalFilePath())
        throw DbError(QStringLiteral("File already exists: %1").arg(existing.filePath()));
    if (!QDir().rename(source, target))
        throw DbError(QStringLiteral("Path/File access error: %1").arg(target));
}

} // namespace dorvane
