#pragma once

#include <QDateTime>
#include <QString>

/// One outgoing message. Copies share their text.
class Sms
{
public:
    /// @param id identifier that the queue gave the message.
    /// @param phoneNumber destination, exactly as the client gave it.
    /// @param message text, exactly as the client gave it.
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

    QDateTime timestamp; ///< local time at which the record was made
    quint32 id;
    QString phoneNumber;
    QString message;
    quint32 status;
};
