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
constexpr int LookInterval = 50;  ///< messages between checks of the service
constexpr int TimeInterval = 100; ///< messages between steps of the clock
constexpr int TimeStepMs = 30000;

/// A method or signal with the types of its arguments: D-Bus type codes, but l for as and m for a{sv}.
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

/// Types of the answers that carry more than a status.
const QMap<QString, const char*> peerAnswers = {
    {"IsSimPresent", "ib"}, {"GetAmplifiersDefault", "iy"}, {"GetOutputType", "iu"}};

/// Generates random values, among them unexpected ones.
class RandomValues
{
public:
    explicit RandomValues(quint32 seed) : random(seed) {}

    bool OneIn(int n) { return random.bounded(n) == 0; }

    template <typename Choices>
    const auto& Choose(const Choices& choices)
    {
        return choices[random.bounded(static_cast<int>(std::size(choices)))];
    }

    /// Arguments of the given types, or of any.
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

/// Answers with the right types, with wrong types, and errors.
FakePeers::Answer HostileAnswers(quint32 seed)
{
    return [values = std::make_shared<RandomValues>(seed)](const QDBusMessage& call) {
        QVariantList answer = values->Arguments(peerAnswers.value(call.member(), "i"));
        if (values->OneIn(6)) // instead of a number
            answer = {0, values->Structure()};
        else if (!values->OneIn(4) && !answer.isEmpty())
            answer[0] = 0;
        return values->OneIn(8) ? call.createErrorReply("org.example.Error", values->Value('s').toString())
                                : call.createReply(answer);
    };
}

}

/// Sends random requests, answers and signals to the service, which must survive them and work afterwards.
class BusFuzz : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("QTEST_FUNCTION_TIMEOUT", "86400000"); } // for long runs

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
            RandomValues random(seed);
            bool present = false;
            for (int i = 0; i < messages; ++i) {
                if (!present || random.OneIn(400)) {
                    present = !present;
                    QVERIFY(present ? peers.Join(Names::GsmService) : peers.Leave(Names::GsmService));
                }
                if (random.OneIn(2)) {
                    const Member& method = random.Choose(phoneMethods);
                    QDBusMessage call = QDBusMessage::createMethodCall(Names::PhoneService, Names::PhoneObject,
                                                                       Names::PhoneInterface, method.name);
                    call.setArguments(random.Arguments(method.types));
                    QDBusConnection::sessionBus().asyncCall(call);
                } else {
                    const Member& member = random.Choose(gsmSignals);
                    peers.Send(member.name, random.Arguments(member.types));
                }
                if (i % TimeInterval == 0)
                    bed.PassTime(TimeStepMs);
                if (i % LookInterval == 0) {
                    bed.Settle();
                    QVERIFY2(bed.ServiceRuns(),
                             qPrintable(QStringLiteral("the service has ended after message %1").arg(i)));
                    bed.ForgetRecords();
                }
            }
        }

        // Let everything in progress end. With a correct device and a correct client, the service must then work.
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
