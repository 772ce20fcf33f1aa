#pragma once

#include "LogindProxy.h"
#include "PhoneProxy.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QTimer>

/// Holds the phone off while the device sleeps: it delays the sleep until the modem is off, and lets the phone go when
/// the device wakes. A phone that its user holds off stays off.
class SleepGuard : public QObject
{
    Q_OBJECT

public:
    SleepGuard(const QDBusConnection& systemBus, const QDBusConnection& sessionBus);

    /// Takes up where an earlier life of this program ended.
    void Start();

private:
    enum class State {
        Awake,
        Asking,  ///< whether the user holds the phone off
        Forcing, ///< asked the service to hold the phone off
        Waiting, ///< for the modem to be off
        Asleep,  ///< nothing delays the sleep any more
    };

    void Inhibit();
    void OnPrepareForSleep(bool start);
    void Force();
    void OnPhoneStatus(uint status);
    void LetSleep();
    void Release();

    template <class Call>
    void Ask(const Call& call, void (SleepGuard::*answered)(const QDBusMessage&));
    void OnAsked(const QDBusMessage& status);
    void OnForced(const QDBusMessage& answer);
    void OnOffAsked(const QDBusMessage& status);
    void OnReleased(const QDBusMessage& answer);

    LogindProxy logind;
    PhoneProxy phone;
    QDBusServiceWatcher logindWatcher;
    QDBusUnixFileDescriptor inhibitor; ///< delays the sleep as long as it is open
    State state = State::Awake;
    QTimer limit;   ///< for the modem to be off
    QTimer release; ///< tries again what failed
};
