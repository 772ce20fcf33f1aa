#include "Commands.h"

#include <QRegularExpression>

#include <algorithm>
#include <climits>

namespace
{

using Prepared = Commands::Prepared;

constexpr int Unlimited = INT_MAX;

/// @param query returns the text to be shown.
template <typename Query>
Prepared PrepareQuery(Query query)
{
    return {[query] { return Commands::Result{true, query()}; }, {}};
}

/// Passes the action the value that the word selects.
template <typename Value, typename Action>
Prepared PrepareChoice(const QString& word, const QMap<QString, Value>& values, Action action)
{
    if (!values.contains(word))
        return Invalid(QStringLiteral("\"%1\" is none of: %2").arg(word, values.keys().join(QStringLiteral(", "))));
    return PrepareAction([action, value = values.value(word)] { return action(value); });
}

std::optional<int> ParseNumber(const QString& word, int minimum)
{
    bool ok = false;
    const int number = word.toInt(&ok);
    return ok && number >= minimum ? std::optional(number) : std::nullopt;
}

/// D-Bus error names are two or more elements of letters, digits and underscores, joined by dots (D-Bus Specification,
/// "Valid Names").
bool IsErrorName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]*(\\.[A-Za-z_][A-Za-z0-9_]*)+$"));
    return name.size() < 256 && pattern.match(name).hasMatch();
}

/// Parses "status N", "error NAME", "silent" or "delay MS", each optionally followed by "times N".
std::optional<Fault> ParseFault(QStringList words)
{
    Fault fault;
    fault.text = words.join(QLatin1Char(' '));
    if (words.size() > 2 && words.at(words.size() - 2) == QLatin1String("times")) {
        fault.times = ParseNumber(words.last(), 1);
        if (!fault.times)
            return std::nullopt;
        words = words.mid(0, words.size() - 2);
    }

    const QString kind = words.value(0);
    const bool isDelay = kind == QLatin1String("delay");
    if (kind == QLatin1String("silent") && words.size() == 1) {
        fault.kind = Fault::Silent;
        return fault;
    }
    if (words.size() != 2)
        return std::nullopt;
    if (kind == QLatin1String("error") && IsErrorName(words.at(1))) {
        fault.kind = Fault::Error;
        fault.error = words.at(1);
        return fault;
    }
    const std::optional<int> number = ParseNumber(words.at(1), isDelay ? 0 : INT_MIN);
    if (!number || !(isDelay || kind == QLatin1String("status")))
        return std::nullopt;
    fault.kind = isDelay ? Fault::Delay : Fault::Status;
    fault.number = *number;
    return fault;
}

QString StateText(const QVariantMap& state)
{
    QStringList lines;
    for (auto entry = state.begin(); entry != state.end(); ++entry)
        lines.append(entry.key() + QStringLiteral(": ") + ToText(entry.value()));
    return lines.join(QLatin1Char('\n'));
}

}

std::optional<QStringList> SplitWords(const QString& line)
{
    QStringList words;
    bool inWord = false;
    bool quoted = false;
    bool literal = false;
    for (const QChar c : line) {
        if (!literal && !quoted && c.isSpace()) {
            inWord = false;
            continue;
        }
        if (!inWord)
            words.append(QString());
        inWord = true;
        if (!literal && c == QLatin1Char('"'))
            quoted = !quoted;
        else if (!literal && c == QLatin1Char('\\'))
            literal = true;
        else {
            words.last().append(c);
            literal = false;
        }
    }
    return quoted || literal ? std::nullopt : std::optional(words);
}

Commands::Commands(Device& device) : device(device)
{
    AddWorldCommands();
    AddDeviceCommands();
    AddConsoleCommands();
}

