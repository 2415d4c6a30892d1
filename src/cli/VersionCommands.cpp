// Version update and copy within an environment, and the deletion of
// versions and applications.

#include "cli/Cli.h"
#include "cli/TerminalMessages.h"
#include "cli/TerminalProgress.h"

#include "core/applications/Deletion.h"
#include "core/copyengine/VersionBackup.h"
#include "core/copyengine/VersionTransfer.h"
#include "core/lists/ListQueries.h"
#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/startup/Startup.h"

#include <optional>

namespace dorvane::cli {

bool OpenRepository(const CommandContext& context, Session& session)
{
    HandleInterruptions();
    try {
        session.Open(PlanStartup());
        return true;
    } catch (const DbError& e) {
        context.messages.Inform(kCouldNotOpenDatabase + e.description());
        return false;
    }
}

namespace {

// The key of the row whose text column equals `value` (the repository's
// comparison), or nothing.
std::optional<qint32> FindKey(Connection& connection, const QString& table, const QString& column, const QString& key,
                              const QString& value, const QString& extraCondition = QString())
{
    Recordset rs(QStringLiteral("SELECT * FROM ") + table + QStringLiteral(" WHERE ") + column + QStringLiteral("='") +
                     QuoteSql(value) + QStringLiteral("'") + extraCondition,
                 connection);
    if (rs.Eof())
        return std::nullopt;
    return rs.Int(key);
}

} // namespace

std::optional<qint32> FindApplication(Connection& connection, const QString& name)
{
    return FindKey(connection, QStringLiteral("tApp"), QStringLiteral("sAppName"), QStringLiteral("iAppKey"), name);
}

namespace {

std::optional<qint32> FindVersion(Connection& connection, qint32 appKey, const QString& versionId)
{
    return FindKey(connection, QStringLiteral("tVersion"), QStringLiteral("sVersionID"), QStringLiteral("iVersionKey"),
                   versionId, QStringLiteral(" AND iVersionAppKey=") + QString::number(appKey));
}

// Strips "--yes" from the arguments; true when it was there.
bool TakeYes(QStringList& arguments)
{
    return arguments.removeAll(QStringLiteral("--yes")) > 0;
}

int RunTransfer(const CommandContext& context, VersionTransferKind kind)
{
    if (context.arguments.size() != 4)
        return WrongArguments(context);
    const QString& environment = context.arguments[0];
    const QString& listed = context.arguments[1];
    const QString& application = context.arguments[2];
    const QString& version = context.arguments[3];

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        Connection& repository = session.repository;
        const std::optional<qint32> environKey = FindKey(repository, QStringLiteral("tEnvironment"),
                                                         QStringLiteral("sEnvironmentName"),
                                                         QStringLiteral("iEnvironmentKey"), environment);
        if (!environKey) {
            context.messages.Inform(QStringLiteral("There is no environment named ") + environment + QStringLiteral("."));
            return kExitFailure;
        }
        // Run() refuses empty arguments, so both names are given.
        const std::optional<qint32> appKey = FindApplication(repository, application);
        if (!appKey) {
            context.messages.Inform(QStringLiteral("There is no application named ") + application + QStringLiteral("."));
            return kExitFailure;
        }
        const std::optional<qint32> chosen = FindVersion(repository, *appKey, version);
        if (!chosen) {
            context.messages.Inform(application + QStringLiteral(" has no version ") + version + QStringLiteral("."));
            return kExitFailure;
        }

        VersionTransferRequest request;
        request.EnvironKey = *environKey;
        request.AppKey = *appKey;
        // The entry of the environment's version list, as the list shows it.
        for (const ListEntry& entry : EnvironAppVerEntries(repository, *environKey)) {
            if (entry.text == listed) {
                request.ListedVersionKey = entry.key;
                break;
            }
        }
        request.ChosenVersionText = version;
        request.ChosenVersionKey = *chosen;

        TerminalProgress progress;
        VersionBackup backup(context.messages, progress, session.plan.connectionString);
        backup.CurrentVersionLabel = application;
        const VersionTransferOutcome outcome = TransferVersion(kind, request, repository, backup, context.messages);
        return outcome.Ok ? kExitSuccess : kExitFailure;
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
        return kExitFailure;
    }
}

} // namespace

int RunUpdateVersion(const CommandContext& context)
{
    return RunTransfer(context, VersionTransferKind::Update);
}

int RunCopyVersion(const CommandContext& context)
{
    return RunTransfer(context, VersionTransferKind::Copy);
}

int RunDeleteVersion(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    const bool yes = TakeYes(arguments);
    if (arguments.size() != 2)
        return WrongArguments(context);
    AssumeYes assumeYes(context.messages);
    MessageSink& messages = yes ? static_cast<MessageSink&>(assumeYes) : context.messages;

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        const std::optional<qint32> appKey = FindApplication(session.repository, arguments[0]);
        if (!appKey) {
            messages.Inform(QStringLiteral("There is no application named ") + arguments[0] + QStringLiteral("."));
            return kExitFailure;
        }
        const std::optional<qint32> versionKey = FindVersion(session.repository, *appKey, arguments[1]);
        if (!versionKey) {
            messages.Inform(arguments[0] + QStringLiteral(" has no version ") + arguments[1] + QStringLiteral("."));
            return kExitFailure;
        }
        bool deleted = false;
        DeleteVersion(session.repository, messages, *versionKey, arguments[1], [&](qint32 key) {
            deleted = DeleteVersionContents(key, session.repository, messages);
            return deleted;
        });
        return deleted ? kExitSuccess : kExitFailure;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while deleting version: ") + e.description());
        return kExitFailure;
    }
}

int RunDeleteApplication(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    const bool yes = TakeYes(arguments);
    if (arguments.size() != 1)
        return WrongArguments(context);
    AssumeYes assumeYes(context.messages);
    MessageSink& messages = yes ? static_cast<MessageSink&>(assumeYes) : context.messages;

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        const std::optional<qint32> appKey = FindApplication(session.repository, arguments[0]);
        if (!appKey) {
            messages.Inform(QStringLiteral("There is no application named ") + arguments[0] + QStringLiteral("."));
            return kExitFailure;
        }
        const bool deleted = DeleteApplication(session.repository, messages, *appKey, arguments[0], [&](qint32 key) {
            return DeleteVersionContents(key, session.repository, messages);
        });
        return deleted ? kExitSuccess : kExitFailure;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while deleting application: ") + e.description());
        return kExitFailure;
    }
}

} // namespace dorvane::cli
