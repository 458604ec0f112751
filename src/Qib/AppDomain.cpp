// The application domain's registry of process-wide objects.
#include "Qib/AppDomain.hpp"

#include <mutex>

namespace Qib
{

void AppDomain::Register(const std::string& typeName, void* object)
{
    std::unique_lock<std::shared_mutex> guard(lock);
    singletons[typeName] = object;
}

void AppDomain::Unregister(const std::string& typeName)
{
    std::unique_lock<std::shared_mutex> guard(lock);
    singletons.erase(typeName);
}

void* AppDomain::Find(const std::string& typeName) const
{
    std::shared_lock<std::shared_mutex> guard(lock);
    const auto found = singletons.find(typeName);
    return found == singletons.end() ? nullptr : found->second;
}

} // namespace Qib
