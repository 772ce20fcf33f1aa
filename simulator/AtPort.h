#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSocketNotifier>

#include <memory>

/// A serial port that is reached through a socket. One program at a time has it open; whoever comes meanwhile waits
/// until it is closed.
class AtPort : public QObject
{
    Q_OBJECT

public:
    ~AtPort() override;

    /// Each opens one more entrance. @return an empty text, or what prevents it.
    QString ListenOnTcp(quint16 port);
    QString ListenOnAbstract(const QString& name);

    bool IsOpen() const { return client >= 0; }
    /// Nothing is lost on a program that reads; what one that does not read leaves to pile up is dropped.
    void Write(const QByteArray& data);
    /// Ends the connection, as a device that is unplugged.
    void Close();
    /// Lets nobody in while unplugged.
    void SetPlugged(bool plugged);

Q_SIGNALS:
    void Opened();
    void Closed();
    void Received(const QByteArray& data);

private:
    QString Listen(int socket, const void* address, unsigned size, const QString& name);
    void Accept(int listener);
    void Admit();
    void OnReadable();
    void OnWritable();

    struct Entrance {
        int socket;
        std::unique_ptr<QSocketNotifier> arrival;
    };

    std::vector<Entrance> entrances;
    bool plugged = true;
    int client = -1;
    std::unique_ptr<QSocketNotifier> readable;
    std::unique_ptr<QSocketNotifier> writable;
    QByteArray pending; ///< written and not yet taken by the other end
};
