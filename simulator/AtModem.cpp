#include "AtModem.h"

#include <QRegularExpression>

namespace
{

constexpr int RingIntervalMs = 5000;
/// A network delivers messages one by one, and ModemManager loses one that arrives while it reads another.
constexpr int MessageIntervalMs = 300;
constexpr char OperatorName[] = "Kova";
constexpr char OperatorNumber[] = "00101"; ///< the test network of 3GPP TS 36.508

// Types of numbers: 3GPP TS 24.008, 10.5.4.7
constexpr int NumberInternational = 145;
constexpr int NumberUnknown = 129;
constexpr int NumberWithheld = 128;

/// A command that corresponds to methods of the GSM daemon.
struct Counterpart {
    const char* command; ///< with its operation
    QStringList methods;
    /// Returns the arguments of the method, or nothing if this command is not meant as one.
    std::optional<QVariantList> (*arguments)(const AtCommand& command, const Modem& modem);
};

/// The number of a dial command, without the modifiers.
QString DialledNumber(const AtCommand& command)
{
    static const QRegularExpression noDigit(QStringLiteral("[^0-9*#+]"));
    return QString(command.parameters.value(0)).remove(noDigit);
}

std::optional<QVariantList> None(const AtCommand&, const Modem&)
{
    return QVariantList();
}

/// ModemManager hangs up when it starts, to be on the safe side.
std::optional<QVariantList> NoneInCall(const AtCommand&, const Modem& modem)
{
    return modem.Calls().isEmpty() ? std::nullopt : std::optional(QVariantList());
}

const QList<Counterpart>& AllCounterparts()
{
    static const QList<Counterpart> all = {
        {"D=",
         {"Call"},
         [](const AtCommand& command, const Modem&) { return std::optional(QVariantList{DialledNumber(command)}); }},
        {"A", {"CallAnswer"}, None},
        {"H", {"CallHangup", "CallHangupAll"}, NoneInCall},
        {"+CHUP", {"CallHangup", "CallHangupAll"}, NoneInCall},
        {"+CHLD=", {"CallHangup", "CallHangupAll"}, NoneInCall},
        {"+CFUN=",
         {"ModemSetEnabled"},
         [](const AtCommand& command, const Modem&) { return std::optional(QVariantList{command.Number(0, 0) == 1}); }},
        {"+CREG?", {"ModemGetStatus"}, None},
        {"+CPIN?", {"IsSimPresent"}, None},
        {"+COPS=",
         {"PingRegistration"},
         [](const AtCommand& command, const Modem&) {
             return command.Number(0, 0) == 0 ? std::optional(QVariantList()) : std::nullopt;
         }},
        {"+CSQ", {"SignalStrength"}, None},
        {"+CGDCONT=",
         {"GprsSetApn"},
         [](const AtCommand& command, const Modem&) {
             return std::optional(QVariantList{command.parameters.value(2), "", ""});
         }},
    };
    return all;
}

const Counterpart* FindCounterpart(const AtCommand& command)
{
    static constexpr const char* signs[] = {"", "?", "=?", "="};
    const QString text = command.name + QLatin1String(signs[command.operation]);
    for (const Counterpart& counterpart : AllCounterparts()) {
        if (text == QLatin1String(counterpart.command))
            return &counterpart;
    }
    return nullptr;
}

AtAnswer Refuse(int number)
{
    return {AtAnswer::EquipmentError, number};
}

QByteArray Quoted(const QString& text)
{
    // Quotes and line ends would end the string or the line.
    QString plain = text;
    plain.remove(QRegularExpression(QStringLiteral("[\"[:cntrl:]]")));
    return '"' + plain.toUtf8() + '"';
}

int NumberType(const QString& number)
{
    return number.isEmpty()                      ? NumberWithheld
           : number.startsWith(QLatin1Char('+')) ? NumberInternational
                                                 : NumberUnknown;
}

/// Converts 0 to 100 percent to the RSSI of 0 to 31 (3GPP TS 27.007, 8.5).
QByteArray SignalText(int quality)
{
    constexpr int MaxRssi = 31;
    return "+CSQ: " + QByteArray::number((qMin(quality, 100) * MaxRssi + 50) / 100) + ",99";
}

}

