#include "LinkState.h"

#include "LinkModule.h"
#include "Log.h"

#include <dlfcn.h>

namespace
{

IsLinkUpFunction* LoadModule()
{
    // Found in the folders that the executable searches for its libraries; it stays loaded.
    void* module = dlopen(LinkModule, RTLD_NOW);
    void* function = module ? dlsym(module, LinkModuleSymbol) : nullptr;
    if (!function)
        LOG(LogLevelError, "Can't look up network interfaces: %s", dlerror());
    return reinterpret_cast<IsLinkUpFunction*>(function);
}

}

bool IsLinkUp(const char* interface)
{
    static IsLinkUpFunction* const isLinkUp = LoadModule();
    return isLinkUp && isLinkUp(interface);
}
