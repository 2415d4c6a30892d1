#pragma once

#include "core/repository/History.h"
#include "core/repository/Interaction.h"

#include <QStringList>

#include <cstdio>

namespace dorvane::cli {

// Messages on standard error. A question is answered on the terminal
// ("y", "n", "c"). Without a terminal, or at the end of the input, it is
// answered No, or Cancel where that is offered, so that an unattended run
// never goes ahead with something it was asked about.
class TerminalMessages : public MessageSink {
public:
    explicit TerminalMessages(std::FILE* input = stdin) : m_input(input) {}
    Answer Show(const QString& text, Buttons buttons) override;

private:
    std::FILE* m_input;
};

// With `yes` (the --yes option), answers every question Yes, saying so;
// without it, passes questions on. Messages are passed on.
class AssumeYes : public MessageSink {
public:
    AssumeYes(MessageSink& messages, bool yes) : m_messages(messages), m_yes(yes) {}
    Answer Show(const QString& text, Buttons buttons) override;

    // Takes "--yes" out of a command's arguments; true when it was there.
    static bool Take(QStringList& arguments) { return arguments.removeAll(QStringLiteral("--yes")) > 0; }

private:
    MessageSink& m_messages;
    bool m_yes;
};

// A dry run (the --dry-run option): the question that would start the
// operation is answered No without being shown, once its preview has been
// printed; messages are passed on.
class DryRun : public MessageSink {
public:
    explicit DryRun(MessageSink& messages) : m_messages(messages) {}
    Answer Show(const QString& text, Buttons buttons) override
    {
        return buttons == Buttons::Ok ? m_messages.Show(text, buttons) : Answer::No;
    }

    // Takes "--dry-run" out of a command's arguments; true when it was
    // there. A dry run does nothing, so it leaves no entry in the history,
    // not even of a refusal.
    static bool Take(QStringList& arguments)
    {
        const bool dryRun = arguments.removeAll(QStringLiteral("--dry-run")) > 0;
        if (dryRun)
            SetHistoryRecording(false);
        return dryRun;
    }

private:
    MessageSink& m_messages;
};

} // namespace dorvane::cli
