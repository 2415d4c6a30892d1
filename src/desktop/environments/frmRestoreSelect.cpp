#include "desktop/environments/frmRestoreSelect.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace dorvane {

frmRestoreSelect::frmRestoreSelect(const QString& folder, QWidget* parent) : QDialog(parent), m_folder(folder)
{
    setObjectName(QStringLiteral("frmRestoreSelect"));
    setWindowTitle(QStringLiteral("Restore environment"));
    setModal(true);

    lblPrompt = new QLabel(QStringLiteral("Choose the backup you want to restore. Backups are named by the date they "
                                          "were backed up."),
                           this);
    lblPrompt->setObjectName(QStringLiteral("lblPrompt"));
    lblPrompt->setWordWrap(true);

    flbFileList = new QListWidget(this);
    flbFileList->setObjectName(QStringLiteral("flbFileList"));
    flbFileList->setSelectionMode(QAbstractItemView::SingleSelection);
    for (const BackupFileEntry& file : ListBackupFiles(folder))
        flbFileList->addItem(file.name);
    if (flbFileList->count() > 0)
        flbFileList->setCurrentRow(0);

    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    cmdCancel = new QPushButton(QStringLiteral("&Cancel"), this);
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(lblPrompt);
    layout->addWidget(flbFileList);
    layout->addWidget(buttons);

    connect(cmdOK, &QPushButton::clicked, this, &frmRestoreSelect::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmRestoreSelect::cmdCancel_Click);
    connect(flbFileList, &QListWidget::itemDoubleClicked, this, &frmRestoreSelect::flbFileList_DblClick);
    resize(380, 300);
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
