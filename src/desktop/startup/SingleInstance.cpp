#include "desktop/startup/SingleInstance.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QWidget>

#include <unistd.h>

namespace dorvane {

namespace {
const QByteArray kRaiseRequest = QByteArrayLiteral("raise\n");
constexpr int kTimeoutMs = 1000;
} // namespace

SingleInstance::SingleInstance(QObject* parent) : QObject(parent) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::ServerName()
{
    QString display = qEnvironmentVariable("DISPLAY");
    if (display.isEmpty())
        display = qEnvironmentVariable("WAYLAND_DISPLAY");
    display.replace(QLatin1Char('/'), QLatin1Char('_'));
    return QStringLiteral("dorvane-%1-%2").arg(getuid()).arg(display);
}

bool SingleInstance::ActivateInstance()
{
    QLocalSocket socket;
    socket.connectToServer(ServerName());
    if (!socket.waitForConnected(kTimeoutMs))
        return false;
    socket.write(kRaiseRequest);
    if (!socket.waitForBytesWritten(kTimeoutMs))
        return false;
    // The first copy answers once its window has been raised.
    socket.waitForReadyRead(kTimeoutMs);
    socket.disconnectFromServer();
    return true;
}

void SingleInstance::Listen(QWidget* mainWindow)
{
    m_window = mainWindow;
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(ServerName())) {
        // A server left behind by a copy that crashed.
        QLocalServer::removeServer(ServerName());
        m_server->listen(ServerName());
    }
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* peer = m_server->nextPendingConnection()) {
            connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
            connect(peer, &QLocalSocket::readyRead, this, [this, peer] {
                if (peer->readAll().contains('\n')) {
                    raiseWindow();
                    peer->write("ok\n");
                    peer->flush();
                }
            });
        }
    });
}

void SingleInstance::raiseWindow()
{
    if (!m_window)
        return;
    if (m_window->isMinimized())
        m_window->showNormal();
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

} // namespace dorvane
