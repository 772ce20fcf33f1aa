#include "Commands.h"

#include <QTest>

#include <arpa/inet.h>
#include <cstddef>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

// Expected events come at once, unwanted ones in an hour.
constexpr DeviceTimes times = {10, 10, 10, 3600000, 3600000};

}

/// The simulated modem in this process. The test writes to its AT port through a socket.
class AtTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void answers_data();
    void answers();
    void power();
    void card();
    void calls();
    void secondCaller();
    void sending();
    void receiving();
    void faults();
    void hostile_data();
    void hostile();
    void sessions();

private:
    int Connect() const;
    void Write(const QByteArray& data) { QCOMPARE(write(client, data.data(), std::size_t(data.size())), data.size()); }
    QByteArray Read();
    /// Writes a line. @return the answer up to the final result code, without blank lines.
    QString Ask(const QByteArray& line);
    void Register();
    bool Run(const QString& line) { return commands->Run(line).done; }
    QString State(const char* key) const { return device->State().value(key).toString(); }

    QString name;
    std::unique_ptr<Device> device;
    std::unique_ptr<Commands> commands;
    QStringList events;
    int client = -1;
    QByteArray unread;
};

/// Waits until the output of the port contains the text, and drops the output up to it.
#define HEAR(text)                                                                                                     \
    do {                                                                                                               \
        QTRY_VERIFY2(Read().contains(text), unread.constData());                                                       \
        unread.remove(0, unread.indexOf(text) + QByteArray(text).size());                                              \
    } while (false)

void AtTest::init()
{
    DeviceOptions options;
    options.atAbstractName = name = QStringLiteral("kova-at-test-%1").arg(getpid());
    options.audio = false;
    device = std::make_unique<Device>(times, options);
    commands = std::make_unique<Commands>(*device);
    QCOMPARE(device->Join(), QString());
    events.clear();
    connect(device.get(), &Device::Event, this, [this](const QString& text) { events.append(text); });
    client = Connect();
    unread.clear();
    QTRY_COMPARE(State("at-port"), "open");
}

void AtTest::cleanup()
{
    close(client);
    commands.reset();
    device.reset();
}

int AtTest::Connect() const
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const QByteArray bytes = name.toUtf8();
    memcpy(address.sun_path + 1, bytes.data(), std::size_t(bytes.size()));
    const int socketToPort = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::connect(socketToPort, reinterpret_cast<const sockaddr*>(&address),
              unsigned(offsetof(sockaddr_un, sun_path) + 1 + std::size_t(bytes.size())));
    return socketToPort;
}

QByteArray AtTest::Read()
{
    char buffer[65536];
    const ssize_t size = recv(client, buffer, sizeof buffer, MSG_DONTWAIT);
    return unread.append(buffer, size > 0 ? int(size) : 0);
}

QString AtTest::Ask(const QByteArray& line)
{
    static const QStringList finals = {"OK", "ERROR", "NO CARRIER", ">"};
    unread.clear();
    Write(line + '\r');
    QStringList said;
    (void)QTest::qWaitFor([&] {
        said = QString(Read()).remove('\r').split('\n', Qt::SkipEmptyParts);
        const QString last = said.isEmpty() ? QString() : said.last().trimmed();
        return finals.contains(last) || last.startsWith("+CME ERROR") || last.startsWith("+CMS ERROR");
    });
    return said.join('|');
}

void AtTest::Register()
{
    QCOMPARE(Ask("AT+CREG=1;+CLIP=1;+CRC=1"), "OK");
    Write("AT+CFUN=1\r");
    HEAR("+CREG: 1\r\n");
    HEAR("+CSQ: 22,99");
    events.clear();
}

void AtTest::answers_data()
{
    QTest::addColumn<QString>("answer");
    for (const auto& [line, answer] : std::initializer_list<std::pair<const char*, const char*>>{
             {"AT", "OK"},
             {"at+creg = 2", "ERROR"},
             {"ate0v1&c1+cmee=1;+creg?", "+CREG: 0,0|OK"},
             {"AT+CREG=2;+CREG?;+NONE;+CSQ", "+CREG: 2,0|ERROR"},
             {"AT+CMEE=0;+CGDCONT=1,\"IP\",\"internet\"", "ERROR"}, // refused while off, as a plain error
             {"AT+CIMI", "001010123456789|OK"},
             {"AT+COPS?", "+COPS: 0|OK"},
             {"AT+CSQ", "+CSQ: 99,99|OK"},
             {"ATD123;", "+CME ERROR: 30"},
             {"ATD*99#", "NO CARRIER"}, // a data call
             {"ATA", "NO CARRIER"},
             {"AT+CLCC", "OK"},
             {"AT+CHLD=1", "+CME ERROR: 3"},
             {"AT+CMGR=1", "+CMS ERROR: 321"},
             {"AT+CFUN=9", "+CME ERROR: 3"},
             {"AT\"", "ERROR"},
             {"ATS0=0", "ERROR"}})
        QTest::newRow(line) << answer;
}

