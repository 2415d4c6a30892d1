#pragma once

#include "core/repository/Connection.h"

#include <QString>

namespace dorvane {

enum class RepositoryMode { Tutorial, Local, Server };

QString ModeName(RepositoryMode mode); // "Tutorial", "Local", "Server"

// What start-up derives from the settings, before opening anything.
struct StartupPlan {
    RepositoryMode mode = RepositoryMode::Server;
    QString connectionString;
    QString sharedResourcePath;
    QString testDataPath;
    QString userDataPath;
    QString installationPath;
    // What makes the settings file unusable (it is missing, unreadable or
    // not a registry export), naming it; empty when it was read.
    QString settingsProblem;
};

// Reads the settings and chooses the mode: "Tutorial" (exact case) first,
// then a nonzero IsLocalDatabase, else the ODBC data source.
StartupPlan PlanStartup();

// The repository as a person knows it: the file (a native path) or the
// ODBC data source's name, without any other setting of the connection.
QString RepositoryLocation(const StartupPlan& plan);
// The name a window title gives the repository: the file's name or the
// data source's.
QString RepositoryTitle(const StartupPlan& plan);

// The process-wide databases of a run.
struct Session {
    StartupPlan plan;
    Connection repository;
    Connection testData;
    Connection userData;

    // Opens the repository and the two side databases in the mode's order
    // (Tutorial: user data before test data; otherwise test data first).
    // Throws DbError on the first failure, the plan's settings problem
    // before anything is opened; what was opened stays open.
    void Open(const StartupPlan& plan);
    // Closes test data, repository and user data, in this order.
    void Close();
};

inline const QString kCouldNotOpenDatabase = QStringLiteral("Could not open database: ");

} // namespace dorvane
