#include "Commands.h"

#include "ContactBook.h"
#include "Doctor.h"
#include "Follow.h"
#include "Input.h"
#include "Monitor.h"
#include "PhoneCodes.h"
#include "SmsParts.h"
#include "Status.h"
#include "Timeline.h"

#include <algorithm>
#include <climits>

namespace
{

// Messages, calls, access point

Outcome SendSms(const Arguments& arguments, Progress& progress)
{
    const QString number = CheckedNumber(arguments.positional.at(0), arguments);
    const QString text = MessageText(arguments.positional.value(1));
    PhoneClient phone(arguments, progress);
    phone.Ask(phone.Proxy().QueueSms(number, text));

    const SmsParts parts = CountSmsParts(text);
    QJsonObject details{{"parts", parts.count}, {"alphabet", QLatin1String(parts.alphabet)}};
    const QString size = parts.count > 1
                             ? QStringLiteral(" in %1 parts (%2)").arg(parts.count).arg(QLatin1String(parts.alphabet))
                             : QString();
    if (arguments.Has(OptionWait)) {
        const QJsonObject sent = FollowSms(phone, progress, size);
        for (auto entry = sent.begin(); entry != sent.end(); ++entry)
            details.insert(entry.key(), entry.value());
        return {{}, details};
    }
    const uint modem = phone.State().phoneStatus;
    details.insert(QStringLiteral("phoneStatus"), static_cast<qint64>(modem));
    return {
        QStringLiteral("queued%1%2")
            .arg(size, modem == ModemStatusRegistered ? QString()
                       : modem == ModemStatusOff
                           ? QStringLiteral("; the modem is off, and the message waits until something switches it on")
                           : QStringLiteral("; the message waits until the modem is registered to the network")),
        details};
}

/// Follows a call, and offers to hang up after Ctrl-C.
template <typename Follow>
QJsonObject FollowOrHangUp(PhoneClient& phone, Progress& progress, Follow follow)
{
    phone.Gsm(); // makes the daemon's call signals part of the events
    try {
        return follow();
    } catch (Failure& failure) {
        if (failure.exitStatus != ExitInterrupted && failure.exitStatus != ExitTimedOut)
            throw;
        failure.text += QStringLiteral("; 'phonectl hangup' ends it");
        if (failure.exitStatus == ExitTimedOut || !phone.Confirm(QStringLiteral("\nThe call goes on. Hang up? [y/N] ")))
            throw;
    }
    phone.Unlimit();
    HangUp(phone, progress);
    throw Failure{ExitInterrupted, QStringLiteral("interrupted and hung up")};
}

Outcome MakeCall(const Arguments& arguments, Progress& progress)
{
    const QString number = CheckedNumber(arguments.positional.at(0), arguments);
    PhoneClient phone(arguments, progress);
    phone.Ask(phone.Proxy().VoiceCallMake(number));
    if (!arguments.Has(OptionWait))
        return {QStringLiteral("dialling %1").arg(Printable(number)), {}};
    return {{}, FollowOrHangUp(phone, progress, [&] { return FollowCall(phone, progress, number); })};
}

Outcome MakeCallLoop(const Arguments& arguments, Progress& progress)
{
    QStringList numbers;
    for (const QString& number : arguments.positional)
        numbers.append(CheckedNumber(number, arguments));
    PhoneClient phone(arguments, progress);
    phone.Ask(phone.Proxy().VoiceCallLoopMake(numbers));
    if (!arguments.Has(OptionWait))
        return {QStringLiteral("calling until one answers"), {}};
    return {{}, FollowOrHangUp(phone, progress, [&] { return FollowCallLoop(phone, progress, numbers); })};
}

Outcome EndCall(const Arguments& arguments, Progress& progress)
{
    PhoneClient phone(arguments, progress);
    const int ended = HangUp(phone, progress);
    return {ended == 0 ? QStringLiteral("hung up") : QString(), {{"ended", ended}}};
}

Outcome SetApn(const Arguments& arguments, Progress& progress)
{
    const QString apn = CheckedApn(arguments.positional.at(0));
    const QString password = Password(arguments.positional.value(2), arguments);
    PhoneClient phone(arguments, progress);
    phone.Ask(phone.Proxy().SetApn(apn, arguments.positional.value(1), password));
    return {QStringLiteral("access point set"), {}};
}

// Contacts

QJsonObject ToJson(const ContactBook::Contact& contact)
{
    return {{"number", contact.number},
            {"name", contact.name},
            {"flags", static_cast<qint64>(contact.flags)},
            {"mayCallIn", (contact.flags & ContactBook::MayCallIn) != 0}};
}

Outcome ListContacts(const Arguments&, Progress&)
{
    const QList<ContactBook::Contact> contacts = ContactBook().All();
    qsizetype numberWidth = 0;
    qsizetype nameWidth = 0;
    for (const ContactBook::Contact& contact : contacts) {
        numberWidth = std::max<qsizetype>(numberWidth, Printable(contact.number).size());
        nameWidth = std::max<qsizetype>(nameWidth, Printable(contact.name).size());
    }

    QStringList lines;
    QJsonArray array;
    for (const ContactBook::Contact& contact : contacts) {
        const QString row = QStringLiteral("%1  %2  %3")
                                .arg(Printable(contact.number).leftJustified(numberWidth),
                                     Printable(contact.name).leftJustified(nameWidth),
                                     ContactBook::FlagWords(contact.flags).join(QStringLiteral(", ")));
        lines.append(row.trimmed());
        array.append(ToJson(contact));
    }
    return {lines.isEmpty() ? QStringLiteral("no contacts") : lines.join(QLatin1Char('\n')), {{"contacts", array}}};
}

Outcome AddContact(const Arguments& arguments, Progress&)
{
    const ContactBook::Contact contact{CheckedNumber(arguments.positional.at(0), arguments),
                                       arguments.positional.value(1, QStringLiteral("")),
                                       arguments.Has(OptionMayCallIn) ? ContactBook::MayCallIn : 0};
    ContactBook().Add(contact);
    return {QStringLiteral("added"), {{"contact", ToJson(contact)}}};
}

Outcome RemoveContact(const Arguments& arguments, Progress&)
{
    ContactBook().Remove(CheckedNumber(arguments.positional.at(0), arguments));
    return {QStringLiteral("removed"), {}};
}

}

