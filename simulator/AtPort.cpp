#include "AtPort.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int MaxPending = 256 * 1024; ///< bytes

bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}

AtPort::~AtPort()
{
    // The receivers of the signals may have been destroyed.
    blockSignals(true);
    Close();
    for (Listener& listener : listeners) {
        listener.connectable.reset();
        close(listener.socket);
    }
}

QString AtPort::ListenOnTcp(quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    return Listen(listener, &address, sizeof address, QStringLiteral("TCP port %1").arg(port));
}

QString AtPort::ListenOnAbstract(const QString& name)
{
    const QString label = QStringLiteral("abstract socket %1").arg(name);
    const QByteArray bytes = name.toUtf8();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (bytes.isEmpty() || bytes.size() >= static_cast<int>(sizeof address.sun_path))
        return label + QStringLiteral(": its name has 1 to %1 bytes").arg(sizeof address.sun_path - 1);
    std::memcpy(address.sun_path + 1, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return Listen(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), &address,
                  static_cast<unsigned>(offsetof(sockaddr_un, sun_path) + 1) + static_cast<unsigned>(bytes.size()),
                  label);
}

QString AtPort::Listen(int socket, const void* address, unsigned size, const QString& name)
{
    if (socket < 0 || bind(socket, static_cast<const sockaddr*>(address), size) != 0 || listen(socket, 1) != 0) {
        const QString problem = name + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
        if (socket >= 0)
            close(socket);
        return problem;
    }
    auto connectable = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Read);
    connect(connectable.get(), &QSocketNotifier::activated, this, [this, socket] { Accept(socket); });
    listeners.push_back({socket, std::move(connectable)});
    UpdateListening();
    return {};
}

/// Accepts connections while the port is free.
void AtPort::UpdateListening()
{
    for (Listener& listener : listeners)
        listener.connectable->setEnabled(client < 0 || !plugged);
}

void AtPort::Accept(int listeningSocket)
{
    const int accepted = accept4(listeningSocket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (accepted < 0)
        return;
    if (!plugged || client >= 0) { // two sockets may become connectable in the same turn
        close(accepted);
        return;
    }
    const int yes = 1;
    setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes); // fails harmlessly on a local socket
    client = accepted;
    readable = std::make_unique<QSocketNotifier>(client, QSocketNotifier::Read);
    writable = std::make_unique<QSocketNotifier>(client, QSocketNotifier::Write);
    writable->setEnabled(false);
    connect(readable.get(), &QSocketNotifier::activated, this, &AtPort::OnReadable);
    connect(writable.get(), &QSocketNotifier::activated, this, &AtPort::OnWritable);
    UpdateListening();
    Q_EMIT Opened();
}

void AtPort::SetPlugged(bool plugged)
{
    this->plugged = plugged;
    if (!plugged)
        Close();
    UpdateListening();
}

void AtPort::Close()
{
    if (client < 0)
        return;
    // The caller may be a slot of one of the notifiers.
    for (std::unique_ptr<QSocketNotifier>* notifier : {&readable, &writable}) {
        (*notifier)->setEnabled(false);
        notifier->release()->deleteLater();
    }
    close(client);
    client = -1;
    pending.clear();
    UpdateListening();
    Q_EMIT Closed();
}

void AtPort::OnReadable()
{
    char buffer[4096];
    const ssize_t size = read(client, buffer, sizeof buffer);
    if (size > 0)
        Q_EMIT Received(QByteArray(buffer, static_cast<int>(size)));
    else if (size == 0 || !WouldBlock())
        Close();
}

void AtPort::Write(const QByteArray& data)
{
    if (client < 0 || pending.size() + data.size() > MaxPending)
        return;
    const bool idle = pending.isEmpty();
    pending += data;
    if (idle)
        OnWritable();
}

void AtPort::OnWritable()
{
    const ssize_t size = send(client, pending.constData(), static_cast<std::size_t>(pending.size()), MSG_NOSIGNAL);
    if (size > 0)
        pending.remove(0, static_cast<int>(size));
    else if (size < 0 && !WouldBlock())
        pending.clear(); // OnReadable() will notice the end of the connection
    writable->setEnabled(!pending.isEmpty());
}
