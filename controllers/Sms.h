#pragma once

#include <QDateTime>
#include <QString>

/// One outgoing message.
class Sms
{
public:
    /// @param id the message's identifier in the queue.
    /// @param phoneNumber the destination, unchanged from the client.
    /// @param message the text, unchanged from the client.
    Sms(const uint& id, const QString& phoneNumber, const QString& message)
        : timestamp(QDateTime::currentDateTime()),
          id(id),
          phoneNumber(phoneNumber),
          message(message),
          status(StatusMade)
    {
    }
    Sms(const Sms&) = default;
    Sms& operator=(const Sms&) = default;
    virtual ~Sms() = default;

    static constexpr quint32 StatusMade = 1;

    QDateTime timestamp; ///< local time of the record's creation
    quint32 id;
    QString phoneNumber;
    QString message;
    quint32 status;
};
