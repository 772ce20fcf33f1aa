#include "Pdu.h"

#include <QtGlobal>

/// A message that can be read from the input survives being encoded and read again.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const QByteArray unit(reinterpret_cast<const char*>(data), static_cast<int>(size));
    Pdu::DecodeDeliver(unit);
    const std::optional<Pdu::Message> message = Pdu::DecodeSubmit(unit);
    if (!message)
        return 0;
    QString text;
    for (const QByteArray& part : Pdu::EncodeSubmit(message->number, message->text, message->reference)) {
        const std::optional<Pdu::Message> again = Pdu::DecodeSubmit(part);
        if (!again)
            qFatal("an own unit cannot be read");
        text += again->text;
    }
    if (text != message->text)
        qFatal("a text has changed");
    return 0;
}
