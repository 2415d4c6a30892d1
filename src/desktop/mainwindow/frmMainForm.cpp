#include "desktop/mainwindow/frmMainForm.h"

#include "core/applications/ApplicationRecords.h"
#include "core/applications/VersionRecords.h"
#include "desktop/copyengine/frmVersionProgress.h"
#include "core/environments/EnvironmentConfig.h"
#include "core/environments/EnvironmentRecords.h"
#include "core/environments/EnvironmentUsers.h"
#include "core/lists/NameDescGrids.h"
#include "desktop/mainwindow/QtInteraction.h"
#include "core/repository/DbError.h"
#include "core/repository/FilePaths.h"
#include "core/startup/Startup.h"
#include "core/users/UserRecords.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QSignalBlocker>
#include <QPushButton>
#include <QLabel>
#include <QItemSelectionModel>
#include <QStatusBar>

#include <functional>
#include <utility>
#include <QTabWidget>
#include <QTableView>
#include <QTimer>

namespace dorvane {

int FindListItem(qint32 key, const QListWidget* list)
{
    for (int i = 0; i < list->count(); ++i) {
        if (list->item(i)->data(Qt::UserRole).toInt() == key)
            return i;
    }
    return -1;
}

int FindComboItem(qint32 key, const QComboBox* combo)
{
    for (int i = 0; i < combo->count(); ++i) {
        if (combo->itemData(i).toInt() == key)
            return i;
    }
    return -1;
}

int FindItemByText(const QListWidget* list, const QString& text)
{
    for (int i = 0; i < list->count(); ++i) {
        if (list->item(i)->text() == text)
            return i;
    }
    return -1;
}

qint32 ItemKey(const QListWidget* list, int index)
{
    if (index < 0 || index >= list->count())
        return 0;
    return list->item(index)->data(Qt::UserRole).toInt();
}

qint32 ComboKey(const QComboBox* combo, int index)
{
    if (index < 0 || index >= combo->count())
        return 0;
    return combo->itemData(index).toInt();
}

std::optional<qint32> SelectedKey(const QComboBox* combo)
{
    if (combo->currentIndex() < 0)
        return std::nullopt;
    return ComboKey(combo, combo->currentIndex());
}

frmMainForm::frmMainForm(Session& session, MessageSink& messages, ProgramLauncher& launcher, ReportPrinter& printer,
                         QWidget* parent)
    : QMainWindow(parent),
      m_session(session),
      m_messages(messages),
      m_launcher(launcher),
      m_printer(printer),
      m_currentUserKey(std::make_unique<class CurrentUserKey>()),
      m_registeredUserKey(std::make_unique<class CurrentUserKey>()),
      m_users(std::make_unique<UserRecords>(*m_currentUserKey)),
      m_roles(std::make_unique<NameDescGrid>(NameDescGridKind::Roles, messages)),
      m_projects(std::make_unique<NameDescGrid>(NameDescGridKind::Projects, messages)),
      m_keywords(std::make_unique<NameDescGrid>(NameDescGridKind::Keywords, messages)),
      m_environ(std::make_unique<EnvironmentRecords>()),
      m_environConfig(std::make_unique<EnvironmentConfig>(*m_environ)),
      m_environUsers(std::make_unique<EnvironmentUsers>(*m_environ, *m_registeredUserKey))
{
    setObjectName(QStringLiteral("frmMainForm"));
    BuildMainFormControls(this, c);

    // The title and the status bar name the repository as the
    // administrator knows it: its file or its data source, never the
    // connection string with its settings (and perhaps a password).
    const StartupPlan& plan = m_session.plan;
    const QString title = RepositoryTitle(plan);
    setWindowTitle(title.isEmpty() ? kProgramTitle : title + QStringLiteral(" - ") + kProgramTitle);
    auto* repository = new QLabel(ModeName(plan.mode) + QStringLiteral(" repository: ") + RepositoryLocation(plan));
    repository->setObjectName(QStringLiteral("lblRepository"));
    repository->setTextInteractionFlags(Qt::TextSelectableByMouse);
    statusBar()->addWidget(repository, 1);

    connectShell();
    connectUsers();
    connectGrids();
    connectApplications();
    connectVersions();
    connectAttributes();
    connectKeywordFiles();
    connectEnvironments();

    // The editors start empty: nothing to save or delete yet.
    for (QPushButton* b : {c.cmdUserSave, c.cmdUserDelete, c.cmdAppSave, c.cmdAppDelete, c.cmdVersionSave,
                           c.cmdVersionSaveAs, c.cmdVersionDelete, c.cmdAttributes})
        b->setEnabled(false);
    for (int page : {1, 2})
        c.SSAppTab->setTabEnabled(page, false);
    resize(980, 660);
    KeepInsideScreen(*this);
}

frmMainForm::~frmMainForm()
{
    Unload();
}

bool frmMainForm::UserDirty() const { return m_users->UserDirty(); }
bool frmMainForm::KeywordDirty() const { return m_keywords->Dirty(); }
bool frmMainForm::RoleDirty() const { return m_roles->Dirty(); }
bool frmMainForm::ProjectDirty() const { return m_projects->Dirty(); }
qint32 frmMainForm::CurrentUserKey() const { return m_currentUserKey->Get(); }

void frmMainForm::returnToRow(QListWidget* list, int row)
{
    // Now, for the code that follows; and once the click that left the
    // row has been handled, since the view selects the clicked entry after
    // announcing it: the list then highlights the record the form shows.
    list->setCurrentRow(row);
    QTimer::singleShot(0, list, [this, list, row] {
        const bool wasLoading = std::exchange(EditLoading, true);
        list->setCurrentRow(row, QItemSelectionModel::ClearAndSelect);
        EditLoading = wasLoading;
    });
}

void frmMainForm::showDone(const QString& text)
{
    // Long enough to be read after a long operation; the repository's name
    // comes back after it.
    constexpr int kShownMs = 20000;
    statusBar()->showMessage(text, kShownMs);
}
qint32 frmMainForm::CurrentEnvironKey() const { return m_environ->CurrentEnvironKey(); }
bool frmMainForm::EnvironIsNew() const { return m_environ->EnvironIsNew(); }

void frmMainForm::connectShell()
{
    for (int i = 0; i < c.cmdExit.size(); ++i)
        connect(c.cmdExit[i], &QPushButton::clicked, this, [this, i] { cmdExit_Click(i); });
    connect(c.SSMainTab, &QTabWidget::currentChanged, this, &frmMainForm::SSMainTab_Click);

    connect(c.cmdUserPrint, &QPushButton::clicked, this, [this] { printList(QStringLiteral("Registered Users"), c.lbUserList); });
    connect(c.cmdAppPrint, &QPushButton::clicked, this, [this] { printList(QStringLiteral("Applications"), c.lbAppList); });
    connect(c.cmdVersionPrint, &QPushButton::clicked, this, [this] {
        printList(QStringLiteral("Versions of ") + c.txtAppName->text(), c.lbVersionList);
    });
    connect(c.cmdEnvironPrint, &QPushButton::clicked, this, [this] { printList(QStringLiteral("Environments"), c.lbEnvironList); });
    connect(c.cmdRolePrint, &QPushButton::clicked, this, [this] { printGrid(QStringLiteral("Roles"), *m_roles); });
    connect(c.cmdProjectPrint, &QPushButton::clicked, this, [this] { printGrid(QStringLiteral("Projects"), *m_projects); });
    connect(c.cmdKeywordPrint, &QPushButton::clicked, this, [this] {
        printGrid(QStringLiteral("Keywords of ") + c.txtAppName->text(), *m_keywords);
    });
}

void frmMainForm::SSMainTab_Click(int index)
{
    // Grid edits not saved yet are saved, dropped or kept (Cancel stays on
    // the page) before the page that shows them is left.
    const int left = std::exchange(m_mainTabIndex, index);
    const bool stay = (left == OptionsPage && (RoleExitCancel() || ProjectExitCancel())) ||
                      (left == ApplicationsPage && KeywordExitCancel());
    if (stay) {
        m_mainTabIndex = left;
        const QSignalBlocker block(c.SSMainTab);
        c.SSMainTab->setCurrentIndex(left);
        return;
    }
    if (left == OptionsPage) {
        dropGridEdits(*m_roles, c.cmdRoleSave, [this] { RefreshRoleGrid(); });
        dropGridEdits(*m_projects, c.cmdProjectSave, [this] { RefreshProjectGrid(); });
    } else if (left == ApplicationsPage) {
        dropGridEdits(*m_keywords, c.cmdKeywordSave, [this] { RefreshKeywordGrid(); });
    }
    switch (index) {
    case UsersPage: c.txtUserID->setFocus(); break;
    case ApplicationsPage: c.txtAppName->setFocus(); break;
    case EnvironmentsPage: c.txtEnvironName->setFocus(); break;
    default: break;
    }
}

void frmMainForm::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        Form_Activate();
}

