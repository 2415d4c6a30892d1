// The Applications page: the application editor (Definition tab), the
// version editor with the list-handling attributes (Versions tab) and the
// application's keywords with their export and import (Keywords tab).

#include "desktop/applications/ApplicationsPage.h"

#include "core/applications/ApplicationRecords.h"
#include "core/applications/Deletion.h"
#include "core/applications/VersionAttributes.h"
#include "core/applications/VersionRecords.h"
#include "core/copyengine/OperationPreview.h"
#include "core/copyengine/VersionBackup.h"
#include "core/lists/KeywordFiles.h"
#include "core/lists/NameDescGrids.h"
#include "core/repository/DbError.h"
#include "core/repository/Interaction.h"
#include "core/startup/Startup.h"
#include "desktop/mainwindow/DialogProvider.h"
#include "desktop/mainwindow/ListControls.h"
#include "desktop/mainwindow/QtInteraction.h"

#include <QSignalBlocker>

namespace dorvane {

namespace {

// Selects the stored pointer. One that is in none of the lists (a process
// or window of another version) is shown as an entry of its own, so that a
// Save keeps it.
void selectKey(QComboBox* combo, const std::optional<qint32>& key, const char* kind)
{
    if (!key || *key == 0) {
        combo->setCurrentIndex(-1);
        return;
    }
    int index = FindComboItem(*key, combo);
    if (index < 0) {
        combo->addItem(QStringLiteral("(stored: %1 %2)").arg(QLatin1String(kind)).arg(*key), *key);
        index = combo->count() - 1;
    }
    combo->setCurrentIndex(index);
}

} // namespace

ApplicationsPage::ApplicationsPage(PageContext& context, QWidget* parent)
    : EditorPage(context, parent),
      m_keywords(std::make_unique<NameDescGrid>(NameDescGridKind::Keywords, context.messages))
{
    setupUi(this);
    KeepTypingLimits(this);
    setFirstField(txtAppName);
    // A new application has no versions or keywords to show yet.
    SSAppTab->setTabEnabled(1, false);
    SSAppTab->setTabEnabled(2, false);

    const auto appEdited = [this] {
        m_appDirty = true;
        cmdAppSave->setEnabled(true);
    };
    for (QLineEdit* box : {txtAppName, txtAppID, txtAppDesc})
        connect(box, &QLineEdit::textChanged, this, appEdited);
    connect(txtAppEnviron, &QPlainTextEdit::textChanged, this, appEdited);
    connect(cbEmulator, &QComboBox::activated, this, [this] { m_appDirty = true; });
    connect(cbPlatform, &QComboBox::activated, this, &ApplicationsPage::cbPlatform_Click);
    connect(cmdAppNew, &QPushButton::clicked, this, &ApplicationsPage::cmdAppNew_Click);
    connect(cmdAppSave, &QPushButton::clicked, this, &ApplicationsPage::cmdAppSave_Click);
    connect(cmdAppDelete, &QPushButton::clicked, this, &ApplicationsPage::cmdAppDelete_Click);
    connect(lbAppList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbAppList_Click();
    });

    connect(txtVersionID, &QLineEdit::textChanged, this, [this] {
        cmdVersionSave->setEnabled(true);
        if (!m_versionIsNew)
            cmdVersionSaveAs->setEnabled(true);
        m_versionDirty = true;
    });
    const auto versionEdited = [this] {
        cmdVersionSave->setEnabled(true);
        m_versionDirty = true;
    };
    connect(txtVersionDesc, &QLineEdit::textChanged, this, versionEdited);
    for (QComboBox* combo : {cbVersionMapType, cbVersionLoadProcess, cbVersionLoginProcess, cbVersionLogoutProcess,
                             cbVersionTerminateProcess, cbVersionRecoverProcess, cbVersionInitialWindow,
                             cbVersionMainWindow})
        connect(combo, &QComboBox::activated, this, versionEdited);
    connect(cmdVersionNew, &QPushButton::clicked, this, &ApplicationsPage::cmdVersionNew_Click);
    connect(cmdVersionSave, &QPushButton::clicked, this, &ApplicationsPage::cmdVersionSave_Click);
    connect(cmdVersionSaveAs, &QPushButton::clicked, this, &ApplicationsPage::cmdVersionSaveAs_Click);
    connect(cmdVersionDelete, &QPushButton::clicked, this, &ApplicationsPage::cmdVersionDelete_Click);
    connect(lbVersionList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbVersionList_Click();
    });

    connect(cmdAttributes, &QPushButton::clicked, this, &ApplicationsPage::cmdAttributes_Click);

    connect(cmdExportKeywords, &QPushButton::clicked, this, &ApplicationsPage::cmdExportKeywords_Click);
    connect(cmdImportKeywords, &QPushButton::clicked, this, &ApplicationsPage::cmdImportKeywords_Click);

    bindGrid(*m_keywords, TDBGridKeywords, cmdKeywordSave, [this] { cmdKeywordSave_Click(); });
    connect(cmdAppPrint, &QPushButton::clicked, this, [this] { printList(QStringLiteral("Applications"), lbAppList); });
    connect(cmdVersionPrint, &QPushButton::clicked, this, [this] {
        printList(QStringLiteral("Versions of ") + txtAppName->text(), lbVersionList);
    });
    connect(cmdKeywordPrint, &QPushButton::clicked, this, [this] {
        printGrid(QStringLiteral("Keywords of ") + txtAppName->text(), *m_keywords);
    });
}

