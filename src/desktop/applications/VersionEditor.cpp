// The version editor on the Applications page's Versions tab.

#include "core/applications/Deletion.h"
#include "core/applications/VersionRecords.h"
#include "core/copyengine/VersionBackup.h"
#include "desktop/mainwindow/QtInteraction.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/startup/Startup.h"

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTabWidget>

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

void frmMainForm::connectVersions()
{
    connect(c.txtVersionID, &QLineEdit::textChanged, this, [this] {
        c.cmdVersionSave->setEnabled(true);
        if (!VersionIsNew)
            c.cmdVersionSaveAs->setEnabled(true);
        VersionDirty = true;
    });
    const auto edited = [this] {
        c.cmdVersionSave->setEnabled(true);
        VersionDirty = true;
    };
    connect(c.txtVersionDesc, &QLineEdit::textChanged, this, edited);
    for (QComboBox* combo : {c.cbVersionMapType, c.cbVersionLoadProcess, c.cbVersionLoginProcess, c.cbVersionLogoutProcess,
                             c.cbVersionTerminateProcess, c.cbVersionRecoverProcess, c.cbVersionInitialWindow,
                             c.cbVersionMainWindow})
        connect(combo, &QComboBox::activated, this, edited);
    connect(c.cmdVersionNew, &QPushButton::clicked, this, &frmMainForm::cmdVersionNew_Click);
    connect(c.cmdVersionSave, &QPushButton::clicked, this, &frmMainForm::cmdVersionSave_Click);
    connect(c.cmdVersionSaveAs, &QPushButton::clicked, this, &frmMainForm::cmdVersionSaveAs_Click);
    connect(c.cmdVersionDelete, &QPushButton::clicked, this, &frmMainForm::cmdVersionDelete_Click);
    connect(c.lbVersionList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbVersionList_Click();
    });
}

void frmMainForm::lbVersionList_Click()
{
    if (EditLoading)
        return;
    EditLoading = true;
    if (VersionDirty && VersionExitCancel()) {
        returnToRow(c.lbVersionList, VersionListIndex);
        EditLoading = false;
        return;
    }
    VersionListIndex = c.lbVersionList->currentRow();
    CurrentVersionKey = ItemKey(c.lbVersionList, VersionListIndex);

    VersionRecords records(m_session.repository, m_messages, m_session.plan.sharedResourcePath);
    const std::optional<VersionRecord> version = records.Open(CurrentVersionKey);
    if (!version) {
        EditLoading = false;
        return;
    }
    const QList<QComboBox*> processCombos = {c.cbVersionLoadProcess, c.cbVersionLoginProcess, c.cbVersionLogoutProcess,
                                             c.cbVersionTerminateProcess, c.cbVersionRecoverProcess};
    const QList<QComboBox*> windowCombos = {c.cbVersionInitialWindow, c.cbVersionMainWindow};
    for (QComboBox* combo : windowCombos) {
        combo->clear();
        fillCombo(combo, version->windows);
    }
    for (QComboBox* combo : processCombos) {
        combo->clear();
        fillCombo(combo, version->processes);
    }
    {
        const QSignalBlocker blockId(c.txtVersionID), blockDesc(c.txtVersionDesc);
        SetBoxText(c.txtVersionID, version->id);
        SetBoxText(c.txtVersionDesc, version->description);
    }
    VersionFolderName = version->id;
    c.cbVersionMapType->setCurrentIndex(FindComboItem(version->mapTypeKey, c.cbVersionMapType));
    const VersionLinks& links = version->links;
    selectKey(c.cbVersionLoadProcess, links.loadProcess, "process");
    selectKey(c.cbVersionLoginProcess, links.loginProcess, "process");
    selectKey(c.cbVersionLogoutProcess, links.logoutProcess, "process");
    selectKey(c.cbVersionTerminateProcess, links.terminateProcess, "process");
    selectKey(c.cbVersionRecoverProcess, links.recoverProcess, "process");
    selectKey(c.cbVersionInitialWindow, links.initialWindow, "window");
    selectKey(c.cbVersionMainWindow, links.mainWindow, "window");

    c.txtVersionID->setFocus();
    c.cmdVersionDelete->setEnabled(true);
    c.cmdVersionSave->setEnabled(false);
    c.cmdVersionSaveAs->setEnabled(false);
    c.cmdAttributes->setEnabled(AttributesEnabled(SelectedKey(c.cbEmulator)));
    VersionIsNew = false;
    VersionDirty = false;
    EditLoading = false;
}

void frmMainForm::ClearVersionFields()
{
    const bool wasLoading = EditLoading;
    EditLoading = true;
    for (QLineEdit* box : {c.txtVersionID, c.txtVersionDesc}) {
        const QSignalBlocker block(box);
        SetBoxText(box, QString());
    }
    {
        const QSignalBlocker block(c.lbVersionList);
        c.lbVersionList->setCurrentRow(-1);
    }
    for (QComboBox* combo : {c.cbVersionMapType, c.cbVersionLoadProcess, c.cbVersionLoginProcess, c.cbVersionLogoutProcess,
                             c.cbVersionTerminateProcess, c.cbVersionRecoverProcess, c.cbVersionInitialWindow,
                             c.cbVersionMainWindow})
        combo->setCurrentIndex(-1);
    VersionListIndex = -1;
    VersionDirty = false;
    VersionIsNew = true;
    for (QPushButton* b : {c.cmdVersionSave, c.cmdVersionSaveAs, c.cmdVersionDelete, c.cmdAttributes})
        b->setEnabled(false);
    EditLoading = wasLoading;
}