const QList<Command>& Commands()
{
    constexpr unsigned Bus = OptionTimeout;
    constexpr unsigned Followed = OptionTimeout | OptionWait;
    static const QList<Command> commands = {
        {"status", "", Bus | OptionWatch, "Show the phone's state",
         "Modem, network, signal, SIM card, whether the user has switched the phone on, whether the modem is forced "
         "off, all as last reported, and which of the services below are missing from the bus.\nSignal: excellent from "
         "-70 dBm, good from -85, fair from -100, weak below. With --watch: again after each change, until Ctrl-C.",
         "phonectl status\nphonectl status --json | jq .signalDbm", ShowStatus},
        {"enable", "", Followed, "Switch the phone on permanently",
         "With --wait: until the modem is registered to the network, or the check finds no SIM card.",
         "phonectl enable --wait", SwitchOn},
        {"disable", "", Followed, "Switch the phone off permanently",
         "The modem stays on while a data connection is switched on. With --wait: until the modem is off.",
         "phonectl disable", SwitchOff},
        {"force-off", "on|off", Followed, "Keep the modem off, or allow it again",
         "For suspend or shutdown. A restart of the service ends it. With --wait: until the modem is off, or "
         "registered again.",
         "phonectl force-off on --wait && systemctl suspend", ForceOff},
        {"sms", "NUMBER [TEXT]", Followed | OptionRaw, "Queue a message",
         "Without TEXT, or with -, the text is read from standard input. Queuing does not switch the modem on.\nWith "
         "--wait: until the message is reported as sent or lost.",
         "phonectl sms +4912345 \"On my way\"\nuptime | phonectl sms --wait +4912345", SendSms},
        {"call", "NUMBER", Followed | OptionRaw, "Call a number",
         "With --wait: until the call has ended; the service hangs up after 30 s without an answer.",
         "phonectl call --wait +4912345", MakeCall},
        {"call-loop", "NUMBER...", Followed | OptionRaw, "Call numbers in turn until one answers",
         "With --wait: until the call with the number that answers has ended, or all have rejected.",
         "phonectl call-loop +4912345 +4967890", MakeCallLoop},
        {"hangup", "", Bus, "End the call in progress",
         "The call may be ringing, dialled or answered. A call loop ends, too, without dialling its remaining "
         "numbers.\nThis asks the GSM daemon, because the phone service has no such request.",
         "phonectl hangup", EndCall},
        {"apn", "APN [USER [PASSWORD]]", Bus | OptionPasswordFile | OptionAskPassword,
         "Set the data connection's access point",
         "A password on the command line is visible to other users while phonectl runs, and stays in the shell's "
         "history.",
         "phonectl apn internet.example\nphonectl apn internet.example user --ask-password\nphonectl apn "
         "internet.example user --password-file secret",
         SetApn},
        {"monitor", "", Bus, "Print each signal of the service",
         "Also reports when the service leaves the bus or returns. Ctrl-C or --timeout ends it.",
         "phonectl monitor\nphonectl monitor --json | jq 'select(.signal == \"SmsReceived\") | .text'", Monitor},
        {"doctor", "", Bus, "Check that the board has everything that a call needs",
         "Checks everything from the session bus to the contacts, in the order in which a board is brought up. For "
         "each step, prints whether it holds, fails or is not yet due, and what to do next. Changes nothing and starts "
         "nothing. The exit status is 1 if a step fails.",
         "phonectl doctor\nphonectl doctor --json | jq '.steps[] | select(.verdict == \"fails\")'", Examine},
        {"timeline", "[FILE]", OptionOutput, "Draw the service's log as a picture",
         "FILE is the log; without it, or with -, it is read from standard input. The picture goes to standard output "
         "or, with --output, to a file, as a web page if its name ends in .html.\nAll journalctl formats are read. For "
         "a log without times, the axis counts lines.",
         "journalctl --user -u phonemanager -o short-iso | phonectl timeline >phone.svg\nphonectl timeline phone.log "
         "--output phone.html",
         DrawTimeline},
        {"contacts list", "", OptionNone, "List the contacts and their rights", "", "phonectl contacts list",
         ListContacts},
        {"contacts add", "NUMBER [NAME]", OptionRaw | OptionMayCallIn, "Add a contact",
         "NUMBER must be exactly what the network shows, or the contact's calls will not be recognised. The database "
         "is created if it does not exist.",
         "phonectl contacts add +4912345 Anna --may-call-in", AddContact},
        {"contacts remove", "NUMBER", OptionRaw, "Remove a contact", "", "phonectl contacts remove +4912345",
         RemoveContact},
    };
    return commands;
}

