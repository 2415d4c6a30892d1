#include "cli/Cli.h"

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    // The application object lets Qt find its SQL driver plugins.
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("dorvanectl"));
    return dorvane::cli::Run(QCoreApplication::arguments().mid(1));
}
