#pragma once

#include <QString>

namespace dorvane {

// The per-application and per-version folders under the shared resource
// path. Paths are given as built by the editors (with backslashes) and made
// native here. A failure throws DbError whose description says what went
// wrong, so that it reads like any other failure after a save's prefix.

// An ID as it comes in (typed, given on the command line): what no folder
// name may hold - "\", "/" and control characters - replaced by "_".
QString CleanFolderId(const QString& id);
// Why an ID cannot name one folder inside its parent folder ("." and "..",
// separators, control characters, nothing at all); empty when it can.
// `what` names it in the text: "version ID", "application ID".
QString FolderIdProblem(const QString& what, const QString& id);

// Every operation below refuses a path in which an ID below the shared
// folder's "Apps" would name a folder outside its parent (a "." or ".."
// component, a separator or a control character in one), naming it, so
// that an ID written by another program never moves or creates folders
// elsewhere.
bool FolderExists(const QString& path);
// Creates one folder; its parent must exist.
void CreateFolder(const QString& path);
void CreateFolderIfMissing(const QString& path);
// Renames a folder. Fails when it does not exist or when another entry
// already has the new name; a change of letter case alone is a rename.
void RenameFolder(const QString& from, const QString& to);

} // namespace dorvane
