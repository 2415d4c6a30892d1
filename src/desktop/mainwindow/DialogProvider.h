#pragma once

#include "core/applications/VersionAttributes.h"

#include <QDialogButtonBox>
#include <QString>

#include <functional>
#include <optional>

class QPushButton;
class QWidget;

namespace dorvane {

class MessageSink;

// How frmFileList fills txtFileName when it opens.
enum class FileNamePreset {
    None,
    // The current folder, the separator and ".txt", so that the user types
    // the name in front of the extension.
    TextFileInCurrentFolder,
};

// A standard button of a dialog form's button box, under the name and the
// caption its dialog knows it by, and without a style's icon.
QPushButton* NamedButton(QDialogButtonBox* box, QDialogButtonBox::StandardButton which, const char* name,
                         const QString& caption);

// The main window's modal dialogs, each returning the user's choice. The
// desktop program shows the real dialogs; tests answer them.
class DialogProvider {
public:
    virtual ~DialogProvider() = default;
    // frmAttributes on `shown`; empty when cancelled.
    virtual std::optional<ListAttributes> ListHandlingAttributes(const ListAttributes& shown) = 0;
    // frmFileList with `caption`; the chosen file (folder and name), empty
    // when cancelled.
    virtual std::optional<QString> FileList(const QString& caption, FileNamePreset preset) = 0;
    // frmNewVersionID with `prompt` in its label: the accepted ID, empty
    // when cancelled. OK closes only when `okCheck` takes the typed text.
    virtual std::optional<QString> NewVersionID(const QString& prompt,
                                                const std::function<bool(const QString& id)>& okCheck) = 0;
    // frmRestoreSelect on the backup files of `folder`: the chosen file
    // (the folder & "\" & its name), empty when cancelled.
    virtual std::optional<QString> RestoreBackup(const QString& folder) = 0;
};

// The dialogs as windows over `parent`; `messages` shows their messages.
class QtDialogProvider : public DialogProvider {
public:
    QtDialogProvider(QWidget* parent, MessageSink& messages) : m_parent(parent), m_messages(messages) {}
    std::optional<ListAttributes> ListHandlingAttributes(const ListAttributes& shown) override;
    std::optional<QString> FileList(const QString& caption, FileNamePreset preset) override;
    std::optional<QString> NewVersionID(const QString& prompt,
                                        const std::function<bool(const QString& id)>& okCheck) override;
    std::optional<QString> RestoreBackup(const QString& folder) override;

private:
    QWidget* m_parent;
    MessageSink& m_messages;
};

} // namespace dorvane
