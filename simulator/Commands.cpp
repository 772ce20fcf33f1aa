#include "Commands.h"

#include <QProcess>
#include <QRegularExpression>

#include <climits>

namespace
{

constexpr int Unlimited = INT_MAX;

Commands::Result Done(const QString& text = {})
{
    return {true, text};
}

Commands::Result Refused(const QString& text)
{
    return {false, text};
}

/// For what answers an empty text or why it was refused.
Commands::Result Outcome(const QString& problem)
{
    return {problem.isEmpty(), problem};
}

/// The rule for error names on the bus: elements of letters, digits and underscores, joined by dots.
bool IsErrorName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z_]\\w*(\\.[A-Za-z_]\\w*)+$"));
    return name.size() < 256 && pattern.match(name).hasMatch();
}

QString ShowState(const QVariantMap& state)
{
    QStringList lines;
    for (auto entry = state.begin(); entry != state.end(); ++entry)
        lines.append(entry.key() + QStringLiteral(": ") + entry.value().toString());
    return lines.join(QLatin1Char('\n'));
}

}

Commands::Commands(Device& device) : device(device)
{
    AddWorld();
    AddDevice();
}

void Commands::AddChoice(const QString& name, const QString& usage, int most, const Choices& choices)
{
    commands.insert(name,
                    {usage, 1, most, [choices](const QStringList& arguments) {
                         const auto choice = choices.find(arguments.at(0));
                         if (choice == choices.end())
                             return Refused(QStringLiteral("one of: ") + choices.keys().join(QStringLiteral(", ")));
                         return Outcome((*choice)(arguments.mid(1)));
                     }});
}

void Commands::AddWorld()
{
    Modem& modem = device.TheModem();
    const auto always = [](auto action) {
        return [action](const QStringList&) {
            action();
            return QString();
        };
    };

    AddChoice("sim", "sim in|out", 1,
              {{"in", always([&] { modem.SetSim(true); })}, {"out", always([&] { modem.SetSim(false); })}});
    AddChoice("network", "network lost|found", 1,
              {{"found", always([&] { modem.SetNetwork(true); })}, {"lost", always([&] { modem.SetNetwork(false); })}});
    AddChoice("modem", "modem drop|silent|normal", 1,
              {{"drop", always([&] { modem.Drop(); })},
               {"silent", always([&] { modem.SetSilent(true); })},
               {"normal", always([&] { modem.SetSilent(false); })}});
    commands.insert("signal", {"signal VALUE", 1, 1, [&](const QStringList& arguments) {
                                   const QVariant value = ToBusType(arguments.at(0), "y");
                                   if (!value.isValid())
                                       return Refused("VALUE is a number from 0 to 255");
                                   modem.SetSignalQuality(value.value<uchar>());
                                   return Done();
                               }});
    commands.insert("ring", {"ring NUMBER", 1, 1,
                             [&](const QStringList& arguments) { return Outcome(modem.Ring(arguments.at(0))); }});
    commands.insert("answer", {"answer", 0, 0, [&](const QStringList&) { return Outcome(modem.FarEndAnswer()); }});
    commands.insert("reject", {"reject", 0, 0, [&](const QStringList&) { return Outcome(modem.FarEndReject()); }});
    commands.insert("hangup", {"hangup", 0, 0, [&](const QStringList&) { return Outcome(modem.FarEndHangup()); }});
    commands.insert("sms", {"sms NUMBER TEXT", 2, Unlimited, [&](const QStringList& arguments) {
                                modem.DeliverSms(arguments.at(0), arguments.mid(1).join(QLatin1Char(' ')));
                                return Done();
                            }});
    commands.insert("number",
                    {"number NUMBER answer|reject|no-answer|unreachable", 2, 2, [&](const QStringList& arguments) {
                         static const QMap<QString, Modem::FarEnd> behaviours = {
                             {"answer", Modem::FarEndAnswers},
                             {"reject", Modem::FarEndRejects},
                             {"no-answer", Modem::FarEndDoesNotAnswer},
                             {"unreachable", Modem::FarEndUnreachable}};
                         if (!behaviours.contains(arguments.at(1)))
                             return Refused(QStringLiteral("one of: ") + behaviours.keys().join(QStringLiteral(", ")));
                         modem.SetFarEnd(arguments.at(0), behaviours.value(arguments.at(1)));
                         return Done();
                     }});
}

