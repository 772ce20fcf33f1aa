#include "Scenario.h"

#include "Names.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QFile>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace
{

constexpr int ExpectTimeoutMs = 180000; ///< generous, because it only delays failures
constexpr int ReportedEvents = 40;
constexpr char ExpectUsage[] = "usage: expect [within MS] TEXT";

bool ParseMs(const QString& text, int& ms)
{
    bool ok = false;
    ms = text.toInt(&ok);
    return ok && ms >= 0;
}

void PrintOut(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

}

Scenario::Scenario(Device& device, Commands& commands)
    : commands(commands),
      phoneInterface(InterfaceDescription::BuiltIn(QLatin1String(Names::PhoneInterface)))
{
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, [this] {
        if (expected.isEmpty())
            Step();
        else
            Fail(QStringLiteral("did not happen: ") + expected);
    });
    connect(&device, &Device::Event, this, &Scenario::OnEvent);

    QDBusConnection bus = QDBusConnection::sessionBus();
    const QStringList signalNames = phoneInterface.Signals().keys();
    for (const QString& signal : signalNames)
        bus.connect(Names::PhoneService, Names::PhoneObject, phoneInterface.Name(), signal, this,
                    SLOT(OnPhoneSignal(QDBusMessage)));
    auto* presence = new QDBusServiceWatcher(Names::PhoneService, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(presence, &QDBusServiceWatcher::serviceRegistered, this, [this] { OnEvent("phone started"); });
    connect(presence, &QDBusServiceWatcher::serviceUnregistered, this, [this] { OnEvent("phone stopped"); });
}

QString Scenario::Load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    name = path;
    for (int number = 1; !file.atEnd(); ++number) {
        const QString text = QString::fromUtf8(file.readLine()).trimmed();
        if (text.isEmpty() || text.startsWith(QLatin1Char('#')))
            continue;
        const Commands::Prepared prepared = Prepare(text);
        if (!prepared.run)
            return QStringLiteral("%1:%2: %3").arg(path, QString::number(number), prepared.problem);
        lines.append({number, prepared.run});
    }
    return lines.isEmpty() ? QStringLiteral("%1: nothing to play").arg(path) : QString();
}

Commands::Prepared Scenario::Prepare(const QString& text)
{
    const QString command = text.section(QLatin1Char(' '), 0, 0);
    const QString rest = text.mid(command.size()).trimmed();

    if (command == QLatin1String("say"))
        return PrepareAction([this, rest] { PrintOut(WithTime(rest)); });
    if (command == QLatin1String("wait")) {
        int ms = 0;
        if (!ParseMs(rest, ms))
            return Invalid(QStringLiteral("usage: wait MS"));
        return PrepareAction([this, ms] { timer.start(ms); });
    }
    if (command == QLatin1String("expect"))
        return PrepareExpect(rest);
    if (command == QLatin1String("never")) {
        if (rest.isEmpty())
            return Invalid(QStringLiteral("usage: never TEXT"));
        return PrepareAction([this, rest] { forbidden.append(rest); });
    }
    if (command == QLatin1String("phone")) {
        const std::optional<QStringList> words = SplitWords(rest);
        return words ? PreparePhone(*words) : Invalid(QStringLiteral("a quote or backslash is left open"));
    }
    if (command == QLatin1String("quit"))
        return Invalid(QStringLiteral("a scenario ends with its last line"));
    return commands.Prepare(text);
}

Commands::Prepared Scenario::PrepareExpect(const QString& text)
{
    int ms = ExpectTimeoutMs;
    QString sought = text;
    if (text.startsWith(QLatin1String("within "))) {
        if (!ParseMs(text.section(QLatin1Char(' '), 1, 1), ms))
            return Invalid(ExpectUsage);
        sought = text.section(QLatin1Char(' '), 2).trimmed();
    }
    if (sought.isEmpty())
        return Invalid(ExpectUsage);
    return PrepareAction([this, sought, ms] { Expect(sought, ms); });
}

