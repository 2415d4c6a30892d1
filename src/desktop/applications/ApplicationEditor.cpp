// The application editor on the Applications page's Definition tab.

#include "core/applications/ApplicationRecords.h"
#include "core/applications/Deletion.h"
#include "core/lists/NameDescGrids.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/repository/DbError.h"
#include "core/startup/Startup.h"

#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTabWidget>

namespace dorvane {

void frmMainForm::connectApplications()
{
    const auto edited = [this] {
        AppDirty = true;
        c.cmdAppSave->setEnabled(true);
    };
    for (QLineEdit* box : {c.txtAppName, c.txtAppID, c.txtAppDesc})
        connect(box, &QLineEdit::textChanged, this, edited);
    connect(c.txtAppEnviron, &QPlainTextEdit::textChanged, this, edited);
    connect(c.cbEmulator, &QComboBox::activated, this, [this] { AppDirty = true; });
    connect(c.cbPlatform, &QComboBox::activated, this, &frmMainForm::cbPlatform_Click);
    connect(c.cmdAppNew, &QPushButton::clicked, this, &frmMainForm::cmdAppNew_Click);
    connect(c.cmdAppSave, &QPushButton::clicked, this, &frmMainForm::cmdAppSave_Click);
    connect(c.cmdAppDelete, &QPushButton::clicked, this, &frmMainForm::cmdAppDelete_Click);
    connect(c.lbAppList, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            lbAppList_Click();
    });
}

void frmMainForm::lbAppList_Click()
{
    if (EditLoading)
        return;
    EditLoading = true;
    // The keyword grid shows the application's keywords: its edits are the
    // shown application's, saved or dropped before another one opens.
    if ((AppDirty && AppExitCancel()) || KeywordExitCancel()) {
        returnToRow(c.lbAppList, AppListIndex);
        EditLoading = false;
        return;
    }
    m_keywords->SetDirty(false);
    c.cmdKeywordSave->setEnabled(false);
    AppListIndex = c.lbAppList->currentRow();
    CurrentAppKey = ItemKey(c.lbAppList, AppListIndex);

    ApplicationRecords records(m_session.repository, m_messages, m_session.plan.sharedResourcePath);
    const std::optional<ApplicationRecord> app = records.Open(CurrentAppKey);
    if (!app) {
        EditLoading = false;
        return;
    }
    {
        const QSignalBlocker blockName(c.txtAppName), blockEnviron(c.txtAppEnviron), blockId(c.txtAppID),
            blockDesc(c.txtAppDesc);
        SetBoxText(c.txtAppName, app->name);
        c.txtAppEnviron->setPlainText(app->environ);
        SetBoxText(c.txtAppID, app->id);
        SetBoxText(c.txtAppDesc, app->description);
    }
    m_appEnvironStored = app->environ;
    m_appEnvironShown = c.txtAppEnviron->toPlainText();
    if (app->platformKey) {
        CurrentPlatformKey = *app->platformKey;
        c.cbPlatform->setEnabled(true);
        c.cbPlatform->setCurrentIndex(FindComboItem(*app->platformKey, c.cbPlatform));
        AppIsHost = app->AppIsHost;
        c.cbEmulator->setEnabled(AppIsHost);
        c.cbEmulator->setCurrentIndex(AppIsHost ? FindComboItem(app->emulatorKey, c.cbEmulator) : -1);
    } else {
        // An application written elsewhere without a platform: shown with
        // the first platform, which cannot be changed here.
        c.cbPlatform->setCurrentIndex(0);
        c.cbPlatform->setEnabled(false);
    }
    AppFolderName = app->AppFolderName;

    RefreshVersionList();
    RefreshMapTypes();
    ClearVersionFields();
    RefreshKeywordGrid();

    c.cmdAppDelete->setEnabled(true);
    c.cmdAppSave->setEnabled(false);
    c.SSAppTab->setTabEnabled(1, true);
    c.SSAppTab->setTabEnabled(2, true);
    AppIsNew = false;
    AppDirty = false;
    EditLoading = false;
    c.txtAppName->setFocus();
}

void frmMainForm::cbPlatform_Click()
{
    if (EditLoading || c.cbPlatform->currentIndex() < 0)
        return;
    AppDirty = true;
    c.cmdAppSave->setEnabled(true);
    CurrentPlatformKey = ComboKey(c.cbPlatform, c.cbPlatform->currentIndex());
    bool host = false;
    try {
        host = PlatformIsHost(m_session.repository, CurrentPlatformKey);
    } catch (const DbError& e) {
        showDbError(QStringLiteral("Error while reading platform: "), e);
    }
    if (host) {
        c.cbEmulator->setEnabled(true);
    } else {
        c.cbEmulator->setCurrentIndex(-1);
        c.cbEmulator->setEnabled(false);
    }
}

