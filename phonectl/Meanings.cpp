#include "Meanings.h"

#include "PhoneCodes.h"

#include <iterator>

namespace
{

constexpr uint SignBit = 128;
constexpr uint ByteEnd = 256;
// The range that a GSM receiver can measure.
constexpr int StrongestDBm = -30;
constexpr int WeakestDBm = -120;
constexpr int ExcellentDBm = -70;
constexpr int GoodDBm = -85;
constexpr int FairDBm = -100;

template <size_t Count>
QString Word(const char* const (&words)[Count], uint value)
{
    return value < Count ? QString::fromLatin1(words[value]) : QStringLiteral("unknown (%1)").arg(value);
}

}

QString PhoneStatusWord(uint status)
{
    return Word({"off", "registering", "registered"}, status);
}

QString SimStatusWord(uint status)
{
    return Word({"not checked", "check in progress", "not present, or the check failed", "present"}, status);
}

QString VoiceCallWord(uint status)
{
    return Word({"terminated", "incoming", "answered"}, status);
}

QString StatusCodeMeaning(int status, bool isGsmDaemonPresent)
{
    const struct {
        int status;
        const char* meaning;
    } rows[] = {
        {StatusCodeSuccess, "done"},
        {StatusCodeUnreadable, "the modem's state could not be read; ask again"},
        {StatusCodePowerFailed,
         isGsmDaemonPresent ? "the GSM daemon did not take the power command; ask again, nothing tries by itself"
                            : "the GSM daemon is not on the bus; the request takes effect when the daemon appears"},
        {StatusCodeSmsNotQueued, "the message's number has wrapped to 0; it is queued all the same, do not repeat it"},
        {StatusCodeApnNotSet, "the GSM daemon refused or failed the access point; check the values and ask again"},
        {StatusCodeCallFailed,
         "a call or a call loop is in progress, which 'phonectl hangup' ends, or this one could not "
         "be placed or heard; when the GSM daemon has refused to dial, the phone stays busy until "
         "the modem has been off: 'phonectl force-off on --wait', then 'force-off off'"},
        {StatusCodeNoSim, "the SIM card is not present or not yet checked; see 'phonectl status'"},
        {StatusCodeNotRegistered,
         "the modem is not registered to the network; see 'phonectl status', and 'phonectl enable "
         "--wait' follows it there"},
    };
    for (const auto& row : rows) {
        if (row.status == status)
            return QString::fromLatin1(row.meaning);
    }
    return QStringLiteral("a status that this phonectl does not know");
}

SignalStrength ReadSignal(uint rssi)
{
    if (rssi == 0)
        return {QStringLiteral("not reported"), {}};
    const int dBm = rssi < SignBit ? -static_cast<int>(rssi) : static_cast<int>(rssi) - static_cast<int>(ByteEnd);
    if (rssi >= ByteEnd || dBm > StrongestDBm || dBm < WeakestDBm)
        return {QStringLiteral("unclear (reading %1)").arg(rssi), {}};
    const char* const word = dBm >= ExcellentDBm ? "excellent"
                             : dBm >= GoodDBm    ? "good"
                             : dBm >= FairDBm    ? "fair"
                                                 : "weak";
    return {QString::fromLatin1(word), dBm};
}