AtModem::AtModem(Modem& modem, BusService& gsmService, bool staysOn)
    : modem(modem),
      gsmService(gsmService),
      staysOn(staysOn)
{
    AddCommands();
    ringTimer.setInterval(RingIntervalMs);
    connect(&ringTimer, &QTimer::timeout, this, &AtModem::ReportRing);
    deliveryTimer.setSingleShot(true);
    connect(&deliveryTimer, &QTimer::timeout, this, &AtModem::DeliverMessages);
    connect(&modem, &Modem::PowerChanged, this, &AtModem::OnPowerChanged);
    connect(&modem, &Modem::SimChanged, this,
            [this](bool inserted) { ReportToOfono("+USIMSTATE: " + QByteArray::number(int{inserted})); });
    connect(&modem, &Modem::SignalMeasured, this, [this](uchar quality) { ReportToOfono(SignalText(quality)); });
    connect(&modem, &Modem::CallReceived, this, &AtModem::OnCallReceived);
    connect(&modem, &Modem::CallAnswered, &ringTimer, &QTimer::stop);
    connect(&modem, &Modem::CallEnded, this, &AtModem::OnCallEnded);
    connect(&modem, &Modem::MessageReceived, this, [this](const QString& number, const QString& text) {
        incomingUnits += messages.EncodeIncoming(number, text);
        if (!deliveryTimer.isActive())
            DeliverMessages();
    });
}

QString AtModem::Counterparts()
{
    constexpr int MethodsWidth = 28;
    QStringList lines;
    for (const Counterpart& counterpart : AllCounterparts())
        lines.append(counterpart.methods.join(QStringLiteral(", ")).leftJustified(MethodsWidth) + QLatin1String("AT") +
                     QLatin1String(counterpart.command));
    lines.append(QStringLiteral("SendSms").leftJustified(MethodsWidth) + QLatin1String("AT+CMGS= of the last part"));
    return lines.join(QLatin1Char('\n'));
}

// The port

void AtModem::Open()
{
    open = true;
    ++session;
    reportedRegistration = Registration();
    if (!modem.Calls().isEmpty() && modem.Calls().first().state == Call::Ringing)
        ringTimer.start();
}

/// Resets the settings for the next session.
void AtModem::Close()
{
    open = false;
    settings = {};
    messages.Reset();
    modem.SetCallWaiting(false);
    input.Clear();
    queue.clear();
    reports.clear();
    executing = waiting = prompting = false;
    awaitedPower.reset();
    powerAnswerDelay = 0;
    contextActive = false;
    ringTimer.stop();
    DeliverMessages(); // stores them on the SIM card
    const Modem::Power power = modem.PowerState();
    if (!staysOn && power != Modem::Off && power != Modem::PoweringDown) {
        gsmService.RecordRequest("ModemSetEnabled", {false});
        modem.SetEnabled(false);
    }
}

void AtModem::Feed(const QByteArray& data)
{
    if (modem.IsSilent())
        return;
    if (settings.echo && !prompting)
        Q_EMIT Output(data);
    input.Append(data);
    Process();
}

void AtModem::Process()
{
    while (open && !waiting) {
        if (!queue.isEmpty()) {
            Execute(queue.takeFirst());
            continue;
        }
        if (executing && !prompting) {
            EndLine("OK");
            continue;
        }

        const std::optional<AtInput::Item> item = input.Take(prompting);
        if (!item)
            return;
        if (prompting) {
            SubmitData(*item);
            continue;
        }
        // Ignore noise on the line.
        if (item->kind != AtInput::TooLong && !item->bytes.trimmed().toUpper().startsWith("AT"))
            continue;
        const std::optional<QList<AtCommand>> commands =
            item->kind == AtInput::TooLong ? std::nullopt : ParseAtLine(item->bytes.trimmed().mid(2));
        executing = true;
        if (commands)
            queue = *commands;
        else
            EndLine("ERROR");
    }
}

