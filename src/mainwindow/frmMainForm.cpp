#include "mainwindow/frmMainForm.h"

#include "mainwindow/QtInteraction.h"
#include "startup/Startup.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStatusBar>
#include <QTabWidget>
#include <QVBoxLayout>

namespace dorvane {

namespace {

QTabWidget* innerTabs(const char* objectName, std::initializer_list<std::pair<const char*, const char*>> pages)
{
    auto* tabs = new QTabWidget;
    tabs->setObjectName(QString::fromLatin1(objectName));
    for (const auto& [name, caption] : pages) {
        auto* page = new QWidget;
        page->setObjectName(QString::fromLatin1(name));
        tabs->addTab(page, QString::fromLatin1(caption));
    }
    return tabs;
}

} // namespace

frmMainForm::frmMainForm(Session& session, MessageSink& messages, QWidget* parent)
    : QMainWindow(parent), m_session(session), m_messages(messages)
{
    setObjectName(QStringLiteral("frmMainForm"));
    setWindowTitle(kProgramTitle);

    m_mainTab = new QTabWidget;
    m_mainTab->setObjectName(QStringLiteral("SSMainTab"));

    m_optionsTab = innerTabs("SSOptionsTab", {{"tabKeywords", "&Keywords"}, {"tabRoles", "&Roles"}, {"tabProjects", "&Projects"}});
    m_appTab = innerTabs("SSAppTab", {{"tabAppDefinition", "&Definition"}, {"tabAppVersions", "&Versions"}});
    m_environTab = innerTabs("SSEnvironTab", {{"tabEnvironDefinition", "&Definition"},
                                              {"tabEnvironConfiguration", "&Configuration"},
                                              {"tabEnvironUsers", "&Users"}});

    auto* usersContent = new QWidget;
    usersContent->setObjectName(QStringLiteral("tabUsers"));
    m_mainTab->addTab(makePage(usersContent, UsersPage), QStringLiteral("Users"));
    m_mainTab->addTab(makePage(m_optionsTab, OptionsPage), QStringLiteral("Options"));
    m_mainTab->addTab(makePage(m_appTab, ApplicationsPage), QStringLiteral("Applications"));
    m_mainTab->addTab(makePage(m_environTab, EnvironmentsPage), QStringLiteral("Environments"));
    setCentralWidget(m_mainTab);

    const StartupPlan& plan = m_session.plan;
    statusBar()->showMessage(ModeName(plan.mode) + QStringLiteral(" repository: ") + plan.connectionString);
    resize(900, 640);
}

frmMainForm::~frmMainForm()
{
    Unload();
}

QWidget* frmMainForm::makePage(QWidget* content, int index)
{
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(content, 1);

    auto* exit = new QPushButton(QStringLiteral("E&xit"));
    exit->setObjectName(QStringLiteral("cmdExit_%1").arg(index));
    exit->setProperty("index", index);
    exit->setToolTip(QStringLiteral("Leave Dorvane"));
    connect(exit, &QPushButton::clicked, this, [this, index] { cmdExitClick(index); });
    m_exitButtons.append(exit);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(exit);
    layout->addLayout(buttons);
    return page;
}

void frmMainForm::cmdExitClick(int /*index*/)
{
    // The editors' save prompts run here before the window is unloaded.
    close();
}

void frmMainForm::closeEvent(QCloseEvent* event)
{
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
