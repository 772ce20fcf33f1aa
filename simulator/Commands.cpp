#include "Commands.h"

#include <QRegularExpression>

#include <algorithm>
#include <climits>
#include <type_traits>

namespace
{

using Prepared = Commands::Prepared;

constexpr int Unlimited = INT_MAX;

Prepared Refuse(const QString& problem)
{
    return {{}, problem};
}

/// For what is always done, or answers an empty text or why it is refused.
template <typename Action>
Prepared Do(Action action)
{
    return {[action] {
                QString problem;
                if constexpr (std::is_void_v<decltype(action())>)
                    action();
                else
                    problem = action();
                return Commands::Result{problem.isEmpty(), problem};
            },
            {}};
}

/// For what answers a text to be shown.
template <typename Action>
Prepared Tell(Action action)
{
    return {[action] { return Commands::Result{true, action()}; }, {}};
}

/// For an argument that is one word out of a few, each of which means a value.
template <typename Value, typename Action>
Prepared Choose(const QString& word, const QMap<QString, Value>& values, Action action)
{
    if (!values.contains(word))
        return Refuse(QStringLiteral("\"%1\" is none of: %2").arg(word, values.keys().join(QStringLiteral(", "))));
    return Do([action, value = values.value(word)] { return action(value); });
}

std::optional<int> ReadNumber(const QString& word, int least)
{
    bool ok = false;
    const int number = word.toInt(&ok);
    return ok && number >= least ? std::optional(number) : std::nullopt;
}

/// The rule for error names on the bus: elements of letters, digits and underscores, joined by dots.
bool IsErrorName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]*(\\.[A-Za-z_][A-Za-z0-9_]*)+$"));
    return name.size() < 256 && pattern.match(name).hasMatch();
}

