// The application domain's registry of process-wide objects.
#include "Qib/AppDomain.hpp"

#include <mutex>

namespace Qib
{

// The domain's instance pointer is defined here, in the host layer, so that a plug-in loaded with
// dlopen and the program that loads it share one pointer instead of each holding its own copy.
template class Singleton<AppDomain>;

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
