#include "cli/Cli.h"

#include "cli/TerminalMessages.h"
#include "core/repository/History.h"
#include "core/repository/Interruption.h"
#include "core/startup/Registry.h"
#include "Version.h"

#include <QByteArray>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

#include <signal.h>

namespace dorvane::cli {

namespace {

void Write(std::FILE* stream, const QString& line)
{
    const QByteArray bytes = (line + u'\n').toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}

const QString kProgram = QStringLiteral("dorvanectl");
const QString kRegistryOption = QStringLiteral("--registry");

// The words of a text; a [bracketed] or "quoted" group stays one word, so
// that an optional argument is never broken over two lines.
QStringList Words(const QString& text)
{
    QStringList words;
    QString word;
    int depth = 0;
    bool quoted = false;
    for (const QChar c : text) {
        if (c == u'"')
            quoted = !quoted;
        else if (!quoted && c == u'[')
            ++depth;
        else if (!quoted && c == u']' && depth > 0)
            --depth;
        if (c == u' ' && depth == 0 && !quoted) {
            if (!word.isEmpty())
                words << word;
            word.clear();
            continue;
        }
        word += c;
    }
    if (!word.isEmpty())
        words << word;
    return words;
}

// Fills lines of at most kHelpWidth columns with the words of `text`, the
// first line indented by `first` blanks and the others by `rest`. A word
// longer than a line stands on a line of its own.
QStringList Wrap(const QString& text, qsizetype first, qsizetype rest)
{
    QStringList lines;
    QString line(first, u' ');
    bool empty = true;
    for (const QString& word : Words(text)) {
        if (!empty && line.size() + 1 + word.size() > kHelpWidth) {
            lines << line;
            line = QString(rest, u' ');
            empty = true;
        }
        if (!empty)
            line += u' ';
        line += word;
        empty = false;
    }
    lines << line;
    return lines;
}

QString Synopsis(const Command& command)
{
    return command.arguments.isEmpty() ? command.name : command.name + u' ' + command.arguments;
}

// A usage mistake: the message, then the usage, on standard error.
int UsageError(const QString& message, const QString& usage)
{
    PrintErrorLine(message);
    PrintErrorLine(usage);
    return kExitUsage;
}

int RunHelp(const CommandContext& context)
{
    if (context.arguments.isEmpty()) {
        PrintLine(Usage());
        return kExitSuccess;
    }
    if (context.arguments.size() == 1) {
        if (const Command* command = FindCommand(context.arguments.first())) {
            PrintLine(CommandHelp(*command));
            return kExitSuccess;
        }
        return UsageError(QStringLiteral("Unknown command: ") + context.arguments.first(), Usage());
    }
    return WrongArguments(context);
}

} // namespace

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {QStringLiteral("info"), QString(),
         QStringLiteral("Show the repository chosen by the settings, open it and count its environments"), RunInfo},
        {QStringLiteral("create-repository"), QStringLiteral("FILE | --dsn NAME"),
         QStringLiteral("Create an empty repository with the reference data, as a new file or on an ODBC data source"),
         RunCreateRepository},
        {QStringLiteral("upgrade-repository"), QString(),
         QStringLiteral("Add the indexes and the history table that the repository the settings choose lacks (a "
                        "repository the suite made, or an earlier Dorvane's); changes nothing else and can be run again"),
         RunUpgradeRepository},
        {QStringLiteral("create-installation"), QStringLiteral("DIR"),
         QStringLiteral("Create the installation files below DIR (the ExePath setting): backup template, user data and "
                        "the tutorial"),
         RunCreateInstallation},
        {QStringLiteral("create-shared-folder"), QStringLiteral("DIR"),
         QStringLiteral("Create a shared resource folder: testdata.mdb, Apps and Environments\\Backups"),
         RunCreateSharedFolder},
        {QStringLiteral("update-version"), QStringLiteral("ENVIRONMENT LISTED APPLICATION VERSION"),
         QStringLiteral("Update the environment's version LISTED (\"App - VersionID\") into the new VERSION of APPLICATION, "
                        "which then takes its place in the environment"),
         RunUpdateVersion},
        {QStringLiteral("copy-version"), QStringLiteral("ENVIRONMENT LISTED APPLICATION VERSION"),
         QStringLiteral("Copy the content of the environment's version LISTED into the new VERSION of APPLICATION"),
         RunCopyVersion},
        {QStringLiteral("delete-version"), QStringLiteral("APPLICATION VERSION [--yes] [--dry-run]"),
         QStringLiteral("Delete a version with all its contents (--yes answers the confirmation; --dry-run prints "
                        "the rows that would go and deletes nothing)"), RunDeleteVersion},
        {QStringLiteral("delete-application"), QStringLiteral("APPLICATION [--yes] [--dry-run]"),
         QStringLiteral("Delete an application with all its versions (--yes answers the confirmation; --dry-run "
                        "prints the rows that would go and deletes nothing)"),
         RunDeleteApplication},
        {QStringLiteral("copy-environment"),
         QStringLiteral("SOURCE NEWNAME [--description TEXT] [--version-id \"App - VersionID=NEWID\"]... [--dry-run]"),
         QStringLiteral("Save the environment SOURCE as NEWNAME with a copy of every version; each version's new ID "
                        "comes from its --version-id or is asked on the terminal (--dry-run prints the versions and "
                        "rows that would be copied, asks nothing and writes nothing)"),
         RunCopyEnvironment},
        {QStringLiteral("rename-environment"), QStringLiteral("NAME NEWNAME"),
         QStringLiteral("Rename an environment by the window's rules for names, its backup folder with it, and print "
                        "the name stored"),
         RunRenameEnvironment},
        {QStringLiteral("delete-environment"), QStringLiteral("NAME [--dry-run]"),
         QStringLiteral("Delete an environment that no step refers to, with its version list and users (--dry-run "
                        "prints its versions and the rows that would go and deletes nothing)"),
         RunDeleteEnvironment},
        {QStringLiteral("backup"), QStringLiteral("(ENVIRONMENT | --all) [--keep-days N] [--keep-last N] [--yes]"),
         QStringLiteral("Back the environment up into today's file in its backup folder, verify it and print the "
                        "file's name (--yes answers the confirmation); --all backs up every environment without a "
                        "question, printing NAME<TAB>PATH or NAME<TAB>failed: MESSAGE for each; --keep-days N and "
                        "--keep-last N then remove the environment's other backups older than N days and beyond the N "
                        "newest (a file either keeps stays), printing NAME<TAB>removed PATH"),
         RunBackup},
        {QStringLiteral("restore"), QStringLiteral("ENVIRONMENT FILE [--yes] [--dry-run]"),
         QStringLiteral("Restore the environment from FILE, a name that 'backups' lists or a path; a file of another "
                        "environment is refused (--yes restores one whose environment was deleted since; --dry-run "
                        "prints the names, versions, rows and users it would replace and changes nothing)"),
         RunRestore},
        {QStringLiteral("backups"), QStringLiteral("ENVIRONMENT"),
         QStringLiteral("List the environment's backup files, newest first, with the versions and rows each holds"),
         RunBackups},
        {QStringLiteral("verify"), QStringLiteral("ENVIRONMENT [FILE]"),
         QStringLiteral("Check each backup of the environment, or FILE, and print FILE<TAB>ok or FILE<TAB>why not: "
                        "the database's integrity check, a schema this version restores, the one environment it "
                        "holds, and its manifest"),
         RunVerify},
        {QStringLiteral("export-keywords"), QStringLiteral("APPLICATION FILE"),
         QStringLiteral("Write the application's keywords to FILE as tab-delimited text (name, tab, description, CR LF)"),
         RunExportKeywords},
        {QStringLiteral("import-keywords"), QStringLiteral("APPLICATION FILE"),
         QStringLiteral("Add the keywords of the tab-delimited text FILE to the application"), RunImportKeywords},
        {QStringLiteral("history"), QStringLiteral("[--since DATE] [--environment NAME] [--limit N]"),
         QStringLiteral("Print who updated, copied, backed up, restored, imported or deleted what, and how it ended: "
                        "newest first, one entry a line, its fields separated by tabs"),
         RunHistory},
        {QStringLiteral("help"), QStringLiteral("[COMMAND]"), QStringLiteral("Show this help, or one command's usage"),
         RunHelp},
    };
    return commands;
}

