// Base of a component: its identity and the host's default lifecycle hooks.
#pragma once

#include "Qib/System/Acf/IComponent.hpp"

namespace Qib::System::Acf
{

/// Holds what the host gives a component at construction. The lifecycle hooks do nothing here.
class QIB_EXPORT ComponentBase : public IComponent
{
public:
    ComponentBase(IApplication& application, ILibrary& library, const String& name, ComponentCategory category,
                  unsigned int startOrder, bool singleton);
    ~ComponentBase() override;

    /// The start order the host gives a component that asks for no particular place.
    static unsigned int GetDefaultStartOrder();

    IApplication& GetApplication() const override;
    ILibrary& GetLibrary() const override;
    String GetFullName() const override;
    const BasicVersion& GetVersion() const override;
    ComponentCategory GetComponentCategory() const override;
    unsigned int GetStartOrder() const override;
    bool IsSingleton() const override;
    bool IsRequired() const override;

    void Initialize() override;
    void SubscribeServices() override;
    void LoadSettings(const String& settingsPath) override;
    void SetupSettings() override;
    void PublishServices() override;
    void LoadConfig() override;
    void SetupConfig() override;
    void ResetConfig() override;
    void Dispose() override;
    void PowerDown() override;

    const String& GetName() const;

private:
    IApplication& application;
    ILibrary& library;
    String name;
    ComponentCategory category;
    unsigned int startOrder;
    bool singleton;
};

} // namespace Qib::System::Acf
