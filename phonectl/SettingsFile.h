#pragma once

#include "Phone.h"

#include <QMap>
#include <QString>

/// The environment in which the phone service runs, or this program's own when that cannot be seen.
class ServiceEnvironment
{
public:
    explicit ServiceEnvironment(Phone& phone);

    bool IsService() const { return isService; }
    QString Value(const char* name) const { return values.value(QLatin1String(name)); }

    /// A file that a variable names, or else one below a base folder (XDG Base Directory Specification).
    QString File(const char* variable, const char* baseVariable, const char* baseBelowHome, const char* name) const;

private:
    QMap<QString, QString> values;
    bool isService = false;
};

/// The service's settings file, looked at without changing anything.
struct SettingsFile {
    explicit SettingsFile(const ServiceEnvironment& environment);

    QString path;
    bool exists = false;
    QString problem;    ///< why it cannot be read, with the line where that is known; empty when it can
    QString unwritable; ///< why the service cannot write it; empty when it can
    bool phoneEnabled = false;
    bool gprsEnabled = false;
};
