#include "desktop/lists/frmFileList.h"

#include "core/repository/Interaction.h"
#include "desktop/mainwindow/DialogProvider.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStorageInfo>

#include <algorithm>

namespace dorvane {

namespace {

// The kernel's own file systems are no place for a user's files.
bool IsUserVolume(const QStorageInfo& volume)
{
    if (!volume.isValid() || !volume.isReady())
        return false;
    const QString root = volume.rootPath();
    for (const char* hidden : {"/proc", "/sys", "/dev", "/run"}) {
        const QString prefix = QString::fromLatin1(hidden);
        if (root == prefix || root.startsWith(prefix + u'/'))
            return false;
    }
    return true;
}

} // namespace

frmFileList::frmFileList(MessageSink& messages, QWidget* parent) : QDialog(parent), m_messages(messages)
{
    setupUi(this);
    cmdOK = NamedButton(buttons, QDialogButtonBox::Ok, "cmdOK", QStringLiteral("OK"));
    cmdOK->setDefault(true);
    cmdCancel = NamedButton(buttons, QDialogButtonBox::Cancel, "cmdCancel", QStringLiteral("Cancel"));

    m_folders = new QFileSystemModel(this);
    m_folders->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot);
    dlbFileDir->setModel(m_folders);
    for (int column = 1; column < m_folders->columnCount(); ++column)
        dlbFileDir->hideColumn(column);
    m_files = new QFileSystemModel(this);
    m_files->setFilter(QDir::Files);
    flbFileList->setModel(m_files);

    connect(dlbFileDrive, &QComboBox::activated, this, &frmFileList::dlbFileDrive_Change);
    connect(dlbFileDir, &QTreeView::clicked, this, &frmFileList::dlbFileDir_Change);
    connect(flbFileList, &QListView::clicked, this, &frmFileList::flbFileList_Click);
    connect(cmdOK, &QPushButton::clicked, this, &frmFileList::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmFileList::cmdCancel_Click);

    fillDrives();
    SetFolder(QDir::currentPath());
    txtFileName->setFocus();
}

void frmFileList::fillDrives()
{
    QStringList roots;
    for (const QStorageInfo& volume : QStorageInfo::mountedVolumes()) {
        if (IsUserVolume(volume))
            roots << volume.rootPath();
    }
    std::sort(roots.begin(), roots.end());
    roots.removeDuplicates();
    dlbFileDrive->addItems(roots);
}

void frmFileList::showDriveOf(const QString& folder)
{
    const QString root = QStorageInfo(folder).rootPath();
    int index = dlbFileDrive->findText(root, Qt::MatchExactly);
    if (index < 0 && !root.isEmpty()) {
        dlbFileDrive->addItem(root);
        index = dlbFileDrive->count() - 1;
    }
    const QSignalBlocker block(dlbFileDrive);
    dlbFileDrive->setCurrentIndex(index);
}

void frmFileList::SetFolder(const QString& folder)
{
    m_folder = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    const QString root = QStorageInfo(m_folder).rootPath();
    showDriveOf(m_folder);
    m_folders->setRootPath(root);
    const QModelIndex current = m_folders->index(m_folder);
    dlbFileDir->setCurrentIndex(current);
    dlbFileDir->scrollTo(current);
    dlbFileDir->expand(current);
    lblFolderPath->setText(m_folder);
    flbFileList->setRootIndex(m_files->setRootPath(m_folder));
}

void frmFileList::PresetTextFileName()
{
    txtFileName->setText(m_folder + QStringLiteral("/") + QStringLiteral(".txt"));
}

void frmFileList::dlbFileDrive_Change()
{
    const QString root = dlbFileDrive->currentText();
    const QStorageInfo volume(root);
    if (!volume.isValid() || !volume.isReady() || !QFileInfo(root).isReadable()) {
        m_messages.Inform(QStringLiteral("Error while changing drives: ") + QStringLiteral("Device unavailable: ") + root);
        showDriveOf(m_folder);
        return;
    }
    SetFolder(root);
}

void frmFileList::dlbFileDir_Change(const QModelIndex& index)
{
    if (index.isValid())
        SetFolder(m_folders->filePath(index));
}

void frmFileList::flbFileList_Click(const QModelIndex& index)
{
    if (index.isValid())
        txtFileName->setText(m_folder + u'/' + m_files->fileName(index));
}

void frmFileList::cmdOK_Click()
{
    const QString typed = txtFileName->text();
    m_fileName = typed.isEmpty() || QDir::isAbsolutePath(typed) ? typed : m_folder + u'/' + typed;
    m_cancelled = false;
    accept();
}

void frmFileList::cmdCancel_Click()
{
    m_cancelled = true;
    reject();
}

} // namespace dorvane
