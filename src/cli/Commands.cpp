#include "cli/Cli.h"

#include "cli/TerminalMessages.h"
#include "startup/Registry.h"

#include <QByteArray>

#include <algorithm>
#include <cstdio>

namespace dorvane::cli {

namespace {

void Write(std::FILE* stream, const QString& line)
{
    const QByteArray bytes = (line + u'\n').toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}

int RunHelp(const CommandContext& context)
{
    if (context.arguments.isEmpty()) {
        PrintLine(Usage());
        return kExitSuccess;
    }
    if (context.arguments.size() == 1) {
        if (const Command* command = FindCommand(context.arguments.first())) {
            PrintLine(CommandUsage(*command));
            PrintLine(QStringLiteral("  ") + command->summary);
            return kExitSuccess;
        }
        PrintErrorLine(QStringLiteral("Unknown command: ") + context.arguments.first());
        PrintErrorLine(Usage());
        return kExitFailure;
    }
    return WrongArguments(context);
}

const QString kProgram = QStringLiteral("dorvanectl");
const QString kRegistryOption = QStringLiteral("--registry");

} // namespace

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {QStringLiteral("info"), QString(),
         QStringLiteral("Show the repository chosen by the settings, open it and count its environments"), RunInfo},
        {QStringLiteral("create-repository"), QStringLiteral("FILE | --dsn NAME"),
         QStringLiteral("Create an empty repository with the reference data, as a new file or on an ODBC data source"),
         RunCreateRepository},
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
        {QStringLiteral("delete-version"), QStringLiteral("APPLICATION VERSION [--yes]"),
         QStringLiteral("Delete a version with all its contents (--yes answers the confirmation)"), RunDeleteVersion},
        {QStringLiteral("delete-application"), QStringLiteral("APPLICATION [--yes]"),
         QStringLiteral("Delete an application with all its versions (--yes answers the confirmation)"),
         RunDeleteApplication},
        {QStringLiteral("copy-environment"),
         QStringLiteral("SOURCE NEWNAME [--description TEXT] [--version-id \"App - VersionID=NEWID\"]..."),
         QStringLiteral("Save the environment SOURCE as NEWNAME with a copy of every version; each version's new ID "
                        "comes from its --version-id or is asked on the terminal"),
         RunCopyEnvironment},
        {QStringLiteral("delete-environment"), QStringLiteral("NAME"),
         QStringLiteral("Delete an environment that no step refers to, with its version list and users"),
         RunDeleteEnvironment},
        {QStringLiteral("backup"), QStringLiteral("ENVIRONMENT [--yes]"),
         QStringLiteral("Back the environment up into today's file in its backup folder and print the file's name "
                        "(--yes answers the confirmation)"),
         RunBackup},
        {QStringLiteral("restore"), QStringLiteral("ENVIRONMENT FILE [--yes]"),
         QStringLiteral("Restore the environment from FILE, a name that 'backups' lists or a path; a file of another "
                        "environment is refused (--yes restores one whose environment was deleted since)"),
         RunRestore},
        {QStringLiteral("backups"), QStringLiteral("ENVIRONMENT"),
         QStringLiteral("List the environment's backup files, newest first, with the versions and rows each holds"),
         RunBackups},
        {QStringLiteral("export-keywords"), QStringLiteral("APPLICATION FILE"),
         QStringLiteral("Write the application's keywords to FILE as tab-delimited text (name, tab, description, CR LF)"),
         RunExportKeywords},
        {QStringLiteral("import-keywords"), QStringLiteral("APPLICATION FILE"),
         QStringLiteral("Add the keywords of the tab-delimited text FILE to the application"), RunImportKeywords},
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
    QString usage = QStringLiteral("usage: ") + kProgram + u' ' + command.name;
    if (!command.arguments.isEmpty())
        usage += u' ' + command.arguments;
    return usage;
}

QString Usage()
{
    qsizetype width = 0;
    for (const Command& command : Commands())
        width = std::max(width, (command.name + u' ' + command.arguments).size());

    QStringList lines;
    lines << QStringLiteral("usage: %1 [--registry FILE] COMMAND [ARGUMENTS]").arg(kProgram) << QString()
          << QStringLiteral("Options:")
          << QStringLiteral("  --registry FILE  read the settings from FILE instead of $ZENTRIX_REGISTRY or "
                            "/etc/zentrix/zentrix.reg")
          << QStringLiteral("  --help           show this help") << QString() << QStringLiteral("Commands:");
    for (const Command& command : Commands()) {
        const QString synopsis = (command.name + u' ' + command.arguments).trimmed();
        lines << QStringLiteral("  ") + synopsis.leftJustified(width + 2) + command.summary;
    }
    return lines.join(u'\n');
}

int WrongArguments(const CommandContext& context)
{
    PrintErrorLine(CommandUsage(context.command));
    return kExitFailure;
}

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
        if (argument == kRegistryOption) {
            if (i + 1 >= arguments.size()) {
                PrintErrorLine(QStringLiteral("--registry needs a file name"));
                PrintErrorLine(Usage());
                return kExitFailure;
            }
            SetSettingsFileOverride(arguments.at(++i));
            continue;
        }
        if (argument.startsWith(kRegistryOption + u'=')) {
            SetSettingsFileOverride(argument.mid(kRegistryOption.size() + 1));
            continue;
        }
        if (argument.startsWith(u'-')) {
            PrintErrorLine(QStringLiteral("Unknown option: ") + argument);
            PrintErrorLine(Usage());
            return kExitFailure;
        }
        break;
    }

    if (i >= arguments.size()) {
        PrintErrorLine(Usage());
        return kExitFailure;
    }
    const Command* command = FindCommand(arguments.at(i));
    if (!command) {
        PrintErrorLine(QStringLiteral("Unknown command: ") + arguments.at(i));
        PrintErrorLine(Usage());
        return kExitFailure;
    }

    const QStringList commandArguments = arguments.mid(i + 1);
    if (commandArguments == QStringList{QStringLiteral("--help")}) {
        PrintLine(CommandUsage(*command));
        PrintLine(QStringLiteral("  ") + command->summary);
        return kExitSuccess;
    }
    TerminalMessages messages;
    return command->run(CommandContext{*command, commandArguments, messages});
}

} // namespace dorvane::cli
