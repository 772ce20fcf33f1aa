#include "Names.h"
#include "TestBed.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QRandomGenerator>
#include <QTest>
#include <QThread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int ShortRun = 2000;
constexpr int LookInterval = 50;  ///< messages until the service is given the time to take them
constexpr int TimeInterval = 100; ///< messages until timers fire
constexpr int TimeStepMs = 30000;

constexpr char GsmInterface[] = "com.quillmark.kova.gsminterface";
constexpr char PhoneInterface[] = "com.quillmark.kova.phoneinterface";

/// A method or signal and its arguments: the bus's type letters, but l for a list of texts and m for a map.
struct Member {
    const char* name;
    const char* types;
};

constexpr Member phoneMethods[] = {
    {"GetStatus", ""},      {"PhoneSetEnabled", "b"},   {"ForcePhoneOff", "b"}, {"QueueSms", "ss"},
    {"VoiceCallMake", "s"}, {"VoiceCallLoopMake", "l"}, {"SetApn", "sss"},      {"NoSuchMethod", "s"},
};

constexpr Member gsmSignals[] = {
    {"CallAnswered", "m"},     {"CallIncoming", "m"},  {"CallRejected", "m"}, {"CallTerminated", "m"},
    {"MessageReceived", "sm"}, {"ModemAdded", "s"},    {"ModemOff", ""},      {"ModemPowered", ""},
    {"ModemRegistered", ""},   {"SignalQuality", "y"},
};

/// What the device's methods answer; all others only a status.
const QMap<QString, const char*> peerAnswers = {
    {"IsSimPresent", "ib"}, {"GetAmplifiersDefault", "iy"}, {"GetOutputType", "iu"}};

/// Makes values that nobody expects.
class Hostility
{
public:
    explicit Hostility(quint32 seed) : random(seed) {}

    bool OneIn(int n) { return random.bounded(n) == 0; }

    template <typename Choices>
    const auto& Choose(const Choices& choices)
    {
        return choices[random.bounded(static_cast<int>(std::size(choices)))];
    }

    /// Arguments that fit the types, or any.
    QVariantList Arguments(const char* types)
    {
        QVariantList arguments;
        if (!OneIn(3)) {
            for (; *types; ++types)
                arguments.append(Value(*types));
        } else {
            for (int left = random.bounded(6); left > 0; --left)
                arguments.append(Any());
        }
        return arguments;
    }

    QVariant Value(char type)
    {
        switch (type) {
        case 'b': return OneIn(2);
        case 'y': return QVariant::fromValue(static_cast<uchar>(random.generate()));
        case 'i': return static_cast<int>(random.generate());
        case 'u': return random.generate();
        case 's': return Text();
        case 'l': return Texts();
        case 'm': return Map();
        default: return Any();
        }
    }

    QVariant Structure()
    {
        QDBusArgument argument;
        argument.beginStructure();
        argument << static_cast<int>(random.generate()) << Text() << static_cast<double>(random.generate());
        argument.endStructure();
        return QVariant::fromValue(argument);
    }

private:
    QString Text()
    {
        static const QString texts[] = {{},
                                        "+4912345",
                                        "%s%n%n%99999999d",
                                        "\r\n2026-01-01T00:00:00.000 L1 / forged",
                                        "LineIdentification",
                                        QString(511, 'a'),
                                        QString(600, QChar(0x20ac)),
                                        QStringLiteral("\x1b[2J\x7f\u0085"),
                                        "\"'\\;$(reboot)"};
        if (OneIn(500))
            return QString(1 << 20, QChar('x'));
        if (!OneIn(3))
            return Choose(texts);
        QString text;
        for (int left = random.bounded(40); left > 0; --left)
            text += QChar(random.bounded(1, 0xd800));
        return text;
    }

    QStringList Texts()
    {
        QStringList texts;
        for (int left = random.bounded(8); left > 0; --left)
            texts.append(Text());
        return texts;
    }

    QVariantMap Map()
    {
        QVariantMap map;
        if (OneIn(2))
            map.insert("LineIdentification", Any());
        for (int left = random.bounded(4); left > 0; --left)
            map.insert(Text(), Any());
        return map;
    }