void frmMainForm::cmdVersionNew_Click()
{
    ClearVersionFields();
    CurrentVersionKey = 0;
    c.txtVersionID->setFocus();
}

namespace {

VersionInput versionInput(const MainFormControls& c)
{
    VersionInput input;
    input.id = c.txtVersionID->text();
    input.description = c.txtVersionDesc->text();
    input.mapTypeKey = SelectedKey(c.cbVersionMapType);
    input.links.loadProcess = SelectedKey(c.cbVersionLoadProcess);
    input.links.loginProcess = SelectedKey(c.cbVersionLoginProcess);
    input.links.logoutProcess = SelectedKey(c.cbVersionLogoutProcess);
    input.links.terminateProcess = SelectedKey(c.cbVersionTerminateProcess);
    input.links.recoverProcess = SelectedKey(c.cbVersionRecoverProcess);
    input.links.initialWindow = SelectedKey(c.cbVersionInitialWindow);
    input.links.mainWindow = SelectedKey(c.cbVersionMainWindow);
    return input;
}

} // namespace

void frmMainForm::cmdVersionSave_Click()
{
    SaveOk = false;
    VersionApplication app{CurrentAppKey, AppFolderName, AppIsHost, CurrentPlatformKey};
    VersionState state{CurrentVersionKey, VersionIsNew, VersionFolderName};
    VersionRecords records(m_session.repository, m_messages, m_session.plan.sharedResourcePath);
    const VersionSaveOutcome outcome = records.Save(versionInput(c), app, state);
    CurrentVersionKey = outcome.state.CurrentVersionKey;
    VersionIsNew = outcome.state.VersionIsNew;
    VersionFolderName = outcome.state.VersionFolderName;
    if (outcome.dirtyCleared) {
        VersionDirty = false;
        showSavedVersion();
        // The environments page's version drop-down follows when it lists
        // this application's versions.
        if (SelectedKey(c.cbEnvironApp) == CurrentAppKey)
            cbEnvironApp_Click();
    }
    if (outcome.mainTab >= 0)
        c.SSMainTab->setCurrentIndex(outcome.mainTab);
    if (outcome.appTab >= 0)
        c.SSAppTab->setCurrentIndex(outcome.appTab);
    focusField(outcome.focusField);
    if (outcome.SaveOk) {
        ClearVersionFields();
        // The editor now stands on a new version: the saved one's key must
        // not exclude it from the next save's duplicate check.
        CurrentVersionKey = 0;
        SaveOk = true;
    }
}

void frmMainForm::cmdVersionSaveAs_Click()
{
    VersionApplication app{CurrentAppKey, AppFolderName, AppIsHost, CurrentPlatformKey};
    VersionState state{CurrentVersionKey, VersionIsNew, VersionFolderName};
    VersionRecords records(m_session.repository, m_messages, m_session.plan.sharedResourcePath);
    const VersionSaveOutcome outcome = records.SaveAs(versionInput(c), app, state);
    CurrentVersionKey = outcome.state.CurrentVersionKey;
    VersionIsNew = outcome.state.VersionIsNew;
    VersionFolderName = outcome.state.VersionFolderName;
    if (outcome.mainTab >= 0)
        c.SSMainTab->setCurrentIndex(outcome.mainTab);
    if (outcome.appTab >= 0)
        c.SSAppTab->setCurrentIndex(outcome.appTab);
    focusField(outcome.focusField);
    if (outcome.dirtyCleared)
        showSavedVersion();
}

void frmMainForm::showSavedVersion()
{
    RefreshVersionList();
    // The version just written is the one shown, also when the folder
    // work after it failed.
    const bool wasLoading = EditLoading;
    EditLoading = true;
    VersionListIndex = FindListItem(CurrentVersionKey, c.lbVersionList);
    c.lbVersionList->setCurrentRow(VersionListIndex);
    EditLoading = wasLoading;
}

bool frmMainForm::deleteVersionContents(qint32 versionKey)
{
    QtBusyIndicator hourglass;
    const BusyScope busy(&hourglass);
    return DeleteVersionContents(versionKey, m_session.repository, m_messages);
}

void frmMainForm::cmdVersionDelete_Click()
{
    if (!DeleteVersion(m_session.repository, m_messages, CurrentVersionKey, c.txtVersionID->text(),
                       [this](qint32 versionKey) { return deleteVersionContents(versionKey); }))
        return;
    ClearVersionFields();
    CurrentVersionKey = 0;
    RefreshVersionList();
}

} // namespace dorvane
