// The desktop program: start-up, single instance, main window.

#include "mainwindow/QtInteraction.h"
#include "mainwindow/frmMainForm.h"
#include "repository/DbError.h"
#include "startup/SingleInstance.h"
#include "startup/Startup.h"

#include <QApplication>

#include <cstdio>

namespace {

// Qt aborts when no display can be reached; say so plainly instead.
bool displayAvailable()
{
    const QString platform = qEnvironmentVariable("QT_QPA_PLATFORM");
    if (!platform.isEmpty() && !platform.startsWith(QLatin1String("xcb")) && !platform.startsWith(QLatin1String("wayland")))
        return true;
    if (platform.startsWith(QLatin1String("wayland")))
        return qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

} // namespace

int main(int argc, char* argv[])
{
    if (!displayAvailable()) {
        std::fputs("dorvane: no display to open a window on (DISPLAY is not set); "
                   "start it in a desktop session, or use dorvanectl for work without a window.\n",
                   stderr);
        return 1;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Dorvane"));
    QApplication::setApplicationDisplayName(dorvane::kProgramTitle);

    dorvane::SingleInstance instance;
    if (instance.ActivateInstance())
        return 0;

    dorvane::QtMessages messages;
    dorvane::Session session;
    try {
        session.Open(dorvane::PlanStartup());
    } catch (const dorvane::DbError& e) {
        messages.Inform(dorvane::kCouldNotOpenDatabase + e.description());
        return 1;
    }

    dorvane::QtProgramLauncher launcher;
    dorvane::QtReportPrinter printer;
    dorvane::frmMainForm window(session, messages, launcher, printer);
    messages.setParent(&window);
    printer.setParent(&window);
    instance.Listen(&window);
    window.show();
    return app.exec();
}