    QVariant Any()
    {
        switch (random.bounded(17)) {
        case 0: return static_cast<qlonglong>(random.generate64());
        case 1: return static_cast<qulonglong>(random.generate64());
        case 2: return QVariant::fromValue(static_cast<short>(random.generate()));
        case 3: return QVariant::fromValue(static_cast<ushort>(random.generate()));
        case 4: return -1.0 / random.bounded(3);
        case 5: return QVariant::fromValue(QDBusObjectPath("/any"));
        case 6: return QVariant::fromValue(QDBusSignature("a{sa(iv)}"));
        case 7: return QVariant::fromValue(QDBusVariant(Any()));
        case 8: return QVariant::fromValue(QDBusUnixFileDescriptor(STDIN_FILENO));
        case 9: return Text().toUtf8();
        case 10: return QVariantList{Value('s'), Value('i')};
        case 11: return Structure();
        default: return Value("byiuslm"[random.bounded(7)]);
        }
    }

    QRandomGenerator random;
};

/// Stands for the GSM daemon and the audio services, in a thread of its own: the service waits for its answers.
class FalsePeers : public QDBusVirtualObject
{
public:
    explicit FalsePeers(quint32 seed) : hostility(seed)
    {
        moveToThread(&thread);
        thread.start();
        for (const char* object :
             {Names::GsmObject, Names::SoundManagerObject, Names::AudioOutCtlObject, Names::AudioInCtlObject})
            bus.registerVirtualObject(object, this);
        for (const char* name : {Names::SoundManagerService, Names::AudioOutCtlService, Names::AudioInCtlService})
            bus.registerService(name);
    }

    ~FalsePeers() override
    {
        QDBusConnection::disconnectFromBus(bus.name());
        thread.quit();
        thread.wait();
    }

    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "peers");

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.type() != QDBusMessage::MethodCallMessage)
            return false;
        const char* types = peerAnswers.value(message.member(), "i");
        QVariantList answer = hostility.Arguments(types);
        if (hostility.OneIn(6)) // where a number should be
            answer = {0, hostility.Structure()};
        else if (!hostility.OneIn(4) && !answer.isEmpty())
            answer[0] = 0;
        connection.send(hostility.OneIn(8)
                            ? message.createErrorReply("org.example.Error", hostility.Value('s').toString())
                            : message.createReply(answer));
        return true;
    }

private:
    Hostility hostility;
    QThread thread;
};

/// One element of a header of a message on the wire.
void AppendField(QByteArray& message, char code, char type, const QByteArray& text)
{
    message.append(QByteArray((8 - message.size() % 8) % 8, '\0'));
    message += QByteArray{} + code + '\1' + type + '\0';
    message += static_cast<char>(text.size());
    message += (type == 'g' ? QByteArray() : QByteArray(3, '\0')) + text + '\0';
}

/// A call with a text that is not UTF-8, as no bus library lets it be made. @return whether the bus hung up.
bool SendInvalidUtf8()
{
    QByteArray path = qgetenv("DBUS_SESSION_BUS_ADDRESS").split(',').value(0);
    const bool isAbstract = path.startsWith("unix:abstract=");
    path = (isAbstract ? QByteArray(1, '\0') : QByteArray()) + path.mid(path.indexOf('=') + 1);
    sockaddr_un address = {AF_UNIX, {}};
    memcpy(address.sun_path, path.constData(), std::min<size_t>(path.size(), sizeof address.sun_path - 1));

    constexpr char hello[] = "l\1\0\1\0\0\0\0\1\0\0\0";
    QByteArray header(hello, 12);
    header += QByteArray(4, '\0');
    AppendField(header, 1, 'o', "/org/freedesktop/DBus");
    AppendField(header, 3, 's', "Hello");
    AppendField(header, 6, 's', "org.freedesktop.DBus");
    const auto finish = [](QByteArray message, const QByteArray& body) {
        message[4] = static_cast<char>(body.size());
        message[12] = static_cast<char>(message.size() - 16);
        return message + QByteArray((8 - message.size() % 8) % 8, '\0') + body;
    };
    QByteArray call(hello, 12);
    call += QByteArray(4, '\0');
    call[8] = 2; // serial number
    AppendField(call, 1, 'o', Names::PhoneObject);
    AppendField(call, 3, 's', "VoiceCallMake");
    AppendField(call, 6, 's', Names::PhoneService);
    AppendField(call, 8, 'g', "s");

    const int wire = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const size_t size = offsetof(sockaddr_un, sun_path) + path.size() + (isAbstract ? 0 : 1);
    const auto send = [wire](const QByteArray& bytes) {
        return write(wire, bytes.constData(), bytes.size()) == bytes.size();
    };
    // Until the text comes, or without one until the bus hangs up.
    const auto receive = [wire](const char* text) {
        QByteArray received;
        char part[1024];
        while (!text || !received.contains(text)) {
            const ssize_t length = read(wire, part, sizeof part);
            if (length <= 0)
                return !text;
            received.append(part, static_cast<int>(length));
        }
        return true;
    };
    const bool hungUp = connect(wire, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(size)) == 0 &&
                        send(QByteArray(1, '\0') + "AUTH EXTERNAL " + QByteArray::number(getuid()).toHex() +
                             "\r\nBEGIN\r\n" + finish(header, {})) &&
                        receive("NameAcquired") && send(finish(call, QByteArray("\3\0\0\0\xff\xfe\x80\0", 8))) &&
                        receive(nullptr);
    close(wire);
    return hungUp;
}

}