void AtModem::Execute(const AtCommand& command)
{
    const auto action = [this, command] {
        if (AtMessages::Handles(command.name))
            return messages.Execute(command);
        const Handler handler = handlers.value(command.name);
        return handler ? handler(command) : AtAnswer{AtAnswer::Error};
    };
    const Counterpart* counterpart = FindCounterpart(command);
    const std::optional<QVariantList> arguments = counterpart ? counterpart->arguments(command, modem) : std::nullopt;
    if (arguments)
        ExecuteUnderFault(counterpart->methods, *arguments, action);
    else
        Finish(action());
}

void AtModem::SubmitData(const AtInput::Item& item)
{
    prompting = false;
    if (item.kind == AtInput::Aborted)
        return Finish({});
    if (item.kind == AtInput::TooLong)
        return Finish({AtAnswer::MessageError, CmsInvalidPdu});
    const AtMessages::Submission submission = messages.Submit(item.bytes);
    if (!submission.message)
        return Finish(submission.answer);
    ExecuteUnderFault({"SendSms"}, {submission.message->number, submission.message->text}, [this, submission] {
        if (!modem.SendSms())
            return AtAnswer{AtAnswer::MessageError, CmsNoNetwork};
        messages.ForgetSubmitted(*submission.message);
        return submission.answer;
    });
}

/// Executes a command that corresponds to methods of the GSM daemon, subject to their faults.
void AtModem::ExecuteUnderFault(const QStringList& methods, const QVariantList& arguments,
                                const std::function<AtAnswer()>& action)
{
    gsmService.RecordRequest(methods.first(), arguments);
    std::optional<Fault> fault;
    for (const QString& method : methods) {
        if (!fault)
            fault = gsmService.TakeFault(method);
    }
    if (!fault)
        return Finish(action());

    switch (fault->kind) {
    case Fault::Silent:
        queue.clear();
        executing = false;
        break;
    case Fault::Error: Finish({AtAnswer::Error}); break;
    case Fault::Status:
        Finish({methods.first() == QLatin1String("SendSms") ? AtAnswer::MessageError : AtAnswer::EquipmentError,
                fault->number});
        break;
    case Fault::Delay: FinishLater(action(), fault->number); break;
    }
}

void AtModem::FinishLater(const AtAnswer& answer, int ms)
{
    if (answer.result == AtAnswer::Later) {
        powerAnswerDelay = ms;
        return Finish(answer);
    }
    waiting = true;
    QTimer::singleShot(ms, this, [this, answer, askedIn = session] {
        if (!open || askedIn != session)
            return;
        Finish(answer);
        Process();
    });
}

void AtModem::Finish(const AtAnswer& answer)
{
    waiting = answer.result == AtAnswer::Later;
    for (const QByteArray& line : answer.lines)
        Write(line);
    const QByteArray number = QByteArray::number(answer.number);
    switch (answer.result) {
    case AtAnswer::Ok:
    case AtAnswer::Later: break;
    case AtAnswer::Prompt:
        prompting = true;
        Q_EMIT Output("\r\n> ");
        break;
    case AtAnswer::Error: EndLine("ERROR"); break;
    case AtAnswer::EquipmentError: EndLine(settings.errorNumbers ? "+CME ERROR: " + number : "ERROR"); break;
    case AtAnswer::MessageError: EndLine("+CMS ERROR: " + number); break;
    case AtAnswer::NoCarrier: EndLine("NO CARRIER"); break;
    }
}

/// Ends a command line, even if commands are left, and writes the reports that waited for its end.
void AtModem::EndLine(const QByteArray& result)
{
    Write(result);
    queue.clear();
    executing = false;
    const QList<QByteArray> due = reports;
    reports.clear();
    for (const QByteArray& line : due)
        Write(line);
}

