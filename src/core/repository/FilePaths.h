#pragma once

#include <QString>

namespace dorvane {

// Turns a path built the Windows way ("...\Tutorial\Database\Tutorial.mdb")
// into a native one: backslashes become slashes, and a component that does
// not exist in its exact case resolves to the one existing entry that
// matches it case-insensitively. Every file-system call goes through here.
QString NativePath(const QString& windowsPath);

// Whether two names are one folder to NativePath: equal but for letter
// case, with Unicode's case folding (so "ΟΔΟΣ" and "οδος", "Sx" and "ſx").
bool SameFolderName(const QString& a, const QString& b);

} // namespace dorvane