void AtTest::answers()
{
    QFETCH(QString, answer);
    QCOMPARE(Ask(QTest::currentDataTag()), answer);
}

void AtTest::power()
{
    Register();
    QCOMPARE(Ask("AT+CGDCONT=1,\"IP\",\"internet, \x7f\";+CGACT=1,1;+CFUN?"), "+CFUN: 1|OK");
    QCOMPARE(State("apn").left(9), "internet,");
    QVERIFY(Run("signal 50"));
    HEAR("+CSQ: 16,99");
    QCOMPARE(Ask("AT+WS46=?"), "+WS46: (12)|OK");
    QVERIFY(Run("signal 60"));
    QVERIFY(Run("network lost"));
    QTRY_VERIFY(Read().contains("+CREG: 2"));
    QVERIFY2(!unread.contains("+CSQ"), "ModemManager stumbles over it");
    QCOMPARE(Ask("AT+CREG=0;+CFUN=4;+CFUN?"), "+CFUN: 4|OK"); // answers once the modem is off
    QCOMPARE(State("modem"), "off");
    QCOMPARE(events.filter("ModemSetEnabled"), QStringList("-> gsm ModemSetEnabled(false)"));
}

void AtTest::card()
{
    Register();
    QVERIFY(Run("sim out"));
    HEAR("+USIMSTATE: 0");
    HEAR("+CREG: 0");
    QCOMPARE(Ask("AT+CPIN?"), "+CME ERROR: 10");
    QCOMPARE(Ask("AT+SIMSTATE?"), "+SIMSTATE: 0|OK");
    QVERIFY(Run("sim in"));
    HEAR("+CREG: 1");
    QCOMPARE(Ask("AT+CPIN?"), "+CPIN: READY|OK");
}

void AtTest::calls()
{
    Register();
    QCOMPARE(Ask("ATD+4930;"), "OK");
    QCOMPARE(Ask("AT+CLCC"), "+CLCC: 1,0,3,0,0,\"+4930\",145|OK");
    QVERIFY(Run("answer"));
    QCOMPARE(Ask("AT+CLCC"), "+CLCC: 1,0,0,0,0,\"+4930\",145|OK");
    QVERIFY(Run("hangup"));
    HEAR("NO CARRIER");
    QCOMPARE(Ask("ATD110i;"), "OK");
    QVERIFY(Run("reject"));
    HEAR("BUSY");
    QVERIFY(Run("number 112 unreachable"));
    QCOMPARE(Ask("ATD112;"), "NO CARRIER");

    QVERIFY(Run("ring 0301\\\"2"));
    HEAR("+CRING: VOICE\r\n\r\n+CLIP: \"03012\",129,\"\",,\"\",0");
    QCOMPARE(Ask("ATA"), "OK");
    QCOMPARE(Ask("AT+CHUP;+CLCC"), "OK");
    QVERIFY(Run("ring withheld"));
    HEAR("+CLIP: \"\",128,\"\",,\"\",1");
    QCOMPARE(Ask("AT+CLCC"), "+CLCC: 1,1,4,0,0|OK");
    QVERIFY(!Run("ring 1"));
    QCOMPARE(events.filter("->"), (QStringList{"-> gsm Call(\"+4930\")", "-> gsm Call(\"110\")", "-> gsm Call(\"112\")",
                                               "-> gsm CallAnswer()", "-> gsm CallHangup()"}));
}