void AtModem::Write(const QByteArray& line)
{
    if (open && !modem.IsSilent())
        Q_EMIT Output("\r\n" + line + "\r\n");
}

/// Writes an unsolicited result code. It must not interrupt a command line.
void AtModem::Report(const QByteArray& line)
{
    if (executing)
        reports.append(line);
    else
        Write(line);
}

/// oFono's driver for this port expects some reports that it does not enable by a command. ModemManager takes an
/// unknown report for a part of the next answer, and then misreads, for example, the supported message formats. Each of
/// the two sends a command that the other does not, which tells them apart.
void AtModem::ReportToOfono(const QByteArray& line)
{
    if (sendsOfonoReports)
        Report(line);
}

// Commands

void AtModem::AddIgnored(const char* name)
{
    handlers.insert(name, [](const AtCommand&) { return AtAnswer(); });
}

void AtModem::AddInformation(const char* name, const QByteArray& text)
{
    handlers.insert(name, [text](const AtCommand& command) {
        return command.operation == AtCommand::Test ? AtAnswer() : AtAnswer::Line(text);
    });
}

void AtModem::AddSetting(const char* name, int max, int& value)
{
    handlers.insert(name, [name, max, &value](const AtCommand& command) {
        const QByteArray prefix = QByteArray(name) + ": ";
        if (command.operation == AtCommand::Test)
            return AtAnswer::Line(prefix + "(0-" + QByteArray::number(max) + ')');
        if (command.operation == AtCommand::Read)
            return AtAnswer::Line(prefix + QByteArray::number(value));
        const int wanted = command.Number(0, 0);
        if (wanted < 0 || wanted > max)
            return Refuse(CmeNotAllowed);
        value = wanted;
        return AtAnswer();
    });
}

void AtModem::AddCommands()
{
    AddPortCommands();
    AddNetworkCommands();
    AddCallCommands();
    AddDataCommands();
}

void AtModem::AddPortCommands()
{
    for (const char* name : {"Q", "X", "&C", "&D", "&F", "Z", "+CSCS", "+IFC"})
        AddIgnored(name);
    handlers.insert("V", [](const AtCommand& command) {
        return command.Number(0, 1) == 1 ? AtAnswer() : AtAnswer{AtAnswer::Error};
    });
    AddSetting("E", 1, settings.echo);
    AddSetting("+CMEE", 2, settings.errorNumbers);
    AddInformation("I", "Kova simulated modem");
    AddInformation("+GCAP", "+GCAP: +CGSM");
    handlers.insert("+WS46", [this](const AtCommand&) {
        sendsOfonoReports = false;
        return AtAnswer::Line("+WS46: (12)"); // 3GPP TS 27.007, 5.9: GSM
    });
    for (const char* name : {"+CGMI", "+GMI"})
        AddInformation(name, "Kova");
    for (const char* name : {"+CGMM", "+GMM"})
        AddInformation(name, "Simulated modem");
    for (const char* name : {"+CGMR", "+GMR"})
        AddInformation(name, "1.0");
    for (const char* name : {"+CGSN", "+GSN"})
        AddInformation(name, "490154203237518");
    AddInformation("+CBC", "+CBC: 0,100");
}

