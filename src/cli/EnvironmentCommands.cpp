// Save As of an environment with the copy of its whole content, and the
// deletion of an environment.

#include "cli/Cli.h"
#include "cli/TerminalMessages.h"
#include "cli/TerminalProgress.h"

#include "core/copyengine/EnvironmentCopy.h"
#include "core/copyengine/OperationPreview.h"
#include "core/copyengine/VersionBackup.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/environments/EnvironmentRecords.h"
#include "core/lists/ListQueries.h"
#include "core/repository/Globals.h"
#include "core/repository/Recordset.h"
#include "core/startup/Startup.h"

#include <QByteArray>
#include <QHash>

#include <cstdio>
#include <optional>

#include <unistd.h>

namespace dorvane::cli {

namespace {

const QString kDescriptionOption = QStringLiteral("--description");
const QString kVersionIdOption = QStringLiteral("--version-id");

// The new version IDs given on the command line, by the prompt's label.
// A version without one, or whose given ID the prompt's check refuses, is
// asked on the terminal; without a terminal (or at the end of the input)
// the prompt is cancelled, and with it the copy.
class CommandLineVersionIds : public NewVersionIdPrompt {
public:
    explicit CommandLineVersionIds(QHash<QString, QString> given, std::FILE* input = stdin)
        : m_given(std::move(given)), m_input(input)
    {
    }

    std::optional<QString> Ask(const QString& labelText, const std::function<bool(const QString&)>& okCheck) override
    {
        if (const auto it = m_given.constFind(labelText); it != m_given.constEnd() && okCheck(*it))
            return *it;
        if (isatty(fileno(m_input)) != 1) {
            // Nobody to ask: the prompt is shown and cancelled.
            PrintErrorLine(labelText);
            return std::nullopt;
        }
        for (;;) {
            const QByteArray prompt = (labelText + u' ').toLocal8Bit();
            std::fwrite(prompt.constData(), 1, static_cast<size_t>(prompt.size()), stderr);
            std::fflush(stderr);
            QByteArray line;
            char buffer[256];
            while (std::fgets(buffer, sizeof buffer, m_input)) {
                line += buffer;
                if (line.endsWith('\n'))
                    break;
            }
            if (line.isEmpty()) {
                PrintErrorLine(QString());
                return std::nullopt;
            }
            const QString id = QString::fromLocal8Bit(line).trimmed();
            if (okCheck(id))
                return id;
        }
    }

private:
    QHash<QString, QString> m_given;
    std::FILE* m_input;
};

} // namespace

std::optional<FoundEnvironment> FindEnvironment(const CommandContext& context, Connection& connection,
                                                const QString& name)
{
    Recordset rs(QStringLiteral("SELECT * FROM tEnvironment WHERE sEnvironmentName='") + QuoteSql(name) +
                     QStringLiteral("'"),
                 connection);
    if (rs.Eof()) {
        context.messages.Inform(QStringLiteral("There is no environment named ") + name + QStringLiteral("."));
        return std::nullopt;
    }
    return FoundEnvironment{rs.Int(QStringLiteral("iEnvironmentKey")), rs.Text(QStringLiteral("sEnvironmentName"))};
}

int RunCopyEnvironment(const CommandContext& context)
{
    QStringList positional;
    std::optional<QString> description;
    QStringList versionIds;
    QStringList arguments = context.arguments;
    const bool dryRun = DryRun::Take(arguments);
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == kDescriptionOption || argument == kVersionIdOption) {
            if (i + 1 >= arguments.size())
                return WrongArguments(context);
            if (argument == kDescriptionOption)
                description = arguments.at(++i);
            else
                versionIds << arguments.at(++i);
        } else if (argument.startsWith(QLatin1String("--"))) {
            return WrongArguments(context);
        } else {
            positional << argument;
        }
    }
    if (positional.size() != 2)
        return WrongArguments(context);
    const QString& sourceName = positional.at(0);
    const QString& newName = positional.at(1);

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        Connection& repository = session.repository;
        const std::optional<FoundEnvironment> source = FindEnvironment(context, repository, sourceName);
        if (!source)
            return kExitFailure;
        // The rows the copy would write, without a question for the new IDs.
        if (dryRun) {
            PrintLine(PreviewEnvironmentCopy(repository, source->key).Lines().join(u'\n'));
            return kExitSuccess;
        }

        // Each --version-id is an entry of the source's version list as the
        // configuration page shows it ("App - VersionID"), "=" and the new
        // ID. The longest entry that fits wins, so that an entry text with
        // "=" in it still finds its version.
        const ListEntries entries = EnvironAppVerEntries(repository, source->key);
        QHash<QString, QString> given;
        for (const QString& value : versionIds) {
            const ListEntry* match = nullptr;
            for (const ListEntry& entry : entries) {
                if (value.startsWith(entry.text + u'=') && (!match || entry.text.size() > match->text.size()))
                    match = &entry;
            }
            if (!match) {
                context.messages.Inform(QStringLiteral("Environment ") + sourceName +
                                        QStringLiteral(" has no version to match --version-id ") + value +
                                        QStringLiteral("."));
                return kExitFailure;
            }
            const int appEnd = match->text.indexOf(QStringLiteral(" - "));
            given.insert(EnvironmentCopy::PromptLabel(match->text.left(appEnd), match->text.mid(appEnd + 3)),
                         value.mid(match->text.size() + 1));
        }

        EnvironmentRecords definition;
        const EnvironOutcome opened = definition.Open(-1, source->key, repository, context.messages);
        if (!opened.Ok)
            return kExitFailure;

        EnvironDefinitionInput input;
        input.Name = newName;
        input.Description = description.value_or(opened.Description.value_or(QString()));

        TerminalProgress progress;
        VersionBackup engine(context.messages, progress, session.plan.connectionString);
        CommandLineVersionIds prompt(given);
        EnvironmentCopy copy(engine, repository, prompt, &session.testData);
        const EnvironOutcome saved = definition.SaveAs(input, copy, context.messages);
        return saved.Ok ? kExitSuccess : kExitFailure;
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
        return kExitFailure;
    }
}

