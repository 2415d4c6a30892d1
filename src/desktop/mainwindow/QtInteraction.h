#pragma once

#include "core/repository/Interaction.h"
#include "desktop/mainwindow/EditorPage.h"

class QWidget;
class QRect;

namespace dorvane {

inline const QString kProgramTitle = QStringLiteral("Dorvane");

// A window's frame moved and shrunk into `available` (a screen's area
// without its panels) where it does not fit: a size remembered from a
// larger screen, or a default larger than a small one.
QRect FitInto(const QRect& frame, const QRect& available);
// FitInto for a window on the screen it is on.
void KeepInsideScreen(QWidget& window);

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

// Starts a program with QProcess, not waiting for it.
class QtProgramLauncher : public ProgramLauncher {
public:
    bool StartDetached(const QString& program) override;
};

// A print preview of a list, from which it can be printed or saved as PDF.
class QtReportPrinter : public ReportPrinter {
public:
    explicit QtReportPrinter(QWidget* parent = nullptr) : m_parent(parent) {}
    void setParent(QWidget* parent) { m_parent = parent; }
    void Preview(const QString& title, const QStringList& headers, const QVector<QStringList>& rows) override;

    // The report as HTML, as it is printed.
    static QString ReportHtml(const QString& title, const QStringList& headers, const QVector<QStringList>& rows);

private:
    QWidget* m_parent;
};

} // namespace dorvane
