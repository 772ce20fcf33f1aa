#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

/// Short messages as protocol data units (3GPP TS 23.040; alphabets: 23.038), the form in which modems exchange them.
/// As in 3GPP TS 27.005, a unit here begins with the address of the service centre.
namespace Pdu
{

/// A message, or a part of a longer one.
struct Message {
    QString number; ///< recipient or sender; international ones begin with "+"; a sender may be a name
    QString text;
    QDateTime time = {}; ///< when the service centre received it; only of received messages
    int reference = 0;   ///< the same for all parts of a message
    int parts = 1;
    int part = 1; ///< from 1
};

/// Encodes a message as the network delivers it, in as many units as the text needs. Uses the 7-bit default alphabet
/// with its extension if it has every character, else UCS-2.
/// @return nothing if the text needs more than 255 units.
QList<QByteArray> EncodeDeliver(const QString& sender, const QString& text, const QDateTime& time, int reference);

/// Encodes a message as a phone submits it; otherwise like EncodeDeliver().
QList<QByteArray> EncodeSubmit(const QString& recipient, const QString& text, int reference);

/// @return nothing if the unit is malformed, of another type, or compressed.
std::optional<Message> DecodeDeliver(const QByteArray& unit);
std::optional<Message> DecodeSubmit(const QByteArray& unit);

/// @return the octets of a unit without the service centre's address, as AT commands count them; negative if the unit
/// is malformed.
int Length(const QByteArray& unit);

}
