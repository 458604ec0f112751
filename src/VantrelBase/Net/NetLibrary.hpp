// The library record of libVantrelBase.Net.so and the entry the host calls after loading it.
#pragma once

#include "Qib/AppDomain.hpp"
#include "Qib/Plc/Commons/Meta/MetaLibraryBase.hpp"
#include "Qib/Singleton.hpp"
#include "VantrelBase/Net/NetExport.hpp"

namespace VantrelBase::Net
{

/// The library object: version, namespace, type domain and a factory with one component type.
/// Created once by the host's entry call; lives until the process ends.
class VANTRELBASE_NET_EXPORT NetLibrary : public Qib::Plc::Commons::Meta::MetaLibraryBase,
                                          public Qib::Singleton<NetLibrary>
{
public:
    /// Creates the singleton. A second call prints an error line and replaces the instance pointer;
    /// the earlier object is deliberately left alive.
    static void Main(Qib::AppDomain& appDomain);

    explicit NetLibrary(Qib::AppDomain& appDomain);
    ~NetLibrary() override;

    /// Adds the library's meta types (it has none) to its type domain.
    void InitializeTypeDomain();
};

} // namespace VantrelBase::Net

// The host looks the entry up by its unmangled name and calls it as C++, so the C++ return type is
// intended.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
/// The host's entry: creates the library object and returns it; throws Qib::Exception when it could
/// not be created.
extern "C" VANTRELBASE_NET_EXPORT Qib::System::Acf::ILibrary& QibDynamicLibraryMain(Qib::AppDomain& appDomain);
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
