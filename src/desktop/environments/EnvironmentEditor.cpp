// The environment editor on the Environments page: the definition, the
// configuration (the environment's application versions) and the users
// with their module rights.

#include "core/copyengine/EnvironmentCopy.h"
#include "core/copyengine/VersionBackup.h"
#include "core/copyengine/VersionTransfer.h"
#include "desktop/copyengine/frmVersionProgress.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/environments/EnvironmentConfig.h"
#include "core/environments/EnvironmentRecords.h"
#include "core/environments/EnvironmentUsers.h"
#include "desktop/mainwindow/QtInteraction.h"
#include "core/repository/FilePaths.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/startup/Startup.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>

namespace dorvane {

namespace {

QCheckBox* rightBox(const MainFormControls& c, ModuleRight right)
{
    switch (right) {
    case ModuleRight::Dorvane: return c.ckDorvane;
    case ModuleRight::Omrik: return c.ckOmrik;
    case ModuleRight::Zulane: return c.ckZulane;
    case ModuleRight::Vantrel: return c.ckVantrel;
    case ModuleRight::Krestin: return c.ckKrestin;
    }
    return nullptr;
}

ListEntries listEntries(const QListWidget* list)
{
    ListEntries entries;
    for (int i = 0; i < list->count(); ++i)
        entries.push_back({list->item(i)->text(), ItemKey(list, i)});
    return entries;
}

std::optional<qint32> selectedItemKey(const QListWidget* list)
{
    const int row = list->currentRow();
    if (row < 0 || row >= list->count())
        return std::nullopt;
    return ItemKey(list, row);
}

// The entry the list highlights. A list that gets the focus makes its
// first entry current without highlighting it: that is no choice.
std::optional<qint32> highlightedItemKey(const QListWidget* list)
{
    const QListWidgetItem* item = list->currentItem();
    if (!item || !item->isSelected())
        return std::nullopt;
    return selectedItemKey(list);
}

EnvironDefinitionInput definitionInput(const MainFormControls& c)
{
    EnvironDefinitionInput input;
    input.Name = c.txtEnvironName->text();
    input.Description = c.txtEnvironDesc->text();
    for (const ListEntry& entry : listEntries(c.lbEnvironAppVerList))
        input.ListedVersionKeys.push_back(entry.key);
    return input;
}

EnvironConfigInput configInput(const MainFormControls& c)
{
    EnvironConfigInput input;
    input.AppKey = SelectedKey(c.cbEnvironApp);
    input.AppText = c.cbEnvironApp->currentText();
    input.VersionKey = SelectedKey(c.cbEnvironVer);
    input.VersionText = c.cbEnvironVer->currentText();
    input.TestToolKey = SelectedKey(c.cbEnvironTestTool);
    input.TestToolText = c.cbEnvironTestTool->currentText();
    input.EmulatorKey = SelectedKey(c.cbEnvironEmulator);
    input.EmulatorText = c.cbEnvironEmulator->currentText();
    input.Listed = listEntries(c.lbEnvironAppVerList);
    return input;
}

// Chooses the backup to restore with frmRestoreSelect.
class DialogRestoreChooser : public RestoreChooser {
public:
    explicit DialogRestoreChooser(DialogProvider& dialogs) : m_dialogs(dialogs) {}
    std::optional<QString> ChooseBackup(const QString& folder) override { return m_dialogs.RestoreBackup(folder); }

private:
    DialogProvider& m_dialogs;
};

// Answers the copy's question for a new version ID with frmNewVersionID.
class DialogVersionIds : public NewVersionIdPrompt {
public:
    explicit DialogVersionIds(DialogProvider& dialogs) : m_dialogs(dialogs) {}
    std::optional<QString> Ask(const QString& labelText, const std::function<bool(const QString&)>& okCheck) override
    {
        return m_dialogs.NewVersionID(labelText, okCheck);
    }

private:
    DialogProvider& m_dialogs;
};

} // namespace

void frmMainForm::connectEnvironments()
{
    // Definition.
    connect(c.txtEnvironName, &QLineEdit::textChanged, this, [this] {
        applyEnvironControls(m_environ->TextChanged(EnvironField::Name, EditLoading));
        syncEnvironFlags();
    });
    connect(c.txtEnvironDesc, &QLineEdit::textChanged, this, [this] {
        applyEnvironControls(m_environ->TextChanged(EnvironField::Description, EditLoading));
        syncEnvironFlags();
    });
    connect(c.cmdEnvironNew, &QPushButton::clicked, this, &frmMainForm::cmdEnvironNew_Click);
    connect(c.cmdEnvironSave, &QPushButton::clicked, this, &frmMainForm::cmdEnvironSave_Click);
    connect(c.cmdEnvironSaveAs, &QPushButton::clicked, this, &frmMainForm::cmdEnvironSaveAs_Click);
    connect(c.cmdEnvironDelete, &QPushButton::clicked, this, &frmMainForm::cmdEnvironDelete_Click);
    connect(c.cmdEnvironBackup, &QPushButton::clicked, this, &frmMainForm::cmdEnvironBackup_Click);
    connect(c.cmdEnvironRestore, &QPushButton::clicked, this, &frmMainForm::cmdEnvironRestore_Click);
    connect(c.lbEnvironList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbEnvironList_Click();
    });

