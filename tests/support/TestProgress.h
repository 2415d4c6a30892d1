#pragma once

#include "repository/Interaction.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>

namespace dorvane::test {

using namespace Qt::StringLiterals;

// Records what a long operation shows in its progress window, one entry per
// call: "title:T", "show", "action:A", "range:0-5", "value:3", "refresh",
// "yield", "hide". Keeps the bar's value and maximum like the real window.
class RecordingProgress : public ProgressSink {
public:
    void SetTitle(const QString& title) override { events << u"title:"_s + title; }
    void ShowWindow() override { visible = true; events << u"show"_s; }
    void SetAction(const QString& text) override { action = text; events << u"action:"_s + text; }
    void SetRange(float minimum, float maximum) override { m_maximum = maximum; events << u"range:%1-%2"_s.arg(double(minimum)).arg(double(maximum)); }
    void SetValue(float value) override { m_value = value; events << u"value:%1"_s.arg(double(value)); }
    float Value() const override { return m_value; }
    float Maximum() const override { return m_maximum; }
    void Refresh() override { events << u"refresh"_s; }
    void Yield() override { events << u"yield"_s; }
    void HideWindow() override { visible = false; events << u"hide"_s; }

    // The entries that start with `prefix`.
    QStringList matching(const QString& prefix) const { return events.filter(QRegularExpression(u'^' + QRegularExpression::escape(prefix))); }

    QStringList events;
    QString action;
    bool visible = false;

private:
    float m_value = 0;
    float m_maximum = 0;
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
