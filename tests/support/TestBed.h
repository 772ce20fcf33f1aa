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

/// One line of the service's log, split into its parts.
struct LogLine {
    int level;
    QString origin;
    QString file;
    int line;
    QString function;
    QString message;
};

/// The simulated device and the real service on the test's session bus, with settings and contacts of their own. Create
/// one for each test. It records requests, answers, signals and the log, and the destructor prints them if the test has
/// failed.
///
/// The service's clock stands still unless the test moves it: PassTime() makes a watchdog fire at once.
class TestBed : public QObject
{
    Q_OBJECT

public:
    TestBed();
    ~TestBed() override;

    // Settings and contacts, before or while the service runs

    void WriteSettings(const QByteArray& text);
    QByteArray Settings() const;
    static constexpr int MayCallIn = 16;
    /// Creates the contacts database. @param contacts number and flags of each contact.
    void WriteContacts(const QMap<QString, int>& contacts);
    QString SettingsPath() const { return folder.filePath(QStringLiteral("config.ini")); }
    QString ContactsPath() const { return folder.filePath(QStringLiteral("contacts.db")); }

    // The two programs. Functions that wait print the condition if it does not become true.

    /// Starts the simulated device and waits until it is on the bus.
    /// @param options in addition to those that make it quick and report the signal once.
    bool StartDevice(const QStringList& options = {});
    /// Copies the service's program to another folder, away from the module beside it, and uses the copy from now on.
    bool CopyService(const QString& copyFolder);
    /// Starts the service and waits until it runs.
    bool StartService();
    /// Starts the service without waiting. @param environment variables to set, or to unset if their value is empty.
    void LaunchService(const QMap<QString, QString>& environment = {});
    /// Waits for the service's end. @return its exit status, -1 after a crash, -2 if it does not end.
    int AwaitEnd();
    /// Sends a signal to the service and waits for its end, as AwaitEnd() does.
    int StopService(int signal = SIGTERM);
    QByteArray StandardOutput() { return service.readAllStandardOutput(); }
    bool ServiceRuns() const { return service.state() == QProcess::Running; }
    /// Writes the settings, starts the device, carries out the commands and starts the service.
    bool Start(const QByteArray& settings = PhoneEnabled, const QStringList& commands = {});
    static constexpr char PhoneEnabled[] = "[PHONE]\nenabled=1\n";
    /// Starts both programs, enables the phone and waits until the SIM card is checked and the modem registered. Then
    /// forgets the records and carries out the commands.
    bool BringUp(const QStringList& commands = {});
    /// Passes the time until the SIM check and waits for PhoneStatus(2).
    bool PassSimCheck();

    // Steering

    /// Sends commands to the device, in the syntax of its console. @return true if all were carried out.
    bool Command(const QString& line);
    bool Commands(const QStringList& lines);
    QVariantMap DeviceState();
    PhoneProxy& Phone() { return phone; }
    /// Calls one of the phone's methods. @return the status of the answer; Unanswered after an error.
    template <typename... Arguments>
    int Ask(const char* method, const Arguments&... arguments)
    {
        return StatusOf(phone.asyncCall(QLatin1String(method), QVariant(arguments)...));
    }
    static int StatusOf(const QDBusPendingCall& call);
    static constexpr int Unanswered = -1000;
    /// The whole answer of GetStatus, for example "(0, 2, 3, 71, 1, false)".
    QString PhoneStatus();
    /// Advances the service's clock and waits until everything that is due is done.
    void PassTime(int ms);
    /// Advances the clock without waiting, for a service that blocks in a remote call or is about to.
    void BeginPassTime(int ms);
    /// Advances the clock until the remote call that blocks the service has timed out.
    void EndRemoteCall(int timeoutMs);
    /// Waits until the service is idle and everything is recorded.
    void Settle();

    // Records

    bool WaitForLog(const QString& text, int times = 1);
    /// Waits for a request to the device ("-> gsm Call(...)"), a signal from it ("<- gsm ModemOff()") or a signal of
    /// the service ("phone VoiceCall(1)").
    bool WaitForEvent(const QString& text, int times = 1);
    /// Waits until the service is idle and clears the records.
    void ForgetRecords();

    // These wait until the service is idle and return the records since the last ForgetRecords()

    QList<LogLine> Log();
    /// Level and message of each line, for example "2 Gsm modem OFF"; by default without traces of remote calls.
    QStringList LogTexts(int highestLevel = 5);
    /// Requests, the device's signals and the service's signals, in order. @param filter selects those that start with
    /// it.
    QStringList Events(const QString& filter = {});
    /// @return empty if the wanted texts are in the list in this order, else the first that is missing.
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
    QStringList unreadable; ///< output that is no log line, for example a sanitizer's report
    QStringList events;
};

/// Fails the test unless the wanted texts are in the list, in this order.
#define VERIFY_IN_ORDER(list, ...)                                                                                     \
    do {                                                                                                               \
        const QString missing = TestBed::MissingInOrder(list, __VA_ARGS__);                                            \
        QVERIFY2(missing.isEmpty(), qPrintable("missing: " + missing));                                                \
    } while (false)
