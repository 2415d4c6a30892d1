#pragma once

#include "repository/Interaction.h"

class QWidget;

namespace dorvane {

inline const QString kProgramTitle = QStringLiteral("Dorvane");

// Message boxes with the program's title.
class QtMessages : public MessageSink {
public:
    explicit QtMessages(QWidget* parent = nullptr) : m_parent(parent) {}
    void setParent(QWidget* parent) { m_parent = parent; }
    Answer Show(const QString& text, Buttons buttons) override;

private:
    QWidget* m_parent;
};

// The hourglass pointer for the whole screen.
class QtBusyIndicator : public BusyIndicator {
public:
    void Begin() override;
    void End() override;
};

} // namespace dorvane