ApplicationsPage::~ApplicationsPage() = default;

bool ApplicationsPage::KeywordDirty() const { return m_keywords->Dirty(); }

// ---------------------------------------------------------------- loaders

void ApplicationsPage::RefreshAppList()
{
    m_editLoading = true;
    lbAppList->clear();
    ListEntries entries;
    LoadEntries(messages(), QStringLiteral("application"), entries, AppEntries(session().repository));
    FillList(lbAppList, entries);
    emit appListRefreshed(entries);
    m_editLoading = false;
}

void ApplicationsPage::ShowReferenceLists(const ListEntries& platforms, const ListEntries& emulators)
{
    cbPlatform->clear();
    cbEmulator->clear();
    FillCombo(cbPlatform, platforms);
    FillCombo(cbEmulator, emulators);
    cbPlatform->setCurrentIndex(-1);
    cbEmulator->setCurrentIndex(-1);
}

void ApplicationsPage::RefreshKeywordGrid()
{
    dorvane::RefreshKeywordGrid(*m_keywords, session().repository, messages(), m_currentAppKey);
}

void ApplicationsPage::RefreshVersionList()
{
    lbVersionList->clear();
    ListEntries entries;
    LoadEntries(messages(), QStringLiteral("version"), entries, VersionListEntries(session().repository, m_currentAppKey));
    FillList(lbVersionList, entries);
}

void ApplicationsPage::RefreshVersionProcesses(qint32 versionKey)
{
    ListEntries entries;
    LoadEntries(messages(), QStringLiteral("process"), entries, VersionProcessEntries(session().repository, versionKey));
    for (QComboBox* combo : processCombos()) {
        combo->clear();
        FillCombo(combo, entries);
        combo->setCurrentIndex(-1);
    }
}

void ApplicationsPage::refreshMapTypes()
{
    cbVersionMapType->clear();
    ListEntries entries;
    LoadEntries(messages(), QStringLiteral("map type"), entries, MapTypeEntries(session().repository, m_currentPlatformKey));
    FillCombo(cbVersionMapType, entries);
    cbVersionMapType->setCurrentIndex(-1);
}

QList<QComboBox*> ApplicationsPage::processCombos() const
{
    return {cbVersionLoadProcess, cbVersionLoginProcess, cbVersionLogoutProcess, cbVersionTerminateProcess,
            cbVersionRecoverProcess};
}

// ---------------------------------------------------------------- prompts

bool ApplicationsPage::AppExitCancel()
{
    if (!m_appDirty)
        return false;
    return listEditorExitCancel(QStringLiteral("Save changes to this Application?"), lbAppList, [this] { cmdAppSave_Click(); });
}

bool ApplicationsPage::VersionExitCancel()
{
    if (!m_versionDirty)
        return false;
    return listEditorExitCancel(QStringLiteral("Save changes to this Version?"), lbVersionList, [this] { cmdVersionSave_Click(); });
}

bool ApplicationsPage::KeywordExitCancel() { return gridExitCancel(*m_keywords, cmdKeywordSave, m_currentAppKey); }

void ApplicationsPage::DropKeywordEdits()
{
    dropGridEdits(*m_keywords, cmdKeywordSave, [this] { RefreshKeywordGrid(); });
}

