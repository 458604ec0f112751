// Tests of the dotted type names and their namespace part.
#include "Qib/RuntimeTypeInfo.hpp"

#include "Qib/TypeName.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace TypeNameSamples::Inner
{
class Plain
{
};
enum class Colour
{
    Red
};
template <typename T>
class Box
{
};
} // namespace TypeNameSamples::Inner

class GlobalSample
{
};

using Qib::RuntimeTypeInfo;
using Qib::String;
using Qib::TypeName;
using namespace TypeNameSamples::Inner;

TEST(RuntimeTypeInfoTest, TypeNamesUseDotsWithoutKeywordsAlsoInTemplateArguments)
{
    EXPECT_EQ(TypeName<Plain>(), String("TypeNameSamples.Inner.Plain"));
    EXPECT_EQ(TypeName<Colour>(), String("TypeNameSamples.Inner.Colour"));
    EXPECT_EQ(TypeName<GlobalSample>(), String("GlobalSample"));
    EXPECT_EQ(TypeName<Box<Plain>>(), String("TypeNameSamples.Inner.Box<TypeNameSamples.Inner.Plain>"));
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a symbol"), String("not a symbol"));
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("Odd::Name"), String("Odd.Name"));
}

TEST(RuntimeTypeInfoTest, NamespaceIsTheTextBeforeTheLastDotOutsideTemplateArguments)
{
    const std::pair<String, const char*> cases[] = {{TypeName<Plain>(), "TypeNameSamples.Inner"},
                                                    {"A.B", "A"},
                                                    {"A.B.Box<C.D.E>", "A.B"},
                                                    {"Box<C.D.E>", ""},
                                                    {TypeName<Box<GlobalSample>>(), "TypeNameSamples.Inner"},
                                                    {"GlobalSample", ""},
                                                    {"", ""}};
    for (const auto& [name, expected] : cases)
    {
        EXPECT_EQ(RuntimeTypeInfo::GetNamespace(name), String(expected)) << name;
    }
}
