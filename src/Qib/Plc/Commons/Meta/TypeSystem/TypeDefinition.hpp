// One meta-type definition that a library registers in its type domain.
#pragma once

#include <string>

namespace Qib::Plc::Commons::Meta::TypeSystem
{

/// A named meta type.
struct TypeDefinition
{
    std::string Name;
};

} // namespace Qib::Plc::Commons::Meta::TypeSystem