void AtTest::secondCaller()
{
    Register();
    QCOMPARE(Ask("AT+CCWA=1;D1;"), "OK");
    QVERIFY(!Run("ring 2")); // busy while dialling
    QVERIFY(Run("answer") && Run("ring 2"));
    HEAR("+CCWA: \"2\",129,1");
    QVERIFY(!Run("ring 3"));
    QCOMPARE(Ask("AT+CHLD=0;+CLCC"), "+CLCC: 1,0,0,0,0,\"1\",129|OK");
    QVERIFY(Run("ring +3"));
    HEAR("+CCWA: \"+3\",145,1");
    QCOMPARE(Ask("AT+CHLD=1;+CLCC"), "+CLCC: 2,1,0,0,0,\"+3\",145|OK");
    QVERIFY(Run("ring 4") && Run("hangup")); // the waiting call rings
    HEAR("+CLIP: \"4\"");
    QCOMPARE(Ask("AT+CHLD=19"), "+CME ERROR: 3");
    QCOMPARE(Ask("AT+CCWA=0;+CHLD=11;+CLCC"), "OK");
    QVERIFY(Run("ring 5"));
    QVERIFY(!Run("ring 6"));
}

void AtTest::sending()
{
    Register();
    const auto send = [this](const QByteArray& unit, const QByteArray& end = "\x1a") {
        const QString prompt = Ask("AT+CMGS=" + QByteArray::number(Pdu::Length(unit)));
        return prompt == "> " ? Ask(unit.toHex() + end) : prompt;
    };
    const QString text = QString(200, 'x') + "{end}";
    const QList<QByteArray> units = Pdu::EncodeSubmit("+4930", text, 5);
    QCOMPARE(units.size(), 2);
    QCOMPARE(send(units.at(1)), "+CMGS: 1|OK");
    QCOMPARE(events, QStringList());
    QCOMPARE(send(units.at(0)), "+CMGS: 2|OK");
    QCOMPARE(events, QStringList("-> gsm SendSms(\"+4930\", \"" + text + "\")"));

    QCOMPARE(send(units.at(0), "\x1b"), "OK"); // cancelled
    QCOMPARE(send("garbage"), "+CMS ERROR: 304");
    QCOMPARE(send(QByteArray(3000, 'x')), "+CMS ERROR: 304");
    QCOMPARE(State("sms-sent"), "1");
    QCOMPARE(Ask("AT+CREG=0"), "OK");
    QVERIFY(Run("network lost"));
    QCOMPARE(send(Pdu::EncodeSubmit("1", "now", 5).at(0)), "+CMS ERROR: 331");
}

void AtTest::receiving()
{
    Register();
    QVERIFY(Run("sms +4930 stored"));
    QCOMPARE(Ask("AT+CSMS=1;+CNMI=2,2,0,0,0"), "+CSMS: 1,1,1|OK");
    QVERIFY(Run("sms +4930 direct"));
    HEAR("+CMT: ,");
    HEAR("\r\n");
    QTRY_VERIFY(Read().contains("\r\n"));
    const auto direct = Pdu::DecodeDeliver(QByteArray::fromHex(unread));
    QVERIFY(direct);
    QCOMPARE(direct->text, "direct");
    QCOMPARE(Ask("AT+CNMA"), "OK");

    QCOMPARE(Ask("AT+CNMI=2,1"), "OK");
    QVERIFY(Run("sms +4930 " + QString(170, 'x')));
    HEAR("+CMTI: \"SM\",2");
    HEAR("+CMTI: \"SM\",3");
    QCOMPARE(Ask("AT+CMGL=4").count("+CMGL: "), 3);
    QCOMPARE(Ask("AT+CMGL=0"), "OK"); // all have been read
    QCOMPARE(Ask("AT+CMGD=2;+CPMS?").left(13), "+CPMS: \"SM\",2");

    // The network holds messages that do not fit on the card.
    QCOMPARE(Ask("AT+CNMI=2,0"), "OK");
    for (int i = 0; i < 40; ++i)
        QVERIFY(Run("sms +4930 more"));
    QTRY_VERIFY(Ask("AT+CPMS?").startsWith("+CPMS: \"SM\",30,30"));
    QVERIFY(Ask("AT+CMGD=1,4;+CPMS?").startsWith("+CPMS: \"SM\",12,30"));
}

