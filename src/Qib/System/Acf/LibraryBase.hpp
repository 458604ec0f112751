// Base of a plug-in library record: application domain, build version and component factory.
#pragma once

#include "Qib/System/Acf/ComponentFactory.hpp"
#include "Qib/System/Acf/ILibrary.hpp"

namespace Qib
{
class AppDomain;
}

namespace Qib::System::Acf
{

/// Library record shared by every plug-in.
class QIB_EXPORT LibraryBase : public ILibrary
{
public:
    LibraryBase(AppDomain& appDomain, const BasicVersion& buildVersion);
    ~LibraryBase() override;

    ComponentFactory& GetComponentFactory() override;
    const BasicVersion& GetBuildVersion() const override;
    AppDomain& GetAppDomain() const;

protected:
    ComponentFactory componentFactory;

private:
    AppDomain& appDomain;
    BasicVersion buildVersion;
};

} // namespace Qib::System::Acf