void AtModem::AddNetworkCommands()
{
    handlers.insert("+CFUN", [this](const AtCommand& command) { return SetFunction(command); });
    const auto withSim = [this](const QByteArray& text) {
        return modem.IsSimInserted() ? AtAnswer::Line(text) : Refuse(CmeSimNotInserted);
    };
    handlers.insert("+CPIN", [withSim](const AtCommand& command) {
        return command.operation == AtCommand::Read ? withSim("+CPIN: READY") : AtAnswer();
    });
    handlers.insert("+CIMI", [withSim](const AtCommand&) { return withSim("001010123456789"); });
    // ModemManager reads the card's serial number and does not go on without it.
    handlers.insert("+CRSM", [withSim](const AtCommand& command) {
        constexpr int ReadBinary = 176;   // 3GPP TS 27.007, 8.18
        constexpr int FileIccid = 0x2fe2; // 3GPP TS 31.102, 4.2
        return command.Number(0, 0) == ReadBinary && command.Number(1, 0) == FileIccid
                   ? withSim("+CRSM: 144,0,\"98941000000000000013\"")
                   : AtAnswer{AtAnswer::Error};
    });
    // oFono's plugin for simulated modems detects the card by this command.
    handlers.insert("+SIMSTATE", [this](const AtCommand&) {
        sendsOfonoReports = true;
        return AtAnswer::Line("+SIMSTATE: " + QByteArray::number(int{modem.IsSimInserted()}));
    });
    handlers.insert("+CSQ", [this](const AtCommand&) {
        const bool registered = modem.PowerState() == Modem::Registered;
        return AtAnswer::Line(registered ? SignalText(modem.SignalStrength()) : QByteArray("+CSQ: 99,99"));
    });
    handlers.insert("+CREG",
                    [this](const AtCommand& command) { return ShowRegistration(command, settings.registration); });
    handlers.insert(
        "+CGREG", [this](const AtCommand& command) { return ShowRegistration(command, settings.packetRegistration); });
    handlers.insert("+COPS", [this](const AtCommand& command) { return SelectOperator(command); });
}

void AtModem::AddCallCommands()
{
    AddSetting("+CRC", 1, settings.ringType);
    AddSetting("+CLIP", 1, settings.callerNumber);
    AddSetting("+CCWA", 1, settings.callWaiting);
    const Handler keepWaiting = handlers.value("+CCWA");
    handlers.insert("+CCWA", [this, keepWaiting](const AtCommand& command) {
        const AtAnswer answer = keepWaiting(command);
        modem.SetCallWaiting(settings.callWaiting);
        return answer;
    });
    handlers.insert("D", [this](const AtCommand& command) { return Dial(command); });
    handlers.insert("A",
                    [this](const AtCommand&) { return modem.Answer() ? AtAnswer() : AtAnswer{AtAnswer::NoCarrier}; });
    const auto hangUp = [this](const AtCommand& command) {
        if (command.operation == AtCommand::Execute)
            modem.HangupAll(Modem::EndHangup);
        return AtAnswer();
    };
    handlers.insert("H", hangUp);
    handlers.insert("+CHUP", hangUp);
    handlers.insert("+CHLD", [this](const AtCommand& command) { return ControlCalls(command); });
    handlers.insert("+CLCC", [this](const AtCommand& command) {
        return command.operation == AtCommand::Execute ? ListCalls() : AtAnswer();
    });
}

void AtModem::AddDataCommands()
{
    AddIgnored("+CGATT");
    handlers.insert("+CGDCONT", [this](const AtCommand& command) { return DefineContext(command); });
    handlers.insert("+CGACT", [this](const AtCommand& command) {
        if (command.operation == AtCommand::Test)
            return AtAnswer::Line("+CGACT: (0,1)");
        if (command.operation == AtCommand::Read)
            return AtAnswer::Line("+CGACT: 1," + QByteArray::number(int{contextActive}));
        if (modem.PowerState() != Modem::Registered)
            return Refuse(CmeNoNetwork);
        contextActive = command.Number(0, 0) == 1;
        return AtAnswer();
    });
}

AtAnswer AtModem::SetFunction(const AtCommand& command)
{
    const Modem::Power power = modem.PowerState();
    const bool isOn = power == Modem::On || power == Modem::Registered;
    if (command.operation == AtCommand::Test)
        return AtAnswer::Line("+CFUN: (0,1,4),(0)");
    if (command.operation == AtCommand::Read)
        return AtAnswer::Line(isOn ? "+CFUN: 1" : "+CFUN: 4");

    const int function = command.Number(0, -1);
    if (function != 0 && function != 1 && function != 4)
        return Refuse(CmeNotAllowed);
    const bool enable = function == 1;
    if (enable ? isOn : power == Modem::Off)
        return {};
    awaitedPower = enable ? Modem::On : Modem::Off;
    modem.SetEnabled(enable);
    return {AtAnswer::Later};
}

