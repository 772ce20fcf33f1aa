#include "Status.h"

#include "Follow.h"
#include "Meanings.h"
#include "Names.h"
#include "PhoneCodes.h"
#include "SettingsFile.h"

#include <QDateTime>

#include <unistd.h>

namespace
{

constexpr int LabelWidth = 12;
/// The service has no signal for the signal strength, so it must be polled.
constexpr int WatchIntervalMs = 2000;

constexpr struct {
    const char* key; ///< in JSON
    const char* words;
    const char* service;
} peers[] = {
    {"gsmDaemon", "GSM daemon", Names::GsmService},
    {"soundManager", "sound manager", Names::SoundManagerService},
    {"audioOutCtl", "audio output control", Names::AudioOutCtlService},
    {"audioInCtl", "audio input control", Names::AudioInCtlService},
};

QString Row(const char* label, const QString& value, Colour colour = Plain)
{
    return QString::fromLatin1(label).leftJustified(LabelWidth) + Painted(value, colour);
}

QString OffOr(bool off, const QString& otherwise)
{
    return off ? QStringLiteral("-") : otherwise;
}

Outcome Describe(PhoneClient& phone, const PhoneState& state)
{
    const bool off = state.phoneStatus == ModemStatusOff;
    const bool registered = state.phoneStatus == ModemStatusRegistered;
    const SignalStrength strength = ReadSignal(state.rssi);
    const QString signal =
        strength.dBm ? QStringLiteral("%1 (%2 dBm)").arg(strength.word).arg(*strength.dBm) : strength.word;
    const Colour simColour = state.simStatus == SimStatusPresent  ? Green
                             : state.simStatus == SimStatusAbsent ? Red
                                                                  : Yellow;
    QJsonObject details{{"phoneStatus", static_cast<qint64>(state.phoneStatus)},
                        {"phone", PhoneStatusWord(state.phoneStatus)},
                        {"simStatus", static_cast<qint64>(state.simStatus)},
                        {"sim", SimStatusWord(state.simStatus)},
                        {"rssi", static_cast<qint64>(state.rssi)},
                        {"signal", registered ? QJsonValue(strength.word) : QJsonValue()},
                        {"signalDbm", registered && strength.dBm ? QJsonValue(*strength.dBm) : QJsonValue()},
                        {"userEnabled", state.userEnabled},
                        {"forced", state.forced}};
    QStringList absent;
    for (const auto& peer : peers) {
        const bool present = phone.IsOnBus(peer.service);
        details.insert(QLatin1String(peer.key), present);
        if (!present)
            absent.append(QLatin1String(peer.words));
    }

    QStringList rows;
    if (!details.value(QLatin1String(peers[0].key)).toBool()) {
        absent.removeFirst();
        rows.append(Row("GSM daemon",
                        QStringLiteral("not on the bus; the rows from Modem to SIM card show its last report"), Red));
    }
    rows +=
        {Row("Modem", off ? QStringLiteral("off") : QStringLiteral("on"), off ? Plain : Green),
         Row("Network", OffOr(off, PhoneStatusWord(state.phoneStatus)),
             registered ? Green
             : off      ? Plain
                        : Yellow),
         Row("Signal", OffOr(!registered, signal)),
         Row("SIM card", SimStatusWord(state.simStatus), simColour),
         Row("Asked for", state.userEnabled ? QStringLiteral("on") : QStringLiteral("off")),
         Row("Forced off", state.forced ? QStringLiteral("yes") : QStringLiteral("no"), state.forced ? Red : Plain)};
    if (!absent.isEmpty())
        rows.append(Row("No sound", QStringLiteral("not on the bus: ") + absent.join(QStringLiteral(", ")), Red));
    return {rows.join(QLatin1Char('\n')), details};
}

/// Prints the state whenever it has changed, until Ctrl-C or --timeout.
void Watch(PhoneClient& phone, bool json)
{
    const char* const clear = isatty(STDOUT_FILENO) ? "\033[H\033[J" : "";
    Outcome shown;
    while (true) {
        // Watching must not start the service.
        const Outcome now = phone.IsOnBus(Names::PhoneService)
                                ? Describe(phone, phone.State())
                                : Outcome{Row("Service", QStringLiteral("not on the bus"), Red), {{"present", false}}};
        if (json && now.details != shown.details)
            PrintLine(now.details);
        if (!json && now.text != shown.text)
            PrintLine(stdout, QLatin1String(clear) + QDateTime::currentDateTime().toString(Qt::ISODate) +
                                  QLatin1Char('\n') + now.text);
        shown = now;
        phone.Next({}, WatchIntervalMs);
    }
}

Outcome Switch(const Arguments& arguments, Progress& progress, bool on)
{
    PhoneClient phone(arguments, progress);
    std::optional<Failure> refusal;
    try {
        phone.Ask(phone.Proxy().PhoneSetEnabled(on));
    } catch (const Failure& failure) {
        if (failure.serviceStatus == StatusCodeSuccess)
            throw;
        refusal = failure;
    }
    // The answer does not say whether the setting was stored, but GetStatus reads it from the file.
    const bool isRead = phone.State().userEnabled == on;
    const SettingsFile file{ServiceEnvironment(phone)};
    if (!isRead || !file.problem.isEmpty()) {
        const QString why = file.problem.isEmpty() ? file.unwritable : file.problem;
        throw Failure{ExitRefused,
                      QStringLiteral("the setting was not stored in \"%1\": %2")
                          .arg(file.path, why.isEmpty() ? QStringLiteral("the service's log may say why") : why)};
    }
    if (refusal)
        throw *refusal;
    if (!arguments.Has(OptionWait))
        return {on ? QStringLiteral("enabled") : QStringLiteral("disabled"), {}};
    on ? FollowOn(phone, progress) : FollowOff(phone, progress);
    return {};
}

}

Outcome ShowStatus(const Arguments& arguments, Progress& progress)
{
    PhoneClient phone(arguments, progress);
    if (!arguments.Has(OptionWatch))
        return Describe(phone, phone.State());
    try {
        Watch(phone, arguments.Has(OptionJson));
    } catch (const Failure& failure) {
        if (failure.exitStatus != ExitInterrupted && failure.exitStatus != ExitTimedOut)
            throw;
    }
    return {};
}

Outcome SwitchOn(const Arguments& arguments, Progress& progress)
{
    return Switch(arguments, progress, true);
}

Outcome SwitchOff(const Arguments& arguments, Progress& progress)
{
    return Switch(arguments, progress, false);
}

Outcome ForceOff(const Arguments& arguments, Progress& progress)
{
    const bool off = arguments.positional.at(0) == QLatin1String("on");
    PhoneClient phone(arguments, progress);
    phone.Ask(phone.Proxy().ForcePhoneOff(off));
    if (!arguments.Has(OptionWait))
        return {off ? QStringLiteral("forced off") : QStringLiteral("no longer forced off"), {}};
    if (off)
        FollowOff(phone, progress);
    else if (phone.State().userEnabled)
        FollowOn(phone, progress);
    else
        return {QStringLiteral("no longer forced off; the phone is not enabled, so there is nothing to wait for"), {}};
    return {};
}
