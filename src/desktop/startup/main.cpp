// The desktop program: start-up, single instance, main window.

#include "desktop/mainwindow/QtInteraction.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/repository/DbError.h"
#include "core/repository/History.h"
#include "desktop/startup/SingleInstance.h"
#include "core/startup/Startup.h"
#include "Version.h"

#include <QApplication>
#include <QIcon>
#include <QSettings>

#include <cstdio>
#include <cstring>
#include <optional>

namespace {

// The desktop entry's name, its icon's and the program's reverse-DNS id.
const QString kDesktopId = QStringLiteral("org.dorvane.Dorvane");

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

const char* const kUsage = "usage: dorvane [--version] [--help] [Qt options]\n"
                           "\n"
                           "Opens the repository that the suite's settings choose "
                           "($ZENTRIX_REGISTRY or\n/etc/zentrix/zentrix.reg) in the "
                           "administration window. See dorvane(1).\n";

// --version and --help need no display; they are answered before Qt
// looks for one. Nothing when the arguments are the window's.
std::optional<int> AnswerInformationOptions(int argc, char* argv[])
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("dorvane %s\n", dorvane::kVersion);
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        }
    }
    return std::nullopt;
}

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
    if (const std::optional<int> status = AnswerInformationOptions(argc, argv))
        return *status;
    if (!displayAvailable()) {
        std::fputs("dorvane: no display to open a window on (DISPLAY is not set); "
                   "start it in a desktop session, or use dorvanectl for work without a window.\n",
                   stderr);
        return kExitFailure;
    }

    QApplication app(argc, argv);
    // Qt has taken its own options (-platform, -style ...) out by now.
    const QStringList arguments = QApplication::arguments().mid(1);
    if (!arguments.isEmpty()) {
        std::fprintf(stderr, "dorvane: unknown argument: %s\n%s", qPrintable(arguments.first()), kUsage);
        return kExitUsage;
    }
    // The window geometry goes to ~/.config/Dorvane/Dorvane.conf; the
    // suite's own settings are only ever read.
    QApplication::setOrganizationName(QStringLiteral("Dorvane"));
    QApplication::setApplicationName(QStringLiteral("Dorvane"));
    QApplication::setApplicationVersion(QString::fromLatin1(dorvane::kVersion));
    QApplication::setApplicationDisplayName(dorvane::kProgramTitle);
    dorvane::SetHistoryProgram(QStringLiteral("dorvane"));
    QGuiApplication::setDesktopFileName(kDesktopId);
    QApplication::setWindowIcon(QIcon::fromTheme(kDesktopId, QIcon(QStringLiteral(":/icons/") + kDesktopId + QStringLiteral(".svg"))));

    dorvane::SingleInstance instance;
    if (instance.ActivateInstance())
        return 0;

    dorvane::QtMessages messages;
    dorvane::Session session;
    try {
        session.Open(dorvane::PlanStartup());
    } catch (const dorvane::DbError& e) {
        messages.Inform(dorvane::kCouldNotOpenDatabase + e.description());
        return kExitFailure;
    }

    dorvane::QtProgramLauncher launcher;
    dorvane::QtReportPrinter printer;
    dorvane::frmMainForm window(session, messages, launcher, printer);
    messages.setParent(&window);
    printer.setParent(&window);
    instance.Listen(&window);
    QSettings settings;
    window.restoreGeometry(settings.value(QStringLiteral("MainWindow/geometry")).toByteArray());
    dorvane::KeepInsideScreen(window);
    window.show();
    const int status = app.exec();
    settings.setValue(QStringLiteral("MainWindow/geometry"), window.saveGeometry());
    return status;
}
