#pragma once

#include "AtAnswer.h"
#include "AtLine.h"
#include "Pdu.h"

#include <QMap>

/// The short message commands of the AT port, in PDU mode (3GPP TS 27.005). Messages that are not passed on at once are
/// stored on the SIM card. While the card is full, the network holds them.
class AtMessages
{
public:
    static bool Handles(const QString& command);
    AtAnswer Execute(const AtCommand& command);
    /// Restores the settings that hold after the port is opened.
    void Reset();

    /// Encodes a message into the units that the network delivers one by one.
    QList<QByteArray> EncodeIncoming(const QString& sender, const QString& text);
    /// @param canReport whether the port is open. @return the report to be written there, if any.
    QByteArray Deliver(const QByteArray& unit, bool canReport);

    struct Submission {
        AtAnswer answer;
        std::optional<Pdu::Message> message; ///< the whole message, once its last part was submitted
    };
    /// @param data the input after the prompt.
    Submission Submit(const QByteArray& data);
    /// Drops the parts of a message that was sent. Until then a part may be submitted again.
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
    std::optional<int> Store(const QByteArray& unit);

    QMap<int, Stored> store; ///< by index, from 1
    QList<QByteArray> heldByNetwork;
    QList<Unfinished> unfinished; ///< submitted messages of which parts are missing
    int service = 0;
    int indication = 0; ///< of a new message: 0 none, 1 its index, 2 the message itself
    int dataLength = 0;
    bool dataIsReceipt = false;
    int submitReference = 0;
    int deliverReference = 0;
};
