#include "KovaFeatureBase.h"

#include <dbus/dbus.h>

KovaFeatureBase::KovaFeatureBase(const char* objectPath) : valid(objectPath && dbus_validate_path(objectPath, nullptr))
{
}

KovaFeatureBase::~KovaFeatureBase() = default;

bool KovaFeatureBase::IsValid() const
{
    return valid;
}

void KovaFeatureBase::OnStart() {}

void KovaFeatureBase::OnStop() {}

void KovaFeatureBase::OnSuspend() {}

void KovaFeatureBase::OnResume() {}
