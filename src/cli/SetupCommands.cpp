#include "cli/Cli.h"

#include "core/installation/Installation.h"
#include "core/repository/History.h"
#include "core/repository/SchemaDdl.h"
#include "core/startup/Startup.h"

namespace dorvane::cli {

namespace {

int Report(const CommandContext& context, const SetupResult& result, const QString& done)
{
    context.messages.Inform(result.ok ? done : result.message);
    return result.ok ? kExitSuccess : kExitFailure;
}

// A single argument that is a path, not an option.
bool OnePath(const CommandContext& context)
{
    return context.arguments.size() == 1 && !context.arguments.first().isEmpty() &&
           !context.arguments.first().startsWith(u'-');
}

} // namespace

int RunCreateRepository(const CommandContext& context)
{
    const QStringList& args = context.arguments;
    if (args.size() == 2 && args.first() == QLatin1String("--dsn") && !args.at(1).isEmpty()) {
        return Report(context, CreateRepositoryOnDataSource(args.at(1)),
                      QStringLiteral("Repository created on data source ") + args.at(1));
    }
    if (!OnePath(context))
        return WrongArguments(context);
    return Report(context, CreateRepositoryFile(args.first()), QStringLiteral("Repository created: ") + args.first());
}

int RunCreateInstallation(const CommandContext& context)
{
    if (!OnePath(context))
        return WrongArguments(context);
    return Report(context, CreateInstallation(context.arguments.first()),
                  QStringLiteral("Installation created: ") + context.arguments.first());
}

int RunCreateSharedFolder(const CommandContext& context)
{
    if (!OnePath(context))
        return WrongArguments(context);
    return Report(context, CreateSharedFolder(context.arguments.first()),
                  QStringLiteral("Shared folder created: ") + context.arguments.first());
}

// Adds the indexes and the history table the repository the settings
// choose lacks, printing one line for each, then how many indexes were
// added.
int RunUpgradeRepository(const CommandContext& context)
{
    if (!context.arguments.isEmpty())
        return WrongArguments(context);
    HandleInterruptions();
    Session session;
    try {
        session.Open(PlanStartup());
    } catch (const DbError& e) {
        context.messages.Inform(kCouldNotOpenDatabase + e.description());
        return kExitFailure;
    }
    try {
        const RepositoryUpgrade added = UpgradeRepository(session.repository);
        for (const RepositoryIndex& index : added.indexes) {
            PrintLine(QStringLiteral("added index %1 on %2 (%3)")
                          .arg(index.name, index.table, index.columns.join(QStringLiteral(", "))));
        }
        if (added.historyTable)
            PrintLine(QStringLiteral("added table %1 (the history of operations)").arg(kHistoryTable));
        PrintLine(QStringLiteral("up to date: %1 indexes added").arg(added.indexes.size()));
        return kExitSuccess;
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while upgrading the repository: ") + e.description() +
                                QStringLiteral(" Nothing was changed."));
        return kExitFailure;
    }
}

} // namespace dorvane::cli
