#include "SettingsFile.h"

#include "Names.h"

#include <QDBusConnectionInterface>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QSettings>

#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace
{

/// The settings library does not read larger files.
constexpr qint64 LargestFile = 1048576;

/// @return the number of the first line that QSettings does not accept as section, key or comment; 0 if there is none.
int FindBadLine(const QByteArray& text)
{
    int number = 0;
    bool continues = false;
    for (const QByteArray& line : text.split('\n')) {
        ++number;
        const QByteArray trimmed = line.trimmed();
        const bool isSection = trimmed.startsWith('[');
        if (!continues && !trimmed.isEmpty() && !trimmed.startsWith(';') &&
            !(isSection ? trimmed.contains(']') : trimmed.contains('=')))
            return number;
        continues = trimmed.endsWith('\\');
    }
    return 0;
}

QString WhyUnwritable(const QString& path)
{
    // A write replaces the file, so only the folder's mode matters. A missing folder is created.
    QFileInfo folder(QFileInfo(path).absolutePath());
    while (!folder.exists() && !folder.isRoot())
        folder = QFileInfo(folder.absolutePath());
    if (!folder.isDir())
        return QStringLiteral("\"%1\" is not a folder").arg(folder.filePath());
    if (access(QFile::encodeName(folder.filePath()).constData(), W_OK | X_OK) != 0)
        return QStringLiteral("folder \"%1\": %2").arg(folder.filePath(), QString::fromLocal8Bit(std::strerror(errno)));
    return {};
}

}

ServiceEnvironment::ServiceEnvironment(PhoneClient& phone)
{
    const QDBusReply<uint> pid = phone.Proxy().connection().interface()->servicePid(QLatin1String(Names::PhoneService));
    QFile file(QStringLiteral("/proc/%1/environ").arg(pid.value()));
    const bool isService = pid.isValid() && file.open(QIODevice::ReadOnly);
    QStringList lines;
    if (isService) {
        for (const QByteArray& line : file.readAll().split('\0'))
            lines.append(QString::fromLocal8Bit(line));
    } else {
        lines = QProcessEnvironment::systemEnvironment().toStringList();
    }
    for (const QString& line : std::as_const(lines))
        values.insert(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1));
}

SettingsFile::SettingsFile(const ServiceEnvironment& environment)
    : path(environment.Path(DeviceFiles::Settings)),
      exists(QFileInfo::exists(path)),
      unwritable(WhyUnwritable(path))
{
    if (!exists)
        return;
    QFile file(path);
    if (!QFileInfo(path).isFile()) {
        problem = QStringLiteral("it is not a regular file");
    } else if (file.size() > LargestFile) {
        problem = QStringLiteral("it is larger than 1 MiB");
    } else if (!file.open(QIODevice::ReadOnly)) {
        problem = file.errorString();
    } else {
        const int line = FindBadLine(file.readAll());
        const QSettings settings(path, QSettings::IniFormat);
        const auto isOn = [&](const char* name) { return settings.value(QLatin1String(name)).toString() == "1"; };
        phoneEnabled = isOn("PHONE/enabled");
        gprsEnabled = isOn("DEVICES_SETUP/gprs-enabled");
        static_cast<void>(settings.allKeys()); // sections are parsed when first needed: now all of them
        if (settings.status() != QSettings::NoError)
            problem = line == 0 ? QStringLiteral("it is not an INI file")
                                : QStringLiteral("line %1 is no [section], key=value or ;comment").arg(line);
    }
}
