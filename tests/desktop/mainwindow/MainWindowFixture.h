#pragma once

// A main window on a fresh repository, for tests that drive the window as
// an administrator does.

#include "desktop/mainwindow/frmMainForm.h"
#include "core/startup/Startup.h"
#include "desktop/mainwindow/ScriptedDialogs.h"
#include "support/TestSupport.h"
#include "support/WidgetDriving.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTableView>

#include <memory>

namespace dorvane::test {

using namespace Qt::StringLiterals;

struct RecordingLauncher : ProgramLauncher {
    bool StartDetached(const QString& program) override { started << program; return true; }
    QStringList started;
};
struct RecordingPrinter : ReportPrinter {
    void Preview(const QString& title, const QStringList&, const QVector<QStringList>&) override { titles << title; }
    QStringList titles;
};

// Parameterised by backend. The repository holds the reference data, or
// the tutorial when a test asks for it; the shared resource folder and the
// side databases live in a temporary folder.
class MainWindowFixture : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override { m_db = std::make_unique<TestDatabase>(GetParam()); }
    void TearDown() override { window.reset(); session.Close(); }

    // Builds the repository and opens the window on it; the window is shown
    // and activated as at start-up, so every list is loaded. The
    // installation folder (the test's folder) holds the user data and the
    // backup template; the shared folder is made as dorvanectl makes one.
    void OpenWindow(RepositoryContent content = RepositoryContent::ReferenceData)
    {
        m_db->build(content);
        const QString dir = m_db->tempPath();
        ASSERT_TRUE(CreateSharedFolder(sharedPath()).ok);
        MakeDatabaseFile(dir + u"/UserData.mdb"_s);
        MakeDatabaseFile(dir + u"/ZentrixBackup.mdb"_s, SchemaVariant::BackupTemplate);
        session.Open({.connectionString = m_db->connectionString(), .sharedResourcePath = sharedPath(),
                      .testDataPath = sharedPath() + u"\\testdata.mdb"_s, .userDataPath = dir + u"\\UserData.mdb"_s, .installationPath = dir, .settingsProblem = {}});
        window = std::make_unique<frmMainForm>(session, messages, launcher, printer);
        window->show();
        window->Form_Activate();
    }

    // The tutorial's window, its dialogs answered by `dialogs`, showing
    // `page` (-1: the first).
    void OpenTutorial(int page = -1)
    {
        OpenWindow(RepositoryContent::Tutorial);
        window->SetDialogProvider(&dialogs);
        window->activateWindow();
        if (page >= 0)
            mainTab()->setCurrentIndex(page);
    }

    // The window's tabs, and its pages with their controls.
    QTabWidget* mainTab() { return window->findChild<QTabWidget*>(u"SSMainTab"_s); }
    UsersPage& users() { return window->users(); }
    OptionsPage& options() { return window->options(); }
    ApplicationsPage& applications() { return window->applications(); }
    EnvironmentsPage& environments() { return window->environments(); }
    Connection& repository() { return session.repository; }
    QString sharedPath() const { return m_db->tempPath() + u"/shared"_s; }
    qsizetype count(const QString& sql) { return Rows(repository(), sql).size(); }
    // Types a cell of a grid through its model, as the grid's editor commits it.
    static bool TypeCell(QTableView* view, int row, int column, const QString& text) { return view->model()->setData(view->model()->index(row, column), text); }
    std::string shown() const { return Shown(messages); }
    // Forgets what was shown and queues the answers to the next questions.
    void answerNext(std::initializer_list<Answer> answers) { messages.shown.clear(); for (const Answer a : answers) messages.Queue(a); }

    std::unique_ptr<TestDatabase> m_db;
    Session session;
    ScriptedMessages messages;
    RecordingLauncher launcher;
    RecordingPrinter printer;
    ScriptedDialogs dialogs;
    std::unique_ptr<frmMainForm> window;
};

} // namespace dorvane::test
