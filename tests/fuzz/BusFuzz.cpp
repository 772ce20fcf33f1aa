#include "FakePeers.h"
#include "TestBed.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QRandomGenerator>
#include <QTest>

#include <memory>
#include <unistd.h>

namespace
{

constexpr int ShortRun = 2000;
constexpr int LookInterval = 50;  ///< messages until the service is given the time to take them
constexpr int TimeInterval = 100; ///< messages until timers fire
constexpr int TimeStepMs = 30000;

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

/// Answers that fit, that almost fit, and errors.
FakePeers::Answer HostileAnswers(quint32 seed)
{
    return [hostility = std::make_shared<Hostility>(seed)](const QDBusMessage& call) {
        QVariantList answer = hostility->Arguments(peerAnswers.value(call.member(), "i"));
        if (hostility->OneIn(6)) // where a number should be
            answer = {0, hostility->Structure()};
        else if (!hostility->OneIn(4) && !answer.isEmpty())
            answer[0] = 0;
        return hostility->OneIn(8) ? call.createErrorReply("org.example.Error", hostility->Value('s').toString())
                                   : call.createReply(answer);
    };
}

}

/// Everything that the bus lets through is thrown at the service, which lives on and then does its work.
class BusFuzz : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("QTEST_FUNCTION_TIMEOUT", "86400000"); } // a long run takes its time

private Q_SLOTS:
    void SurvivesEverything()
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
            FakePeers peers(HostileAnswers(seed));
            for (const char* name : {Names::SoundManagerService, Names::AudioOutCtlService, Names::AudioInCtlService})
                QVERIFY(peers.Join(name));
            Hostility hostility(seed);
            bool present = false;
            for (int i = 0; i < messages; ++i) {
                if (!present || hostility.OneIn(400)) {
                    present = !present;
                    QVERIFY(present ? peers.Join(Names::GsmService) : peers.Leave(Names::GsmService));
                }
                if (hostility.OneIn(2)) {
                    const Member& method = hostility.Choose(phoneMethods);
                    QDBusMessage call = QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject,
                                                                       Names::PhoneInterface, method.name);
                    call.setArguments(hostility.Arguments(method.types));
                    QDBusConnection::sessionBus().asyncCall(call);
                } else {
                    const Member& member = hostility.Choose(gsmSignals);
                    peers.Send(member.name, hostility.Arguments(member.types));
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
};

QTEST_GUILESS_MAIN(BusFuzz)

#include "BusFuzz.moc"
