// Turns compiler type symbols into the host's dotted type names.
#include "Qib/RuntimeTypeInfo.hpp"

#include <boost/algorithm/string/replace.hpp>

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace Qib
{

String RuntimeTypeInfo::DemangleSymbol(const char* symbol)
{
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(symbol, nullptr, nullptr, &status), std::free);
    std::string name = (status == 0 && demangled) ? std::string(demangled.get()) : std::string(symbol);
    for (const char* keyword : {"class ", "struct ", "enum "})
    {
        boost::algorithm::replace_all(name, keyword, "");
    }
    boost::algorithm::replace_all(name, "::", ".");
    return String(name);
}

String RuntimeTypeInfo::GetNamespace(const String& typeName)
{
    const std::string& name = typeName.GetStdString();
    const std::size_t templateStart = name.find('<');
    const std::size_t searchEnd = templateStart == std::string::npos ? std::string::npos : templateStart;
    const std::size_t lastDot = name.rfind('.', searchEnd);
    return lastDot == std::string::npos ? String() : String(name.substr(0, lastDot));
}

} // namespace Qib
