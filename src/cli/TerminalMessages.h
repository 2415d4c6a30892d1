#pragma once

#include "core/repository/Interaction.h"

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

// Answers every question Yes (the --yes option) and passes messages on.
class AssumeYes : public MessageSink {
public:
    explicit AssumeYes(MessageSink& messages) : m_messages(messages) {}
    Answer Show(const QString& text, Buttons buttons) override;

private:
    MessageSink& m_messages;
};

} // namespace dorvane::cli