void frmMainForm::ClearAppFields()
{
    EditLoading = true;
    for (QLineEdit* box : {c.txtAppName, c.txtAppID, c.txtAppDesc}) {
        const QSignalBlocker block(box);
        SetBoxText(box, QString());
    }
    {
        const QSignalBlocker block(c.txtAppEnviron);
        c.txtAppEnviron->clear();
    }
    m_appEnvironStored.clear();
    m_appEnvironShown.clear();
    c.cbPlatform->setCurrentIndex(-1);
    c.cbPlatform->setEnabled(true);
    c.cbEmulator->setCurrentIndex(-1);
    {
        const QSignalBlocker block(c.lbAppList);
        c.lbAppList->setCurrentRow(-1);
    }
    AppListIndex = -1;
    AppDirty = false;
    AppIsNew = true;
    EditLoading = false;
}

void frmMainForm::cmdAppNew_Click()
{
    ClearAppFields();
    EditLoading = true;
    CurrentAppKey = 0;
    c.cmdAppDelete->setEnabled(false);
    c.cmdAppSave->setEnabled(false);
    c.SSAppTab->setTabEnabled(1, false);
    c.SSAppTab->setTabEnabled(2, false);
    cmdVersionNew_Click();
    EditLoading = false;
    c.txtAppName->setFocus();
}

void frmMainForm::cmdAppSave_Click()
{
    SaveOk = false;
    ApplicationInput input;
    input.name = c.txtAppName->text();
    input.id = c.txtAppID->text();
    input.description = c.txtAppDesc->text();
    // The text box shows line breaks its own way ("\r\n" written by the
    // suite's Windows modules comes back as "\n"): a text left as shown is
    // saved as stored.
    const QString environ = c.txtAppEnviron->toPlainText();
    input.environ = environ == m_appEnvironShown ? m_appEnvironStored : environ;
    input.platformKey = SelectedKey(c.cbPlatform);
    input.emulatorKey = SelectedKey(c.cbEmulator);
    input.emulatorText = c.cbEmulator->currentText();

    const bool wasNew = AppIsNew;
    ApplicationState state;
    state.CurrentAppKey = CurrentAppKey;
    state.AppIsNew = AppIsNew;
    state.CurrentPlatformKey = CurrentPlatformKey;
    state.AppFolderName = AppFolderName;
    state.AppIsHost = AppIsHost;

    ApplicationRecords records(m_session.repository, m_messages, m_session.plan.sharedResourcePath);
    const ApplicationSaveOutcome outcome = records.Save(input, state);
    CurrentAppKey = outcome.state.CurrentAppKey;
    AppIsNew = outcome.state.AppIsNew;
    CurrentPlatformKey = outcome.state.CurrentPlatformKey;
    AppFolderName = outcome.state.AppFolderName;
    AppIsHost = outcome.state.AppIsHost;
    if (outcome.dirtyCleared) {
        // The row is written: the list shows it, also when the folder work
        // after it failed, and the next Save updates it.
        AppDirty = false;
        m_appEnvironStored = input.environ;
        m_appEnvironShown = environ;
        RefreshAppList();
        EditLoading = true;
        AppListIndex = FindListItem(CurrentAppKey, c.lbAppList);
        c.lbAppList->setCurrentRow(AppListIndex);
        EditLoading = false;
    }

    if (outcome.SaveOk) {
        c.cmdAppSave->setEnabled(false);
        AppDirty = false;
        AppIsNew = false;
        RefreshMapTypes();
        RefreshVersionList();
        c.cmdAppDelete->setEnabled(true);
        c.SSAppTab->setTabEnabled(1, true);
        c.SSAppTab->setTabEnabled(2, true);
        // A new application has no keywords yet; a stored one keeps the
        // grid as it is, with any rows typed there and not yet saved.
        if (wasNew)
            RefreshKeywordGrid();
    }
    if (outcome.mainTab >= 0)
        c.SSMainTab->setCurrentIndex(outcome.mainTab);
    if (outcome.appTab >= 0)
        c.SSAppTab->setCurrentIndex(outcome.appTab);
    focusField(outcome.focusField);
    SaveOk = outcome.SaveOk;
}

void frmMainForm::cmdAppDelete_Click()
{
    if (c.lbAppList->currentRow() < 0)
        return;
    if (!DeleteApplication(m_session.repository, m_messages, CurrentAppKey, c.txtAppName->text(),
                           [this](qint32 versionKey) { return deleteVersionContents(versionKey); }))
        return;
    RefreshAppList();
    CurrentAppKey = 0;
    RefreshVersionList();
    ClearAppFields();
    c.cmdAppDelete->setEnabled(false);
    c.cmdAppSave->setEnabled(false);
    c.SSAppTab->setTabEnabled(1, false);
    c.SSAppTab->setTabEnabled(2, false);
}

} // namespace dorvane
