// A minimal concrete application: a name.
#include "Qib/System/Acf/Application.hpp"

namespace Qib::System::Acf
{

IApplication::~IApplication() = default;

Application::Application(String name) : name(std::move(name)) {}

Application::~Application() = default;

const String& Application::GetName() const
{
    return name;
}

} // namespace Qib::System::Acf
