#include "KovaFeatureBase.h"

#include <algorithm>
#include <string_view>

namespace
{

/// "/", or a sequence of elements, each a "/" and at least one character of [A-Za-z0-9_] (D-Bus, "Valid Object Paths").
bool IsObjectPath(std::string_view path)
{
    if (path == "/")
        return true;
    if (path.empty() || path.front() != '/' || path.back() == '/' || path.find("//") != std::string_view::npos)
        return false;
    return std::all_of(path.begin(), path.end(), [](char c) {
        return c == '/' || c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    });
}

}

KovaFeatureBase::KovaFeatureBase(const char* objectPath) : valid(objectPath && IsObjectPath(objectPath)) {}

KovaFeatureBase::~KovaFeatureBase() = default;

bool KovaFeatureBase::IsValid() const
{
    return valid;
}

void KovaFeatureBase::OnStart() {}

void KovaFeatureBase::OnStop() {}

void KovaFeatureBase::OnSuspend() {}

void KovaFeatureBase::OnResume() {}
