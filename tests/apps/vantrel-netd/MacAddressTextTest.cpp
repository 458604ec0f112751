// Tests of the daemon's check of hardware-address text.
#include "MacAddressText.hpp"

#include <gtest/gtest.h>

#include <string>

using VantrelNetd::MacAddressText;

namespace
{

std::string Normalized(const std::string& text)
{
    std::string result = "unchanged";
    return MacAddressText::TryNormalize(text, result) ? result : "rejected:" + result;
}

} // namespace

TEST(MacAddressTextTest, AcceptsTheThreeLabelFormsInAnyCaseAsUpperCaseColonForm)
{
    EXPECT_EQ(Normalized("00:1A:2B:3C:4D:5E"), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(Normalized("00:1a:2b:3c:4d:5e"), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(Normalized("00-1A-2b-3C-4d-5E"), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(Normalized("001a2B3c4D5e"), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(Normalized("ff:ff:ff:ff:ff:ff"), "FF:FF:FF:FF:FF:FF");
}

TEST(MacAddressTextTest, RejectsTextTheLibraryWouldSilentlyTurnIntoZeros)
{
    for (const char* text : {"", "hello", "00:11:22", "1:2:3:4:5:6", "00:11:22:33:44:55:66", "00:11-22:33:44:55",
                             "00.11.22.33.44.55", "0011.2233.4455", "00:11:22:33:44:5G", "001A2B3C4D5", "001A2B3C4D5E6",
                             " 00:11:22:33:44:55", "00:11:22:33:44:55 ", "00::11:22:33:44:55", "-0:11:22:33:44:55"})
    {
        EXPECT_EQ(Normalized(text), "rejected:unchanged") << '"' << text << '"';
    }
}