QStringList Command::ArgumentNames() const
{
    const QString names = QString::fromLatin1(arguments).remove(QLatin1Char('[')).remove(QLatin1Char(']'));
    return names.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

int Command::MinArguments() const
{
    return static_cast<int>(ArgumentNames().size()) -
           static_cast<int>(QString::fromLatin1(arguments).count(QLatin1Char('[')));
}

int Command::MaxArguments() const
{
    return QString::fromLatin1(arguments).endsWith(QLatin1String("...")) ? INT_MAX
                                                                         : static_cast<int>(ArgumentNames().size());
}

const Command* FindCommand(const QStringList& words)
{
    const auto begins = [&](const Command& command) {
        const QStringList name = QString::fromLatin1(command.name).split(QLatin1Char(' '));
        return words.mid(0, name.size()) == name;
    };
    const auto found = std::find_if(Commands().begin(), Commands().end(), begins);
    return found == Commands().end() ? nullptr : &*found;
}

QStringList GroupMembers(const QString& word)
{
    QStringList members;
    for (const Command& command : Commands()) {
        const QStringList name = QString::fromLatin1(command.name).split(QLatin1Char(' '));
        if (name.size() > 1 && name.first() == word)
            members.append(name.last());
    }
    return members;
}

const Command& TakeCommand(Arguments& arguments)
{
    const Command* const command = FindCommand(arguments.positional);
    if (!command) {
        const QString word = arguments.positional.value(0);
        const QStringList members = GroupMembers(word);
        const QString given = arguments.positional.value(1);
        if (!members.isEmpty())
            throw Failure{ExitUsage, QStringLiteral("%1 takes one of: %2%3; see 'phonectl help %1'")
                                         .arg(word, members.join(QStringLiteral(", ")), DidYouMean(given, members))};
        QStringList names;
        for (const Command& known : Commands())
            names.append(QLatin1String(known.name));
        throw Failure{
            ExitUsage,
            QStringLiteral("no command '%1'%2 ('phonectl --help' lists them)").arg(word, DidYouMean(word, names))};
    }

    arguments.positional = arguments.positional.mid(QString::fromLatin1(command->name).count(QLatin1Char(' ')) + 1);
    return *command;
}

void CheckArguments(const Command& command, const Arguments& arguments)
{
    const QString name = QLatin1String(command.name);
    arguments.Allow(command.options | OptionsEverywhere, name);
    const QStringList wanted = command.ArgumentNames();
    const QStringList& given = arguments.positional;
    const QString usage = QStringLiteral("; see 'phonectl help %1'").arg(name);
    if (given.size() < command.MinArguments())
        throw Failure{ExitUsage,
                      QStringLiteral("%1 is missing%2").arg(wanted.at(static_cast<int>(given.size())), usage)};
    if (given.size() > command.MaxArguments())
        throw Failure{ExitUsage, QStringLiteral("\"%1\" is one argument too many (quotes keep words together)%2")
                                     .arg(given.at(command.MaxArguments()), usage)};
    for (int place = 0; place < std::min(wanted.size(), given.size()); ++place) {
        const QStringList choices = wanted.at(place).split(QLatin1Char('|'));
        if (choices.size() > 1 && !choices.contains(given.at(place)))
            throw Failure{ExitUsage, QStringLiteral("\"%1\" is not one of: %2%3")
                                         .arg(given.at(place), choices.join(QStringLiteral(", ")), usage)};
    }
}
