#include <Configuration.h>
#include <QFile>
#include <QTemporaryDir>

/// Any settings file is either read or refused, and a value that was written reads back.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("config.ini")));
    if (!file.open(QIODevice::WriteOnly) || file.write(reinterpret_cast<const char*>(data), size) != qint64(size))
        qFatal("Cannot write %s", qPrintable(file.fileName()));
    file.close();
    qputenv("KOVA_CONFIG_FILE", QFile::encodeName(file.fileName()));

    const QString section = QStringLiteral("PHONE");
    const QString key = QStringLiteral("enabled");
    Configuration configuration("/fuzz");
    bool ok = false;
    configuration.ReadConfigValue(section, key, QString(), &ok, true);
    if (ok != configuration.IsValid())
        qFatal("read and validity differ");
    if (configuration.WriteConfigValue(section, key, QStringLiteral("1"), true) &&
        Configuration("/fuzz").ReadConfigValue(section, key, QString(), &ok, true) != QLatin1String("1"))
        qFatal("what was written does not read back");
    return 0;
}
