#pragma once

#include "LogindProxy.h"
#include "PhoneProxy.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QTimer>

/// Holds the phone off while the device sleeps: delays the sleep until the modem is off, and releases the phone when
/// the device wakes. A phone that the user has forced off stays off.
class SleepGuard : public QObject
{
    Q_OBJECT

public:
    SleepGuard(const QDBusConnection& systemBus, const QDBusConnection& sessionBus);

    /// Continues where an earlier process of this program ended.
    void Start();

private:
    enum class State {
        Awake,
        Asking,  ///< GetStatus was sent, to find out whether the user already holds the phone off
        Forcing, ///< ForcePhoneOff(true) was sent
        Waiting, ///< the modem is switching off
        Asleep,  ///< the sleep is no longer delayed
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
    QDBusUnixFileDescriptor inhibitor; ///< delays the sleep while it is open
    State state = State::Awake;
    QTimer offTimer; ///< limits the wait for the modem to switch off
    QTimer releaseRetryTimer;
};
