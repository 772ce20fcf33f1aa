#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSocketNotifier>

#include <memory>
#include <vector>

/// A serial port that is reached through a socket. Only one program can have it open: the next connection is accepted
/// when the previous one is closed.
class AtPort : public QObject
{
    Q_OBJECT

public:
    ~AtPort() override;

    /// Each call adds a listening socket. @return an error message, empty on success.
    QString ListenOnTcp(quint16 port);
    QString ListenOnAbstract(const QString& name);

    bool IsOpen() const { return client >= 0; }
    /// Never blocks. Up to 256 KiB are buffered for a program that does not read; further data are dropped.
    void Write(const QByteArray& data);
    /// Ends the connection.
    void Close();
    /// Unplugging ends the connection. While the port is unplugged, new connections are closed at once.
    void SetPlugged(bool plugged);

Q_SIGNALS:
    void Opened();
    void Closed();
    void Received(const QByteArray& data);

private:
    QString Listen(int socket, const void* address, unsigned size, const QString& name);
    void Accept(int listeningSocket);
    void UpdateListening();
    void OnReadable();
    void OnWritable();

    struct Listener {
        int socket;
        std::unique_ptr<QSocketNotifier> connectable;
    };

    std::vector<Listener> listeners;
    bool plugged = true;
    int client = -1;
    std::unique_ptr<QSocketNotifier> readable;
    std::unique_ptr<QSocketNotifier> writable;
    QByteArray pending; ///< data that the other end has not yet accepted
};
