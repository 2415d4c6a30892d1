#pragma once

#include <QObject>
#include <QString>

class QLocalServer;
class QWidget;

namespace dorvane {

// One running copy per user and display. A second copy finds the first
// through a local socket, asks it to restore and raise its main window, and
// ends without a message.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when another running copy was found and asked to come to the front.
    bool ActivateInstance();
    // Starts answering later copies; they raise this window.
    void Listen(QWidget* mainWindow);

    static QString ServerName();

private:
    void raiseWindow();

    QLocalServer* m_server = nullptr;
    QWidget* m_window = nullptr;
};

} // namespace dorvane
