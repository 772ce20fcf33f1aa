#include "Monitor.h"

#include "Meanings.h"
#include "PhoneClient.h"

#include <QDBusConnectionInterface>
#include <QDateTime>

namespace
{

/// One line of the monitor.
struct Report {
    const char* signal;
    QString text;
    QJsonObject details;
};

QString Details(const QVariantMap& info)
{
    QStringList entries;
    for (auto entry = info.begin(); entry != info.end(); ++entry)
        entries.append(entry.key() + QLatin1Char('=') + entry.value().toString());
    return entries.join(QStringLiteral(", "));
}

Report Describe(const char* signal, uint value, const QString& word)
{
    return {signal, word, {{"value", static_cast<qint64>(value)}, {"meaning", word}}};
}

Report Describe(const PhoneEvent& event)
{
    switch (event.kind) {
    case PhoneEvent::PhoneStatus: return Describe("PhoneStatus", event.value, PhoneStatusWord(event.value));
    case PhoneEvent::VoiceCall: return Describe("VoiceCall", event.value, VoiceCallWord(event.value));
    case PhoneEvent::SimPresent:
        return {
            "SimPresent", QLatin1String(event.flag ? "SIM card present" : "no SIM card"), {{"present", event.flag}}};
    case PhoneEvent::SmsSent:
        return {"SmsSent",
                QStringLiteral("message %1 %2").arg(event.value).arg(QLatin1String(event.flag ? "sent" : "lost")),
                {{"identifier", static_cast<qint64>(event.value)}, {"sent", event.flag}}};
    case PhoneEvent::SmsReceived:
        return {"SmsReceived",
                QStringLiteral("\"%1\" (%2)").arg(event.text, Details(event.info)),
                {{"text", event.text}, {"info", QJsonObject::fromVariantMap(event.info)}}};
    case PhoneEvent::ServiceLeft: return {"service", QStringLiteral("left the bus"), {{"present", false}}};
    case PhoneEvent::ServiceCame: return {"service", QStringLiteral("is on the bus"), {{"present", true}}};
    case PhoneEvent::CallEndedBelow: break; // not connected here
    }
    return {};
}

void Print(Report report, bool json)
{
    const QDateTime now = QDateTime::currentDateTime();
    if (json) {
        report.details.insert(QStringLiteral("time"),
                              now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs));
        report.details.insert(QStringLiteral("signal"), report.signal);
        PrintLine(report.details);
    } else {
        PrintLine(stdout, QStringLiteral("%1  %2 %3")
                              .arg(now.toString(QStringLiteral("HH:mm:ss.zzz")),
                                   QString::fromLatin1(report.signal).leftJustified(12), Printable(report.text)));
    }
}

}

Outcome Monitor(const Arguments& arguments, Progress& progress)
{
    const bool json = arguments.Has(OptionJson);
    PhoneClient phone(arguments, progress);
    // Monitoring must not start the service: only wait for it.
    const bool present = phone.Proxy().connection().interface()->isServiceRegistered(phone.Proxy().service());
    Print(Describe(PhoneEvent{present ? PhoneEvent::ServiceCame : PhoneEvent::ServiceLeft}), json);
    try {
        while (true)
            Print(Describe(*phone.Next(QString())), json);
    } catch (const Failure& failure) {
        if (failure.exitStatus != ExitInterrupted && failure.exitStatus != ExitTimedOut)
            throw;
    }
    return {};
}
