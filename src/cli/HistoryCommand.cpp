// The history of who did what, newest first.

#include "cli/Cli.h"

#include "core/repository/History.h"
#include "core/repository/SchemaDdl.h"
#include "core/startup/Startup.h"

#include <QDate>

namespace dorvane::cli {

// [--since DATE] [--environment NAME] [--limit N]: one line per entry,
// its fields separated by TABs (HistoryLine).
int RunHistory(const CommandContext& context)
{
    HistoryFilter filter;
    const QStringList& arguments = context.arguments;
    for (qsizetype i = 0; i < arguments.size(); i += 2) {
        const QString& option = arguments.at(i);
        if (i + 1 >= arguments.size())
            return WrongArguments(context);
        const QString& value = arguments.at(i + 1);
        if (option == QLatin1String("--since")) {
            const QDate day = QDate::fromString(value, Qt::ISODate);
            if (!day.isValid()) {
                PrintErrorLine(QStringLiteral("--since needs a date as YYYY-MM-DD: ") + value);
                return kExitUsage;
            }
            filter.since = day;
        } else if (option == QLatin1String("--environment")) {
            filter.environment = value;
        } else if (option == QLatin1String("--limit")) {
            bool number = false;
            const int limit = value.toInt(&number);
            if (!number || limit < 1) {
                PrintErrorLine(QStringLiteral("--limit needs a whole number above 0: ") + value);
                return kExitUsage;
            }
            filter.limit = limit;
        } else {
            return WrongArguments(context);
        }
    }

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        if (!HistoryTableExists(session.repository))
            return kExitFailure;  // the upgrade note has said why
        for (const HistoryEntry& entry : ReadHistory(session.repository, filter))
            PrintLine(HistoryLine(entry));
        return kExitSuccess;
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the history: ") + e.description());
        return kExitFailure;
    }
}

} // namespace dorvane::cli