// A window manager may show the window without activating it (focus
// stealing prevention, a bare X server): the lists are loaded once it is on
// screen all the same, as its first activation would have loaded them.
void frmMainForm::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    if (FirstActivate) {
        QTimer::singleShot(0, this, [this] {
            if (FirstActivate)
                Form_Activate();
        });
    }
}

void frmMainForm::Form_Activate()
{
    EditLoading = false;
    if (FirstActivate) {
        RefreshAllLists();
        FirstActivate = false;
    }
    if (nEnvironCount == 0 && !LumenoStarted) {
        m_launcher.StartDetached(NativePath(m_session.plan.installationPath + QStringLiteral("\\Lumeno.exe")));
        LumenoStarted = true;
    }
}

// ---------------------------------------------------------------- loaders

void frmMainForm::fillList(QListWidget* list, const ListEntries& entries)
{
    // A repository may hold a hundred thousand users: the entries go in as
    // one insertion, and their keys are set without telling the view about
    // each (a key is never shown).
    QStringList texts;
    texts.reserve(entries.size());
    for (const ListEntry& entry : entries)
        texts << entry.text;
    const int first = list->count();
    list->addItems(texts);
    const QSignalBlocker quiet(list->model());
    for (qsizetype i = 0; i < entries.size(); ++i)
        list->item(first + int(i))->setData(Qt::UserRole, entries[i].key);
}

