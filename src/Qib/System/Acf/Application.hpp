// A minimal concrete application: a name.
#pragma once

#include "Qib/System/Acf/IApplication.hpp"

namespace Qib::System::Acf
{

/// The application object that hosts hand to the components they create.
class QIB_EXPORT Application : public IApplication
{
public:
    explicit Application(String name);
    ~Application() override;
    const String& GetName() const override;

private:
    String name;
};

} // namespace Qib::System::Acf
