#include "LinkState.h"

#include "LinkModule.h"
#include "Log.h"

#include <QCoreApplication>
#include <QFile>

#include <dlfcn.h>

namespace
{

/// The module's path: beside the executable in a build folder, in the libraries' folder when installed, else only its
/// name, for the system to find. Do not rely on the executable's run path: a sanitizer's dlopen() ignores it.
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

/// Loads the module and never unloads it.
/// @return null on failure; dlerror() gives the reason.
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
