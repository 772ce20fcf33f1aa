#include "InputFile.h"

#include <Configuration.h>

/// Whatever the settings file holds, it is read or refused; where a value can be written, it reads back.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    qputenv("KOVA_CONFIG_FILE", QFile::encodeName(InputFile(data, size)));
    Configuration configuration("/fuzz");
    bool ok = false;
    configuration.ReadConfigValue(QStringLiteral("PHONE"), QStringLiteral("enabled"), QString(), &ok, true);
    if (ok != configuration.IsValid())
        qFatal("read and validity differ");
    if (configuration.WriteConfigValue(QStringLiteral("PHONE"), QStringLiteral("enabled"), QStringLiteral("1"), true) &&
        Configuration("/fuzz").ReadConfigValue(QStringLiteral("PHONE"), QStringLiteral("enabled"), QString(), &ok,
                                               true) != QLatin1String("1"))
        qFatal("what was written does not read back");
    return 0;
}
