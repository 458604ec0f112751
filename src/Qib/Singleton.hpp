// One process-wide instance of a type, reached through a static pointer.
#pragma once

#include "Qib/Exception.hpp"
#include "Qib/QibExport.hpp"
#include "Qib/TypeName.hpp"

#include <utility>

namespace Qib
{

/// Holder of one instance of T. Not synchronised: create it before other threads use it.
template <typename T>
class QIB_EXPORT Singleton
{
public:
    inline static T* pInstance = nullptr;

    /// Creates the instance; throws Qib::Exception when one exists already.
    template <typename... Args>
    static T& CreateInstance(Args&&... args)
    {
        if (pInstance != nullptr)
        {
            throw Qib::Exception("Singleton instance of type '{0}' was created yet!", TypeName<T>());
        }
        pInstance = new T(std::forward<Args>(args)...);
        return *pInstance;
    }

    static bool IsCreated() noexcept { return pInstance != nullptr; }

    /// The instance; throws Qib::Exception when it was not created.
    static T& GetInstance()
    {
        if (pInstance == nullptr)
        {
            throw Qib::Exception("Singleton instance of type '{0}' was not created yet!", TypeName<T>());
        }
        return *pInstance;
    }

    /// Destroys the instance, if any.
    static void DisposeInstance()
    {
        delete pInstance;
        pInstance = nullptr;
    }

protected:
    Singleton() = default;
};

} // namespace Qib
