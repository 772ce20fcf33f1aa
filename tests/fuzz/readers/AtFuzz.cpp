#include "AtModem.h"
#include "Names.h"

#include <QCoreApplication>

/// Feeds the input in pieces of changing sizes. Afterwards the port must still answer.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static int argc = 0;
    static QCoreApplication application(argc, nullptr);

    Modem modem(DeviceTimes{0, 0, 0, 1000, 0});
    BusService contract("gsm", "com.example.gsm", "/gsm", Names::GsmInterface);
    AtModem port(modem, contract, false);
    QByteArray output;
    QObject::connect(&port, &AtModem::Output, [&output](const QByteArray& bytes) { output += bytes; });
    port.Open();

    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    for (int start = 0, piece = 1; start < input.size(); start += piece, piece = piece % 64 + 1) {
        port.Feed(input.mid(start, piece));
        QCoreApplication::processEvents();
        if (input.at(start) == '!')
            modem.Ring(QString::fromUtf8(input.mid(start, 8)));
    }
    // Leave any line, prompt or wait before asking for an answer.
    port.Feed("\r\x1b\x1b\r");
    for (int quiet = 0; quiet < 3; ++quiet) {
        QCoreApplication::processEvents();
        if (modem.PowerState() == Modem::PoweringUp || modem.PowerState() == Modem::PoweringDown)
            quiet = 0;
    }
    output.clear();
    port.Feed("ATE0V1\r");
    if (!output.contains("OK"))
        qFatal("no answer: %s", output.constData());
    port.Close();
    return 0;
}
