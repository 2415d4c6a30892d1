#pragma once

#include <QMainWindow>
#include <QVector>

class QPushButton;
class QTabWidget;

namespace dorvane {

class MessageSink;
struct Session;

// The program's one main window: a tab control whose pages hold the
// editors. Unloading it closes the databases of the session.
class frmMainForm : public QMainWindow {
    Q_OBJECT
public:
    enum Page { UsersPage = 0, OptionsPage = 1, ApplicationsPage = 2, EnvironmentsPage = 3 };

    frmMainForm(Session& session, MessageSink& messages, QWidget* parent = nullptr);
    ~frmMainForm() override;

    QTabWidget* SSMainTab() const { return m_mainTab; }
    QTabWidget* SSOptionsTab() const { return m_optionsTab; }
    QTabWidget* SSAppTab() const { return m_appTab; }
    QTabWidget* SSEnvironTab() const { return m_environTab; }
    // One exit button per page, by page index.
    const QVector<QPushButton*>& cmdExit() const { return m_exitButtons; }

    bool IsUnloaded() const { return m_unloaded; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* makePage(QWidget* content, int index);
    void cmdExitClick(int index);
    void Unload();

    Session& m_session;
    MessageSink& m_messages;
    QTabWidget* m_mainTab = nullptr;
    QTabWidget* m_optionsTab = nullptr;
    QTabWidget* m_appTab = nullptr;
    QTabWidget* m_environTab = nullptr;
    QVector<QPushButton*> m_exitButtons;
    bool m_unloaded = false;
};

} // namespace dorvane
