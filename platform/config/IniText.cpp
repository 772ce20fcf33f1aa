#include "IniText.h"

#include <QFile>
#include <QSettings>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

/// QSettings on a file in memory that holds the text. QSettings keeps what it has read for the next object on the same
/// file, and looks again only when size or time, in milliseconds, have changed: too coarse for a file that others write
/// too. So the text is read and written elsewhere, and QSettings sees a file that nobody else does.
class ScratchSettings
{
public:
    explicit ScratchSettings(const QByteArray& text)
    {
        const int descriptor = memfd_create("config.ini", MFD_CLOEXEC);
        if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadWrite, QFileDevice::AutoCloseHandle))
            return;
        written = file.write(text) == text.size() && file.flush();
    }

    bool Read(QMap<QString, QString>& values)
    {
        return With([&](QSettings& settings) {
            const QStringList names = settings.allKeys();
            for (const QString& name : names)
                values.insert(name, Text(settings.value(name)));
            return settings.status() == QSettings::NoError;
        });
    }

    bool Write(const QString& name, const QString& value, QByteArray& text)
    {
        return With([&](QSettings& settings) {
            settings.setValue(name, value);
            settings.sync();
            file.seek(0);
            text = file.readAll();
            return settings.status() == QSettings::NoError;
        });
    }

private:
    template <typename Use>
    bool With(Use use)
    {
        if (!written)
            return false;
        QSettings settings(QStringLiteral("/proc/self/fd/%1").arg(file.handle()), QSettings::IniFormat);
        settings.setAtomicSyncRequired(false); // a file in memory cannot be replaced
        const bool done = use(settings);
        // An empty file is not kept for the next object, which may meet another text under the same descriptor.
        file.resize(0);
        settings.sync();
        return done;
    }

    /// An unquoted comma makes a list of what was written as one text.
    static QString Text(const QVariant& value) { return value.toStringList().join(QStringLiteral(", ")); }

    QFile file;
    bool written = false;
};

}

bool IniText::Parse(const QByteArray& text, QMap<QString, QString>& values)
{
    values.clear();
    return ScratchSettings(text).Read(values);
}

bool IniText::SetValue(QByteArray& text, const QString& name, const QString& value)
{
    QByteArray changed;
    QMap<QString, QString> values;
    if (!ScratchSettings(text).Write(name, value, changed) || !Parse(changed, values) || values.value(name) != value)
        return false;
    text = changed;
    return true;
}
