#include "desktop/mainwindow/frmMainForm.h"

#include "core/repository/SchemaDdl.h"

#include "core/repository/FilePaths.h"
#include "core/repository/Interaction.h"
#include "core/startup/Startup.h"
#include "desktop/mainwindow/QtInteraction.h"
#include "ui_frmMainForm.h"

#include <QCloseEvent>
#include <QLabel>
#include <QSignalBlocker>
#include <QTimer>

#include <utility>

namespace dorvane {

namespace {

// The last control of a page's focus chain that takes the focus.
QWidget* lastFocusable(QWidget* page)
{
    QWidget* last = nullptr;
    for (QWidget* w = page->nextInFocusChain(); page->isAncestorOf(w); w = w->nextInFocusChain()) {
        if (w->focusPolicy() != Qt::NoFocus)
            last = w;
    }
    return last;
}

} // namespace

frmMainForm::frmMainForm(Session& session, MessageSink& messages, ProgramLauncher& launcher, ReportPrinter& printer,
                         QWidget* parent)
    : QMainWindow(parent),
      m_session(session),
      m_messages(messages),
      m_launcher(launcher),
      m_ui(std::make_unique<Ui::frmMainForm>()),
      m_qtDialogs(this, messages),
      m_context{session, messages, printer, &m_qtDialogs},
      m_users(new dorvane::UsersPage(m_context)),
      m_options(new dorvane::OptionsPage(m_context)),
      m_applications(new dorvane::ApplicationsPage(m_context)),
      m_environments(new dorvane::EnvironmentsPage(m_context))
{
    m_ui->setupUi(this);
    const std::tuple<QScrollArea*, EditorPage*, QPushButton*> pages[] = {
        {m_ui->usersScroll, m_users, m_ui->cmdExit_0},
        {m_ui->optionsScroll, m_options, m_ui->cmdExit_1},
        {m_ui->applicationsScroll, m_applications, m_ui->cmdExit_2},
        {m_ui->environmentsScroll, m_environments, m_ui->cmdExit_3},
    };
    for (const auto& [scroll, page, exit] : pages) {
        // On a small screen the page scrolls; its Exit button stays in view
        // and comes after the page's controls in the tab order.
        scroll->setWidget(page);
        QWidget::setTabOrder(lastFocusable(page), exit);
        connect(exit, &QPushButton::clicked, this, &frmMainForm::cmdExit_Click);
        connect(page, &EditorPage::showRequested, this,
                [this, tab = scroll->parentWidget()] { m_ui->SSMainTab->setCurrentWidget(tab); });
    }
    connect(m_ui->SSMainTab, &QTabWidget::currentChanged, this, &frmMainForm::SSMainTab_Click);

    // What one page lists or changes that another page shows.
    connect(m_users, &dorvane::UsersPage::userListRefreshed, m_environments, &dorvane::EnvironmentsPage::ShowUserList);
    connect(m_users, &dorvane::UsersPage::environUsersChanged, m_environments, [this] { m_environments->RefreshEnvironUsers(); });
    connect(m_applications, &dorvane::ApplicationsPage::appListRefreshed, m_environments, &dorvane::EnvironmentsPage::ShowApplications);
    connect(m_applications, &dorvane::ApplicationsPage::versionsSaved, m_environments, &dorvane::EnvironmentsPage::ApplicationVersionsChanged);
    connect(m_environments, &dorvane::EnvironmentsPage::operationDone, this, &frmMainForm::showDone);

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
    // Said once a run, beside the repository's name, where it does not
    // stand in the way.
    if (const QString note = UpgradeNote(m_session.repository); !note.isEmpty()) {
        auto* upgrade = new QLabel(note);
        upgrade->setObjectName(QStringLiteral("lblUpgradeNote"));
        upgrade->setWordWrap(true);
        statusBar()->addPermanentWidget(upgrade, 1);
    }
    KeepInsideScreen(*this);
}

frmMainForm::~frmMainForm()
{
    Unload();
}

void frmMainForm::SetDialogProvider(DialogProvider* dialogs)
{
    m_context.dialogs = dialogs ? dialogs : &m_qtDialogs;
}

void frmMainForm::showDone(const QString& text)
{
    // Long enough to be read after a long operation; the repository's name
    // comes back after it.
    constexpr int kShownMs = 20000;
    statusBar()->showMessage(text, kShownMs);
}

void frmMainForm::SSMainTab_Click(int index)
{
    // Grid edits not saved yet are saved, dropped or kept (Cancel stays on
    // the page) before the page that shows them is left.
    const int left = std::exchange(m_mainTabIndex, index);
    const bool stay = (left == OptionsPage && (m_options->RoleExitCancel() || m_options->ProjectExitCancel())) ||
                      (left == ApplicationsPage && m_applications->KeywordExitCancel());
    if (stay) {
        m_mainTabIndex = left;
        const QSignalBlocker block(m_ui->SSMainTab);
        m_ui->SSMainTab->setCurrentIndex(left);
        return;
    }
    if (left == OptionsPage)
        m_options->DropGridEdits();
    else if (left == ApplicationsPage)
        m_applications->DropKeywordEdits();
    switch (index) {
    case UsersPage: m_users->FocusFirstField(); break;
    case ApplicationsPage: m_applications->FocusFirstField(); break;
    case EnvironmentsPage: m_environments->FocusFirstField(); break;
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
    if (m_firstActivate) {
        QTimer::singleShot(0, this, [this] {
            if (m_firstActivate)
                Form_Activate();
        });
    }
}

void frmMainForm::Form_Activate()
{
    for (EditorPage* page : std::initializer_list<EditorPage*>{m_users, m_options, m_applications, m_environments})
        page->ClearEditLoading();
    if (m_firstActivate) {
        RefreshAllLists();
        m_firstActivate = false;
    }
    if (m_environments->EnvironCount() == 0 && !m_lumenoStarted) {
        m_launcher.StartDetached(NativePath(m_session.plan.installationPath + QStringLiteral("\\Lumeno.exe")));
        m_lumenoStarted = true;
    }
}

void frmMainForm::RefreshAllLists()
{
    m_applications->RefreshAppList();
    m_options->RefreshRoleGrid();
    m_applications->RefreshKeywordGrid();
    m_options->RefreshProjectGrid();
    const std::vector<UserListItem> users = m_users->RefreshUserList();
    m_environments->RefreshEnvironUsers(&users);
    RefreshReferenceLists();
    m_environments->RefreshEnvironList();
}

void frmMainForm::RefreshReferenceLists()
{
    // The first failure ends the loader, as in every loader.
    ListEntries platforms, tools, emulators;
    if (LoadEntries(m_messages, QStringLiteral("platform"), platforms, PlatformEntries(m_session.repository)) &&
        LoadEntries(m_messages, QStringLiteral("test tool"), tools, TestToolEntries(m_session.repository)))
        LoadEntries(m_messages, QStringLiteral("emulator"), emulators, EmulatorEntries(m_session.repository));
    m_applications->ShowReferenceLists(platforms, emulators);
    m_environments->ShowReferenceLists(tools, emulators);
}

void frmMainForm::cmdExit_Click()
{
    // The version prompt comes before the environment prompt.
    if (m_users->UserExitCancel() || m_applications->AppExitCancel() || m_applications->KeywordExitCancel() ||
        m_options->ProjectExitCancel() || m_options->RoleExitCancel() || m_applications->VersionExitCancel() ||
        m_environments->EnvironExitCancel())
        return;
    close();
}

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

} // namespace dorvane
