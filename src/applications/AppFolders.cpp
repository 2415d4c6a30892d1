#include "applications/AppFolders.h"

#include "repository/DbError.h"
#include "repository/FilePaths.h"

#include <QDir>
#include <QFileInfo>

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

} // namespace

bool FolderExists(const QString& path) { return QFileInfo(NativePath(path)).isDir(); }

void CreateFolder(const QString& path)
{
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
