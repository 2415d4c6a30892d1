#pragma once

#include "core/repository/Interaction.h"

#include <cstdio>

namespace dorvane::cli {

// The progress window on a terminal: one line on standard error, redrawn
// in place, "Windows in Order Entry  [#######.......]  120/300". Nothing is
// drawn when standard error is not a terminal.
class TerminalProgress : public ProgressSink {
public:
    explicit TerminalProgress(std::FILE* stream = stderr);
    ~TerminalProgress() override;

    void SetTitle(const QString& title) override;
    void ShowWindow() override;
    void SetAction(const QString& text) override;
    void SetRange(float minimum, float maximum) override;
    void SetValue(float value) override;
    float Value() const override { return m_value; }
    float Maximum() const override { return m_maximum; }
    void Refresh() override;
    void Yield() override {}
    void HideWindow() override;

private:
    void draw(bool force);

    std::FILE* m_stream;
    bool m_enabled;
    bool m_shown = false;
    QString m_action;
    float m_minimum = 0;
    float m_maximum = 0;
    float m_value = 0;
    int m_lastCells = -1;
    qint64 m_lastDrawMs = 0;
};

} // namespace dorvane::cli