void Commands::AddWorldCommands()
{
    Modem& modem = device.GetModem();

    commands.append({"sim in|out", "insert or remove the SIM card", 1, 1, [&modem](const QStringList& arguments) {
                         return PrepareChoice<bool>(arguments.at(0), {{"in", true}, {"out", false}},
                                                    [&modem](bool in) { modem.SetSim(in); });
                     }});
    commands.append(
        {"network lost|found", "lose the network, or find it again", 1, 1, [&modem](const QStringList& arguments) {
             return PrepareChoice<bool>(arguments.at(0), {{"found", true}, {"lost", false}},
                                        [&modem](bool found) { modem.SetNetwork(found); });
         }});
    commands.append({"signal VALUE", "set the signal quality, 0 to 255, and report it", 1, 1,
                     [&modem](const QStringList& arguments) {
                         const QVariant value = ToBusType(arguments.at(0), "y");
                         if (!value.isValid())
                             return Invalid(QStringLiteral("VALUE is a number from 0 to 255"));
                         return PrepareAction([&modem, value] { modem.SetSignalQuality(value.value<uchar>()); });
                     }});
    commands.append({"ring NUMBER|withheld", "a call comes in", 1, 1, [this, &modem](const QStringList& arguments) {
                         const bool withheld = arguments.at(0) == QLatin1String("withheld");
                         return PrepareAction([this, &modem, number = withheld ? QString() : arguments.at(0)] {
                             const QString problem = device.WhyUnreachable();
                             return problem.isEmpty() ? modem.Ring(number) : problem;
                         });
                     }});
    commands.append(
        {"answer", "the far end answers the call that is being dialled", 0, 0,
         [&modem](const QStringList&) { return PrepareAction([&modem] { return modem.FarEndAnswer(); }); }});
    commands.append(
        {"reject", "the far end rejects the call that is being dialled", 0, 0,
         [&modem](const QStringList&) { return PrepareAction([&modem] { return modem.FarEndReject(); }); }});
    commands.append({"hangup", "the far end hangs up", 0, 0, [&modem](const QStringList&) {
                         return PrepareAction([&modem] { return modem.FarEndHangup(); });
                     }});
    commands.append({"number NUMBER answer|reject|no-answer|unreachable",
                     "how the far end of calls to a number behaves from now on; by default it answers", 2, 2,
                     [&modem](const QStringList& arguments) {
                         return PrepareChoice<Modem::FarEnd>(
                             arguments.at(1),
                             {{"answer", Modem::FarEndAnswers},
                              {"reject", Modem::FarEndRejects},
                              {"no-answer", Modem::FarEndDoesNotAnswer},
                              {"unreachable", Modem::FarEndUnreachable}},
                             [&modem, number = arguments.at(0)](auto farEnd) { modem.SetFarEnd(number, farEnd); });
                     }});
    commands.append(
        {"sms NUMBER TEXT...", "a message comes in", 2, Unlimited, [this, &modem](const QStringList& arguments) {
             return PrepareAction(
                 [this, &modem, number = arguments.at(0), text = arguments.mid(1).join(QLatin1Char(' '))] {
                     const QString problem = device.WhyUnreachable();
                     return problem.isEmpty() ? modem.DeliverSms(number, text) : problem;
                 });
         }});
}

void Commands::AddDeviceCommands()
{
    Modem& modem = device.GetModem();

    commands.append({"modem drop|unplug|plug|silent|normal",
                     "drop: the modem loses power by itself; unplug, plug: it is removed or inserted; silent: it sends "
                     "no signal reports and does not answer on an AT port; normal: it does again",
                     1, 1, [&modem](const QStringList& arguments) {
                         return PrepareChoice<std::function<QString()>>(
                             arguments.at(0),
                             {{"drop", [&modem] { return modem.Drop(); }},
                              {"unplug", [&modem] { return modem.SetPlugged(false); }},
                              {"plug", [&modem] { return modem.SetPlugged(true); }},
                              {"silent", [&modem] { return modem.SetSilent(true), QString(); }},
                              {"normal", [&modem] { return modem.SetSilent(false), QString(); }}},
                             [](const std::function<QString()>& act) { return act(); });
                     }});
    commands.append({"daemon leave|return [gsm|sound|audio-out|audio-in]",
                     "a service leaves the bus as if it had crashed, or returns (default: gsm)", 1, 2,
                     [this](const QStringList& arguments) { return PrepareDaemon(arguments); }});
    commands.append({"fault METHOD status N|error NAME|silent|delay MS|clear [times N]",
                     "make calls of a method fail, N times or until cleared; delay only makes the answer late", 2, 5,
                     [this](const QStringList& arguments) { return PrepareFault(arguments); }});
}

void Commands::AddConsoleCommands()
{
    const auto add = [this](const QString& usage, const QString& description, auto query) {
        commands.append({usage, description, 0, 0, [query](const QStringList&) { return PrepareQuery(query); }});
    };

    add("state", "show modem, SIM card, network, call, audio, services and faults",
        [this] { return StateText(device.State()); });
    add("audio", "show the audio path and the requests for it, oldest first", [this] {
        QStringList lines{StateText(device.AudioState())};
        std::copy_if(device.History().begin(), device.History().end(), std::back_inserter(lines),
                     [](const QString& request) { return !request.startsWith(QLatin1String("gsm ")); });
        return lines.join(QLatin1Char('\n'));
    });
    commands.append(
        {"log [clear]", "show the requests to the device, oldest first, or clear them", 0, 1,
         [this](const QStringList& arguments) {
             if (arguments.isEmpty())
                 return PrepareQuery([this] { return device.History().join(QLatin1Char('\n')); });
             return PrepareChoice<bool>(arguments.at(0), {{"clear", true}}, [this](bool) { device.ClearHistory(); });
         }});
    add("help", "show this help", [this] { return Help(); });
    commands.append(
        {"complete WORD...", "show the completions of the last word, for a shell", 1, Unlimited,
         [this](const QStringList& words) { return PrepareQuery([this, words] { return Completions(words); }); }});
    add("quit", "end the simulator", [this] {
        Q_EMIT Quit();
        return QString();
    });
}

