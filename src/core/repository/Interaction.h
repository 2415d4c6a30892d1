#pragma once

#include <QString>

namespace dorvane {

enum class Buttons { Ok, YesNo, YesNoCancel };
enum class Answer { Ok, Yes, No, Cancel };

// Every message and question of the program goes through this interface:
// message boxes in the desktop program, standard error and the terminal in
// dorvanectl, a scripted implementation in tests.
class MessageSink {
public:
    virtual ~MessageSink() = default;
    virtual Answer Show(const QString& text, Buttons buttons) = 0;

    void Inform(const QString& text) { Show(text, Buttons::Ok); }
};

// Progress of a long operation (the copy engine's progress window).
class ProgressSink {
public:
    virtual ~ProgressSink() = default;
    virtual void SetTitle(const QString& title) = 0;
    virtual void ShowWindow() = 0;
    virtual void SetAction(const QString& text) = 0;
    virtual void SetRange(float minimum, float maximum) = 0;
    virtual void SetValue(float value) = 0;
    virtual float Value() const = 0;
    virtual float Maximum() const = 0;
    virtual void Refresh() = 0;
    // Lets the event loop run (a no-op where there is no window).
    virtual void Yield() = 0;
    virtual void HideWindow() = 0;
};

// The hourglass pointer for the length of a scope.
class BusyIndicator {
public:
    virtual ~BusyIndicator() = default;
    virtual void Begin() = 0;
    virtual void End() = 0;
};

// Starts another program of the suite without waiting for it.
class ProgramLauncher {
public:
    virtual ~ProgramLauncher() = default;
    // False when the program could not be started.
    virtual bool StartDetached(const QString& program) = 0;
};

class BusyScope {
public:
    explicit BusyScope(BusyIndicator* indicator) : m_indicator(indicator)
    {
        if (m_indicator)
            m_indicator->Begin();
    }
    ~BusyScope()
    {
        if (m_indicator)
            m_indicator->End();
    }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    BusyIndicator* m_indicator;
};

} // namespace dorvane
