// The host's component interface and its lifecycle hooks.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/BasicVersion.hpp"
#include "Qib/QibExport.hpp"
#include "Qib/System/Acf/ComponentCategory.hpp"

namespace Qib::System::Acf
{

class IApplication;
class ILibrary;

/// A component as the host drives it. The host calls the hooks from one thread, in this order:
/// Initialize, SubscribeServices, LoadSettings, SetupSettings, PublishServices, LoadConfig,
/// SetupConfig; at the end ResetConfig, Dispose, PowerDown.
class QIB_EXPORT IComponent
{
public:
    virtual ~IComponent();
    virtual IApplication& GetApplication() const = 0;
    virtual ILibrary& GetLibrary() const = 0;
    virtual String GetFullName() const = 0;
    virtual const BasicVersion& GetVersion() const = 0;
    virtual ComponentCategory GetComponentCategory() const = 0;
    virtual unsigned int GetStartOrder() const = 0;
    virtual bool IsSingleton() const = 0;
    virtual bool IsRequired() const = 0;
    virtual void Initialize() = 0;
    virtual void SubscribeServices() = 0;
    virtual void LoadSettings(const String& settingsPath) = 0;
    virtual void SetupSettings() = 0;
    virtual void PublishServices() = 0;
    virtual void LoadConfig() = 0;
    virtual void SetupConfig() = 0;
    virtual void ResetConfig() = 0;
    virtual void Dispose() = 0;
    virtual void PowerDown() = 0;
};

} // namespace Qib::System::Acf
