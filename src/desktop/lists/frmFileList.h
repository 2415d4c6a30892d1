#pragma once

#include "ui_frmFileList.h"

#include <QDialog>

class QFileSystemModel;
class QModelIndex;
class QPushButton;

namespace dorvane {

class MessageSink;

// The file chooser: a drive list (the mounted file systems), the folder
// tree of the drive, the files of the current folder and the file name. Its
// caption is set by the caller. OK hands back txtFileName (a name without a
// folder is taken to be in the current folder); Cancel, or closing the
// window, leaves the cancelled flag set.
class frmFileList : public QDialog, public Ui::frmFileList {
    Q_OBJECT
public:
    explicit frmFileList(MessageSink& messages, QWidget* parent = nullptr);

    bool Cancelled() const { return m_cancelled; }
    // The chosen file, folder and name, as OK handed it back.
    const QString& FileName() const { return m_fileName; }

    QString CurrentFolder() const { return m_folder; }
    // Moves the folder list (and its drive) to `folder` and lists its files.
    void SetFolder(const QString& folder);
    // txtFileName := the current folder & "/" & ".txt", for the user to type
    // the name in front of the extension.
    void PresetTextFileName();

    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;

    void dlbFileDrive_Change();
    void dlbFileDir_Change(const QModelIndex& index);
    void flbFileList_Click(const QModelIndex& index);
    void cmdOK_Click();
    void cmdCancel_Click();

private:
    void fillDrives();
    void showDriveOf(const QString& folder);

    MessageSink& m_messages;
    QFileSystemModel* m_folders = nullptr;
    QFileSystemModel* m_files = nullptr;
    QString m_folder;
    QString m_fileName;
    bool m_cancelled = true;
};

} // namespace dorvane