void ApplicationsPage::cmdKeywordSave_Click()
{
    m_saveOk = m_keywords->Save(session().repository, messages(), m_currentAppKey).SaveOk;
    cmdKeywordSave->setEnabled(m_keywords->Dirty());
}

// ---------------------------------------------------------------- applications

void ApplicationsPage::lbAppList_Click()
{
    if (m_editLoading)
        return;
    m_editLoading = true;
    // The keyword grid shows the application's keywords: its edits are the
    // shown application's, saved or dropped before another one opens.
    if ((m_appDirty && AppExitCancel()) || KeywordExitCancel()) {
        returnToRow(lbAppList, m_appListIndex);
        m_editLoading = false;
        return;
    }
    m_keywords->SetDirty(false);
    cmdKeywordSave->setEnabled(false);
    m_appListIndex = lbAppList->currentRow();
    m_currentAppKey = ItemKey(lbAppList, m_appListIndex);

    ApplicationRecords records(session().repository, messages(), session().plan.sharedResourcePath);
    const std::optional<ApplicationRecord> app = records.Open(m_currentAppKey);
    if (!app) {
        m_editLoading = false;
        return;
    }
    {
        const QSignalBlocker blockName(txtAppName), blockEnviron(txtAppEnviron), blockId(txtAppID),
            blockDesc(txtAppDesc);
        SetBoxText(txtAppName, app->name);
        txtAppEnviron->setPlainText(app->environ);
        SetBoxText(txtAppID, app->id);
        SetBoxText(txtAppDesc, app->description);
    }
    m_appEnvironStored = app->environ;
    m_appEnvironShown = txtAppEnviron->toPlainText();
    if (app->platformKey) {
        m_currentPlatformKey = *app->platformKey;
        cbPlatform->setEnabled(true);
        cbPlatform->setCurrentIndex(FindComboItem(*app->platformKey, cbPlatform));
        m_appIsHost = app->AppIsHost;
        cbEmulator->setEnabled(m_appIsHost);
        cbEmulator->setCurrentIndex(m_appIsHost ? FindComboItem(app->emulatorKey, cbEmulator) : -1);
    } else {
        // An application written elsewhere without a platform: shown with
        // the first platform, which cannot be changed here.
        cbPlatform->setCurrentIndex(0);
        cbPlatform->setEnabled(false);
    }
    m_appFolderName = app->AppFolderName;

    RefreshVersionList();
    refreshMapTypes();
    ClearVersionFields();
    RefreshKeywordGrid();

    cmdAppDelete->setEnabled(true);
    cmdAppSave->setEnabled(false);
    SSAppTab->setTabEnabled(1, true);
    SSAppTab->setTabEnabled(2, true);
    m_appIsNew = false;
    m_appDirty = false;
    m_editLoading = false;
    txtAppName->setFocus();
}

void ApplicationsPage::cbPlatform_Click()
{
    if (m_editLoading || cbPlatform->currentIndex() < 0)
        return;
    m_appDirty = true;
    cmdAppSave->setEnabled(true);
    m_currentPlatformKey = ComboKey(cbPlatform, cbPlatform->currentIndex());
    bool host = false;
    try {
        host = PlatformIsHost(session().repository, m_currentPlatformKey);
    } catch (const DbError& e) {
        showDbError(QStringLiteral("Error while reading platform: "), e);
    }
    if (host) {
        cbEmulator->setEnabled(true);
    } else {
        cbEmulator->setCurrentIndex(-1);
        cbEmulator->setEnabled(false);
    }
}

void ApplicationsPage::ClearAppFields()
{
    m_editLoading = true;
    for (QLineEdit* box : {txtAppName, txtAppID, txtAppDesc}) {
        const QSignalBlocker block(box);
        SetBoxText(box, QString());
    }
    {
        const QSignalBlocker block(txtAppEnviron);
        txtAppEnviron->clear();
    }
    m_appEnvironStored.clear();
    m_appEnvironShown.clear();
    cbPlatform->setCurrentIndex(-1);
    cbPlatform->setEnabled(true);
    cbEmulator->setCurrentIndex(-1);
    {
        const QSignalBlocker block(lbAppList);
        lbAppList->setCurrentRow(-1);
    }
    m_appListIndex = -1;
    m_appDirty = false;
    m_appIsNew = true;
    m_editLoading = false;
}

