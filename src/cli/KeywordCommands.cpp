// Export and import of an application's keywords as tab-delimited text.

#include "cli/Cli.h"

#include "core/lists/KeywordFiles.h"
#include "core/startup/Startup.h"

#include <functional>
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

namespace {

// APPLICATION FILE: runs `body` on the repository and the application's key;
// 1 when the repository cannot be opened or has no such application.
int WithApplicationFile(const CommandContext& context,
                        const std::function<int(Connection&, qint32 appKey, const QString& file)>& body)
{
    if (context.arguments.size() != 2)
        return WrongArguments(context);
    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    const std::optional<qint32> appKey = ApplicationKey(context, session.repository, context.arguments[0]);
    if (!appKey)
        return kExitFailure;
    return body(session.repository, *appKey, context.arguments[1]);
}

} // namespace

int RunExportKeywords(const CommandContext& context)
{
    return WithApplicationFile(context, [&](Connection& repository, qint32 appKey, const QString& file) {
        if (!ExportKeywords(repository, context.messages, appKey, [&file] { return std::optional<QString>(file); }))
            return kExitFailure;
        PrintLine(kKeywordsExported);
        return kExitSuccess;
    });
}

int RunImportKeywords(const CommandContext& context)
{
    return WithApplicationFile(context, [&](Connection& repository, qint32 appKey, const QString& file) {
        const KeywordImportOutcome outcome =
            ImportKeywords(repository, context.messages, appKey, [&file] { return std::optional<QString>(file); });
        if (outcome.result != KeywordImportResult::Imported)
            return kExitFailure;
        PrintLine(KeywordImportCounts(outcome));
        return kExitSuccess;
    });
}

} // namespace dorvane::cli
