#pragma once

#include "core/lists/ListQueries.h"
#include "desktop/mainwindow/EditorPage.h"
#include "ui_ApplicationsPage.h"

#include <memory>

namespace dorvane {

struct VersionInput;

// The Applications page: the applications and their editor, the versions
// of the application shown and their editor, and its keywords.
class ApplicationsPage : public EditorPage, public Ui::ApplicationsPage {
    Q_OBJECT
public:
    explicit ApplicationsPage(PageContext& context, QWidget* parent = nullptr);
    ~ApplicationsPage() override;

    // Loaders.
    void RefreshAppList();
    void RefreshKeywordGrid();
    void RefreshVersionList();
    void RefreshVersionProcesses(qint32 versionKey);
    // The platform and emulator drop-downs, with nothing chosen.
    void ShowReferenceLists(const ListEntries& platforms, const ListEntries& emulators);

    // Save prompts: true when the user chose to stay.
    bool AppExitCancel();
    bool VersionExitCancel();
    bool KeywordExitCancel();
    // After the keywords prompt was answered No: the grid shows the stored rows.
    void DropKeywordEdits();

    NameDescGrid& keywordsGrid() { return *m_keywords; }
    bool KeywordDirty() const;

    // The editors' state.
    qint32 CurrentAppKey() const { return m_currentAppKey; }
    bool AppDirty() const { return m_appDirty; }
    const QString& AppFolderName() const { return m_appFolderName; }
    qint32 CurrentVersionKey() const { return m_currentVersionKey; }
    bool VersionIsNew() const { return m_versionIsNew; }

signals:
    // The applications were listed again (the Environments page offers them too).
    void appListRefreshed(const ListEntries& apps);
    // A version of the application was written (lists of its versions follow).
    void versionsSaved(qint32 appKey);

private:
    void lbAppList_Click();
    void cbPlatform_Click();
    void ClearAppFields();
    void cmdAppNew_Click();
    void cmdAppSave_Click();
    void cmdAppDelete_Click();
    void lbVersionList_Click();
    void ClearVersionFields();
    void cmdVersionNew_Click();
    void cmdVersionSave_Click();
    void cmdVersionSaveAs_Click();
    void cmdVersionDelete_Click();
    void cmdAttributes_Click();
    void cmdKeywordSave_Click();
    void cmdExportKeywords_Click();
    void cmdImportKeywords_Click();

    void refreshMapTypes();
    QList<QComboBox*> processCombos() const;
    VersionInput versionInput() const;
    // After a version's row was written: the version list shows it
    // selected.
    void showSavedVersion();
    // Removes a version's contents and row under the hourglass.
    bool deleteVersionContents(qint32 versionKey, MessageSink& shown);

    std::unique_ptr<NameDescGrid> m_keywords;

    // Application editor state.
    qint32 m_currentAppKey = 0;
    bool m_appIsNew = true;
    bool m_appDirty = false;
    int m_appListIndex = -1;
    qint32 m_currentPlatformKey = 0;
    QString m_appFolderName;
    bool m_appIsHost = false;
    // The application's mAppEnviron as stored, and as txtAppEnviron showed
    // it when the application was opened or saved.
    QString m_appEnvironStored;
    QString m_appEnvironShown;

    // Version editor state.
    qint32 m_currentVersionKey = 0;
    bool m_versionIsNew = true;
    bool m_versionDirty = false;
    int m_versionListIndex = -1;
    QString m_versionFolderName;
};

} // namespace dorvane