const Command* FindCommand(const QString& name)
{
    for (const Command& command : Commands()) {
        if (command.name == name)
            return &command;
    }
    return nullptr;
}

QString CommandUsage(const Command& command)
{
    const QString prefix = QStringLiteral("usage: ") + kProgram + u' ';
    return Wrap(prefix + Synopsis(command), 0, prefix.size() + command.name.size() + 1).join(u'\n');
}

QString CommandHelp(const Command& command)
{
    return CommandUsage(command) + u'\n' + Wrap(command.summary, 2, 2).join(u'\n');
}

QString Usage()
{
    // Option descriptions start in one column, each continued beneath it.
    struct Option {
        const char* synopsis;
        const char* description;
    };
    static const Option options[] = {
        {"--registry FILE", "read the settings from FILE instead of $ZENTRIX_REGISTRY or /etc/zentrix/zentrix.reg"},
        {"--version", "print the version and exit"},
        {"--help", "show this help; 'help COMMAND' shows one command's"},
    };
    constexpr qsizetype column = 19;

    QStringList lines;
    lines << QStringLiteral("usage: %1 [--registry FILE] COMMAND [ARGUMENTS]").arg(kProgram) << QString()
          << QStringLiteral("Options:");
    for (const Option& option : options) {
        QStringList wrapped = Wrap(QString::fromLatin1(option.description), column, column);
        wrapped.first().replace(2, qsizetype(std::strlen(option.synopsis)), QString::fromLatin1(option.synopsis));
        lines << wrapped;
    }
    lines << QString() << QStringLiteral("Commands:");
    for (const Command& command : Commands()) {
        lines << Wrap(Synopsis(command), 2, 2 + command.name.size() + 1);
        lines << Wrap(command.summary, 6, 6);
    }
    lines << QString() << QStringLiteral("Exit status: 0 on success, 1 when an operation fails or is refused, 2 for a")
          << QStringLiteral("usage error.");
    return lines.join(u'\n');
}