void Commands::AddDevice()
{
    const auto withService = [this](auto action) {
        return [this, action](const QStringList& arguments) {
            BusService* service = device.Service(arguments.value(0, QStringLiteral("gsm")));
            return service ? action(*service) : QStringLiteral("SERVICE is gsm, sound, audio-out or audio-in");
        };
    };
    AddChoice("daemon", "daemon leave|return [SERVICE]", 2,
              {{"leave", withService([](BusService& service) {
                    service.Leave();
                    return QString();
                })},
               {"return", withService([](BusService& service) { return service.Join(); })}});
    commands.insert("fault", {"fault METHOD status N|error NAME|silent|delay MS|clear [times N]", 2, 5,
                              [this](const QStringList& arguments) { return SetFault(arguments); }});
    commands.insert("state", {"state", 0, 0, [this](const QStringList&) { return Done(ShowState(device.State())); }});
    commands.insert("audio",
                    {"audio", 0, 0, [this](const QStringList&) { return Done(ShowState(device.AudioState())); }});
    commands.insert(
        "log", {"log", 0, 0, [this](const QStringList&) { return Done(device.History().join(QLatin1Char('\n'))); }});
    commands.insert("help", {"help", 0, 0, [this](const QStringList&) { return Done(Help()); }});
    commands.insert("quit", {"quit", 0, 0, [this](const QStringList&) {
                                 Q_EMIT Quit();
                                 return Done();
                             }});
}

Commands::Result Commands::SetFault(const QStringList& arguments)
{
    const QString method = arguments.at(0);
    BusService* service = device.ServiceOf(method);
    if (!service)
        return Refused(QStringLiteral("no service of the device has a method %1").arg(method));

    const QString kind = arguments.at(1);
    QStringList rest = arguments.mid(2);
    std::optional<int> times;
    if (rest.size() >= 2 && rest.at(rest.size() - 2) == QLatin1String("times")) {
        bool ok = false;
        times = rest.last().toInt(&ok);
        if (!ok || *times < 1)
            return Refused("times takes a number from 1");
        rest = rest.mid(0, rest.size() - 2);
    }

    bool isNumber = false;
    const int number = rest.value(0).toInt(&isNumber);
    if (kind == QLatin1String("clear") && rest.isEmpty() && !times)
        service->ClearFault(method);
    else if (kind == QLatin1String("silent") && rest.isEmpty())
        service->SetFault(method, {Fault::Silent, 0, {}, times});
    else if (kind == QLatin1String("status") && rest.size() == 1 && isNumber)
        service->SetFault(method, {Fault::Status, number, {}, times});
    else if (kind == QLatin1String("delay") && rest.size() == 1 && isNumber && number >= 0)
        service->SetFault(method, {Fault::Delay, number, {}, times});
    else if (kind == QLatin1String("error") && rest.size() == 1 && IsErrorName(rest.at(0)))
        service->SetFault(method, {Fault::Error, 0, rest.at(0), times});
    else
        return Refused(QStringLiteral("usage: ") + commands.value("fault").usage);
    return Done();
}

QString Commands::Help() const
{
    QStringList lines;
    for (const Command& command : commands)
        lines.append(command.usage);
    return lines.join(QLatin1Char('\n'));
}

Commands::Result Commands::Run(const QString& line)
{
    QStringList words = QProcess::splitCommand(line);
    if (words.isEmpty())
        return Done();

    const QString name = words.takeFirst();
    const auto command = commands.find(name);
    if (command == commands.end())
        return Refused(QStringLiteral("no command %1; try: help").arg(name));
    if (words.size() < command->least || words.size() > command->most)
        return Refused(QStringLiteral("usage: ") + command->usage);
    return command->run(words);
}
