#pragma once

#include "core/repository/Interaction.h"

#include <QStringList>

#include <functional>

namespace dorvane {

// How many times an operation runs at most while another operation keeps
// changing what it changes (PostgreSQL's serialization failures).
inline constexpr int kConcurrentChangeAttempts = 3;

// Runs `attempt` (one transaction's work: it asks nothing) and runs it
// again, up to kConcurrentChangeAttempts times in all, while it fails
// because another operation changed a row it was changing meanwhile. The
// messages of such a failed attempt are dropped; those of the last attempt
// are shown when it ends. Questions go straight through.
bool RetryOnConcurrentChange(MessageSink& messages, const std::function<bool(MessageSink&)>& attempt);

// Messages held until an attempt is over.
class HeldMessages : public MessageSink {
public:
    explicit HeldMessages(MessageSink& to) : m_to(to) {}
    Answer Show(const QString& text, Buttons buttons) override;
    // Shows the held messages.
    void Pass();

private:
    MessageSink& m_to;
    QStringList m_held;
};

} // namespace dorvane
