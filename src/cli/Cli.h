#pragma once

#include "core/repository/Interaction.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace dorvane {
class Connection;
struct Session;
}

namespace dorvane::cli {

// Exit statuses: an operation that fails or is refused ends with 1, a
// command line the tool cannot use (unknown command or option, a missing or
// empty argument) with 2.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
// A command interrupted by SIGINT or SIGTERM ends with 128 + the signal
// (130, 143) after rolling back, and says so.
inline const QString kInterrupted = QStringLiteral("Interrupted: nothing was changed");

// Help lines are wrapped to this width.
inline constexpr qsizetype kHelpWidth = 80;

struct Command;

// What a command handler gets: its own arguments (the words after the
// command name) and where its messages go.
struct CommandContext {
    const Command& command;
    QStringList arguments;
    MessageSink& messages;
};

struct Command {
    QString name;
    QString arguments; // as shown in the usage, e.g. "FILE | --dsn NAME"
    QString summary;   // one line
    int (*run)(const CommandContext& context);
};

// Every command of the tool, in the order the help lists them.
const std::vector<Command>& Commands();
const Command* FindCommand(const QString& name);

// The tool's usage: the global options, then each command's usage line
// with its summary beneath, wrapped to kHelpWidth columns.
QString Usage();
// "usage: dorvanectl NAME ARGUMENTS", wrapped to kHelpWidth columns.
QString CommandUsage(const Command& command);
// `help COMMAND`: the command's usage and its summary beneath.
QString CommandHelp(const Command& command);

// Prints the command's usage to standard error and returns the usage
// status: for handlers given arguments they cannot use.
int WrongArguments(const CommandContext& context);

// "dorvanectl VERSION"
QString VersionLine();

// Runs the tool on its arguments (program name excluded); returns the exit
// status.
int Run(const QStringList& arguments);

// Standard output and standard error, one line per call.
void PrintLine(const QString& line);
void PrintErrorLine(const QString& line);

// The command handlers, one file each area.
int RunCreateRepository(const CommandContext& context);
int RunCreateInstallation(const CommandContext& context);
int RunCreateSharedFolder(const CommandContext& context);
int RunInfo(const CommandContext& context);
int RunUpgradeRepository(const CommandContext& context);
int RunUpdateVersion(const CommandContext& context);
int RunCopyVersion(const CommandContext& context);
int RunDeleteVersion(const CommandContext& context);
int RunDeleteApplication(const CommandContext& context);
int RunExportKeywords(const CommandContext& context);
int RunImportKeywords(const CommandContext& context);
int RunCopyEnvironment(const CommandContext& context);
int RunRenameEnvironment(const CommandContext& context);
int RunDeleteEnvironment(const CommandContext& context);
int RunBackup(const CommandContext& context);
int RunRestore(const CommandContext& context);
int RunBackups(const CommandContext& context);
int RunHistory(const CommandContext& context);
int RunVerify(const CommandContext& context);

// From here on SIGINT and SIGTERM interrupt the running operation instead
// of ending the process: its transactions roll back and its work files go,
// and the tool says kInterrupted and ends with 130 or 143. A second signal
// ends the process at once.
void HandleInterruptions();
// The signal that interrupted the run, or 0.
int InterruptingSignal();

// Opens the repository and the side databases as start-up does, handling
// interruptions from then on; on failure says "Could not open database: "
// and the description.
bool OpenRepository(const CommandContext& context, Session& session);

// The key of the application named `name`, or nothing.
std::optional<qint32> FindApplication(Connection& connection, const QString& name);

// An environment named as stored; when there is none, says "There is no
// environment named NAME." and returns nothing.
struct FoundEnvironment {
    qint32 key = 0;
    QString name;  // as stored
};
std::optional<FoundEnvironment> FindEnvironment(const CommandContext& context, Connection& connection,
                                                const QString& name);

} // namespace dorvane::cli
