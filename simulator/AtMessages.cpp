#include "AtMessages.h"

#include <algorithm>

namespace
{

constexpr int StoreSize = 30;
constexpr int MaxUnfinished = 16; ///< submitted messages of which parts are missing

QByteArray Hex(const QByteArray& unit)
{
    return unit.toHex().toUpper();
}

}

bool AtMessages::Handles(const QString& command)
{
    static const QStringList names = {"+CSMS", "+CMGF", "+CPMS", "+CNMI", "+CNMA",
                                      "+CSCA", "+CMGS", "+CMGL", "+CMGR", "+CMGD"};
    return names.contains(command);
}

void AtMessages::Reset()
{
    service = 0;
    indication = 0;
}

AtAnswer AtMessages::Execute(const AtCommand& command)
{
    const QByteArray prefix = command.name.toLatin1() + ": ";
    const auto answer = [&](const QByteArray& text) { return AtAnswer::Line(prefix + text); };
    const AtAnswer refusal{AtAnswer::MessageError, CmsInvalidPdu};
    const bool isTest = command.operation == AtCommand::Test;
    const bool isRead = command.operation == AtCommand::Read;

    if (command.name == QLatin1String("+CSMS")) {
        if (isTest)
            return answer("(0,1)");
        if (isRead)
            return answer(QByteArray::number(service) + ",1,1,1");
        service = command.Number(0, 0) == 1;
        return answer("1,1,1");
    }
    if (command.name == QLatin1String("+CMGF")) {
        if (isTest)
            return answer("(0)");
        if (isRead)
            return answer("0");
        return command.Number(0, 0) == 0 ? AtAnswer() : refusal;
    }
    if (command.name == QLatin1String("+CPMS")) {
        // The three memories, for reading, writing and receiving, are all the SIM card's.
        const auto thrice = [](const QByteArray& memory) { return memory + ',' + memory + ',' + memory; };
        if (isTest)
            return answer(thrice("(\"SM\")"));
        const QByteArray usage = QByteArray::number(store.size()) + ',' + QByteArray::number(StoreSize);
        if (isRead)
            return answer(thrice("\"SM\"," + usage));
        const bool known = std::all_of(command.parameters.begin(), command.parameters.end(),
                                       [](const QString& name) { return name == QLatin1String("SM"); });
        return known ? answer(thrice(usage)) : refusal;
    }
    if (command.name == QLatin1String("+CNMI")) {
        if (isTest)
            return answer("(0-2),(0-2),(0),(0),(0,1)");
        if (isRead)
            return answer("2," + QByteArray::number(indication) + ",0,0,0");
        indication = qBound(0, command.Number(1, 0), 2);
        return {};
    }
    if (command.name == QLatin1String("+CNMA")) {
        dataIsReceipt = true;
        return {command.Number(1, 0) > 0 ? AtAnswer::Prompt : AtAnswer::Ok};
    }
    if (command.name == QLatin1String("+CSCA"))
        return isRead ? answer("\"+491710000000\",145") : AtAnswer();
    if (command.name == QLatin1String("+CMGS")) {
        if (command.operation != AtCommand::Set)
            return {isTest ? AtAnswer::Ok : AtAnswer::Error};
        dataIsReceipt = false;
        dataLength = command.Number(0, -1);
        return {AtAnswer::Prompt};
    }
    if (isTest)
        return {};
    return command.name == QLatin1String("+CMGL")   ? List(command)
           : command.name == QLatin1String("+CMGR") ? Show(command)
                                                    : Delete(command);
}

AtAnswer AtMessages::List(const AtCommand& command)
{
    const int wanted = command.Number(0, ReceivedUnread);
    AtAnswer answer;
    for (auto stored = store.begin(); stored != store.end(); ++stored) {
        if (wanted != All && wanted != stored->status)
            continue;
        answer.lines.append("+CMGL: " + QByteArray::number(stored.key()) + ',' + QByteArray::number(stored->status) +
                            ",," + QByteArray::number(Pdu::Length(stored->unit)) + "\r\n" + Hex(stored->unit));
        stored->status = ReceivedRead;
    }
    return answer;
}

