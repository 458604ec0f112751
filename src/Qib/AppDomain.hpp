// The application domain: a registry of process-wide objects keyed by their type.
#pragma once

#include "Qib/QibExport.hpp"
#include "Qib/Singleton.hpp"
#include "Qib/TypeName.hpp"

#include <map>
#include <shared_mutex>
#include <string>

namespace Qib
{

/// Registry of singleton objects keyed by type name, guarded by a reader-writer lock.
/// Shared objects: safe.
class QIB_EXPORT AppDomain : public Singleton<AppDomain>
{
public:
    AppDomain() = default;
    AppDomain(const AppDomain&) = delete;
    AppDomain& operator=(const AppDomain&) = delete;

    /// Registers `object` as the instance of T, replacing an earlier one. The domain does not own it.
    template <typename T>
    void RegisterSingleton(T& object)
    {
        Register(TypeName<T>().GetStdString(), &object);
    }

    template <typename T>
    void UnregisterSingleton()
    {
        Unregister(TypeName<T>().GetStdString());
    }

    /// The registered instance of T, or null.
    template <typename T>
    T* TryGetSingleton() const
    {
        return static_cast<T*>(Find(TypeName<T>().GetStdString()));
    }

private:
    void Register(const std::string& typeName, void* object);
    void Unregister(const std::string& typeName);
    void* Find(const std::string& typeName) const;

    mutable std::shared_mutex lock;
    std::map<std::string, void*> singletons;
};

} // namespace Qib
