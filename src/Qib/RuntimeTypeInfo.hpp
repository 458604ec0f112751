// Turns compiler type symbols into the host's dotted type names.
#pragma once

#include "Qib/BasicString.hpp"
#include "Qib/QibExport.hpp"

namespace Qib
{

/// Type-name service. Stateless; safe from any thread.
class QIB_EXPORT RuntimeTypeInfo
{
public:
    /// The dotted name of a mangled type symbol ("A::B::C" becomes "A.B.C"); the symbol itself when it
    /// cannot be demangled.
    static String DemangleSymbol(const char* symbol);

    /// The namespace part of a dotted type name: the text before its last "." (before the first "<"
    /// for template names); empty when there is no ".".
    static String GetNamespace(const String& typeName);
};

} // namespace Qib
