// Tests of the dotted type names and their namespace part.
#include "Qib/RuntimeTypeInfo.hpp"

#include "Qib/TypeName.hpp"

#include <gtest/gtest.h>

namespace TypeNameSamples::Inner
{
class Plain
{
};
struct Record
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

TEST(RuntimeTypeInfoTest, ClassStructAndEnumNamesUseDotsWithoutKeywords)
{
    EXPECT_EQ(TypeName<TypeNameSamples::Inner::Plain>(), String("TypeNameSamples.Inner.Plain"));
    EXPECT_EQ(TypeName<TypeNameSamples::Inner::Record>(), String("TypeNameSamples.Inner.Record"));
    EXPECT_EQ(TypeName<TypeNameSamples::Inner::Colour>(), String("TypeNameSamples.Inner.Colour"));
    EXPECT_EQ(TypeName<GlobalSample>(), String("GlobalSample"));
}

TEST(RuntimeTypeInfoTest, TemplateArgumentsAreDottedToo)
{
    EXPECT_EQ(TypeName<TypeNameSamples::Inner::Box<TypeNameSamples::Inner::Plain>>(),
              String("TypeNameSamples.Inner.Box<TypeNameSamples.Inner.Plain>"));
}

TEST(RuntimeTypeInfoTest, SymbolThatCannotBeDemangledIsKeptButDotted)
{
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("not a symbol"), String("not a symbol"));
    EXPECT_EQ(RuntimeTypeInfo::DemangleSymbol("Odd::Name"), String("Odd.Name"));
}

TEST(RuntimeTypeInfoTest, NamespaceIsTextBeforeLastDot)
{
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace(TypeName<TypeNameSamples::Inner::Plain>()),
              String("TypeNameSamples.Inner"));
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace("A.B"), String("A"));
}

TEST(RuntimeTypeInfoTest, NamespaceOfTemplateIgnoresDotsInsideArguments)
{
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace("A.B.Box<C.D.E>"), String("A.B"));
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace("Box<C.D.E>"), String(""));
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace(TypeName<TypeNameSamples::Inner::Box<GlobalSample>>()),
              String("TypeNameSamples.Inner"));
}

TEST(RuntimeTypeInfoTest, NameWithoutDotHasEmptyNamespace)
{
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace("GlobalSample"), String(""));
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace(""), String(""));
}
