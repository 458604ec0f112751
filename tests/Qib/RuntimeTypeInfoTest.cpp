// Tests of the dotted type names, which name the class loggers, and of their namespace part.
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
template <typename T>
struct Box
{
};
} // namespace TypeNameSamples::Inner

using Qib::RuntimeTypeInfo;
using Qib::String;

TEST(RuntimeTypeInfoTest, NamesUseDotsAndTextThatIsNoSymbolIsKept)
{
    EXPECT_EQ(Qib::TypeName<TypeNameSamples::Inner::Box<TypeNameSamples::Inner::Colour>>(),
              String("TypeNameSamples.Inner.Box<TypeNameSamples.Inner.Colour>"));
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
