// Tests of the host exception's message formatting.
#include "Qib/Exception.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"
#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <gtest/gtest.h>

#include <string>

TEST(ExceptionTest, TemplateIsFilledPositionallyAndKeptWhenItCannotBe)
{
    const Qib::Exception exception("{1} before {0}", Qib::String("zero"), 1);
    EXPECT_EQ(exception.GetMessage(), "1 before zero");
    EXPECT_STREQ(exception.what(), "1 before zero");
    // Braces in a message without arguments are text, not placeholders.
    EXPECT_EQ(Qib::Exception(std::string("value {0} stays")).GetMessage(), "value {0} stays");
    EXPECT_EQ(Qib::Exception("needs {3}", 1).GetMessage(), "needs {3}");
}

TEST(ExceptionTest, DerivedExceptionsAreCaughtAsHostAndStandardExceptions)
{
    EXPECT_THROW(throw Qib::System::Commons::ArgumentException("bad {0}", 1), Qib::Exception);
    try
    {
        throw Qib::System::Commons::InvalidFormatException("'{0}' is malformed", Qib::String("x"));
    }
    catch (const std::exception& exception)
    {
        EXPECT_STREQ(exception.what(), "'x' is malformed");
    }
}
