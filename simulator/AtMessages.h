#pragma once

#include "AtAnswer.h"
#include "AtLine.h"
#include "Pdu.h"

#include <QMap>

/// The short messages of the AT port, in PDU mode: 3GPP TS 27.005. Messages that nobody takes at once are stored on the
/// SIM card; while that is full, the network keeps them.
class AtMessages
{
public:
    static bool Knows(const QString& command);
    AtAnswer Carry(const AtCommand& command);
    /// The settings of a port that was opened anew.
    void Reset();

    /// The units of a message, for the network to deliver one by one.
    QList<QByteArray> Arrive(const QString& sender, const QString& text);
    /// @param listened whether somebody has the port open. @return what is reported there, or nothing.
    QByteArray Deliver(const QByteArray& unit, bool listened);

    struct Submission {
        AtAnswer answer;
        std::optional<Pdu::Message> message; ///< whole, with its last part
    };
    /// Takes what came behind the prompt.
    Submission Submit(const QByteArray& data);
    /// The message was sent; its parts need not be kept for another try.
    void ForgetSubmitted(const Pdu::Message& message);

private:
    enum Status { ReceivedUnread = 0, ReceivedRead = 1, All = 4 };
    struct Stored {
        Status status;
        QByteArray unit;
    };
    struct Unfinished {
        QString number;
        int reference;
        QMap<int, QString> texts; ///< by part
    };

    AtAnswer List(const AtCommand& command);
    AtAnswer Show(const AtCommand& command);
    AtAnswer Delete(const AtCommand& command);
    QByteArray Usage() const;
    std::optional<int> Store(const QByteArray& unit);

    QMap<int, Stored> store; ///< by index, from 1
    QList<QByteArray> kept;  ///< by the network, for want of room
    QList<Unfinished> unfinished;
    int service = 0;
    int report = 0; ///< of a new message: 1 its index, 2 the message
    int dataLength = 0;
    bool dataIsReceipt = false;
    int submitted = 0;
    int delivered = 0;
};
