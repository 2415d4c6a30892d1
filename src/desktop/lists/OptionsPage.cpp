#include "desktop/lists/OptionsPage.h"

#include "core/lists/NameDescGrids.h"
#include "core/startup/Startup.h"

namespace dorvane {

OptionsPage::OptionsPage(PageContext& context, QWidget* parent)
    : EditorPage(context, parent),
      m_roles(std::make_unique<NameDescGrid>(NameDescGridKind::Roles, context.messages)),
      m_projects(std::make_unique<NameDescGrid>(NameDescGridKind::Projects, context.messages))
{
    setupUi(this);
    bindGrid(*m_roles, TDBGridRoles, cmdRoleSave, [this] { cmdRoleSave_Click(); });
    bindGrid(*m_projects, TDBGridProjects, cmdProjectSave, [this] { cmdProjectSave_Click(); });
    connect(cmdRolePrint, &QPushButton::clicked, this, [this] { printGrid(QStringLiteral("Roles"), *m_roles); });
    connect(cmdProjectPrint, &QPushButton::clicked, this, [this] { printGrid(QStringLiteral("Projects"), *m_projects); });
}

OptionsPage::~OptionsPage() = default;

void OptionsPage::RefreshRoleGrid()
{
    dorvane::RefreshRoleGrid(*m_roles, session().repository, messages());
}

void OptionsPage::RefreshProjectGrid()
{
    dorvane::RefreshProjectGrid(*m_projects, session().repository, messages());
}

bool OptionsPage::RoleExitCancel() { return gridExitCancel(*m_roles, cmdRoleSave, 0); }
bool OptionsPage::ProjectExitCancel() { return gridExitCancel(*m_projects, cmdProjectSave, 0); }

void OptionsPage::DropGridEdits()
{
    dropGridEdits(*m_roles, cmdRoleSave, [this] { RefreshRoleGrid(); });
    dropGridEdits(*m_projects, cmdProjectSave, [this] { RefreshProjectGrid(); });
}

void OptionsPage::cmdRoleSave_Click()
{
    m_saveOk = m_roles->Save(session().repository, messages()).SaveOk;
    cmdRoleSave->setEnabled(m_roles->Dirty());
}

void OptionsPage::cmdProjectSave_Click()
{
    m_saveOk = m_projects->Save(session().repository, messages()).SaveOk;
    cmdProjectSave->setEnabled(m_projects->Dirty());
}

} // namespace dorvane
