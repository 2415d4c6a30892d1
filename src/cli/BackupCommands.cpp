// Environment backup and restore, and the list of an environment's backups.

#include "cli/Cli.h"
#include "cli/TerminalMessages.h"
#include "cli/TerminalProgress.h"

#include "core/copyengine/VersionBackup.h"
#include "core/environments/BackupVerification.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/environments/RestorePreview.h"
#include "core/repository/FilePaths.h"
#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/startup/Startup.h"

#include <functional>
#include <optional>
#include <utility>

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

// A usage mistake in an option's value: the message, then the usage.
int BadOption(const CommandContext& context, const QString& message)
{
    PrintErrorLine(message);
    PrintErrorLine(CommandUsage(context.command));
    return kExitUsage;
}

// Takes "--keep-days N" and "--keep-last N" out of `arguments`; the message
// for a value that is not a whole number from 1 up, or an option given
// twice or without its value, else empty.
QString TakeRetention(QStringList& arguments, RetentionPolicy& policy)
{
    const struct { const char* option; std::optional<int> RetentionPolicy::*value; } options[] = {
        {"--keep-days", &RetentionPolicy::keepDays},
        {"--keep-last", &RetentionPolicy::keepLast},
    };
    for (const auto& [name, value] : options) {
        const QString option = QLatin1String(name);
        for (qsizetype i = arguments.indexOf(option); i >= 0; i = arguments.indexOf(option)) {
            if (policy.*value)
                return QStringLiteral("%1 is given twice.").arg(option);
            if (i + 1 >= arguments.size())
                return QStringLiteral("%1 needs a number.").arg(option);
            bool ok = false;
            const int number = arguments[i + 1].toInt(&ok);
            if (!ok || number < 1 || arguments[i + 1].startsWith(u'+'))
                return QStringLiteral("%1 needs a whole number from 1 up, not \"%2\".").arg(option, arguments[i + 1]);
            policy.*value = number;
            arguments.remove(i, 2);
        }
    }
    return QString();
}

// A message sink for runs that must never ask: messages go on to `to`, a
// question is answered No (Cancel where offered) without waiting, and the
// last text is kept for the environment's line.
class Unattended : public MessageSink {
public:
    explicit Unattended(MessageSink& to) : m_to(to) {}
    Answer Show(const QString& text, Buttons buttons) override
    {
        m_last = text;
        m_to.Inform(text);
        switch (buttons) {
        case Buttons::Ok:
            return Answer::Ok;
        case Buttons::YesNo:
            return Answer::No;
        case Buttons::YesNoCancel:
            break;
        }
        return Answer::Cancel;
    }
    // The last message on one line, for a line of output; the next run
    // starts without it.
    QString TakeLast()
    {
        const QString text = std::exchange(m_last, QString()).simplified();
        return text.isEmpty() ? QStringLiteral("the backup failed") : text;
    }

private:
    MessageSink& m_to;
    QString m_last;
};

// The retention after a successful backup of `environment`: a line for each
// file removed; false when a file could not be removed.
bool Retain(const CommandContext& context, const FoundEnvironment& environment, EnvironmentBackup& backup,
            const RetentionPolicy& policy)
{
    if (!policy.any())
        return true;
    const QString written = backup.LastBackupFile();
    QStringList failures;
    const QStringList removed = ApplyRetention(written.section(QLatin1Char('\\'), 0, -2), environment.key, written, policy,
                                               backup.Today(), failures);
    for (const QString& path : removed)
        PrintLine(environment.name + QStringLiteral("\tremoved ") + NativePath(path));
    for (const QString& failure : failures)
        context.messages.Inform(failure);
    return failures.isEmpty();
}

// backup --all: every environment in turn, by name, without a question;
// one failing does not stop the others.
int BackUpAll(const CommandContext& context, const RetentionPolicy& policy)
{
    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    std::vector<FoundEnvironment> environments;
    try {
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironment ORDER BY sEnvironmentName, iEnvironmentKey"), session.repository);
        for (; !rs.Eof(); rs.MoveNext())
            environments.push_back({rs.Int(QStringLiteral("iEnvironmentKey")), rs.Text(QStringLiteral("sEnvironmentName"))});
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
        return kExitFailure;
    }
    Unattended messages(context.messages);
    TerminalProgress progress;
    VersionBackup engine(messages, progress, session.plan.connectionString);
    EnvironmentBackup backup(engine, session.plan.sharedResourcePath, session.plan.installationPath);
    int status = kExitSuccess;
    for (const FoundEnvironment& environment : environments) {
        if (InterruptingSignal() != 0)
            return kExitFailure;
        messages.TakeLast();
        if (!backup.BackupEnvironment(environment.key)) {
            PrintLine(environment.name + QStringLiteral("\tfailed: ") + messages.TakeLast());
            status = kExitFailure;
            continue;
        }
        PrintLine(environment.name + u'\t' + NativePath(backup.LastBackupFile()));
        if (!Retain(context, environment, backup, policy))
            status = kExitFailure;
    }
    return status;
}

} // namespace

int RunBackup(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    AssumeYes messages(context.messages, AssumeYes::Take(arguments));
    RetentionPolicy policy;
    if (const QString problem = TakeRetention(arguments, policy); !problem.isEmpty())
        return BadOption(context, problem);
    if (arguments == QStringList{QStringLiteral("--all")})
        return BackUpAll(context, policy);
    if (arguments.size() != 1 || arguments[0].startsWith(u'-'))
        return WrongArguments(context);
    return WithEnvironment(context, arguments[0], messages, [&](const FoundEnvironment& environment, EnvironmentBackup& backup) {
        if (!backup.AskAndBackUp(environment.key, environment.name))
            return kExitFailure;
        PrintLine(NativePath(backup.LastBackupFile()));
        return Retain(context, environment, backup, policy) ? kExitSuccess : kExitFailure;
    });
}

int RunVerify(const CommandContext& context)
{
    const QStringList& arguments = context.arguments;
    if (arguments.isEmpty() || arguments.size() > 2)
        return WrongArguments(context);
    return WithEnvironment(context, arguments[0], context.messages,
                           [&](const FoundEnvironment& environment, EnvironmentBackup& backup) {
                               QStringList files;
                               if (arguments.size() == 2) {
                                   files << (ArgumentChooser::IsPath(arguments[1])
                                                 ? arguments[1]
                                                 : backup.RestoreFolder(environment.name) + QLatin1Char('\\') + arguments[1]);
                               } else {
                                   for (const BackupFileEntry& file : ListBackupFiles(backup.RestoreFolder(environment.name)))
                                       files << file.path;
                               }
                               int status = kExitSuccess;
                               for (const QString& file : files) {
                                   const BackupFileCheck check = VerifyBackupFile(file, environment.key);
                                   PrintLine(NativePath(file) + u'\t' +
                                             (check.verified() ? QStringLiteral("ok") : check.message.simplified()));
                                   if (!check.verified())
                                       status = kExitFailure;
                               }
                               return status;
                           });
}

int RunRestore(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    const bool dryRun = DryRun::Take(arguments);
    // A dry run asks nothing: it changes nothing whatever the answer (the
    // question about a file without a manifest is shown, answered yes).
    const bool yes = AssumeYes::Take(arguments);
    AssumeYes messages(context.messages, yes || dryRun);
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