/// Faults have the same meaning as on the bus: refused, no answer, late.
void AtTest::faults()
{
    Register();
    QVERIFY(Run("fault Call status 17 times 1"));
    QCOMPARE(Ask("ATD1;"), "+CME ERROR: 17");
    QVERIFY(Run("fault SignalStrength error org.example.Failed times 1"));
    QCOMPARE(Ask("AT+CSQ"), "ERROR");
    QVERIFY(Run("fault IsSimPresent silent times 1"));
    Write("AT+CPIN?\r");
    QCOMPARE(Ask("AT+CIMI"), "001010123456789|OK");
    QCOMPARE(State("call"), "none");

    QVERIFY(Run("fault Call delay 20"));
    unread.clear();
    Write("ATD1;\r");
    QTRY_COMPARE(State("call"), "dialling");
    QVERIFY(!Read().contains("OK"));
    QVERIFY(Run("answer"));
    HEAR("OK");
    QVERIFY(Run("fault CallHangupAll status 4 times 1"));
    QCOMPARE(Ask("AT+CHUP"), "+CME ERROR: 4");
    QCOMPARE(State("call"), "active");

    QVERIFY(Run("fault SendSms status 38"));
    const QByteArray unit = Pdu::EncodeSubmit("1", "text", 5).at(0);
    QCOMPARE(Ask("AT+CMGS=" + QByteArray::number(Pdu::Length(unit))), "> ");
    QCOMPARE(Ask(unit.toHex() + "\x1a"), "+CMS ERROR: 38");

    // A modem that hangs neither answers nor handles its input later.
    QVERIFY(Run("modem silent") && Run("hangup") && Run("ring 1"));
    Write("AT+CIMI\r");
    QCoreApplication::processEvents(); // the simulator reads the line
    unread.clear();
    QCOMPARE(Read(), QByteArray());
    QVERIFY(Run("modem normal"));
    HEAR("+CSQ: 22,99");
    QCOMPARE(Ask("AT"), "OK");
}

void AtTest::hostile_data()
{
    QTest::addColumn<QByteArray>("input");
    QByteArray binary;
    for (int i = 0; i < 100000; ++i)
        binary += char(i * 7919 >> 3);
    QTest::newRow("half a line") << QByteArray("AT+CFU");
    QTest::newRow("a line without an end") << QByteArray("AT") + QByteArray(1 << 20, 'x');
    QTest::newRow("binary") << binary;
    QTest::newRow("commands without an end") << QByteArray("AT") + QByteArray(1 << 20, ';');
    QTest::newRow("many lines") << QByteArray("AT+CREG?;+CIMI;+CPMS=?\r").repeated(20000);
    QTest::newRow("broken data") << QByteArray("AT+CMGS=20\r\xff\xfe\x1a") + QByteArray("AT+CMGS=0\r\x1a");
    QTest::newRow("quotes") << QByteArray("AT+CGDCONT=1,\"IP,\"\"\",,,\"\r");
}

/// The port survives hostile input whose answers are never read, and works when it is opened again.
void AtTest::hostile()
{
    QFETCH(QByteArray, input);
    for (int done = 0; done < input.size();) {
        const ssize_t size = send(client, input.data() + done, std::size_t(input.size() - done), MSG_DONTWAIT);
        done += size > 0 ? int(size) : 0;
        QCoreApplication::processEvents();
    }
    QVERIFY(Run("state"));
    close(client);
    QTRY_COMPARE(State("at-port"), "closed");
    client = Connect();
    QCOMPARE(Ask("AT+CIMI"), "001010123456789|OK");
}

/// The port is open for one program at a time. Closing it switches the modem off.
void AtTest::sessions()
{
    Register();
    QVERIFY(Run("fault SignalStrength delay 3600000 times 1"));
    Write("AT+CSQ\r");
    QTRY_VERIFY(!events.isEmpty());
    const int second = Connect();
    QVERIFY(Run("ring 1"));
    close(client);
    client = second;
    QCOMPARE(Ask("AT"), "OK");
    QTRY_COMPARE(State("modem"), "off");
    QCOMPARE(State("call"), "none");

    Register();
    QVERIFY(Run("modem drop"));
    QTRY_COMPARE(recv(client, &client, 0, MSG_DONTWAIT), 0);
    QTRY_COMPARE(State("at-port"), "closed");
    QVERIFY(Run("modem unplug") && !Run("modem unplug"));
    close(client);
    client = Connect();
    char byte = 0;
    QTRY_COMPARE(recv(client, &byte, 1, MSG_DONTWAIT), 0); // no connection is accepted
    QVERIFY(Run("modem plug"));
    close(client);
    client = Connect();
    Register();
}

QTEST_GUILESS_MAIN(AtTest)
#include "AtTest.moc"
