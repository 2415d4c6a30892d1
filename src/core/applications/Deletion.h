#pragma once

#include <QString>

#include <functional>

namespace dorvane {

class Connection;
class MessageSink;

// Removes one version's contents and row, showing its failure through
// `messages`; true when the version is gone.
using DeleteContents = std::function<bool(qint32 versionKey, MessageSink& messages)>;

// What a deletion's question shows above its own text (the rows that
// would go), asked for only when the question is about to be asked;
// nothing when there is no preface.
using DeletionPreface = std::function<QString()>;

// Deletes an application with all its versions, unless one of them takes
// part in an environment (the first such environment is named). Asks
// first. Everything goes in one transaction on `connection`, which
// deleteContents must write through: when a version cannot be deleted,
// nothing is, and "NAME and all its versions stay as they were: nothing
// was deleted." follows the version's own message. Returns whether the
// application row was deleted.
bool DeleteApplication(Connection& connection, MessageSink& messages, qint32 appKey, const QString& appName,
                       const DeleteContents& deleteContents, const DeletionPreface& preface = {});

// Deletes one version with all its contents, unless it takes part in an
// environment. Asks first. Returns whether the deletion ran (its own
// outcome is reported by deleteContents).
bool DeleteVersion(Connection& connection, MessageSink& messages, qint32 versionKey, const QString& versionId,
                   const DeleteContents& deleteContents, const DeletionPreface& preface = {});

} // namespace dorvane
