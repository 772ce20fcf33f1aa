// Calls a number and shows the progress of the call. usage: phone-call NUMBER

#include "phone.h"

#include <QCoreApplication>
#include <QDBusServiceWatcher>

#include <Names.h>
#include <PhoneCodes.h>
#include <cstdio>

namespace
{

/// The service has one thread and may be busy with the modem, so an answer can take minutes.
constexpr int AnswerTimeoutMs = 300000;

const char* Explain(int status)
{
    switch (status) {
    case StatusCodeCallFailed: return "a call is in progress, or this one could not be placed or heard";
    case StatusCodeNoSim: return "no SIM card, or not yet checked: wait for SimPresent(true)";
    case StatusCodeNotRegistered: return "not registered to the network: wait for PhoneStatus(2)";
    default: return "see docs/interface.md";
    }
}

void End(int exitStatus, const char* text)
{
    std::puts(text);
    QCoreApplication::exit(exitStatus);
}

}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: phone-call NUMBER\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // print each step at once, also to a pipe
    ComQuillmarkKovaPhoneinterfaceInterface phone(Names::PhoneService, Names::PhoneObject,
                                                  QDBusConnection::sessionBus());
    phone.setTimeout(AnswerTimeoutMs);

    // Connect to the signal before the call, so that none is missed.
    bool placed = false;
    bool answered = false;
    QObject::connect(&phone, &ComQuillmarkKovaPhoneinterfaceInterface::VoiceCall, &application, [&](uint status) {
        if (!placed)
            return; // the end of an earlier call
        if (status == VoiceCallStatusAnswered) {
            answered = true;
            std::puts("answered");
        } else if (status == VoiceCallStatusTerminated) {
            answered ? End(0, "ended") : End(1, "not answered");
        }
    });

    // A late answer does not mean that the service is dead, but the loss of its name does.
    QDBusServiceWatcher watcher(Names::PhoneService, phone.connection(), QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, &application,
                     [] { End(1, "the phone service has ended"); });

    QDBusPendingCallWatcher call(phone.VoiceCallMake(QString::fromUtf8(argv[1])));
    QObject::connect(&call, &QDBusPendingCallWatcher::finished, &application, [&] {
        const QDBusPendingReply<int> reply = call;
        if (reply.isError()) {
            End(1, qPrintable(reply.error().message()));
        } else if (reply.value() != StatusCodeSuccess) {
            // After -55 a call may be in progress without sound. VoiceCall(0) will report its end.
            End(1, Explain(reply.value()));
        } else {
            placed = true;
            std::puts("dialling");
        }
    });
    return application.exec();
}
