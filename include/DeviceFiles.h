#pragma once

#include <QString>

/// The files that the phone service and phonectl share.
namespace DeviceFiles
{

/// A file that an environment variable names, or else one in a base folder (XDG Base Directory Specification).
struct DeviceFile {
    const char* variable;
    const char* baseVariable;
    const char* defaultBase; ///< in the home folder
    const char* name;        ///< in the base folder
};

constexpr DeviceFile Settings = {"KOVA_CONFIG_FILE", "XDG_CONFIG_HOME", "/.config", "/kova/config.ini"};
constexpr DeviceFile Contacts = {"KOVA_CONTACTS_DB", "XDG_DATA_HOME", "/.local/share", "/kova/contacts.db"};

/// @param variable returns the value of an environment variable of the process that uses the file, empty if it is
/// unset.
template <typename Variable>
QString Path(const DeviceFile& file, Variable variable)
{
    if (const QString path = variable(file.variable); !path.isEmpty())
        return path;
    const QString base = variable(file.baseVariable);
    const bool isUsable = base.startsWith(QLatin1Char('/'));
    return (isUsable ? base : variable("HOME") + QLatin1String(file.defaultBase)) + QLatin1String(file.name);
}

/// The path according to this process's environment.
inline QString Path(const DeviceFile& file)
{
    return Path(file, [](const char* variable) { return qEnvironmentVariable(variable); });
}

}
