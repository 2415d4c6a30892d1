#include "desktop/lists/frmFileList.h"

#include "core/repository/Interaction.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStorageInfo>
#include <QTreeView>

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
    setObjectName(QStringLiteral("frmFileList"));
    setModal(true);

    dlbFileDrive = new QComboBox(this);
    dlbFileDrive->setObjectName(QStringLiteral("dlbFileDrive"));

    m_folders = new QFileSystemModel(this);
    m_folders->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot);
    dlbFileDir = new QTreeView(this);
    dlbFileDir->setObjectName(QStringLiteral("dlbFileDir"));
    dlbFileDir->setModel(m_folders);
    dlbFileDir->setHeaderHidden(true);
    for (int column = 1; column < m_folders->columnCount(); ++column)
        dlbFileDir->hideColumn(column);

    m_files = new QFileSystemModel(this);
    m_files->setFilter(QDir::Files);
    flbFileList = new QListView(this);
    flbFileList->setObjectName(QStringLiteral("flbFileList"));
    flbFileList->setModel(m_files);

    txtFileName = new QLineEdit(this);
    txtFileName->setObjectName(QStringLiteral("txtFileName"));
    m_folderPath = new QLabel(this);
    m_folderPath->setObjectName(QStringLiteral("lblFolderPath"));

    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    cmdCancel = new QPushButton(QStringLiteral("Cancel"), this);
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    auto* buttons = new QDialogButtonBox(Qt::Vertical, this);
    buttons->addButton(cmdOK, QDialogButtonBox::AcceptRole);
    buttons->addButton(cmdCancel, QDialogButtonBox::RejectRole);

    auto* layout = new QGridLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("File &Name:"), this), 0, 0);
    layout->addWidget(txtFileName, 1, 0, 1, 2);
    layout->addWidget(buttons, 1, 2, 3, 1, Qt::AlignTop);
    layout->addWidget(new QLabel(QStringLiteral("Directory:"), this), 2, 0);
    layout->addWidget(m_folderPath, 2, 1);
    layout->addWidget(dlbFileDir, 3, 0);
    layout->addWidget(flbFileList, 3, 1);
    layout->addWidget(new QLabel(QStringLiteral("Drives:"), this), 4, 0);
    layout->addWidget(dlbFileDrive, 5, 0);
    layout->setColumnStretch(0, 1);
    layout->setColumnStretch(1, 1);

    connect(dlbFileDrive, &QComboBox::activated, this, &frmFileList::dlbFileDrive_Change);
    connect(dlbFileDir, &QTreeView::clicked, this, &frmFileList::dlbFileDir_Change);
    connect(flbFileList, &QListView::clicked, this, &frmFileList::flbFileList_Click);
    connect(cmdOK, &QPushButton::clicked, this, &frmFileList::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmFileList::cmdCancel_Click);

    fillDrives();
    SetFolder(QDir::currentPath());
    txtFileName->setFocus();
    resize(560, 380);
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
    m_folderPath->setText(m_folder);
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
