#pragma once

#include <QString>

namespace dorvane {

class Connection;

// The data files compiled into dorvane_core; src/core/resources/README.md
// says how one reads.
inline const QString kReferenceDataFile = QStringLiteral(":/dorvane/data/reference.json");
inline const QString kTutorialDataFile = QStringLiteral(":/dorvane/data/tutorial.json");

// Writes the rows of a data file (a resource or a file path) section by
// section, with the keys the file gives them, through record sets inside
// the caller's transaction, and makes the rows of its program sections by
// the program's own code. The identity sequences of the tables written are
// then moved past their highest keys (on SQLite, AUTOINCREMENT follows
// explicit keys by itself), so that rows the program adds later get fresh
// keys. Throws DbError naming the file and the section, row and column of
// what it cannot take.
void LoadDataFile(Connection& connection, const QString& path);

} // namespace dorvane
