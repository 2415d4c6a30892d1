#pragma once

#include "core/environments/EnvironmentBackup.h"

#include "ui_frmRestoreSelect.h"

#include <QDialog>

class QListWidgetItem;
class QPushButton;
class QWidget;

namespace dorvane {

// The backup chooser: the "*.mdb" files of one environment's backup folder,
// newest first and the newest selected. OK or a double-click on a file
// clears the cancelled flag and hands back the folder & "\" & the file
// name; Cancel, or closing the window, leaves the flag set.
class frmRestoreSelect : public QDialog, public Ui::frmRestoreSelect {
    Q_OBJECT
public:
    explicit frmRestoreSelect(const QString& folder, QWidget* parent = nullptr);

    bool Cancelled() const { return m_cancelled; }
    const QString& ChosenPath() const { return m_chosenPath; }

    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;

    void cmdOK_Click();
    void cmdCancel_Click();
    void flbFileList_DblClick(QListWidgetItem* item);

private:
    void choose(QListWidgetItem* item);

    QString m_folder;
    QString m_chosenPath;
    bool m_cancelled = true;
};

// The chooser as the main window shows it: frmRestoreSelect, modal over
// `parent`.
class QtRestoreChooser : public RestoreChooser {
public:
    explicit QtRestoreChooser(QWidget* parent) : m_parent(parent) {}
    std::optional<QString> ChooseBackup(const QString& folder) override;

private:
    QWidget* m_parent;
};

} // namespace dorvane
