#pragma once

#include "repository/Interaction.h"

#include <cstdio>

namespace dorvane::cli {

// Messages on standard error. A question is answered from standard input
// ("y", "n", "c"); at the end of the input it is answered No, or Cancel
// where that is offered, so that an unattended run never goes ahead with
// something it was asked about.
class TerminalMessages : public MessageSink {
public:
    explicit TerminalMessages(std::FILE* input = stdin) : m_input(input) {}
    Answer Show(const QString& text, Buttons buttons) override;

private:
    std::FILE* m_input;
};

} // namespace dorvane::cli