Commands::Prepared Commands::PrepareDaemon(const QStringList& arguments) const
{
    BusService* service = device.Service(arguments.value(1, QStringLiteral("gsm")));
    if (!service)
        return Invalid(
            QStringLiteral("the device has no service \"%1\" on the bus; there are gsm, sound, audio-out and "
                           "audio-in, unless options leave them out")
                .arg(arguments.value(1, QStringLiteral("gsm"))));
    return PrepareChoice<bool>(arguments.at(0), {{"leave", true}, {"return", false}}, [service](bool leave) {
        if (leave != service->IsOnBus())
            return QStringLiteral("%1 is %2")
                .arg(service->ShortName(), leave ? "not on the bus" : "on the bus already");
        if (!leave)
            return service->Join();
        service->Leave();
        return QString();
    });
}

Commands::Prepared Commands::PrepareFault(const QStringList& arguments) const
{
    const QString& method = arguments.at(0);
    BusService* service = device.ServiceWithMethod(method);
    if (!service)
        return Invalid(QStringLiteral("no service of the device has a method %1").arg(method));
    if (arguments.mid(1) == QStringList{QStringLiteral("clear")})
        return PrepareAction([service, method] { service->ClearFault(method); });

    const std::optional<Fault> fault = ParseFault(arguments.mid(1));
    if (!fault)
        return Invalid(QStringLiteral("usage: ") + Find(QStringLiteral("fault"))->usage);
    return PrepareAction([service, method, fault] { service->SetFault(method, *fault); });
}

const Commands::Command* Commands::Find(const QString& name) const
{
    const auto found =
        std::find_if(commands.begin(), commands.end(), [&](const Command& command) { return command.Name() == name; });
    return found == commands.end() ? nullptr : &*found;
}

QString Commands::Help() const
{
    constexpr int UsageWidth = 22;

    QStringList lines;
    for (const Command& command : commands) {
        if (command.usage.size() >= UsageWidth)
            lines << command.usage << QString(UsageWidth, QLatin1Char(' ')) + command.description;
        else
            lines << command.usage.leftJustified(UsageWidth) + command.description;
    }
    if (device.HasAtPort())
        lines << QString() << QStringLiteral("On the AT port, a fault of a method affects the corresponding commands:")
              << AtModem::Counterparts();
    return lines.join(QLatin1Char('\n'));
}

QString Commands::Completions(const QStringList& words) const
{
    const int index = static_cast<int>(words.size()) - 1;
    QStringList completions;
    if (index == 0) {
        for (const Command& command : commands)
            completions.append(command.Name());
    } else if (const Command* command = Find(words.first())) {
        // Offer the literal words of the usage. The choices of a fault are spread over several words.
        const QStringList usage = command->usage.split(QLatin1Char(' '));
        const bool takesMethod = usage.value(1) == QLatin1String("METHOD");
        const QString argument =
            takesMethod && index == 2 ? usage.mid(index).join(QLatin1Char(' ')) : usage.value(index);
        for (QString choice : argument.split(QLatin1Char('|'))) {
            choice = choice.section(QLatin1Char(' '), 0, 0).remove(QLatin1Char('[')).remove(QLatin1Char(']'));
            if (choice == choice.toLower())
                completions.append(choice);
        }
        if (takesMethod && index == 1) {
            for (const char* name : {"gsm", "sound", "audio-out", "audio-in"}) {
                if (const BusService* service = device.Service(QLatin1String(name)))
                    completions += service->Description().Methods().keys();
            }
        }
    }
    const auto isOther = [&](const QString& word) { return !word.startsWith(words.last()); };
    completions.erase(std::remove_if(completions.begin(), completions.end(), isOther), completions.end());
    return completions.join(QLatin1Char('\n'));
}

Commands::Prepared Commands::Prepare(const QString& line) const
{
    const std::optional<QStringList> words = SplitWords(line);
    if (!words)
        return Invalid(QStringLiteral("a quote or backslash is left open"));
    if (words->isEmpty())
        return PrepareAction([] {});

    const Command* command = Find(words->first());
    if (!command)
        return Invalid(QStringLiteral("no command \"%1\"; try: help").arg(words->first()));
    const QStringList arguments = words->mid(1);
    if (arguments.size() < command->minArguments || arguments.size() > command->maxArguments)
        return Invalid(QStringLiteral("usage: ") + command->usage);
    return command->prepare(arguments);
}

Commands::Result Commands::Run(const QString& line) const
{
    const Prepared prepared = Prepare(line);
    return prepared.run ? prepared.run() : Result{false, prepared.problem};
}
