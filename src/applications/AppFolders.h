#pragma once

#include <QString>

namespace dorvane {

// The per-application and per-version folders under the shared resource
// path. Paths are given as built by the editors (with backslashes) and made
// native here. A failure throws DbError whose description says what went
// wrong, so that it reads like any other failure after a save's prefix.

bool FolderExists(const QString& path);
// Creates one folder; its parent must exist.
void CreateFolder(const QString& path);
void CreateFolderIfMissing(const QString& path);
// Renames a folder. Fails when it does not exist or when another entry
// already has the new name; a change of letter case alone is a rename.
void RenameFolder(const QString& from, const QString& to);

} // namespace dorvane
