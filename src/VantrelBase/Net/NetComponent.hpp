// The library's one component: it registers itself with the controller's domain proxy.
#pragma once

#include "Qib/Plc/Commons/Meta/MetaComponentBase.hpp"
#include "Qib/System/Acf/ComponentBase.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "VantrelBase/Net/NetExport.hpp"

#include <memory>

namespace VantrelBase::Net
{

/// Component created by the host by the name "VantrelBase.Net.NetComponent". The host drives it from
/// one thread.
class VANTRELBASE_NET_EXPORT NetComponent
    : public Qib::System::Acf::ComponentBase,
      public Qib::Plc::Commons::Meta::MetaComponentBase,
      private Qib::System::Commons::Diagnostics::Logging::Loggable<NetComponent>
{
public:
    /// Throws Qib::Exception when the library object does not exist yet.
    NetComponent(Qib::System::Acf::IApplication& application, const Qib::String& name);
    ~NetComponent() override;

    /// The factory function registered under the component's type name.
    static std::shared_ptr<Qib::System::Acf::IComponent> Create(Qib::System::Acf::IApplication& application,
                                                                const Qib::String& name);

    /// Registers the component with the domain proxy; throws Qib::Exception when the application
    /// domain or its domain proxy does not exist.
    void Initialize() override;
    void SubscribeServices() override;
    void LoadSettings(const Qib::String& settingsPath) override;
    void SetupSettings() override;
    void PublishServices() override;
    void LoadConfig() override;
    void SetupConfig() override;
    void ResetConfig() override;
    void Dispose() override;
    void PowerDown() override;
    void RegisterComponentPorts() override;
};

} // namespace VantrelBase::Net