void frmMainForm::fillCombo(QComboBox* combo, const ListEntries& entries)
{
    for (const ListEntry& entry : entries)
        combo->addItem(entry.text, entry.key);
}

void frmMainForm::RefreshAllLists()
{
    RefreshAppList();
    RefreshRoleGrid();
    RefreshKeywordGrid();
    RefreshProjectGrid();
    const std::vector<UserListItem> users = RefreshUserList();
    RefreshEnvironUsers(&users);
    RefreshReferenceLists();
    RefreshEnvironList();
}

bool frmMainForm::loadEntries(const QString& list, ListEntries& entries, ListRead read)
{
    entries = std::move(read.entries);
    if (read.error)
        showDbError(QStringLiteral("Error while refreshing %1 list : ").arg(list), *read.error);
    return !read.error;
}

void frmMainForm::RefreshAppList()
{
    EditLoading = true;
    c.lbAppList->clear();
    c.cbEnvironApp->clear();
    ListEntries entries;
    loadEntries(QStringLiteral("application"), entries, AppEntries(m_session.repository));
    fillList(c.lbAppList, entries);
    fillCombo(c.cbEnvironApp, entries);
    c.cbEnvironApp->setCurrentIndex(-1);
    EditLoading = false;
}

void frmMainForm::RefreshRoleGrid()
{
    dorvane::RefreshRoleGrid(*m_roles, m_session.repository, m_messages);
}

void frmMainForm::RefreshProjectGrid()
{
    dorvane::RefreshProjectGrid(*m_projects, m_session.repository, m_messages);
}

void frmMainForm::RefreshKeywordGrid()
{
    dorvane::RefreshKeywordGrid(*m_keywords, m_session.repository, m_messages, CurrentAppKey);
}

std::vector<UserListItem> frmMainForm::RefreshUserList()
{
    EditLoading = true;
    c.lbUserList->clear();
    c.lbEnvironUserList->clear();
    std::vector<UserListItem> users = ReadUserList(m_session.repository, m_messages);
    ListEntries entries;
    entries.reserve(qsizetype(users.size()));
    for (const UserListItem& user : users)
        entries.append({user.Text, user.Key});
    fillList(c.lbUserList, entries);
    fillList(c.lbEnvironUserList, entries);
    EditLoading = false;
    return users;
}

