#include "desktop/mainwindow/DialogProvider.h"

#include "desktop/applications/frmAttributes.h"
#include "desktop/environments/frmNewVersionID.h"
#include "desktop/environments/frmRestoreSelect.h"
#include "desktop/lists/frmFileList.h"

#include <QIcon>
#include <QPushButton>

namespace dorvane {

QPushButton* NamedButton(QDialogButtonBox* box, QDialogButtonBox::StandardButton which, const char* name,
                         const QString& caption)
{
    QPushButton* button = box->button(which);
    button->setObjectName(QLatin1String(name));
    button->setText(caption);
    button->setIcon(QIcon());
    return button;
}

std::optional<ListAttributes> QtDialogProvider::ListHandlingAttributes(const ListAttributes& shown)
{
    frmAttributes dialog(shown, m_messages, m_parent);
    dialog.exec();
    if (dialog.Cancelled())
        return std::nullopt;
    return dialog.Values();
}

std::optional<QString> QtDialogProvider::FileList(const QString& caption, FileNamePreset preset)
{
    frmFileList dialog(m_messages, m_parent);
    dialog.setWindowTitle(caption);
    if (preset == FileNamePreset::TextFileInCurrentFolder)
        dialog.PresetTextFileName();
    dialog.exec();
    if (dialog.Cancelled())
        return std::nullopt;
    return dialog.FileName();
}

std::optional<QString> QtDialogProvider::NewVersionID(const QString& prompt,
                                                     const std::function<bool(const QString& id)>& okCheck)
{
    frmNewVersionID dialog(prompt, okCheck, m_parent);
    dialog.exec();
    if (!dialog.Accepted())
        return std::nullopt;
    return dialog.VersionID();
}

std::optional<QString> QtDialogProvider::RestoreBackup(const QString& folder)
{
    return QtRestoreChooser(m_parent).ChooseBackup(folder);
}

} // namespace dorvane
