// dorvane-window-bench [--dsn NAME] [--users N] [--apps N] [--versions N] [--rows N]
//
// What an administrator waits for in the window, on a repository of N
// users, applications and versions (100,000, 1,000 and 10,000 by default):
//   - lists: the main window opened on it, up to every list loaded;
//   - update: a version update of about --rows rows of content (400,000
//     by default; the first version of a generated environment of two,
//     see BenchContent.h) with no progress window, as dorvanectl runs it,
//     and the same update with the progress window up, as the
//     Configuration tab runs it; the last line is "window/terminal: R",
//     the second time over the first.
// Without --dsn the repository is a new SQLite file; with it, the ODBC data
// source NAME, which must hold no Dorvane tables yet (scripts/with-postgres.sh
// makes a fresh one).

#include "BenchContent.h"
#include "BenchSinks.h"
#include "core/copyengine/VersionBackup.h"
#include "desktop/copyengine/frmVersionProgress.h"
#include "core/environments/EnvironmentBackup.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/repository/Connection.h"
#include "core/installation/Installation.h"
#include "core/repository/Interaction.h"
#include "core/startup/Startup.h"
#include "core/users/UserRecords.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

using namespace dorvane;

namespace {

class NoLauncher : public ProgramLauncher {
public:
    bool StartDetached(const QString&) override { return true; }
};

class NoPrinter : public ReportPrinter {
public:
    void Preview(const QString&, const QStringList&, const QVector<QStringList>&) override {}
};

// Inserts `count` rows, several hundred per statement; `row(i)` gives the
// values of row i (generated, never user text).
void insertRows(Connection& c, const QString& head, qint64 count, const std::function<QString(qint64)>& row)
{
    constexpr qint64 kPerStatement = 500;
    for (qint64 start = 0; start < count; start += kPerStatement) {
        QString sql = head + QStringLiteral(" VALUES ");
        for (qint64 i = start; i < std::min(count, start + kPerStatement); ++i)
            sql += (i == start ? QStringLiteral("(") : QStringLiteral(",(")) + row(i) + QLatin1Char(')');
        c.Execute(sql);
    }
}

qint32 lastKey(Connection& c, const QString& table, const QString& key)
{
    QSqlQuery q(c.database());
    if (!q.exec(QStringLiteral("SELECT MAX(%1) FROM %2").arg(key, table)) || !q.next())
        throw DbError(q.lastError().text());
    return q.value(0).toInt();
}

double seconds(const QElapsedTimer& timer) { return double(timer.nsecsElapsed()) / 1e9; }

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QString dsn;
    qint64 users = 100000, apps = 1000, versions = 10000, rows = 400000;
    const QStringList arguments = QCoreApplication::arguments();
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& a = arguments[i];
        const bool value = i + 1 < arguments.size();
        if (a == QLatin1String("--dsn") && value)
            dsn = arguments[++i];
        else if (a == QLatin1String("--users") && value)
            users = arguments[++i].toLongLong();
        else if (a == QLatin1String("--apps") && value)
            apps = std::max<qint64>(1, arguments[++i].toLongLong());
        else if (a == QLatin1String("--versions") && value)
            versions = arguments[++i].toLongLong();
        else if (a == QLatin1String("--rows") && value)
            rows = arguments[++i].toLongLong();
        else {
            std::fprintf(stderr, "usage: dorvane-window-bench [--dsn NAME] [--users N] [--apps N] [--versions N] [--rows N]\n");
            return 2;
        }
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    try {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("Bench.mdb"));
        Session session;
        session.plan.connectionString =
            dsn.isEmpty() ? FileConnectionString(file) : QStringLiteral("PROVIDER=MSDASQL;DSN=") + dsn;
        if (dsn.isEmpty())
            Connection::CreateDatabaseFile(file);
        session.plan.sharedResourcePath = dir.path();
        session.plan.testDataPath = dir.filePath(QStringLiteral("testdata.mdb"));
        session.plan.userDataPath = dir.filePath(QStringLiteral("UserData.mdb"));
        session.plan.installationPath = dir.path();
        Connection::CreateDatabaseFile(session.plan.testDataPath);
        Connection::CreateDatabaseFile(session.plan.userDataPath);

