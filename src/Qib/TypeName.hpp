// The host's dotted type name of a C++ type.
#pragma once

#include "Qib/RuntimeTypeInfo.hpp"

#include <typeinfo>

namespace Qib
{

/// The dotted type name of T, for example "VantrelBase.Net.NetComponent".
template <typename T>
String TypeName()
{
    return RuntimeTypeInfo::DemangleSymbol(typeid(T).name());
}

} // namespace Qib
