// The roles, projects and keywords grids on the main window.

#include "core/lists/NameDescGrids.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/startup/Startup.h"

#include <QAction>
#include <QItemSelectionModel>
#include <QPushButton>
#include <QTableView>

namespace dorvane {

void frmMainForm::connectGrids()
{
    struct Binding {
        NameDescGrid* grid;
        QTableView* view;
        QPushButton* save;
        void (frmMainForm::*saveCommand)();
    };
    const Binding bindings[] = {
        {m_roles.get(), c.TDBGridRoles, c.cmdRoleSave, &frmMainForm::cmdRoleSave_Click},
        {m_projects.get(), c.TDBGridProjects, c.cmdProjectSave, &frmMainForm::cmdProjectSave_Click},
        {m_keywords.get(), c.TDBGridKeywords, c.cmdKeywordSave, &frmMainForm::cmdKeywordSave_Click},
    };
    for (const Binding& b : bindings) {
        b.view->setModel(&b.grid->Model());
        b.view->setColumnWidth(0, 220);
        b.save->setEnabled(false);
        connect(&b.grid->Model(), &NameDescTableModel::changed, b.save, [save = b.save] { save->setEnabled(true); });
        connect(b.save, &QPushButton::clicked, this, b.saveCommand);

        // Deleting the selected row: the Delete key, or the grid's menu.
        auto* remove = new QAction(QStringLiteral("&Delete Row"), b.view);
        remove->setShortcut(QKeySequence::Delete);
        remove->setShortcutContext(Qt::WidgetShortcut);
        b.view->addAction(remove);
        b.view->setContextMenuPolicy(Qt::ActionsContextMenu);
        connect(remove, &QAction::triggered, this, [this, grid = b.grid, view = b.view] { deleteSelectedGridRow(*grid, view); });
    }
}

void frmMainForm::deleteSelectedGridRow(NameDescGrid& grid, QTableView* view)
{
    const QModelIndex current = view->currentIndex();
    if (!current.isValid())
        return;
    grid.DeleteRow(current.row(), m_session.repository, m_messages);
}

void frmMainForm::cmdRoleSave_Click()
{
    SaveOk = m_roles->Save(m_session.repository, m_messages).SaveOk;
    c.cmdRoleSave->setEnabled(m_roles->Dirty());
}

void frmMainForm::cmdProjectSave_Click()
{
    SaveOk = m_projects->Save(m_session.repository, m_messages).SaveOk;
    c.cmdProjectSave->setEnabled(m_projects->Dirty());
}

void frmMainForm::cmdKeywordSave_Click()
{
    SaveOk = m_keywords->Save(m_session.repository, m_messages, CurrentAppKey).SaveOk;
    c.cmdKeywordSave->setEnabled(m_keywords->Dirty());
}

} // namespace dorvane
