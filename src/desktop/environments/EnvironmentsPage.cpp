// The Environments page: the environment editor's definition, its
// configuration (the environment's application versions) and its users
// with their module rights.

#include "desktop/environments/EnvironmentsPage.h"

#include "core/copyengine/EnvironmentCopy.h"
#include "core/copyengine/VersionBackup.h"
#include "core/copyengine/VersionTransfer.h"
#include "desktop/copyengine/frmVersionProgress.h"
#include "core/environments/EnvironmentBackup.h"
#include "core/environments/RestorePreview.h"
#include "core/environments/EnvironmentConfig.h"
#include "core/environments/EnvironmentRecords.h"
#include "core/environments/EnvironmentUsers.h"
#include "desktop/mainwindow/DialogProvider.h"
#include "desktop/mainwindow/ListControls.h"
#include "desktop/mainwindow/QtInteraction.h"
#include "core/repository/FilePaths.h"
#include "core/repository/History.h"
#include "core/repository/SchemaDdl.h"
#include "desktop/environments/frmHistory.h"
#include "core/startup/Startup.h"


namespace dorvane {

namespace {

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

// Chooses the backup to restore with frmRestoreSelect.
class DialogRestoreChooser : public RestoreChooser {
public:
    explicit DialogRestoreChooser(DialogProvider& dialogs) : m_dialogs(dialogs) {}
    std::optional<QString> ChooseBackup(const QString& folder) override
    {
        const std::optional<QString> chosen = m_dialogs.RestoreBackup(folder);
        if (chosen)
            Chosen = chosen->section(QLatin1Char('\\'), -1);
        return chosen;
    }
    QString Chosen;  // the file name of the last backup chosen

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

EnvironmentsPage::EnvironmentsPage(PageContext& context, QWidget* parent)
    : EditorPage(context, parent),
      m_environ(std::make_unique<EnvironmentRecords>()),
      m_environConfig(std::make_unique<EnvironmentConfig>(*m_environ)),
      m_environUsers(std::make_unique<EnvironmentUsers>(*m_environ, m_registeredUserKey))
{
    setupUi(this);
    KeepTypingLimits(this);
    setFirstField(txtEnvironName);

    // Definition.
    connect(txtEnvironName, &QLineEdit::textChanged, this, [this] {
        applyEnvironControls(m_environ->TextChanged(EnvironField::Name, m_editLoading));
        syncEnvironFlags();
    });
    connect(txtEnvironDesc, &QLineEdit::textChanged, this, [this] {
        applyEnvironControls(m_environ->TextChanged(EnvironField::Description, m_editLoading));
        syncEnvironFlags();
    });
    connect(cmdEnvironNew, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironNew_Click);
    connect(cmdEnvironSave, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironSave_Click);
    connect(cmdEnvironSaveAs, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironSaveAs_Click);
    connect(cmdEnvironDelete, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironDelete_Click);
    connect(cmdEnvironBackup, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironBackup_Click);
    connect(cmdEnvironRestore, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironRestore_Click);
    connect(cmdEnvironHistory, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironHistory_Click);
    connect(lbEnvironList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbEnvironList_Click();
    });

    // Configuration.
    connect(cbEnvironApp, &QComboBox::activated, this, &EnvironmentsPage::cbEnvironApp_Click);
    connect(cbEnvironTestTool, &QComboBox::activated, this, &EnvironmentsPage::cbEnvironTestTool_Click);
    for (QComboBox* combo : {cbEnvironVer, cbEnvironEmulator}) {
        connect(combo, &QComboBox::activated, this, [this] {
            m_environConfig->MarkDirty();
            syncEnvironFlags();
        });
    }
    connect(lbEnvironAppVerList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbEnvironAppVerList_Click();
    });
    connect(cmdAddAppVer, &QPushButton::clicked, this, &EnvironmentsPage::cmdAddAppVer_Click);
    connect(cmdEnvironConfigSave, &QPushButton::clicked, this, &EnvironmentsPage::cmdEnvironConfigSave_Click);
    connect(cmdRemoveAppVer, &QPushButton::clicked, this, &EnvironmentsPage::cmdRemoveAppVer_Click);
    connect(cmdUpdateAppVer, &QPushButton::clicked, this, &EnvironmentsPage::cmdUpdateAppVer_Click);
    connect(cmdCopyAppVer, &QPushButton::clicked, this, &EnvironmentsPage::cmdCopyAppVer_Click);

