#include "core/repository/Retry.h"

#include "core/repository/Dialect.h"

namespace dorvane {

Answer HeldMessages::Show(const QString& text, Buttons buttons)
{
    if (buttons != Buttons::Ok)
        return m_to.Show(text, buttons);
    m_held << text;
    return Answer::Ok;
}

void HeldMessages::Pass()
{
    const QStringList held = std::exchange(m_held, QStringList());
    for (const QString& text : held)
        m_to.Inform(text);
}

bool RetryOnConcurrentChange(MessageSink& messages, const std::function<bool(MessageSink&)>& attempt)
{
    for (int n = 1;; ++n) {
        HeldMessages held(messages);
        const quint64 before = ConcurrentChanges();
        bool ok = false;
        try {
            ok = attempt(held);
        } catch (...) {
            held.Pass();
            throw;
        }
        if (ok || n == kConcurrentChangeAttempts || ConcurrentChanges() == before) {
            held.Pass();
            return ok;
        }
    }
}

} // namespace dorvane
