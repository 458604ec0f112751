// The library record of libVantrelBase.Net.so and the host's entry.
#include "VantrelBase/Net/NetLibrary.hpp"

#include "Qib/TypeName.hpp"
#include "VantrelBase/Net/NetComponent.hpp"

#include <cstdio>

namespace VantrelBase::Net
{

namespace
{

const Qib::BasicVersion& BuildVersion()
{
    static const Qib::BasicVersion version(23, 0, 3, 77, "2023.0.3 LTS", "");
    return version;
}

} // namespace

void NetLibrary::Main(Qib::AppDomain& appDomain)
{
    if (pInstance != nullptr)
    {
        std::printf("ERROR: Singleton instance of type '%s' was created yet!", Qib::TypeName<NetLibrary>().CStr());
    }
    pInstance = new NetLibrary(appDomain);
}

NetLibrary::NetLibrary(Qib::AppDomain& appDomain)
    : MetaLibraryBase(appDomain, BuildVersion(), Qib::RuntimeTypeInfo::GetNamespace(Qib::TypeName<NetLibrary>()))
{
    componentFactory.AddFactoryMethod(Qib::TypeName<NetComponent>(), &NetComponent::Create);
    InitializeTypeDomain();
}

NetLibrary::~NetLibrary() = default;

void NetLibrary::InitializeTypeDomain()
{
    GetTypeDomain().AddTypeDefinitions({});
}

} // namespace VantrelBase::Net

Qib::System::Acf::ILibrary& QibDynamicLibraryMain(Qib::AppDomain& appDomain)
{
    using VantrelBase::Net::NetLibrary;
    NetLibrary::Main(appDomain);
    if (NetLibrary::pInstance == nullptr)
    {
        throw Qib::Exception("Singleton instance of type '{0}' was not created yet!", Qib::TypeName<NetLibrary>());
    }
    return *NetLibrary::pInstance;
}