    // Configuration.
    connect(c.cbEnvironApp, &QComboBox::activated, this, &frmMainForm::cbEnvironApp_Click);
    connect(c.cbEnvironTestTool, &QComboBox::activated, this, &frmMainForm::cbEnvironTestTool_Click);
    for (QComboBox* combo : {c.cbEnvironVer, c.cbEnvironEmulator}) {
        connect(combo, &QComboBox::activated, this, [this] {
            m_environConfig->MarkDirty();
            syncEnvironFlags();
        });
    }
    connect(c.lbEnvironAppVerList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbEnvironAppVerList_Click();
    });
    connect(c.cmdAddAppVer, &QPushButton::clicked, this, &frmMainForm::cmdAddAppVer_Click);
    connect(c.cmdEnvironConfigSave, &QPushButton::clicked, this, &frmMainForm::cmdEnvironConfigSave_Click);
    connect(c.cmdRemoveAppVer, &QPushButton::clicked, this, &frmMainForm::cmdRemoveAppVer_Click);
    connect(c.cmdUpdateAppVer, &QPushButton::clicked, this, &frmMainForm::cmdUpdateAppVer_Click);
    connect(c.cmdCopyAppVer, &QPushButton::clicked, this, &frmMainForm::cmdCopyAppVer_Click);

    // Users and rights. A box that the program sets while EditLoading is
    // up writes nothing; a click writes that one right at once.
    // The rights boxes belong to the highlighted registered user: they are
    // usable only while one is highlighted. The selection, not the current
    // row, tells (a click selects after it makes the entry current).
    connect(c.lbEnvironUsers, &QListWidget::itemSelectionChanged, this, [this] {
        const bool highlighted = highlightedItemKey(c.lbEnvironUsers).has_value();
        for (const ModuleRight right : kModuleRights)
            rightBox(c, right)->setEnabled(highlighted);
        if (highlighted)
            lbEnvironUsers_Click();
    });
    for (const ModuleRight right : kModuleRights)
        rightBox(c, right)->setEnabled(false);
    connect(c.cmdAddEnvironUser, &QPushButton::clicked, this, &frmMainForm::cmdAddEnvironUser_Click);
    connect(c.cmdRemoveEnvironUser, &QPushButton::clicked, this, &frmMainForm::cmdRemoveEnvironUser_Click);
    for (const ModuleRight right : kModuleRights) {
        connect(rightBox(c, right), &QCheckBox::toggled, this, [this, right](bool checked) {
            m_environUsers->SetRight(right, checked, highlightedItemKey(c.lbEnvironUsers), EditLoading,
                                     m_session.repository, m_messages);
        });
    }

    // The editor starts on a new, empty environment.
    applyEnvironControls(m_environ->Controls());
    c.cbEnvironEmulator->setEnabled(false);
}

// ---------------------------------------------------------------- state

void frmMainForm::syncEnvironFlags()
{
    EnvironDirty = m_environ->EnvironDirty();
    ConfigDirty = m_environConfig->ConfigDirty();
}

void frmMainForm::applyEnvironControls(const EnvironDefinitionControls& controls)
{
    c.cmdEnvironSave->setEnabled(controls.SaveEnabled);
    c.cmdEnvironSaveAs->setEnabled(controls.SaveAsEnabled);
    for (QPushButton* b : {c.cmdEnvironDelete, c.cmdEnvironBackup, c.cmdEnvironRestore})
        b->setEnabled(controls.DeleteEnabled);
    c.SSEnvironTab->setTabEnabled(kEnvironConfigurationTab, controls.TabsEnabled);
    c.SSEnvironTab->setTabEnabled(kEnvironUsersTab, controls.TabsEnabled);
}