void ApplicationsPage::cmdAppNew_Click()
{
    ClearAppFields();
    m_editLoading = true;
    m_currentAppKey = 0;
    cmdAppDelete->setEnabled(false);
    cmdAppSave->setEnabled(false);
    SSAppTab->setTabEnabled(1, false);
    SSAppTab->setTabEnabled(2, false);
    cmdVersionNew_Click();
    m_editLoading = false;
    txtAppName->setFocus();
}

void ApplicationsPage::cmdAppSave_Click()
{
    m_saveOk = false;
    ApplicationInput input;
    input.name = txtAppName->text();
    input.id = txtAppID->text();
    input.description = txtAppDesc->text();
    // The text box shows line breaks its own way ("\r\n" written by the
    // suite's Windows modules comes back as "\n"): a text left as shown is
    // saved as stored.
    const QString environ = txtAppEnviron->toPlainText();
    input.environ = environ == m_appEnvironShown ? m_appEnvironStored : environ;
    input.platformKey = SelectedKey(cbPlatform);
    input.emulatorKey = SelectedKey(cbEmulator);
    input.emulatorText = cbEmulator->currentText();

    const bool wasNew = m_appIsNew;
    ApplicationState state;
    state.CurrentAppKey = m_currentAppKey;
    state.AppIsNew = m_appIsNew;
    state.CurrentPlatformKey = m_currentPlatformKey;
    state.AppFolderName = m_appFolderName;
    state.AppIsHost = m_appIsHost;

    ApplicationRecords records(session().repository, messages(), session().plan.sharedResourcePath);
    const ApplicationSaveOutcome outcome = records.Save(input, state);
    m_currentAppKey = outcome.state.CurrentAppKey;
    m_appIsNew = outcome.state.AppIsNew;
    m_currentPlatformKey = outcome.state.CurrentPlatformKey;
    m_appFolderName = outcome.state.AppFolderName;
    m_appIsHost = outcome.state.AppIsHost;
    if (outcome.dirtyCleared) {
        // The row is written: the list shows it, also when the folder work
        // after it failed, and the next Save updates it.
        m_appDirty = false;
        m_appEnvironStored = input.environ;
        m_appEnvironShown = environ;
        RefreshAppList();
        m_editLoading = true;
        m_appListIndex = FindListItem(m_currentAppKey, lbAppList);
        lbAppList->setCurrentRow(m_appListIndex);
        m_editLoading = false;
    }

    if (outcome.SaveOk) {
        cmdAppSave->setEnabled(false);
        m_appDirty = false;
        m_appIsNew = false;
        refreshMapTypes();
        RefreshVersionList();
        cmdAppDelete->setEnabled(true);
        SSAppTab->setTabEnabled(1, true);
        SSAppTab->setTabEnabled(2, true);
        // A new application has no keywords yet; a stored one keeps the
        // grid as it is, with any rows typed there and not yet saved.
        if (wasNew)
            RefreshKeywordGrid();
    }
    if (outcome.mainTab >= 0)
        emit showRequested();
    if (outcome.appTab >= 0)
        SSAppTab->setCurrentIndex(outcome.appTab);
    focusField(outcome.focusField);
    m_saveOk = outcome.SaveOk;
}

void ApplicationsPage::cmdAppDelete_Click()
{
    if (lbAppList->currentRow() < 0)
        return;
    if (!DeleteApplication(
            session().repository, messages(), m_currentAppKey, txtAppName->text(),
            [this](qint32 versionKey, MessageSink& shown) { return deleteVersionContents(versionKey, shown); },
            [this] { return PreviewApplicationDeletion(session().repository, m_currentAppKey).Text(); }))
        return;
    RefreshAppList();
    m_currentAppKey = 0;
    RefreshVersionList();
    ClearAppFields();
    cmdAppDelete->setEnabled(false);
    cmdAppSave->setEnabled(false);
    SSAppTab->setTabEnabled(1, false);
    SSAppTab->setTabEnabled(2, false);
}

