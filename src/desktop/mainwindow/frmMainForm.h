#pragma once

#include "desktop/mainwindow/DialogProvider.h"
#include "desktop/mainwindow/MainFormControls.h"
#include "core/lists/ListQueries.h"
#include "core/users/UserRecords.h"

#include <QMainWindow>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class QComboBox;
class QListWidget;

namespace dorvane {

class ApplicationRecords;
class CurrentUserKey;
class EnvironmentConfig;
class EnvironmentRecords;
class EnvironmentUsers;
class frmVersionProgress;
struct EnvironOutcome;
struct EnvironDefinitionControls;
class MessageSink;
class NameDescGrid;
class ProgramLauncher;
class UserRecords;
class VersionRecords;
struct Session;

// Shows a list as a printable report (a print preview in the desktop
// program, from which it can be printed or saved as PDF).
class ReportPrinter {
public:
    virtual ~ReportPrinter() = default;
    virtual void Preview(const QString& title, const QStringList& headers, const QVector<QStringList>& rows) = 0;
};

// Index of the first entry whose item data equals key, or -1.
int FindListItem(qint32 key, const QListWidget* list);
int FindComboItem(qint32 key, const QComboBox* combo);
// Index of the first entry whose text equals text exactly, or -1.
int FindItemByText(const QListWidget* list, const QString& text);
// The key of an entry, or 0 without a selection.
qint32 ItemKey(const QListWidget* list, int index);
qint32 ComboKey(const QComboBox* combo, int index);
// The key of a drop-down's selection; nothing without a selection.
std::optional<qint32> SelectedKey(const QComboBox* combo);

// The program's one main window: a tab control whose pages hold the
// editors, the loaders that fill its lists, the window-wide edit state and
// the save prompts. Unloading it closes the databases of the session.
class frmMainForm : public QMainWindow {
    Q_OBJECT
public:
    enum Page { UsersPage = 0, OptionsPage = 1, ApplicationsPage = 2, EnvironmentsPage = 3 };

    frmMainForm(Session& session, MessageSink& messages, ProgramLauncher& launcher, ReportPrinter& printer,
                QWidget* parent = nullptr);
    ~frmMainForm() override;

    MainFormControls& ui() { return c; }
    // Who answers the modal dialogs (frmAttributes, frmFileList): the
    // window's own Qt dialogs unless another provider is set.
    void SetDialogProvider(DialogProvider* dialogs) { m_dialogs = dialogs; }
    bool IsUnloaded() const { return m_unloaded; }

    // Window-wide edit state.
    bool EditLoading = false;
    bool SaveOk = false;
    bool AppDirty = false;
    bool VersionDirty = false;
    bool EnvironDirty = false;
    bool ConfigDirty = false;
    bool FirstActivate = true;
    bool LumenoStarted = false;
    qint16 nEnvironCount = 0;
    bool UserDirty() const;
    bool KeywordDirty() const;
    bool RoleDirty() const;
    bool ProjectDirty() const;

    // Application editor state.
    qint32 CurrentAppKey = 0;
    bool AppIsNew = true;
    int AppListIndex = -1;
    qint32 CurrentPlatformKey = 0;
    QString AppFolderName;
    bool AppIsHost = false;

    // Version editor state.
    qint32 CurrentVersionKey = 0;
    bool VersionIsNew = true;
    int VersionListIndex = -1;
    QString VersionFolderName;

    qint32 CurrentUserKey() const;

    // Environment editor state.
    qint32 CurrentEnvironKey() const;
    bool EnvironIsNew() const;

    // The first activation: loads every list and starts Lumeno when the
    // repository holds no environment.
    void Form_Activate();

    // Loaders.
    void RefreshAllLists();
    void RefreshAppList();
    void RefreshRoleGrid();
    void RefreshKeywordGrid();
    void RefreshProjectGrid();
    // Returns the users it listed.
    std::vector<UserListItem> RefreshUserList();
    // `users`: the user list just read by RefreshUserList, if any.
    void RefreshEnvironUsers(const std::vector<UserListItem>* users = nullptr);
    void RefreshReferenceLists();
    void RefreshEnvironList();
    void RefreshEnvironAppVerList();
    void RefreshVersionList();
    void RefreshVersionProcesses(qint32 versionKey);
    void RefreshVersionWindows(qint32 versionKey);
    void RefreshMapTypes();

    // Save prompts: true when the user chose to stay.
    bool UserExitCancel();
    bool AppExitCancel();
    bool KeywordExitCancel();
    bool ProjectExitCancel();
    bool RoleExitCancel();
    bool EnvironExitCancel();
    bool VersionExitCancel();

