#pragma once

#include <QWidget>

#include <functional>

class QListWidget;
class QPushButton;
class QTableView;

namespace dorvane {

class DbError;
class DialogProvider;
class MessageSink;
class NameDescGrid;
struct Session;

// Shows a list as a printable report (a print preview in the desktop
// program, from which it can be printed or saved as PDF).
class ReportPrinter {
public:
    virtual ~ReportPrinter() = default;
    virtual void Preview(const QString& title, const QStringList& headers, const QVector<QStringList>& rows) = 0;
};

// What the pages of the main window work with: the session's databases,
// the message boxes, the report printer and the modal dialogs.
struct PageContext {
    Session& session;
    MessageSink& messages;
    ReportPrinter& printer;
    DialogProvider* dialogs;
};

// A page of the main window: its editors gather the input of the page's
// controls, call the core's operations and show their outcome.
class EditorPage : public QWidget {
    Q_OBJECT
public:
    // Up while the page fills its own controls: what their signals report
    // then is no edit.
    bool EditLoading() const { return m_editLoading; }
    // The window is active again: no filling is under way.
    void ClearEditLoading() { m_editLoading = false; }
    // Whether the page's last Save wrote what the page shows.
    bool SaveOk() const { return m_saveOk; }
    // Focuses the page's first field, if it has one.
    void FocusFirstField();

signals:
    // An outcome shows this page (a failed check the field to correct on it).
    void showRequested();

protected:
    EditorPage(PageContext& context, QWidget* parent);

    Session& session() const { return m_context.session; }
    MessageSink& messages() const { return m_context.messages; }
    DialogProvider& dialogs() const { return *m_context.dialogs; }
    void setFirstField(QWidget* field) { m_firstField = field; }

    void showDbError(const QString& prefix, const DbError& error);
    // After Cancel (or a refused Save) the list returns to the entry the
    // form still shows.
    void returnToRow(QListWidget* list, int row);
    void focusField(const QString& objectName);
    // The save prompt of an editor with a selection list: true when the
    // user chose to stay. Yes runs `save` and puts the list's selection
    // back as it was.
    bool listEditorExitCancel(const QString& prompt, QListWidget* list, const std::function<void()>& save);
    void printList(const QString& title, const QListWidget* list);
    void printGrid(const QString& title, NameDescGrid& grid);

    // A roles, projects or keywords grid in `view`: Save is enabled by its
    // edits and runs `save`; the Delete key and the grid's menu delete the
    // selected row.
    void bindGrid(NameDescGrid& grid, QTableView* view, QPushButton* saveButton, const std::function<void()>& save);
    // The grid's save prompt; Save stays enabled while edits are left.
    bool gridExitCancel(NameDescGrid& grid, QPushButton* saveButton, qint32 appKey);
    // After the save prompt was answered No: the grid reloads its stored rows.
    void dropGridEdits(NameDescGrid& grid, QPushButton* saveButton, const std::function<void()>& reload);

    bool m_editLoading = false;
    bool m_saveOk = false;

private:
    PageContext& m_context;
    QWidget* m_firstField = nullptr;
};

} // namespace dorvane
