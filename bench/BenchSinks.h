#pragma once

// The message and progress sinks of the benchmarks: messages go to
// standard error (and mark the run failed), progress goes nowhere.

#include "core/repository/Interaction.h"

#include <cstdio>

namespace dorvane::bench {

class StderrMessages : public MessageSink {
public:
    Answer Show(const QString& text, Buttons) override
    {
        std::fprintf(stderr, "%s\n", qPrintable(text));
        failed = true;
        return Answer::Ok;
    }
    bool failed = false;
};

class NoProgress : public ProgressSink {
public:
    void SetTitle(const QString&) override {}
    void ShowWindow() override {}
    void SetAction(const QString&) override {}
    void SetRange(float, float maximum) override { m_max = maximum; }
    void SetValue(float value) override { m_value = value; }
    float Value() const override { return m_value; }
    float Maximum() const override { return m_max; }
    void Refresh() override {}
    void Yield() override {}
    void HideWindow() override {}

private:
    float m_value = 0;
    float m_max = 0;
};

} // namespace dorvane::bench