        bench::GeneratedEnvironment content;
        {
            Connection setup;
            setup.Open(session.plan.connectionString);
            BuildDatabase(setup, SchemaVariant::Repository, RepositoryContent::ReferenceData);
            setup.BeginTrans();
            insertRows(setup, QStringLiteral("INSERT INTO tUser (sUserID, sUserFirst, sUserLast)"), users,
                       [](qint64 i) { return QStringLiteral("'u%1', 'First%1', 'Last%2'").arg(i).arg(i % 9973); });
            insertRows(setup, QStringLiteral("INSERT INTO tApp (sAppName, sAppID, iAppPlatform)"), apps,
                       [](qint64 i) { return QStringLiteral("'Application %1', 'APP%1', 2").arg(i); });
            const qint32 firstApp = lastKey(setup, QStringLiteral("tApp"), QStringLiteral("iAppKey")) - qint32(apps) + 1;
            insertRows(setup, QStringLiteral("INSERT INTO tVersion (iVersionAppKey, sVersionID, iMapType)"), versions,
                       [&](qint64 i) { return QStringLiteral("%1, 'V%2', 1").arg(firstApp + i % apps).arg(i); });
            // The environment of two versions (of two applications) that the
            // update reads: the first one's share of the rows is what it copies.
            if (rows > 0)
                content = bench::GenerateEnvironment(setup, {std::max<qint64>(rows, 100) * 2, 2});
            setup.CommitTrans();
        }
        const qint32 source = content.updateSource, target = content.updateTarget, environment = content.environment;
        session.Open(session.plan);

        bench::StderrMessages messages;
        NoLauncher launcher;
        NoPrinter printer;
        QElapsedTimer timer;
        timer.start();
        const size_t listed = ReadUserList(session.repository, messages).size();
        std::printf("user list read alone: %.2f s (%zu users)\n", seconds(timer), listed);

        timer.start();
        frmMainForm window(session, messages, launcher, printer);
        window.show();
        window.Form_Activate();
        // With the generated environment's users, applications and versions.
        std::printf("lists: %.2f s (users %lld, applications %lld, versions %lld)\n", seconds(timer),
                    users + content.counts.users, apps + (content.updateTarget ? 2 : 0),
                    versions + qint64(content.versions.size()) + (content.updateTarget ? 1 : 0));

        if (rows > 0) {
            // Alternately without and with the window, into one version that
            // is emptied after each run; the best of each, so that neither
            // pays for the other's rows or for a busy moment.
            double best[2] = {1e9, 1e9};
            qint64 copied = 0;
            for (int run = 0; run < 4; ++run) {
                const bool windowed = run % 2 == 1;
                bench::NoProgress none;
                frmVersionProgress shown(&window);
                VersionBackup engine(messages, windowed ? static_cast<ProgressSink&>(shown) : none, session.plan.connectionString);
                timer.start();
                if (!engine.UpdateVersion(source, target, environment))
                    return 1;
                best[windowed] = std::min(best[windowed], seconds(timer));
                if (run == 0)
                    copied = bench::CountRows(session.repository, bench::VersionContent(target));
                session.repository.BeginTrans();
                ClearVersionContent(target, session.repository);
                session.repository.CommitTrans();
            }
            std::printf("update without a window: %.2f s (%lld rows)\n", best[0], copied);
            std::printf("update with the progress window: %.2f s\n", best[1]);
            std::printf("window/terminal: %.2f\n", best[1] / best[0]);
        }
        session.Close();
    } catch (const DbError& e) {
        std::fprintf(stderr, "dorvane-window-bench: %s\n", qPrintable(e.description()));
        return 1;
    }
    return 0;
}
