#include "IniText.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryFile>

#include <sys/mman.h>

namespace
{

/// An unquoted comma makes QSettings see a list in what was written as one text.
QString Text(const QVariant& value)
{
    return value.toStringList().join(QStringLiteral(", "));
}

}

// QSettings keeps what it has read for the next object on the same file, and looks again only when size or time, in
// milliseconds, have changed: too coarse for a file that others write too. So it never sees the store itself, only
// copies that nobody else knows.

bool IniText::Parse(const QByteArray& text, QMap<QString, QString>& values)
{
    values.clear();

    QFile copy;
    const int descriptor = memfd_create("config", MFD_CLOEXEC);
    if (descriptor < 0 || !copy.open(descriptor, QIODevice::ReadWrite, QFileDevice::AutoCloseHandle) ||
        copy.write(text) != text.size() || !copy.flush())
        return false;

    QSettings settings(QStringLiteral("/proc/self/fd/%1").arg(descriptor), QSettings::IniFormat);
    const QStringList names = settings.allKeys();
    for (const QString& name : names)
        values.insert(name, Text(settings.value(name)));
    const bool parsed = settings.status() == QSettings::NoError;

    // What is left of an empty file is not kept for the next copy under the same descriptor.
    copy.resize(0);
    settings.sync();
    return parsed;
}

bool IniText::SetValue(QByteArray& text, const QString& name, const QString& value, const QString& folder)
{
    QTemporaryFile copy(folder + QStringLiteral("/config.XXXXXX"));
    if (!copy.open() || copy.write(text) != text.size() || !copy.flush())
        return false;
    {
        QSettings settings(copy.fileName(), QSettings::IniFormat);
        settings.setValue(name, value);
        settings.sync();
        if (settings.status() != QSettings::NoError)
            return false;
    }

    // QSettings replaces the file that it writes.
    QFile result(copy.fileName());
    if (!result.open(QIODevice::ReadOnly))
        return false;
    const QByteArray changed = result.readAll();
    QMap<QString, QString> values;
    if (!Parse(changed, values) || values.value(name) != value)
        return false;
    text = changed;
    return true;
}
