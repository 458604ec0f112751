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

// A dot inside template arguments does not end the namespace.
TEST(RuntimeTypeInfoTest, NamespaceIsTheTextBeforeTheLastDotOutsideTemplateArguments)
{
    const String name = Qib::TypeName<TypeNameSamples::Inner::Box<TypeNameSamples::Inner::Colour>>();
    EXPECT_EQ(name, String("TypeNameSamples.Inner.Box<TypeNameSamples.Inner.Colour>"));
    EXPECT_EQ(RuntimeTypeInfo::GetNamespace(name), String("TypeNameSamples.Inner"));
    const std::pair<const char*, const char*> cases[] = {{"A.B", "A"}, {"Box<C.D.E>", ""}, {"Global", ""}, {"", ""}};
    for (const auto& [text, expected] : cases)
    {
        EXPECT_EQ(RuntimeTypeInfo::GetNamespace(text), String(expected)) << text;
    }
}
