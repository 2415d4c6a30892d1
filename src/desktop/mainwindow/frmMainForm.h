#pragma once

#include "desktop/applications/ApplicationsPage.h"
#include "desktop/environments/EnvironmentsPage.h"
#include "desktop/lists/OptionsPage.h"
#include "desktop/mainwindow/DialogProvider.h"
#include "desktop/mainwindow/EditorPage.h"
#include "desktop/mainwindow/ListControls.h"
#include "desktop/users/UsersPage.h"

#include <QMainWindow>

#include <memory>

namespace Ui {
class frmMainForm;
}

namespace dorvane {

class ProgramLauncher;
struct Session;

// The program's one main window: a tab control with the four pages, the
// status bar, the first activation that loads every list, and Exit with
// its save prompts. Unloading it closes the databases of the session.
class frmMainForm : public QMainWindow {
    Q_OBJECT
public:
    enum Page { UsersPage = 0, OptionsPage = 1, ApplicationsPage = 2, EnvironmentsPage = 3 };

    frmMainForm(Session& session, MessageSink& messages, ProgramLauncher& launcher, ReportPrinter& printer,
                QWidget* parent = nullptr);
    ~frmMainForm() override;

    // Who answers the modal dialogs (frmAttributes, frmFileList, ...): the
    // window's own Qt dialogs unless another provider is set.
    void SetDialogProvider(DialogProvider* dialogs);
    bool IsUnloaded() const { return m_unloaded; }
    // Whether the first activation, which loads every list, is still to come.
    bool FirstActivate() const { return m_firstActivate; }
    // The first activation loads every list; Lumeno is started when the
    // repository holds no environment.
    void Form_Activate();
    // The platform, test tool and emulator drop-downs of the pages.
    void RefreshReferenceLists();

    dorvane::UsersPage& users() { return *m_users; }
    dorvane::OptionsPage& options() { return *m_options; }
    dorvane::ApplicationsPage& applications() { return *m_applications; }
    dorvane::EnvironmentsPage& environments() { return *m_environments; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void RefreshAllLists();
    void SSMainTab_Click(int index);
    // Asks editor by editor whether to save; leaves unless one says stay.
    void cmdExit_Click();
    void Unload();
    // What a long operation did, in the status bar.
    void showDone(const QString& text);

    Session& m_session;
    MessageSink& m_messages;
    ProgramLauncher& m_launcher;
    std::unique_ptr<Ui::frmMainForm> m_ui;
    QtDialogProvider m_qtDialogs;
    PageContext m_context;
    dorvane::UsersPage* m_users;
    dorvane::OptionsPage* m_options;
    dorvane::ApplicationsPage* m_applications;
    dorvane::EnvironmentsPage* m_environments;
    int m_mainTabIndex = 0;
    bool m_firstActivate = true;
    bool m_lumenoStarted = false;
    bool m_unloaded = false;
};

} // namespace dorvane
