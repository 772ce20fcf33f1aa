#include "TestBed.h"

#include "BusValues.h"
#include "ControlNames.h"
#include "Names.h"
#include "SimulatorProxy.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QEventLoop>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTest>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <utility>

namespace
{

constexpr int LimitMs = 30000; ///< limit of every wait, enough for the busiest machine
constexpr int SimCheckMs = 20000;

constexpr char Faketime[] = KOVA_FAKETIME;

/// Makes the device quick enough for a test. It reports the signal quality once, right after registration.
const QStringList quickDevice = {"--power-up", "20", "--register",        "20",     "--power-down", "20",
                                 "--answer",   "20", "--signal-interval", "9999999"};

bool WaitFor(const QString& what, const std::function<bool()>& condition)
{
    const bool happened = QTest::qWaitFor(condition, LimitMs);
    if (!happened)
        qWarning("did not happen: %s", qPrintable(what));
    return happened;
}

SimulatorProxy Simulator()
{
    return {ControlNames::Service, ControlNames::Object, QDBusConnection::sessionBus()};
}

}

TestBed::TestBed()
    : program(QStringLiteral(KOVA_BUILD_DIR "/phonemanager")),
      phone(Names::PhoneService, Names::PhoneObject, QDBusConnection::sessionBus())
{
    phone.setTimeout(INT_MAX);
    device.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    connect(&service, &QProcess::readyReadStandardError, this, &TestBed::ReadLog);

    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(QString(), Names::PhoneObject, phone.interface(), QString(), this, SLOT(OnPhoneSignal(QDBusMessage)));
    bus.connect(QString(), ControlNames::Object, SimulatorProxy::staticInterfaceName(), QStringLiteral("Event"), this,
                SLOT(OnDeviceEvent(QString)));
}

TestBed::~TestBed()
{
    End(service);
    End(device);
    ReadLog();
    if (!unreadable.isEmpty())
        QTest::qFail("The service wrote something that is no log line", __FILE__, __LINE__);
    if (!QTest::currentTestFailed())
        return;

    std::printf("What happened:\n  %s\nThe service's log:\n", qPrintable(events.join(QStringLiteral("\n  "))));
    for (const LogLine& line : std::as_const(log))
        std::printf("  %d %s [%s:%d] %s\n", line.level, qPrintable(line.origin), qPrintable(line.file), line.line,
                    qPrintable(line.message));
    std::printf("%s\n", qPrintable(unreadable.join(QLatin1Char('\n'))));
    std::fflush(stdout);
}

void TestBed::End(QProcess& program)
{
    program.terminate();
    if (program.state() != QProcess::NotRunning && !program.waitForFinished(LimitMs)) {
        program.kill();
        program.waitForFinished();
    }
}

// Settings and contacts

void TestBed::WriteSettings(const QByteArray& text)
{
    QFile file(SettingsPath());
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("Can't write %s", qPrintable(file.fileName()));
}

