// Environment backup and restore, and the list of an environment's backups.

#include "cli/Cli.h"
#include "cli/TerminalMessages.h"
#include "cli/TerminalProgress.h"

#include "core/copyengine/VersionBackup.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/environments/RestorePreview.h"
#include "core/repository/FilePaths.h"
#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/startup/Startup.h"

#include <functional>
#include <optional>

namespace dorvane::cli {

namespace {

// The FILE argument of restore: a name as the chooser lists it, in the
// environment's backup folder, or a path of its own.
class ArgumentChooser : public RestoreChooser {
public:
    explicit ArgumentChooser(QString file) : m_file(std::move(file)) {}
    static bool IsPath(const QString& file) { return file.contains(QLatin1Char('/')) || file.contains(QLatin1Char('\\')); }
    std::optional<QString> ChooseBackup(const QString& folder) override { return folder + QLatin1Char('\\') + m_file; }

private:
    QString m_file;
};

// Opens the repository, finds the environment and runs `body` on it with
// a copy engine that reports to `messages` and shows its progress on the
// terminal. A repository that cannot be read ends the command with 1.
int WithEnvironment(const CommandContext& context, const QString& name, MessageSink& messages,
                    const std::function<int(const FoundEnvironment&, EnvironmentBackup&)>& body)
{
    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        const std::optional<FoundEnvironment> environment = FindEnvironment(context, session.repository, name);
        if (!environment)
            return kExitFailure;
        TerminalProgress progress;
        VersionBackup engine(messages, progress, session.plan.connectionString);
        EnvironmentBackup backup(engine, session.plan.sharedResourcePath, session.plan.installationPath);
        return body(*environment, backup);
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
        return kExitFailure;
    }
}

} // namespace

int RunBackup(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    AssumeYes messages(context.messages, AssumeYes::Take(arguments));
    if (arguments.size() != 1)
        return WrongArguments(context);
    return WithEnvironment(context, arguments[0], messages, [](const FoundEnvironment& environment, EnvironmentBackup& backup) {
        if (!backup.AskAndBackUp(environment.key, environment.name))
            return kExitFailure;
        PrintLine(NativePath(backup.LastBackupFile()));
        return kExitSuccess;
    });
}

int RunRestore(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    const bool dryRun = DryRun::Take(arguments);
    AssumeYes messages(context.messages, AssumeYes::Take(arguments));
    if (arguments.size() != 2)
        return WrongArguments(context);
    // A dry run goes as far as the restore's checks of the file and prints
    // what the restore would do instead of doing it.
    bool previewed = false;
    const int status = WithEnvironment(context, arguments[0], messages,
                           [&](const FoundEnvironment& environment, EnvironmentBackup& backup) {
                               if (dryRun) {
                                   backup.BeforeRestore = [&](qint32 key, Connection& file, Connection& repository) {
                                       PrintLine(PreviewRestore(repository, key, file).Lines().join(u'\n'));
                                       previewed = true;
                                       return false;
                                   };
                               }
                               // A path is restored as given, wherever it is (a backup
                               // copied from another machine); a name is looked for
                               // in the environment's backup folder.
                               const QString& file = arguments[1];
                               if (ArgumentChooser::IsPath(file))
                                   return backup.RestoreEnvironment(environment.key, file) ? kExitSuccess : kExitFailure;
                               ArgumentChooser chooser(file);
                               return backup.ChooseAndRestore(environment.key, environment.name, chooser)
                                          ? kExitSuccess
                                          : kExitFailure;
                           });
    return previewed ? kExitSuccess : status;
}

int RunBackups(const CommandContext& context)
{
    if (context.arguments.size() != 1)
        return WrongArguments(context);
    return WithEnvironment(context, context.arguments[0], context.messages,
                           [&](const FoundEnvironment& environment, EnvironmentBackup& backup) {
                               QString folder;
                               try {
                                   folder = backup.RestoreFolder(environment.name);
                               } catch (const DbError& e) {
                                   context.messages.Inform(e.description());
                                   return kExitFailure;
                               }
                               RemoveAbandonedBackupFiles(folder);
                               int status = kExitSuccess;
                               for (const BackupFileEntry& file : ListBackupFiles(folder)) {
                                   try {
                                       const BackupFileContents contents = CountBackupFile(file.path);
                                       PrintLine(QStringLiteral("%1  versions: %2  rows: %3")
                                                     .arg(file.name)
                                                     .arg(contents.versions)
                                                     .arg(contents.rows));
                                   } catch (const DbError& e) {
                                       context.messages.Inform(QStringLiteral("Error while reading backup file ") +
                                                               file.name + QStringLiteral(": ") + e.description());
                                       status = kExitFailure;
                                   }
                               }
                               return status;
                           });
}

} // namespace dorvane::cli
