#include "cli/Cli.h"

#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/startup/Startup.h"

namespace dorvane::cli {

// Chooses and opens the repository exactly as the desktop program starts
// up, and says what it chose; a password in the connection is masked.
int RunInfo(const CommandContext& context)
{
    if (!context.arguments.isEmpty())
        return WrongArguments(context);

    const StartupPlan plan = PlanStartup();
    // Settings that were never read choose nothing worth printing.
    if (!plan.settingsProblem.isEmpty()) {
        context.messages.Inform(kCouldNotOpenDatabase + plan.settingsProblem);
        return kExitFailure;
    }
    PrintLine(QStringLiteral("mode: ") + ModeName(plan.mode));
    PrintLine(QStringLiteral("connection: ") + MaskPasswords(plan.connectionString));
    PrintLine(QStringLiteral("shared-resource-path: ") + plan.sharedResourcePath);
    PrintLine(QStringLiteral("test-data: ") + plan.testDataPath);
    PrintLine(QStringLiteral("user-data: ") + plan.userDataPath);
    PrintLine(QStringLiteral("installation-path: ") + plan.installationPath);

    Session session;
    try {
        session.Open(plan);
    } catch (const DbError& e) {
        context.messages.Inform(kCouldNotOpenDatabase + e.description());
        return kExitFailure;
    }

    qint32 environments = 0;
    try {
        Recordset rs(QStringLiteral("SELECT * FROM tEnvironment"), session.repository);
        environments = CountRecords(&rs);
        rs.Close();
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while counting environments: ") + e.description());
        return kExitFailure;
    }
    session.Close();
    PrintLine(QStringLiteral("environments: ") + QString::number(environments));
    return kExitSuccess;
}

} // namespace dorvane::cli