QByteArray TestBed::Settings() const
{
    QFile file(SettingsPath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void TestBed::WriteContacts(const QMap<QString, int>& contacts)
{
    QString sql = "CREATE TABLE contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, phone_number TEXT NOT NULL, "
                  "flags INTEGER NOT NULL);";
    for (auto contact = contacts.begin(); contact != contacts.end(); ++contact)
        sql += QStringLiteral("INSERT INTO contacts (name, phone_number, flags) VALUES ('somebody', '%1', %2);")
                   .arg(contact.key())
                   .arg(*contact);
    if (QProcess::execute("sqlite3", {ContactsPath(), sql}) != 0)
        qFatal("Can't create %s", qPrintable(ContactsPath()));
}

// The two programs

bool TestBed::StartDevice(const QStringList& options)
{
    device.start(QStringLiteral(KOVA_BUILD_DIR "/kova-simulator"),
                 QStringList{QStringLiteral("--quiet")} + quickDevice + options);
    return WaitFor("device on the bus", [] {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(ControlNames::Service);
    });
}

void TestBed::LaunchService(const QMap<QString, QString>& changes)
{
    if (!QFile::exists(Faketime))
        qFatal("libfaketime is not installed, or was not when the build was configured");

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("KOVA_CONFIG_FILE", SettingsPath());
    environment.insert("KOVA_CONTACTS_DB", ContactsPath());
    environment.insert("KOVA_LOG_LEVEL", "9");
    environment.insert("LD_PRELOAD", Faketime);
    environment.insert("FAKETIME_TIMESTAMP_FILE", folder.filePath("clock"));
    environment.insert("FAKETIME_NO_CACHE", "1");
    // libfaketime is loaded before the sanitizer's library.
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    for (auto change = changes.begin(); change != changes.end(); ++change)
        change->isEmpty() ? environment.remove(change.key()) : environment.insert(change.key(), *change);

    SetClock();
    service.setProcessEnvironment(environment);
    service.start(program, QStringList());
}

bool TestBed::CopyService(const QString& copyFolder)
{
    const QString copy = copyFolder + QStringLiteral("/phonemanager");
    return QFile::copy(std::exchange(program, copy), copy);
}

bool TestBed::StartService()
{
    LaunchService();
    return WaitForLog(QStringLiteral("Phone Manager running"));
}

int TestBed::AwaitEnd()
{
    if (service.state() != QProcess::NotRunning && !service.waitForFinished(LimitMs))
        return -2;
    ReadLog();
    return service.exitStatus() == QProcess::CrashExit ? -1 : service.exitCode();
}

int TestBed::StopService(int signal)
{
    ::kill(static_cast<pid_t>(service.processId()), signal);
    return AwaitEnd();
}

bool TestBed::Start(const QByteArray& settings, const QStringList& commands)
{
    WriteSettings(settings);
    return StartDevice() && Commands(commands) && StartService();
}

bool TestBed::BringUp(const QStringList& commands)
{
    if (!QFile::exists(SettingsPath()))
        WriteSettings(PhoneEnabled);
    // Start the service first: QtDBus may reorder signals that such a quick device sends before the event loop runs.
    if (!StartService() || !StartDevice() || !PassSimCheck() || !WaitForLog("Gsm signal: 71"))
        return false;
    ForgetRecords();
    return Commands(commands);
}

bool TestBed::PassSimCheck()
{
    if (!WaitForLog(QStringLiteral("Gsm modem REGISTERED")))
        return false;
    PassTime(SimCheckMs);
    return WaitForEvent(QStringLiteral("phone PhoneStatus(2)"));
}

// Steering

bool TestBed::Command(const QString& line)
{
    const QDBusPendingReply<int, QString> reply = Simulator().Command(line);
    const bool done = !reply.isError() && reply.argumentAt<0>() == 0;
    if (!done)
        qWarning("%s: %s", qPrintable(line),
                 qPrintable(reply.isError() ? reply.error().message() : reply.argumentAt<1>()));
    return done;
}

bool TestBed::Commands(const QStringList& lines)
{
    return std::all_of(lines.begin(), lines.end(), [this](const QString& line) { return Command(line); });
}

QVariantMap TestBed::DeviceState()
{
    return Simulator().State().value();
}

void TestBed::SetClock()
{
    QSaveFile file(folder.filePath("clock"));
    if (!file.open(QIODevice::WriteOnly) || file.write("+" + QByteArray::number(clockMs / 1000.0, 'f', 3)) < 0 ||
        !file.commit())
        qFatal("Can't set the service's clock");
}

void TestBed::PassTime(int ms)
{
    Settle(); // A timer that is about to start must start before the clock moves.
    clockMs += ms;
    SetClock();
    Settle();
}

void TestBed::BeginPassTime(int ms)
{
    clockMs += ms;
    SetClock();
    phone.GetStatus(); // A request wakes the service, which then sees the new time.
}

void TestBed::EndRemoteCall(int timeoutMs)
{
    const QDBusPendingCall blocked = phone.GetStatus();
    // Advance in steps, because the call's timer may start after the first.
    while (!blocked.isFinished()) {
        BeginPassTime(timeoutMs / 10);
        QTest::qWait(20);
    }
}

void TestBed::Settle()
{
    // The service answers from its event loop, after its current task. A timer that is due when the first request wakes
    // it is handled before the second request. Each run of the message queue takes one more turn of the loop, which the
    // log shows. The event loop here reads that log meanwhile, so that its pipe is never full.
    const auto queueRuns = [this] {
        return std::count_if(log.cbegin(), log.cend(), [](const LogLine& line) {
            return line.message.startsWith(QLatin1String("Process sms queue"));
        });
    };
    qsizetype runs = 0;
    do {
        runs = queueRuns();
        for (int i = 0; i < 2 && ServiceRuns(); ++i) {
            const QDBusPendingCallWatcher answer(phone.GetStatus());
            QEventLoop loop;
            connect(&answer, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
            if (!answer.isFinished())
                loop.exec();
        }
        ReadLog();
    } while (queueRuns() != runs);
    // Likewise, the device emits all its events before it answers.
    if (device.state() == QProcess::Running)
        Simulator().State().waitForFinished();
    QCoreApplication::processEvents();
    ReadLog();
}

int TestBed::StatusOf(const QDBusPendingCall& call)
{
    QDBusPendingReply<int> reply(call);
    reply.waitForFinished();
    if (reply.reply().type() != QDBusMessage::ReplyMessage)
        return Unanswered;
    return reply.reply().arguments().value(0, Unanswered).toInt();
}

QString TestBed::PhoneStatus()
{
    QDBusPendingReply<int, uint, uint, uint, uint, bool> reply = phone.GetStatus();
    reply.waitForFinished();
    return ToText(reply.reply().arguments());
}

// Records

void TestBed::ReadLog()
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^\S+ L(\d) (\S+) \[([^]:]+):(\d+)\] (.+?\)(?: const)?): (.*)$)"));

    if (service.isOpen())
        unfinishedLine += service.readAllStandardError();
    for (qsizetype end; (end = unfinishedLine.indexOf('\n')) >= 0; unfinishedLine.remove(0, end + 1)) {
        const QString text = QString::fromUtf8(unfinishedLine.constData(), static_cast<int>(end));
        const QRegularExpressionMatch match = pattern.match(text);
        if (match.hasMatch())
            log.append({match.captured(1).toInt(), match.captured(2), match.captured(3), match.captured(4).toInt(),
                        match.captured(5), match.captured(6)});
        else
            unreadable.append(text);
    }
}