/// @return 0 for off, 1 for registered, 2 for searching (3GPP TS 27.007, 7.2).
int AtModem::Registration() const
{
    const Modem::Power power = modem.PowerState();
    return power == Modem::Registered ? 1 : power == Modem::On && modem.IsSimInserted() ? 2 : 0;
}

QByteArray AtModem::RegistrationText(int mode) const
{
    const QByteArray place = mode == 2 && Registration() == 1 ? ",\"0001\",\"0001\"" : "";
    return QByteArray::number(Registration()) + place;
}

AtAnswer AtModem::ShowRegistration(const AtCommand& command, int& mode)
{
    const QByteArray prefix = command.name.toLatin1() + ": ";
    if (command.operation == AtCommand::Test)
        return AtAnswer::Line(prefix + "(0-2)");
    if (command.operation != AtCommand::Set)
        return AtAnswer::Line(prefix + QByteArray::number(mode) + ',' + RegistrationText(mode));
    mode = qBound(0, command.Number(0, 0), 2);
    return {};
}

AtAnswer AtModem::SelectOperator(const AtCommand& command)
{
    constexpr int FormatNumeric = 2;
    constexpr int OnlyFormat = 3;
    const bool registered = modem.PowerState() == Modem::Registered;
    const QByteArray name = settings.operatorFormat == FormatNumeric ? OperatorNumber : OperatorName;
    switch (command.operation) {
    case AtCommand::Test:
        return AtAnswer::Line(QByteArray("+COPS: (") + (registered ? '2' : '1') + ",\"" + OperatorName + "\",\"" +
                              OperatorName + "\",\"" + OperatorNumber + "\",0),,(0,1,3),(0-2)");
    case AtCommand::Read:
        return AtAnswer::Line(
            "+COPS: 0" +
            (registered ? ',' + QByteArray::number(settings.operatorFormat) + ",\"" + name + "\",0" : QByteArray()));
    case AtCommand::Execute:
    case AtCommand::Set: break;
    }
    const int mode = command.Number(0, 0);
    if (mode == OnlyFormat)
        settings.operatorFormat = qBound(0, command.Number(1, 0), FormatNumeric);
    return mode == 0 || mode == 1 || mode == OnlyFormat ? AtAnswer() : Refuse(CmeNotAllowed);
}

AtAnswer AtModem::Dial(const AtCommand& command)
{
    const QString number = DialledNumber(command);
    if (command.parameters.value(1).isEmpty()) // a data call
        return {AtAnswer::NoCarrier};
    if (number.isEmpty() || !modem.Calls().isEmpty())
        return Refuse(CmeNotAllowed);
    if (modem.PowerState() != Modem::Registered)
        return Refuse(CmeNoNetwork);
    return {modem.Dial(number) ? AtAnswer::Ok : AtAnswer::NoCarrier};
}

/// The states of calls are those of 3GPP TS 27.007, 7.18.
AtAnswer AtModem::ListCalls() const
{
    static constexpr int states[] = {3, 4, 5, 0}; // alerting, incoming, waiting, active
    AtAnswer answer;
    for (const Call& call : modem.Calls()) {
        QByteArray line = "+CLCC: " + QByteArray::number(call.id) + ',' + (call.outgoing ? '0' : '1') + ',' +
                          QByteArray::number(states[call.state]) + ",0,0";
        if (!call.number.isEmpty())
            line += ',' + Quoted(call.number) + ',' + QByteArray::number(NumberType(call.number));
        answer.lines.append(line);
    }
    return answer;
}

