// Export and import of an application's keywords as tab-delimited text.

#include "cli/Cli.h"

#include "core/lists/KeywordFiles.h"
#include "core/startup/Startup.h"

#include <optional>

namespace dorvane::cli {

namespace {

// The key of the application named `name`, or nothing (said on standard
// error).
std::optional<qint32> ApplicationKey(const CommandContext& context, Connection& connection, const QString& name)
{
    try {
        if (const std::optional<qint32> key = FindApplication(connection, name))
            return key;
        context.messages.Inform(QStringLiteral("There is no application named ") + name + QStringLiteral("."));
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
    }
    return std::nullopt;
}

} // namespace

int RunExportKeywords(const CommandContext& context)
{
    if (context.arguments.size() != 2)
        return WrongArguments(context);
    const QString& file = context.arguments[1];
    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    const std::optional<qint32> appKey = ApplicationKey(context, session.repository, context.arguments[0]);
    if (!appKey)
        return kExitFailure;
    if (!ExportKeywords(session.repository, context.messages, *appKey, [&file] { return std::optional<QString>(file); }))
        return kExitFailure;
    PrintLine(kKeywordsExported);
    return kExitSuccess;
}

int RunImportKeywords(const CommandContext& context)
{
    if (context.arguments.size() != 2)
        return WrongArguments(context);
    const QString& file = context.arguments[1];
    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    const std::optional<qint32> appKey = ApplicationKey(context, session.repository, context.arguments[0]);
    if (!appKey)
        return kExitFailure;
    const KeywordImportOutcome outcome = ImportKeywords(session.repository, context.messages, *appKey,
                                                        [&file] { return std::optional<QString>(file); });
    if (outcome.result != KeywordImportResult::Imported)
        return kExitFailure;
    PrintLine(KeywordImportCounts(outcome));
    return kExitSuccess;
}

} // namespace dorvane::cli