void ApplicationsPage::lbVersionList_Click()
{
    if (m_editLoading)
        return;
    m_editLoading = true;
    if (m_versionDirty && VersionExitCancel()) {
        returnToRow(lbVersionList, m_versionListIndex);
        m_editLoading = false;
        return;
    }
    m_versionListIndex = lbVersionList->currentRow();
    m_currentVersionKey = ItemKey(lbVersionList, m_versionListIndex);

    VersionRecords records(session().repository, messages(), session().plan.sharedResourcePath);
    const std::optional<VersionRecord> version = records.Open(m_currentVersionKey);
    if (!version) {
        m_editLoading = false;
        return;
    }
    for (QComboBox* combo : {cbVersionInitialWindow, cbVersionMainWindow}) {
        combo->clear();
        FillCombo(combo, version->windows);
    }
    for (QComboBox* combo : processCombos()) {
        combo->clear();
        FillCombo(combo, version->processes);
    }
    {
        const QSignalBlocker blockId(txtVersionID), blockDesc(txtVersionDesc);
        SetBoxText(txtVersionID, version->id);
        SetBoxText(txtVersionDesc, version->description);
    }
    m_versionFolderName = version->id;
    cbVersionMapType->setCurrentIndex(FindComboItem(version->mapTypeKey, cbVersionMapType));
    const VersionLinks& links = version->links;
    selectKey(cbVersionLoadProcess, links.loadProcess, "process");
    selectKey(cbVersionLoginProcess, links.loginProcess, "process");
    selectKey(cbVersionLogoutProcess, links.logoutProcess, "process");
    selectKey(cbVersionTerminateProcess, links.terminateProcess, "process");
    selectKey(cbVersionRecoverProcess, links.recoverProcess, "process");
    selectKey(cbVersionInitialWindow, links.initialWindow, "window");
    selectKey(cbVersionMainWindow, links.mainWindow, "window");

    txtVersionID->setFocus();
    cmdVersionDelete->setEnabled(true);
    cmdVersionSave->setEnabled(false);
    cmdVersionSaveAs->setEnabled(false);
    cmdAttributes->setEnabled(AttributesEnabled(SelectedKey(cbEmulator)));
    m_versionIsNew = false;
    m_versionDirty = false;
    m_editLoading = false;
}

void ApplicationsPage::ClearVersionFields()
{
    const bool wasLoading = m_editLoading;
    m_editLoading = true;
    for (QLineEdit* box : {txtVersionID, txtVersionDesc}) {
        const QSignalBlocker block(box);
        SetBoxText(box, QString());
    }
    {
        const QSignalBlocker block(lbVersionList);
        lbVersionList->setCurrentRow(-1);
    }
    for (QComboBox* combo : {cbVersionMapType, cbVersionLoadProcess, cbVersionLoginProcess, cbVersionLogoutProcess,
                             cbVersionTerminateProcess, cbVersionRecoverProcess, cbVersionInitialWindow,
                             cbVersionMainWindow})
        combo->setCurrentIndex(-1);
    m_versionListIndex = -1;
    m_versionDirty = false;
    m_versionIsNew = true;
    for (QPushButton* b : {cmdVersionSave, cmdVersionSaveAs, cmdVersionDelete, cmdAttributes})
        b->setEnabled(false);
    m_editLoading = wasLoading;
}

void ApplicationsPage::cmdVersionNew_Click()
{
    ClearVersionFields();
    m_currentVersionKey = 0;
    txtVersionID->setFocus();
}

void ApplicationsPage::cmdVersionSave_Click()
{
    m_saveOk = false;
    VersionApplication app{m_currentAppKey, m_appFolderName, m_appIsHost, m_currentPlatformKey};
    VersionState state{m_currentVersionKey, m_versionIsNew, m_versionFolderName};
    VersionRecords records(session().repository, messages(), session().plan.sharedResourcePath);
    const VersionSaveOutcome outcome = records.Save(versionInput(), app, state);
    m_currentVersionKey = outcome.state.CurrentVersionKey;
    m_versionIsNew = outcome.state.VersionIsNew;
    m_versionFolderName = outcome.state.VersionFolderName;
    if (outcome.dirtyCleared) {
        m_versionDirty = false;
        showSavedVersion();
        // The environments page's version drop-down follows when it lists
        // this application's versions.
        emit versionsSaved(m_currentAppKey);
    }
    if (outcome.mainTab >= 0)
        emit showRequested();
    if (outcome.appTab >= 0)
        SSAppTab->setCurrentIndex(outcome.appTab);
    focusField(outcome.focusField);
    if (outcome.SaveOk) {
        ClearVersionFields();
        // The editor now stands on a new version: the saved one's key must
        // not exclude it from the next save's duplicate check.
        m_currentVersionKey = 0;
        m_saveOk = true;
    }
}