/// Implements 3GPP TS 22.030, 6.5.5, without holding: 0 rejects the call that waits or rings, 1 ends the active call
/// and accepts the one that waits, and 1 with a call's number ends that call.
AtAnswer AtModem::ControlCalls(const AtCommand& command)
{
    if (command.operation == AtCommand::Test)
        return AtAnswer::Line("+CHLD: (0,1,1x)");
    const QString action = command.parameters.value(0);
    if (action.size() == 2 && action.startsWith(QLatin1Char('1')))
        return modem.Hangup(action.mid(1).toInt()) ? AtAnswer() : Refuse(CmeNotAllowed);
    if (action == QLatin1String("1"))
        return modem.SwitchToWaiting() ? AtAnswer() : Refuse(CmeNotAllowed);
    for (const Call& call : modem.Calls()) {
        const bool isNew = call.state == Call::Waiting || call.state == Call::Ringing;
        if (action == QLatin1String("0") && isNew)
            return modem.Hangup(call.id) ? AtAnswer() : Refuse(CmeNotAllowed);
    }
    return Refuse(CmeNotAllowed);
}

AtAnswer AtModem::DefineContext(const AtCommand& command)
{
    switch (command.operation) {
    case AtCommand::Test: return AtAnswer::Line("+CGDCONT: (1-4),\"IP\",,,(0),(0)");
    case AtCommand::Read: return AtAnswer::Line("+CGDCONT: 1,\"IP\"," + Quoted(modem.Apn()) + ",\"\",0,0");
    case AtCommand::Execute:
    case AtCommand::Set: break;
    }
    return modem.SetApn(command.parameters.value(2)) ? AtAnswer() : Refuse(CmeNotAllowed);
}

// Reports

void AtModem::OnPowerChanged()
{
    const bool arrived = awaitedPower && (modem.PowerState() == *awaitedPower ||
                                          (*awaitedPower == Modem::On && modem.PowerState() == Modem::Registered));
    if (const int registration = Registration(); registration != reportedRegistration) {
        reportedRegistration = registration;
        contextActive = contextActive && registration == 1;
        if (settings.registration > 0)
            Report("+CREG: " + RegistrationText(settings.registration));
        if (settings.packetRegistration > 0)
            Report("+CGREG: " + RegistrationText(settings.packetRegistration));
    }
    if (arrived) {
        awaitedPower.reset();
        FinishLater({}, std::exchange(powerAnswerDelay, 0));
    }
}

void AtModem::OnCallReceived(const Call& call)
{
    if (call.state == Call::Waiting) {
        Report("+CCWA: " + Quoted(call.number) + ',' + QByteArray::number(NumberType(call.number)) + ",1");
        return;
    }
    ReportRing();
    if (open)
        ringTimer.start();
}

/// The last field of +CLIP is 1 if the number is withheld (3GPP TS 27.007, 7.11).
void AtModem::ReportRing()
{
    for (const Call& call : modem.Calls()) {
        if (call.state != Call::Ringing)
            continue;
        Report(settings.ringType ? "+CRING: VOICE" : "RING");
        if (settings.callerNumber)
            Report("+CLIP: " + Quoted(call.number) + ',' + QByteArray::number(NumberType(call.number)) +
                   (call.number.isEmpty() ? ",\"\",,\"\",1" : ",\"\",,\"\",0"));
        return;
    }
    ringTimer.stop();
}

void AtModem::DeliverMessages()
{
    deliveryTimer.stop();
    while (!incomingUnits.isEmpty()) {
        const QByteArray report = messages.Deliver(incomingUnits.takeFirst(), open && !modem.IsSilent());
        if (report.isEmpty())
            continue;
        Report(report);
        deliveryTimer.start(MessageIntervalMs);
        return;
    }
}

void AtModem::OnCallEnded(const Call& call, Modem::End why)
{
    if (call.state == Call::Ringing)
        ringTimer.stop();
    if (why == Modem::EndRejected)
        Report("BUSY");
    else if (why == Modem::EndFarEnd || why == Modem::EndNetworkLost)
        Report("NO CARRIER");
}
