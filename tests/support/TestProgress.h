#pragma once

#include "core/repository/Interaction.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <functional>
#include <utility>

namespace dorvane::test {

using namespace Qt::StringLiterals;

// Records what a long operation shows in its progress window, one entry per
// call: "title:T", "show", "action:A", "range:0-5", "value:3", "refresh",
// "yield", "hide". Keeps the bar's value and maximum like the real window.
class RecordingProgress : public ProgressSink {
public:
    void SetTitle(const QString& title) override { record(u"title:"_s + title); }
    void ShowWindow() override { visible = true; record(u"show"_s); }
    void SetAction(const QString& text) override { action = text; record(u"action:"_s + text); }
    void SetRange(float minimum, float maximum) override { m_maximum = maximum; record(u"range:%1-%2"_s.arg(double(minimum)).arg(double(maximum))); }
    void SetValue(float value) override { m_value = value; record(u"value:%1"_s.arg(double(value))); }
    float Value() const override { return m_value; }
    float Maximum() const override { return m_maximum; }
    void Refresh() override { record(u"refresh"_s); }
    void Yield() override { record(u"yield"_s); }
    void HideWindow() override { visible = false; record(u"hide"_s); }

    // Runs `then` once, at the first event that starts with `prefix`: the
    // moment a second program commits, or an interruption comes.
    void At(const QString& prefix, std::function<void()> then) { m_at = prefix, m_then = std::move(then); }

    // The entries that start with `prefix`.
    QStringList matching(const QString& prefix) const { return events.filter(QRegularExpression(u'^' + QRegularExpression::escape(prefix))); }

    QStringList events;
    QString action;
    bool visible = false;

private:
    void record(const QString& event)
    {
        events << event;
        if (m_then && event.startsWith(m_at))
            std::exchange(m_then, nullptr)();
    }

    float m_value = 0;
    float m_maximum = 0;
    QString m_at;
    std::function<void()> m_then;
};

// Counts the hourglass's begins and ends.
class RecordingBusy : public BusyIndicator {
public:
    void Begin() override { ++begun; }
    void End() override { ++ended; }

    int begun = 0;
    int ended = 0;
};

} // namespace dorvane::test