int WrongArguments(const CommandContext& context)
{
    PrintErrorLine(CommandUsage(context.command));
    return kExitUsage;
}

QString VersionLine() { return kProgram + u' ' + QLatin1String(kVersion); }

void PrintLine(const QString& line) { Write(stdout, line); }
void PrintErrorLine(const QString& line) { Write(stderr, line); }

int Run(const QStringList& arguments)
{
    // Global options come before the command.
    qsizetype i = 0;
    for (; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            PrintLine(Usage());
            return kExitSuccess;
        }
        if (argument == QLatin1String("--version")) {
            PrintLine(VersionLine());
            return kExitSuccess;
        }
        // An empty file name (an unset shell variable) must not fall back
        // to the machine's settings file.
        std::optional<QString> registry;
        if (argument == kRegistryOption) {
            if (i + 1 < arguments.size())
                registry = arguments.at(++i);
        } else if (argument.startsWith(kRegistryOption + u'=')) {
            registry = argument.mid(kRegistryOption.size() + 1);
        } else if (argument.startsWith(u'-')) {
            return UsageError(QStringLiteral("Unknown option: ") + argument, Usage());
        } else {
            break;
        }
        if (!registry || registry->isEmpty())
            return UsageError(QStringLiteral("--registry needs a file name"), Usage());
        SetSettingsFileOverride(*registry);
    }

    if (i >= arguments.size())
        return UsageError(QStringLiteral("A command is missing."), Usage());
    const Command* command = FindCommand(arguments.at(i));
    if (!command)
        return UsageError(QStringLiteral("Unknown command: ") + arguments.at(i), Usage());

    const QStringList commandArguments = arguments.mid(i + 1);
    if (commandArguments == QStringList{QStringLiteral("--help")}) {
        PrintLine(CommandHelp(*command));
        return kExitSuccess;
    }
    for (qsizetype n = 0; n < commandArguments.size(); ++n) {
        if (commandArguments.at(n).isEmpty())
            return UsageError(QStringLiteral("Argument %1 of %2 is empty.").arg(n + 1).arg(command->name),
                              CommandUsage(*command));
    }
    SetHistoryProgram(kProgram);
    TerminalMessages messages;
    int status = kExitFailure;
    try {
        status = command->run(CommandContext{*command, commandArguments, messages});
    } catch (const OperationInterrupted&) {
        status = kExitFailure;
    }
    // A signal that came after the operation had committed lets it end as
    // it would have; one that stopped it, or a failure it caused, ends
    // the run as interrupted (the operation has rolled back).
    if (status != kExitSuccess && InterruptingSignal() != 0) {
        PrintErrorLine(kInterrupted);
        return 128 + InterruptingSignal();
    }
    return status;
}

namespace {

volatile std::sig_atomic_t interruptingSignal = 0;

extern "C" void onInterrupt(int signal)
{
    if (interruptingSignal != 0) {
        // Asked twice: the process ends now; a server rolls back what the
        // connection left open, SQLite at the file's next opening.
        ::signal(signal, SIG_DFL);
        ::raise(signal);
        return;
    }
    interruptingSignal = signal;
    RequestInterruption();
}

} // namespace

void HandleInterruptions()
{
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a question waiting for its answer on the terminal
    // returns at once.
    action.sa_flags = 0;
    for (const int signal : {SIGINT, SIGTERM}) {
        // A signal ignored when the tool started (a background job of a
        // script) stays ignored, as the shell meant.
        struct sigaction previous = {};
        if (sigaction(signal, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN)
            continue;
        sigaction(signal, &action, nullptr);
    }
}

int InterruptingSignal() { return interruptingSignal; }

} // namespace dorvane::cli
