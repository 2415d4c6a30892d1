#include "cli/Cli.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

// Qt's own warnings (a driver that reports a failed statement, say) are
// for developers: the tool says what failed in its own messages, and a
// script reading standard error sees those alone.
void QtMessages(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtCriticalMsg || type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

} // namespace

int main(int argc, char* argv[])
{
    qInstallMessageHandler(QtMessages);
    // The application object lets Qt find its SQL driver plugins.
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvanectl"));
    return dorvane::cli::Run(QCoreApplication::arguments().mid(1));
}