void frmMainForm::applyEnvironOutcome(const EnvironOutcome& outcome)
{
    const bool wasLoading = EditLoading;
    if (outcome.ClearForm) {
        EditLoading = true;
        c.txtEnvironName->clear();
        c.txtEnvironDesc->clear();
        for (QComboBox* combo : {c.cbEnvironApp, c.cbEnvironVer, c.cbEnvironTestTool, c.cbEnvironEmulator})
            combo->setCurrentIndex(-1);
        c.cbEnvironEmulator->setEnabled(false);
        c.lbEnvironList->setCurrentRow(-1);
        c.lbEnvironList->clearSelection();
        c.lbEnvironAppVerList->clear();
        EditLoading = wasLoading;
    }
    if (outcome.Name || outcome.Description) {
        EditLoading = true;
        SetBoxText(c.txtEnvironName, outcome.Name.value_or(QString()));
        SetBoxText(c.txtEnvironDesc, outcome.Description.value_or(QString()));
        EditLoading = wasLoading;
    }
    if (outcome.RefreshEnvironList)
        RefreshEnvironList();
    if (outcome.RefreshEnvironAppVerList)
        RefreshEnvironAppVerList();
    if (outcome.RefreshEnvironUsers)
        RefreshEnvironUsers();
    if (outcome.SelectEnvironKey) {
        EditLoading = true;
        const int index = FindListItem(*outcome.SelectEnvironKey, c.lbEnvironList);
        c.lbEnvironList->setCurrentRow(index);
        m_environ->SetEnvironListIndex(index);
        EditLoading = false;
    }
    applyEnvironControls(outcome.Controls);
    if (outcome.ShowTab >= 0)
        c.SSEnvironTab->setCurrentIndex(outcome.ShowTab);
    if (!outcome.FocusField.isEmpty()) {
        // A check that failed (also from a save prompt on another page)
        // shows the field to correct.
        c.SSMainTab->setCurrentIndex(EnvironmentsPage);
        if (!outcome.Ok)
            c.SSEnvironTab->setCurrentIndex(kEnvironDefinitionTab);
        focusField(outcome.FocusField);
    }
    syncEnvironFlags();
}

frmVersionProgress& frmMainForm::progressWindow()
{
    if (!m_progress)
        m_progress = new frmVersionProgress(this);
    return *m_progress;
}

// ---------------------------------------------------------------- definition

void frmMainForm::cmdEnvironNew_Click()
{
    applyEnvironOutcome(m_environ->New());
}

void frmMainForm::lbEnvironList_Click()
{
    if (EditLoading)
        return;
    EditLoading = true;
    if (EnvironDirty && EnvironExitCancel()) {
        returnToRow(c.lbEnvironList, m_environ->EnvironListIndex());
        EditLoading = false;
        return;
    }
    // A save on the way may have refilled the lists.
    EditLoading = true;
    const int index = c.lbEnvironList->currentRow();
    applyEnvironOutcome(m_environ->Open(index, ItemKey(c.lbEnvironList, index), m_session.repository, m_messages));
    EditLoading = false;
}

void frmMainForm::cmdEnvironSave_Click()
{
    SaveOk = false;
    const EnvironOutcome outcome = m_environ->Save(definitionInput(c), m_session.repository, m_messages,
                                                   BackupFolderMover(m_session.plan.sharedResourcePath));
    applyEnvironOutcome(outcome);
    SaveOk = outcome.Ok;
}

void frmMainForm::cmdEnvironSaveAs_Click()
{
    SaveOk = false;
    QtBusyIndicator hourglass;
    VersionBackup engine(m_messages, progressWindow(), m_session.plan.connectionString, &hourglass);
    DialogVersionIds prompt(dialogs());
    EnvironmentCopy copy(engine, m_session.repository, prompt, &m_session.testData);
    const EnvironDefinitionInput input = definitionInput(c);
    const EnvironOutcome outcome = m_environ->SaveAs(input, copy, m_messages);
    applyEnvironOutcome(outcome);
    SaveOk = outcome.Ok;
    if (outcome.Ok)
        showDone(QStringLiteral("Saved as %1, with a copy of every version.").arg(NormaliseEnvironNameForSaveAs(input.Name)));
}

void frmMainForm::cmdEnvironDelete_Click()
{
    applyEnvironOutcome(m_environ->Delete(c.lbEnvironList->currentRow() >= 0, m_session.repository, m_messages));
}

void frmMainForm::cmdEnvironBackup_Click()
{
    QtBusyIndicator hourglass;
    VersionBackup engine(m_messages, progressWindow(), m_session.plan.connectionString, &hourglass);
    EnvironmentBackup backup(engine, m_session.plan.sharedResourcePath, m_session.plan.installationPath);
    if (backup.AskAndBackUp(m_environ->CurrentEnvironKey(), m_environ->CurrentEnvironName()))
        showDone(QStringLiteral("Backed up %1 to %2.").arg(m_environ->CurrentEnvironName(), NativePath(backup.LastBackupFile())));
}

