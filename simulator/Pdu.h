#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

/// Short messages as protocol data units, the form in which a modem takes and gives them: 3GPP TS 23.040 (the units)
/// and 23.038 (the alphabets). A unit is here preceded by the service centre's address, as 3GPP TS 27.005 has it.
namespace Pdu
{

/// One message, or one part of a longer one.
struct Message {
    QString number; ///< recipient or sender; "+" leads an international one; a sender may be a name
    QString text;
    QDateTime time = {}; ///< when the service centre received it; of received messages only
    int reference = 0;   ///< common to the parts of one message
    int parts = 1;
    int part = 1; ///< from 1
};

/// A message as the network delivers it: one unit, or as many as the text needs. The 7 bit default alphabet with its
/// extension is used when it has every character, else UCS-2.
/// @return nothing when the text needs more than 255 parts.
QList<QByteArray> EncodeDeliver(const QString& sender, const QString& text, const QDateTime& time, int reference);

/// A message as a phone submits it; as EncodeDeliver().
QList<QByteArray> EncodeSubmit(const QString& recipient, const QString& text, int reference);

/// @return nothing when the unit is broken, of another type, or compressed.
std::optional<Message> DecodeDeliver(const QByteArray& unit);
std::optional<Message> DecodeSubmit(const QByteArray& unit);

/// The octets of a unit without the service centre's address, which is how AT commands count it.
/// @return a negative number when the unit is broken.
int Length(const QByteArray& unit);

}
