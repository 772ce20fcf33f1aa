#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QSocketNotifier>

#include <memory>

/// A serial port that is reached through a socket. One program at a time has it open; the next connection is accepted
/// when it is closed.
class AtPort : public QObject
{
    Q_OBJECT

public:
    ~AtPort() override;

    /// Each opens one more entrance. @return an empty text, or what prevents it.
    QString ListenOnTcp(quint16 port);
    QString ListenOnAbstract(const QString& name);

    bool IsOpen() const { return client >= 0; }
    /// Never blocks. When the program does not read, at most 256 KiB are kept for it, and further data are dropped.
    void Write(const QByteArray& data);
    /// Ends the connection, as a device that is unplugged.
    void Close();
    /// While unplugged, connections are closed at once.
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