QList<LogLine> TestBed::Log()
{
    Settle();
    return log;
}

QStringList TestBed::LogTexts(int highestLevel)
{
    Settle();
    QStringList texts;
    for (const LogLine& line : std::as_const(log)) {
        if (line.level <= highestLevel)
            texts.append(QStringLiteral("%1 %2").arg(line.level).arg(line.message));
    }
    return texts;
}

bool TestBed::WaitForLog(const QString& text, int times)
{
    const auto matches = [&](const LogLine& line) { return line.message.contains(text); };
    return WaitFor(text, [&] { return std::count_if(log.begin(), log.end(), matches) >= times; });
}

bool TestBed::WaitForEvent(const QString& text, int times)
{
    return WaitFor(text, [&] { return events.filter(text).size() >= times; });
}

void TestBed::ForgetRecords()
{
    Settle();
    log.clear();
    events.clear();
}

QStringList TestBed::Events(const QString& filter)
{
    Settle();
    QStringList chosen;
    std::copy_if(events.begin(), events.end(), std::back_inserter(chosen),
                 [&](const QString& event) { return event.startsWith(filter); });
    return chosen;
}

QString TestBed::MissingInOrder(const QStringList& list, const QStringList& wanted)
{
    auto from = list.begin();
    for (const QString& text : wanted) {
        from = std::find(from, list.end(), text);
        if (from == list.end())
            return text;
        ++from;
    }
    return {};
}

void TestBed::OnPhoneSignal(const QDBusMessage& message)
{
    events.append(QStringLiteral("phone ") + message.member() + ToText(message.arguments()));
}
