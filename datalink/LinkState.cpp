#include "LinkState.h"

#include "LinkModule.h"
#include "Log.h"

#include <QCoreApplication>
#include <QFile>

#include <dlfcn.h>

namespace
{

/// The module's path beside the executable, as built, or in the libraries' folder, as installed; else its name, for the
/// system to find. The executable's own run path would not do: a sanitizer's dlopen() does not see it.
QByteArray ModulePath()
{
    for (const char* folder : {"/", "/" KOVA_LIBRARY_FOLDER "/"}) {
        const QString path =
            QCoreApplication::applicationDirPath() + QLatin1String(folder) + QLatin1String(KOVA_LINK_MODULE);
        if (QFile::exists(path))
            return QFile::encodeName(path);
    }
    return KOVA_LINK_MODULE;
}

/// Loads the module, which stays loaded.
/// @return null when that fails; dlerror() has the reason.
decltype(&phone_look_up_link) LoadModule()
{
    void* module = dlopen(ModulePath().constData(), RTLD_NOW);
    return module ? reinterpret_cast<decltype(&phone_look_up_link)>(dlsym(module, LinkModuleSymbol)) : nullptr;
}

}

LinkState LookUpLink(const char* interface)
{
    static decltype(&phone_look_up_link) lookUp = nullptr;
    if (!lookUp)
        lookUp = LoadModule();
    if (!lookUp) {
        LOG(LogLevelWarning, "Can't look up network interfaces: %s", dlerror());
        return LinkStateUnknown;
    }
    const LinkState state = lookUp(interface);
    if (state == LinkStateUnknown)
        LOG(LogLevelWarning, "Can't look up network interfaces: %s", "the kernel cannot be asked");
    return state;
}
