#pragma once

#include "PhoneProxy.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariantMap>

#include <csignal>

/// One line of the service's log, taken apart.
struct LogLine {
    int level;
    QString origin;
    QString file;
    int line;
    QString function;
    QString message;
};

/// The simulated device and the real service on the session bus that the test runs on, with settings and contacts of
/// their own. It records what happens, and when the test fails, its end prints that. Made anew for each test.
///
/// The service's clock is the test's: PassTime() moves it, so that nobody waits for a watchdog.
class TestBed : public QObject
{
    Q_OBJECT

public:
    TestBed();
    ~TestBed() override;

    // Settings and contacts; before or while the service runs

    void WriteSettings(const QByteArray& text);
    QByteArray Settings() const;
    /// Makes the contacts database: number and flags of each contact.
    static constexpr int MayCallIn = 16;
    void WriteContacts(const QMap<QString, int>& contacts);
    QString SettingsPath() const { return folder.filePath(QStringLiteral("config.ini")); }
    QString ContactsPath() const { return folder.filePath(QStringLiteral("contacts.db")); }

    // The two programs. What waits for something prints what did not happen.

    /// Starts the simulated device and waits until it is on the bus.
    /// @param options further options; without them it is quick and reports the signal once.
    bool StartDevice(const QStringList& options = {});
    /// From now on, the service is a copy of the program in another folder, without what is built beside it.
    bool CopyService(const QString& copyFolder);
    /// Starts the service and waits until it runs.
    bool StartService();
    /// Starts the service and waits for nothing. @param environment variables to set; empty values unset.
    void LaunchService(const QMap<QString, QString>& environment = {});
    /// Waits for the service's end. @return its exit status, -1 after a crash, -2 when it does not end.
    int AwaitEnd();
    /// Sends a signal to the service and waits for its end, as AwaitEnd() does.
    int StopService(int signal = SIGTERM);
    QByteArray StandardOutput() { return service.readAllStandardOutput(); }
    bool ServiceRuns() const { return service.state() == QProcess::Running; }
    /// Starts a device in the state that the commands bring about, then the service with the settings.
    bool Start(const QByteArray& settings = PhoneEnabled, const QStringList& commands = {});
    static constexpr char PhoneEnabled[] = "[PHONE]\nenabled=1\n";
    /// Both programs up, the phone enabled, SIM card found and modem registered; records begin after that, and then the
    /// commands are carried out.
    bool BringUp(const QStringList& commands = {});
    /// Ends the wait for the SIM check and waits until the modem is registered for the phone's users.
    bool PassSimCheck();

    // Steering

    /// Commands to the device, as on its console. @return whether all were carried out.
    bool Command(const QString& line);
    bool Commands(const QStringList& lines);
    QVariantMap DeviceState();
    PhoneProxy& Phone() { return phone; }
    /// The status that one of the phone's methods answers; Unanswered after an error.
    template <typename... Arguments>
    int Ask(const char* method, const Arguments&... arguments)
    {
        return StatusOf(phone.asyncCall(QLatin1String(method), QVariant(arguments)...));
    }
    static int StatusOf(const QDBusPendingCall& call);
    static constexpr int Unanswered = -1000;
    /// All that GetStatus answers, as "(0, 2, 3, 71, 1, false)".
    QString PhoneStatus();
    /// Moves the service's clock on and waits until everything that was due is done.
    void PassTime(int ms);
    /// Moves the clock on and does not wait: for a service that is going to block, or is blocked, in a remote call.
    void BeginPassTime(int ms);
    /// Moves the clock on until the remote call, in which the service is blocked, times out.
    void EndRemoteCall(int timeoutMs);
    /// Waits until the service has nothing left to do and everything is recorded.
    void Settle();

    // Records

    bool WaitForLog(const QString& text, int times = 1);
    /// Waits for a request to the device ("-> gsm Call(...)"), a signal from it ("<- gsm ModemOff()") or a signal of
    /// the service ("phone VoiceCall(1)").
    bool WaitForEvent(const QString& text, int times = 1);
    /// Begins the records anew, when the service has nothing left to do.
    void ForgetRecords();

    // What is recorded when the service has nothing left to do

    QList<LogLine> Log();
    /// Level and message of each line, as "2 Gsm modem OFF"; without traces of remote calls when not asked for.
    QStringList LogTexts(int highestLevel = 5);
    /// Requests, device's and service's signals in the order in which they happened. @param filter what they start
    /// with.
    QStringList Events(const QString& filter = {});
    /// @return an empty text when the wanted texts are in the list in this order, else which is missing.
    static QString MissingInOrder(const QStringList& list, const QStringList& wanted);

private Q_SLOTS:
    void OnPhoneSignal(const QDBusMessage& message);
    void OnDeviceEvent(const QString& text) { events.append(text); }

private:
    void ReadLog();
    void SetClock();
    static void End(QProcess& program);

    QTemporaryDir folder;
    QProcess device;
    QProcess service;
    QString program;
    PhoneProxy phone;
    QByteArray unfinishedLine;
    qint64 clockMs = 0;
    QList<LogLine> log;
    QStringList unreadable; ///< what the service wrote that is no log line, as a sanitizer's report
    QStringList events;
};

/// Fails the test unless the wanted texts are in the list, in this order.
#define VERIFY_IN_ORDER(list, ...)                                                                                     \
    do {                                                                                                               \
        const QString missing = TestBed::MissingInOrder(list, __VA_ARGS__);                                            \
        QVERIFY2(missing.isEmpty(), qPrintable("missing: " + missing));                                                \
    } while (false)