/// Reads "status N", "error NAME", "silent" or "delay MS", and "times N" after it.
std::optional<Fault> ReadFault(QStringList words)
{
    Fault fault;
    fault.text = words.join(QLatin1Char(' '));
    if (words.size() > 2 && words.at(words.size() - 2) == QLatin1String("times")) {
        fault.times = ReadNumber(words.last(), 1);
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
    const std::optional<int> number = ReadNumber(words.at(1), isDelay ? 0 : INT_MIN);
    if (!number || !(isDelay || kind == QLatin1String("status")))
        return std::nullopt;
    fault.kind = isDelay ? Fault::Delay : Fault::Status;
    fault.number = *number;
    return fault;
}

QString ShowState(const QVariantMap& state)
{
    QStringList lines;
    for (auto entry = state.begin(); entry != state.end(); ++entry)
        lines.append(entry.key() + QStringLiteral(": ") + Show(entry.value()));
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
    AddWorld();
    AddDevice();
    AddConsole();
}

void Commands::AddWorld()
{
    Modem& modem = device.TheModem();

    commands.append({"sim in|out", "insert the SIM card, or pull it out", 1, 1, [&modem](const QStringList& arguments) {
                         return Choose<bool>(arguments.at(0), {{"in", true}, {"out", false}},
                                             [&modem](bool in) { modem.SetSim(in); });
                     }});
    commands.append(
        {"network lost|found", "take the network away, or bring it back", 1, 1, [&modem](const QStringList& arguments) {
             return Choose<bool>(arguments.at(0), {{"found", true}, {"lost", false}},
                                 [&modem](bool found) { modem.SetNetwork(found); });
         }});
    commands.append({"signal VALUE", "change the signal quality, 0 to 255, and report it", 1, 1,
                     [&modem](const QStringList& arguments) {
                         const QVariant value = ToBusType(arguments.at(0), "y");
                         if (!value.isValid())
                             return Refuse(QStringLiteral("VALUE is a number from 0 to 255"));
                         return Do([&modem, value] { modem.SetSignalQuality(value.value<uchar>()); });
                     }});
    commands.append({"ring NUMBER|withheld", "a call comes in", 1, 1, [this, &modem](const QStringList& arguments) {
                         const bool withheld = arguments.at(0) == QLatin1String("withheld");
                         return Do([this, &modem, number = withheld ? QString() : arguments.at(0)] {
                             const QString problem = device.WhyUnheard();
                             return problem.isEmpty() ? modem.Ring(number) : problem;
                         });
                     }});
    commands.append({"answer", "the far end answers the call that is being dialled", 0, 0,
                     [&modem](const QStringList&) { return Do([&modem] { return modem.FarEndAnswer(); }); }});
    commands.append({"reject", "the far end rejects the call that is being dialled", 0, 0,
                     [&modem](const QStringList&) { return Do([&modem] { return modem.FarEndReject(); }); }});
    commands.append({"hangup", "the far end hangs up", 0, 0,
                     [&modem](const QStringList&) { return Do([&modem] { return modem.FarEndHangup(); }); }});
    commands.append({"number NUMBER answer|reject|no-answer|unreachable",
                     "what calls to a number meet from now on; the others answer", 2, 2,
                     [&modem](const QStringList& arguments) {
                         return Choose<Modem::FarEnd>(
                             arguments.at(1),
                             {{"answer", Modem::FarEndAnswers},
                              {"reject", Modem::FarEndRejects},
                              {"no-answer", Modem::FarEndDoesNotAnswer},
                              {"unreachable", Modem::FarEndUnreachable}},
                             [&modem, number = arguments.at(0)](auto farEnd) { modem.SetFarEnd(number, farEnd); });
                     }});
    commands.append(
        {"sms NUMBER TEXT...", "a message comes in", 2, Unlimited, [this, &modem](const QStringList& arguments) {
             return Do([this, &modem, number = arguments.at(0), text = arguments.mid(1).join(QLatin1Char(' '))] {
                 const QString problem = device.WhyUnheard();
                 return problem.isEmpty() ? modem.DeliverSms(number, text) : problem;
             });
         }});
}

void Commands::AddDevice()
{
    Modem& modem = device.TheModem();

    commands.append({"modem drop|unplug|plug|silent|normal",
                     "lose power by itself; be taken out; be put back; stop the signal reports, and on an AT port "
                     "answer nothing at all; all is well again",
                     1, 1, [&modem](const QStringList& arguments) {
                         return Choose<std::function<QString()>>(
                             arguments.at(0),
                             {{"drop", [&modem] { return modem.Drop(); }},
                              {"unplug", [&modem] { return modem.SetPlugged(false); }},
                              {"plug", [&modem] { return modem.SetPlugged(true); }},
                              {"silent", [&modem] { return modem.SetSilent(true), QString(); }},
                              {"normal", [&modem] { return modem.SetSilent(false), QString(); }}},
                             [](const std::function<QString()>& act) { return act(); });
                     }});
    commands.append({"daemon leave|return [gsm|sound|audio-out|audio-in]",
                     "a service leaves the bus as if it died, or returns; gsm if none is named", 1, 2,
                     [this](const QStringList& arguments) { return SteerDaemon(arguments); }});
    commands.append(
        {"fault METHOD status N|error NAME|silent|delay MS|clear [times N]",
         "what requests for a method meet, until cleared or N times; with a delay they are only answered late", 2, 5,
         [this](const QStringList& arguments) { return SetFault(arguments); }});
}

void Commands::AddConsole()
{
    const auto add = [this](const QString& usage, const QString& about, auto tell) {
        commands.append({usage, about, 0, 0, [tell](const QStringList&) { return Tell(tell); }});
    };

    add("state", "show modem, SIM card, network, call, audio, services and faults",
        [this] { return ShowState(device.State()); });
    add("audio", "show the audio path, and what was asked of it in order", [this] {
        QStringList lines{ShowState(device.AudioState())};
        std::copy_if(device.History().begin(), device.History().end(), std::back_inserter(lines),
                     [](const QString& request) { return !request.startsWith(QLatin1String("gsm ")); });
        return lines.join(QLatin1Char('\n'));
    });
    commands.append(
        {"log [clear]", "show what was asked of the device, in order, or forget it", 0, 1,
         [this](const QStringList& arguments) {
             if (arguments.isEmpty())
                 return Tell([this] { return device.History().join(QLatin1Char('\n')); });
             return Choose<bool>(arguments.at(0), {{"clear", true}}, [this](bool) { device.ClearHistory(); });
         }});
    add("help", "show this", [this] { return Help(); });
    commands.append({"complete WORD...",
                     "show what may come next, for a shell; the last word is the one that is being typed", 1, Unlimited,
                     [this](const QStringList& words) { return Tell([this, words] { return Offer(words); }); }});
    add("quit", "end the simulator", [this] {
        Q_EMIT Quit();
        return QString();
    });
}

Commands::Prepared Commands::SteerDaemon(const QStringList& arguments) const
{
    BusService* service = device.Service(arguments.value(1, QStringLiteral("gsm")));
    if (!service)
        return Refuse(QStringLiteral("the device has no service \"%1\" on the bus; there are gsm, sound, audio-out and "
                                     "audio-in, unless options leave them out")
                          .arg(arguments.value(1, QStringLiteral("gsm"))));
    return Choose<bool>(arguments.at(0), {{"leave", true}, {"return", false}}, [service](bool leave) {
        if (leave != service->IsOnBus())
            return QStringLiteral("%1 is %2")
                .arg(service->ShortName(), leave ? "not on the bus" : "on the bus already");
        if (!leave)
            return service->Join();
        service->Leave();
        return QString();
    });
}

Commands::Prepared Commands::SetFault(const QStringList& arguments) const
{
    const QString& method = arguments.at(0);
    BusService* service = device.ServiceOf(method);
    if (!service)
        return Refuse(QStringLiteral("no service of the device has a method %1").arg(method));
    if (arguments.mid(1) == QStringList{QStringLiteral("clear")})
        return Do([service, method] { service->ClearFault(method); });

    const std::optional<Fault> fault = ReadFault(arguments.mid(1));
    if (!fault)
        return Refuse(QStringLiteral("usage: ") + Find(QStringLiteral("fault"))->usage);
    return Do([service, method, fault] { service->SetFault(method, *fault); });
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
            lines << command.usage << QString(UsageWidth, QLatin1Char(' ')) + command.about;
        else
            lines << command.usage.leftJustified(UsageWidth) + command.about;
    }
    if (device.HasAtPort())
        lines << QString()
              << QStringLiteral("On the AT port, a fault of a method is one of the commands that do the same:")
              << AtModem::Counterparts();
    return lines.join(QLatin1Char('\n'));
}

