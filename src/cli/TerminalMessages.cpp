#include "cli/TerminalMessages.h"

#include "cli/Cli.h"
#include "core/repository/Interruption.h"

#include <QByteArray>

#include <unistd.h>

namespace dorvane::cli {

namespace {

QString ReadLine(std::FILE* input, bool& atEnd)
{
    QByteArray line;
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, input)) {
        line += buffer;
        if (line.endsWith('\n'))
            break;
    }
    atEnd = line.isEmpty();
    return QString::fromLocal8Bit(line).trimmed();
}

} // namespace

Answer TerminalMessages::Show(const QString& text, Buttons buttons)
{
    // After an interruption the failures it causes say nothing new: the
    // run ends with kInterrupted, and nothing more is asked.
    if (InterruptionRequested()) {
        if (buttons == Buttons::Ok)
            return Answer::Ok;
        throw OperationInterrupted();
    }
    if (buttons == Buttons::Ok) {
        PrintErrorLine(text);
        return Answer::Ok;
    }

    const bool withCancel = buttons == Buttons::YesNoCancel;
    const QString prompt = withCancel ? QStringLiteral(" [y/n/c] ") : QStringLiteral(" [y/n] ");
    const Answer fallback = withCancel ? Answer::Cancel : Answer::No;
    if (isatty(fileno(m_input)) != 1) {
        // Nobody to ask: the question is shown and answered No (Cancel).
        PrintErrorLine(text + prompt + (withCancel ? QStringLiteral("c") : QStringLiteral("n")));
        return fallback;
    }
    for (;;) {
        const QByteArray question = (text + prompt).toLocal8Bit();
        std::fwrite(question.constData(), 1, static_cast<size_t>(question.size()), stderr);
        std::fflush(stderr);

        bool atEnd = false;
        const QString reply = ReadLine(m_input, atEnd).toLower();
        CheckInterruption();
        if (atEnd) {
            PrintErrorLine(QString());
            return fallback;
        }
        if (reply == QLatin1String("y") || reply == QLatin1String("yes"))
            return Answer::Yes;
        if (reply == QLatin1String("n") || reply == QLatin1String("no"))
            return Answer::No;
        if (withCancel && (reply == QLatin1String("c") || reply == QLatin1String("cancel")))
            return Answer::Cancel;
    }
}

Answer AssumeYes::Show(const QString& text, Buttons buttons)
{
    if (!m_yes || buttons == Buttons::Ok)
        return m_messages.Show(text, buttons);
    PrintErrorLine(text + QStringLiteral(" yes"));
    return Answer::Yes;
}

} // namespace dorvane::cli