void frmMainForm::cmdEnvironRestore_Click()
{
    QtBusyIndicator hourglass;
    VersionBackup engine(m_messages, progressWindow(), m_session.plan.connectionString, &hourglass);
    EnvironmentBackup backup(engine, m_session.plan.sharedResourcePath, m_session.plan.installationPath);
    DialogRestoreChooser chooser(dialogs());
    const QString name = m_environ->CurrentEnvironName();
    if (!backup.ChooseAndRestore(m_environ->CurrentEnvironKey(), name, chooser))
        return;
    showDone(QStringLiteral("Restored %1 from its backup.").arg(name));
    RefreshEnvironList();
    RefreshEnvironAppVerList();
    cmdEnvironNew_Click();
}

// ---------------------------------------------------------------- configuration

void frmMainForm::cbEnvironApp_Click()
{
    const std::optional<qint32> appKey = SelectedKey(c.cbEnvironApp);
    if (!appKey)
        return;
    const EnvironAppChoice choice = m_environConfig->ChooseApp(*appKey, m_session.repository, m_messages);
    syncEnvironFlags();
    if (!choice.Ok)
        return;
    if (choice.PreselectEmulator)
        c.cbEnvironEmulator->setCurrentIndex(FindComboItem(*choice.PreselectEmulator, c.cbEnvironEmulator));
    c.cbEnvironVer->clear();
    fillCombo(c.cbEnvironVer, choice.Versions);
    c.cbEnvironVer->setCurrentIndex(-1);
}

void frmMainForm::cbEnvironTestTool_Click()
{
    const std::optional<qint32> toolKey = SelectedKey(c.cbEnvironTestTool);
    if (!toolKey)
        return;
    const EnvironTestToolChoice choice =
        m_environConfig->ChooseTestTool(*toolKey, EditLoading, m_session.repository, m_messages);
    syncEnvironFlags();
    if (choice.Ok)
        c.cbEnvironEmulator->setEnabled(choice.EmulatorUsable);
}

void frmMainForm::lbEnvironAppVerList_Click()
{
    const std::optional<qint32> versionKey = selectedItemKey(c.lbEnvironAppVerList);
    if (!versionKey)
        return;
    const EnvironListedVersion listed =
        m_environConfig->HighlightListed(*versionKey, EditLoading, m_session.repository, m_messages);
    syncEnvironFlags();
    if (!listed.Ok)
        return;
    const bool wasLoading = EditLoading;
    EditLoading = true;
    c.cbEnvironApp->setCurrentIndex(FindComboItem(listed.AppKey, c.cbEnvironApp));
    c.cbEnvironVer->clear();
    fillCombo(c.cbEnvironVer, listed.Versions);
    c.cbEnvironVer->setCurrentIndex(FindComboItem(listed.VersionKey, c.cbEnvironVer));
    if (listed.TestToolKey)
        c.cbEnvironTestTool->setCurrentIndex(FindComboItem(*listed.TestToolKey, c.cbEnvironTestTool));
    c.cbEnvironEmulator->setCurrentIndex(listed.EmulatorKey ? FindComboItem(*listed.EmulatorKey, c.cbEnvironEmulator)
                                                            : -1);
    c.cbEnvironEmulator->setEnabled(c.cbEnvironTestTool->currentText() == kHostTestTool);
    EditLoading = wasLoading;
}

void frmMainForm::cmdAddAppVer_Click()
{
    const EnvironAddOutcome outcome = m_environConfig->Add(configInput(c), m_session.repository, m_messages);
    if (outcome.NewEntry)
        fillList(c.lbEnvironAppVerList, {*outcome.NewEntry});
    syncEnvironFlags();
}

void frmMainForm::cmdEnvironConfigSave_Click()
{
    SaveOk = false;
    EnvironAddOutcome added;
    const bool saved = m_environConfig->SaveConfiguration(configInput(c), m_session.repository, m_messages, &added);
    if (added.NewEntry)
        fillList(c.lbEnvironAppVerList, {*added.NewEntry});
    syncEnvironFlags();
    SaveOk = saved;
}

