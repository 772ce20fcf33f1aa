#pragma once

#include "InterfaceDescription.h"

#include <QDBusMessage>
#include <QElapsedTimer>
#include <QObject>

/// Tests whether the GSM daemon on the session bus meets the phone service's requirements. Makes every request that the
/// service makes and prints what has to be mended. The phone service must not run at the same time.
class DaemonCheck : public QObject
{
    Q_OBJECT

public:
    /// The recipients of the test calls and the test message; an empty one is skipped.
    struct Numbers {
        QString call;
        QString sms;
    };

    DaemonCheck();

    /// @return the exit status: 0 nothing to mend, 1 something to mend, 3 no daemon on the bus.
    int Run(const Numbers& numbers);

private Q_SLOTS:
    void OnSignal(const QDBusMessage& message);

private:
    struct Signal {
        QString name;
        qint64 time;
    };
    struct Reply {
        bool good = false; ///< in time, of the right types, and with status 0
        QString text;      ///< the verdict
        QVariantList values{};
    };

    bool CompareDescriptions();
    bool PowerOn();
    bool CheckSim();
    bool CheckRegistration();
    void CheckCall(const QString& number);
    void CheckLoop(const QString& number);
    void PowerOff();

    Reply Call(const QString& method, const QVariantList& arguments, int limitMs);
    /// Calls the method and reports the verdict.
    Reply Check(const QString& method, const QVariantList& arguments, int limitMs);
    void Report(const Reply& reply);
    static void Wait(int ms);
    /// Waits for one of the signals, unless one has come since the last Forget(). @return its name, or nothing.
    QString Await(const QStringList& names, int limitMs);
    int Count(const QString& name) const;
    void Forget() { received.clear(); }
    static void ReportGood(const QString& text);
    void ReportFault(const QString& text);

    const InterfaceDescription contract;
    QElapsedTimer clock;
    QList<Signal> received;
    int faults = 0;
};