void ApplicationsPage::cmdVersionSaveAs_Click()
{
    VersionApplication app{m_currentAppKey, m_appFolderName, m_appIsHost, m_currentPlatformKey};
    VersionState state{m_currentVersionKey, m_versionIsNew, m_versionFolderName};
    VersionRecords records(session().repository, messages(), session().plan.sharedResourcePath);
    const VersionSaveOutcome outcome = records.SaveAs(versionInput(), app, state);
    m_currentVersionKey = outcome.state.CurrentVersionKey;
    m_versionIsNew = outcome.state.VersionIsNew;
    m_versionFolderName = outcome.state.VersionFolderName;
    if (outcome.mainTab >= 0)
        emit showRequested();
    if (outcome.appTab >= 0)
        SSAppTab->setCurrentIndex(outcome.appTab);
    focusField(outcome.focusField);
    if (outcome.dirtyCleared)
        showSavedVersion();
}

void ApplicationsPage::showSavedVersion()
{
    RefreshVersionList();
    // The version just written is the one shown, also when the folder
    // work after it failed.
    const bool wasLoading = m_editLoading;
    m_editLoading = true;
    m_versionListIndex = FindListItem(m_currentVersionKey, lbVersionList);
    lbVersionList->setCurrentRow(m_versionListIndex);
    m_editLoading = wasLoading;
}

bool ApplicationsPage::deleteVersionContents(qint32 versionKey, MessageSink& shown)
{
    QtBusyIndicator hourglass;
    const BusyScope busy(&hourglass);
    return DeleteVersionContents(versionKey, session().repository, shown);
}

void ApplicationsPage::cmdVersionDelete_Click()
{
    if (!DeleteVersion(
            session().repository, messages(), m_currentVersionKey, txtVersionID->text(),
            [this](qint32 versionKey, MessageSink& shown) { return deleteVersionContents(versionKey, shown); },
            [this] { return PreviewVersionDeletion(session().repository, m_currentVersionKey).Text(); }))
        return;
    ClearVersionFields();
    m_currentVersionKey = 0;
    RefreshVersionList();
}

void ApplicationsPage::cmdAttributes_Click()
{
    SetVersionAttributes(session().repository, messages(), m_currentVersionKey,
                         [this](const ListAttributes& shown) { return dialogs().ListHandlingAttributes(shown); });
}

void ApplicationsPage::cmdExportKeywords_Click()
{
    const bool exported = ExportKeywords(session().repository, messages(), m_currentAppKey, [this] {
        return dialogs().FileList(kExportKeywordsCaption, FileNamePreset::TextFileInCurrentFolder);
    });
    if (exported)
        messages().Inform(kKeywordsExported);
}

void ApplicationsPage::cmdImportKeywords_Click()
{
    // The import reloads the grid: edits not saved yet are saved, or
    // dropped, by the grid's own prompt first.
    if (KeywordExitCancel())
        return;
    const KeywordImportOutcome outcome = ImportKeywords(session().repository, messages(), m_currentAppKey, [this] {
        return dialogs().FileList(kImportKeywordsCaption, FileNamePreset::None);
    });
    if (!outcome.ReloadGrid())
        return;
    // The grid now shows the repository's rows; edits the prompt was told
    // to drop are gone with the old rows.
    RefreshKeywordGrid();
    m_keywords->SetDirty(false);
    cmdKeywordSave->setEnabled(false);
    if (outcome.result == KeywordImportResult::Imported)
        messages().Inform(kKeywordsImported + KeywordImportCounts(outcome));
}

VersionInput ApplicationsPage::versionInput() const
{
    VersionInput input;
    input.id = txtVersionID->text();
    input.description = txtVersionDesc->text();
    input.mapTypeKey = SelectedKey(cbVersionMapType);
    input.links.loadProcess = SelectedKey(cbVersionLoadProcess);
    input.links.loginProcess = SelectedKey(cbVersionLoginProcess);
    input.links.logoutProcess = SelectedKey(cbVersionLogoutProcess);
    input.links.terminateProcess = SelectedKey(cbVersionTerminateProcess);
    input.links.recoverProcess = SelectedKey(cbVersionRecoverProcess);
    input.links.initialWindow = SelectedKey(cbVersionInitialWindow);
    input.links.mainWindow = SelectedKey(cbVersionMainWindow);
    return input;
}

} // namespace dorvane
