#include "InputFile.h"
#include "Scenario.h"

#include <QCoreApplication>

/// A scenario is refused, fails, ends or waits; it is not waited for.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static int argc = 0;
    static QCoreApplication application(argc, nullptr);

    Device device{DeviceTimes()};
    Commands commands(device);
    Scenario scenario(device, commands);
    if (scenario.Load(InputFile(data, size)).isEmpty()) {
        scenario.Start();
        QCoreApplication::processEvents();
    }
    return 0;
}