Commands::Prepared Scenario::PreparePhone(const QStringList& words)
{
    const QString method = words.value(0);
    if (!phoneInterface.Methods().contains(method))
        return Invalid(QStringLiteral("the phone has no method \"%1\", but %2")
                           .arg(method, phoneInterface.Methods().keys().join(QStringLiteral(", "))));

    const QStringList types = phoneInterface.Methods().value(method).in;
    const bool takesList = types == QStringList{QStringLiteral("as")};
    const QString wrong = QStringLiteral("%1 takes the arguments (%2)").arg(method, types.join(QStringLiteral(", ")));
    if (!takesList && words.size() - 1 != types.size())
        return Invalid(wrong);

    QDBusMessage request =
        QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject, phoneInterface.Name(), method);
    for (int i = 0; i < types.size(); ++i) {
        const QVariant value = ToBusType(takesList ? QVariant(words.mid(1)) : words.at(1 + i), types.at(i));
        if (!value.isValid())
            return Invalid(wrong);
        request << value;
    }
    return PrepareAction([this, request] { CallPhone(request); });
}

void Scenario::Start()
{
    clock.start();
    if (QDBusConnection::sessionBus().interface()->isServiceRegistered(Names::PhoneService))
        OnEvent("phone started");
    Step();
}

/// Executes lines until one has to wait.
void Scenario::Step()
{
    while (!ended && !timer.isActive()) {
        if (next == lines.size()) {
            ended = true;
            Q_EMIT Ended({});
            return;
        }
        const Commands::Result result = lines.at(next++).run();
        if (!result.done)
            Fail(QStringLiteral("refused: ") + result.text);
        else if (!result.text.isEmpty())
            PrintOut(result.text);
    }
}

void Scenario::Expect(const QString& text, int ms)
{
    while (!unmatchedEvents.isEmpty()) {
        if (unmatchedEvents.takeFirst().contains(text))
            return;
    }
    expected = text;
    timer.start(ms);
}

void Scenario::OnEvent(const QString& text)
{
    if (ended || !clock.isValid())
        return;
    recentEvents.append(WithTime(text));
    if (recentEvents.size() > ReportedEvents)
        recentEvents.removeFirst();

    if (std::any_of(forbidden.begin(), forbidden.end(), [&](const QString& never) { return text.contains(never); })) {
        Fail(QStringLiteral("must never happen: ") + text);
    } else if (expected.isEmpty()) {
        unmatchedEvents.append(text);
    } else if (text.contains(expected)) {
        expected.clear();
        timer.start(0); // let the event reach everybody before the next line
    }
}

void Scenario::CallPhone(const QDBusMessage& request)
{
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(request, INT_MAX), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, request](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        const QDBusMessage reply = QDBusPendingReply<>(*finished).reply();
        if (reply.type() == QDBusMessage::ErrorMessage) {
            Fail(QStringLiteral("the phone service failed %1: %2").arg(request.member(), reply.errorMessage()));
            return;
        }
        QStringList values;
        for (const QVariant& value : reply.arguments())
            values.append(ToText(value));
        OnEvent(QStringLiteral("phone %1 -> %2").arg(request.member(), values.join(QLatin1Char(' '))));
    });
}

void Scenario::OnPhoneSignal(const QDBusMessage& message)
{
    OnEvent(QStringLiteral("phone ") + message.member() + ToText(message.arguments()));
}

QString Scenario::WithTime(const QString& text) const
{
    return QStringLiteral("%1 s  %2").arg(static_cast<double>(clock.elapsed()) / 1000, 7, 'f', 1).arg(text);
}

void Scenario::Fail(const QString& problem)
{
    if (ended)
        return;
    ended = true;
    Q_EMIT Ended(QStringLiteral("%1:%2: %3\nWhat happened before:\n%4")
                     .arg(name)
                     .arg(lines.at(std::max(next, 1) - 1).number)
                     .arg(problem, recentEvents.join(QLatin1Char('\n'))));
}
