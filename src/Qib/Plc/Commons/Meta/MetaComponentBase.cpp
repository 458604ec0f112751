// The meta side of a component.
#include "Qib/Plc/Commons/Meta/MetaComponentBase.hpp"

namespace Qib::Plc::Commons::Meta
{

MetaComponentBase::MetaComponentBase(const char* typeNamespace) : typeNamespace(typeNamespace) {}

MetaComponentBase::~MetaComponentBase() = default;

void MetaComponentBase::SetupSettings()
{
    settingsSetUp = true;
}

void MetaComponentBase::Dispose()
{
    settingsSetUp = false;
    disposed = true;
}

const String& MetaComponentBase::GetNamespace() const
{
    return typeNamespace;
}

bool MetaComponentBase::IsSettingsSetUp() const
{
    return settingsSetUp;
}

bool MetaComponentBase::IsDisposed() const
{
    return disposed;
}

} // namespace Qib::Plc::Commons::Meta