void frmMainForm::RefreshEnvironUsers(const std::vector<UserListItem>* users)
{
    const EnvironUserLists lists = m_environUsers->Refresh(m_session.repository, m_messages, users);
    EditLoading = true;
    c.lbEnvironUserList->clear();
    c.lbEnvironUsers->clear();
    fillList(c.lbEnvironUserList, lists.Unregistered);
    fillList(c.lbEnvironUsers, lists.Registered);
    // No registered user is highlighted any more: the boxes show no one's rights.
    ClearRightsBoxes();
    EditLoading = false;
}

void frmMainForm::RefreshReferenceLists()
{
    c.cbPlatform->clear();
    c.cbEnvironTestTool->clear();
    c.cbEmulator->clear();
    c.cbEnvironEmulator->clear();
    // The first failure ends the loader, as in every loader.
    ListEntries platforms, tools, emulators;
    if (loadEntries(QStringLiteral("platform"), platforms, PlatformEntries(m_session.repository)) &&
        loadEntries(QStringLiteral("test tool"), tools, TestToolEntries(m_session.repository)))
        loadEntries(QStringLiteral("emulator"), emulators, EmulatorEntries(m_session.repository));
    fillCombo(c.cbPlatform, platforms);
    fillCombo(c.cbEnvironTestTool, tools);
    fillCombo(c.cbEmulator, emulators);
    fillCombo(c.cbEnvironEmulator, emulators);
    for (QComboBox* combo : {c.cbPlatform, c.cbEnvironTestTool, c.cbEmulator, c.cbEnvironEmulator})
        combo->setCurrentIndex(-1);
}

void frmMainForm::RefreshEnvironList()
{
    EditLoading = true;
    c.lbEnvironList->clear();
    ListEntries entries;
    loadEntries(QStringLiteral("environment"), entries, EnvironmentEntries(m_session.repository));
    fillList(c.lbEnvironList, entries);
    nEnvironCount = static_cast<qint16>(entries.size());
    EditLoading = false;
}

void frmMainForm::RefreshEnvironAppVerList()
{
    c.lbEnvironAppVerList->clear();
    fillList(c.lbEnvironAppVerList, m_environConfig->RefreshEnvironAppVerList(m_session.repository, m_messages));
    syncEnvironFlags();
}

void frmMainForm::RefreshVersionList()
{
    c.lbVersionList->clear();
    ListEntries entries;
    loadEntries(QStringLiteral("version"), entries,
                VersionListEntries(m_session.repository, CurrentAppKey));
    fillList(c.lbVersionList, entries);
}

void frmMainForm::RefreshVersionProcesses(qint32 versionKey)
{
    const QList<QComboBox*> combos = {c.cbVersionLoadProcess, c.cbVersionLoginProcess, c.cbVersionLogoutProcess,
                                      c.cbVersionTerminateProcess, c.cbVersionRecoverProcess};
    ListEntries entries;
    loadEntries(QStringLiteral("process"), entries,
                VersionProcessEntries(m_session.repository, versionKey));
    for (QComboBox* combo : combos) {
        combo->clear();
        fillCombo(combo, entries);
        combo->setCurrentIndex(-1);
    }
}

void frmMainForm::RefreshVersionWindows(qint32 versionKey)
{
    ListEntries entries;
    loadEntries(QStringLiteral("window"), entries,
                VersionWindowEntries(m_session.repository, versionKey));
    for (QComboBox* combo : {c.cbVersionInitialWindow, c.cbVersionMainWindow}) {
        combo->clear();
        fillCombo(combo, entries);
        combo->setCurrentIndex(-1);
    }
}

void frmMainForm::RefreshMapTypes()
{
    c.cbVersionMapType->clear();
    ListEntries entries;
    loadEntries(QStringLiteral("map type"), entries,
                MapTypeEntries(m_session.repository, CurrentPlatformKey));
    fillCombo(c.cbVersionMapType, entries);
    c.cbVersionMapType->setCurrentIndex(-1);
}

// ---------------------------------------------------------------- prompts

namespace {

// The prompt of an editor with a selection list: Yes saves and puts the
// list's selection back as it was.
template <typename Save>
bool listEditorExitCancel(MessageSink& messages, const QString& prompt, QListWidget* list, bool& saveOk, Save save)
{
    switch (messages.Show(prompt, Buttons::YesNoCancel)) {
    case Answer::Cancel: return true;
    case Answer::Yes: {
        const int index = list->currentRow();
        save();
        list->setCurrentRow(index);
        return !saveOk;
    }
    default: return false;
    }
}

} // namespace

