// Export and import of the current application's keywords on the Keywords
// tab.

#include "core/lists/KeywordFiles.h"
#include "core/lists/NameDescGrids.h"
#include "desktop/mainwindow/frmMainForm.h"
#include "core/repository/Interaction.h"
#include "core/startup/Startup.h"

#include <QPushButton>

namespace dorvane {

void frmMainForm::connectKeywordFiles()
{
    connect(c.cmdExportKeywords, &QPushButton::clicked, this, &frmMainForm::cmdExportKeywords_Click);
    connect(c.cmdImportKeywords, &QPushButton::clicked, this, &frmMainForm::cmdImportKeywords_Click);
}

void frmMainForm::cmdExportKeywords_Click()
{
    const bool exported = ExportKeywords(m_session.repository, m_messages, CurrentAppKey, [this] {
        return dialogs().FileList(kExportKeywordsCaption, FileNamePreset::TextFileInCurrentFolder);
    });
    if (exported)
        m_messages.Inform(kKeywordsExported);
}

void frmMainForm::cmdImportKeywords_Click()
{
    // The import reloads the grid: edits not saved yet are saved, or
    // dropped, by the grid's own prompt first.
    if (KeywordExitCancel())
        return;
    const KeywordImportOutcome outcome = ImportKeywords(m_session.repository, m_messages, CurrentAppKey, [this] {
        return dialogs().FileList(kImportKeywordsCaption, FileNamePreset::None);
    });
    if (!outcome.ReloadGrid())
        return;
    // The grid now shows the repository's rows; edits the prompt was told
    // to drop are gone with the old rows.
    RefreshKeywordGrid();
    m_keywords->SetDirty(false);
    c.cmdKeywordSave->setEnabled(false);
    if (outcome.result == KeywordImportResult::Imported)
        m_messages.Inform(kKeywordsImported + KeywordImportCounts(outcome));
}

} // namespace dorvane
