// Base of a plug-in library record.
#include "Qib/System/Acf/LibraryBase.hpp"

namespace Qib::System::Acf
{

ILibrary::~ILibrary() = default;

LibraryBase::LibraryBase(AppDomain& appDomain, const BasicVersion& buildVersion)
    : appDomain(appDomain), buildVersion(buildVersion)
{
}

LibraryBase::~LibraryBase() = default;

ComponentFactory& LibraryBase::GetComponentFactory()
{
    return componentFactory;
}

const BasicVersion& LibraryBase::GetBuildVersion() const
{
    return buildVersion;
}

AppDomain& LibraryBase::GetAppDomain() const
{
    return appDomain;
}

} // namespace Qib::System::Acf