    // Commands, as a click on the button runs them.
    void cmdExit_Click(int index);
    void cmdUserNew_Click();
    void cmdUserSave_Click();
    void cmdUserDelete_Click();
    void lbUserList_Click();
    void cmdRoleSave_Click();
    void cmdProjectSave_Click();
    void cmdKeywordSave_Click();
    void cmdAppNew_Click();
    void cmdAppSave_Click();
    void cmdAppDelete_Click();
    void lbAppList_Click();
    void cbPlatform_Click();
    void ClearAppFields();
    void cmdVersionNew_Click();
    void cmdVersionSave_Click();
    void cmdVersionSaveAs_Click();
    void cmdVersionDelete_Click();
    void lbVersionList_Click();
    void ClearVersionFields();
    void cmdAttributes_Click();
    void cmdExportKeywords_Click();
    void cmdImportKeywords_Click();
    void cmdEnvironNew_Click();
    void cmdEnvironSave_Click();
    void cmdEnvironSaveAs_Click();
    void cmdEnvironDelete_Click();
    void cmdEnvironBackup_Click();
    void cmdEnvironRestore_Click();
    void lbEnvironList_Click();
    void cbEnvironApp_Click();
    void cbEnvironTestTool_Click();
    void lbEnvironAppVerList_Click();
    void cmdAddAppVer_Click();
    void cmdEnvironConfigSave_Click();
    void cmdRemoveAppVer_Click();
    void cmdUpdateAppVer_Click();
    void cmdCopyAppVer_Click();
    void lbEnvironUsers_Click();
    void cmdAddEnvironUser_Click();
    void cmdRemoveEnvironUser_Click();
    void ClearRightsBoxes();

    NameDescGrid& rolesGrid() { return *m_roles; }
    NameDescGrid& projectsGrid() { return *m_projects; }
    NameDescGrid& keywordsGrid() { return *m_keywords; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void connectShell();
    void connectUsers();
    void connectGrids();
    void connectApplications();
    void connectVersions();
    void connectAttributes();
    void connectKeywordFiles();
    void connectEnvironments();
    DialogProvider& dialogs();
    void SSMainTab_Click(int index);
    void Unload();
    void showUserForm(const struct UserForm& form);
    void deleteSelectedGridRow(NameDescGrid& grid, QTableView* view);
    bool gridExitCancel(NameDescGrid& grid, QPushButton* saveButton, qint32 appKey);
    void printList(const QString& title, const QListWidget* list);
    void printGrid(const QString& title, NameDescGrid& grid);
    void focusField(const QString& objectName);
    // Runs one loader's query into `entries`. A failure is shown as "Error
    // while refreshing LIST list : " and the description, and keeps the
    // entries read before it; false then.
    bool loadEntries(const QString& list, ListEntries& entries, ListRead read);
    void fillList(QListWidget* list, const ListEntries& entries);
    void fillCombo(QComboBox* combo, const ListEntries& entries);
    void showDbError(const QString& prefix, const class DbError& error);
    // After a version's row was written: the version list shows it
    // selected.
    void showSavedVersion();
    // Removes a version's contents and row under the hourglass.
    bool deleteVersionContents(qint32 versionKey);
    // After Cancel (or a refused Save) the list returns to the entry the
    // form still shows.
    void returnToRow(QListWidget* list, int row);
    // What a long operation did, in the status bar.
    void showDone(const QString& text);
    // After the save prompt was answered No: the grid reloads its stored rows.
    void dropGridEdits(NameDescGrid& grid, QPushButton* saveButton, const std::function<void()>& reload);
    int m_mainTabIndex = 0;
    void applyEnvironOutcome(const EnvironOutcome& outcome);
    void applyEnvironControls(const EnvironDefinitionControls& controls);
    // The window's EnvironDirty and ConfigDirty as the environment editors
    // hold them after a command.
    void syncEnvironFlags();
    void transferVersion(bool update);
    // The one progress window of the copy runs.
    frmVersionProgress& progressWindow();

    Session& m_session;
    MessageSink& m_messages;
    ProgramLauncher& m_launcher;
    ReportPrinter& m_printer;
    MainFormControls c;
    // The Users page's user and the Environments page's registered user:
    // each page acts on its own.
    std::unique_ptr<class CurrentUserKey> m_currentUserKey;
    std::unique_ptr<class CurrentUserKey> m_registeredUserKey;
    std::unique_ptr<UserRecords> m_users;
    std::unique_ptr<NameDescGrid> m_roles;
    std::unique_ptr<NameDescGrid> m_projects;
    std::unique_ptr<NameDescGrid> m_keywords;
    std::unique_ptr<EnvironmentRecords> m_environ;
    std::unique_ptr<EnvironmentConfig> m_environConfig;
    std::unique_ptr<EnvironmentUsers> m_environUsers;
    // The application's mAppEnviron as stored, and as txtAppEnviron showed
    // it when the application was opened or saved.
    QString m_appEnvironStored;
    QString m_appEnvironShown;
    frmVersionProgress* m_progress = nullptr;
    DialogProvider* m_dialogs = nullptr;
    std::unique_ptr<QtDialogProvider> m_qtDialogs;
    bool m_unloaded = false;
};

} // namespace dorvane