    // Users and rights. A box that the program sets while EditLoading is
    // up writes nothing; a click writes that one right at once.
    // The rights boxes belong to the highlighted registered user: they are
    // usable only while one is highlighted. The selection, not the current
    // row, tells (a click selects after it makes the entry current).
    connect(lbEnvironUsers, &QListWidget::itemSelectionChanged, this, [this] {
        const bool highlighted = highlightedItemKey(lbEnvironUsers).has_value();
        for (const ModuleRight right : kModuleRights)
            rightBox(right)->setEnabled(highlighted);
        if (highlighted)
            lbEnvironUsers_Click();
    });
    connect(cmdAddEnvironUser, &QPushButton::clicked, this, &EnvironmentsPage::cmdAddEnvironUser_Click);
    connect(cmdRemoveEnvironUser, &QPushButton::clicked, this, &EnvironmentsPage::cmdRemoveEnvironUser_Click);
    for (const ModuleRight right : kModuleRights) {
        connect(rightBox(right), &QCheckBox::toggled, this, [this, right](bool checked) {
            m_environUsers->SetRight(right, checked, highlightedItemKey(lbEnvironUsers), m_editLoading,
                                     session().repository, messages());
        });
    }

    // The editor starts on a new, empty environment.
    applyEnvironControls(m_environ->Controls());
    connect(cmdEnvironPrint, &QPushButton::clicked, this, [this] { printList(QStringLiteral("Environments"), lbEnvironList); });
}

EnvironmentsPage::~EnvironmentsPage() = default;

qint32 EnvironmentsPage::CurrentEnvironKey() const { return m_environ->CurrentEnvironKey(); }

QCheckBox* EnvironmentsPage::rightBox(ModuleRight right) const
{
    switch (right) {
    case ModuleRight::Dorvane: return ckDorvane;
    case ModuleRight::Omrik: return ckOmrik;
    case ModuleRight::Zulane: return ckZulane;
    case ModuleRight::Vantrel: return ckVantrel;
    case ModuleRight::Krestin: return ckKrestin;
    }
    return nullptr;
}

EnvironDefinitionInput EnvironmentsPage::definitionInput() const
{
    EnvironDefinitionInput input;
    input.Name = txtEnvironName->text();
    input.Description = txtEnvironDesc->text();
    for (const ListEntry& entry : listEntries(lbEnvironAppVerList))
        input.ListedVersionKeys.push_back(entry.key);
    return input;
}

EnvironConfigInput EnvironmentsPage::configInput() const
{
    EnvironConfigInput input;
    input.AppKey = SelectedKey(cbEnvironApp);
    input.AppText = cbEnvironApp->currentText();
    input.VersionKey = SelectedKey(cbEnvironVer);
    input.VersionText = cbEnvironVer->currentText();
    input.TestToolKey = SelectedKey(cbEnvironTestTool);
    input.TestToolText = cbEnvironTestTool->currentText();
    input.EmulatorKey = SelectedKey(cbEnvironEmulator);
    input.EmulatorText = cbEnvironEmulator->currentText();
    input.Listed = listEntries(lbEnvironAppVerList);
    return input;
}

// ---------------------------------------------------------------- loaders

void EnvironmentsPage::ShowApplications(const ListEntries& apps)
{
    cbEnvironApp->clear();
    FillCombo(cbEnvironApp, apps);
    cbEnvironApp->setCurrentIndex(-1);
}

void EnvironmentsPage::ShowUserList(const ListEntries& users)
{
    lbEnvironUserList->clear();
    FillList(lbEnvironUserList, users);
}

void EnvironmentsPage::ShowReferenceLists(const ListEntries& testTools, const ListEntries& emulators)
{
    cbEnvironTestTool->clear();
    cbEnvironEmulator->clear();
    FillCombo(cbEnvironTestTool, testTools);
    FillCombo(cbEnvironEmulator, emulators);
    cbEnvironTestTool->setCurrentIndex(-1);
    cbEnvironEmulator->setCurrentIndex(-1);
}

void EnvironmentsPage::RefreshEnvironUsers(const std::vector<UserListItem>* users)
{
    const EnvironUserLists lists = m_environUsers->Refresh(session().repository, messages(), users);
    m_editLoading = true;
    lbEnvironUserList->clear();
    lbEnvironUsers->clear();
    FillList(lbEnvironUserList, lists.Unregistered);
    FillList(lbEnvironUsers, lists.Registered);
    // No registered user is highlighted any more: the boxes show no one's rights.
    ClearRightsBoxes();
    m_editLoading = false;
}

void EnvironmentsPage::RefreshEnvironList()
{
    m_editLoading = true;
    lbEnvironList->clear();
    ListEntries entries;
    LoadEntries(messages(), QStringLiteral("environment"), entries, EnvironmentEntries(session().repository));
    FillList(lbEnvironList, entries);
    m_environCount = static_cast<qint16>(entries.size());
    m_editLoading = false;
}

void EnvironmentsPage::RefreshEnvironAppVerList()
{
    lbEnvironAppVerList->clear();
    FillList(lbEnvironAppVerList, m_environConfig->RefreshEnvironAppVerList(session().repository, messages()));
    syncEnvironFlags();
}

void EnvironmentsPage::ApplicationVersionsChanged(qint32 appKey)
{
    if (SelectedKey(cbEnvironApp) == appKey)
        cbEnvironApp_Click();
}

bool EnvironmentsPage::EnvironExitCancel()
{
    const auto saveDefinition = [this] {
        const int index = lbEnvironList->currentRow();
        cmdEnvironSave_Click();
        // Putting the selection back is not a click on the list.
        const bool wasLoading = m_editLoading;
        m_editLoading = true;
        lbEnvironList->setCurrentRow(index);
        m_editLoading = wasLoading;
        return m_saveOk;
    };
    const auto saveConfiguration = [this] {
        cmdEnvironConfigSave_Click();
        return m_saveOk;
    };
    return dorvane::EnvironExitCancel(m_environDirty, m_configDirty, messages(), saveDefinition, saveConfiguration);
}

// ---------------------------------------------------------------- state

void EnvironmentsPage::syncEnvironFlags()
{
    m_environDirty = m_environ->EnvironDirty();
    m_configDirty = m_environConfig->ConfigDirty();
}

void EnvironmentsPage::applyEnvironControls(const EnvironDefinitionControls& controls)
{
    cmdEnvironSave->setEnabled(controls.SaveEnabled);
    cmdEnvironSaveAs->setEnabled(controls.SaveAsEnabled);
    for (QPushButton* b : {cmdEnvironDelete, cmdEnvironBackup, cmdEnvironRestore})
        b->setEnabled(controls.DeleteEnabled);
    SSEnvironTab->setTabEnabled(kEnvironConfigurationTab, controls.TabsEnabled);
    SSEnvironTab->setTabEnabled(kEnvironUsersTab, controls.TabsEnabled);
}

void EnvironmentsPage::applyEnvironOutcome(const EnvironOutcome& outcome)
{
    const bool wasLoading = m_editLoading;
    if (outcome.ClearForm) {
        m_editLoading = true;
        txtEnvironName->clear();
        txtEnvironDesc->clear();
        for (QComboBox* combo : {cbEnvironApp, cbEnvironVer, cbEnvironTestTool, cbEnvironEmulator})
            combo->setCurrentIndex(-1);
        cbEnvironEmulator->setEnabled(false);
        lbEnvironList->setCurrentRow(-1);
        lbEnvironList->clearSelection();
        lbEnvironAppVerList->clear();
        m_editLoading = wasLoading;
    }
    if (outcome.Name || outcome.Description) {
        m_editLoading = true;
        SetBoxText(txtEnvironName, outcome.Name.value_or(QString()));
        SetBoxText(txtEnvironDesc, outcome.Description.value_or(QString()));
        m_editLoading = wasLoading;
    }
    if (outcome.RefreshEnvironList)
        RefreshEnvironList();
    if (outcome.RefreshEnvironAppVerList)
        RefreshEnvironAppVerList();
    if (outcome.RefreshEnvironUsers)
        RefreshEnvironUsers();
    if (outcome.SelectEnvironKey) {
        m_editLoading = true;
        const int index = FindListItem(*outcome.SelectEnvironKey, lbEnvironList);
        lbEnvironList->setCurrentRow(index);
        m_environ->SetEnvironListIndex(index);
        m_editLoading = false;
    }
    applyEnvironControls(outcome.Controls);
    if (outcome.ShowTab >= 0)
        SSEnvironTab->setCurrentIndex(outcome.ShowTab);
    if (!outcome.FocusField.isEmpty()) {
        // A check that failed (also from a save prompt on another page)
        // shows the field to correct.
        emit showRequested();
        if (!outcome.Ok)
            SSEnvironTab->setCurrentIndex(kEnvironDefinitionTab);
        focusField(outcome.FocusField);
    }
    syncEnvironFlags();
}

frmVersionProgress& EnvironmentsPage::progressWindow()
{
    if (!m_progress)
        m_progress = new frmVersionProgress(window());
    return *m_progress;
}

// ---------------------------------------------------------------- definition

void EnvironmentsPage::cmdEnvironNew_Click()
{
    applyEnvironOutcome(m_environ->New());
}

void EnvironmentsPage::lbEnvironList_Click()
{
    if (m_editLoading)
        return;
    m_editLoading = true;
    if (m_environDirty && EnvironExitCancel()) {
        returnToRow(lbEnvironList, m_environ->EnvironListIndex());
        m_editLoading = false;
        return;
    }
    // A save on the way may have refilled the lists.
    m_editLoading = true;
    const int index = lbEnvironList->currentRow();
    applyEnvironOutcome(m_environ->Open(index, ItemKey(lbEnvironList, index), session().repository, messages()));
    m_editLoading = false;
}

void EnvironmentsPage::cmdEnvironSave_Click()
{
    m_saveOk = false;
    const EnvironOutcome outcome = m_environ->Save(definitionInput(), session().repository, messages(),
                                                   BackupFolderMover(session().plan.sharedResourcePath));
    applyEnvironOutcome(outcome);
    m_saveOk = outcome.Ok;
}

void EnvironmentsPage::cmdEnvironSaveAs_Click()
{
    m_saveOk = false;
    QtBusyIndicator hourglass;
    VersionBackup engine(messages(), progressWindow(), session().plan.connectionString, &hourglass);
    DialogVersionIds prompt(dialogs());
    EnvironmentCopy copy(engine, session().repository, prompt, &session().testData);
    const EnvironDefinitionInput input = definitionInput();
    const EnvironOutcome outcome = m_environ->SaveAs(input, copy, messages());
    applyEnvironOutcome(outcome);
    m_saveOk = outcome.Ok;
    if (outcome.Ok)
        emit operationDone(QStringLiteral("Saved as %1, with a copy of every version.").arg(NormaliseEnvironNameForSaveAs(input.Name)));
}

void EnvironmentsPage::cmdEnvironDelete_Click()
{
    applyEnvironOutcome(m_environ->Delete(lbEnvironList->currentRow() >= 0, session().repository, messages()));
}

void EnvironmentsPage::cmdEnvironBackup_Click()
{
    QtBusyIndicator hourglass;
    VersionBackup engine(messages(), progressWindow(), session().plan.connectionString, &hourglass);
    EnvironmentBackup backup(engine, session().plan.sharedResourcePath, session().plan.installationPath);
    if (backup.AskAndBackUp(m_environ->CurrentEnvironKey(), m_environ->CurrentEnvironName()))
        emit operationDone(QStringLiteral("Backed up %1 to %2.").arg(m_environ->CurrentEnvironName(), NativePath(backup.LastBackupFile())));
}

void EnvironmentsPage::cmdEnvironRestore_Click()
{
    QtBusyIndicator hourglass;
    VersionBackup engine(messages(), progressWindow(), session().plan.connectionString, &hourglass);
    EnvironmentBackup backup(engine, session().plan.sharedResourcePath, session().plan.installationPath);
    DialogRestoreChooser chooser(dialogs());
    // Once the file has passed its checks: what the restore will replace,
    // and whether to go on.
    backup.BeforeRestore = [&](qint32 key, Connection& file, Connection& repository) {
        return messages().Show(RestoreQuestion(PreviewRestore(repository, key, file), chooser.Chosen), Buttons::YesNo) ==
               Answer::Yes;
    };
    const QString name = m_environ->CurrentEnvironName();
    if (!backup.ChooseAndRestore(m_environ->CurrentEnvironKey(), name, chooser))
        return;
    emit operationDone(QStringLiteral("Restored %1 from its backup.").arg(name));
    RefreshEnvironList();
    RefreshEnvironAppVerList();
    cmdEnvironNew_Click();
}

// The history of every environment's operations, in a window of its own
// that stays open beside the page.
void EnvironmentsPage::cmdEnvironHistory_Click()
{
    std::vector<HistoryEntry> entries;
    try {
        if (!HistoryTableExists(session().repository)) {
            messages().Inform(kNoHistoryTable);
            return;
        }
        entries = ReadHistory(session().repository, {});
    } catch (const DbError& e) {
        messages().Inform(QStringLiteral("Error while reading the history: ") + e.description());
        return;
    }
    auto* dialog = new frmHistory(entries, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

// ---------------------------------------------------------------- configuration

void EnvironmentsPage::cbEnvironApp_Click()
{
    const std::optional<qint32> appKey = SelectedKey(cbEnvironApp);
    if (!appKey)
        return;
    const EnvironAppChoice choice = m_environConfig->ChooseApp(*appKey, session().repository, messages());
    syncEnvironFlags();
    if (!choice.Ok)
        return;
    if (choice.PreselectEmulator)
        cbEnvironEmulator->setCurrentIndex(FindComboItem(*choice.PreselectEmulator, cbEnvironEmulator));
    cbEnvironVer->clear();
    FillCombo(cbEnvironVer, choice.Versions);
    cbEnvironVer->setCurrentIndex(-1);
}

void EnvironmentsPage::cbEnvironTestTool_Click()
{
    const std::optional<qint32> toolKey = SelectedKey(cbEnvironTestTool);
    if (!toolKey)
        return;
    const EnvironTestToolChoice choice =
        m_environConfig->ChooseTestTool(*toolKey, m_editLoading, session().repository, messages());
    syncEnvironFlags();
    if (choice.Ok)
        cbEnvironEmulator->setEnabled(choice.EmulatorUsable);
}

void EnvironmentsPage::lbEnvironAppVerList_Click()
{
    const std::optional<qint32> versionKey = selectedItemKey(lbEnvironAppVerList);
    if (!versionKey)
        return;
    const EnvironListedVersion listed =
        m_environConfig->HighlightListed(*versionKey, m_editLoading, session().repository, messages());
    syncEnvironFlags();
    if (!listed.Ok)
        return;
    const bool wasLoading = m_editLoading;
    m_editLoading = true;
    cbEnvironApp->setCurrentIndex(FindComboItem(listed.AppKey, cbEnvironApp));
    cbEnvironVer->clear();
    FillCombo(cbEnvironVer, listed.Versions);
    cbEnvironVer->setCurrentIndex(FindComboItem(listed.VersionKey, cbEnvironVer));
    if (listed.TestToolKey)
        cbEnvironTestTool->setCurrentIndex(FindComboItem(*listed.TestToolKey, cbEnvironTestTool));
    cbEnvironEmulator->setCurrentIndex(listed.EmulatorKey ? FindComboItem(*listed.EmulatorKey, cbEnvironEmulator)
                                                            : -1);
    cbEnvironEmulator->setEnabled(cbEnvironTestTool->currentText() == kHostTestTool);
    m_editLoading = wasLoading;
}

void EnvironmentsPage::cmdAddAppVer_Click()
{
    const EnvironAddOutcome outcome = m_environConfig->Add(configInput(), session().repository, messages());
    if (outcome.NewEntry)
        FillList(lbEnvironAppVerList, {*outcome.NewEntry});
    syncEnvironFlags();
}

void EnvironmentsPage::cmdEnvironConfigSave_Click()
{
    m_saveOk = false;
    EnvironAddOutcome added;
    const bool saved = m_environConfig->SaveConfiguration(configInput(), session().repository, messages(), &added);
    if (added.NewEntry)
        FillList(lbEnvironAppVerList, {*added.NewEntry});
    syncEnvironFlags();
    m_saveOk = saved;
}

void EnvironmentsPage::cmdRemoveAppVer_Click()
{
    const int row = lbEnvironAppVerList->currentRow();
    const EnvironRemoveOutcome outcome =
        m_environConfig->Remove(selectedItemKey(lbEnvironAppVerList), session().repository, messages());
    if (outcome.Ok) {
        const bool wasLoading = m_editLoading;
        m_editLoading = true;
        delete lbEnvironAppVerList->takeItem(row);
        // Nothing is highlighted now, and the drop-downs no longer show the
        // removed version: a Save cannot put it back.
        lbEnvironAppVerList->setCurrentRow(-1);
        lbEnvironAppVerList->clearSelection();
        for (QComboBox* combo : {cbEnvironApp, cbEnvironVer, cbEnvironTestTool, cbEnvironEmulator})
            combo->setCurrentIndex(-1);
        m_editLoading = wasLoading;
    }
    syncEnvironFlags();
}

void EnvironmentsPage::transferVersion(bool update)
{
    VersionTransferRequest request;
    request.EnvironKey = m_environ->CurrentEnvironKey();
    request.ListedVersionKey = selectedItemKey(lbEnvironAppVerList);
    request.AppKey = ComboKey(cbEnvironApp, cbEnvironApp->currentIndex());
    request.ChosenVersionText = cbEnvironVer->currentText();
    request.ChosenVersionKey = ComboKey(cbEnvironVer, cbEnvironVer->currentIndex());

    QtBusyIndicator hourglass;
    VersionBackup backup(messages(), progressWindow(), session().plan.connectionString, &hourglass);
    const VersionTransferOutcome outcome =
        TransferVersion(update ? VersionTransferKind::Update : VersionTransferKind::Copy, request,
                        session().repository, backup, messages());
    if (outcome.Ok) {
        m_environConfig->VersionCommandDone();
        if (outcome.RefreshEnvironAppVerList)
            RefreshEnvironAppVerList();
    }
    syncEnvironFlags();
}

void EnvironmentsPage::cmdUpdateAppVer_Click() { transferVersion(true); }
void EnvironmentsPage::cmdCopyAppVer_Click() { transferVersion(false); }

// ---------------------------------------------------------------- users

void EnvironmentsPage::ClearRightsBoxes()
{
    for (const ModuleRight right : kModuleRights)
        rightBox(right)->setChecked(false);
}

void EnvironmentsPage::lbEnvironUsers_Click()
{
    const std::optional<qint32> userKey = highlightedItemKey(lbEnvironUsers);
    if (!userKey)
        return;
    const std::optional<ModuleRights> rights =
        m_environUsers->Highlight(*userKey, m_editLoading, session().repository, messages());
    syncEnvironFlags();
    if (!rights)
        return;
    m_editLoading = true;
    for (const ModuleRight right : kModuleRights)
        rightBox(right)->setChecked((*rights)[size_t(right)]);
    m_editLoading = false;
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

void EnvironmentsPage::cmdAddEnvironUser_Click()
{
    const int row = lbEnvironUserList->currentRow();
    if (!m_environUsers->Add(selectedItemKey(lbEnvironUserList), session().repository, messages()))
        return;
    m_editLoading = true;
    ClearRightsBoxes();
    moveUser(lbEnvironUserList, lbEnvironUsers, row);
    m_editLoading = false;
}

void EnvironmentsPage::cmdRemoveEnvironUser_Click()
{
    const int row = lbEnvironUsers->currentRow();
    if (!m_environUsers->Remove(selectedItemKey(lbEnvironUsers), session().repository, messages()))
        return;
    // The boxes are cleared by the program: nothing is written for them.
    // No registered user stays highlighted, so that the cleared boxes are
    // not taken for the rights of the one next in the list.
    m_editLoading = true;
    ClearRightsBoxes();
    moveUser(lbEnvironUsers, lbEnvironUserList, row);
    lbEnvironUsers->setCurrentRow(-1);
    lbEnvironUsers->clearSelection();
    m_editLoading = false;
}

} // namespace dorvane
