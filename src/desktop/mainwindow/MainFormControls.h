#pragma once

#include <QString>
#include <QVector>

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QListWidget;
class QMainWindow;
class QPlainTextEdit;
class QPushButton;
class QTabWidget;
class QTableView;

namespace dorvane {

// Every control of the main window, by the name the editors use. Built once
// by BuildMainFormControls; the window owns the widgets.
struct MainFormControls {
    QTabWidget* SSMainTab = nullptr;
    QVector<QPushButton*> cmdExit; // one per page of SSMainTab

    // Users page.
    QListWidget* lbUserList = nullptr;
    QLineEdit* txtUserID = nullptr;
    QLineEdit* txtFirstName = nullptr;
    QLineEdit* txtLastName = nullptr;
    QLineEdit* txtPassword = nullptr;
    QLineEdit* txtVerifyPassword = nullptr;
    QLineEdit* txtDepartment = nullptr;
    QLineEdit* txtEmail = nullptr;
    QLineEdit* txtExtension = nullptr;
    QPushButton* cmdUserNew = nullptr;
    QPushButton* cmdUserSave = nullptr;
    QPushButton* cmdUserDelete = nullptr;
    QPushButton* cmdUserPrint = nullptr;

    // Options page: roles and projects.
    QTabWidget* SSOptionsTab = nullptr;
    QGroupBox* grpUserRoles = nullptr;
    QTableView* TDBGridRoles = nullptr;
    QPushButton* cmdRoleSave = nullptr;
    QPushButton* cmdRolePrint = nullptr;
    QGroupBox* grpProjectIDs = nullptr;
    QTableView* TDBGridProjects = nullptr;
    QPushButton* cmdProjectSave = nullptr;
    QPushButton* cmdProjectPrint = nullptr;

    // Applications page: definition, versions, keywords.
    QTabWidget* SSAppTab = nullptr;
    QListWidget* lbAppList = nullptr;
    QLineEdit* txtAppName = nullptr;
    QLineEdit* txtAppID = nullptr;
    QLineEdit* txtAppDesc = nullptr;
    QPlainTextEdit* txtAppEnviron = nullptr;
    QComboBox* cbPlatform = nullptr;
    QComboBox* cbEmulator = nullptr;
    QPushButton* cmdAppNew = nullptr;
    QPushButton* cmdAppSave = nullptr;
    QPushButton* cmdAppDelete = nullptr;
    QPushButton* cmdAppPrint = nullptr;

    QListWidget* lbVersionList = nullptr;
    QLineEdit* txtVersionID = nullptr;
    QLineEdit* txtVersionDesc = nullptr;
    QComboBox* cbVersionMapType = nullptr;
    QComboBox* cbVersionLoadProcess = nullptr;
    QComboBox* cbVersionLoginProcess = nullptr;
    QComboBox* cbVersionLogoutProcess = nullptr;
    QComboBox* cbVersionTerminateProcess = nullptr;
    QComboBox* cbVersionRecoverProcess = nullptr;
    QComboBox* cbVersionInitialWindow = nullptr;
    QComboBox* cbVersionMainWindow = nullptr;
    QPushButton* cmdVersionNew = nullptr;
    QPushButton* cmdVersionSave = nullptr;
    QPushButton* cmdVersionSaveAs = nullptr;
    QPushButton* cmdVersionDelete = nullptr;
    QPushButton* cmdAttributes = nullptr;
    QPushButton* cmdVersionPrint = nullptr;

    QTableView* TDBGridKeywords = nullptr;
    QPushButton* cmdKeywordSave = nullptr;
    QPushButton* cmdExportKeywords = nullptr;
    QPushButton* cmdImportKeywords = nullptr;
    QPushButton* cmdKeywordPrint = nullptr;

    // Environments page: definition, configuration, users.
    QTabWidget* SSEnvironTab = nullptr;
    QListWidget* lbEnvironList = nullptr;
    QLineEdit* txtEnvironName = nullptr;
    QLineEdit* txtEnvironDesc = nullptr;
    QPushButton* cmdEnvironNew = nullptr;
    QPushButton* cmdEnvironSave = nullptr;
    QPushButton* cmdEnvironSaveAs = nullptr;
    QPushButton* cmdEnvironDelete = nullptr;
    QPushButton* cmdEnvironBackup = nullptr;
    QPushButton* cmdEnvironRestore = nullptr;
    QPushButton* cmdEnvironPrint = nullptr;

    QListWidget* lbEnvironAppVerList = nullptr;
    QComboBox* cbEnvironApp = nullptr;
    QComboBox* cbEnvironVer = nullptr;
    QComboBox* cbEnvironTestTool = nullptr;
    QComboBox* cbEnvironEmulator = nullptr;
    QPushButton* cmdAddAppVer = nullptr;
    QPushButton* cmdRemoveAppVer = nullptr;
    QPushButton* cmdUpdateAppVer = nullptr;
    QPushButton* cmdCopyAppVer = nullptr;
    QPushButton* cmdEnvironConfigSave = nullptr;

    QListWidget* lbEnvironUsers = nullptr;
    QListWidget* lbEnvironUserList = nullptr;
    QPushButton* cmdAddEnvironUser = nullptr;
    QPushButton* cmdRemoveEnvironUser = nullptr;
    QCheckBox* ckDorvane = nullptr;
    QCheckBox* ckOmrik = nullptr;
    QCheckBox* ckZulane = nullptr;
    QCheckBox* ckVantrel = nullptr;
    QCheckBox* ckKrestin = nullptr;
};

// Builds the pages, lays them out and sets names, captions, tooltips,
// input limits and tab order. Behaviour is connected by the window.
void BuildMainFormControls(QMainWindow* window, MainFormControls& c);

// Shows a text in a text box whole, also one longer than the box lets a
// user type: the suite's other modules may store longer values, and a Save
// writes back what the box holds.
void SetBoxText(QLineEdit* box, const QString& text);

} // namespace dorvane