void frmMainForm::cmdRemoveAppVer_Click()
{
    const int row = c.lbEnvironAppVerList->currentRow();
    const EnvironRemoveOutcome outcome =
        m_environConfig->Remove(selectedItemKey(c.lbEnvironAppVerList), m_session.repository, m_messages);
    if (outcome.Ok) {
        const bool wasLoading = EditLoading;
        EditLoading = true;
        delete c.lbEnvironAppVerList->takeItem(row);
        // Nothing is highlighted now, and the drop-downs no longer show the
        // removed version: a Save cannot put it back.
        c.lbEnvironAppVerList->setCurrentRow(-1);
        c.lbEnvironAppVerList->clearSelection();
        for (QComboBox* combo : {c.cbEnvironApp, c.cbEnvironVer, c.cbEnvironTestTool, c.cbEnvironEmulator})
            combo->setCurrentIndex(-1);
        EditLoading = wasLoading;
    }
    syncEnvironFlags();
}

void frmMainForm::transferVersion(bool update)
{
    VersionTransferRequest request;
    request.EnvironKey = m_environ->CurrentEnvironKey();
    request.ListedVersionKey = selectedItemKey(c.lbEnvironAppVerList);
    request.AppKey = ComboKey(c.cbEnvironApp, c.cbEnvironApp->currentIndex());
    request.ChosenVersionText = c.cbEnvironVer->currentText();
    request.ChosenVersionKey = ComboKey(c.cbEnvironVer, c.cbEnvironVer->currentIndex());

    QtBusyIndicator hourglass;
    VersionBackup backup(m_messages, progressWindow(), m_session.plan.connectionString, &hourglass);
    const VersionTransferOutcome outcome =
        TransferVersion(update ? VersionTransferKind::Update : VersionTransferKind::Copy, request,
                        m_session.repository, backup, m_messages);
    if (outcome.Ok) {
        m_environConfig->VersionCommandDone();
        if (outcome.RefreshEnvironAppVerList)
            RefreshEnvironAppVerList();
    }
    syncEnvironFlags();
}

void frmMainForm::cmdUpdateAppVer_Click() { transferVersion(true); }
void frmMainForm::cmdCopyAppVer_Click() { transferVersion(false); }

// ---------------------------------------------------------------- users

void frmMainForm::ClearRightsBoxes()
{
    for (const ModuleRight right : kModuleRights)
        rightBox(c, right)->setChecked(false);
}

void frmMainForm::lbEnvironUsers_Click()
{
    const std::optional<qint32> userKey = highlightedItemKey(c.lbEnvironUsers);
    if (!userKey)
        return;
    const std::optional<ModuleRights> rights =
        m_environUsers->Highlight(*userKey, EditLoading, m_session.repository, m_messages);
    syncEnvironFlags();
    if (!rights)
        return;
    EditLoading = true;
    for (const ModuleRight right : kModuleRights)
        rightBox(c, right)->setChecked((*rights)[size_t(right)]);
    EditLoading = false;
}

namespace {

// Moves the entry at `index` from one list box to the other, as the users
// page's Add and Remove do.
void moveUser(QListWidget* fromList, QListWidget* toList, int index)
{
    ListEntries from = listEntries(fromList);
    ListEntries to = listEntries(toList);
    int fromSelection = fromList->currentRow();
    int toSelection = toList->currentRow();
    MoveUserEntry(from, fromSelection, to, toSelection, index);
    const auto refill = [](QListWidget* list, const ListEntries& entries, int selection) {
        list->clear();
        for (const ListEntry& entry : entries) {
            auto* item = new QListWidgetItem(entry.text, list);
            item->setData(Qt::UserRole, entry.key);
        }
        list->setCurrentRow(selection);
    };
    refill(fromList, from, fromSelection);
    refill(toList, to, toSelection);
}

} // namespace

void frmMainForm::cmdAddEnvironUser_Click()
{
    const int row = c.lbEnvironUserList->currentRow();
    if (!m_environUsers->Add(selectedItemKey(c.lbEnvironUserList), m_session.repository, m_messages))
        return;
    EditLoading = true;
    ClearRightsBoxes();
    moveUser(c.lbEnvironUserList, c.lbEnvironUsers, row);
    EditLoading = false;
}

void frmMainForm::cmdRemoveEnvironUser_Click()
{
    const int row = c.lbEnvironUsers->currentRow();
    if (!m_environUsers->Remove(selectedItemKey(c.lbEnvironUsers), m_session.repository, m_messages))
        return;
    // The boxes are cleared by the program: nothing is written for them.
    // No registered user stays highlighted, so that the cleared boxes are
    // not taken for the rights of the one next in the list.
    EditLoading = true;
    ClearRightsBoxes();
    moveUser(c.lbEnvironUsers, c.lbEnvironUserList, row);
    c.lbEnvironUsers->setCurrentRow(-1);
    c.lbEnvironUsers->clearSelection();
    EditLoading = false;
}

} // namespace dorvane
