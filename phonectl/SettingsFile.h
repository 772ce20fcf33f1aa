#pragma once

#include "DeviceFiles.h"
#include "PhoneClient.h"

#include <QMap>
#include <QString>

/// The environment variables of the phone service's process, or this program's own if those cannot be read.
class ServiceEnvironment
{
public:
    explicit ServiceEnvironment(PhoneClient& phone);

    /// @return the path of the file that the process uses.
    QString Path(const DeviceFiles::DeviceFile& file) const
    {
        return DeviceFiles::Path(file, [this](const char* variable) { return values.value(QLatin1String(variable)); });
    }

private:
    QMap<QString, QString> values;
};

/// The state of the service's settings file. Reading it changes nothing.
struct SettingsFile {
    explicit SettingsFile(const ServiceEnvironment& environment);

    QString path;
    bool exists = false;
    QString problem;    ///< why the service cannot read it, with the line if known; empty if it can
    QString unwritable; ///< why the service cannot write it; empty if it can
    bool phoneEnabled = false;
    bool gprsEnabled = false;
};
