#pragma once

#include "desktop/mainwindow/EditorPage.h"
#include "ui_OptionsPage.h"

#include <memory>

namespace dorvane {

// The Options page: the roles and projects grids.
class OptionsPage : public EditorPage, public Ui::OptionsPage {
    Q_OBJECT
public:
    explicit OptionsPage(PageContext& context, QWidget* parent = nullptr);
    ~OptionsPage() override;

    void RefreshRoleGrid();
    void RefreshProjectGrid();
    // The grids' save prompts: true when the user chose to stay.
    bool RoleExitCancel();
    bool ProjectExitCancel();
    // After the prompts were answered No: the grids show their stored rows.
    void DropGridEdits();

    NameDescGrid& rolesGrid() { return *m_roles; }
    NameDescGrid& projectsGrid() { return *m_projects; }

private:
    void cmdRoleSave_Click();
    void cmdProjectSave_Click();

    std::unique_ptr<NameDescGrid> m_roles;
    std::unique_ptr<NameDescGrid> m_projects;
};

} // namespace dorvane
