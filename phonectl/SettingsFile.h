#pragma once

#include "PhoneClient.h"

#include <QMap>
#include <QString>

/// The environment variables of the phone service's process, or this program's own if those cannot be read.
class ServiceEnvironment
{
public:
    explicit ServiceEnvironment(PhoneClient& phone);

    bool IsService() const { return isService; }
    QString Value(const char* name) const { return values.value(QLatin1String(name)); }

    /// The file that a variable names, else one below a base folder (XDG Base Directory Specification).
    QString File(const char* variable, const char* baseVariable, const char* baseBelowHome, const char* name) const;

private:
    QMap<QString, QString> values;
    bool isService = false;
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
