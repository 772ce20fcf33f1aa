#include "Commands.h"

#include <QCoreApplication>

/// Lines of commands, each carried out or refused with a reason.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static int argc = 0;
    static QCoreApplication application(argc, nullptr);

    Device device{DeviceTimes()};
    Commands commands(device);
    const QStringList lines =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size)).split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const Commands::Result result = commands.Run(line);
        if (!result.done && result.text.isEmpty())
            qFatal("refused without a reason: %s", qPrintable(line));
        QCoreApplication::processEvents();
    }
    return 0;
}
