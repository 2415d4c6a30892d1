#pragma once

#include "core/environments/EnvironmentUsers.h"
#include "core/lists/ListQueries.h"
#include "core/users/UserRecords.h"
#include "desktop/mainwindow/EditorPage.h"
#include "ui_EnvironmentsPage.h"

#include <memory>
#include <vector>

namespace dorvane {

class EnvironmentConfig;
class EnvironmentRecords;
class frmVersionProgress;
struct EnvironConfigInput;
struct EnvironDefinitionControls;
struct EnvironDefinitionInput;
struct EnvironOutcome;

// The Environments page: the environments and the environment editor's
// definition, configuration (the environment's application versions, and
// the copy runs between them) and users with their module rights.
class EnvironmentsPage : public EditorPage, public Ui::EnvironmentsPage {
    Q_OBJECT
public:
    explicit EnvironmentsPage(PageContext& context, QWidget* parent = nullptr);
    ~EnvironmentsPage() override;

    // Loaders.
    void RefreshEnvironList();
    void RefreshEnvironAppVerList();
    // `users`: the user list just read by the Users page, if any.
    void RefreshEnvironUsers(const std::vector<UserListItem>* users = nullptr);
    // The application drop-down, with nothing chosen.
    void ShowApplications(const ListEntries& apps);
    // The list of users to register: every user, as the Users page lists them.
    void ShowUserList(const ListEntries& users);
    // The test tool and emulator drop-downs, with nothing chosen.
    void ShowReferenceLists(const ListEntries& testTools, const ListEntries& emulators);
    // A version of `appKey` was written: the version drop-down follows when
    // it lists that application's versions.
    void ApplicationVersionsChanged(qint32 appKey);

    // The save prompt: true when the user chose to stay.
    bool EnvironExitCancel();

    // How many environments the list shows.
    qint16 EnvironCount() const { return m_environCount; }
    qint32 CurrentEnvironKey() const;

signals:
    // What a long operation did, for the status bar.
    void operationDone(const QString& text);

private:
    void cmdEnvironNew_Click();
    void cmdEnvironSave_Click();
    void cmdEnvironSaveAs_Click();
    void cmdEnvironDelete_Click();
    void cmdEnvironBackup_Click();
    void cmdEnvironRestore_Click();
    void cmdEnvironHistory_Click();
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

    QCheckBox* rightBox(ModuleRight right) const;
    EnvironDefinitionInput definitionInput() const;
    EnvironConfigInput configInput() const;
    void applyEnvironOutcome(const EnvironOutcome& outcome);
    void applyEnvironControls(const EnvironDefinitionControls& controls);
    // The prompt's flags as the environment editors hold them after a command.
    void syncEnvironFlags();
    void transferVersion(bool update);
    // The one progress window of the copy runs.
    frmVersionProgress& progressWindow();

    // The registered user the page highlights; the Users page has its own.
    CurrentUserKey m_registeredUserKey;
    std::unique_ptr<EnvironmentRecords> m_environ;
    std::unique_ptr<EnvironmentConfig> m_environConfig;
    std::unique_ptr<EnvironmentUsers> m_environUsers;
    bool m_environDirty = false;
    bool m_configDirty = false;
    qint16 m_environCount = 0;
    frmVersionProgress* m_progress = nullptr;
};

} // namespace dorvane
