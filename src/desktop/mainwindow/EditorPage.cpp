#include "desktop/mainwindow/EditorPage.h"

#include "core/lists/NameDescGrids.h"
#include "core/repository/DbError.h"
#include "core/repository/Interaction.h"
#include "core/startup/Startup.h"

#include <QAction>
#include <QItemSelectionModel>
#include <QListWidget>
#include <QPushButton>
#include <QTableView>
#include <QTimer>

#include <utility>

namespace dorvane {

EditorPage::EditorPage(PageContext& context, QWidget* parent) : QWidget(parent), m_context(context) {}

void EditorPage::FocusFirstField()
{
    if (m_firstField)
        m_firstField->setFocus();
}

void EditorPage::showDbError(const QString& prefix, const DbError& error)
{
    messages().Inform(prefix + error.description());
}

void EditorPage::returnToRow(QListWidget* list, int row)
{
    // Now, for the code that follows; and once the click that left the
    // row has been handled, since the view selects the clicked entry after
    // announcing it: the list then highlights the record the form shows.
    list->setCurrentRow(row);
    QTimer::singleShot(0, list, [this, list, row] {
        const bool wasLoading = std::exchange(m_editLoading, true);
        list->setCurrentRow(row, QItemSelectionModel::ClearAndSelect);
        m_editLoading = wasLoading;
    });
}

void EditorPage::focusField(const QString& objectName)
{
    if (objectName.isEmpty())
        return;
    if (auto* field = findChild<QWidget*>(objectName))
        field->setFocus();
}

bool EditorPage::listEditorExitCancel(const QString& prompt, QListWidget* list, const std::function<void()>& save)
{
    switch (messages().Show(prompt, Buttons::YesNoCancel)) {
    case Answer::Cancel: return true;
    case Answer::Yes: {
        const int index = list->currentRow();
        save();
        list->setCurrentRow(index);
        return !m_saveOk;
    }
    default: return false;
    }
}

void EditorPage::printList(const QString& title, const QListWidget* list)
{
    QVector<QStringList> rows;
    for (int i = 0; i < list->count(); ++i)
        rows.append({list->item(i)->text()});
    m_context.printer.Preview(title, {title}, rows);
}

void EditorPage::printGrid(const QString& title, NameDescGrid& grid)
{
    QVector<QStringList> rows;
    const clsNameDescPair& list = grid.List();
    for (int i = 0; i < list.Count(); ++i)
        rows.append({list.GetValue(i, clsNameDescPair::NameField),
                     list.GetValue(i, clsNameDescPair::DescriptionField)});
    m_context.printer.Preview(title, {grid.Info().nameCaption, grid.Info().descriptionCaption}, rows);
}

void EditorPage::bindGrid(NameDescGrid& grid, QTableView* view, QPushButton* saveButton, const std::function<void()>& save)
{
    view->setModel(&grid.Model());
    view->setColumnWidth(0, 220);
    connect(&grid.Model(), &NameDescTableModel::changed, saveButton, [saveButton] { saveButton->setEnabled(true); });
    connect(saveButton, &QPushButton::clicked, this, save);

    // Deleting the selected row: the Delete key, or the grid's menu.
    auto* remove = new QAction(QStringLiteral("&Delete Row"), view);
    remove->setShortcut(QKeySequence::Delete);
    remove->setShortcutContext(Qt::WidgetShortcut);
    view->addAction(remove);
    view->setContextMenuPolicy(Qt::ActionsContextMenu);
    connect(remove, &QAction::triggered, this, [this, &grid, view] {
        const QModelIndex current = view->currentIndex();
        if (current.isValid())
            grid.DeleteRow(current.row(), session().repository, messages());
    });
}

bool EditorPage::gridExitCancel(NameDescGrid& grid, QPushButton* saveButton, qint32 appKey)
{
    const bool stay = grid.ExitCancel(session().repository, messages(), appKey);
    saveButton->setEnabled(grid.Dirty());
    return stay;
}

void EditorPage::dropGridEdits(NameDescGrid& grid, QPushButton* saveButton, const std::function<void()>& reload)
{
    // Edits the prompt was told to drop go: the grid shows the stored rows.
    if (!grid.Dirty())
        return;
    reload();
    grid.SetDirty(false);
    saveButton->setEnabled(false);
}

} // namespace dorvane