QString Commands::Offer(const QStringList& words) const
{
    const int place = static_cast<int>(words.size()) - 1;
    QStringList offered;
    if (place == 0) {
        for (const Command& command : commands)
            offered.append(command.Name());
    } else if (const Command* command = Find(words.first())) {
        // Of the usage, the words that are meant to the letter; the choice of a fault stands in several.
        const QStringList usage = command->usage.split(QLatin1Char(' '));
        const bool takesMethod = usage.value(1) == QLatin1String("METHOD");
        const QString argument =
            takesMethod && place == 2 ? usage.mid(place).join(QLatin1Char(' ')) : usage.value(place);
        for (QString choice : argument.split(QLatin1Char('|'))) {
            choice = choice.section(QLatin1Char(' '), 0, 0).remove(QLatin1Char('[')).remove(QLatin1Char(']'));
            if (choice == choice.toLower())
                offered.append(choice);
        }
        if (takesMethod && place == 1) {
            for (const char* name : {"gsm", "sound", "audio-out", "audio-in"}) {
                if (const BusService* service = device.Service(QLatin1String(name)))
                    offered += service->Description().Methods().keys();
            }
        }
    }
    const auto isOther = [&](const QString& word) { return !word.startsWith(words.last()); };
    offered.erase(std::remove_if(offered.begin(), offered.end(), isOther), offered.end());
    return offered.join(QLatin1Char('\n'));
}

Commands::Prepared Commands::Prepare(const QString& line) const
{
    const std::optional<QStringList> words = SplitWords(line);
    if (!words)
        return Refuse(QStringLiteral("a quote or backslash is left open"));
    if (words->isEmpty())
        return Do([] {});

    const Command* command = Find(words->first());
    if (!command)
        return Refuse(QStringLiteral("no command \"%1\"; try: help").arg(words->first()));
    const QStringList arguments = words->mid(1);
    if (arguments.size() < command->least || arguments.size() > command->most)
        return Refuse(QStringLiteral("usage: ") + command->usage);
    return command->prepare(arguments);
}

Commands::Result Commands::Run(const QString& line) const
{
    const Prepared prepared = Prepare(line);
    return prepared.run ? prepared.run() : Result{false, prepared.problem};
}
