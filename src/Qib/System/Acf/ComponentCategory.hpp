// Categories the host sorts its components into.
#pragma once

namespace Qib::System::Acf
{

/// Component category; libraries' components use Library.
enum class ComponentCategory : int
{
    Undefined = 0,
    System = 1,
    Framework = 2,
    Library = 3,
};

} // namespace Qib::System::Acf
