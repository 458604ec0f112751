// Tests of the host exception's message formatting.
#include "Qib/Exception.hpp"

#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <gtest/gtest.h>

#include <string>

TEST(ExceptionTest, TemplateIsFilledPositionallyAndKeptWhenItCannotBe)
{
    const Qib::System::Commons::InvalidFormatException exception("{1} before {0}", Qib::String("zero"), 1);
    const Qib::Exception& general = exception;
    EXPECT_EQ(general.GetMessage(), "1 before zero");
    EXPECT_STREQ(static_cast<const std::exception&>(exception).what(), "1 before zero");
    // Braces in a message without arguments are text, not placeholders.
    EXPECT_EQ(Qib::Exception(std::string("value {0} stays")).GetMessage(), "value {0} stays");
    EXPECT_EQ(Qib::Exception("needs {3}", 1).GetMessage(), "needs {3}");
}