/// Everything that the bus lets through is thrown at the service, which lives on and then does its work.
class BusFuzz : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("QTEST_FUNCTION_TIMEOUT", "86400000"); } // a long run takes its time

private Q_SLOTS:
    void SurvivesEverything();
};

void BusFuzz::SurvivesEverything()
{
    const int messages =
        qEnvironmentVariableIsSet("FUZZ_MESSAGES") ? qEnvironmentVariableIntValue("FUZZ_MESSAGES") : ShortRun;
    const quint32 seed = qEnvironmentVariableIsSet("FUZZ_SEED") ? qEnvironmentVariable("FUZZ_SEED").toUInt()
                                                                : QRandomGenerator::global()->generate();
    qInfo("FUZZ_SEED=%u FUZZ_MESSAGES=%d", seed, messages);

    TestBed bed;
    bed.WriteSettings("[PHONE]\nenabled=1\n");
    QVERIFY(bed.StartService());
    {
        FalsePeers peers(seed);
        Hostility hostility(seed);
        bool present = false;
        for (int i = 0; i < messages; ++i) {
            if (!present || hostility.OneIn(400)) {
                present = !present;
                QVERIFY(present ? peers.bus.registerService(Names::GsmService)
                                : peers.bus.unregisterService(Names::GsmService));
            }
            if (hostility.OneIn(2)) {
                const Member& method = hostility.Choose(phoneMethods);
                QDBusMessage call = QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject,
                                                                   PhoneInterface, method.name);
                call.setArguments(hostility.Arguments(method.types));
                QDBusConnection::sessionBus().asyncCall(call);
            } else {
                const Member& member = hostility.Choose(gsmSignals);
                QDBusMessage signal = QDBusMessage::createSignal(Names::GsmObject, GsmInterface, member.name);
                signal.setArguments(hostility.Arguments(member.types));
                peers.bus.send(signal);
            }
            if (i % TimeInterval == 0)
                bed.PassTime(TimeStepMs);
            if (i % LookInterval == 0) {
                bed.Settle();
                QVERIFY2(bed.ServiceRuns(), qPrintable(QStringLiteral("gone after message %1").arg(i)));
                bed.ForgetRecords();
            }
        }
    }
    QVERIFY(SendInvalidUtf8());

    // What is still under way ends; then a sane device and a sane user find a sane service.
    bed.PassTime(TimeStepMs);
    bed.Phone().ForcePhoneOff(false).waitForFinished();
    bed.Phone().PhoneSetEnabled(true).waitForFinished();
    bed.ForgetRecords();
    QVERIFY(bed.StartDevice());
    QVERIFY(bed.PassSimCheck());
    const QDBusMessage status = bed.Phone().call("GetStatus");
    QCOMPARE(status.signature(), QString("iuuuub"));
    QCOMPARE(status.arguments(), (QVariantList{0, 2U, 3U, 71U, 1U, false}));
    QCOMPARE(bed.StopService(), 0);
}

QTEST_GUILESS_MAIN(BusFuzz)

#include "BusFuzz.moc"
