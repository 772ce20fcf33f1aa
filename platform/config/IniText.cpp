#include "IniText.h"

#include <QFile>
#include <QSettings>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

/// Restores a text with an unquoted comma, which QSettings reads as a list.
QString Text(const QVariant& value)
{
    return value.toStringList().join(QStringLiteral(", "));
}

}

// QSettings caches a file and reads it again only if its size or time has changed, which is too coarse for a file that
// other programs write. So let it use private copies only, never the store itself.

QString IniText::ValueName(const QString& section, const QString& key)
{
    return section.compare(QLatin1String("General"), Qt::CaseInsensitive) == 0 ? key : section + QLatin1Char('/') + key;
}

QString IniText::Parse(const QByteArray& text, Values& values)
{
    values.clear();

    const int copy = memfd_create("config", MFD_CLOEXEC);
    if (copy < 0 || write(copy, text.constData(), text.size()) != text.size()) {
        if (copy >= 0)
            close(copy);
        return QStringLiteral("no room for a copy to parse");
    }

    QSettings settings(QStringLiteral("/proc/self/fd/%1").arg(copy), QSettings::IniFormat);
    const QStringList names = settings.allKeys();
    for (const QString& name : names)
        values.insert(name, Text(settings.value(name)));
    const bool parsed = settings.status() == QSettings::NoError;

    // The next memfd may get the same path. Emptying this one makes QSettings drop what it has cached for that path.
    const bool emptied = ftruncate(copy, 0) == 0;
    settings.sync();
    close(copy);
    return parsed && emptied ? QString() : QLatin1String(NotIni);
}

QString IniText::WriteChanged(const QByteArray& text, const QString& name, const QString& value, const QString& path)
{
    QFile copy(path);
    if (!copy.open(QIODevice::WriteOnly) || copy.write(text) != text.size() || !copy.flush())
        return copy.errorString();
    copy.close();

    QSettings settings(path, QSettings::IniFormat);
    settings.setValue(name, value);
    settings.sync();
    return settings.status() == QSettings::NoError
               ? QString()
               : QStringLiteral("a changed copy cannot be written; is the disk full?");
}
