// The meta side of a component: its namespace and whether its settings are set up.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib::Plc::Commons::Meta
{

/// Meta part of a component. Not synchronised: the host drives it from one thread.
class QIB_EXPORT MetaComponentBase
{
public:
    explicit MetaComponentBase(const char* typeNamespace);
    virtual ~MetaComponentBase();

    /// Marks the component's settings as set up.
    virtual void SetupSettings();
    /// Marks the component as disposed; its settings are no longer set up.
    virtual void Dispose();
    virtual void RegisterComponentPorts() = 0;

    const String& GetNamespace() const;
    bool IsSettingsSetUp() const;
    bool IsDisposed() const;

private:
    String typeNamespace;
    bool settingsSetUp = false;
    bool disposed = false;
};

} // namespace Qib::Plc::Commons::Meta
