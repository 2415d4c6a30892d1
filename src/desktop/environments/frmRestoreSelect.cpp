#include "desktop/environments/frmRestoreSelect.h"

#include "desktop/mainwindow/DialogProvider.h"

#include <QPushButton>

namespace dorvane {

frmRestoreSelect::frmRestoreSelect(const QString& folder, QWidget* parent) : QDialog(parent), m_folder(folder)
{
    setupUi(this);
    cmdOK = NamedButton(buttons, QDialogButtonBox::Ok, "cmdOK", QStringLiteral("OK"));
    cmdOK->setDefault(true);
    cmdCancel = NamedButton(buttons, QDialogButtonBox::Cancel, "cmdCancel", QStringLiteral("&Cancel"));
    for (const BackupFileEntry& file : ListBackupFiles(folder))
        flbFileList->addItem(file.name);
    if (flbFileList->count() > 0)
        flbFileList->setCurrentRow(0);

    connect(cmdOK, &QPushButton::clicked, this, &frmRestoreSelect::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmRestoreSelect::cmdCancel_Click);
    connect(flbFileList, &QListWidget::itemDoubleClicked, this, &frmRestoreSelect::flbFileList_DblClick);
}

void frmRestoreSelect::choose(QListWidgetItem* item)
{
    if (!item)
        return;
    m_chosenPath = m_folder + QLatin1Char('\\') + item->text();
    m_cancelled = false;
    accept();
}

void frmRestoreSelect::cmdOK_Click() { choose(flbFileList->currentItem()); }

void frmRestoreSelect::flbFileList_DblClick(QListWidgetItem* item) { choose(item); }

void frmRestoreSelect::cmdCancel_Click()
{
    m_cancelled = true;
    reject();
}

std::optional<QString> QtRestoreChooser::ChooseBackup(const QString& folder)
{
    frmRestoreSelect dialog(folder, m_parent);
    dialog.exec();
    if (dialog.Cancelled())
        return std::nullopt;
    return dialog.ChosenPath();
}

} // namespace dorvane
