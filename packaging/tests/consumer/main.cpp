#include "phone.h"

#include <Configuration.h>
#include <SoundManagerProxy.h>

#include <Names.h>
#include <PhoneCodes.h>

int main()
{
    const Configuration settings(Names::PhoneObject);
    const SoundManagerProxy sound(Names::SoundManagerService, Names::SoundManagerObject, QDBusConnection::sessionBus());
    return settings.IsValid() && !sound.isValid() ? StatusCodeSuccess : StatusCodeUnreadable;
}
