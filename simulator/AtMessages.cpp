#include "AtMessages.h"

#include <algorithm>

namespace
{

constexpr int StoreSize = 30;
constexpr int MaxUnfinished = 16; ///< longer messages of which some parts have not come

QByteArray Hex(const QByteArray& unit)
{
    return unit.toHex().toUpper();
}

}

bool AtMessages::Knows(const QString& command)
{
    static const QStringList names = {"+CSMS", "+CMGF", "+CPMS", "+CNMI", "+CNMA",
                                      "+CSCA", "+CMGS", "+CMGL", "+CMGR", "+CMGD"};
    return names.contains(command);
}

void AtMessages::Reset()
{
    service = 0;
    report = 0;
}

QByteArray AtMessages::Usage() const
{
    const QByteArray one = QByteArray::number(store.size()) + ',' + QByteArray::number(StoreSize);
    return one + ',' + one + ',' + one;
}

AtAnswer AtMessages::Carry(const AtCommand& command)
{
    const QByteArray prefix = command.name.toLatin1() + ": ";
    const auto answer = [&](const QByteArray& text) { return AtAnswer{AtAnswer::Ok, 0, {prefix + text}}; };
    const AtAnswer refusal{AtAnswer::MessageError, CmsInvalidPdu};
    const bool tests = command.operation == AtCommand::Test;
    const bool reads = command.operation == AtCommand::Read;

    if (command.name == QLatin1String("+CSMS")) {
        if (tests)
            return answer("(0,1)");
        if (reads)
            return answer(QByteArray::number(service) + ",1,1,1");
        service = command.Number(0, 0) == 1;
        return answer("1,1,1");
    }
    if (command.name == QLatin1String("+CMGF")) {
        if (tests)
            return answer("(0)");
        if (reads)
            return answer("0");
        return command.Number(0, 0) == 0 ? AtAnswer() : refusal;
    }
    if (command.name == QLatin1String("+CPMS")) {
        if (tests)
            return answer("(\"SM\"),(\"SM\"),(\"SM\")");
        if (reads) {
            const QByteArray one = "\"SM\"," + QByteArray::number(store.size()) + ',' + QByteArray::number(StoreSize);
            return answer(one + ',' + one + ',' + one);
        }
        const bool known = std::all_of(command.parameters.begin(), command.parameters.end(),
                                       [](const QString& name) { return name == QLatin1String("SM"); });
        return known ? answer(Usage()) : refusal;
    }
    if (command.name == QLatin1String("+CNMI")) {
        if (tests)
            return answer("(0-2),(0-2),(0),(0),(0,1)");
        if (reads)
            return answer("2," + QByteArray::number(report) + ",0,0,0");
        report = qBound(0, command.Number(1, 0), 2);
        return {};
    }
    if (command.name == QLatin1String("+CNMA")) {
        dataIsReceipt = true;
        return {command.Number(1, 0) > 0 ? AtAnswer::Prompt : AtAnswer::Ok};
    }
    if (command.name == QLatin1String("+CSCA"))
        return reads ? answer("\"+491710000000\",145") : AtAnswer();
    if (command.name == QLatin1String("+CMGS")) {
        if (command.operation != AtCommand::Set)
            return {tests ? AtAnswer::Ok : AtAnswer::Error};
        dataIsReceipt = false;
        dataLength = command.Number(0, -1);
        return {AtAnswer::Prompt};
    }
    if (tests)
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
    return {AtAnswer::Ok,
            0,
            {"+CMGR: " + status + ",," + QByteArray::number(Pdu::Length(stored->unit)) + "\r\n" + Hex(stored->unit)}};
}

AtAnswer AtMessages::Delete(const AtCommand& command)
{
    const int flag = command.Number(1, 0);
    if (flag == 0 && store.remove(command.Number(0, 0)) == 0)
        return {AtAnswer::MessageError, CmsInvalidIndex};
    if (flag == 4) {
        store.clear();
    } else if (flag > 0) {
        for (auto stored = store.begin(); stored != store.end();)
            stored = stored->status == ReceivedRead ? store.erase(stored) : std::next(stored);
    }

    AtAnswer answer;
    while (!kept.isEmpty()) {
        const std::optional<int> index = Store(kept.first());
        if (!index)
            break;
        kept.removeFirst();
    }
    return answer;
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

QList<QByteArray> AtMessages::Arrive(const QString& sender, const QString& text)
{
    delivered = (delivered + 1) % 256;
    return Pdu::EncodeDeliver(sender, text, QDateTime::currentDateTime(), delivered);
}

QByteArray AtMessages::Deliver(const QByteArray& unit, bool listened)
{
    if (listened && report == 2)
        return "+CMT: ," + QByteArray::number(Pdu::Length(unit)) + "\r\n" + Hex(unit);
    const std::optional<int> index = Store(unit);
    if (!index)
        kept.append(unit);
    return index && listened && report == 1 ? "+CMTI: \"SM\"," + QByteArray::number(*index) : QByteArray();
}

AtMessages::Submission AtMessages::Submit(const QByteArray& data)
{
    if (dataIsReceipt)
        return {};
    const QByteArray unit = QByteArray::fromHex(data);
    const std::optional<Pdu::Message> part = Pdu::DecodeSubmit(unit);
    if (!part || Pdu::Length(unit) != dataLength)
        return {{AtAnswer::MessageError, CmsInvalidPdu}, std::nullopt};

    submitted = (submitted + 1) % 256;
    Submission submission{{AtAnswer::Ok, 0, {"+CMGS: " + QByteArray::number(submitted)}}, std::nullopt};
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