AtAnswer AtMessages::Show(const AtCommand& command)
{
    const auto stored = store.find(command.Number(0, 0));
    if (stored == store.end())
        return {AtAnswer::MessageError, CmsInvalidIndex};
    const QByteArray status = QByteArray::number(stored->status);
    stored->status = ReceivedRead;
    return AtAnswer::Line("+CMGR: " + status + ",," + QByteArray::number(Pdu::Length(stored->unit)) + "\r\n" +
                          Hex(stored->unit));
}

AtAnswer AtMessages::Delete(const AtCommand& command)
{
    // 3GPP TS 27.005, 3.5.4; the flags between the two delete the messages that were read
    constexpr int DeleteIndex = 0;
    constexpr int DeleteAll = 4;
    const int flag = command.Number(1, DeleteIndex);
    if (flag == DeleteIndex && store.remove(command.Number(0, 0)) == 0)
        return {AtAnswer::MessageError, CmsInvalidIndex};
    if (flag == DeleteAll) {
        store.clear();
    } else if (flag > DeleteIndex) {
        for (auto stored = store.begin(); stored != store.end();)
            stored = stored->status == ReceivedRead ? store.erase(stored) : std::next(stored);
    }

    while (!heldByNetwork.isEmpty() && Store(heldByNetwork.first()))
        heldByNetwork.removeFirst();
    return {};
}

std::optional<int> AtMessages::Store(const QByteArray& unit)
{
    for (int index = 1; index <= StoreSize; ++index) {
        if (!store.contains(index)) {
            store.insert(index, {ReceivedUnread, unit});
            return index;
        }
    }
    return std::nullopt;
}

QList<QByteArray> AtMessages::EncodeIncoming(const QString& sender, const QString& text)
{
    deliverReference = (deliverReference + 1) % 256;
    return Pdu::EncodeDeliver(sender, text, QDateTime::currentDateTime(), deliverReference);
}

QByteArray AtMessages::Deliver(const QByteArray& unit, bool canReport)
{
    if (canReport && indication == 2)
        return "+CMT: ," + QByteArray::number(Pdu::Length(unit)) + "\r\n" + Hex(unit);
    const std::optional<int> index = Store(unit);
    if (!index)
        heldByNetwork.append(unit);
    return index && canReport && indication == 1 ? "+CMTI: \"SM\"," + QByteArray::number(*index) : QByteArray();
}

AtMessages::Submission AtMessages::Submit(const QByteArray& data)
{
    if (dataIsReceipt)
        return {};
    const QByteArray unit = QByteArray::fromHex(data);
    const std::optional<Pdu::Message> part = Pdu::DecodeSubmit(unit);
    if (!part || Pdu::Length(unit) != dataLength)
        return {{AtAnswer::MessageError, CmsInvalidPdu}, std::nullopt};

    submitReference = (submitReference + 1) % 256;
    Submission submission{AtAnswer::Line("+CMGS: " + QByteArray::number(submitReference)), std::nullopt};
    if (part->parts == 1) {
        submission.message = part;
        return submission;
    }

    auto found = std::find_if(unfinished.begin(), unfinished.end(), [&](const Unfinished& message) {
        return message.number == part->number && message.reference == part->reference;
    });
    if (found == unfinished.end()) {
        if (unfinished.size() == MaxUnfinished)
            unfinished.removeFirst();
        unfinished.append({part->number, part->reference, {}});
        found = std::prev(unfinished.end());
    }
    found->texts.insert(part->part, part->text);
    if (found->texts.size() == part->parts) {
        submission.message = part;
        submission.message->text = QStringList(found->texts.values()).join(QString());
    }
    return submission;
}

void AtMessages::ForgetSubmitted(const Pdu::Message& message)
{
    for (auto part = unfinished.begin(); part != unfinished.end();) {
        const bool sent = part->number == message.number && part->reference == message.reference;
        part = sent ? unfinished.erase(part) : std::next(part);
    }
}