int RunRenameEnvironment(const CommandContext& context)
{
    if (context.arguments.size() != 2)
        return WrongArguments(context);
    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        const std::optional<FoundEnvironment> found = FindEnvironment(context, session.repository, context.arguments[0]);
        if (!found)
            return kExitFailure;
        EnvironmentRecords definition;
        if (!definition.Open(-1, found->key, session.repository, context.messages).Ok)
            return kExitFailure;
        Recordset stored(QStringLiteral("SELECT * FROM tEnvironment WHERE iEnvironmentKey=") + QString::number(found->key),
                         session.repository);
        const QString description = stored.Text(QStringLiteral("sEnvironmentDesc"));
        stored.Close();
        const EnvironOutcome saved = definition.Save({context.arguments[1], description, {}}, session.repository,
                                                     context.messages, BackupFolderMover(session.plan.sharedResourcePath));
        if (!saved.Ok)
            return kExitFailure;
        PrintLine(definition.CurrentEnvironName());
        return kExitSuccess;
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
        return kExitFailure;
    }
}

int RunDeleteEnvironment(const CommandContext& context)
{
    QStringList arguments = context.arguments;
    const bool dryRun = DryRun::Take(arguments);
    if (arguments.size() != 1)
        return WrongArguments(context);
    const QString& name = arguments.at(0);

    Session session;
    if (!OpenRepository(context, session))
        return kExitFailure;
    try {
        const std::optional<FoundEnvironment> found = FindEnvironment(context, session.repository, name);
        if (!found)
            return kExitFailure;
        if (dryRun) {
            // Refused as the deletion would refuse it; else what would go.
            if (const QString refusal = EnvironmentDeletionRefusal(session.repository, found->key); !refusal.isEmpty()) {
                context.messages.Inform(refusal);
                return kExitFailure;
            }
            PrintLine(PreviewEnvironmentDeletion(session.repository, found->key).Lines().join(u'\n'));
            return kExitSuccess;
        }
        EnvironmentRecords definition;
        if (!definition.Open(-1, found->key, session.repository, context.messages).Ok)
            return kExitFailure;
        return definition.Delete(true, session.repository, context.messages).Ok ? kExitSuccess : kExitFailure;
    } catch (const DbError& e) {
        context.messages.Inform(QStringLiteral("Error while reading the repository: ") + e.description());
        return kExitFailure;
    }
}

} // namespace dorvane::cli
