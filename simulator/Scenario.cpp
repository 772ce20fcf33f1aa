#include "Scenario.h"

#include "Names.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>
#include <QProcess>

#include <climits>
#include <cstdio>

namespace
{

constexpr int ExpectMs = 30000;

bool ReadMs(const QString& text, int& ms)
{
    bool ok = false;
    ms = text.toInt(&ok);
    return ok && ms >= 0;
}

}

Scenario::Scenario(Device& device, Commands& commands)
    : commands(commands),
      phone(QStringLiteral("com.quillmark.kova.phoneinterface"))
{
    limit.setSingleShot(true);
    connect(&limit, &QTimer::timeout, this, [this] {
        if (expected.isEmpty())
            Step();
        else
            Fail(QStringLiteral("did not happen: ") + expected);
    });
    connect(&device, &Device::Event, this, &Scenario::OnEvent);

    const QStringList signalNames = phone.Signals().keys();
    for (const QString& signal : signalNames)
        QDBusConnection::sessionBus().connect(Names::PhoneService, Names::PhoneObject, phone.Name(), signal, this,
                                              SLOT(OnPhoneSignal(QDBusMessage)));
}

QString Scenario::Load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    name = path;
    for (int number = 1; !file.atEnd(); ++number) {
        const QString text = QString::fromUtf8(file.readLine()).trimmed();
        if (!text.isEmpty() && !text.startsWith(QLatin1Char('#')))
            lines.append({number, text});
    }
    return lines.isEmpty() ? QStringLiteral("%1: nothing to play").arg(path) : QString();
}

void Scenario::Start()
{
    clock.start();
    Step();
}

/// Carries out lines until one has to wait.
void Scenario::Step()
{
    while (!limit.isActive()) {
        if (next == lines.size()) {
            Q_EMIT Ended({});
            return;
        }
        const QString problem = Carry(lines.at(next++).text);
        if (!problem.isEmpty()) {
            Fail(problem);
            return;
        }
    }
}

QString Scenario::Carry(const QString& text)
{
    const QStringList words = QProcess::splitCommand(text);
    const QString command = words.value(0);

    if (command == QLatin1String("say")) {
        std::printf("%7.1f s  %s\n", static_cast<double>(clock.elapsed()) / 1000,
                    qPrintable(text.mid(command.size()).trimmed()));
        std::fflush(stdout);
        return {};
    }
    if (command == QLatin1String("wait")) {
        int ms = 0;
        if (words.size() != 2 || !ReadMs(words.at(1), ms))
            return QStringLiteral("usage: wait MS");
        limit.start(ms);
        return {};
    }
    if (command == QLatin1String("expect"))
        return Expect(words.mid(1));
    if (command == QLatin1String("phone"))
        return CallPhone(words.mid(1));

    const Commands::Result result = commands.Run(text);
    return result.done ? QString() : result.text;
}

QString Scenario::Expect(const QStringList& words)
{
    int ms = ExpectMs;
    QStringList text = words;
    if (text.value(0) == QLatin1String("within")) {
        if (!ReadMs(text.value(1), ms))
            return QStringLiteral("usage: expect [within MS] TEXT");
        text = text.mid(2);
    }
    if (text.isEmpty())
        return QStringLiteral("usage: expect [within MS] TEXT");

    const QString sought = text.join(QLatin1Char(' '));
    while (!events.isEmpty()) {
        if (events.takeFirst().contains(sought))
            return {};
    }
    expected = sought;
    limit.start(ms);
    return {};
}

void Scenario::OnEvent(const QString& text)
{
    passed.append(text);
    if (expected.isEmpty()) {
        events.append(text);
    } else if (text.contains(expected)) {
        expected.clear();
        limit.stop();
        QMetaObject::invokeMethod(this, &Scenario::Step, Qt::QueuedConnection);
    }
}

QString Scenario::CallPhone(const QStringList& words)
{
    const QString method = words.value(0);
    if (!phone.Methods().contains(method))
        return QStringLiteral("the phone has no method %1").arg(method);

    const QStringList types = phone.Methods().value(method).in;
    QDBusMessage call = QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject, phone.Name(), method);
    for (int i = 0; i < types.size(); ++i) {
        const QVariant argument = types.at(i) == QLatin1String("as") ? QVariant(words.mid(1 + i)) : words.value(1 + i);
        const QVariant value = ToBusType(argument, types.at(i));
        if (!value.isValid())
            return QStringLiteral("%1 takes \"%2\"").arg(method, types.join(QString()));
        call << value;
    }

    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, INT_MAX), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, method](QDBusPendingCallWatcher* finished) {
        const QDBusMessage reply = QDBusPendingReply<>(*finished).reply();
        QStringList values;
        for (const QVariant& value : reply.arguments())
            values.append(Show(value));
        OnEvent(QStringLiteral("phone %1 -> %2").arg(method, values.join(QLatin1Char(' '))));
        finished->deleteLater();
    });
    return {};
}

void Scenario::OnPhoneSignal(const QDBusMessage& message)
{
    OnEvent(QStringLiteral("phone ") + message.member() + Show(message.arguments()));
}

void Scenario::Fail(const QString& problem)
{
    Q_EMIT Ended(QStringLiteral("%1:%2: %3\nWhat happened until then:\n  %4")
                     .arg(name)
                     .arg(lines.at(next - 1).number)
                     .arg(problem, passed.join(QStringLiteral("\n  "))));
}
