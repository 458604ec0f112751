// Tests of the dotted type names and their namespace part (class and template names are shown by the
// loggers' names).
#include "Qib/RuntimeTypeInfo.hpp"

#include "Qib/TypeName.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace TypeNameSamples::Inner
{
enum class Colour
{
    Red
};
} // namespace TypeNameSamples::Inner

using Qib::RuntimeTypeInfo;
using Qib::String;

TEST(RuntimeTypeInfoTest, NamesUseDotsAndTextThatIsNoSymbolIsKept)
{
    EXPECT_EQ(Qib::TypeName<TypeNameSamples::Inner::Colour>(), String("TypeNameSamples.Inner.Colour"));
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a symbol"), String("not a symbol"));
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("Odd::Name"), String("Odd.Name"));
}

TEST(RuntimeTypeInfoTest, NamespaceIsTheTextBeforeTheLastDotOutsideTemplateArguments)
{
    const std::pair<const char*, const char*> cases[] = {
        {"A.B.Plain", "A.B"}, {"A.B", "A"}, {"A.B.Box<C.D.E>", "A.B"}, {"Box<C.D.E>", ""}, {"Global", ""}, {"", ""}};
    for (const auto& [name, expected] : cases)
    {
        EXPECT_EQ(RuntimeTypeInfo::GetNamespace(name), String(expected)) << name;
    }
}
