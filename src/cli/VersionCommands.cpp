// Version update and copy within an environment, and the deletion of
// versions and applications.

#include "cli/Cli.h"
#include "cli/TerminalMessages.h"
#include "cli/TerminalProgress.h"

#include "core/applications/Deletion.h"
#include "core/copyengine/OperationPreview.h"
#include "core/copyengine/VersionBackup.h"
#include "core/copyengine/VersionTransfer.h"
#include "core/lists/ListQueries.h"
#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/repository/SchemaDdl.h"
#include "core/startup/Startup.h"

#include <functional>
#include <optional>

namespace dorvane::cli {

bool OpenRepository(const CommandContext& context, Session& session)
{
    HandleInterruptions();
    try {
        session.Open(PlanStartup());
        if (const QString note = UpgradeNote(session.repository); !note.isEmpty())
            context.messages.Inform(note);
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

namespace {

// APPLICATION [VERSION] [--yes] [--dry-run]: a deletion of `names` names
// (the application's first), answered Yes with --yes. Runs `body` with the
// application's key and the preface of the deletion's question; 1 when the
// repository cannot be opened, has no such application or the deletion
// fails or is refused ("Error while deleting WHAT: ..."). A dry run prints
// the preview where the question would be asked, answers it No and ends
// with 0; a refusal before it still ends with 1.
using DeletionBody = std::function<bool(Connection&, MessageSink&, qint32 appKey, const QStringList&,
                                        const std::function<DeletionPreface(std::function<OperationPreview()>)>&)>;

int RunDeletion(const CommandContext& context, qsizetype names, const QString& what, const DeletionBody& body)
{
    QStringList arguments = context.arguments;
    const bool dryRun = DryRun::Take(arguments);
    AssumeYes answered(context.messages, AssumeYes::Take(arguments));
    DryRun unasked(context.messages);
    MessageSink& messages = dryRun ? static_cast<MessageSink&>(unasked) : answered;
    if (arguments.size() != names)
        return WrongArguments(context);

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    bool previewed = false;
    const auto prefaceFor = [&](std::function<OperationPreview()> preview) -> DeletionPreface {
        if (!dryRun)
            return {};
        return [&previewed, preview] {
            PrintLine(preview().Lines().join(u'\n'));
            previewed = true;
            return QString();
        };
    };
    try {
        const std::optional<qint32> appKey = FindApplication(session.repository, arguments[0]);
        if (!appKey) {
            messages.Inform(QStringLiteral("There is no application named ") + arguments[0] + QStringLiteral("."));
            return kExitFailure;
        }
        const bool done = body(session.repository, messages, *appKey, arguments, prefaceFor);
        return done || previewed ? kExitSuccess : kExitFailure;
    } catch (const DbError& e) {
        messages.Inform(QStringLiteral("Error while deleting %1: ").arg(what) + e.description());
        return kExitFailure;
    }
}

} // namespace

int RunDeleteVersion(const CommandContext& context)
{
    return RunDeletion(context, 2, QStringLiteral("version"),
                       [](Connection& repository, MessageSink& messages, qint32 appKey, const QStringList& arguments,
                          const auto& prefaceFor) {
        const std::optional<qint32> versionKey = FindVersion(repository, appKey, arguments[1]);
        if (!versionKey) {
            messages.Inform(arguments[0] + QStringLiteral(" has no version ") + arguments[1] + QStringLiteral("."));
            return false;
        }
        bool deleted = false;
        DeleteVersion(
            repository, messages, *versionKey, arguments[1],
            [&](qint32 key, MessageSink& shown) {
                deleted = DeleteVersionContents(key, repository, shown);
                return deleted;
            },
            prefaceFor([&] { return PreviewVersionDeletion(repository, *versionKey); }));
        return deleted;
    });
}

int RunDeleteApplication(const CommandContext& context)
{
    return RunDeletion(context, 1, QStringLiteral("application"),
                       [](Connection& repository, MessageSink& messages, qint32 appKey, const QStringList& arguments,
                          const auto& prefaceFor) {
        return DeleteApplication(
            repository, messages, appKey, arguments[0],
            [&](qint32 key, MessageSink& shown) { return DeleteVersionContents(key, repository, shown); },
            prefaceFor([&] { return PreviewApplicationDeletion(repository, appKey); }));
    });
}

} // namespace dorvane::cli
