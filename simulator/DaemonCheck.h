#pragma once

#include "InterfaceDescription.h"

#include <QDBusMessage>
#include <QElapsedTimer>
#include <QObject>

/// Tests the GSM daemon on the session bus against the contract: asks it for everything that the phone service will ask
/// for, and prints what its maker has to mend. The phone service must not run meanwhile.
class DaemonCheck : public QObject
{
    Q_OBJECT

public:
    /// The other ends of a call and of a message; an empty one is not tried.
    struct Numbers {
        QString call;
        QString sms;
    };

    DaemonCheck();

    /// @return the exit status: 0 nothing to mend, 1 something, 3 nobody has the daemon's name.
    int Run(const Numbers& numbers);

private Q_SLOTS:
    void OnSignal(const QDBusMessage& message);

private:
    struct Signal {
        QString name;
        qint64 time;
    };
    struct Reply {
        bool good = false; ///< in time, of the right types, and status 0
        QString text;      ///< how it was, or what is to be mended
        QVariantList values{};
    };

    bool CompareDescriptions();
    bool PowerOn();
    bool CheckSim();
    bool CheckRegistration();
    void CheckCall(const QString& number);
    void CheckLoop(const QString& number);
    void PowerOff();

    Reply Ask(const QString& method, const QVariantList& arguments, int limitMs);
    /// Asks, and prints how the answer was.
    Reply Try(const QString& method, const QVariantList& arguments, int limitMs);
    void Judge(const Reply& reply);
    static void Wait(int ms);
    /// Waits for one of the signals to come, or to have come since the last Forget(). @return its name, or nothing.
    QString Await(const QStringList& names, int limitMs);
    int Count(const QString& name) const;
    void Forget() { received.clear(); }
    void Good(const QString& text);
    void Mend(const QString& text);

    const InterfaceDescription contract;
    QElapsedTimer clock;
    QList<Signal> received;
    int faults = 0;
};