bool frmMainForm::UserExitCancel()
{
    if (!UserDirty())
        return false;
    return listEditorExitCancel(m_messages, QStringLiteral("Save changes to User record?"), c.lbUserList, SaveOk,
                                [this] { cmdUserSave_Click(); });
}

bool frmMainForm::AppExitCancel()
{
    if (!AppDirty)
        return false;
    return listEditorExitCancel(m_messages, QStringLiteral("Save changes to this Application?"), c.lbAppList, SaveOk,
                                [this] { cmdAppSave_Click(); });
}

bool frmMainForm::VersionExitCancel()
{
    if (!VersionDirty)
        return false;
    return listEditorExitCancel(m_messages, QStringLiteral("Save changes to this Version?"), c.lbVersionList, SaveOk,
                                [this] { cmdVersionSave_Click(); });
}

bool frmMainForm::gridExitCancel(NameDescGrid& grid, QPushButton* saveButton, qint32 appKey)
{
    const bool stay = grid.ExitCancel(m_session.repository, m_messages, appKey);
    saveButton->setEnabled(grid.Dirty());
    return stay;
}

void frmMainForm::dropGridEdits(NameDescGrid& grid, QPushButton* saveButton, const std::function<void()>& reload)
{
    // Edits the prompt was told to drop go: the grid shows the stored rows.
    if (!grid.Dirty())
        return;
    reload();
    grid.SetDirty(false);
    saveButton->setEnabled(false);
}

bool frmMainForm::KeywordExitCancel() { return gridExitCancel(*m_keywords, c.cmdKeywordSave, CurrentAppKey); }
bool frmMainForm::ProjectExitCancel() { return gridExitCancel(*m_projects, c.cmdProjectSave, 0); }
bool frmMainForm::RoleExitCancel() { return gridExitCancel(*m_roles, c.cmdRoleSave, 0); }

bool frmMainForm::EnvironExitCancel()
{
    const auto saveDefinition = [this] {
        const int index = c.lbEnvironList->currentRow();
        cmdEnvironSave_Click();
        // Putting the selection back is not a click on the list.
        const bool wasLoading = EditLoading;
        EditLoading = true;
        c.lbEnvironList->setCurrentRow(index);
        EditLoading = wasLoading;
        return SaveOk;
    };
    const auto saveConfiguration = [this] {
        cmdEnvironConfigSave_Click();
        return SaveOk;
    };
    return dorvane::EnvironExitCancel(EnvironDirty, ConfigDirty, m_messages, saveDefinition, saveConfiguration);
}

void frmMainForm::cmdExit_Click(int /*index*/)
{
    // The version prompt comes before the environment prompt.
    if (UserExitCancel() || AppExitCancel() || KeywordExitCancel() || ProjectExitCancel() || RoleExitCancel() ||
        VersionExitCancel() || EnvironExitCancel())
        return;
    close();
}

// ---------------------------------------------------------------- unloading

void frmMainForm::closeEvent(QCloseEvent* event)
{
    // Closing by the title bar runs no save prompts.
    Unload();
    event->accept();
}

void frmMainForm::Unload()
{
    if (m_unloaded)
        return;
    m_unloaded = true;
    m_session.Close();
}

// ---------------------------------------------------------------- helpers

void frmMainForm::focusField(const QString& objectName)
{
    if (objectName.isEmpty())
        return;
    if (auto* field = findChild<QWidget*>(objectName))
        field->setFocus();
}

void frmMainForm::showDbError(const QString& prefix, const DbError& error)
{
    m_messages.Inform(prefix + error.description());
}

void frmMainForm::printList(const QString& title, const QListWidget* list)
{
    QVector<QStringList> rows;
    for (int i = 0; i < list->count(); ++i)
        rows.append({list->item(i)->text()});
    m_printer.Preview(title, {title}, rows);
}

void frmMainForm::printGrid(const QString& title, NameDescGrid& grid)
{
    QVector<QStringList> rows;
    const clsNameDescPair& list = grid.List();
    for (int i = 0; i < list.Count(); ++i)
        rows.append({list.GetValue(i, clsNameDescPair::NameField),
                     list.GetValue(i, clsNameDescPair::DescriptionField)});
    m_printer.Preview(title, {grid.Info().nameCaption, grid.Info().descriptionCaption}, rows);
}

} // namespace dorvane
